// The multibyte code page of the C runtime and the _mbs functions.
#include "casefold.h"

#include <mbctype.h>
#include <mbstring.h>

#include "codepage.h"

#include <errno.h>
#include <string.h>

#include <atomic>
#include <map>
#include <mutex>

using namespace tsp;

namespace {

struct Setting {
    int id;                // what _getmbcp gives
    const CodePage *table;
};

std::atomic<const Setting *> current{nullptr};

const Setting *makeSetting(int id, const CodePage *table)
{
    // One setting per code page, kept for the process's life, so that a
    // reader never meets a freed one.
    static std::mutex lock;
    static auto *settings = new std::map<int, const Setting *>;
    std::lock_guard<std::mutex> guard(lock);
    const Setting *&slot = (*settings)[id];
    if (!slot)
        slot = new Setting{id, table};
    return slot;
}

const CodePage *table()
{
    const Setting *s = current.load(std::memory_order_acquire);
    if (!s) {
        const CodePage *cp = codePage(ansiCodePage());
        const Setting *fresh = cp ? makeSetting(static_cast<int>(ansiCodePage()), cp)
                                  : makeSetting(_MB_CP_SBCS, bytesOnlyCodePage());
        const Setting *expected = nullptr;
        s = current.compare_exchange_strong(expected, fresh, std::memory_order_acq_rel) ? fresh : expected;
    }
    return s->table;
}

// The character at p and its length; a lead byte before the terminator
// stands alone.
unsigned int charAt(const CodePage *t, const unsigned char *p, size_t &len)
{
    if (t->lead[*p] && p[1]) {
        len = 2;
        return static_cast<unsigned int>(p[0]) << 8 | p[1];
    }
    len = 1;
    return *p;
}

// Only the ASCII letters fold, as in the C runtime's "C" locale.
unsigned int fold(const CodePage *, unsigned int c)
{
    return c < 0x80 ? static_cast<unsigned int>(tsp::asciiLower(static_cast<char>(c))) : c;
}

int compareChars(const unsigned char *a, const unsigned char *b, bool foldCase)
{
    const CodePage *t = table();
    for (;;) {
        size_t la, lb;
        unsigned int ca = charAt(t, a, la), cb = charAt(t, b, lb);
        if (foldCase) {
            ca = fold(t, ca);
            cb = fold(t, cb);
        }
        if (ca != cb)
            return ca < cb ? -1 : 1;
        if (!ca)
            return 0;
        a += la;
        b += lb;
    }
}

} // namespace

