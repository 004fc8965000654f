// CString: value semantics over shared storage, raw buffer access, search
// and formatting, and double-byte text.
#include <afx.h>

#include <mbctype.h>

#include "TestSupport.h"

#include <string>
#include <thread>
#include <vector>

namespace {

TEST(CStringTest, CopiesAreIndependentValues)
{
    CString a("alpha");
    CString b = a;
    b.SetAt(0, 'A');
    b += "-beta";
    EXPECT_STREQ(a, "alpha");
    EXPECT_STREQ(b, "Alpha-beta");
    a = b;
    a.MakeLower();
    EXPECT_STREQ(b, "Alpha-beta");
    EXPECT_STREQ(a, "alpha-beta");

    CString empty, nullText(static_cast<const char *>(nullptr));
    EXPECT_TRUE(empty.IsEmpty());
    EXPECT_TRUE(nullText.IsEmpty());
    EXPECT_STREQ(empty, "");

    // Assignment from a piece of itself.
    CString self("0123456789");
    self = static_cast<LPCSTR>(self) + 5;
    EXPECT_STREQ(self, "56789");
    self += self;
    EXPECT_STREQ(self, "5678956789");
}

TEST(CStringTest, ComparisonsAndPieces)
{
    CString s("Hello, world");
    EXPECT_TRUE(s == "Hello, world");
    EXPECT_TRUE("Hello, world" == s);
    EXPECT_TRUE(s != CString("hello, world"));
    EXPECT_EQ(s.CompareNoCase("HELLO, WORLD"), 0);
    EXPECT_TRUE(CString("a") < CString("b"));
    EXPECT_EQ(s.GetLength(), 12);
    EXPECT_STREQ(s.Left(5), "Hello");
    EXPECT_STREQ(s.Left(100), "Hello, world");
    EXPECT_STREQ(s.Left(-1), "");
    EXPECT_STREQ(s.Mid(7), "world");
    EXPECT_STREQ(s.Right(5), "world");
    EXPECT_EQ(s.Find('o'), 4);
    EXPECT_EQ(s.ReverseFind('o'), 8);
    EXPECT_EQ(s.ReverseFind('z'), -1);
    EXPECT_EQ(s.Find("world"), 7);
    s.SetAt(100, 'x'); // outside: nothing changes
    EXPECT_STREQ(s, "Hello, world");
}

TEST(CStringTest, FormatGrowsToAnyLength)
{
    CString s;
    s.Format("%s=%d", "x", 42);
    EXPECT_STREQ(s, "x=42");
    std::string longText(5000, 'q');
    s.Format("[%s]", longText.c_str());
    EXPECT_EQ(s.GetLength(), 5002);
    EXPECT_EQ(std::string(s), "[" + longText + "]");
    // Formatting a string into itself.
    s = "abc";
    s.Format("%s%s", static_cast<LPCSTR>(s), static_cast<LPCSTR>(s));
    EXPECT_STREQ(s, "abcabc");
}

TEST(CStringTest, RawBufferAccess)
{
    CString s("keep");
    CString shared = s;
    char *buf = s.GetBuffer(64);
    strcpy(buf, "written through the buffer");
    s.ReleaseBuffer(-1);
    EXPECT_STREQ(s, "written through the buffer");
    EXPECT_STREQ(shared, "keep"); // the copy was not touched

    buf = s.GetBuffer(10);
    s.ReleaseBuffer(0);
    EXPECT_TRUE(s.IsEmpty());

    buf = s.GetBufferSetLength(1024);
    EXPECT_EQ(s.GetLength(), 1024);
    strcpy(buf, "short");
    s.ReleaseBuffer(-1);
    EXPECT_EQ(s.GetLength(), 5);

    CString fromEmpty;
    buf = fromEmpty.GetBuffer(0);
    ASSERT_NE(buf, nullptr);
    EXPECT_EQ(buf[0], 0);
    fromEmpty.ReleaseBuffer();
    EXPECT_TRUE(fromEmpty.IsEmpty());
}

TEST(CStringTest, CopiesAcrossThreads)
{
    // Copies of one string are made, changed and dropped in several
    // threads at once: the shared count must hold.
    const CString shared("the shared text");
    std::vector<std::thread> threads;
    std::vector<int> bad(4, 0);
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < 20000; ++i) {
                CString copy = shared;
                CString other(copy);
                if (i % 3 == 0)
                    other += "!";
                if (copy != "the shared text")
                    ++bad[t];
            }
        });
    for (auto &th : threads)
        th.join();
    for (int b : bad)
        EXPECT_EQ(b, 0);
    EXPECT_STREQ(shared, "the shared text");
}

class CStringDoubleByte : public ::testing::Test {
protected:
    void SetUp() override
    {
        saved_ = _getmbcp();
        ASSERT_EQ(_setmbcp(932), 0);
    }
    void TearDown() override { _setmbcp(saved_); }
    int saved_ = 0;
};

TEST_F(CStringDoubleByte, SearchAndCaseStepOverTrailBytes)
{
    // 0x95 0x5C is one character whose trail byte is a backslash, and
    // 0x83 0x41 one whose trail byte is an "A".
    CString path("C:\\\x95\x5C");
    EXPECT_EQ(path.ReverseFind('\\'), 2);
    CString mixed("\x83\x41" "B");
    mixed.MakeLower();
    EXPECT_STREQ(mixed, "\x83\x41" "b");
    CString upper("\x83\x61" "b");
    upper.MakeUpper();
    EXPECT_STREQ(upper, "\x83\x61" "B");
    EXPECT_EQ(CString("\x95\x5C" "\\").Find('\\'), 2);
}

} // namespace
