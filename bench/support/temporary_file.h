// A file that is removed with its owner.
#pragma once

#include "support/expect.h"

#include <cstdlib>
#include <string>
#include <unistd.h>

namespace bench {

class TemporaryFile {
public:
    TemporaryFile()
    {
        const int file = mkstemp(path_.data());
        expect(file >= 0, "cannot create a temporary file");
        close(file);
    }
    TemporaryFile(const TemporaryFile &) = delete;
    TemporaryFile &operator=(const TemporaryFile &) = delete;
    ~TemporaryFile() { unlink(path_.c_str()); }

    [[nodiscard]] const std::string &path() const { return path_; }

private:
    std::string path_ = "/tmp/kvo_bench-XXXXXX";
};

}  // namespace bench
