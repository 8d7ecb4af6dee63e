#include "kvoctl/report/archive.h"

#include <archive.h>
#include <archive_entry.h>

#include <cstring>
#include <stdexcept>
#include <sys/stat.h>

namespace kvoctl {

namespace {

constexpr mode_t kFileMode = 0600;
constexpr mode_t kFolderMode = 0700;

struct FreeEntry {
    void operator()(archive_entry *each) const noexcept { archive_entry_free(each); }
};

}  // namespace

struct Archive::State {
    struct Free {
        void operator()(archive *each) const noexcept { archive_write_free(each); }
    };

    std::time_t made;
    std::unique_ptr<archive, Free> out{archive_write_new()};

    void require(bool isDone) const
    {
        if (!isDone) {  // the text of an error of the system is only "Write error"
            const int error = archive_errno(out.get());
            const char *text = error > 0 ? std::strerror(error) : archive_error_string(out.get());
            throw std::runtime_error(text == nullptr ? "unknown error" : text);
        }
    }
    void requireOk(int result) const { require(result == ARCHIVE_OK); }
    void addHeader(const std::string &name, mode_t type, mode_t mode, std::size_t size) const
    {
        const std::unique_ptr<archive_entry, FreeEntry> entry(archive_entry_new());
        archive_entry_set_pathname(entry.get(), name.c_str());
        archive_entry_set_filetype(entry.get(), type);
        archive_entry_set_perm(entry.get(), mode);
        archive_entry_set_size(entry.get(), static_cast<la_int64_t>(size));
        archive_entry_set_mtime(entry.get(), made, 0);
        archive_entry_set_uid(entry.get(), 0);
        archive_entry_set_gid(entry.get(), 0);
        requireOk(archive_write_header(out.get(), entry.get()));
    }
};

void Archive::check() {}

Archive::Archive(int descriptor, std::time_t made) : state_(std::make_unique<State>(State{made}))
{
    state_->requireOk(archive_write_set_format_pax_restricted(state_->out.get()));
    state_->requireOk(archive_write_add_filter_gzip(state_->out.get()));
    state_->requireOk(archive_write_set_bytes_in_last_block(state_->out.get(), 1));
    state_->requireOk(archive_write_open_fd(state_->out.get(), descriptor));
}

Archive::~Archive() = default;

void Archive::addFolder(const std::string &name) { state_->addHeader(name, S_IFDIR, kFolderMode, 0); }

void Archive::addFile(const std::string &name, const std::string &content)
{
    state_->addHeader(name, S_IFREG, kFileMode, content.size());
    const la_ssize_t written = archive_write_data(state_->out.get(), content.data(), content.size());
    state_->require(written == static_cast<la_ssize_t>(content.size()));
    state_->requireOk(archive_write_finish_entry(state_->out.get()));
}

void Archive::finish() { state_->requireOk(archive_write_close(state_->out.get())); }

}  // namespace kvoctl
