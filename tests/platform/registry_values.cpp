// Registry values: the bytes stored, sizes and buffers, names, the order of
// enumeration, and several threads on one key.
#include "RegistryFixture.h"

#include <cstring>
#include <string>
#include <thread>
#include <vector>

using tstest::RegistryTest;

namespace {

std::vector<std::string> ValueNames(HKEY k)
{
    std::vector<std::string> names;
    char name[64];
    for (DWORD i = 0;; ++i) {
        DWORD cch = sizeof name;
        if (RegEnumValueA(k, i, name, &cch, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS)
            break;
        names.push_back(name);
    }
    return names;
}

std::string Query(HKEY k, const char *name, DWORD *type = nullptr)
{
    BYTE buf[256];
    DWORD cb = sizeof buf;
    EXPECT_EQ(RegQueryValueExA(k, name, nullptr, type, buf, &cb), ERROR_SUCCESS) << name;
    return std::string(reinterpret_cast<char *>(buf), cb);
}

} // namespace

TEST_F(RegistryTest, ValuesKeepTheirTypeAndBytes)
{
    const std::string binary("\x00\x01\xFF\x00zz", 6);
    const std::string multi("one\0two\0\0", 9);
    const std::string text("text\0", 5);
    struct Case {
        const char *name;
        DWORD type;
        std::string data;
    } cases[] = {
        {"sz", REG_SZ, text},          {"expand", REG_EXPAND_SZ, std::string("%PATH%\0", 7)},
        {"bin", REG_BINARY, binary},   {"dword", REG_DWORD, std::string("\x2A\0\0\0", 4)},
        {"multi", REG_MULTI_SZ, multi}, {"qword", REG_QWORD, std::string("\1\2\3\4\5\6\7\x08", 8)},
        {"none", REG_NONE, binary},    {"odd", 0x1234, std::string("ab")},
        {"empty", REG_BINARY, std::string()},
    };
    for (const Case &c : cases)
        ASSERT_EQ(RegSetValueExA(key_, c.name, 0, c.type, reinterpret_cast<const BYTE *>(c.data.data()),
                                 static_cast<DWORD>(c.data.size())),
                  ERROR_SUCCESS)
            << c.name;
    for (const Case &c : cases) {
        DWORD type = 0;
        EXPECT_EQ(Query(key_, c.name, &type), c.data) << c.name;
        EXPECT_EQ(type, c.type) << c.name;
    }

    // Replacing a value changes its type and data.
    ASSERT_EQ(RegSetValueExA(key_, "dword", 0, REG_SZ, reinterpret_cast<const BYTE *>("x"), 2), ERROR_SUCCESS);
    DWORD type = 0;
    EXPECT_EQ(Query(key_, "DWORD", &type), std::string("x\0", 2));
    EXPECT_EQ(type, static_cast<DWORD>(REG_SZ));

    EXPECT_EQ(RegSetValueExA(key_, "null", 0, REG_BINARY, nullptr, 4), ERROR_NOACCESS);
    EXPECT_EQ(RegSetValueExA(key_, "null", 0, REG_BINARY, nullptr, 0), ERROR_SUCCESS);

    TS_SKIP_ON_WINE("Wine adds a terminator to string data read through the ANSI calls");
    ASSERT_EQ(RegSetValueExA(key_, "s", 0, REG_SZ, reinterpret_cast<const BYTE *>("abc"), 3), ERROR_SUCCESS);
    EXPECT_EQ(Query(key_, "s"), "abc") << "an unterminated string comes back as stored";
}

TEST_F(RegistryTest, QueryValueSizesAndBuffers)
{
    ASSERT_EQ(RegSetValueExA(key_, "s", 0, REG_SZ, reinterpret_cast<const BYTE *>("abcd"), 5), ERROR_SUCCESS);
    DWORD type = 0, cb = 0;
    EXPECT_EQ(RegQueryValueExA(key_, "s", nullptr, &type, nullptr, &cb), ERROR_SUCCESS);
    EXPECT_EQ(cb, 5u);
    EXPECT_EQ(type, static_cast<DWORD>(REG_SZ));

    char buf[8];
    memset(buf, 'X', sizeof buf);
    cb = 4;
    EXPECT_EQ(RegQueryValueExA(key_, "s", nullptr, &type, reinterpret_cast<BYTE *>(buf), &cb), ERROR_MORE_DATA);
    EXPECT_EQ(cb, 5u) << "the size needed";
    cb = 5;
    EXPECT_EQ(RegQueryValueExA(key_, "s", nullptr, &type, reinterpret_cast<BYTE *>(buf), &cb), ERROR_SUCCESS);
    EXPECT_STREQ(buf, "abcd");

    EXPECT_EQ(RegQueryValueExA(key_, "s", nullptr, &type, reinterpret_cast<BYTE *>(buf), nullptr),
              ERROR_INVALID_PARAMETER);
    EXPECT_EQ(RegQueryValueExA(key_, "s", nullptr, nullptr, nullptr, nullptr), ERROR_SUCCESS);
    EXPECT_EQ(RegQueryValueExA(key_, "missing", nullptr, &type, nullptr, &cb), ERROR_FILE_NOT_FOUND);

    // The default value: a null name and "" are the same value.
    EXPECT_EQ(RegQueryValueExA(key_, "", nullptr, &type, nullptr, &cb), ERROR_FILE_NOT_FOUND);
    ASSERT_EQ(RegSetValueExA(key_, nullptr, 0, REG_SZ, reinterpret_cast<const BYTE *>("d"), 2), ERROR_SUCCESS);
    EXPECT_EQ(Query(key_, ""), std::string("d\0", 2));
    EXPECT_EQ(RegDeleteValueA(key_, ""), ERROR_SUCCESS);
    EXPECT_EQ(RegQueryValueExA(key_, nullptr, nullptr, &type, nullptr, &cb), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RegDeleteValueA(key_, "missing"), ERROR_FILE_NOT_FOUND);
}

TEST_F(RegistryTest, ValueNamesCompareWithoutCase)
{
    SetDword(key_, "MixedCase", 1);
    SetDword(key_, "MIXEDCASE", 2);
    EXPECT_EQ(ValueNames(key_), std::vector<std::string>{"MixedCase"}) << "one value, with its first name";
    EXPECT_EQ(Query(key_, "mixedcase"), std::string("\2\0\0\0", 4));
    EXPECT_EQ(RegDeleteValueA(key_, "mixedCASE"), ERROR_SUCCESS);
    EXPECT_TRUE(ValueNames(key_).empty());
}

TEST_F(RegistryTest, EnumValueCapacities)
{
    ASSERT_EQ(RegSetValueExA(key_, "abc", 0, REG_BINARY, reinterpret_cast<const BYTE *>("12345"), 5), ERROR_SUCCESS);
    char name[8];
    BYTE data[8];
    DWORD cch = 4, cb = sizeof data, type = 0;
    ASSERT_EQ(RegEnumValueA(key_, 0, name, &cch, nullptr, &type, data, &cb), ERROR_SUCCESS);
    EXPECT_STREQ(name, "abc");
    EXPECT_EQ(cch, 3u);
    EXPECT_EQ(cb, 5u);
    EXPECT_EQ(type, static_cast<DWORD>(REG_BINARY));

    cch = 3;
    EXPECT_EQ(RegEnumValueA(key_, 0, name, &cch, nullptr, nullptr, nullptr, nullptr), ERROR_MORE_DATA);
    EXPECT_EQ(cch, 3u) << "the count is left alone";

    cch = sizeof name;
    cb = 4;
    EXPECT_EQ(RegEnumValueA(key_, 0, name, &cch, nullptr, &type, data, &cb), ERROR_MORE_DATA);
    EXPECT_EQ(cb, 5u) << "the size needed";

    cch = sizeof name;
    cb = 0;
    EXPECT_EQ(RegEnumValueA(key_, 0, name, &cch, nullptr, nullptr, nullptr, &cb), ERROR_SUCCESS);
    EXPECT_EQ(cb, 5u) << "the size alone";

    cch = sizeof name;
    EXPECT_EQ(RegEnumValueA(key_, 1, name, &cch, nullptr, nullptr, nullptr, nullptr), ERROR_NO_MORE_ITEMS);
}

TEST_F(RegistryTest, ValuesEnumerateInCreationOrder)
{
    TS_SKIP_ON_WINE("Wine enumerates values sorted by name");
    for (const char *name : {"b", "a", "C", "", "aa"})
        SetDword(key_, name, 1);
    EXPECT_EQ(ValueNames(key_), (std::vector<std::string>{"b", "a", "C", "", "aa"}));
    SetDword(key_, "A", 2); // a replaced value keeps its place
    EXPECT_EQ(ValueNames(key_), (std::vector<std::string>{"b", "a", "C", "", "aa"}));
    EXPECT_EQ(RegDeleteValueA(key_, "b"), ERROR_SUCCESS);
    SetDword(key_, "b", 3); // made again, it comes last
    EXPECT_EQ(ValueNames(key_), (std::vector<std::string>{"a", "C", "", "aa", "b"}));
}

TEST_F(RegistryTest, ThreadsWritingOneKeyLoseNothing)
{
    constexpr int kThreads = 4, kEach = 50;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([this, t] {
            HKEY k;
            ASSERT_EQ(RegOpenKeyExA(HKEY_CURRENT_USER, path_.c_str(), 0, KEY_ALL_ACCESS, &k), ERROR_SUCCESS);
            for (int i = 0; i < kEach; ++i) {
                std::string name = "t" + std::to_string(t) + "-" + std::to_string(i);
                DWORD v = static_cast<DWORD>(t * 1000 + i);
                ASSERT_EQ(RegSetValueExA(k, name.c_str(), 0, REG_DWORD, reinterpret_cast<BYTE *>(&v), 4),
                          ERROR_SUCCESS);
                DWORD back = 0;
                ASSERT_EQ(tstest::GetDword(k, name, back), ERROR_SUCCESS);
                ASSERT_EQ(back, v) << "a read after a write sees it";
            }
            RegCloseKey(k);
        });
    }
    for (std::thread &th : threads)
        th.join();
    DWORD values = 0;
    ASSERT_EQ(RegQueryInfoKeyA(key_, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &values, nullptr, nullptr,
                               nullptr, nullptr),
              ERROR_SUCCESS);
    EXPECT_EQ(values, static_cast<DWORD>(kThreads * kEach));
}

