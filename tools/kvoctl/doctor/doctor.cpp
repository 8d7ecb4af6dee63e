// Runs all checks and shows the findings.
#include "kvoctl/doctor/doctor.h"

#include "common/platform_check.h"
#include "common/service_probe.h"
#include "common/tap/tap.h"

#include <algorithm>

namespace kvoctl {

namespace {

const char *state(const tools::Finding &finding)
{
    if (finding.isFault()) {
        return "FAULT";
    }
    return finding.isNote() ? "note" : "ok";
}

Colour colour(const tools::Finding &finding)
{
    if (finding.isFault()) {
        return Colour::bad;
    }
    return finding.isNote() ? Colour::warning : Colour::good;
}

}  // namespace

Report reportOf(const std::vector<tools::Finding> &findings)
{
    Table table({Table::Column::text, Table::Column::text, Table::Column::text});
    Document documents = Document::array();
    for (const tools::Finding &finding : findings) {
        table.add({Cell(state(finding), colour(finding)), finding.check, finding.text});
        if (!finding.advice.empty()) {
            table.add({"", "", finding.advice});
        }
        documents.push_back({{"check", finding.check},
                             {"state", finding.isFault() ? "fault" : state(finding)},
                             {"status", static_cast<int>(finding.fault)},
                             {"finding", finding.text},
                             {"advice", finding.advice.empty() ? Document(nullptr) : Document(finding.advice)}});
    }
    const auto fault = std::find_if(findings.begin(), findings.end(), [](const tools::Finding &one) { return one.isFault(); });
    const bool healthy = fault == findings.end();
    return {.document = {{"healthy", healthy}, {"findings", std::move(documents)}},
            .table = std::move(table),
            .line = healthy ? std::optional<std::string>("Nothing is wrong.") : std::nullopt,
            .exit = healthy ? Exit::done : static_cast<Exit>(fault->fault)};
}

namespace {

/// At most one finding: a trace that was killed, or one that is running.
std::vector<tools::Finding> examineTap()
{
    if (tools::tap::needsRepair()) {
        return {{.check = "trace",
                 .text = "A trace or a recording was killed, and has left the service's socket aside.",
                 .advice = "Put it back: kvoctl trace --repair",
                 .fault = tools::Fault::tapLeft}};
    }
    if (tools::tap::isAttached()) {
        return {{.check = "trace",
                 .text = "A trace or a recording is running; all requests pass through it.",
                 .advice = "If requests are slow or fail, end it and try again."}};
    }
    return {};
}

Action setUpDoctor(CLI::App & /*command*/)
{
    return [] { return reportOf(examine()); };
}

}  // namespace

std::vector<tools::Finding> examine()
{
    std::vector<tools::Finding> findings{tools::examineLibrary("libkvo_hws.so.0"), tools::examineLibrary("libpavo.so.1"),
                                         tools::examineLibrary("libdrak.so"), tools::examineConfiguration()};
    const std::vector<tools::Finding> ofTap = examineTap();
    findings.insert(findings.end(), ofTap.begin(), ofTap.end());
    // The socket in the place of the service's socket is dead, so a probe would blame the service.
    if (ofTap.empty() || !ofTap.back().isFault()) {
        const std::vector<tools::Finding> ofService = tools::probeService();
        findings.insert(findings.end(), ofService.begin(), ofService.end());
    }
    return findings;
}

void addDoctor(CommandLine &commandLine)
{
    Family service(commandLine, "Service");
    service.add("doctor", "Find out why the service does not answer", {"", "--json"}, setUpDoctor);
}

}  // namespace kvoctl
