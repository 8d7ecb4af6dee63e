// Readers of answers that are no plain numbers.
#include "common/station/readers.h"

namespace tools {

namespace {

/// The library copies the whole reply of the service and can not be told where to stop: the service's own replies stay below
/// 1024 bytes, and this is as much again as any reply could sensibly grow to.
constexpr std::size_t kUnsizedRoom = std::size_t{4} * 1024 * 1024;

constexpr uint32_t kUsualText = 4096;
/// A service that tells of more is taken to be mistaken rather than given the memory.
constexpr uint32_t kLongestText = 256U * 1024 * 1024;
/// A text may grow between being told its size and asking again, but not for ever.
constexpr int kReadAttempts = 8;

}  // namespace

Reader yesNo(Request<uint32_t> request)
{
    return [request](uint32_t station) -> Reading {
        const Result result = request(station);
        if (result.code != KVO_HWS_OK && result.code != KVO_HWS_NO) {
            return {result};
        }
        return {{KVO_HWS_OK}, {Value{result.code == KVO_HWS_OK}}};
    };
}

Reader unsizedText(Request<uint32_t, char *> request)
{
    return [request](uint32_t station) -> Reading {
        std::vector<char> text(kUnsizedRoom);
        const Result result = request(station, text.data());
        if (result.code != KVO_HWS_OK) {
            return {result};
        }
        return {result, {Value{std::string(text.data())}}};
    };
}

Reading readText(const AskText &ask)
{
    uint32_t size = kUsualText;
    for (int attempt = 0; attempt < kReadAttempts; ++attempt) {
        // Cleared, and a byte longer than told: some texts come without a terminator.
        std::vector<char> text(std::size_t{size} + 1);
        const Result result = ask(text.data(), &size);
        if (result.code == KVO_HWS_OK) {
            return {result, {Value{std::string(text.data())}}};
        }
        if (result.code != KVO_HWS_TOO_SMALL) {
            return {result};
        }
        if (size >= kLongestText) {
            throw Failure(result.code, "the service tells of a text of " + std::to_string(size) +
                                           " bytes; kvoctl takes at most " + std::to_string(kLongestText));
        }
        ++size;  // some requests tell the length without its terminator
    }
    throw Failure(KVO_HWS_TOO_SMALL, "the text grew each time it was asked for");
}

Reader sizedText(Request<uint32_t, char *, uint32_t *> request)
{
    return [request](uint32_t station) {
        return readText([=](char *buffer, uint32_t *size) { return request(station, buffer, size); });
    };
}

}  // namespace tools
