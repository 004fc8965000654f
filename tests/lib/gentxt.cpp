// GenericText: the first character of a string, and reals as text.
#include "GenTxt.h"

#include "TestSupport.h"

#include <mbctype.h>
#include <stdlib.h>
#include <string.h>

#include <cmath>
#include <string>

namespace {

TEST(GenericTextTest, CopiesOneWholeCharacter)
{
    // The first n bytes of a buffer of 'Z's after the copy from text.
    auto first = [](const char *text, size_t n) {
        char out[8];
        memset(out, 'Z', sizeof out);
        EXPECT_EQ(GenericText::CopyFirstCharString(out, text), out);
        return std::string(out, n);
    };
    EXPECT_EQ(first("", 1), std::string("\0", 1));
    EXPECT_EQ(first("abc", 3), std::string("a\0Z", 3));
    int saved = _getmbcp();
    ASSERT_EQ(_setmbcp(932), 0);
    EXPECT_EQ(first("\x82\xA0" "b", 4), std::string("\x82\xA0\0Z", 4)); // three bytes in all
    ASSERT_EQ(_setmbcp(1252), 0);
    EXPECT_EQ(first("\x82\xA0" "b", 3), std::string("\x82\0Z", 3));
    _setmbcp(saved);

    unsigned short wide[4] = {9, 9, 9, 9};
    const unsigned short input[] = {0xD83D, 0xDE00, 'x', 0};
    EXPECT_EQ(GenericText::CopyFirstCharString(wide, input), wide);
    EXPECT_EQ(wide[0], 0xD83D);
    EXPECT_EQ(wide[1], 0);
    EXPECT_EQ(wide[2], 9);
    const unsigned short empty[] = {0};
    GenericText::CopyFirstCharString(wide, empty);
    EXPECT_EQ(wide[0], 0);
}

TEST(GenericTextTest, TextToReal)
{
    EXPECT_EQ(GenericText::StringToReal(""), 0.0);
    EXPECT_EQ(GenericText::StringToReal("abc1"), 0.0);
    EXPECT_EQ(GenericText::StringToReal("12.5e2xyz"), 1250.0);
    EXPECT_EQ(GenericText::StringToReal("  -3.25"), -3.25);
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
    size_t last = digits.find_last_not_of('0');
    return static_cast<int>(last - first + 1);
}

TEST(GenericTextTest, RealToTextAndBack)
{
    char out[64];
    const double values[] = {3.14159265, -2718.28, 1.5e-7, 6.02214e23, 100.0, 0.125};
    for (double v : values) {
        EXPECT_EQ(GenericText::RealToString(v, out, 3), out);
        EXPECT_LE(SignificantDigits(out), 3) << out;
        EXPECT_NEAR(GenericText::StringToReal(out), v, std::fabs(v) * 5e-3) << out;
        GenericText::RealToString(v, out, 12);
        EXPECT_NEAR(GenericText::StringToReal(out), v, std::fabs(v) * 1e-11) << out;
    }
}

} // namespace
