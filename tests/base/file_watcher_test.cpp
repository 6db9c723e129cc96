#include "base/file_watcher.h"

#include "support/recording_logger.h"
#include "support/temp_folder.h"
#include "support/wait_until.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <string>

#include <sys/resource.h>
#include <unistd.h>

namespace {

class FileWatcher : public testing::Test {
protected:
    int Watch(const std::string& name, std::atomic<int>& calls) {
        InotifyConfigHandler handler;
        handler.SetFullFilePath(m_folder.Path(name));
        handler.SetCallback([&calls] { return ++calls; });
        return m_watcher.AddHandler(handler);
    }
    // Waits for a call beyond those that were there before the change.
    static bool Rises(std::atomic<int>& calls, int before) {
        return WaitUntil([&] { return calls > before; });
    }

    const TempFolder m_folder;
    std::atomic<int> m_calls{0};
    std::atomic<int> m_otherCalls{0};
    bpInotifyEventWatcher m_watcher;
};

TEST_F(FileWatcher, SeesCreationWriteRenameAndDeletion) {
    ASSERT_EQ(Watch("a.xml", m_calls), 0);
    m_folder.Write("a.xml", "1");
    ASSERT_TRUE(Rises(m_calls, 0)) << "creation";
    int before = m_calls;
    m_folder.Write("a.xml", "2");
    ASSERT_TRUE(Rises(m_calls, before)) << "write";
    m_folder.Write("a.xml.bak", "3");
    before = m_calls;
    ASSERT_EQ(std::rename(m_folder.Path("a.xml.bak").c_str(), m_folder.Path("a.xml").c_str()), 0);
    ASSERT_TRUE(Rises(m_calls, before)) << "rename over it";
    before = m_calls;
    ASSERT_EQ(unlink(m_folder.Path("a.xml").c_str()), 0);
    ASSERT_TRUE(Rises(m_calls, before)) << "deletion";
}

TEST_F(FileWatcher, FollowsAFolderThatComesLaterOrIsMadeAnew) {
    ASSERT_EQ(Watch("later/inner/a.xml", m_calls), 0);
    for (const char* name : {"later", "gone"}) {
        int before = m_calls;
        std::filesystem::create_directories(m_folder.Path("later/inner"));
        m_folder.Write("later/inner/a.xml", "1");
        ASSERT_TRUE(Rises(m_calls, before)) << name;
        before = m_calls;
        m_folder.Write("later/inner/a.xml", "2");
        ASSERT_TRUE(Rises(m_calls, before)) << name;
        std::filesystem::rename(m_folder.Path("later"), m_folder.Path(std::string("former_") + name));
    }
}

TEST_F(FileWatcher, LooksAtTheFileWhereTheSystemHasNoWatchLeft) {
    const ScopedRecordingLogger log;
    InotifyConfigHandler handler;
    handler.SetFullFilePath(m_folder.Path("a.xml"));
    handler.SetCallback([this] { return ++m_calls; });
    rlimit former{};
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &former));
    const int next = dup(0);
    close(next);
    const rlimit one{static_cast<rlim_t>(next) + 1, former.rlim_max};  // the watcher's own descriptor, and no other
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &one));
    const int watched = m_watcher.AddHandler(handler);
    setrlimit(RLIMIT_NOFILE, &former);
    ASSERT_EQ(0, watched);
    EXPECT_EQ(1u, log->Count("looked at once a second instead: Too many open files"));
    m_folder.Write("a.xml", "1");
    EXPECT_TRUE(Rises(m_calls, 0));
}

TEST_F(FileWatcher, CallsOnlyForItsOwnFileAndNobodyAfterAStop) {
    ASSERT_EQ(Watch("a.xml", m_calls), 0);
    ASSERT_EQ(Watch("b.xml", m_otherCalls), 0);
    m_folder.Write("a.xml.bak", "1");
    m_folder.Write("b.xml", "1");
    ASSERT_TRUE(Rises(m_otherCalls, 0));
    EXPECT_EQ(m_calls, 0);
    m_watcher.Stop();
    m_folder.Write("a.xml", "1");
    const int before = m_otherCalls;
    ASSERT_EQ(Watch("b.xml", m_otherCalls), 0) << "it may begin again";
    m_folder.Write("b.xml", "2");
    ASSERT_TRUE(Rises(m_otherCalls, before));
    EXPECT_EQ(m_calls, 0);
}

}  // namespace
