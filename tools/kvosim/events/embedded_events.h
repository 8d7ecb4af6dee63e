// Events of embedded stations: each a line to everybody who listens at the event socket.
#pragma once

#include "common/listening_socket.h"
#include "kvosim/net/acceptor.h"
#include "kvosim/net/stream.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace kvosim {

inline constexpr std::string_view kAlive = "Alive?";

class EmbeddedEvents {
public:
    static constexpr std::size_t kMostListeners = 1024;
    /// Bytes of events that a listener may leave unread, beside what the socket holds.
    static constexpr std::size_t kMostUnread = std::size_t{256} * 1024;

    /// @p alive is the time between "Alive?" events, 0 for none. @p report is told of each event, and of listeners that come
    /// and go. @p mode says who may connect. Throws std::runtime_error where the socket can not be had. @p loop must outlive it.
    EmbeddedEvents(EventLoop &loop, std::filesystem::path socket, std::chrono::seconds alive,
                   std::function<void(std::string_view line)> report, mode_t mode = tools::kForThisUser);
    EmbeddedEvents(const EmbeddedEvents &) = delete;
    EmbeddedEvents &operator=(const EmbeddedEvents &) = delete;

    /// Sends one line to every listener. A listener that has left too much unread is dropped instead.
    /// @return how many it was sent to
    std::size_t publish(std::string_view text);
    [[nodiscard]] std::size_t listeners() const noexcept { return listeners_.size(); }
    /// Removes the socket and closes the connections.
    void end();

private:
    void add(tools::Descriptor connection);
    void remove(uint64_t number, const std::string &reason);
    void keepAlive(std::chrono::seconds period);

    EventLoop &loop_;
    std::function<void(std::string_view line)> report_;
    std::optional<tools::ListeningSocket> socket_;
    std::unique_ptr<Acceptor> acceptor_;
    std::map<uint64_t, std::unique_ptr<Stream>> listeners_;
    uint64_t accepted_ = 0;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace kvosim
