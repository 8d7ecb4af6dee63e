// Fuzzes the parser of the registry files: the stations are compared byte by byte with those of a reference implementation with
// find, inet_addr and strtol.
#include "support.h"

#include <kvo_hws/platform.h>
#include <kvo_hws/requests.h>
#include <kvo_hws/runtime.h>

#include "runtime/clock.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

namespace {

// ---- The file, and the daemon that returns its path ----

/// The registry's directory, removed by the destructor.
class Directory {
public:
    Directory() : path_(std::filesystem::temp_directory_path() / ("registry." + std::to_string(getpid())))
    {
        std::filesystem::create_directories(path_ / "kvo_hws");
    }
    Directory(const Directory &) = delete;
    Directory &operator=(const Directory &) = delete;
    ~Directory()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    [[nodiscard]] std::string path() const { return path_.string() + '/'; }
    void put(std::string_view content) const
    {
        std::ofstream(path_ / "kvo_hws/currkvos.reg", std::ios::binary | std::ios::trunc) << content;
    }

private:
    std::filesystem::path path_;
};

const Directory &directory()
{
    static const Directory only;
    return only;
}

bool locked = false;

std::string answerOf(std::string_view command)
{
    if (command == "isInitComplete") {
        return "yes";
    }
    if (command == "getregistrypath") {
        return directory().path();
    }
    locked = command == "lockKVORegData";
    return "ok";
}

}  // namespace

int SendCommand2ServiceDyn(const char *command, DynBuffer *reply) noexcept
{
    const std::string answer = answerOf(command);
    *reply = {strdup(answer.c_str()), static_cast<uint32_t>(answer.size() + 1)};
    return 1;
}

int kvo_hws::pause(std::chrono::milliseconds /*length*/) noexcept { return 0; }
uint64_t GetTickCount64() noexcept { return 0; }
int kvo_hws_EnterCriticalSection(pthread_mutex_t *section) noexcept { return pthread_mutex_lock(section); }
int kvo_hws_LeaveCriticalSection(pthread_mutex_t *section) noexcept { return pthread_mutex_unlock(section); }

namespace {

// ---- The reference implementation ----

uint32_t attribute(const std::string &text) { return static_cast<uint32_t>(std::strtol(text.c_str(), nullptr, 10)); }

/// Reads the line at @p at and moves @p at past it. Returns false and stores nothing if no complete line follows.
bool readLine(const std::string &text, std::size_t &at, KvoDescription &record)
{
    const auto after = [](std::size_t place) { return place == std::string::npos ? place : place + 1; };
    const std::size_t name = text.find_first_not_of(" \"", at);
    const std::size_t nameEnd = text.find('"', name);
    const std::size_t address = text.find_first_not_of(' ', after(nameEnd));
    const std::size_t addressEnd = text.find(' ', address);
    const std::size_t attr1 = text.find_first_not_of(' ', addressEnd);
    const std::size_t attr1End = text.find('x', attr1);
    const std::size_t attr2End = text.find(':', after(attr1End));
    const std::size_t attr3End = text.find('\n', after(attr2End));
    if (attr3End == std::string::npos) {
        return false;  // like every position after one that was not found
    }
    at = attr3End + 1;
    record.address = inet_addr(text.substr(address, addressEnd - address).c_str());
    const std::string cut = text.substr(name, std::min(nameEnd - name, sizeof record.name - 1));
    std::memcpy(record.name, cut.c_str(), cut.size() + 1);
    record.attr1 = attribute(text.substr(attr1, attr1End - attr1));
    record.attr2 = attribute(text.substr(attr1End + 1, attr2End - attr1End - 1));
    record.attr3 = attribute(text.substr(attr2End + 1, attr3End - attr2End - 1));
    return true;
}

int32_t readReference(const std::string &text, KvoDescription *list, uint32_t &count)
{
    const auto lines = static_cast<uint32_t>(std::count(text.begin(), text.end(), '\n'));
    if (lines > count) {
        count = lines;
        return KVO_HWS_TOO_SMALL;
    }
    uint32_t filled = 0;
    std::size_t at = 0;
    for (bool more = true; more && filled < count;) {
        more = readLine(text, at, list[filled]);
        filled += list[filled].attr1 != 0 ? 1 : 0;  // also without a line, and for a list that the caller did not clear
    }
    count = filled;
    return KVO_HWS_OK;
}

void compare(const std::string &content, uint32_t capacity, uint8_t fill)
{
    const std::size_t size = capacity * sizeof(KvoDescription);
    fuzz::GuardedArea wanted(size, fill);
    uint32_t wantedCount = capacity;
    const int32_t wantedResult =
        readReference(content.c_str(), reinterpret_cast<KvoDescription *>(wanted.area()), wantedCount);  // up to the first zero

    fuzz::GuardedArea got(size, fill);
    uint32_t count = capacity;
    const int32_t result = KVO_HWS_getKVOCurrentListFromRegistry(reinterpret_cast<KvoDescription *>(got.area()), &count, 1);
    if (locked) {
        fuzz::fault("the registry is still locked");
    }
    if (result != wantedResult || count != wantedCount) {
        fuzz::fault("returned %d and %u stations, the reference %d and %u", result, count, wantedResult, wantedCount);
    }
    if (got != wanted) {
        const auto differing = std::mismatch(got.area(), got.area() + size, wanted.area()).first - got.area();
        fuzz::fault("the list differs from the reference at byte %td of %zu", differing, size);
    }
}

}  // namespace

/// The first byte is the capacity of the caller's list, the rest is the file.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size)
{
    if (size == 0) {
        return 0;
    }
    const uint32_t capacity = data[0] % 16;
    const std::string content(reinterpret_cast<const char *>(data) + 1, size - 1);
    directory().put(content);
    compare(content, capacity, 0);
    compare(content, capacity, 0xA5);
    return 0;
}
