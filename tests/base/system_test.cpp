#include "base/net_interface.h"
#include "base/paths.h"
#include "base/periodic_thread.h"
#include "base/thread_own.h"
#include "support/temp_folder.h"
#include "support/wait_until.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

namespace {

TEST(Paths, ConfigFolderComesFromTheEnvironmentElseFromTheRoot) {
    const TempFolder folder;
    std::string directory;
    {
        const ScopedEnvironment config("GVX_CONFIG_DIR", folder.Path() + "//");
        EXPECT_EQ(get_config_directory(directory), 0);
        EXPECT_EQ(directory, folder.Path());
    }
    const ScopedEnvironment config("GVX_CONFIG_DIR", "");
    const ScopedEnvironment root("GVX_ROOT", folder.Path() + "/");
    EXPECT_EQ(get_config_directory(directory), 1);
    EXPECT_EQ(directory, folder.Path("etc/gvx"));
    std::filesystem::create_directories(folder.Path("etc/gvx"));
    EXPECT_EQ(get_config_directory(directory), 0);
    EXPECT_EQ(gvx::RootedPath("/opt/x"), folder.Path("opt/x"));
}

TEST(ThreadOwn, IsMadeForEachThreadAndEndsWithIt) {
    static std::atomic<int> alive{0};
    struct Counted {
        Counted() { ++alive; }
        ~Counted() { --alive; }
    };
    static gvx::ThreadOwn<Counted> own;
    EXPECT_EQ(own.Get(), own.Get());
    std::thread([mine = own.Get()] {
        EXPECT_NE(own.Get(), mine);
        EXPECT_EQ(alive, 2);
    }).join();
    EXPECT_EQ(alive, 1);
}

TEST(PeriodicThread, RunsAtOnceAndAgainUntilItIsStoppedAndMayStartAnew) {
    gvx::PeriodicThread thread;
    for (int round = 0; round < 2; ++round) {
        std::atomic<int> turns{0};
        thread.Start("Turns", std::chrono::milliseconds(1), [&turns] { ++turns; });
        EXPECT_TRUE(WaitUntil([&] { return turns >= 3; }));
        thread.Stop();
        const int stopped = turns;
        thread.Stop();
        thread.Start("Turns", std::chrono::hours(1), [&turns] { ++turns; });
        EXPECT_TRUE(WaitUntil([&] { return turns > stopped; }));
        thread.Stop();  // ends a long wait
        EXPECT_EQ(turns, stopped + 1);
    }
}

TEST(NetworkFile, TellsAddressesOfInterfacesAndRolesAndTheMode) {
    const TempFolder folder;
    const ScopedEnvironment config("GVX_CONFIG_DIR", folder.Path());
    char ip[16] = "old";
    char mode[16] = "old";
    EXPECT_EQ(ZVS_GetNetworkMode(mode, sizeof(mode)), 1);
    EXPECT_STREQ(mode, "");
    EXPECT_EQ(ZVS_GetIpByNetworkface("lo", ip), 0);
    EXPECT_STREQ(ip, "127.0.0.1");
    folder.Write("network.conf", "# roles\nINTERNAL_API = lo\r\nEXTERNAL_API=none0\nNETWORK_MODE=standard\n");
    EXPECT_EQ(ZVS_GetIpByNetworkface("INTERNAL_API", ip), 0);
    EXPECT_STREQ(ip, "127.0.0.1");
    EXPECT_EQ(ZVS_GetIpByNetworkface("EXTERNAL_API", ip), 1);
    EXPECT_STREQ(ip, "");
    EXPECT_EQ(ZVS_GetNetworkMode(mode, sizeof(mode)), 0);
    EXPECT_STREQ(mode, "standard");
    EXPECT_EQ(ZVS_GetNetworkMode(mode, 8), 1) << "the word needs nine bytes";
    EXPECT_STREQ(mode, "");
}

}  // namespace
