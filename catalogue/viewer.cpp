// The viewer of a station, its status line, focus and reboot.
#include "catalogue/catalogue.h"

#include <kvo_hws/requests.h>

namespace catalogue {

namespace {

std::vector<Request> stationAround()
{
    return {
        CATALOGUE_REQUEST(KVO_HWS_setStatusline, "set status line")
            .asks("setStatusline=0A000005,1,2,Hello", {station, 1, 2, "Hello"})
            .on("ok", 1)
            .sends("setStatusline=0A000005,4294967295,4294967294,", {station, 0xFFFFFFFF, 0xFFFFFFFE, ""})
            .nullPointer({station, 1, 2, nullptr})
            .soak({1, -1, -2})
            .kvoctl("viewer status-line", {kHere, "1", "2", "Hello"})
            .wire("`setStatusline=`*station*`,`*number*`,`*number*`,`*text*", "`ok`, `failed`",
                  "sets the status line; the station comes first, and the text is the rest of the line")
            .cpp("Station::set_statusline")
            .python("Panel.set_statusline"),

        CATALOGUE_REQUEST(KVO_HWS_rebootKVO, "set reboot")
            .asks("reboot=0A000005", {station})
            .on("ok", 1)
            .kvoctl("viewer reboot", {kHere})
            .wire("`reboot=`*station*", "`ok`, `failed`",
                  "reboots the station; its viewer stops, and status line, simulated key, software CapsLock and focus are lost")
            .cpp("Station::reboot")
            .python("Panel.reboot"),

        CATALOGUE_REQUEST(KVO_HWS_isViewerActive, "is viewer active")
            .asks("isViewerActive=0A000005", {station})
            .on("active", 1)
            .on("not active", 0)
            .unknown("Active")
            .soak({1, 0, -1, -2})
            .kvoctl("viewer active", {kHere})
            .shows("active", "yes\n", R"({"active": true})")
            .shows("not active", "no\n", R"({"active": false})", 1)
            .wire("`isViewerActive=`*station*", "`active`, `not active`, `failed`", "reports whether the viewer is running")
            .cpp("Station::is_viewer_active")
            .python("Panel.is_viewer_active"),

        CATALOGUE_REQUEST(KVO_HWS_setActivateMe, "activate me")
            .asks("activateMe=0A000005", {station})
            .on("ok", 1)
            .on("busy", 0)
            .soak({1, 0, -1, -2})
            .kvoctl("viewer activate-me", {kHere})
            .wire("`activateMe=`*station*", "`ok`, `busy`, `failed`",
                  "gives the station the focus; `busy` if another station has just received it")
            .cpp("Station::activate_me")
            .python("Panel.activate"),
    };
}

std::vector<Request> startAndStop()
{
    return {
        // The message of the null check begins with "set start viewer", all others with "start viewer".
        CATALOGUE_REQUEST(KVO_HWS_setStartViewer, "start viewer")
            .asks("startViewer=\"a:b:c\" 0A000005", {station, "a", "b", "c"})
            .on("ok", 1)
            .on("busy", 0)
            .nullPointer({station, nullptr, "b", "c"}, "set start viewer")
            .nullPointer({station, "a", nullptr, "c"}, "set start viewer")
            .nullPointer({station, "a", "b", nullptr}, "set start viewer")
            .kvoctl("viewer start", {kHere, "a", "b", "c"})
            .wire("`startViewer=\"`*server*`:`*display*`:`*options*`\" `*station*", "`ok`, `busy`, `failed`",
                  "starts the viewer; `busy` while one is running or another user operates it")
            .cpp("Station::start_viewer")
            .python("Panel.start_viewer"),

        CATALOGUE_REQUEST(KVO_HWS_startConfiguredViewer, "start configured viewer")
            .asks("startConfiguredViewer=\"cfg:3\" 0A000005", {station, "cfg", 3})
            .on("ok", 1)
            .on("busy", 0)
            .sends("startConfiguredViewer=\"cfg:4294967295\" 0A000005", {station, "cfg", 0xFFFFFFFF})
            .nullPointer({station, nullptr, 3})
            .soak({1, 0, -1, -2})
            .kvoctl("viewer start-configured", {kHere, "cfg", "3"})
            .wire("`startConfiguredViewer=\"`*server*`:`*number*`\" `*station*", "`ok`, `busy`, `failed`",
                  "starts the viewer for a configured connection; `busy` as for `startViewer`")
            .cpp("Station::start_configured_viewer")
            .python("Panel.start_configured_viewer"),

        CATALOGUE_REQUEST(KVO_HWS_setStopViewer, "stop viewer")
            .asks("stopViewer=0A000005", {station})
            .on("ok", 1)
            .on("not running", 0)
            .unknown("not running ")
            .soak({1, 0, -1, -2})
            .kvoctl("viewer stop", {kHere})
            .wire("`stopViewer=`*station*", "`ok`, `not running`, `failed`", "stops the viewer and clears the status line")
            .cpp("Station::stop_viewer")
            .python("Panel.stop_viewer"),

        CATALOGUE_REQUEST(KVO_HWS_setStopViewerPreempt, "stop viewer preempt")
            .asks("stopViewerPreempt=0A000005", {station})
            .on("ok", 1)
            .on("not running", 0)
            .kvoctl("viewer stop", {kHere, "--preempt"})
            .wire("`stopViewerPreempt=`*station*", "`ok`, `not running`, `failed`",
                  "stops the viewer ahead of other waiting requests, and clears the status line")
            .cpp("Station::stop_viewer_preempt")
            .python("Panel.stop_viewer_preempt"),

        CATALOGUE_REQUEST(KVO_HWS_setStopViewerNoClean, "stop viewer no clean")
            .asks("stopViewerNoClean=0A000005", {station})
            .on("ok", 1)
            .on("not running", 0)
            .kvoctl("viewer stop", {kHere, "--no-clean"})
            .wire("`stopViewerNoClean=`*station*", "`ok`, `not running`, `failed`",
                  "stops the viewer and keeps the status line")
            .cpp("Station::stop_viewer_no_clean")
            .python("Panel.stop_viewer_no_clean"),
    };
}

/// Two buffers of 2048 bytes, and the sizes that are passed for them.
Arguments serverOf(uint32_t server, uint32_t display)
{
    return {station, buffer(2048), inOut(server), buffer(2048), inOut(display)};
}

// The only reply with two parts.
Request currentServer()
{
    const std::string longest(1024, 's');
    const Arguments ordinary = serverOf(16, 4);
    return CATALOGUE_REQUEST(KVO_HWS_getCurrentServer, "get current server")
        .asks("getCurServer=0A000005", ordinary)
        .on("vncserver=10.0.0.7:3", 1, {"10.0.0.7", 9, "3", 2})
        .on("none", 0)
        .on("vncserver=10.0.0.7:3", 1, {"10.0.0.7", 9, "3", 2})
        .given(serverOf(9, 2))
        .on("vncserver=10.0.0.7:3", -3, {nothing, 9, nothing, 4})
        .given(serverOf(8, 4))
        .on("vncserver=10.0.0.7:3", -4, {"10.0.0.7", 9, nothing, 2})
        .given(serverOf(9, 1))
        .on("vncserver=10.0.0.7:3", -4, {"10.0.0.7", 9, nothing, 2})
        .given(serverOf(9, 0))
        .on("vncserver=:", 1, {"", 1, "", 1})
        .given(serverOf(1, 1))
        .on("vncserver=:", -3, {nothing, 1, nothing, 1})
        .given(serverOf(0, 1))
        .on("vncserver=a:b:c x", 1, {"a", 2, "b:c x", 6})
        .given(serverOf(16, 16))
        .on("vncserver10.0.0.7:3", -1)
        .on("vncserver=10.0.0.7", -1)
        .on("vncserver", -1)
        .on("vncserver=" + longest + ":3", 1, {longest, 1025, "3", 2})
        .given(serverOf(1025, 4))
        .on("vncserver=" + longest + "s:3", -1)
        .given(serverOf(2000, 4))
        .on("vncserver=" + longest + "s:3", -1)
        .given(serverOf(4, 4))
        .on("vncserver=a:" + longest + "s", -1, {"a", 2, nothing, 4})
        .given(serverOf(4, 4))
        .on("vncserver=a:" + longest, 1, {"a", 2, longest, 1025})
        .given(serverOf(4, 1025))
        .on("vncserver=a:" + longest + "s", -1, {"a", 2, nothing, 2000})
        .given(serverOf(4, 2000))
        .unknown("vncserve=a:b")
        .nullPointer({station, nullptr, inOut(8), buffer(8), inOut(8)})
        .nullPointer({station, buffer(8), nullptr, buffer(8), inOut(8)})
        .nullPointer({station, buffer(8), inOut(8), nullptr, inOut(8)})
        .nullPointer({station, buffer(8), inOut(8), buffer(8), nullptr})
        .soak({1, 0, -1, -2, -3, -4})
        .kvoctl("viewer server", {kHere})
        .shows("vncserver=10.0.0.7:3", "server   10.0.0.7\ndisplay  3\n", R"({"server": "10.0.0.7", "display": "3"})")
        .shows("vncserver=:", "server\ndisplay\n", R"({"server": "", "display": ""})")
        .wire("`getCurServer=`*station*", "`vncserver=`*server*`:`*display*, `none`, `failed`",
              "returns the server and display that the viewer shows; `none` if no viewer is running")
        .cpp("Station::current_server")
        .python("Panel.get_current_server");
}

}  // namespace

Family viewer() { return {"viewer", joined({stationAround(), startAndStop(), {currentServer()}})}; }

}  // namespace catalogue
