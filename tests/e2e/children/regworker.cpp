// A registry worker for the multi-process tests, on HKCU\<path>:
//   regworker exchange PATH ID OTHER COUNT
//     writes ID-i = i for i < COUNT, each time reading back its own value,
//     the other worker's OTHER-i if it is there yet, and the record "shared"
//     that both overwrite; exit 0 when every read was whole and right.
//   regworker forever PATH
//     writes v<i> = i and then last = i for i = 0, 1, ... until killed.
//   regworker set PATH NAME NUMBER
//     writes one REG_DWORD.
// Exit codes: 2 bad arguments, 3 a registry call failed, 4 a wrong read.
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

int failed(const char *what, LONG status)
{
    fprintf(stderr, "regworker: %s failed: %ld\n", what, static_cast<long>(status));
    return 3;
}

LONG setDword(HKEY k, const std::string &name, DWORD v)
{
    return RegSetValueExA(k, name.c_str(), 0, REG_DWORD, reinterpret_cast<const BYTE *>(&v), 4);
}

LONG getDword(HKEY k, const std::string &name, DWORD &v)
{
    DWORD cb = 4, type = 0;
    LONG r = RegQueryValueExA(k, name.c_str(), nullptr, &type, reinterpret_cast<BYTE *>(&v), &cb);
    if (r == ERROR_SUCCESS && (type != REG_DWORD || cb != 4))
        return ERROR_INVALID_DATA;
    return r;
}

int exchange(HKEY k, const std::string &id, const std::string &other, DWORD count)
{
    for (DWORD i = 0; i < count; ++i) {
        if (LONG r = setDword(k, id + "-" + std::to_string(i), i))
            return failed("set", r);
        DWORD v = ~0u;
        if (LONG r = getDword(k, id + "-" + std::to_string(i), v))
            return failed("query own", r);
        if (v != i)
            return 4;
        LONG r = getDword(k, other + "-" + std::to_string(i), v);
        if (r == ERROR_SUCCESS && v != i)
            return 4;
        if (r != ERROR_SUCCESS && r != ERROR_FILE_NOT_FOUND)
            return failed("query other", r);

        char record[32];
        int n = snprintf(record, sizeof record, "%s:%08lu", id.c_str(), static_cast<unsigned long>(i));
        if ((r = RegSetValueExA(k, "shared", 0, REG_BINARY, reinterpret_cast<BYTE *>(record),
                                static_cast<DWORD>(n))))
            return failed("set shared", r);
        char back[32];
        DWORD cb = sizeof back;
        if ((r = RegQueryValueExA(k, "shared", nullptr, nullptr, reinterpret_cast<BYTE *>(back), &cb)))
            return failed("query shared", r);
        std::string s(back, cb);
        if (s.size() != static_cast<size_t>(n) || (s.compare(0, id.size() + 1, id + ":") != 0 &&
                                                  s.compare(0, other.size() + 1, other + ":") != 0))
            return 4;
    }
    return 0;
}

int forever(HKEY k)
{
    for (DWORD i = 0;; ++i) {
        if (LONG r = setDword(k, "v" + std::to_string(i), i))
            return failed("set", r);
        if (LONG r = setDword(k, "last", i))
            return failed("set last", r);
    }
}

} // namespace

int main(int argc, char **argv)
{
    if (argc < 3)
        return 2;
    std::string mode = argv[1];
    HKEY k;
    if (LONG r = RegCreateKeyExA(HKEY_CURRENT_USER, argv[2], 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &k, nullptr))
        return failed("create", r);
    int rc = 2;
    if (mode == "exchange" && argc == 6)
        rc = exchange(k, argv[3], argv[4], static_cast<DWORD>(strtoul(argv[5], nullptr, 10)));
    else if (mode == "forever")
        rc = forever(k);
    else if (mode == "set" && argc == 5)
        rc = setDword(k, argv[3], static_cast<DWORD>(strtoul(argv[4], nullptr, 10))) ? 3 : 0;
    RegCloseKey(k);
    return rc;
}
