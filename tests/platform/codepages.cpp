// Conversions between code pages and UTF-16 as Windows makes them: round
// trips, the size protocol, invalid input, default characters, flags and
// parameters, and the C runtime's mbstowcs and wcstombs on WCHAR strings.
#include "TestSupport.h"

#include <errno.h>
#ifndef _WIN32
#include <iconv.h>
#endif
#include <stdlib.h>
#include <string.h>

#include <functional>
#include <string>
#include <vector>

namespace {

using tstest::ErrorOf;
using Wide = std::basic_string<WCHAR>;

Wide ToWide(UINT page, const std::string &text, DWORD flags = 0)
{
    int n = MultiByteToWideChar(page, flags, text.data(), static_cast<int>(text.size()), nullptr, 0);
    Wide out(n > 0 ? static_cast<size_t>(n) : 0, 0);
    if (n > 0) {
        EXPECT_EQ(MultiByteToWideChar(page, flags, text.data(), static_cast<int>(text.size()), &out[0], n), n);
    }
    return out;
}

std::string ToBytes(UINT page, const Wide &wide, BOOL *usedDefault = nullptr, const char *defaultChar = nullptr,
                    DWORD flags = 0)
{
    int n = WideCharToMultiByte(page, flags, wide.data(), static_cast<int>(wide.size()), nullptr, 0, defaultChar,
                                usedDefault);
    std::string out(n > 0 ? static_cast<size_t>(n) : 0, '\0');
    if (n > 0) {
        EXPECT_EQ(WideCharToMultiByte(page, flags, wide.data(), static_cast<int>(wide.size()), &out[0], n, defaultChar,
                                      usedDefault),
                  n);
    }
    return out;
}

#ifndef _WIN32
// The layer carries 1252 itself rather than reading it from iconv: every
// byte and every unit converts as iconv's CP1252 has it, but for the five
// bytes that it leaves unassigned, which Windows gives as C1 controls.
TEST(CodePageTest, Page1252AsIconvHasIt)
{
    iconv_t toWide = iconv_open("UTF-16LE", "CP1252"), toBytes = iconv_open("CP1252", "UTF-16LE");
    ASSERT_NE(toWide, reinterpret_cast<iconv_t>(-1));
    ASSERT_NE(toBytes, reinterpret_cast<iconv_t>(-1));
    auto run = [](iconv_t cd, const void *in, size_t inLen, void *out, size_t outLen) {
        iconv(cd, nullptr, nullptr, nullptr, nullptr);
        char *ip = static_cast<char *>(const_cast<void *>(in)), *op = static_cast<char *>(out);
        size_t r = iconv(cd, &ip, &inLen, &op, &outLen);
        return r == static_cast<size_t>(-1) ? 0 : static_cast<int>(op - static_cast<char *>(out));
    };
    bool unassigned[256] = {};
    for (unsigned b = 1; b < 256; ++b) {
        char byte = static_cast<char>(b);
        uint16_t expected = 0;
        unassigned[b] = run(toWide, &byte, 1, &expected, sizeof expected) == 0;
        if (unassigned[b])
            expected = static_cast<uint16_t>(b);
        WCHAR got = 0;
        ASSERT_EQ(MultiByteToWideChar(1252, 0, &byte, 1, &got, 1), 1) << b;
        EXPECT_EQ(static_cast<uint16_t>(got), expected) << "byte " << b;
    }
    for (uint32_t u = 1; u < 0x10000; ++u) {
        uint16_t unit = static_cast<uint16_t>(u);
        unsigned char expected = '?';
        if (u < 0x100 && unassigned[u])
            expected = static_cast<unsigned char>(u);
        else
            run(toBytes, &unit, sizeof unit, &expected, 1);
        WCHAR wide = static_cast<WCHAR>(u);
        char got = 0;
        ASSERT_EQ(WideCharToMultiByte(1252, 0, &wide, 1, &got, 1, nullptr, nullptr), 1) << u;
        ASSERT_EQ(static_cast<unsigned char>(got), expected) << "unit " << u;
    }
    iconv_close(toWide);
    iconv_close(toBytes);
}
#endif

TEST(CodePageTest, RoundTripsIn1252And932AndUtf8)
{
    // Every byte of 1252 comes back, the five unassigned ones included.
    std::string all;
    for (int b = 1; b < 256; ++b)
        all += static_cast<char>(b);
    Wide wide1252 = ToWide(1252, all);
    ASSERT_EQ(wide1252.size(), all.size());
    EXPECT_EQ(wide1252[0x80 - 1], 0x20AC);
    EXPECT_EQ(wide1252[0x81 - 1], 0x0081);
    EXPECT_EQ(wide1252[0xE9 - 1], 0x00E9);
    EXPECT_EQ(ToBytes(1252, wide1252), all);

    // Shift-JIS: kanji, half-width katakana, and ASCII that keeps "\" and "~".
    const std::string sjis = "\x93\xFA\x96\x7B\x8C\xEA abc\\~\xB1";
    const Wide expected = {0x65E5, 0x672C, 0x8A9E, ' ', 'a', 'b', 'c', '\\', '~', 0xFF71};
    EXPECT_EQ(ToWide(932, sjis), expected);
    EXPECT_EQ(ToBytes(932, expected), sjis);
    // Where several byte pairs mean one character, the JIS one is written.
    EXPECT_EQ(ToWide(932, "\x87\x90"), Wide(1, 0x2252));
    EXPECT_EQ(ToBytes(932, Wide(1, 0x2252)), "\x81\xE0");

    const std::string utf8 = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80";
    const Wide units = {'a', 0xE9, 0x20AC, 0xD83D, 0xDE00};
    EXPECT_EQ(ToWide(CP_UTF8, utf8), units);
    EXPECT_EQ(ToBytes(CP_UTF8, units), utf8);

    // UTF-7 writes "+" as "+-" and the rest of ASCII as it is.
    const Wide seven = {'a', '+', 0xE9, 0x20AC};
    std::string utf7 = ToBytes(CP_UTF7, seven);
    EXPECT_EQ(utf7.substr(0, 3), "a+-");
    EXPECT_EQ(ToWide(CP_UTF7, utf7), seven);
}

TEST(CodePageTest, SizeProtocol)
{
    WCHAR wide[8];
    // -1: the terminator is converted and counted.
    EXPECT_EQ(MultiByteToWideChar(1252, 0, "abc", -1, nullptr, 0), 4);
    EXPECT_EQ(MultiByteToWideChar(1252, 0, "abc", -1, wide, 8), 4);
    EXPECT_EQ(wide[3], 0);
    // A length: exactly those bytes, zeros included, no terminator added.
    EXPECT_EQ(MultiByteToWideChar(1252, 0, "a\0b", 3, wide, 8), 3);
    EXPECT_EQ(wide[1], 0);
    SetLastError(0);
    EXPECT_EQ(MultiByteToWideChar(1252, 0, "abc", -1, wide, 3), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));

