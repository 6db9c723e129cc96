#include "base/log_fault.h"

#include "base/default_logger.h"
#include "base/log.h"
#include "support/recording_logger.h"
#include "support/temp_folder.h"
#include "support/wait_until.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <mutex>
#include <string>
#include <vector>

#include <sys/resource.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

// A logger on logs/gvx.log, limited to 1000 bytes with two backups. Each fault that is told is also logged.
class LogFaults : public testing::Test {
protected:
    void SetUp() override {
        OMLoggerOptions options;
        options.console = false;
        options.file = Path("logs/gvx.log");
        options.maxFileBytes = 1000;
        options.maxFiles = 2;
        std::string error;
        const auto logger = MakeDefaultLogger(options, &error);
        ASSERT_NE(logger, nullptr) << error;
        OMAdapter::getInstance()->setLogger(logger);
        watch.Look();
        ASSERT_THAT(Told(), UnorderedElementsAre(550, 552, 553, 554, 555, 556)) << "what may be remembered ends";
    }

    std::string Path(const std::string& name) const { return folder.Path(name); }
    void Move(const char* from, const char* to) const { std::filesystem::rename(Path(from), Path(to)); }
    static void Line(std::size_t length = 100) { GVX_LOG_INFO("t", "%s", std::string(length, 'x').c_str()); }
    // What was told since the last question.
    std::vector<unsigned int> Told() {
        const std::lock_guard<std::mutex> lock(mutex);
        return std::exchange(told, {});
    }
    std::vector<unsigned int> ToldByALook() {
        watch.Look();
        return Told();
    }
    void Tell(unsigned int code, const char* path, const char* name) {
        EXPECT_EQ(std::string(path) + "/" + name, Path("logs/gvx.log"));
        GVX_LOG_INFO("Fault", "%u", code);
        const std::lock_guard<std::mutex> lock(mutex);
        told.push_back(code);
    }

    const TempFolder folder;
    const ScopedRecordingLogger former;  // brings the logger before the test back
    std::mutex mutex;
    std::vector<unsigned int> told;  // Guarded by mutex.
    gvx::LogFaultWatch watch{[this](unsigned int code, const char* path, const char* name) { Tell(code, path, name); }};
};

TEST_F(LogFaults, FilesAreRotatedBeforeTheyGrowTooLong) {
    for (int i = 0; i < 20; ++i) {
        Line(300);
    }
    for (const char* name : {"logs/gvx.log", "logs/gvx.1.log", "logs/gvx.2.log"}) {
        const std::size_t size = folder.Read(name).size();
        EXPECT_TRUE(size > 0 && size <= 1000) << name << " has " << size;
    }
    EXPECT_FALSE(std::filesystem::exists(Path("logs/gvx.3.log")));
}

TEST_F(LogFaults, AFolderThatComesBackLosesNoLineAndAFileIsBegunAnewWhereItsNameIsGone) {
    Move("logs", "away");
    folder.Write("logs", "");
    EXPECT_THAT(ToldByALook(), ElementsAre(500));
    GVX_LOG_INFO("t", "meanwhile");
    EXPECT_THAT(ToldByALook(), IsEmpty());
    std::filesystem::remove(Path("logs"));
    Move("away", "logs");
    EXPECT_THAT(ToldByALook(), ElementsAre(550));
    EXPECT_NE(folder.Read("logs/gvx.log").find("meanwhile"), std::string::npos);

    std::filesystem::remove_all(Path("logs"));
    EXPECT_THAT(ToldByALook(), ElementsAre(500));
    std::filesystem::create_directory(Path("logs"));
    EXPECT_THAT(ToldByALook(), ElementsAre(550));
    Move("logs/gvx.log", "logs/taken.log");
    EXPECT_THAT(ToldByALook(), IsEmpty());
    GVX_LOG_INFO("t", "after");
    EXPECT_NE(folder.Read("logs/gvx.log").find("after"), std::string::npos);
}

TEST_F(LogFaults, ABackupThatCannotBeMadeIsToldAndTheLogGoesOn) {
    for (const auto& [taken, code] : {std::pair("logs/gvx.1.log", 503u), std::pair("logs/gvx.2.log", 506u)}) {
        folder.Write("logs/gvx.1.log", "");
        std::filesystem::remove(Path(taken));
        std::filesystem::create_directory(Path(taken));
        for (int i = 0; i < 12; ++i) {
            Line();
        }
        EXPECT_THAT(ToldByALook(), ElementsAre(code));
        EXPECT_GT(folder.Read("logs/gvx.log").size(), 1000u);
        std::filesystem::remove(Path(taken));
        EXPECT_THAT(ToldByALook(), ElementsAre(code + 50));
        EXPECT_LT(folder.Read("logs/gvx.log").size(), 200u) << "begun anew";
        EXPECT_GT(folder.Read("logs/gvx.1.log").size(), 1000u);
    }
}

TEST_F(LogFaults, AFileThatCannotBecomeABackupIsBounded) {
    std::filesystem::create_directory(Path("logs/gvx.1.log"));
    for (int i = 0; i < 60; ++i) {
        Line();
    }
    EXPECT_THAT(ToldByALook(), UnorderedElementsAre(503, 504));
    EXPECT_LE(folder.Read("logs/gvx.log").size(), 4000u);
    std::filesystem::remove(Path("logs/gvx.1.log"));
    EXPECT_THAT(ToldByALook(), UnorderedElementsAre(553, 554));
    EXPECT_THAT(folder.Read("logs/gvx.log"), testing::ContainsRegex("WARNING .Log. [0-9]+ lines are lost"));
}

TEST_F(LogFaults, LinesThatCannotBeWrittenAreCountedAndNoneIsTorn) {
    const std::size_t before = folder.Read("logs/gvx.log").size();
    // A limit on the size of files, under which a write fails as on a full disk.
    const auto formerSignal = std::signal(SIGXFSZ, SIG_IGN);
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    const rlimit tight{before + 50, limit.rlim_max};
    setrlimit(RLIMIT_FSIZE, &tight);
    Line();
    Line();
    EXPECT_EQ(folder.Read("logs/gvx.log").size(), before) << "half a line is taken back";
    EXPECT_THAT(ToldByALook(), ElementsAre(502));
    setrlimit(RLIMIT_FSIZE, &limit);
    std::signal(SIGXFSZ, formerSignal);
    EXPECT_THAT(ToldByALook(), ElementsAre(552));
    EXPECT_THAT(folder.Read("logs/gvx.log").substr(before), testing::HasSubstr("WARNING [Log] 3 lines are lost."))
        << "the two and the callback's";
}

TEST_F(LogFaults, TheWatchSeesAFaultWhileNothingIsLogged) {
    ASSERT_TRUE(watch.Start());
    Move("logs", "away");
    EXPECT_TRUE(WaitUntil([this] { return Told() == std::vector<unsigned int>{500}; }));
    watch.Stop();
}

}  // namespace
