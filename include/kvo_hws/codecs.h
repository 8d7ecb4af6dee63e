/** @file
 *  Records of the daemon as text: station descriptions, and what happens to USB devices.
 *
 *  The description text is a count and fixed-width fields, each followed by one space, also the last one:
 *
 *      list      <count>{<address> <attr1> <attr2> <attr3> <name length> <name> }
 *      extended  <count>{<address> <attr1> <attr2> <attr3> <name length> <name> <extAttr1> ... <extAttr7> }
 *      clients   <count>{<value> <name length> <name> }
 *
 *  Numbers are 8 upper-case hexadecimal digits; the name is raw bytes whose end its length tells, so it may hold spaces. An
 *  empty list is "00000000 ". What the attributes mean is the daemon's business; they are carried through unchanged.
 *
 *  A writer's size is at most INT_MAX; what needs more is told as INT_MAX.
 *
 *  A USB event text is one line of fields, each followed by an asterisk, also the last one:
 *
 *      newUSBdevice*<ipAddress>*<ident2>*<ident3>*<text4>*<text5>*<text6>*<text7>*<number1>*<number2>*<flag word>*<id1>*<id2>*<bytes>*
 *      ignoreUSBdevice*<ipAddress>*<ident2>*<ident3>*<text4>*<text5>*<text8>*<number1>*<number2>*<number3>*
 *      changeStateUSBdevice*<ipAddress>*<ident2>*<ident3>*<state>*
 *      removeUSBdevice*<ipAddress>*<ident2>*<ident3>*
 *
 *  Numbers are upper-case hexadecimal: 8 digits, but 4 for id1, id2 and number3, and 2 and a space for each of the 64
 *  bytes. Fields are told apart as strtok does, for which an empty one does not exist: an empty text goes as the 20 bytes
 *  "?$?\xA7?eEmMpPtTyY!\xA7!$!" instead (but not in the removal). What the fields mean is the daemon's business.
 *
 *  All functions here are pure: no lock, no log, no state between calls, and no allocation but the texts that the USB
 *  writers return. They may be called from any thread. Pointers must not be null where nothing else is said.
 */
#ifndef KVO_HWS_CODECS_H
#define KVO_HWS_CODECS_H

#include <kvo_hws/export.h>

#include <stdint.h>

KVO_HWS_BEGIN_DECLS

/** @defgroup kvo_hws_descriptions Station descriptions
 *  @{
 */

/** A station, as a program sees it. */
typedef struct KvoDescription {
    uint32_t address; /**< IPv4 address as a number, 0x0A000005 for 10.0.0.5; a registry list has it as inet_addr stores it */
    char name[260];   /**< null-terminated */
    uint32_t attr1, attr2, attr3; /**< attributes, the daemon's business */
} KvoDescription;

/** A station with its extended attributes. */
typedef struct KvoDescriptionEx {
    uint32_t address;             /**< IPv4 address as a number: 0x0A000005 is 10.0.0.5 */
    char name[260];               /**< null-terminated */
    uint32_t attr1, attr2, attr3; /**< attributes, the daemon's business */
    uint32_t extAttr1, extAttr2, extAttr3, extAttr4, extAttr5, extAttr6, extAttr7; /**< extended attributes, likewise */
} KvoDescriptionEx;

/** A connected client, as a program sees it. */
typedef struct KvoClientEntry {
    uint32_t value; /**< the daemon's number for it */
    char name[260]; /**< null-terminated */
} KvoClientEntry;

/** A station, as the daemon keeps it; the reserved members are the daemon's own and never touched. */
typedef struct ConnectionEntry {
    uint32_t reservedHead[4];                                  /**< the daemon's own */
    uint32_t address;                                          /**< IPv4 address as a number */
    uint32_t reservedAddress;                                  /**< the daemon's own */
    char name[260];                                            /**< null-terminated */
    uint32_t attr1, attr2, attr3;                              /**< attributes */
    uint32_t reservedMiddle[4];                                /**< the daemon's own */
    uint32_t extAttr1;                                         /**< extended attribute */
    uint32_t reservedExtended[2];                              /**< the daemon's own */
    uint32_t extAttr2, extAttr3, extAttr4, extAttr5, extAttr6; /**< extended attributes */
    unsigned long extAttr7;                                    /**< its low 32 bits are written */
    uint32_t reservedTail[4];                                  /**< the daemon's own */
} ConnectionEntry;

