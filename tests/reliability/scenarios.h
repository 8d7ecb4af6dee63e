// The journeys: what programs do with the library, each from its beginning to its end, in surroundings that are well.
#pragma once

#include "reliability/run.h"

#include <memory>
#include <string>
#include <vector>

namespace reliability {

class Journey {
public:
    Journey() = default;
    Journey(const Journey &) = delete;
    Journey &operator=(const Journey &) = delete;
    virtual ~Journey() = default;

    /// Leaves nothing behind, whatever fails.
    virtual void travel(Run &run) = 0;
};

struct JourneyKind {
    const char *name;                   ///< also of its part of the page
    const char *title;                  ///< what it does, for the page
    std::vector<const char *> threads;  ///< who makes the calls, in the order of Site::thread
    std::unique_ptr<Journey> (*make)();
    bool endsWithoutMemory = false;  ///< a function of it ends the process where there is none, as its header says
};

const std::vector<JourneyKind> &journeys();

std::unique_ptr<Journey> makeOneRequest();
std::unique_ptr<Journey> makeLongCommand();
std::unique_ptr<Journey> makeDescriptionList();
std::unique_ptr<Journey> makeRegistryList();
std::unique_ptr<Journey> makeUsbLock();
std::unique_ptr<Journey> makeUsbMessage();
std::unique_ptr<Journey> makeUsbEvents();
std::unique_ptr<Journey> makeAgent();
std::unique_ptr<Journey> makeEmbeddedEvents();
std::unique_ptr<Journey> makeConfiguration();
std::unique_ptr<Journey> makeNotifications();
std::unique_ptr<Journey> makeFirstLine();
std::unique_ptr<Journey> makeTraces();
std::unique_ptr<Journey> makeConsole();

}  // namespace reliability
