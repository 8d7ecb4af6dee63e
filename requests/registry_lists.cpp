// Reads the station lists that the daemon saves to disk, under the daemon's registry lock.
#include <kvo_hws/platform.h>
#include <kvo_hws/requests.h>

#include "runtime/clock.h"
#include "runtime/numbers.h"
#include "runtime/owners.h"
#include "service/request.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>

using namespace std::chrono_literals;

namespace {

using kvo_hws::Answer;
using kvo_hws::HeapText;
using kvo_hws::kSilent;
using kvo_hws::Request;

constexpr auto kLockPause = 10ms;
constexpr std::size_t kPathSize = 1028;
constexpr std::size_t kLongestPath = 1024;
constexpr std::size_t kFileNameLength = 20;  // both files have names of this length below the registry path
constexpr int kParsed = 1;
constexpr int kNoLine = -1;

// ---- One line of a registry file: "name" address attr1xattr2:attr3 ----

// The parser has one cursor for the whole process, like strtok. A thread that parses a list holds the lock; other threads wait.
char *registryCursor = nullptr;
pthread_mutex_t registryCursorLock = PTHREAD_MUTEX_INITIALIZER;

/// A field of the line. It is null-terminated while this object exists.
class TerminatedField {
public:
    TerminatedField(char *start, char *delimiter) noexcept : start_(start), delimiter_(delimiter), saved_(*delimiter)
    {
        *delimiter_ = '\0';
    }
    TerminatedField(const TerminatedField &) = delete;
    TerminatedField &operator=(const TerminatedField &) = delete;
    ~TerminatedField() { *delimiter_ = saved_; }

