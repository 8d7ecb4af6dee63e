// The simulated service knows every request of the catalogue, and the library can read all its replies.
#include "catalogue/catalogue.h"
#include "tools/kvosim/support/client.h"
#include "tools/kvosim/support/running_service.h"

#include <gmock/gmock.h>

namespace {

using kvosim_test::exchange;
using kvosim_test::RunningService;

constexpr const char *kPlant = R"([[station]]
address = "10.0.0.5"
name = "x y"
oem_layout = "QWERTZ"
softkey_type = 2
keyboard_caps = 3
dpi = 96
hardware_caps = 4
panel_rotation = 1
)";

std::vector<const catalogue::Request *> askingRequests()
{
    std::vector<const catalogue::Request *> all;
    for (const catalogue::Family &family : catalogue::families()) {
        for (const catalogue::Request &request : family.requests) {
            if (!request.commands().empty() && request.function().name() != "KVO_HWS_killDaemon") {
                all.push_back(&request);
            }
        }
    }
    return all;
}

TEST(Catalogue, has_only_requests_that_the_simulated_service_knows)
{
    const RunningService service(kPlant);
    const std::string unknown = exchange("noSuchCommand=0A000005\n");
    for (const catalogue::Request *request : askingRequests()) {
        for (const std::string &command : request->commands()) {
            EXPECT_NE(exchange(command + "\n"), unknown) << command;
        }
    }
}

TEST(Catalogue, has_only_requests_whose_simulated_replies_the_library_reads)
{
    const RunningService service(kPlant);
    for (const catalogue::Request *request : askingRequests()) {
        catalogue::Outputs outputs = request->function().outputsFor(request->arguments(), '\0');
        EXPECT_GE(request->function()(request->arguments(), outputs), 0) << request->name();
    }
}

}  // namespace
