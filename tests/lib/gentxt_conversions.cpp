// GenericText: narrow and wide text in each other in a code page, and reals
// as narrow and wide text. These run on a thread without a guard, where
// every gate is shut; the assertions themselves are shown by the end-to-end
// tests.
#include "GenTxt.h"

#include "TestSupport.h"

#include <string.h>
#include <windows.h>

#include <cmath>
#include <string>
#include <vector>

namespace {

using Units = std::vector<unsigned short>;

// Converts narrow to wide in a buffer one unit larger than the text needs,
// and checks that the unit past the terminator is untouched.
Units ToWide(const std::string &narrow, unsigned int codePage, BOOLTYPE *ok = nullptr)
{
    std::vector<unsigned short> out(narrow.size() + 2, 0xBEEF);
    BOOLTYPE result = GenericText::ConvertToUnicode(narrow.c_str(), out.data(), codePage);
    if (ok)
        *ok = result;
    EXPECT_EQ(out.back(), 0xBEEF) << "written past the room of one unit per byte and the terminator";
    size_t n = 0;
    while (n < out.size() && out[n] != 0 && out[n] != 0xBEEF)
        ++n;
    return Units(out.begin(), out.begin() + static_cast<long>(n));
}

// Converts wide to narrow in a buffer of exactly room bytes and a guard
// byte behind it.
std::string ToNarrow(Units wide, unsigned int codePage, size_t room, BOOLTYPE *ok = nullptr)
{
    wide.push_back(0);
    std::string out(room + 1, '#');
    BOOLTYPE result = GenericText::ConvertToMBCS(wide.data(), &out[0], codePage);
    if (ok)
        *ok = result;
    EXPECT_EQ(out[room], '#') << "written past the room that the text needs";
    return std::string(out.c_str());
}

TEST(GenericTextConversionTest, RoundTripsIn1252And932AndUtf8)
{
    struct Case {
        unsigned int codePage;
        std::string narrow;
        Units wide;
    } cases[] = {
        {1252, "a\x80\xE9\x9F", {'a', 0x20AC, 0x00E9, 0x0178}},
        {932, "a\x82\xA0\x83\x41\x8A\xBF\xB1", {'a', 0x3042, 0x30A2, 0x6F22, 0xFF71}},
        {65001, "a\xE2\x82\xAC\xF0\x9F\x98\x80", {'a', 0x20AC, 0xD83D, 0xDE00}},
    };
    for (const Case &c : cases) {
        BOOLTYPE ok = FALSE;
        EXPECT_EQ(ToWide(c.narrow, c.codePage, &ok), c.wide) << c.codePage;
        EXPECT_EQ(ok, TRUE);
        EXPECT_EQ(ToNarrow(c.wide, c.codePage, c.narrow.size() + 1, &ok), c.narrow) << c.codePage;
        EXPECT_EQ(ok, TRUE);
    }
}

TEST(GenericTextConversionTest, CodePageZeroIsTheSystemsDefault)
{
    const std::string narrow = "\xE9t\xE9";
    EXPECT_EQ(ToWide(narrow, 0), ToWide(narrow, GetACP()));
    Units wide = ToWide(narrow, GetACP());
    EXPECT_EQ(ToNarrow(wide, 0, narrow.size() + 1), ToNarrow(wide, GetACP(), narrow.size() + 1));
    // An explicit code page is that one, whatever the default.
    EXPECT_EQ(ToWide("\x82\xA0", 932), Units{0x3042});
}

TEST(GenericTextConversionTest, EmptyTextsAndMissingCharacters)
{
    BOOLTYPE ok = FALSE;
    EXPECT_EQ(ToNarrow(Units{}, 1252, 1, &ok), "");
    EXPECT_EQ(ok, TRUE);
    EXPECT_EQ(ToWide("", 1252, &ok), Units{});
    EXPECT_EQ(ok, TRUE);
    // A character that 1252 lacks is replaced, and that is no failure.
    std::string replaced = ToNarrow(Units{'a', 0x3042, 'b'}, 1252, 4, &ok);
    EXPECT_EQ(ok, TRUE);
    EXPECT_EQ(replaced.size(), 3u);
    EXPECT_EQ(replaced[0], 'a');
    EXPECT_NE(static_cast<unsigned char>(replaced[1]), 0x82);
}

TEST(GenericTextConversionTest, AnUnknownCodePageIsRefused)
{
    BOOLTYPE ok = TRUE;
    ToNarrow(Units{'a'}, 12345, 2, &ok);
    EXPECT_EQ(ok, FALSE);
    ToWide("a", 12345, &ok);
    EXPECT_EQ(ok, FALSE);
}

Units W(const char *text)
{
    Units out;
    for (; *text; ++text)
        out.push_back(static_cast<unsigned char>(*text));
    out.push_back(0);
    return out;
}

int SignificantDigits(const char *text)
{
    std::string digits;
    for (const char *p = text; *p && *p != 'e' && *p != 'E'; ++p)
        if (*p >= '0' && *p <= '9')
            digits += *p;
    size_t first = digits.find_first_not_of('0');
    if (first == std::string::npos)
        return 0;
    return static_cast<int>(digits.find_last_not_of('0') - first + 1);
}

// Reals from text and back, in narrow and wide text alike.
TEST(GenericTextConversionTest, RealsToTextAndBack)
{
    const struct {
        const char *text;
        double value;
    } texts[] = {{"", 0.0}, {"abc1", 0.0}, {"x1.5", 0.0}, {"12.5e2xyz", 1250.0}, {"  -3.25", -3.25},
                 {"  -2.5e3 volts", -2500.0}};
    for (const auto &t : texts) {
        EXPECT_EQ(GenericText::StringToReal(t.text), t.value) << t.text;
        EXPECT_EQ(GenericText::StringToReal(W(t.text).data()), t.value) << t.text;
    }
    const double values[] = {3.14159265, -2718.28, 1.5e-7, 6.02214e23, 100.0, 0.125, -1.234e307};
    for (double v : values) {
        for (int digits : {3, 12}) {
            const double within = std::fabs(v) * (digits == 3 ? 5e-3 : 1e-11);
            char narrow[64];
            unsigned short wide[40];
            EXPECT_EQ(GenericText::RealToString(v, narrow, digits), narrow);
            EXPECT_EQ(GenericText::RealToString(v, wide, digits), wide);
            EXPECT_LE(SignificantDigits(narrow), digits) << narrow;
            EXPECT_NEAR(GenericText::StringToReal(narrow), v, within) << narrow;
            EXPECT_NEAR(GenericText::StringToReal(wide), v, within) << v << " with " << digits << " digits";
        }
    }
}

// The local buffers of 32 bytes hold every text: a digit count past what
// fits is taken as the most that does, and a longer text to read is no
// number. (The sanitizer build sees any write past them.)
TEST(GenericTextConversionTest, WideRealsStayWithinTheirBuffers)
{
    unsigned short out[64];
    for (double v : {-1.2345678901234567e-300, -9.87654321e300, 1.0 / 3.0, -123456789.0}) {
        for (int digits : {0, 24, 25, 40, 1000}) {
            GenericText::RealToString(v, out, digits);
            size_t units = 0;
            while (out[units])
                ++units;
            EXPECT_LE(units, 31u) << v << " with " << digits << " digits";
            EXPECT_NEAR(GenericText::StringToReal(out), v, std::fabs(v) * 0.5) << v << " with " << digits;
        }
    }
    EXPECT_EQ(GenericText::StringToReal(W("1234567890123456789012345678901").data()), 1234567890123456789012345678901.0);
    EXPECT_EQ(GenericText::StringToReal(W("12345678901234567890123456789012").data()), 0.0);
}

} // namespace
