// Alarms raised and cleared through the state keeper with its store, against the same rows in a bare SQLite table, and
// the time until a restart has taken over many open alarms.

#include "bench_support.h"

#include "base/alarm_store.h"
#include "bp/dispatcher.h"
#include "gvx_common/alarm/emergency_protection.h"
#include "gvx_common/config/cloud_config_mgr.h"
#include "gvx_common/link/gvx_connection_mgr.h"

#include <ace/Message_Block.h>
#include <sqlite3.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace {

constexpr int kAlarms = 200;
constexpr int kRounds = 5;
constexpr int kOpenAlarms = 10000;
constexpr unsigned int kRaiseCode = 500;
constexpr unsigned int kClearCode = 550;

constexpr const char* kPrepare =
    "PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL;"
    "CREATE TABLE alarm (id INTEGER PRIMARY KEY AUTOINCREMENT, type TEXT NOT NULL, info TEXT NOT NULL);"
    "CREATE INDEX alarm_by_type ON alarm (type, info);";

void Demand(bool good, const char* what) {
    if (!good) {
        std::fprintf(stderr, "%s failed\n", what);
        std::exit(1);
    }
}

class BenchFolder {
public:
    BenchFolder() {
        // Where the program is started: a store on a file system in memory would measure nothing.
        std::string pattern = (std::filesystem::current_path() / "gvx_bench_XXXXXX").string();
        m_path = mkdtemp(pattern.data());
    }
    ~BenchFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    std::string Path(const char* name) const { return (m_path / name).string(); }

private:
    std::filesystem::path m_path;
};

// The floor: prepared statements on the same table with the same promises.
class BareTable {
public:
    explicit BareTable(const std::string& path) {
        Demand(sqlite3_open(path.c_str(), &m_database) == SQLITE_OK, "opening the bare table");
        Demand(sqlite3_exec(m_database, kPrepare, nullptr, nullptr, nullptr) == SQLITE_OK, "the bare table");
        Prepare("INSERT INTO alarm (type, info) VALUES (?1, ?2)", m_insert);
        Prepare("DELETE FROM alarm WHERE type = ?1 AND info = ?2", m_delete);
    }
    ~BareTable() {
        sqlite3_finalize(m_insert);
        sqlite3_finalize(m_delete);
        sqlite3_close(m_database);
    }
    BareTable(const BareTable&) = delete;
    BareTable& operator=(const BareTable&) = delete;

    void Insert(const std::string& info) { Run(m_insert, info); }
    void Delete(const std::string& info) { Run(m_delete, info); }

private:
    void Prepare(const char* sql, sqlite3_stmt*& statement) {
        Demand(sqlite3_prepare_v2(m_database, sql, -1, &statement, nullptr) == SQLITE_OK, sql);
    }
    static void Run(sqlite3_stmt* statement, const std::string& info) {
        sqlite3_bind_text(statement, 1, ALARM_GVX_LOG_RECORD_FAIL, -1, SQLITE_STATIC);
        sqlite3_bind_text(statement, 2, info.c_str(), -1, SQLITE_STATIC);
        Demand(sqlite3_step(statement) == SQLITE_DONE, "a step of the bare table");
        sqlite3_reset(statement);
    }

    sqlite3* m_database = nullptr;
    sqlite3_stmt* m_insert = nullptr;
    sqlite3_stmt* m_delete = nullptr;
};

std::string FileName(int number) {
    return "gvxd." + std::to_string(number) + ".log";
}
std::string InfoText(int number) {
    return "FilePath=/var/log/gvx,FileName=" + FileName(number) + ",ErrorCode=500";
}

double PerSecond(const std::function<void(int)>& step) {
    const std::int64_t begin = bench::NowNs();
    for (int number = 0; number < kAlarms; ++number) {
        step(number);
    }
    return kAlarms * 1e9 / static_cast<double>(bench::NowNs() - begin);
}

