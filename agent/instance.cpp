#include "agent/instance.h"

namespace {

EmbKvoInst withoutSocket() noexcept
{
    EmbKvoInst agent = {};
    agent.session.socket = -1;
    return agent;
}

EmbKvoInst theAgent = withoutSocket();

}  // namespace

EmbKvoInst *gEmbKvoInst = &theAgent;

uint32_t gFocusKvoIp = 0;
uint32_t gKvoIndex = 0;
uint32_t gMcpLikeFocusKvo = 0;
char gScreenOnFocus[261] = {};
uint32_t gChannelOnFocus = 1;
uint32_t gStartupActive = 1;
uint32_t gStartupPrio = 2;
uint32_t gSuspendLock = 0;
uint32_t gSuspendPrio = 1;
char gHostname[260] = {};
char gFocusName[260] = {};
EmbCmdCallback gCmdCallback = nullptr;
uint32_t protocolNegotiated = 0;

std::atomic<uint32_t> kvo_hws::agent::starts{0};
std::atomic<uint32_t> kvo_hws::agent::abandoned{UINT32_MAX};
