// A connected stream socket on the loop: what comes is handed on piece by piece, what goes waits in a buffer that is bounded.
#pragma once

#include "kvosim/base/event_loop.h"

#include <functional>
#include <string>
#include <string_view>

namespace kvosim {

class Stream {
public:
    /// Both may destroy the stream.
    struct Reactions {
        std::function<void(std::string_view piece)> take;
        std::function<void(const std::string &reason)> closed;  ///< by the other side
    };

    /// @p room is how many bytes may wait to be written. @p loop must outlive it. Its end closes the connection.
    Stream(EventLoop &loop, tools::Descriptor socket, std::size_t room, Reactions reactions);
    Stream(const Stream &) = delete;
    Stream &operator=(const Stream &) = delete;
    ~Stream();

    /// All of it, now or as the other side reads. False, with nothing written, where there is no room; false where the other
    /// side has closed, which is also told to the reaction, later.
    [[nodiscard]] bool write(std::string_view bytes);
    /// When it is closed, the other side finds the connection reset instead of ended.
    void resetWhenClosed() const noexcept;

private:
    void react(uint32_t events);
    void receive();
    [[nodiscard]] bool flush();

    EventLoop &loop_;
    tools::Descriptor socket_;
    std::size_t room_;
    Reactions reactions_;
    std::string waiting_;
};

}  // namespace kvosim
