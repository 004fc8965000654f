// The Microsoft C runtime names that glibc lacks: numbers and text,
// paths, dates. The file opens with share flags are in lowio.cpp.
#include "casefold.h"

#include <direct.h>
#include <io.h>
#include <mbstring.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <wchar.h>

#include "path.h"

#include <ctype.h>
#include <errno.h>
#include <math.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <mutex>
#include <string>

using namespace tsp;

namespace {

char *unsignedToText(unsigned long long v, char *buffer, int radix, bool negative)
{
    if (!buffer)
        return buffer;
    if (radix < 2 || radix > 36) {
        errno = EINVAL;
        *buffer = 0;
        return buffer;
    }
    char digits[72];
    int n = 0;
    do {
        int d = static_cast<int>(v % static_cast<unsigned>(radix));
        digits[n++] = static_cast<char>(d < 10 ? '0' + d : 'a' + d - 10);
        v /= static_cast<unsigned>(radix);
    } while (v);
    char *out = buffer;
    if (negative)
        *out++ = '-';
    while (n)
        *out++ = digits[--n];
    *out = 0;
    return buffer;
}

void copyPart(char *out, size_t size, const char *from, size_t len)
{
    if (!out)
        return;
    if (len > size - 1)
        len = size - 1;
    memcpy(out, from, len);
    out[len] = 0;
}

std::mutex zoneLock;
std::string zoneTz;
bool zoneHasTz = false;
bool zoneRead = false;
time_t zoneReadAt = 0;
std::atomic<unsigned> zoneGeneration{0};

} // namespace

