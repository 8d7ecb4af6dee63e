// A new file takes the place of the old one with one rename.
#include "kvoctl/trace/recording_file.h"

#include <stdexcept>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace kvoctl {

namespace {

/// The writer itself refuses what is not a file.
std::filesystem::path nameToCreate(const std::filesystem::path &path, bool force)
{
    std::error_code ignored;
    const bool replaces = force && is_regular_file(symlink_status(path, ignored));
    return replaces ? path.parent_path() / (".kvo_record." + std::to_string(getpid())) : path;
}

}  // namespace

RecordingFile::RecordingFile(std::filesystem::path path, const tools::recording::Writer::Options &options,
                             tools::recording::StartTime start)
    : path_(std::move(path)), created_(nameToCreate(path_, options.force)), writer_(created_, options, start)
{
}

RecordingFile::~RecordingFile()
{
    if (!isKept_) {
        unlink(created_.c_str());
    }
}

void RecordingFile::keep()
{
    std::error_code error;
    if (created_ != path_) {
        rename(created_, path_, error);
    }
    if (error) {
        throw std::runtime_error("cannot replace \"" + path_.string() + "\": " + error.message());
    }
    isKept_ = true;
}

}  // namespace kvoctl
