// The methods of the C++ interface, each callable with the arguments that the catalogue has for the function of C.
#pragma once

#include "catalogue/request.h"

#include <functional>
#include <kvo_hws/kvo_hws.hpp>
#include <map>
#include <optional>
#include <string>

namespace calls {

/// A call that cannot be written in C++, and why.
struct NotInCpp {
    const char *reason;
};

inline constexpr NotInCpp kNull{"a null pointer"};
inline constexpr NotInCpp kNoSwitch{"a switch that is neither on nor off"};

/// What a call returned, in the form of the function of C.
struct Outcome {
    std::optional<kvo::Error> error;
    int32_t code;                ///< 1 a value, or "yes"; 0 "no", or an empty value
    catalogue::Values values{};  ///< the value, as the function of C stores it; nothing for a size
};

/// The arguments of the function of C.
class Inputs {
public:
    explicit Inputs(const catalogue::Arguments &arguments) : arguments_(arguments)
    {
        for (const catalogue::Argument &argument : arguments_) {
            // A name may be null where an address is given.
            if (argument.kind == catalogue::Argument::Kind::null && &argument != &arguments_.at(1)) {
                throw kNull;
            }
        }
    }
    [[nodiscard]] kvo::Station station() const
    {
        const auto &argument = arguments_.at(0);
        const bool given = argument.kind == catalogue::Argument::Kind::station;
        return kvo::Address(given ? catalogue::kStation : static_cast<uint32_t>(argument.number));
    }
    [[nodiscard]] uint32_t number(std::size_t at) const { return static_cast<uint32_t>(arguments_.at(at).number); }
    [[nodiscard]] unsigned long flags(std::size_t at) const { return static_cast<unsigned long>(arguments_.at(at).number); }
    [[nodiscard]] int32_t integer(std::size_t at) const { return static_cast<int32_t>(arguments_.at(at).number); }
    [[nodiscard]] bool flag(std::size_t at) const
    {
        if (number(at) > 1) {
            throw kNoSwitch;
        }
        return number(at) == 1;
    }
    [[nodiscard]] std::string text(std::size_t at) const
    {
        if (arguments_.at(at).kind != catalogue::Argument::Kind::text) {
            throw kNull;
        }
        return arguments_.at(at).text;
    }

private:
    const catalogue::Arguments &arguments_;
};

using Method = std::function<Outcome(const Inputs &)>;

/// All methods and functions with their names in the catalogue, except those of events and of the agent.
const std::map<std::string, Method> &methods();

}  // namespace calls
