/** @file
 *  The configuration file: its block of values, the table of its keys, and accessors.
 *
 *  The remote agent reads the file when it starts. A program that wants the values without it calls ReadConfFile once, before
 *  its threads use the accessors: neither takes a lock. Keys, values and defaults: docs/configuration.md.
 */
#ifndef KVO_HWS_CONFIG_H
#define KVO_HWS_CONFIG_H

#include <kvo_hws/export.h>
#include <kvo_hws/platform.h>

#include <stdint.h>

KVO_HWS_BEGIN_DECLS

/** @defgroup kvo_hws_config The configuration file
 *  @{
 */

/** What a mode key says. */
enum ConfMode {
    CONF_MODE_ALL = 0,      /**< "all" */
    CONF_MODE_VISIBLE = 1,  /**< "visible" */
    CONF_MODE_NONE = 2,     /**< "none" */
    CONF_MODE_INVALID = 255 /**< none of these words */
};

/** The values of the configuration file. */
typedef struct ConfData {
    uint32_t dataSet;             /**< 0 until ReadConfFile has finished, then 1; the accessors ask it */
    char *interface;              /**< network interface */
    char ipString[20];            /**< that interface's IPv4 address, dotted; empty where it has none */
    uint32_t ipValue;             /**< the same as inet_aton stores it */
    uint16_t port;                /**< TCP port of the remote hardware service */
    char *name;                   /**< station name; the host's where the file has none */
    uint32_t backlight;           /**< ConfMode */
    uint32_t brightness;          /**< ConfMode */
    uint32_t backlightBrightness; /**< ConfMode */
    char registryPath[260];       /**< the daemon's registry folder, with a separator at its end */
} ConfData;

/** The one block of configuration values; all zero until ReadConfFile. */
extern KVO_HWS_API ConfData sConfData;

/** The keys of the configuration file, in the order in which their defaults are applied. A program may change rows before the
 *  file is read.
 */
extern KVO_HWS_API HwsKeyword hws_keywords[13];

/** Clears sConfData and reads the configuration file into it: the one that the platform names (PLATFORM_CONFIG_FILE), else
 *  "/etc/kvo_hws.conf". What the file lacks, or a file that is not there, leaves the defaults. The texts of an earlier read are
 *  not freed: a program may still hold them.
 *  Logged with LOG at LOG_DEBUG: "veltrop configuration file name: <name>", "configuration data:" and a line for each value;
 *  "data set" is 0 there, since it is set last.
 */
KVO_HWS_API void ReadConfFile(void) KVO_HWS_NOEXCEPT;

/** Reads the address of the configured interface as it is now.
 *  @param ipString_out  receives it dotted; 20 bytes
 *  @param ipValue_out   receives it as inet_aton stores it
 *  @return 0; -1 the interface has none ("GetIpByInterface fails with <result> ==> no IP address for interface '<name>'
 *  available"); -2 the file was not read ("config dat not set ==> no IP address for interface '<name>' available"); logged at LOG_ERR
 */
KVO_HWS_API int GetInterfaceIP(char *ipString_out, uint32_t *ipValue_out) KVO_HWS_NOEXCEPT;

/** Reads the TCP port of the remote hardware service.
 *  @return 0; -1 the file was not read ("no port number available" at LOG_ERR)
 */
KVO_HWS_API int GetPortNumber(uint16_t *port_out) KVO_HWS_NOEXCEPT;

/** Reads the session number: the port without 5850. A smaller port wraps round.
 *  @return 0; -1 the file was not read ("no port number available" at LOG_ERR)
 */
KVO_HWS_API int GetSessionNumber(uint32_t *session_out) KVO_HWS_NOEXCEPT;

/** Copies the station name.
 *  @param out  receives the text; must hold it, however long it is: strlen(sConfData.name) + 1 bytes
 *  @return 0; -1 the file was not read ("no RHZ/JDL name available" at LOG_ERR)
 */
KVO_HWS_API int GetRHZName(char *out) KVO_HWS_NOEXCEPT;

/** Reads the backlight mode (ConfMode).
 *  @return 0; -1 the file was not read ("no backlight mode available" at LOG_ERR)
 */
KVO_HWS_API int GetBacklightMode(uint32_t *mode_out) KVO_HWS_NOEXCEPT;

/** Reads the brightness mode (ConfMode).
 *  @return 0; -1 the file was not read ("no brightness mode available" at LOG_ERR)
 */
KVO_HWS_API int GetBrightnessMode(uint32_t *mode_out) KVO_HWS_NOEXCEPT;

/** Reads the backlight brightness mode (ConfMode).
 *  @return 0; -1 the file was not read ("no backlight brightness mode available" at LOG_ERR)
 */
KVO_HWS_API int GetBacklightBrightnessMode(uint32_t *mode_out) KVO_HWS_NOEXCEPT;

/** Copies the registry folder.
 *  @param out  receives the text, at most 260 bytes
 *  @return 0; -1 the file was not read ("no registry path available" at LOG_ERR)
 */
KVO_HWS_API int GetRegistryPath(char *out) KVO_HWS_NOEXCEPT;

/** @} */

KVO_HWS_END_DECLS

#endif
