// A service that publishes events, and a host that records them.
#pragma once

#include <kvo_hws/agent.h>

#include "support/syslog_capture.h"
#include "support/usb_events.h"

#include <chrono>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <mutex>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace agent_test {

using namespace std::chrono_literals;

using Clock = std::chrono::steady_clock;
using Event = std::pair<std::string, std::string>;

inline constexpr const char *kPath = "/tmp/kvo_hws/event_sock";
inline const std::string kThread = "embKvoEventsThread: ";

/// The events that the host's callback received.
class ReceivedEvents {
public:
    static void callback(const char *name, const char *data)
    {
        std::function<void()> then;
        {
            const std::lock_guard guard(lock_);
            events_.emplace_back(name, data);
            then = then_;
        }
        if (then) {
            then();
        }
    }
    static std::vector<Event> events()
    {
        const std::lock_guard guard(lock_);
        return events_;
    }
    static void onEvent(std::function<void()> work)
    {
        const std::lock_guard guard(lock_);
        then_ = std::move(work);
        events_.clear();
    }
    static bool waitFor(std::size_t count)
    {
        return support::eventually([=] { return events().size() >= count; });
    }

private:
    static inline std::mutex lock_;
    static inline std::vector<Event> events_;
    static inline std::function<void()> then_;
};

/// A service that publishes events.
class EventService {
public:
    EventService() : listener_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        std::filesystem::create_directories("/tmp/kvo_hws");
        unlink(kPath);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strcpy(address.sun_path, kPath);
        EXPECT_EQ(bind(listener_, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
        EXPECT_EQ(listen(listener_, 8), 0);
    }
    EventService(const EventService &) = delete;
    EventService &operator=(const EventService &) = delete;
    ~EventService()
    {
        closeAll();
        close(listener_);
        unlink(kPath);
    }

    /// Waits for the listener to connect; events go to the newest connection.
    bool accept(std::chrono::milliseconds within = 10s)
    {
        pollfd waiting{.fd = listener_, .events = POLLIN, .revents = 0};
        if (poll(&waiting, 1, static_cast<int>(within.count())) != 1) {
            return false;
        }
        connections_.push_back(accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC));
        return true;
    }
    void publish(const std::string &bytes) const
    {
        EXPECT_EQ(write(connections_.back(), bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }
    void stopSending() const { shutdown(connections_.back(), SHUT_WR); }
    void stopSending(std::size_t connection) const { shutdown(connections_[connection], SHUT_WR); }
    /// Whether the listener has closed this connection.
    [[nodiscard]] bool isClosed(std::size_t connection) const
    {
        char byte = 0;
        return recv(connections_[connection], &byte, 1, MSG_DONTWAIT) == 0;
    }
    void closeAll()
    {
        for (const int connection : std::exchange(connections_, {})) {
            close(connection);
        }
    }

private:
    int listener_;
    std::vector<int> connections_;
};

/// Activates the listener for a scope.
class Listening {
public:
    Listening() { EXPECT_EQ(KVO_HWS_activateEmbKvoEvents(ReceivedEvents::callback), 1); }
    Listening(const Listening &) = delete;
    Listening &operator=(const Listening &) = delete;
    ~Listening() { stop(); }

    int stop() { return std::exchange(stopped_, true) ? 0 : KVO_HWS_deactivateEmbKvoEvents(); }

private:
    bool stopped_ = false;
};

/// Whether a new listener can be activated, that is, whether none is left.
inline bool isFree()
{
    if (KVO_HWS_activateEmbKvoEvents(ReceivedEvents::callback) != 1) {
        return false;
    }
    KVO_HWS_deactivateEmbKvoEvents();
    return true;
}

class EventListener : public testing::Test {
protected:
    void SetUp() override { ReceivedEvents::onEvent({}); }

    const support::MessagesOn messages;
};

}  // namespace agent_test
