// The .reg text format.
#include "regfile.h"

#include "casefold.h"

#include <cassert>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace tsreg {

namespace {

// Text of one code page as UTF-16 units, and back; a unit that the page
// lacks becomes its default character ('?').
std::basic_string<WCHAR> widen(const std::string &text, UINT codePage)
{
    if (text.empty())
        return std::basic_string<WCHAR>();
    int n = MultiByteToWideChar(codePage, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
    std::basic_string<WCHAR> wide(n > 0 ? static_cast<size_t>(n) : 0, 0);
    if (n > 0) {
        [[maybe_unused]] int written =
            MultiByteToWideChar(codePage, 0, text.data(), static_cast<int>(text.size()), &wide[0], n);
        assert(written == n && "a conversion sized beforehand cannot fail");
    }
    return wide;
}

std::string narrow(const std::basic_string<WCHAR> &wide)
{
    if (wide.empty())
        return std::string();
    int n = WideCharToMultiByte(CP_ACP, 0, wide.data(), static_cast<int>(wide.size()), nullptr, 0, nullptr, nullptr);
    std::string text(n > 0 ? static_cast<size_t>(n) : 0, '\0');
    if (n > 0) {
        [[maybe_unused]] int written =
            WideCharToMultiByte(CP_ACP, 0, wide.data(), static_cast<int>(wide.size()), &text[0], n, nullptr, nullptr);
        assert(written == n && "a conversion sized beforehand cannot fail");
    }
    return text;
}

const char *const kHeader5 = "Windows Registry Editor Version 5.00";
const char *const kHeader4 = "REGEDIT4";

bool isStringType(DWORD type) { return type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ; }

std::string quote(const std::string &s)
{
    std::string q = "\"";
    for (char c : s) {
        if (c == '\\' || c == '"')
            q += '\\';
        q += c;
    }
    return q + '"';
}

std::string utf8ToAnsi(const std::string &s) { return narrow(widen(s, CP_UTF8)); }

std::string trim(const std::string &s)
{
    size_t b = s.find_first_not_of(" \t");
    if (b == std::string::npos)
        return std::string();
    size_t e = s.find_last_not_of(" \t");
    return s.substr(b, e - b + 1);
}

// Reads a quoted string at s[pos] (which is '"'); pos ends after it.
bool readQuoted(const std::string &s, size_t &pos, std::string &out)
{
    out.clear();
    for (++pos; pos < s.size(); ++pos) {
        char c = s[pos];
        if (c == '\\' && pos + 1 < s.size()) {
            out += s[++pos];
        } else if (c == '"') {
            ++pos;
            return true;
        } else {
            out += c;
        }
    }
    return false;
}

bool parseHexBytes(const std::string &s, std::string &out)
{
    out.clear();
    size_t i = 0;
    while (i < s.size()) {
        while (i < s.size() && (s[i] == ' ' || s[i] == '\t'))
            ++i;
        if (i >= s.size())
            break;
        size_t j = i;
        while (j < s.size() && isxdigit(static_cast<unsigned char>(s[j])))
            ++j;
        if (j == i || j - i > 2)
            return false;
        out += static_cast<char>(strtoul(s.substr(i, j - i).c_str(), nullptr, 16));
        while (j < s.size() && (s[j] == ' ' || s[j] == '\t'))
            ++j;
        if (j < s.size() && s[j] != ',')
            return false;
        i = j + 1;
    }
    return true;
}

bool startsWith(const std::string &s, const char *prefix)
{
    size_t n = strlen(prefix);
    return s.size() >= n && sameText(s.substr(0, n), prefix);
}

const char *const kHives[][2] = {
    {"HKEY_LOCAL_MACHINE", "HKLM"}, {"HKEY_CURRENT_USER", "HKCU"}, {"HKEY_CLASSES_ROOT", "HKCR"},
    {"HKEY_USERS", "HKU"},          {"HKEY_CURRENT_CONFIG", "HKCC"},
};

} // namespace

bool sameText(const std::string &a, const char *b) { return tsp::equalNoCase(a, b); }

std::string ansiToUtf16le(const std::string &ansi)
{
    std::basic_string<WCHAR> wide = widen(ansi, CP_ACP);
    std::string out;
    out.reserve(wide.size() * 2);
    for (WCHAR u : wide) {
        out += static_cast<char>(u & 0xFF);
        out += static_cast<char>(u >> 8);
    }
    return out;
}

std::string utf16leToAnsi(const std::string &bytes)
{
    std::basic_string<WCHAR> wide;
    wide.reserve(bytes.size() / 2);
    for (size_t i = 0; i + 1 < bytes.size(); i += 2)
        wide += static_cast<WCHAR>(static_cast<unsigned char>(bytes[i]) | (static_cast<unsigned char>(bytes[i + 1]) << 8));
    return narrow(wide);
}

RegWriter::RegWriter() { text_ = std::string(kHeader5) + "\r\n"; }

void RegWriter::key(const std::string &path) { text_ += "\r\n[" + path + "]\r\n"; }

void RegWriter::value(const std::string &name, DWORD type, const std::string &data)
{
    std::string line = name.empty() ? std::string("@") : quote(name);
    line += '=';
    // A string with one terminator and no other zero byte is written as
    // text; anything else of a string type as its UTF-16LE bytes.
    if (type == REG_SZ && !data.empty() && data.back() == '\0' && data.find('\0') == data.size() - 1) {
        text_ += line + quote(data.substr(0, data.size() - 1)) + "\r\n";
        return;
    }
    if (type == REG_DWORD && data.size() == 4) {
        unsigned v = static_cast<unsigned char>(data[0]) | (static_cast<unsigned char>(data[1]) << 8) |
                     (static_cast<unsigned char>(data[2]) << 16) |
                     (static_cast<unsigned>(static_cast<unsigned char>(data[3])) << 24);
        char buf[16];
        snprintf(buf, sizeof buf, "dword:%08x", v);
        text_ += line + buf + "\r\n";
        return;
    }
    std::string bytes = isStringType(type) ? ansiToUtf16le(data) : data;
    char prefix[16];
    if (type == REG_BINARY)
        snprintf(prefix, sizeof prefix, "hex:");
    else
        snprintf(prefix, sizeof prefix, "hex(%x):", static_cast<unsigned>(type));
    line += prefix;
    for (size_t i = 0; i < bytes.size(); ++i) {
        char hex[4];
        snprintf(hex, sizeof hex, "%02x", static_cast<unsigned char>(bytes[i]));
        line += hex;
        if (i + 1 < bytes.size()) {
            line += ',';
            if (line.size() > 76) { // wrapped as the registry editor does
                text_ += line + "\\\r\n";
                line = "  ";
            }
        }
    }
    text_ += line + "\r\n";
}

std::string RegWriter::bytes() const { return "\xFF\xFE" + ansiToUtf16le(text_ + "\r\n"); }

bool parseRegFile(const std::string &fileBytes, std::vector<RegEntry> &out, std::string &error)
{
    std::string text;
    if (fileBytes.size() >= 2 && fileBytes.compare(0, 2, "\xFF\xFE") == 0)
        text = utf16leToAnsi(fileBytes.substr(2));
    else if (fileBytes.size() >= 3 && fileBytes.compare(0, 3, "\xEF\xBB\xBF") == 0)
        text = utf8ToAnsi(fileBytes.substr(3));
    else
        text = fileBytes;

    // Lines, with the continuation lines of hex data joined.
    std::vector<std::pair<int, std::string>> lines;
    {
        size_t pos = 0;
        int number = 0;
        bool continuing = false;
        while (pos <= text.size()) {
            size_t nl = text.find('\n', pos);
            std::string line = text.substr(pos, nl == std::string::npos ? std::string::npos : nl - pos);
            pos = nl == std::string::npos ? text.size() + 1 : nl + 1;
            ++number;
            if (!line.empty() && line.back() == '\r')
                line.pop_back();
            std::string t = continuing ? trim(line) : line;
            if (continuing)
                lines.back().second += t;
            else
                lines.emplace_back(number, t);
            std::string &cur = lines.back().second;
            std::string tail = trim(cur);
            continuing = !tail.empty() && tail.back() == '\\' && cur.find("=hex") != std::string::npos;
            if (continuing)
                cur = tail.substr(0, tail.size() - 1);
        }
    }

    bool unicode = false;
    bool sawHeader = false;
    std::string section;
    bool inDeletedSection = false;
    for (auto &[number, raw] : lines) {
        std::string line = trim(raw);
        if (line.empty() || line[0] == ';')
            continue;
        auto fail = [&, n = number](const std::string &what) {
            error = "line " + std::to_string(n) + ": " + what;
            return false;
        };
        if (!sawHeader) {
            if (line == kHeader5)
                unicode = true;
            else if (line != kHeader4)
                return fail("not a registry file (the first line must be \"" + std::string(kHeader5) + "\")");
            sawHeader = true;
            continue;
        }
        if (line[0] == '[') {
            if (line.back() != ']')
                return fail("a key line must end with ']'");
            std::string path = line.substr(1, line.size() - 2);
            bool del = !path.empty() && path[0] == '-';
            if (del)
                path.erase(0, 1);
            // The hive's long name; the short forms are taken too.
            std::string hive = path.substr(0, path.find('\\'));
            std::string rest = hive.size() < path.size() ? path.substr(hive.size()) : std::string();
            bool known = false;
            for (auto &h : kHives) {
                if (sameText(hive, h[0]) || sameText(hive, h[1])) {
                    path = h[0] + rest;
                    known = true;
                }
            }
            if (!known)
                return fail("unknown root key \"" + hive + "\"");
            RegEntry e;
            e.kind = del ? RegEntry::DeleteKey : RegEntry::Key;
            e.key = path;
            out.push_back(e);
            section = path;
            inDeletedSection = del;
            continue;
        }
        if (section.empty())
            return fail("a value before the first key");
        if (inDeletedSection)
            continue; // values of a deleted key are ignored, as the registry editor does
        RegEntry e;
        e.key = section;
        size_t pos = 0;
        if (line[0] == '@') {
            pos = 1;
        } else if (line[0] == '"') {
            if (!readQuoted(line, pos, e.name))
                return fail("unterminated value name");
        } else {
            return fail("expected a value name in quotes, '@' or a key in brackets");
        }
        while (pos < line.size() && (line[pos] == ' ' || line[pos] == '\t'))
            ++pos;
        if (pos >= line.size() || line[pos] != '=')
            return fail("expected '=' after the value name");
        std::string data = trim(line.substr(pos + 1));
        if (data == "-") {
            e.kind = RegEntry::DeleteValue;
        } else if (!data.empty() && data[0] == '"') {
            size_t p = 0;
            std::string s;
            if (!readQuoted(data, p, s) || trim(data.substr(p)).size())
                return fail("bad string data");
            e.kind = RegEntry::Value;
            e.type = REG_SZ;
            e.data = s + '\0';
        } else if (startsWith(data, "dword:")) {
            std::string digits = trim(data.substr(6));
            if (digits.empty() || digits.size() > 8 ||
                digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
                return fail("bad dword data");
            unsigned long v = strtoul(digits.c_str(), nullptr, 16);
            e.kind = RegEntry::Value;
            e.type = REG_DWORD;
            for (int i = 0; i < 4; ++i)
                e.data += static_cast<char>((v >> (8 * i)) & 0xFF);
        } else if (startsWith(data, "hex")) {
            size_t colon = data.find(':');
            if (colon == std::string::npos)
                return fail("bad hex data");
            std::string kind = data.substr(3, colon - 3);
            DWORD type = REG_BINARY;
            if (!kind.empty()) {
                if (kind.size() < 3 || kind.front() != '(' || kind.back() != ')')
                    return fail("bad hex type");
                std::string n = kind.substr(1, kind.size() - 2);
                if (n.empty() || n.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
                    return fail("bad hex type");
                type = static_cast<DWORD>(strtoul(n.c_str(), nullptr, 16));
            }
            std::string bytes;
            if (!parseHexBytes(data.substr(colon + 1), bytes))
                return fail("bad hex bytes");
            e.kind = RegEntry::Value;
            e.type = type;
            e.data = unicode && isStringType(type) ? utf16leToAnsi(bytes) : bytes;
        } else {
            return fail("unknown data \"" + data + "\"");
        }
        out.push_back(e);
    }
    if (!sawHeader) {
        error = "not a registry file (empty)";
        return false;
    }
    return true;
}

} // namespace tsreg
