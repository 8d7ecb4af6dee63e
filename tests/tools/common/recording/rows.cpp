#include "tools/common/recording/rows.h"

#include <algorithm>
#include <array>
#include <fstream>

namespace recording_test {

namespace {

using namespace tools::recording;
using nlohmann::json;

std::vector<Piece> pieces(const json &line, const char *key)
{
    std::vector<Piece> all;
    for (const json &piece : line.value(key, json::array())) {
        all.push_back({Microseconds(piece.at(0).get<int64_t>()), piece.at(1)});
    }
    return all;
}

template <class Value, std::size_t kCount>
Value oneOf(const std::array<const char *, kCount> &names, const std::string &name)
{
    return static_cast<Value>(std::find(names.begin(), names.end(), name) - names.begin());
}

}  // namespace

Line Row::line() const
{
    const json &line = row.at("line");
    if (line.is_null()) {
        return Nothing{};
    }
    if (line.contains("version")) {
        return Version{line.at("version")};
    }
    if (line.contains("start")) {
        return Start{StartTime(Microseconds(line.at("start").get<int64_t>()))};
    }
    if (line.contains("pid")) {
        return Process{line.at("process"), line.at("pid"), line.at("name")};
    }
    if (line.contains("plant")) {
        return PlantLine{line.at("plant")};
    }
    const Microseconds at(line.at("at").get<int64_t>());
    if (line.contains("note")) {
        return Note{at, line.at("note")};
    }
    return Exchange{at,
                    oneOf<Kind>(std::array{"ask", "usb", "event"}, line.at("kind")),
                    line.at("process"),
                    pieces(line, "request"),
                    line.value("eof", false),
                    pieces(line, "reply"),
                    oneOf<End>(std::array{"closed", "left", "reset", "open"}, line.value("end", "closed")),
                    Microseconds(line.value("end_pause", int64_t{0}))};
}

std::vector<Row> rows(const char *table)
{
    std::ifstream file(RECORDINGS);
    const json tables = json::parse(file);
    std::vector<Row> all;
    for (const json &row : tables.at(table)) {
        all.push_back({row});
    }
    return all;
}

}  // namespace recording_test
