// RegistryEntry and RegistryKey: paths from the class-wide defaults and
// their limits, the hive names, opening on demand through parents, the
// enumeration cursors and status numbers, and the first path and handle
// of a key shared by many threads.
#include "RegKey.h"
#include "RegValue.h"

#include "RegistryFixture.h"

#include <mbctype.h>

#include <string>
#include <vector>

namespace {

using tstest::RegistryTest;

// The protected paths and defaults, opened up for the tests.
struct Entry : RegistryEntry {
    using RegistryEntry::RegistryEntry;
    std::string Path() { return GetFullPath() ? GetFullPath() : "<null>"; }
    std::string WithBase() { return GetFullPathWithBase() ? GetFullPathWithBase() : "<null>"; }
    static int StringMax() { return regStringMaxLength; }
    static int NameMax() { return regEntryNameDefaultMaxLength; }
    static HKEY Hive() { return defaultBaseHive; }
    static std::string DefaultPath() { return defaultParentKeyPath; }
};

struct Key : RegistryKey {
    using RegistryKey::RegistryKey;
    std::string Path() { return GetFullPath() ? GetFullPath() : "<null>"; }
};

DWORD HandleCount()
{
    DWORD count = 0;
    EXPECT_TRUE(GetProcessHandleCount(GetCurrentProcess(), &count));
    return count;
}

// Each test starts and ends with the defaults of a fresh process.
class RegistryKeyTest : public RegistryTest {
protected:
    void TearDown() override
    {
        EXPECT_EQ(RegistryEntry::SetRegistryDefaults("", HKEY_LOCAL_MACHINE, 255, 255), TRUE);
        RegistryTest::TearDown();
    }
};

TEST_F(RegistryKeyTest, PathsTakeTheDefaultsOfTheirConstruction)
{
    ASSERT_EQ(RegistryEntry::SetRegistryDefaults("P\\Q", HKEY_CURRENT_USER, 0, 0), TRUE);
    Entry under("N", TRUE), bare("N", FALSE), base("", TRUE), empty("", FALSE), whole("A\\B", TRUE);
    Entry users(HKEY_USERS, "N", TRUE), placeholder;
    EXPECT_EQ(under.Path(), "P\\Q\\N");
    EXPECT_STREQ(under.GetLocalName(), "N");
    EXPECT_STREQ(under.GetParentKeyPath(), "P\\Q");
    EXPECT_EQ(under.GetBaseHiveHandle(), HKEY_CURRENT_USER);
    EXPECT_EQ(bare.Path(), "N");
    EXPECT_STREQ(bare.GetParentKeyPath(), "");
    EXPECT_EQ(base.Path(), "P\\Q");
    EXPECT_EQ(empty.Path(), "");
    EXPECT_EQ(empty.WithBase(), "HKEY_CURRENT_USER\\");
    EXPECT_STREQ(whole.GetLocalName(), "A\\B");
    EXPECT_EQ(users.WithBase(), "HKEY_USERS\\P\\Q\\N");
    EXPECT_EQ(placeholder.GetBaseHiveHandle(), HKEY_LOCAL_MACHINE);
    EXPECT_EQ(placeholder.GetLocalName(), nullptr);
    EXPECT_EQ(placeholder.Path(), "<null>");
    EXPECT_EQ(placeholder.WithBase(), "<null>");

    ASSERT_EQ(RegistryEntry::SetRegistryDefaults("R\\", nullptr, 0, 0), TRUE);
    Entry later("N", TRUE);
    EXPECT_EQ(later.Path(), "R\\\\N"); // no normalising of separators
    EXPECT_EQ(under.Path(), "P\\Q\\N");

    Key parent(HKEY_CURRENT_USER, "", KEY_READ, FALSE);
    Entry child("C", parent);
    EXPECT_EQ(child.Path(), "C");
    Entry unnamedHive(reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(0x80000004)), "N", FALSE);
    EXPECT_EQ(unnamedHive.WithBase(), "0x80000004\\N");
}

TEST_F(RegistryKeyTest, DefaultPathsAreLimitedTo254Characters)
{
    EXPECT_EQ(RegistryEntry::SetRegistryDefaults(nullptr, nullptr, 0, 0), TRUE);
    EXPECT_EQ(Entry::Hive(), HKEY_LOCAL_MACHINE);
    EXPECT_EQ(Entry::StringMax(), 255);

    std::string ok(254, 'p'), tooLong(255, 'p');
    EXPECT_EQ(RegistryEntry::SetRegistryDefaults(ok.c_str(), nullptr, 0, 0), TRUE);
    EXPECT_EQ(Entry::DefaultPath(), ok);
    EXPECT_EQ(RegistryEntry::SetRegistryDefaults(tooLong.c_str(), HKEY_USERS, 7, 9), FALSE);
    EXPECT_EQ(Entry::DefaultPath(), ok);
    EXPECT_EQ(Entry::Hive(), HKEY_LOCAL_MACHINE);
    EXPECT_EQ(Entry::StringMax(), 255);
    EXPECT_EQ(Entry::NameMax(), 255);

    // Characters, not bytes, are counted: 254 double-byte characters fit.
    int previous = _getmbcp();
    ASSERT_EQ(_setmbcp(932), 0);
    std::string wide, wider;
    for (int i = 0; i < 254; ++i)
        wide += "\x82\xa0";
    wider = wide + "\x82\xa0";
    EXPECT_EQ(RegistryEntry::SetRegistryDefaults(wide.c_str(), nullptr, 0, 0), TRUE);
    EXPECT_EQ(Entry::DefaultPath(), wide);
    EXPECT_EQ(RegistryEntry::SetRegistryDefaults(wider.c_str(), nullptr, 0, 0), FALSE);
    EXPECT_EQ(Entry::DefaultPath(), wide);
    _setmbcp(previous);
}

