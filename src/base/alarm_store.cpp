#include "base/alarm_store.h"

#include "base/alarm_store_file.h"
#include "base/fixed_text.h"
#include "base/log.h"

#include <sqlite3.h>

#include <algorithm>
#include <cstring>
#include <mutex>

namespace {

struct Store {
    std::mutex mutex;
    // Guarded by mutex. The statements are made once, and end ahead of the data base that they belong to.
    gvx::Database database;
    gvx::Statement addItem;
    gvx::Statement deleteItem;
    gvx::Statement countItems;
    gvx::Statement readItems;
    gvx::Statement readDistinct;

    void Close() {
        for (gvx::Statement* statement : {&addItem, &deleteItem, &countItems, &readItems, &readDistinct}) {
            statement->reset();
        }
        database.reset();
    }

    bool Open(const char* path) {
        Close();
        database = gvx::OpenAlarmDatabase(path);
        if (database == nullptr) {
            return false;
        }
        addItem = gvx::PrepareStatement(database.get(), "INSERT INTO alarm (type, info) VALUES (?1, ?2)");
        deleteItem = gvx::PrepareStatement(database.get(), "DELETE FROM alarm WHERE type = ?1 AND info = ?2");
        countItems = gvx::PrepareStatement(database.get(), "SELECT count(*) FROM alarm");
        readItems = gvx::PrepareStatement(database.get(), "SELECT type, info FROM alarm ORDER BY id LIMIT ?1");
        readDistinct = gvx::PrepareStatement(
            database.get(), "SELECT type, info FROM alarm GROUP BY type, info ORDER BY min(id) LIMIT ?1");
        if (addItem != nullptr && deleteItem != nullptr && countItems != nullptr && readItems != nullptr &&
            readDistinct != nullptr) {
            return true;
        }
        GVX_LOG_ERR("Alarm store", "Opening %s failed: %s", path, sqlite3_errmsg(database.get()));
        Close();
        return false;
    }
};

// Never destroyed: threads may raise alarms until the process is gone.
Store& TheStore() {
    static Store& store = *new Store;
    return store;
}

// Makes a statement ready for its next use at the end of this one; what it failed with stays the data base's error.
class Use {
public:
    explicit Use(sqlite3_stmt* statement) : m_statement(statement) {}
    ~Use() {
        sqlite3_reset(m_statement);
        sqlite3_clear_bindings(m_statement);
    }
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;

private:
    sqlite3_stmt* const m_statement;
};

int Failed(const char* what, sqlite3* database, int level = OM_LOG_ERR) {
    GVX_LOG(level, "Alarm store", "%s failed: %s", what, database == nullptr ? "not open" : sqlite3_errmsg(database));
    return 1;
}

bool IsTerminated(const Alarm_Item& item) {
    return std::memchr(item.AlarmType, '\0', sizeof(item.AlarmType)) != nullptr &&
           std::memchr(item.AlarmInfo, '\0', sizeof(item.AlarmInfo)) != nullptr;
}

bool Step(sqlite3_stmt* statement, const Alarm_Item& item) {
    const Use use(statement);
    return sqlite3_bind_text(statement, 1, item.AlarmType, -1, SQLITE_STATIC) == SQLITE_OK &&
           sqlite3_bind_text(statement, 2, item.AlarmInfo, -1, SQLITE_STATIC) == SQLITE_OK &&
           sqlite3_step(statement) == SQLITE_DONE;
}

// Runs a statement that changes the table and has an item's two texts as its arguments, for each item, in one write.
int RunWithItems(const char* what, gvx::Statement Store::*member, const Alarm_Item* items, std::size_t count,
                 int level = OM_LOG_ERR) {
    if (items == nullptr || !std::all_of(items, items + count, &IsTerminated)) {
        GVX_LOG_ERR("Alarm store", "%s failed: the item is null or not terminated", what);
        return 1;
    }
    Store& store = TheStore();
    const std::lock_guard<std::mutex> lock(store.mutex);
    sqlite3* const database = store.database.get();
    if (database == nullptr) {
        return Failed(what, nullptr, level);
    }
    sqlite3_stmt* const statement = (store.*member).get();
    if (count == 1) {
        return Step(statement, *items) ? 0 : Failed(what, database, level);
    }
    bool done = sqlite3_exec(database, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr) == SQLITE_OK;
    for (std::size_t at = 0; done && at < count; ++at) {
        done = Step(statement, items[at]);
    }
    if (done && sqlite3_exec(database, "COMMIT", nullptr, nullptr, nullptr) == SQLITE_OK) {
        return 0;
    }
    Failed(what, database, level);
    if (sqlite3_get_autocommit(database) == 0) {
        sqlite3_exec(database, "ROLLBACK", nullptr, nullptr, nullptr);
    }
    return 1;
}

int CountItems(const Store& store, int* count) {
    sqlite3_stmt* const statement = store.countItems.get();
    const Use use(statement);
    if (sqlite3_step(statement) != SQLITE_ROW) {
        return Failed("Counting the items", store.database.get());
    }
    *count = sqlite3_column_int(statement, 0);
    return 0;
}

bool CopyColumn(sqlite3_stmt* statement, int column, char* target, std::size_t size) {
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement, column));
    return text != nullptr && gvx::PutText(target, size, text);
}

