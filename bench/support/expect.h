// Checks that candidates do their work correctly, before and while they are timed.
#pragma once

#include <stdexcept>

namespace bench {

inline void expect(bool good, const char *what)
{
    if (!good) [[unlikely]] {
        throw std::runtime_error(what);
    }
}

}  // namespace bench
