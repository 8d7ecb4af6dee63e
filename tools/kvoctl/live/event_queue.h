// Passes events from the library's threads to the main thread, which alone writes output and ends the command.
#pragma once

#include "common/descriptor.h"

#include <mutex>
#include <sys/eventfd.h>
#include <utility>
#include <vector>

namespace kvoctl {

template <class Item>
class EventQueue {
public:
    EventQueue() : wakeUp_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd") {}

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

    /// A descriptor that is readable while the queue is not empty.
    [[nodiscard]] int descriptor() const noexcept { return wakeUp_.get(); }

private:
    tools::Descriptor wakeUp_;
    std::mutex lock_;
    std::vector<Item> items_;
};

/// The only @p Value of this type in the process, constructed at the first call. Callbacks use it because they get no context
/// pointer. It is never destroyed, because callbacks may still run while the process ends.
template <class Value>
Value &neverDestroyed()
{
    union Storage {
        Storage() : value() {}
        Storage(const Storage &) = delete;
        Storage &operator=(const Storage &) = delete;
        ~Storage() {}
        Value value;
    };
    static Storage storage;
    return storage.value;
}

}  // namespace kvoctl
