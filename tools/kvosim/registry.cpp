// Registry files: one line a station, written aside and renamed, so that a reader meets a whole file at any time.
#include "registry.h"

#include "address.h"

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace kvosim {

namespace {

constexpr const char *kCurrent = "kvo_hws/currkvos.reg";
constexpr const char *kPrevious = "kvo_hws/prevkvos.reg";

std::filesystem::path createTemporaryDirectory()
{
    std::string name = (std::filesystem::temp_directory_path() / "kvosim-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
        throw std::system_error(errno, std::generic_category(), "create a registry directory " + name);
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
        throw std::runtime_error("the registry path " + path + " is too long: clients read from at most " +
                                 std::to_string(kLongestRegistryPath) + " bytes");
    }
    if (path.find('\n') != std::string::npos) {
        throw std::runtime_error("the registry path must not hold a line end: it goes over the wire in one line");
    }
    return path;
}

/// Clients read attributes as signed numbers: 0xFFFFFFFF is -1 to them, however wide their long is.
std::string attribute(uint32_t value) { return std::to_string(static_cast<int32_t>(value)); }

/// One station a line: "name" address attr1xattr2:attr3
template <class Stations>
std::string listText(const Stations &stations)
{
    std::string text;
    for (const auto &station : stations) {
        text += '"';
        text += station.name;
        text += "\" " + dotted(station.address) + ' ' + attribute(station.attr1) + 'x' + attribute(station.attr2) + ':' +
                attribute(station.attr3) + '\n';
    }
    return text;
}

void writeWhole(const std::filesystem::path &path, const std::string &text)
{
    const std::filesystem::path aside = path.string() + ".new";
    std::ofstream out(aside, std::ios::binary | std::ios::trunc);
    out << text;
    out.close();
    if (!out) {
        throw std::runtime_error("can not write " + aside.string());
    }
    std::filesystem::rename(aside, path);
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
        writeWhole(file(kPrevious), listText(plant.previous));
    }
    writeCurrent(plant.stations());
}

void Registry::writeCurrent(std::span<const ConnectionEntry> stations)
{
    std::string text = listText(stations);
    if (locked_) {
        waiting_ = std::move(text);
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
    if (const auto text = std::exchange(waiting_, std::nullopt)) {
        writeWhole(file(kCurrent), *text);
    }
    return true;
}

std::filesystem::path Registry::file(const char *name) const { return std::filesystem::path(path_) / name; }

}  // namespace kvosim
