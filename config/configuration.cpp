// The configuration file: the table for the platform's reader, and the record that the reader fills.
#include <kvo_hws/config.h>
#include <kvo_hws/runtime.h>

#include "runtime/letters.h"
#include "runtime/owners.h"
#include "runtime/shared_word.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <strings.h>
#include <syslog.h>
#include <unistd.h>

ConfData sConfData = {};

namespace {

constexpr const char *kDefaultFile = "/etc/kvo_hws.conf";
constexpr std::size_t kLongestFileName = 4100;
constexpr std::size_t kLongestHostName = 4096;
constexpr std::size_t kLongestPath = sizeof sConfData.registryPath - 1;

struct ModeWord {
    const char *word;
    ConfMode mode;
};

constexpr ModeWord kModeWords[] = {{"all", CONF_MODE_ALL}, {"visible", CONF_MODE_VISIBLE}, {"none", CONF_MODE_NONE}};

/// Stores only the low byte of the word; the other bytes are zero because the record was cleared.
int readMode(const char *value, void *destination)
{
    auto &mode = *static_cast<uint8_t *>(destination);
    for (const ModeWord &known : kModeWords) {
        if (kvo_hws::sameLetters(value, known.word)) {
            mode = known.mode;
            return 1;
        }
    }
    mode = CONF_MODE_INVALID;
    return 0;
}

bool isSeparator(char character) noexcept { return character == '/' || character == '\\'; }

/// Stores as much of the directory's path as fits, with a separator at its end; an empty path stays empty.
int readPath(const char *value, void *destination)
{
    char *text = nullptr;
    if (const int result = read_str(value, &text); result != 1) {
        return result;
    }
    const kvo_hws::HeapText owned(text);
    std::string_view directory(text);
    const bool ended = !directory.empty() && isSeparator(directory.back());
    if (directory.size() > kLongestPath || (directory.size() == kLongestPath && !ended)) {
        directory = directory.substr(0, kLongestPath - 1);
    }
    auto *const path = static_cast<char *>(destination);
    std::size_t length = directory.copy(path, directory.size());
    if (length > 0 && !isSeparator(path[length - 1])) {
        path[length++] = '/';
    }
    path[length] = '\0';
    return 1;
}

/// Flags for the platform's reader, which defines their meaning. The first two keys have other flags than the rest.
constexpr uintptr_t kPlatformKey = 0x2F;
constexpr uintptr_t kOwnKey = 0x1F;

}  // namespace

// Five keys set the name and two set the interface, so that old and new files can be read.
HwsKeyword hws_keywords[13] = {
    {"InternalInterface", read_int, &sConfData.interface, "eth0", kPlatformKey, 0},
    {"Hostname", read_str, &sConfData.name, "", kPlatformKey, 0},
    {"interface", read_int, &sConfData.interface, nullptr, kOwnKey, 0},
    {"port", read_u16, &sConfData.port, "5850", kOwnKey, 0},
    {"rhz_name", read_str, &sConfData.name, nullptr, kOwnKey, 0},
    {"jdl_name", read_str, &sConfData.name, nullptr, kOwnKey, 0},
    {"name", read_str, &sConfData.name, nullptr, kOwnKey, 0},
    {"hostname", read_str, &sConfData.name, nullptr, kOwnKey, 0},
    {"backlight", readMode, &sConfData.backlight, "visible", kOwnKey, 0},
    {"brightness", readMode, &sConfData.brightness, "visible", kOwnKey, 0},
    {"backlight_brightness", readMode, &sConfData.backlightBrightness, "visible", kOwnKey, 0},
    {"registry_path", readPath, sConfData.registryPath, "/user/common/", kOwnKey, 0},
    {"", nullptr, nullptr, "", kOwnKey, 0},
};

namespace {

/// The host name, allocated with malloc; null if memory runs out.
char *hostName() noexcept
{
    std::array<char, kLongestHostName> name{};
    gethostname(name.data(), name.size() - 1);
    const std::size_t size = std::strlen(name.data()) + 1;
    auto *const copy = static_cast<char *>(xmalloc(static_cast<unsigned>(size)));
    if (copy != nullptr) {
        std::memcpy(copy, name.data(), size);
    }
    return copy;
}

void logValues() noexcept
{
    LOG(LOG_DEBUG, "configuration data:");
    LOG(LOG_DEBUG, "   data set:             %d", static_cast<int>(sConfData.dataSet));
    LOG(LOG_DEBUG, "   IP string:            %s", sConfData.ipString);
    LOG(LOG_DEBUG, "   IP value:             0x%08lX", static_cast<unsigned long>(sConfData.ipValue));
    LOG(LOG_DEBUG, "   port value:           %d", sConfData.port);
    LOG(LOG_DEBUG, "   name:                 %s", sConfData.name);
    LOG(LOG_DEBUG, "   backlight:            %d", static_cast<int>(sConfData.backlight));
    LOG(LOG_DEBUG, "   brightness:           %d", static_cast<int>(sConfData.brightness));
    LOG(LOG_DEBUG, "   backlight brightness: %d", static_cast<int>(sConfData.backlightBrightness));
    LOG(LOG_DEBUG, "   registry path:        %s", sConfData.registryPath);
}

}  // namespace

void ReadConfFile() noexcept
{
    const kvo_hws::NoCancellation wholeFile;
    std::array<char, kLongestFileName> fileName{};
    sConfData = {};
    const char *const named = libpavo_getMetric(PLATFORM_CONFIG_FILE);
    const std::string_view file = named != nullptr ? named : kDefaultFile;
    file.copy(fileName.data(), fileName.size() - 1);
    LOG(LOG_DEBUG, "veltrop configuration file name: %s", fileName.data());

    void *block[4] = {fileName.data(), nullptr, nullptr, nullptr};
    keywords = hws_keywords;
    read_conf(block);  // if the file cannot be read, the defaults apply
    GetIpByInterface(sConfData.interface, sConfData.ipString, &sConfData.ipValue);
    if (sConfData.name == nullptr) {
        sConfData.name = hostName();
    }
    logValues();
    kvo_hws::shared(sConfData.dataSet).store(1);
}
