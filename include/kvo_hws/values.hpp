/** @file
 *  The values that the requests of the C++ interface return and take.
 */
#ifndef KVO_HWS_VALUES_HPP
#define KVO_HWS_VALUES_HPP

#include <kvo_hws/address.hpp>

#include <cstdint>
#include <optional>
#include <string>

namespace kvo {

/** @defgroup kvo_cpp_values Values in C++
 *  The values of the requests. The daemon defines the meaning of attributes and of numbers without an enumeration.
 *  @{
 */

/** A station in a list. */
struct StationDescription {
    Address address;         /**< the station's address; in a registry list 255.255.255.255 for a malformed one */
    std::string name;        /**< at most 259 bytes */
    std::uint32_t attr1 = 0; /**< attribute, defined by the daemon */
    std::uint32_t attr2 = 0; /**< likewise */
    std::uint32_t attr3 = 0; /**< likewise */
};

/** A station with its extended attributes. */
struct StationDescriptionEx : StationDescription {
    std::uint32_t ext_attr1 = 0; /**< extended attribute, defined by the daemon */
    std::uint32_t ext_attr2 = 0; /**< likewise */
    std::uint32_t ext_attr3 = 0; /**< likewise */
    std::uint32_t ext_attr4 = 0; /**< likewise */
    std::uint32_t ext_attr5 = 0; /**< likewise */
    std::uint32_t ext_attr6 = 0; /**< likewise */
    std::uint32_t ext_attr7 = 0; /**< likewise */
};

/** A connected client. */
struct Client {
    std::uint32_t value = 0; /**< the daemon's number for it */
    std::string name;        /**< at most 259 bytes */
};

/** The server that a station's viewer shows. */
struct CurrentServer {
    std::string server;  /**< name or address, at most 1024 bytes */
    std::string display; /**< the display, as the daemon sends it; at most 1024 bytes */
};

/** A station's suspend options. */
struct Priority {
    bool suspend_lock = false;      /**< true if the station's focus is locked; false if the daemon omits it */
    std::uint32_t suspend_prio = 1; /**< 1 to 10; 1 if the daemon omits it */
};

/** The calibration of a touch screen. */
struct Calibration {
    std::int32_t press_threshold = 0; /**< -1 or more; 0 if the reply does not contain it */
    std::int32_t nonlinear = 0;       /**< -1, 0 or 1; 0 if the reply does not contain it */
};

/** The numbers of a station's input devices. A number that the station does not report is empty. */
struct InputDevices {
    std::optional<std::uint32_t> keyboards;    /**< keyboards */
    std::optional<std::uint32_t> mice;         /**< mice */
    std::optional<std::uint32_t> touch;        /**< touch devices; only show_input_device_v3() excludes multi-touch devices */
    std::optional<std::uint32_t> multitouch;   /**< multi-touch devices; only show_input_device_v3() */
    std::optional<std::uint32_t> max_contacts; /**< contacts at the same time; only show_input_device_v3() */
    std::optional<std::uint32_t> virtual_keyboards; /**< virtual keyboards; not show_input_device() */
};

/** The USB lock of a station. */
struct UsbLock {
    std::uint32_t first = 0;  /**< first number, defined by the daemon */
    std::uint32_t second = 0; /**< second number, likewise */
};

/** The brightness of a station (Station::set_brightness). */
enum class Brightness : std::uint32_t {
    dark = 0,  /**< dark */
    bright = 1 /**< bright */
};

/** The backlight of the panel that the program runs on (Service::set_backlight). */
enum class Backlight : std::uint32_t {
    off = 0, /**< off */
    on = 1   /**< on */
};

/** The mode of a handheld terminal of type RV4. A station may report other numbers. */
enum class Rv4Mode : std::uint32_t {
    automatic = 0, /**< "auto" */
    individual = 1 /**< "individual" */
};

/** The debug level of the daemon. */
enum class DebugLevel : std::int32_t {
    none = 0,    /**< DEBUG_LEVEL_NONE */
    level_1 = 1, /**< DEBUG_LEVEL_I */
    level_2 = 2  /**< DEBUG_LEVEL_II */
};

/** A metric of a station that is a number (Station::metric); Station::panel_layout() reads the one that is a text. */
enum class Metric : std::uint32_t {
    soft_key_type = 2,         /**< soft key type, an even number */
    keyboard_capabilities = 3, /**< keyboard capabilities */
    dpi = 4,                   /**< dots per inch */
    hardware_capabilities = 5, /**< hardware capabilities */
    panel_rotation = 6         /**< panel rotation, 1 to 4 */
};

/** @} */

}  // namespace kvo

#endif
