// Asks the terminal, then the environment.
#include "common/command_line/terminal.h"

#include <charconv>
#include <cstdlib>
#include <string_view>
#include <sys/ioctl.h>
#include <unistd.h>

namespace tools::command_line {

namespace {

std::string_view variable(const char *name)
{
    const char *value = std::getenv(name);
    return value == nullptr ? "" : value;
}

std::optional<std::size_t> widthOfEnvironment()
{
    const std::string_view text = variable("COLUMNS");
    std::size_t width = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), width);
    return error == std::errc{} && end == text.data() + text.size() && width > 0 ? std::optional(width) : std::nullopt;
}

}  // namespace

std::optional<std::size_t> terminalWidth(int descriptor)
{
    if (isatty(descriptor) == 0) {
        return std::nullopt;
    }
    winsize size{};
    if (ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) {
        return size.ws_col;
    }
    return widthOfEnvironment();
}

std::size_t helpWidth()
{
    // With a pager on standard output, standard error still is the terminal that shows the help.
    for (const int descriptor : {STDOUT_FILENO, STDERR_FILENO}) {
        if (const auto width = terminalWidth(descriptor)) {
            return *width;
        }
    }
    return widthOfEnvironment().value_or(kDefaultWidth);
}

bool usesColour(int descriptor) { return canRewriteLines(descriptor) && variable("NO_COLOR").empty(); }

bool canRewriteLines(int descriptor) { return isatty(descriptor) != 0 && variable("TERM") != "dumb"; }

std::string coloured(const std::string &text, Colour colour)
{
    switch (colour) {
    case Colour::bad: return "\x1B[1;31m" + text + "\x1B[0m";
    case Colour::warning: return "\x1B[33m" + text + "\x1B[0m";
    case Colour::good: return "\x1B[32m" + text + "\x1B[0m";
    default: return text;
    }
}

}  // namespace tools::command_line
