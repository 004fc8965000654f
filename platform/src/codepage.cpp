// Code page tables from iconv, and the process's ANSI and OEM code pages.
#include "codepage.h"

#include <errno.h>
#include <iconv.h>
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

namespace tsp {

namespace {

// Simple lower case of the letters that the single-byte pages hold.
uint16_t lowerOf(uint16_t u)
{
    if (u >= 'A' && u <= 'Z')
        return static_cast<uint16_t>(u + 32);
    if (u >= 0xC0 && u <= 0xDE && u != 0xD7)
        return static_cast<uint16_t>(u + 32);
    if (u == 0x178)
        return 0xFF;
    if ((u >= 0x100 && u <= 0x137 && u != 0x130) || (u >= 0x14A && u <= 0x177))
        return static_cast<uint16_t>(u | 1);
    if ((u >= 0x139 && u <= 0x148) || (u >= 0x179 && u <= 0x17E))
        return static_cast<uint16_t>((u & 1) ? u + 1 : u);
    if (u >= 0x391 && u <= 0x3AB && u != 0x3A2)
        return static_cast<uint16_t>(u + 32);
    if (u >= 0x410 && u <= 0x42F)
        return static_cast<uint16_t>(u + 32);
    if (u >= 0x400 && u <= 0x40F)
        return static_cast<uint16_t>(u + 80);
    return u;
}

bool iconvNameOf(UINT id, char *name, size_t size)
{
    if (id == 65000 || id == 65001 || id == 1200 || id == 1201 || id == 0)
        return false;
    if (id == 20127)
        snprintf(name, size, "ASCII");
    else if (id >= 28591 && id <= 28605)
        snprintf(name, size, "ISO-8859-%u", id - 28590);
    else if (id == 10000)
        snprintf(name, size, "MACINTOSH");
    else if (id == 20866)
        snprintf(name, size, "KOI8-R");
    else if (id == 21866)
        snprintf(name, size, "KOI8-U");
    else
        snprintf(name, size, "CP%u", id);
    return true;
}

// One conversion of len bytes; gives the unit, 0xFFFF when the bytes are
// no character, or 0xFFFE when they are the start of a longer one.
uint16_t convert(iconv_t cd, const unsigned char *bytes, size_t len)
{
    iconv(cd, nullptr, nullptr, nullptr, nullptr);
    char in[2] = {static_cast<char>(bytes[0]), len > 1 ? static_cast<char>(bytes[1]) : '\0'};
    char out[8];
    char *inp = in, *outp = out;
    size_t inLeft = len, outLeft = sizeof out;
    size_t r = iconv(cd, &inp, &inLeft, &outp, &outLeft);
    if (r == static_cast<size_t>(-1))
        return errno == EINVAL ? 0xFFFE : 0xFFFF;
    // Flush any state, then expect exactly one UTF-16 unit.
    iconv(cd, nullptr, nullptr, &outp, &outLeft);
    if (inLeft != 0 || sizeof out - outLeft != 2)
        return 0xFFFF;
    return static_cast<uint16_t>(static_cast<unsigned char>(out[0]) | (static_cast<unsigned char>(out[1]) << 8));
}

// The page's bytes for one unit as iconv writes them (lead << 8 | trail
// for two bytes), or kNone.
uint16_t bytesFromIconv(iconv_t back, uint16_t unit)
{
    iconv(back, nullptr, nullptr, nullptr, nullptr);
    char in[2] = {static_cast<char>(unit & 0xFF), static_cast<char>(unit >> 8)};
    unsigned char out[8];
    char *inp = in, *outp = reinterpret_cast<char *>(out);
    size_t inLeft = sizeof in, outLeft = sizeof out;
    if (iconv(back, &inp, &inLeft, &outp, &outLeft) == static_cast<size_t>(-1))
        return CodePage::kNone;
    size_t n = sizeof out - outLeft;
    if (n == 1)
        return out[0];
    if (n == 2)
        return static_cast<uint16_t>(out[0] << 8 | out[1]);
    return CodePage::kNone;
}

// Unicode to the page. Where one unit has several byte sequences, iconv
// settles which one is written (it follows Windows' own choice, e.g. the
// JIS row before the vendor rows in 932); otherwise the table is the
// forward table turned round.
void buildReverse(CodePage &cp, const char *name)
{
    std::vector<uint16_t> twice; // the units that more than one byte sequence means
    auto enter = [&](uint16_t unit, uint16_t code) {
        if (unit == CodePage::kNone)
            return;
        if (cp.bytesOf[unit] == CodePage::kNone)
            cp.bytesOf.set(unit, code);
        else
            twice.push_back(unit);
    };
    for (int b = 0; b < 256; ++b)
        if (!cp.lead[b])
            enter(cp.single[b], static_cast<uint16_t>(b));
    for (int l = 0; l < 256; ++l)
        if (cp.lead[l])
            for (int t = 0; t < 256; ++t) {
                uint16_t code = static_cast<uint16_t>(l << 8 | t);
                enter(cp.pairs[code], code);
            }
    if (twice.empty())
        return;
    iconv_t back = iconv_open(name, "UTF-16LE");
    if (back == reinterpret_cast<iconv_t>(-1))
        return; // lowest byte sequence first, then
    std::sort(twice.begin(), twice.end());
    twice.erase(std::unique(twice.begin(), twice.end()), twice.end());
    for (uint16_t unit : twice) {
        uint16_t code = bytesFromIconv(back, unit);
        uint16_t again = code < 0x100 ? cp.single[code] : cp.pairs[code];
        if (code != CodePage::kNone && again == unit)
            cp.bytesOf.set(unit, code);
    }
    iconv_close(back);
}

void buildCase(CodePage &cp)
{
    for (int b = 0; b < 256; ++b)
        cp.lower[b] = cp.upper[b] = static_cast<unsigned char>(b);
    // The reverse of the single-byte map, for the letters only.
    std::map<uint16_t, unsigned char> reverse;
    for (int b = 1; b < 256; ++b)
        if (!cp.lead[b] && cp.single[b] != 0xFFFF)
            reverse.emplace(cp.single[b], static_cast<unsigned char>(b));
    for (int b = 1; b < 256; ++b) {
        if (cp.lead[b] || cp.single[b] == 0xFFFF)
            continue;
        uint16_t lo = lowerOf(cp.single[b]);
        if (lo == cp.single[b])
            continue;
        auto it = reverse.find(lo);
        if (it != reverse.end()) {
            cp.lower[b] = it->second;
            cp.upper[it->second] = static_cast<unsigned char>(b);
        }
    }
}

// The page's bytes in Unicode, read from iconv: false when iconv does not
// know the page.
bool readForwardFromIconv(CodePage &cp, const char *name)
{
    iconv_t cd = iconv_open("UTF-16LE", name);
    if (cd == reinterpret_cast<iconv_t>(-1))
        return false;
    for (int b = 0; b < 256; ++b) {
        unsigned char byte = static_cast<unsigned char>(b);
        uint16_t u = b == 0 ? 0 : convert(cd, &byte, 1);
        if (u == 0xFFFE) {
            cp.lead[b] = true;
            cp.doubleByte = true;
            u = 0xFFFF;
        }
        cp.single[b] = u;
    }
    if (cp.doubleByte) {
        for (int l = 0; l < 256; ++l) {
            if (!cp.lead[l])
                continue;
            for (int t = 1; t < 256; ++t) {
                unsigned char two[2] = {static_cast<unsigned char>(l), static_cast<unsigned char>(t)};
                uint16_t u = convert(cd, two, 2);
                if (u < 0xFFFE) {
                    cp.pairs.set(static_cast<uint16_t>(l << 8 | t), u);
                    cp.trail[t] = true;
                }
            }
        }
    }
    iconv_close(cd);
    return true;
}

// Code page 1252, the ANSI page of most machines and the layer's default,
// is carried here, as iconv has it: a process that keeps to it never loads
// iconv's modules, some 150 KiB of its memory.
void readForward1252(CodePage &cp)
{
    static const uint16_t kHigh[32] = {
        0x20AC, 0xFFFF, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
        0x2039, 0x0152, 0xFFFF, 0x017D, 0xFFFF, 0xFFFF, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
        0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0xFFFF, 0x017E, 0x0178,
    };
    for (int b = 0; b < 256; ++b)
        cp.single[b] = b >= 0x80 && b < 0xA0 ? kHigh[b - 0x80] : static_cast<uint16_t>(b);
}

std::unique_ptr<CodePage> build(UINT id)
{
    char name[32];
    if (!iconvNameOf(id, name, sizeof name))
        return nullptr;
    auto cp = std::make_unique<CodePage>();
    cp->id = id;
    if (id == 1252)
        readForward1252(*cp);
    else if (!readForwardFromIconv(*cp, name))
        return nullptr;
    if (!cp->doubleByte) {
        // Windows' single-byte pages give the bytes 0x80-0x9F that they
        // leave unassigned as the C1 controls of the same value (0x81 in
        // 1252 is U+0081), so that every byte survives a round trip.
        for (int b = 0x80; b < 0xA0; ++b)
            if (cp->single[b] == CodePage::kNone)
                cp->single[b] = static_cast<uint16_t>(b);
    }
    // 932 marks a broken character with the katakana middle dot, as Windows does.
    cp->wideDefault = id == 932 ? 0x30FB : '?';
    buildReverse(*cp, name);
    buildCase(*cp);
    cp->asciiSame = true;
    for (int b = 0; b < 0x80; ++b)
        cp->asciiSame = cp->asciiSame && !cp->lead[b] && cp->single[b] == b && cp->bytesOf[static_cast<uint16_t>(b)] == b;
    if (!cp->doubleByte) {
        // The units that have a byte are those that some byte means: 256
        // look-ups at a page's first use, not one for each of 65,536 units.
        for (int b = 0; b < 256; ++b) {
            uint16_t unit = cp->single[b];
            if (unit != CodePage::kNone)
                cp->narrow.set(unit, static_cast<unsigned char>(cp->bytesOf[unit]));
        }
    }
    cp->latin1Same = cp->asciiSame && !cp->doubleByte;
    for (int b = 0xA0; b < 0x100; ++b)
        cp->latin1Same = cp->latin1Same && cp->single[b] == b && cp->bytesOf[static_cast<uint16_t>(b)] == b;
    cp->everyByteMaps = !cp->doubleByte;
    for (int b = 0; b < 256; ++b)
        cp->everyByteMaps = cp->everyByteMaps && cp->single[b] != CodePage::kNone;
    return cp;
}

} // namespace

const CodePage *codePage(UINT id)
{
    static std::mutex lock;
    static auto *pages = new std::map<UINT, std::unique_ptr<CodePage>>; // never destroyed
    std::lock_guard<std::mutex> guard(lock);
    auto it = pages->find(id);
    if (it == pages->end())
        it = pages->emplace(id, build(id)).first;
    return it->second.get();
}

const CodePage *bytesOnlyCodePage()
{
    static const CodePage *bytes = [] {
        auto *cp = new CodePage;
        for (int b = 0; b < 256; ++b) {
            cp->single[b] = static_cast<uint16_t>(b);
            cp->lower[b] = cp->upper[b] = static_cast<unsigned char>(b);
        }
        for (int b = 'A'; b <= 'Z'; ++b) {
            cp->lower[b] = static_cast<unsigned char>(b + 32);
            cp->upper[b + 32] = static_cast<unsigned char>(b);
        }
        for (int b = 0; b < 256; ++b) {
            cp->bytesOf.set(static_cast<uint16_t>(b), static_cast<uint16_t>(b));
            cp->narrow.set(static_cast<uint16_t>(b), static_cast<unsigned char>(b));
        }
        cp->asciiSame = cp->everyByteMaps = true;
        return cp;
    }();
    return bytes;
}

namespace {

struct SystemCodePages {
    UINT ansi = 1252;
    UINT oem = 437;
};

// The OEM page of the locales whose ANSI page this is.
UINT oemPageFor(UINT ansi)
{
    switch (ansi) {
    case 1250: return 852;
    case 1251: return 866;
    case 1253: return 737;
    case 1254: return 857;
    case 1255: return 862;
    case 1256: return 720;
    case 1257: return 775;
    case 874: case 932: case 936: case 949: case 950: case 1258: case 65001: return ansi;
    default: return 437;
    }
}

// A code page number of the registry (REG_SZ, decimal), if the layer knows it.
// Read through the W calls: the A calls convert through the page read here.
bool readCodePageValue(HKEY key, const char16_t *name, UINT &id)
{
    char16_t wide[16] = {};
    DWORD type = 0, size = sizeof wide - sizeof(char16_t);
    if (RegQueryValueExW(key, reinterpret_cast<LPCWSTR>(name), nullptr, &type, reinterpret_cast<BYTE *>(wide),
                         &size) != ERROR_SUCCESS ||
        type != REG_SZ)
        return false;
    char text[16] = {};
    for (size_t i = 0; i < 15 && wide[i]; ++i)
        text[i] = wide[i] < 0x80 ? static_cast<char>(wide[i]) : '?';
    char *end = nullptr;
    unsigned long n = strtoul(text, &end, 10);
    if (end == text || *end || n == 0 || n > 65535)
        return false;
    // UTF-8 may be the system's page, as on Windows 10; UTF-7 may not.
    if (n != CP_UTF8 && !codePage(static_cast<UINT>(n)))
        return false;
    id = static_cast<UINT>(n);
    return true;
}

const SystemCodePages &systemCodePages()
{
    static const SystemCodePages pages = [] {
        SystemCodePages p;
        HKEY key;
        if (RegOpenKeyExW(HKEY_LOCAL_MACHINE,
                          reinterpret_cast<LPCWSTR>(u"SYSTEM\\CurrentControlSet\\Control\\Nls\\CodePage"), 0,
                          KEY_QUERY_VALUE, &key) != ERROR_SUCCESS)
            return p;
        readCodePageValue(key, u"ACP", p.ansi);
        p.oem = oemPageFor(p.ansi);
        readCodePageValue(key, u"OEMCP", p.oem);
        RegCloseKey(key);
        return p;
    }();
    return pages;
}

} // namespace

UINT ansiCodePage() { return systemCodePages().ansi; }

UINT oemCodePage() { return systemCodePages().oem; }

UINT resolveCodePage(UINT id)
{
    switch (id) {
    case CP_ACP: case CP_THREAD_ACP: return ansiCodePage();
    case CP_OEMCP: return oemCodePage();
    case CP_MACCP: return 10000;
    default: return id;
    }
}

} // namespace tsp
