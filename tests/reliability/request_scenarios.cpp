// Scenarios of requests to the hardware service, USB lock datagrams and USB messages.
#include "reliability/scenarios.h"

#include "reliability/fixtures.h"
#include "reliability/healthy_service.h"
#include "support/own_thread.h"
#include "support/scripted_service.h"

#include <kvo_hws/requests.h>
#include <kvo_hws/service.h>

#include <array>
#include <cstdlib>
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

}  // namespace

std::unique_ptr<Scenario> makeOneRequest() { return std::make_unique<OneRequest>(); }
std::unique_ptr<Scenario> makeLongCommand() { return std::make_unique<LongCommand>(); }
std::unique_ptr<Scenario> makeDescriptionList() { return std::make_unique<DescriptionList>(); }
std::unique_ptr<Scenario> makeRegistryList() { return std::make_unique<RegistryList>(); }
std::unique_ptr<Scenario> makeUsbLock() { return std::make_unique<UsbLock>(); }
std::unique_ptr<Scenario> makeUsbMessage() { return std::make_unique<UsbMessage>(); }

}  // namespace reliability
