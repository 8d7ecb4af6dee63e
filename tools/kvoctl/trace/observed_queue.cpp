// Counts the bytes of the exchanges that wait.
#include "kvoctl/trace/observed_queue.h"

#include <algorithm>
#include <numeric>
#include <sys/eventfd.h>

namespace kvoctl {

namespace {

std::size_t sizeOf(const std::vector<tools::recording::Piece> &pieces)
{
    return std::accumulate(pieces.begin(), pieces.end(), std::size_t{0},
                           [](std::size_t sum, const auto &piece) { return sum + sizeof piece + piece.bytes.size(); });
}

std::size_t sizeOf(const Observed &observed)
{
    const auto *exchange = std::get_if<ObservedExchange>(&observed);
    return sizeof observed + (exchange == nullptr ? 0 : sizeOf(exchange->exchange.request) + sizeOf(exchange->exchange.reply));
}

bool isExchange(const Observed &observed) { return std::holds_alternative<ObservedExchange>(observed); }

}  // namespace

ObservedQueue::ObservedQueue(std::size_t limit) : ready_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd"), limit_(limit) {}

void ObservedQueue::put(Observed observed)
{
    const std::size_t size = sizeOf(observed);
    const std::lock_guard lock(lock_);
    if (isDiscarded_) {
        return;
    }
    if (isExchange(observed) && !waiting_.empty() && size_ + size > limit_) {
        ++dropped_;
        return;
    }
    size_ += size;
    waiting_.push_back(std::move(observed));
    if (waiting_.size() == 1) {  // else it is readable already
        eventfd_write(ready_.get(), 1);
    }
}

std::optional<Observed> ObservedQueue::take()
{
    const std::lock_guard lock(lock_);
    if (waiting_.empty()) {
        return std::nullopt;
    }
    Observed first = std::move(waiting_.front());
    waiting_.pop_front();
    size_ -= sizeOf(first);
    if (waiting_.empty() && !isClosed_) {
        eventfd_t count = 0;
        eventfd_read(ready_.get(), &count);
    }
    return first;
}

void ObservedQueue::close()
{
    const std::lock_guard lock(lock_);
    isClosed_ = true;
    eventfd_write(ready_.get(), 1);
}

bool ObservedQueue::isFinished() const
{
    const std::lock_guard lock(lock_);
    return isClosed_ && waiting_.empty();
}

uint64_t ObservedQueue::discard()
{
    const std::lock_guard lock(lock_);
    isDiscarded_ = true;
    const auto count = std::count_if(waiting_.begin(), waiting_.end(), isExchange);
    waiting_.clear();
    size_ = 0;
    return static_cast<uint64_t>(count);
}

uint64_t ObservedQueue::dropped() const
{
    const std::lock_guard lock(lock_);
    return dropped_;
}

}  // namespace kvoctl
