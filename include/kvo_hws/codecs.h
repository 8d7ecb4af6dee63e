/** @file
 *  Records of the daemon as text: station descriptions and USB events.
 *
 *  A description text consists of a count and fixed-width fields. One space follows each field, including the last one:
 *
 *      list      <count>{<address> <attr1> <attr2> <attr3> <name length> <name> }
 *      extended  <count>{<address> <attr1> <attr2> <attr3> <name length> <name> <extAttr1> ... <extAttr7> }
 *      clients   <count>{<value> <name length> <name> }
 *
 *  Numbers are 8 upper-case hexadecimal digits. The name is raw bytes of the given length, so it may contain spaces. An empty
 *  list is "00000000 ". The daemon defines the meaning of the attributes; they are copied unchanged.
 *
 *  The size that a writer returns is at most INT_MAX; it returns INT_MAX if more bytes are required.
 *
 *  A USB event text is one line of fields. An asterisk follows each field, including the last one:
 *
 *      newUSBdevice*<ipAddress>*<ident2>*<ident3>*<text4>*<text5>*<text6>*<text7>*<number1>*<number2>*<flag word>*<id1>*<id2>*<bytes>*
 *      ignoreUSBdevice*<ipAddress>*<ident2>*<ident3>*<text4>*<text5>*<text8>*<number1>*<number2>*<number3>*
 *      changeStateUSBdevice*<ipAddress>*<ident2>*<ident3>*<state>*
 *      removeUSBdevice*<ipAddress>*<ident2>*<ident3>*
 *
 *  Numbers are upper-case hexadecimal: 8 digits; 4 digits for id1, id2 and number3; 2 digits and a space for each of the 64
 *  bytes. The reader splits fields like strtok, which skips empty fields. Therefore an empty text is sent as the 20 bytes
 *  "?$?\xA7?eEmMpPtTyY!\xA7!$!", except in the text of a removal. The daemon defines the meaning of the fields.
 *
 *  The functions take no lock, log nothing and keep no state between calls. They allocate only the texts that the USB writers
 *  return. Any thread may call them. Pointers must not be null unless stated otherwise.
 */
#ifndef KVO_HWS_CODECS_H
#define KVO_HWS_CODECS_H

#include <kvo_hws/export.h>

#include <stdint.h>

KVO_HWS_BEGIN_DECLS

/** @defgroup kvo_hws_descriptions Station descriptions
 *  @{
 */

/** A station, in the form that programs receive. */
typedef struct KvoDescription {
    uint32_t address; /**< IPv4 address as a number, 0x0A000005 for 10.0.0.5; in a registry list as inet_addr stores it */
    char name[260];   /**< null-terminated */
    uint32_t attr1, attr2, attr3; /**< attributes, defined by the daemon */
} KvoDescription;

/** A station with its extended attributes. */
typedef struct KvoDescriptionEx {
    uint32_t address;             /**< IPv4 address as a number: 0x0A000005 is 10.0.0.5 */
    char name[260];               /**< null-terminated */
    uint32_t attr1, attr2, attr3; /**< attributes, defined by the daemon */
    uint32_t extAttr1, extAttr2, extAttr3, extAttr4, extAttr5, extAttr6, extAttr7; /**< extended attributes, likewise */
} KvoDescriptionEx;

/** A connected client, in the form that programs receive. */
typedef struct KvoClientEntry {
    uint32_t value; /**< the daemon's number for it */
    char name[260]; /**< null-terminated */
} KvoClientEntry;

/** A station, in the daemon's form. Only the daemon uses the reserved members; this library neither reads nor writes them. */
typedef struct ConnectionEntry {
    uint32_t reservedHead[4];                                  /**< used only by the daemon */
    uint32_t address;                                          /**< IPv4 address as a number */
    uint32_t reservedAddress;                                  /**< used only by the daemon */
    char name[260];                                            /**< null-terminated */
    uint32_t attr1, attr2, attr3;                              /**< attributes */
    uint32_t reservedMiddle[4];                                /**< used only by the daemon */
    uint32_t extAttr1;                                         /**< extended attribute */
    uint32_t reservedExtended[2];                              /**< used only by the daemon */
    uint32_t extAttr2, extAttr3, extAttr4, extAttr5, extAttr6; /**< extended attributes */
    unsigned long extAttr7;                                    /**< extended attribute; only its low 32 bits are written */
    uint32_t reservedTail[4];                                  /**< used only by the daemon */
} ConnectionEntry;

