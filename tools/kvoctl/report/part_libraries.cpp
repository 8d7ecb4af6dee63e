// The libraries of this process with their build ids.
#include "kvoctl/report/part.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <elf.h>
#include <link.h>
#include <sstream>

namespace kvoctl::reporting {

namespace {

std::string hexadecimalText(const uint8_t *bytes, std::size_t count)
{
    constexpr const char *kDigits = "0123456789abcdef";
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
        text += {kDigits[bytes[i] >> 4U], kDigits[bytes[i] & 0xFU]};
    }
    return text;
}

/// The build id among the notes of one segment.
std::string buildIdIn(const uint8_t *notes, std::size_t size, std::size_t alignment)
{
    const auto aligned = [alignment](std::size_t length) { return (length + alignment - 1) / alignment * alignment; };
    while (size >= sizeof(ElfW(Nhdr))) {
        ElfW(Nhdr) header{};
        std::memcpy(&header, notes, sizeof header);
        const std::size_t value = aligned(sizeof header + header.n_namesz);
        const std::size_t next = aligned(value + header.n_descsz);
        if (value + header.n_descsz > size) {
            break;
        }
        if (header.n_type == NT_GNU_BUILD_ID && header.n_namesz == sizeof ELF_NOTE_GNU &&
            std::memcmp(notes + sizeof header, ELF_NOTE_GNU, sizeof ELF_NOTE_GNU) == 0) {
            return hexadecimalText(notes + value, header.n_descsz);
        }
        notes += std::min(next, size);
        size -= std::min(next, size);
    }
    return {};
}

std::string buildIdOf(const dl_phdr_info &object)
{
    for (int i = 0; i < object.dlpi_phnum; ++i) {
        const ElfW(Phdr) &segment = object.dlpi_phdr[i];
        if (segment.p_type == PT_NOTE) {
            const auto *notes = reinterpret_cast<const uint8_t *>(object.dlpi_addr + segment.p_vaddr);
            const std::string id = buildIdIn(notes, segment.p_memsz, segment.p_align == 8 ? 8 : 4);
            if (!id.empty()) {
                return id;
            }
        }
    }
    return "(none)";
}

struct LoadedObject {
    std::string path;
    std::string buildId;
};

/// Called by the loader for each object; the program itself has no name.
int addObject(dl_phdr_info *object, std::size_t /*size*/, void *objects)
{
    auto &all = *static_cast<std::vector<LoadedObject> *>(objects);
    std::error_code ignored;
    const std::string path = all.empty() && object->dlpi_name[0] == '\0'
                                 ? std::filesystem::read_symlink("/proc/self/exe", ignored).string()
                                 : object->dlpi_name;
    all.push_back({path, buildIdOf(*object)});
    return 0;
}

/// The library and the platform's two libraries are shown first.
bool isOurs(const std::string &path)
{
    return path.find("/libkvo_hws.so") != std::string::npos || path.find("/libpavo.so") != std::string::npos ||
           path.find("/libdrak.so") != std::string::npos;
}

/// The file itself if @p path is a link: its name has the version.
std::string fileOf(const std::string &path)
{
    std::error_code error;
    const std::filesystem::path file = std::filesystem::canonical(path, error);
    return error || file.filename() == std::filesystem::path(path).filename() ? "" : file.filename().string();
}

}  // namespace

Content libraries(const Circumstances & /*circumstances*/)
{
    std::vector<LoadedObject> objects;
    dl_iterate_phdr(addObject, &objects);
    // Not the algorithm of std::ranges: its result, a subrange, does not compile with clang 14.
    std::stable_partition(objects.begin(), objects.end(), [](const LoadedObject &object) { return isOurs(object.path); });
    std::ostringstream text;
    for (const LoadedObject &object : objects) {
        const std::string file = fileOf(object.path);
        text << object.path << '\n';
        if (!file.empty()) {
            text << "  file      " << file << '\n';
        }
        text << "  build id  " << object.buildId << '\n';
    }
    return {.files = {{"libraries.txt", text.str()}}};
}

}  // namespace kvoctl::reporting
