// How long a call takes.
#pragma once

#include <chrono>

namespace support {

template <class Call>
std::chrono::milliseconds timeOf(Call call)
{
    const auto start = std::chrono::steady_clock::now();
    call();
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
}

}  // namespace support
