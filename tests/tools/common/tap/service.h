// The service that is tapped, and what a program finds at its sockets.
#pragma once

#include "tools/kvosim/support/client.h"
#include "tools/kvosim/support/program.h"

#include "common/command_socket.h"

#include <gtest/gtest.h>

#include <csignal>
#include <memory>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>
#include <vector>

namespace tap_test {

/// A simulated service in a process of its own.
class Service {
public:
    explicit Service(const std::vector<std::string> &options = {}) { start(options); }

    void start(const std::vector<std::string> &options = {})
    {
        std::vector<std::string> command{KVOSIM_PROGRAM, "serve", "--plant", EXAMPLE_PLANT, "--usb-lock-address", "none"};
        command.insert(command.end(), options.begin(), options.end());
        program_ = std::make_unique<kvosim_test::Program>(command);
        EXPECT_TRUE(program_->hasWritten("serving")) << program_->err();
    }
    void kill()
    {
        program_->signal(SIGKILL);
        program_->wait();
    }
    kvosim_test::Program &program() { return *program_; }

private:
    std::unique_ptr<kvosim_test::Program> program_;
};

/// Why "kvoctl usb watch" cannot run in this build; nullptr if it can. The library detaches the thread that activates the events,
/// and kvoctl activates them on its first one.
inline const char *noUsbWatch()
{
#ifdef __SANITIZE_THREAD__
    return "the thread sanitizer cannot detach the first thread of kvoctl";
#else
    return nullptr;
#endif
}

/// Whether the path has a socket at which a program can ask.
inline bool answers()
{
    try {
        return kvosim_test::exchange("isInitComplete\n") == "yes\n";
    } catch (const std::exception &) {
        return false;
    }
}

/// The error of a connection to the service, 0 if there is one.
inline int connectError(const char *path = tools::kCommandSocket)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::string_view(path).copy(address.sun_path, sizeof address.sun_path - 1);
    const tools::Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    return connect(socket.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 ? 0 : errno;
}

}  // namespace tap_test
