// Runs all checks and shows the findings.
#include "kvoctl/doctor/doctor.h"

#include "common/platform_check.h"
#include "common/service_probe.h"

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

Report report(const std::vector<tools::Finding> &findings)
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

Action setUpDoctor(CLI::App & /*command*/)
{
    return [] {
        std::vector<tools::Finding> findings{tools::examineLibrary("libkvo_hws.so.0"), tools::examineLibrary("libpavo.so.1"),
                                             tools::examineLibrary("libdrak.so"), tools::examineConfiguration()};
        const std::vector<tools::Finding> ofService = tools::probeService();
        findings.insert(findings.end(), ofService.begin(), ofService.end());
        return report(findings);
    };
}

}  // namespace

void addDoctor(CommandLine &commandLine)
{
    Family service(commandLine, "Service");
    service.add("doctor", "Find out why the service does not answer", {"", "--json"}, setUpDoctor);
}

}  // namespace kvoctl
