#include "gvx_common/adapter/gvx_adapter_interface.h"

#include "base/log.h"
#include "gvx_common/records/stream_param.h"
#include "support/recording_logger.h"
#include "support/test_clock.h"
#include "support/test_lens.h"

#include <ace/Message_Block.h>
#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <list>
#include <memory>
#include <thread>

namespace {

// A plug-in that supplies the pure operations and nothing else.
class BareSdk : public CAdapterSdkBase {
public:
    bool Init(const char*) override { return true; }
    int CreateDevice(const MainDeviceInfo&, CAdapterDevBase*&) override { return ZVS_GVX_DEV_UN_SUPPORT; }

    ADAPTER_DISCOVERY_DEVICE_CALLBACK* DiscoveryCallback() const { return m_pDiscCallback; }
    const CDiscoveryDeviceInfo* DiscoveryRecord() const { return m_pDiscDevInfo; }
};

unsigned int Address(unsigned a, unsigned b, unsigned c, unsigned d) {
    return (a << 24) | (b << 16) | (c << 8) | d;
}

CONF_ITEM_MASK_STRU MaskOf(std::initializer_list<int> items, char value = 1) {
    CONF_ITEM_MASK_STRU mask{};
    for (const int item : items) {
        mask.Mask[item] = value;
    }
    return mask;
}

}  // namespace

TEST(AdapterSdkBase, AnswersForAPluginThatSuppliesNothing) {
    BareSdk sdk;
    std::list<std::string> addresses{"10.0.0.1"};
    EXPECT_EQ(0, sdk.ModifyListenIp("10.0.0.1"));
    EXPECT_EQ(ZVS_GVX_DEV_UN_SUPPORT, sdk.StartSearchDevice(nullptr));
    EXPECT_EQ(1, sdk.NotifyDevBatch("", 0));
    EXPECT_EQ(1, sdk.EnableSDKSecurityCfg(true));
    EXPECT_EQ(1, sdk.setSipStackLogSwitch(1));
    EXPECT_EQ(1, sdk.SetSDKLogSwitch(1));
    sdk.StopSearchDevice();
    sdk.OnDiscoveryDeviceFinish();
    sdk.SendLocalProbeMessage(addresses);
    sdk.SendRemoteProbeMessage(addresses);
    EXPECT_EQ(1u, addresses.size());
    ASSERT_NE(nullptr, sdk.DiscoveryRecord());
}

TEST(AdapterSdkBase, KeepsTheDiscoveryCallback) {
    BareSdk sdk;
    ADAPTER_DISCOVERY_DEVICE_CALLBACK* const callback = [](CDiscoveryDeviceInfo*) {};
    sdk.SetDiscoveryDeviceCallback(callback);
    EXPECT_EQ(callback, sdk.DiscoveryCallback());
}

TEST(AdapterSdkBase, WhitelistIncludesBothEndsOfEachRange) {
    BareSdk sdk;
    std::list<std::pair<unsigned int, unsigned int>> ranges{
        {Address(10, 0, 0, 5), Address(10, 0, 0, 9)},
        {Address(192, 168, 1, 1), Address(192, 168, 1, 1)},
        {Address(255, 255, 255, 254), std::numeric_limits<unsigned int>::max()},
    };
    sdk.LoadIpWhitelist(ranges);
    struct Row {
        const char* address;
        bool inside;
    };
    const Row rows[] = {{"10.0.0.4", false},  {"10.0.0.5", true},    {"10.0.0.9", true},
                        {"10.0.0.10", false}, {"192.168.1.1", true}, {"255.255.255.255", true},
                        {"0.0.0.0", false},   {"10.0.0", false},     {"10.0.0.300", false},
                        {"", false},          {"::1", false},        {"10.0.0.5 ", false}};
    for (const Row& row : rows) {
        EXPECT_EQ(row.inside, sdk.CheckIpInWhitelist(row.address)) << row.address;
    }
}

TEST(AdapterSdkBase, EmptyWhitelistHoldsNoAddress) {
    BareSdk sdk;
    EXPECT_FALSE(sdk.CheckIpInWhitelist("127.0.0.1"));
}

TEST(AdapterDevBase, AnswersForAPluginThatSuppliesNothing) {
    TestDevice device("DEV001");
    std::string text;
    EXT_DEVICE_P_MAP added;
    EXPECT_EQ(0, device.ClearAdapterInfo());
    EXPECT_EQ(0, device.SendHeartbeat());
    EXPECT_EQ(0, device.GetDevCfg(text));
    EXPECT_EQ(0, device.GetTotalDevCount());
    EXPECT_EQ(2, device.FindT28181LensIDFromCatalog("x"));
    EXPECT_EQ(1, device.GetCatalogFromPu());
    EXPECT_FALSE(device.GetNeedSendDeviceInfo());
    EXPECT_TRUE(device.IsGetDevServiceAddr());
    EXPECT_TRUE(device.IsAllowSendAlarm());
    EXPECT_EQ("", device.GetLensIDThroughChannoId(0));
    EXPECT_EQ(ZVS_GVX_DEV_UN_SUPPORT, device.SendJsonMessage2IPC(text.data(), text));
    EXPECT_EQ(ZVS_GVX_DEV_UN_SUPPORT, device.SendGpsPositionSubscribe(1, "", "", 1, "", ""));
    EXPECT_EQ(ZVS_GVX_DEV_UN_SUPPORT, device.AddExternDevList(added, added, added));
    EXPECT_EQ(ZVS_GVX_DEV_UN_SUPPORT, device.ReBoot(0));
}

