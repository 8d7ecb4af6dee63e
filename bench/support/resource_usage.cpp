#include "support/resource_usage.h"

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace bench {

ResourceUsage resourceUsageOf(const ChildProcess &process)
{
    const std::string folder = "/proc/" + std::to_string(process.id());
    ResourceUsage found{};
    std::ifstream status(folder + "/status");
    for (std::string line; std::getline(status, line);) {
        std::istringstream words(line);
        std::string key;
        uint64_t value = 0;
        words >> key >> value;
        (key == "Threads:" ? found.threads : key == "VmRSS:" ? found.residentKilobytes : value) = value;
    }
    for (const auto &entry : std::filesystem::directory_iterator(folder + "/fd")) {
        static_cast<void>(entry);
        ++found.descriptors;
    }
    return found;
}

}  // namespace bench
