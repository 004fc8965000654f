// The registry store's SQL text, and names and times in the database's form.
#include "regsql.h"

#include "casefold.h"

#include <time.h>

namespace tsp {
namespace reg {
namespace sql {

const char *const kWriteSchemaVersion = "PRAGMA user_version=2";
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

// Version 1 to 2, inside the transaction that opens the store: the text of
// code page 1252 becomes UTF-16 (reg_from_1252) and is folded again
// (reg_fold). Names that differed only in the case of letters beyond ASCII
// fold alike now: the unique index is built afresh and refuses them, and
// the store stays as it was.
const char *const kMigrateFrom1 =
    "DROP INDEX IF EXISTS keys_child;"
    "UPDATE keys SET name=reg_from_1252(name), class=reg_from_1252(class);"
    "UPDATE keys SET fold=reg_fold(name);"
    "CREATE UNIQUE INDEX keys_child ON keys(parent, fold);"
    "CREATE TABLE vals2("
    "  key INTEGER NOT NULL, fold BLOB NOT NULL, name BLOB NOT NULL, ord INTEGER NOT NULL,"
    "  type INTEGER NOT NULL, data BLOB NOT NULL, mtime INTEGER NOT NULL, PRIMARY KEY(key, fold)) WITHOUT ROWID;"
    "INSERT INTO vals2 SELECT key, reg_fold(reg_from_1252(name)), reg_from_1252(name), ord, type,"
    "  CASE WHEN type IN (1, 2, 7) THEN reg_from_1252(data) ELSE data END, mtime FROM vals;"
    "DROP TABLE vals;"
    "ALTER TABLE vals2 RENAME TO vals;";

// A commit is appended to the write-ahead log without waiting for the disk:
// it survives the death of any process at once, a power cut once a
// checkpoint has synced it (see Store::flush).
const char *const kJournalMode = "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL;";
const char *const kBeginText = "BEGIN IMMEDIATE";
const char *const kCommitText = "COMMIT";
const char *const kRollbackText = "ROLLBACK";
const char *const kInsertHive = "INSERT OR IGNORE INTO keys(id, parent, name, fold, class, vol, mtime)"
                                " VALUES(?1, 0, ?2, ?3, NULL, 0, ?4)";
const char *const kReadBootId = "SELECT value FROM meta WHERE name='boot'";
const char *const kWriteBootId = "INSERT OR REPLACE INTO meta(name, value) VALUES('boot', ?1)";
const char *const kDropVolatileKeys = "DELETE FROM vals WHERE key IN (SELECT id FROM keys WHERE vol=1);"
                                      "DELETE FROM keys WHERE vol=1;";

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

} // namespace sql

std::string nameBytes(const std::u16string &name)
{
    std::string out(name.size() * 2, '\0');
    for (size_t i = 0; i < name.size(); ++i) {
        out[2 * i] = static_cast<char>(name[i] & 0xFF);
        out[2 * i + 1] = static_cast<char>(name[i] >> 8);
    }
    return out;
}

std::string foldBytes(const std::u16string &name)
{
    std::string out(name.size() * 2, '\0');
    for (size_t i = 0; i < name.size(); ++i) {
        char16_t u = upperUnit(name[i]);
        out[2 * i] = static_cast<char>(u >> 8);
        out[2 * i + 1] = static_cast<char>(u & 0xFF);
    }
    return out;
}

std::u16string nameOf(const void *bytes, size_t size)
{
    const unsigned char *b = static_cast<const unsigned char *>(bytes);
    std::u16string out(size / 2, u'\0');
    for (size_t i = 0; i < out.size(); ++i)
        out[i] = static_cast<char16_t>(b[2 * i] | (b[2 * i + 1] << 8));
    return out;
}

int64_t fileTimeNow()
{
    timespec ts;
    clock_gettime(CLOCK_REALTIME, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 10000000 + ts.tv_nsec / 100 + 116444736000000000LL;
}

} // namespace reg
} // namespace tsp
