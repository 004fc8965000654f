// Registry keys: opening, creating, closing, deleting, enumerating, the
// limits on names, access masks and stale handles.
#include "RegistryFixture.h"

#include <string>
#include <vector>

using tstest::RegistryTest;

namespace {

std::vector<std::string> Subkeys(HKEY k)
{
    std::vector<std::string> names;
    char name[300];
    for (DWORD i = 0; RegEnumKeyA(k, i, name, sizeof name) == ERROR_SUCCESS; ++i)
        names.push_back(name);
    return names;
}

} // namespace

TEST_F(RegistryTest, CreateMakesEveryLevelAndOpenNeverCreates)
{
    HKEY k;
    EXPECT_EQ(RegOpenKeyExA(key_, "One\\Two\\Three", 0, KEY_READ, &k), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RegOpenKeyExA(key_, "One", 0, KEY_READ, &k), ERROR_FILE_NOT_FOUND) << "a failed open made nothing";

    DWORD disposition = 0;
    HKEY three = Create("One\\Two\\Three", &disposition);
    EXPECT_EQ(disposition, static_cast<DWORD>(REG_CREATED_NEW_KEY));
    HKEY again = Create("one\\TWO\\three", &disposition);
    EXPECT_EQ(disposition, static_cast<DWORD>(REG_OPENED_EXISTING_KEY));
    EXPECT_NE(again, three) << "each open gives a handle of its own";

    // Names keep the case they were created with and match without it.
    ASSERT_EQ(RegOpenKeyExA(key_, "ONE\\two", 0, KEY_READ, &k), ERROR_SUCCESS);
    EXPECT_EQ(Subkeys(k), std::vector<std::string>{"Three"});
    RegCloseKey(k);
    EXPECT_EQ(Subkeys(key_), std::vector<std::string>{"One"});

    // A value written through one handle is read through the other.
    SetDword(three, "v", 7);
    DWORD v = 0;
    EXPECT_EQ(tstest::GetDword(again, "V", v), ERROR_SUCCESS);
    EXPECT_EQ(v, 7u);
    RegCloseKey(three);
    RegCloseKey(again);
}

TEST_F(RegistryTest, PathSyntax)
{
    HKEY k;
    DWORD disposition;
    EXPECT_EQ(RegCreateKeyExA(key_, "\\Lead", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &k, &disposition),
              ERROR_BAD_PATHNAME);
    EXPECT_EQ(RegOpenKeyExA(key_, "\\Lead", 0, KEY_READ, &k), ERROR_BAD_PATHNAME);

    RegCloseKey(Create("Trail\\"));
    ASSERT_EQ(RegOpenKeyExA(key_, "Trail", 0, KEY_READ, &k), ERROR_SUCCESS);
    RegCloseKey(k);

    // "/" is an ordinary character of a name, not a separator.
    RegCloseKey(Create("a/b"));
    EXPECT_EQ(RegOpenKeyExA(key_, "a", 0, KEY_READ, &k), ERROR_FILE_NOT_FOUND);
    ASSERT_EQ(RegOpenKeyExA(key_, "A/B", 0, KEY_READ, &k), ERROR_SUCCESS);
    RegCloseKey(k);
}

TEST_F(RegistryTest, EmptySubkeyOpensTheSameKey)
{
    HKEY k;
    ASSERT_EQ(RegOpenKeyExA(key_, "", 0, KEY_READ, &k), ERROR_SUCCESS);
    EXPECT_NE(k, key_);
    SetDword(key_, "x", 3);
    DWORD cb = 0;
    EXPECT_EQ(RegQueryValueExA(k, "x", nullptr, nullptr, nullptr, &cb), ERROR_SUCCESS);
    EXPECT_EQ(cb, 4u);
    HKEY k2;
    ASSERT_EQ(RegOpenKeyExA(k, nullptr, 0, KEY_READ, &k2), ERROR_SUCCESS);
    RegCloseKey(k2);
    RegCloseKey(k);

    // A hive opens as itself.
    ASSERT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, "", 0, KEY_READ, &k), ERROR_SUCCESS);
    EXPECT_EQ(k, HKEY_LOCAL_MACHINE);
    EXPECT_EQ(RegCloseKey(k), ERROR_SUCCESS);
}

