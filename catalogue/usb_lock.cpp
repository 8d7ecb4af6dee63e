// The USB lock and the lists of connectors.
#include "catalogue/catalogue.h"

#include <kvo_hws/requests.h>

namespace catalogue {

namespace {

Request theLock()
{
    return CATALOGUE_REQUEST(KVO_HWS_getUsbLock, "get KVO usb lock")
        .asks("getUsbLock=0A000005", {station, out, out})
        .on("usb-lock=1:2", 1, {1, 2})
        .on("usb-lock=1:2x", 1, {1, 2})
        .on("usb-lock= 1: 2", 1, {1, 2})
        .on("usb-lock=4294967295:0", 1, {0xFFFFFFFF, 0})
        .on("usb-lock=4294967297:4294967298", 1, sizeof(long) == 8 ? Values{1, 2} : Values{0xFFFFFFFF, 0xFFFFFFFF})
        .on("usb-lock=", -1)
        .on("usb-lock=1", -1)
        .on("usb-lock=1:", -1)
        .on("usb-lock=1 :2", -1)
        .on("usb-lock=:2", -1)
        .on("usb-lock=x:2", -1)
        .nullPointer({station, out, nullptr})
        .nullPointer({station, nullptr, out})
        .soak({1, -1, -2})
        .kvoctl("usb lock get", {kHere})
        .shows("usb-lock=1:0", "lock_first   1\nlock_second  0\n", R"({"lock_first": 1, "lock_second": 0})")
        .wire("`getUsbLock=`*station*", "`usb-lock=`*number*`:`*number*, `failed`", "returns the two numbers of the USB lock")
        .cpp("Station::usb_lock")
        .python("Panel.get_usb_lock");
}

/// The list is stored without a terminator, except for an empty list.
Request &connectors(Request &request, const std::string &command, const std::string &key, const Arguments &before)
{
    const auto sized = [&before](uint32_t size) {
        Arguments arguments = before;
        arguments.emplace_back(buffer(64));
        arguments.emplace_back(inOut(size));
        return arguments;
    };
    const auto without = [&before](const Argument &buffer, const Argument &size) {
        Arguments arguments = before;
        arguments.push_back(buffer);
        arguments.push_back(size);
        return arguments;
    };
    return request.asks(command, sized(64))
        .on(key + "front;rear", 1, {bytes("front;rear"), 10})
        .on(key + "front;rear", 1, {bytes("front;rear"), 10})
        .given(sized(11))
        .on(key + "front;rear", -3, {nothing, 10})
        .given(sized(10))
        .on(key + "front;rear", -3, {nothing, 10})
        .given(sized(0))
        .on(key, 0, {"", 0})
        .on(key, 0, {"", 0})
        .given(sized(0))
        .on(key + "front;rear", 1, {10})
        .given(without(nullptr, inOut(11)))
        .on(key, 0, {0})
        .given(without(nullptr, inOut(11)))
        .on("busy", -9, "error sending request")
        .failedIs(-4, "error sending request")
        .unknownIs(-5, "unknown error sending request")
        .nullPointer(without(buffer(4), nullptr))
        .soak({1, 0, -1, -2, -3, -4, -5, -9});
}

std::vector<Request> connectorLists()
{
    Request all = CATALOGUE_REQUEST(KVO_HWS_getUsbConnectorList, "get usb connector list");
    connectors(all, "getUsbConnectorList", "usb-connector-list=", {})
        .kvoctl("usb connectors", {})
        .shows("usb-connector-list=X1 X2", "X1 X2\n", R"({"connectors": "X1 X2"})")
        .wire("`getUsbConnectorList`", "`usb-connector-list=`*list*, `busy`, `failed`",
              "returns the connectors of all stations; `busy` during the search for the connectors of any station")
        .cpp("Service::usb_connector_list")
        .python("Service.get_usb_connectors");
    Request one = CATALOGUE_REQUEST(KVO_HWS_getUsbConnectorListOne, "get usb connector list");
    connectors(one, "getUsbConnectorListOne=0A000005", "usb-connector-list-one=", {station})
        .kvoctl("usb connectors", {kHere})
        .shows("usb-connector-list-one=X1 X2", "X1 X2\n", R"({"connectors": "X1 X2"})")
        .wire("`getUsbConnectorListOne=`*station*", "`usb-connector-list-one=`*connectors*, `busy`, `failed`",
              "returns the connectors of one station; `busy` during the search for them")
        .cpp("Station::usb_connector_list")
        .python("Panel.get_usb_connectors");
    return {all, one};
}

}  // namespace

Family usbLock() { return {"usb_lock", joined({{theLock()}, connectorLists()})}; }

}  // namespace catalogue
