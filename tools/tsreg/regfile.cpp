// The .reg text format.
#include "regfile.h"

#include "text.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace tsreg {

namespace {

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

std::string trim(const std::string &s)
{
    size_t b = s.find_first_not_of(" \t");
    if (b == std::string::npos)
        return std::string();
    size_t e = s.find_last_not_of(" \t");
    return s.substr(b, e - b + 1);
}

// Reads a quoted string at s[pos] (which is '"'); pos ends after it. The
// registry editor writes only \\ and \"; any other escape is refused.
bool readQuoted(const std::string &s, size_t &pos, std::string &out, std::string &error)
{
    out.clear();
    for (++pos; pos < s.size(); ++pos) {
        char c = s[pos];
        if (c == '\\') {
            if (pos + 1 >= s.size() || (s[pos + 1] != '\\' && s[pos + 1] != '"')) {
                error = pos + 1 < s.size() ? "unknown escape \"\\" + std::string(1, s[pos + 1]) + "\" in a string"
                                           : "unterminated string";
                return false;
            }
            out += s[++pos];
        } else if (c == '"') {
            ++pos;
            return true;
        } else {
            out += c;
        }
    }
    error = "unterminated string";
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
        if (j < s.size() && j + 1 == s.size())
            return false; // a trailing comma
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

// The file's lines in UTF-8, numbered from 1, and whether it is REGEDIT4.
// False with the line's number when a line is not valid in the encoding.
bool decodeLines(const std::string &bytes, std::vector<std::string> &lines, std::string &error)
{
    lines.clear();
    auto bad = [&](size_t line, const char *what) {
        error = "line " + std::to_string(line) + ": " + what;
        return false;
    };
    if (bytes.size() >= 2 && bytes.compare(0, 2, "\xFF\xFE") == 0) {
        if (bytes.size() % 2)
            return bad(static_cast<size_t>(std::count(bytes.begin(), bytes.end(), '\n')) + 1,
                       "the UTF-16 text ends in half a character");
        WString all = wideOfBytes(bytes.substr(2));
        size_t pos = 0;
        while (pos <= all.size()) {
            size_t nl = all.find(WCHAR('\n'), pos);
            WString line = all.substr(pos, nl == WString::npos ? WString::npos : nl - pos);
            std::string text;
            if (!wideToUtf8(line, text))
                return bad(lines.size() + 1, "text that is not valid UTF-16 (a lone surrogate)");
            lines.push_back(text);
            pos = nl == WString::npos ? all.size() + 1 : nl + 1;
        }
        return true;
    }
    bool bom = bytes.size() >= 3 && bytes.compare(0, 3, "\xEF\xBB\xBF") == 0;
    std::string text = bom ? bytes.substr(3) : bytes;
    bool ansi = !bom && text.compare(0, strlen(kHeader4), kHeader4) == 0;
    size_t pos = 0;
    while (pos <= text.size()) {
        size_t nl = text.find('\n', pos);
        std::string line = text.substr(pos, nl == std::string::npos ? std::string::npos : nl - pos);
        WString w;
        if (ansi) {
            if (!wideToUtf8(ansiToWide(line), line))
                return bad(lines.size() + 1, "text that the ANSI code page cannot give");
        } else if (!utf8ToWide(line, w)) {
            return bad(lines.size() + 1, "text that is not valid UTF-8");
        }
        lines.push_back(line);
        pos = nl == std::string::npos ? text.size() + 1 : nl + 1;
    }
    return true;
}

} // namespace

// ---------------------------------------------------------------------------
// Writing

RegWriter::RegWriter(bool regedit4) : regedit4_(regedit4)
{
    text_ = std::string(regedit4 ? kHeader4 : kHeader5) + "\r\n";
}

namespace {

// Text that a line of the file can hold: no line break, and in REGEDIT4
// only characters of the ANSI code page.
bool writable(const std::string &utf8, bool regedit4)
{
    if (utf8.find_first_of("\r\n") != std::string::npos)
        return false;
    std::string ansi;
    return !regedit4 || wideToAnsi(wide(utf8), ansi);
}

} // namespace

bool RegWriter::key(const std::string &path, std::string &error)
{
    if (!writable(path, regedit4_)) {
        error = "The key " + path + " has a name that a " + (regedit4_ ? "REGEDIT4 " : "") + "file cannot hold.";
        return false;
    }
    text_ += "\r\n[" + path + "]\r\n";
    return true;
}

bool RegWriter::value(const std::string &name, DWORD type, const std::string &data, std::string &error)
{
    if (!writable(name, regedit4_)) {
        error = "The value \"" + name + "\" has a name that a " + (regedit4_ ? "REGEDIT4 " : "") +
                "file cannot hold.";
        return false;
    }
    std::string line = name.empty() ? std::string("@") : quote(name);
    line += '=';
    // A string with one terminator and no other zero and no line break is
    // written as text; anything else of a string type as its bytes.
    if (type == REG_SZ && data.size() % 2 == 0) {
        WString w = wideOfBytes(data);
        std::string text;
        if (!w.empty() && w.back() == 0 && w.find(WCHAR(0)) == w.size() - 1 &&
            wideToUtf8(w.substr(0, w.size() - 1), text) && writable(text, regedit4_)) {
            text_ += line + quote(text) + "\r\n";
            return true;
        }
    }
    if (type == REG_DWORD && data.size() == 4) {
        unsigned v = static_cast<unsigned char>(data[0]) | (static_cast<unsigned char>(data[1]) << 8) |
                     (static_cast<unsigned char>(data[2]) << 16) |
                     (static_cast<unsigned>(static_cast<unsigned char>(data[3])) << 24);
        char buf[16];
        snprintf(buf, sizeof buf, "dword:%08x", v);
        text_ += line + buf + "\r\n";
        return true;
    }
    std::string bytes = data;
    if (regedit4_ && isStringType(type) && (data.size() % 2 || !wideToAnsi(wideOfBytes(data), bytes))) {
        error = "The value \"" + name + "\" holds text that a REGEDIT4 file cannot hold.";
        return false;
    }
    return hexLine(line, type, bytes);
}

bool RegWriter::hexLine(std::string line, DWORD type, const std::string &bytes)
{
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
    return true;
}

std::string RegWriter::bytes() const
{
    std::string all = text_ + "\r\n";
    if (regedit4_) {
        std::string ansi;
        wideToAnsi(wide(all), ansi); // every piece was checked as it came
        return ansi;
    }
    return "\xFF\xFE" + wideBytes(wide(all));
}

// ---------------------------------------------------------------------------
// Reading

bool parseRegFile(const std::string &fileBytes, std::vector<RegEntry> &out, std::string &error)
{
    std::vector<std::string> text;
    if (!decodeLines(fileBytes, text, error))
        return false;

    // Lines, with the continuation lines of hex data joined.
    std::vector<std::pair<int, std::string>> lines;
    bool continuing = false;
    for (size_t i = 0; i < text.size(); ++i) {
        std::string line = text[i];
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        std::string t = continuing ? trim(line) : line;
        if (continuing)
            lines.back().second += t;
        else
            lines.emplace_back(static_cast<int>(i + 1), t);
        std::string &cur = lines.back().second;
        std::string tail = trim(cur);
        continuing = !tail.empty() && tail.back() == '\\' && cur.find("=hex") != std::string::npos;
        if (continuing)
            cur = tail.substr(0, tail.size() - 1);
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
        RegEntry e;
        e.key = section;
        size_t pos = 0;
        std::string why;
        if (line[0] == '@') {
            pos = 1;
        } else if (line[0] == '"') {
            if (!readQuoted(line, pos, e.name, why))
                return fail(why + " (value name)");
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
            if (!readQuoted(data, p, s, why))
                return fail(why);
            if (trim(data.substr(p)).size())
                return fail("text after the closing quote of a string");
            e.kind = RegEntry::Value;
            e.type = REG_SZ;
            e.data = wideBytes(wide(s) + WCHAR(0));
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
                if (kind.size() < 3 || kind.size() > 10 || kind.front() != '(' || kind.back() != ')')
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
            // REGEDIT4 gives the text of the string types in the ANSI code
            // page; the registry keeps it in UTF-16.
            e.data = !unicode && isStringType(type) ? wideBytes(ansiToWide(bytes)) : bytes;
        } else {
            return fail("unknown data \"" + data + "\"");
        }
        if (inDeletedSection)
            continue; // values of a deleted key are ignored, as the registry editor does
        out.push_back(e);
    }
    if (!sawHeader) {
        error = "not a registry file (empty)";
        return false;
    }
    return true;
}

} // namespace tsreg
