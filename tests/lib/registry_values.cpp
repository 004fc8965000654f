// The typed registry values: the bytes and types each class stores, the
// character tests of RegistryInt and RegistryReal, the string limits, the
// refusals that leave the caller's number alone, and the output of keys
// and values through the diagnostic stream.
#include "RegValue.h"
#include "DDUMPC.h"

#include "RegistryFixture.h"
#include "ScratchDir.h" // ReadWholeFile

#include <math.h>
#include <mbctype.h>

#include <string>
#include <vector>

namespace {

using tstest::RegistryTest;

// A key object on the test's scratch key (all access) and the raw reads
// and writes to check the stored bytes.
class RegistryValueTest : public RegistryTest {
public:
    void SetUp() override
    {
        RegistryTest::SetUp();
        key = std::make_unique<RegistryKey>(HKEY_CURRENT_USER, path_.c_str(), KEY_ALL_ACCESS, FALSE);
    }
    void TearDown() override
    {
        key.reset();
        EXPECT_EQ(RegistryEntry::SetRegistryDefaults("", HKEY_LOCAL_MACHINE, 255, 255), TRUE);
        RegistryTest::TearDown();
    }
    void Put(char const *name, DWORD type, std::string const &data)
    {
        ASSERT_EQ(RegSetValueExA(key_, name, 0, type, reinterpret_cast<BYTE const *>(data.data()),
                                 static_cast<DWORD>(data.size())),
                  ERROR_SUCCESS);
    }
    void PutText(char const *name, std::string const &text) { Put(name, REG_SZ, text + '\0'); }
    // Type and bytes as stored.
    std::pair<DWORD, std::string> Stored(char const *name)
    {
        char data[1024];
        DWORD type = 0, count = sizeof data;
        if (RegQueryValueExA(key_, name, nullptr, &type, reinterpret_cast<BYTE *>(data), &count) != ERROR_SUCCESS)
            return {REG_NONE, "<missing>"};
        return {type, std::string(data, count)};
    }

