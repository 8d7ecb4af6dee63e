// Replaces send of the C library and falsifies some replies of the agent, so that the test can prove that the check finds them.
#include <string_view>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

struct FalseReply {
    std::string_view beginning;
    std::string_view sent;
};

constexpr FalseReply kFalseReplies[] = {
    {"kvoindex=", "kvoindex=x\r\n"},
    {"startup-prio=", "startup-prio=2\n"},
    {"hwid=", ""},
    {"panel-rotation=", "none\r\n"},
};

std::string_view falsified(std::string_view part)
{
    for (const FalseReply &row : kFalseReplies) {
        if (part.starts_with(row.beginning)) {
            return row.sent;
        }
    }
    return part;
}

}  // namespace

// The agent sends a reply in several parts.
extern "C" ssize_t send(int socket, const void *bytes, std::size_t size, int flags)
{
    const std::string_view part = falsified({static_cast<const char *>(bytes), size});
    if (!part.empty() && syscall(SYS_sendto, socket, part.data(), part.size(), flags, nullptr, 0) < 0) {
        return -1;
    }
    return static_cast<ssize_t>(size);
}