/** A connected client, as the daemon keeps it. The name comes first here, on purpose: KvoClientEntry has it second. */
typedef struct ConnectionClientEntry {
    char name[260]; /**< null-terminated */
    uint32_t value; /**< the daemon's number for it */
} ConnectionClientEntry;

/** @} */

/** @defgroup kvo_hws_usb_texts USB event texts
 *  The daemon's side writes, the library's side reads. Readers cut texts up in place. A field that is too long is cut to its
 *  member, and fields read before a fault are stored. The keyword is taken for whatever it is.
 *  @{
 */

/** A USB device, as the daemon keeps it. A text that fills its member needs no terminator. */
typedef struct UsbDeviceSource {
    uint8_t reserved[16]; /**< the daemon's own, never looked at */
    char ipAddress[16];   /**< the station that reports the device, dotted */
    char ident2[32];      /**< tells the devices of a station apart, together with ident3 */
    char ident3[32];      /**< see ident2 */
    uint32_t number1;     /**< number of the device */
    uint16_t id1;         /**< of a new device */
    uint16_t id2;         /**< of a new device */
    char text4[21];       /**< text of the device */
    uint8_t noText5;      /**< not 0: text5 is sent as empty */
    char text5[10];       /**< text of the device */
    char text6[40];       /**< text of a new device */
    char text7[40];       /**< text of a new device */
    uint8_t bytes[64];    /**< of a new device */
    uint32_t number2;     /**< number of the device */
    uint32_t state;       /**< what a change of state sends; a new device reports itself only at state 0 */
    char text8[80];       /**< of a refused device only */
    uint16_t number3;     /**< of a refused device only */
} UsbDeviceSource;

/** What the daemon knows of its callers; only the report bit is looked at. */
typedef struct UsbDaemonContext {
    uint8_t flags; /**< bit 0: report new devices */
} UsbDaemonContext;

/** A station, as the daemon keeps it for removals. */
typedef struct UsbStationRecord {
    uint32_t reserved; /**< the daemon's own */
    uint32_t address;  /**< IPv4 address as inet_aton stores it */
    char text[260];    /**< the device text */
} UsbStationRecord;

/** A new device, as the older callback gets it; 264 bytes. */
typedef struct UsbDeviceV1 {
    char ipAddress[16]; /**< the station, dotted */
    char ident2[32];    /**< tells the devices of a station apart, together with ident3 */
    char ident3[32];    /**< see ident2 */
    uint32_t number1;   /**< number of the device */
    uint16_t id1;       /**< of a new device */
    uint16_t reserved;  /**< never set */
    char text4[21];     /**< text of the device */
    uint8_t noText5;    /**< the caller's: not 0 keeps text5 from being stored */
    char text5[10];     /**< text of the device */
    char text6[40];     /**< text of a new device */
    char text7[40];     /**< text of a new device */
    uint8_t bytes[64];  /**< of the daemon's texts of today only the first byte is set, to the low byte of id2 */
} UsbDeviceV1;

/** A new or refused device, as the newer callback gets it; 208 bytes, of which a refused one uses 204. */
typedef struct UsbDeviceInfo {
    char ipAddress[16]; /**< the station, dotted */
    char ident2[32];    /**< tells the devices of a station apart, together with ident3 */
    char ident3[32];    /**< see ident2 */
    char text4[22];     /**< text of the device */
    char text5[10];     /**< text of the device */
    __extension__ union {
        __extension__ struct {
            char text6[40]; /**< of a new device */
            char text7[40]; /**< of a new device */
        };
        char text8[80]; /**< of a refused device */
    };
    uint32_t number1; /**< number of the device */
    uint32_t number2; /**< number of the device */
    __extension__ union {
        uint32_t flagWord; /**< of a new device */
        uint16_t number3;  /**< of a refused device: the low 8 bits of what was sent */
    };
    uint8_t flagBits; /**< of a new device: bit 0 is id1 & 1, bits 1 and 2 are id2 & 3, bit 3 is bit 31 of flagWord */
} UsbDeviceInfo;

