// The general words for the library's results, and which exit status they come to.
#include "kvoctl/output/result.h"

#include "common/command_socket.h"

#include <kvo_hws/result.h>
#include <kvo_hws/service.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace kvoctl {

namespace {

std::string generalWords(int32_t result)
{
    switch (result) {
    case KVO_HWS_NO: return "the service says no";
    case KVO_HWS_FAILED: return "the service refused or answered something unknown";
    case KVO_HWS_NO_SERVICE: return std::string("no service answers at ") + tools::kCommandSocket;
    case KVO_HWS_TOO_SMALL: return "a value is out of range, or an answer is larger than kvoctl takes";
    case KVO_HWS_TIMEOUT: return "the time is over";
    default: return "unexpected result";
    }
}

}  // namespace

Exit Failure::exit() const noexcept
{
    switch (result_) {
    case KVO_HWS_NO: return Exit::no;
    case KVO_HWS_NO_SERVICE: return Exit::noService;
    default: return Exit::failed;
    }
}

std::string Failure::hint() const
{
    if (result_ != KVO_HWS_NO_SERVICE) {
        return {};
    }
    if (access(tools::kCommandSocket, W_OK) != 0) {
        return std::string("The socket: ") + std::strerror(errno) + ". Is the hardware service running? " +
               "For a simulated one: kvosim run -- kvoctl ...";
    }
    return "The socket is there, but nobody listens: the service has ended without tidying up, or is too busy to accept. "
           "\"kvoctl doctor\" finds out which.";
}

std::string words(int32_t result, const std::vector<Meaning> &own)
{
    const auto meaning = std::find_if(own.begin(), own.end(), [result](const Meaning &row) { return row.result == result; });
    return meaning == own.end() ? generalWords(result) : meaning->words;
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

}  // namespace kvoctl
