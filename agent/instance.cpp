#include "agent/instance.h"

#include <cstddef>

// Programs look into these records: their layout is part of the interface, wherever a pointer has 4 or 8 bytes.
constexpr std::size_t kPointer = sizeof(void *);
static_assert(offsetof(HmiSession, server) == kPointer);
static_assert(offsetof(HmiSession, display) == 2 * kPointer + 4 && offsetof(HmiSession, keyFlags) == 2 * kPointer + 16);
static_assert(offsetof(HmiSession, socket) == 2 * kPointer + 20 && offsetof(HmiSession, connected) == 2 * kPointer + 24);
static_assert(offsetof(HmiSession, chunk) == 2 * kPointer + 28 && offsetof(HmiSession, lastActivity) == 2 * kPointer + 32);
static_assert(offsetof(HmiSession, lineBuffer) == 2 * kPointer + 40 && offsetof(HmiSession, lineFill) == 3 * kPointer + 40);
static_assert(sizeof(HmiSession) == 4 * kPointer + 40);
static_assert(offsetof(HmiServer, address) == 8 && offsetof(HmiServer, name) == 8 + kPointer);
static_assert(offsetof(HmiServer, session) == 8 + 3 * kPointer && sizeof(HmiServer) == 8 + 4 * kPointer);
static_assert(offsetof(EmbKvoInst, stop) == 4 && offsetof(EmbKvoInst, focusKvoIp) == 8);
static_assert(offsetof(EmbKvoInst, focusKvoName) == 12 && offsetof(EmbKvoInst, remoteKvoHwsIp) == 140);
static_assert(offsetof(EmbKvoInst, remoteSession) == 144 && offsetof(EmbKvoInst, kvoIndex) == 160);
static_assert(offsetof(EmbKvoInst, mcpFlag) == 164 && offsetof(EmbKvoInst, channelOnFocus) == 168);
static_assert(offsetof(EmbKvoInst, screenOnFocus) == 172 && offsetof(EmbKvoInst, suspendLock) == 300);
static_assert(offsetof(EmbKvoInst, suspendPrio) == 304 && offsetof(EmbKvoInst, startupActive) == 308);
static_assert(offsetof(EmbKvoInst, startupPrio) == 312 && offsetof(EmbKvoInst, session) % kPointer == 0);
static_assert(offsetof(EmbKvoInst, server) == offsetof(EmbKvoInst, session) + sizeof(HmiSession));
static_assert(sizeof(HwsCommand) == 2 * kPointer);

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
