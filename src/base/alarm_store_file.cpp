#include "base/alarm_store_file.h"

#include "base/clock.h"
#include "base/log.h"

#include <sqlite3.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include <unistd.h>

namespace gvx {

namespace {

constexpr int kBusyMilliseconds = 2000;
constexpr int kPrimaryCode = 0xFF;
constexpr int kMostSetAside = 100;

// A write counts only when it is on the disk, hence FULL; the log ahead of the file survives a kill at any moment.
constexpr const char* kPrepareStore =
    "PRAGMA journal_mode=WAL;"
    "PRAGMA synchronous=FULL;"
    "CREATE TABLE IF NOT EXISTS alarm (id INTEGER PRIMARY KEY AUTOINCREMENT, type TEXT NOT NULL, info TEXT NOT NULL);"
    "CREATE INDEX IF NOT EXISTS alarm_by_type ON alarm (type, info);";

// The parts of a data base, each with its own name behind that of the file.
constexpr const char* kParts[] = {"", "-wal", "-shm"};

// SQLITE_OK, SQLITE_CORRUPT for pages that do not fit together, or another SQLite result.
int QuickCheck(sqlite3* database) {
    const Statement statement = PrepareStatement(database, "PRAGMA quick_check(1)");
    if (statement == nullptr) {
        return sqlite3_errcode(database);
    }
    const int step = sqlite3_step(statement.get());
    if (step != SQLITE_ROW) {
        return step == SQLITE_DONE ? SQLITE_OK : step;
    }
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement.get(), 0));
    return text != nullptr && std::strcmp(text, "ok") == 0 ? SQLITE_OK : SQLITE_CORRUPT;
}

// Reads the whole of a file of the data base, by a descriptor of SQLite's own: to close another one would end its
// locks.
int ReadThrough(sqlite3* database, int whichFile) {
    sqlite3_file* file = nullptr;
    sqlite3_int64 size = 0;
    if (sqlite3_file_control(database, nullptr, whichFile, &file) != SQLITE_OK || file == nullptr ||
        file->pMethods == nullptr) {
        return SQLITE_OK;
    }
    int result = file->pMethods->xFileSize(file, &size);
    char block[4096];
    for (sqlite3_int64 at = 0; result == SQLITE_OK && at < size; at += static_cast<sqlite3_int64>(sizeof(block))) {
        const auto length = std::min<sqlite3_int64>(static_cast<sqlite3_int64>(sizeof(block)), size - at);
        result = file->pMethods->xRead(file, block, static_cast<int>(length), at);
    }
    return result;
}

// The check calls a page that cannot be read a damaged one, so it is believed when each can be read.
int CheckPages(sqlite3* database) {
    int result = QuickCheck(database);
    for (const int file : {SQLITE_FCNTL_FILE_POINTER, SQLITE_FCNTL_JOURNAL_POINTER}) {
        if (result == SQLITE_CORRUPT) {
            const int read = ReadThrough(database, file);
            result = read == SQLITE_OK ? result : read;
        }
    }
    return result;
}

// An SQLite result with its message in reason.
int TryOpen(const std::string& path, Database& database, std::string& reason) {
    sqlite3* raw = nullptr;
    // The store's own lock serves one caller at a time, so SQLite needs none.
    int result =
        sqlite3_open_v2(path.c_str(), &raw, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
    database.reset(raw);
    if (result == SQLITE_OK) {
        result = sqlite3_busy_timeout(raw, kBusyMilliseconds);
    }
    if (result == SQLITE_OK) {
        result = sqlite3_exec(raw, kPrepareStore, nullptr, nullptr, nullptr);
    }
    if (result == SQLITE_OK) {
        result = CheckPages(raw);
    }
    if (result == SQLITE_OK) {
        // Processes that are killed again and again would let the log grow; where it cannot be emptied now, it can
        // later.
        sqlite3_wal_checkpoint_v2(raw, nullptr, SQLITE_CHECKPOINT_TRUNCATE, nullptr, nullptr);
    }
    if (result != SQLITE_OK) {
        const bool tellsItself = raw != nullptr && sqlite3_errcode(raw) != SQLITE_OK;
        reason = tellsItself ? sqlite3_errmsg(raw) : sqlite3_errstr(result);
        const int system = tellsItself ? sqlite3_system_errno(raw) : 0;
        reason += system != 0 ? std::string(": ") + std::strerror(system) : "";
        database.reset();
    }
    return result & kPrimaryCode;
}

std::string DatedName(const std::string& path) {
    const std::time_t now = WallSeconds();
    std::tm utc{};
    gmtime_r(&now, &utc);
    char date[32];
    std::strftime(date, sizeof(date), "%Y%m%d%H%M%S", &utc);
    std::string name = path + ".corrupt-" + date;
    for (int number = 1; access(name.c_str(), F_OK) == 0 && number < kMostSetAside; ++number) {
        name = path + ".corrupt-" + date + "-" + std::to_string(number);
    }
    return name;
}

// False, with an error line, when the file stays where it is.
bool SetAside(const std::string& path, const std::string& reason) {
    const std::string name = DatedName(path);
    if (std::rename(path.c_str(), name.c_str()) != 0) {
        GVX_LOG_ERR("Alarm store", "%s is corrupt (%s) and cannot be set aside: %s", path.c_str(), reason.c_str(),
                    std::strerror(errno));
        return false;
    }
    for (const char* part : kParts) {
        if (*part != '\0') {
            std::rename((path + part).c_str(), (name + part).c_str());  // mostly there is none
        }
    }
    GVX_LOG_ERR("Alarm store", "%s is corrupt (%s): set aside as %s, a fresh store is begun", path.c_str(),
                reason.c_str(), name.c_str());
    return true;
}

}  // namespace

void CloseDatabase::operator()(sqlite3* database) const {
    sqlite3_close_v2(database);
}

void FinishStatement::operator()(sqlite3_stmt* statement) const {
    sqlite3_finalize(statement);
}

Statement PrepareStatement(sqlite3* database, const char* sql) {
    sqlite3_stmt* statement = nullptr;
    sqlite3_prepare_v2(database, sql, -1, &statement, nullptr);
    return Statement(statement);
}

Database OpenAlarmDatabase(const std::string& path) {
    Database database;
    std::string reason;
    int result = TryOpen(path, database, reason);
    const auto isDamaged = [&result] { return result == SQLITE_NOTADB || result == SQLITE_CORRUPT; };
    if (isDamaged()) {
        result = TryOpen(path, database, reason);  // a read that failed for once may have looked like it
    }
    if (isDamaged()) {
        if (!SetAside(path, reason)) {
            return nullptr;
        }
        result = TryOpen(path, database, reason);
    }
    if (result != SQLITE_OK) {
        GVX_LOG_ERR("Alarm store", "Opening %s failed: %s", path.c_str(), reason.c_str());
    }
    return database;
}

}  // namespace gvx
