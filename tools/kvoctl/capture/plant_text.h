// Writes a plant file from what the service has replied. The file is always valid: what it cannot contain becomes a comment.
#pragma once

#include "kvoctl/capture/not_read.h"
#include "kvoctl/capture/station_requests.h"

#include <kvo_hws/codecs.h>

#include <span>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace kvoctl {

/// Call the functions in this order; stations may be added any number of times.
class PlantText {
public:
    /// @p ready  the reply to "isInitComplete"
    PlantText(const Answer &ready, const Answer &version, const Answer &debugLevel);

    void addClients(std::span<const KvoClientEntry> clients);
    /// @p registry  the text of the registry's file
    void addPrevious(std::string_view registry);
    /// @p answers  the answers to the commands of stationRequests(), in their order
    void addStation(const KvoDescriptionEx &station, std::span<const Answer> answers);
    /// A list that was not read. @p key is its name in the file.
    void addMissing(std::string_view key, const std::string &reason);

    [[nodiscard]] std::string take() && { return std::move(text_); }
    [[nodiscard]] const std::vector<NotRead> &notRead() const noexcept { return notRead_; }

private:
    struct Identity {
        std::string address;
        std::string name;
    };
    /// The addresses and names of one list, in which each may occur once.
    struct Used {
        std::unordered_set<std::string> addresses{};
        std::unordered_set<std::string> names{};
    };

    void add(const std::string &station, const Setting &setting);
    /// A comment about a failure.
    void addFailure(const std::string &station, std::string_view key, const std::string &reason);
    void addComment(std::string_view key, std::string_view reason);
    bool addIdentity(std::string_view table, Used &used, const Identity &identity);
    void addPreviousLine(Used &used, std::string_view line);

    std::string text_;
    std::vector<NotRead> notRead_;
    Used stations_;
};

}  // namespace kvoctl
