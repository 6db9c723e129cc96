#include "base/alarm_store.h"

#include <sqlite3.h>

#include <cstring>
#include <memory>
#include <mutex>

#include "base/bounded_string.h"
#include "base/log.h"

namespace {

constexpr int kBusyMilliseconds = 2000;

struct CloseDatabase {
    void operator()(sqlite3* database) const { sqlite3_close_v2(database); }
};
struct FinishStatement {
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using Database = std::unique_ptr<sqlite3, CloseDatabase>;
using Statement = std::unique_ptr<sqlite3_stmt, FinishStatement>;

// A write counts only when it is on the disk, hence FULL; the log ahead of the file survives a kill at any moment.
constexpr const char* kPrepareStore =
    "PRAGMA journal_mode=WAL;"
    "PRAGMA synchronous=FULL;"
    "CREATE TABLE IF NOT EXISTS alarm (id INTEGER PRIMARY KEY AUTOINCREMENT, type TEXT NOT NULL, info TEXT NOT NULL);"
    "CREATE INDEX IF NOT EXISTS alarm_by_type ON alarm (type, info);";

struct Store {
    std::mutex mutex;
    Database database;  // Guarded by mutex.
};

// Never destroyed: threads may raise alarms until the process is gone.
Store& TheStore() {
    static Store& store = *new Store;
    return store;
}

int Failed(const char* what, sqlite3* database) {
    GVX_LOG_ERR("Alarm store", "%s failed: %s", what, database == nullptr ? "not open" : sqlite3_errmsg(database));
    return 1;
}

Statement Prepare(sqlite3* database, const char* sql) {
    sqlite3_stmt* statement = nullptr;
    sqlite3_prepare_v2(database, sql, -1, &statement, nullptr);
    return Statement(statement);
}

bool IsTerminated(const Alarm_Item& item) {
    return std::memchr(item.AlarmType, '\0', sizeof(item.AlarmType)) != nullptr &&
           std::memchr(item.AlarmInfo, '\0', sizeof(item.AlarmInfo)) != nullptr;
}

// Runs a statement that changes the table and has the item's two texts as its arguments.
int RunWithItem(const char* what, const char* sql, const Alarm_Item* item) {
    if (item == nullptr || !IsTerminated(*item)) {
        GVX_LOG_ERR("Alarm store", "%s failed: the item is null or not terminated", what);
        return 1;
    }
    Store& store = TheStore();
    const std::lock_guard<std::mutex> lock(store.mutex);
    sqlite3* const database = store.database.get();
    if (database == nullptr) {
        return Failed(what, nullptr);
    }
    const Statement statement = Prepare(database, sql);
    if (statement == nullptr ||
        sqlite3_bind_text(statement.get(), 1, item->AlarmType, -1, SQLITE_STATIC) != SQLITE_OK ||
        sqlite3_bind_text(statement.get(), 2, item->AlarmInfo, -1, SQLITE_STATIC) != SQLITE_OK ||
        sqlite3_step(statement.get()) != SQLITE_DONE) {
        return Failed(what, database);
    }
    return 0;
}

int CountItems(sqlite3* database, int* count) {
    const Statement statement = Prepare(database, "SELECT count(*) FROM alarm");
    if (statement == nullptr || sqlite3_step(statement.get()) != SQLITE_ROW) {
        return Failed("Counting the items", database);
    }
    *count = sqlite3_column_int(statement.get(), 0);
    return 0;
}

bool CopyColumn(sqlite3_stmt* statement, int column, char* target, std::size_t size) {
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement, column));
    return text != nullptr && strncpy_s(target, size, text, size) == 0;
}

int ReadItems(sqlite3* database, Alarm_Item* items, int* count) {
    const int room = *count;
    *count = 0;
    const Statement statement = Prepare(database, "SELECT type, info FROM alarm ORDER BY id LIMIT ?1");
    if (statement == nullptr || sqlite3_bind_int(statement.get(), 1, room < 0 ? 0 : room) != SQLITE_OK) {
        return Failed("Reading the items", database);
    }
    int read = 0;
    int step = sqlite3_step(statement.get());
    for (; step == SQLITE_ROW; step = sqlite3_step(statement.get())) {
        Alarm_Item& item = items[read];
        if (!CopyColumn(statement.get(), 0, item.AlarmType, sizeof(item.AlarmType)) ||
            !CopyColumn(statement.get(), 1, item.AlarmInfo, sizeof(item.AlarmInfo))) {
            return Failed("Reading an item", database);
        }
        ++read;
    }
    if (step != SQLITE_DONE) {
        return Failed("Reading the items", database);
    }
    *count = read;
    return 0;
}

Database OpenDatabase(const char* path) {
    sqlite3* raw = nullptr;
    const int result =
        sqlite3_open_v2(path, &raw, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX, nullptr);
    Database database(raw);
    if (result != SQLITE_OK || sqlite3_busy_timeout(raw, kBusyMilliseconds) != SQLITE_OK ||
        sqlite3_exec(raw, kPrepareStore, nullptr, nullptr, nullptr) != SQLITE_OK) {
        GVX_LOG_ERR("Alarm store", "Opening %s failed: %s", path, raw == nullptr ? "no memory" : sqlite3_errmsg(raw));
        database.reset();
    }
    return database;
}

}  // namespace

int ZVS_AlarmInit(const char* path) {
    if (path == nullptr || *path == '\0') {
        GVX_LOG_ERR("Alarm store", "Opening failed: no path");
        return 1;
    }
    Store& store = TheStore();
    const std::lock_guard<std::mutex> lock(store.mutex);
    store.database.reset();
    store.database = OpenDatabase(path);
    return store.database == nullptr ? 1 : 0;
}

int ZVS_AddAlarmItem(const Alarm_Item* item) {
    return RunWithItem("Adding an item", "INSERT INTO alarm (type, info) VALUES (?1, ?2)", item);
}

int ZVS_DelAlarmItem(const Alarm_Item* item) {
    return RunWithItem("Deleting an item", "DELETE FROM alarm WHERE type = ?1 AND info = ?2", item);
}

int ZVS_GetAllAlarmItem(Alarm_Item* items, int* count) {
    if (count == nullptr) {
        GVX_LOG_ERR("Alarm store", "Reading the items failed: no count");
        return 1;
    }
    Store& store = TheStore();
    const std::lock_guard<std::mutex> lock(store.mutex);
    if (store.database == nullptr) {
        return Failed("Reading the items", nullptr);
    }
    return items == nullptr ? CountItems(store.database.get(), count) : ReadItems(store.database.get(), items, count);
}

void ZVS_AlarmClose() {
    Store& store = TheStore();
    const std::lock_guard<std::mutex> lock(store.mutex);
    store.database.reset();
}