/** A connected client, in the daemon's form. Unlike in KvoClientEntry, the name is the first member; this is intended. */
typedef struct ConnectionClientEntry {
    char name[260]; /**< null-terminated */
    uint32_t value; /**< the daemon's number for it */
} ConnectionClientEntry;

/** @} */

/** @defgroup kvo_hws_usb_texts USB event texts
 *  The daemon writes these texts, and the library reads them. The functions that read modify the text in place, accept any
 *  keyword, and cut a field that is too long to the size of its member. After an error, the fields before it are stored.
 *  @{
 */

/** A USB device, in the daemon's form. A text that fills its member needs no terminator. */
typedef struct UsbDeviceSource {
    uint8_t reserved[16]; /**< used only by the daemon, never read here */
    char ipAddress[16];   /**< the station that reports the device, dotted */
    char ident2[32];      /**< identifies the device within a station, together with ident3 */
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
    uint32_t state;       /**< sent with a change of state; if it is not 0, the flag word of a new device is 0 */
    char text8[80];       /**< of a refused device only */
    uint16_t number3;     /**< of a refused device only */
} UsbDeviceSource;

/** Flags of the daemon. This library uses only the report bit. */
typedef struct UsbDaemonContext {
    uint8_t flags; /**< bit 0: report new devices */
} UsbDaemonContext;

/** A station, in the daemon's form for removals. */
typedef struct UsbStationRecord {
    uint32_t reserved; /**< used only by the daemon */
    uint32_t address;  /**< IPv4 address as inet_aton stores it */
    char text[260];    /**< the device text */
} UsbStationRecord;

/** A new device, in the form that the older callback receives; 264 bytes. */
typedef struct UsbDeviceV1 {
    char ipAddress[16]; /**< the station, dotted */
    char ident2[32];    /**< identifies the device within a station, together with ident3 */
    char ident3[32];    /**< see ident2 */
    uint32_t number1;   /**< number of the device */
    uint16_t id1;       /**< of a new device */
    uint16_t reserved;  /**< never set */
    char text4[21];     /**< text of the device */
    uint8_t noText5;    /**< set by the caller: if not 0, text5 is not stored */
    char text5[10];     /**< text of the device */
    char text6[40];     /**< text of a new device */
    char text7[40];     /**< text of a new device */
    uint8_t bytes[64];  /**< with the daemon's current texts only the first byte is set, to the low byte of id2 */
} UsbDeviceV1;

/** A new or refused device, in the form that the newer callback receives; 208 bytes, of which a refused device uses 204. */
typedef struct UsbDeviceInfo {
    char ipAddress[16]; /**< the station, dotted */
    char ident2[32];    /**< identifies the device within a station, together with ident3 */
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
        uint16_t number3;  /**< of a refused device: the low 8 bits of the number that was sent */
    };
    uint8_t flagBits; /**< of a new device: bit 0 is id1 & 1, bits 1 and 2 are id2 & 3, bit 3 is bit 31 of flagWord */
} UsbDeviceInfo;

/** A device that changed its state; 84 bytes. */
typedef struct UsbStateInfo {
    char ipAddress[16]; /**< the station, dotted */
    char ident2[32];    /**< identifies the device within a station, together with ident3 */
    char ident3[32];    /**< see ident2 */
    uint32_t state;     /**< the device's new state */
} UsbStateInfo;

/** A device that was removed; 80 bytes. */
typedef struct UsbRemoveInfo {
    char ipAddress[16]; /**< the station, dotted */
    char ident2[32];    /**< identifies the device within a station, together with ident3 */
    char ident3[32];    /**< see ident2 */
} UsbRemoveInfo;

/** @} */

