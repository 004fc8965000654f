// tsreg: query, add, delete, export and import registry keys and values,
// in the manner of reg.exe. Exit code 0 on success, 1 on failure with a
// message on standard error.
#include "args.h"
#include "console.h"
#include "regfile.h"
#include "text.h"

#include <windows.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

using namespace tsreg;

namespace {

const char *const kUsage =
    "Usage:\n"
    "  tsreg query KEY [/v NAME | /ve] [/s]\n"
    "  tsreg add KEY [/v NAME | /ve] [/t TYPE] [/s SEPARATOR] [/d DATA] [/f]\n"
    "  tsreg delete KEY [/v NAME | /ve | /va] [/f]\n"
    "  tsreg export KEY FILE [/y] [/a]\n"
    "  tsreg import FILE\n"
    "\n"
    "KEY is ROOT\\Path, with ROOT one of HKLM, HKCU, HKCR, HKU, HKCC (or the long names).\n"
    "TYPE is REG_SZ (the default), REG_EXPAND_SZ, REG_MULTI_SZ, REG_DWORD, REG_QWORD,\n"
    "REG_BINARY or REG_NONE. /f and /y answer yes to every question.\n"
    "FILE is a .reg file: \"Windows Registry Editor Version 5.00\" in UTF-16 (or UTF-8),\n"
    "or with /a \"REGEDIT4\" in the ANSI code page.\n";

int fail(const std::string &message)
{
    print(stderr, "ERROR: " + message + "\n");
    return 1;
}

void out(const std::string &text) { print(stdout, text); }

std::string describe(LONG status)
{
    switch (status) {
    case ERROR_FILE_NOT_FOUND:
        return "The system was unable to find the specified registry key or value.";
    case ERROR_ACCESS_DENIED:
        return "Access is denied.";
    case ERROR_KEY_DELETED:
        return "The registry key was deleted while in use.";
    case ERROR_BAD_PATHNAME:
    case ERROR_INVALID_PARAMETER:
        return "Invalid key or value name.";
    case ERROR_REGISTRY_CORRUPT:
        return "The registry's store is damaged, or written by a later release.";
    case ERROR_REGISTRY_IO_FAILED:
    case ERROR_CANTOPEN:
        return "The registry's store cannot be read or written.";
    default:
        return "The registry call failed with error " + std::to_string(status) + ".";
    }
}

int failStatus(LONG status) { return fail(describe(status)); }

int succeed()
{
    out("The operation completed successfully.\n");
    return 0;
}

// Asks on standard input; anything but yes (or the end of input) is no.
bool confirm(const std::string &question)
{
    out(question + " (Yes/No)? ");
    fflush(stdout);
    char line[64];
    if (!fgets(line, sizeof line, stdin)) {
        out("\n");
        return false;
    }
    return line[0] == 'y' || line[0] == 'Y';
}

// ---------------------------------------------------------------------------
// Reading keys

struct Value {
    std::string name;
    DWORD type;
    std::string data;
};

// A name the registry gave, in UTF-8; a name with a lone surrogate has no
// UTF-8 form and stops the walk with ERROR_INVALID_DATA.
LONG utf8Name(const WCHAR *name, DWORD length, std::string &out)
{
    return wideToUtf8(WString(name, length), out) ? ERROR_SUCCESS : ERROR_INVALID_DATA;
}

LONG readValues(HKEY key, std::vector<Value> &out)
{
    std::vector<WCHAR> name(16385);
    for (DWORD i = 0;; ++i) {
        DWORD cch = static_cast<DWORD>(name.size()), type = 0, cb = 0;
        LONG r = RegEnumValueW(key, i, name.data(), &cch, nullptr, &type, nullptr, &cb);
        if (r == ERROR_NO_MORE_ITEMS)
            return ERROR_SUCCESS;
        if (r != ERROR_SUCCESS)
            return r;
        std::string data(cb, '\0');
        for (;;) {
            cch = static_cast<DWORD>(name.size());
            cb = static_cast<DWORD>(data.size());
            r = RegEnumValueW(key, i, name.data(), &cch, nullptr, &type,
                              reinterpret_cast<LPBYTE>(data.empty() ? nullptr : &data[0]), &cb);
            if (r != ERROR_MORE_DATA)
                break;
            data.resize(cb);
        }
        if (r != ERROR_SUCCESS)
            return r;
        data.resize(cb);
        Value v{std::string(), type, data};
        if (LONG e = utf8Name(name.data(), cch, v.name))
            return e;
        out.push_back(v);
    }
}

LONG readSubkeys(HKEY key, std::vector<std::string> &out)
{
    WCHAR name[256];
    for (DWORD i = 0;; ++i) {
        DWORD cch = sizeof name / sizeof name[0];
        LONG r = RegEnumKeyExW(key, i, name, &cch, nullptr, nullptr, nullptr, nullptr);
        if (r == ERROR_NO_MORE_ITEMS)
            return ERROR_SUCCESS;
        if (r != ERROR_SUCCESS)
            return r;
        out.emplace_back();
        if (LONG e = utf8Name(name, cch, out.back()))
            return e;
    }
}

LONG openKey(HKEY parent, const std::string &sub, REGSAM access, HKEY *key)
{
    return RegOpenKeyExW(parent, wide(sub).c_str(), 0, access, key);
}

// ---------------------------------------------------------------------------
// query

std::string formatData(DWORD type, const std::string &data)
{
    char buf[32];
    std::string text;
    switch (type) {
    case REG_SZ:
    case REG_EXPAND_SZ: {
        WString w = wideOfBytes(data);
        if (wideToUtf8(w.substr(0, w.find(WCHAR(0))), text))
            return text;
        break; // a lone surrogate: shown as its bytes
    }
    case REG_MULTI_SZ: {
        WString rest = wideOfBytes(data), shown;
        while (!rest.empty() && rest.back() == 0)
            rest.pop_back();
        for (WCHAR c : rest) {
            if (c == 0)
                shown += wide("\\0");
            else
                shown += c;
        }
        if (wideToUtf8(shown, text))
            return text;
        break;
    }
    case REG_DWORD:
        if (data.size() == 4) {
            DWORD v;
            memcpy(&v, data.data(), 4);
            snprintf(buf, sizeof buf, "0x%x", static_cast<unsigned>(v));
            return buf;
        }
        break;
    case REG_QWORD:
        if (data.size() == 8) {
            unsigned long long v;
            memcpy(&v, data.data(), 8);
            snprintf(buf, sizeof buf, "0x%llx", v);
            return buf;
        }
        break;
    default:
        break;
    }
    std::string hex;
    for (unsigned char c : data) {
        snprintf(buf, sizeof buf, "%02X", c);
        hex += buf;
    }
    return hex;
}

void printValue(const Value &v)
{
    out("    " + (v.name.empty() ? std::string("(Default)") : v.name) + "    " + typeName(v.type) + "    " +
        formatData(v.type, v.data) + "\n");
}

// Lists a key; with recurse, its whole tree. With only, just that value.
LONG queryKey(HKEY key, const std::string &display, bool recurse, const std::string *only, int &matches)
{
    std::vector<Value> values;
    std::vector<std::string> subkeys;
    if (LONG r = readValues(key, values))
        return r;
    if (LONG r = readSubkeys(key, subkeys))
        return r;
    bool header = false;
    for (const Value &v : values) {
        if (only && !sameText(v.name, *only))
            continue;
        if (!header)
            out(display + "\n");
        header = true;
        printValue(v);
        ++matches;
    }
    if (!only) {
        if (!header)
            out(display + "\n");
        header = true;
    }
    if (header)
        out("\n");
    for (const std::string &name : subkeys) {
        std::string path = display + "\\" + name;
        if (!recurse) {
            if (!only)
                out(path + "\n");
            continue;
        }
        HKEY sub;
        LONG r = openKey(key, name, KEY_READ, &sub);
        if (r != ERROR_SUCCESS)
            return r;
        r = queryKey(sub, path, true, only, matches);
        RegCloseKey(sub);
        if (r != ERROR_SUCCESS)
            return r;
    }
    return ERROR_SUCCESS;
}

int cmdQuery(const Args &a)
{
    if (a.positional.size() != 1 || a.allValues || a.force || a.hasType || a.hasData)
        return fail("Invalid syntax.\n" + std::string(kUsage));
    HKEY hive, key;
    std::string sub, display, error;
    if (!parseKey(a.positional[0], hive, sub, display, error))
        return fail(error);
    if (LONG r = openKey(hive, sub, KEY_READ, &key))
        return failStatus(r);
    int result = 0;
    out("\n");
    int matches = 0;
    LONG r = queryKey(key, display, a.recurse, a.hasValue ? &a.valueName : nullptr, matches);
    if (r != ERROR_SUCCESS)
        result = failStatus(r);
    else if (a.hasValue && matches == 0)
        result = failStatus(ERROR_FILE_NOT_FOUND);
    else if (a.hasValue && a.recurse)
        out("End of search: " + std::to_string(matches) + " match(es) found.\n");
    RegCloseKey(key);
    return result;
}

// ---------------------------------------------------------------------------
// add

int cmdAdd(const Args &a)
{
    if (a.positional.size() != 1 || a.allValues || a.recurse)
        return fail("Invalid syntax.\n" + std::string(kUsage));
    HKEY hive, key;
    std::string sub, display, error;
    if (!parseKey(a.positional[0], hive, sub, display, error))
        return fail(error);
    if (sub.empty())
        return fail("A subkey of the root must be named.");
    DWORD type;
    std::string data;
    if (!makeData(a, type, data, error))
        return fail(error);
    DWORD disposition;
    if (LONG r = RegCreateKeyExW(hive, wide(sub).c_str(), 0, nullptr, 0, KEY_QUERY_VALUE | KEY_SET_VALUE, nullptr,
                                 &key, &disposition))
        return failStatus(r);
    int result = 0;
    if (a.hasValue || a.hasData || a.hasType) {
        WString name = wide(a.valueName);
        LONG exists = RegQueryValueExW(key, name.c_str(), nullptr, nullptr, nullptr, nullptr);
        std::string shown = a.valueName.empty() ? "(Default)" : a.valueName;
        if (exists == ERROR_SUCCESS && !a.force && !confirm("Value " + shown + " exists, overwrite")) {
            result = fail("The value was left as it was.");
        } else if (LONG r = RegSetValueExW(key, name.c_str(), 0, type,
                                           reinterpret_cast<const BYTE *>(data.data()),
                                           static_cast<DWORD>(data.size()))) {
            result = failStatus(r);
        }
    }
    RegCloseKey(key);
    return result ? result : succeed();
}

// ---------------------------------------------------------------------------
// delete

LONG deleteTreeW(HKEY parent, const WString &sub);

LONG deleteTree(HKEY parent, const std::string &sub) { return deleteTreeW(parent, wide(sub)); }

LONG deleteTreeW(HKEY parent, const WString &sub)
{
    HKEY key;
    const WString &wsub = sub;
    LONG r = RegOpenKeyExW(parent, wsub.c_str(), 0, KEY_READ, &key);
    if (r != ERROR_SUCCESS)
        return r;
    for (;;) {
        WCHAR name[256];
        DWORD cch = sizeof name / sizeof name[0];
        r = RegEnumKeyExW(key, 0, name, &cch, nullptr, nullptr, nullptr, nullptr);
        if (r == ERROR_NO_MORE_ITEMS)
            break;
        if (r == ERROR_SUCCESS)
            r = deleteTreeW(key, WString(name, cch));
        if (r != ERROR_SUCCESS) {
            RegCloseKey(key);
            return r;
        }
    }
    RegCloseKey(key);
    return RegDeleteKeyW(parent, wsub.c_str());
}

int cmdDelete(const Args &a)
{
    if (a.positional.size() != 1 || a.recurse || a.hasType || a.hasData || (a.hasValue && a.allValues))
        return fail("Invalid syntax.\n" + std::string(kUsage));
    HKEY hive, key;
    std::string sub, display, error;
    if (!parseKey(a.positional[0], hive, sub, display, error))
        return fail(error);
    if (!a.hasValue && !a.allValues) {
        if (sub.empty())
            return fail("A root key cannot be deleted.");
        HKEY probe;
        if (LONG r = openKey(hive, sub, KEY_READ, &probe))
            return failStatus(r);
        RegCloseKey(probe);
        if (!a.force && !confirm("Permanently delete the registry key " + display))
            return fail("The key was left as it was.");
        if (LONG r = deleteTree(hive, sub))
            return failStatus(r);
        return succeed();
    }
    if (LONG r = openKey(hive, sub, KEY_QUERY_VALUE | KEY_SET_VALUE, &key))
        return failStatus(r);
    int result = 0;
    if (a.allValues) {
        std::vector<Value> values;
        LONG r = readValues(key, values);
        if (r == ERROR_SUCCESS && !a.force && !confirm("Delete all values under the registry key " + display))
            result = fail("The values were left as they were.");
        for (size_t i = 0; r == ERROR_SUCCESS && !result && i < values.size(); ++i)
            r = RegDeleteValueW(key, wide(values[i].name).c_str());
        if (r != ERROR_SUCCESS)
            result = failStatus(r);
    } else {
        std::string shown = a.valueName.empty() ? "(Default)" : a.valueName;
        WString name = wide(a.valueName);
        LONG r = RegQueryValueExW(key, name.c_str(), nullptr, nullptr, nullptr, nullptr);
        if (r == ERROR_SUCCESS && !a.force && !confirm("Delete the registry value " + shown))
            result = fail("The value was left as it was.");
        else if (r == ERROR_SUCCESS)
            r = RegDeleteValueW(key, name.c_str());
        if (r != ERROR_SUCCESS)
            result = failStatus(r);
    }
    RegCloseKey(key);
    return result ? result : succeed();
}

// ---------------------------------------------------------------------------
// export and import

// Writes a key's tree; ERROR_INVALID_DATA with *error set when the file's
// form cannot hold a name or text.
LONG exportKey(HKEY key, const std::string &display, RegWriter &w, std::string &error)
{
    std::vector<Value> values;
    std::vector<std::string> subkeys;
    if (LONG r = readValues(key, values))
        return r;
    if (LONG r = readSubkeys(key, subkeys))
        return r;
    if (!w.key(display, error))
        return ERROR_INVALID_DATA;
    for (const Value &v : values) {
        if (!w.value(v.name, v.type, v.data, error))
            return ERROR_INVALID_DATA;
    }
    for (const std::string &name : subkeys) {
        HKEY sub;
        LONG r = openKey(key, name, KEY_READ, &sub);
        if (r == ERROR_SUCCESS) {
            r = exportKey(sub, display + "\\" + name, w, error);
            RegCloseKey(sub);
        }
        if (r != ERROR_SUCCESS)
            return r;
    }
    return ERROR_SUCCESS;
}

int cmdExport(const Args &a)
{
    if (a.positional.size() != 2 || a.hasValue || a.allValues || a.recurse || a.hasType || a.hasData)
        return fail("Invalid syntax.\n" + std::string(kUsage));
    HKEY hive, key;
    std::string sub, display, error;
    if (!parseKey(a.positional[0], hive, sub, display, error))
        return fail(error);
    const std::string &file = a.positional[1];
    if (LONG r = openKey(hive, sub, KEY_READ, &key))
        return failStatus(r);
    RegWriter w(a.regedit4);
    error.clear();
    LONG r = exportKey(key, display, w, error);
    RegCloseKey(key);
    if (r != ERROR_SUCCESS)
        return error.empty() ? failStatus(r) : fail(error + " Nothing was written.");
    if (FILE *existing = openFile(file, "rb")) {
        fclose(existing);
        if (!a.force && !confirm("File " + file + " already exists. Overwrite"))
            return fail("The file was left as it was.");
    }
    FILE *f = openFile(file, "wb");
    if (!f)
        return fail("Cannot write the file " + file + ": " + strerror(errno));
    std::string bytes = w.bytes();
    bool ok = fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
    ok = fclose(f) == 0 && ok;
    if (!ok)
        return fail("Cannot write the file " + file + ".");
    return succeed();
}

int cmdImport(const Args &a)
{
    if (a.positional.size() != 1 || a.hasValue || a.allValues || a.recurse || a.hasType || a.hasData)
        return fail("Invalid syntax.\n" + std::string(kUsage));
    const std::string &file = a.positional[0];
    FILE *f = openFile(file, "rb");
    if (!f)
        return fail("Cannot read the file " + file + ": " + strerror(errno));
    std::string bytes;
    char buf[65536];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, f)) > 0)
        bytes.append(buf, n);
    fclose(f);
    std::vector<RegEntry> entries;
    std::string error;
    if (!parseRegFile(bytes, entries, error))
        return fail(file + ": " + error);
    for (const RegEntry &e : entries) {
        HKEY hive, key;
        std::string sub, display;
        if (!parseKey(e.key, hive, sub, display, error))
            return fail(error);
        LONG r = ERROR_SUCCESS;
        switch (e.kind) {
        case RegEntry::Key:
        case RegEntry::Value:
        case RegEntry::DeleteValue:
            r = RegCreateKeyExW(hive, wide(sub).c_str(), 0, nullptr, 0, KEY_QUERY_VALUE | KEY_SET_VALUE, nullptr,
                                &key, nullptr);
            if (r != ERROR_SUCCESS)
                break;
            if (e.kind == RegEntry::Value)
                r = RegSetValueExW(key, wide(e.name).c_str(), 0, e.type, reinterpret_cast<const BYTE *>(e.data.data()),
                                   static_cast<DWORD>(e.data.size()));
            else if (e.kind == RegEntry::DeleteValue &&
                     RegDeleteValueW(key, wide(e.name).c_str()) == ERROR_FILE_NOT_FOUND)
                r = ERROR_SUCCESS;
            RegCloseKey(key);
            break;
        case RegEntry::DeleteKey:
            if (sub.empty())
                return fail("A root key cannot be deleted.");
            r = deleteTree(hive, sub);
            if (r == ERROR_FILE_NOT_FOUND)
                r = ERROR_SUCCESS;
            break;
        }
        if (r != ERROR_SUCCESS)
            return fail(display + ": " + describe(r));
    }
    return succeed();
}

} // namespace

