// The summary of a trace: how many requests of which kind, which failed, and which took longest.
#pragma once

#include "kvoctl/output/output.h"
#include "kvoctl/trace/entry.h"
#include "kvoctl/trace/trace_line.h"

#include <cstdint>
#include <map>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace kvoctl {

/// What has been seen, for a sentence such as "1204 requests, 2 USB events, 1 embedded event".
struct Totals {
    uint64_t requests = 0;
    uint64_t usbEvents = 0;
    uint64_t embeddedEvents = 0;
    uint64_t bytes = 0;  ///< of requests, events and replies

    void add(const Entry &entry);
    [[nodiscard]] uint64_t all() const noexcept { return requests + usbEvents + embeddedEvents; }
    /// Leaves out what was not seen, except for the requests.
    [[nodiscard]] std::string text() const;
    [[nodiscard]] Document document() const;
};

/// "1 program", "3 programs".
std::string amountOf(uint64_t count, const std::string &word);

class Summary {
public:
    /// Counts an exchange that the filter has selected. Takes the same memory after millions of exchanges.
    void add(const Entry &entry);
    /// Counts an exchange that the filter has left out.
    void addOther() { ++others_; }

    [[nodiscard]] bool hasSeen() const noexcept { return totals_.all() > 0; }

    /// For people.
    /// @p time  of the trace  @p dropped  how many exchanges were not shown  @p whyNothing  shown if there was none
    void write(std::ostream &out, StartTime start, Microseconds time, uint64_t dropped, const std::string &whyNothing,
               const Layout &layout) const;
    [[nodiscard]] Document document(StartTime start, Microseconds time, uint64_t dropped) const;

private:
    struct Row {
        uint64_t count = 0;
        uint64_t failed = 0;
        Microseconds total{};
        Microseconds slowest{};
        bool hasTimes = true;  ///< embedded events have no reply, so they take no time
    };
    using Rows = std::map<std::string, Row>;

    [[nodiscard]] static std::vector<std::pair<std::string, Row>> sorted(const Rows &rows);
    void writeCommands(std::ostream &out, const Layout &layout) const;
    void writeFailures(std::ostream &out, const Layout &layout) const;
    void writePrograms(std::ostream &out, const Layout &layout) const;

    Totals totals_;
    uint64_t failed_ = 0;
    uint64_t others_ = 0;
    Rows commands_;
    Rows programs_;                                                     ///< by name
    std::map<std::pair<std::string, std::string>, uint64_t> failures_;  ///< by command, and reply or reason
    std::vector<Entry> slowest_;                                        ///< the slowest first
};

}  // namespace kvoctl
