// The registry store's schema: made on first open, converted from the
// first version, with the hives and without the volatile keys of an
// earlier boot.
#include "regsql.h"
#include "regstore.h"

#include "bootid.h"

#include <windows.h>

namespace tsp {
namespace reg {

using namespace sql;

namespace {

// HKEY_PERFORMANCE_DATA's id: no key of this store.
constexpr KeyId kPerformanceDataId = 5;
const char *const kHiveNames[] = {"HKEY_CLASSES_ROOT",   "HKEY_CURRENT_USER", "HKEY_LOCAL_MACHINE", "HKEY_USERS",
                                  "HKEY_PERFORMANCE_DATA", "HKEY_CURRENT_CONFIG", "HKEY_DYN_DATA"};

// The SQL functions of the migration: bytes of code page 1252 to the
// UTF-16LE of a name column, and such a name to its fold. NULL stays NULL.
void fromCodePage1252(sqlite3_context *ctx, int, sqlite3_value **argv)
{
    if (sqlite3_value_type(argv[0]) == SQLITE_NULL)
        return sqlite3_result_null(ctx);
    const char *bytes = static_cast<const char *>(sqlite3_value_blob(argv[0]));
    int n = sqlite3_value_bytes(argv[0]);
    Name wide(static_cast<size_t>(n), u'\0');
    if (n > 0) {
        int got = MultiByteToWideChar(1252, 0, bytes, n, reinterpret_cast<LPWSTR>(&wide[0]), n);
        TS_CHECK(got == n, "MultiByteToWideChar(1252)"); // every byte of 1252 is one unit
    }
    std::string out = nameBytes(wide);
    sqlite3_result_blob(ctx, out.data(), static_cast<int>(out.size()), SQLITE_TRANSIENT);
}

void foldOfName(sqlite3_context *ctx, int, sqlite3_value **argv)
{
    const void *bytes = sqlite3_value_blob(argv[0]);
    std::string out = foldBytes(nameOf(bytes, bytes ? static_cast<size_t>(sqlite3_value_bytes(argv[0])) : 0));
    sqlite3_result_blob(ctx, out.data(), static_cast<int>(out.size()), SQLITE_TRANSIENT);
}

} // namespace

int Store::setUp()
{
    if (!counter_.lockWriters())
        return SQLITE_IOERR;
    int rc = sqlite3_exec(db_, kJournalMode, nullptr, nullptr, nullptr);
    if (rc == SQLITE_OK)
        rc = sqlite3_exec(db_, kBeginText, nullptr, nullptr, nullptr);
    if (rc == SQLITE_OK) {
        int before = sqlite3_total_changes(db_);
        bool current = false;
        rc = createSchema(&current);
        if (rc == SQLITE_OK && !current)
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

// Current: the store was at this release's version already, so its tables
// and hives are whole (they were written in the transaction that wrote the
// version) and nothing is made again.
int Store::createSchema(bool *current)
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
    *current = version == kSchemaVersion;
    if (*current)
        return SQLITE_OK;
    int rc = version == 1 ? migrateFrom1() : SQLITE_OK;
    if (rc == SQLITE_OK)
        rc = sqlite3_exec(db_, kSchema, nullptr, nullptr, nullptr);
    if (rc == SQLITE_OK && version < kSchemaVersion)
        rc = sqlite3_exec(db_, kWriteSchemaVersion, nullptr, nullptr, nullptr);
    return rc;
}

// The first schema's text is read as code page 1252, whatever the
// process's code page: that release wrote it so.
int Store::migrateFrom1()
{
    int rc = sqlite3_create_function_v2(db_, "reg_from_1252", 1, SQLITE_UTF8 | SQLITE_DETERMINISTIC, nullptr,
                                        fromCodePage1252, nullptr, nullptr, nullptr);
    if (rc == SQLITE_OK)
        rc = sqlite3_create_function_v2(db_, "reg_fold", 1, SQLITE_UTF8 | SQLITE_DETERMINISTIC, nullptr, foldOfName,
                                        nullptr, nullptr, nullptr);
    if (rc == SQLITE_OK)
        rc = sqlite3_exec(db_, kMigrateFrom1, nullptr, nullptr, nullptr);
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
        std::string ascii = kHiveNames[id - 1];
        Name name(ascii.begin(), ascii.end());
        int rc = use.id(1, id).name(2, name).blob(3, foldBytes(name)).id(4, fileTimeNow()).step();
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
    for (Stmt which : {kBegin, kCommit, kRollback}) {
        Prepared p = statement(which);
        if (!p.st)
            return p.status;
    }
    return SQLITE_OK;
}

Prepared Store::statement(Stmt which)
{
    if (stmt_[which])
        return {stmt_[which], SQLITE_OK};
    int rc = sqlite3_prepare_v3(db_, kStatements[which], -1, SQLITE_PREPARE_PERSISTENT, &stmt_[which], nullptr);
    if (rc == SQLITE_OK && !stmt_[which])
        rc = SQLITE_MISUSE; // no statement in the text: a bug of the store
    return {stmt_[which], rc};
}

} // namespace reg
} // namespace tsp
