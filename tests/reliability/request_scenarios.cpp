// Scenarios of requests to the hardware service, USB lock datagrams and USB messages.
#include "reliability/scenarios.h"

#include "reliability/fixtures.h"
#include "reliability/healthy_service.h"
#include "support/own_thread.h"
#include "support/scripted_service.h"

#include <kvo_hws/kvo_hws.hpp>
#include <kvo_hws/requests.h>
#include <kvo_hws/service.h>

#include <array>
#include <cstdlib>
#include <new>
#include <optional>
#include <poll.h>
#include <string>

namespace reliability {

namespace {

class OneRequest : public Scenario {
public:
    void run(Run &run) override
    {
        uint32_t level = 0;
        const int result =
            run.step("result", {1, -1, -2}, [&] { return KVO_HWS_getBacklightBrightnessV2(kStation, &level, 0); });
        run.note("level stored", level == 70 && result == 1 ? "yes" : level == 0 ? "no" : "wrong");
    }

private:
    HealthyService service_{support::kCommandSocket, answerTo};
};

class LongCommand : public Scenario {
public:
    void run(Run &run) override
    {
        DynBuffer reply{};
        run.step("result", {1, -1, -2}, [&] { return SendCommand2ServiceDyn(command_.c_str(), &reply); });
        run.note("reply", reply.pcData == nullptr ? "none" : reply.pcData);
        std::free(reply.pcData);
    }

private:
    std::string command_ = std::string(5000, 'x');
    HealthyService service_{support::kCommandSocket, answerTo};
};

class DescriptionList : public Scenario {
public:
    void run(Run &run) override
    {
        std::array<KvoDescription, 4> list{};
        uint32_t count = list.size();
        const int result = run.step("result", {1, -1, -2}, [&] { return KVO_HWS_getDescriptionList(list.data(), &count); });
        run.note("stations", result != 1 ? "none" : count == 1 && list[0].address == kStation ? "1" : "wrong");
    }

private:
    HealthyService service_{support::kCommandSocket, answerTo};
};

class RegistryList : public Scenario {
public:
    RegistryList() { folder_.write("kvo_hws/currkvos.reg", "\"st1\" 10.0.0.5 1x2:3\n"); }

    void run(Run &run) override
    {
        std::array<KvoDescription, 4> list{};
        uint32_t count = list.size();
        const int result =
            run.step("result", {1, -1, -2}, [&] { return KVO_HWS_getKVOCurrentListFromRegistry(list.data(), &count, 1); });
        run.note("stations", result != 1 ? "none" : count == 1 && list[0].address == kStation ? "1" : "wrong");
    }

private:
    Folder folder_;
    HealthyService service_{support::kCommandSocket, [this](const std::string &request) {
                                return request == "getregistrypath" ? folder_.path() : answerTo(request);
                            }};
};

class UsbLock : public Scenario {
public:
    UsbLock() { setenv("KVO_PLATFORM_INTERFACE", "lo", 1); }

    void run(Run &run) override
    {
        const char *hosts[] = {"10.0.0.5", "10.0.0.6"};
        run.step("result", {1, -1}, [&] { return KVO_HWS_setUsbLock(2, hosts, 1, 0); });
    }
};

class UsbMessage : public Scenario {
public:
    void run(Run &run) override
    {
        support::onOwnThread([&] {
            return run.step("result", {1, 2, 3, 4}, [] { return SendUsbMsg2DLL("removeUSBdevice*10.0.0.5*usb1*1-1.4*"); });
        });
    }

private:
    HealthyService server_{support::kUsbSocket, answerTo};
};

/// A request of an event loop. The worker makes the calls of the library; the steps are those of the loop's thread.
class LoopRequest : public Scenario {
public:
    void run(Run &run) override
    {
        std::optional<kvo::Requests> requests;
        run.step("create", {1, 0}, withMemoryOr0([&] {
                     auto created = kvo::Requests::create();
                     return created ? (requests.emplace(*std::move(created)), 1) : 0;
                 }));
        if (!requests) {
            return;
        }
        std::string mode = "not read";
        run.step("submit", {1, 0}, withMemoryOr0([&] {
                     const auto id = requests->submit([] { return kvo::Station(kvo::Address(kStation)).rv4_mode(); },
                                                      [&mode](const auto &result) { mode = textOf(result); });
                     return id ? 1 : 0;
                 }));
        while (requests->pending() > 0) {
            pollfd waiting{.fd = requests->descriptor(), .events = POLLIN, .revents = 0};
            poll(&waiting, 1, -1);
            requests->dispatch();
        }
        run.note("mode", mode);
        requests->close();
    }

private:
    static std::function<int()> withMemoryOr0(std::function<int()> step)
    {
        return [step = std::move(step)] {
            try {
                return step();
            } catch (const std::bad_alloc &) {
                return 0;
            }
        };
    }

    static std::string textOf(const kvo::Result<std::optional<kvo::Rv4Mode>> &result)
    {
        if (!result) {
            return "error " + std::to_string(result.error().code());
        }
        return *result ? std::to_string(static_cast<int>(**result)) : "none";
    }

    HealthyService service_{support::kCommandSocket, answerTo};
};

}  // namespace

std::unique_ptr<Scenario> makeOneRequest() { return std::make_unique<OneRequest>(); }
std::unique_ptr<Scenario> makeLongCommand() { return std::make_unique<LongCommand>(); }
std::unique_ptr<Scenario> makeDescriptionList() { return std::make_unique<DescriptionList>(); }
std::unique_ptr<Scenario> makeRegistryList() { return std::make_unique<RegistryList>(); }
std::unique_ptr<Scenario> makeUsbLock() { return std::make_unique<UsbLock>(); }
std::unique_ptr<Scenario> makeLoopRequest() { return std::make_unique<LoopRequest>(); }
std::unique_ptr<Scenario> makeUsbMessage() { return std::make_unique<UsbMessage>(); }

}  // namespace reliability
