// The daemon's station lists on disk, the previous and the current one, and the lock that keeps them from being rewritten while
// a client reads them.
#pragma once

#include "kvosim/plant/plant.h"

#include <filesystem>
#include <optional>
#include <span>
#include <string>

namespace kvosim {

/// The longest registry path, with the "/" at its end, from which clients can still read.
inline constexpr std::size_t kLongestRegistryPath = 1004;

class Registry {
public:
    /// Without a directory: a fresh temporary one, removed at the end. Throws std::runtime_error where it can not be used.
    explicit Registry(const std::optional<std::filesystem::path> &directory);
    Registry(const Registry &) = delete;
    Registry &operator=(const Registry &) = delete;
    ~Registry();

    /// Makes what has been the current list the previous one and writes @p plant as the current one. Where there has been no
    /// start before, the previous list is the plant's.
    void start(const Plant &plant);

    /// Writes the current list; while a client holds the lock, as soon as it is given back.
    void writeCurrent(std::span<const ConnectionEntry> stations);

    /// The directory with a "/" at its end: clients append the file names as they are.
    [[nodiscard]] const std::string &path() const noexcept { return path_; }

    /// False while somebody holds the lock. It has no owner: clients take it on one connection and give it back on another.
    bool lock() noexcept;
    /// False where nobody holds the lock.
    bool unlock();
    [[nodiscard]] bool locked() const noexcept { return locked_; }

private:
    [[nodiscard]] std::filesystem::path file(const char *name) const;

    bool temporary_;
    std::string path_;
    bool locked_ = false;
    std::optional<std::string> waiting_;  ///< the current list that waits for the lock
};

}  // namespace kvosim
