// The general words for the library's results.
#include "common/station/result.h"

#include "common/command_socket.h"

#include <kvo_hws/result.h>
#include <kvo_hws/service.h>

#include <algorithm>

namespace tools {

namespace {

std::string generalWords(int32_t result)
{
    switch (result) {
    case KVO_HWS_NO: return "the service says no";
    case KVO_HWS_FAILED: return "the service refused or answered something unknown";
    case KVO_HWS_NO_SERVICE: return std::string("no service answers at ") + kCommandSocket;
    case KVO_HWS_TOO_SMALL: return "a value is out of range, or an answer is larger than kvoctl takes";
    case KVO_HWS_TIMEOUT: return "the time is over";
    default: return "unexpected result";
    }
}

}  // namespace

std::string words(int32_t result, const std::vector<Meaning> &own)
{
    const auto meaning = std::find_if(own.begin(), own.end(), [result](const Meaning &row) { return row.result == result; });
    return meaning == own.end() ? generalWords(result) : meaning->words;
}

bool isState(int32_t result, const std::vector<Meaning> &own)
{
    const auto says = [result](const Meaning &row) { return row.result == result && row.isState; };
    return result == KVO_HWS_OK || result == KVO_HWS_NO || std::any_of(own.begin(), own.end(), says);
}

void require(int32_t result, const std::vector<Meaning> &own)
{
    if (result != KVO_HWS_OK) {
        throw Failure(result, words(result, own));
    }
}

int32_t withMissingService(int32_t result)
{
    const bool missing = result == KVO_HWS_FAILED && KVO_HWS_isInitComplete() == KVO_HWS_NO_SERVICE;
    return missing ? KVO_HWS_NO_SERVICE : result;
}

}  // namespace tools
