// Describes all requests of the library in one place, for the tests, the fuzzer of replies, the soak run, the tables of the
// documentation and other uses. The code in requests/ is written separately; the tests compare it with this description.
#pragma once

#include "catalogue/request.h"

namespace catalogue {

struct Family {
    const char *name;  ///< the name of the source file in requests/ or service/
    std::vector<Request> requests;
};

Family serviceRequests();
Family stationLists();
Family viewer();
Family panelSettings();
Family addressing();
Family focus();
Family input();
Family metrics();
Family usbLock();
Family others();

/// All families.
const std::vector<Family> &families();

/// The request with this name; throws if there is none.
const Request &requestOf(const std::string &name);

}  // namespace catalogue
