// Keeps the links until they end, and reports each once.
#include "common/tap/links.h"

#include "common/tap/event_lines.h"
#include "common/tap/peer.h"

#include <algorithm>

namespace tools::tap {

Links::~Links()
{
    for (const auto &[address, link] : links_) {
        link->abandon();
        report(*link);
    }
}

void Links::add(Descriptor program, recording::Kind kind, Link::Callbacks callbacks)
{
    ended_.clear();
    callbacks.onEnd = [this](Link &link) {
        report(link);
        remove(link);
    };
    auto added = std::make_unique<Link>(loop_, std::move(program), kind, start_, std::move(callbacks));
    Link &link = *added;
    links_.emplace(&link, std::move(added));
    link.begin();
}

void Links::addEvents(Descriptor program, Link::Callbacks callbacks)
{
    ended_.clear();
    const auto lines = std::make_shared<EventLines>(observer_, start_, peerOf(program.get()));
    lines->begin();
    callbacks.onReply = [lines](std::string_view bytes) { lines->add(bytes); };
    callbacks.onEnd = [this, lines](const Link &link) {
        lines->end();
        remove(link);
    };
    auto added = std::make_unique<Link>(loop_, std::move(program), recording::Kind::event, start_, std::move(callbacks));
    Link &link = *added;
    links_.emplace(&link, std::move(added));
    link.begin();
}

bool Links::areBusy() const
{
    return std::any_of(links_.begin(), links_.end(), [](const auto &entry) { return entry.second->isBusy(); });
}

void Links::report(Link &link)
{
    const bool isCut = link.isCut();
    recording::Exchange exchange = link.takeExchange();
    const recording::Microseconds at = exchange.at;
    if (exchange.kind != recording::Kind::event) {
        observer_.onExchange(link.peer(), std::move(exchange));
    }
    if (isCut) {
        observer_.onNote(at, "An exchange was longer than 16 MB; only its beginning is shown.");
    }
}

void Links::remove(const Link &link)
{
    const auto found = links_.find(&link);
    ended_.push_back(std::move(found->second));
    links_.erase(found);
}

}  // namespace tools::tap