    char bytes[8];
    const WCHAR text[] = {0x65E5, 'x', 0};
    EXPECT_EQ(WideCharToMultiByte(932, 0, text, -1, nullptr, 0, nullptr, nullptr), 4);
    EXPECT_EQ(WideCharToMultiByte(932, 0, text, -1, bytes, 4, nullptr, nullptr), 4);
    EXPECT_STREQ(bytes, "\x93\xFA" "x");
    // Room for one byte of a double-byte character is not room for it.
    EXPECT_EQ(WideCharToMultiByte(932, 0, text, 1, bytes, 1, nullptr, nullptr), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
}

TEST(CodePageTest, InvalidInput)
{
    WCHAR wide[8];
    // An ill-formed UTF-8 byte becomes U+FFFD, or fails when asked to.
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "\xC0\x41", 2, wide, 8), 2);
    EXPECT_EQ(wide[0], 0xFFFD);
    EXPECT_EQ(wide[1], 'A');
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, "\xC0\x41", 2, wide, 8), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NO_UNICODE_TRANSLATION));
    // An encoded surrogate is no character either.
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, "\xED\xA0\x80", 3, wide, 8), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NO_UNICODE_TRANSLATION));
    // A lead byte with nothing after it.
    EXPECT_EQ(MultiByteToWideChar(932, MB_ERR_INVALID_CHARS, "a\x82", 2, wide, 8), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NO_UNICODE_TRANSLATION));
    ASSERT_EQ(MultiByteToWideChar(932, 0, "a\x82", 2, wide, 8), 2);
    EXPECT_EQ(wide[0], 'a');
    EXPECT_EQ(wide[1], 0x30FB);

    // A lone surrogate to UTF-8.
    const WCHAR lone[] = {'a', 0xD800, 0};
    char bytes[8];
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, lone, -1, bytes, 8, nullptr, nullptr), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NO_UNICODE_TRANSLATION));
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, lone, -1, bytes, 8, nullptr, nullptr), 5);
    EXPECT_STREQ(bytes, "a\xEF\xBF\xBD");
}

