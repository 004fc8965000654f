// The registry store: opening the files and the connection, closing, the
// flush, and a store used again in a child after fork.
#include "regsql.h"
#include "regstore.h"

#include "machineroot.h"

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <mutex>
#include <set>

namespace tsp {
namespace reg {

using namespace sql;

namespace {

constexpr int kBusyTimeoutMs = 60000;

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

namespace {

// SQLite's defaults are made for large databases: each connection takes a
// first block of twenty cache pages and 120 KiB of lookaside slots at once,
// and the registry's store needs a handful of pages and prepares its few
// statements once. Pages come one at a time as they are read instead. The
// setting is the process's, made before SQLite starts; in a process whose
// program started SQLite itself before (sqlite3_config then answers
// SQLITE_MISUSE) SQLite keeps the program's own settings.
void configureSqliteOnce()
{
    static std::once_flag once;
    std::call_once(once, [] {
        int rc = sqlite3_config(SQLITE_CONFIG_PAGECACHE, nullptr, 0, 0);
        REG_CHECK_SQLITE(rc == SQLITE_MISUSE ? SQLITE_OK : rc, "sqlite3_config(SQLITE_CONFIG_PAGECACHE)");
    });
}

// Lookaside slots for the connection: enough for a statement's prepare.
constexpr int kLookasideSlotSize = 256, kLookasideSlots = 32;

} // namespace

int Store::openConnection(const std::string &path)
{
    configureSqliteOnce();
    int rc = sqlite3_open_v2(path.c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
    if (rc != SQLITE_OK)
        return rc;
    REG_CHECK_SQLITE(sqlite3_db_config(db_, SQLITE_DBCONFIG_LOOKASIDE, nullptr, kLookasideSlotSize, kLookasideSlots),
                     "sqlite3_db_config(SQLITE_DBCONFIG_LOOKASIDE)");
    REG_CHECK_SQLITE(sqlite3_busy_timeout(db_, kBusyTimeoutMs), "sqlite3_busy_timeout");
    REG_CHECK_SQLITE(sqlite3_extended_result_codes(db_, 0), "sqlite3_extended_result_codes");
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

} // namespace reg
} // namespace tsp
