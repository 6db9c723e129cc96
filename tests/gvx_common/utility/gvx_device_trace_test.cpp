#include "gvx_common/utility/gvx_device_trace.h"

#include "gvx_common/adapter/gvx_device_state.h"
#include "support/test_clock.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace {

void Say(const std::string& device, const std::string& text, std::size_t leftOut = 0) {
    GvxDialogueMessage message;
    message.pszProtocol = "RTSP";
    message.bToDevice = true;
    message.local = GvxMakeTraceEnd("10.0.0.1", 40000);
    message.peer = GvxMakeTraceEnd("2001:db8::1", 554);
    message.pszText = text.data();
    message.nLength = text.size();
    message.nLeftOut = leftOut;
    GvxReportDialogue(device, message);
}

gvx::KeptDialogue Kept(const std::string& device) {
    gvx::KeptDialogue kept;
    EXPECT_TRUE(gvx::FindDialogue(device, kept));
    return kept;
}

std::string Texts(const std::vector<gvx::DialogueEntry>& entries) {
    std::string all;
    for (const gvx::DialogueEntry& entry : entries) {
        all += entry.text + "|";
    }
    return all;
}

// A device with its state, as the gateway keeps it.
struct KeptDevice {
    explicit KeptDevice(const std::string& code) : status(code), trace(code) {}
    gvx::DeviceStatusKeeper status;
    gvx::DeviceTraceKeeper trace;
};

struct Sink : gvx::IDeviceTraceSink {
    void OnMessage(const gvx::DialogueEntry& entry) noexcept override { told += entry.text + "|"; }
    void OnPacket(const GvxTracedPacket& packet, std::size_t head) noexcept override {
        told += std::to_string(head) + "/" + std::to_string(packet.nSize) + "|";
    }
    void OnDeviceGone() noexcept override { told += "gone|"; }

    std::string told;
};

TEST(DeviceTrace, AnEpisodeOfFailureStaysWithWhatWasSaidBeforeIt) {
    ScopedTestClock clock;
    Say("CAM", "nobody has such a device");
    gvx::KeptDialogue none;
    EXPECT_FALSE(gvx::FindDialogue("CAM", none));
    const KeptDevice device("CAM");
    Say("CAM", "asked");
    GvxReportDeviceState("CAM", GVX_DEVICE_WRONG_PASSWORD, "It says 401.");
    Say("CAM", "again");
    EXPECT_TRUE(Kept("CAM").failing);
    clock->AdvanceSeconds(5);
    GvxReportDeviceState("CAM", GVX_DEVICE_ONLINE, "");
    Say("CAM", "well");
    const std::string first = "asked|wrong password. It says 401.|again|online|";
    EXPECT_EQ(first, Texts(Kept("CAM").episode));
    EXPECT_EQ("well|", Texts(Kept("CAM").recent));
    EXPECT_EQ(5, Kept("CAM").tEnded - Kept("CAM").tBegan);
    // The next one comes soon and goes on with it; the one after that takes its place.
    gvx::NoteDeviceError("CAM", "Snapshot failed.");
    EXPECT_EQ(first + "well|Snapshot failed.|", Texts(Kept("CAM").episode));
    clock->AdvanceSeconds(61);
    gvx::NoteDeviceError("CAM", "Snapshot failed again.");
    EXPECT_EQ("Snapshot failed again.|", Texts(Kept("CAM").episode));
    EXPECT_FALSE(Kept("CAM").failing);
}

TEST(DeviceTrace, NoSecretAndNoPictureIsKept) {
    const KeptDevice device("CAM");
    Say("CAM", "DESCRIBE rtsp://u:pw@h/ RTSP/1.0\r\nAuthorization: Digest response=\"0123\"\r\nCSeq: 2\r\n\r\n");
    Say("CAM", std::string("HTTP/1.1 200 OK\r\nSet-Cookie: s=1\r\n\r\n\xFF\xD8\0\0", 40), 100);
    std::vector<gvx::DialogueEntry> entries = Kept("CAM").recent;
    EXPECT_EQ(
        "DESCRIBE rtsp://***@h/ RTSP/1.0\r\nAuthorization: ***\r\nCSeq: 2\r\n\r\n|"
        "HTTP/1.1 200 OK\r\nSet-Cookie: ***\r\n\r\n|",
        Texts(entries));
    EXPECT_EQ(104u, entries[1].leftOut);
    GvxReportDeviceState("CAM", GVX_DEVICE_OFFLINE, "Lost.");
    Say("CAM", std::string(gvx::kMessageTextBytes + 7, 'x'));
    entries = Kept("CAM").episode;
    EXPECT_EQ(gvx::kMessageTextBytes, entries.back().text.size());
    EXPECT_EQ(7u, entries.back().leftOut);
}

