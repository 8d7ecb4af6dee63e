#include "support/usb_events.h"

#include <kvo_hws/service.h>

#include <algorithm>
#include <condition_variable>
#include <map>
#include <mutex>
#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <unistd.h>

using namespace std::chrono_literals;

namespace support {

namespace {

// Never destroyed: a callback may still be called while the process ends.
std::mutex &recorderLock = *new std::mutex;
std::condition_variable &recorded = *new std::condition_variable;
std::vector<RecordedEvent> &recordedEvents = *new std::vector<RecordedEvent>;
std::function<int32_t(const RecordedEvent &)> &answer = *new std::function<int32_t(const RecordedEvent &)>;

int32_t note(const RecordedEvent &event)
{
    std::function<int32_t(const RecordedEvent &)> answerNow;
    {
        const std::lock_guard lock(recorderLock);
        recordedEvents.push_back(event);
        answerNow = answer;
        recorded.notify_all();
    }
    return answerNow ? answerNow(event) : 0;
}

}  // namespace

EventRecorder::EventRecorder(std::function<int32_t(const RecordedEvent &)> onEvent)
{
    const std::lock_guard lock(recorderLock);
    recordedEvents.clear();
    answer = std::move(onEvent);
}

EventRecorder::~EventRecorder()
{
    const std::lock_guard lock(recorderLock);
    answer = {};
}

int32_t EventRecorder::older(uint32_t code, void *record)
{
    const auto *const bytes = static_cast<const char *>(record);
    return note({1, code, 0, bytes == nullptr ? "" : std::string(bytes, sizeof(UsbDeviceV1))});
}

int32_t EventRecorder::newer(UsbEventV2 *event)
{
    const auto *const bytes = reinterpret_cast<const char *>(&event->payload);
    return note({2, event->code, event->length, std::string(bytes, event->length - 8)});
}

std::vector<RecordedEvent> EventRecorder::events() const
{
    const std::lock_guard lock(recorderLock);
    return recordedEvents;
}

std::vector<uint32_t> EventRecorder::codes() const
{
    std::vector<uint32_t> codes;
    for (const RecordedEvent &event : events()) {
        codes.push_back(event.code);
    }
    return codes;
}

bool EventRecorder::waitFor(std::size_t count) const
{
    std::unique_lock lock(recorderLock);
    return recorded.wait_for(lock, 10s, [count] { return recordedEvents.size() >= count; });
}

Script acceptsAll(std::vector<std::pair<std::string, std::string>> replies)
{
    return answersWith(
        [replies = std::map<std::string, std::string>(replies.begin(), replies.end())](const std::string &request) {
            const auto reply = replies.find(request);
            if (reply != replies.end()) {
                return reply->second;
            }
            return std::string(request.starts_with("is") ? "yes" : "ok");
        });
}

namespace {

std::string exchangeWithUsbServer(const std::string &bytes, bool untilItCloses)
{
    const int client = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, kUsbSocket);
    std::string reply = "(no server)";
    if (connect(client, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0) {
        // Uses sendmsg: a test may have replaced the calls that the library uses.
        iovec all{const_cast<char *>(bytes.data()), bytes.size()};
        msghdr message{};
        message.msg_iov = &all;
        message.msg_iovlen = 1;
        sendmsg(client, &message, MSG_NOSIGNAL);
        reply.clear();
        char piece[256];
        while (untilItCloses || !reply.ends_with('\n')) {
            const ssize_t count = TEMP_FAILURE_RETRY(read(client, piece, sizeof piece));  // some tests send signals meanwhile
            if (count <= 0) {
                break;
            }
            reply.append(piece, static_cast<std::size_t>(count));
        }
    }
    close(client);
    return reply;
}

}  // namespace

std::string usbServerReply(const std::string &bytes) { return exchangeWithUsbServer(bytes, true); }

std::string usbServerReplyLine(const std::string &bytes) { return exchangeWithUsbServer(bytes, false); }

uint32_t serverState() { return __atomic_load_n(&ServerPipeThreadSyncState, __ATOMIC_SEQ_CST); }
void setServerState(uint32_t state) { __atomic_store_n(&ServerPipeThreadSyncState, state, __ATOMIC_SEQ_CST); }
uint32_t suicideServed() { return __atomic_load_n(&uiSuicide, __ATOMIC_SEQ_CST); }

}  // namespace support
