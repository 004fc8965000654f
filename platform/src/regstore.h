// The registry store: one SQLite database per machine root, shared by all
// processes of that root.
//
// Files: $ROOT/registry.db (WAL mode, synchronous NORMAL, mode 0600) and
// $ROOT/registry.db-seq, the shared change counter (regseq.h). Every write
// runs as one transaction under the counter's writers' lock, and a reader
// keeps what it read while the counter stays where it was. A process
// killed at any moment leaves the database consistent, and a call that
// returned success is in the write-ahead log, where the death of any
// process cannot take it. The disk is waited for only by flush (and a
// clean close of the store), and by SQLite's own checkpoints, which copy
// the log into the database after every thousand or so pages written:
// what these have synced survives a power cut.
//
// Results are Win32 error numbers. Names and classes are UTF-16 and
// compare by their upper-case fold (casefold.h); value data is kept as the
// bytes given, string types in the UTF-16LE of the W calls. A store of the
// first schema (text of code page 1252) is converted on first open, in the
// transaction that opens it.
//
// Units: regopen.cpp (opening, fork), regschema.cpp (schema, migration,
// hives), regkeys.cpp, regvalues.cpp, regenum.cpp (listings and their
// cache), regsql.* (SQL text, statements, name forms), regtxn.h (writes).
#pragma once

#include "regseq.h"

#include <windows.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace tsp {
namespace reg {

using KeyId = int64_t;
struct Prepared; // regsql.h

// The key ids of the predefined hives: the low bits of the hive value + 1.
// 0 when the value names no hive of this store.
KeyId hiveKeyId(uint32_t hiveValue);
constexpr KeyId kLastHiveId = 7;

// Limits, in UTF-16 units.
constexpr size_t kMaxKeyNameLength = 255;
constexpr size_t kMaxValueNameLength = 16383;

using Name = std::u16string;

struct SubkeyEntry {
    Name name;
    Name cls;
    int64_t lastWrite = 0; // FILETIME units
};

struct ValueEntry {
    Name name;
    DWORD type = 0;
    std::string data;
    int64_t lastWrite = 0; // FILETIME units
};

// Name lengths in units, data sizes in bytes.
struct KeyInfo {
    Name cls;
    DWORD subkeys = 0, maxSubkeyLen = 0, maxClassLen = 0;
    DWORD values = 0, maxValueNameLen = 0, maxValueLen = 0;
    int64_t lastWrite = 0;
};

class Store {
public:
    // The store of the machine root that the environment names now, opened
    // on first use. Null with *err set when it cannot be opened.
    static std::shared_ptr<Store> current(LONG *err);

    ~Store();
    Store(const Store &) = delete;
    Store &operator=(const Store &) = delete;

    const std::string &root() const { return root_; }

    // Finds path (levels already split and checked) below base.
    LONG openKey(KeyId base, const std::vector<Name> &path, KeyId *out);
    // As openKey, creating the missing levels with cls (null: no class).
    LONG createKey(KeyId base, const std::vector<Name> &path, const Name *cls, bool isVolatile,
                   KeyId *out, DWORD *disposition);
    // Removes path below base (empty: base itself); the key must have no
    // subkeys and must not be a hive.
    LONG deleteKey(KeyId base, const std::vector<Name> &path);

    LONG queryValue(KeyId key, const Name &name, DWORD *type, std::string *data);
    LONG setValue(KeyId key, const Name &name, DWORD type, const void *data, size_t size);
    LONG deleteValue(KeyId key, const Name &name);

    // The subkeys in enumeration order, the values in creation order, and
    // the key's class, counts and last write time (its own or its latest
    // value's); ERROR_KEY_DELETED when it is gone.
    LONG subkeys(KeyId key, std::shared_ptr<const std::vector<SubkeyEntry>> *out);
    LONG values(KeyId key, std::shared_ptr<const std::vector<ValueEntry>> *out);
    LONG info(KeyId key, KeyInfo *out);

