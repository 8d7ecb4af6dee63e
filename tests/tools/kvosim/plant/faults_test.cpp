// Faults: which requests they affect, and what a client sees, on the wire and through the library.
#include "kvosim/commands/commands.h"
#include "kvosim/plant/faults.h"
#include "tools/kvosim/support/client.h"
#include "tools/kvosim/support/named_row.h"
#include "tools/kvosim/support/running_service.h"

#include <kvo_hws/kvo_hws.h>

#include <gmock/gmock.h>
#include <vector>

using namespace std::chrono_literals;

namespace {

using kvosim::Fault;
using kvosim::FaultError;
using kvosim::Faults;
using kvosim_test::Client;
using kvosim_test::exchange;
using kvosim_test::RunningService;

std::string plantWith(const std::string &fault) { return std::string(kvosim_test::kSmallPlant) + "\n[[faults]]\n" + fault; }

/// The numbers of the affected requests among eight, counted from 1.
std::vector<int> struckOf(const kvosim::FaultText &text, std::string_view keyword)
{
    Faults faults;
    faults.add(Fault(text));
    std::vector<int> struck;
    for (int request = 1; request <= 8; ++request) {
        if (faults.strike(keyword) != nullptr) {
            struck.push_back(request);
        }
    }
    return struck;
}

TEST(Faults, affect_the_configured_range_of_requests)
{
    using testing::ElementsAre;
    EXPECT_THAT(struckOf({.kind = "close"}, "getVersion"), ElementsAre(1, 2, 3, 4, 5, 6, 7, 8));
    EXPECT_THAT(struckOf({.kind = "close", .after = 6}, "getVersion"), ElementsAre(7, 8));
    EXPECT_THAT(struckOf({.kind = "close", .times = 2}, "getVersion"), ElementsAre(1, 2));
    EXPECT_THAT(struckOf({.kind = "close", .after = 3, .times = 2}, "getVersion"), ElementsAre(4, 5));
    EXPECT_THAT(struckOf({.command = "reboot", .kind = "close"}, "reboot").size(), 8U);
    EXPECT_THAT(struckOf({.command = "reboot", .kind = "close"}, "getVersion").size(), 0U);
}

TEST(Faults, the_first_matching_fault_takes_effect)
{
    Faults faults;
    faults.add(Fault({.command = "getVersion", .kind = "close", .after = 1, .times = 1}));
    faults.add(Fault({.kind = "garbage"}));
    EXPECT_EQ(faults.strike("getVersion")->kind(), kvosim::FaultKind::garbage);
    EXPECT_EQ(faults.strike("getVersion")->kind(), kvosim::FaultKind::close);
    EXPECT_EQ(faults.strike("getVersion")->kind(), kvosim::FaultKind::garbage);
    EXPECT_EQ(faults.list()[0].requestsStruck(), 1U);
    EXPECT_EQ(faults.list()[1].requestsStruck(), 2U);
    faults.clear();
    EXPECT_EQ(faults.strike("getVersion"), nullptr);
}

TEST(Faults, all_matching_faults_count_a_request)
{
    Faults faults;
    faults.add(Fault({.kind = "close", .times = 1}));
    faults.add(Fault({.kind = "garbage", .after = 1}));
    EXPECT_EQ(faults.strike("getVersion")->kind(), kvosim::FaultKind::close);
    ASSERT_NE(faults.strike("getVersion"), nullptr);
    EXPECT_EQ(faults.list()[1].requestsStruck(), 1U);
}

struct Mistake : kvosim_test::NamedRow {
    kvosim::FaultText text;
    std::string key;
};

class FaultMistake : public testing::TestWithParam<Mistake> {};

TEST_P(FaultMistake, is_reported)
{
    try {
        kvosim::makeFault(GetParam().text);
        ADD_FAILURE() << "accepted";
    } catch (const FaultError &error) {
        EXPECT_EQ(error.key, GetParam().key);
    }
}

const std::vector<Mistake> kMistakes = {{"kind", {.kind = "late"}, "kind"},
                                        {"no_kind", {}, "kind"},
                                        {"command", {.command = "getVersions", .kind = "close"}, "command"},
                                        {"command_with_its_end", {.command = "reboot=", .kind = "close"}, "command"},
                                        {"no_command", {.command = "", .kind = "close"}, "command"},
                                        {"delay_of_close", {.kind = "close", .delay = 5}, "delay_ms"},
                                        {"delay_long", {.kind = "delay", .delay = 60'001}, "delay_ms"}};

INSTANTIATE_TEST_SUITE_P(Table, FaultMistake, testing::ValuesIn(kMistakes), kvosim_test::kNameOfRow);

TEST(Garbled, inserts_characters_before_the_value)
{
    EXPECT_EQ(kvosim::garbled("ok"), "#?ok");
    EXPECT_EQ(kvosim::garbled("mcpaddr=5"), "mcpaddr=#?5");
    EXPECT_EQ(kvosim::garbled("press_thresh=1 nonlinear=1"), "press_thresh=#?1 nonlinear=1");
    EXPECT_EQ(kvosim::garbled(""), "#?");
}

// ---- On the wire ----

TEST(FaultOnTheWire, delay_sends_the_reply_late)
{
    const RunningService service(plantWith("kind = \"delay\"\ndelay_ms = 200\n"));
    const auto started = std::chrono::steady_clock::now();
    EXPECT_EQ(exchange("getVersion\n"), "V09.08\n");
    EXPECT_GE(std::chrono::steady_clock::now() - started, 200ms);
}

TEST(FaultOnTheWire, delay_does_not_affect_other_clients)
{
    const RunningService service(plantWith("command = \"getVersion\"\nkind = \"delay\"\ndelay_ms = 2000\n"));
    const Client late;
    late.send("getVersion\n");
    const auto started = std::chrono::steady_clock::now();
    EXPECT_EQ(exchange("isInitComplete\n"), "yes\n");
    EXPECT_LT(std::chrono::steady_clock::now() - started, 1900ms);
    EXPECT_EQ(late.receiveAll(), "V09.08\n");
}

TEST(FaultOnTheWire, delayed_reply_reaches_a_client_that_has_closed_its_side)
{
    const RunningService service(plantWith("kind = \"delay\"\ndelay_ms = 100\n"));
    const Client client;
    client.send("getVersion\n");
    shutdown(client.get(), SHUT_WR);
    EXPECT_EQ(client.receiveAll(), "V09.08\n");
}

TEST(FaultOnTheWire, late_reply_is_not_sent_to_the_next_client_with_the_same_descriptor)
{
    const RunningService service(plantWith("command = \"getVersion\"\nkind = \"delay\"\ndelay_ms = 150\n"));
    {
        const Client late;
        late.send("getVersion\n");
        std::this_thread::sleep_for(30ms);  // so the service accepts the connection
    }
    std::this_thread::sleep_for(30ms);  // and sees its end
    const Client next;
    next.send("isInit");
    std::this_thread::sleep_for(200ms);
    next.send("Complete\n");
    EXPECT_EQ(next.receiveAll(), "yes\n");
}

TEST(FaultOnTheWire, close_ends_the_connection_instead_of_a_reply)
{
    const RunningService service(plantWith("kind = \"close\"\ntimes = 1\n"));
    EXPECT_EQ(exchange("setDebugLevel=DEBUG_LEVEL_I\n"), "");
    EXPECT_EQ(exchange("getDebugLevel\n"), "DEBUG_LEVEL_I\n") << "the request was executed";
}

TEST(FaultOnTheWire, garbage_sends_a_malformed_reply)
{
    const RunningService service(plantWith("kind = \"garbage\"\n"));
    EXPECT_EQ(exchange("getVersion\n"), "#?V09.08\n");
    EXPECT_EQ(exchange("getMCPAddress=0A000005\n"), "mcpaddr=#?0\n");
}

TEST(FaultOnTheWire, failed_does_not_execute_the_request)
{
    const RunningService service(plantWith("command = \"setDebugLevel\"\nkind = \"failed\"\n"));
    EXPECT_EQ(exchange("setDebugLevel=DEBUG_LEVEL_I\n"), "failed\n");
    EXPECT_EQ(exchange("getDebugLevel\n"), "DEBUG_LEVEL_NONE\n");
}

TEST(FaultOnTheWire, split_sends_the_reply_byte_by_byte)
{
    const RunningService service(plantWith("kind = \"split\"\ndelay_ms = 400\n"));
    const auto started = std::chrono::steady_clock::now();
    const Client client;
    client.send("getVersion\n");
    char first[16] = {};
    const ssize_t count = recv(client.get(), first, sizeof first, 0);
    // On a busy machine several bytes may have arrived by now, but not those of the next 2.4 s.
    ASSERT_GE(count, 1);
    EXPECT_LT(count, 7);
    EXPECT_EQ(std::string(first, static_cast<std::size_t>(count)) + client.receiveAll(), "V09.08\n");
    EXPECT_GE(std::chrono::steady_clock::now() - started, 6 * 400ms);
}

TEST(FaultOnTheWire, silent_keeps_the_connection_open)
{
    const RunningService service(plantWith("kind = \"silent\"\ntimes = 1\n"));
    const Client client;
    client.send("getVersion\n");
    EXPECT_EQ(client.receiveAll(300ms), "(nothing more came)");
    EXPECT_EQ(exchange("getVersion\n"), "V09.08\n");
}

TEST(FaultOnTheWire, silent_keeps_the_connection_open_beyond_the_idle_timeout)
{
    const RunningService service(plantWith("kind = \"silent\"\n"), {.limits = {.idleTimeout = 20ms}});
    const Client client;
    client.send("getVersion\n");
    EXPECT_EQ(client.receiveAll(300ms), "(nothing more came)");
}

TEST(FaultOnTheWire, service_ends_while_replies_are_pending)
{
    RunningService service(plantWith("command = \"getVersion\"\nkind = \"silent\"\n"));
    const Client client;
    client.send("getVersion\n");
    EXPECT_EQ(exchange("killDaemon\n"), "ok\n");
    service.join();
    EXPECT_EQ(client.receiveAll(), "");
}

// ---- Through the library ----

struct LibraryRow : kvosim_test::NamedRow {
    std::string fault;
    int32_t result;
};

class LibraryResult : public testing::TestWithParam<LibraryRow> {};

TEST_P(LibraryResult, of_each_fault)
{
    const RunningService service(plantWith("command = \"getMCPAddress\"\ntimes = 1\n" + GetParam().fault));
    uint32_t address = 77;
    EXPECT_EQ(KVO_HWS_getMCPAddress(0x0A000005, &address), GetParam().result);
    EXPECT_EQ(address, GetParam().result == 1 ? 0U : 77U);
    EXPECT_EQ(KVO_HWS_getMCPAddress(0x0A000005, &address), 1) << "the fault is over";
}

const std::vector<LibraryRow> kLibraryRows = {{"delay", "kind = \"delay\"\ndelay_ms = 300\n", 1},
                                              {"close", "kind = \"close\"\n", -1},
                                              {"garbage", "kind = \"garbage\"\n", -1},
                                              {"failed", "kind = \"failed\"\n", -1},
                                              {"split", "kind = \"split\"\n", 1},
                                              {"silent", "kind = \"silent\"\n", -1}};

INSTANTIATE_TEST_SUITE_P(Table, LibraryResult, testing::ValuesIn(kLibraryRows), kvosim_test::kNameOfRow);

}  // namespace
