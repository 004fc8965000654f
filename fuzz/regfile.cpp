// .reg import: any bytes parse or fail with a message, and every entry
// parsed names its key. (hex(4): gives a REG_DWORD of any length, as the
// registry editor of Windows writes what it is given.)
#include "regfile.h"

#include <stdlib.h>

#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::string bytes(reinterpret_cast<const char *>(data), size);
    std::vector<tsreg::RegEntry> entries;
    std::string error;
    if (!tsreg::parseRegFile(bytes, entries, error)) {
        if (error.empty())
            abort(); // a failure always says why
        return 0;
    }
    for (const tsreg::RegEntry &e : entries) {
        if (e.key.empty())
            abort();
    }
    return 0;
}
