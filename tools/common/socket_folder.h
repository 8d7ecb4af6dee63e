// The folder of the service's sockets. All users of the machine share it; the process that needs it makes and removes it.
#pragma once

#include "common/command_socket.h"
#include "common/descriptor.h"

#include <filesystem>
#include <functional>
#include <string>
#include <sys/types.h>

namespace tools {

/// The mode of a folder that a run made and that the last run removes. The sticky bit is the mark: services make their folder
/// without it. In a folder that only its owner can write to, the bit changes nothing else.
inline constexpr mode_t kRunFolderMode = 01755;
inline constexpr mode_t kServiceFolderMode = 0755;  // other users may connect to the sockets, but not replace them

/// The prefix of the files that kvosim locks in the folder. No other file has it.
inline constexpr const char *kLockFilePrefix = ".kvosim_";

enum class FolderUse {
    mountOn,  // any folder is suitable
    serve,    // it must belong to this user
};

/// A folder with a shared lock: no run removes it while the descriptor is open.
struct LockedFolder {
    Descriptor descriptor;  // invalid if only another user can read the folder, which no run removes
    bool made = false;      // this call made the folder
};

/// Called at most once, with the text of what lockFolder waits for.
using OnWait = std::function<void(const std::string &what)>;

/// Locks the folder @p path, and makes it with @p mode if it is missing. Root replaces an empty folder of another user.
/// With @p onWait, waits until another user's runs end. Throws std::runtime_error whose text says to whom the folder belongs
/// and which command helps.
LockedFolder lockFolder(const std::filesystem::path &path, FolderUse use, mode_t mode, const OnWait &onWait = {});

/// Whether @p path is the file that @p descriptor has open.
bool isAt(int descriptor, const std::filesystem::path &path);

enum class SocketState { live, stale, unknown };

/// Whether a process listens at a socket.
SocketState socketStateOf(const std::filesystem::path &path);

/// Removes a folder that a run made, unless a process uses it. @p wait waits until all other locks are released. The lock of
/// @p folder is lost in any case.
void removeUnusedFolder(int folder, const std::filesystem::path &path, bool wait);

}  // namespace tools
