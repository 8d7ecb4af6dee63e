// Reads the subcommands from the catalogue.
#include "tools/kvoctl/support/function_commands.h"

#include "catalogue/catalogue.h"

namespace kvoctl_test {

std::vector<FunctionCommand> functionCommands()
{
    std::vector<FunctionCommand> all;
    for (const catalogue::Family &family : catalogue::families()) {
        for (const catalogue::Request &request : family.requests) {
            if (!request.kvoctlWords().empty()) {
                const bool readsInput = request.function().name() == "KVO_HWS_sendEmbHwsEvent";
                all.push_back({request.name(), request.function().name(), request.kvoctlWords(), request.kvoctlArguments(),
                               readsInput ? "an event\n" : ""});
            }
        }
    }
    return all;
}

}  // namespace kvoctl_test
