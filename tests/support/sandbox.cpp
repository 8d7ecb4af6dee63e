// Runs one test program with a /tmp/kvo_hws of its own; where the kernel does not allow that, alone on the machine.
#include "private_namespace.h"

#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

int main(int argc, char **argv)
{
    if (argc < 2) {
        std::fputs("usage: sandbox PROGRAM [ARGUMENT...]\n", stderr);
        return 2;
    }
    try {
        kvosim::enterPrivateNamespace();
    } catch (const std::exception &error) {
        std::fprintf(stderr, "sandbox: no private namespace (%s); waiting for the machine's sockets instead\n", error.what());
        // Inherited by the program and so held until it ends.
        const int turn = open("/tmp/kvo_hws_tests.lock", O_RDWR | O_CREAT, 0666);
        if (turn < 0 || flock(turn, LOCK_EX) != 0) {
            std::perror("sandbox: /tmp/kvo_hws_tests.lock");
            return 1;
        }
    }
    execv(argv[1], argv + 1);
    std::perror(argv[1]);
    return 1;
}
