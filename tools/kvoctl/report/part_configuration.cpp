// What the library reads: its configuration file, and environment variables.
#include "kvoctl/output/display_text.h"
#include "kvoctl/output/table.h"
#include "kvoctl/report/part.h"

#include <kvo_hws/config.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <unistd.h>

namespace kvoctl::reporting {

namespace {

using Column = Table::Column;

/// The file that is read if the platform names none.
constexpr const char *kDefaultConfigurationFile = "/etc/kvo_hws.conf";

/// The first two are read by the stand-ins for the platform's libraries, the next two by the loader, the last by the C library.
constexpr std::array kVariables{"KVO_PLATFORM_CONFIG", "KVO_PLATFORM_INTERFACE", "LD_LIBRARY_PATH", "LD_PRELOAD", "TZ"};

std::string configurationFile()
{
    const char *named = libpavo_getMetric(PLATFORM_CONFIG_FILE);
    return named == nullptr ? kDefaultConfigurationFile : named;
}

std::string modeWord(uint32_t mode)
{
    switch (mode) {
    case CONF_MODE_ALL: return "all";
    case CONF_MODE_VISIBLE: return "visible";
    case CONF_MODE_NONE: return "none";
    default: return std::to_string(mode) + " (another word)";
    }
}

const char *orNothing(const char *text) { return text == nullptr ? "" : text; }

/// The values that the library uses, with its defaults.
std::string valuesInUse(const std::string &file)
{
    ReadConfFile();
    Table table({Column::text, Column::text});
    table.add({"file", file});
    table.add({"interface", orNothing(sConfData.interface)});
    table.add({"its address", sConfData.ipString[0] == '\0' ? "(none)" : sConfData.ipString});
    table.add({"port", std::to_string(sConfData.port)});
    table.add({"name", orNothing(sConfData.name)});
    table.add({"backlight", modeWord(sConfData.backlight)});
    table.add({"brightness", modeWord(sConfData.brightness)});
    table.add({"backlight_brightness", modeWord(sConfData.backlightBrightness)});
    table.add({"registry_path", sConfData.registryPath});
    std::ostringstream text;
    table.write(text, {kUnlimited});
    return text.str();
}

std::string environment()
{
    std::string text;
    for (const char *name : kVariables) {
        const char *value = std::getenv(name);
        text.append(name).append(value == nullptr ? " is not set" : "=").append(orNothing(value)).append("\n");
    }
    return text;
}

}  // namespace

Content configuration(const Circumstances & /*circumstances*/)
{
    Content content{.files = {{"configuration/environment.txt", environment()}}};
    const std::string file = configurationFile();
    errno = 0;
    const std::optional<std::string> lines = access(file.c_str(), R_OK) == 0 ? readFile(file) : std::nullopt;
    if (lines) {
        content.files.push_back({"configuration/kvo_hws.conf", *lines, Form::configuration});
    } else {
        const std::string reason = errno == 0 ? "" : std::string(": ") + std::strerror(errno);
        content.notes.push_back("configuration/kvo_hws.conf: " + file + " cannot be read" + reason + "; the defaults apply");
    }
    content.files.push_back({"configuration/values.txt", valuesInUse(file)});
    return content;
}

}  // namespace kvoctl::reporting
