// The families, in the order in which the headers have them.
#include "catalogue/catalogue.h"

namespace catalogue {

const std::vector<Family> &families()
{
    static const std::vector<Family> kFamilies = {serviceRequests(), stationLists(), viewer(),  panelSettings(), addressing(),
                                                  focus(),           input(),        metrics(), usbLock(),       others()};
    return kFamilies;
}

}  // namespace catalogue
