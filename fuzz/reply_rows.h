// How a request of the catalogue is fuzzed: what it makes of the replies is compared, to the byte, with what a plain reading makes
// of them.
#pragma once

#include "catalogue/catalogue.h"

#include "reference_descriptions.h"
#include "support.h"

#include <kvo_hws/requests.h>

#include <cstdlib>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace fuzz {

// ---- What comes from the service, and from the caller ----

/// The replies of one round, and what a service answers that has gone.
struct Replies {
    std::vector<std::string> lines;
    int gone = KVO_HWS_NO_SERVICE;
    std::size_t next = 0;

    std::optional<std::string> take() { return next < lines.size() ? std::optional(lines[next++]) : std::nullopt; }
};

/// Sizes that a caller chooses, and a number for whatever else it chooses.
struct Caller {
    uint32_t room;
    uint32_t secondRoom;
};

/// The areas that a request writes, each between guards.
class Outputs {
public:
    Outputs(const std::vector<std::size_t> &sizes, uint8_t fill)
    {
        for (const std::size_t size : sizes) {
            areas_.emplace_back(size, fill);
            sizes_.push_back(size);
        }
    }

    template <class Value = char>
    Value *at(std::size_t area)
    {
        return reinterpret_cast<Value *>(areas_[area].area());
    }
    uint32_t &word(std::size_t area) { return *at<uint32_t>(area); }
    int32_t &signedWord(std::size_t area) { return *at<int32_t>(area); }

    void store(std::size_t area, const std::string &text) { std::memcpy(at(area), text.data(), text.size()); }
    void storeTerminated(std::size_t area, const std::string &text) { std::memcpy(at(area), text.c_str(), text.size() + 1); }
    void clear(std::size_t area) { std::memset(at(area), 0, sizes_[area]); }

    /// Bytes of which nothing is promised: of this reading's, which are not compared.
    void leaveOpen(std::size_t area, std::size_t from, std::size_t count)
    {
        if (from < sizes_[area]) {
            open_.push_back({area, from, std::min(count, sizes_[area] - from)});
        }
    }

    [[nodiscard]] std::vector<void *> addresses()
    {
        std::vector<void *> all;
        for (GuardedArea &area : areas_) {
            all.push_back(area.area());
        }
        return all;
    }

    /// Ends the run where @p got is something else.
    void expectSame(Outputs &got, const char *name)
    {
        for (const Open &open : open_) {
            std::memcpy(at(open.area) + open.from, got.at(open.area) + open.from, open.count);
        }
        for (std::size_t i = 0; i < areas_.size(); ++i) {
            if (!got.areas_[i].guardsIntact()) {
                fault("%s: wrote outside of output %zu, which has %zu bytes", name, i, sizes_[i]);
            }
            if (got.areas_[i] != areas_[i]) {
                const auto differing = std::mismatch(at(i), at(i) + sizes_[i], got.at(i)).first - at(i);
                fault("%s: output %zu differs from a plain reading's at byte %td", name, i, differing);
            }
        }
    }

private:
    struct Open {
        std::size_t area;
        std::size_t from;
        std::size_t count;
    };

    std::vector<GuardedArea> areas_;
    std::vector<std::size_t> sizes_;
    std::vector<Open> open_;
};

// ---- Readings ----

/// Reads what follows a reply's key into the outputs, and returns the result.
using ReadRest = std::function<int32_t(Outputs &out, const Caller &caller, const std::string &rest)>;
/// The result, or nothing where the service has gone.
using Read = std::function<std::optional<int32_t>(Outputs &out, const Caller &caller, Replies &replies)>;

/// How a request is fuzzed whose replies are more than the catalogue's words and numbers.
struct Reading {
    std::string key;  ///< of the replies that @c rest reads, all in place of some; the others are words
    ReadRest rest{};
    Read whole{};  ///< in place of both
    /// The arguments of a call, where they are the caller's choice, or depend on the replies.
    std::function<catalogue::Arguments(const catalogue::Arguments &arguments, const Caller &caller, const Replies &replies)>
        arguments{};
    /// Whether an output is there at all.
    bool (*wants)(const Caller &caller, std::size_t area) = nullptr;
};

/// Room of the caller's sizes: the first with a size after it has the first of them, the next the second.
inline catalogue::Arguments sized(const catalogue::Arguments &arguments, const std::vector<uint32_t> &sizes,
                                  std::size_t least = 0)
{
    catalogue::Arguments all = arguments;
    std::size_t next = 0;
    for (std::size_t i = 0; i + 1 < all.size() && next < sizes.size(); ++i) {
        if (all[i].kind == catalogue::Argument::Kind::room && !all[i + 1].text.empty()) {
            all[i] = catalogue::room(std::max<std::size_t>(sizes[next], least));
            all[i + 1] = catalogue::inOut(sizes[next++]);
        }
    }
    return all;
}

