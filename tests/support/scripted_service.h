// A hardware service (or USB event server) that replies by a script, can misbehave in every way a test needs, and
// records the bytes that it receives.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace support {

inline constexpr const char *kCommandSocket = "/tmp/kvo_hws/cmd_sock";
inline constexpr const char *kUsbSocket = "/tmp/kvo_hws/usb_sock";

/// One action of a service on a connection.
struct Step {
    enum class Kind { readLine, write, answer, pause, close, closeUnread };
    Kind kind;
    std::string bytes{};
    std::chrono::milliseconds pause{};
    std::function<std::string(const std::string &request)> answer{};
};

/// All actions of a service on one connection, from accept to close (it closes at the script's end).
using Script = std::vector<Step>;

/// Reads the request, then sends these bytes unchanged.
Script sends(std::string bytes);
/// Reads the request, then sends the text and a line feed.
Script replies(const std::string &text);
/// Reads the request, then sends the text that @p answer returns for it, and a line feed.
Script answersWith(std::function<std::string(const std::string &request)> answer);
/// Reads the request, then sends one byte at a time with a pause after each.
Script dribbles(const std::string &bytes, std::chrono::milliseconds between);
/// Accepts and closes without reading the request.
Script closesAtOnce();
/// Reads the request and closes.
Script closesAfterRequest();
/// Reads the request, sends the beginning of a line and closes.
Script closesInsideReply(std::string beginning);
/// Reads the request, then sends nothing for @p time.
Script staysSilent(std::chrono::milliseconds time);

class ScriptedService {
public:
    /// Listens at once. Each connection takes the next script; after the last script, every connection takes that one.
    explicit ScriptedService(std::vector<Script> scripts, const char *path = kCommandSocket);
    ScriptedService(const ScriptedService &) = delete;
    ScriptedService &operator=(const ScriptedService &) = delete;
    ~ScriptedService();

    /// All requests so far in order, each with its line feed.
    [[nodiscard]] std::vector<std::string> requests() const;
    /// Waits until no request has arrived for 200 ms. Returns false after 10 s.
    [[nodiscard]] bool hasNoMoreRequests() const;

private:
    void serve(const std::vector<Script> &scripts);
    void run(int connection, const Script &script);
    bool readLine(int connection);

    std::string path_;
    int listener_;
    std::atomic<bool> ending_{false};
    mutable std::mutex lock_;
    std::vector<std::string> requests_;
    std::thread thread_;
};

/// A service in a separate process that sends the same reply to every request as fast as it can and records nothing.
class QuickService {
public:
    explicit QuickService(const std::string &reply, const char *path = kCommandSocket);
    QuickService(const QuickService &) = delete;
    QuickService &operator=(const QuickService &) = delete;
    ~QuickService();

private:
    std::string path_;
    int process_;
};

/// Leaves a socket file at @p path without a listener.
void leaveStaleSocket(const char *path);

/// A listener at @p path that never accepts and has a full queue, so connects block.
class FullQueue {
public:
    explicit FullQueue(const char *path = kCommandSocket);
    FullQueue(const FullQueue &) = delete;
    FullQueue &operator=(const FullQueue &) = delete;
    ~FullQueue();

private:
    std::string path_;
    std::vector<int> sockets_;
};

}  // namespace support
