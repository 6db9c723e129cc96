#include "gvx_common/security/gvx_security_mgr.h"

#include "base/text_cipher.h"
#include "support/recording_logger.h"
#include "support/temp_folder.h"
#include "support/wait_until.h"

#include <atomic>
#include <cstring>
#include <functional>
#include <thread>

#include <sys/stat.h>

#include <gtest/gtest.h>

namespace {

class SecurityMgr : public testing::Test {
protected:
    std::string Encipher(const std::string& clear) {
        char text[512];
        EXPECT_EQ(0, m_mgr.EncryptString(clear.c_str(), text, sizeof(text)));
        return text;
    }
    std::string Clear(CSecurityMgr& mgr, const std::string& enciphered) {
        char text[256] = "old";
        return mgr.DecryptString(enciphered.c_str(), text, sizeof(text)) == 0 ? text : std::string("?") + text;
    }
    std::string KeyPath() const { return m_root.Path("opt/ksp/gvx.key"); }
    mode_t Mode(const std::string& path) const {
        struct stat status {};
        return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
    }
    void PutKey(const std::string& bytes, mode_t mode = 0600) {
        const std::string fresh = m_root.Write("fresh", bytes);
        chmod(fresh.c_str(), mode);
        ASSERT_EQ(0, rename(fresh.c_str(), KeyPath().c_str()));
    }

