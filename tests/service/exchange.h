// One exchange with the service and its outcome.
#pragma once

#include <kvo_hws/runtime.h>
#include <kvo_hws/service.h>

#include <chrono>
#include <cstdlib>
#include <string>

namespace service_test {

struct Exchange {
    explicit Exchange(const char *command)
    {
        const auto start = std::chrono::steady_clock::now();
        result = SendCommand2ServiceDyn(command, &reply);
        taken = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
    }
    Exchange(const Exchange &) = delete;
    Exchange &operator=(const Exchange &) = delete;
    ~Exchange() { free(reply.pcData); }
    [[nodiscard]] std::string text() const { return reply.pcData == nullptr ? "(null)" : reply.pcData; }

    DynBuffer reply{nullptr, 0};
    int result;
    std::chrono::milliseconds taken{};
};

}  // namespace service_test
