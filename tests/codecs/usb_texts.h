// Devices as USB event texts describe them, and records to read them into.
#pragma once

#include <kvo_hws/codecs.h>

#include <arpa/inet.h>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <string_view>

namespace codecs_test {

inline const std::string kMarker = "?$?\xA7?eEmMpPtTyY!\xA7!$!";

template <std::size_t Size>
void put(char (&member)[Size], std::string_view text)
{
    std::memset(member, 0, Size);
    text.copy(member, Size);
}

inline UsbDeviceSource device()
{
    UsbDeviceSource source{};
    std::memset(source.reserved, 0xEE, sizeof source.reserved);
    put(source.ipAddress, "10.0.0.5");
    put(source.ident2, "usb1");
    put(source.ident3, "1-1.4");
    source.number1 = 0xABCDEF01;
    source.id1 = 0x0781;
    source.id2 = 0x556B;
    put(source.text4, "SanDisk");
    put(source.text5, "8.02");
    put(source.text6, "Storage Media");
    put(source.text7, "Cruzer Edge");
    for (unsigned byte = 0; byte < sizeof source.bytes; ++byte) {
        source.bytes[byte] = static_cast<uint8_t>(byte + 0xC0);
    }
    source.number2 = 0x0000002A;
    source.state = 3;
    put(source.text8, "not allowed here");
    source.number3 = 0x12FE;
    return source;
}

inline std::string taken(char *text)
{
    const std::unique_ptr<char, void (*)(void *)> owned(text, std::free);
    return owned == nullptr ? "null" : owned.get();
}

inline std::string newText(const UsbDeviceSource &source, uint8_t flags = 0)
{
    const UsbDaemonContext context{flags};
    return taken(ConvertUSBDeviceNew2Cmd(&context, &source));
}

inline const std::string kBlock =
    "C0 C1 C2 C3 C4 C5 C6 C7 C8 C9 CA CB CC CD CE CF D0 D1 D2 D3 D4 D5 D6 D7 D8 D9 DA DB DC DD DE DF "
    "E0 E1 E2 E3 E4 E5 E6 E7 E8 E9 EA EB EC ED EE EF F0 F1 F2 F3 F4 F5 F6 F7 F8 F9 FA FB FC FD FE FF ";

inline UsbStationRecord station(const char *address, std::string_view text)
{
    UsbStationRecord record{};
    record.reserved = 0xEEEEEEEE;
    inet_pton(AF_INET, address, &record.address);
    put(record.text, text);
    return record;
}

/// A record between guard bytes, filled with a pattern or with zeros.
template <class Record, std::size_t Area = sizeof(Record)>
class Guarded {
public:
    explicit Guarded(int pattern = 0)
    {
        std::memset(bytes_, '#', sizeof bytes_);
        std::memset(bytes_ + kGuard, pattern, Area);
    }
    ~Guarded()
    {
        EXPECT_EQ(std::string(bytes_, kGuard), std::string(kGuard, '#'));
        EXPECT_EQ(std::string(bytes_ + kGuard + Area, kGuard), std::string(kGuard, '#'));
    }
    Guarded(const Guarded &) = delete;
    Guarded &operator=(const Guarded &) = delete;

    Record *operator->() { return get(); }
    [[nodiscard]] Record *get() { return reinterpret_cast<Record *>(bytes_ + kGuard); }
    [[nodiscard]] std::string_view area() const { return {bytes_ + kGuard, Area}; }

private:
    static constexpr std::size_t kGuard = 64;
    alignas(8) char bytes_[Area + 2 * kGuard];
};

template <class Record>
int read(int (*reader)(Record *, char *) noexcept, Record *record, std::string text)
{
    return reader(record, text.data());
}

}  // namespace codecs_test
