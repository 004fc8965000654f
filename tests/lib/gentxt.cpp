// GenericText: the first character of a string, narrow and wide.
#include "GenTxt.h"

#include "TestSupport.h"

#include <mbctype.h>
#include <string.h>

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

} // namespace
