// The folder of the service's sockets: common to all users of the machine, made and removed by the process that needs it.
#pragma once

#include "common/command_socket.h"
#include "common/descriptor.h"

#include <filesystem>
#include <functional>
#include <string>
#include <sys/types.h>

namespace tools {

/// The mode of a folder that a run made, which the last run removes. Services make theirs without the sticky bit; in a folder
/// that only its owner can write, the bit changes nothing else.
inline constexpr mode_t kMadeByRun = 01755;
inline constexpr mode_t kMadeByService = 0755;  // others may reach the sockets, but put none in their place

/// Files that kvosim locks in the folder; nothing else of these names is there.
inline constexpr const char *kLockFilePrefix = ".kvosim_";

enum class FolderUse {
    mountOn,  // any folder will do
    serve,    // it must belong to this user
};

/// A folder that no run removes as long as the descriptor is open, by its shared lock.
struct HeldFolder {
    Descriptor descriptor;  // invalid where the folder is another user's who lets no one read it: no run removes that
    bool made = false;      // by this call
};

/// Called with what is waited for, once at most.
using Waiting = std::function<void(const std::string &what)>;

/// Holds the folder @p path, which is made with @p mode where it is missing. Root replaces an empty one of another user.
/// With @p waiting, the end of another user's runs is waited for. Throws std::runtime_error, whose text says whose the folder is
/// and which command helps.
HeldFolder holdFolder(const std::filesystem::path &path, FolderUse use, mode_t mode, const Waiting &waiting = {});

/// Whether @p path is the file that @p descriptor has open.
bool isAt(int descriptor, const std::filesystem::path &path);

enum class SocketState { live, stale, unknown };

/// Whether a process listens at a socket.
SocketState stateOfSocket(const std::filesystem::path &path);

/// Removes a folder that a run made, unless somebody uses it. @p wait waits for those who hold it; the lock of @p folder is
/// lost either way.
void removeUnusedFolder(int folder, const std::filesystem::path &path, bool wait);

}  // namespace tools
