/** @file
 *  The functions and variables that the library imports from two libraries of the panel, libpavo.so.1 and libdrak.so. The
 *  project contains a stand-in for each of them, which works on any Linux host. On a panel, the panel's libraries replace the
 *  stand-ins at run time.
 */
#ifndef KVO_HWS_PLATFORM_H
#define KVO_HWS_PLATFORM_H

#include <kvo_hws/export.h>

#include <stdint.h>

KVO_HWS_BEGIN_DECLS

/** @defgroup kvo_hws_platform libpavo.so.1: network adapters, platform texts, clock and threads
 *  @{
 */

/** Ids of platform texts. */
enum PlatformMetric {
    PLATFORM_INTERFACE_NAME = 0x10000, /**< the internal network interface, such as "eth0" */
    PLATFORM_CONFIG_FILE = 0x40000     /**< the name of the configuration file */
};

/** Reads a platform text.
 *  @return the text, which the platform owns; null if the platform does not define it
 *
 *  The stand-in returns as the interface the environment variable KVO_PLATFORM_INTERFACE, else "eth0" if that interface exists,
 *  else the first interface that is up and is not a loopback, else "lo". As the configuration file it returns the environment
 *  variable KVO_PLATFORM_CONFIG, else null.
 */
KVO_HWS_API const char *libpavo_getMetric(unsigned long id) KVO_HWS_NOEXCEPT;

/** Reads the IPv4 address of an interface.
 *  @param ipString  receives the dotted address; 20 bytes
 *  @param ipValue   receives the address as inet_aton stores it
 *  @return 0; not 0 if the interface has no address, and nothing is stored
 */
KVO_HWS_API int GetIpByInterface(const char *interface, char *ipString, uint32_t *ipValue) KVO_HWS_NOEXCEPT;

/** Selects the adapter for the three functions below. */
KVO_HWS_API void setAdapterInterfaceCache(const char *interface) KVO_HWS_NOEXCEPT;

/** Reads the selected adapter's values into the cache.
 *  @param refresh  not 0: read again even if the cache contains this adapter
 *  @return 0; not 0 if the adapter does not exist, and the cache is cleared
 */
KVO_HWS_API int getAdapterValuesDirect(int refresh) KVO_HWS_NOEXCEPT;

/** The cached hardware address; zeros if the adapter has none. */
KVO_HWS_API void getAdapterMacCache(uint8_t mac[6]) KVO_HWS_NOEXCEPT;

/** The cached broadcast address as inet_aton stores it. For an adapter that cannot broadcast (the loopback), the stand-in
 *  returns the adapter's own address. A datagram to that address arrives.
 */
KVO_HWS_API uint32_t getAdapterBroadcastCache(void) KVO_HWS_NOEXCEPT;

/** Milliseconds of a monotonic clock. */
KVO_HWS_API uint64_t GetTickCount64(void) KVO_HWS_NOEXCEPT;

/** The calling thread's id. */
KVO_HWS_API unsigned long GetCurrentThreadId(void) KVO_HWS_NOEXCEPT;

/** @} */

/** @defgroup kvo_hws_platform_config libdrak.so: the configuration file reader
 *  @{
 */

/** One keyword of a configuration file; a row of six machine words. A table ends with a row whose key is empty or null. */
typedef struct HwsKeyword {
    const char *key;                                     /**< the key, as the file spells it */
    int (*reader)(const char *value, void *destination); /**< returns 1 if it accepts the value, else 0 */
    void *destination;                                   /**< passed to the reader unchanged */
    const char *defaultText;                             /**< null or empty: no default is applied */
    uintptr_t flags;                                     /**< used only by the platform */
    uintptr_t zero;                                      /**< used only by the platform */
} HwsKeyword;

/** The table that read_conf uses. The caller of read_conf sets this pointer to its own table. */
extern KVO_HWS_API HwsKeyword *keywords;

/** Reads a configuration file with the table that keywords points to. First it applies the defaults in the order of the rows,
 *  then the lines of the file in their order. If several of them set the same variable, the last one wins.
 *  @param block  block[0] is the file's name; read_conf uses the other three elements for itself
 *  @return 0; not 0 if the file could not be read (the defaults are applied nevertheless) or keywords is null
 *
 *  The stand-in reads lines of the form "key = value". A "#" at the beginning of a line or after a blank begins a comment. The
 *  stand-in ignores blanks around the key and the value, and unknown keys.
 */
KVO_HWS_API int read_conf(void *block[4]) KVO_HWS_NOEXCEPT;

/** Reader for an interface name: stores a newly allocated copy of the text in a char *. The name of this function is historic;
 *  it does not read a number.
 *  @return 1; 0 out of memory
 */
KVO_HWS_API int read_int(const char *value, void *destination) KVO_HWS_NOEXCEPT;

/** Reader for a text: stores a newly allocated copy in a char *.
 *  @return 1; 0 out of memory
 */
KVO_HWS_API int read_str(const char *value, void *destination) KVO_HWS_NOEXCEPT;

/** Reader for a number: stores 0 to 65535 in a uint16_t.
 *  @return 1; 0 if the text is not such a number, and nothing is stored
 */
KVO_HWS_API int read_u16(const char *value, void *destination) KVO_HWS_NOEXCEPT;

/** @} */

KVO_HWS_END_DECLS

#endif
