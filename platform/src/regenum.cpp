// The registry store's read cache, and the listings of a key's subkeys and
// values with its counts.
#include "regsql.h"
#include "regstore.h"

#include <algorithm>

namespace tsp {
namespace reg {

using namespace sql;

namespace {

constexpr size_t kMaxCacheEntries = 20000;

} // namespace

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
        Use q(statement(st));
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
        key, kListSubkeys, subkeyCache_, [](Use &q) { return SubkeyEntry{q.name(0), q.name(1), q.int64(2)}; }, out);
}

LONG Store::values(KeyId key, std::shared_ptr<const std::vector<ValueEntry>> *out)
{
    return cachedListing(
        key, kListValues, valueListCache_,
        [](Use &q) { return ValueEntry{q.name(0), static_cast<DWORD>(q.int64(1)), q.text(2), q.int64(3)}; }, out);
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
