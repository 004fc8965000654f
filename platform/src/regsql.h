// What the units of the registry store share: the SQL text, the helpers
// that prepare, bind and step statements, and the forms of names and times
// as the database keeps them.
//
// Names are kept as UTF-16LE in the "name" columns, and by their upper-case
// fold (casefold.h) as UTF-16BE in the "fold" columns, so that SQLite's
// byte order of folds is the order of the units, the order in which
// Windows enumerates subkeys. String data is kept as the bytes given.
#pragma once

#include "check.h"

#include <sqlite3.h>

#include <cstdint>
#include <string>

// A SQLite call that cannot fail here, checked with SQLite's text for the
// result.
#define REG_CHECK_SQLITE(call, what)                                                                                  \
    [&](int regCheckResult) {                                                                                          \
        return ::tsp::checkPassed(regCheckResult == SQLITE_OK, (what), sqlite3_errstr(regCheckResult),                 \
                                  regCheckResult, __FILE__, __LINE__);                                                 \
    }(call)

namespace tsp {
namespace reg {
namespace sql {

// PRAGMA user_version of the database; the pragma takes no parameter, so
// the text that writes it says the same number. Version 1 kept names and
// string data as bytes of code page 1252; version 2 keeps UTF-16.
constexpr int kSchemaVersion = 2;
extern const char *const kWriteSchemaVersion;
extern const char *const kReadSchemaVersion;
extern const char *const kSchema;
extern const char *const kMigrateFrom1;
extern const char *const kJournalMode;
extern const char *const kBeginText;
extern const char *const kCommitText;
extern const char *const kRollbackText;
extern const char *const kInsertHive;
extern const char *const kReadBootId;
extern const char *const kWriteBootId;
extern const char *const kDropVolatileKeys;
// The prepared statements, in the order of Store::Stmt.
extern const char *const kStatements[];

} // namespace sql

// A name as its column keeps it, and its fold.
std::string nameBytes(const std::u16string &name);
std::string foldBytes(const std::u16string &name);
std::u16string nameOf(const void *bytes, size_t size);

// Now as a FILETIME: 100 ns units since 1601.
int64_t fileTimeNow();

// A transaction that failed may have been rolled back by SQLite already
// (after an I/O error or a full disk); then ROLLBACK has nothing to undo
// and says so, which is no fault.
inline void rollBack(sqlite3 *db) { sqlite3_exec(db, sql::kRollbackText, nullptr, nullptr, nullptr); }

// A statement prepared for one use while the store is set up.
class Statement {
public:
    Statement(sqlite3 *db, const char *text) : status_(sqlite3_prepare_v2(db, text, -1, &st_, nullptr)) {}
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

// A statement of the store prepared at its first use, or the reason it
// could not be (then st is null).
struct Prepared {
    sqlite3_stmt *st;
    int status;
};

// Binds and resets a prepared statement around one use. A value that
// cannot be bound (too big, out of memory) is the result of step.
class Use {
public:
    explicit Use(sqlite3_stmt *st) : st_(st) {}
    // A statement that could not be prepared fails its step with the reason.
    explicit Use(Prepared p) : st_(p.st), bindStatus_(p.st ? SQLITE_OK : p.status) {}
    ~Use()
    {
        if (!st_)
            return;
        // reset repeats the error of the last step, which was seen there.
        sqlite3_reset(st_);
        REG_CHECK_SQLITE(sqlite3_clear_bindings(st_), "sqlite3_clear_bindings");
    }
    Use &id(int i, int64_t v) { return bound(sqlite3_bind_int64(st_, i, v)); }
    // Copied: a caller may pass a temporary.
    Use &blob(int i, const std::string &s)
    {
        return bound(sqlite3_bind_blob(st_, i, s.data(), static_cast<int>(s.size()), SQLITE_TRANSIENT));
    }
    Use &string(int i, const std::string &s)
    {
        return bound(sqlite3_bind_text(st_, i, s.data(), static_cast<int>(s.size()), SQLITE_TRANSIENT));
    }
    // The units as they lie in memory, which is UTF-16LE on the hosts the
    // layer runs on.
    Use &name(int i, const std::u16string &s)
    {
        static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "names are kept in UTF-16LE");
        return bound(sqlite3_bind_blob(st_, i, s.data(), static_cast<int>(s.size() * 2), SQLITE_TRANSIENT));
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
    std::u16string name(int col)
    {
        const void *p = sqlite3_column_blob(st_, col);
        return nameOf(p, p ? static_cast<size_t>(sqlite3_column_bytes(st_, col)) : 0);
    }
    bool isNull(int col) { return sqlite3_column_type(st_, col) == SQLITE_NULL; }

private:
    Use &bound(int rc)
    {
        if (!st_)
            return *this; // not prepared: step says why
        // A parameter number the text does not have is a bug of the store.
        REG_CHECK_SQLITE(rc == SQLITE_RANGE || rc == SQLITE_MISUSE ? rc : SQLITE_OK, "sqlite3_bind");
        if (bindStatus_ == SQLITE_OK)
            bindStatus_ = rc;
        return *this;
    }

    sqlite3_stmt *st_;
    int bindStatus_ = SQLITE_OK;
};

} // namespace reg
} // namespace tsp
