// Reading tsreg's command line.
#include "args.h"

#include "text.h"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace tsreg {

namespace {

const struct Hive {
    const char *longName, *shortName;
    HKEY key;
} kHives[] = {
    {"HKEY_LOCAL_MACHINE", "HKLM", HKEY_LOCAL_MACHINE}, {"HKEY_CURRENT_USER", "HKCU", HKEY_CURRENT_USER},
    {"HKEY_CLASSES_ROOT", "HKCR", HKEY_CLASSES_ROOT},   {"HKEY_USERS", "HKU", HKEY_USERS},
    {"HKEY_CURRENT_CONFIG", "HKCC", HKEY_CURRENT_CONFIG},
};

const struct TypeName {
    DWORD type;
    const char *name;
} kTypes[] = {
    {REG_NONE, "REG_NONE"},
    {REG_SZ, "REG_SZ"},
    {REG_EXPAND_SZ, "REG_EXPAND_SZ"},
    {REG_BINARY, "REG_BINARY"},
    {REG_DWORD, "REG_DWORD"},
    {REG_DWORD_BIG_ENDIAN, "REG_DWORD_BIG_ENDIAN"},
    {REG_LINK, "REG_LINK"},
    {REG_MULTI_SZ, "REG_MULTI_SZ"},
    {REG_RESOURCE_LIST, "REG_RESOURCE_LIST"},
    {REG_FULL_RESOURCE_DESCRIPTOR, "REG_FULL_RESOURCE_DESCRIPTOR"},
    {REG_RESOURCE_REQUIREMENTS_LIST, "REG_RESOURCE_REQUIREMENTS_LIST"},
    {REG_QWORD, "REG_QWORD"},
};

bool parseNumber(const std::string &text, unsigned long long max, unsigned long long &out)
{
    if (text.empty())
        return false;
    const char *s = text.c_str();
    int base = 10;
    if (text.size() > 2 && s[0] == '0' && (s[1] == 'x' || s[1] == 'X')) {
        base = 16;
        s += 2;
    }
    if (!*s)
        return false;
    char *end = nullptr;
    errno = 0;
    out = strtoull(s, &end, base);
    return !*end && errno == 0 && out <= max && isxdigit(static_cast<unsigned char>(*s));
}

} // namespace

bool parseArgs(int argc, const char *const *argv, bool separatorOption, Args &a, std::string &error)
{
    for (int i = 2; i < argc; ++i) {
        std::string arg = argv[i];
        bool option = false;
        if (arg.size() >= 2 && (arg[0] == '/' || arg[0] == '-')) {
            for (const char *known : {"v", "ve", "va", "s", "f", "y", "t", "d", "a"})
                option = option || sameText(arg.substr(1), known);
        }
        if (!option) {
            a.positional.push_back(arg);
            continue;
        }
        std::string o = arg.substr(1);
        auto next = [&](std::string &out) {
            if (i + 1 >= argc) {
                error = "option " + arg + " needs an argument";
                return false;
            }
            out = argv[++i];
            return true;
        };
        if (sameText(o, "v")) {
            a.hasValue = true;
            if (!next(a.valueName))
                return false;
        } else if (sameText(o, "ve")) {
            a.hasValue = a.defaultValue = true;
            a.valueName.clear();
        } else if (sameText(o, "va")) {
            a.allValues = true;
        } else if (sameText(o, "s")) {
            if (separatorOption) {
                if (!next(a.separator))
                    return false;
            } else {
                a.recurse = true;
            }
        } else if (sameText(o, "a")) {
            a.regedit4 = true;
        } else if (sameText(o, "f") || sameText(o, "y")) {
            a.force = true;
        } else if (sameText(o, "t")) {
            a.hasType = true;
            if (!next(a.type))
                return false;
        } else if (sameText(o, "d")) {
            a.hasData = true;
            if (!next(a.data))
                return false;
        }
    }
    return true;
}

bool parseKey(const std::string &keyText, HKEY &hive, std::string &sub, std::string &display, std::string &error)
{
    if (keyText.compare(0, 2, "\\\\") == 0) {
        error = "Remote registries are not supported.";
        return false;
    }
    std::string root = keyText.substr(0, keyText.find('\\'));
    sub = root.size() < keyText.size() ? keyText.substr(root.size() + 1) : std::string();
    while (!sub.empty() && sub.back() == '\\')
        sub.pop_back();
    for (const Hive &h : kHives) {
        if (sameText(root, h.longName) || sameText(root, h.shortName)) {
            hive = h.key;
            display = sub.empty() ? std::string(h.longName) : std::string(h.longName) + "\\" + sub;
            return true;
        }
    }
    error = "Invalid key name \"" + keyText + "\": the root must be HKLM, HKCU, HKCR, HKU or HKCC.";
    return false;
}

std::string typeName(DWORD type)
{
    for (const TypeName &t : kTypes) {
        if (t.type == type)
            return t.name;
    }
    char buf[16];
    snprintf(buf, sizeof buf, "0x%x", static_cast<unsigned>(type));
    return buf;
}

bool makeData(const Args &a, DWORD &type, std::string &data, std::string &error)
{
    type = REG_SZ;
    if (a.hasType) {
        bool known = false;
        for (DWORD t : {REG_SZ, REG_EXPAND_SZ, REG_MULTI_SZ, REG_DWORD, REG_QWORD, REG_BINARY, REG_NONE}) {
            if (sameText(a.type, typeName(t).c_str())) {
                type = t;
                known = true;
            }
        }
        if (!known) {
            error = "Invalid type \"" + a.type + "\".";
            return false;
        }
    }
    const std::string &d = a.data;
    switch (type) {
    case REG_DWORD:
    case REG_QWORD: {
        unsigned long long v = 0;
        if (!parseNumber(a.hasData ? d : "0", type == REG_DWORD ? 0xFFFFFFFFull : ~0ull, v)) {
            error = "Invalid number \"" + d + "\" for " + typeName(type) + ".";
            return false;
        }
        data.assign(reinterpret_cast<const char *>(&v), type == REG_DWORD ? 4 : 8); // little-endian
        return true;
    }
    case REG_BINARY:
        if (d.size() % 2 || d.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
            error = "Invalid binary data \"" + d + "\": give an even number of hexadecimal digits.";
            return false;
        }
        data.clear();
        for (size_t i = 0; i < d.size(); i += 2)
            data += static_cast<char>(strtoul(d.substr(i, 2).c_str(), nullptr, 16));
        return true;
    case REG_MULTI_SZ: {
        if (a.separator.empty()) {
            error = "The separator of /s must not be empty.";
            return false;
        }
        WString multi;
        size_t pos = 0;
        while (pos <= d.size() && !d.empty()) {
            size_t next = d.find(a.separator, pos);
            std::string item = d.substr(pos, next == std::string::npos ? std::string::npos : next - pos);
            if (item.empty() && next != std::string::npos) {
                error = "Invalid REG_MULTI_SZ data: empty strings are not allowed.";
                return false;
            }
            multi += wide(item) + WCHAR(0);
            if (next == std::string::npos)
                break;
            pos = next + a.separator.size();
        }
        data = wideBytes(multi + WCHAR(0));
        return true;
    }
    default:
        data = wideBytes(wide(d) + WCHAR(0)); // text, as RegSetValueExW takes it
        return true;
    }
}

} // namespace tsreg
