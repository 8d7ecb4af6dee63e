// The scenarios: typical uses of the library by programs, from beginning to end, in an environment without failures.
#pragma once

#include "reliability/run.h"

#include <memory>
#include <string>
#include <vector>

namespace reliability {

class Scenario {
public:
    Scenario() = default;
    Scenario(const Scenario &) = delete;
    Scenario &operator=(const Scenario &) = delete;
    virtual ~Scenario() = default;

    /// Releases everything, whatever fails.
    virtual void run(Run &run) = 0;
};

struct ScenarioKind {
    const char *name;                   ///< also the name of its section in the page
    const char *title;                  ///< the heading in the page
    std::vector<const char *> threads;  ///< the names of the threads, in the order of Site::thread
    std::unique_ptr<Scenario> (*make)();
    bool endsWithoutMemory = false;  ///< one of its functions ends the process if memory is exhausted, as its header documents
};

const std::vector<ScenarioKind> &scenarios();

std::unique_ptr<Scenario> makeOneRequest();
std::unique_ptr<Scenario> makeLongCommand();
std::unique_ptr<Scenario> makeDescriptionList();
std::unique_ptr<Scenario> makeRegistryList();
std::unique_ptr<Scenario> makeUsbLock();
std::unique_ptr<Scenario> makeUsbMessage();
std::unique_ptr<Scenario> makeLoopRequest();
std::unique_ptr<Scenario> makeUsbEvents();
std::unique_ptr<Scenario> makeAgent();
std::unique_ptr<Scenario> makeEmbeddedEvents();
std::unique_ptr<Scenario> makeConfiguration();
std::unique_ptr<Scenario> makeNotifications();
std::unique_ptr<Scenario> makeFirstLine();
std::unique_ptr<Scenario> makeTraces();
std::unique_ptr<Scenario> makeConsole();

}  // namespace reliability
