// The four USB event texts: writers for the daemon and readers for the library. A writer and a reader list the fields of a text
// in the same order.
#include <kvo_hws/codecs.h>

#include "runtime/numbers.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace {

constexpr char kSeparator = '*';

/// Replaces an empty text, because strtok skips empty fields.
constexpr std::string_view kEmptyMarker = "?$?\xA7?eEmMpPtTyY!\xA7!$!";
static_assert(kEmptyMarker.size() == 20);

constexpr std::size_t kLongestText = 1023;

constexpr uint8_t kReportBit = 0x01;
// The writer and the reader use different bits on purpose.
constexpr uint32_t kReported = 0x08000000;  // set by the writer
constexpr uint32_t kMarked = 0x80000000;    // tested by the reader

// ---- Writing ----

/// A text that grows field by field and is cut at its maximum length.
class Writer {
public:
    explicit Writer(std::string_view keyword) noexcept { raw(keyword); }

    /// A field without a marker for an empty text.
    Writer &raw(std::string_view field) noexcept
    {
        append(field);
        return append({&kSeparator, 1});
    }

    /// The text of a member, up to its terminator or the end of the member.
    template <std::size_t Size>
    Writer &text(const char (&member)[Size]) noexcept
    {
        const std::string_view text(member, strnlen(member, Size));
        return raw(text.empty() ? kEmptyMarker : text);
    }

    template <std::size_t Size>
    Writer &textUnless(bool suppressed, const char (&member)[Size]) noexcept
    {
        return suppressed ? raw(kEmptyMarker) : text(member);
    }

    Writer &number(uint32_t value) noexcept { return hex("%08X*", value); }
    Writer &shortNumber(uint16_t value) noexcept { return hex("%04X*", value); }

    Writer &block(const uint8_t (&bytes)[64]) noexcept
    {
        for (const unsigned byte : bytes) {
            hex("%02X ", byte);
        }
        return raw("");
    }

    /// A copy of the text, allocated with malloc; null if memory runs out.
    [[nodiscard]] char *copy() const noexcept { return strndup(text_.data(), length_); }

private:
    Writer &append(std::string_view part) noexcept
    {
        const std::size_t fits = std::min(part.size(), kLongestText - length_);
        length_ += part.copy(text_.data() + length_, fits);
        return *this;
    }

    __attribute__((format(printf, 2, 0))) Writer &hex(const char *format, unsigned value) noexcept
    {
        char digits[12];
        return append({digits, static_cast<std::size_t>(std::snprintf(digits, sizeof digits, format, value))});
    }

    std::array<char, kLongestText> text_;
    std::size_t length_ = 0;
};

// ---- Reading ----

/// Reads the fields of a text in order. Each step receives the result codes for a missing or malformed field. The first error
/// is the result, and no field after it is read. Fields are split as by strtok, but without its static state.
class Reader {
public:
    explicit Reader(char *text) noexcept : rest_(text) {}

    /// A field that must be present; its content is ignored.
    Reader &skip(int missing) noexcept
    {
        next(missing);
        return *this;
    }

    /// A text that is stored as it is, even if it is the marker. It is cut to the size of its member.
    template <std::size_t Size>
    Reader &raw(char (&member)[Size], int missing) noexcept
    {
        if (const std::string_view field = next(missing); !field.empty()) {
            store(field, member);
        }
        return *this;
    }

    /// A text; the marker stands for an empty one.
    template <std::size_t Size>
    Reader &text(char (&member)[Size], int missing) noexcept
    {
        if (const std::string_view field = next(missing); !field.empty()) {
            store(field == kEmptyMarker ? "" : field, member);
        }
        return *this;
    }

    template <std::size_t Size>
    Reader &textUnless(bool suppressed, char (&member)[Size], int missing) noexcept
    {
        return suppressed ? skip(missing) : text(member, missing);
    }

    /// A hexadecimal number that is the whole field, truncated to @p Value.
    template <class Value>
    Reader &number(Value &value, int missing, int malformed) noexcept
    {
        if (const std::string_view field = next(missing); !field.empty()) {
            const kvo_hws::Number read = kvo_hws::readNumber(field.data(), 16);
            if (*read.end == '\0') {
                value = static_cast<Value>(read.value);
            } else {
                result_ = malformed;
            }
        }
        return *this;
    }

    /// Up to 64 bytes, separated by blanks; stops at the first one that is not a number.
    Reader &block(uint8_t (&bytes)[64], int missing) noexcept
    {
        if (next(missing).empty()) {
            return *this;
        }
        char *field = field_;
        for (uint8_t &byte : bytes) {
            const char *const digits = strtok_r(field, " ", &field);
            if (digits == nullptr) {
                break;
            }
            const kvo_hws::Number read = kvo_hws::readNumber(digits, 16);
            if (*read.end != '\0') {
                break;
            }
            byte = static_cast<uint8_t>(read.value);
        }
        return *this;
    }

    [[nodiscard]] bool ok() const noexcept { return result_ == kOk; }
    [[nodiscard]] int result() const noexcept { return result_; }

private:
    static constexpr int kOk = 1;

    /// The next field; its asterisk is replaced by a terminator. If no field is left, the text is empty and the result is
    /// @p missing.
    std::string_view next(int missing) noexcept
    {
        if (!ok()) {
            return {};
        }
        while (*rest_ == kSeparator) {
            ++rest_;
        }
        field_ = rest_;
        rest_ = strchrnul(field_, kSeparator);
        const std::string_view field(field_, static_cast<std::size_t>(rest_ - field_));
        if (*rest_ != '\0') {
            *rest_++ = '\0';
        }
        if (field.empty()) {
            result_ = missing;
        }
        return field;
    }

