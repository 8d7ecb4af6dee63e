// Shows values, and sorts properties into sections.
#include "kvoctl/output/property.h"

#include <algorithm>

namespace kvoctl {

namespace {

/// "channel-info get" belongs to the section "channel_info", "usb lock get" to "usb".
std::string sectionKey(const std::string &words)
{
    std::string key = words.substr(0, words.find(' '));
    std::replace(key.begin(), key.end(), '-', '_');
    return key;
}

}  // namespace

std::string Value::text() const
{
    if (!own.empty()) {
        return own;
    }
    if (document.is_null()) {
        return "-";
    }
    if (document.is_boolean()) {
        return document.get<bool>() ? "yes" : "no";
    }
    return document.is_string() ? document.get<std::string>() : document.dump();
}

void addTo(std::vector<Section> &sections, const std::string &words, const Property &property)
{
    const std::string key = sectionKey(words);
    auto section = std::find_if(sections.begin(), sections.end(), [&key](const Section &known) { return known.key == key; });
    if (section == sections.end()) {
        section = sections.insert(section, Section{key, {}});
    }
    section->properties.push_back(property);
}

Report show(const Property &property, uint32_t station)
{
    const Reading reading = property.read(station);
    require(reading.result, property.codes);
    Report report{.exit = property.isQuestion && reading.values.front().document == false ? Exit::no : Exit::done};
    Table table({Table::Column::text, Table::Column::text});
    for (std::size_t i = 0; i < property.keys.size(); ++i) {
        const Value &value = reading.values.at(i);
        report.document[property.keys[i]] = value.document;
        table.add({property.keys[i], value.text()});
    }
    if (property.keys.size() == 1) {
        report.line = reading.values.front().text();
    } else {
        report.table = std::move(table);
    }
    return report;
}

}  // namespace kvoctl