    [[nodiscard]] const char *text() const noexcept { return start_; }

private:
    char *start_;
    char *delimiter_;
    char saved_;
};

uint32_t attribute(char *start, char *delimiter) noexcept
{
    return static_cast<uint32_t>(kvo_hws::readSigned(TerminatedField(start, delimiter).text()).value);
}

void skip(char *&at, const char *characters) noexcept { at += std::strspn(at, characters); }

/// Reads the next line of @p text, or the first one if @p restart is true. Writes to @p record only for a complete line.
int ParseRegistryLine(char *text, KvoDescription &record, bool restart) noexcept
{
    if (restart) {
        registryCursor = text;
    }
    char *name = registryCursor;
    skip(name, " \"");
    if (*name == '\0') {
        return kNoLine;
    }
    // A line feed is not skipped: after an empty line the name begins with it.
    char *const nameEnd = std::strchr(name, '"');
    if (nameEnd == nullptr) {
        return kNoLine;
    }
    char *address = nameEnd + 1;
    skip(address, " ");
    char *const addressEnd = std::strchr(address, ' ');
    if (addressEnd == nullptr) {
        return kNoLine;
    }
    char *attr1 = addressEnd;
    skip(attr1, " ");
    char *const attr1End = std::strchr(attr1, 'x');
    char *const attr2End = attr1End == nullptr ? nullptr : std::strchr(attr1End + 1, ':');
    char *const attr3End = attr2End == nullptr ? nullptr : std::strchr(attr2End + 1, '\n');
    if (attr3End == nullptr) {
        return kNoLine;
    }
    registryCursor = attr3End + 1;

    record.address = inet_addr(TerminatedField(address, addressEnd).text());
    const auto nameLength = std::min(static_cast<std::size_t>(nameEnd - name), sizeof record.name - 1);
    std::memcpy(record.name, name, nameLength);
    record.name[nameLength] = '\0';
    record.attr1 = attribute(attr1, attr1End);
    record.attr2 = attribute(attr1End + 1, attr2End);
    record.attr3 = attribute(attr2End + 1, attr3End);
    return kParsed;
}

/// Parses a text with at most @p capacity lines and returns the number of stations.
uint32_t parseRegistryText(char *text, KvoDescription *list, uint32_t capacity) noexcept
{
    const kvo_hws::Lock lock(registryCursorLock);
    uint32_t count = 0;
    bool restart = true;
    int parsed = kParsed;
    while (parsed == kParsed && count < capacity) {
        parsed = ParseRegistryLine(text, list[count], restart);
        restart = false;
        // A station whose attr1 is 0 is not counted, and the next station overwrites its element. The last call found no line,
        // but its element is checked too: callers pass a zeroed array.
        if (list[count].attr1 != 0) {
            ++count;
        }
    }
    return count;
}

// ---- The file ----

/// The size must fit in 32 bits, and memory must also have room for a terminator.
bool fitsInMemory(off_t size) noexcept
{
    return size >= 0 && static_cast<uint64_t>(size) <= std::min<uint64_t>(UINT32_MAX, SIZE_MAX - 1);
}

/// The whole file as a null-terminated text; null if it cannot be read.
HeapText readFile(const char *path) noexcept
{
    // Non-blocking, so that a pipe instead of the file does not block the caller.
    const kvo_hws::Descriptor file(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status {};
    if (!file.valid() || fstat(file.get(), &status) != 0 || !fitsInMemory(status.st_size)) {
        return nullptr;
    }
    const auto size = static_cast<std::size_t>(status.st_size);
    HeapText text(static_cast<char *>(std::malloc(size + 1)));
    std::size_t filled = 0;
    while (text != nullptr && filled < size) {
        const ssize_t count = read(file.get(), text.get() + filled, size - filled);
        if (count > 0) {
            filled += static_cast<std::size_t>(count);
        } else if (count == 0 || errno != EINTR) {
            return nullptr;
        }
    }
    if (text != nullptr) {
        text.get()[size] = '\0';
    }
    return text;
}

// ---- The daemon's registry ----

using RegistryPath = std::array<char, kPathSize>;

/// Requests the directory. A path that is cut here is too long to be used anyway.
int32_t registryPath(RegistryPath &path) noexcept
{
    return Request(kSilent)
        .send("getregistrypath")
        .onFailed()
        .anyReply([&path](const char *reply) -> Answer {
            std::memcpy(path.data(), reply, std::min(std::strlen(reply), path.size()));
            return {KVO_HWS_OK};
        })
        .result();
}

/// Acquires the daemon's registry lock. Tries at least once, even with a timeout of 0.
int32_t lockRegistry(uint32_t timeoutSeconds) noexcept
{
    const uint64_t deadline = GetTickCount64() + uint64_t{timeoutSeconds} * 1000;
    for (;;) {
        const int32_t locked = KVO_HWS_lockKVORegData();
        if (locked != KVO_HWS_NO) {
            return locked;
        }
        kvo_hws::pause(kLockPause);
        if (GetTickCount64() >= deadline) {
            return KVO_HWS_TIMEOUT;
        }
    }
}

/// Releases the daemon's registry lock at the end of its scope.
struct RegistryLock {
    RegistryLock() = default;
    RegistryLock(const RegistryLock &) = delete;
    RegistryLock &operator=(const RegistryLock &) = delete;
    ~RegistryLock() { KVO_HWS_unlockKVORegData(); }
};

int32_t readLockedList(RegistryPath &path, std::string_view fileName, KvoDescription *list, uint32_t *count) noexcept
{
    const std::size_t length = strnlen(path.data(), path.size());
    if (length + kFileNameLength > kLongestPath) {
        return KVO_HWS_FAILED;
    }
    // Appended without a separator: the daemon's path ends with one.
    std::memcpy(path.data() + length, fileName.data(), fileName.size());
    path[length + fileName.size()] = '\0';

    const HeapText text = readFile(path.data());
    if (text == nullptr) {
        return KVO_HWS_FAILED;
    }
    const std::string_view lines = text.get();
    const auto lineCount = static_cast<uint32_t>(std::count(lines.begin(), lines.end(), '\n'));
    if (lineCount > *count) {
        *count = lineCount;
        return KVO_HWS_TOO_SMALL;
    }
    *count = parseRegistryText(text.get(), list, *count);
    return KVO_HWS_OK;
}

int32_t readKvoListFromRegistry(KvoDescription *list, uint32_t *count, uint32_t timeout, std::string_view fileName) noexcept
{
    if (list == nullptr || count == nullptr) {
        return KVO_HWS_NULL_POINTER;
    }
    const kvo_hws::NoCancellation wholeReading;
    if (const int32_t complete = KVO_HWS_isInitComplete(); complete != KVO_HWS_OK) {
        return complete;
    }
    RegistryPath path{};
    if (const int32_t received = registryPath(path); received != KVO_HWS_OK) {
        return received;
    }
    if (const int32_t locked = lockRegistry(timeout); locked != KVO_HWS_OK) {
        return locked;
    }
    const RegistryLock lock;
    return readLockedList(path, fileName, list, count);
}

}  // namespace

int32_t KVO_HWS_getKVOPreviousListFromRegistry(KvoDescription *list, uint32_t *count, uint32_t timeout) noexcept
{
    return readKvoListFromRegistry(list, count, timeout, "kvo_hws/prevkvos.reg");
}

int32_t KVO_HWS_getKVOCurrentListFromRegistry(KvoDescription *list, uint32_t *count, uint32_t timeout) noexcept
{
    return readKvoListFromRegistry(list, count, timeout, "kvo_hws/currkvos.reg");
}
