// The folder of the service's sockets. All users of the machine share it. A service or a run makes it when it is missing.
#pragma once

#include "common/command_socket.h"
#include "common/descriptor.h"

#include <filesystem>
#include <functional>
#include <string>
#include <sys/types.h>

namespace tools {

/// The sticky bit marks a folder that a run made: the last run removes only such a folder. The bit has no other effect here,
/// because only the owner can write to the folder.
inline constexpr mode_t kRunFolderMode = 01755;
inline constexpr mode_t kServiceFolderMode = 0755;  // other users may connect to the sockets, but not replace them

/// The prefix of the files that kvosim locks in the folder. Other files do not have it.
inline constexpr const char *kLockFilePrefix = ".kvosim_";
/// The prefix of the files of a tap, before the name of the socket whose place it has.
inline constexpr const char *kTapFilePrefix = ".kvo_tap_";

enum class FolderUse {
    mountOn,  // it may belong to any user
    serve,    // it must belong to this user
};

/// A folder with a shared lock: no run removes it while the descriptor is open.
struct LockedFolder {
    Descriptor descriptor;  // invalid if only another user can read the folder; no run removes such a folder
    bool made = false;      // this call made the folder
};

/// Called at most once, before lockFolder waits. @p what names what it waits for.
using OnWait = std::function<void(const std::string &what)>;

/// Locks the folder @p path, and makes it with @p mode if it is missing. If root calls this, replaces an empty folder of
/// another user. With @p onWait, waits until the runs of another user end. Throws std::runtime_error whose text says to whom
/// the folder belongs and which command helps.
LockedFolder lockFolder(const std::filesystem::path &path, FolderUse use, mode_t mode, const OnWait &onWait = {});

/// Whether @p path is the file that @p descriptor has open.
bool isAt(int descriptor, const std::filesystem::path &path);

enum class SocketState { live, stale, unknown };

/// Whether a process listens at a socket.
SocketState socketStateOf(const std::filesystem::path &path);

/// Removes a folder that a run made, unless a process uses it. If @p wait, first waits until all other locks are released.
/// Always releases the lock of @p folder.
void removeUnusedFolder(int folder, const std::filesystem::path &path, bool wait);

}  // namespace tools