TEST(AdapterDevBase, LoginStatusIsSafeToReadWhileItIsSet) {
    TestDevice device;
    EXPECT_FALSE(device.GetLoginStatus());
    std::thread writer([&device] {
        for (int i = 0; i < 1000; ++i) {
            device.SetLoginStatus(i % 2 == 0);
        }
        device.SetLoginStatus(true);
    });
    int seen = 0;
    for (int i = 0; i < 1000; ++i) {
        seen += device.GetLoginStatus() ? 1 : 0;
    }
    writer.join();
    EXPECT_GE(1000, seen);
    EXPECT_TRUE(device.GetLoginStatus());
}

TEST(AdapterDevBase, RemembersAlarmTimeAndLoginHandle) {
    TestDevice device;
    const ScopedTestClock clock;
    device.UpdateLastAlarmTime();
    EXPECT_EQ(gvx::WallSeconds(), device.LastAlarmTime());
    device.ClearLastAlarmTime();
    EXPECT_EQ(0, device.LastAlarmTime());
    device.SetLoginHandle(77);
    EXPECT_EQ(77, device.LoginHandle());
}

TEST(AdapterDevBase, VideoChannelInfoComesFromTheCachedAbility) {
    TestDevice device;
    EXPECT_TRUE(device.GetVideoChannelInfo().isNull());
    device.GetCacheDeviceAbility()["videoChannelInfo"].append(3);
    EXPECT_EQ(3, device.GetVideoChannelInfo()[0].asInt());
    device.GetCacheDeviceAbility() = "text";
    EXPECT_TRUE(device.GetVideoChannelInfo().isNull());
}

TEST(AdapterLensBase, AnswersForAPluginThatSuppliesNothing) {
    TestLensOnDevice on;
    std::string text;
    CStreamParam* param = nullptr;
    EXPECT_EQ(0, on.lens.Init());
    EXPECT_EQ(0, on.lens.Uninit());
    EXPECT_EQ(0, on.lens.CheckSpecialCase(nullptr));
    EXPECT_EQ(ZVS_GVX_DEV_UN_SUPPORT, on.lens.StartStream(nullptr, nullptr, nullptr, false));
    EXPECT_EQ(ZVS_GVX_DEV_UN_SUPPORT, on.lens.PopFrontRecordIndex(param));
    EXPECT_EQ(ZVS_GVX_DEV_UN_SUPPORT, on.lens.SetPuRecordStream(PU_RECORD_STREAM_STRU{}));
    EXPECT_EQ(ZVS_GVX_DEV_UN_SUPPORT, on.lens.EncodeRspSDP(nullptr, text));
    EXPECT_EQ(ZVS_GVX_DEV_UN_SUPPORT, on.lens.HandleSendJsonMessage("", "", text));
    EXPECT_EQ(PROFILE_NORMAL, on.lens.GetChannelAbnormalFlag());
    const std::unique_ptr<CStreamParam> made(on.lens.CreateStreamParam("live-1"));
    ASSERT_NE(nullptr, made);
    EXPECT_EQ("live-1", made->m_strServiceID);
}

TEST(AdapterLensBase, ReleasesAudioThatNobodyTakes) {
    TestLensOnDevice on;
    auto* block = new ACE_Message_Block(16);
    ACE_Message_Block* const other = block->duplicate();
    on.lens.EnqueueAudioData(block);
    on.lens.EnqueueAudioData(nullptr);
    EXPECT_EQ(1, other->data_block()->reference_count());
    other->release();
}

TEST(AdapterLensBase, KeepsItsArguments) {
    TestDevice device("DEV001", "10.0.0.7");
    TestLens lens(device, "LENS042", 3);
    EXPECT_STREQ("LENS042", lens.GetSubDevID());
    EXPECT_EQ(3, lens.GetSubDevChannelNo());
    EXPECT_EQ("10.0.0.7", lens.GetParentDev().GetIP());
    EXPECT_EQ(MAIN_DEV_TYPE_IPC, lens.GetMainDevType());
    lens.SetMainDevType(MAIN_DEV_TYPE_DVR);
    EXPECT_EQ(MAIN_DEV_TYPE_DVR, lens.GetMainDevType());
}

TEST(AdapterLensBase, IdentifierThatDoesNotFitIsRefusedWhole) {
    const ScopedRecordingLogger log;
    TestDevice device;
    const std::string longest(32, 'L');
    EXPECT_EQ(longest, TestLens(device, longest.c_str()).GetSubDevID());
    EXPECT_FALSE(log->Contains("strncpy_s failed!"));
    EXPECT_STREQ("", TestLens(device, std::string(33, 'L').c_str()).GetSubDevID());
    EXPECT_TRUE(log->Contains("strncpy_s failed!", "CAdapterLensBase::CAdapterLensBase"));
    EXPECT_STREQ("", TestLens(device, nullptr).GetSubDevID());
}

