// What the library tells on its own threads, on its way to the main thread, which alone writes and ends.
#pragma once

#include "common/descriptor.h"

#include <mutex>
#include <sys/eventfd.h>
#include <utility>
#include <vector>

namespace kvoctl {

template <class Item>
class Inbox {
public:
    Inbox() : wakeUp_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd") {}

    void put(Item item)
    {
        const std::lock_guard lock(lock_);
        items_.push_back(std::move(item));
        eventfd_write(wakeUp_.get(), 1);
    }

    std::vector<Item> take()
    {
        const std::lock_guard lock(lock_);
        eventfd_t count = 0;
        eventfd_read(wakeUp_.get(), &count);
        return std::exchange(items_, {});
    }

    /// Readable while there is something to take.
    [[nodiscard]] int descriptor() const noexcept { return wakeUp_.get(); }

private:
    tools::Descriptor wakeUp_;
    std::mutex lock_;
    std::vector<Item> items_;
};

/// The process's only @p Value, made when it is first asked for. It is never destroyed: callbacks, which are given nothing but
/// what the library tells, may still run while the process ends.
template <class Value>
Value &lasting()
{
    union Lasting {
        Lasting() : value() {}
        Lasting(const Lasting &) = delete;
        Lasting &operator=(const Lasting &) = delete;
        ~Lasting() {}
        Value value;
    };
    static Lasting lasting;
    return lasting.value;
}

}  // namespace kvoctl
