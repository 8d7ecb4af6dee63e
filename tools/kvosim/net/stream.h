// A connected stream socket on the loop: passes received data to a callback, and keeps unsent data in a bounded buffer.
#pragma once

#include "common/event_loop.h"

#include <functional>
#include <string>
#include <string_view>

namespace kvosim {

class Stream {
public:
    /// Both may destroy the stream.
    struct Callbacks {
        std::function<void(std::string_view piece)> received;
        std::function<void(const std::string &reason)> closed;  ///< by the other side
    };

    /// @p capacity is the number of bytes that may wait to be written. @p loop must outlive this object. The destructor closes
    /// the connection.
    Stream(tools::EventLoop &loop, tools::Descriptor socket, std::size_t capacity, Callbacks callbacks);
    Stream(const Stream &) = delete;
    Stream &operator=(const Stream &) = delete;
    ~Stream();

    /// Writes all bytes, now or as the other side reads. Returns false and writes nothing if the buffer does not have enough
    /// space. Also returns false if the other side has closed; the callback reports that later.
    [[nodiscard]] bool write(std::string_view bytes);
    /// The number of bytes that wait to be written.
    [[nodiscard]] std::size_t unsent() const noexcept { return unsent_.size(); }
    /// Makes the other side see a connection reset, instead of an orderly end, when the stream is closed.
    void resetWhenClosed() const noexcept;

private:
    void handleEvents(uint32_t events);
    void receive();
    [[nodiscard]] bool flush();

    tools::EventLoop &loop_;
    tools::Descriptor socket_;
    std::size_t capacity_;
    Callbacks callbacks_;
    std::string unsent_;
};

}  // namespace kvosim
