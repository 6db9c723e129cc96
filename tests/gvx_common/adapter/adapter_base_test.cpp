#include "gvx_common/adapter/gvx_adapter_interface.h"

#include "base/log.h"
#include "gvx_common/adapter/gvx_device_state.h"
#include "gvx_common/adapter/gvx_reason.h"
#include "support/test_clock.h"
#include "support/test_lens.h"

#include <ace/Message_Block.h>
#include <gtest/gtest.h>

#include <list>
#include <string>
#include <utility>

namespace {

class BareSdk : public CAdapterSdkBase {
public:
    bool Init(const char*) override { return true; }
    int CreateDevice(const MainDeviceInfo&, CAdapterDevBase*&) override { return ZVS_GVX_DEV_UN_SUPPORT; }
};

TEST(AdapterSdkBase, WhitelistIncludesBothEndsOfEachRange) {
    BareSdk sdk;
    EXPECT_FALSE(sdk.CheckIpInWhitelist("127.0.0.1"));
    std::list<std::pair<unsigned int, unsigned int>> ranges{{0x0A000005, 0x0A000009}, {0xFFFFFFFE, 0xFFFFFFFF}};
    sdk.LoadIpWhitelist(ranges);
    for (const char* inside : {"10.0.0.5", "10.0.0.9", "255.255.255.255"}) {
        EXPECT_TRUE(sdk.CheckIpInWhitelist(inside)) << inside;
    }
    for (const char* outside : {"10.0.0.4", "10.0.0.10", "10.0.0", "10.0.0.300", "", "::1", "10.0.0.5 "}) {
        EXPECT_FALSE(sdk.CheckIpInWhitelist(outside)) << outside;
    }
}

TEST(AdapterLensBase, ReturnsItsChannelsAndAudioThatNobodyTakes) {
    const long before = g_bp_memstat;
    auto* block = new ACE_Message_Block(16);
    ACE_Message_Block* const other = block->duplicate();
    {
        TestLensOnDevice on;
        ASSERT_NE(nullptr, on.lens.getMidiaChannel(21));
        EXPECT_EQ(nullptr, on.lens.getMidiaChannel(-1));
        EXPECT_EQ(nullptr, on.lens.getMidiaChannel(22));
        on.lens.Prepare(21, nullptr);
        on.lens.EnqueueAudioData(block);
        on.lens.EnqueueAudioData(nullptr);
    }
    EXPECT_EQ(1, other->data_block()->reference_count());
    other->release();
    EXPECT_EQ(before, g_bp_memstat);
}

TEST(DeviceStatus, KeepsWhatIsReportedOfADeviceThatIsThere) {
    ScopedTestClock clock;
    clock->SetWallMicroseconds(1'000'000'000);
    GvxReportDeviceState("CAM001", GVX_DEVICE_ONLINE, "");
    GvxDeviceStatus status;
    EXPECT_FALSE(gvx::FindDeviceStatus("CAM001", status));
    const gvx::DeviceStatusKeeper keeper("CAM001");
    { const gvx::DeviceStatusKeeper another("CAM001"); }
    TestDevice device("CAM001");
    device.SetLoginStatus(true);
    GvxReportLoginTry("CAM001");
    clock->AdvanceSeconds(5);
    const std::string longest(510, 'r');
    GvxReportDeviceState("CAM001", GVX_DEVICE_WRONG_PASSWORD, longest + "\xC3\xA4 and more");
    EXPECT_TRUE(gvx::FindDeviceStatus("CAM001", status) && status.strReason == longest) << status.strReason;
    GvxSetReason("%s\xC3\xA4 and more", longest.c_str());
    EXPECT_EQ(longest, GvxTakeReason());
    device.SetLoginStatus(false);  // says less, and changes nothing
    clock->AdvanceSeconds(5);
    GvxReportDeviceState("CAM001", GVX_DEVICE_WRONG_PASSWORD, "It says 401.");
    gvx::NoteDeviceError("CAM001", "Init failed.");
    ASSERT_TRUE(gvx::FindDeviceStatus("CAM001", status));
    EXPECT_STREQ("wrong password", GvxDeviceStateName(status.eState));
    EXPECT_EQ("It says 401.", status.strReason);
    EXPECT_EQ(1005, status.tSince);
    EXPECT_EQ(std::make_pair(std::string("Init failed."), std::time_t{1010}),
              std::make_pair(status.strLastError, status.tLastError));
    EXPECT_EQ(std::make_pair(std::uint64_t{3}, std::uint64_t{1}), std::make_pair(status.nErrors, status.nLoginTries));
}

}  // namespace