namespace {

LPCWSTR W(const char16_t *s) { return reinterpret_cast<LPCWSTR>(s); }

std::string Bytes(const char16_t *s, size_t units) { return std::string(reinterpret_cast<const char *>(s), units * 2); }

} // namespace

// Text goes in through one kind of call and out through the other: the A
// calls see the ANSI code page, with its default character for what the
// page lacks; the W calls see the UTF-16 that is stored.
TEST_F(RegistryTest, AnsiAndWideCallsShareTheText)
{
    if (GetACP() != 1252)
        GTEST_SKIP() << "the cases are written for code page 1252";
    const char16_t data[] = u"\u00e4\u4e2d\u20ac"; // a-umlaut, a Chinese character, the euro sign
    // Created in name order, which is also the order in which Wine lists
    // values.
    ASSERT_EQ(RegSetValueExW(key_, W(u"Gr\u00fc\u00dfe"), 0, REG_SZ, reinterpret_cast<const BYTE *>(data), 8),
              ERROR_SUCCESS);
    ASSERT_EQ(RegSetValueExA(key_, "Xcaf\xe9", 0, REG_MULTI_SZ, reinterpret_cast<const BYTE *>("\xe9t\xe9\0\0"), 5),
              ERROR_SUCCESS);
    ASSERT_EQ(RegSetValueExW(key_, W(u"\u65e5\u672c"), 0, REG_EXPAND_SZ, reinterpret_cast<const BYTE *>(data), 8),
              ERROR_SUCCESS);

    DWORD type = 0, cb = 0;
    EXPECT_EQ(RegQueryValueExA(key_, "GR\xdc\xdf" "E", nullptr, &type, nullptr, &cb), ERROR_SUCCESS);
    EXPECT_EQ(cb, 4u) << "the size of the text in the code page";
    EXPECT_EQ(Query(key_, "gr\xfc\xdf" "e"), std::string("\xe4?\x80\0", 4));
    EXPECT_EQ(ValueNames(key_), (std::vector<std::string>{"Gr\xfc\xdf" "e", "Xcaf\xe9", "??"}));

    BYTE buf[64];
    cb = sizeof buf;
    ASSERT_EQ(RegQueryValueExW(key_, W(u"xCAF\u00c9"), nullptr, &type, buf, &cb), ERROR_SUCCESS);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(buf), cb), Bytes(u"\u00e9t\u00e9\0\0", 5));
    cb = sizeof buf;
    ASSERT_EQ(RegQueryValueExW(key_, W(u"\u65e5\u672c"), nullptr, &type, buf, &cb), ERROR_SUCCESS);
    EXPECT_EQ(type, static_cast<DWORD>(REG_EXPAND_SZ));
    EXPECT_EQ(std::string(reinterpret_cast<char *>(buf), cb), Bytes(data, 4)) << "stored as given";

    // The W calls count names in WCHARs and data in bytes.
    WCHAR name[8];
    DWORD cch = 2;
    EXPECT_EQ(RegEnumValueW(key_, 2, name, &cch, nullptr, nullptr, nullptr, nullptr), ERROR_MORE_DATA);
    cch = 3;
    ASSERT_EQ(RegEnumValueW(key_, 2, name, &cch, nullptr, nullptr, nullptr, &cb), ERROR_SUCCESS);
    EXPECT_EQ(cch, 2u);
    EXPECT_EQ(cb, 8u);
    DWORD maxName = 0, maxData = 0;
    ASSERT_EQ(RegQueryInfoKeyW(key_, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &maxName, &maxData,
                               nullptr, nullptr),
              ERROR_SUCCESS);
    EXPECT_EQ(maxName, 5u) << "\"Xcaf\u00e9\", \"Gr\u00fc\u00dfe\"";
    EXPECT_EQ(maxData, 10u);
}
