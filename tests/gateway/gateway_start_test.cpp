#include "gateway/gateway_fixture.h"

#include "base/log.h"
#include "gateway/process/overdue_watch.h"
#include "gateway/process/startup_log.h"
#include "support/wait_until.h"

#include <atomic>
#include <filesystem>

namespace {

gvx::StartResult TryStart(const gvx::GatewayOptions& options) {
    gvx::Gateway gateway;
    gvx::StartResult result = gateway.LoadConfiguration(options);
    if (result.Failed()) {
        return result;
    }
    result = gateway.Start(options);
    if (!result.Failed()) {
        gateway.Stop();
    }
    return result;
}

}  // namespace

TEST(GatewayStart, FailureNamesWhatIsAtFault) {
    struct Row {
        const char* plugins;
        gvx::ExitCode code;
        const char* named;
    };
    const Row rows[] = {
        {"nowhere", gvx::ExitCode::PluginMissing, "gvx_plugin_nowhere.so"},
        {"../evil", gvx::ExitCode::PluginMissing, "../evil"},
        {"empty", gvx::ExitCode::PluginMissing, "does not describe itself"},
        {"unresolved", gvx::ExitCode::PluginMissing, "BadPluginDefinedNowhere"},
        {"wrong_abi", gvx::ExitCode::PluginMissing, "interface"},
        {"misnamed", gvx::ExitCode::PluginMissing, "somebody_else"},
        {"refuses", gvx::ExitCode::PluginRefused, "clip /nowhere/clip.h264 cannot be opened"},
        {"throws", gvx::ExitCode::PluginRefused, "plug-in throws refuses to start: it threw an exception"},
        {"no_adapter", gvx::ExitCode::PluginRefused, "no_adapter"},
        {"moody, refuses", gvx::ExitCode::PluginRefused, "plug-in refuses"},
    };
    const ScopedRecordingLogger log;
    for (const Row& row : rows) {
        const GatewayFolder folder("GVX_PLUGIN_LIST=" + std::string(row.plugins) + "\n");
        const gvx::StartResult result = TryStart(folder.Options());
        EXPECT_EQ(result.code, row.code) << row.plugins << ": " << result.reason;
        EXPECT_NE(result.reason.find(row.named), std::string::npos) << result.reason;
        EXPECT_EQ(result.reason.find('\n'), std::string::npos) << result.reason;
    }
}

TEST(GatewayStart, ConfigurationFolderAndFiles) {
    const ScopedRecordingLogger log;
    const GatewayFolder folder("GVX_PLUGIN_LIST=\n");
    gvx::GatewayOptions options = folder.Options();
    options.configDir = folder.Path() + "/missing";
    gvx::StartResult result = TryStart(options);
    EXPECT_EQ(result.code, gvx::ExitCode::ConfigFolder);
    EXPECT_NE(result.reason.find("/missing"), std::string::npos) << result.reason;

    std::filesystem::remove(folder.Folder().Path("zvs_gvx_nat.conf"));
    result = TryStart(folder.Options());
    EXPECT_EQ(result.code, gvx::ExitCode::ConfigRefused);
    EXPECT_NE(result.reason.find("zvs_gvx_nat.conf"), std::string::npos) << result.reason;

    folder.Folder().Write("zvs_gvx_nat.conf", "; none\n");
    folder.Folder().Write("net.xml",
                          "<Net><NetElements><NetElement><Server><NetElementID>a b</NetElementID></Server>"
                          "</NetElement></NetElements></Net>");
    result = TryStart(folder.Options());
    EXPECT_EQ(result.code, gvx::ExitCode::ConfigRefused);
    EXPECT_NE(result.reason.find("net.xml"), std::string::npos) << result.reason;
}

TEST(GatewayStart, PortInUseAndStartAfterFailure) {
    const ScopedRecordingLogger log;
    const GatewayFolder folder("GVX_PLUGIN_LIST=moody\n");
    {
        const FakeListener taken;
        gvx::GatewayOptions options = folder.Options();
        options.listenPort = taken.Port();
        const gvx::StartResult result = TryStart(options);
        EXPECT_EQ(result.code, gvx::ExitCode::CannotListen);
        EXPECT_NE(result.reason.find(":" + std::to_string(taken.Port())), std::string::npos) << result.reason;
    }
    EXPECT_EQ(TryStart(folder.Options()).code, gvx::ExitCode::Ok) << "a failed start leaves nothing behind";
    EXPECT_TRUE(log->Contains("gvxd ready, listening on 127.0.0.1:"));
    EXPECT_TRUE(log->Contains(", plug-ins: moody"));
}

TEST(GatewayOptionsTest, CommandLine) {
    gvx::GatewayOptions options;
    const char* good[] = {"gvxd", "--config-dir", "/c", "--log-level", "debug", "--listen-port", "0", "--foreground"};
    EXPECT_FALSE(gvx::ParseOptions(8, good, options).has_value());
    EXPECT_EQ(options.configDir, "/c");
    EXPECT_EQ(options.logLevel, OM_LOG_DEBUG);
    EXPECT_EQ(options.listenPort, 0);
    for (const char* bad : {"--listen-port=70000", "--log-level=loud", "--no-such-option"}) {
        const char* args[] = {"gvxd", bad};
        gvx::GatewayOptions ignored;
        EXPECT_EQ(gvx::ParseOptions(2, args, ignored), gvx::ExitCode::Usage) << bad;
    }
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
    EXPECT_EQ(final->Lines()[0].title, "Part");
    EXPECT_EQ(final->Lines()[0].text, "made 3 things");
    EXPECT_EQ(final->Lines()[0].file, "gateway_start_test.cpp");
    GVX_LOG_INFO("Part", "more");
    EXPECT_TRUE(final->Contains("more"));
}

TEST(OverdueWatchTest, ActsOnlyOnAStretchThatIsAskedToEndAndDoesNot) {
    std::atomic<bool> begun{true};
    std::atomic<bool> acted{false};
    const auto asked = [&] { return begun.load(); };
    const auto act = [&] { acted = true; };
    {
        const gvx::OverdueWatch inTime(asked, std::chrono::hours(1), act);
        EXPECT_TRUE(WaitUntil([&] { return inTime.SinceBegun().count() > 0; }));
    }
    EXPECT_FALSE(acted);
    begun = false;
    const gvx::OverdueWatch watch(asked, std::chrono::milliseconds(1), act);
    EXPECT_EQ(watch.SinceBegun().count(), 0);
    begun = true;
    EXPECT_TRUE(WaitUntil([&] { return acted.load(); }));
}