    // Makes everything committed so far, by any process, survive a power
    // cut: the log is synced and copied into the database, which is synced.
    LONG flush();

private:
    explicit Store(std::string root);
    // Opening, one step each; the steps give SQLite result codes from
    // openConnection on.
    LONG openFiles();
    LONG createDatabaseFile(const std::string &path);
    int openConnection(const std::string &path);
    // Under the writers' lock, in one transaction: the journal mode, the
    // schema, the hives, the volatile keys of an earlier boot, and a
    // counter left odd by a writer that died.
    int setUp();
    int createSchema(bool *current);
    int migrateFrom1();
    int insertHives();
    int dropVolatileKeysOfEarlierBoot();
    int prepare();
    void closeFiles();
    LONG reopenAfterFork();
    int checkpoint();

    // Starts the cache epoch; true when reads may be cached now.
    bool cacheable();
    LONG lockForRead();

    class WriteTxn;
    friend class WriteTxn;
    // Runs body under the store's lock in a write, committed when body
    // gives ERROR_SUCCESS: a transaction, or (oneStatement) statements that
    // commit by themselves, of which at most one changes anything.
    template <class Body> LONG inWriteTxn(bool oneStatement, Body body);
    friend struct ForkGuard;

    struct KeyRow {
        bool found = false;
        bool isVolatile = false;
        KeyId parent = 0;
        int64_t lastWrite = 0;
        Name cls;
    };
    LONG findChild(KeyId parent, const std::string &fold, KeyId *out, bool *isVolatile);
    LONG keyRow(KeyId id, KeyRow *row);
    // keyRow of a key that must be there: ERROR_KEY_DELETED when it is gone.
    LONG liveKeyRow(KeyId id, KeyRow *row);
    LONG findPath(KeyId base, const std::vector<Name> &path, KeyId *out);
    LONG openCached(KeyId base, const std::vector<Name> &path, KeyId *out);
    LONG sqlError(int rc);

    std::string root_;
    std::mutex lock_;
    sqlite3 *db_ = nullptr;
    ChangeCounter counter_;
    unsigned forkGeneration_ = 0;

    enum Stmt {
        kFindChild, kKeyRow, kInsertKey, kTouchKey, kCountChildren, kDeleteKey, kDeleteKeyValues,
        kGetValue, kUpdateValue, kSetValue, kDeleteValue, kListSubkeys, kListValues, kBegin, kCommit, kRollback,
        kStmtCount
    };
    sqlite3_stmt *stmt_[kStmtCount] = {};
    // The statement, prepared at its first use: a process uses a few of
    // them, and each costs memory and SQLite's code to prepare. The
    // transaction's own (kBegin, kCommit, kRollback) are prepared at open,
    // so that a rollback never waits on a prepare that could fail.
    Prepared statement(Stmt which);

    // Read cache, valid while the counter stays at cacheSeq_.
    uint64_t cacheSeq_ = 1; // odd: nothing cached yet
    size_t cacheEntries_ = 0;
    struct CachedValue {
        LONG status;
        DWORD type;
        std::string data;
    };
    std::unordered_map<std::string, CachedValue> valueCache_;
    std::unordered_map<std::string, std::pair<LONG, KeyId>> openCache_;
    std::unordered_map<KeyId, std::shared_ptr<const std::vector<SubkeyEntry>>> subkeyCache_;
    std::unordered_map<KeyId, std::shared_ptr<const std::vector<ValueEntry>>> valueListCache_;

    // What subkeys and values share: the key's listing from cache, else read
    // with statement st, one entry from each row by entryOf, and cached
    // when the epoch allows; a deleted key is cached as a null listing.
    template <class Entry, class EntryOf>
    LONG cachedListing(KeyId key, Stmt st, std::unordered_map<KeyId, std::shared_ptr<const std::vector<Entry>>> &cache,
                       EntryOf entryOf, std::shared_ptr<const std::vector<Entry>> *out);
};

} // namespace reg
} // namespace tsp
