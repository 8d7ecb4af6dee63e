// The USB lock of stations, which is set with broadcast datagrams, and the lists of their USB connectors.
#include <kvo_hws/requests.h>

#include "requests/values.h"
#include "runtime/adapter_cache.h"
#include "runtime/log.h"
#include "runtime/owners.h"
#include "service/request.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstdio>
#include <cstring>
#include <netinet/in.h>
#include <span>
#include <string_view>
#include <sys/socket.h>

namespace {

using kvo_hws::Answer;
using kvo_hws::Descriptor;
using kvo_hws::Request;

// ---- Setting the lock ----

constexpr const char *kLockLabel = "KVO_HWS_setUsbLock";
constexpr uint16_t kLockPort = 5851;
constexpr const char *kEveryStation = "0.0.0.0";
constexpr std::string_view kLoopback = "127.0.0.1";

int32_t lockFailed(int32_t code, const char *reason) noexcept
{
    kvo_hws::debugMessage(kLockLabel, reason);
    return code;
}

/// The broadcast address of the panel's internal network; only this host if the platform knows no such network.
sockaddr_in lockDestination() noexcept
{
    sockaddr_in destination{};
    destination.sin_family = AF_INET;
    destination.sin_port = htons(kLockPort);
    const kvo_hws::AdapterCache adapter(libpavo_getMetric(PLATFORM_INTERFACE_NAME));
    destination.sin_addr.s_addr = adapter.found() ? adapter.broadcast() : htonl(INADDR_LOOPBACK);
    return destination;
}

bool sendLock(const Descriptor &socket, const sockaddr_in &destination, int first, int second, const char *host) noexcept
{
    char datagram[1024];
    const int length = std::snprintf(datagram, sizeof datagram, "setUsbLock=\"%d:%d\" %s\n", first, second, host);
    const auto size = std::min(static_cast<std::size_t>(length), sizeof datagram - 1);
    return sendto(socket.get(), datagram, size, MSG_NOSIGNAL, reinterpret_cast<const sockaddr *>(&destination),
                  sizeof destination) == static_cast<ssize_t>(size);
}

bool enable(const Descriptor &socket, int option) noexcept
{
    const int on = 1;
    return setsockopt(socket.get(), SOL_SOCKET, option, &on, sizeof on) == 0;
}

// ---- Connector lists ----

int32_t readConnectorList(Request &request, std::string_view key, char *buffer, uint32_t *size) noexcept
{
    return request
        .value(key,
               [=](std::string_view list) -> Answer {
                   const bool fits = list.size() < *size;
                   *size = static_cast<uint32_t>(list.size());
                   if (list.empty()) {
                       // Not checked against the size: a buffer always has at least one byte.
                       if (buffer != nullptr) {
                           *buffer = '\0';
                       }
                       return {KVO_HWS_NO};
                   }
                   if (!fits) {
                       return {KVO_HWS_TOO_SMALL};
                   }
                   // Without a terminator: callers clear the buffer first or use the size.
                   if (buffer != nullptr) {
                       std::memcpy(buffer, list.data(), list.size());
                   }
                   return {KVO_HWS_OK};
               })
        .on("busy", KVO_HWS_BUSY, "error sending request")
        .on("failed", KVO_HWS_REFUSED, "error sending request")
        .otherwise(KVO_HWS_UNKNOWN_REPLY, "unknown error sending request")
        .result();
}

constexpr const char *kConnectorLabel = "get usb connector list";  // also for the request for one station

}  // namespace

int32_t KVO_HWS_getUsbLock(uint32_t station, uint32_t *first, uint32_t *second) noexcept
{
    return Request("get KVO usb lock")
        .needs(first, second)
        .send("getUsbLock=%08X", station)
        .value("usb-lock=",
               [=](const char *rest) -> Answer {
                   const auto [firstValue, colon] = kvo_hws::readNumber(rest, 10);
                   if (colon == rest || *colon != ':') {
                       return {KVO_HWS_FAILED};
                   }
                   const auto [secondValue, end] = kvo_hws::readNumber(colon + 1, 10);
                   if (end == colon + 1) {
                       return {KVO_HWS_FAILED};
                   }
                   *first = static_cast<uint32_t>(firstValue);
                   *second = static_cast<uint32_t>(secondValue);
                   return {KVO_HWS_OK};
               })
        .result();
}

int32_t KVO_HWS_setUsbLock(uint32_t count, const char **hosts, int first, int second) noexcept
{
    if (count != 0 && hosts == nullptr) {
        return lockFailed(KVO_HWS_NULL_POINTER, "null pointer received");
    }
    const std::span<const char *const> named(hosts, count);
    if (std::ranges::any_of(named, [](const char *host) { return host != nullptr && host == kLoopback; })) {
        return lockFailed(KVO_HWS_INVALID_HOST, "invalid host address 127.0.0.1");
    }
    if (std::ranges::find(named, nullptr) != named.end()) {
        return lockFailed(KVO_HWS_NULL_POINTER, "null pointer received");
    }
    const kvo_hws::NoCancellation wholeSending;
    const Descriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP));
    if (!socket.valid()) {
        return lockFailed(KVO_HWS_FAILED, "socket() fails");
    }
    if (!enable(socket, SO_REUSEADDR)) {
        return lockFailed(KVO_HWS_FAILED, "setsockopt(REUSEADDR) causes error");
    }
    if (!enable(socket, SO_BROADCAST)) {
        return lockFailed(KVO_HWS_FAILED, "setsockopt(SO_BROADCAST) causes error");
    }
    const sockaddr_in destination = lockDestination();
    int32_t result = KVO_HWS_FAILED;
    for (uint32_t left = count == 0 ? 1 : count; left-- > 0;) {
        if (!sendLock(socket, destination, first, second, count == 0 ? kEveryStation : hosts[left])) {
            kvo_hws::debugMessage(kLockLabel, "can not send broadcast request");
            break;
        }
        result = KVO_HWS_OK;  // stays if a later datagram fails: one sent datagram is a success
    }
    return result;
}

int32_t KVO_HWS_getUsbConnectorList(char *buffer, uint32_t *size) noexcept
{
    Request request(kConnectorLabel);
    request.needs(size).send("getUsbConnectorList");
    return readConnectorList(request, "usb-connector-list=", buffer, size);
}

int32_t KVO_HWS_getUsbConnectorListOne(uint32_t station, char *buffer, uint32_t *size) noexcept
{
    Request request(kConnectorLabel);
    request.needs(size).send("getUsbConnectorListOne=%08X", station);
    return readConnectorList(request, "usb-connector-list-one=", buffer, size);
}
