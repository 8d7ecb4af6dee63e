// A remote service of our own for an agent in this process: listens at the loopback, asks, and takes the answers apart.
#pragma once

#include "common/descriptor.h"

#include <chrono>
#include <functional>
#include <optional>
#include <string>

namespace kvoctl {

class RemoteSide {
public:
    /// Listens for the agent of @p session, or of the first one whose port is free. Throws std::runtime_error where there is
    /// none.
    explicit RemoteSide(std::optional<unsigned> session);

    [[nodiscard]] unsigned session() const noexcept { return session_; }

    /// Waits for the agent. False where it has not come in time, or @p giveUp says so.
    [[nodiscard]] bool accept(std::chrono::milliseconds within, const std::function<bool()> &giveUp);

    /// Sends @p line with a line end, and returns all that is answered, as it comes: replies need not end in a line end.
    /// Nothing where the answer is not whole in time, or the agent has closed.
    [[nodiscard]] std::optional<std::string> ask(const std::string &line, std::chrono::milliseconds within);

private:
    tools::Descriptor listener_;
    unsigned session_;
    std::optional<tools::Descriptor> connection_{};
};

}  // namespace kvoctl
