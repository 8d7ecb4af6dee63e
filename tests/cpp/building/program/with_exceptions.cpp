// The unit with exceptions: a value that does not exist throws.
#include "everything.h"

#include <cstdio>
#include <cstring>

bool worksWithoutExceptions();
[[noreturn]] void endWithoutExceptions();

namespace {

bool throws()
{
    try {
        static_cast<void>(kvo::Station(kvo::Address(1)).mcp_address().value());
    } catch (const kvo::Exception &exception) {
        return exception.error().meaning() == kvo::Errc::no_service &&
               std::strstr(exception.what(), "KVO_HWS_getMCPAddress: -2") != nullptr;
    }
    return false;
}

}  // namespace

/// Without arguments uses everything in both units; with an argument ends in the unit without exceptions.
int main(int count, char **)
{
    if (count > 1) {
        endWithoutExceptions();
    }
    const bool all = everything::worked() && worksWithoutExceptions() && throws();
    std::puts(all ? "all of it works" : "something does not work");
    return all ? 0 : 1;
}
