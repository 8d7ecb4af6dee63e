// The panel program with poll() alone. Usage: example_panel_poll [STATION]
#include "terminal.hpp"

#include <poll.h>
#include <sys/timerfd.h>

int main(int argc, char **argv)
{
    auto requests = kvo::Requests::create();
    const auto address = kvo::Address::parse(argc > 1 ? argv[1] : "10.0.0.5");
    if (!requests || !address) {
        std::fprintf(stderr, "%s\n", (requests ? address.error() : requests.error()).message().c_str());
        return 1;
    }
    Panel panel(*requests, kvo::Station(*address));
    const Terminal terminal;

    const int clock = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
    const timespec frame{0, std::chrono::nanoseconds(Panel::frame).count()};
    const itimerspec frames{frame, frame};
    timerfd_settime(clock, 0, &frames, nullptr);

    pollfd watched[] = {{requests->descriptor(), POLLIN, 0}, {clock, POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}};
    for (bool running = true; running;) {
        poll(watched, std::size(watched), -1);
        if (watched[0].revents != 0) {
            requests->dispatch();
        }
        std::uint64_t expirations = 0;
        if (watched[1].revents != 0 && read(clock, &expirations, sizeof expirations) > 0) {
            panel.draw_next();
            terminal.draw(panel);
        }
        if (watched[2].revents != 0) {
            running = terminal.read_keys(panel);
        }
    }
    close(clock);
}
