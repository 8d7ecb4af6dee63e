// What the requests log: without a service, with a service that closes the connection, and with the replies of the catalogue.
#include "catalogue/catalogue.h"
#include "library/log_texts/collector.h"
#include "support/catalogue_service.h"

#include <kvo_hws/requests.h>

namespace {

using log_texts::Collector;

/// Collects the messages of one call under the function's name.
void collect(Collector &collector, const catalogue::Request &request, const catalogue::Exchange &exchange)
{
    const support::CatalogueService service(exchange);
    collector.run(request.function().name(), log_texts::kMessagesOnly, [&] {
        catalogue::Outputs outputs = request.function().outputsFor(exchange.arguments, '\0');
        request.function()(exchange.arguments, outputs);
    });
}

/// Collects those requests whose exchanges are not in the catalogue.
void collectOthers(Collector &collector)
{
    const auto readLists = [] {
        KvoDescription list[1];
        uint32_t count = 1;
        KVO_HWS_getKVOCurrentListFromRegistry(list, &count, 0);
    };
    collector.run("KVO_HWS_getKVOCurrentListFromRegistry", log_texts::kMessagesOnly, readLists);
    for (const auto &script : {support::replies("failed"), support::closesAfterRequest()}) {
        const support::ScriptedService service({script});
        collector.run("KVO_HWS_getKVOCurrentListFromRegistry", log_texts::kMessagesOnly, readLists);
    }
    collector.run("KVO_HWS_setUsbLock", log_texts::kMessagesOnly, [] {
        const char *loopback[] = {"127.0.0.1"};
        KVO_HWS_setUsbLock(1, loopback, 0, 1);
        KVO_HWS_setUsbLock(1, nullptr, 0, 1);
    });
}

TEST(LogTexts, of_the_requests_are_as_listed)
{
    Collector collector;
    for (const catalogue::Family &family : catalogue::families()) {
        for (const catalogue::Request &request : family.requests) {
            for (const catalogue::Exchange &exchange : request.allExchanges()) {
                collect(collector, request, exchange);
            }
        }
    }
    collectOthers(collector);
    collector.expectSeen("requests");
}

}  // namespace