TEST_F(RegistryTest, NameLengthLimits)
{
    std::string name255(255, 'k');
    HKEY k = Create(name255.c_str());
    RegCloseKey(k);
    char buf[300];
    ASSERT_EQ(RegEnumKeyA(key_, 0, buf, sizeof buf), ERROR_SUCCESS);
    EXPECT_EQ(std::string(buf), name255);

    std::string value16383(16383, 'v'), value16384(16384, 'v');
    DWORD d = 1;
    EXPECT_EQ(RegSetValueExA(key_, value16383.c_str(), 0, REG_DWORD, reinterpret_cast<BYTE *>(&d), 4),
              ERROR_SUCCESS);
    EXPECT_EQ(RegSetValueExA(key_, value16384.c_str(), 0, REG_DWORD, reinterpret_cast<BYTE *>(&d), 4),
              ERROR_INVALID_PARAMETER);

    TS_SKIP_ON_WINE("Wine accepts key names longer than 255 characters");
    std::string name256(256, 'k');
    EXPECT_EQ(RegCreateKeyExA(key_, name256.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &k, nullptr),
              ERROR_INVALID_PARAMETER);
    EXPECT_EQ(RegCreateKeyExA(key_, ("x\\" + name256).c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &k, nullptr),
              ERROR_INVALID_PARAMETER);
    EXPECT_EQ(RegOpenKeyExA(key_, "x", 0, KEY_READ, &k), ERROR_FILE_NOT_FOUND) << "nothing of the path was made";
}

TEST_F(RegistryTest, SubkeysEnumerateSortedWithoutCase)
{
    for (const char *name : {"beta", "Alpha", "gamma", "ALPHA2", "Delta"})
        RegCloseKey(Create(name));
    EXPECT_EQ(Subkeys(key_), (std::vector<std::string>{"Alpha", "ALPHA2", "beta", "Delta", "gamma"}));

    // RegEnumKeyA: the capacity counts the terminator.
    char buf[8];
    EXPECT_EQ(RegEnumKeyA(key_, 2, buf, 5), ERROR_SUCCESS);
    EXPECT_STREQ(buf, "beta");
    EXPECT_EQ(RegEnumKeyA(key_, 2, buf, 4), ERROR_MORE_DATA);
    EXPECT_EQ(RegEnumKeyA(key_, 5, buf, sizeof buf), ERROR_NO_MORE_ITEMS);

    // RegEnumKeyExA: capacity in, length without the terminator out.
    DWORD cch = 5;
    FILETIME ft{};
    EXPECT_EQ(RegEnumKeyExA(key_, 2, buf, &cch, nullptr, nullptr, nullptr, &ft), ERROR_SUCCESS);
    EXPECT_EQ(cch, 4u);
    EXPECT_NE(ft.dwHighDateTime, 0u);
    cch = 4;
    EXPECT_EQ(RegEnumKeyExA(key_, 2, buf, &cch, nullptr, nullptr, nullptr, nullptr), ERROR_MORE_DATA);
    cch = sizeof buf;
    EXPECT_EQ(RegEnumKeyExA(key_, 9, buf, &cch, nullptr, nullptr, nullptr, nullptr), ERROR_NO_MORE_ITEMS);

    TS_SKIP_ON_WINE("Wine sorts subkeys by their lower-case names");
    // By the upper-cased names: "_" (0x5F) and "[" (0x5B) come after the letters.
    for (const char *name : {"a_b", "ab", "[x", "aa", "B"})
        RegCloseKey(Create(name));
    EXPECT_EQ(Subkeys(key_), (std::vector<std::string>{"aa", "ab", "Alpha", "ALPHA2", "a_b", "B", "beta", "Delta",
                                                       "gamma", "[x"}));
}

TEST_F(RegistryTest, ClassIsRecordedForCreatedKeys)
{
    HKEY k = Create("Classy", nullptr, "MyClass");
    char cls[16];
    DWORD cch = sizeof cls;
    ASSERT_EQ(RegQueryInfoKeyA(k, cls, &cch, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                               nullptr),
              ERROR_SUCCESS);
    EXPECT_STREQ(cls, "MyClass");
    EXPECT_EQ(cch, 7u);
    cch = 7;
    EXPECT_EQ(RegQueryInfoKeyA(k, cls, &cch, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                               nullptr),
              ERROR_MORE_DATA);
    RegCloseKey(k);

    char name[16];
    DWORD cchName = sizeof name;
    cch = sizeof cls;
    ASSERT_EQ(RegEnumKeyExA(key_, 0, name, &cchName, nullptr, cls, &cch, nullptr), ERROR_SUCCESS);
    EXPECT_STREQ(cls, "MyClass");
    cchName = sizeof name;
    cch = 3;
    EXPECT_EQ(RegEnumKeyExA(key_, 0, name, &cchName, nullptr, cls, &cch, nullptr), ERROR_MORE_DATA);

    TS_SKIP_ON_WINE("Wine replaces the class of a key that already exists");
    RegCloseKey(Create("Classy", nullptr, "Other"));
    cch = sizeof cls;
    cchName = sizeof name;
    ASSERT_EQ(RegEnumKeyExA(key_, 0, name, &cchName, nullptr, cls, &cch, nullptr), ERROR_SUCCESS);
    EXPECT_STREQ(cls, "MyClass");
}

