#include "kvosim/replay/speed.h"

#include <charconv>
#include <cmath>

namespace kvosim {

namespace {

constexpr double kSlowest = 0.001;
constexpr double kFastest = 1'000'000;

}  // namespace

std::optional<Speed> Speed::parse(const std::string &text)
{
    Speed speed;
    if (text == "max") {
        speed.factor_ = 0;
        return speed;
    }
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), speed.factor_, std::chars_format::fixed);
    const bool isNumber = error == std::errc() && end == text.data() + text.size();
    return isNumber && speed.factor_ >= kSlowest && speed.factor_ <= kFastest ? std::optional(speed) : std::nullopt;
}

Microseconds Speed::scaled(Microseconds recorded) const
{
    if (factor_ == 0) {
        return Microseconds(0);
    }
    return factor_ == 1 ? recorded : Microseconds(std::llround(static_cast<double>(recorded.count()) / factor_));
}

}  // namespace kvosim
