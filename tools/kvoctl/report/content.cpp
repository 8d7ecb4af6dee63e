// As CBOR, whose texts may contain any bytes.
#include "kvoctl/report/content.h"

#include "common/json.h"

#include <stdexcept>

namespace kvoctl::reporting {

namespace {

using tools::Json;

std::string cbor(const Json &document)
{
    std::string text;
    Json::to_cbor(document, text);
    return text;
}

}  // namespace

std::string encode(const Content &content)
{
    Json files = Json::array();
    for (const File &file : content.files) {
        files.push_back({file.name, file.content, static_cast<int>(file.form)});
    }
    return cbor({{"files", std::move(files)}, {"notes", content.notes}});
}

std::string encodeFailure(const std::string &reason) { return cbor({{"failure", reason}}); }

Content decode(const std::string &text)
{
    const Json document = Json::from_cbor(text);
    if (document.contains("failure")) {
        throw std::runtime_error(document["failure"].get<std::string>());
    }
    Content content{.notes = document.at("notes")};
    for (const Json &file : document.at("files")) {
        content.files.push_back({file.at(0), file.at(1), static_cast<Form>(file.at(2).get<int>())});
    }
    return content;
}

}  // namespace kvoctl::reporting
