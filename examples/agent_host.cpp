// A host program of the remote agent. It carries out the commands that the agent passes to it.
//
// The program also reads its input: it pushes each line as an event, and ends when the input ends.
#include <kvo_hws/kvo_hws.h>

#include <atomic>
#include <iostream>
#include <string>
#include <string_view>

namespace {

std::atomic<bool> viewerRuns{true};

// Runs on the agent's thread, one command at a time. The remote side waits for the result.
int onCommand(void * /*agent*/, const char *text)
{
    const std::string_view command = text;
    std::cout << "asked: " << command << std::endl;
    if (command == "show-viewer-active") {
        return viewerRuns ? 1 : 0;
    }
    if (command.rfind("stop-viewer", 0) == 0) {
        return viewerRuns.exchange(false) ? 1 : 0;  // 0: it was not running
    }
    if (command == "activate-me") {
        return 0;  // busy
    }
    if (command.rfind("set-statusline=", 0) == 0) {
        return 1;
    }
    return -1;  // a command that this program does not know
}

}  // namespace

int main()
{
    void *agent = nullptr;
    const int started = KVO_HWS_startupEmbHwsClient("focusKvoIp=10.0.0.5\n"
                                                    "remoteKvoHwsIp=127.0.0.1\n"
                                                    "remoteSession=3\n"
                                                    "kvoIndex=5\n",
                                                    &agent, onCommand);
    if (started != KVO_HWS_OK) {
        std::cerr << "cannot start the agent (" << started << ")\n";
        return 1;
    }
    for (std::string event; std::getline(std::cin, event);) {
        if (KVO_HWS_sendEmbHwsEvent(agent, event.c_str()) != KVO_HWS_OK) {
            std::cout << "no request has arrived yet; not sent: " << event << std::endl;
        }
    }
    return KVO_HWS_cleanupEmbHwsClient(agent) == KVO_HWS_OK ? 0 : 1;
}
