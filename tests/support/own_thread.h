// A thread that may detach itself, as the library's senders do; std::thread::join fails after that.
#pragma once

#include <future>
#include <memory>
#include <pthread.h>

namespace support {

/// Runs @p work on a new thread and returns its value.
template <class Work>
auto onOwnThread(Work work)
{
    using Value = decltype(work());
    struct Job {
        Work work;
        std::promise<Value> promise;
    };
    auto job = std::make_unique<Job>(Job{std::move(work), {}});
    auto future = job->promise.get_future();
    pthread_t id{};
    pthread_create(
        &id, nullptr,
        [](void *argument) -> void * {
            const std::unique_ptr<Job> owned(static_cast<Job *>(argument));
            owned->promise.set_value(owned->work());
            return nullptr;
        },
        job.release());
    return future.get();
}

}  // namespace support
