// Sends each argument to the command socket as a request and prints the replies.
#include "tools/kvosim/support/client.h"

#include <exception>
#include <iostream>

int main(int argc, char **argv)
{
    try {
        for (int i = 1; i < argc; ++i) {
            std::cout << kvosim_test::exchange(std::string(argv[i]) + '\n') << std::flush;
        }
    } catch (const std::exception &error) {
        std::cerr << "ask: " << error.what() << '\n';
        return 1;
    }
    return 0;
}