/** A device that changed its state; 84 bytes. */
typedef struct UsbStateInfo {
    char ipAddress[16]; /**< the station, dotted */
    char ident2[32];    /**< tells the devices of a station apart, together with ident3 */
    char ident3[32];    /**< see ident2 */
    uint32_t state;     /**< the device's new state */
} UsbStateInfo;

/** A device that was removed; 80 bytes. */
typedef struct UsbRemoveInfo {
    char ipAddress[16]; /**< the station, dotted */
    char ident2[32];    /**< tells the devices of a station apart, together with ident3 */
    char ident3[32];    /**< see ident2 */
} UsbRemoveInfo;

/** @} */

/** @addtogroup kvo_hws_descriptions
 *  @{
 */

/** Writes a station list.
 *  @param count    number of entries
 *  @param entries  the stations
 *  @param buffer   receives the text, zero-terminated; may be null when @p size is 0
 *  @param size     bytes in @p buffer
 *  @return 0 written; else the bytes needed, and nothing was written: 17 + 45 * count + the sum of (name length + 3)
 */
KVO_HWS_API int ConvertConArray2Text(uint32_t count, const ConnectionEntry *entries, char *buffer,
                                     uint32_t size) KVO_HWS_NOEXCEPT;

/** Writes an extended station list; as ConvertConArray2Text, but 108 bytes a station instead of 45. */
KVO_HWS_API int ConvertConArray2TextEx(uint32_t count, const ConnectionEntry *entries, char *buffer,
                                       uint32_t size) KVO_HWS_NOEXCEPT;

/** Writes a client list; as ConvertConArray2Text, but 18 bytes a client instead of 45. */
KVO_HWS_API int ConvertConArray2TextClients(uint32_t count, const ConnectionClientEntry *clients, char *buffer,
                                            uint32_t size) KVO_HWS_NOEXCEPT;

/** Writes one station in the extended form, without a count before it.
 *  @return 1; -1 @p size is below the name's length + 117, nothing was written
 */
KVO_HWS_API int ConvertConElem2TextEx(const ConnectionEntry *entry, char *buffer, uint32_t size) KVO_HWS_NOEXCEPT;

/** Reads a station list.
 *  @param count  receives the text's count, also when the rest is malformed
 *  @param array  receives the stations; must hold them all: compare its capacity with GetCountKVODescriptionsFromText first
 *  @param text   the description text
 *  @return 1; -1 a number not followed by a space, a name longer than 259 bytes, or the text ends early; the elements
 *  before the fault are filled. A text that ends inside its very last name is accepted with what there is of it
 */
KVO_HWS_API int ConvertText2KVODescriptionArray(uint32_t *count, KvoDescription *array, const char *text) KVO_HWS_NOEXCEPT;

/** Reads an extended station list; as ConvertText2KVODescriptionArray, but every name must be whole. */
KVO_HWS_API int ConvertText2KVODescArrayEx(uint32_t *count, KvoDescriptionEx *array, const char *text) KVO_HWS_NOEXCEPT;

/** Reads a client list; as ConvertText2KVODescriptionArray. */
KVO_HWS_API int ConvertText2KVOClientArray(uint32_t *count, KvoClientEntry *array, const char *text) KVO_HWS_NOEXCEPT;

/** Reads one extended station without a count before it.
 *  @return 1; -1 malformed
 */
KVO_HWS_API int ConvertText2KVODescEx(KvoDescriptionEx *record, const char *text) KVO_HWS_NOEXCEPT;

/** Reads the count at the head of a list text.
 *  @return the count; 0xFFFFFFFF when it is not followed by a space
 */
KVO_HWS_API uint32_t GetCountKVODescriptionsFromTextEx(const char *text) KVO_HWS_NOEXCEPT;

/** The same as GetCountKVODescriptionsFromTextEx. */
KVO_HWS_API uint32_t GetCountKVODescriptionsFromText(const char *text) KVO_HWS_NOEXCEPT;

/** @} */

/** @addtogroup kvo_hws_usb_texts
 *  @{
 */

/** Writes the text of a new device.
 *  @param context  only its report bit is looked at
 *  @param device   the device
 *  @return the text, without a line feed and cut at 1023 characters, which the caller frees; null without memory
 *
 *  The flag word is 08000000 while the report bit is set and the device's state is 0, else 00000000. It is another bit than
 *  the one that UsbDeviceInfo::flagBits tells, on purpose.
 */
