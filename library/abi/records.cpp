// The binary interface that programs were compiled with: offsets and sizes of the members of the public records, for 64-bit and
// 32-bit programs, and the values of the constants. Add rows only for new records and constants: if a check fails, correct the
// header, not the number. No record has an 8-byte number, because i386 aligns such a member to 4 bytes.
#include <kvo_hws/kvo_hws.h>
#include <kvo_hws/platform.h>

#include <cstddef>

namespace {

constexpr std::size_t on64or32(std::size_t bits64, std::size_t bits32) { return sizeof(void *) == 8 ? bits64 : bits32; }

}  // namespace

// Macros, because a function cannot take a member as an argument and print its name.
#define MEMBER(record, member, place, size)                                                                                    \
    static_assert(offsetof(record, member) == (place),                                                                         \
                  #record "." #member " is not at offset " #place ", where programs expect it");                               \
    static_assert(sizeof(record::member) == (size),                                                                            \
                  #record "." #member " does not have the " #size " bytes that programs expect")
#define SIZE(what, size) static_assert(sizeof(what) == (size), #what " does not have the " #size " bytes that programs expect")
#define VALUE(name, value) static_assert((name) == (value), #name " is not " #value ", the value that programs expect")

MEMBER(KvoTimeval, tv_sec, 0, 4);
MEMBER(KvoTimeval, tv_usec, 4, 4);
SIZE(KvoTimeval, 8);

MEMBER(Notify, threadWorker, 0, on64or32(8, 4));
MEMBER(Notify, threadRequester, on64or32(8, 4), on64or32(8, 4));
MEMBER(Notify, uiState, on64or32(16, 8), 4);
MEMBER(Notify, uiUsers, on64or32(20, 12), 4);
SIZE(Notify, on64or32(24, 16));

MEMBER(DynBuffer, pcData, 0, on64or32(8, 4));
MEMBER(DynBuffer, uiLength, on64or32(8, 4), 4);
SIZE(DynBuffer, on64or32(16, 8));

MEMBER(SocketCache, acData, 0, 1028);
MEMBER(SocketCache, uiFill, 1028, 4);
SIZE(SocketCache, 1032);

MEMBER(KvoDescription, address, 0, 4);
MEMBER(KvoDescription, name, 4, 260);
MEMBER(KvoDescription, attr1, 264, 4);
MEMBER(KvoDescription, attr2, 268, 4);
MEMBER(KvoDescription, attr3, 272, 4);
SIZE(KvoDescription, 276);

MEMBER(KvoDescriptionEx, address, 0, 4);
MEMBER(KvoDescriptionEx, name, 4, 260);
MEMBER(KvoDescriptionEx, attr1, 264, 4);
MEMBER(KvoDescriptionEx, attr2, 268, 4);
MEMBER(KvoDescriptionEx, attr3, 272, 4);
MEMBER(KvoDescriptionEx, extAttr1, 276, 4);
MEMBER(KvoDescriptionEx, extAttr2, 280, 4);
MEMBER(KvoDescriptionEx, extAttr3, 284, 4);
MEMBER(KvoDescriptionEx, extAttr4, 288, 4);
MEMBER(KvoDescriptionEx, extAttr5, 292, 4);
MEMBER(KvoDescriptionEx, extAttr6, 296, 4);
MEMBER(KvoDescriptionEx, extAttr7, 300, 4);
SIZE(KvoDescriptionEx, 304);

MEMBER(KvoClientEntry, value, 0, 4);
MEMBER(KvoClientEntry, name, 4, 260);
SIZE(KvoClientEntry, 264);

MEMBER(ConnectionEntry, reservedHead, 0, 16);
MEMBER(ConnectionEntry, address, 16, 4);
MEMBER(ConnectionEntry, reservedAddress, 20, 4);
MEMBER(ConnectionEntry, name, 24, 260);
MEMBER(ConnectionEntry, attr1, 284, 4);
MEMBER(ConnectionEntry, attr2, 288, 4);
MEMBER(ConnectionEntry, attr3, 292, 4);
MEMBER(ConnectionEntry, reservedMiddle, 296, 16);
MEMBER(ConnectionEntry, extAttr1, 312, 4);
MEMBER(ConnectionEntry, reservedExtended, 316, 8);
MEMBER(ConnectionEntry, extAttr2, 324, 4);
MEMBER(ConnectionEntry, extAttr3, 328, 4);
MEMBER(ConnectionEntry, extAttr4, 332, 4);
MEMBER(ConnectionEntry, extAttr5, 336, 4);
MEMBER(ConnectionEntry, extAttr6, 340, 4);
MEMBER(ConnectionEntry, extAttr7, 344, on64or32(8, 4));
MEMBER(ConnectionEntry, reservedTail, on64or32(352, 348), 16);
SIZE(ConnectionEntry, on64or32(368, 364));

MEMBER(ConnectionClientEntry, name, 0, 260);
MEMBER(ConnectionClientEntry, value, 260, 4);
SIZE(ConnectionClientEntry, 264);

MEMBER(UsbDeviceSource, reserved, 0, 16);
MEMBER(UsbDeviceSource, ipAddress, 16, 16);
MEMBER(UsbDeviceSource, ident2, 32, 32);
MEMBER(UsbDeviceSource, ident3, 64, 32);
MEMBER(UsbDeviceSource, number1, 96, 4);
MEMBER(UsbDeviceSource, id1, 100, 2);
MEMBER(UsbDeviceSource, id2, 102, 2);
MEMBER(UsbDeviceSource, text4, 104, 21);
MEMBER(UsbDeviceSource, noText5, 125, 1);
MEMBER(UsbDeviceSource, text5, 126, 10);
MEMBER(UsbDeviceSource, text6, 136, 40);
MEMBER(UsbDeviceSource, text7, 176, 40);
MEMBER(UsbDeviceSource, bytes, 216, 64);
MEMBER(UsbDeviceSource, number2, 280, 4);
MEMBER(UsbDeviceSource, state, 284, 4);
MEMBER(UsbDeviceSource, text8, 288, 80);
MEMBER(UsbDeviceSource, number3, 368, 2);
SIZE(UsbDeviceSource, 372);

MEMBER(UsbDaemonContext, flags, 0, 1);
SIZE(UsbDaemonContext, 1);

MEMBER(UsbStationRecord, reserved, 0, 4);
MEMBER(UsbStationRecord, address, 4, 4);
MEMBER(UsbStationRecord, text, 8, 260);
SIZE(UsbStationRecord, 268);

MEMBER(UsbDeviceV1, ipAddress, 0, 16);
MEMBER(UsbDeviceV1, ident2, 16, 32);
MEMBER(UsbDeviceV1, ident3, 48, 32);
MEMBER(UsbDeviceV1, number1, 80, 4);
MEMBER(UsbDeviceV1, id1, 84, 2);
MEMBER(UsbDeviceV1, reserved, 86, 2);
MEMBER(UsbDeviceV1, text4, 88, 21);
MEMBER(UsbDeviceV1, noText5, 109, 1);
MEMBER(UsbDeviceV1, text5, 110, 10);
MEMBER(UsbDeviceV1, text6, 120, 40);
MEMBER(UsbDeviceV1, text7, 160, 40);
MEMBER(UsbDeviceV1, bytes, 200, 64);
SIZE(UsbDeviceV1, 264);

MEMBER(UsbDeviceInfo, ipAddress, 0, 16);
MEMBER(UsbDeviceInfo, ident2, 16, 32);
MEMBER(UsbDeviceInfo, ident3, 48, 32);
MEMBER(UsbDeviceInfo, text4, 80, 22);
MEMBER(UsbDeviceInfo, text5, 102, 10);
MEMBER(UsbDeviceInfo, text6, 112, 40);
MEMBER(UsbDeviceInfo, text7, 152, 40);
MEMBER(UsbDeviceInfo, text8, 112, 80);
MEMBER(UsbDeviceInfo, number1, 192, 4);
MEMBER(UsbDeviceInfo, number2, 196, 4);
MEMBER(UsbDeviceInfo, flagWord, 200, 4);
MEMBER(UsbDeviceInfo, number3, 200, 2);
MEMBER(UsbDeviceInfo, flagBits, 204, 1);
SIZE(UsbDeviceInfo, 208);

MEMBER(UsbStateInfo, ipAddress, 0, 16);
MEMBER(UsbStateInfo, ident2, 16, 32);
MEMBER(UsbStateInfo, ident3, 48, 32);
MEMBER(UsbStateInfo, state, 80, 4);
SIZE(UsbStateInfo, 84);

MEMBER(UsbRemoveInfo, ipAddress, 0, 16);
MEMBER(UsbRemoveInfo, ident2, 16, 32);
MEMBER(UsbRemoveInfo, ident3, 48, 32);
SIZE(UsbRemoveInfo, 80);

MEMBER(UsbEventV2, code, 0, 4);
MEMBER(UsbEventV2, length, 4, 4);
MEMBER(UsbEventV2, payload, 8, 208);
SIZE(UsbEventV2, 216);

MEMBER(HwsKeyword, key, 0, on64or32(8, 4));
MEMBER(HwsKeyword, reader, on64or32(8, 4), on64or32(8, 4));
MEMBER(HwsKeyword, destination, on64or32(16, 8), on64or32(8, 4));
MEMBER(HwsKeyword, defaultText, on64or32(24, 12), on64or32(8, 4));
MEMBER(HwsKeyword, flags, on64or32(32, 16), on64or32(8, 4));
MEMBER(HwsKeyword, zero, on64or32(40, 20), on64or32(8, 4));
SIZE(HwsKeyword, on64or32(48, 24));

MEMBER(ConfData, dataSet, 0, 4);
MEMBER(ConfData, interface, on64or32(8, 4), on64or32(8, 4));
MEMBER(ConfData, ipString, on64or32(16, 8), 20);
MEMBER(ConfData, ipValue, on64or32(36, 28), 4);
MEMBER(ConfData, port, on64or32(40, 32), 2);
MEMBER(ConfData, name, on64or32(48, 36), on64or32(8, 4));
MEMBER(ConfData, backlight, on64or32(56, 40), 4);
MEMBER(ConfData, brightness, on64or32(60, 44), 4);
MEMBER(ConfData, backlightBrightness, on64or32(64, 48), 4);
MEMBER(ConfData, registryPath, on64or32(68, 52), 260);
SIZE(ConfData, on64or32(328, 312));

MEMBER(HmiSession, reserved0, 0, 4);
MEMBER(HmiSession, server, on64or32(8, 4), on64or32(8, 4));
MEMBER(HmiSession, reserved1, on64or32(16, 8), 4);
MEMBER(HmiSession, display, on64or32(20, 12), 4);
MEMBER(HmiSession, reserved2, on64or32(24, 16), 8);
MEMBER(HmiSession, keyFlags, on64or32(32, 24), 4);
MEMBER(HmiSession, socket, on64or32(36, 28), 4);
MEMBER(HmiSession, connected, on64or32(40, 32), 4);
MEMBER(HmiSession, chunk, on64or32(44, 36), 4);
MEMBER(HmiSession, lastActivity, on64or32(48, 40), 8);
MEMBER(HmiSession, lineBuffer, on64or32(56, 48), on64or32(8, 4));
MEMBER(HmiSession, lineFill, on64or32(64, 52), 4);
SIZE(HmiSession, on64or32(72, 56));

MEMBER(HmiServer, reserved, 0, 8);
MEMBER(HmiServer, address, 8, 4);
MEMBER(HmiServer, name, on64or32(16, 12), on64or32(8, 4));
MEMBER(HmiServer, reserved2, on64or32(24, 16), 4);
MEMBER(HmiServer, session, on64or32(32, 20), on64or32(8, 4));
SIZE(HmiServer, on64or32(40, 24));

MEMBER(EmbKvoInst, running, 0, 4);
MEMBER(EmbKvoInst, stop, 4, 4);
MEMBER(EmbKvoInst, focusKvoIp, 8, 4);
MEMBER(EmbKvoInst, focusKvoName, 12, 128);
MEMBER(EmbKvoInst, remoteKvoHwsIp, 140, 4);
MEMBER(EmbKvoInst, remoteSession, 144, 4);
MEMBER(EmbKvoInst, reserved, 148, 12);
MEMBER(EmbKvoInst, kvoIndex, 160, 4);
MEMBER(EmbKvoInst, mcpFlag, 164, 4);
MEMBER(EmbKvoInst, channelOnFocus, 168, 4);
MEMBER(EmbKvoInst, screenOnFocus, 172, 128);
MEMBER(EmbKvoInst, suspendLock, 300, 4);
MEMBER(EmbKvoInst, suspendPrio, 304, 4);
MEMBER(EmbKvoInst, startupActive, 308, 4);
MEMBER(EmbKvoInst, startupPrio, 312, 4);
MEMBER(EmbKvoInst, session, on64or32(320, 316), on64or32(72, 56));
MEMBER(EmbKvoInst, server, on64or32(392, 372), on64or32(40, 24));
SIZE(EmbKvoInst, on64or32(432, 396));

MEMBER(HwsCommand, keyword, 0, on64or32(8, 4));
MEMBER(HwsCommand, handler, on64or32(8, 4), on64or32(8, 4));
SIZE(HwsCommand, on64or32(16, 8));

// Arrays that programs index, or that the loader copies into a program.
SIZE(gScreenOnFocus, 261);
SIZE(gHostname, 260);
SIZE(gFocusName, 260);
SIZE(cmds, on64or32(60 * 16, 60 * 8));
SIZE(hws_keywords, on64or32(13 * 48, 13 * 24));

VALUE(KVO_HWS_OK, 1);
VALUE(KVO_HWS_NO, 0);
VALUE(KVO_HWS_FAILED, -1);
VALUE(KVO_HWS_NO_SERVICE, -2);
VALUE(KVO_HWS_TOO_SMALL, -3);
VALUE(KVO_HWS_OUT_OF_RANGE, -3);
VALUE(KVO_HWS_AMBIGUOUS, -3);
VALUE(KVO_HWS_TIMEOUT, -4);
VALUE(KVO_HWS_SECOND_TOO_SMALL, -4);
VALUE(KVO_HWS_INVALID_MODE, -4);
VALUE(KVO_HWS_REFUSED, -4);
VALUE(KVO_HWS_NOT_AVAILABLE, -4);
VALUE(KVO_HWS_UNSUPPORTED, -5);
VALUE(KVO_HWS_UNKNOWN_REPLY, -5);
VALUE(KVO_HWS_NOT_ACTIVE, -6);
VALUE(KVO_HWS_NULL_POINTER, -7);
VALUE(KVO_HWS_SERVER_FAILED, -8);
VALUE(KVO_HWS_NO_THREAD, -3);
VALUE(KVO_HWS_ALREADY_RUNNING, -8);
VALUE(KVO_HWS_MISSING_PARAMETER, -9);
VALUE(KVO_HWS_INVALID_INSTANCE, -10);
VALUE(KVO_HWS_NO_EVENTS, -9);
VALUE(KVO_HWS_BUSY, -9);
VALUE(KVO_HWS_INVALID_METRIC, -9);
VALUE(KVO_HWS_INVALID_HOST, -10);

VALUE(NOTIFY_STOPPED, 0);
VALUE(NOTIFY_STOP_REQUESTED, 1);
VALUE(NOTIFY_STOP_DONE, 2);
VALUE(NOTIFY_RUNNING, 3);

VALUE(CONF_MODE_ALL, 0);
VALUE(CONF_MODE_VISIBLE, 1);
VALUE(CONF_MODE_NONE, 2);
VALUE(CONF_MODE_INVALID, 255);

VALUE(USB_EVENT_ACTIVATED, 1);
VALUE(USB_EVENT_DEACTIVATED, 2);
VALUE(USB_EVENT_BEGIN, 3);
VALUE(USB_EVENT_NEW_DEVICE, 10);
VALUE(USB_EVENT_REMOVED, 11);
VALUE(USB_EVENT_STATE, 13);
VALUE(USB_EVENT_DEVICE_REFUSED, 14);
VALUE(USB_EVENT_SERVER_FAILED, 100);
VALUE(USB_EVENT_REFUSED, 101);
VALUE(USB_EVENT_NO_SERVICE, 102);

VALUE(PLATFORM_INTERFACE_NAME, 0x10000);
VALUE(PLATFORM_CONFIG_FILE, 0x40000);
