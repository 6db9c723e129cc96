#pragma once

#include <memory>
#include <string>

struct sqlite3;
struct sqlite3_stmt;

// The data base file behind the alarm store; for the store alone, which calls it under its lock.

namespace gvx {

struct CloseDatabase {
    void operator()(sqlite3* database) const;
};
struct FinishStatement {
    void operator()(sqlite3_stmt* statement) const;
};
using Database = std::unique_ptr<sqlite3, CloseDatabase>;
using Statement = std::unique_ptr<sqlite3_stmt, FinishStatement>;

// Opens the data base, which is made when it is missing, and looks through all of it. One that is corrupt, or a file
// that is none, is set aside under a dated name and a fresh one is begun, with one error line. Null, with an error
// line, on any other failure.
Database OpenAlarmDatabase(const std::string& path);

// Null when the statement cannot be prepared.
Statement PrepareStatement(sqlite3* database, const char* sql);

}  // namespace gvx
