// The table of the calls that can fail, with the errors of each.
#include "reliability/faults.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <span>

namespace reliability {

namespace {

constexpr Error::Kind kNothing = Error::Kind::nothing;
constexpr Error::Kind kOneByte = Error::Kind::oneByte;

constexpr Error kSocketErrors[] = {{EMFILE}, {ENFILE}, {ENOBUFS}, {ENOMEM}, {EACCES}, {EAFNOSUPPORT}};
constexpr Error kInvalid[] = {{EINVAL}};
constexpr Error kOptionErrors[] = {{EINVAL}, {ENOMEM}};
constexpr Error kConnectLocalErrors[] = {{ECONNREFUSED}, {ENOENT}, {EAGAIN}, {EACCES}, {EINTR}};
constexpr Error kConnectRemoteErrors[] = {{ECONNREFUSED}, {ETIMEDOUT},     {ENETUNREACH}, {EHOSTUNREACH},
                                          {EPERM},        {EADDRNOTAVAIL}, {EINTR}};
constexpr Error kUnlinkErrors[] = {{EPERM}, {EACCES}, {EROFS}};
constexpr Error kBindErrors[] = {{EADDRINUSE}, {ENOENT}, {EACCES}, {EROFS}, {ENOMEM}};
constexpr Error kListenErrors[] = {{EADDRINUSE}};
constexpr Error kAcceptErrors[] = {{ECONNABORTED}, {EMFILE}, {ENFILE}, {ENOBUFS}, {ENOMEM}, {EINTR}, {EAGAIN}};
constexpr Error kPollErrors[] = {{EINTR}, {ENOMEM}, {EINVAL}, {.kind = kNothing, .name = "timeout"}};
constexpr Error kRecvErrors[] = {{ECONNRESET},
                                 {ETIMEDOUT},
                                 {ENOMEM},
                                 {EINTR},
                                 {EAGAIN},
                                 {.kind = kNothing, .name = "end of file"},
                                 {.kind = kOneByte, .name = "one byte at a time"}};
constexpr Error kSendErrors[] = {
    {EPIPE}, {ETIMEDOUT}, {ECONNRESET}, {ENOBUFS}, {EAGAIN}, {EINTR}, {.kind = kOneByte, .name = "one byte"}};
constexpr Error kSendtoErrors[] = {{EPERM}, {ENETUNREACH}, {ENOBUFS}, {EINTR}};
constexpr Error kOpenErrors[] = {{ENOENT}, {EACCES}, {EMFILE}, {ENFILE}, {ENOMEM}, {ENOSPC}, {EROFS}};
constexpr Error kFopenErrors[] = {{ENOENT}, {EACCES}, {EMFILE}, {ENFILE}, {ENOMEM}};
constexpr Error kFstatErrors[] = {{EIO}, {EOVERFLOW}};
constexpr Error kReadErrors[] = {
    {EIO}, {EINTR}, {.kind = kNothing, .name = "end of file"}, {.kind = kOneByte, .name = "one byte at a time"}};
constexpr Error kWriteErrors[] = {{ENOSPC}, {EIO}, {EINTR}, {.kind = kOneByte, .name = "one byte"}};
constexpr Error kConsoleErrors[] = {{ENOTTY}, {EPERM}, {EBADF}};
constexpr Error kSemaphoreInitErrors[] = {{ENOSYS}};
constexpr Error kStreamErrors[] = {{EIO}};
constexpr Error kNameErrors[] = {{EFAULT}, {ENAMETOOLONG}};
constexpr Error kSelectErrors[] = {{EINTR}, {ENOMEM}, {.kind = kNothing, .name = "timeout"}};
constexpr Error kSemaphoreErrors[] = {{EINTR}, {EINVAL}, {ETIMEDOUT}};
constexpr Error kInterrupted[] = {{EINTR}};
constexpr Error kCloseErrors[] = {{EINTR}, {EIO}};
constexpr Error kThreadErrors[] = {{EAGAIN}, {EPERM}};
constexpr Error kMemoryErrors[] = {{.number = ENOMEM, .name = "used up"}};

struct Kind {
    const char *name;
    std::span<const Error> errors;
};

constexpr std::array<Kind, kCalls> kKinds = {{{"socket", kSocketErrors},
                                              {"setsockopt", kOptionErrors},
                                              {"getsockopt", kInvalid},
                                              {"connect", kConnectLocalErrors},
                                              {"connect (TCP)", kConnectRemoteErrors},
                                              {"unlink", kUnlinkErrors},
                                              {"bind", kBindErrors},
                                              {"listen", kListenErrors},
                                              {"accept4", kAcceptErrors},
                                              {"poll", kPollErrors},
                                              {"recv", kRecvErrors},
                                              {"send", kSendErrors},
                                              {"sendto", kSendtoErrors},
                                              {"open", kOpenErrors},
                                              {"fstat", kFstatErrors},
                                              {"read", kReadErrors},
                                              {"write", kWriteErrors},
                                              {"ioctl", kConsoleErrors},
                                              {"fopen", kFopenErrors},
                                              {"fgets", kStreamErrors},
                                              {"opendir", kFopenErrors},
                                              {"readdir", kStreamErrors},
                                              {"gethostname", kNameErrors},
                                              {"select", kSelectErrors},
                                              {"sigaction", kInvalid},
                                              {"sem_init", kSemaphoreInitErrors},
                                              {"sem_timedwait", kSemaphoreErrors},
                                              {"clock_nanosleep", kInterrupted},
                                              {"close", kCloseErrors},
                                              {"pthread_create", kThreadErrors},
                                              {"memory", kMemoryErrors}}};

}  // namespace

const char *nameOf(Call call) { return kKinds[static_cast<std::size_t>(call)].name; }
const char *nameOf(const Error &error) { return error.name != nullptr ? error.name : strerrorname_np(error.number); }
std::span<const Error> errorsOf(Call call) { return kKinds[static_cast<std::size_t>(call)].errors; }

}  // namespace reliability
