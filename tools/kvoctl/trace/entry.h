// An exchange as a trace shows it: the lines that were sent, and what became of the request.
#pragma once

#include "common/recording/line.h"
#include "common/tap/observer.h"

#include <cstddef>
#include <limits>
#include <string>

namespace kvoctl {

using tools::recording::Exchange;
using tools::recording::Kind;
using tools::recording::Microseconds;
using tools::recording::Note;
using tools::tap::Peer;

enum class Outcome {
    done,        ///< a reply, or none where the protocol has none
    refused,     ///< the reply says that the request was not carried out
    silent,      ///< the side that asked gave up waiting for a reply
    closed,      ///< the connection was closed without a reply
    incomplete,  ///< the reply has no line end
    reset,       ///< the connection was reset before the reply was complete
    open,        ///< the trace ended first
    listens,     ///< no exchange: a program has connected to the socket of embedded events
};

/// The outcome as a word, such as "no reply".
const char *wordOf(Outcome outcome);
/// Whether --failures shows the outcome. A request without a reply at the end of the trace has not failed.
bool isFailure(Outcome outcome);

struct Entry {
    Microseconds at{};
    Kind kind = Kind::ask;
    Peer peer{};
    std::string request{};  ///< the first line without its line end
    std::string reply{};    ///< the first line without its line end
    std::size_t furtherRequestLines = 0;
    std::size_t furtherReplyLines = 0;
    std::size_t requestBytes = 0;  ///< of all lines, with their line ends
    std::size_t replyBytes = 0;
    Outcome outcome = Outcome::done;
    /// From the first byte of the request to the last byte of the reply, or to the end of the connection if no reply was complete.
    Microseconds duration{};
};

/// So much of each line is enough to judge an exchange. A list of stations may have megabytes.
inline constexpr std::size_t kEnoughToJudge = 4096;

/// @p longest  cuts the two lines; at least kEnoughToJudge
Entry entryOf(Peer peer, const Exchange &exchange, std::size_t longest = std::numeric_limits<std::size_t>::max());

/// The first word of a request, of an event of a USB device or of an embedded event, such as "getMCPAddress".
std::string commandOf(const Entry &entry);

/// The program that takes part, such as "panel[4711]". Says so if its name or its process id is unknown.
std::string programOf(const Entry &entry);

}  // namespace kvoctl
