// .reg import: any bytes parse or fail with a message that names the line,
// every entry parsed names its key, and what parses writes back (where the
// file's form can hold it) as a file that parses to the same entries: no
// text, name or byte changes on the way. (hex(4): gives a REG_DWORD of any
// length, as the registry editor of Windows writes what it is given.)
#include "regfile.h"

#include <stdlib.h>

#include <string>
#include <vector>

namespace {

bool same(const tsreg::RegEntry &a, const tsreg::RegEntry &b)
{
    return a.kind == b.kind && a.key == b.key && a.name == b.name && a.type == b.type && a.data == b.data;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::string bytes(reinterpret_cast<const char *>(data), size);
    std::vector<tsreg::RegEntry> entries;
    std::string error;
    if (!tsreg::parseRegFile(bytes, entries, error)) {
        if (error.empty() || (error.compare(0, 5, "line ") != 0 && error.find("empty") == std::string::npos))
            abort(); // a failure always says why, and where
        return 0;
    }
    // Each value in a section of its own, as written and read again.
    tsreg::RegWriter writer;
    std::vector<tsreg::RegEntry> written;
    for (const tsreg::RegEntry &e : entries) {
        if (e.key.empty())
            abort();
        if (e.kind != tsreg::RegEntry::Value)
            continue;
        std::string refused;
        tsreg::RegWriter one;
        if (!one.key(e.key, refused) || !one.value(e.name, e.type, e.data, refused))
            continue; // a name with a line break: refused, never bent
        writer.key(e.key, refused);
        writer.value(e.name, e.type, e.data, refused);
        tsreg::RegEntry key;
        key.key = e.key;
        written.push_back(key);
        written.push_back(e);
    }
    std::vector<tsreg::RegEntry> again;
    if (!tsreg::parseRegFile(writer.bytes(), again, error) || again.size() != written.size())
        abort();
    for (size_t i = 0; i < again.size(); ++i) {
        if (!same(again[i], written[i]))
            abort();
    }
    return 0;
}
