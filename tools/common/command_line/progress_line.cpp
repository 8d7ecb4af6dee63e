// Returns to the start of the line and erases it before each text.
#include "common/command_line/progress_line.h"

#include "common/command_line/terminal.h"

#include <cstdio>
#include <utility>

namespace tools::command_line {

namespace {

constexpr const char *kEmptyLine = "\r\x1B[K";

}  // namespace

ProgressLine::ProgressLine(int descriptor, std::function<Time()> now)
    : descriptor_(descriptor), now_(std::move(now)), canRewrite_(canRewriteLines(descriptor)), due_(now_() + kDelay)
{
}

ProgressLine::~ProgressLine()
{
    if (written_) {
        dprintf(descriptor_, "%s", kEmptyLine);
    }
}

void ProgressLine::write(const std::string &text)
{
    // The last column stays free: a character there moves the cursor to the next line on some terminals.
    const std::size_t width = terminalWidth(descriptor_).value_or(kDefaultWidth) - 1;
    dprintf(descriptor_, "%s%s", kEmptyLine, text.substr(0, width).c_str());
    written_ = true;
    due_ = now_() + kInterval;
}

}  // namespace tools::command_line
