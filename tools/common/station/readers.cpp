// Readers of replies other than numbers.
#include "common/station/readers.h"

namespace tools {

namespace {

/// The library copies the whole reply of the service without knowing the size of the buffer. The service's own replies stay
/// below 1024 bytes; this is far more than any reply can reasonably need.
constexpr std::size_t kUnsizedBuffer = std::size_t{4} * 1024 * 1024;

constexpr uint32_t kInitialSize = 4096;
/// A larger size is treated as a mistake of the service: kvoctl does not allocate that much memory.
constexpr uint32_t kLongestText = 256U * 1024 * 1024;
/// A text may grow between the request that reports its size and the next one, but not forever.
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
        std::vector<char> text(kUnsizedBuffer);
        const Result result = request(station, text.data());
        if (result.code != KVO_HWS_OK) {
            return {result};
        }
        return {result, {Value{std::string(text.data())}}};
    };
}

Reading readText(const TextRequest &ask)
{
    uint32_t size = kInitialSize;
    for (int attempt = 0; attempt < kReadAttempts; ++attempt) {
        // Zeroed, and one byte longer than the size in the request: some texts come without a terminator.
        std::vector<char> text(std::size_t{size} + 1);
        const Result result = ask(text.data(), &size);
        if (result.code == KVO_HWS_OK) {
            return {result, {Value{std::string(text.data())}}};
        }
        if (result.code != KVO_HWS_TOO_SMALL) {
            return {result};
        }
        if (size >= kLongestText) {
            throw Failure(result.code, "the service reports a text of " + std::to_string(size) +
                                           " bytes; kvoctl accepts at most " + std::to_string(kLongestText));
        }
        ++size;  // some requests report the length without the terminator
    }
    throw Failure(KVO_HWS_TOO_SMALL, "the text grew with each request");
}

Reader sizedText(Request<uint32_t, char *, uint32_t *> request)
{
    return [request](uint32_t station) {
        return readText([=](char *buffer, uint32_t *size) { return request(station, buffer, size); });
    };
}

}  // namespace tools