    ScopedRecordingLogger m_log;
    TempFolder m_root;
    ScopedEnvironment m_environment{"GVX_ROOT", m_root.Path()};
    CSecurityMgr m_mgr;
};

TEST_F(SecurityMgr, MakesItsKeyForTheOwnerAloneAndOpensWhatItEnciphered) {
    const std::string longest(64, 'p');
    const std::string stored = Encipher(longest);
    EXPECT_EQ(CSecurityMgr::EncipheredSize(64), stored.size() + 1);
    EXPECT_NE(stored, Encipher(longest));
    EXPECT_EQ(longest, Clear(m_mgr, stored));
    EXPECT_EQ("", Clear(m_mgr, Encipher("")));
    EXPECT_EQ(32u, m_root.Read("opt/ksp/gvx.key").size());
    EXPECT_EQ(0600u, Mode(KeyPath()));
    EXPECT_EQ(0600u, Mode(m_root.Path("opt/ksp/gvx_former.key")));
    CSecurityMgr other;
    EXPECT_EQ(longest, Clear(other, stored)) << "after a restart";
    EXPECT_FALSE(m_log->Contains(longest));

    std::string altered = stored;
    altered[20] = altered[20] == 'A' ? 'B' : 'A';
    for (const std::string& bad : {altered, std::string("clear"), std::string(), std::string("#nobody")}) {
        EXPECT_EQ("?", Clear(m_mgr, bad)) << bad;
    }
    char small[64];
    EXPECT_EQ(1, m_mgr.DecryptString(stored.c_str(), small, sizeof(small)));
    EXPECT_STREQ("", small);
    EXPECT_EQ(1, m_mgr.EncryptString(longest.c_str(), small, sizeof(small)));
    EXPECT_STREQ("", small);
    EXPECT_EQ(2, m_mgr.DecryptString(nullptr, small, sizeof(small)));
    EXPECT_EQ(2, m_mgr.EncryptString("x", nullptr, 9));
}

TEST_F(SecurityMgr, AReplacedKeyIsTakenAndWhatIsOlderStillOpens) {
    const std::string before = Encipher("first");
    PutKey(std::string(32, '\x11'));
    ASSERT_TRUE(m_log->WaitFor("is replaced"));
    const std::string after = Encipher("second");
    gvx::CipherKey key;
    key.fill(0x11);
    char text[64];
    EXPECT_TRUE(gvx::DecryptText(key, after, text, sizeof(text)));
    EXPECT_EQ("first", Clear(m_mgr, before));

    m_mgr.UnInit();
    PutKey(std::string(32, '\x22'));  // while nobody watches
    CSecurityMgr other;
    EXPECT_EQ("first", Clear(other, before));
    EXPECT_EQ("second", Clear(other, after));
}

TEST_F(SecurityMgr, ABadKeyFileIsRefusedToldOnceAndLeftAsItIs) {
    const std::string stored = Encipher("kept");
    const std::string good = m_root.Read("opt/ksp/gvx.key");
    struct Row {
        std::string bytes;
        mode_t mode;
        const char* told;
    };
    const Row rows[] = {
        {std::string(31, 'k'), 0600, "its length is 31 bytes, not 32"},
        {std::string(33, 'k'), 0600, "its length is 33 bytes"},
        {"", 0600, "its length is 0 bytes"},
        {good, 0644, "others than its owner"},
        {good, 0640, "its mode must be 0600"},
        {std::string(32, '\0'), 0600, "nothing but zeroes"},
    };
    for (const Row& row : rows) {
        PutKey(row.bytes, row.mode);
        m_log->Clear();
        CSecurityMgr fresh;
        char text[128];
        EXPECT_EQ(1, fresh.Init());
        EXPECT_EQ(1, fresh.EncryptString("x", text, sizeof(text)));
        EXPECT_EQ(1, fresh.DecryptString(stored.c_str(), text, sizeof(text)));
        fresh.UnInit();
        std::size_t told = 0;
        for (const auto& line : m_log->Find(row.told)) {
            told += line.function == "TakeKeyLocked" ? 1 : 0;
        }
        EXPECT_GE(told, 1u) << row.told << m_log->Dump();
        EXPECT_LE(told, 2u) << "once for each manager";
        EXPECT_EQ(row.bytes, m_root.Read("opt/ksp/gvx.key"));
        EXPECT_EQ(row.mode, Mode(KeyPath()));
        EXPECT_EQ("kept", Clear(m_mgr, stored)) << "the key in force stays";
    }
    // A link might lead to a file that others write.
    remove(KeyPath().c_str());
    ASSERT_EQ(0, symlink(m_root.Write("elsewhere", good).c_str(), KeyPath().c_str()));
    CSecurityMgr fresh;
    EXPECT_EQ(1, fresh.Init());
    remove(KeyPath().c_str());
    PutKey(good, 0644);
    EXPECT_EQ(1, fresh.Init());
    ASSERT_EQ(0, chmod(KeyPath().c_str(), 0600));
    EXPECT_EQ("kept", Clear(fresh, stored)) << "once its mode is set right";
}

TEST_F(SecurityMgr, AFolderThatCanNotBeMadeIsTold) {
    m_root.Write("opt", "a file in the place of the folder");
    EXPECT_EQ(1, m_mgr.Init());
    EXPECT_TRUE(m_log->Contains("is not taken: Not a directory")) << m_log->Dump();
}

TEST_F(SecurityMgr, AHandleStandsForALongPasswordUntilItIsReleased) {
    const std::string longest(64, 'q');
    const std::string stored = Encipher(longest);
    char handle[60];
    ASSERT_EQ(0, m_mgr.Hold(stored.c_str(), handle, sizeof(handle)));
    EXPECT_EQ(CSecurityMgr::kHandleSize, std::strlen(handle) + 1);
    EXPECT_EQ(longest, Clear(m_mgr, handle));
    m_mgr.Release("#another");
    m_mgr.Release(nullptr);
    EXPECT_EQ(longest, Clear(m_mgr, handle));
    m_mgr.Release(handle);
    EXPECT_EQ("?", Clear(m_mgr, handle));
    EXPECT_EQ(1, m_mgr.Hold("a clear password", handle, sizeof(handle)));
    EXPECT_EQ(1, m_mgr.Hold(stored.c_str(), handle, CSecurityMgr::kHandleSize - 1));
}

TEST_F(SecurityMgr, ThreadsAndSeveralManagersAgreeOnOneKeyWhileItIsReplaced) {
    std::atomic<int> faults{0};
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([this, &faults, &stop, i] {
            CSecurityMgr own;
            CSecurityMgr& mgr = i < 2 ? m_mgr : own;
            char text[128];
            char clear[128];
            while (!stop) {
                const bool good = mgr.EncryptString("secret", text, sizeof(text)) == 0 &&
                                  mgr.DecryptString(text, clear, sizeof(clear)) == 0 && std::string("secret") == clear;
                faults += good ? 0 : 1;
            }
        });
    }
    const std::string first = Encipher("first");
    for (char key = 1; key <= 20; ++key) {
        PutKey(std::string(32, key));
        const std::string last = Encipher("again");
        EXPECT_EQ("again", Clear(m_mgr, last));
    }
    stop = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(0, faults);
    EXPECT_EQ("first", Clear(m_mgr, first));
}

}  // namespace
