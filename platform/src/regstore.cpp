// The registry store on SQLite.
#include "regstore.h"

#include "bootid.h"
#include "casefold.h"
#include "check.h"
#include "machineroot.h"

#include <sqlite3.h>

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cassert>
#include <set>

// A SQLite call that cannot fail here, checked with SQLite's text for the
// result.
#define REG_CHECK_SQLITE(call, what)                                                                                  \
    [&](int regCheckResult) {                                                                                          \
        return ::tsp::checkPassed(regCheckResult == SQLITE_OK, (what), sqlite3_errstr(regCheckResult),                 \
                                  regCheckResult, __FILE__, __LINE__);                                                 \
    }(call)

namespace tsp {
namespace reg {

namespace {

constexpr size_t kMaxCacheEntries = 20000;
constexpr int kBusyTimeoutMs = 60000;
// PRAGMA user_version of the database; the pragma takes no parameter, so
// the text that writes it says the same number.
constexpr int kSchemaVersion = 1;
const char *const kWriteSchemaVersion = "PRAGMA user_version=1";
const char *const kReadSchemaVersion = "PRAGMA user_version";

const char *const kSchema =
    "CREATE TABLE IF NOT EXISTS meta(name TEXT PRIMARY KEY, value) WITHOUT ROWID;"
    "CREATE TABLE IF NOT EXISTS keys("
    "  id INTEGER PRIMARY KEY AUTOINCREMENT, parent INTEGER NOT NULL, name BLOB NOT NULL,"
    "  fold BLOB NOT NULL, class BLOB, vol INTEGER NOT NULL DEFAULT 0, mtime INTEGER NOT NULL);"
    "CREATE UNIQUE INDEX IF NOT EXISTS keys_child ON keys(parent, fold);"
    "CREATE TABLE IF NOT EXISTS vals("
    "  key INTEGER NOT NULL, fold BLOB NOT NULL, name BLOB NOT NULL, ord INTEGER NOT NULL,"
    "  type INTEGER NOT NULL, data BLOB NOT NULL, mtime INTEGER NOT NULL, PRIMARY KEY(key, fold)) WITHOUT ROWID;";

// A commit is appended to the write-ahead log without waiting for the disk:
// it survives the death of any process at once, a power cut once a
// checkpoint has synced it (see Store::flush).
const char *const kJournalMode = "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL;";
const char *const kBeginText = "BEGIN IMMEDIATE";
const char *const kCommitText = "COMMIT";
const char *const kRollbackText = "ROLLBACK";
const char *const kInsertHive = "INSERT OR IGNORE INTO keys(id, parent, name, fold, class, vol, mtime)"
                                " VALUES(?1, 0, ?2, ?2, NULL, 0, ?3)";
const char *const kReadBootId = "SELECT value FROM meta WHERE name='boot'";
const char *const kWriteBootId = "INSERT OR REPLACE INTO meta(name, value) VALUES('boot', ?1)";
const char *const kDropVolatileKeys = "DELETE FROM vals WHERE key IN (SELECT id FROM keys WHERE vol=1);"
                                      "DELETE FROM keys WHERE vol=1;";

// HKEY_PERFORMANCE_DATA's id: no key of this store.
constexpr KeyId kPerformanceDataId = 5;
const char *const kHiveNames[] = {"HKEY_CLASSES_ROOT",   "HKEY_CURRENT_USER", "HKEY_LOCAL_MACHINE", "HKEY_USERS",
                                  "HKEY_PERFORMANCE_DATA", "HKEY_CURRENT_CONFIG", "HKEY_DYN_DATA"};

const char *const kStatements[] = {
    "SELECT id, vol FROM keys WHERE parent=?1 AND fold=?2",
    "SELECT class, mtime, vol, parent FROM keys WHERE id=?1",
    "INSERT INTO keys(parent, name, fold, class, vol, mtime) VALUES(?1, ?2, ?3, ?4, ?5, ?6)",
    "UPDATE keys SET mtime=?2 WHERE id=?1",
    "SELECT EXISTS(SELECT 1 FROM keys WHERE parent=?1)",
    "DELETE FROM keys WHERE id=?1",
    "DELETE FROM vals WHERE key=?1",
    "SELECT type, data FROM vals WHERE key=?1 AND fold=?2",
    "UPDATE vals SET type=?3, data=?4, mtime=?5 WHERE key=?1 AND fold=?2",
    "INSERT INTO vals(key, fold, name, ord, type, data, mtime)"
    " SELECT ?1, ?2, ?3, (SELECT COALESCE(MAX(ord), 0) + 1 FROM vals WHERE key=?1), ?4, ?5, ?6"
    " WHERE EXISTS(SELECT 1 FROM keys WHERE id=?1)"
    " ON CONFLICT(key, fold) DO UPDATE SET type=excluded.type, data=excluded.data, mtime=excluded.mtime",
    "DELETE FROM vals WHERE key=?1 AND fold=?2",
    "SELECT name, class, MAX(mtime, COALESCE((SELECT MAX(mtime) FROM vals WHERE key=keys.id), 0))"
    " FROM keys WHERE parent=?1 ORDER BY fold",
    "SELECT name, type, data, mtime FROM vals WHERE key=?1 ORDER BY ord",
    kBeginText,
    kCommitText,
    kRollbackText,
};

// Now as a FILETIME: 100 ns units since 1601.
int64_t fileTimeNow()
{
    timespec ts;
    clock_gettime(CLOCK_REALTIME, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 10000000 + ts.tv_nsec / 100 + 116444736000000000LL;
}

// A transaction that failed may have been rolled back by SQLite already
// (after an I/O error or a full disk); then ROLLBACK has nothing to undo
// and says so, which is no fault.
void rollBack(sqlite3 *db) { sqlite3_exec(db, kRollbackText, nullptr, nullptr, nullptr); }

// A statement prepared for one use while the store is set up.
class Statement {
public:
    Statement(sqlite3 *db, const char *sql) : status_(sqlite3_prepare_v2(db, sql, -1, &st_, nullptr)) {}
    // Gives the statement's last error, which its user has seen already.
    ~Statement() { sqlite3_finalize(st_); }
    Statement(const Statement &) = delete;
    Statement &operator=(const Statement &) = delete;
    int status() const { return status_; }
    sqlite3_stmt *get() const { return st_; }

private:
    sqlite3_stmt *st_ = nullptr;
    int status_;
};

// Binds and resets a prepared statement around one use. A value that
// cannot be bound (too big, out of memory) is the result of step.
class Use {
public:
    explicit Use(sqlite3_stmt *st) : st_(st) {}
    ~Use()
    {
        // reset repeats the error of the last step, which was seen there.
        sqlite3_reset(st_);
        REG_CHECK_SQLITE(sqlite3_clear_bindings(st_), "sqlite3_clear_bindings");
    }
    Use &id(int i, int64_t v) { return bound(sqlite3_bind_int64(st_, i, v)); }
    // Names are copied: a caller may pass a temporary.
    Use &blob(int i, const std::string &s)
    {
        return bound(sqlite3_bind_blob(st_, i, s.data(), static_cast<int>(s.size()), SQLITE_TRANSIENT));
    }
    Use &string(int i, const std::string &s)
    {
        return bound(sqlite3_bind_text(st_, i, s.data(), static_cast<int>(s.size()), SQLITE_TRANSIENT));
    }
    // Data is not copied: p must stay valid until the statement is reset.
    Use &bytes(int i, const void *p, size_t n)
    {
        if (n == 0)
            return bound(sqlite3_bind_zeroblob(st_, i, 0));
        return bound(sqlite3_bind_blob64(st_, i, p, n, SQLITE_STATIC));
    }
    int step() { return bindStatus_ != SQLITE_OK ? bindStatus_ : sqlite3_step(st_); }
    int64_t int64(int col) { return sqlite3_column_int64(st_, col); }
    std::string text(int col)
    {
        const void *p = sqlite3_column_blob(st_, col);
        int n = sqlite3_column_bytes(st_, col);
        return p ? std::string(static_cast<const char *>(p), static_cast<size_t>(n)) : std::string();
    }
    bool isNull(int col) { return sqlite3_column_type(st_, col) == SQLITE_NULL; }

private:
    Use &bound(int rc)
    {
        // A parameter number the text does not have is a bug of this file.
        REG_CHECK_SQLITE(rc == SQLITE_RANGE || rc == SQLITE_MISUSE ? rc : SQLITE_OK, "sqlite3_bind");
        if (bindStatus_ == SQLITE_OK)
            bindStatus_ = rc;
        return *this;
    }

    sqlite3_stmt *st_;
    int bindStatus_ = SQLITE_OK;
};

// Every store of the process, so that a fork can hold them all still.
std::mutex &storesLock()
{
    static std::mutex *m = new std::mutex;
    return *m;
}
std::set<Store *> &liveStores()
{
    static std::set<Store *> *s = new std::set<Store *>;
    return *s;
}
std::atomic<unsigned> gForkGeneration{0};

// Guards the choice of the current store.
std::mutex &currentLock()
{
    static std::mutex *m = new std::mutex;
    return *m;
}

} // namespace

// A fork must not copy a store in the middle of a call, and the child must
// not use the parent's connection: it opens its own.
struct ForkGuard {
    static void prepare()
    {
        currentLock().lock();
        storesLock().lock();
        for (Store *s : liveStores())
            s->lock_.lock();
    }
    static void parent()
    {
        for (Store *s : liveStores())
            s->lock_.unlock();
        storesLock().unlock();
        currentLock().unlock();
    }
    static void child()
    {
        gForkGeneration.fetch_add(1);
        parent();
    }
};

KeyId hiveKeyId(uint32_t hiveValue)
{
    if (hiveValue < 0x80000000u || hiveValue > 0x80000006u || hiveValue == 0x80000004u)
        return 0;
    return static_cast<KeyId>(hiveValue - 0x80000000u) + 1;
}

std::string foldName(const std::string &name) { return foldUpper(name); }

// ---------------------------------------------------------------------------
// Opening

std::shared_ptr<Store> Store::current(LONG *err)
{
    static std::once_flag forkOnce;
    std::call_once(forkOnce, [] { pthread_atfork(ForkGuard::prepare, ForkGuard::parent, ForkGuard::child); });

    static std::shared_ptr<Store> *cur = new std::shared_ptr<Store>;

    std::string path = machineRootPath();
    // A store replaced below is let go after the locks: its destructor takes
    // the lock of the live stores, which ranks before a store's own lock.
    std::shared_ptr<Store> previous;
    std::lock_guard<std::mutex> guard(currentLock());
    if (*cur && (*cur)->root_ == path)
        return *cur;
    std::string root = machineRoot();
    if (root.empty()) {
        *err = errno == EACCES ? ERROR_ACCESS_DENIED : ERROR_PATH_NOT_FOUND;
        return nullptr;
    }
    if (*cur && (*cur)->root_ == root)
        return *cur;
    std::shared_ptr<Store> store(new Store(root));
    {
        std::lock_guard<std::mutex> storeGuard(store->lock_);
        if (LONG e = store->openFiles()) {
            *err = e;
            return nullptr;
        }
    }
    previous = std::move(*cur);
    *cur = store;
    return store;
}

Store::Store(std::string root) : root_(std::move(root))
{
    std::lock_guard<std::mutex> guard(storesLock());
    liveStores().insert(this);
    forkGeneration_ = gForkGeneration.load();
}

Store::~Store()
{
    {
        std::lock_guard<std::mutex> guard(storesLock());
        liveStores().erase(this);
    }
    // A clean close leaves everything written on disk. A store copied into
    // a child by fork and never used there has no connection of its own.
    if (db_ && forkGeneration_ == gForkGeneration.load())
        checkpoint();
    closeFiles();
}

int Store::checkpoint()
{
    // FULL waits (within the busy timeout) for writers and readers of other
    // processes to let the whole log be copied; with synchronous NORMAL the
    // log is synced before the copy and the database after it.
    return sqlite3_wal_checkpoint_v2(db_, nullptr, SQLITE_CHECKPOINT_FULL, nullptr, nullptr);
}

LONG Store::flush()
{
    std::lock_guard<std::mutex> guard(lock_);
    if (LONG e = lockForRead())
        return e;
    int rc = checkpoint();
    return rc == SQLITE_OK ? ERROR_SUCCESS : sqlError(rc);
}

void Store::closeFiles()
{
    for (sqlite3_stmt *&st : stmt_) {
        sqlite3_finalize(st); // gives the statement's last error, seen when it ran
        st = nullptr;
    }
    if (db_)
        REG_CHECK_SQLITE(sqlite3_close_v2(db_), "sqlite3_close_v2");
    db_ = nullptr;
    counter_.close();
}

LONG Store::sqlError(int rc)
{
    switch (rc & 0xFF) {
    case SQLITE_FULL:
        return ERROR_DISK_FULL;
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
        return ERROR_REGISTRY_CORRUPT;
    case SQLITE_NOMEM:
    case SQLITE_TOOBIG:
        return ERROR_NOT_ENOUGH_MEMORY;
    case SQLITE_PERM:
    case SQLITE_READONLY:
    case SQLITE_AUTH:
        return ERROR_ACCESS_DENIED;
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
        return ERROR_BUSY;
    case SQLITE_CANTOPEN:
        return ERROR_CANTOPEN;
    default:
        return ERROR_REGISTRY_IO_FAILED;
    }
}

LONG Store::openFiles()
{
    std::string dbPath = root_ + "/registry.db";
    if (LONG e = createDatabaseFile(dbPath))
        return e;
    if (LONG e = counter_.open(dbPath + "-seq"))
        return e;
    int rc = openConnection(dbPath);
    if (rc == SQLITE_OK)
        rc = setUp();
    if (rc == SQLITE_OK)
        rc = prepare();
    if (rc != SQLITE_OK) {
        LONG e = sqlError(rc);
        closeFiles();
        return e;
    }
    return ERROR_SUCCESS;
}

// Made here so that the database and its companions get mode 0600.
LONG Store::createDatabaseFile(const std::string &path)
{
    int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0)
        return errno == EACCES ? ERROR_ACCESS_DENIED : ERROR_CANTOPEN;
    closeDescriptor(fd);
    return ERROR_SUCCESS;
}

int Store::openConnection(const std::string &path)
{
    int rc = sqlite3_open_v2(path.c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
    if (rc != SQLITE_OK)
        return rc;
    REG_CHECK_SQLITE(sqlite3_busy_timeout(db_, kBusyTimeoutMs), "sqlite3_busy_timeout");
    REG_CHECK_SQLITE(sqlite3_extended_result_codes(db_, 0), "sqlite3_extended_result_codes");
    return SQLITE_OK;
}

int Store::setUp()
{
    if (!counter_.lockWriters())
        return SQLITE_IOERR;
    int rc = sqlite3_exec(db_, kJournalMode, nullptr, nullptr, nullptr);
    if (rc == SQLITE_OK)
        rc = sqlite3_exec(db_, kBeginText, nullptr, nullptr, nullptr);
    if (rc == SQLITE_OK) {
        int before = sqlite3_total_changes(db_);
        rc = createSchema();
        if (rc == SQLITE_OK)
            rc = insertHives();
        if (rc == SQLITE_OK)
            rc = dropVolatileKeysOfEarlierBoot();
        bool changed = sqlite3_total_changes(db_) != before;
        if (rc == SQLITE_OK && (changed || counter_.writing()))
            counter_.beginWrite();
        if (rc == SQLITE_OK)
            rc = sqlite3_exec(db_, kCommitText, nullptr, nullptr, nullptr);
        else
            rollBack(db_);
        counter_.endWrite();
    }
    counter_.unlockWriters();
    return rc;
}

int Store::createSchema()
{
    int version = 0;
    {
        Statement q(db_, kReadSchemaVersion);
        if (q.status() != SQLITE_OK)
            return q.status();
        Use read(q.get());
        if (read.step() == SQLITE_ROW)
            version = static_cast<int>(read.int64(0));
    }
    if (version > kSchemaVersion)
        return SQLITE_NOTADB; // written by a later release: not ours to change
    int rc = sqlite3_exec(db_, kSchema, nullptr, nullptr, nullptr);
    if (rc == SQLITE_OK && version < kSchemaVersion)
        rc = sqlite3_exec(db_, kWriteSchemaVersion, nullptr, nullptr, nullptr);
    return rc;
}

int Store::insertHives()
{
    Statement ins(db_, kInsertHive);
    if (ins.status() != SQLITE_OK)
        return ins.status();
    for (KeyId id = 1; id <= kLastHiveId; ++id) {
        if (id == kPerformanceDataId)
            continue; // HKEY_PERFORMANCE_DATA is not a key of this store
        Use use(ins.get());
        int rc = use.id(1, id).blob(2, kHiveNames[id - 1]).id(3, fileTimeNow()).step();
        if (rc != SQLITE_DONE)
            return rc;
    }
    return SQLITE_OK;
}

// Volatile keys last until the system restarts.
int Store::dropVolatileKeysOfEarlierBoot()
{
    std::string boot = bootId();
    if (boot.empty())
        return SQLITE_OK; // no boot id to tell one boot from the next
    std::string stored;
    {
        Statement q(db_, kReadBootId);
        if (q.status() != SQLITE_OK)
            return q.status();
        Use read(q.get());
        int rc = read.step();
        if (rc == SQLITE_ROW)
            stored = read.text(0);
        else if (rc != SQLITE_DONE)
            return rc;
    }
    if (stored == boot)
        return SQLITE_OK;
    int rc = sqlite3_exec(db_, kDropVolatileKeys, nullptr, nullptr, nullptr);
    if (rc != SQLITE_OK)
        return rc;
    Statement write(db_, kWriteBootId);
    if (write.status() != SQLITE_OK)
        return write.status();
    rc = Use(write.get()).string(1, boot).step();
    return rc == SQLITE_DONE ? SQLITE_OK : rc;
}

int Store::prepare()
{
    for (int i = 0; i < kStmtCount; ++i) {
        int rc = sqlite3_prepare_v3(db_, kStatements[i], -1, SQLITE_PREPARE_PERSISTENT, &stmt_[i], nullptr);
        if (rc != SQLITE_OK)
            return rc;
    }
    return SQLITE_OK;
}

// In a child process the parent's connection is left alone (never closed:
// that could disturb the parent's locks) and a new one is opened.
LONG Store::reopenAfterFork()
{
    forkGeneration_ = gForkGeneration.load();
    for (sqlite3_stmt *&st : stmt_)
        st = nullptr;
    db_ = nullptr;
    counter_.forgetAfterFork();
    valueCache_.clear();
    openCache_.clear();
    subkeyCache_.clear();
    valueListCache_.clear();
    cacheEntries_ = 0;
    cacheSeq_ = 1;
    return openFiles();
}

LONG Store::lockForRead()
{
    if (forkGeneration_ != gForkGeneration.load(std::memory_order_relaxed))
        return reopenAfterFork();
    return db_ ? ERROR_SUCCESS : ERROR_REGISTRY_IO_FAILED;
}

bool Store::cacheable()
{
    uint64_t s = counter_.value();
    if (s != cacheSeq_ || cacheEntries_ > kMaxCacheEntries) {
        valueCache_.clear();
        openCache_.clear();
        subkeyCache_.clear();
        valueListCache_.clear();
        cacheEntries_ = 0;
        cacheSeq_ = s;
    }
    return !(s & 1);
}

// ---------------------------------------------------------------------------
// Writing

// A write under the writers' lock. A write of one statement runs without
// BEGIN and COMMIT: SQLite commits it by itself, with no statement journal.
class Store::WriteTxn {
public:
    explicit WriteTxn(Store &s, bool oneStatement = false) : s_(s), oneStatement_(oneStatement) {}
    ~WriteTxn()
    {
        if (began_)
            Use(s_.stmt_[kRollback]).step(); // see rollBack
        if (locked_)
            finish();
    }

    LONG begin()
    {
        if (!s_.counter_.lockWriters())
            return ERROR_REGISTRY_IO_FAILED;
        locked_ = true;
        s_.counter_.beginWrite();
        if (oneStatement_)
            return ERROR_SUCCESS;
        int rc = Use(s_.stmt_[kBegin]).step();
        if (rc != SQLITE_DONE)
            return s_.sqlError(rc);
        began_ = true;
        return ERROR_SUCCESS;
    }

    LONG commit()
    {
        if (oneStatement_)
            return ERROR_SUCCESS;
        int rc = Use(s_.stmt_[kCommit]).step();
        if (rc != SQLITE_DONE)
            return s_.sqlError(rc); // the destructor rolls back
        began_ = false;
        return ERROR_SUCCESS;
    }

private:
    void finish()
    {
        s_.counter_.endWrite();
        s_.counter_.unlockWriters();
        locked_ = false;
    }

    Store &s_;
    const bool oneStatement_;
    bool locked_ = false;
    bool began_ = false;
};

template <class Body> LONG Store::inWriteTxn(bool oneStatement, Body body)
{
    std::lock_guard<std::mutex> guard(lock_);
    if (LONG e = lockForRead())
        return e;
    WriteTxn txn(*this, oneStatement);
    if (LONG e = txn.begin())
        return e;
    if (LONG e = body())
        return e;
    return txn.commit();
}

LONG Store::findChild(KeyId parent, const std::string &fold, KeyId *out, bool *isVolatile)
{
    Use q(stmt_[kFindChild]);
    q.id(1, parent).blob(2, fold);
    int rc = q.step();
    if (rc == SQLITE_ROW) {
        *out = q.int64(0);
        if (isVolatile)
            *isVolatile = q.int64(1) != 0;
        return ERROR_SUCCESS;
    }
    return rc == SQLITE_DONE ? ERROR_FILE_NOT_FOUND : sqlError(rc);
}

LONG Store::keyRow(KeyId id, KeyRow *row)
{
    Use q(stmt_[kKeyRow]);
    q.id(1, id);
    int rc = q.step();
    row->found = rc == SQLITE_ROW;
    if (rc == SQLITE_ROW) {
        row->cls = q.text(0);
        row->lastWrite = q.int64(1);
        row->isVolatile = q.int64(2) != 0;
        row->parent = q.int64(3);
        return ERROR_SUCCESS;
    }
    return rc == SQLITE_DONE ? ERROR_SUCCESS : sqlError(rc);
}

LONG Store::liveKeyRow(KeyId id, KeyRow *row)
{
    if (LONG e = keyRow(id, row))
        return e;
    return row->found ? ERROR_SUCCESS : ERROR_KEY_DELETED;
}

LONG Store::findPath(KeyId base, const std::vector<std::string> &path, KeyId *out)
{
    KeyRow row;
    if (LONG e = liveKeyRow(base, &row))
        return e;
    KeyId id = base;
    for (const std::string &level : path) {
        if (LONG e = findChild(id, foldName(level), &id, nullptr))
            return e;
    }
    *out = id;
    return ERROR_SUCCESS;
}

LONG Store::openCached(KeyId base, const std::vector<std::string> &path, KeyId *out)
{
    bool cache = cacheable();
    std::string cacheKey(reinterpret_cast<const char *>(&base), sizeof base);
    for (const std::string &level : path) {
        cacheKey += foldName(level);
        cacheKey += '\\';
    }
    auto it = openCache_.find(cacheKey);
    if (it != openCache_.end()) {
        *out = it->second.second;
        return it->second.first;
    }
    KeyId id = 0;
    LONG status = findPath(base, path, &id);
    if (status != ERROR_SUCCESS && status != ERROR_FILE_NOT_FOUND && status != ERROR_KEY_DELETED)
        return status; // a failure of the store itself is not cached
    if (cache) {
        openCache_[cacheKey] = {status, id};
        ++cacheEntries_;
    }
    *out = id;
    return status;
}

LONG Store::openKey(KeyId base, const std::vector<std::string> &path, KeyId *out)
{
    std::lock_guard<std::mutex> guard(lock_);
    if (LONG e = lockForRead())
        return e;
    return openCached(base, path, out);
}

LONG Store::createKey(KeyId base, const std::vector<std::string> &path, const std::string *cls, bool isVolatile,
                      KeyId *out, DWORD *disposition)
{
    std::lock_guard<std::mutex> guard(lock_);
    if (LONG e = lockForRead())
        return e;
    // Opening an existing key writes nothing, so it leaves every reader's
    // cache valid.
    LONG status = openCached(base, path, out);
    if (status != ERROR_FILE_NOT_FOUND) {
        *disposition = REG_OPENED_EXISTING_KEY;
        return status;
    }
    WriteTxn txn(*this);
    if (LONG e = txn.begin())
        return e;
    KeyRow row;
    if (LONG e = liveKeyRow(base, &row))
        return e;
    KeyId id = base;
    bool parentVolatile = row.isVolatile;
    bool created = false;
    int64_t now = fileTimeNow();
    for (const std::string &level : path) {
        std::string fold = foldName(level);
        KeyId child;
        bool childVolatile = false;
        LONG e = findChild(id, fold, &child, &childVolatile);
        if (e == ERROR_FILE_NOT_FOUND) {
            if (parentVolatile && !isVolatile)
                return ERROR_CHILD_MUST_BE_VOLATILE;
            int rc;
            {
                Use ins(stmt_[kInsertKey]);
                ins.id(1, id).blob(2, level).blob(3, fold);
                if (cls)
                    ins.blob(4, *cls);
                ins.id(5, isVolatile ? 1 : 0).id(6, now);
                if ((rc = ins.step()) != SQLITE_DONE)
                    return sqlError(rc);
            }
            child = sqlite3_last_insert_rowid(db_);
            if ((rc = Use(stmt_[kTouchKey]).id(1, id).id(2, now).step()) != SQLITE_DONE)
                return sqlError(rc);
            created = true;
            childVolatile = isVolatile;
        } else if (e != ERROR_SUCCESS) {
            return e;
        }
        id = child;
        parentVolatile = childVolatile;
    }
    if (created) {
        if (LONG e = txn.commit())
            return e;
    }
    *out = id;
    *disposition = created ? REG_CREATED_NEW_KEY : REG_OPENED_EXISTING_KEY;
    return ERROR_SUCCESS;
}

LONG Store::deleteKey(KeyId base, const std::vector<std::string> &path)
{
    return inWriteTxn(false, [&]() -> LONG {
        KeyId id;
        if (LONG e = findPath(base, path, &id))
            return e;
        if (id <= kLastHiveId)
            return ERROR_ACCESS_DENIED;
        int rc;
        {
            Use q(stmt_[kCountChildren]);
            q.id(1, id);
            if ((rc = q.step()) != SQLITE_ROW)
                return sqlError(rc);
            if (q.int64(0) != 0)
                return ERROR_ACCESS_DENIED;
        }
        KeyRow row;
        if (LONG e = keyRow(id, &row))
            return e;
        if ((rc = Use(stmt_[kDeleteKeyValues]).id(1, id).step()) != SQLITE_DONE)
            return sqlError(rc);
        if ((rc = Use(stmt_[kDeleteKey]).id(1, id).step()) != SQLITE_DONE)
            return sqlError(rc);
        if ((rc = Use(stmt_[kTouchKey]).id(1, row.parent).id(2, fileTimeNow()).step()) != SQLITE_DONE)
            return sqlError(rc);
        return ERROR_SUCCESS;
    });
}

// ---------------------------------------------------------------------------
// Values

LONG Store::queryValue(KeyId key, const std::string &name, DWORD *type, std::string *data)
{
    std::lock_guard<std::mutex> guard(lock_);
    if (LONG e = lockForRead())
        return e;
    bool cache = cacheable();
    std::string cacheKey(reinterpret_cast<const char *>(&key), sizeof key);
    cacheKey += foldName(name);
    auto it = valueCache_.find(cacheKey);
    if (it != valueCache_.end()) {
        *type = it->second.type;
        *data = it->second.data;
        return it->second.status;
    }
    CachedValue v{ERROR_SUCCESS, REG_NONE, std::string()};
    {
        Use q(stmt_[kGetValue]);
        q.id(1, key).blob(2, cacheKey.substr(sizeof key));
        int rc = q.step();
        if (rc == SQLITE_ROW) {
            v.type = static_cast<DWORD>(q.int64(0));
            v.data = q.text(1);
        } else if (rc == SQLITE_DONE) {
            v.status = ERROR_FILE_NOT_FOUND;
        } else {
            return sqlError(rc);
        }
    }
    if (v.status == ERROR_FILE_NOT_FOUND) {
        KeyRow row;
        if (LONG e = keyRow(key, &row))
            return e;
        if (!row.found)
            v.status = ERROR_KEY_DELETED;
    }
    *type = v.type;
    *data = v.data;
    LONG status = v.status;
    if (cache) {
        valueCache_.emplace(std::move(cacheKey), std::move(v));
        ++cacheEntries_;
    }
    return status;
}

// A value write changes one row: the time of the write is kept with the
// value, and a key's last write time is the latest of its own and its
// values' (see info), so the key's row is left alone.
LONG Store::setValue(KeyId key, const std::string &name, DWORD type, const void *data, size_t size)
{
    // Most writes change a value that exists: one update by the primary
    // key, as cheap as a write gets. A value that is not there yet is
    // inserted by a second statement, which also finds a key that is gone.
    // Each commits by itself; the writers' lock keeps other writers out
    // between them, and the update changed nothing when the insert runs.
    return inWriteTxn(true, [&]() -> LONG {
        std::string fold = foldName(name);
        int64_t now = fileTimeNow();
        {
            Use update(stmt_[kUpdateValue]);
            update.id(1, key).blob(2, fold).id(3, type).bytes(4, data, size).id(5, now);
            if (int rc = update.step(); rc != SQLITE_DONE)
                return sqlError(rc);
        }
        if (sqlite3_changes(db_) != 0)
            return ERROR_SUCCESS;
        {
            // Nothing is written when the key is gone.
            Use set(stmt_[kSetValue]);
            set.id(1, key).blob(2, fold).blob(3, name).id(4, type).bytes(5, data, size).id(6, now);
            if (int rc = set.step(); rc != SQLITE_DONE)
                return sqlError(rc);
        }
        if (sqlite3_changes(db_) == 0)
            return ERROR_KEY_DELETED;
        return ERROR_SUCCESS;
    });
}

LONG Store::deleteValue(KeyId key, const std::string &name)
{
    return inWriteTxn(false, [&]() -> LONG {
        int rc;
        {
            Use del(stmt_[kDeleteValue]);
            del.id(1, key).blob(2, foldName(name));
            if ((rc = del.step()) != SQLITE_DONE)
                return sqlError(rc);
        }
        if (sqlite3_changes(db_) == 0) {
            KeyRow row;
            if (LONG e = keyRow(key, &row))
                return e;
            return row.found ? ERROR_FILE_NOT_FOUND : ERROR_KEY_DELETED;
        }
        {
            Use touch(stmt_[kTouchKey]);
            touch.id(1, key).id(2, fileTimeNow());
            if ((rc = touch.step()) != SQLITE_DONE)
                return sqlError(rc);
        }
        return ERROR_SUCCESS;
    });
}

// ---------------------------------------------------------------------------
// Enumeration

template <class Entry, class EntryOf>
LONG Store::cachedListing(KeyId key, Stmt st,
                          std::unordered_map<KeyId, std::shared_ptr<const std::vector<Entry>>> &cache,
                          EntryOf entryOf, std::shared_ptr<const std::vector<Entry>> *out)
{
    std::lock_guard<std::mutex> guard(lock_);
    if (LONG e = lockForRead())
        return e;
    bool cacheNow = cacheable();
    auto it = cache.find(key);
    if (it != cache.end()) {
        *out = it->second;
        return *out ? ERROR_SUCCESS : ERROR_KEY_DELETED;
    }
    KeyRow row;
    if (LONG e = keyRow(key, &row))
        return e;
    bool found = row.found;
    std::shared_ptr<std::vector<Entry>> list;
    if (found) {
        list = std::make_shared<std::vector<Entry>>();
        Use q(stmt_[st]);
        q.id(1, key);
        int rc;
        while ((rc = q.step()) == SQLITE_ROW)
            list->push_back(entryOf(q));
        if (rc != SQLITE_DONE)
            return sqlError(rc);
    }
    if (cacheNow) {
        cache[key] = list;
        cacheEntries_ += 1 + (list ? list->size() : 0);
    }
    *out = list;
    return found ? ERROR_SUCCESS : ERROR_KEY_DELETED;
}

LONG Store::subkeys(KeyId key, std::shared_ptr<const std::vector<SubkeyEntry>> *out)
{
    return cachedListing(
        key, kListSubkeys, subkeyCache_, [](Use &q) { return SubkeyEntry{q.text(0), q.text(1), q.int64(2)}; }, out);
}

LONG Store::values(KeyId key, std::shared_ptr<const std::vector<ValueEntry>> *out)
{
    return cachedListing(
        key, kListValues, valueListCache_,
        [](Use &q) { return ValueEntry{q.text(0), static_cast<DWORD>(q.int64(1)), q.text(2), q.int64(3)}; }, out);
}

LONG Store::info(KeyId key, KeyInfo *out)
{
    std::shared_ptr<const std::vector<SubkeyEntry>> subs;
    std::shared_ptr<const std::vector<ValueEntry>> vals;
    if (LONG e = subkeys(key, &subs))
        return e;
    if (LONG e = values(key, &vals))
        return e;
    KeyInfo info;
    {
        std::lock_guard<std::mutex> guard(lock_);
        if (LONG e = lockForRead())
            return e;
        KeyRow row;
        if (LONG e = liveKeyRow(key, &row))
            return e;
        info.cls = row.cls;
        info.lastWrite = row.lastWrite;
    }
    info.subkeys = static_cast<DWORD>(subs->size());
    for (const SubkeyEntry &s : *subs) {
        info.maxSubkeyLen = std::max<DWORD>(info.maxSubkeyLen, static_cast<DWORD>(s.name.size()));
        info.maxClassLen = std::max<DWORD>(info.maxClassLen, static_cast<DWORD>(s.cls.size()));
    }
    info.values = static_cast<DWORD>(vals->size());
    for (const ValueEntry &v : *vals) {
        info.maxValueNameLen = std::max<DWORD>(info.maxValueNameLen, static_cast<DWORD>(v.name.size()));
        info.maxValueLen = std::max<DWORD>(info.maxValueLen, static_cast<DWORD>(v.data.size()));
        info.lastWrite = std::max(info.lastWrite, v.lastWrite);
    }
    *out = std::move(info);
    return ERROR_SUCCESS;
}

} // namespace reg
} // namespace tsp