TEST_F(RegistryKeyTest, HivesByNameAndByHandle)
{
    HKEY const hives[] = {HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER, HKEY_CLASSES_ROOT,
                          HKEY_USERS,         HKEY_DYN_DATA,     HKEY_CURRENT_CONFIG};
    for (HKEY hive : hives)
        EXPECT_EQ(RegistryEntry::EquivalentBaseHiveHandle(RegistryEntry::EquivalentBaseHiveString(hive)), hive);
    EXPECT_EQ(RegistryEntry::EquivalentBaseHiveHandle("hkey_users"), HKEY_USERS);
    EXPECT_EQ(RegistryEntry::EquivalentBaseHiveHandle(""), nullptr);
    EXPECT_EQ(RegistryEntry::EquivalentBaseHiveHandle(nullptr), nullptr);
    HKEY unnamed = HKEY_PERFORMANCE_DATA, open = key_;
    EXPECT_EQ(RegistryEntry::EquivalentBaseHiveString(unnamed), nullptr);
    EXPECT_EQ(RegistryEntry::EquivalentBaseHiveString(open), nullptr);
}

TEST_F(RegistryKeyTest, KeysOpenOnDemandThroughTheirParentsAndCreateNothing)
{
    RegCloseKey(Create("child"));
    RegistryKey missing(HKEY_CURRENT_USER, (path_ + "\\absent").c_str(), KEY_READ, FALSE);
    EXPECT_EQ(missing.Open(), FALSE);
    EXPECT_EQ(missing.GetHandle(), RegistryEntry::HANDLE_NOT_AVAIL);
    HKEY probe;
    EXPECT_EQ(RegOpenKeyExA(key_, "absent", 0, KEY_READ, &probe), ERROR_FILE_NOT_FOUND);

    RegistryKey parent(HKEY_CURRENT_USER, path_.c_str(), KEY_READ, FALSE);
    RegistryKey child("child", parent, KEY_READ);
    EXPECT_EQ(child.Open(), TRUE);
    EXPECT_EQ(child.Close(), TRUE);
    EXPECT_EQ(child.Close(), FALSE); // nothing left to close
    EXPECT_NE(child.GetHandle(), RegistryEntry::HANDLE_NOT_AVAIL);
    RegistryKey same("", parent, KEY_READ);
    unsigned int cursor = 9;
    char name[16];
    EXPECT_EQ(same.GetStartSubkey(&cursor, name, sizeof name), 0);
    EXPECT_STREQ(name, "child");
    RegistryKey placeholder;
    EXPECT_EQ(placeholder.Open(), FALSE);
}

TEST_F(RegistryKeyTest, AKeyHoldsOneHandleAndOpensItsParentOnlyOnItsWay)
{
    TS_SKIP_ON_WINE("GetProcessHandleCount reports no handles");
    RegCloseKey(Create("child"));
    DWORD before = HandleCount();
    {
        RegistryKey parent(HKEY_CURRENT_USER, path_.c_str(), KEY_READ, FALSE);
        RegistryKey child("child", parent, KEY_READ);
        EXPECT_EQ(child.Open(), TRUE);
        EXPECT_EQ(HandleCount(), before + 2); // the parent was opened on the way
        EXPECT_EQ(child.Close(), TRUE);
        EXPECT_EQ(HandleCount(), before + 1); // the parent stays open
        EXPECT_NE(child.GetHandle(), RegistryEntry::HANDLE_NOT_AVAIL);
        EXPECT_EQ(child.Open(), TRUE);        // gives up the earlier handle
        EXPECT_EQ(HandleCount(), before + 2);
    }
    EXPECT_EQ(HandleCount(), before);
    {
        // An empty name opens the parent's key by its path, leaving the
        // parent object alone.
        RegistryKey parent(HKEY_CURRENT_USER, path_.c_str(), KEY_READ, FALSE);
        RegistryKey same("", parent, KEY_READ);
        EXPECT_EQ(same.Open(), TRUE);
        EXPECT_EQ(HandleCount(), before + 1);
    }
    EXPECT_EQ(HandleCount(), before);
}

TEST_F(RegistryKeyTest, TheHiveItselfOpensWhenThePathIsEmpty)
{
    ASSERT_EQ(RegistryEntry::SetRegistryDefaults(nullptr, HKEY_CURRENT_USER, 0, 0), TRUE);
    RegistryKey hive("", KEY_READ, TRUE);
    unsigned int cursor = 0;
    CString name;
    EXPECT_EQ(hive.GetStartSubkey(&cursor, &name), 0);
    EXPECT_EQ(cursor, 1u);
}

