// Collects all properties of a station. A property that the station does not have is part of its state. A failed request is an
// error, but does not end the page.
#include "kvoctl/families/panel_page.h"

#include "common/dotted_address.h"
#include "common/join.h"
#include "common/station/state.h"
#include "kvoctl/command_line/station_argument.h"
#include "kvoctl/output/property.h"
#include "kvoctl/output/station_record.h"

#include <kvo_hws/result.h>

namespace kvoctl {

namespace {

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

    [[nodiscard]] uint32_t address() const noexcept { return address_; }

    void addReading(const tools::NamedProperty &asked, const Reading &reading)
    {
        const Property &property = asked.property;
        const std::string section = tools::familyKey(asked.subcommand);
        ++requests_;
        const bool failed = !tools::isState(reading.result.code, property.states);
        if (failed) {
            failed_.push_back(asked.subcommand);
        }
        for (std::size_t i = 0; i < property.keys.size(); ++i) {
            if (reading.result.code == KVO_HWS_OK) {
                add(section, property.keys[i], reading.values.at(i));
            } else {
                addMissing(section, property.keys[i], Failure(reading.result.code, meaningOf(reading.result)), failed);
            }
        }
    }

    [[nodiscard]] Report report() &&
    {
        document_["unavailable"] = std::move(unavailable_);
        return {.document = std::move(document_),
                .table = std::move(table_),
                .exit = failed_.empty() ? Exit::done : Exit::failed,
                .errorMessage = errorMessage()};
    }

private:
    void add(const std::string &section, const std::string &key, const Value &value, Colour colour = Colour::none)
    {
        // Only the first row of a section shows its name.
        table_.add({document_.contains(section) ? "" : section, key, Cell(value.text(), colour)});
        document_[section][key] = value.document;
    }

    void addMissing(const std::string &section, const std::string &key, const Failure &failure, bool failed)
    {
        add(section, key, {nullptr, std::string("(") + failure.what() + ")"}, failed ? Colour::bad : Colour::none);
        unavailable_.push_back(
            {{"key", section + "." + key}, {"code", failure.result()}, {"meaning", failure.what()}, {"failed", failed}});
    }

    /// The failed requests, as the words of the subcommands that repeat them; empty if none failed.
    [[nodiscard]] std::string errorMessage() const
    {
        return failed_.empty() ? ""
                               : std::to_string(failed_.size()) + " of " + std::to_string(requests_) +
                                     " requests failed: " + tools::join(failed_, ", ");
    }

    uint32_t address_ = 0;
    std::size_t requests_ = 0;
    std::vector<std::string_view> failed_{};
    Document document_ = Document::object();
    Document unavailable_ = Document::array();
    Table table_{{Table::Column::text, Table::Column::text, Table::Column::text}};
};

}  // namespace

CommandSetup panelShowCommand()
{
    return [](CLI::App &command) -> Action {
        const auto station = addStation(command);
        return [station] {
            Page page(lookUp(*station));
            tools::readStation(page.address(),
                               [&page](const auto &asked, const Reading &reading) { page.addReading(asked, reading); });
            return std::move(page).report();
        };
    };
}

}  // namespace kvoctl
