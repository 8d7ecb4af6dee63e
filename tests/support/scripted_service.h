// A hardware service (or USB event server) that answers by a script, misbehaves in every way a test asks for, and records the
// bytes that it was sent.
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

/// One thing a service does with a connection.
struct Step {
    enum class Kind { readLine, write, answer, pause, close, closeUnread };
    Kind kind;
    std::string bytes{};
    std::chrono::milliseconds pause{};
    std::function<std::string(const std::string &request)> answer{};
};

/// What a service does with one connection, from the accept to its end (it closes where the script ends).
using Script = std::vector<Step>;

/// Reads the request, answers these bytes as they are.
Script sends(std::string bytes);
/// Reads the request, answers the text and a line feed.
Script replies(const std::string &text);
/// Reads the request, answers the text that @p answer has for it, and a line feed.
Script answersWith(std::function<std::string(const std::string &request)> answer);
/// Reads the request, answers one byte at a time with a pause between.
Script dribbles(const std::string &bytes, std::chrono::milliseconds between);
/// Accepts and closes without reading the request.
Script closesAtOnce();
/// Reads the request and closes.
Script closesAfterRequest();
/// Reads the request, answers the beginning of a line and closes.
Script closesInsideReply(std::string beginning);
/// Reads the request and stays silent for so long.
Script staysSilent(std::chrono::milliseconds time);

class ScriptedService {
public:
    /// Listens at once. Each connection takes the next script; when they have run out, the last one again.
    explicit ScriptedService(std::vector<Script> scripts, const char *path = kCommandSocket);
    ScriptedService(const ScriptedService &) = delete;
    ScriptedService &operator=(const ScriptedService &) = delete;
    ~ScriptedService();

    /// All requests so far, each with its line feed, as they came.
    [[nodiscard]] std::vector<std::string> requests() const;

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

/// A service in a process of its own that gives every request the same reply as fast as it can and records nothing.
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

/// A socket file at @p path whose listener has gone.
void leaveStaleSocket(const char *path);

/// A listener at @p path that never accepts and whose queue is full, so that connects block.
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
