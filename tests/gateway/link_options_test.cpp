#include "gateway/gateway_fixture.h"

#include "gateway/links/link_options.h"
#include "gvx_common/config/gvx_config_mgr.h"

#include <algorithm>

TEST(LinkOptionsTest, FollowTheConfigurationWithinTheirRanges) {
    const ScopedRecordingLogger log;
    const GatewayFolder folder(
        "GVX_LINK_REGISTER_TIME=99\nGVX_LINK_DEAD_TIME=19999\nGVX_LINK_MAX_QUEUE=65536\n"
        "GVX_LINK_FRAME_TIME=250\nGVX_LINK_MAX_NUM=3\n");
    ASSERT_EQ(CGvxConfigMgr::Instance()->Init(), 0);
    BP::LinkOptions options;
    gvx::ReadLinkOptions(options);
    EXPECT_EQ(options.registerTimeoutMs, 5000);
    EXPECT_EQ(options.silenceTimeoutMs, 20000) << "twice the time of keep-alives";
    EXPECT_EQ(options.maxQueuedBytes, options.maxFrameBytes);
    EXPECT_TRUE(options.frameTimeoutMs == 250 && options.maxLinks == 3);
}

TEST(LinkOptionsTest, PeersAreThoseOfTheListeningAddressUnlessNetworksAreNamed) {
    const ScopedRecordingLogger log;
    struct Row {
        const char* settings;
        const char* listenIp;
        const char* inside;
        const char* outside;
        const char* fault;
    };
    const Row rows[] = {
        {"", "127.0.0.1", "127.9.9.9", "192.0.2.1", ""},
        {"GVX_MESSAGE_IP=127.0.0.3\n", "127.0.0.3", "127.0.0.1", "192.0.2.1", ""},
        {"GVX_LISTEN_IP=0.0.0.0\nGVX_LINK_PEERS=192.0.2.0/24, 198.51.100.7\n", "0.0.0.0", "192.0.2.9", "127.0.0.1", ""},
        {"GVX_LINK_PEERS=192.0.2.0/33\n", "127.0.0.1", "127.0.0.9", "192.0.2.1", ""},
        {"GVX_LINK_PEERS=192.0.2.0/33,192.0.2.8\n", "127.0.0.1", "192.0.2.8", "192.0.2.9", ""},
        {"GVX_LINK_TLS=1\n", "127.0.0.1", "", "", "GVX_LINK_TLS needs GVX_LINK_TLS_CERT"},
        {"GVX_LINK_TLS=1\nGVX_LINK_TLS_CERT=/x\nGVX_LINK_TLS_KEY=/x\nGVX_LINK_TLS_CA=/x\n", "127.0.0.1", "", "",
         "GVX_LINK_TLS: /x: "},
    };
    for (const Row& row : rows) {
        const GatewayFolder folder;
        folder.WriteConf(row.settings);
        ASSERT_EQ(CGvxConfigMgr::Instance()->Init(), 0);
        EXPECT_EQ(gvx::LinkListenIp(), row.listenIp) << row.settings;
        std::vector<BP::NetNetwork> peers;
        BP::LinkTlsFiles files;
        gvx::ReadLinkPeers(row.listenIp, peers);
        const gvx::StartResult result = gvx::ReadLinkTls(row.listenIp, files);
        EXPECT_EQ(result.Failed(), *row.fault != '\0') << row.settings << result.reason;
        EXPECT_EQ(result.reason.find(row.fault), 0u) << result.reason;
        const auto mayConnect = [&peers](const char* ip) {
            BP::NetAddress address;
            return BP::NetAddress::Parse(ip, 1, address) &&
                   std::any_of(peers.begin(), peers.end(),
                               [&](const auto& network) { return network.Contains(address); });
        };
        EXPECT_TRUE(*row.inside == '\0' || (mayConnect(row.inside) && !mayConnect(row.outside))) << row.settings;
    }
    EXPECT_EQ(log->Count("are not enciphered", "Link TLS"), 1u) << "on an address that others reach";
}