    std::unique_ptr<RegistryKey> key;
};

using Bytes = std::pair<DWORD, std::string>;

TEST_F(RegistryValueTest, EachClassStoresItsOwnTypeAndBytes)
{
    RegistryString text("s", *key);
    RegistryInt negative("i", *key), zero("z", *key);
    RegistryReal real("r", *key), narrow("f", *key);
    RegistryUint number("u", *key);
    EXPECT_EQ(text.Set("hello"), TRUE);
    EXPECT_EQ(negative.Set(-42), TRUE);
    EXPECT_EQ(zero.Set(0), TRUE);
    EXPECT_EQ(real.Set(1.0 / 3, 4), TRUE);
    float third = 1.0f / 3;
    EXPECT_EQ(narrow.Set(third, 3), TRUE);
    EXPECT_EQ(number.Set(0xA1B2C3D4u), TRUE);
    EXPECT_EQ(Stored("s"), Bytes(REG_SZ, std::string("hello", 6)));
    EXPECT_EQ(Stored("i"), Bytes(REG_SZ, std::string("-42", 4)));
    EXPECT_EQ(Stored("z"), Bytes(REG_SZ, std::string("0", 2)));
    EXPECT_EQ(Stored("r"), Bytes(REG_SZ, std::string("0.3333", 7)));
    EXPECT_EQ(Stored("f"), Bytes(REG_SZ, std::string("0.333", 6)));
    EXPECT_EQ(Stored("u"), Bytes(REG_DWORD, std::string("\xD4\xC3\xB2\xA1", 4)));

    char const *read = nullptr;
    int i = 0;
    double d = 0;
    float f = 0;
    unsigned int u = 0;
    EXPECT_EQ(text.GetByPtr(&read), TRUE);
    EXPECT_STREQ(read, "hello");
    EXPECT_EQ(negative.Get(&i), TRUE);
    EXPECT_EQ(i, -42);
    EXPECT_EQ(real.Get(&d), TRUE);
    EXPECT_DOUBLE_EQ(d, 0.3333);
    EXPECT_EQ(narrow.Get(&f), TRUE);
    EXPECT_FLOAT_EQ(f, 0.333f);
    EXPECT_EQ(number.Get(&u), TRUE);
    EXPECT_EQ(u, 0xA1B2C3D4u);
    RegistryReal big("big", *key);
    EXPECT_EQ(big.Set(-1.5e300, 40), TRUE); // more digits than a double holds: 17
    EXPECT_EQ(big.Get(&d), TRUE);
    EXPECT_DOUBLE_EQ(d, -1.5e300);
    EXPECT_EQ(big.Get(&f), TRUE);
    EXPECT_TRUE(isinf(f) && f < 0);
    EXPECT_EQ(big.Set(1.0, 0), FALSE);
}

// A stored text read through a typed value: the result, and the number
// afterwards (the one given before the read when it fails).
template <class Number> struct ReadCase {
    char const *text;
    BOOLTYPE ok;
    Number value;
};

template <class Value, class Number>
void ExpectReads(RegistryValueTest &test, RegistryKey &key, std::vector<ReadCase<Number>> const &cases, Number before)
{
    for (ReadCase<Number> const &c : cases) {
        test.PutText("v", c.text);
        Value value("v", key);
        Number read = before;
        EXPECT_EQ(value.Get(&read), c.ok) << c.text;
        EXPECT_EQ(read, c.value) << c.text;
    }
}

TEST_F(RegistryValueTest, IntegersAndRealsAcceptOnlyTheirCharacters)
{
    ExpectReads<RegistryInt, int>(*this, *key,
                                  {{"+7", TRUE, 7},
                                   {"1-2", TRUE, 1},
                                   {"--5", TRUE, 0},
                                   {"", TRUE, 0},
                                   {" 5", FALSE, 99},
                                   {"1.5", FALSE, 99},
                                   {"0x10", FALSE, 99},
                                   {"99999999999", TRUE, 2147483647}},
                                  99);
    ExpectReads<RegistryReal, double>(*this, *key,
                                      {{"1e5", TRUE, 100000},
                                       {"-.5", TRUE, -0.5},
                                       {"", TRUE, 0},
                                       {"1.2.3", TRUE, 1.2},
                                       {"1E5", FALSE, 9},
                                       {"inf", FALSE, 9},
                                       {"1,5", FALSE, 9}},
                                      9.0);
    // A double-byte letter is one character, and not a digit.
    int previous = _getmbcp();
    ASSERT_EQ(_setmbcp(932), 0);
    PutText("v", "1\x82\x4f");
    RegistryInt value("v", *key);
    int read = 99;
    EXPECT_EQ(value.Get(&read), FALSE);
    EXPECT_EQ(read, 99);
    _setmbcp(previous);
    // Four zero bytes of a REG_DWORD are an empty text.
    Put("dword", REG_DWORD, std::string(4, '\0'));
    RegistryInt fromDword("dword", *key);
    read = 99;
    EXPECT_EQ(fromDword.Get(&read), TRUE);
    EXPECT_EQ(read, 0);
}

TEST_F(RegistryValueTest, StringsAreLimitedToRegStringMaxLengthWithTheirTerminator)
{
    std::string fits(254, 'f'), limit(255, 'l'), over(256, 'o');
    RegistryString value("v", *key);
    char const *read = nullptr;
    EXPECT_EQ(value.Set(fits.c_str()), TRUE);
    EXPECT_EQ(value.GetByPtr(&read), TRUE);
    EXPECT_EQ(std::string(read), fits);
    EXPECT_EQ(value.Set(limit.c_str()), TRUE); // written, and too long to read back
    EXPECT_EQ(Stored("v").second, limit + '\0');
    EXPECT_EQ(value.GetByPtr(&read), FALSE);
    EXPECT_EQ(read, nullptr);
    CString kept("before");
    EXPECT_EQ(value.Get(&kept), FALSE);
    EXPECT_EQ(std::string(kept), "before");
    EXPECT_EQ(value.Set(over.c_str()), FALSE); // refused, not cut
    EXPECT_EQ(Stored("v").second, limit + '\0');

    // Raising the limit after the buffer exists reads no further than the buffer.
    ASSERT_EQ(RegistryEntry::SetRegistryDefaults(nullptr, nullptr, 600, 0), TRUE);
    EXPECT_EQ(value.GetByPtr(&read), FALSE);
    RegistryString fresh("v", *key);
    EXPECT_EQ(fresh.GetByPtr(&read), TRUE);
    EXPECT_EQ(std::string(read), limit);
    EXPECT_EQ(fresh.Get(&kept), TRUE);
    EXPECT_EQ(std::string(kept), limit);
    ASSERT_EQ(RegistryEntry::SetRegistryDefaults(nullptr, nullptr, -1, 0), TRUE);
    EXPECT_EQ(fresh.GetByPtr(&read), FALSE);
    EXPECT_EQ(fresh.Set("x"), FALSE);
}

TEST_F(RegistryValueTest, TheBufferPointerStaysAndShowsTheLatestRead)
{
    PutText("v", "first");
    RegistryString value("v", *key);
    char const *one = nullptr, *two = nullptr;
    EXPECT_EQ(value.GetByPtr(&one), TRUE);
    PutText("v", "2nd");
    EXPECT_EQ(value.GetByPtr(&two), TRUE);
    EXPECT_EQ(one, two);
    EXPECT_STREQ(one, "2nd");
    Put("v", REG_BINARY, "raw"); // stored with no terminator
    EXPECT_EQ(value.GetByPtr(&one), TRUE);
    EXPECT_STREQ(one, "raw");
}

TEST_F(RegistryValueTest, UintsTakeFourBytesOrFewer)
{
    Put("two", REG_BINARY, "\x01\x02");
    Put("five", REG_BINARY, "12345");
    RegistryUint two("two", *key), five("five", *key), missing("missing", *key);
    unsigned int read = 0xFFFFFFFFu;
    EXPECT_EQ(two.Get(&read), TRUE);
    EXPECT_EQ(read, 0xFFFF0201u);
    read = 5;
    EXPECT_EQ(five.Get(&read), FALSE);
    EXPECT_EQ(missing.Get(&read), FALSE);
    EXPECT_EQ(read, 5u);
    EXPECT_EQ(missing.Get(nullptr), FALSE);
}

TEST_F(RegistryValueTest, RefusalsLeaveTheRegistryAndTheNumberAlone)
{
    SetDword(key_, "v", 3);
    RegistryKey readOnly(HKEY_CURRENT_USER, path_.c_str(), KEY_READ, FALSE);
    RegistryUint viaReadOnly("v", readOnly);
    EXPECT_EQ(viaReadOnly.Set(4u), FALSE);
    RegistryString textViaReadOnly("t", readOnly);
    EXPECT_EQ(textViaReadOnly.Set("x"), FALSE);
    EXPECT_EQ(Stored("v"), Bytes(REG_DWORD, std::string("\x03\0\0\0", 4)));
    EXPECT_EQ(Stored("t").second, "<missing>");

    RegistryKey absent(HKEY_CURRENT_USER, (path_ + "\\absent").c_str(), KEY_ALL_ACCESS, FALSE);
    RegistryInt underAbsent("v", absent);
    int number = 11;
    EXPECT_EQ(underAbsent.Get(&number), FALSE);
    EXPECT_EQ(underAbsent.Set(1), FALSE);
    EXPECT_EQ(number, 11);
    RegistryInt placeholder;
    EXPECT_EQ(placeholder.Get(&number), FALSE);
    EXPECT_EQ(placeholder.Set(1), FALSE);
    RegistryString nullText("n", *key);
    EXPECT_EQ(nullText.Set(nullptr), FALSE);
    EXPECT_EQ(nullText.GetByPtr(nullptr), FALSE);
}

TEST_F(RegistryValueTest, ValuesByNameLiveUnderTheDefaultPath)
{
    ASSERT_EQ(RegistryEntry::SetRegistryDefaults(path_.c_str(), HKEY_CURRENT_USER, 0, 0), TRUE);
    RegistryUint number("byName");
    EXPECT_EQ(number.Set(77u), TRUE);
    EXPECT_EQ(Stored("byName"), Bytes(REG_DWORD, std::string("M\0\0\0", 4)));
    RegistryReal real("real");
    EXPECT_EQ(real.Set(2.5, 6), TRUE);
    double read = 0;
    EXPECT_EQ(real.Get(&read), TRUE);
    EXPECT_EQ(read, 2.5);
}

TEST_F(RegistryValueTest, DumpWritesPathAndValue)
{
    PutText("s", "text");
    PutText("i", "-3");
    PutText("r", "0.25");
    SetDword(key_, "u", 255);
    // A file of the same machine root (a ScratchDir would bring a root of its own).
    std::string file = "C:\\tsutil_values_" + std::to_string(GetCurrentProcessId()) + ".txt";
    {
        CFile out;
        DiagDumpContext dc(&out, TRUE, file.c_str());
        RegistryString s("s", *key), noText("none", *key);
        RegistryInt i("i", *key), noInt("none", *key);
        RegistryReal r("r", *key);
        RegistryUint u("u", *key);
        RegistryEntry *none = nullptr;
        dc << none << "|" << key.get() << "|" << static_cast<RegistryEntry &>(*key) << "|";
        dc << &s << "|" << noText << "|" << i << "|" << noInt << "|" << r << "|" << u;
    }
    std::string base = "HKEY_CURRENT_USER\\" + path_ + "\\";
    std::string entries = "NULL|HKEY_CURRENT_USER\\" + path_ + "|HKEY_CURRENT_USER\\" + path_ + "|";
    EXPECT_EQ(tstest::ReadWholeFile(file), entries + base + "s = \r\n  text|" + base + "none = \r\n  (NULL)|" + base +
                                               "i = \r\n  -3|" + base + "none = \r\n  0|" + base + "r = \r\n  0.25|" +
                                               base + "u = \r\n  0xFF");
    DeleteFileA(file.c_str());
}

} // namespace
