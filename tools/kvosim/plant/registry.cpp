// Registry files: one line per station. A file is written under another name and then renamed, so readers always see a complete
// file.
#include "kvosim/plant/registry.h"

#include "common/descriptor.h"
#include "common/dotted_address.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace kvosim {

namespace {

constexpr const char *kCurrent = "kvo_hws/currkvos.reg";
constexpr const char *kPrevious = "kvo_hws/prevkvos.reg";
constexpr mode_t kListMode = 0666;  // the umask removes bits

std::filesystem::path createTemporaryDirectory()
{
    std::string name = (std::filesystem::temp_directory_path() / "kvosim-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
        throw std::system_error(errno, std::generic_category(), "cannot create the registry directory " + name);
    }
    return name;
}

std::string withSlash(const std::filesystem::path &directory)
{
    std::string path = std::filesystem::absolute(directory).lexically_normal().string();
    if (!path.ends_with('/')) {
        path += '/';
    }
    if (path.size() > kLongestRegistryPath) {
        throw std::runtime_error("the registry path " + path + " is too long: clients accept at most " +
                                 std::to_string(kLongestRegistryPath) + " bytes");
    }
    if (path.find('\n') != std::string::npos) {
        throw std::runtime_error("the registry path must not contain a line end: the protocol sends it as one line");
    }
    return path;
}

/// Clients read attributes as signed numbers. 0xFFFFFFFF is written as -1, which all clients read alike, with 32-bit and 64-bit
/// longs.
std::string attribute(uint32_t value) { return std::to_string(static_cast<int32_t>(value)); }

/// One line per station: "name" address attr1xattr2:attr3
template <class Stations>
std::string listText(const Stations &stations)
{
    std::string text;
    for (const auto &station : stations) {
        text += '"';
        text += station.name;
        text += "\" " + tools::dotted(station.address) + ' ' + attribute(station.attr1) + 'x' + attribute(station.attr2) + ':' +
                attribute(station.attr3) + '\n';
    }
    return text;
}

bool writeAll(const tools::Descriptor &file, std::string_view text)
{
    while (!text.empty()) {
        const ssize_t count = write(file.get(), text.data(), text.size());
        if (count < 0 && errno != EINTR) {
            return false;
        }
        text.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    }
    return true;
}

/// Writes to a newly created file and renames it. O_EXCL and O_NOFOLLOW prevent writing through a link planted at that path.
void writeWhole(const std::filesystem::path &path, const std::string &text)
{
    const std::filesystem::path temporary = path.string() + ".new";
    std::error_code missing;
    std::filesystem::remove(temporary, missing);
    const tools::Descriptor file(open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kListMode));
    if (!file.valid() || !writeAll(file, text)) {
        throw std::runtime_error("cannot write " + temporary.string() + ": " + std::generic_category().message(errno));
    }
    std::filesystem::rename(temporary, path);
}

}  // namespace

Registry::Registry(const std::optional<std::filesystem::path> &directory)
    : temporary_(!directory), path_(withSlash(directory ? *directory : createTemporaryDirectory()))
{
    std::filesystem::create_directories(file("kvo_hws"));
}

Registry::~Registry()
{
    if (temporary_) {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
}

void Registry::start(const Plant &plant)
{
    if (std::filesystem::exists(file(kCurrent))) {
        std::filesystem::rename(file(kCurrent), file(kPrevious));
    } else if (!std::filesystem::exists(file(kPrevious))) {
        writeWhole(file(kPrevious), listText(plant.previousList));
    }
    writeCurrent(plant.stations());
}

void Registry::writeCurrent(std::span<const ConnectionEntry> stations)
{
    std::string text = listText(stations);
    if (locked_) {
        pendingList_ = std::move(text);
        return;
    }
    writeWhole(file(kCurrent), text);
}

bool Registry::lock() noexcept { return !std::exchange(locked_, true); }

bool Registry::unlock()
{
    if (!std::exchange(locked_, false)) {
        return false;
    }
    if (const auto text = std::exchange(pendingList_, std::nullopt)) {
        writeWhole(file(kCurrent), *text);
    }
    return true;
}

std::filesystem::path Registry::file(const char *name) const { return std::filesystem::path(path_) / name; }

}  // namespace kvosim
