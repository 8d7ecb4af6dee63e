// The baseline of the USB event server: only the system calls, a detached thread per connection, and one event text.
#include "baseline.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <poll.h>
#include <pthread.h>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace baseline {

namespace {

constexpr int kBacklog = 5;
constexpr int kPollMilliseconds = 1000;
constexpr timespec kCloseDelay{.tv_sec = 0, .tv_nsec = 100'000'000};
constexpr std::string_view kKeyword = "newUSBdevice*";
constexpr std::string_view kEmptyMarker = "?$?\xA7?eEmMpPtTyY!\xA7!$!";
constexpr uint32_t kHead = offsetof(UsbEventV2, payload);

SendUsbEventV2 gCallback = nullptr;

/// Returns the field at @p position without its asterisk, and moves the position past the asterisk. Null view if none is left.
std::string_view nextField(char *&position)
{
    char *const end = std::strchr(position, '*');
    if (end == nullptr || end == position) {
        return {};
    }
    const std::string_view field(position, static_cast<std::size_t>(end - position));
    position = end + 1;
    return field;
}

template <std::size_t Size>
bool readText(char *&position, char (&member)[Size])
{
    const std::string_view field = nextField(position);
    if (field != kEmptyMarker) {  // the record is already zeroed
        field.copy(member, Size - 1);
    }
    return field.data() != nullptr;
}

bool readNumber(char *&position, uint32_t &value)
{
    const std::string_view field = nextField(position);
    char *end = nullptr;
    value = field.data() != nullptr ? static_cast<uint32_t>(std::strtoul(field.data(), &end, 16)) : 0;
    return field.data() != nullptr && end == field.data() + field.size();
}

bool readNewDevice(UsbDeviceInfo &device, char *text)
{
    char *position = text + kKeyword.size();
    uint32_t id1 = 0;
    uint32_t id2 = 0;
    if (!readText(position, device.ipAddress) || !readText(position, device.ident2) || !readText(position, device.ident3) ||
        !readText(position, device.text4) || !readText(position, device.text5) || !readText(position, device.text6) ||
        !readText(position, device.text7) || !readNumber(position, device.number1) || !readNumber(position, device.number2) ||
        !readNumber(position, device.flagWord) || !readNumber(position, id1) || !readNumber(position, id2) ||
        nextField(position).data() == nullptr) {
        return false;
    }
    device.flagBits = static_cast<uint8_t>((id1 & 1) | (id2 & 3) << 1 | device.flagWord >> 31 << 3);
    return true;
}

std::string_view answerTo(char *text)
{
    UsbEventV2 event{};
    event.code = USB_EVENT_NEW_DEVICE;
    event.length = kHead + sizeof event.payload.device;
    const bool accepted =
        std::string_view(text).starts_with(kKeyword) && readNewDevice(event.payload.device, text) && gCallback(&event) != -1;
    return accepted ? "ok\n" : "failed\n";
}

/// The sender writes an event text at once, so one read returns all of it.
void *serveOne(void *connection)
{
    const auto fd = static_cast<int>(reinterpret_cast<intptr_t>(connection));
    char text[kLineSize + 1];
    const ssize_t count = recv(fd, text, kLineSize, 0);
    if (count > 0 && text[count - 1] == '\n') {
        text[count - 1] = '\0';
        const std::string_view answer = answerTo(text);
        send(fd, answer.data(), answer.size(), MSG_NOSIGNAL);
    }
    nanosleep(&kCloseDelay, nullptr);
    close(fd);
    return nullptr;
}

int listenAt(const char *path)
{
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path, sizeof address.sun_path - 1);
    unlink(path);
    return bind(listener, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 && listen(listener, kBacklog) == 0
               ? listener
               : -1;
}

void reportListening()
{
    UsbEventV2 event{};
    event.code = USB_EVENT_ACTIVATED;
    event.length = kHead;
    gCallback(&event);
}

}  // namespace

void serveUsbEvents(const char *path, SendUsbEventV2 callback)
{
    gCallback = callback;
    const int listener = listenAt(path);
    pthread_attr_t detached;
    pthread_attr_init(&detached);
    pthread_attr_setdetachstate(&detached, PTHREAD_CREATE_DETACHED);
    if (listener >= 0) {
        reportListening();
    }
    for (pollfd waiting{.fd = listener, .events = POLLIN, .revents = 0}; listener >= 0;) {
        if (poll(&waiting, 1, kPollMilliseconds) < 1) {
            continue;
        }
        const int connection = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        pthread_t thread{};
        if (connection < 0 ||
            pthread_create(&thread, &detached, serveOne, reinterpret_cast<void *>(intptr_t{connection})) != 0) {
            break;
        }
    }
    pthread_attr_destroy(&detached);
    close(listener);
}

}  // namespace baseline
