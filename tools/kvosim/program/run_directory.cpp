// Reserves the socket directory for one run.
#include "kvosim/program/run_directory.h"

#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace kvosim {

namespace {

const std::filesystem::path kFolder = tools::kSocketDirectory;

void reportWaiting(const std::string &what) { std::fprintf(stderr, "kvosim: waiting for %s\n", what.c_str()); }

void refuseIfServiceRuns()
{
    const std::string socket = kFolder / "cmd_sock";
    if (tools::socketStateOf(socket) == tools::SocketState::live) {
        throw std::runtime_error("a service is already running at " + socket +
                                 "; end it first, or start the command without kvosim to use that service");
    }
}

}  // namespace

SharedDirectory::SharedDirectory()
    : folder_(tools::FolderUse::serve, reportWaiting), runLock_(kFolder / (std::string(tools::kLockFilePrefix) + "turn"),
                                                                [] { reportWaiting("another \"kvosim run --shared\" to end"); })
{
    refuseIfServiceRuns();
}

RunDirectory::RunDirectory(bool shared)
{
    if (shared) {
        shared_.emplace();
        return;
    }
    try {
        private_.emplace();
    } catch (const tools::NamespaceRefused &refused) {
        throw std::runtime_error(std::string("no private ") + tools::kSocketDirectory + ": " + refused.what() +
                                 ". \"kvosim run --shared\" needs no namespace: it uses the machine's own " +
                                 tools::kSocketDirectory + ", one run at a time");
    }
}

}  // namespace kvosim
