// The processes of this machine.
#pragma once

#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace kvoctl::reporting {

struct Process {
    int id;
    std::string name;
    std::string library;  ///< the file of libkvo_hws that it has loaded
};

struct Processes {
    std::vector<Process> found;
    std::size_t hidden = 0;  ///< other processes that this user may not examine
};

/// The other processes that have loaded the library.
Processes processesWithLibrary();

/// The processes that have each socket open, by the socket's inode, as far as this user may examine them.
std::map<std::string, std::set<int>> socketOwners();

/// The name and the number: "panel[4711]".
std::string describeProcess(int id);

}  // namespace kvoctl::reporting
