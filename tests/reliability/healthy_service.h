// A service without faults. It answers every request and releases everything, so all descriptors, threads and memory that
// remain belong to the library.
#pragma once

#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace reliability {

/// A listening Unix socket. The destructor removes its file.
class LocalListener {
public:
    explicit LocalListener(const char *path) : path_(path), socket_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        unlink(path);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strcpy(address.sun_path, path);
        if (bind(socket_, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 || listen(socket_, 8) != 0) {
            throw std::runtime_error(std::string("cannot listen at ") + path + ": " + std::strerror(errno));
        }
    }
    LocalListener(const LocalListener &) = delete;
    LocalListener &operator=(const LocalListener &) = delete;
    ~LocalListener()
    {
        close(socket_);
        unlink(path_);
    }

    /// Returns a connection, or -1 after a timeout.
    [[nodiscard]] int accept(int milliseconds) const
    {
        pollfd waiting{.fd = socket_, .events = POLLIN, .revents = 0};
        return poll(&waiting, 1, milliseconds) == 1 ? accept4(socket_, nullptr, nullptr, SOCK_CLOEXEC) : -1;
    }

private:
    const char *path_;
    int socket_;
};

class HealthyService {
public:
    using Answer = std::function<std::string(const std::string &request)>;

    explicit HealthyService(const char *path, Answer answer)
        : answer_(std::move(answer)), listener_(path), thread_([this] { serve(); })
    {
    }
    HealthyService(const HealthyService &) = delete;
    HealthyService &operator=(const HealthyService &) = delete;
    ~HealthyService()
    {
        ending_ = true;
        thread_.join();
    }

private:
    void serve()
    {
        while (!ending_) {
            constexpr int kPeriod = 10;  // milliseconds
            if (const int connection = listener_.accept(kPeriod); connection >= 0) {
                answerOne(connection);
                close(connection);
            }
        }
    }

    void answerOne(int connection) const
    {
        std::string request;
        for (char byte = 0; read(connection, &byte, 1) == 1 && byte != '\n';) {
            request.push_back(byte);
        }
        const std::string reply = answer_(request) + '\n';
        static_cast<void>(send(connection, reply.data(), reply.size(), MSG_NOSIGNAL));
    }

    Answer answer_;
    LocalListener listener_;
    std::atomic<bool> ending_{false};
    std::thread thread_;
};

}  // namespace reliability
