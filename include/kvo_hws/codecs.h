/** @file
 *  Station descriptions as records and as text.
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
 *  All functions here are pure: no lock, no allocation, no log. They may be called from any thread.
 */
#ifndef KVO_HWS_CODECS_H
#define KVO_HWS_CODECS_H

#include <kvo_hws/export.h>

#include <stdint.h>

KVO_HWS_BEGIN_DECLS

/** A station, as a program sees it. */
typedef struct KvoDescription {
    uint32_t address; /**< IPv4 address as a number, 0x0A000005 for 10.0.0.5; a registry list has it as inet_addr stores it */
    char name[260];
    uint32_t attr1, attr2, attr3;
} KvoDescription;

/** A station with its extended attributes. */
typedef struct KvoDescriptionEx {
    uint32_t address; /**< IPv4 address as a number: 0x0A000005 is 10.0.0.5 */
    char name[260];
    uint32_t attr1, attr2, attr3;
    uint32_t extAttr1, extAttr2, extAttr3, extAttr4, extAttr5, extAttr6, extAttr7;
} KvoDescriptionEx;

/** A connected client, as a program sees it. */
typedef struct KvoClientEntry {
    uint32_t value;
    char name[260];
} KvoClientEntry;

/** A station, as the daemon keeps it; the reserved members are the daemon's own and never touched. */
typedef struct ConnectionEntry {
    uint32_t reservedHead[4];
    uint32_t address;
    uint32_t reservedAddress;
    char name[260];
    uint32_t attr1, attr2, attr3;
    uint32_t reservedMiddle[4];
    uint32_t extAttr1;
    uint32_t reservedExtended[2];
    uint32_t extAttr2, extAttr3, extAttr4, extAttr5, extAttr6;
    unsigned long extAttr7; /**< its low 32 bits are written */
    uint32_t reservedTail[4];
} ConnectionEntry;

/** A connected client, as the daemon keeps it. The name comes first here, on purpose: KvoClientEntry has it second. */
typedef struct ConnectionClientEntry {
    char name[260];
    uint32_t value;
} ConnectionClientEntry;

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

KVO_HWS_END_DECLS

#endif
