// The conversion engines behind MultiByteToWideChar and WideCharToMultiByte:
// single- and double-byte pages on the tables of codepage.cpp, UTF-8
// decoded and encoded here, UTF-7 (stateful and rare) through iconv.
#include "textconv.h"

#include <iconv.h>
#include <string.h>

#include <string>

namespace tsp {

namespace {

constexpr WCHAR kReplacement = 0xFFFD;


// Writes units to out while room lasts and counts them all; with no out
// only counts. A conversion that runs out of room stops at once.
class WideSink {
public:
    WideSink(WCHAR *out, size_t room) : out_(out), room_(out ? room : SIZE_MAX) {}
    bool put(WCHAR u)
    {
        if (n_ == room_)
            return false;
        if (out_)
            out_[n_] = u;
        ++n_;
        return true;
    }
    size_t count() const { return n_; }
    WCHAR *out_;
    size_t room_, n_ = 0;
};

class ByteSink {
public:
    ByteSink(char *out, size_t room) : out_(out), room_(out ? room : SIZE_MAX) {}
    bool fits(size_t n) const { return room_ - n_ >= n; }
    void put(unsigned char b)
    {
        if (out_)
            out_[n_] = static_cast<char>(b);
        ++n_;
    }
    char *out_;
    size_t room_, n_ = 0;
};

// ---- single- and double-byte pages ----

// True when the 16 bytes (8 units) at p are all ASCII.
bool asciiBytes16(const unsigned char *p)
{
    uint64_t a, b;
    memcpy(&a, p, 8);
    memcpy(&b, p + 8, 8);
    return !((a | b) & 0x8080808080808080ull);
}

// True when none of the 8 bytes at p lies in 0x80-0x9F.
bool noC1Bytes8(const unsigned char *p)
{
    uint64_t w;
    memcpy(&w, p, 8);
    uint64_t x = (w & 0xE0E0E0E0E0E0E0E0ull) ^ 0x8080808080808080ull; // a zero byte: 0x80-0x9F
    return !((x - 0x0101010101010101ull) & ~x & 0x8080808080808080ull);
}

bool asciiUnits8(const WCHAR *p)
{
    uint64_t a, b;
    memcpy(&a, p, 8);
    memcpy(&b, p + 4, 8);
    return !((a | b) & 0xFF80FF80FF80FF80ull);
}

// A single-byte page: one unit for each byte, so the size is known at once
// and the loop is a plain table lookup, with runs of ASCII widened 16 at a
// time; bytes that the page lacks (rare) are mended afterwards.
Result singleByteToWide(const CodePage &cp, const unsigned char *in, size_t len, WCHAR *out, size_t room, bool strict)
{
    Result r;
    size_t n = out && room < len ? room : len;
    r.count = n;
    if (n < len)
        r.error = ERROR_INSUFFICIENT_BUFFER;
    if (cp.everyByteMaps && !out)
        return r;
    bool lacking = false;
    size_t i = 0;
    if (out && cp.latin1Same) {
        // Only the bytes 0x80-0x9F differ from their Unicode values.
        for (; i + 16 <= n; i += 16) {
            if (noC1Bytes8(in + i) && noC1Bytes8(in + i + 8)) {
                for (size_t k = 0; k < 16; ++k)
                    out[i + k] = in[i + k];
            } else {
                for (size_t k = 0; k < 16; ++k)
                    out[i + k] = cp.single[in[i + k]];
            }
        }
    } else if (out && cp.asciiSame) {
        for (; i + 16 <= n; i += 16) {
            if (asciiBytes16(in + i)) {
                for (size_t k = 0; k < 16; ++k)
                    out[i + k] = in[i + k];
            } else {
                for (size_t k = 0; k < 16; ++k)
                    out[i + k] = cp.single[in[i + k]];
            }
        }
    }
    for (; i < n; ++i) {
        uint16_t u = cp.single[in[i]];
        if (out)
            out[i] = u;
        lacking |= u == CodePage::kNone;
    }
    if (!cp.everyByteMaps) {
        for (size_t k = 0; out && k < n; ++k)
            lacking |= out[k] == CodePage::kNone;
        if (lacking && strict) {
            r.error = ERROR_NO_UNICODE_TRANSLATION;
            r.count = 0;
            return r;
        }
        for (size_t k = 0; lacking && out && k < n; ++k)
            if (out[k] == CodePage::kNone)
                out[k] = cp.wideDefault;
    }
    return r;
}

// A double-byte page. Write: out has room units (room is ignored
// otherwise); a conversion that runs out of room stops with
// ERROR_INSUFFICIENT_BUFFER and the count written so far.
template <bool Write, bool Bounded>
Result doubleByteToWide(const CodePage &cp, const unsigned char *in, size_t len, WCHAR *out, size_t room,
                        bool strict)
{
    Result r;
    const unsigned char *end = in + len;
    const UnitTable<uint16_t> &pairs = cp.pairs;
    size_t n = 0;
    const unsigned char *nextTry = in; // ASCII runs are looked for again 16 bytes after a miss
    while (in < end) {
        if (Write && cp.asciiSame && in >= nextTry && end - in >= 16 && (!Bounded || room - n >= 16)) {
            if (asciiBytes16(in)) {
                for (size_t k = 0; k < 16; ++k)
                    out[n + k] = in[k];
                n += 16;
                in += 16;
                continue;
            }
            nextTry = in + 16;
        }
        unsigned char b = *in;
        uint16_t u;
        if (cp.lead[b]) {
            u = in + 1 < end ? pairs[static_cast<uint16_t>(b << 8 | in[1])] : CodePage::kNone;
            in += u == CodePage::kNone ? 1 : 2; // a bad pair leaves its second byte to stand alone
        } else {
            u = cp.single[b];
            ++in;
        }
        if (u == CodePage::kNone) {
            if (strict) {
                r.error = ERROR_NO_UNICODE_TRANSLATION;
                return r;
            }
            u = cp.wideDefault;
        }
        if (Write) {
            if (Bounded && n == room) {
                r.error = ERROR_INSUFFICIENT_BUFFER;
                break;
            }
            out[n] = u;
        }
        ++n;
    }
    r.count = n;
    return r;
}

} // namespace

Result tableToWide(const CodePage &cp, const unsigned char *in, size_t len, WCHAR *out, size_t room, bool strict)
{
    if (!cp.doubleByte)
        return singleByteToWide(cp, in, len, out, room, strict);
    if (!out)
        return doubleByteToWide<false, false>(cp, in, len, nullptr, 0, strict);
    // A unit for each byte at most: with that much room, no check on the way.
    if (room >= len)
        return doubleByteToWide<true, false>(cp, in, len, out, room, strict);
    return doubleByteToWide<true, true>(cp, in, len, out, room, strict);
}

namespace {

// A single-byte page with a one-byte default: one byte for each unit.
Result wideToSingleByte(const CodePage &cp, const WCHAR *in, size_t len, char *out, size_t room,
                        unsigned char defaultChar, bool wantUsed)
{
    Result r;
    const UnitTable<uint16_t> &bytesOf = cp.bytesOf;
    size_t n = out && room < len ? room : len;
    if (out && defaultChar == '?' && !wantUsed) {
        // The plain case: one table lookup for each unit (a test for runs
        // of ASCII costs more than it saves here).
        // The units below 256 (most of the text of a single-byte page)
        // straight from their block.
        const UnitTable<unsigned char> &narrow = cp.narrow;
        const unsigned char *low = narrow.block(0);
#pragma GCC unroll 8
        for (size_t i = 0; i < n; ++i) {
            uint16_t u = in[i];
            out[i] = static_cast<char>(u < 0x100 ? low[u] : narrow[u]);
        }
        r.count = n;
        if (n < len)
            r.error = ERROR_INSUFFICIENT_BUFFER;
        return r;
    }
    bool lacking = false;
    size_t i = 0;
    if (out && cp.asciiSame) {
        for (; i + 8 <= n; i += 8) {
            if (asciiUnits8(in + i)) {
                for (size_t k = 0; k < 8; ++k)
                    out[i + k] = static_cast<char>(in[i + k]);
                continue;
            }
            for (size_t k = 0; k < 8; ++k) {
                uint16_t code = bytesOf[in[i + k]];
                bool none = code == CodePage::kNone;
                lacking |= none;
                out[i + k] = static_cast<char>(none ? defaultChar : code);
            }
        }
    }
    for (; i < n; ++i) {
        uint16_t code = bytesOf[in[i]];
        bool none = code == CodePage::kNone;
        lacking |= none;
        if (out)
            out[i] = static_cast<char>(none ? defaultChar : code);
    }
    r.usedDefault = lacking;
    r.count = n;
    if (n < len)
        r.error = ERROR_INSUFFICIENT_BUFFER;
    return r;
}

} // namespace

Result wideToTable(const CodePage &cp, const WCHAR *in, size_t len, char *out, size_t room,
                   const unsigned char *defaultChar, size_t defaultLen, bool wantUsed)
{
    if (!cp.doubleByte && defaultLen == 1)
        return wideToSingleByte(cp, in, len, out, room, defaultChar[0], wantUsed);
    Result r;
    ByteSink sink(out, room);
    const UnitTable<uint16_t> &bytesOf = cp.bytesOf;
    for (size_t i = 0; i < len; ++i) {
        WCHAR u = in[i];
        uint16_t code = bytesOf[u];
        if (code < 0x100) {
            if (!sink.fits(1)) {
                r.error = ERROR_INSUFFICIENT_BUFFER;
                return r;
            }
            sink.put(static_cast<unsigned char>(code));
        } else if (code != CodePage::kNone) {
            if (!sink.fits(2)) {
                r.error = ERROR_INSUFFICIENT_BUFFER;
                return r;
            }
            sink.put(static_cast<unsigned char>(code >> 8));
            sink.put(static_cast<unsigned char>(code & 0xFF));
        } else {
            // Each unit that the page lacks, a lone surrogate or one half
            // of a pair, becomes one default character.
            r.usedDefault = true;
            if (!sink.fits(defaultLen)) {
                r.error = ERROR_INSUFFICIENT_BUFFER;
                return r;
            }
            for (size_t k = 0; k < defaultLen; ++k)
                sink.put(defaultChar[k]);
        }
    }
    r.count = sink.n_;
    return r;
}

namespace {

// ---- UTF-8 ----

// The length of the well-formed sequence at in (1 to 4) and its code
// point; 0 and the length of the maximal ill-formed part (at least 1)
// when it is not well formed.
size_t decodeUtf8(const unsigned char *in, const unsigned char *end, unsigned &cp, size_t &bad)
{
    unsigned char b = *in;
    size_t need;
    unsigned min;
    if (b < 0x80) {
        cp = b;
        return 1;
    } else if (b >= 0xC2 && b <= 0xDF) {
        need = 2, cp = b & 0x1Fu, min = 0x80;
    } else if (b >= 0xE0 && b <= 0xEF) {
        need = 3, cp = b & 0x0Fu, min = 0x800;
    } else if (b >= 0xF0 && b <= 0xF4) {
        need = 4, cp = b & 0x07u, min = 0x10000;
    } else {
        bad = 1;
        return 0;
    }
    size_t i = 1;
    for (; i < need; ++i) {
        if (in + i >= end || (in[i] & 0xC0) != 0x80)
            break;
        unsigned next = cp << 6 | (in[i] & 0x3Fu);
        // Overlong forms, surrogates and values past U+10FFFF end the
        // sequence at the first byte that shows them.
        if (i == 1) {
            unsigned top = next << (6 * (need - 2));
            if (top < min || (top >= 0xD800 && top <= 0xDFFF) || top > 0x10FFFF)
                break;
        }
        cp = next;
    }
    if (i < need) {
        bad = i;
        return 0;
    }
    return need;
}

} // namespace

Result utf8ToWide(const unsigned char *in, size_t len, WCHAR *out, size_t room, bool strict)
{
    Result r;
    WideSink sink(out, room);
    const unsigned char *end = in + len;
    while (in < end) {
        if (*in < 0x80) {
            if (!sink.put(*in++)) {
                r.error = ERROR_INSUFFICIENT_BUFFER;
                r.count = sink.count();
                return r;
            }
            continue;
        }
        unsigned cp;
        size_t bad = 0;
        size_t n = decodeUtf8(in, end, cp, bad);
        bool ok;
        if (!n) {
            if (strict) {
                r.error = ERROR_NO_UNICODE_TRANSLATION;
                return r;
            }
            ok = sink.put(kReplacement);
            in += bad;
        } else if (cp >= 0x10000) {
            ok = sink.put(static_cast<WCHAR>(0xD800 + ((cp - 0x10000) >> 10))) &&
                 sink.put(static_cast<WCHAR>(0xDC00 + (cp & 0x3FF)));
            in += n;
        } else {
            ok = sink.put(static_cast<WCHAR>(cp));
            in += n;
        }
        if (!ok) {
            r.error = ERROR_INSUFFICIENT_BUFFER;
            r.count = sink.count();
            return r;
        }
    }
    r.count = sink.count();
    return r;
}


Result wideToUtf8(const WCHAR *in, size_t len, char *out, size_t room, bool strict)
{
    Result r;
    ByteSink sink(out, room);
    for (size_t i = 0; i < len; ++i) {
        unsigned cp = in[i];
        if (isHighSurrogate(cp) && i + 1 < len && isLowSurrogate(in[i + 1])) {
            cp = 0x10000 + ((cp - 0xD800) << 10) + (in[i + 1] - 0xDC00u);
            ++i;
        } else if (isHighSurrogate(cp) || isLowSurrogate(cp)) {
            if (strict) {
                r.error = ERROR_NO_UNICODE_TRANSLATION;
                return r;
            }
            cp = kReplacement;
        }
        size_t n = cp < 0x80 ? 1 : cp < 0x800 ? 2 : cp < 0x10000 ? 3 : 4;
        if (!sink.fits(n)) {
            r.error = ERROR_INSUFFICIENT_BUFFER;
            return r;
        }
        if (n == 1) {
            sink.put(static_cast<unsigned char>(cp));
            continue;
        }
        static const unsigned char kFirst[5] = {0, 0, 0xC0, 0xE0, 0xF0};
        sink.put(static_cast<unsigned char>(kFirst[n] | (cp >> (6 * (n - 1)))));
        for (size_t k = n - 1; k > 0; --k)
            sink.put(static_cast<unsigned char>(0x80 | ((cp >> (6 * (k - 1))) & 0x3F)));
    }
    r.count = sink.n_;
    return r;
}

namespace {

// ---- UTF-7, through iconv ----

// Converts all of in with iconv; false when iconv refuses the input.
bool iconvAll(const char *to, const char *from, const char *in, size_t len, std::string &out)
{
    iconv_t cd = iconv_open(to, from);
    if (cd == reinterpret_cast<iconv_t>(-1))
        return false;
    out.assign(len * 4 + 16, '\0');
    char *inp = const_cast<char *>(in), *outp = &out[0];
    size_t inLeft = len, outLeft = out.size();
    bool ok = iconv(cd, &inp, &inLeft, &outp, &outLeft) != static_cast<size_t>(-1) &&
              iconv(cd, nullptr, nullptr, &outp, &outLeft) != static_cast<size_t>(-1);
    iconv_close(cd);
    out.resize(out.size() - outLeft);
    return ok;
}

} // namespace

Result utf7ToWide(const char *in, size_t len, WCHAR *out, size_t room)
{
    Result r;
    std::string units;
    if (!iconvAll("UTF-16LE", "UTF-7", in, len, units)) {
        r.error = ERROR_NO_UNICODE_TRANSLATION;
        return r;
    }
    r.count = units.size() / 2;
    if (out && r.count > room)
        r.error = ERROR_INSUFFICIENT_BUFFER;
    else if (out)
        memcpy(out, units.data(), units.size());
    return r;
}


Result wideToUtf7(const WCHAR *in, size_t len, char *out, size_t room)
{
    Result r;
    std::string bytes;
    if (!iconvAll("UTF-7", "UTF-16LE", reinterpret_cast<const char *>(in), len * 2, bytes)) {
        r.error = ERROR_NO_UNICODE_TRANSLATION;
        return r;
    }
    r.count = bytes.size();
    if (out && r.count > room)
        r.error = ERROR_INSUFFICIENT_BUFFER;
    else if (out)
        memcpy(out, bytes.data(), bytes.size());
    return r;
}

} // namespace tsp
