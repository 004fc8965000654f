// tsreg's command line: any words parse or fail with a message, and the
// key and the data of "add" are read or refused with one.
#include "FuzzSupport.h"

#include "args.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    tsfuzz::Words words(data + 1, size - 1, "tsreg");
    tsreg::Args a;
    std::string error;
    if (!tsreg::parseArgs(words.argc(), words.argv.data(), data[0] & 1, a, error)) {
        if (error.empty())
            abort();
        return 0;
    }
    for (const std::string &p : a.positional) {
        HKEY hive;
        std::string sub, display;
        error.clear();
        if (!tsreg::parseKey(p, hive, sub, display, error) && error.empty())
            abort();
    }
    DWORD type;
    std::string bytes;
    error.clear();
    if (!tsreg::makeData(a, type, bytes, error)) {
        if (error.empty())
            abort();
    } else if ((type == REG_DWORD && bytes.size() != 4) || (type == REG_QWORD && bytes.size() != 8)) {
        abort();
    }
    return 0;
}
