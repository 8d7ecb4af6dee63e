// The list of the parts.
#include "kvoctl/report/part.h"

namespace kvoctl::reporting {

namespace {

using namespace std::chrono_literals;

constexpr auto kShort = 20s;
/// Enough for 10 000 stations.
constexpr auto kCaptureLimit = 3600s;
/// After its time, a trace completes the requests in progress.
constexpr auto kEndOfTrace = 20s;

}  // namespace

std::vector<Part> partsOf(const Options &options)
{
    std::vector<Part> parts{
        {"doctor.txt, doctor.json", "what \"kvoctl doctor\" finds", kShort, doctorFindings},
        {"versions.txt", "kvoctl, library, service, system", kShort, versions},
        {"machine.txt", "time, memory, disks, network interfaces", kShort, machine},
        {"libraries.txt", "the libraries that kvoctl uses, with build ids", kShort, libraries},
        {"programs.txt", "the programs that have loaded the library", kShort, programs},
        {"configuration/", "configuration file, values in use, environment", kShort, configuration},
        {"sockets.txt", "the sockets, and which processes listen there", kShort, sockets},
    };
    if (options.trace) {
        const auto length = *options.trace;
        parts.push_back({"trace.rec, trace.txt", "what passed on the sockets in " + std::to_string(length.count()) + " s",
                         length + kEndOfTrace,
                         [length, folder = options.folder](const Circumstances &all) { return trace(all, length, folder); }});
    }
    // After the trace, during which the fault may have happened.
    parts.push_back({"log.txt", "the library's and the service's log lines", kShort,
                     [only = options.anonymize](const Circumstances &all) { return systemLog(all, only); }});
    // The last one, because it takes the longest: a user who ends the report then still gets the others.
    parts.push_back({"plant.toml", "the plant as the service describes it", kCaptureLimit, plant});
    return parts;
}

}  // namespace kvoctl::reporting
