#include "usbevents/service_answer.h"

#include <kvo_hws/service.h>

#include "runtime/owners.h"

#include <string_view>

namespace kvo_hws {

ServiceAnswer askService(const char *command) noexcept
{
    DynBuffer reply = {};
    const int sent = SendCommand2ServiceDyn(command, &reply);
    const HeapText text(reply.pcData);
    if (sent != 1 || text == nullptr) {
        return ServiceAnswer::none;
    }
    return std::string_view(text.get()) == "ok" ? ServiceAnswer::ok : ServiceAnswer::other;
}

}  // namespace kvo_hws
