#include "base/alarm_store.h"

#include "base/fixed_text.h"
#include "support/recording_logger.h"
#include "support/temp_folder.h"
#include "support/test_clock.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include <unistd.h>

namespace {

Alarm_Item Item(const std::string& type, const std::string& info) {
    Alarm_Item item{};
    EXPECT_TRUE(gvx::PutText(item.AlarmType, type) && gvx::PutText(item.AlarmInfo, info));
    return item;
}

std::vector<std::string> Stored() {
    int count = 0;
    EXPECT_EQ(ZVS_GetAllAlarmItem(nullptr, &count), 0);
    std::vector<Alarm_Item> items(static_cast<std::size_t>(count) + 1);
    EXPECT_EQ(ZVS_GetAllAlarmItem(items.data(), &count), 0);
    std::vector<std::string> texts;
    for (int i = 0; i < count; ++i) {
        texts.push_back(std::string(items[static_cast<std::size_t>(i)].AlarmType) + ":" +
                        items[static_cast<std::size_t>(i)].AlarmInfo);
    }
    return texts;
}

// The reads of SQLite, of which one fails: the one that finds 0.
long g_readsBeforeFault = -1;

bool FailsNow() {
    errno = EIO;
    return g_readsBeforeFault-- == 0;
}
ssize_t Read(int fd, void* target, size_t size) {
    return FailsNow() ? -1 : read(fd, target, size);
}
ssize_t ReadAt(int fd, void* target, size_t size, off_t at) {
    return FailsNow() ? -1 : pread(fd, target, size, at);
}

class AlarmStore : public testing::Test {
protected:
    ~AlarmStore() override { ZVS_AlarmClose(); }
    const TempFolder m_folder;
    const std::string m_path = m_folder.Path("alarm.db");
    const ScopedRecordingLogger m_log;
};

TEST_F(AlarmStore, KeepsItemsInOrderAcrossOpenings) {
    const Alarm_Item longest = Item("123456789", std::string(255, 'i'));
    const Alarm_Item quoted = Item("308521806", "it's; DROP TABLE alarm --");
    EXPECT_EQ(ZVS_AddAlarmItem(&quoted), 1) << "not open";
    EXPECT_EQ(ZVS_DelAlarmItem(&quoted), 1);
    ASSERT_EQ(ZVS_AlarmInit(m_path.c_str()), 0);
    EXPECT_EQ(Stored(), std::vector<std::string>());
    ASSERT_EQ(ZVS_AddAlarmItem(&longest), 0);
    ASSERT_EQ(ZVS_AddAlarmItem(&quoted), 0);
    ASSERT_EQ(ZVS_AddAlarmItem(&quoted), 0);
    const std::string longestText = "123456789:" + std::string(255, 'i');
    const std::string quotedText = "308521806:it's; DROP TABLE alarm --";
    ASSERT_EQ(ZVS_AlarmInit(m_path.c_str()), 0);
    EXPECT_EQ(Stored(), (std::vector<std::string>{longestText, quotedText, quotedText}));

    const Alarm_Item sameTypeOnly = Item("308521806", "other");
    EXPECT_EQ(ZVS_DelAlarmItem(&sameTypeOnly), 0);
    EXPECT_EQ(Stored().size(), 3u);
    EXPECT_EQ(ZVS_DelAlarmItem(&quoted), 0);
    EXPECT_EQ(Stored(), std::vector<std::string>{longestText});

    Alarm_Item one{};
    int room = 0;
    EXPECT_EQ(ZVS_GetAllAlarmItem(&one, &room), 0);
    EXPECT_EQ(room, 0);
    Alarm_Item unterminated = quoted;
    std::memset(unterminated.AlarmInfo, 'x', sizeof(unterminated.AlarmInfo));
    EXPECT_EQ(ZVS_AddAlarmItem(&unterminated), 1);
    EXPECT_EQ(Stored(), std::vector<std::string>{longestText});
}

// Files that another store cannot be made of stay as they are under a dated name, the second of a second as well.
TEST_F(AlarmStore, SetsACorruptFileAsideAndBeginsAFreshOne) {
    const ScopedTestClock clock;
    const std::string text = "this is not a data base, but long enough to look like a head of one ............";
    m_folder.Write("alarm.db", text);
    ASSERT_EQ(ZVS_AlarmInit(m_path.c_str()), 0);
    EXPECT_EQ(m_folder.Read("alarm.db.corrupt-20260102030405"), text);
    for (int i = 0; i < 200; ++i) {
        const Alarm_Item item = Item("1", std::string(200, 'i') + std::to_string(i));
        ASSERT_EQ(ZVS_AddAlarmItem(&item), 0);
    }
    ZVS_AlarmClose();
    std::string damaged = m_folder.Read("alarm.db");
    damaged.replace(8192, 8192, 8192, 'x');  // pages in the middle
    m_folder.Write("alarm.db", damaged);
    ASSERT_EQ(ZVS_AlarmInit(m_path.c_str()), 0);
    EXPECT_EQ(m_folder.Read("alarm.db.corrupt-20260102030405-1"), damaged);
    EXPECT_EQ(Stored(), std::vector<std::string>());
    EXPECT_EQ(m_log->CountLevel(OM_LOG_ERR), 2u);
}

// A page that cannot be read is no damaged one: the opening fails, or has tried again, and nothing is set aside.
TEST_F(AlarmStore, AReadThatFailsOnceWhileOpeningLosesNothing) {
    constexpr std::size_t kItems = 300;  // several pages
    ASSERT_EQ(ZVS_AlarmInit(m_path.c_str()), 0);
    ASSERT_EQ(gvx::AddAlarmItems(std::vector<Alarm_Item>(kItems, Item("1", std::string(200, 'i')))), 0);
    ZVS_AlarmClose();
    sqlite3_vfs* const system = sqlite3_vfs_find(nullptr);
    system->xSetSystemCall(system, "read", reinterpret_cast<sqlite3_syscall_ptr>(&Read));
    for (const char* name : {"pread", "pread64"}) {
        system->xSetSystemCall(system, name, reinterpret_cast<sqlite3_syscall_ptr>(&ReadAt));
    }
    std::size_t failed = 0;
    bool reached = true;
    for (long at = 0; reached; ++at) {
        g_readsBeforeFault = at;
        const bool opened = ZVS_AlarmInit(m_path.c_str()) == 0;
        reached = g_readsBeforeFault < 0;
        g_readsBeforeFault = -1;
        failed += opened ? 0 : 1;
        ASSERT_TRUE(opened || ZVS_AlarmInit(m_path.c_str()) == 0) << at;
        ASSERT_EQ(Stored().size(), kItems) << at;
        ZVS_AlarmClose();
    }
    system->xSetSystemCall(system, nullptr, nullptr);
    EXPECT_GT(failed, 0u);
    EXPECT_EQ(m_log->CountLevel(OM_LOG_ERR), failed) << "each with a line";
    EXPECT_FALSE(m_log->Contains("set aside", "Alarm store"));
}

TEST_F(AlarmStore, RefusesAPlaceWhereNoStoreCanBe) {
    EXPECT_EQ(ZVS_AlarmInit(m_folder.Path("missing/alarm.db").c_str()), 1);
    EXPECT_TRUE(m_log->Contains("unable to open database file: No such file or directory", "Alarm store"));
    EXPECT_EQ(ZVS_AlarmInit(nullptr), 1);
    // Another process that holds the file does not make it a corrupt one.
    ASSERT_EQ(ZVS_AlarmInit(m_path.c_str()), 0);
    ZVS_AlarmClose();
    sqlite3* other = nullptr;
    ASSERT_EQ(sqlite3_open(m_path.c_str(), &other), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(other, "PRAGMA locking_mode=EXCLUSIVE; BEGIN EXCLUSIVE", nullptr, nullptr, nullptr),
              SQLITE_OK);
    EXPECT_EQ(ZVS_AlarmInit(m_path.c_str()), 1);
    EXPECT_TRUE(m_log->Contains("database is locked", "Alarm store"));
    sqlite3_close(other);
    EXPECT_EQ(ZVS_AlarmInit(m_path.c_str()), 0);
    EXPECT_EQ(m_log->CountLevel(OM_LOG_ERR), 3u);
}

}  // namespace
