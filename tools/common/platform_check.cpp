// Asks the loader, and the platform for the configuration file's name.
#include "common/platform_check.h"

#include <kvo_hws/platform.h>

#include <cerrno>
#include <cstring>
#include <dlfcn.h>
#include <link.h>
#include <memory>
#include <unistd.h>

namespace tools {

namespace {

/// Read where the platform names none.
constexpr const char *kUsualConfiguration = "/etc/kvo_hws.conf";

struct CloseLibrary {
    void operator()(void *handle) const noexcept { dlclose(handle); }
};

}  // namespace

Finding examineLibrary(const std::string &name)
{
    // Only what is loaded already: a library that is first found here is not the one that requests go through.
    const std::unique_ptr<void, CloseLibrary> handle(dlopen(name.c_str(), RTLD_LAZY | RTLD_NOLOAD));
    link_map *map = nullptr;
    if (!handle || dlinfo(handle.get(), RTLD_DI_LINKMAP, &map) != 0) {
        return {.check = name,
                .words = "The loader has not found " + name + ".",
                .advice = "Install it beside libkvo_hws.so.0, or name its folder in LD_LIBRARY_PATH.",
                .fault = Fault::platformMissing};
    }
    return {.check = name, .words = std::string("The loader took ") + map->l_name + "."};
}

Finding examineConfiguration()
{
    const char *named = libpavo_getMetric(PLATFORM_CONFIG_FILE);
    const std::string file = named == nullptr ? kUsualConfiguration : named;
    if (access(file.c_str(), R_OK) == 0) {
        return {.check = "configuration", .words = "The configuration file is " + file + "."};
    }
    return {.check = "configuration",
            .words = "The configuration file " + file + " can not be read: " + std::strerror(errno) + ".",
            .advice = "No request needs it. Where settings of this panel seem not to count, put it there."};
}

}  // namespace tools
