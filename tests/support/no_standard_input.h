// A program without standard input: the first descriptor that it opens is 0.
#pragma once

#include <fcntl.h>
#include <unistd.h>

namespace support {

/// Closes standard input for a scope.
class NoStandardInput {
public:
    NoStandardInput() : kept_(fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 100)) { close(STDIN_FILENO); }
    NoStandardInput(const NoStandardInput &) = delete;
    NoStandardInput &operator=(const NoStandardInput &) = delete;
    ~NoStandardInput()
    {
        if (kept_ >= 0) {
            dup2(kept_, STDIN_FILENO);
            close(kept_);
        }
    }

private:
    int kept_;
};

}  // namespace support
