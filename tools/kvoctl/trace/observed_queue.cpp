// Counts the memory of what waits.
#include "kvoctl/trace/observed_queue.h"

#include <algorithm>
#include <chrono>
#include <limits>
#include <numeric>
#include <sys/eventfd.h>

namespace kvoctl {

namespace {

/// A note has more room than an exchange: it says why exchanges are missing.
constexpr std::size_t kRoomForNotes = 1024UL * 1024;
constexpr std::chrono::seconds kRepetition{10};

/// What the allocator adds to each piece of memory.
constexpr std::size_t kOverhead = 16;

/// The memory outside the object.
std::size_t sizeOf(const std::string &text)
{
    static const std::size_t inside = std::string().capacity();
    return text.capacity() > inside ? text.capacity() + kOverhead : 0;
}

/// A piece of one byte takes some 40 times as much memory as its byte.
std::size_t sizeOf(const std::vector<tools::recording::Piece> &pieces)
{
    return std::accumulate(pieces.begin(), pieces.end(), pieces.capacity() * sizeof(tools::recording::Piece) + kOverhead,
                           [](std::size_t sum, const auto &piece) { return sum + sizeOf(piece.bytes); });
}

std::size_t sizeOf(const Observed &observed)
{
    if (const auto *exchange = std::get_if<ObservedExchange>(&observed)) {
        return sizeof observed + sizeOf(exchange->peer.name) + sizeOf(exchange->exchange.request) +
               sizeOf(exchange->exchange.reply);
    }
    const auto *note = std::get_if<Note>(&observed);
    return sizeof observed + sizeOf(note != nullptr ? note->text : std::get<std::string>(observed));
}

bool isExchange(const Observed &observed) { return std::holds_alternative<ObservedExchange>(observed); }

}  // namespace

ObservedQueue::ObservedQueue(std::size_t limit) : ready_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd"), limit_(limit) {}

bool ObservedQueue::isRepeated(const Observed &observed) const
{
    const auto *note = std::get_if<Note>(&observed);
    return note != nullptr && lastNote_ && note->text == lastNote_->text && note->at - lastNote_->at < kRepetition;
}

std::size_t ObservedQueue::limitOf(const Observed &observed) const
{
    if (std::holds_alternative<std::string>(observed)) {
        return std::numeric_limits<std::size_t>::max();
    }
    return isExchange(observed) ? limit_ : limit_ + kRoomForNotes;
}

void ObservedQueue::put(Observed observed)
{
    const std::size_t size = sizeOf(observed);
    const std::lock_guard lock(lock_);
    if (isDiscarded_) {
        return;
    }
    if (isRepeated(observed)) {
        return;
    }
    if (!waiting_.empty() && size_ + size > limitOf(observed)) {
        ++(isExchange(observed) ? dropped_ : droppedNotes_);
        return;
    }
    if (const auto *note = std::get_if<Note>(&observed)) {
        lastNote_ = *note;
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

uint64_t ObservedQueue::droppedNotes() const
{
    const std::lock_guard lock(lock_);
    return droppedNotes_;
}

}  // namespace kvoctl
