// tssc's command line: any words give a command or the usage, and a
// command read holds what its verb needs.
#include "FuzzSupport.h"

#include "command.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    tsfuzz::Words words(data, size, "tssc");
    tssc::Command c;
    if (!tssc::parseCommand(words.argc(), words.argv.data(), c))
        return 0;
    if (c.verb != tssc::Command::QueryAll && words.argc() < 3)
        abort();
    if (c.verb == tssc::Command::Create && c.binPath.empty())
        abort();
    return 0;
}
