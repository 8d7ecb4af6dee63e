// Asks the loader for its libraries, and the platform for the name of the configuration file.
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

/// The file that is read if the platform names none.
constexpr const char *kDefaultConfiguration = "/etc/kvo_hws.conf";

struct CloseLibrary {
    void operator()(void *handle) const noexcept { dlclose(handle); }
};

}  // namespace

Finding examineLibrary(const std::string &name)
{
    // Requests use the library that is already loaded, so dlopen must not load another one now.
    const std::unique_ptr<void, CloseLibrary> handle(dlopen(name.c_str(), RTLD_LAZY | RTLD_NOLOAD));
    link_map *map = nullptr;
    if (!handle || dlinfo(handle.get(), RTLD_DI_LINKMAP, &map) != 0) {
        return {.check = name,
                .text = "The loader did not find " + name + ".",
                .advice = "Install it next to libkvo_hws.so.0, or add its folder to LD_LIBRARY_PATH.",
                .fault = Fault::platformMissing};
    }
    return {.check = name, .text = std::string("The loader uses ") + map->l_name + "."};
}

Finding examineConfiguration()
{
    const char *named = libpavo_getMetric(PLATFORM_CONFIG_FILE);
    const std::string file = named == nullptr ? kDefaultConfiguration : named;
    if (access(file.c_str(), R_OK) == 0) {
        return {.check = "configuration", .text = "The configuration file is " + file + "."};
    }
    return {.check = "configuration",
            .text = "The configuration file " + file + " cannot be read: " + std::strerror(errno) + ".",
            .advice = "No request needs it. If this panel's settings have no effect, put it there."};
}

}  // namespace tools
