#pragma once

// The two calls every benchmark against SQLite makes, failing the program
// (BenchSupport's Check) when SQLite refuses.

#include <sqlite3.h>

#include "BenchSupport.h"

namespace quillet::bench {

inline void SqliteExec(sqlite3* db, const char* sql) {
    Check(sqlite3_exec(db, sql, nullptr, nullptr, nullptr) == SQLITE_OK, sql);
}

inline sqlite3_stmt* SqlitePrepare(sqlite3* db, const char* sql) {
    sqlite3_stmt* statement = nullptr;
    Check(sqlite3_prepare_v2(db, sql, -1, &statement, nullptr) == SQLITE_OK, sql);
    return statement;
}

}  // namespace quillet::bench
