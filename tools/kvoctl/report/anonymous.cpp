#include "kvoctl/report/anonymous.h"

#include "common/command_socket.h"
#include "common/json.h"
#include "common/recording/recording.h"
#include "kvoctl/recording/anonymize.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <pwd.h>
#include <set>
#include <sstream>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace kvoctl::reporting {

namespace {

using tools::recording::Kind;
using tools::recording::Line;

/// Keys of the configuration file whose values are names, and keys with other values that say nothing about the plant.
constexpr std::array kNameKeys{"name", "hostname", "Hostname", "rhz_name", "jdl_name"};
constexpr std::array kOtherKeys{"InternalInterface",    "interface",    "port", "backlight", "brightness",
                                "backlight_brightness", "registry_path"};

/// In this order: names of the plant are then known in texts.
constexpr std::array kOrder{Form::plant, Form::recording, Form::configuration, Form::log, Form::json, Form::text};

template <class Change>
std::string changeLines(const std::string &original, const Change &change)
{
    std::istringstream lines(original);
    std::string changed;
    for (std::string line; std::getline(lines, line);) {
        changed += change(line) + '\n';
    }
    return changed;
}

std::string_view trimmed(std::string_view text)
{
    const std::size_t begin = std::min(text.find_first_not_of(" \t\r"), text.size());
    text.remove_prefix(begin);
    return text.substr(0, text.find_last_not_of(" \t\r") + 1);
}

bool contains(const auto &list, std::string_view text) { return std::ranges::find(list, text) != list.end(); }

std::set<std::string> userNames()
{
    std::set<std::string> names;
    const auto add = [&](uid_t user) {
        const passwd *const entry = user == 0 ? nullptr : getpwuid(user);
        if (entry != nullptr) {
            names.insert(entry->pw_name);
        }
    };
    add(getuid());
    add(geteuid());
    const auto addOwner = [&](const std::filesystem::path &path) {
        struct stat status {};
        if (lstat(path.c_str(), &status) == 0) {
            add(status.st_uid);
        }
    };
    addOwner(tools::kSocketDirectory);
    std::error_code ignored;  // sockets.txt has the owner of each file that can be listed
    for (const auto &entry : std::filesystem::directory_iterator(tools::kSocketDirectory, ignored)) {
        addOwner(entry.path());
    }
    const char *caller = std::getenv("SUDO_USER");
    if (caller != nullptr && std::string_view(caller) != "root") {
        names.insert(caller);
    }
    return names;
}

/// A result of a request, or a path of the service: it stays in a quoted text of the log.
bool mayStay(std::string_view text)
{
    const bool isPath = text.starts_with(tools::kSocketDirectory) && text.find(' ') == std::string_view::npos;
    return text.empty() || isPath ||
           contains(std::array{"ok", "failed", "yes", "no", "suicide", "unknown request", "connect error"}, text);
}

}  // namespace

Anonymous::Anonymous()
{
    std::array<char, 256> host{};
    if (gethostname(host.data(), host.size() - 1) == 0 && std::string_view(host.data()) != "localhost") {
        const std::string name = host.data();
        anonymizer_.addName(name);
        anonymizer_.addName(name.substr(0, name.find('.')));
    }
    for (const std::string &name : userNames()) {
        anonymizer_.addName(name);
    }
}

std::string Anonymous::configuration(const std::string &original)
{
    return changeLines(original, [this](const std::string &line) -> std::string {
        const std::string_view text = trimmed(line);
        const std::size_t equals = text.find('=');
        if (text.empty()) {
            return "";
        }
        if (text.starts_with('#') || equals == std::string_view::npos) {
            return "# (a line that was left out)";
        }
        const std::string_view key = trimmed(text.substr(0, equals));
        std::string_view value = trimmed(text.substr(equals + 1));
        value = trimmed(value.substr(0, std::min(value.find(" #"), value.find("\t#"))));
        if (contains(kOtherKeys, key)) {
            return std::string(key) + " = " + anonymizer_.anonymizeText(value);
        }
        if (contains(kNameKeys, key)) {
            anonymizer_.addName(value);
            return std::string(key) + " = " + anonymizer_.anonymizeText(value);
        }
        return "# (a line with another key that was left out)";
    });
}

/// The library puts foreign texts between quotes, or after "Got event:".
std::string Anonymous::logLine(const std::string &original)
{
    constexpr std::string_view kEvent = "Got event: ";
    const std::size_t event = original.find(kEvent);
    const std::size_t end = event == std::string::npos ? original.size() : event + kEvent.size();
    std::string line = anonymizer_.anonymizeText(original.substr(0, end));
    for (std::size_t at = 0; (at = line.find_first_of("'\"", at)) != std::string::npos;) {
        const std::size_t close = line.rfind(line[at]);  // a text may contain quotes
        const std::string text = line.substr(at + 1, close - at - 1);
        if (close == at) {
            break;
        }
        const std::string replacement = mayStay(text) ? text : "...";
        line.replace(at + 1, text.size(), replacement);
        at += replacement.size() + 2;
    }
    return event == std::string::npos ? line : line + anonymizer_.anonymizeRequest(Kind::event, original.substr(end));
}

std::string Anonymous::log(const std::string &original)
{
    return changeLines(original, [this](const std::string &line) { return line.starts_with('#') ? line : logLine(line); });
}

std::string Anonymous::recording(const std::string &original)
{
    const auto all = tools::recording::Recording::read(original, "trace.rec");
    std::string text = format(tools::recording::Version{}) + '\n' + format(tools::recording::Start{all.start()}) + '\n';
    writeAnonymized(all, anonymizer_, [&](const Line &line) { text += format(line) + '\n'; });
    return text;
}

/// The keys stay, also if a station has such a name.
std::string Anonymous::json(const std::string &original)
{
    tools::Json document = tools::Json::parse(original).flatten();
    for (auto &[key, value] : document.items()) {
        if (value.is_string()) {
            value = anonymizer_.anonymizeText(value.get<std::string>());
        }
    }
    return document.unflatten().dump(2) + '\n';
}

std::string Anonymous::replaced(const File &file)
{
    switch (file.form) {
    case Form::configuration: return configuration(file.content);
    case Form::log: return log(file.content);
    case Form::plant: return anonymizer_.anonymizePlant(file.content);
    case Form::recording: return recording(file.content);
    case Form::json: return json(file.content);
    case Form::text: break;
    }
    return anonymizer_.anonymizeText(file.content);
}

/// A file that cannot be anonymized is left out.
void Anonymous::replaceIn(Content &content, Form form)
{
    std::erase_if(content.files, [&](File &file) {
        try {
            if (file.form == form) {
                file.content = replaced(file);
            }
            return false;
        } catch (const std::exception &error) {
            content.notes.push_back(file.name + " is left out, because it could not be anonymized: " + error.what());
            return true;
        }
    });
}

void Anonymous::replaceIn(const std::vector<Content *> &contents)
{
    for (const Form form : kOrder) {
        for (Content *content : contents) {
            replaceIn(*content, form);
        }
    }
    for (Content *content : contents) {
        for (std::string &note : content->notes) {
            note = anonymizer_.anonymizeText(note);
        }
    }
}

}  // namespace kvoctl::reporting
