// Asks for one property after the other. What a station does not have is part of its state and ends nothing.
#include "kvoctl/families/panel_page.h"

#include "common/dotted_address.h"
#include "kvoctl/command_line/station_argument.h"
#include "kvoctl/output/station_record.h"

#include <kvo_hws/result.h>

#include <chrono>

using namespace std::chrono_literals;

namespace kvoctl {

namespace {

/// An answer that takes so long has not come: the library gives a silent service 4 s, and would at every further question.
constexpr auto kSilence = 3s;

class Page {
public:
    explicit Page(const KvoDescriptionEx &station)
    {
        const Document record = document(station, tools::dotted(station.address));
        for (const auto &[key, value] : record.items()) {
            add("station", key, Value{value});
        }
        address_ = station.address;
    }

    void ask(const std::string &section, const Property &property)
    {
        const auto start = std::chrono::steady_clock::now();
        const Reading reading = property.read(address_);
        if (reading.result == KVO_HWS_NO_SERVICE) {
            require(reading.result);
        }
        if (reading.result != KVO_HWS_OK && std::chrono::steady_clock::now() - start > kSilence) {
            throw Failure(reading.result, "the service stopped answering");
        }
        for (std::size_t i = 0; i < property.keys.size(); ++i) {
            if (reading.result == KVO_HWS_OK) {
                add(section, property.keys[i], reading.values.at(i));
            } else {
                addMissing(section, property.keys[i], Failure(reading.result, words(reading.result, property.codes)));
            }
        }
    }

    [[nodiscard]] Report report() &&
    {
        document_["unavailable"] = std::move(unavailable_);
        return {.document = std::move(document_), .table = std::move(table_)};
    }

private:
    void add(const std::string &section, const std::string &key, const Value &value)
    {
        // A section is named once.
        table_.add({document_.contains(section) ? "" : section, key, value.text()});
        document_[section][key] = value.document;
    }

    void addMissing(const std::string &section, const std::string &key, const Failure &failure)
    {
        add(section, key, {nullptr, std::string("(") + failure.what() + ")"});
        unavailable_.push_back({{"key", section + "." + key}, {"code", failure.result()}, {"meaning", failure.what()}});
    }

    uint32_t address_ = 0;
    Document document_ = Document::object();
    Document unavailable_ = Document::array();
    Table table_{{Table::Column::text, Table::Column::text, Table::Column::text}};
};

}  // namespace

Subcommand stationPage(const CommandLine &commandLine)
{
    const auto setUp = [&commandLine](CLI::App &command) -> Action {
        const auto station = addStation(command);
        return [&commandLine, station] {
            Page page(lookUp(*station));
            for (const Section &section : commandLine.sections()) {
                for (const Property &property : section.properties) {
                    page.ask(section.key, property);
                }
            }
            return std::move(page).report();
        };
    };
    return {setUp};
}

}  // namespace kvoctl
