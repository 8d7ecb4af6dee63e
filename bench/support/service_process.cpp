#include "support/service_process.h"

#include "common/private_namespace.h"

#include <cerrno>
#include <cstring>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>
#include <system_error>
#include <unistd.h>

namespace bench {

namespace {

void check(bool good, const char *step)
{
    if (!good) {
        throw std::system_error(errno, std::generic_category(), step);
    }
}

int listenAtCommandSocket()
{
    const std::string path = std::string(tools::kSocketDirectory) + "/cmd_sock";
    unlink(path.c_str());
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);

    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    check(listener >= 0, "create the service's socket");
    check(bind(listener, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0, "bind the service's socket");
    check(listen(listener, SOMAXCONN) == 0, "listen at the service's socket");
    return listener;
}

bool sendAll(int client, std::string_view text)
{
    while (!text.empty()) {
        const ssize_t sent = send(client, text.data(), text.size(), MSG_NOSIGNAL);
        if (sent <= 0) {
            return false;
        }
        text.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

/// Clients write a command at once, and commands are short, so one read returns all of it.
void answer(int client, const ServiceProcess::Replies &replies)
{
    char command[1024];
    const ssize_t length = recv(client, command, sizeof command, 0);
    if (length <= 0) {
        return;
    }
    const auto known = replies.find(std::string_view(command, static_cast<std::size_t>(length - 1)));
    sendAll(client, known != replies.end() ? std::string_view(known->second) : "failed\n");
}

[[noreturn]] void serve(int listener, const ServiceProcess::Replies &replies)
{
    for (;;) {
        const int client = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        check(client >= 0, "accept a client of the service");
        answer(client, replies);
        close(client);
    }
}

}  // namespace

ServiceProcess::ServiceProcess(Replies replies)
{
    for (auto &[command, reply] : replies) {
        reply += '\n';
    }
    const int listener = listenAtCommandSocket();
    process_.emplace([listener, &replies] { serve(listener, replies); });
    close(listener);
}

}  // namespace bench
