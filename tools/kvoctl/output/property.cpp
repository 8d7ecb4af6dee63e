// Shows a single value as a line and several values as a table.
#include "kvoctl/output/property.h"

namespace kvoctl {

Report show(const Property &property, uint32_t station)
{
    const Reading reading = property.read(station);
    require(reading.result);
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