TEST(AdapterLensBase, GivesTwentyTwoChannelsAndReturnsThemAll) {
    const long before = g_bp_memstat;
    {
        TestLensOnDevice on;
        for (int i = 0; i < 22; ++i) {
            ASSERT_NE(nullptr, on.lens.getMidiaChannel(i));
            EXPECT_EQ(nullptr, on.lens.getMidiaChannel(i)->m_pSendStreamFunc);
            EXPECT_EQ(nullptr, on.lens.getMidiaChannel(i)->m_pMediaBufWithRTP);
        }
        EXPECT_EQ(nullptr, on.lens.getMidiaChannel(-1));
        EXPECT_EQ(nullptr, on.lens.getMidiaChannel(22));
        on.lens.Prepare(21, nullptr);
    }
    EXPECT_EQ(before, g_bp_memstat);
}

TEST(ConfItemMask, OnlyTheValueOneNamesAnItem) {
    const CONF_ITEM_MASK_STRU ones = MaskOf({VIDEO_ATTRIBUT_BRIGHTNESS_INDEX, LENS_ACCESS_TYPE_INDEX});
    EXPECT_TRUE(CAdapterLensBase::IsConfItemValid(&ones, VIDEO_ATTRIBUT_BRIGHTNESS_INDEX));
    EXPECT_TRUE(CAdapterLensBase::IsConfItemValid(&ones, LENS_ACCESS_TYPE_INDEX));
    EXPECT_FALSE(CAdapterLensBase::IsConfItemValid(&ones, COM_ADDR_INDEX));
    const CONF_ITEM_MASK_STRU twos = MaskOf({COM_ADDR_INDEX}, 2);
    EXPECT_FALSE(CAdapterLensBase::IsConfItemValid(&twos, COM_ADDR_INDEX));
    CONF_ITEM_MASK_STRU full;
    std::memset(full.Mask, 1, sizeof(full.Mask));
    EXPECT_FALSE(CAdapterLensBase::IsConfItemValid(&full, BOTTOM_INDEX));
    EXPECT_FALSE(CAdapterLensBase::IsConfItemValid(&full, static_cast<_DEVICE_CONFIG_INDEX>(-1)));
    EXPECT_FALSE(CAdapterLensBase::IsConfItemValid(nullptr, COM_ADDR_INDEX));
}

TEST(ConfItemMask, ItemsStandAtTheirPlaces) {
    EXPECT_EQ(29, MOTION_BLOCK_MASK_INDEX);
    EXPECT_EQ(47, PTZ_CONTROL_PROTOCOL_INDEX);
    EXPECT_EQ(57, LAST_DISCONNECT_TIME);
    EXPECT_EQ(59, LENS_ACCESS_TYPE_INDEX);
    EXPECT_EQ(60, BOTTOM_INDEX);
}

TEST(ConfItemMask, SixItemsMakeASerialParameter) {
    int named = 0;
    for (int item = 0; item < BOTTOM_INDEX; ++item) {
        const CONF_ITEM_MASK_STRU mask = MaskOf({item});
        named += CAdapterLensBase::IsSerialParam(&mask) ? 1 : 0;
    }
    EXPECT_EQ(6, named);
    for (const int item : {SERIAL_PORT_BAUT_RATE_INDEX, SERIAL_PORT_DATA_BITS_INDEX, SERIAL_PORT_STOP_BITS_INDEX,
                           SERIAL_PORT_PARITY_INDEX, PTZ_CONTROL_PROTOCOL_INDEX, COM_ADDR_INDEX}) {
        const CONF_ITEM_MASK_STRU mask = MaskOf({item});
        EXPECT_TRUE(CAdapterLensBase::IsSerialParam(&mask)) << item;
    }
    EXPECT_FALSE(CAdapterLensBase::IsSerialParam(nullptr));
}

TEST(SnapshotRequest, RunsUpToOneSecondAfterItWasMade) {
    const ScopedRecordingLogger log;
    const ScopedTestClock clock;
    TestLensOnDevice on;
    const auto nowMs = static_cast<std::uint64_t>(gvx::CurrentClock().WallMicroseconds() / 1000);
    const auto mayRun = [&on](std::uint64_t timeStamp) {
        PU_SNAP_CONF_REQ request{};
        request.timeStamp = timeStamp;
        return on.lens.OnCheckSnapShotRequest(request);
    };
    EXPECT_TRUE(mayRun(nowMs));
    EXPECT_TRUE(mayRun(nowMs - 1000));
    EXPECT_FALSE(log->Contains("snapshot request has delayed"));
    EXPECT_FALSE(mayRun(nowMs - 1001));
    EXPECT_TRUE(log->Contains("snapshot request has delayed more than 1 second, drop it"));
    EXPECT_FALSE(mayRun(nowMs + 1));
}
