// The resources that a process uses: open descriptors, threads and heap memory.
#pragma once

#include <filesystem>
#include <iterator>
#include <malloc.h>
#include <thread>

namespace support {

struct ResourceUsage {
    std::size_t descriptors;
    std::size_t threads;
    std::size_t heapBytes;
};

inline std::size_t entriesOf(const char *directory)
{
    const std::filesystem::directory_iterator all(directory);
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

inline std::size_t threadsRunning()
{
    // A sanitizer may start a thread of its own together with the program's first thread.
    [[maybe_unused]] static const bool first = (std::thread([] {}).join(), true);
    return entriesOf("/proc/self/task");
}
inline std::size_t descriptorsOpen() { return entriesOf("/proc/self/fd"); }

inline ResourceUsage resourceUsage() { return {descriptorsOpen(), threadsRunning(), mallinfo2().uordblks}; }

}  // namespace support