/// A request of the catalogue, and how its replies are read plainly.
class Row {
public:
    Row(const catalogue::Request &request, Reading reading) : request_(&request), reading_(std::move(reading))
    {
        for (const catalogue::Exchange &exchange : request.allExchanges()) {
            codes_.insert(exchange.result);
        }
        codes_.insert(request.soakResults().begin(), request.soakResults().end());
    }

    [[nodiscard]] std::string name() const { return request_->name(); }
    [[nodiscard]] bool documents(int32_t result) const { return codes_.contains(result); }
    [[nodiscard]] int32_t withoutService() const { return request_->withoutService(); }

    /// The areas that a call writes, as the caller leaves them.
    [[nodiscard]] Outputs outputs(const Caller &caller, const Replies &replies, uint8_t fill) const
    {
        const catalogue::Arguments arguments = argumentsFor(caller, replies);
        Outputs out(request_->function().outputSizes(arguments), fill);
        std::size_t area = 0;
        for (const catalogue::Argument &argument : arguments) {
            if (argument.kind == catalogue::Argument::Kind::room) {
                out.store(area++, argument.text);
            }
        }
        return out;
    }

    int32_t ask(Outputs &out, const Caller &caller, const Replies &replies) const
    {
        std::vector<void *> rooms = out.addresses();
        for (std::size_t area = 0; area < rooms.size(); ++area) {
            if (reading_.wants != nullptr && !reading_.wants(caller, area)) {
                rooms[area] = nullptr;
            }
        }
        return request_->function()(argumentsFor(caller, replies), rooms);
    }

    std::optional<int32_t> read(Outputs &out, const Caller &caller, Replies &replies) const
    {
        if (reading_.whole) {
            return reading_.whole(out, caller, replies);
        }
        const auto reply = replies.take();
        if (!reply) {
            return std::nullopt;
        }
        if (reading_.rest && reply->starts_with(reading_.key)) {
            return reading_.rest(out, caller, reply->substr(reading_.key.size()));
        }
        if (const auto &form = request_->numberForm(); form && reply->starts_with(form->key)) {
            return readNumber(out, *form, reply->substr(form->key.size()));
        }
        return readWord(out, *reply);
    }

    /// The replies that the catalogue has for the request's own arguments.
    [[nodiscard]] std::vector<Replies> knownReplies() const
    {
        std::vector<Replies> all;
        for (const catalogue::Exchange &exchange : request_->allExchanges()) {
            if (!exchange.commands.empty() && !exchange.replies.empty()) {
                all.push_back({.lines = exchange.replies});
                for (std::string &line : all.back().lines) {
                    line.resize(line.find_last_not_of('\r') + 1);  // as the reader of the channel leaves it
                }
            }
        }
        return all;
    }

private:
    [[nodiscard]] catalogue::Arguments argumentsFor(const Caller &caller, const Replies &replies) const
    {
        return reading_.arguments ? reading_.arguments(request_->arguments(), caller, replies) : request_->arguments();
    }

    /// A number that is all of the rest and within bounds.
    static int32_t readNumber(Outputs &out, const catalogue::NumberForm &form, const std::string &rest)
    {
        char *end = nullptr;
        const unsigned long value = std::strtoul(rest.c_str(), &end, form.base);
        if (*end != '\0' || value < form.lowest || value > form.highest) {
            return KVO_HWS_FAILED;
        }
        out.word(0) = static_cast<uint32_t>(value);
        return KVO_HWS_OK;
    }

    /// A reply that is exactly one of the catalogue's, or means what all others mean.
    int32_t readWord(Outputs &out, const std::string &reply) const
    {
        for (const catalogue::Exchange &exchange : request_->ownExchanges()) {
            if (!exchange.commands.empty() && exchange.replies.front() == reply) {
                for (std::size_t area = 0; area < exchange.values.size(); ++area) {
                    out.store(area, exchange.values[area].bytes.value_or(""));
                }
                return exchange.result;
            }
        }
        if (request_->takesEverything()) {
            return request_->ownExchanges().front().result;
        }
        return reply == "failed" ? request_->failedResult() : request_->unknownResult();
    }

    const catalogue::Request *request_;
    Reading reading_;
    std::set<int32_t> codes_{};
};

}  // namespace fuzz
