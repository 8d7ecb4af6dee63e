// Fuzzes the parser of the configuration file with the library's table of keys: the block of values is compared byte by byte
// with that of a reference implementation with strspn, strtoul and strcasecmp.
#include "support.h"

#include <kvo_hws/config.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <string>
#include <strings.h>
#include <sys/mman.h>
#include <unistd.h>
#include <utility>

namespace {

// ---- The reference implementation ----

std::string trimmed(std::string text)
{
    constexpr const char *kBlanks = " \t\r";
    text.erase(0, text.find_first_not_of(kBlanks));
    text.erase(text.find_last_not_of(kBlanks) + 1);  // npos + 1 is 0: only blanks
    return text;
}

/// A "#" starts a comment at the beginning of the line and after a blank.
std::string withoutComment(const std::string &line)
{
    for (std::size_t at = 0; at < line.size(); ++at) {
        if (line[at] == '#' && (at == 0 || line[at - 1] == ' ' || line[at - 1] == '\t' || line[at - 1] == '\r')) {
            return line.substr(0, at);
        }
    }
    return line;
}

void storeNumber(ConfData &data, const char *value)
{
    const bool digits = *value != '\0' && value[std::strspn(value, "0123456789")] == '\0';
    const unsigned long number = std::strtoul(value, nullptr, 10);
    if (digits && number <= 65535) {
        data.port = static_cast<uint16_t>(number);
    }
}

void storeMode(uint32_t &mode, const char *value)
{
    const char *const words[] = {"all", "visible", "none"};
    const auto word = std::ranges::find_if(words, [=](const char *known) { return strcasecmp(value, known) == 0; });
    const auto byte = static_cast<uint8_t>(word != std::end(words) ? word - std::begin(words) : 255);
    std::memcpy(&mode, &byte, sizeof byte);  // the other bytes keep their values
}

void storePath(ConfData &data, std::string path)
{
    constexpr std::size_t kLongest = sizeof data.registryPath - 1;
    const auto ended = [&path] { return path.ends_with('/') || path.ends_with('\\'); };
    if (path.size() + (ended() ? 0 : 1) > kLongest) {
        path.resize(kLongest - 1);
    }
    if (!path.empty() && !ended()) {
        path += '/';
    }
    std::memcpy(data.registryPath, path.c_str(), path.size() + 1);
}

/// The texts of the reference, compared separately because the block only contains their addresses.
struct Texts {
    std::string interface = "eth0";
    std::string name;
    bool named = false;
};

void storeValue(const std::string &key, const char *value, ConfData &data, Texts &texts)
{
    const char *const names[] = {"Hostname", "rhz_name", "jdl_name", "name", "hostname"};
    if (key == "InternalInterface" || key == "interface") {
        texts.interface = value;
    } else if (std::ranges::find(names, key) != std::end(names)) {
        texts.name = value;
        texts.named = true;
    } else if (key == "port") {
        storeNumber(data, value);
    } else if (key == "backlight") {
        storeMode(data.backlight, value);
    } else if (key == "brightness") {
        storeMode(data.brightness, value);
    } else if (key == "backlight_brightness") {
        storeMode(data.backlightBrightness, value);
    } else if (key == "registry_path") {
        storePath(data, value);
    }
}

Texts readReference(std::string_view file, ConfData &data)
{
    Texts texts;
    storeNumber(data, "5850");
    for (uint32_t *const mode : {&data.backlight, &data.brightness, &data.backlightBrightness}) {
        storeMode(*mode, "visible");
    }
    storePath(data, "/user/common/");
    while (!file.empty()) {
        const std::string line = trimmed(withoutComment(std::string(file.substr(0, file.find('\n')))));
        file.remove_prefix(std::min(file.size(), file.find('\n') == file.npos ? file.size() : file.find('\n') + 1));
        if (const auto equals = line.find('='); equals != line.npos) {
            storeValue(trimmed(line.substr(0, equals)), trimmed(line.substr(equals + 1)).c_str(), data, texts);
        }
    }
    return texts;
}

// ---- The parser, with its table redirected to a block between guards ----

/// Like the library's function, but frees the text that it replaces. The library cannot: a program may still use the text.
template <int (*Read)(const char *value, void *destination)>
int readAndFree(const char *value, void *destination)
{
    std::free(*static_cast<char **>(destination));
    return Read(value, destination);
}

void moveTable(uint8_t *block)
{
    static uint8_t *before = reinterpret_cast<uint8_t *>(&sConfData);
    for (HwsKeyword &row : hws_keywords) {
        row.destination = row.destination != nullptr ? block + (static_cast<uint8_t *>(row.destination) - before) : nullptr;
        row.reader = row.reader == read_str   ? readAndFree<read_str>
                     : row.reader == read_int ? readAndFree<read_int>
                                              : row.reader;
    }
    before = block;
    keywords = hws_keywords;
}

/// A file in memory with a name in /proc for this process.
class MemoryFile {
public:
    MemoryFile() : file_(memfd_create("configuration", MFD_CLOEXEC)), name_("/proc/self/fd/" + std::to_string(file_)) {}

