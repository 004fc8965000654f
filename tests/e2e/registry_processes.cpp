// The registry shared between processes: two writers on one key, a writer
// killed in the middle of its writes, flushing, and tsreg's export and
// import.
#include "RegistryFixture.h"
#include "ScratchDir.h"

#if TSUTIL_TEST_SQLITE
#include <sqlite3.h>

#include <filesystem>
#endif

#include <cstdio>
#include <map>
#include <string>
#include <thread>
#include <vector>

using tstest::ChildProcess;
using tstest::RegistryTest;

namespace {

struct Value {
    DWORD type;
    std::string data;
    bool operator==(const Value &o) const { return type == o.type && data == o.data; }
};
using Tree = std::map<std::string, std::map<std::string, Value>>; // key path -> values

void ReadTree(HKEY k, const std::string &path, Tree &out)
{
    auto &values = out[path];
    char name[512];
    BYTE data[4096];
    for (DWORD i = 0;; ++i) {
        DWORD cch = sizeof name, cb = sizeof data, type = 0;
        LONG r = RegEnumValueA(k, i, name, &cch, nullptr, &type, data, &cb);
        if (r == ERROR_NO_MORE_ITEMS)
            break;
        ASSERT_EQ(r, ERROR_SUCCESS);
        values[name] = Value{type, std::string(reinterpret_cast<char *>(data), cb)};
    }
    for (DWORD i = 0; RegEnumKeyA(k, i, name, sizeof name) == ERROR_SUCCESS; ++i) {
        HKEY sub;
        ASSERT_EQ(RegOpenKeyExA(k, name, 0, KEY_READ, &sub), ERROR_SUCCESS);
        ReadTree(sub, path + "\\" + name, out);
        RegCloseKey(sub);
    }
}

bool Exists(HKEY k, const char *sub)
{
    HKEY h;
    if (RegOpenKeyExA(k, sub, 0, KEY_READ, &h) != ERROR_SUCCESS)
        return false;
    RegCloseKey(h);
    return true;
}

#if TSUTIL_TEST_SQLITE
// What SQLite's own check says of a database: "ok", or what is wrong.
std::string IntegrityOf(const std::string &dbPath)
{
    sqlite3 *db = nullptr;
    std::string result;
    if (sqlite3_open_v2(dbPath.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
        result = "cannot open: " + std::string(sqlite3_errmsg(db));
    } else {
        auto collect = [](void *out, int, char **row, char **) {
            *static_cast<std::string *>(out) += row[0] ? row[0] : "(null)";
            return 0;
        };
        char *error = nullptr;
        if (sqlite3_exec(db, "PRAGMA integrity_check", collect, &result, &error) != SQLITE_OK)
            result = "check failed: " + std::string(error ? error : "");
        sqlite3_free(error);
    }
    sqlite3_close(db);
    return result;
}
#endif

} // namespace

TEST_F(RegistryTest, TwoProcessesWriteAndReadTheSameKey)
{
    constexpr DWORD kCount = 150;
    ChildProcess a, b;
    ASSERT_TRUE(a.Start("regworker", {"exchange", path_, "a", "b", std::to_string(kCount)}));
    ASSERT_TRUE(b.Start("regworker", {"exchange", path_, "b", "a", std::to_string(kCount)}));
    EXPECT_EQ(a.Wait(60000), 0);
    EXPECT_EQ(b.Wait(60000), 0);
    for (const char *id : {"a", "b"}) {
        for (DWORD i = 0; i < kCount; ++i) {
            std::string name = std::string(id) + "-" + std::to_string(i);
            DWORD v = ~0u;
            ASSERT_EQ(tstest::GetDword(key_, name, v), ERROR_SUCCESS)
                << name;
            EXPECT_EQ(v, i);
        }
    }
}

TEST_F(RegistryTest, ReadsSeeTheWritesOfAnotherProcess)
{
    SetDword(key_, "v", 1);
    HKEY reader;
    ASSERT_EQ(RegOpenKeyExA(HKEY_CURRENT_USER, path_.c_str(), 0, KEY_READ, &reader), ERROR_SUCCESS);
    for (DWORD expected : {2u, 3u, 4u}) {
        DWORD v = 0;
        for (int i = 0; i < 3; ++i) // read more than once: what is kept must not go stale
            ASSERT_EQ(tstest::GetDword(reader, "v", v), ERROR_SUCCESS);
        EXPECT_EQ(v, expected - 1);
        ASSERT_EQ(tstest::RunChild("regworker", {"set", path_, "v", std::to_string(expected)}), 0);
        ASSERT_EQ(tstest::GetDword(reader, "v", v), ERROR_SUCCESS);
        EXPECT_EQ(v, expected);
    }
    RegCloseKey(reader);
}

TEST_F(RegistryTest, KilledWriterLeavesTheStoreWhole)
{
    TS_SKIP_ON_WINE("Wine keeps the registry in its server's memory, so a killed client cannot harm it");
    ChildProcess writer;
    ASSERT_TRUE(writer.Start("regworker", {"forever", path_}));
    // The registry itself says how far the writer has come.
    DWORD last = 0;
    for (DWORD waited = 0;; ++waited) {
        if (tstest::GetDword(key_, "last", last) == ERROR_SUCCESS &&
            last >= 100)
            break;
        ASSERT_LT(waited, tstest::kWaitBound) << "the writer does not write";
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    writer.Kill();
    EXPECT_EQ(writer.Wait(), 128 + 9);
#if TSUTIL_TEST_SQLITE
    EXPECT_EQ(IntegrityOf(root_.path() + "/registry.db"), "ok");
#endif

    // Every write that returned is there, in order; at most one more.
    ASSERT_EQ(tstest::GetDword(key_, "last", last), ERROR_SUCCESS);
    Tree tree;
    ReadTree(key_, "", tree);
    const auto &values = tree[""];
    ASSERT_GE(values.size(), last + 2u);
    ASSERT_LE(values.size(), last + 3u);
    for (DWORD i = 0; i < values.size() - 1; ++i) {
        auto it = values.find("v" + std::to_string(i));
        ASSERT_NE(it, values.end()) << i;
        EXPECT_EQ(it->second, (Value{REG_DWORD, std::string(reinterpret_cast<char *>(&i), 4)}));
    }

    // The store takes writes again, from this process and from another.
    SetDword(key_, "after", 1);
    EXPECT_EQ(tstest::RunChild("regworker", {"exchange", path_, "n", "m", "20"}), 0);
}

// A flush copies what the log holds into the database file and syncs it:
// the file alone, as a power cut would leave it without the unsynced log,
// has every write made before the flush, by this process and another.
TEST_F(RegistryTest, FlushedWritesAreInTheDatabaseFileItself)
{
    EXPECT_EQ(RegFlushKey(reinterpret_cast<HKEY>(static_cast<uintptr_t>(0x1234))), ERROR_INVALID_HANDLE);
    SetDword(key_, "mine", 7);
    ASSERT_EQ(tstest::RunChild("regworker", {"set", path_, "theirs", "5"}), 0);
    ASSERT_EQ(RegFlushKey(HKEY_CURRENT_USER), ERROR_SUCCESS) << "any key flushes the whole store";
    TS_SKIP_ON_WINE("Wine's registry is no SQLite database");
#if TSUTIL_TEST_SQLITE
    std::string copy = root_.path() + "/copy.db";
    std::filesystem::copy_file(root_.path() + "/registry.db", copy);
    EXPECT_EQ(IntegrityOf(copy), "ok");
    sqlite3 *db = nullptr;
    ASSERT_EQ(sqlite3_open_v2(copy.c_str(), &db, SQLITE_OPEN_READONLY, nullptr), SQLITE_OK);
    // The store keeps an ASCII name's fold as its upper case in UTF-16BE.
    auto count = [db](std::string ascii) {
        std::string foldedName;
        for (char c : ascii)
            foldedName += std::string(1, '\0') + c;
        sqlite3_stmt *q = nullptr;
        sqlite3_prepare_v2(db, "SELECT COUNT(*) FROM vals WHERE fold=?1", -1, &q, nullptr);
        sqlite3_bind_blob(q, 1, foldedName.data(), static_cast<int>(foldedName.size()), SQLITE_STATIC);
        int n = sqlite3_step(q) == SQLITE_ROW ? sqlite3_column_int(q, 0) : -1;
        sqlite3_finalize(q);
        return n;
    };
    EXPECT_EQ(count("MINE"), 1);
    EXPECT_EQ(count("THEIRS"), 1) << "the other process's write";
    sqlite3_close(db);
#endif
}

TEST_F(RegistryTest, TsregExportAndImportRoundTrip)
{
    HKEY tree = Create("Tree", nullptr, nullptr);
    HKEY sub = Create("Sub Key\\Deeper", nullptr, nullptr, tree);
    std::string big(300, '\0');
    for (size_t i = 0; i < big.size(); ++i)
        big[i] = static_cast<char>(i * 7);
    struct Item {
        HKEY key;
        const char *name;
        DWORD type;
        std::string data;
    } items[] = {
        {tree, "", REG_SZ, std::string("default\0", 8)},
        {tree, "quote\"and\\back", REG_SZ, std::string("C:\\Path \"x\" =;[y]\0", 18)},
        {tree, "empty", REG_SZ, std::string("\0", 1)},
        {tree, "count", REG_DWORD, std::string("\x2A\0\0\x80", 4)},
        {tree, "big", REG_BINARY, big},
        {tree, "nothing", REG_BINARY, std::string()},
        {sub, "multi", REG_MULTI_SZ, std::string("one\0two\0\0", 9)},
        {sub, "expand", REG_EXPAND_SZ, std::string("%SystemRoot%\\x\0", 15)},
        {sub, "qword", REG_QWORD, std::string("\1\2\3\4\5\6\7\x08", 8)},
        {sub, "none", REG_NONE, std::string("\xFF", 1)},
    };
    for (const Item &i : items)
        ASSERT_EQ(RegSetValueExA(i.key, i.name, 0, i.type, reinterpret_cast<const BYTE *>(i.data.data()),
                                 static_cast<DWORD>(i.data.size())),
                  ERROR_SUCCESS);
    RegCloseKey(sub);
    Tree before;
    ReadTree(tree, "", before);
    RegCloseKey(tree);

    std::string file = root_.path().empty() ? std::string("tsreg-roundtrip.reg") : root_.path() + "/tree.reg";
    std::string keyName = "HKCU\\" + path_ + "\\Tree";
    ASSERT_EQ(tstest::RunChild("tsreg", {"export", keyName, file, "/y"}), 0);
    ASSERT_EQ(tstest::RunChild("tsreg", {"delete", keyName, "/f"}), 0);
    EXPECT_FALSE(Exists(key_, "Tree"));
    ASSERT_EQ(tstest::RunChild("tsreg", {"import", file}), 0);
    remove(file.c_str());

    ASSERT_EQ(RegOpenKeyExA(key_, "Tree", 0, KEY_READ, &tree), ERROR_SUCCESS);
    Tree after;
    ReadTree(tree, "", after);
    RegCloseKey(tree);
    EXPECT_EQ(after, before);
    EXPECT_EQ(after.size(), 3u);
}

TEST_F(RegistryTest, TsregImportsTheRegistryEditorsFormat)
{
    Create("Old\\Gone");
    HKEY keep = Create("Keep");
    SetDword(keep, "stale", 1);
    SetDword(keep, "stays", 2);
    RegCloseKey(keep);

    std::string base = "HKEY_CURRENT_USER\\" + path_;
    std::string text = "Windows Registry Editor Version 5.00\r\n\r\n"
                       "; a comment\r\n"
                       "[-" + base + "\\Old]\r\n\r\n"
                       "[" + base + "\\Keep]\r\n"
                       "\"stale\"=-\r\n"
                       "\"text\"=\"a \\\"quoted\\\" \\\\ word\"\r\n"
                       "@=dword:0000ffff\r\n"
                       "\"wrapped\"=hex:01,02,03,\\\r\n"
                       "  04,05\r\n"
                       "\"multi\"=hex(7):61,00,00,00,62,00,00,00,00,00\r\n";
    // The registry editor writes UTF-16LE with a byte order mark.
    std::string bytes = "\xFF\xFE";
    for (char c : text) {
        bytes += c;
        bytes += '\0';
    }
    std::string file = root_.path().empty() ? std::string("tsreg-import.reg") : root_.path() + "/import.reg";
    ASSERT_TRUE(tstest::WriteWholeFile(file, bytes));
    ASSERT_EQ(tstest::RunChild("tsreg", {"import", file}), 0);

    EXPECT_FALSE(Exists(key_, "Old"));
    Tree tree;
    ASSERT_EQ(RegOpenKeyExA(key_, "Keep", 0, KEY_READ, &keep), ERROR_SUCCESS);
    ReadTree(keep, "", tree);
    RegCloseKey(keep);
    const auto &v = tree[""];
    EXPECT_EQ(v.count("stale"), 0u);
    EXPECT_EQ(v.at("stays"), (Value{REG_DWORD, std::string("\2\0\0\0", 4)}));
    EXPECT_EQ(v.at("text"), (Value{REG_SZ, std::string("a \"quoted\" \\ word\0", 18)}));
    EXPECT_EQ(v.at(""), (Value{REG_DWORD, std::string("\xFF\xFF\0\0", 4)}));
    EXPECT_EQ(v.at("wrapped"), (Value{REG_BINARY, std::string("\1\2\3\4\5", 5)}));
    EXPECT_EQ(v.at("multi"), (Value{REG_MULTI_SZ, std::string("a\0b\0\0", 5)}));

    // Failures give exit code 1.
    ASSERT_TRUE(tstest::WriteWholeFile(file, "not a registry file\r\n"));
    EXPECT_EQ(tstest::RunChild("tsreg", {"import", file}), 1);
    remove(file.c_str());
    EXPECT_EQ(tstest::RunChild("tsreg", {"query", "HKCU\\" + path_ + "\\Missing"}), 1);
    EXPECT_EQ(tstest::RunChild("tsreg", {"query", "HKCU\\" + path_ + "\\Keep", "/v", "missing"}), 1);
    EXPECT_EQ(tstest::RunChild("tsreg", {"add", "HKCU\\" + path_, "/v", "n", "/t", "REG_DWORD", "/d", "12x", "/f"}), 1);
    EXPECT_EQ(tstest::RunChild("tsreg", {"add", "HKXX\\" + path_, "/v", "n", "/f"}), 1);
    EXPECT_EQ(tstest::RunChild("tsreg", {"add", "HKCU\\" + path_, "/v", "n", "/t", "REG_DWORD", "/d", "0x10", "/f"}),
              0);
    DWORD n = 0;
    EXPECT_EQ(tstest::GetDword(key_, "n", n), ERROR_SUCCESS);
    EXPECT_EQ(n, 16u);
}
