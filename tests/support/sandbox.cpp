// Runs one test program with a private /tmp/kvo_hws and, with --network, a private network with only a loopback interface.
// Where the kernel does not allow that, locks the machine so that only one such test runs at a time.
#include "common/private_namespace.h"

#include <cstdio>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <net/if.h>
#include <optional>
#include <sched.h>
#include <string_view>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

bool enterPrivateNetwork()
{
    if (unshare(CLONE_NEWNET) != 0) {
        return false;
    }
    const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq loopback{};
    std::strcpy(loopback.ifr_name, "lo");
    loopback.ifr_flags = IFF_UP;
    const bool up = ioctl(socket, SIOCSIFFLAGS, &loopback) == 0;
    close(socket);
    return up;
}

/// Waits until no other test uses the machine's sockets. The lock is kept until the program that is run ends.
bool lockMachine()
{
    const int lock = open("/tmp/kvo_hws_tests.lock", O_RDWR | O_CREAT, 0666);
    return lock >= 0 && flock(lock, LOCK_EX) == 0;
}

}  // namespace

int main(int argc, char **argv)
{
    const bool network = argc > 1 && std::string_view(argv[1]) == "--network";
    char **const command = argv + (network ? 2 : 1);
    if (argc < (network ? 3 : 2)) {
        std::fputs("usage: sandbox [--network] PROGRAM [ARGUMENT...]\n", stderr);
        return 2;
    }
    bool alone = false;
    std::optional<tools::PrivateNamespace> place;
    try {
        place.emplace();
    } catch (const std::exception &error) {
        std::fprintf(stderr, "sandbox: no private namespace (%s); waiting for the machine's sockets instead\n", error.what());
        alone = true;
    }
    if (network && !alone && !enterPrivateNetwork()) {
        std::perror("sandbox: no private network; waiting for the machine's ports instead");
        alone = true;
    }
    if (alone && !lockMachine()) {
        std::perror("sandbox: /tmp/kvo_hws_tests.lock");
        return 1;
    }
    execv(command[0], command);
    std::perror(command[0]);
    return 1;
}
