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
std::vector<ToldEvent> &told = *new std::vector<ToldEvent>;
std::function<int32_t(const ToldEvent &)> &answer = *new std::function<int32_t(const ToldEvent &)>;

int32_t note(const ToldEvent &event)
{
    std::function<int32_t(const ToldEvent &)> answerNow;
    {
        const std::lock_guard lock(recorderLock);
        told.push_back(event);
        answerNow = answer;
        recorded.notify_all();
    }
    return answerNow ? answerNow(event) : 0;
}

}  // namespace

EventRecorder::EventRecorder(std::function<int32_t(const ToldEvent &)> onEvent)
{
    const std::lock_guard lock(recorderLock);
    told.clear();
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

std::vector<ToldEvent> EventRecorder::events() const
{
    const std::lock_guard lock(recorderLock);
    return told;
}

std::vector<uint32_t> EventRecorder::codes() const
{
    std::vector<uint32_t> codes;
    for (const ToldEvent &event : events()) {
        codes.push_back(event.code);
    }
    return codes;
}

bool EventRecorder::waitFor(std::size_t count) const
{
    std::unique_lock lock(recorderLock);
    return recorded.wait_for(lock, 10s, [count] { return told.size() >= count; });
}

Script agrees(std::vector<std::pair<std::string, std::string>> replies)
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

std::string askUsbServer(const std::string &bytes, bool untilItCloses)
{
    const int client = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, kUsbSocket);
    std::string heard = "(nobody)";
    if (connect(client, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0) {
        // By other calls than the library's, which tests put themselves in between.
        iovec all{const_cast<char *>(bytes.data()), bytes.size()};
        msghdr message{};
        message.msg_iov = &all;
        message.msg_iovlen = 1;
        sendmsg(client, &message, MSG_NOSIGNAL);
        heard.clear();
        char piece[256];
        while (untilItCloses || !heard.ends_with('\n')) {
            const ssize_t count = TEMP_FAILURE_RETRY(read(client, piece, sizeof piece));  // some tests send signals meanwhile
            if (count <= 0) {
                break;
            }
            heard.append(piece, static_cast<std::size_t>(count));
        }
    }
    close(client);
    return heard;
}

}  // namespace

std::string answerOfUsbServer(const std::string &bytes) { return askUsbServer(bytes, true); }

std::string lineOfUsbServer(const std::string &bytes) { return askUsbServer(bytes, false); }

uint32_t serverState() { return __atomic_load_n(&ServerPipeThreadSyncState, __ATOMIC_SEQ_CST); }
void setServerState(uint32_t state) { __atomic_store_n(&ServerPipeThreadSyncState, state, __ATOMIC_SEQ_CST); }
uint32_t suicideServed() { return __atomic_load_n(&uiSuicide, __ATOMIC_SEQ_CST); }

}  // namespace support
