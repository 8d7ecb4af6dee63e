// Checks faults, and decides which requests they strike.
#include "kvosim/plant/faults.h"

#include <algorithm>
#include <array>

namespace kvosim {

namespace {

constexpr uint32_t kLongestDelay = 60'000;   // ms
constexpr uint32_t kDefaultDelay = 1'000;    // ms
constexpr uint32_t kDefaultPause = 5;        // ms, between two bytes
constexpr std::string_view kGarbage = "#?";  // no valid number, reply or description begins with this

// In the order of FaultKind.
constexpr std::array<std::string_view, 6> kKinds = {"delay", "close", "garbage", "failed", "split", "silent"};

FaultKind kindOf(const std::string &name)
{
    const auto *const found = std::find(kKinds.begin(), kKinds.end(), name);
    if (found == kKinds.end()) {
        throw FaultError("kind", '"' + name + "\" is not a fault; write delay, close, garbage, failed, split or silent");
    }
    return static_cast<FaultKind>(found - kKinds.begin());
}

}  // namespace

Fault::Fault(const FaultText &text) : text_(text), kind_(kindOf(text.kind))
{
    const bool takesTime = kind_ == FaultKind::delay || kind_ == FaultKind::split;
    if (text_.delay && !takesTime) {
        throw FaultError("delay_ms", "applies only to the faults delay and split; remove it");
    }
    if (text_.delay.value_or(0) > kLongestDelay) {
        throw FaultError("delay_ms",
                         std::to_string(*text_.delay) + " is out of range; write 0 to " + std::to_string(kLongestDelay));
    }
    if (takesTime && !text_.delay) {
        text_.delay = kind_ == FaultKind::delay ? kDefaultDelay : kDefaultPause;
    }
}

bool Fault::strikes(std::string_view keyword)
{
    if (text_.command != kEveryCommand && text_.command != keyword) {
        return false;
    }
    const bool isSkipped = seen_++ < text_.after;
    return !isSkipped && (text_.times == 0 || struck_ < text_.times);
}

const Fault *Faults::strike(std::string_view keyword)
{
    Fault *first = nullptr;
    for (Fault &fault : faults_) {
        if (fault.strikes(keyword) && first == nullptr) {
            first = &fault;
        }
    }
    if (first != nullptr) {
        first->countStrike();
    }
    return first;
}

std::string garbled(std::string reply)
{
    const std::size_t key = reply.find('=');
    return reply.insert(key == std::string::npos ? 0 : key + 1, kGarbage);
}

}  // namespace kvosim
