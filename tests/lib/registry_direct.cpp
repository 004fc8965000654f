// SetRegDB and qryRegDB: key creation with the class text of the type,
// every type and size edge of the three reads, the meanings of the size
// cell, and no handle left behind by many calls.
#include "RegDB.h"

#include "RegistryFixture.h"

#include <string.h>

#include <string>

namespace {

using tstest::RegistryTest;

class RegDBTest : public RegistryTest {
protected:
    // The class text of a key below the test's key.
    std::string ClassOf(char const *sub)
    {
        HKEY k;
        if (RegOpenKeyExA(key_, sub, 0, KEY_READ, &k) != ERROR_SUCCESS)
            return "<missing>";
        char text[64];
        DWORD length = sizeof text;
        LONG status = RegQueryInfoKeyA(k, text, &length, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                       nullptr, nullptr, nullptr);
        RegCloseKey(k);
        return status == ERROR_SUCCESS ? std::string(text, length) : "<error>";
    }
    CString Sub(char const *sub) { return CString((path_ + "\\" + sub).c_str()); }
};

TEST_F(RegDBTest, SetRegDBCreatesEveryLevelWithTheClassOfTheType)
{
    CString path = Sub("a\\b"), name("text"), value("hello"), empty("");
    EXPECT_EQ(SetRegDB(path, name, REG_EXPAND_SZ, value, HKEY_CURRENT_USER), 1);
    EXPECT_EQ(ClassOf("a"), "REG_EXPAND_SZ");
    EXPECT_EQ(ClassOf("a\\b"), "REG_EXPAND_SZ");
    unsigned long number = 0x12345678;
    CString dword("n");
    EXPECT_EQ(SetRegDB(path, dword, REG_DWORD, number, HKEY_CURRENT_USER), 1);
    CString other = Sub("c");
    EXPECT_EQ(SetRegDB(other, dword, REG_DWORD, number, HKEY_CURRENT_USER), 1);
    EXPECT_EQ(ClassOf("c"), "REG_DWORD");
    CString blank("blank");
    EXPECT_EQ(SetRegDB(path, blank, REG_SZ, empty, HKEY_CURRENT_USER), 1);

    CString wrong = Sub("never");
    EXPECT_EQ(SetRegDB(wrong, name, REG_DWORD, value, HKEY_CURRENT_USER), 0);
    EXPECT_EQ(SetRegDB(wrong, name, REG_SZ, number, HKEY_CURRENT_USER), 0);
    EXPECT_EQ(ClassOf("never"), "<missing>");

    HKEY b;
    ASSERT_EQ(RegOpenKeyExA(key_, "a\\b", 0, KEY_READ, &b), ERROR_SUCCESS);
    char data[16];
    DWORD type = 0, count = sizeof data;
    ASSERT_EQ(RegQueryValueExA(b, "text", nullptr, &type, reinterpret_cast<BYTE *>(data), &count), ERROR_SUCCESS);
    EXPECT_EQ(type, static_cast<DWORD>(REG_EXPAND_SZ));
    EXPECT_EQ(std::string(data, count), std::string("hello", 6));
    count = sizeof data;
    ASSERT_EQ(RegQueryValueExA(b, "blank", nullptr, &type, reinterpret_cast<BYTE *>(data), &count), ERROR_SUCCESS);
    EXPECT_EQ(count, 1u);
    DWORD stored = 0;
    ASSERT_EQ(tstest::GetDword(b, "n", stored), ERROR_SUCCESS);
    EXPECT_EQ(stored, 0x12345678u);
    RegCloseKey(b);
}

TEST_F(RegDBTest, AnExistingKeyKeepsItsClass)
{
    TS_SKIP_ON_WINE("RegCreateKeyExA gives an existing key the class it is passed");
    CString path = Sub("k"), name("v"), value("x");
    unsigned long number = 1;
    EXPECT_EQ(SetRegDB(path, name, REG_SZ, value, HKEY_CURRENT_USER), 1);
    EXPECT_EQ(SetRegDB(path, name, REG_DWORD, number, HKEY_CURRENT_USER), 1);
    EXPECT_EQ(ClassOf("k"), "REG_SZ");
}

TEST_F(RegDBTest, TheStringFormReadsUpTo1024BytesOfText)
{
    CString path(path_.c_str()), name("v"), out;
    unsigned long size = 0, type = 0;
    std::string fits(1023, 'f');
    ASSERT_EQ(RegSetValueExA(key_, "v", 0, REG_SZ, reinterpret_cast<BYTE const *>(fits.c_str()), 1024),
              ERROR_SUCCESS);
    EXPECT_EQ(qryRegDB(path, name, out, &size, &type, HKEY_CURRENT_USER), 1);
    EXPECT_EQ(std::string(out), fits);
    EXPECT_EQ(size, 1024ul);
    EXPECT_EQ(type, static_cast<unsigned long>(REG_SZ));

    std::string over(1024, 'o');
    ASSERT_EQ(RegSetValueExA(key_, "v", 0, REG_EXPAND_SZ, reinterpret_cast<BYTE const *>(over.c_str()), 1025),
              ERROR_SUCCESS);
    EXPECT_EQ(qryRegDB(path, name, out, &size, &type, HKEY_CURRENT_USER), 0);
    EXPECT_EQ(size, static_cast<unsigned long>(ERROR_MORE_DATA));
    EXPECT_TRUE(out.IsEmpty());

    SetDword(key_, "v", 5);
    out = "old";
    EXPECT_EQ(qryRegDB(path, name, out, &size, &type, HKEY_CURRENT_USER), 0);
    EXPECT_TRUE(out.IsEmpty());
    EXPECT_EQ(size, 0ul);
    EXPECT_EQ(type, static_cast<unsigned long>(REG_DWORD));

    CString missing("missing");
    EXPECT_EQ(qryRegDB(path, missing, out, &size, &type, HKEY_CURRENT_USER), 0);
    EXPECT_EQ(size, static_cast<unsigned long>(ERROR_FILE_NOT_FOUND));
}

TEST_F(RegDBTest, TheNumberFormReadsADword)
{
    CString path(path_.c_str()), name("v");
    unsigned long value = 0, size = 0, type = 0;
    SetDword(key_, "v", 0xFEDCBA98);
    EXPECT_EQ(qryRegDB(path, name, &value, &size, &type, HKEY_CURRENT_USER), 1);
    EXPECT_EQ(value, 0xFEDCBA98ul);
    EXPECT_EQ(size, 4ul);

    ASSERT_EQ(RegSetValueExA(key_, "v", 0, REG_SZ, reinterpret_cast<BYTE const *>("abc"), 4), ERROR_SUCCESS);
    EXPECT_EQ(qryRegDB(path, name, &value, &size, &type, HKEY_CURRENT_USER), 0);
    EXPECT_EQ(value, 0ul);
    EXPECT_EQ(size, 0ul);
    EXPECT_EQ(type, static_cast<unsigned long>(REG_SZ));

    value = 9;
    ASSERT_EQ(RegSetValueExA(key_, "v", 0, REG_SZ, reinterpret_cast<BYTE const *>("abcd"), 5), ERROR_SUCCESS);
    EXPECT_EQ(qryRegDB(path, name, &value, &size, &type, HKEY_CURRENT_USER), 0);
    EXPECT_EQ(size, static_cast<unsigned long>(ERROR_MORE_DATA));
    EXPECT_EQ(value, 9ul);
}

TEST_F(RegDBTest, TheByteFormReadsBinaryAndClearsOtherTypes)
{
    CString path(path_.c_str()), name("v");
    unsigned char data[8];
    unsigned long size = sizeof data, type = 0;
    ASSERT_EQ(RegSetValueExA(key_, "v", 0, REG_BINARY, reinterpret_cast<BYTE const *>("\x01\x00\x02"), 3),
              ERROR_SUCCESS);
    EXPECT_EQ(qryRegDB(path, name, data, &size, &type, HKEY_CURRENT_USER), 1);
    EXPECT_EQ(size, 3ul);
    EXPECT_EQ(memcmp(data, "\x01\x00\x02", 3), 0);

    memset(data, 'x', sizeof data);
    ASSERT_EQ(RegSetValueExA(key_, "v", 0, REG_SZ, reinterpret_cast<BYTE const *>("ab"), 3), ERROR_SUCCESS);
    size = sizeof data;
    EXPECT_EQ(qryRegDB(path, name, data, &size, &type, HKEY_CURRENT_USER), 0);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(data), sizeof data), std::string("\0\0\0xxxxx", 8));
    EXPECT_EQ(size, 0ul);
    EXPECT_EQ(type, static_cast<unsigned long>(REG_SZ));

    size = 0;
    type = 77;
    EXPECT_EQ(qryRegDB(path, name, data, &size, &type, HKEY_CURRENT_USER), 0);
    EXPECT_EQ(size, 0ul);
    EXPECT_EQ(type, 77ul);
    size = 2;
    EXPECT_EQ(qryRegDB(path, name, data, &size, &type, HKEY_CURRENT_USER), 0);
    EXPECT_EQ(size, static_cast<unsigned long>(ERROR_MORE_DATA));
    EXPECT_EQ(qryRegDB(path, name, static_cast<unsigned char *>(nullptr), &size, &type, HKEY_CURRENT_USER), 0);
}

