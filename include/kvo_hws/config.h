/** @file
 *  The configuration file: a record with its values, the table of its keys, and accessors, which read one value each.
 *
 *  The remote agent reads the file when it starts. A program that needs the values without the agent must call ReadConfFile
 *  once, before its threads use the accessors, because neither ReadConfFile nor an accessor takes a lock.
 *  docs/configuration.md describes the keys, values and defaults.
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

/** The values of the three modes in ConfData: backlight, brightness and backlight brightness. */
enum ConfMode {
    CONF_MODE_ALL = 0,      /**< "all" */
    CONF_MODE_VISIBLE = 1,  /**< "visible" */
    CONF_MODE_NONE = 2,     /**< "none" */
    CONF_MODE_INVALID = 255 /**< any other word */
};

/** The values of the configuration file. */
typedef struct ConfData {
    uint32_t dataSet;             /**< 0 until ReadConfFile has finished, then 1; each accessor fails while it is 0 */
    char *interface;              /**< name of the network interface */
    char ipString[20];            /**< that interface's IPv4 address, dotted; empty if it has none */
    uint32_t ipValue;             /**< the same address as inet_aton stores it */
    uint16_t port;                /**< TCP port of the remote hardware service */
    char *name;                   /**< station name; the host name if the file contains no name */
    uint32_t backlight;           /**< ConfMode */
    uint32_t brightness;          /**< ConfMode */
    uint32_t backlightBrightness; /**< ConfMode */
    char registryPath[260];       /**< the daemon's registry directory, with a separator at its end */
} ConfData;

/** The configuration values of this process; all zero until ReadConfFile is called. */
extern KVO_HWS_API ConfData sConfData;

/** The keys of the configuration file, in the order in which their defaults are applied. A program may change rows before the
 *  file is read.
 */
extern KVO_HWS_API HwsKeyword hws_keywords[13];

/** Clears sConfData and reads the configuration file into it. The platform provides the name of the file
 *  (PLATFORM_CONFIG_FILE); if it does not, the file is "/etc/kvo_hws.conf". If a key or the file is missing, the defaults
 *  apply. The texts of an earlier read are not freed, because a program may still use them.
 *  Logged with LOG at LOG_DEBUG: "veltrop configuration file name: <name>", "configuration data:" and a line for each value.
 *  The line "data set" always shows 0, because the function sets dataSet after these messages.
 */
KVO_HWS_API void ReadConfFile(void) KVO_HWS_NOEXCEPT;

/** Reads the current address of the configured interface.
 *  @param ipString_out  receives the dotted address; 20 bytes
 *  @param ipValue_out   receives the address as inet_aton stores it
 *  @return 0; -1 the interface has no address ("GetIpByInterface fails with <result> ==> no IP address for interface '<name>'
 *  available"); -2 the file was not read ("config dat not set ==> no IP address for interface '<name>' available"); both are
 *  logged at LOG_ERR
 */
KVO_HWS_API int GetInterfaceIP(char *ipString_out, uint32_t *ipValue_out) KVO_HWS_NOEXCEPT;

/** Reads the TCP port of the remote hardware service.
 *  @return 0; -1 the file was not read ("no port number available" at LOG_ERR)
 */
KVO_HWS_API int GetPortNumber(uint16_t *port_out) KVO_HWS_NOEXCEPT;

/** Reads the session number: the port minus 5850. If the port is less than 5850, the unsigned result wraps around.
 *  @return 0; -1 the file was not read ("no port number available" at LOG_ERR)
 */
KVO_HWS_API int GetSessionNumber(uint32_t *session_out) KVO_HWS_NOEXCEPT;

/** Copies the station name.
 *  @param out  receives the text; must have strlen(sConfData.name) + 1 bytes
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

/** Copies the path of the registry directory.
 *  @param out  receives the text, at most 260 bytes
 *  @return 0; -1 the file was not read ("no registry path available" at LOG_ERR)
 */
KVO_HWS_API int GetRegistryPath(char *out) KVO_HWS_NOEXCEPT;

/** @} */

KVO_HWS_END_DECLS

#endif
