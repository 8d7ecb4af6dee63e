// Writes files into a tar archive that gzip has compressed.
#pragma once

#include <ctime>
#include <memory>
#include <string>

namespace kvoctl {

class Archive {
public:
    /// Throws std::runtime_error if this kvoctl was built without the library for archives.
    static void check();

    /// Writes to @p descriptor, which stays open. Every entry gets the time @p made and belongs to user and group 0, without names.
    /// All functions throw std::runtime_error with the reason if they cannot write.
    Archive(int descriptor, std::time_t made);
    Archive(const Archive &) = delete;
    Archive &operator=(const Archive &) = delete;
    ~Archive();

    void addFolder(const std::string &name);
    /// @p name  the path in the archive
    void addFile(const std::string &name, const std::string &content);
    /// Writes the end of the archive.
    void finish();

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace kvoctl