TEST_F(RegDBTest, AMissingKeyIsNeitherReadNorCreated)
{
    CString path = Sub("absent"), name("v"), out("kept");
    unsigned long value = 3, size = 0, type = 66;
    unsigned char data[4] = {1, 2, 3, 4};
    EXPECT_EQ(qryRegDB(path, name, out, &size, &type, HKEY_CURRENT_USER), 0);
    EXPECT_EQ(size, 1024ul);
    EXPECT_EQ(std::string(out), "kept");
    EXPECT_EQ(qryRegDB(path, name, &value, &size, &type, HKEY_CURRENT_USER), 0);
    EXPECT_EQ(size, 4ul);
    EXPECT_EQ(value, 3ul);
    size = 4;
    EXPECT_EQ(qryRegDB(path, name, data, &size, &type, HKEY_CURRENT_USER), 0);
    EXPECT_EQ(size, 4ul);
    EXPECT_EQ(type, 66ul);
    EXPECT_EQ(ClassOf("absent"), "<missing>");
}

TEST_F(RegDBTest, ManyCallsLeaveNoHandleOpen)
{
    TS_SKIP_ON_WINE("GetProcessHandleCount reports no handles");
    CString path(path_.c_str()), name("v"), missing("missing"), out, absent = Sub("absent");
    unsigned long value = 1, size = 0, type = 0;
    DWORD before = 0, after = 0;
    ASSERT_TRUE(GetProcessHandleCount(GetCurrentProcess(), &before));
    int failures = 0;
    // Writes are durable, and so slow: a few of them, and reads on every path.
    for (int i = 0; i < 100; ++i)
        failures += SetRegDB(path, name, REG_DWORD, value, HKEY_CURRENT_USER) != 1;
    for (int i = 0; i < 100000; ++i) {
        switch (i % 4) {
        case 0: failures += qryRegDB(path, name, &value, &size, &type, HKEY_CURRENT_USER) != 1; break;
        case 1: failures += qryRegDB(path, name, out, &size, &type, HKEY_CURRENT_USER) != 0; break;
        case 2: failures += qryRegDB(path, missing, &value, &size, &type, HKEY_CURRENT_USER) != 0; break;
        default: failures += qryRegDB(absent, name, &value, &size, &type, HKEY_CURRENT_USER) != 0; break;
        }
    }
    ASSERT_TRUE(GetProcessHandleCount(GetCurrentProcess(), &after));
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(after, before);
}

} // namespace
