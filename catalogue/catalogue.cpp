// The families, in the order of the headers.
#include "catalogue/catalogue.h"

#include <stdexcept>

namespace catalogue {

const std::vector<Family> &families()
{
    static const std::vector<Family> kFamilies = {serviceRequests(), stationLists(), viewer(),  panelSettings(), addressing(),
                                                  focus(),           input(),        metrics(), usbLock(),       others()};
    return kFamilies;
}

const Request &requestOf(const std::string &name)
{
    for (const Family &family : families()) {
        for (const Request &request : family.requests) {
            if (request.name() == name) {
                return request;
            }
        }
    }
    throw std::logic_error("the catalogue has no " + name);
}

}  // namespace catalogue