    template <std::size_t Size>
    static void store(std::string_view field, char (&member)[Size]) noexcept
    {
        member[field.copy(member, Size - 1)] = '\0';
    }

    char *rest_;
    char *field_ = nullptr;
    int result_ = kOk;
};

/// The beginning of every text: the keyword, which the caller has tested, and the texts that identify station and device.
template <class Record>
Reader beginning(Record &record, char *text) noexcept
{
    return Reader(text).skip(-1).text(record.ipAddress, -2).text(record.ident2, -3).text(record.ident3, -4);
}

/// The texts of a removal have no marker for an empty text, and all errors have the same code.
int readRemoval(UsbRemoveInfo &record, char *text) noexcept
{
    return Reader(text).skip(-1).raw(record.ipAddress, -1).raw(record.ident2, -1).raw(record.ident3, -1).result();
}

}  // namespace

char *ConvertUSBDeviceNew2Cmd(const UsbDaemonContext *context, const UsbDeviceSource *device) noexcept
{
    const bool reported = (context->flags & kReportBit) != 0 && device->state == 0;
    return Writer("newUSBdevice")
        .text(device->ipAddress)
        .text(device->ident2)
        .text(device->ident3)
        .text(device->text4)
        .textUnless(device->noText5 != 0, device->text5)
        .text(device->text6)
        .text(device->text7)
        .number(device->number1)
        .number(device->number2)
        .number(reported ? kReported : 0)
        .shortNumber(device->id1)
        .shortNumber(device->id2)
        .block(device->bytes)
        .copy();
}

char *ConvertUSBDeviceIM2Cmd(const UsbDeviceSource *device) noexcept
{
    return Writer("ignoreUSBdevice")
        .text(device->ipAddress)
        .text(device->ident2)
        .text(device->ident3)
        .text(device->text4)
        .textUnless(device->noText5 != 0, device->text5)
        .text(device->text8)
        .number(device->number1)
        .number(device->number2)
        .shortNumber(device->number3)
        .copy();
}

char *ConvertUSBDeviceCS2Cmd(const UsbDeviceSource *device) noexcept
{
    return Writer("changeStateUSBdevice")
        .text(device->ipAddress)
        .text(device->ident2)
        .text(device->ident3)
        .number(device->state)
        .copy();
}

char *ConvertUSBDeviceRemove2Cmd(const UsbStationRecord *station, const char *extra) noexcept
{
    char address[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &station->address, address, sizeof address);
    return Writer("removeUSBdevice")
        .raw(address)
        .raw({station->text, strnlen(station->text, sizeof station->text)})
        .raw(extra)
        .copy();
}

// The readers' result codes are numbered in the order in which the fields were introduced, not in their order in the text. Log
// readers know these codes.

int ConvertCmd2USBDeviceNew(UsbDeviceV1 *record, char *text) noexcept
{
    uint32_t dropped = 0;
    return beginning(*record, text)
        .text(record->text4, -5)
        .textUnless(record->noText5 != 0, record->text5, -6)  // some callers keep their own text in text5
        .text(record->text6, -7)
        .text(record->text7, -8)
        .number(record->number1, -9, -10)
        .number(dropped, -11, -19)
        .number(dropped, -20, -17)
        .number(record->id1, -18, -12)
        // In current texts id2 is at this position, and its low byte becomes the first byte of the block. The real block after
        // it is not read: old programs would receive bytes that they do not expect.
        .block(record->bytes, -13)
        .result();
}

int ConvertCmd2USBDeviceNM(UsbDeviceInfo *record, char *text) noexcept
{
    uint32_t id1 = 0;
    uint32_t id2 = 0;
    const Reader reader = beginning(*record, text)
                              .text(record->text4, -5)
                              .text(record->text5, -6)
                              .text(record->text6, -7)
                              .text(record->text7, -8)
                              .number(record->number1, -9, -10)
                              .number(record->number2, -11, -19)
                              .number(record->flagWord, -20, -17)
                              .number(id1, -18, -12)
                              .number(id2, -13, -14)
                              .skip(-15);
    if (reader.ok()) {
        const unsigned marked = (record->flagWord & kMarked) != 0 ? 1 : 0;
        record->flagBits = static_cast<uint8_t>((id1 & 1) | (id2 & 3) << 1 | marked << 3);
    }
    return reader.result();
}

int ConvertCmd2USBDeviceIM(UsbDeviceInfo *record, char *text) noexcept
{
    uint8_t number3 = 0;  // only the low 8 bits are kept, although the member has 16
    const Reader reader = beginning(*record, text)
                              .text(record->text4, -5)
                              .text(record->text5, -6)
                              .text(record->text8, -7)
                              .number(record->number1, -8, -10)
                              .number(record->number2, -11, -12)
                              .number(number3, -13, -14);
    if (reader.ok()) {
        record->number3 = number3;
    }
    return reader.result();
}

int ConvertCmd2USBDeviceCS(UsbStateInfo *record, char *text) noexcept
{
    return beginning(*record, text).number(record->state, -5, -10).result();
}

int ConvertCmd2USBDeviceRemove(UsbRemoveInfo *record, char *text) noexcept
{
    std::memset(static_cast<void *>(record), 0,
                sizeof(UsbDeviceV1));  // the area is as large as the record of a new device
    return readRemoval(*record, text);
}

int ConvertCmd2USBDeviceRM(UsbRemoveInfo *record, char *text) noexcept { return readRemoval(*record, text); }
