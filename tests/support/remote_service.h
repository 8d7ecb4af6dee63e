// A test's hardware service of a remote station: accepts the agent, sends requests, and receives its replies and indications.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace support {

class RemoteService {
public:
    /// Listens at 127.0.0.1, port 5850 plus the session number.
    explicit RemoteService(unsigned session = 0);
    RemoteService(const RemoteService &) = delete;
    RemoteService &operator=(const RemoteService &) = delete;
    ~RemoteService();

    /// Waits for the agent to connect; false after @p within.
    [[nodiscard]] bool accept(std::chrono::milliseconds within = std::chrono::seconds(10));

    /// Sends bytes unchanged.
    void send(const std::string &bytes) const;

    /// The next line with its line end. After @p within: whatever was received. "(closed)" if the agent has closed
    /// the connection.
    [[nodiscard]] std::string line(std::chrono::milliseconds within = std::chrono::seconds(10));

    /// Sends a request with "\r
    /// " and returns the next line without its line end, if it has one.
    [[nodiscard]] std::string ask(const std::string &request);

    /// All bytes received within a time.
    [[nodiscard]] std::string bytes(std::chrono::milliseconds within);

    /// Closes the connection, with a reset if @p reset is true.
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
