#include "gateway/gateway_fixture.h"

#include "bp/dispatcher.h"
#include "bp/net_factory.h"
#include "gvx_common/link/gvx_connection_mgr.h"
#include "nss/nss_msg_type.h"
#include "support/wait_until.h"

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <random>
#include <thread>

#include <malloc.h>

// A sanitizer has an allocator of its own, which is not asked here.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define GVX_TEST_SANITIZED 1
#else
#define GVX_TEST_SANITIZED 0
#endif

namespace {

constexpr int kFlapsOfAKind = 1000;
constexpr const char* kLinks[] = {"SCU#1", "OMU#1", "MU#1", "IMGU#1", "GVX#1"};

// The greater part of what is in use are pools; against them alone a leak of a kilobyte a flap would not show.
constexpr std::size_t kMostBytesKept = kFlapsOfAKind * 200;

// Counts the lines that tell of closed links and keeps none, so that the log takes no memory. The close of an OMU's
// link is not reported.
class CountingLogger : public IOMLogger {
public:
    bool IsEnabled(int level) const noexcept override { return level <= OM_LOG_INFO; }
    void VLog(int, const char*, const OMLogPlace&, const char* format, va_list args) override
        __attribute__((format(printf, 5, 0))) {
        char line[512];
        std::vsnprintf(line, sizeof(line), format, args);
        const bool unitClosed = std::strstr(line, " closed, link[") != nullptr && std::strstr(line, "#1]") != nullptr;
        closed += unitClosed || std::strstr(line, "The main service is away") != nullptr;
    }
    void VDebug(const OMLogPlace&, const char*, va_list) override __attribute__((format(printf, 3, 0))) {}

    std::atomic<int> closed{0};
};

std::size_t BytesInUse() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

class LinkFlapTest : public GatewayTest {
protected:
    void SetUp() override {
        GatewayTest::SetUp();
        peer->Close();
        ASSERT_TRUE(log->WaitFor("The main service is away"));
        OMAdapter::getInstance()->setLogger(m_counter);
    }

    // That many openings of each kind and as many closes, in random order.
    void Flap(int flaps) {
        std::vector<std::size_t> toggles;
        for (std::size_t kind = 0; kind < std::size(kLinks); ++kind) {
            toggles.insert(toggles.end(), static_cast<std::size_t>(flaps) * 2, kind);
        }
        std::shuffle(toggles.begin(), toggles.end(), m_random);
        std::unique_ptr<FakePeer> peers[std::size(kLinks)];
        for (const std::size_t kind : toggles) {
            peers[kind] = peers[kind] == nullptr ? Link(kLinks[kind]) : nullptr;
        }
        m_flapped += flaps;
        ASSERT_TRUE(WaitUntil([this] { return m_counter->closed == 4 * m_flapped; }, std::chrono::seconds(120)));
    }

    void FlapUnderLoad(int flaps) {
        std::atomic<bool> over{false};
        std::thread load([&] { Load(over); });
        Flap(flaps);
        over = true;
        load.join();
        EXPECT_TRUE(WaitUntil([] { return BP::CNetFactory::Links().empty(); }));
    }

    // Requests by a link that stays, some twenty under way at a time. Their answers go to whichever main service is
    // there, or nowhere.
    void Load(const std::atomic<bool>& over) {
        const auto scu = Link("SCU#LOAD");
        for (std::uint32_t seq = 1; !over; ++seq) {
            const std::string content =
                "<Content><DevCode>L" + std::to_string(seq % 7) + "</DevCode><PluginName>moody</PluginName></Content>";
            ASSERT_TRUE(scu->SendFrame(seq % 2 == 0 ? NSS_ADD_MAIN_DEV_REQ : NSS_DEL_MAIN_DEV_REQ, seq, "load", 0,
                                       FakePeer::MakeItem(NSS_TAG_XML_CONTENT, content)));
            if (seq % 20 == 0) {
                ASSERT_TRUE(scu->SendFrame(NSS_KEEPALIVE_REQ, seq));
                ASSERT_TRUE(scu->ReadFrame(true).has_value());
            }
        }
    }

    const std::shared_ptr<CountingLogger> m_counter = std::make_shared<CountingLogger>();
    std::mt19937 m_random{20260102};
    int m_flapped = 0;
};

}  // namespace

TEST_F(LinkFlapTest, ThousandFlapsOfEachKindLeaveTablesAndMemoryAsTheyWere) {
    FlapUnderLoad(kFlapsOfAKind / 10);  // some things are made once and kept, such as reactors
    const std::size_t before = BytesInUse();
    FlapUnderLoad(kFlapsOfAKind);
    EXPECT_EQ(BP::CTransactionMgr::OpenTransactions(), 0u);
    EXPECT_TRUE(WaitUntil([] { return CGvxConnectionMgr::Instance()->GetScuLinkId().empty(); }));
    unsigned int type = 0;
    std::string link;
    EXPECT_FALSE(CGvxConnectionMgr::Instance()->GetLinkInfoByType(BP::SUBSYS_GVX, type, link));
    EXPECT_EQ(CGvxConnectionMgr::Instance()->GetOmuLinkId(), "OMU#1") << "the last one is kept";

    // A main service that stays finds every reactor at work.
    peer = Link("GVX#900");
    for (int device = 0; device < 7; ++device) {
        DeleteDevice("L" + std::to_string(device));
    }
    EXPECT_EQ(AddDevice("CAM1").code, 0u);
    EXPECT_EQ(DeleteDevice("CAM1").code, 0u);
    const std::size_t after = BytesInUse();
    std::printf("bytes in use: %zu before, %zu after\n", before, after);
    if (GVX_TEST_SANITIZED == 0) {
        EXPECT_LE(after, before + before / 20);
        EXPECT_LE(after, before + kMostBytesKept);
    }
}
