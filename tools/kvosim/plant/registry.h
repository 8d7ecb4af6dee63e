// The daemon's station lists on disk, the previous and the current one, and the lock with which clients prevent changes while
// they read.
#pragma once

#include "kvosim/plant/plant.h"

#include <filesystem>
#include <optional>
#include <span>
#include <string>

namespace kvosim {

/// The longest registry path that clients can use, including the "/" at its end.
inline constexpr std::size_t kLongestRegistryPath = 1004;

class Registry {
public:
    /// Without a directory, creates a temporary one, which the destructor removes. Throws std::runtime_error if the directory
    /// cannot be used.
    explicit Registry(const std::optional<std::filesystem::path> &directory);
    Registry(const Registry &) = delete;
    Registry &operator=(const Registry &) = delete;
    ~Registry();

    /// Makes the current list the previous one, and writes the stations of @p plant as the current one. At the first start, the
    /// previous list comes from the plant.
    void start(const Plant &plant);

    /// Writes the current list. While the registry is locked, this is delayed until it is unlocked.
    void writeCurrent(std::span<const ConnectionEntry> stations);

    /// The directory with a "/" at its end: clients append the file names without adding one.
    [[nodiscard]] const std::string &path() const noexcept { return path_; }

    /// Returns false if the lock is already held. The lock has no owner: clients lock on one connection and unlock on another.
    bool lock() noexcept;
    /// Returns false if the lock is not held.
    bool unlock();
    [[nodiscard]] bool locked() const noexcept { return locked_; }

private:
    [[nodiscard]] std::filesystem::path file(const char *name) const;

    bool temporary_;
    std::string path_;
    bool locked_ = false;
    std::optional<std::string> pendingList_;  ///< the current list, to be written at unlock
};

}  // namespace kvosim