extern "C" {

int _setmbcp(int codepage)
{
    int id = codepage;
    const CodePage *cp;
    if (codepage == _MB_CP_SBCS) {
        cp = bytesOnlyCodePage();
    } else {
        if (codepage == _MB_CP_ANSI || codepage == _MB_CP_LOCALE)
            id = static_cast<int>(ansiCodePage());
        else if (codepage == _MB_CP_OEM)
            id = static_cast<int>(oemCodePage());
        cp = id > 0 ? codePage(static_cast<UINT>(id)) : nullptr;
        if (!cp)
            return -1;
    }
    const Setting *now = current.load(std::memory_order_acquire);
    if (now && now->id == id)
        return 0;
    current.store(makeSetting(id, cp), std::memory_order_release);
    return 0;
}

int _getmbcp(void)
{
    table();
    return current.load(std::memory_order_acquire)->id;
}

int _ismbblead(unsigned int c) { return c < 256 && table()->lead[c]; }

int _ismbbtrail(unsigned int c) { return c < 256 && table()->trail[c]; }

size_t _mbslen(const unsigned char *str)
{
    const CodePage *t = table();
    size_t n = 0;
    while (*str) {
        if (t->lead[*str]) {
            if (!str[1])
                break;
            str += 2;
        } else {
            ++str;
        }
        ++n;
    }
    return n;
}

unsigned char *_mbsinc(const unsigned char *current)
{
    const CodePage *t = table();
    if (t->lead[*current] && current[1])
        return const_cast<unsigned char *>(current + 2);
    return const_cast<unsigned char *>(current + 1);
}

unsigned char *_mbsdec(const unsigned char *start, const unsigned char *current)
{
    if (!start || !current || current <= start)
        return nullptr;
    const unsigned char *p = start, *prev = start;
    while (p < current) {
        prev = p;
        p = _mbsinc(p);
    }
    return const_cast<unsigned char *>(prev);
}

size_t _mbclen(const unsigned char *c) { return table()->lead[*c] ? 2 : 1; }

unsigned char *_mbsncpy(unsigned char *dest, const unsigned char *src, size_t count)
{
    const CodePage *t = table();
    unsigned char *d = dest;
    while (count && *src) {
        if (t->lead[*src]) {
            if (!src[1]) {
                *d++ = 0; // half a character is not copied
                --count;
                break;
            }
            *d++ = *src++;
        }
        *d++ = *src++;
        --count;
    }
    while (count--)
        *d++ = 0;
    return dest;
}

unsigned char *_mbsnbcpy(unsigned char *dest, const unsigned char *src, size_t count)
{
    const CodePage *t = table();
    size_t i = 0;
    while (i < count && src[i]) {
        if (t->lead[src[i]]) {
            if (i + 1 >= count || !src[i + 1]) {
                dest[i++] = 0;
                break;
            }
            dest[i] = src[i];
            dest[i + 1] = src[i + 1];
            i += 2;
        } else {
            dest[i] = src[i];
            ++i;
        }
    }
    while (i < count)
        dest[i++] = 0;
    return dest;
}

size_t _mbsnbcnt(const unsigned char *str, size_t count)
{
    const CodePage *t = table();
    const unsigned char *p = str;
    while (count-- && *p) {
        if (t->lead[*p]) {
            if (!p[1])
                break;
            p += 2;
        } else {
            ++p;
        }
    }
    return static_cast<size_t>(p - str);
}

unsigned char *_mbspbrk(const unsigned char *str, const unsigned char *set)
{
    const CodePage *t = table();
    for (const unsigned char *p = str; *p;) {
        size_t lp;
        unsigned int c = charAt(t, p, lp);
        for (const unsigned char *q = set; *q;) {
            size_t lq;
            if (charAt(t, q, lq) == c)
                return const_cast<unsigned char *>(p);
            q += lq;
        }
        p += lp;
    }
    return nullptr;
}

unsigned char *_mbschr(const unsigned char *str, unsigned int c)
{
    const CodePage *t = table();
    for (const unsigned char *p = str;; ) {
        size_t len;
        unsigned int here = charAt(t, p, len);
        if (here == c)
            return const_cast<unsigned char *>(p);
        if (!here)
            return nullptr;
        p += len;
    }
}

unsigned char *_mbsrchr(const unsigned char *str, unsigned int c)
{
    const CodePage *t = table();
    const unsigned char *found = nullptr;
    for (const unsigned char *p = str;;) {
        size_t len;
        unsigned int here = charAt(t, p, len);
        if (here == c)
            found = p;
        if (!here)
            return const_cast<unsigned char *>(found);
        p += len;
    }
}

int _mbsicmp(const unsigned char *a, const unsigned char *b) { return compareChars(a, b, true); }

int _mbscmp(const unsigned char *a, const unsigned char *b) { return compareChars(a, b, false); }

int _mbsnbcmp(const unsigned char *a, const unsigned char *b, size_t count)
{
    const CodePage *t = table();
    while (count) {
        size_t la = 1, lb = 1;
        unsigned int ca = *a, cb = *b;
        if (count >= 2) {
            ca = charAt(t, a, la);
            cb = charAt(t, b, lb);
        }
        if (ca != cb)
            return ca < cb ? -1 : 1;
        if (!ca)
            return 0;
        count -= la;
        a += la;
        b += lb;
    }
    return 0;
}

} // extern "C"
