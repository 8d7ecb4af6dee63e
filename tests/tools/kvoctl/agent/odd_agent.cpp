// Loaded before the C library, so that some replies of the agent leave it wrong: a check that finds nothing wrong with these is
// none.
#include <string_view>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

struct Falsified {
    std::string_view beginning;
    std::string_view sent;
};

constexpr Falsified kFalsified[] = {
    {"kvoindex=", "kvoindex=x\r\n"},
    {"startup-prio=", "startup-prio=2\n"},
    {"hwid=", ""},
    {"panel-rotation=", "none\r\n"},
};

std::string_view falsified(std::string_view part)
{
    for (const Falsified &row : kFalsified) {
        if (part.starts_with(row.beginning)) {
            return row.sent;
        }
    }
    return part;
}

}  // namespace

// The agent sends its replies part by part.
extern "C" ssize_t send(int socket, const void *bytes, std::size_t size, int flags)
{
    const std::string_view part = falsified({static_cast<const char *>(bytes), size});
    if (!part.empty() && syscall(SYS_sendto, socket, part.data(), part.size(), flags, nullptr, 0) < 0) {
        return -1;
    }
    return static_cast<ssize_t>(size);
}