extern "C" {

char *_itoa(int value, char *buffer, int radix)
{
    if (radix == 10 && value < 0)
        return unsignedToText(0ull - static_cast<unsigned long long>(static_cast<long long>(value)), buffer, radix, true);
    return unsignedToText(static_cast<unsigned int>(value), buffer, radix, false);
}

char *_ltoa(long value, char *buffer, int radix)
{
    // long is 32 bits in the Microsoft runtime.
    return _itoa(static_cast<int>(value), buffer, radix);
}

char *_ultoa(unsigned long value, char *buffer, int radix)
{
    return unsignedToText(static_cast<unsigned int>(value), buffer, radix, false);
}

char *_gcvt(double value, int digits, char *buffer)
{
    if (!buffer)
        return buffer;
    if (digits < 1)
        digits = 1;
    if (digits > 40)
        digits = 40;
    char *out = buffer;
    if (isnan(value)) {
        strcpy(buffer, signbit(value) ? "-1.#IND" : "1.#QNAN");
        return buffer;
    }
    if (signbit(value) && value != 0) {
        *out++ = '-';
        value = -value;
    }
    if (isinf(value)) {
        strcpy(out, "1.#INF");
        return buffer;
    }
    // The significant digits and the decimal exponent of the rounded value.
    char e[80];
    snprintf(e, sizeof e, "%.*e", digits - 1, value);
    char mant[48] = {};
    int m = 0;
    const char *p = e;
    for (; *p && *p != 'e'; ++p)
        if (isdigit(static_cast<unsigned char>(*p)))
            mant[m++] = *p;
    int exp10 = *p == 'e' ? atoi(p + 1) : 0;
    if (value == 0)
        exp10 = 0;
    // Exponential form below 0.1 and from the digit count up, with
    // digits - 1 decimals; else fixed form with digits - (exponent + 1)
    // decimals. Then the zeros that end the decimals go, the point stays.
    bool exponential = exp10 < -1 || exp10 >= digits;
    if (exponential) {
        *out++ = mant[0];
        *out++ = '.';
        memcpy(out, mant + 1, static_cast<size_t>(m - 1));
        out += m - 1;
    } else if (exp10 >= 0) {
        memcpy(out, mant, static_cast<size_t>(exp10 + 1));
        out += exp10 + 1;
        if (exp10 + 1 < m)
            *out++ = '.';
        memcpy(out, mant + exp10 + 1, static_cast<size_t>(m - exp10 - 1));
        out += m - exp10 - 1;
    } else { // exponent -1: "0." and all the digits
        *out++ = '0';
        *out++ = '.';
        memcpy(out, mant, static_cast<size_t>(m));
        out += m;
    }
    char *point = static_cast<char *>(memchr(buffer, '.', static_cast<size_t>(out - buffer)));
    if (point)
        while (out > point + 1 && out[-1] == '0')
            --out;
    if (exponential)
        out += sprintf(out, "e%c%03d", exp10 < 0 ? '-' : '+', exp10 < 0 ? -exp10 : exp10);
    *out = 0;
    return buffer;
}

void _splitpath(const char *path, char *drive, char *dir, char *fname, char *ext)
{
    if (!path) {
        errno = EINVAL;
        copyPart(drive, _MAX_DRIVE, "", 0);
        copyPart(dir, _MAX_DIR, "", 0);
        copyPart(fname, _MAX_FNAME, "", 0);
        copyPart(ext, _MAX_EXT, "", 0);
        return;
    }
    const char *p = path;
    if (p[0] && p[1] == ':') {
        copyPart(drive, _MAX_DRIVE, p, 2);
        p += 2;
    } else {
        copyPart(drive, _MAX_DRIVE, "", 0);
    }
    // Walk by characters, so that a trail byte never passes for "\" or ".".
    const char *lastSep = nullptr, *lastDot = nullptr;
    const unsigned char *c = reinterpret_cast<const unsigned char *>(p);
    while (*c) {
        if (*c == '\\' || *c == '/') {
            lastSep = reinterpret_cast<const char *>(c);
            lastDot = nullptr;
        } else if (*c == '.') {
            lastDot = reinterpret_cast<const char *>(c);
        }
        c = _mbsinc(c);
    }
    const char *end = reinterpret_cast<const char *>(c);
    const char *nameStart = lastSep ? lastSep + 1 : p;
    copyPart(dir, _MAX_DIR, p, static_cast<size_t>(nameStart - p));
    const char *extStart = lastDot ? lastDot : end;
    copyPart(fname, _MAX_FNAME, nameStart, static_cast<size_t>(extStart - nameStart));
    copyPart(ext, _MAX_EXT, extStart, static_cast<size_t>(end - extStart));
}

char *_strdup(const char *s)
{
    if (!s)
        return nullptr;
    size_t n = strlen(s) + 1;
    char *copy = static_cast<char *>(malloc(n));
    if (copy)
        memcpy(copy, s, n);
    return copy;
}

int _stricmp(const char *a, const char *b) { return _strnicmp(a, b, static_cast<size_t>(-1)); }

int _strnicmp(const char *a, const char *b, size_t n)
{
    const unsigned char *x = reinterpret_cast<const unsigned char *>(a);
    const unsigned char *y = reinterpret_cast<const unsigned char *>(b);
    for (; n; --n, ++x, ++y) {
        int cx = static_cast<unsigned char>(tsp::asciiLower(static_cast<char>(*x)));
        int cy = static_cast<unsigned char>(tsp::asciiLower(static_cast<char>(*y)));
        if (cx != cy || !cx)
            return cx - cy;
    }
    return 0;
}

wchar_t *_wcsdup(const wchar_t *s)
{
    if (!s)
        return nullptr;
    size_t n = (wcslen(s) + 1) * sizeof(wchar_t);
    wchar_t *copy = static_cast<wchar_t *>(malloc(n));
    if (copy)
        memcpy(copy, s, n);
    return copy;
}

int _wcsicmp(const wchar_t *a, const wchar_t *b) { return _wcsnicmp(a, b, static_cast<size_t>(-1)); }

int _wcsnicmp(const wchar_t *a, const wchar_t *b, size_t n)
{
    for (; n; --n, ++a, ++b) {
        wchar_t ca = (*a >= L'A' && *a <= L'Z') ? *a + 32 : *a;
        wchar_t cb = (*b >= L'A' && *b <= L'Z') ? *b + 32 : *b;
        if (ca != cb || !ca)
            return ca < cb ? -1 : ca > cb ? 1 : 0;
    }
    return 0;
}

void _tzset(void)
{
    // The zone is read afresh when TZ has changed, and otherwise at most
    // once a second: the system's zone file is examined by each full
    // reading, which costs far more than the date itself.
    const char *tz = getenv("TZ");
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    std::lock_guard<std::mutex> guard(zoneLock);
    bool same = zoneRead && (tz ? (zoneHasTz && zoneTz == tz) : !zoneHasTz);
    if (same && now.tv_sec == zoneReadAt)
        return;
    tzset();
    zoneRead = true;
    zoneHasTz = tz != nullptr;
    if (tz)
        zoneTz = tz;
    zoneReadAt = now.tv_sec;
    zoneGeneration.fetch_add(1, std::memory_order_release);
}

char *_strdate(char *buffer)
{
    // The text of a day is kept until shortly before the local midnight,
    // or until the zone is read again.
    thread_local struct {
        unsigned generation = ~0u;
        time_t from = 0, until = 0;
        char text[9] = {};
    } cache;
    time_t now = time(nullptr);
    unsigned generation = zoneGeneration.load(std::memory_order_acquire);
    if (cache.generation != generation || now < cache.from || now >= cache.until) {
        struct tm local;
        localtime_r(&now, &local);
        strftime(cache.text, sizeof cache.text, "%m/%d/%y", &local);
        long left = 86400L - (local.tm_hour * 3600L + local.tm_min * 60L + local.tm_sec);
        // A change of daylight saving time may bring midnight an hour nearer.
        cache.from = now;
        cache.until = now + (left > 3700 ? left - 3600 : 1);
        cache.generation = generation;
    }
    memcpy(buffer, cache.text, sizeof cache.text);
    return buffer;
}

char *_strtime(char *buffer)
{
    time_t now = time(nullptr);
    struct tm local;
    localtime_r(&now, &local);
    strftime(buffer, 9, "%H:%M:%S", &local);
    return buffer;
}

int _access(const char *path, int mode)
{
    if (mode & ~6) {
        errno = EINVAL;
        return -1;
    }
    std::string p;
    if (!toPosixPath(path, p)) {
        errno = ENOENT;
        return -1;
    }
    struct stat st;
    if (stat(p.c_str(), &st) != 0) {
        errno = errno == EACCES ? EACCES : ENOENT;
        return -1;
    }
    if ((mode & 2) && S_ISREG(st.st_mode) && !(st.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH))) {
        errno = EACCES;
        return -1;
    }
    return 0;
}