int main(int argc, char **argv)
{
    std::vector<std::string> words;
    int bad = 0;
    if (!commandLine(argc, argv, words, &bad))
        return fail("Argument " + std::to_string(bad) + " is not valid text (UTF-8).");
    if (words.size() < 2)
        return fail("Invalid syntax.\n" + std::string(kUsage));
    std::string cmd = words[1];
    if (cmd == "/?" || cmd == "-?" || cmd == "-h" || cmd == "--help") {
        out(kUsage);
        return 0;
    }
    std::vector<const char *> args;
    for (const std::string &w : words)
        args.push_back(w.c_str());
    Args a;
    std::string error;
    if (!parseArgs(static_cast<int>(args.size()), args.data(), sameText(cmd, "add"), a, error))
        return fail(error);
    if (a.regedit4 && !sameText(cmd, "export"))
        return fail("Option /a is for export only.");
    if (sameText(cmd, "query"))
        return cmdQuery(a);
    if (sameText(cmd, "add"))
        return cmdAdd(a);
    if (sameText(cmd, "delete"))
        return cmdDelete(a);
    if (sameText(cmd, "export"))
        return cmdExport(a);
    if (sameText(cmd, "import"))
        return cmdImport(a);
    return fail("Unknown operation \"" + cmd + "\".\n" + std::string(kUsage));
}
