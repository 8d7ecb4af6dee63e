// A remote service in this process: listens on the loopback interface, sends commands to an agent, and separates the replies.
#pragma once

#include "common/descriptor.h"

#include <chrono>
#include <functional>
#include <optional>
#include <string>

namespace kvoctl {

class RemoteSide {
public:
    /// Listens for the agent of @p session, or of the first session whose port is free. Throws std::runtime_error if that port
    /// is in use, or if no port is free.
    explicit RemoteSide(std::optional<unsigned> session);

    [[nodiscard]] unsigned session() const noexcept { return session_; }

    /// Waits for the agent's connection. Returns false after the timeout, or once @p giveUp returns true.
    [[nodiscard]] bool accept(std::chrono::milliseconds within, const std::function<bool()> &giveUp);

    /// Sends @p line with a line end and returns the whole reply unchanged, with or without a line end. Returns nothing if the
    /// reply is not complete in time, or if the agent closed the connection.
    [[nodiscard]] std::optional<std::string> ask(const std::string &line, std::chrono::milliseconds within);

private:
    tools::Descriptor listener_;
    unsigned session_;
    std::optional<tools::Descriptor> connection_{};
};

}  // namespace kvoctl