TEST_F(RegistryTest, DeleteKey)
{
    RegCloseKey(Create("Parent\\Child"));
    EXPECT_EQ(RegDeleteKeyA(key_, "Parent"), ERROR_ACCESS_DENIED) << "a key with subkeys stays";
    EXPECT_EQ(RegDeleteKeyA(key_, "Missing"), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RegDeleteKeyA(key_, nullptr), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(RegDeleteKeyA(HKEY_CURRENT_USER, ""), ERROR_ACCESS_DENIED) << "a hive stays";

    HKEY child;
    ASSERT_EQ(RegOpenKeyExA(key_, "Parent\\Child", 0, KEY_ALL_ACCESS, &child), ERROR_SUCCESS);
    SetDword(child, "v", 1);
    EXPECT_EQ(RegDeleteKeyA(child, ""), ERROR_SUCCESS) << "an empty name deletes the handle's own key";
    RegCloseKey(child);
    EXPECT_EQ(RegDeleteKeyA(key_, "PARENT"), ERROR_SUCCESS);
    EXPECT_EQ(Subkeys(key_), std::vector<std::string>{});

    // A key made again under the same name starts without the old values.
    DWORD disposition;
    child = Create("Parent\\Child", &disposition);
    EXPECT_EQ(disposition, static_cast<DWORD>(REG_CREATED_NEW_KEY));
    EXPECT_EQ(RegQueryValueExA(child, "v", nullptr, nullptr, nullptr, nullptr), ERROR_FILE_NOT_FOUND);
    RegCloseKey(child);
}

TEST_F(RegistryTest, CallsThroughAStaleHandleFailWithKeyDeleted)
{
    HKEY stale = Create("Gone");
    SetDword(stale, "v", 1);
    EXPECT_EQ(RegDeleteKeyA(key_, "Gone"), ERROR_SUCCESS);
    RegCloseKey(Create("Gone")); // a new key of the same name is another key

    DWORD v = 0, n;
    char buf[16];
    HKEY k;
    EXPECT_EQ(tstest::GetDword(stale, "v", v), ERROR_KEY_DELETED);
    EXPECT_EQ(RegSetValueExA(stale, "v", 0, REG_DWORD, reinterpret_cast<BYTE *>(&v), 4), ERROR_KEY_DELETED);
    EXPECT_EQ(RegDeleteValueA(stale, "v"), ERROR_KEY_DELETED);
    EXPECT_EQ(RegEnumKeyA(stale, 0, buf, sizeof buf), ERROR_KEY_DELETED);
    n = sizeof buf;
    EXPECT_EQ(RegEnumValueA(stale, 0, buf, &n, nullptr, nullptr, nullptr, nullptr), ERROR_KEY_DELETED);
    EXPECT_EQ(RegQueryInfoKeyA(stale, nullptr, nullptr, nullptr, &n, nullptr, nullptr, nullptr, nullptr, nullptr,
                               nullptr, nullptr),
              ERROR_KEY_DELETED);
    EXPECT_EQ(RegOpenKeyExA(stale, "", 0, KEY_READ, &k), ERROR_KEY_DELETED);
    EXPECT_EQ(RegCreateKeyExA(stale, "sub", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &k, nullptr), ERROR_KEY_DELETED);
    EXPECT_EQ(RegCloseKey(stale), ERROR_SUCCESS);
}

TEST_F(RegistryTest, BadHandlesFailWithInvalidHandle)
{
    HANDLE event = CreateEventA(nullptr, TRUE, FALSE, nullptr); // first, so it cannot take the closed value
    HKEY closed = Create("Closed");
    EXPECT_EQ(RegCloseKey(closed), ERROR_SUCCESS);
    DWORD v = 0;
    HKEY k;
    char buf[8];
    for (HKEY bad : {static_cast<HKEY>(nullptr), closed, reinterpret_cast<HKEY>(0x12345678),
                     reinterpret_cast<HKEY>(event), reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(0x80000007u))}) {
        EXPECT_EQ(RegOpenKeyExA(bad, "x", 0, KEY_READ, &k), ERROR_INVALID_HANDLE) << bad;
        EXPECT_EQ(RegCreateKeyExA(bad, "x", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &k, nullptr),
                  ERROR_INVALID_HANDLE);
        EXPECT_EQ(tstest::GetDword(bad, "v", v), ERROR_INVALID_HANDLE);
        EXPECT_EQ(RegSetValueExA(bad, "v", 0, REG_DWORD, reinterpret_cast<BYTE *>(&v), 4), ERROR_INVALID_HANDLE);
        EXPECT_EQ(RegEnumKeyA(bad, 0, buf, sizeof buf), ERROR_INVALID_HANDLE);
        EXPECT_EQ(RegDeleteKeyA(bad, "x"), ERROR_INVALID_HANDLE);
    }
    for (HKEY bad : {static_cast<HKEY>(nullptr), closed, reinterpret_cast<HKEY>(0x12345678)})
        EXPECT_EQ(RegCloseKey(bad), ERROR_INVALID_HANDLE) << bad;
    CloseHandle(event);
    EXPECT_EQ(RegCloseKey(HKEY_LOCAL_MACHINE), ERROR_SUCCESS);
}

