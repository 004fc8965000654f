// The registry store's keys: finding, opening, creating and deleting them.
#include "regtxn.h"

namespace tsp {
namespace reg {

using namespace sql;

LONG Store::findChild(KeyId parent, const std::string &fold, KeyId *out, bool *isVolatile)
{
    Use q(statement(kFindChild));
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
    Use q(statement(kKeyRow));
    q.id(1, id);
    int rc = q.step();
    row->found = rc == SQLITE_ROW;
    if (rc == SQLITE_ROW) {
        row->cls = q.name(0);
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

LONG Store::findPath(KeyId base, const std::vector<Name> &path, KeyId *out)
{
    KeyRow row;
    if (LONG e = liveKeyRow(base, &row))
        return e;
    KeyId id = base;
    for (const Name &level : path) {
        if (LONG e = findChild(id, foldBytes(level), &id, nullptr))
            return e;
    }
    *out = id;
    return ERROR_SUCCESS;
}

LONG Store::openCached(KeyId base, const std::vector<Name> &path, KeyId *out)
{
    bool cache = cacheable();
    std::string cacheKey(reinterpret_cast<const char *>(&base), sizeof base);
    for (const Name &level : path) {
        cacheKey += foldBytes(level);
        cacheKey += std::string("\0\\", 2); // the fold's form of "\\", which no level holds
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

LONG Store::openKey(KeyId base, const std::vector<Name> &path, KeyId *out)
{
    std::lock_guard<std::mutex> guard(lock_);
    if (LONG e = lockForRead())
        return e;
    return openCached(base, path, out);
}

LONG Store::createKey(KeyId base, const std::vector<Name> &path, const Name *cls, bool isVolatile,
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
    for (const Name &level : path) {
        std::string fold = foldBytes(level);
        KeyId child;
        bool childVolatile = false;
        LONG e = findChild(id, fold, &child, &childVolatile);
        if (e == ERROR_FILE_NOT_FOUND) {
            if (parentVolatile && !isVolatile)
                return ERROR_CHILD_MUST_BE_VOLATILE;
            int rc;
            {
                Use ins(statement(kInsertKey));
                ins.id(1, id).name(2, level).blob(3, fold);
                if (cls)
                    ins.name(4, *cls);
                ins.id(5, isVolatile ? 1 : 0).id(6, now);
                if ((rc = ins.step()) != SQLITE_DONE)
                    return sqlError(rc);
            }
            child = sqlite3_last_insert_rowid(db_);
            if ((rc = Use(statement(kTouchKey)).id(1, id).id(2, now).step()) != SQLITE_DONE)
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

LONG Store::deleteKey(KeyId base, const std::vector<Name> &path)
{
    return inWriteTxn(false, [&]() -> LONG {
        KeyId id;
        if (LONG e = findPath(base, path, &id))
            return e;
        if (id <= kLastHiveId)
            return ERROR_ACCESS_DENIED;
        int rc;
        {
            Use q(statement(kCountChildren));
            q.id(1, id);
            if ((rc = q.step()) != SQLITE_ROW)
                return sqlError(rc);
            if (q.int64(0) != 0)
                return ERROR_ACCESS_DENIED;
        }
        KeyRow row;
        if (LONG e = keyRow(id, &row))
            return e;
        if ((rc = Use(statement(kDeleteKeyValues)).id(1, id).step()) != SQLITE_DONE)
            return sqlError(rc);
        if ((rc = Use(statement(kDeleteKey)).id(1, id).step()) != SQLITE_DONE)
            return sqlError(rc);
        if ((rc = Use(statement(kTouchKey)).id(1, row.parent).id(2, fileTimeNow()).step()) != SQLITE_DONE)
            return sqlError(rc);
        return ERROR_SUCCESS;
    });
}

} // namespace reg
} // namespace tsp