TEST(DeviceTrace, EachDialogueAndAllTogetherAreBounded) {
    const KeptDevice failing("FAILS");
    GvxReportDeviceState("FAILS", GVX_DEVICE_OFFLINE, "Lost.");
    const std::string text(1000, 'x');
    const auto bytes = [](const gvx::KeptDialogue& kept) {
        std::size_t sum = 0;
        for (const auto* list : {&kept.episode, &kept.recent}) {
            for (const gvx::DialogueEntry& entry : *list) {
                sum += entry.text.size();
            }
        }
        return sum;
    };
    for (int i = 0; i < 100; ++i) {
        Say("FAILS", text);
    }
    EXPECT_LE(bytes(Kept("FAILS")), gvx::kEpisodeBytes);
    EXPECT_GT(bytes(Kept("FAILS")), gvx::kEpisodeBytes / 2);
    EXPECT_EQ(100u + 1, Kept("FAILS").dropped + Kept("FAILS").episode.size());
    std::vector<std::unique_ptr<KeptDevice>> well;
    const std::uint64_t before = gvx::DroppedDialogues();
    for (std::size_t i = 0; i < gvx::kAllDialogueBytes / gvx::kRecentBytes + 500; ++i) {
        const std::string code = "WELL" + std::to_string(i);
        well.push_back(std::make_unique<KeptDevice>(code));
        for (int turn = 0; turn < 24; ++turn) {
            Say(code, text);
        }
    }
    std::size_t all = 0;
    for (std::size_t i = 0; i < well.size(); ++i) {
        all += bytes(Kept("WELL" + std::to_string(i)));
    }
    EXPECT_LE(all, gvx::kAllDialogueBytes);
    EXPECT_GT(all, gvx::kAllDialogueBytes / 2);
    EXPECT_GT(gvx::DroppedDialogues(), before);
    EXPECT_GT(bytes(Kept("FAILS")), gvx::kEpisodeBytes / 2) << "that of a failing device goes last";
}

TEST(DeviceTrace, WhatToldWhyAnAdditionFailedOutlivesIt) {
    for (std::size_t i = 0; i < gvx::kMostDialoguesWithoutDevice + 1; ++i) {
        gvx::DeviceTraceKeeper keeper("NEW" + std::to_string(i));
        Say("NEW" + std::to_string(i), "refused");
        keeper.LeaveBehind();
    }
    EXPECT_EQ("refused|", Texts(Kept("NEW5").recent));
    gvx::KeptDialogue gone;
    EXPECT_FALSE(gvx::FindDialogue("NEW0", gone));
    for (std::size_t i = 1; i < gvx::kMostDialoguesWithoutDevice + 1; ++i) {
        const gvx::DeviceTraceKeeper again("NEW" + std::to_string(i));
    }
    EXPECT_FALSE(gvx::FindDialogue("NEW5", gone));
}

TEST(DeviceTrace, ASinkGetsMessagesAndHeadsOfPacketsWhileItTraces) {
    const auto sink = std::make_shared<Sink>();
    gvx::KeptDialogue before;
    EXPECT_FALSE(gvx::BeginDeviceTrace("CAM", sink, before));
    {
        const KeptDevice device("CAM");
        Say("CAM", "before");
        EXPECT_FALSE(GvxIsAnyDeviceTraced());
        ASSERT_TRUE(gvx::BeginDeviceTrace("CAM", sink, before));
        EXPECT_EQ("before|", Texts(before.recent));
        EXPECT_FALSE(gvx::BeginDeviceTrace("CAM", sink, before)) << "one at a time";
        EXPECT_TRUE(GvxIsAnyDeviceTraced());
        Say("CAM", "now");
        // Two contributing sources, an extension of one word; and one whose extension leads outside.
        std::vector<std::uint8_t> bytes(1400);
        bytes[0] = 0x92;
        bytes[23] = 1;
        GvxTracedPacket packet;
        packet.pData = bytes.data();
        for (const std::size_t size : {bytes.size(), std::size_t{25}, std::size_t{11}}) {
            packet.nSize = size;
            GvxReportTracedPacket("CAM", packet);
        }
        bytes[22] = 0xFF;
        packet.nSize = bytes.size();
        GvxReportTracedPacket("CAM", packet);
        GvxReportTracedPacket("OTHER", packet);
    }
    EXPECT_EQ("now|32/1400|25/25|11/11|256/1400|gone|", sink->told);
    EXPECT_FALSE(GvxIsAnyDeviceTraced());
}

TEST(DeviceTrace, AnEndOfAConnectionIsText) {
    EXPECT_EQ("10.0.0.1:554", GvxTraceEndText(GvxMakeTraceEnd("10.0.0.1", 554)));
    EXPECT_EQ("[2001:db8::1]:80", GvxTraceEndText(GvxMakeTraceEnd("2001:db8::1", 80)));
    EXPECT_EQ("", GvxTraceEndText(GvxMakeTraceEnd("camera.example", 80)));
    EXPECT_EQ("", GvxTraceEndText(GvxTraceEndOfSocket(-1, true)));
}

}  // namespace
