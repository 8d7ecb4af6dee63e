// Sizes of the public records and where their members lie, for programs of 64 bits and of 32 (i386): whoever was compiled with the
// headers relies on them. No record holds an 8-byte number, which i386 would align to 4.
#include <kvo_hws/kvo_hws.h>
#include <kvo_hws/platform.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <ostream>
#include <regex>
#include <string>

namespace {

/// A place or size in bytes, the same on both or one for each.
struct Bytes {
    constexpr Bytes(std::size_t onBoth) : on64(onBoth), on32(onBoth) {}
    constexpr Bytes(std::size_t bits64, std::size_t bits32) : on64(bits64), on32(bits32) {}
    constexpr std::size_t here() const { return sizeof(void *) == 8 ? on64 : on32; }

    std::size_t on64;
    std::size_t on32;
};

struct Row {
    const char *name;
    std::size_t compiled;
    Bytes promised;
};

std::ostream &operator<<(std::ostream &out, const Row &row) { return out << row.name; }

class Layout : public testing::TestWithParam<Row> {};

TEST_P(Layout, is) { EXPECT_EQ(GetParam().compiled, GetParam().promised.here()); }

constexpr Row row(const char *name, std::size_t compiled, Bytes promised) { return {name, compiled, promised}; }

// The only way to have a member's place and its name.
#define PLACE(record, member, ...) row(#record "_" #member, offsetof(record, member), Bytes(__VA_ARGS__))
#define SIZE(record, ...) row(#record "_size", sizeof(record), Bytes(__VA_ARGS__))

const Row kRows[] = {
    PLACE(KvoTimeval, tv_sec, 0),
    PLACE(KvoTimeval, tv_usec, 4),
    SIZE(KvoTimeval, 8),

    PLACE(Notify, threadWorker, 0),
    PLACE(Notify, threadRequester, 8, 4),
    PLACE(Notify, uiState, 16, 8),
    PLACE(Notify, uiUsers, 20, 12),
    SIZE(Notify, 24, 16),

    PLACE(DynBuffer, pcData, 0),
    PLACE(DynBuffer, uiLength, 8, 4),
    SIZE(DynBuffer, 16, 8),

    PLACE(SocketCache, acData, 0),
    PLACE(SocketCache, uiFill, 1028),
    SIZE(SocketCache, 1032),

    PLACE(KvoDescription, address, 0),
    PLACE(KvoDescription, name, 4),
    PLACE(KvoDescription, attr1, 264),
    PLACE(KvoDescription, attr2, 268),
    PLACE(KvoDescription, attr3, 272),
    SIZE(KvoDescription, 276),

    PLACE(KvoDescriptionEx, address, 0),
    PLACE(KvoDescriptionEx, name, 4),
    PLACE(KvoDescriptionEx, attr1, 264),
    PLACE(KvoDescriptionEx, attr2, 268),
    PLACE(KvoDescriptionEx, attr3, 272),
    PLACE(KvoDescriptionEx, extAttr1, 276),
    PLACE(KvoDescriptionEx, extAttr2, 280),
    PLACE(KvoDescriptionEx, extAttr3, 284),
    PLACE(KvoDescriptionEx, extAttr4, 288),
    PLACE(KvoDescriptionEx, extAttr5, 292),
    PLACE(KvoDescriptionEx, extAttr6, 296),
    PLACE(KvoDescriptionEx, extAttr7, 300),
    SIZE(KvoDescriptionEx, 304),

    PLACE(KvoClientEntry, value, 0),
    PLACE(KvoClientEntry, name, 4),
    SIZE(KvoClientEntry, 264),

    PLACE(ConnectionEntry, reservedHead, 0),
    PLACE(ConnectionEntry, address, 16),
    PLACE(ConnectionEntry, reservedAddress, 20),
    PLACE(ConnectionEntry, name, 24),
    PLACE(ConnectionEntry, attr1, 284),
    PLACE(ConnectionEntry, attr2, 288),
    PLACE(ConnectionEntry, attr3, 292),
    PLACE(ConnectionEntry, reservedMiddle, 296),
    PLACE(ConnectionEntry, extAttr1, 312),
    PLACE(ConnectionEntry, reservedExtended, 316),
    PLACE(ConnectionEntry, extAttr2, 324),
    PLACE(ConnectionEntry, extAttr3, 328),
    PLACE(ConnectionEntry, extAttr4, 332),
    PLACE(ConnectionEntry, extAttr5, 336),
    PLACE(ConnectionEntry, extAttr6, 340),
    PLACE(ConnectionEntry, extAttr7, 344),
    PLACE(ConnectionEntry, reservedTail, 352, 348),
    SIZE(ConnectionEntry, 368, 364),

    PLACE(ConnectionClientEntry, name, 0),
    PLACE(ConnectionClientEntry, value, 260),
    SIZE(ConnectionClientEntry, 264),

    PLACE(UsbDeviceSource, reserved, 0),
    PLACE(UsbDeviceSource, ipAddress, 16),
    PLACE(UsbDeviceSource, ident2, 32),
    PLACE(UsbDeviceSource, ident3, 64),
    PLACE(UsbDeviceSource, number1, 96),
    PLACE(UsbDeviceSource, id1, 100),
    PLACE(UsbDeviceSource, id2, 102),
    PLACE(UsbDeviceSource, text4, 104),
    PLACE(UsbDeviceSource, noText5, 125),
    PLACE(UsbDeviceSource, text5, 126),
    PLACE(UsbDeviceSource, text6, 136),
    PLACE(UsbDeviceSource, text7, 176),
    PLACE(UsbDeviceSource, bytes, 216),
    PLACE(UsbDeviceSource, number2, 280),
    PLACE(UsbDeviceSource, state, 284),
    PLACE(UsbDeviceSource, text8, 288),
    PLACE(UsbDeviceSource, number3, 368),
    SIZE(UsbDeviceSource, 372),

    PLACE(UsbDaemonContext, flags, 0),
    SIZE(UsbDaemonContext, 1),

    PLACE(UsbStationRecord, reserved, 0),
    PLACE(UsbStationRecord, address, 4),
    PLACE(UsbStationRecord, text, 8),
    SIZE(UsbStationRecord, 268),

    PLACE(UsbDeviceV1, ipAddress, 0),
    PLACE(UsbDeviceV1, ident2, 16),
    PLACE(UsbDeviceV1, ident3, 48),
    PLACE(UsbDeviceV1, number1, 80),
    PLACE(UsbDeviceV1, id1, 84),
    PLACE(UsbDeviceV1, reserved, 86),
    PLACE(UsbDeviceV1, text4, 88),
    PLACE(UsbDeviceV1, noText5, 109),
    PLACE(UsbDeviceV1, text5, 110),
    PLACE(UsbDeviceV1, text6, 120),
    PLACE(UsbDeviceV1, text7, 160),
    PLACE(UsbDeviceV1, bytes, 200),
    SIZE(UsbDeviceV1, 264),

    PLACE(UsbDeviceInfo, ipAddress, 0),
    PLACE(UsbDeviceInfo, ident2, 16),
    PLACE(UsbDeviceInfo, ident3, 48),
    PLACE(UsbDeviceInfo, text4, 80),
    PLACE(UsbDeviceInfo, text5, 102),
    PLACE(UsbDeviceInfo, text6, 112),
    PLACE(UsbDeviceInfo, text7, 152),
    PLACE(UsbDeviceInfo, text8, 112),
    PLACE(UsbDeviceInfo, number1, 192),
    PLACE(UsbDeviceInfo, number2, 196),
    PLACE(UsbDeviceInfo, flagWord, 200),
    PLACE(UsbDeviceInfo, number3, 200),
    PLACE(UsbDeviceInfo, flagBits, 204),
    SIZE(UsbDeviceInfo, 208),

    PLACE(UsbStateInfo, ipAddress, 0),
    PLACE(UsbStateInfo, ident2, 16),
    PLACE(UsbStateInfo, ident3, 48),
    PLACE(UsbStateInfo, state, 80),
    SIZE(UsbStateInfo, 84),

    PLACE(UsbRemoveInfo, ipAddress, 0),
    PLACE(UsbRemoveInfo, ident2, 16),
    PLACE(UsbRemoveInfo, ident3, 48),
    SIZE(UsbRemoveInfo, 80),

    PLACE(UsbEventV2, code, 0),
    PLACE(UsbEventV2, length, 4),
    PLACE(UsbEventV2, payload, 8),
    SIZE(UsbEventV2, 216),

    PLACE(HwsKeyword, key, 0),
    PLACE(HwsKeyword, reader, 8, 4),
    PLACE(HwsKeyword, destination, 16, 8),
    PLACE(HwsKeyword, defaultText, 24, 12),
    PLACE(HwsKeyword, flags, 32, 16),
    PLACE(HwsKeyword, zero, 40, 20),
    SIZE(HwsKeyword, 48, 24),

    PLACE(ConfData, dataSet, 0),
    PLACE(ConfData, interface, 8, 4),
    PLACE(ConfData, ipString, 16, 8),
    PLACE(ConfData, ipValue, 36, 28),
    PLACE(ConfData, port, 40, 32),
    PLACE(ConfData, name, 48, 36),
    PLACE(ConfData, backlight, 56, 40),
    PLACE(ConfData, brightness, 60, 44),
    PLACE(ConfData, backlightBrightness, 64, 48),
    PLACE(ConfData, registryPath, 68, 52),
    SIZE(ConfData, 328, 312),

    PLACE(HmiSession, reserved0, 0),
    PLACE(HmiSession, server, 8, 4),
    PLACE(HmiSession, reserved1, 16, 8),
    PLACE(HmiSession, display, 20, 12),
    PLACE(HmiSession, reserved2, 24, 16),
    PLACE(HmiSession, keyFlags, 32, 24),
    PLACE(HmiSession, socket, 36, 28),
    PLACE(HmiSession, connected, 40, 32),
    PLACE(HmiSession, chunk, 44, 36),
    PLACE(HmiSession, lastActivity, 48, 40),
    PLACE(HmiSession, lineBuffer, 56, 48),
    PLACE(HmiSession, lineFill, 64, 52),
    SIZE(HmiSession, 72, 56),

    PLACE(HmiServer, reserved, 0),
    PLACE(HmiServer, address, 8),
    PLACE(HmiServer, name, 16, 12),
    PLACE(HmiServer, reserved2, 24, 16),
    PLACE(HmiServer, session, 32, 20),
    SIZE(HmiServer, 40, 24),

    PLACE(EmbKvoInst, running, 0),
    PLACE(EmbKvoInst, stop, 4),
    PLACE(EmbKvoInst, focusKvoIp, 8),
    PLACE(EmbKvoInst, focusKvoName, 12),
    PLACE(EmbKvoInst, remoteKvoHwsIp, 140),
    PLACE(EmbKvoInst, remoteSession, 144),
    PLACE(EmbKvoInst, reserved, 148),
    PLACE(EmbKvoInst, kvoIndex, 160),
    PLACE(EmbKvoInst, mcpFlag, 164),
    PLACE(EmbKvoInst, channelOnFocus, 168),
    PLACE(EmbKvoInst, screenOnFocus, 172),
    PLACE(EmbKvoInst, suspendLock, 300),
    PLACE(EmbKvoInst, suspendPrio, 304),
    PLACE(EmbKvoInst, startupActive, 308),
    PLACE(EmbKvoInst, startupPrio, 312),
    PLACE(EmbKvoInst, session, 320, 316),
    PLACE(EmbKvoInst, server, 392, 372),
    SIZE(EmbKvoInst, 432, 396),

    PLACE(HwsCommand, keyword, 0),
    PLACE(HwsCommand, handler, 8, 4),
    SIZE(HwsCommand, 16, 8),

    // What programs copy at their start or index, one by one.
    SIZE(gScreenOnFocus, 261),
    SIZE(gHostname, 260),
    SIZE(gFocusName, 260),
    SIZE(cmds, 60 * 16, 60 * 8),
    SIZE(hws_keywords, 13 * 48, 13 * 24),
};

#undef PLACE
#undef SIZE

INSTANTIATE_TEST_SUITE_P(Of, Layout, testing::ValuesIn(kRows), [](const auto &row) { return std::string(row.param.name); });

bool stands(const std::string &name)
{
    return std::any_of(std::begin(kRows), std::end(kRows), [&](const Row &row) { return row.name == name; });
}

TEST(Layouts, stand_here_for_every_record_of_the_headers)
{
    const std::regex beginning("^(?:typedef )?struct (\\w+) \\{");
    int records = 0;
    for (const auto &header : std::filesystem::directory_iterator(KVO_HEADERS)) {
        std::ifstream file(header.path());
        std::smatch match;
        for (std::string line; std::getline(file, line);) {
            if (std::regex_search(line, match, beginning)) {
                ++records;
                EXPECT_TRUE(stands(match[1].str() + "_size")) << line;
            }
        }
    }
    EXPECT_GT(records, 20);
}

}  // namespace
