// Scenarios without a service: the configuration, notifications, the first line of a file, traces, and the console.
#include "reliability/scenarios.h"

#include "reliability/fixtures.h"

#include <kvo_hws/agent.h>
#include <kvo_hws/config.h>
#include <kvo_hws/runtime.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <semaphore.h>
#include <string>

namespace reliability {

namespace {

class Configuration : public Scenario {
public:
    Configuration()
    {
        folder_.write("panel.conf", "port = 5853\nregistry_path = /user\nbacklight = all\n");
        setenv("KVO_PLATFORM_CONFIG", (folder_.path() + "panel.conf").c_str(), 1);
        hws_keywords[0].defaultText = "lo";
    }

    void run(Run &run) override
    {
        run.step("read", {0}, [] {
            ReadConfFile();
            return 0;
        });
        std::array<char, 4200> text{};
        uint32_t number = 0;
        uint16_t port = 0;
        run.step("GetInterfaceIP", {0, -1}, [&] { return GetInterfaceIP(text.data(), &number); });
        run.step("GetPortNumber", {0}, [&] { return GetPortNumber(&port); });
        run.note("port", std::to_string(port));
        run.step("GetRHZName", {0}, [&] { return GetRHZName(text.data()); });
        run.note("name", text[0] == '\0' ? "empty" : "set");
        run.step("GetBacklightMode", {0}, [&] { return GetBacklightMode(&number); });
        run.note("backlight", std::to_string(number));
        run.step("GetRegistryPath", {0}, [&] { return GetRegistryPath(text.data()); });
        run.note("path", text[0] == '\0' ? "empty" : text.data());
        std::free(sConfData.interface);
        std::free(sConfData.name);
        sConfData = {};
    }

private:
    Folder folder_;
};

class Notifications : public Scenario {
public:
    void run(Run &run) override
    {
        run.step("ActivateNotify", {0, -1}, [] { return ActivateNotify(); });
        Notify *record = nullptr;
        run.step("CreateNotify", {0, -1}, [&] { return CreateNotify(&record); });
        if (record != nullptr) {
            run.step("WaitNotify", {0, -3}, [&] { return WaitNotify(record, 1); });
        }
        run.step("DeleteNotify", {0}, [&] { return DeleteNotify(&record); });
        sem_t semaphore{};
        if (run.step("InitReceivedNotify", {0, -1}, [&] { return InitReceivedNotify(&semaphore); }) != 0) {
            return;
        }
        NotifyReceived(&semaphore);
        run.step("WaitReceivedNotify", {1, 0, -1}, [&] { return WaitReceivedNotify(&semaphore, 0); });
        run.step("DeleteReceivedNotify", {0}, [&] { return DeleteReceivedNotify(&semaphore); });
    }
};

class FirstLine : public Scenario {
public:
    FirstLine() { folder_.write("device/input7/name", "panel\n"); }

    void run(Run &run) override
    {
        char *const line = sysfsfile(folder_.path().c_str(), "device/*", "name");
        run.note("line", line == nullptr ? "null" : line[0] == '\0' ? "empty" : line);
        std::free(line);
    }

private:
    Folder folder_;
};

class Traces : public Scenario {
public:
    void run(Run &run) override
    {
        std::filesystem::remove(kTraceFile);
        void *block = nullptr;
        run.step("traceXmalloc", {0}, [&] {
            block = traceXmalloc(16, "scenario", 7);
            return 0;
        });
        run.note("block", block == nullptr ? "null" : "allocated");
        run.step("traceFree", {0}, [&] {
            traceFree(block, "scenario", 8);
            return 0;
        });
        std::ifstream file(kTraceFile);
        const auto lines = std::count(std::istreambuf_iterator<char>(file), {}, '\n');
        run.note("lines", std::to_string(lines));
        std::filesystem::remove(kTraceFile);
    }
};

class Console : public Scenario {
public:
    void run(Run &run) override
    {
        run.step("enable_vt_control", {0}, [] {
            enable_vt_control(1);
            return 0;
        });
        run.step("get_shiftstate", {6}, [] { return get_shiftstate(); });
    }
};

}  // namespace

std::unique_ptr<Scenario> makeConfiguration() { return std::make_unique<Configuration>(); }
std::unique_ptr<Scenario> makeNotifications() { return std::make_unique<Notifications>(); }
std::unique_ptr<Scenario> makeFirstLine() { return std::make_unique<FirstLine>(); }
std::unique_ptr<Scenario> makeTraces() { return std::make_unique<Traces>(); }
std::unique_ptr<Scenario> makeConsole() { return std::make_unique<Console>(); }

}  // namespace reliability
