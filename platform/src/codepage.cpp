// Code page tables from iconv.
#include "codepage.h"

#include <errno.h>
#include <iconv.h>
#include <stdio.h>

#include <map>
#include <memory>
#include <mutex>

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

std::unique_ptr<CodePage> build(UINT id)
{
    char name[32];
    if (!iconvNameOf(id, name, sizeof name))
        return nullptr;
    iconv_t cd = iconv_open("UTF-16LE", name);
    if (cd == reinterpret_cast<iconv_t>(-1))
        return nullptr;
    auto cp = std::make_unique<CodePage>();
    cp->id = id;
    for (int b = 0; b < 256; ++b) {
        unsigned char byte = static_cast<unsigned char>(b);
        uint16_t u = b == 0 ? 0 : convert(cd, &byte, 1);
        if (u == 0xFFFE) {
            cp->lead[b] = true;
            cp->doubleByte = true;
            u = 0xFFFF;
        }
        cp->single[b] = u;
    }
    if (cp->doubleByte) {
        cp->pairs.assign(65536, 0xFFFF);
        for (int l = 0; l < 256; ++l) {
            if (!cp->lead[l])
                continue;
            for (int t = 1; t < 256; ++t) {
                unsigned char two[2] = {static_cast<unsigned char>(l), static_cast<unsigned char>(t)};
                uint16_t u = convert(cd, two, 2);
                if (u < 0xFFFE) {
                    cp->pairs[static_cast<size_t>(l << 8 | t)] = u;
                    cp->trail[t] = true;
                }
            }
        }
    }
    iconv_close(cd);
    buildCase(*cp);
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
        return cp;
    }();
    return bytes;
}

UINT ansiCodePage() { return 1252; }

UINT oemCodePage() { return 437; }

} // namespace tsp