int _mkdir(const char *dirname)
{
    if (CreateDirectoryA(dirname, nullptr))
        return 0;
    errno = errnoFromWin32Error(GetLastError());
    return -1;
}

int _rmdir(const char *dirname)
{
    if (RemoveDirectoryA(dirname))
        return 0;
    errno = errnoFromWin32Error(GetLastError());
    return -1;
}

int _chdir(const char *dirname)
{
    if (SetCurrentDirectoryA(dirname))
        return 0;
    errno = errnoFromWin32Error(GetLastError());
    return -1;
}

char *_getcwd(char *buffer, int maxlen)
{
    DWORD need = GetCurrentDirectoryA(0, nullptr);
    if (!buffer) {
        size_t size = static_cast<size_t>(maxlen) > need ? static_cast<size_t>(maxlen) : need;
        buffer = static_cast<char *>(malloc(size));
        if (!buffer) {
            errno = ENOMEM;
            return nullptr;
        }
        GetCurrentDirectoryA(static_cast<DWORD>(size), buffer);
        return buffer;
    }
    if (maxlen <= 0 || static_cast<DWORD>(maxlen) < need) {
        errno = ERANGE;
        return nullptr;
    }
    GetCurrentDirectoryA(static_cast<DWORD>(maxlen), buffer);
    return buffer;
}

} // extern "C"
