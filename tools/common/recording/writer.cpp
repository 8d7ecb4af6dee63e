#include "common/recording/writer.h"

#include "common/new_file.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <string_view>
#include <unistd.h>

namespace tools::recording {

namespace {

constexpr std::size_t kBufferSize = 65536;
constexpr std::size_t kManyPrograms = 5000;
constexpr mode_t kOwnerOnly = 0600;

std::string reason() { return std::strerror(errno); }

/// Removes the file that is replaced. A new file is not reached by other names of the old one, or by programs that have opened it.
void removeOld(const std::filesystem::path &path)
{
    if (checkReplaceable(path, true) && unlink(path.c_str()) != 0) {
        throw std::runtime_error("cannot replace \"" + path.string() + "\": " + reason());
    }
}

Descriptor create(const std::filesystem::path &path, bool force)
{
    if (force) {
        removeOld(path);
    }
    Descriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kOwnerOnly));
    if (!file.valid() && errno == EEXIST) {
        throw std::runtime_error("\"" + path.string() + "\" exists; choose another name, or replace it with --force");
    }
    if (!file.valid()) {
        throw std::runtime_error("cannot create \"" + path.string() + "\": " + reason());
    }
    return file;
}

}  // namespace

Writer::Writer(std::filesystem::path path, const Options &options, StartTime start)
    : path_(std::move(path)), options_(options), file_(create(path_, options.force))
{
    if (!add(Version{}) || !add(Start{start}) || !flush()) {
        unlink(path_.c_str());  // without these lines it is not a recording
        throw std::runtime_error("cannot write \"" + path_.string() + "\": " + fullReason_);
    }
}

unsigned Writer::numberOf(int64_t pid, const std::string &name)
{
    if (numbers_.size() == kManyPrograms && !numbers_.contains({pid, name})) {
        earlierNumbers_ = std::exchange(numbers_, {});
    }
    const auto [place, isNew] = numbers_.try_emplace({pid, name}, 0);
    if (!isNew) {
        return place->second;
    }
    if (const auto earlier = earlierNumbers_.find(place->first); earlier != earlierNumbers_.end()) {
        return place->second = earlier->second;
    }
    place->second = ++lastNumber_;
    add(Process{place->second, pid, name});
    return place->second;
}

bool Writer::add(const Line &line)
{
    if (!fullReason_.empty()) {
        return false;
    }
    const std::string text = format(line) + '\n';
    if (options_.maxSize && size() + text.size() > *options_.maxSize) {
        if (!flush()) {
            return false;
        }
        isAtMaxSize_ = true;
        fullReason_ = "the file has reached its largest size of " + std::to_string(*options_.maxSize) + " bytes";
        return false;
    }
    buffer_ += text;
    return buffer_.size() < kBufferSize || flush();
}

bool Writer::flush()
{
    std::string_view rest = buffer_;
    while (!rest.empty() && fullReason_.empty()) {
        const ssize_t count = TEMP_FAILURE_RETRY(write(file_.get(), rest.data(), rest.size()));
        if (count >= 0) {
            rest.remove_prefix(static_cast<std::size_t>(count));
            continue;
        }
        fullReason_ = reason();
        // Keep the lines that are complete, so that the file stays valid.
        const std::size_t accepted = buffer_.size() - rest.size();
        const std::size_t lastEnd = buffer_.rfind('\n', accepted == 0 ? 0 : accepted - 1);
        const uint64_t complete = lastEnd == std::string::npos || accepted == 0 ? 0 : lastEnd + 1;
        written_ += complete;
        buffer_.clear();
        if (ftruncate(file_.get(), static_cast<off_t>(written_)) != 0) {
            fullReason_ += "; the last line is incomplete";
        }
        return false;
    }
    written_ += buffer_.size();
    buffer_.clear();
    return fullReason_.empty();
}

}  // namespace tools::recording
