// The lists of known stations, and the look-up of a single station.
#include "catalogue/catalogue.h"

#include <kvo_hws/requests.h>

namespace catalogue {

namespace {

// Two stations as they are sent, and the fields that follow each in the extended form.
const std::string kOne = "0A000005 00000001 00000002 00000003 00000003 st1 ";
const std::string kTwo = "0A000006 00000004 00000005 FFFFFFFF 00000008 press 2  ";
const std::string kExtension = "00000011 00000022 00000033 00000044 00000055 00000066 00000077 ";

template <class Record>
Record stationOf(uint32_t address, const char *name, uint32_t attr1, uint32_t attr2, uint32_t attr3)
{
    Record record{};
    record.address = address;
    std::strcpy(record.name, name);
    record.attr1 = attr1;
    record.attr2 = attr2;
    record.attr3 = attr3;
    if constexpr (sizeof record == sizeof(KvoDescriptionEx)) {
        record.extAttr1 = 0x11;
        record.extAttr2 = 0x22;
        record.extAttr3 = 0x33;
        record.extAttr4 = 0x44;
        record.extAttr5 = 0x55;
        record.extAttr6 = 0x66;
        record.extAttr7 = 0x77;
    }
    return record;
}

/// The first @p count of the two stations, in an array of @p capacity elements; the rest is zero.
template <class Record>
Stored stations(std::size_t count, std::size_t capacity)
{
    std::vector<Record> array = {stationOf<Record>(0x0A000005, "st1", 1, 2, 3),
                                 stationOf<Record>(0x0A000006, "press 2 ", 4, 5, 0xFFFFFFFF)};
    array.resize(count);
    array.resize(capacity, Record{});
    return records(array);
}

Arguments arrayOf(uint32_t capacity) { return {buffer(capacity), inOut(capacity)}; }

using Commands = std::vector<std::string>;
using Replies = std::vector<std::string>;

// The second command requests as many stations as fit, not the number just received: stations that were added meanwhile are
// included.
Request basicList()
{
    const auto some = stations<KvoDescription>;
    const std::string both = "00000002 " + kOne + kTwo;
    return CATALOGUE_REQUEST(KVO_HWS_getDescriptionList, "get KVO description list")
        .exchangeCalled(" (count)")
        .asks(Commands{"getCountElemDL", "getDLV2 2"}, arrayOf(2))
        .takesAnyReply()
        .withoutServiceStores({some(0, 2), 2})
        .on(Replies{"2", both}, 1, {some(2, 2), 2})
        .on(Replies{"2", both}, 1, {some(2, 5), 2})
        .given({"getCountElemDL", "getDLV2 5"}, arrayOf(5))
        .on(Replies{"1", both}, 1, {some(2, 2), 2})
        .on(Replies{"0", "00000000 "}, 1, {nothing, 0})
        .given({"getCountElemDL", "getDLV2 0"}, arrayOf(0))
        .on(Replies{"0", "00000000 "}, 1, {some(0, 2), 0})
        .on("3", -3, {some(0, 2), 3}, "not enough memory (1)")
        .on(Replies{"1", both}, -3, {some(0, 1), 2}, "not enough memory (2)")
        .given({"getCountElemDL", "getDLV2 1"}, arrayOf(1))
        .on("5 ", -1, {some(0, 2), 2}, "wrong count reply")
        .on("5x", -1, {some(0, 2), 2}, "wrong count reply")
        .on("4294967297", -3, {some(0, 2), 0xFFFFFFFF}, "not enough memory (1)")
        .on("4294967294", -3, {some(0, 2), 0xFFFFFFFE}, "not enough memory (1)")
        .on(Replies{"", "00000000 "}, 1, {some(0, 2), 0})
        .on("failed", -1, {some(0, 2), 2}, "error sending request (count)")
        .on(Replies{"2", "failed"}, -1, {some(0, 2), 2}, "error sending request")
        .on(Replies{"2", "00000002"}, -1, {some(0, 2), 2}, "can not get count from reply")
        .on(Replies{"2", ""}, -1, {some(0, 2), 2}, "can not get count from reply")
        .on(Replies{"2", "00000002 " + kOne}, -1, {some(1, 2), 2}, "can not get KVO list from reply")
        .nullPointer({nullptr, inOut(0)})
        .nullPointer({buffer(1), nullptr})
        .soak({1, -1, -2, -3})
        .kvoctl("stations", {})
        .wire("`getCountElemDL`", "*number*", "returns the number of stations")
        .wire("`getDLV2` *number*", "a list, `failed`",
              "returns all stations; the number is the capacity of the client's array")
        .cpp("Service::description_list")
        .python("Service.get_stations");
}

// Differs from the basic list on purpose: with a null list only the number is read, and the array is cleared only when a list
// fits.
Request extendedList()
{
    const auto some = stations<KvoDescriptionEx>;
    const std::string both = "00000002 " + kOne + kExtension + kTwo + kExtension;
    return CATALOGUE_REQUEST(KVO_HWS_getDescriptionListEx, "get KVO description list extended")
        .exchangeCalled(" (count)")
        .asks(Commands{"getCountElemDL_Ex", "getDL_ExV2 2"}, arrayOf(2))
        .takesAnyReply()
        .on(Replies{"2", both}, 1, {some(2, 2), 2})
        .on(Replies{"2", both}, 1, {some(2, 5), 2})
        .given({"getCountElemDL_Ex", "getDL_ExV2 5"}, arrayOf(5))
        .on(Replies{"0", "00000000 "}, 1, {some(0, 2), 0})
        .on(Replies{"0", "00000000 "}, 1, {nothing, 0})
        .given({"getCountElemDL_Ex", "getDL_ExV2 0"}, arrayOf(0))
        .on("3", -3, {nothing, 3}, "not enough memory (1)")
        .on(Replies{"1", "00000002 "}, -3, {nothing, 2}, "not enough memory (2)")
        .given({"getCountElemDL_Ex", "getDL_ExV2 1"}, arrayOf(1))
        .on("5 ", -1, {}, "wrong count reply")
        .on("failed", -1, {}, "error sending request (count)")
        .on(Replies{"2", "failed"}, -1, {}, "error sending request")
        .on(Replies{"2", "no list"}, -1, {}, "can not get count from reply")
        .on(Replies{"2", "00000002 " + kOne + kExtension}, -1, {some(1, 2), 2}, "can not get KVO list from reply")
        .on("7", -3, {7}, "not enough memory (1)")
        .given({nullptr, inOut(100)})
        .on("0", -3, {0}, "not enough memory (1)")
        .given({nullptr, inOut(100)})
        .nullPointer({buffer(1), nullptr})
        .soak({1, -1, -2, -3})
        .kvoctl("stations", {"--extended"})
        .wire("`getCountElemDL_Ex`", "*number*", "returns the number of stations, for the extended list")
        .wire("`getDL_ExV2` *number*", "an extended list, `failed`", "returns all stations with their extended attributes")
        .cpp("Service::description_list_ex")
        .python("Service.get_stations_ex");
}

/// By address or name. The messages contain "(count)" although nothing is counted: log readers search for it.
Request &looksUp(Request &request, const std::string &command, const Arguments &arguments)
{
    const auto record = stations<KvoDescriptionEx>(1, 1);
    const std::string malformed = kOne + kExtension.substr(9);
    KvoDescriptionEx read{};
    read.address = 0x0A000005;
    std::strcpy(read.name, "st1");
    read.attr1 = 1;
    read.attr2 = 2;
    read.attr3 = 3;
    return request.exchangeCalled(" (count)")
        .asks(command, arguments)
        .takesAnyReply()
        .on(kOne + kExtension, 1, {record})
        .on("not found", 0)
        .on("failed", -1, "error sending request (count)")
        .on(malformed, -1, {records(std::vector{read})})
        .soak({1, 0, -1, -2});
}

std::vector<Request> oneStation()
{
    Request byAddress = CATALOGUE_REQUEST(KVO_HWS_getDescriptionEx, "get KVO description extended");
    looksUp(byAddress.variant("by address"), "getExDescByIP 0A000005", {station, nullptr, out})
        .on(kOne + kExtension, 1, {stations<KvoDescriptionEx>(1, 1)})
        .given({station, "x", out})  // an address takes precedence over a name
        .refuses({0, nullptr, out}, -1, "")
        .refuses({0, nullptr, nullptr}, -1, "")  // this check precedes that of the null record
        .nullPointer({station, nullptr, nullptr})
        .kvoctl("station", {"10.0.0.5"})
        .wire("`getExDescByIP` *station*", "an extended element, `not found`, `failed`", "finds a station by its address")
        .cpp("Station::description")
        .python("Service.find_station");
    Request byName = CATALOGUE_REQUEST(KVO_HWS_getDescriptionEx, "get KVO description extended");
    looksUp(byName.variant("by name"), "getExDescByName x y", {0, "x y", out})
        .kvoctl("station", {"x y"})
        .wire("`getExDescByName` *name*", "an extended element, `not found`, `failed`",
              "finds a station by its name; the name is the rest of the line, including spaces")
        .cpp("Service::description")
        .python("Service.find_station");
    return {byAddress, byName};
}

}  // namespace

Family stationLists() { return {"station_lists", joined({{basicList(), extendedList()}, oneStation()})}; }

}  // namespace catalogue
