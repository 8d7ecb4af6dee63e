// Writes reports to standard output.
#include "kvoctl/output/output.h"

#include "kvoctl/output/display_text.h"

#include <cerrno>
#include <cstring>
#include <iostream>
#include <unistd.h>

namespace kvoctl {

namespace {

constexpr int kIndent = 2;
constexpr int kOneLine = -1;

/// Names are arbitrary bytes from the plant. A name that is not UTF-8 must not prevent the output of the others.
std::string dump(const Document &document, int indent)
{
    return document.dump(indent, ' ', false, Document::error_handler_t::replace);
}

void writeLine(const std::string &text)
{
    std::cout << text << '\n';
    flushOutput();
}

}  // namespace

Layout layoutOf(int descriptor)
{
    return {tools::command_line::terminalWidth(descriptor).value_or(kUnlimited), tools::command_line::usesColour(descriptor)};
}

void flushOutput()
{
    if (std::cout) {  // else an earlier write has failed, and errno has its reason
        errno = 0;
    }
    if (!std::cout.flush()) {
        throw std::runtime_error(std::string("cannot write to standard output: ") + std::strerror(errno));
    }
}

Report reportDone(const Result &result)
{
    require(result);
    return {.document = {{"done", true}}};
}

void write(const Report &report, bool json)
{
    if (json && !report.document.is_null()) {
        writeLine(indented(report.document));
    }
    if (json) {
        return;
    }
    if (report.table) {
        report.table->write(std::cout, layoutOf(STDOUT_FILENO));
    }
    if (report.line) {
        std::cout << displayText(*report.line).text << '\n';
    }
    flushOutput();
}

std::string indented(const Document &document) { return dump(document, kIndent); }

std::string compact(const Document &document) { return dump(document, kOneLine); }

void writeError(std::optional<int32_t> result, const std::string &message)
{
    const Document code = result ? Document(*result) : Document(nullptr);
    writeLine(compact({{"error", {{"code", code}, {"meaning", message}}}}));
}

}  // namespace kvoctl