TEST(CodePageTest, DefaultCharacter)
{
    BOOL used = TRUE;
    EXPECT_EQ(ToBytes(1252, Wide{'a', 0x4E00}, &used), "a?");
    EXPECT_TRUE(used);
    EXPECT_EQ(ToBytes(1252, Wide{'a', 0x4E00}, &used, "*"), "a*");
    EXPECT_TRUE(used);
    EXPECT_EQ(ToBytes(1252, Wide{'a', 0xE9}, &used), "a\xE9");
    EXPECT_FALSE(used);
    // A double-byte default character in 932, where no best fit ("e" for
    // U+00E9) is allowed.
    EXPECT_EQ(ToBytes(932, Wide{0x00E9}, &used, "\x81\x45", WC_NO_BEST_FIT_CHARS), "\x81\x45");
    EXPECT_TRUE(used);

    TS_SKIP_ON_WINE("Wine takes default-character arguments with UTF-8, which Windows refuses");
    // The Unicode pages take neither argument.
    const WCHAR text[] = {'a', 0};
    char bytes[4];
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, text, -1, bytes, 4, nullptr, &used), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, text, -1, bytes, 4, "?", nullptr), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
}

// A call that must fail with the error, named for the report.
struct Refusal {
    const char *what;
    std::function<int()> call;
    DWORD error;
};

void ExpectRefused(const std::vector<Refusal> &cases)
{
    for (const auto &c : cases) {
        SetLastError(0);
        EXPECT_EQ(c.call(), 0) << c.what;
        EXPECT_EQ(GetLastError(), c.error) << c.what;
    }
}

TEST(CodePageTest, FlagsAndParameters)
{
    WCHAR wide[4];
    char bytes[4];
    const WCHAR text[] = {'a', 0};
    ExpectRefused({
        {"an unknown MB_ flag", [&] { return MultiByteToWideChar(1252, 0x100, "a", 1, wide, 4); },
         ERROR_INVALID_FLAGS},
        {"null input", [&] { return MultiByteToWideChar(1252, 0, nullptr, 1, wide, 4); }, ERROR_INVALID_PARAMETER},
        {"input length 0", [&] { return MultiByteToWideChar(1252, 0, "a", 0, wide, 4); }, ERROR_INVALID_PARAMETER},
        {"negative output size", [&] { return MultiByteToWideChar(1252, 0, "a", 1, wide, -1); },
         ERROR_INVALID_PARAMETER},
        {"null output with a size", [&] { return WideCharToMultiByte(1252, 0, text, -1, nullptr, 4, nullptr, nullptr); },
         ERROR_INVALID_PARAMETER},
        {"unknown code page to wide", [&] { return MultiByteToWideChar(12345, 0, "a", 1, wide, 4); },
         ERROR_INVALID_PARAMETER},
        {"unknown code page from wide",
         [&] { return WideCharToMultiByte(12345, 0, text, -1, bytes, 4, nullptr, nullptr); }, ERROR_INVALID_PARAMETER},
        {"unknown code page, size query",
         [&] { return WideCharToMultiByte(12345, 0, text, -1, nullptr, 0, nullptr, nullptr); },
         ERROR_INVALID_PARAMETER},
    });

    EXPECT_FALSE(IsValidCodePage(12345));
    CPINFO info;
    EXPECT_EQ(ErrorOf(GetCPInfo(12345, &info)), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
}

TEST(CodePageTest, FlagsThatTheCodePageRefuses)
{
    TS_SKIP_ON_WINE("Wine takes these flags where Windows refuses them");
    WCHAR wide[4];
    char bytes[4];
    const WCHAR text[] = {'a', 0};
    const DWORD flags = ERROR_INVALID_FLAGS;
    ExpectRefused({
        {"UTF-8 with MB_PRECOMPOSED", [&] { return MultiByteToWideChar(CP_UTF8, MB_PRECOMPOSED, "a", 1, wide, 4); },
         flags},
        {"precomposed and composite",
         [&] { return MultiByteToWideChar(1252, MB_PRECOMPOSED | MB_COMPOSITE, "a", 1, wide, 4); }, flags},
        {"WC_ERR_INVALID_CHARS outside UTF-8",
         [&] { return WideCharToMultiByte(1252, WC_ERR_INVALID_CHARS, text, -1, bytes, 4, nullptr, nullptr); }, flags},
        {"UTF-8 with WC_NO_BEST_FIT_CHARS",
         [&] { return WideCharToMultiByte(CP_UTF8, WC_NO_BEST_FIT_CHARS, text, -1, bytes, 4, nullptr, nullptr); },
         flags},
    });
}

TEST(CodePageTest, CodePageInformation)
{
    CPINFO info;
    ASSERT_TRUE(GetCPInfo(932, &info));
    EXPECT_EQ(info.MaxCharSize, 2u);
    EXPECT_EQ(info.DefaultChar[0], '?');
    const BYTE leads[] = {0x81, 0x9F, 0xE0, 0xFC, 0, 0};
    EXPECT_EQ(memcmp(info.LeadByte, leads, sizeof leads), 0);
    EXPECT_TRUE(IsDBCSLeadByteEx(932, 0x95));
    EXPECT_FALSE(IsDBCSLeadByteEx(932, 0x5C));
    ASSERT_TRUE(GetCPInfo(1252, &info));
    EXPECT_EQ(info.MaxCharSize, 1u);
    EXPECT_EQ(info.LeadByte[0], 0);
    ASSERT_TRUE(GetCPInfo(CP_UTF8, &info));
    EXPECT_EQ(info.MaxCharSize, 4u);
    ASSERT_TRUE(GetCPInfo(CP_ACP, &info));
    ASSERT_TRUE(IsValidCodePage(GetACP()));
    EXPECT_TRUE(IsValidCodePage(932));
}

TEST(CodePageTest, RuntimeConversionsOfWcharStrings)
{
    WCHAR wide[8];
    EXPECT_EQ(mbstowcs(static_cast<WCHAR *>(nullptr), "abcd", 0), 4u);
    // Cut at count: no terminator then.
    for (WCHAR &w : wide)
        w = 0x7777;
    EXPECT_EQ(mbstowcs(wide, "abcd", 2), 2u);
    EXPECT_EQ(wide[1], 'b');
    EXPECT_EQ(wide[2], 0x7777);
    // Room left: the terminator follows and is not counted.
    EXPECT_EQ(mbstowcs(wide, "abcd", 8), 4u);
    EXPECT_EQ(wide[4], 0);

    char bytes[8];
    const WCHAR text[] = {'x', 'y', 'z', 0};
    EXPECT_EQ(wcstombs(static_cast<char *>(nullptr), text, 0), 3u);
    memset(bytes, '#', sizeof bytes);
    EXPECT_EQ(wcstombs(bytes, text, 2), 2u);
    EXPECT_EQ(bytes[2], '#');
    EXPECT_EQ(wcstombs(bytes, text, 8), 3u);
    EXPECT_STREQ(bytes, "xyz");

    TS_SKIP_ON_WINE("the Microsoft runtime converts in its \"C\" locale until setlocale is called");
    // In the ANSI code page (1252 here).
    EXPECT_EQ(mbstowcs(wide, "\x80", 8), 1u);
    EXPECT_EQ(wide[0], 0x20AC);
    const WCHAR lacking[] = {'a', 0x4E00, 0};
    errno = 0;
    EXPECT_EQ(wcstombs(bytes, lacking, 8), static_cast<size_t>(-1));
    EXPECT_EQ(errno, EILSEQ);
    errno = 0;
    EXPECT_EQ(mbstowcs(wide, static_cast<const char *>(nullptr), 8), static_cast<size_t>(-1));
    EXPECT_EQ(errno, EINVAL);
}

} // namespace

