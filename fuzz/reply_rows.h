// How a request is fuzzed: a row tells what areas it writes, how it is asked, and how its replies are read plainly. What it
// makes of the replies is compared, to the byte, with what the plain reading makes of them.
#pragma once

#include "plain_descriptions.h"
#include "support.h"

#include <kvo_hws/requests.h>

#include <cstdlib>
#include <functional>
#include <optional>
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

// ---- Rows ----

struct Row {
    using Sizes = std::function<std::vector<std::size_t>(const Caller &caller, const Replies &replies)>;

    const char *name;
    std::vector<int32_t> codes;  ///< the documented ones
    Sizes areas;
    /// What the caller puts into the areas, sizes say.
    std::function<void(Outputs &out, const Caller &caller)> prepare;
    std::function<int32_t(Outputs &out, const Caller &caller)> ask;
    /// The result, or nothing where the service has gone.
    std::function<std::optional<int32_t>(Outputs &out, const Caller &caller, Replies &replies)> read;
    /// What a missing service is, where that is not the exchange's own code.
    int32_t noService = 0;
};

/// Replies that are exactly a text, and the results they stand for.
using Words = std::vector<std::pair<std::string, int32_t>>;

inline int32_t resultOf(const Words &words, const std::string &reply, int32_t otherwise = KVO_HWS_FAILED)
{
    for (const auto &[word, result] : words) {
        if (reply == word) {
            return result;
        }
    }
    return otherwise;
}

inline std::vector<int32_t> codesOf(const Words &words, std::vector<int32_t> others)
{
    for (const auto &[word, result] : words) {
        others.push_back(result);
    }
    return others;
}

inline Row::Sizes fixed(std::vector<std::size_t> sizes)
{
    return [sizes = std::move(sizes)](const Caller &, const Replies &) { return sizes; };
}

inline void prepareNothing(Outputs & /*out*/, const Caller & /*caller*/) {}

/// A reply that is one of some words.
inline Row words(const char *name, std::function<int32_t()> ask, const Words &known, int32_t otherwise = KVO_HWS_FAILED)
{
    return {.name = name,
            .codes = codesOf(known, {otherwise, KVO_HWS_FAILED, KVO_HWS_NO_SERVICE}),
            .areas = fixed({}),
            .prepare = prepareNothing,
            .ask = [ask = std::move(ask)](Outputs &, const Caller &) { return ask(); },
            .read = [known, otherwise](Outputs &, const Caller &, Replies &replies) -> std::optional<int32_t> {
                const auto reply = replies.take();
                return reply ? std::optional(resultOf(known, *reply, otherwise)) : std::nullopt;
            }};
}

/// Reads what stands behind a reply's key into the outputs, and returns the result.
using ReadRest = std::function<int32_t(Outputs &out, const Caller &caller, const std::string &rest)>;
using Ask = std::function<int32_t(Outputs &out)>;

/// A reply that begins with a key, or is one of some words.
inline Row keyed(const char *name, std::vector<std::size_t> areas, Ask ask, const std::string &key, ReadRest readRest,
                 const Words &known = {}, const std::vector<int32_t> &further = {})
{
    std::vector<int32_t> codes = codesOf(known, {KVO_HWS_OK, KVO_HWS_FAILED, KVO_HWS_NO_SERVICE});
    codes.insert(codes.end(), further.begin(), further.end());
    return {.name = name,
            .codes = codes,
            .areas = fixed(std::move(areas)),
            .prepare = prepareNothing,
            .ask = [ask = std::move(ask)](Outputs &out, const Caller &) { return ask(out); },
            .read = [key, readRest = std::move(readRest), known](Outputs &out, const Caller &caller,
                                                                 Replies &replies) -> std::optional<int32_t> {
                const auto reply = replies.take();
                if (!reply) {
                    return std::nullopt;
                }
                return reply->starts_with(key) ? readRest(out, caller, reply->substr(key.size())) : resultOf(known, *reply);
            }};
}

/// A number that is all of the rest and within bounds.
inline Row number(const char *name, int32_t (*ask)(uint32_t station, uint32_t *value), const std::string &key, int base = 10,
                  unsigned long lowest = 0, unsigned long highest = ~0UL, const Words &known = {})
{
    return keyed(
        name, {sizeof(uint32_t)}, [ask](Outputs &out) { return ask(5, &out.word(0)); }, key,
        [=](Outputs &out, const Caller &, const std::string &rest) -> int32_t {
            char *end = nullptr;
            const unsigned long value = std::strtoul(rest.c_str(), &end, base);
            if (*end != '\0' || value < lowest || value > highest) {
                return KVO_HWS_FAILED;
            }
            out.word(0) = static_cast<uint32_t>(value);
            return KVO_HWS_OK;
        },
        known);
}

/// Words that stand for a value.
template <class Value>
Row stored(const char *name, int32_t (*ask)(uint32_t station, Value *value), const Words &values)
{
    return {.name = name,
            .codes = {KVO_HWS_OK, KVO_HWS_FAILED, KVO_HWS_NO_SERVICE},
            .areas = fixed({sizeof(Value)}),
            .prepare = prepareNothing,
            .ask = [ask](Outputs &out, const Caller &) { return ask(5, out.at<Value>(0)); },
            .read = [values](Outputs &out, const Caller &, Replies &replies) -> std::optional<int32_t> {
                const auto reply = replies.take();
                if (!reply) {
                    return std::nullopt;
                }
                for (const auto &[word, value] : values) {
                    if (*reply == word) {
                        *out.at<Value>(0) = static_cast<Value>(value);
                        return KVO_HWS_OK;
                    }
                }
                return KVO_HWS_FAILED;
            }};
}

}  // namespace fuzz
