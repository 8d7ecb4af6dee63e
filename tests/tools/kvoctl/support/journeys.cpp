// The journeys are those of the catalogue.
#include "tools/kvoctl/support/journeys.h"

#include "catalogue/catalogue.h"

namespace kvoctl_test {

std::vector<Journey> journeys()
{
    std::vector<Journey> all;
    for (const catalogue::Family &family : catalogue::families()) {
        for (const catalogue::Request &request : family.requests) {
            if (!request.kvoctlWords().empty()) {
                const bool talks = request.function().name() == "KVO_HWS_sendEmbHwsEvent";
                all.push_back({request.name(), request.function().name(), request.kvoctlWords(), request.kvoctlArguments(),
                               talks ? "an event\n" : ""});
            }
        }
    }
    return all;
}

}  // namespace kvoctl_test
