#include "gateway/gateway_fixture.h"

#include "base/log.h"
#include "base/shortage.h"
#include "gateway/process/allocator.h"
#include "gateway/process/reload_thread.h"
#include "gateway/process/startup_log.h"
#include "support/no_threads.h"

#include <cerrno>
#include <fstream>

#include <malloc.h>

namespace {

std::size_t ResidentPages() {
    std::size_t total = 0;
    std::size_t resident = 0;
    std::ifstream("/proc/self/statm") >> total >> resident;
    return resident;
}

// Leaves pieces behind with free memory between them, as a burst of frames does.
std::vector<std::string> LeavePiecesOfABurst() {
    std::vector<std::string> burst(16384, std::string(1000, 'x'));
    std::vector<std::string> rest;
    for (std::size_t i = 0; i < burst.size(); i += 32) {
        rest.push_back(std::move(burst[i]));
    }
    return rest;
}

gvx::StartResult TryStart(const gvx::GatewayOptions& options) {
    gvx::Gateway gateway;
    gvx::StartResult result = gateway.TakeFolders(options);
    if (result.Failed() || (result = gateway.LoadConfiguration()).Failed()) {
        return result;
    }
    result = gateway.Start(options);
    if (!result.Failed()) {
        gateway.Stop();
    }
    return result;
}

}  // namespace

TEST(GatewayStart, FailureNamesWhatIsAtFaultAndLeavesNothingBehind) {
    const struct {
        const char* plugins;
        const char* identifier;  // in net.xml
        gvx::ExitCode code;
        const char* named;
    } rows[] = {
        {"../evil", "GVX#007", gvx::ExitCode::PluginMissing, "../evil"},
        {"misnamed", "GVX#007", gvx::ExitCode::PluginMissing, "somebody_else"},
        {"no_adapter", "GVX#007", gvx::ExitCode::PluginRefused, "no_adapter"},
        {"moody, refuses", "GVX#007", gvx::ExitCode::PluginRefused, "clip /nowhere/clip.h264 cannot be opened"},
        {"moody", "a b", gvx::ExitCode::ConfigRefused, "net.xml"},
    };
    const ScopedRecordingLogger log;
    for (const auto& row : rows) {
        const GatewayFolder folder("GVX_PLUGIN_LIST=" + std::string(row.plugins) + "\n");
        folder.Write("net.xml", SettingsFolder::NetXml(row.identifier));
        const gvx::StartResult result = TryStart(folder.Options());
        EXPECT_EQ(result.code, row.code) << row.plugins << ": " << result.reason;
        EXPECT_NE(result.reason.find(row.named), std::string::npos) << result.reason;
    }
    const GatewayFolder folder("GVX_PLUGIN_LIST=moody\n");
    folder.WriteRooted("/opt/ksp/gvx.key", "too short");
    const FakeListener taken;
    gvx::GatewayOptions options = folder.Options();
    options.listenPort = taken.Port();
    gvx::NoteShortage(EMFILE);
    EXPECT_EQ(TryStart(options).code, gvx::ExitCode::CannotListen);
    EXPECT_EQ(gvx::LastShortage(), "") << "a shortage that was lived through is the reason of no later failure";
    {
        const ScopedNoThreads none;
        EXPECT_EQ(TryStart(folder.Options()).code, gvx::ExitCode::OutOfResources);
        EXPECT_EQ(gvx::LastShortage().find("no thread to be had: "), 0u);
    }
    EXPECT_EQ(TryStart(folder.Options()).code, gvx::ExitCode::Ok) << "a failed start leaves nothing behind";
    EXPECT_TRUE(log->Contains("gvx.key] is not taken: others than its owner")) << log->Dump();
}

TEST(GatewayOptionsTest, CommandLine) {
    gvx::GatewayOptions options;
    const char* args[] = {"gvxd", "--log-level=debug", "--listen-port", "0"};
    EXPECT_FALSE(gvx::ParseOptions(4, args, options).has_value());
    EXPECT_TRUE(options.logLevel == OM_LOG_DEBUG && options.listenPort == 0);
    args[3] = "65536";
    EXPECT_EQ(gvx::ParseOptions(4, args, options), gvx::ExitCode::Usage);
    args[1] = "--log-level=loud";
    EXPECT_EQ(gvx::ParseOptions(2, args, options), gvx::ExitCode::Usage);
}

TEST(StartupLogTest, HoldsLinesUntilTheOutcomeIsKnown) {
    const ScopedRecordingLogger former;
    auto startup = std::make_shared<gvx::StartupLog>(OM_LOG_INFO);
    OMAdapter::getInstance()->setLogger(startup);
    GVX_LOG_INFO("Part", "made %d things", 3);
    GVX_DEBUG("not wanted at this level");
    auto final = std::make_shared<RecordingLogger>();
    startup->HandOver(final);
    ASSERT_EQ(final->Lines().size(), 1u);
    EXPECT_EQ(final->Lines()[0].text, "made 3 things");
    EXPECT_EQ(final->Lines()[0].file, "gateway_start_test.cpp");
    GVX_LOG_INFO("Part", "more");
    EXPECT_TRUE(final->Contains("more"));
}

TEST(SpareMemoryTest, WhatABurstLeavesGoesBackOnceAMinuteAtMost) {
    const std::size_t much = (8u << 20) / static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    ::malloc_trim(0);
    gvx::SpareMemory spare;
    spare.Look(0);
    for (const std::int64_t begin : {0, 60000}) {
        const std::size_t before = ResidentPages();
        const auto rest = LeavePiecesOfABurst();
        if (::mallinfo2().fordblks < (8u << 20)) {
            GTEST_SKIP() << "another allocator serves";
        }
        spare.Look(begin + 3000);  // it may be needed again at once
        spare.Look(begin + 5999);
        EXPECT_GT(ResidentPages(), before + much);
        spare.Look(begin + 6000);
        EXPECT_LT(ResidentPages(), before + much);
    }
}

TEST(Reload, IsDoneOnTheAskersThreadWhereThereIsNoOther) {
    const ScopedNoThreads none;
    const ScopedRecordingLogger log;
    int reloads = 0;
    gvx::ReloadThread reload([&reloads] { ++reloads; });
    reload.Ask();
    reload.Ask();
    EXPECT_EQ(reloads, 2);
    EXPECT_TRUE(log->Contains("No thread for the reload"));
}
