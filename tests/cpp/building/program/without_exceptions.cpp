// The unit without exceptions and RTTI: a value that does not exist ends the process.
#include "everything.h"

#ifdef __cpp_exceptions
#error "this unit must be compiled with -fno-exceptions"
#endif

bool worksWithoutExceptions();
[[noreturn]] void endWithoutExceptions();

bool worksWithoutExceptions() { return everything::worked(); }

void endWithoutExceptions()
{
    static_cast<void>(kvo::Station(kvo::Address(1)).mcp_address().value());
    std::abort();  // not reached; without the message
}
