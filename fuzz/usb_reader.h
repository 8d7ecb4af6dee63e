// How a parser of USB event texts is fuzzed: its record is compared byte by byte with that of a reference implementation with
// strtok and strtoul. Each fuzzer only lists the fields of its parser.
#pragma once

#include "support.h"

#include <kvo_hws/codecs.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <string>
#include <utility>

namespace fuzz {

inline constexpr std::string_view kEmptyMarker = "?$?\xA7?eEmMpPtTyY!\xA7!$!";

/// How the reference implementation handles a field, and the result codes for a missing or malformed field.
struct Field {
    enum class Kind {
        skipped,
        text,    ///< stored unchanged
        marked,  ///< a text, for which a marker means empty
        number,
        lowByte,  ///< a number; only its low byte is stored
        block     ///< numbers separated by blanks, each stored as a byte
    };

    Kind kind;
    int missing;
    int malformed = 1;
    std::size_t offset = 0;
    std::size_t size = 0;              ///< 0: not stored
    std::ptrdiff_t suppressedBy = -1;  ///< offset of a byte; the field is not stored if this byte is not 0
};

template <class Record, class Member>
std::size_t offsetOf(Member Record::*member)
{
    static const Record record{};
    return static_cast<std::size_t>(reinterpret_cast<const char *>(&(record.*member)) -
                                    reinterpret_cast<const char *>(&record));
}

inline Field skipped(int missing) { return {.kind = Field::Kind::skipped, .missing = missing}; }

template <class Record, class Member>
Field stored(Field::Kind kind, Member Record::*member, int missing, int malformed = 1)
{
    return {.kind = kind, .missing = missing, .malformed = malformed, .offset = offsetOf(member), .size = sizeof(Member)};
}

template <class Record, std::size_t Size>
Field text(char (Record::*member)[Size], int missing)
{
    return stored(Field::Kind::text, member, missing);
}

template <class Record, std::size_t Size>
Field marked(char (Record::*member)[Size], int missing)
{
    return stored(Field::Kind::marked, member, missing);
}

template <class Record, std::size_t Size>
Field markedUnless(uint8_t Record::*suppressed, char (Record::*member)[Size], int missing)
{
    Field field = marked(member, missing);
    field.suppressedBy = static_cast<std::ptrdiff_t>(offsetOf(suppressed));
    return field;
}

template <class Record, class Value>
Field number(Value Record::*member, int missing, int malformed)
{
    return stored(Field::Kind::number, member, missing, malformed);
}

inline Field droppedNumber(int missing, int malformed)
{
    return {.kind = Field::Kind::number, .missing = missing, .malformed = malformed};
}

template <class Record>
Field lowByte(uint16_t Record::*member, int missing, int malformed)
{
    return stored(Field::Kind::lowByte, member, missing, malformed);
}

template <class Record>
Field block(uint8_t (Record::*member)[64], int missing)
{
    return stored(Field::Kind::block, member, missing);
}

/// The fields at the start of most texts, followed by @p further.
template <class Record>
std::vector<Field> eventFields(std::vector<Field> further)
{
    std::vector<Field> fields = {skipped(-1), marked(&Record::ipAddress, -2), marked(&Record::ident2, -3),
                                 marked(&Record::ident3, -4)};
    std::ranges::copy(further, std::back_inserter(fields));
    return fields;
}

/// Removal texts have no marker for an empty text, and one result code for all errors.
inline std::vector<Field> removalFields()
{
    using Record = UsbRemoveInfo;
    return {skipped(-1), text(&Record::ipAddress, -1), text(&Record::ident2, -1), text(&Record::ident3, -1)};
}

/// The reference implementation for all parsers.
class ReferenceReader {
public:
    ReferenceReader(const std::vector<Field> &fields, uint8_t *record, char *text) : record_(record)
    {
        for (const Field &field : fields) {
            const char *const token = std::strtok(std::exchange(text, nullptr), "*");
            if (token == nullptr) {
                result_ = field.missing;
                return;
            }
            if (!take(field, token)) {
                result_ = field.malformed;
                return;
            }
        }
    }

    [[nodiscard]] int result() const { return result_; }
    /// All numbers in the order of the text, including those that are not stored.
    [[nodiscard]] const std::vector<unsigned long> &numbers() const { return numbers_; }

private:
    bool take(const Field &field, std::string_view token)
    {
        const bool suppressed = field.suppressedBy >= 0 && record_[field.suppressedBy] != 0;
        switch (field.kind) {
        case Field::Kind::skipped: return true;
        case Field::Kind::text: return suppressed || store(field, token);
        case Field::Kind::marked: return suppressed || store(field, token == kEmptyMarker ? "" : token);
        case Field::Kind::block: return storeBlock(field, std::string(token));
        case Field::Kind::number:
        case Field::Kind::lowByte: return storeNumber(field, token.data());
        }
    }

