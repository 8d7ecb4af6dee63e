// What the service says: the doctor's findings, and the plant.
#include "kvoctl/capture/capture.h"
#include "kvoctl/doctor/doctor.h"
#include "kvoctl/output/display_text.h"
#include "kvoctl/report/part.h"

#include <sstream>
#include <stdexcept>

namespace kvoctl::reporting {

namespace {

std::string describe(const NotRead &value)
{
    const std::string where = value.station.empty() ? "the service" : value.station;
    return (value.key.empty() ? where : value.key + " of " + where) + ": " + value.reason;
}

}  // namespace

Content doctorFindings(const Circumstances & /*circumstances*/)
{
    const Report report = reportOf(examine());
    std::ostringstream text;
    report.table->write(text, {kUnlimited});
    text << report.line.value_or("The first FAULT is the cause; the line after it says what to do.") << '\n';
    return {.files = {{"doctor.txt", text.str()}, {"doctor.json", indented(report.document) + '\n', Form::json}}};
}

Content plant(const Circumstances &circumstances)
{
    if (!circumstances.serviceFault.empty()) {
        throw std::runtime_error("the service was not asked: " + circumstances.serviceFault);
    }
    const Captured captured = capture({.progress = [&](const CaptureProgress &progress) {
        if (progress.all > 0) {
            circumstances.progress(std::to_string(progress.stations) + " of " + std::to_string(progress.all) + " stations");
        }
    }});
    Content content{.files = {{"plant.toml", captured.text, Form::plant}}};
    if (!captured.stopped.empty()) {
        content.notes.push_back(captured.stopped);
    }
    for (const NotRead &value : captured.notRead) {
        content.notes.push_back(describe(value));
    }
    return content;
}

}  // namespace kvoctl::reporting
