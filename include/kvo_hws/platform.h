/** @file
 *  What the library imports from the panel's own two libraries, libpavo.so.1 and libdrak.so. The project brings stand-ins
 *  for both that work on any Linux host; on a panel its own builds take their place at run time.
 */
#ifndef KVO_HWS_PLATFORM_H
#define KVO_HWS_PLATFORM_H

#include <kvo_hws/export.h>

#include <stdint.h>

KVO_HWS_BEGIN_DECLS

/** @defgroup kvo_hws_platform libpavo.so.1: the network adapters, platform texts, clock and threads
 *  @{
 */

/** Ids of platform texts. */
enum PlatformMetric {
    PLATFORM_INTERFACE_NAME = 0x10000, /**< the internal network interface, such as "eth0" */
    PLATFORM_CONFIG_FILE = 0x40000     /**< the configuration file's name */
};

/** Reads a platform text.
 *  @return the text, which stays the platform's; null where the platform does not say
 *
 *  Stand-in: the interface is KVO_PLATFORM_INTERFACE from the environment, else "eth0" where it exists, else the first
 *  interface that is up and no loopback, else "lo"; the configuration file is KVO_PLATFORM_CONFIG, else null.
 */
KVO_HWS_API const char *libpavo_getMetric(unsigned long id) KVO_HWS_NOEXCEPT;

/** Reads the IPv4 address of an interface.
 *  @param ipString  receives the dotted address; 20 bytes
 *  @param ipValue   receives the address as inet_aton stores it
 *  @return 0; not 0 when the interface has none, and nothing is stored
 */
KVO_HWS_API int GetIpByInterface(const char *interface, char *ipString, uint32_t *ipValue) KVO_HWS_NOEXCEPT;

/** Selects the adapter for the three functions below. */
KVO_HWS_API void setAdapterInterfaceCache(const char *interface) KVO_HWS_NOEXCEPT;

/** Reads the selected adapter's values into the cache.
 *  @param refresh  not 0: read anew even when the cache holds this adapter
 *  @return 0; not 0 when there is no such adapter, and the cache is cleared
 */
KVO_HWS_API int getAdapterValuesDirect(int refresh) KVO_HWS_NOEXCEPT;

/** The cached hardware address; zeros when it has none. */
KVO_HWS_API void getAdapterMacCache(uint8_t mac[6]) KVO_HWS_NOEXCEPT;

/** The cached broadcast address as inet_aton stores it. Stand-in: an adapter that cannot broadcast (the loopback) gives its
 *  own address, so that a datagram sent there arrives.
 */
KVO_HWS_API uint32_t getAdapterBroadcastCache(void) KVO_HWS_NOEXCEPT;

/** Milliseconds of a clock that never goes back. */
KVO_HWS_API uint64_t GetTickCount64(void) KVO_HWS_NOEXCEPT;

/** The calling thread's number. */
KVO_HWS_API unsigned long GetCurrentThreadId(void) KVO_HWS_NOEXCEPT;

/** @} */

/** @defgroup kvo_hws_platform_config libdrak.so: the configuration file reader
 *  @{
 */

/** One keyword of a configuration file; six words a row. A table ends with a row whose key is empty or null. */
typedef struct HwsKeyword {
    const char *key;                                     /**< as the file spells it */
    int (*reader)(const char *value, void *destination); /**< 1 accepted, 0 not */
    void *destination;                                   /**< handed to the reader as it is */
    const char *defaultText;                             /**< null or empty: no default is applied */
    uintptr_t flags;                                     /**< the platform's own */
    uintptr_t zero;                                      /**< the platform's own */
} HwsKeyword;

/** The table that read_conf reads by; the caller points it at its own. */
extern KVO_HWS_API HwsKeyword *keywords;

/** Reads a configuration file by the table that keywords points to: the defaults of its rows in their order, then the
 *  file's lines in theirs; the last one that sets a member wins.
 *  @param block  block[0] is the file's name; the other three words are the reader's own
 *  @return 0; not 0 when the file could not be read (the defaults are applied all the same) or there is no table
 *
 *  Stand-in: "key = value" lines; "#" at a line's start or behind a blank begins a comment; blanks around key and value do
 *  not count, unknown keys are passed over.
 */
KVO_HWS_API int read_conf(void *block[4]) KVO_HWS_NOEXCEPT;

/** Reader for an interface name: stores a newly allocated copy of the text in a char * (historic name: no number is read).
 *  @return 1; 0 out of memory
 */
KVO_HWS_API int read_int(const char *value, void *destination) KVO_HWS_NOEXCEPT;

/** Reader for a text: stores a newly allocated copy in a char *.
 *  @return 1; 0 out of memory
 */
KVO_HWS_API int read_str(const char *value, void *destination) KVO_HWS_NOEXCEPT;

/** Reader for a number: stores 0 to 65535 in a uint16_t.
 *  @return 1; 0 when the text is no such number, and nothing is stored
 */
KVO_HWS_API int read_u16(const char *value, void *destination) KVO_HWS_NOEXCEPT;

/** @} */

KVO_HWS_END_DECLS

#endif
