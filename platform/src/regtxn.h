// Writes to the registry store: the writers' lock, the change counter and
// the transaction around one write.
#pragma once

#include "regsql.h"
#include "regstore.h"

namespace tsp {
namespace reg {

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

} // namespace reg
} // namespace tsp
