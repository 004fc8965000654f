// What SQLite's own check says of the registry's database.
#pragma once

#include <sqlite3.h>

#include <string>

namespace tstest {

// "ok", or what is wrong with the database at dbPath.
inline std::string IntegrityOf(const std::string &dbPath)
{
    sqlite3 *db = nullptr;
    std::string result;
    if (sqlite3_open_v2(dbPath.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
        result = "cannot open";
    } else {
        auto collect = [](void *out, int, char **row, char **) {
            *static_cast<std::string *>(out) += row[0] ? row[0] : "(null)";
            return 0;
        };
        if (sqlite3_exec(db, "PRAGMA integrity_check", collect, &result, nullptr) != SQLITE_OK)
            result = "check failed";
    }
    sqlite3_close(db);
    return result;
}

} // namespace tstest