/** @addtogroup kvo_hws_descriptions
 *  @{
 */

/** Writes a station list.
 *  @param count    number of entries
 *  @param entries  the stations
 *  @param buffer   receives the text, null-terminated; may be null when @p size is 0
 *  @param size     bytes in @p buffer
 *  @return 0 written; else the required number of bytes, and nothing was written: 17 + 45 * count + the sum of (name length +
 *  3)
 */
KVO_HWS_API int ConvertConArray2Text(uint32_t count, const ConnectionEntry *entries, char *buffer,
                                     uint32_t size) KVO_HWS_NOEXCEPT;

/** Writes an extended station list. Works as ConvertConArray2Text, but with 108 bytes per station instead of 45. */
KVO_HWS_API int ConvertConArray2TextEx(uint32_t count, const ConnectionEntry *entries, char *buffer,
                                       uint32_t size) KVO_HWS_NOEXCEPT;

/** Writes a client list. Works as ConvertConArray2Text, but with 18 bytes per client instead of 45. */
KVO_HWS_API int ConvertConArray2TextClients(uint32_t count, const ConnectionClientEntry *clients, char *buffer,
                                            uint32_t size) KVO_HWS_NOEXCEPT;

/** Writes one station in the extended form, without a count before it.
 *  @return 1; -1 @p size is less than the name's length + 117, nothing was written
 */
KVO_HWS_API int ConvertConElem2TextEx(const ConnectionEntry *entry, char *buffer, uint32_t size) KVO_HWS_NOEXCEPT;

/** Reads a station list.
 *  @param count  receives the count in the text, even if the rest is malformed
 *  @param array  receives the stations; must be large enough for all: compare its capacity with the result of
 *                GetCountKVODescriptionsFromText first
 *  @param text   the description text
 *  @return 1; -1 a number without a space after it, a name longer than 259 bytes, or the text ends early; the elements before
 *  the error are filled
 *
 *  If the text ends inside the last name, the function accepts it and stores the part of the name that is present.
 */
KVO_HWS_API int ConvertText2KVODescriptionArray(uint32_t *count, KvoDescription *array, const char *text) KVO_HWS_NOEXCEPT;

/** Reads an extended station list. Works as ConvertText2KVODescriptionArray, but every name must be complete. */
KVO_HWS_API int ConvertText2KVODescArrayEx(uint32_t *count, KvoDescriptionEx *array, const char *text) KVO_HWS_NOEXCEPT;

/** Reads a client list. Works as ConvertText2KVODescriptionArray. */
KVO_HWS_API int ConvertText2KVOClientArray(uint32_t *count, KvoClientEntry *array, const char *text) KVO_HWS_NOEXCEPT;

/** Reads one extended station without a count before it.
 *  @return 1; -1 malformed
 */
KVO_HWS_API int ConvertText2KVODescEx(KvoDescriptionEx *record, const char *text) KVO_HWS_NOEXCEPT;

/** Reads the count at the beginning of a list text.
 *  @return the count; 0xFFFFFFFF if no space follows it
 */
KVO_HWS_API uint32_t GetCountKVODescriptionsFromTextEx(const char *text) KVO_HWS_NOEXCEPT;

/** The same as GetCountKVODescriptionsFromTextEx. */
KVO_HWS_API uint32_t GetCountKVODescriptionsFromText(const char *text) KVO_HWS_NOEXCEPT;

/** @} */

/** @addtogroup kvo_hws_usb_texts
 *  @{
 */

/** Writes the text of a new device.
 *  @param context  only its report bit is used
 *  @param device   the device
 *  @return the text, without a line feed and cut at 1023 characters; the caller frees it. Null if memory runs out
 *
 *  The flag word is 08000000 if the report bit is set and the device's state is 0, else 00000000. This bit is intentionally not
 *  the one that the reader copies to UsbDeviceInfo::flagBits.
 */
KVO_HWS_API char *ConvertUSBDeviceNew2Cmd(const UsbDaemonContext *context, const UsbDeviceSource *device) KVO_HWS_NOEXCEPT;

