// Events of embedded stations: each event is one line, sent to all listeners of the event socket.
#pragma once

#include "common/acceptor.h"
#include "common/listening_socket.h"
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
    static constexpr std::size_t kMaxListeners = 1024;
    /// Bytes of events that may wait for a listener, in addition to the socket's buffer.
    static constexpr std::size_t kMaxUnread = std::size_t{256} * 1024;

    /// @p alive is the time between "Alive?" events, 0 for none. @p report is called for each event, and when a listener
    /// connects or disconnects. @p mode is the file mode of the socket. Throws std::runtime_error if the socket cannot be
    /// created. @p loop must outlive this object.
    EmbeddedEvents(tools::EventLoop &loop, std::filesystem::path socket, std::chrono::seconds alive,
                   std::function<void(std::string_view line)> report, mode_t mode = tools::kForThisUser);
    EmbeddedEvents(const EmbeddedEvents &) = delete;
    EmbeddedEvents &operator=(const EmbeddedEvents &) = delete;

    /// Sends one line to every listener. A listener that has too much unread is disconnected instead.
    /// @return the number of listeners that the line was sent to
    std::size_t publish(std::string_view text);
    [[nodiscard]] std::size_t listeners() const noexcept { return listeners_.size(); }
    /// Sends bytes to one listener, or to all without @p listener, as publish() does.
    std::size_t send(std::string_view bytes, std::optional<uint64_t> listener = std::nullopt);
    /// Whether a listener, or one of all, has not yet taken half of the bytes that may wait for it.
    [[nodiscard]] bool isBusy(std::optional<uint64_t> listener = std::nullopt) const;
    /// Calls @p onListener with the number of each listener that connects, from 1.
    void setOnListener(std::function<void(uint64_t number)> onListener) { onListener_ = std::move(onListener); }
    /// Removes the socket and closes the connections.
    void end();

private:
    void add(tools::Descriptor connection);
    void remove(uint64_t number, const std::string &reason);
    void keepAlive(std::chrono::seconds period);

    tools::EventLoop &loop_;
    std::function<void(std::string_view line)> report_;
    std::function<void(uint64_t number)> onListener_ = [](uint64_t) {};
    std::optional<tools::ListeningSocket> socket_;
    std::unique_ptr<tools::Acceptor> acceptor_;
    std::map<uint64_t, std::unique_ptr<Stream>> listeners_;
    uint64_t accepted_ = 0;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace kvosim
