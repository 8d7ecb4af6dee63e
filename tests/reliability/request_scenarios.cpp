// Requests of the hardware service, and messages that need no answer.
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

class OneRequest : public Journey {
public:
    void travel(Run &run) override
    {
        uint32_t level = 0;
        const int result =
            run.step("result", {1, -1, -2}, [&] { return KVO_HWS_getBacklightBrightnessV2(kStation, &level, 0); });
        run.note("level stored", level == 70 && result == 1 ? "yes" : level == 0 ? "no" : "wrong");
    }

private:
    WellService service_{support::kCommandSocket, answerTo};
};

class LongCommand : public Journey {
public:
    void travel(Run &run) override
    {
        DynBuffer reply{};
        run.step("result", {1, -1, -2}, [&] { return SendCommand2ServiceDyn(command_.c_str(), &reply); });
        run.note("reply", reply.pcData == nullptr ? "none" : reply.pcData);
        std::free(reply.pcData);
    }

private:
    std::string command_ = std::string(5000, 'x');
    WellService service_{support::kCommandSocket, answerTo};
};

class DescriptionList : public Journey {
public:
    void travel(Run &run) override
    {
        std::array<KvoDescription, 4> list{};
        uint32_t count = list.size();
        const int result = run.step("result", {1, -1, -2}, [&] { return KVO_HWS_getDescriptionList(list.data(), &count); });
        run.note("stations", result != 1 ? "none" : count == 1 && list[0].address == kStation ? "1" : "wrong");
    }

private:
    WellService service_{support::kCommandSocket, answerTo};
};

class RegistryList : public Journey {
public:
    RegistryList() { folder_.write("kvo_hws/currkvos.reg", "\"st1\" 10.0.0.5 1x2:3\n"); }

    void travel(Run &run) override
    {
        std::array<KvoDescription, 4> list{};
        uint32_t count = list.size();
        const int result =
            run.step("result", {1, -1, -2}, [&] { return KVO_HWS_getKVOCurrentListFromRegistry(list.data(), &count, 1); });
        run.note("stations", result != 1 ? "none" : count == 1 && list[0].address == kStation ? "1" : "wrong");
    }

private:
    Folder folder_;
    WellService service_{support::kCommandSocket, [this](const std::string &request) {
                             return request == "getregistrypath" ? folder_.path() : answerTo(request);
                         }};
};

class UsbLock : public Journey {
public:
    UsbLock() { setenv("KVO_PLATFORM_INTERFACE", "lo", 1); }

    void travel(Run &run) override
    {
        const char *hosts[] = {"10.0.0.5", "10.0.0.6"};
        run.step("result", {1, -1}, [&] { return KVO_HWS_setUsbLock(2, hosts, 1, 0); });
    }
};

class UsbMessage : public Journey {
public:
    void travel(Run &run) override
    {
        support::onOwnThread([&] {
            return run.step("result", {1, 2, 3, 4}, [] { return SendUsbMsg2DLL("removeUSBdevice*10.0.0.5*usb1*1-1.4*"); });
        });
    }

private:
    WellService server_{support::kUsbSocket, answerTo};
};

}  // namespace

std::unique_ptr<Journey> makeOneRequest() { return std::make_unique<OneRequest>(); }
std::unique_ptr<Journey> makeLongCommand() { return std::make_unique<LongCommand>(); }
std::unique_ptr<Journey> makeDescriptionList() { return std::make_unique<DescriptionList>(); }
std::unique_ptr<Journey> makeRegistryList() { return std::make_unique<RegistryList>(); }
std::unique_ptr<Journey> makeUsbLock() { return std::make_unique<UsbLock>(); }
std::unique_ptr<Journey> makeUsbMessage() { return std::make_unique<UsbMessage>(); }

}  // namespace reliability
