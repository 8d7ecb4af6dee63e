#include "support/scripted_service.h"

#include "support/eventually.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <poll.h>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace std::chrono_literals;

namespace support {

namespace {

sockaddr_un addressOf(const std::string &path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

int listenAt(const std::string &path, int queue)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::filesystem::remove(path);
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address = addressOf(path);
    if (listener < 0 || bind(listener, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 ||
        listen(listener, queue) != 0) {
        throw std::runtime_error("cannot listen at " + path + ": " + std::strerror(errno));
    }
    return listener;
}

const Step kReadLine{.kind = Step::Kind::readLine};

void writeAll(int connection, const std::string &bytes)
{
    // Uses sendmsg: a test may have replaced the calls that the library uses.
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        iovec rest{const_cast<char *>(bytes.data()) + sent, bytes.size() - sent};
        msghdr message{};
        message.msg_iov = &rest;
        message.msg_iovlen = 1;
        const ssize_t count = sendmsg(connection, &message, MSG_NOSIGNAL);
        if (count <= 0) {
            return;  // the client has closed the connection, as some tests require
        }
        sent += static_cast<std::size_t>(count);
    }
}

}  // namespace

Script sends(std::string bytes) { return {kReadLine, {.kind = Step::Kind::write, .bytes = std::move(bytes)}}; }

Script replies(const std::string &text) { return sends(text + "\n"); }

Script answersWith(std::function<std::string(const std::string &request)> answer)
{
    return {kReadLine, {.kind = Step::Kind::answer, .answer = std::move(answer)}};
}

Script dribbles(const std::string &bytes, std::chrono::milliseconds between)
{
    Script script{kReadLine};
    for (const char byte : bytes) {
        script.push_back({.kind = Step::Kind::write, .bytes = std::string(1, byte)});
        script.push_back({.kind = Step::Kind::pause, .pause = between});
    }
    return script;
}

Script closesAtOnce() { return {{.kind = Step::Kind::closeUnread}}; }

Script closesAfterRequest() { return {kReadLine, {.kind = Step::Kind::close}}; }

Script closesInsideReply(std::string beginning)
{
    return {kReadLine, {.kind = Step::Kind::write, .bytes = std::move(beginning)}, {.kind = Step::Kind::close}};
}

Script staysSilent(std::chrono::milliseconds time) { return {kReadLine, {.kind = Step::Kind::pause, .pause = time}}; }

ScriptedService::ScriptedService(std::vector<Script> scripts, const char *path)
    : path_(path), listener_(listenAt(path, 64)), thread_([this, scripts = std::move(scripts)] { serve(scripts); })
{
}

ScriptedService::~ScriptedService()
{
    ending_ = true;
    thread_.join();
    close(listener_);
    std::filesystem::remove(path_);
}

std::vector<std::string> ScriptedService::requests() const
{
    const std::lock_guard lock(lock_);
    return requests_;
}

bool ScriptedService::hasNoMoreRequests() const
{
    return eventually([this] {
        const std::size_t before = requests().size();
        std::this_thread::sleep_for(200ms);
        return requests().size() == before;
    });
}

void ScriptedService::serve(const std::vector<Script> &scripts)
{
    std::size_t next = 0;
    while (!ending_) {
        pollfd waiting{.fd = listener_, .events = POLLIN, .revents = 0};
        if (poll(&waiting, 1, 10) <= 0) {
            continue;
        }
        const int connection = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection < 0) {
            continue;
        }
        run(connection, scripts[next]);
        next = next + 1 < scripts.size() ? next + 1 : next;
        close(connection);
    }
}

void ScriptedService::run(int connection, const Script &script)
{
    for (const Step &step : script) {
        switch (step.kind) {
        case Step::Kind::readLine:
            if (!readLine(connection)) {
                return;
            }
            break;
        case Step::Kind::write: writeAll(connection, step.bytes); break;
        case Step::Kind::answer: {
            const std::string request = requests().back();
            writeAll(connection, step.answer(request.substr(0, request.size() - 1)) + "\n");
            break;
        }
        case Step::Kind::pause: {
            const auto until = std::chrono::steady_clock::now() + step.pause;
            while (!ending_ && std::chrono::steady_clock::now() < until) {
                std::this_thread::sleep_for(std::min(step.pause, std::chrono::milliseconds(5)));
            }
            break;
        }
        case Step::Kind::close:
        case Step::Kind::closeUnread: return;
        }
    }
}

bool ScriptedService::readLine(int connection)
{
    std::string line;
    while (line.empty() || line.back() != '\n') {
        char byte = 0;
        const ssize_t count = read(connection, &byte, 1);
        if (count <= 0) {
            return false;
        }
        line.push_back(byte);
    }
    const std::lock_guard lock(lock_);
    requests_.push_back(line);
    return true;
}

QuickService::QuickService(const std::string &reply, const char *path) : path_(path), process_(-1)
{
    const int listener = listenAt(path_, 64);
    const std::string line = reply + "\n";
    process_ = fork();
    if (process_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        for (;;) {
            const int connection = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
            char request[2048];
            if (recv(connection, request, sizeof request, 0) > 0) {
                send(connection, line.data(), line.size(), MSG_NOSIGNAL);
            }
            close(connection);
        }
    }
    close(listener);
}

QuickService::~QuickService()
{
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
    std::filesystem::remove(path_);
}

void leaveStaleSocket(const char *path) { close(listenAt(path, 1)); }

FullQueue::FullQueue(const char *path) : path_(path)
{
    sockets_.push_back(listenAt(path, 0));
    const sockaddr_un address = addressOf(path_);
    for (;;) {
        const int client = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        sockets_.push_back(client);
        if (connect(client, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
            break;  // EAGAIN: the queue is full now
        }
    }
}

FullQueue::~FullQueue()
{
    for (const int fd : sockets_) {
        close(fd);
    }
    std::filesystem::remove(path_);
}

}  // namespace support
