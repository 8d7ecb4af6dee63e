// Anonymizing the plant of a recording: its texts get the same replacements as in the exchanges.
#include "common/recording/anonymizer.h"

#include <gtest/gtest.h>
#include <string>
#include <utility>

namespace {

using namespace tools::recording;

Exchange exchange(const std::string &request, const std::string &reply)
{
    return {{}, Kind::ask, 0, {{{}, request}}, false, {{{}, reply}}, End::closed, {}};
}

/// Each key with texts that a station has, and the same text on the way to or from a program.
constexpr const char *kPlant = R"toml(# Tom's plant
[service]
version = "V04.07"           # stays
usb_lock_address = "127.0.0.1:5851"
remote_address = "10.0.0.1"

[[client]]
name = "HMI of hall 1"
value = 0x12

[[station]]
address = "10.0.0.5"
name = 'Portal "mill"'
ext = [1, 2, 3, 4, 5, 6, 7]  # Tom's
dpi = "none"
oem_layout = "OP15"
viewer = "nc-hall1:3"
status_line = "stop, Tom"
priority = "1:3"
screen_on_focus = "Machine"
t2m2n = "T1 not found 2:3"
channel_info = "C:\\mill"
usb_lock = "1:2"
usb_connectors = "X60:keyboard X61:free"
simulated_mcp_key = "1:2"

[[station.usb_device]]
ident2 = "stick"
ident3 = "1-1.2"
text4 = "Stick of Tom"
text5 = "1.00"
bytes = "0A1B"

[[station]]
address = "10.0.0.6"
name = "10.0.0.6"
t2m2n = "not found"

[[faults]]
kind = "delay"
command = "getVersion"
)toml";

constexpr const char *kAnonymizedPlant = R"toml([service]
version = "V04.07"
usb_lock_address = "127.0.0.1:5851"
remote_address = "192.0.2.1"

[[client]]
name = "name1xxxxxxxx"
value = 0x12

[[station]]
address = "192.0.2.2"
name = "name2xxxxxxxx"
ext = [1, 2, 3, 4, 5, 6, 7]
dpi = "none"
oem_layout = "OP15"
viewer = "name3xxx:3"
status_line = "text4xxxx"
priority = "1:3"
screen_on_focus = "text5xx"
t2m2n = "t6 te7 text8 2:3"
channel_info = "text9xx"
usb_lock = "1:2"
usb_connectors = "X60:text10xx X61:free"
simulated_mcp_key = "1:2"

[[station.usb_device]]
ident2 = "tex11"
ident3 = "1-1.2"
text4 = "text12xxxxxx"
text5 = "te13"
bytes = "0A1B"

[[station]]
address = "192.0.2.3"
name = "192.0.2.3"
t2m2n = "not found"

[[faults]]
kind = "delay"
command = "getVersion"
)toml";

TEST(AnonymizedPlant, has_no_comment_and_no_private_text)
{
    EXPECT_EQ(Anonymizer().anonymizePlant(kPlant), kAnonymizedPlant);
    EXPECT_EQ(Anonymizer().anonymizePlant(kAnonymizedPlant), kAnonymizedPlant) << "its own result";
}

TEST(AnonymizedPlant, fits_the_exchanges_of_the_same_recording)
{
    const std::pair<std::string, std::string> exchanges[] = {
        {"getClientList 0 0\n", "00000001 00000012 0000000D HMI of hall 1 \n"},
        {"getExDescByName Portal \"mill\"\n", "0A000005 00000001 00000000 00000000 0000000D Portal \"mill\" \n"},
        {"getCurServer=0A000005\n", "vncserver=nc-hall1:3\n"},
        {"setStatusline=0A000005,1,2,stop, Tom\n", "ok\n"},
        {"getKVOScreenOnFocus=0A000005\n", "screen-on-focus=Machine\n"},
        {"getKVOt2m2n=0A000005\n", "T1 not found 2:3\n"},
        {"getKVOt2m2n=0A000006\n", "not found\n"},
        {"getChannelInfo=0A000005\n", "channel-info=C:\\mill\n"},
        {"getUsbConnectorListOne=0A000005\n", "usb-connector-list-one=X60:keyboard X61:free 1-1.2:stick\n"},
        {"getExDescByIP 0A000006\n", "0A000006 00000001 00000000 00000000 00000008 10.0.0.6 \n"},
    };
    Anonymizer plantFirst;
    plantFirst.anonymizePlant(kPlant);
    const std::size_t texts = plantFirst.texts();
    const std::size_t addresses = plantFirst.addresses();
    for (const auto &[request, reply] : exchanges) {
        plantFirst.anonymize(exchange(request, reply));
        EXPECT_EQ(plantFirst.texts(), texts) << request << "has a text that the plant has in another form";
    }
    plantFirst.anonymizeRequest(Kind::usb, "newUSBdevice*10.0.0.5*stick*1-1.2*Stick of Tom*1.00*\n");
    EXPECT_EQ(plantFirst.texts(), texts);
    EXPECT_EQ(plantFirst.addresses(), addresses);
}

TEST(AnonymizedPlant, is_not_made_of_single_lines)
{
    EXPECT_TRUE(Anonymizer().anonymize(Line(PlantLine{"name = \"Tom\""})) == Line(Nothing{}));
}

}  // namespace
