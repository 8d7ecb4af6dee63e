// A function of the library, with any parameters, that can be called with arguments from a table.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace catalogue {

/// The station in the catalogue's requests. Users of the catalogue may replace it by another one.
inline constexpr uint32_t kStation = 0x0A000005;
inline const std::string kHere = "10.0.0.5";  ///< the same in dotted form

/// The argument for a parameter: the station, a number, a text, a null pointer, or memory for an output (buffer).
struct Argument {
    enum class Kind { station, number, text, null, buffer };

    // NOLINTBEGIN(*-explicit-*): a row lists its arguments as a call does
    template <class Number, std::enable_if_t<std::is_integral_v<Number>, int> = 0>
    Argument(Number value) : kind(Kind::number), number(static_cast<int64_t>(value))
    {
    }
    Argument(std::string value) : kind(Kind::text), text(std::move(value)) {}
    Argument(const char *value) : Argument(std::string(value)) {}
    Argument(std::nullptr_t) : kind(Kind::null) {}
    // NOLINTEND(*-explicit-*)
    Argument(Kind kindOf, std::size_t elements, std::string initially = {})
        : kind(kindOf), number(static_cast<int64_t>(elements)), text(std::move(initially))
    {
    }

    Kind kind;
    int64_t number = 0;  ///< the number; for a buffer, the number of elements
    std::string text{};  ///< the text; for a buffer, its first bytes before the call
};

using Arguments = std::vector<Argument>;

inline const Argument station{Argument::Kind::station, 0};
/// Memory for one number or record.
inline const Argument out{Argument::Kind::buffer, 1};
/// Memory for @p elements characters or records.
inline Argument buffer(std::size_t elements) { return {Argument::Kind::buffer, elements}; }
/// The bytes of a number.
inline std::string wordOf(uint32_t number) { return {reinterpret_cast<const char *>(&number), sizeof number}; }
/// Memory for a number that the function reads and writes.
inline Argument inOut(uint32_t number) { return {Argument::Kind::buffer, 1, wordOf(number)}; }

/// A buffer of @p characters, and the size that is passed for it.
inline Arguments sizedText(std::size_t characters, uint32_t size) { return {buffer(characters), inOut(size)}; }

/// The memory that a call writes: for each output, in the order of the arguments, its bytes and guard bytes after them.
class Outputs {
public:
    static constexpr std::size_t kGuard = 16;

    explicit Outputs(char fill) : fill_(fill) {}

    /// Adds an area of @p size bytes that begins with @p initially.
    void add(std::size_t size, const std::string &initially)
    {
        std::string area(size + kGuard, fill_);
        area.replace(0, initially.size(), initially);
        areas_.push_back(std::move(area));
    }
    [[nodiscard]] std::size_t count() const { return areas_.size(); }
    [[nodiscard]] const std::string &bytes(std::size_t area) const { return areas_.at(area); }
    [[nodiscard]] std::vector<void *> addresses()
    {
        std::vector<void *> all;
        for (std::string &area : areas_) {
            all.push_back(area.data());
        }
        return all;
    }

private:
    char fill_;
    std::vector<std::string> areas_;  // must not be moved after addresses() was called
};

/// An exported function, identified by its name.
class Function {
public:
    template <class... Parameter>
    Function(const char *name, int32_t (*function)(Parameter...))
        : name_(name), sizes_{elementSize<Parameter>()...},
          call_([function](const Arguments &arguments, const std::vector<void *> &rooms, uint32_t address) {
              return call(function, arguments, rooms, address, std::index_sequence_for<Parameter...>());
          })
    {
    }

    /// A function that has only a name here and cannot be called.
    explicit Function(const char *name) : name_(name) {}

    [[nodiscard]] const std::string &name() const { return name_; }
    [[nodiscard]] std::size_t parameters() const { return sizes_.size(); }

    /// The sizes of the outputs in bytes, in the order of the arguments.
    [[nodiscard]] std::vector<std::size_t> outputSizes(const Arguments &arguments) const
    {
        std::vector<std::size_t> sizes;
        for (std::size_t i = 0; i < arguments.size(); ++i) {
            if (arguments[i].kind == Argument::Kind::buffer) {
                sizes.push_back(static_cast<std::size_t>(arguments[i].number) * sizes_.at(i));
            }
        }
        return sizes;
    }

    /// The memory that a call with @p arguments writes.
    [[nodiscard]] Outputs outputsFor(const Arguments &arguments, char fill) const
    {
        Outputs outputs(fill);
        const std::vector<std::size_t> sizes = outputSizes(arguments);
        for (const Argument &argument : arguments) {
            if (argument.kind == Argument::Kind::buffer) {
                outputs.add(sizes[outputs.count()], argument.text);
            }
        }
        return outputs;
    }

    /// Calls the function.
    /// @param rooms  the addresses of the outputs
    int32_t operator()(const Arguments &arguments, const std::vector<void *> &rooms, uint32_t address = kStation) const
    {
        return call_(arguments, rooms, address);
    }
    int32_t operator()(const Arguments &arguments, Outputs &outputs, uint32_t address = kStation) const
    {
        return call_(arguments, outputs.addresses(), address);
    }

private:
    /// The size of an element that a parameter points to; 1 for a void pointer.
    template <class Parameter>
    static constexpr std::size_t elementSize()
    {
        using Element = std::remove_pointer_t<Parameter>;
        if constexpr (std::is_void_v<Element>) {
            return 1;
        } else {
            return sizeof(Element);
        }
    }

    template <class Parameter>
    static Parameter convert(const Argument &argument, void *area, uint32_t address)
    {
        if constexpr (std::is_pointer_v<Parameter>) {
            if constexpr (std::is_const_v<std::remove_pointer_t<Parameter>>) {
                return argument.kind == Argument::Kind::null ? nullptr : argument.text.c_str();
            } else {
                return static_cast<Parameter>(area);
            }
        } else {
            return static_cast<Parameter>(argument.kind == Argument::Kind::station ? int64_t{address} : argument.number);
        }
    }

    template <class... Parameter, std::size_t... Index>
    static int32_t call(int32_t (*function)(Parameter...), const Arguments &arguments, const std::vector<void *> &rooms,
                        [[maybe_unused]] uint32_t address, std::index_sequence<Index...> /*of the parameters*/)
    {
        std::array<void *, sizeof...(Parameter) + 1> areas{};
        for (std::size_t i = 0, area = 0; i < arguments.size(); ++i) {
            if (arguments[i].kind == Argument::Kind::buffer) {
                areas.at(i) = rooms.at(area++);
            }
        }
        return function(convert<Parameter>(arguments.at(Index), areas.at(Index), address)...);
    }

    std::string name_;
    std::vector<std::size_t> sizes_;
    std::function<int32_t(const Arguments &, const std::vector<void *> &rooms, uint32_t address)> call_;
};

}  // namespace catalogue
