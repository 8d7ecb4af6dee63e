// Asks the service, one request after the other and not too fast, until it stops answering.
#include "kvoctl/capture/capture.h"

#include "common/descriptor.h"
#include "common/dotted_address.h"
#include "common/station/state.h"
#include "kvoctl/capture/plant_text.h"
#include "kvoctl/command_line/fetch_list.h"
#include "kvoctl/output/result.h"

#include <kvo_hws/requests.h>
#include <kvo_hws/result.h>
#include <kvo_hws/service.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace kvoctl {

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char *kStoppedBefore = "the service had stopped answering";

/// Keeps a distance between the beginnings of requests.
class Pace {
public:
    explicit Pace(std::optional<unsigned> rate)
        : interval_(rate ? std::chrono::nanoseconds(std::chrono::seconds(1)) / *rate : std::chrono::nanoseconds(0))
    {
    }

    /// @p requests  how many are about to be sent at once
    void wait(unsigned requests)
    {
        std::this_thread::sleep_until(next_);
        next_ = Clock::now() + requests * interval_;
    }

private:
    std::chrono::nanoseconds interval_;
    Clock::time_point next_{};
};

/// What the service returns for a list of stations or clients.
template <class Record>
struct Fetched {
    std::vector<Record> records{};
    std::string reason{};  ///< why there are none; empty if the list was read
};

class Reader {
public:
    explicit Reader(const CaptureOptions &options) : options_(options), pace_(options.rate) {}

    Captured run() &&;

private:
    Answer ask(const std::string &command);
    template <class Record, class Request>
    Fetched<Record> fetch(const std::string &command, const char *entries, Request request);
    void readClients(PlantText &plant);
    void readPrevious(PlantText &plant);
    void readStations(PlantText &plant);
    std::vector<Answer> askAbout(uint32_t station);

    void prepare(unsigned requests);
    void stopIfSilent(int32_t result, Clock::time_point start, const std::string &command);

    const CaptureOptions &options_;
    Pace pace_;
    CaptureProgress progress_{};
    Captured captured_;
    int32_t stoppedWith_ = KVO_HWS_OK;
};

void Reader::prepare(unsigned requests)
{
    if (options_.progress) {
        options_.progress(progress_);
    }
    pace_.wait(requests);
}

/// Each further request to a silent service would take as long.
void Reader::stopIfSilent(int32_t result, Clock::time_point start, const std::string &command)
{
    if (result == KVO_HWS_NO_SERVICE || Clock::now() - start > tools::kSilence) {
        stoppedWith_ = result;
        captured_.stopped = "the service stopped answering at " + command;
    }
}

/// The text of a reply without its line end.
std::string textOf(const DynBuffer &reply)
{
    const std::string_view bytes(reply.pcData, reply.uiLength);
    return std::string(bytes.substr(0, bytes.find_last_not_of(std::string_view("\r\n\0", 3)) + 1));
}

Answer Reader::ask(const std::string &command)
{
    if (!captured_.stopped.empty()) {
        return {{}, kStoppedBefore};
    }
    prepare(1);
    const Clock::time_point start = Clock::now();
    DynBuffer reply{};
    const int result = SendCommand2ServiceDyn(command.c_str(), &reply);
    const std::unique_ptr<char, decltype(&std::free)> owned(reply.pcData, &std::free);
    if (result == KVO_HWS_OK) {
        return {textOf(reply)};
    }
    stopIfSilent(result, start, command);
    return {{}, captured_.stopped.empty() ? "the service closed the connection without a complete reply" : kStoppedBefore};
}

template <class Record, class Request>
Fetched<Record> Reader::fetch(const std::string &command, const char *entries, Request request)
{
    if (!captured_.stopped.empty()) {
        return {{}, kStoppedBefore};
    }
    constexpr unsigned kRequests = 2;  // the number of stations, and the list
    Clock::time_point start;
    const auto ask = [&](Record *list, uint32_t *count) {
        prepare(kRequests);
        start = Clock::now();
        return request(list, count);
    };
    try {
        return {fetchList<Record>(ask, entries)};
    } catch (const Failure &failure) {
        stopIfSilent(failure.result(), start, command);
        return {{}, captured_.stopped.empty() ? failure.what() : kStoppedBefore};
    }
}