TEST_F(RegistryKeyTest, WalksMoveTheCursorAndStartOverPastTheEnd)
{
    for (char const *sub : {"A", "B", "C"})
        RegCloseKey(Create(sub));
    for (char const *value : {"v0", "v1", "v2"})
        SetDword(key_, value, 1);
    RegistryKey key(HKEY_CURRENT_USER, path_.c_str(), KEY_READ, FALSE);
    unsigned int cursor = 7;
    CString name;
    EXPECT_EQ(key.GetStartSubkey(&cursor, &name), 0);
    EXPECT_EQ(std::string(name), "A");
    EXPECT_EQ(cursor, 1u);
    EXPECT_EQ(key.GetNextSubkey(&cursor, &name), 0);
    EXPECT_EQ(std::string(name), "B");
    EXPECT_EQ(key.GetNextSubkey(&cursor, &name), 0);
    EXPECT_EQ(std::string(name), "C");
    EXPECT_EQ(cursor, 3u);
    EXPECT_EQ(key.GetNextSubkey(&cursor, &name), ERROR_NO_MORE_ITEMS);
    EXPECT_EQ(cursor, 0u);
    EXPECT_TRUE(name.IsEmpty());
    EXPECT_EQ(key.GetNextSubkey(&cursor, &name), 0);
    EXPECT_EQ(std::string(name), "A");
    EXPECT_EQ(cursor, 1u);

    char buffer[8];
    cursor = 2;
    EXPECT_EQ(key.GetNextValue(&cursor, buffer, sizeof buffer), 0);
    EXPECT_STREQ(buffer, "v2");
    EXPECT_EQ(cursor, 3u);
    EXPECT_EQ(key.GetStartValue(&cursor, buffer, sizeof buffer), 0);
    EXPECT_STREQ(buffer, "v0");

    RegistryKey leaf("A", key, KEY_READ);
    EXPECT_EQ(leaf.GetStartSubkey(&cursor, &name), ERROR_NO_MORE_ITEMS);
    EXPECT_EQ(cursor, 0u);
    RegistryKey absent("absent", key, KEY_READ);
    EXPECT_NE(absent.GetStartValue(&cursor, &name), 0);
    EXPECT_EQ(cursor, 0u);
    EXPECT_EQ(key.GetStartSubkey(nullptr, &name), ERROR_INVALID_PARAMETER);
    cursor = 5;
    EXPECT_EQ(key.GetStartSubkey(&cursor, static_cast<char *>(nullptr), 8), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(cursor, 0u);
}

TEST_F(RegistryKeyTest, TheCapacityOfANameCountsItsTerminator)
{
    std::string fits(254, 'f'), over(255, 'o');
    SetDword(key_, fits.c_str(), 1);
    RegistryKey key(HKEY_CURRENT_USER, path_.c_str(), KEY_READ, FALSE);
    unsigned int cursor = 0;
    CString name;
    EXPECT_EQ(key.GetStartValue(&cursor, &name), 0);
    EXPECT_EQ(std::string(name), fits);
    SetDword(key_, over.c_str(), 2);
    EXPECT_EQ(key.GetNextValue(&cursor, &name), ERROR_MORE_DATA);
    EXPECT_EQ(cursor, 0u);
    EXPECT_TRUE(name.IsEmpty());

    // The capacity is read at each use.
    ASSERT_EQ(RegistryEntry::SetRegistryDefaults(nullptr, nullptr, 0, 256), TRUE);
    cursor = 1;
    EXPECT_EQ(key.GetNextValue(&cursor, &name), 0);
    EXPECT_EQ(std::string(name), over);
    ASSERT_EQ(RegistryEntry::SetRegistryDefaults(nullptr, nullptr, 0, -4), TRUE);
    EXPECT_NE(key.GetStartValue(&cursor, &name), 0);
    EXPECT_TRUE(name.IsEmpty());
}

TEST_F(RegistryKeyTest, ManyThreadsBuildValuesUnderOneUnopenedKey)
{
    SetDword(key_, "shared", 7);
    RegistryKey shared(HKEY_CURRENT_USER, path_.c_str(), KEY_READ, FALSE); // neither path nor handle made yet
    DWORD before = HandleCount();
    std::vector<HANDLE> threads;
    for (int t = 0; t < 8; ++t)
        threads.push_back(tstest::StartThread([&shared] {
            unsigned bad = 0;
            for (int i = 0; i < 50; ++i) {
                RegistryUint value("shared", shared);
                unsigned int read = 0;
                if (value.Get(&read) != TRUE || read != 7)
                    ++bad;
            }
            return bad;
        }));
    for (HANDLE thread : threads)
        EXPECT_EQ(tstest::ThreadResult(thread), 0u);
    if (before != 0) { // a leg that counts handles: one won, the others were closed
        EXPECT_EQ(HandleCount(), before + 1);
    }
}

} // namespace