TEST_F(RegistryTest, AccessMasksAreHonoured)
{
    SetDword(key_, "v", 5);
    const LONG ok = ERROR_SUCCESS, denied = ERROR_ACCESS_DENIED, none = ERROR_NO_MORE_ITEMS;
    // The writer comes last: it deletes the value.
    const struct {
        REGSAM access;
        LONG query, set, enumKey, enumValue, deleteValue;
    } cases[] = {{KEY_READ, ok, denied, none, ok, denied},
                 {GENERIC_READ, ok, denied, none, ok, denied},
                 {KEY_SET_VALUE, denied, ok, denied, denied, ok}};
    for (const auto &c : cases) {
        HKEY k;
        ASSERT_EQ(RegOpenKeyExA(HKEY_CURRENT_USER, path_.c_str(), 0, c.access, &k), ERROR_SUCCESS);
        DWORD v = 5, n = 16;
        char buf[16];
        EXPECT_EQ(tstest::GetDword(k, "v", v), c.query) << std::hex << c.access;
        EXPECT_EQ(RegSetValueExA(k, "v", 0, REG_DWORD, reinterpret_cast<BYTE *>(&v), 4), c.set) << std::hex << c.access;
        EXPECT_EQ(RegEnumKeyA(k, 0, buf, sizeof buf), c.enumKey) << std::hex << c.access;
        EXPECT_EQ(RegEnumValueA(k, 0, buf, &n, nullptr, nullptr, nullptr, nullptr),
                  c.enumValue) << std::hex << c.access;
        EXPECT_EQ(RegDeleteValueA(k, "v"), c.deleteValue) << std::hex << c.access;
        if (c.access == KEY_READ) {
            // Subkeys are made and removed under the rights of the key, not
            // of the handle.
            HKEY sub;
            ASSERT_EQ(RegCreateKeyExA(k, "Sub", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &sub, nullptr), ERROR_SUCCESS);
            RegCloseKey(sub);
            EXPECT_EQ(RegDeleteKeyA(k, "Sub"), ERROR_SUCCESS);
        }
        RegCloseKey(k);
    }
}

TEST_F(RegistryTest, VolatileKeysTakeOnlyVolatileSubkeys)
{
    HKEY vol, k;
    ASSERT_EQ(RegCreateKeyExA(key_, "Vol", 0, nullptr, REG_OPTION_VOLATILE, KEY_ALL_ACCESS, nullptr, &vol, nullptr),
              ERROR_SUCCESS);
    EXPECT_EQ(RegCreateKeyExA(vol, "Plain", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &k, nullptr),
              ERROR_CHILD_MUST_BE_VOLATILE);
    ASSERT_EQ(RegCreateKeyExA(vol, "AlsoVol", 0, nullptr, REG_OPTION_VOLATILE, KEY_ALL_ACCESS, nullptr, &k, nullptr),
              ERROR_SUCCESS);
    RegCloseKey(k);
    RegCloseKey(vol);
}

