// The reference implementation of the parser of description texts: strtoul at fixed positions, into records of the caller.
#pragma once

#include <kvo_hws/codecs.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

namespace fuzz {

/// The offsets of a form's members: numbers, the name (the text has its length before it), and more numbers.
struct DescriptionForm {
    std::size_t record;
    std::vector<std::size_t> numbers;
    std::size_t name;
    std::vector<std::size_t> further{};
};

inline const DescriptionForm kBasicForm{.record = sizeof(KvoDescription),
                                        .numbers = {offsetof(KvoDescription, address), offsetof(KvoDescription, attr1),
                                                    offsetof(KvoDescription, attr2), offsetof(KvoDescription, attr3)},
                                        .name = offsetof(KvoDescription, name)};

inline const DescriptionForm kExtendedForm{
    .record = sizeof(KvoDescriptionEx),
    .numbers = {offsetof(KvoDescriptionEx, address), offsetof(KvoDescriptionEx, attr1), offsetof(KvoDescriptionEx, attr2),
                offsetof(KvoDescriptionEx, attr3)},
    .name = offsetof(KvoDescriptionEx, name),
    .further = {offsetof(KvoDescriptionEx, extAttr1), offsetof(KvoDescriptionEx, extAttr2),
                offsetof(KvoDescriptionEx, extAttr3), offsetof(KvoDescriptionEx, extAttr4),
                offsetof(KvoDescriptionEx, extAttr5), offsetof(KvoDescriptionEx, extAttr6),
                offsetof(KvoDescriptionEx, extAttr7)}};

inline const DescriptionForm kClientForm{
    .record = sizeof(KvoClientEntry), .numbers = {offsetof(KvoClientEntry, value)}, .name = offsetof(KvoClientEntry, name)};

/// The count at the start of a list; 0xFFFFFFFF if no space follows it.
inline uint32_t referenceCount(const std::string &text)
{
    char *end = nullptr;
    const unsigned long count = std::strtoul(text.c_str(), &end, 16);
    return *end == ' ' ? static_cast<uint32_t>(count) : 0xFFFFFFFF;
}

class ReferenceDescriptions {
public:
    ReferenceDescriptions(const std::string &text, const DescriptionForm &form) : text_(text), form_(form) {}

    /// Parses a list. Returns 1, or -1 if an element is malformed; @c whole is the number of elements before it.
    int readList(uint8_t *records)
    {
        char *end = nullptr;
        const auto count = static_cast<uint32_t>(std::strtoul(text_.c_str(), &end, 16));
        if (*end != ' ') {
            return -1;
        }
        at_ = kField;
        while (whole_ < count) {
            if (!readElement(records + whole_ * form_.record)) {
                return -1;
            }
            ++whole_;
        }
        return 1;
    }

    /// Parses one element without a count.
    int readOne(uint8_t *record)
    {
        at_ = 0;
        whole_ = readElement(record) ? 1 : 0;
        return whole_ == 1 ? 1 : -1;
    }

    /// The number of complete elements. The content of a malformed element after them is unspecified.
    [[nodiscard]] uint32_t whole() const { return whole_; }

private:
    static constexpr std::size_t kField = 9;
    static constexpr unsigned long kLongestName = 259;

    std::optional<unsigned long> number()
    {
        if (at_ >= text_.size()) {
            return std::nullopt;
        }
        char *end = nullptr;
        const unsigned long value = std::strtoul(text_.c_str() + at_, &end, 16);
        at_ += kField;
        return *end == ' ' ? std::optional(value) : std::nullopt;
    }

    bool store(uint8_t *record, const std::vector<std::size_t> &offsets)
    {
        for (const std::size_t offset : offsets) {
            const auto value = number();
            if (!value) {
                return false;
            }
            const auto word = static_cast<uint32_t>(*value);
            std::memcpy(record + offset, &word, sizeof word);
        }
        return true;
    }

    bool readElement(uint8_t *record)
    {
        if (!store(record, form_.numbers)) {
            return false;
        }
        const auto length = number();
        if (!length || *length > kLongestName || at_ > text_.size()) {
            return false;
        }
        // Padded with zeros, like strncpy, if the text ends early.
        std::string name = text_.substr(at_, *length);
        at_ += name.size() + 1;
        name.resize(*length + 1);
        std::memcpy(record + form_.name, name.data(), name.size());
        return store(record, form_.further);
    }

    const std::string &text_;
    const DescriptionForm &form_;
    std::size_t at_ = 0;
    uint32_t whole_ = 0;
};

}  // namespace fuzz
