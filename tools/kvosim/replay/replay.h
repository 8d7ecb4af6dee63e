// A service that answers as a recording says, with its pauses and faults, and sends the recorded events.
#pragma once

#include "common/command_socket.h"
#include "kvosim/commands/service_context.h"
#include "kvosim/events/embedded_events.h"
#include "kvosim/net/line_server.h"
#include "kvosim/replay/report.h"
#include "kvosim/replay/speed.h"
#include "kvosim/replay/timeline.h"
#include "kvosim/replay/usb_sender.h"

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>

namespace kvosim {

struct ReplayOptions {
    std::filesystem::path socket = tools::kCommandSocket;
    std::filesystem::path eventSocket = tools::kEventSocket;
    std::filesystem::path usbSocket = tools::kUsbEventSocket;
    std::string file{};  ///< the recording, in the report
    Speed speed{};
    bool strict = false;   ///< answer each recorded request only once
    bool verbose = false;  ///< log each exchange on standard error
    mode_t socketMode = tools::kForThisUser;
};

class Replay {
public:
    /// Serves as soon as @p loop runs. @p plant answers what was not recorded. Throws std::runtime_error if the service cannot
    /// start, and PlantFileError if the plant in the recording is invalid. @p loop and @p recording must outlive this object.
    Replay(tools::EventLoop &loop, const Recording &recording, std::optional<Plant> plant, ReplayOptions options);
    Replay(const Replay &) = delete;
    Replay &operator=(const Replay &) = delete;

    /// Sends no further event, finishes the replies that are being written, then calls @p ended.
    void end(std::function<void()> ended);

    [[nodiscard]] std::size_t recordedRequests() const noexcept { return script_.size(); }
    /// Whether the recording has neither requests nor events.
    [[nodiscard]] bool isEmpty() const;
    [[nodiscard]] ReplayReport report() const;

private:
    /// A plant with the state of a service.
    struct Simulated {
        explicit Simulated(Plant itsPlant) : plant(std::move(itsPlant)), registry(std::nullopt) { registry.start(plant); }
        Simulated(const Simulated &) = delete;
        Simulated &operator=(const Simulated &) = delete;

        Plant plant;
        Registry registry;
        ServiceContext context{.plant = plant, .registry = registry};
    };
    /// Who gets an embedded event: one listener, or all.
    struct Target {
        std::optional<uint64_t> listener;
        int retries = 0;
    };

    Reply exchange(std::string_view request);
    Reply answerAsRecorded(std::string_view request, const Script::Match &match);
    Reply answerUnmatched(std::string_view request);
    void replaceRegistryPath(Exchange &exchange);
    void beginUsbEvents();
    void sendUsbEvent(LineIndex line, const std::function<void()> &done);
    void finishUsbEvent(LineIndex line, const Exchange &event, const UsbSender::Result &result);
    void addListener(uint64_t number);
    void play(const EventGroup &group, std::optional<uint64_t> listener);
    void sendEmbeddedEvent(LineIndex line, Target target, const std::function<void()> &done);
    [[nodiscard]] Exchange exchangeAt(LineIndex line) const;
    [[nodiscard]] RecordedText textAt(LineIndex line) const;
    void logIfVerbose(std::string_view line) const;

    tools::EventLoop &loop_;
    const Recording &recording_;
    ReplayOptions options_;
    Contents contents_;
    Script script_;
    Unmatched unmatched_;
    ReplayReport counts_;
    std::unique_ptr<Simulated> recordedPlant_;  // only its registry is used
    std::unique_ptr<Simulated> plant_;
    LineServer commands_;
    EmbeddedEvents embeddedEvents_;
    std::size_t activations_ = 0;
    std::size_t listeners_ = 0;
    std::unique_ptr<Timeline> usbTimeline_;
    std::vector<std::unique_ptr<Timeline>> eventTimelines_;
    std::map<uint64_t, std::unique_ptr<UsbSender>> usbSenders_;
    uint64_t lastSender_ = 0;
    bool hasEnded_ = false;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace kvosim
