// Everything that is known of the library's requests, in one place: the tests, the fuzzer of replies, the soak run, the tables of
// the documentation and others read it. The rows of requests/ are not made from it: they are what it is compared with.
#pragma once

#include "catalogue/request.h"

namespace catalogue {

struct Family {
    const char *name;  ///< that of the source in requests/ or service/
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

}  // namespace catalogue