namespace {

// Sets the system's ANSI code page in the registry of this machine root.
void SetAnsiCodePage(const char *value)
{
    HKEY key;
    ASSERT_EQ(RegCreateKeyExA(HKEY_LOCAL_MACHINE, "SYSTEM\\CurrentControlSet\\Control\\Nls\\CodePage", 0, nullptr, 0,
                              KEY_SET_VALUE, nullptr, &key, nullptr),
              ERROR_SUCCESS);
    EXPECT_EQ(RegSetValueExA(key, "ACP", 0, REG_SZ, reinterpret_cast<const BYTE *>(value),
                             static_cast<DWORD>(strlen(value) + 1)),
              ERROR_SUCCESS);
    RegCloseKey(key);
}

TEST(CodePageTest, AnsiCodePageFromTheRegistry)
{
    TS_SKIP_ON_WINE("Wine takes the ANSI code page from the Unix locale, not from this value");
    tstest::ScopedMachineRoot root;
    std::string out;
    // No value: 1252, and the bytes as 1252 has them.
    ASSERT_EQ(tstest::RunCaptured("acpprobe", "", out), 0);
    EXPECT_EQ(out, "acp=1252 oem=437 mbcp=1252 wide=201a00a00041 cut=-1\n");

    // 932 from the registry: conversions, the _mbs functions' page and the
    // runtime's conversions all follow, and a double-byte character is
    // never cut in half.
    SetAnsiCodePage("932");
    ASSERT_EQ(tstest::RunCaptured("acpprobe", "", out), 0);
    EXPECT_EQ(out, "acp=932 oem=932 mbcp=932 wide=30420041 cut=2\n");

    // A page that the system does not know leaves 1252.
    SetAnsiCodePage("4711");
    ASSERT_EQ(tstest::RunCaptured("acpprobe", "", out), 0);
    EXPECT_EQ(out.substr(0, 9), "acp=1252 ");
}

} // namespace
