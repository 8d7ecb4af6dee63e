// The four USB event texts: writers for the daemon's side, readers for the library's. Each text is one list of fields, which a
// writer and a reader name in the same order.
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

/// Stands for an empty text, which strtok would swallow together with its separators.
constexpr std::string_view kEmptyMarker = "?$?\xA7?eEmMpPtTyY!\xA7!$!";
static_assert(kEmptyMarker.size() == 20);

constexpr std::size_t kLongestText = 1023;

constexpr uint8_t kReportBit = 0x01;
constexpr uint32_t kReported = 0x08000000;  // what a writer sets ...
constexpr uint32_t kMarked = 0x80000000;    // ... is deliberately not what a reader tests

// ---- Writing ----

/// A text that grows field by field, and is cut where its room ends.
class Writer {
public:
    explicit Writer(std::string_view keyword) noexcept { plain(keyword); }

    Writer &plain(std::string_view field) noexcept
    {
        append(field);
        return append({&kSeparator, 1});
    }

    /// A member's text, as far as its terminator or its end.
    template <std::size_t Size>
    Writer &text(const char (&member)[Size]) noexcept
    {
        const std::string_view text(member, strnlen(member, Size));
        return plain(text.empty() ? kEmptyMarker : text);
    }

    template <std::size_t Size>
    Writer &textUnless(bool suppressed, const char (&member)[Size]) noexcept
    {
        return suppressed ? plain(kEmptyMarker) : text(member);
    }

    Writer &number(uint32_t value) noexcept { return hex("%08X*", value); }
    Writer &shortNumber(uint16_t value) noexcept { return hex("%04X*", value); }

    Writer &block(const uint8_t (&bytes)[64]) noexcept
    {
        for (const unsigned byte : bytes) {
            hex("%02X ", byte);
        }
        return plain("");
    }

    /// The finished text on the heap; null without memory.
    [[nodiscard]] char *take() const noexcept { return strndup(text_.data(), length_); }

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

/// The fields of a text, one after the other, each with the codes for its being missing or malformed. The first fault stays,
/// and nothing behind it is read. Fields are told apart as strtok does, without its state that all callers share.
class Reader {
public:
    explicit Reader(char *text) noexcept : rest_(text) {}

    /// A field that only has to be there.
    Reader &skip(int missing) noexcept
    {
        next(missing);
        return *this;
    }

    /// A text as it is, cut to its member.
    template <std::size_t Size>
    Reader &plain(char (&member)[Size], int missing) noexcept
    {
        if (const std::string_view field = next(missing); !field.empty()) {
            store(field, member);
        }
        return *this;
    }

    /// A text that may be marked as empty.
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

    /// A hexadecimal number that is the whole field, kept as far as @p Value reaches.
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

    /// Up to 64 bytes between blanks, as far as they are numbers.
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

    [[nodiscard]] bool whole() const noexcept { return result_ == kWhole; }
    [[nodiscard]] int result() const noexcept { return result_; }

private:
    static constexpr int kWhole = 1;

    /// The next field, terminated where its asterisk stood; empty, and a fault, where there is none.
    std::string_view next(int missing) noexcept
    {
        if (!whole()) {
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
    int result_ = kWhole;
};

/// What begins every text: the keyword, by which the reader was chosen, and the two texts that tell station and device.
template <class Record>
Reader beginning(Record &record, char *text) noexcept
{
    return Reader(text).skip(-1).text(record.ipAddress, -2).text(record.ident2, -3).text(record.ident3, -4);
}

/// The removal's texts have no marker for being empty, and one code for every fault.
int readRemoval(UsbRemoveInfo &record, char *text) noexcept
{
    return Reader(text).skip(-1).plain(record.ipAddress, -1).plain(record.ident2, -1).plain(record.ident3, -1).result();
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
        .take();
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
        .take();
}

char *ConvertUSBDeviceCS2Cmd(const UsbDeviceSource *device) noexcept
{
    return Writer("changeStateUSBdevice")
        .text(device->ipAddress)
        .text(device->ident2)
        .text(device->ident3)
        .number(device->state)
        .take();
}

char *ConvertUSBDeviceRemove2Cmd(const UsbStationRecord *station, const char *extra) noexcept
{
    char address[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &station->address, address, sizeof address);
    return Writer("removeUSBdevice")
        .plain(address)
        .plain({station->text, strnlen(station->text, sizeof station->text)})
        .plain(extra)
        .take();
}

// The codes of the readers are numbered as the fields came to be, not as they stand: logs are read by them.

int ConvertCmd2USBDeviceNew(UsbDeviceV1 *record, char *text) noexcept
{
    uint32_t dropped = 0;
    return beginning(*record, text)
        .text(record->text4, -5)
        .textUnless(record->noText5 != 0, record->text5, -6)  // the caller's wish: some keep a text of their own there
        .text(record->text6, -7)
        .text(record->text7, -8)
        .number(record->number1, -9, -10)
        .number(dropped, -11, -19)
        .number(dropped, -20, -17)
        .number(record->id1, -18, -12)
        // Today id2 stands here, and its low byte becomes the first byte of the block. Reading on to the real block would show
        // old programs bytes that they have never seen.
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
    if (reader.whole()) {
        const unsigned marked = (record->flagWord & kMarked) != 0 ? 1 : 0;
        record->flagBits = static_cast<uint8_t>((id1 & 1) | (id2 & 3) << 1 | marked << 3);
    }
    return reader.result();
}

int ConvertCmd2USBDeviceIM(UsbDeviceInfo *record, char *text) noexcept
{
    uint8_t number3 = 0;  // that much of it is kept, in a place for more
    const Reader reader = beginning(*record, text)
                              .text(record->text4, -5)
                              .text(record->text5, -6)
                              .text(record->text8, -7)
                              .number(record->number1, -8, -10)
                              .number(record->number2, -11, -12)
                              .number(number3, -13, -14);
    if (reader.whole()) {
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
                sizeof(UsbDeviceV1));  // the area is as large as the older callback's other record
    return readRemoval(*record, text);
}

int ConvertCmd2USBDeviceRM(UsbRemoveInfo *record, char *text) noexcept { return readRemoval(*record, text); }
