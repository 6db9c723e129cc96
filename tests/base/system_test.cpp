#include "base/net_interface.h"
#include "base/paths.h"
#include "base/periodic_thread.h"
#include "base/zvs_error.h"
#include "support/temp_folder.h"
#include "support/wait_until.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <string>

namespace {

TEST(Paths, ConfigFolderComesFromTheEnvironmentElseFromTheRoot) {
    const TempFolder folder;
    std::string directory;
    {
        const ScopedEnvironment config("GVX_CONFIG_DIR", folder.Path() + "//");
        EXPECT_EQ(get_config_directory(directory), 0);
        EXPECT_EQ(directory, folder.Path());
    }
    {
        const ScopedEnvironment config("GVX_CONFIG_DIR", folder.Write("file", ""));
        EXPECT_EQ(get_config_directory(directory), 1);
        EXPECT_EQ(directory, folder.Path("file"));
    }
    const ScopedEnvironment config("GVX_CONFIG_DIR", "");
    const ScopedEnvironment root("GVX_ROOT", folder.Path() + "/");
    EXPECT_EQ(get_config_directory(directory), 1);
    EXPECT_EQ(directory, folder.Path("etc/gvx"));
    std::filesystem::create_directories(folder.Path("etc/gvx"));
    EXPECT_EQ(get_config_directory(directory), 0);
    EXPECT_EQ(gvx::RootedPath("/opt/x"), folder.Path("opt/x"));
}

TEST(Errors, HaveNamesAndSentencesFromOneTable) {
    EXPECT_EQ(ZVS_NULL_POINTER, 119101350);
    EXPECT_STREQ(ZvsErrorName(ZVS_NULL_POINTER), "ZVS_NULL_POINTER");
    EXPECT_STREQ(ZvsErrorName(123), "ZVS_UNKNOWN");
    EXPECT_STREQ(ZvsErrorText(123), "");
    EXPECT_EQ(gvx::ErrnoText("connect failed", ECONNREFUSED), "connect failed: Connection refused");
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

class NetworkFile : public testing::Test {
protected:
    const TempFolder m_folder;
    const ScopedEnvironment m_config{"GVX_CONFIG_DIR", m_folder.Path()};
};

TEST_F(NetworkFile, TellsAddressesOfInterfacesAndRoles) {
    char ip[16] = "old";
    EXPECT_EQ(ZVS_GetIpByNetworkface("lo", ip), 0);
    EXPECT_STREQ(ip, "127.0.0.1");
    m_folder.Write("network.conf", "# roles\nINTERNAL_API = lo\r\nEXTERNAL_API=none0\n");
    EXPECT_EQ(ZVS_GetIpByNetworkface("INTERNAL_API", ip), 0);
    EXPECT_STREQ(ip, "127.0.0.1");
    EXPECT_EQ(ZVS_GetIpByNetworkface("EXTERNAL_API", ip), 1);
    EXPECT_STREQ(ip, "");
    EXPECT_EQ(ZVS_GetIpByNetworkface(nullptr, ip), 1);
    EXPECT_EQ(ZVS_GetIpByNetworkface("lo", nullptr), 1);
}

TEST_F(NetworkFile, TellsTheNetworkMode) {
    char mode[16] = "old";
    EXPECT_EQ(ZVS_GetNetworkMode(mode, sizeof(mode)), 1);
    EXPECT_STREQ(mode, "");
    m_folder.Write("network.conf", "NETWORK_MODE=standard\n");
    EXPECT_EQ(ZVS_GetNetworkMode(mode, sizeof(mode)), 0);
    EXPECT_STREQ(mode, "standard");
    EXPECT_EQ(ZVS_GetNetworkMode(mode, 8), 1) << "the word needs nine bytes";
    EXPECT_STREQ(mode, "");
    EXPECT_EQ(ZVS_GetNetworkMode(nullptr, 8), 1);
}

}  // namespace
