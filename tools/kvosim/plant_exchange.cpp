#include "kvosim/plant_exchange.h"

#include "kvosim/base/exchange_log.h"

namespace kvosim {

namespace {

/// Changes a reply as the fault says. FaultKind::failed changes nothing here: it prevents the request from being carried out.
Reply withFault(std::string text, const Fault &fault)
{
    Reply reply(std::move(text));
    switch (fault.kind()) {
    case FaultKind::delay: reply.delay = fault.delay(); break;
    case FaultKind::close: reply.mode = Reply::Mode::close; break;
    case FaultKind::garbage: reply.text = garbled(reply.text); break;
    case FaultKind::failed: break;
    case FaultKind::split:
        reply.mode = Reply::Mode::bytewise;
        reply.pause = fault.delay();
        break;
    case FaultKind::silent: reply.mode = Reply::Mode::silence; break;
    }
    return reply;
}

}  // namespace

Reply exchangeWithPlant(ServiceContext &context, std::string_view request,
                        const std::function<void(std::string_view line)> &report)
{
    auto [reply, fault] = carryOut(context, request);
    report(printable(request) + " -> " + printable(reply) + (fault == nullptr ? "" : " (fault: " + fault->text().kind + ')'));
    return fault == nullptr ? Reply(std::move(reply)) : withFault(std::move(reply), *fault);
}

}  // namespace kvosim
