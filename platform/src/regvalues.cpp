// The registry store's values: reading (through the read cache), writing
// and deleting them.
#include "regtxn.h"

namespace tsp {
namespace reg {

using namespace sql;

LONG Store::queryValue(KeyId key, const Name &name, DWORD *type, std::string *data)
{
    std::lock_guard<std::mutex> guard(lock_);
    if (LONG e = lockForRead())
        return e;
    bool cache = cacheable();
    std::string cacheKey(reinterpret_cast<const char *>(&key), sizeof key);
    cacheKey += foldBytes(name);
    auto it = valueCache_.find(cacheKey);
    if (it != valueCache_.end()) {
        *type = it->second.type;
        *data = it->second.data;
        return it->second.status;
    }
    CachedValue v{ERROR_SUCCESS, REG_NONE, std::string()};
    {
        Use q(statement(kGetValue));
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
LONG Store::setValue(KeyId key, const Name &name, DWORD type, const void *data, size_t size)
{
    // Most writes change a value that exists: one update by the primary
    // key, as cheap as a write gets. A value that is not there yet is
    // inserted by a second statement, which also finds a key that is gone.
    // Each commits by itself; the writers' lock keeps other writers out
    // between them, and the update changed nothing when the insert runs.
    return inWriteTxn(true, [&]() -> LONG {
        std::string fold = foldBytes(name);
        int64_t now = fileTimeNow();
        {
            Use update(statement(kUpdateValue));
            update.id(1, key).blob(2, fold).id(3, type).bytes(4, data, size).id(5, now);
            if (int rc = update.step(); rc != SQLITE_DONE)
                return sqlError(rc);
        }
        if (sqlite3_changes(db_) != 0)
            return ERROR_SUCCESS;
        {
            // Nothing is written when the key is gone.
            Use set(statement(kSetValue));
            set.id(1, key).blob(2, fold).name(3, name).id(4, type).bytes(5, data, size).id(6, now);
            if (int rc = set.step(); rc != SQLITE_DONE)
                return sqlError(rc);
        }
        if (sqlite3_changes(db_) == 0)
            return ERROR_KEY_DELETED;
        return ERROR_SUCCESS;
    });
}

LONG Store::deleteValue(KeyId key, const Name &name)
{
    return inWriteTxn(false, [&]() -> LONG {
        int rc;
        {
            Use del(statement(kDeleteValue));
            del.id(1, key).blob(2, foldBytes(name));
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
            Use touch(statement(kTouchKey));
            touch.id(1, key).id(2, fileTimeNow());
            if ((rc = touch.step()) != SQLITE_DONE)
                return sqlError(rc);
        }
        return ERROR_SUCCESS;
    });
}

} // namespace reg
} // namespace tsp
