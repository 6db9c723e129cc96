#include "gvx_common/security/gvx_security_mgr.h"

#include "base/text_cipher.h"
#include "support/recording_logger.h"
#include "support/temp_folder.h"

#include <algorithm>
#include <atomic>
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
    static mode_t Mode(const std::string& path) {
        struct stat status {};
        return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
    }
    void PutKey(const std::string& bytes, mode_t mode = 0600) {
        const std::string fresh = m_root.Write("fresh", bytes);
        chmod(fresh.c_str(), mode);
        ASSERT_EQ(0, rename(fresh.c_str(), m_key.c_str()));
    }

    ScopedRecordingLogger m_log;
    TempFolder m_root;
    ScopedEnvironment m_environment{"GVX_ROOT", m_root.Path()};
    const std::string m_key = m_root.Path("opt/ksp/gvx.key");
    CSecurityMgr m_mgr;
};

TEST_F(SecurityMgr, MakesItsKeyForTheOwnerAloneAndOpensWhatItEnciphered) {
    const std::string longest(64, 'p');
    const std::string stored = Encipher(longest);
    EXPECT_EQ(CSecurityMgr::EncipheredSize(64), stored.size() + 1);
    EXPECT_NE(stored, Encipher(longest));
    EXPECT_EQ("", Clear(m_mgr, Encipher("")));
    EXPECT_EQ(32u, m_root.Read("opt/ksp/gvx.key").size());
    EXPECT_EQ(0600u, Mode(m_key));
    EXPECT_EQ(0600u, Mode(m_root.Path("opt/ksp/gvx_former.key")));
    CSecurityMgr other;
    EXPECT_EQ(longest, Clear(other, stored)) << "after a restart";

    std::string altered = stored;
    altered[20] = altered[20] == 'A' ? 'B' : 'A';
    for (const std::string& bad : {altered, std::string("clear"), std::string(), std::string("#nobody")}) {
        EXPECT_EQ("?", Clear(m_mgr, bad)) << bad;
    }
    char text[64];
    EXPECT_EQ(1, m_mgr.DecryptString(stored.c_str(), text, sizeof(text)));
    EXPECT_STREQ("", text);
    EXPECT_EQ(1, m_mgr.EncryptString(longest.c_str(), text, sizeof(text)));
    EXPECT_STREQ("", text);
    EXPECT_EQ(2, m_mgr.DecryptString(nullptr, text, sizeof(text)));
    EXPECT_EQ(2, m_mgr.EncryptString("x", nullptr, 9));

    // A handle stands for a long password until it is released.
    ASSERT_EQ(0, m_mgr.Hold(stored.c_str(), text, sizeof(text)));
    const std::string handle = text;
    EXPECT_EQ(CSecurityMgr::kHandleSize, handle.size() + 1);
    m_mgr.Release("#another");
    m_mgr.Release(nullptr);
    EXPECT_EQ(longest, Clear(m_mgr, handle));
    m_mgr.Release(handle.c_str());
    EXPECT_EQ("?", Clear(m_mgr, handle));
    EXPECT_EQ(1, m_mgr.Hold("a clear password", text, sizeof(text)));
    EXPECT_EQ(1, m_mgr.Hold(stored.c_str(), text, CSecurityMgr::kHandleSize - 1));
    EXPECT_FALSE(m_log->Contains(longest));
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
    for (const Row& row : {Row{std::string(31, 'k'), 0600, "its length is 31 bytes, not 32"},
                           {std::string(33, 'k'), 0600, "its length is 33 bytes"},
                           {good, 0644, "others than its owner"},
                           {std::string(32, '\0'), 0600, "nothing but zeroes"}}) {
        PutKey(row.bytes, row.mode);
        m_log->Clear();
        CSecurityMgr fresh;
        char text[128];
        EXPECT_EQ(1, fresh.Init());
        EXPECT_EQ(1, fresh.EncryptString("x", text, sizeof(text)));
        EXPECT_EQ(1, fresh.DecryptString(stored.c_str(), text, sizeof(text)));
        fresh.UnInit();
        const auto lines = m_log->Find(row.told);
        const auto told = std::count_if(lines.begin(), lines.end(),
                                        [](const auto& line) { return line.function == "TakeKeyLocked"; });
        EXPECT_GE(told, 1) << row.told << m_log->Dump();
        EXPECT_LE(told, 2) << "once for each manager";
        EXPECT_EQ(row.bytes, m_root.Read("opt/ksp/gvx.key"));
        EXPECT_EQ(row.mode, Mode(m_key));
        EXPECT_EQ("kept", Clear(m_mgr, stored)) << "the key in force stays";
    }
    // A link might lead to a file that others write.
    remove(m_key.c_str());
    ASSERT_EQ(0, symlink(m_root.Write("elsewhere", good).c_str(), m_key.c_str()));
    CSecurityMgr fresh;
    EXPECT_EQ(1, fresh.Init());
    remove(m_key.c_str());
    PutKey(good, 0644);
    EXPECT_EQ(1, fresh.Init());
    ASSERT_EQ(0, chmod(m_key.c_str(), 0600));
    EXPECT_EQ("kept", Clear(fresh, stored)) << "once its mode is set right";
}

TEST_F(SecurityMgr, AFolderThatCanNotBeMadeIsTold) {
    m_root.Write("opt", "a file in the place of the folder");
    EXPECT_EQ(1, m_mgr.Init());
    EXPECT_TRUE(m_log->Contains("is not taken: Not a directory")) << m_log->Dump();
}

TEST_F(SecurityMgr, ThreadsAndSeveralManagersAgreeOnOneKeyWhileItIsReplaced) {
    std::atomic<int> faults{0};
    std::atomic<bool> stop{false};
    CSecurityMgr others[2];
    std::vector<std::thread> threads;
    for (CSecurityMgr* mgr : {&m_mgr, &m_mgr, &others[0], &others[1]}) {
        threads.emplace_back([this, &faults, &stop, mgr] {
            char text[128];
            while (!stop) {
                faults += mgr->EncryptString("secret", text, sizeof(text)) != 0 || Clear(*mgr, text) != "secret";
            }
        });
    }
    const std::string first = Encipher("first");
    for (char key = 1; key <= 20; ++key) {
        PutKey(std::string(32, key));
        EXPECT_EQ("again", Clear(m_mgr, Encipher("again")));
    }
    stop = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(0, faults);
    EXPECT_EQ("first", Clear(m_mgr, first));
}

}  // namespace