KVO_HWS_API char *ConvertUSBDeviceNew2Cmd(const UsbDaemonContext *context, const UsbDeviceSource *device) KVO_HWS_NOEXCEPT;

/** Writes the text of a refused device; result as of ConvertUSBDeviceNew2Cmd. */
KVO_HWS_API char *ConvertUSBDeviceIM2Cmd(const UsbDeviceSource *device) KVO_HWS_NOEXCEPT;

/** Writes the text of a device that changed its state; result as of ConvertUSBDeviceNew2Cmd. */
KVO_HWS_API char *ConvertUSBDeviceCS2Cmd(const UsbDeviceSource *device) KVO_HWS_NOEXCEPT;

/** Writes the text of a removed device; result as of ConvertUSBDeviceNew2Cmd.
 *  @param station  its address goes as ipAddress, its text as ident2
 *  @param extra    goes as ident3
 *
 *  Empty texts stay empty here, and such a text is refused by its reader.
 */
KVO_HWS_API char *ConvertUSBDeviceRemove2Cmd(const UsbStationRecord *station, const char *extra) KVO_HWS_NOEXCEPT;

/** Reads a new device for the older callback.
 *  @param record  receives the fields, the caller having cleared it
 *  @param text    the event text; no longer usable afterwards
 *  @return 1; the first thing that is wrong: missing -1 keyword, -2 ipAddress, -3 ident2, -4 ident3, -5 text4, -6 text5, -7
 *  text6, -8 text7, -9 number1, -11 number2, -20 flag word, -18 id1, -13 the byte block; malformed -10 number1, -19
 *  number2, -17 flag word, -12 id1
 *
 *  The field behind id1 is taken for the byte block, as it was before id2 came in between: the first byte is the low one of
 *  id2 and there are no others. Programs of that time rely on nothing else being set.
 */
KVO_HWS_API int ConvertCmd2USBDeviceNew(UsbDeviceV1 *record, char *text) KVO_HWS_NOEXCEPT;

/** Reads a new device for the newer callback.
 *  @return 1; the first thing that is wrong: missing -1 keyword, -2 ipAddress, -3 ident2, -4 ident3, -5 text4, -6 text5, -7
 *  text6, -8 text7, -9 number1, -11 number2, -20 flag word, -18 id1, -13 id2, -15 the byte block; malformed -10
 *  number1, -19 number2, -17 flag word, -12 id1, -14 id2
 *
 *  What the byte block holds is not looked at: this record has no place for it.
 */
KVO_HWS_API int ConvertCmd2USBDeviceNM(UsbDeviceInfo *record, char *text) KVO_HWS_NOEXCEPT;

/** Reads a refused device.
 *  @return 1; the first thing that is wrong: missing -1 keyword, -2 ipAddress, -3 ident2, -4 ident3, -5 text4, -6 text5, -7
 *  text8, -8 number1, -11 number2, -13 number3; malformed -10 number1, -12 number2, -14 number3
 *
 *  What is of a new device alone, flagBits and the upper half of flagWord, stays as it is.
 */
KVO_HWS_API int ConvertCmd2USBDeviceIM(UsbDeviceInfo *record, char *text) KVO_HWS_NOEXCEPT;

/** Reads a change of state.
 *  @return 1; the first thing that is wrong: missing -1 keyword, -2 ipAddress, -3 ident2, -4 ident3, -5 state; malformed
 *  -10 state
 */
KVO_HWS_API int ConvertCmd2USBDeviceCS(UsbStateInfo *record, char *text) KVO_HWS_NOEXCEPT;

/** Reads a removal for the older callback.
 *  @param record  the beginning of an area of 264 bytes, all of which is cleared first
 *  @return 1; -1 a field is missing
 */
KVO_HWS_API int ConvertCmd2USBDeviceRemove(UsbRemoveInfo *record, char *text) KVO_HWS_NOEXCEPT;

/** Reads a removal for the newer callback; as ConvertCmd2USBDeviceRemove, but nothing is cleared. */
KVO_HWS_API int ConvertCmd2USBDeviceRM(UsbRemoveInfo *record, char *text) KVO_HWS_NOEXCEPT;

/** @} */

KVO_HWS_END_DECLS

#endif
