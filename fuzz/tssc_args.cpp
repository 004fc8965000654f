// tssc's command line: any words give a command or a usage, and a command
// read holds what its verb needs, by sc.exe's grammar.
#include "FuzzSupport.h"

#include "command.h"

#include <string.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    tsfuzz::Words words(data, size, "tssc");
    tssc::Command c;
    tssc::ParseResult r = tssc::parseCommand(words.argc(), words.argv.data(), c);
    if (tssc::usageText(r, c).empty())
        abort();
    if (r != tssc::ParseResult::Ok)
        return 0;
    bool all = (c.verb == tssc::Command::Query || c.verb == tssc::Command::QueryEx) && c.name.empty();
    if (!all && (words.argc() < 3 || c.name != words.argv[2]))
        abort(); // the name is the word after the verb
    if (!c.name.empty() && c.name.back() == '=' && c.name.size() > 1)
        abort(); // an option's name is never taken as a service's
    if (c.verb == tssc::Command::Create && !c.binPath)
        abort();
    if (c.start && *c.start > SERVICE_DISABLED)
        abort();
    if (c.delayedAuto && c.start != static_cast<DWORD>(SERVICE_AUTO_START))
        abort();
    if (c.verb == tssc::Command::Start && c.args.size() != static_cast<size_t>(words.argc() - 3))
        abort();
    return 0;
}