void Reader::readClients(PlantText &plant)
{
    const auto clients = fetch<KvoClientEntry>("getClientList", "clients", [](KvoClientEntry *list, uint32_t *count) {
        return KVO_REQUEST(KVO_HWS_getClientList)(list, count, 0);
    });
    if (clients.reason.empty()) {
        plant.addClients(clients.records);
    } else {
        plant.addMissing("client", "not read: " + clients.reason);
    }
}

/// The text of a file, or why it cannot be read.
Answer contentsOf(const std::string &path)
{
    const auto failure = [] { return Answer{{}, std::string("the service's file: ") + std::strerror(errno)}; };
    const tools::Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status {};
    if (!file.valid() || fstat(file.get(), &status) != 0) {
        return failure();
    }
    if (!S_ISREG(status.st_mode)) {
        return {{}, "the service's file: not a file"};
    }
    std::string text;
    std::array<char, 65536> piece{};
    for (;;) {
        const ssize_t count = TEMP_FAILURE_RETRY(read(file.get(), piece.data(), piece.size()));
        if (count < 0) {
            return failure();
        }
        if (count == 0) {
            return {std::move(text)};
        }
        text.append(piece.data(), static_cast<std::size_t>(count));
    }
}

/// Reads the file without the lock of the registry, so that nothing at the service changes: the service replaces the file by
/// renaming, so that it is always complete.
void Reader::readPrevious(PlantText &plant)
{
    constexpr std::string_view kKey = "registry.previous";
    const Answer path = ask("getregistrypath");
    const bool isPath = path.reply && path.reply->starts_with('/') && path.reply->ends_with('/');
    if (!isPath) {
        plant.addMissing(kKey, notRead(kKey, path).reason);
        return;
    }
    const Answer list = contentsOf(*path.reply + "kvo_hws/prevkvos.reg");
    if (list.reply) {
        plant.addPrevious(*list.reply);
    } else {
        plant.addMissing(kKey, "not read: " + list.reason);
    }
}

std::vector<Answer> Reader::askAbout(uint32_t station)
{
    std::array<char, sizeof "0A000005"> digits{};
    std::snprintf(digits.data(), digits.size(), "%08X", station);
    std::vector<Answer> answers;
    for (const StationRequest &request : stationRequests()) {
        for (const std::string &command : request.commands) {
            answers.push_back(ask(command + digits.data()));
        }
    }
    return answers;
}

void Reader::readStations(PlantText &plant)
{
    const auto stations = fetch<KvoDescriptionEx>("getDL_ExV2", "stations", KVO_REQUEST(KVO_HWS_getDescriptionListEx));
    if (!stations.reason.empty()) {
        plant.addMissing("station", "not read: " + stations.reason);
        if (captured_.stopped.empty()) {
            captured_.stopped = "the service did not return the list of stations: " + stations.reason;
        }
        return;
    }
    captured_.stations = progress_.all = stations.records.size();
    for (const KvoDescriptionEx &station : stations.records) {
        plant.addStation(station, askAbout(station.address));
        ++progress_.stations;
    }
}

Captured Reader::run() &&
{
    const Answer ready = ask("isInitComplete");
    if (!captured_.stopped.empty()) {
        const bool hasService = stoppedWith_ != KVO_HWS_NO_SERVICE;
        throw Failure(stoppedWith_, hasService ? "the service does not answer" : meaningOf({stoppedWith_}));
    }
    const Answer version = ask("getVersion");
    PlantText plant(ready, version, ask("getDebugLevel"));
    readClients(plant);
    readPrevious(plant);
    readStations(plant);
    captured_.notRead = plant.notRead();
    const std::string incomplete = captured_.stopped.empty() ? "" : "# Incomplete: " + captured_.stopped + ".\n";
    captured_.text = incomplete + std::move(plant).take();
    return std::move(captured_);
}

}  // namespace

Captured capture(const CaptureOptions &options) { return Reader(options).run(); }

}  // namespace kvoctl