int ReadItems(const Store& store, sqlite3_stmt* statement, Alarm_Item* items, int* count) {
    const int room = *count;
    *count = 0;
    const Use use(statement);
    if (sqlite3_bind_int(statement, 1, room < 0 ? 0 : room) != SQLITE_OK) {
        return Failed("Reading the items", store.database.get());
    }
    int read = 0;
    int step = sqlite3_step(statement);
    for (; step == SQLITE_ROW; step = sqlite3_step(statement)) {
        Alarm_Item& item = items[read];
        if (!CopyColumn(statement, 0, item.AlarmType, sizeof(item.AlarmType)) ||
            !CopyColumn(statement, 1, item.AlarmInfo, sizeof(item.AlarmInfo))) {
            return Failed("Reading an item", store.database.get());
        }
        ++read;
    }
    if (step != SQLITE_DONE) {
        return Failed("Reading the items", store.database.get());
    }
    *count = read;
    return 0;
}

}  // namespace

int ZVS_AlarmInit(const char* path) {
    if (path == nullptr || *path == '\0') {
        GVX_LOG_ERR("Alarm store", "Opening failed: no path");
        return 1;
    }
    Store& store = TheStore();
    const std::lock_guard<std::mutex> lock(store.mutex);
    return store.Open(path) ? 0 : 1;
}

int ZVS_AddAlarmItem(const Alarm_Item* item) {
    return RunWithItems("Adding an item", &Store::addItem, item, 1);
}

int ZVS_DelAlarmItem(const Alarm_Item* item) {
    return RunWithItems("Deleting an item", &Store::deleteItem, item, 1);
}

namespace {

// Of the statement, or of the count where there are no items.
int GetItems(gvx::Statement Store::*member, Alarm_Item* items, int* count) {
    if (count == nullptr) {
        GVX_LOG_ERR("Alarm store", "Reading the items failed: no count");
        return 1;
    }
    Store& store = TheStore();
    const std::lock_guard<std::mutex> lock(store.mutex);
    if (store.database == nullptr) {
        return Failed("Reading the items", nullptr);
    }
    return items == nullptr ? CountItems(store, count) : ReadItems(store, (store.*member).get(), items, count);
}

}  // namespace

int ZVS_GetAllAlarmItem(Alarm_Item* items, int* count) {
    return GetItems(&Store::readItems, items, count);
}

void ZVS_AlarmClose() {
    Store& store = TheStore();
    const std::lock_guard<std::mutex> lock(store.mutex);
    store.Close();
}

namespace gvx {

bool AlarmStoreIsOpen() {
    Store& store = TheStore();
    const std::lock_guard<std::mutex> lock(store.mutex);
    return store.database != nullptr;
}

int AddAlarmItems(const std::vector<Alarm_Item>& items) {
    return RunWithItems("Adding items", &Store::addItem, items.data(), items.size());
}

int DeleteAlarmItems(const std::vector<Alarm_Item>& items, bool isKnown) {
    return RunWithItems("Deleting items", &Store::deleteItem, items.data(), items.size(),
                        isKnown ? OM_LOG_DEBUG : OM_LOG_ERR);
}

int ReadDistinctAlarmItems(Alarm_Item* items, int* count) {
    return GetItems(&Store::readDistinct, items, count);
}

}  // namespace gvx
