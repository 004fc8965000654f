// The multibyte functions in a double-byte code page (932) and in a
// single-byte one (1252).
#include "TestSupport.h"

#include <mbctype.h>
#include <mbstring.h>
#include <string.h>

#include <string>

namespace {

const unsigned char *U(const char *s) { return reinterpret_cast<const unsigned char *>(s); }

class MbcsTest : public ::testing::Test {
protected:
    void SetUp() override { saved_ = _getmbcp(); }
    void TearDown() override { _setmbcp(saved_); }
    int saved_ = 0;
};

// "a", HIRAGANA A (0x82 0xA0), "b", and a kanji (0x95 0x5C) whose trail
// byte is a backslash.
const char kText[] = "a\x82\xA0" "b\x95\x5C";

TEST_F(MbcsTest, CodePageSetting)
{
    ASSERT_EQ(_setmbcp(932), 0);
    EXPECT_EQ(_getmbcp(), 932);
    EXPECT_EQ(_setmbcp(12345), -1);
    EXPECT_EQ(_getmbcp(), 932);
    EXPECT_TRUE(_ismbblead(0x82));
    EXPECT_FALSE(_ismbblead('a'));
    ASSERT_EQ(_setmbcp(1252), 0);
    EXPECT_FALSE(_ismbblead(0x82));
}

TEST_F(MbcsTest, LengthsAndSteps932)
{
    ASSERT_EQ(_setmbcp(932), 0);
    const unsigned char *s = U(kText);
    EXPECT_EQ(_mbslen(s), 4u);
    EXPECT_EQ(_mbsinc(s), s + 1);
    EXPECT_EQ(_mbsinc(s + 1), s + 3);
    EXPECT_EQ(_mbclen(s + 1), 2u);
    EXPECT_EQ(_mbclen(s), 1u);
    EXPECT_EQ(_mbsnbcnt(s, 2), 3u);
    EXPECT_EQ(_mbsnbcnt(s, 10), 6u);
}

TEST_F(MbcsTest, SearchesNeverMatchATrailByte932)
{
    ASSERT_EQ(_setmbcp(932), 0);
    const unsigned char *s = U(kText);
    EXPECT_EQ(_mbschr(s, '\\'), nullptr);
    EXPECT_EQ(_mbschr(s, 0xA0), nullptr);
    EXPECT_EQ(_mbschr(s, 0x82A0), s + 1);
    EXPECT_EQ(_mbschr(s, 'b'), s + 3);
    EXPECT_EQ(_mbschr(s, 0), s + 6);
    EXPECT_EQ(_mbspbrk(s, U("\\x")), nullptr);
    EXPECT_EQ(_mbspbrk(s, U("b\x82\xA0")), s + 1);
    EXPECT_EQ(_mbspbrk(s, U("\x95\x5C")), s + 4);
    const unsigned char path[] = "C:\\\x95\x5C\\x";
    EXPECT_EQ(_mbschr(path + 3, '\\'), path + 5);
}

TEST_F(MbcsTest, CopiesKeepCharactersWhole932)
{
    ASSERT_EQ(_setmbcp(932), 0);
    // The first eight bytes of a buffer of 'Z's after copy wrote to it.
    auto copied = [](void (*copy)(unsigned char *)) {
        unsigned char out[16];
        memset(out, 'Z', sizeof out);
        copy(out);
        return std::string(reinterpret_cast<char *>(out), 8);
    };
    // No terminator after count characters; a short source is padded.
    EXPECT_EQ(copied([](unsigned char *o) { EXPECT_EQ(_mbsncpy(o, U(kText), 2), o); }),
              std::string("a\x82\xA0ZZZZZ", 8));
    EXPECT_EQ(copied([](unsigned char *o) { _mbsncpy(o, U("\x82\xA0"), 3); }), std::string("\x82\xA0\0\0ZZZZ", 8));
    EXPECT_EQ(copied([](unsigned char *o) { _mbsnbcpy(o, U(kText), 3); }), std::string("a\x82\xA0ZZZZZ", 8));
    // Half a character is not copied.
    EXPECT_EQ(copied([](unsigned char *o) { _mbsnbcpy(o, U(kText), 2); }).substr(0, 2), std::string("a\0", 2));
}

TEST_F(MbcsTest, Comparisons932)
{
    ASSERT_EQ(_setmbcp(932), 0);
    EXPECT_EQ(_mbsicmp(U("ABC\x82\xA0"), U("abc\x82\xA0")), 0);
    EXPECT_LT(_mbsicmp(U("abc"), U("ABD")), 0);
    EXPECT_GT(_mbsicmp(U("\x82\xA1"), U("\x82\xA0")), 0);
    // A double-byte character sorts after every single byte below 0x80.
    EXPECT_GT(_mbsicmp(U("\x82\xA0"), U("z")), 0);
    EXPECT_EQ(_mbsnbcmp(U("ab\x82\xA0x"), U("ab\x82\xA0y"), 4), 0);
    EXPECT_LT(_mbsnbcmp(U("ab\x82\xA0x"), U("ab\x82\xA0y"), 5), 0);
    EXPECT_NE(_mbsnbcmp(U("ab\x82\xA0"), U("ab\x82\xA1"), 4), 0);
}

TEST_F(MbcsTest, SingleByteCodePage)
{
    ASSERT_EQ(_setmbcp(1252), 0);
    const unsigned char *s = U(kText);
    EXPECT_EQ(_mbslen(s), 6u);
    EXPECT_EQ(_mbsinc(s + 1), s + 2);
    EXPECT_EQ(_mbschr(s, '\\'), s + 5);
    EXPECT_EQ(_mbsnbcnt(s, 2), 2u);
}

} // namespace