    char *filledWith(std::string_view content)
    {
        if (ftruncate(file_, 0) != 0 || pwrite(file_, content.data(), content.size(), 0) < 0) {
            fuzz::fault("cannot write the file");
        }
        return name_.data();
    }

private:
    int file_;
    std::string name_;
};

void expectText(const char *member, const char *got, const std::string &wanted)
{
    if (got == nullptr || got != std::string_view(wanted.c_str())) {
        fuzz::fault("read_conf: the %s is \"%s\", in the reference \"%s\"", member, got != nullptr ? got : "(null)",
                    wanted.c_str());
    }
}

/// Compares the texts, and removes them from the block because their addresses differ.
void compareTexts(ConfData &data, const Texts &wanted)
{
    expectText("interface", data.interface, wanted.interface);
    if (wanted.named) {
        expectText("name", data.name, wanted.name);
    } else if (data.name != nullptr) {
        fuzz::fault("read_conf: has a name that the file does not contain");
    }
    std::free(std::exchange(data.interface, nullptr));
    std::free(std::exchange(data.name, nullptr));
}

void compare(std::string_view content, uint8_t fill)
{
    static MemoryFile file;
    fuzz::GuardedArea got(sizeof(ConfData), fill);
    fuzz::GuardedArea wanted(sizeof(ConfData), fill);
    for (fuzz::GuardedArea *const block : {&got, &wanted}) {
        auto &data = *reinterpret_cast<ConfData *>(block->area());
        data.interface = data.name = nullptr;
    }
    const Texts texts = readReference(content, *reinterpret_cast<ConfData *>(wanted.area()));

    moveTable(got.area());
    void *block[4] = {file.filledWith(content), nullptr, nullptr, nullptr};
    if (const int result = read_conf(block); result != 0) {
        fuzz::fault("read_conf: returned %d for a readable file", result);
    }

    auto &data = *reinterpret_cast<ConfData *>(got.area());
    compareTexts(data, texts);
    if (!got.guardsIntact()) {
        fuzz::fault("read_conf: wrote outside its block");
    }
    if (std::memchr(data.registryPath, '\0', sizeof data.registryPath) == nullptr) {
        fuzz::fault("read_conf: the path is not terminated");
    }
    if (got != wanted) {
        const auto differing = std::mismatch(got.area(), got.area() + sizeof(ConfData), wanted.area()).first;
        fuzz::fault("read_conf: the block differs from the reference at byte %td", differing - got.area());
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size)
{
    constexpr uint8_t kPattern = 0xA5;
    const std::string_view content(reinterpret_cast<const char *>(data), size);
    compare(content, 0);
    compare(content, kPattern);
    return 0;
}