// Both links are up and swallow what is sent, so that every alarm goes its whole way.
void OpenLinks() {
    const auto conf = std::filesystem::path(GVX_SOURCE_TREE) / "conf";
    setenv("GVX_CONFIG_DIR", conf.c_str(), 1);  // each report reads log.xml
    CCloudConfigMgr::Instance()->SetCloudConfigInited(true);
    BP::CDispatcher::SetWriter([](const std::string&, ACE_Message_Block* block) {
        block->release();
        return 0;
    });
    BP::CDispatcher::SetSink([](std::unique_ptr<BP::CCmd>) { return 0; });
    BP::CTransactionMgr::StopWaiting();
    GvxConnectionMgr()->OnLinkOpened("", 0, "OMU#1", "127.0.0.1", 1);
    GvxConnectionMgr()->OnLinkOpened("", 0, "GVX#000", "127.0.0.1", 1);
}

// Path and floor take turns, as the disk's speed changes from one moment to the next.
void BenchRaiseAndClear(const BenchFolder& folder, bench::Table& table) {
    BareTable bare(folder.Path("bare.db"));
    CEmergencyProtection* const alarms = CEmergencyProtection::Instance();
    Demand(alarms->LoadAlarmStatus(folder.Path("alarms.db")) == 1, "an empty store");
    std::vector<double> raise, insert, clear, remove;
    for (int round = 0; round < kRounds; ++round) {
        raise.push_back(PerSecond([&](int n) { alarms->OnLogWarn(kRaiseCode, "/var/log/gvx", FileName(n).c_str()); }));
        insert.push_back(PerSecond([&](int n) { bare.Insert(InfoText(n)); }));
        clear.push_back(PerSecond([&](int n) { alarms->OnLogWarn(kClearCode, "/var/log/gvx", FileName(n).c_str()); }));
        remove.push_back(PerSecond([&](int n) { bare.Delete(InfoText(n)); }));
    }
    int left = -1;
    Demand(ZVS_GetAllAlarmItem(nullptr, &left) == 0 && left == 0, "clearing all alarms");
    table.Row("raise and store", bench::Median(raise), bench::Median(insert), "/s", bench::Goal::AtLeast, 0.8);
    table.Row("clear and delete", bench::Median(clear), bench::Median(remove), "/s", bench::Goal::AtLeast, 0.8);
}

void BenchRestart(const BenchFolder& folder, bench::Table& table) {
    const std::string path = folder.Path("many.db");
    sqlite3* database = nullptr;
    Demand(sqlite3_open(path.c_str(), &database) == SQLITE_OK, "opening the store of many alarms");
    std::string rows = std::string(kPrepare) + "BEGIN;";
    for (int number = 0; number < kOpenAlarms; ++number) {
        rows += std::string("INSERT INTO alarm (type, info) VALUES ('") + ALARM_GVX_LOG_RECORD_FAIL + "', '" +
                InfoText(number) + "');";
    }
    Demand(sqlite3_exec(database, (rows + "COMMIT;").c_str(), nullptr, nullptr, nullptr) == SQLITE_OK, "many alarms");
    sqlite3_close(database);
    std::vector<double> took;
    for (int round = 0; round < kRounds; ++round) {
        CEmergencyProtection alarms;
        const std::int64_t begin = bench::NowNs();
        Demand(alarms.LoadAlarmStatus(path) == 0, "loading many alarms");
        took.push_back(static_cast<double>(bench::NowNs() - begin) / 1e6);
        Demand(alarms.IsAlarmStatusItemExist(ALARM_GVX_LOG_RECORD_FAIL, InfoText(kOpenAlarms - 1)) == 0,
               "the last one");
        ZVS_AlarmClose();
    }
    table.Plain("restart with 10,000 open alarms, until all are loaded", bench::Median(took), "ms");
}

}  // namespace

int main() {
    bench::Table table("alarm store");
    OpenLinks();
    const BenchFolder folder;
    BenchRaiseAndClear(folder, table);
    BenchRestart(folder, table);
    return table.Print() ? 0 : 1;
}