    bool store(const Field &field, std::string_view token)
    {
        auto *const member = reinterpret_cast<char *>(record_ + field.offset);
        member[token.copy(member, field.size - 1)] = '\0';
        return true;
    }

    bool storeNumber(const Field &field, const char *token)
    {
        char *end = nullptr;
        unsigned long value = std::strtoul(token, &end, 16);
        if (*end != '\0') {
            return false;
        }
        numbers_.push_back(value);
        if (field.kind == Field::Kind::lowByte) {
            value &= 0xFF;
        }
        const auto word = static_cast<uint32_t>(value);
        const auto shortWord = static_cast<uint16_t>(value);
        if (field.size == sizeof word) {
            std::memcpy(record_ + field.offset, &word, sizeof word);
        } else if (field.size == sizeof shortWord) {
            std::memcpy(record_ + field.offset, &shortWord, sizeof shortWord);
        }
        return true;
    }

    /// Always the last field, because strtok continues in its parts from here on.
    bool storeBlock(const Field &field, std::string token)
    {
        std::size_t count = 0;
        for (const char *part = std::strtok(token.data(), " "); part != nullptr; part = std::strtok(nullptr, " ")) {
            char *end = nullptr;
            const unsigned long value = std::strtoul(part, &end, 16);
            if (count == field.size || *end != '\0') {
                break;
            }
            record_[field.offset + count++] = static_cast<uint8_t>(value);
        }
        return true;
    }

    uint8_t *record_;
    std::vector<unsigned long> numbers_;
    int result_ = 1;
};

/// A parser and its expected behaviour.
template <class Record>
struct UsbReader {
    const char *name;
    int (*read)(Record *record, char *text);
    std::vector<Field> fields;
    /// Sets the members that depend on several numbers, if the text is complete.
    void (*complete)(Record &record, const std::vector<unsigned long> &numbers) = nullptr;
    std::size_t area = sizeof(Record);
    bool clearsArea = false;

    /// Ends the run with a fault if the parser behaves differently. Returns the return value of a fuzzer.
    int compare(const uint8_t *data, std::size_t size) const
    {
        constexpr uint8_t kPattern = 0xA5;
        const std::string_view input = textOf(data, size);
        compare(input, 0);
        compare(input, kPattern);
        return 0;
    }

private:
    void compare(std::string_view input, uint8_t fill) const
    {
        GuardedArea wanted(area, clearsArea ? 0 : fill);
        const int wantedResult = readReference(wanted, input);

        GuardedArea got(area, fill);
        const ExactText text(input);
        const int result = read(reinterpret_cast<Record *>(got.area()), text.get());

        if (!isDocumented(result)) {
            fault("%s: returned the undocumented code %d", name, result);
        }
        if (!got.guardsIntact()) {
            fault("%s: wrote outside its record", name);
        }
        if (result == 1) {
            expectTerminated(got);
        }
        if (result != wantedResult) {
            fault("%s: returned %d, the reference %d", name, result, wantedResult);
        }
        if (got != wanted) {
            fault("%s: the record differs from the reference at byte %zu", name, firstDifference(got, wanted));
        }
    }

    int readReference(GuardedArea &wanted, std::string_view input) const
    {
        const ExactText text(input);
        const ReferenceReader reference(fields, wanted.area(), text.get());
        if (reference.result() == 1 && complete != nullptr) {
            complete(*reinterpret_cast<Record *>(wanted.area()), reference.numbers());
        }
        return reference.result();
    }

    [[nodiscard]] bool isDocumented(int result) const
    {
        return result == 1 || std::ranges::any_of(fields, [result](const Field &field) {
                   return result == field.missing || result == field.malformed;
               });
    }

    void expectTerminated(GuardedArea &got) const
    {
        for (const Field &field : fields) {
            const bool isText = field.kind == Field::Kind::text || field.kind == Field::Kind::marked;
            const bool suppressed = field.suppressedBy >= 0 && got.area()[field.suppressedBy] != 0;
            if (isText && !suppressed && std::memchr(got.area() + field.offset, '\0', field.size) == nullptr) {
                fault("%s: the text at byte %zu of the record is not terminated", name, field.offset);
            }
        }
    }

    [[nodiscard]] std::size_t firstDifference(GuardedArea &got, GuardedArea &wanted) const
    {
        return static_cast<std::size_t>(std::mismatch(got.area(), got.area() + area, wanted.area()).first - got.area());
    }
};

}  // namespace fuzz
