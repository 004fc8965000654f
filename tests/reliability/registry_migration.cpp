// A registry store of the first schema (names and string data as bytes of
// code page 1252, made by that release's tsreg: fixtures/registry-v1.db) is
// converted to UTF-16 on its first open; a process killed in the middle of
// the conversion leaves the old store whole, and the next open converts it.
#include "ScratchDir.h"
#include "StoreIntegrity.h"
#include "TestSupport.h"

#include <sys/stat.h>

#include <filesystem>
#include <string>

using tstest::ChildProcess;
using tstest::ScopedMachineRoot;

namespace {

std::string Fixture(const std::string &name) { return std::string(TSUTIL_FIXTURES) + "/" + name; }

// One number that a query on the database gives, or -1.
long long Scalar(const std::string &db, const std::string &sql)
{
    sqlite3 *h = nullptr;
    long long v = -1;
    if (sqlite3_open_v2(db.c_str(), &h, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
        sqlite3_stmt *q = nullptr;
        if (sqlite3_prepare_v2(h, sql.c_str(), -1, &q, nullptr) == SQLITE_OK && sqlite3_step(q) == SQLITE_ROW)
            v = sqlite3_column_int64(q, 0);
        sqlite3_finalize(q);
    }
    sqlite3_close(h);
    return v;
}

// The first schema's tree, as that release's tsreg exported it.
void ExpectTheFixturesTree(const std::string &root)
{
    std::string out = root + "/out.reg";
    ASSERT_EQ(tstest::RunChild("tsreg", {"export", "HKLM\\Software", out, "/y"}), 0);
    EXPECT_EQ(tstest::ReadWholeFile(out), tstest::ReadWholeFile(Fixture("registry-v1-export.reg")));
    HKEY k;
    ASSERT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, reinterpret_cast<LPCWSTR>(u"SOFTWARE\\\u00e9cole\\\u00c6BLE"), 0,
                            KEY_READ, &k),
              ERROR_SUCCESS)
        << "accented names fold as the new schema folds them";
    RegCloseKey(k);
}

} // namespace

TEST(RegistryMigration, AStoreOfTheFirstSchemaIsConvertedOnFirstOpen)
{
    ScopedMachineRoot root;
    std::string db = root.path() + "/registry.db";
    std::filesystem::copy_file(Fixture("registry-v1.db"), db);
    ExpectTheFixturesTree(root.path());
    EXPECT_EQ(Scalar(db, "PRAGMA user_version"), 2);
    EXPECT_EQ(tstest::IntegrityOf(db), "ok");
}

TEST(RegistryMigration, AKilledConversionLeavesTheOldStoreAndTheNextOpenConverts)
{
    ScopedMachineRoot root;
    std::string db = root.path() + "/registry.db";
    std::filesystem::copy_file(Fixture("registry-v1.db"), db);
    // Enough values that the conversion spills into the log long before it
    // commits: the child is killed while the log grows.
    constexpr int kValues = 100000;
    {
        sqlite3 *h = nullptr;
        ASSERT_EQ(sqlite3_open(db.c_str(), &h), SQLITE_OK);
        // In a key of its own (HKCU\Bulk), away from the exported tree.
        std::string sql = "INSERT INTO keys(parent, name, fold, vol, mtime)"
                          " VALUES(2, CAST('Bulk' AS BLOB), CAST('BULK' AS BLOB), 0, 0);"
                          "WITH RECURSIVE n(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM n WHERE x < " +
                          std::to_string(kValues) +
                          ") INSERT INTO vals SELECT (SELECT id FROM keys WHERE name = CAST('Bulk' AS BLOB)),"
                          " CAST('V\xc9' || x AS BLOB), CAST('v\xe9' || x AS BLOB), x, 1, CAST('d\xe9' AS BLOB), 0"
                          " FROM n";
        ASSERT_EQ(sqlite3_exec(h, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(h);
        sqlite3_close(h);
    }
    ChildProcess opener;
    ASSERT_TRUE(opener.Start("tsreg", {"query", "HKLM\\Software"}));
    std::string wal = db + "-wal";
    ASSERT_TRUE(tstest::Eventually([&] {
        struct stat st;
        return stat(wal.c_str(), &st) == 0 && st.st_size > (256 << 10);
    }));
    opener.Kill();
    opener.Wait();

    EXPECT_EQ(Scalar(db, "PRAGMA user_version"), 1) << "the conversion did not commit";
    EXPECT_EQ(tstest::IntegrityOf(db), "ok");
    EXPECT_EQ(Scalar(db, "SELECT COUNT(*) FROM keys WHERE name = CAST('Caf\xe9' AS BLOB)"), 1)
        << "the old names are there as they were";

    ExpectTheFixturesTree(root.path());
    EXPECT_EQ(Scalar(db, "PRAGMA user_version"), 2);
    HKEY k;
    ASSERT_EQ(RegOpenKeyExA(HKEY_CURRENT_USER, "bulk", 0, KEY_READ, &k), ERROR_SUCCESS);
    DWORD values = 0;
    EXPECT_EQ(RegQueryInfoKeyA(k, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &values, nullptr, nullptr,
                               nullptr, nullptr),
              ERROR_SUCCESS);
    EXPECT_EQ(values, static_cast<DWORD>(kValues));
    BYTE data[16];
    DWORD cb = sizeof data;
    EXPECT_EQ(RegQueryValueExW(k, reinterpret_cast<LPCWSTR>(u"v\u00c97"), nullptr, nullptr, data, &cb), ERROR_SUCCESS);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(data), cb), std::string("d\0\xe9\0", 4));
    RegCloseKey(k);
}

// Two names of the first schema that differ only in the case of a letter
// beyond ASCII are one name now: the conversion refuses to merge them, and
// the store stays as it was, for its owner to rename one.
TEST(RegistryMigration, NamesThatNowFoldAlikeAreNotMerged)
{
    ScopedMachineRoot root;
    std::string db = root.path() + "/registry.db";
    std::filesystem::copy_file(Fixture("registry-v1.db"), db);
    {
        sqlite3 *h = nullptr;
        ASSERT_EQ(sqlite3_open(db.c_str(), &h), SQLITE_OK);
        ASSERT_EQ(sqlite3_exec(h,
                               "INSERT INTO keys(parent, name, fold, vol, mtime) SELECT parent,"
                               " CAST('CAF\xc9' AS BLOB), CAST('CAF\xc9' AS BLOB), 0, 0 FROM keys"
                               " WHERE name = CAST('Caf\xe9' AS BLOB)",
                               nullptr, nullptr, nullptr),
                  SQLITE_OK);
        sqlite3_close(h);
    }
    HKEY k;
    EXPECT_NE(RegOpenKeyExA(HKEY_LOCAL_MACHINE, "Software", 0, KEY_READ, &k), ERROR_SUCCESS);
    EXPECT_EQ(Scalar(db, "PRAGMA user_version"), 1);
    EXPECT_EQ(Scalar(db, "SELECT COUNT(*) FROM keys WHERE fold IN (CAST('CAF\xc9' AS BLOB), CAST('CAF\xe9' AS BLOB))"),
              2)
        << "both keys are there with the first schema's folds";
}