/** Writes the text of a refused device. Returns the text as ConvertUSBDeviceNew2Cmd does. */
KVO_HWS_API char *ConvertUSBDeviceIM2Cmd(const UsbDeviceSource *device) KVO_HWS_NOEXCEPT;

/** Writes the text of a device that changed its state. Returns the text as ConvertUSBDeviceNew2Cmd does. */
KVO_HWS_API char *ConvertUSBDeviceCS2Cmd(const UsbDeviceSource *device) KVO_HWS_NOEXCEPT;

/** Writes the text of a removed device. Returns the text as ConvertUSBDeviceNew2Cmd does.
 *  @param station  its address is sent as ipAddress, its text as ident2
 *  @param extra    sent as ident3
 *
 *  This function sends empty texts as empty fields. The reader rejects a text with an empty field.
 */
KVO_HWS_API char *ConvertUSBDeviceRemove2Cmd(const UsbStationRecord *station, const char *extra) KVO_HWS_NOEXCEPT;

/** Reads a new device for the older callback.
 *  @param record  receives the fields; the caller must clear it first
 *  @param text    the event text; modified, do not use it afterwards
 *  @return 1; else the first error: missing -1 keyword, -2 ipAddress, -3 ident2, -4 ident3, -5 text4, -6 text5, -7 text6, -8
 *  text7, -9 number1, -11 number2, -20 flag word, -18 id1, -13 the byte block; malformed -10 number1, -19 number2, -17 flag
 *  word, -12 id1
 *
 *  The function reads the field after id1 as the byte block, because the old format had no id2 before the block. In current
 *  texts that field is id2. Therefore the first byte becomes the low byte of id2, and no other byte is set. Old programs rely
 *  on this.
 */
KVO_HWS_API int ConvertCmd2USBDeviceNew(UsbDeviceV1 *record, char *text) KVO_HWS_NOEXCEPT;

/** Reads a new device for the newer callback.
 *  @return 1; else the first error: missing -1 keyword, -2 ipAddress, -3 ident2, -4 ident3, -5 text4, -6 text5, -7 text6, -8
 *  text7, -9 number1, -11 number2, -20 flag word, -18 id1, -13 id2, -15 the byte block; malformed -10 number1, -19
 *  number2, -17 flag word, -12 id1, -14 id2
 *
 *  The content of the byte block is ignored, because this record has no member for it.
 */
KVO_HWS_API int ConvertCmd2USBDeviceNM(UsbDeviceInfo *record, char *text) KVO_HWS_NOEXCEPT;

/** Reads a refused device.
 *  @return 1; else the first error: missing -1 keyword, -2 ipAddress, -3 ident2, -4 ident3, -5 text4, -6 text5, -7 text8, -8
 *  number1, -11 number2, -13 number3; malformed -10 number1, -12 number2, -14 number3
 *
 *  Two members belong only to a new device and stay unchanged: flagBits, and the upper half of flagWord.
 */
KVO_HWS_API int ConvertCmd2USBDeviceIM(UsbDeviceInfo *record, char *text) KVO_HWS_NOEXCEPT;

/** Reads a change of state.
 *  @return 1; else the first error: missing -1 keyword, -2 ipAddress, -3 ident2, -4 ident3, -5 state; malformed -10 state
 */
KVO_HWS_API int ConvertCmd2USBDeviceCS(UsbStateInfo *record, char *text) KVO_HWS_NOEXCEPT;

/** Reads a removal for the older callback.
 *  @param record  the beginning of an area of 264 bytes; the function clears the whole area first
 *  @return 1; -1 a field is missing
 */
KVO_HWS_API int ConvertCmd2USBDeviceRemove(UsbRemoveInfo *record, char *text) KVO_HWS_NOEXCEPT;

/** Reads a removal for the newer callback. Works as ConvertCmd2USBDeviceRemove, but clears nothing. */
KVO_HWS_API int ConvertCmd2USBDeviceRM(UsbRemoveInfo *record, char *text) KVO_HWS_NOEXCEPT;

/** @} */

KVO_HWS_END_DECLS

#endif
