// What a tap reports: the exchanges that passed through it, and what happened to the tap itself.
#pragma once

#include "common/recording/line.h"

#include <cstdint>
#include <string>

namespace tools::tap {

/// The process that connected.
struct Peer {
    int64_t pid = 0;     ///< 0 if it runs in a PID namespace that cannot be seen from here, or if no program was involved
    std::string name{};  ///< empty if the process had ended before the tap could read its name
    bool operator==(const Peer &) const = default;
};

/// Called on the thread of the tap's event loop, while programs wait. Implementations must not block.
class Observer {
public:
    Observer() = default;
    Observer(const Observer &) = delete;
    Observer &operator=(const Observer &) = delete;
    virtual ~Observer() = default;

    /// A connection has ended, or the tap ends before the connection does (End::open). exchange.process is 0; its offsets count
    /// from the start of the tap. @p peer  of Kind::ask: the program that asked; of Kind::usb: the process that sent the event or
    /// "suicide", usually the service; of Kind::event: the program that listens, or none if the tap itself listens
    virtual void onExchange(const Peer &peer, recording::Exchange exchange) = 0;
    /// Something that the user should know, such as a service that has ended. @p text  a sentence
    virtual void onNote(recording::Microseconds at, const std::string &text) = 0;
    /// The tap has left its place for good, and reports nothing more. Call Tap::end(). @p reason  without a capital and a full stop
    virtual void onGivenUp(const std::string &reason) = 0;
};

}  // namespace tools::tap