TEST_F(RegistryTest, QueryInfoKeyCountsAndLongestLengths)
{
    RegCloseKey(Create("abc", nullptr, "ClassText"));
    RegCloseKey(Create("abcdefg"));
    BYTE blob[40] = {};
    ASSERT_EQ(RegSetValueExA(key_, "blob", 0, REG_BINARY, blob, sizeof blob), ERROR_SUCCESS);
    ASSERT_EQ(RegSetValueExA(key_, "longer name", 0, REG_BINARY, blob, 3), ERROR_SUCCESS);
    DWORD subkeys, maxSub, maxClass, values, maxName, maxData;
    FILETIME ft{};
    ASSERT_EQ(RegQueryInfoKeyA(key_, nullptr, nullptr, nullptr, &subkeys, &maxSub, &maxClass, &values, &maxName,
                               &maxData, nullptr, &ft),
              ERROR_SUCCESS);
    EXPECT_EQ(subkeys, 2u);
    EXPECT_EQ(maxSub, 7u);
    EXPECT_EQ(maxClass, 9u);
    EXPECT_EQ(values, 2u);
    EXPECT_EQ(maxName, 11u);
    EXPECT_EQ(maxData, 40u);
    EXPECT_NE(ft.dwHighDateTime, 0u);
}

// Names match without case by the upper case of all of Unicode, not ASCII's
// alone, on every call that takes one.
TEST_F(RegistryTest, NamesMatchWithoutCaseBeyondAscii)
{
    const struct {
        const char16_t *created, *other;
    } cases[] = {
        {u"\u00c4BC", u"\u00e4bc"},                                            // A-umlaut
        {u"\u041a\u0418\u0420\u0418\u041b\u041b", u"\u043a\u0438\u0440\u0438\u043b\u043b"}, // Cyrillic
        {u"\u0391\u0398\u0389\u039d\u0391", u"\u03b1\u03b8\u03ae\u03bd\u03b1"},                       // Greek, with a tonos
        {u"\u10a0\u1e00\u24b6\uff21", u"\u2d00\u1e01\u24d0\uff41"}, // Georgian, Latin extended, circled, fullwidth
    };
    auto w = [](const char16_t *s) { return reinterpret_cast<LPCWSTR>(s); };
    for (const auto &c : cases) {
        SCOPED_TRACE(static_cast<int>(&c - cases));
        HKEY k = nullptr, again = nullptr;
        DWORD disposition = 0;
        ASSERT_EQ(RegCreateKeyExW(key_, w(c.created), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &k, &disposition),
                  ERROR_SUCCESS);
        EXPECT_EQ(disposition, static_cast<DWORD>(REG_CREATED_NEW_KEY));
        ASSERT_EQ(RegCreateKeyExW(key_, w(c.other), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &again, &disposition),
                  ERROR_SUCCESS);
        EXPECT_EQ(disposition, static_cast<DWORD>(REG_OPENED_EXISTING_KEY));
        RegCloseKey(again);
        DWORD v = 7;
        ASSERT_EQ(RegSetValueExW(k, w(c.created), 0, REG_DWORD, reinterpret_cast<const BYTE *>(&v), 4), ERROR_SUCCESS);
        DWORD got = 0, cb = 4;
        EXPECT_EQ(RegQueryValueExW(k, w(c.other), nullptr, nullptr, reinterpret_cast<BYTE *>(&got), &cb),
                  ERROR_SUCCESS);
        EXPECT_EQ(RegDeleteValueW(k, w(c.other)), ERROR_SUCCESS);
        RegCloseKey(k);
        ASSERT_EQ(RegOpenKeyExW(key_, w(c.other), 0, KEY_READ, &k), ERROR_SUCCESS);
        RegCloseKey(k);
        EXPECT_EQ(RegDeleteKeyW(key_, w(c.other)), ERROR_SUCCESS);
        EXPECT_EQ(RegOpenKeyExW(key_, w(c.created), 0, KEY_READ, &k), ERROR_FILE_NOT_FOUND);
    }
    // Upper-case mappings that do not go both ways are not in Windows' table:
    // these names stay apart.
    const char16_t *apart[][2] = {
        {u"\u00df", u"SS"},             // sharp s has no one-letter upper case
        {u"\u03bb\u03bf\u03b3\u03bf\u03c2", u"\u039b\u039f\u0393\u039f\u03a3"}, // final sigma
        {u"\u0131", u"I"},              // dotless i
    };
    for (const auto &names : apart) {
        for (const char16_t *name : names) {
            HKEY k = nullptr;
            DWORD disposition = 0;
            ASSERT_EQ(RegCreateKeyExW(key_, w(name), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &k, &disposition),
                      ERROR_SUCCESS);
            EXPECT_EQ(disposition, static_cast<DWORD>(REG_CREATED_NEW_KEY));
            RegCloseKey(k);
        }
    }
}
