// Result texts come from the library.
#include "common/station/result.h"

#include <kvo_hws/result.h>
#include <kvo_hws/service.h>

#include <algorithm>

namespace tools {

std::string meaningOf(const Result &result) { return kvo_hws_result_text(result.function, result.code); }

bool isState(int32_t code, const std::vector<int32_t> &states)
{
    return code == KVO_HWS_OK || code == KVO_HWS_NO || std::find(states.begin(), states.end(), code) != states.end();
}

void require(const Result &result)
{
    if (result.code != KVO_HWS_OK) {
        throw Failure(result.code, meaningOf(result));
    }
}

Result distinguishMissingService(const Result &result)
{
    if (result.code != KVO_HWS_FAILED) {
        return result;
    }
    // The function's own text for its failure covers both cases.
    return {KVO_HWS_isInitComplete() == KVO_HWS_NO_SERVICE ? KVO_HWS_NO_SERVICE : KVO_HWS_FAILED};
}

}  // namespace tools
