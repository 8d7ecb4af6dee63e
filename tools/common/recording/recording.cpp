#include "common/recording/recording.h"

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <limits>
#include <sstream>
#include <system_error>

namespace tools::recording {

namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

LineError notARecording()
{
    return LineError("expected \"" + format(Version{}) + "\" as the first line; this file is not a recording");
}

/// Checks the order of the lines: the version comes first, then the start, and programs before the exchanges that name them.
class Order {
public:
    void check(const Line &line, const std::map<unsigned, Process> &processes)
    {
        if (std::holds_alternative<Nothing>(line)) {
            return;
        }
        if (const auto *version = std::get_if<Version>(&line)) {
            checkVersion(*version);
            return;
        }
        if (!hasVersion_) {
            throw notARecording();
        }
        if (std::holds_alternative<Start>(line)) {
            if (hasStart_) {
                throw LineError("a second \"start\"; a recording has one");
            }
            hasStart_ = true;
            return;
        }
        if (!hasStart_) {
            throw LineError("expected \"start\" with a time in UTC before the first exchange");
        }
        const auto *exchange = std::get_if<Exchange>(&line);
        if (exchange != nullptr && exchange->process != 0 && !processes.contains(exchange->process)) {
            throw LineError("no \"process " + std::to_string(exchange->process) + "\" precedes this line");
        }
        const auto *process = std::get_if<Process>(&line);
        if (process != nullptr && (process->number == 0 || processes.contains(process->number))) {
            throw LineError("each program needs a number of its own, from 1; " + std::to_string(process->number) +
                            " is not free");
        }
    }

    /// Of the lines before the version, only empty lines and comments are valid.
    [[nodiscard]] bool hasVersion() const noexcept { return hasVersion_; }

    void checkEnd() const
    {
        if (!hasVersion_ || !hasStart_) {
            throw LineError("the file ends before its \"" + std::string(hasVersion_ ? "start" : "kvo-recording") + "\" line");
        }
    }

private:
    void checkVersion(const Version &version)
    {
        if (hasVersion_) {
            throw LineError("a second \"kvo-recording\"; only the first line names the version");
        }
        if (version.number > kVersion) {
            throw LineError("version " + std::to_string(version.number) +
                            " of the format is newer than this program, which reads version " + std::to_string(kVersion) +
                            "; use a newer program");
        }
        hasVersion_ = true;
    }

    bool hasVersion_ = false;
    bool hasStart_ = false;
};

/// Another kind of file is not explained with the mistakes of its first line.
Line parseBeforeVersion(std::string_view text)
{
    try {
        return parse(text);
    } catch (const LineError &) {
        if (!text.substr(text.find_first_not_of(" \t")).starts_with("kvo-recording")) {
            throw notARecording();
        }
        throw;
    }
}

}  // namespace

Recording Recording::load(const std::filesystem::path &path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw std::system_error(errno, std::generic_category(), path.string());
    }
    std::error_code ignored;
    std::string text;
    text.reserve(static_cast<std::size_t>(std::filesystem::file_size(path, ignored)) + 1);
    char piece[65536];
    while (file.read(piece, sizeof piece) || file.gcount() > 0) {
        text.append(piece, static_cast<std::size_t>(file.gcount()));
    }
    if (file.bad()) {
        throw std::system_error(errno, std::generic_category(), path.string());
    }
    return read(std::move(text), path.string());
}

Recording Recording::read(std::string text, const std::string &name)
{
    Recording recording;
    recording.text_ = std::move(text);
    const std::string_view all = recording.text_;
    // Reserved at once: while a vector grows, the old and the new memory exist at the same time.
    recording.lines_.reserve(static_cast<std::size_t>(std::ranges::count(all, '\n')) + 1);
    Order order;
    uint32_t number = 1;
    try {
        for (std::size_t at = all.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0; at < all.size(); ++number) {
            const std::size_t end = std::min(all.find('\n', at), all.size());
            const std::string_view lineText = all.substr(at, end - at);
            if (lineText.size() > std::numeric_limits<uint32_t>::max()) {
                throw LineError("a line of more than 4 GiB");
            }
            const Line line = order.hasVersion() ? parse(lineText) : parseBeforeVersion(lineText);
            order.check(line, recording.processes_);
            if (const auto *start = std::get_if<Start>(&line)) {
                recording.start_ = start->time;
            } else if (const auto *process = std::get_if<Process>(&line)) {
                recording.processes_.emplace(process->number, *process);
            } else if (const auto *plant = std::get_if<PlantLine>(&line)) {
                recording.plant_ += plant->text + '\n';
            } else if (std::holds_alternative<Exchange>(line) || std::holds_alternative<Note>(line)) {
                recording.lines_.push_back({at, static_cast<uint32_t>(lineText.size()), number});
            }
            at = end + 1;
        }
        order.checkEnd();
    } catch (const LineError &error) {
        throw RecordingError(name + ':' + std::to_string(number) + ": " + error.what());
    }
    return recording;
}

Line Recording::line(std::size_t index) const
{
    const Place &place = lines_.at(index);
    return parse(std::string_view(text_).substr(place.offset, place.length));
}

}  // namespace tools::recording
