// How a request of the catalogue is fuzzed: its result and outputs are compared byte by byte with those of a reference
// implementation that reads the same replies.
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

// ---- The input: replies of the service and choices of the caller ----

/// The replies of one run, and the result of an exchange after the last one, when the service has ended.
struct Replies {
    std::vector<std::string> lines;
    int gone = KVO_HWS_NO_SERVICE;
    std::size_t next = 0;

    std::optional<std::string> take() { return next < lines.size() ? std::optional(lines[next++]) : std::nullopt; }
};

/// The sizes of the caller's buffers. Their numbers also select the other choices of a caller.
struct Caller {
    uint32_t bufferSize;
    uint32_t secondBufferSize;
};

/// The output areas of a request, each between guards.
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

    /// Marks bytes whose content is unspecified. They are not compared.
    void ignore(std::size_t area, std::size_t from, std::size_t count)
    {
        if (from < sizes_[area]) {
            ignored_.push_back({area, from, std::min(count, sizes_[area] - from)});
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

    /// Ends the run with a fault if @p got differs.
    void expectSame(Outputs &got, const char *name)
    {
        for (const Ignored &ignored : ignored_) {
            std::memcpy(at(ignored.area) + ignored.from, got.at(ignored.area) + ignored.from, ignored.count);
        }
        for (std::size_t i = 0; i < areas_.size(); ++i) {
            if (!got.areas_[i].guardsIntact()) {
                fault("%s: wrote outside output %zu, which has %zu bytes", name, i, sizes_[i]);
            }
            if (got.areas_[i] != areas_[i]) {
                const auto differing = std::mismatch(at(i), at(i) + sizes_[i], got.at(i)).first - at(i);
                fault("%s: output %zu differs from the reference at byte %td", name, i, differing);
            }
        }
    }

private:
    struct Ignored {
        std::size_t area;
        std::size_t from;
        std::size_t count;
    };

    std::vector<GuardedArea> areas_;
    std::vector<std::size_t> sizes_;
    std::vector<Ignored> ignored_;
};

// ---- Reference implementations ----

/// Reads the rest of a reply after its key into the outputs, and returns the result.
using ReadRest = std::function<int32_t(Outputs &out, const Caller &caller, const std::string &rest)>;
/// Reads all replies into the outputs. Returns the result, or nothing if the service has ended.
using Read = std::function<std::optional<int32_t>(Outputs &out, const Caller &caller, Replies &replies)>;

/// The reference implementation of a request whose replies are more than the catalogue's words and numbers.
struct Reference {
    std::string key;  ///< of the replies that @c rest reads; empty: all replies. Other replies are words
    ReadRest rest{};
    Read whole{};  ///< replaces key and rest
    /// The arguments of a call, if the caller chooses them or they depend on the replies.
    std::function<catalogue::Arguments(const catalogue::Arguments &arguments, const Caller &caller, const Replies &replies)>
        arguments{};
    /// Whether the caller passes this output, or a null pointer instead.
    bool (*wants)(const Caller &caller, std::size_t area) = nullptr;
};

/// The arguments with buffers of the caller's sizes: the first buffer that is followed by its size gets the first of @p sizes,
/// the next one the second.
inline catalogue::Arguments sized(const catalogue::Arguments &arguments, const std::vector<uint32_t> &sizes,
                                  std::size_t least = 0)
{
    catalogue::Arguments all = arguments;
    std::size_t next = 0;
    for (std::size_t i = 0; i + 1 < all.size() && next < sizes.size(); ++i) {
        if (all[i].kind == catalogue::Argument::Kind::buffer && !all[i + 1].text.empty()) {
            all[i] = catalogue::buffer(std::max<std::size_t>(sizes[next], least));
            all[i + 1] = catalogue::inOut(sizes[next++]);
        }
    }
    return all;
}

/// A request of the catalogue and its reference implementation.
class Row {
public:
    Row(const catalogue::Request &request, Reference reference) : request_(&request), reference_(std::move(reference))
    {
        for (const catalogue::Exchange &exchange : request.allExchanges()) {
            codes_.insert(exchange.result);
        }
        codes_.insert(request.soakResults().begin(), request.soakResults().end());
    }

    [[nodiscard]] std::string name() const { return request_->name(); }
    [[nodiscard]] bool documents(int32_t result) const { return codes_.contains(result); }
    [[nodiscard]] int32_t withoutService() const { return request_->withoutService(); }

    /// The output areas as the caller passes them.
    [[nodiscard]] Outputs outputs(const Caller &caller, const Replies &replies, uint8_t fill) const
    {
        const catalogue::Arguments arguments = argumentsFor(caller, replies);
        Outputs out(request_->function().outputSizes(arguments), fill);
        std::size_t area = 0;
        for (const catalogue::Argument &argument : arguments) {
            if (argument.kind == catalogue::Argument::Kind::buffer) {
                out.store(area++, argument.text);
            }
        }
        return out;
    }

    int32_t ask(Outputs &out, const Caller &caller, const Replies &replies) const
    {
        std::vector<void *> outputs = out.addresses();
        for (std::size_t area = 0; area < outputs.size(); ++area) {
            if (reference_.wants != nullptr && !reference_.wants(caller, area)) {
                outputs[area] = nullptr;
            }
        }
        return request_->function()(argumentsFor(caller, replies), outputs);
    }

    std::optional<int32_t> read(Outputs &out, const Caller &caller, Replies &replies) const
    {
        if (reference_.whole) {
            return reference_.whole(out, caller, replies);
        }
        const auto reply = replies.take();
        if (!reply) {
            return std::nullopt;
        }
        if (reference_.rest && reply->starts_with(reference_.key)) {
            return reference_.rest(out, caller, reply->substr(reference_.key.size()));
        }
        if (const auto &form = request_->numberForm(); form && reply->starts_with(form->key)) {
            return readNumber(out, *form, reply->substr(form->key.size()));
        }
        return readWord(out, *reply);
    }

    /// The replies in the catalogue for the request's own arguments.
    [[nodiscard]] std::vector<Replies> knownReplies() const
    {
        std::vector<Replies> all;
        for (const catalogue::Exchange &exchange : request_->allExchanges()) {
            if (!exchange.commands.empty() && !exchange.replies.empty()) {
                all.push_back({.lines = exchange.replies});
                for (std::string &line : all.back().lines) {
                    line.resize(line.find_last_not_of('\r') + 1);  // the reader of the connection removes them
                }
            }
        }
        return all;
    }

private:
    [[nodiscard]] catalogue::Arguments argumentsFor(const Caller &caller, const Replies &replies) const
    {
        return reference_.arguments ? reference_.arguments(request_->arguments(), caller, replies) : request_->arguments();
    }

    /// Reads a number that must be the whole rest and within its bounds.
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

    /// Handles a reply that equals one of the catalogue's, and all others.
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
    Reference reference_;
    std::set<int32_t> codes_{};
};

}  // namespace fuzz
