// The hardware service of a remote station, played by a test: accepts the agent, asks, and hears its answers and indications.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace support {

class RemoteService {
public:
    /// Listens at 127.0.0.1, port 5850 and the session's number.
    explicit RemoteService(unsigned session = 0);
    RemoteService(const RemoteService &) = delete;
    RemoteService &operator=(const RemoteService &) = delete;
    ~RemoteService();

    /// Waits for the agent to connect; false after @p within.
    [[nodiscard]] bool accept(std::chrono::milliseconds within = std::chrono::seconds(10));

    /// Sends bytes as they are.
    void send(const std::string &bytes) const;

    /// The next line with its line end; what has come by the time nothing does any more; "(closed)" where the agent has closed.
    [[nodiscard]] std::string line(std::chrono::milliseconds within = std::chrono::seconds(10));

    /// Sends a request with "\r\n" and returns the next line, without its line end where it has one.
    [[nodiscard]] std::string ask(const std::string &request);

    /// What comes within a time, whatever it is.
    [[nodiscard]] std::string bytes(std::chrono::milliseconds within);

    /// Ends the connection; @p reset: with a reset instead of an end.
    void close(bool reset = false);

    [[nodiscard]] int connection() const { return connection_; }

private:
    bool readMore(std::chrono::milliseconds within);

    int listener_;
    int connection_ = -1;
    std::string received_;
    bool closed_ = false;
};

}  // namespace support
