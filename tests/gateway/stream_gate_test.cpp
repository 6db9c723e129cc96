#include "gateway/streams/stream_gate.h"

#include "base/zvs_error.h"
#include "gvx_common/media/media_send_stream.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <set>
#include <thread>
#include <vector>

namespace {

// The gate's answer to one packet of that many bytes of each medium.
int SendThrough(void* userInfo, unsigned int video, unsigned int audio = 0, unsigned int metadata = 0) {
    char packet[20] = {};
    MEDIA_DATA data{};
    data.pUserInfo = userInfo;
    data.pDataBuf = packet;
    data.nVideoSize = video;
    data.nAudioSize = audio;
    data.nMetaDataSize = metadata;
    STREAM_TYPE_EX type = STREAM_TYPE_METADATA;
    const int result = gvx::StreamGate::Send(&data, &type);
    EXPECT_EQ(data.pUserInfo, userInfo);
    return result;
}

}  // namespace

TEST(StreamGateTest, ClosedGateLetsNothingThroughAndCountsWhoIsInside) {
    CMediaSendStream media;
    gvx::StreamGate gate;
    gate.SetTarget(&media, true);
    std::atomic<int> result{0};
    std::thread sender([&] { result = SendThrough(gate.UserInfo(), 20); });  // waits: the gate is held
    gate.Close();
    EXPECT_TRUE(gate.WaitEmpty(20000));
    sender.join();
    EXPECT_EQ(result, ZVS_GVX_OPEN_SOCKET_ERROR);
    EXPECT_EQ(gvx::StreamGate::Send(nullptr, nullptr), ZVS_FAIL);
}

TEST(StreamGateTest, WhatNobodyAskedForIsDroppedAndTheRestGoesToItsTarget) {
    CMediaSendStream closed;
    auto gate = std::make_unique<gvx::StreamGate>();
    gate->SetTarget(&closed, false);
    gate->Open();
    EXPECT_EQ(SendThrough(gate->UserInfo(), 0, 20), ZVS_SUCCEED);
    EXPECT_EQ(SendThrough(gate->UserInfo(), 0, 0, 20), ZVS_SUCCEED);
    gate->SetTarget(&closed, true);
    gate->SetMetadataTarget(&closed);
    EXPECT_EQ(SendThrough(gate->UserInfo(), 0, 20), ZVS_GVX_OPEN_SOCKET_ERROR);
    EXPECT_EQ(SendThrough(gate->UserInfo(), 0, 0, 20), ZVS_GVX_OPEN_SOCKET_ERROR);
    EXPECT_EQ(gate->MetadataPackets(), 0u);
    void* const late = gate->UserInfo();
    gate = nullptr;
    // Whichever gate gets its place knows nothing of that target, and its user information is another.
    std::vector<std::unique_ptr<gvx::StreamGate>> gates;
    for (int i = 0; i < 100; ++i) {
        gates.push_back(std::make_unique<gvx::StreamGate>());
        gates.back()->Open();
        ASSERT_NE(gates.back()->UserInfo(), late);
        ASSERT_EQ(SendThrough(gates.back()->UserInfo(), 0, 0, 20), ZVS_SUCCEED);
    }
    for (void* userInfo : {late, reinterpret_cast<void*>(~std::uintptr_t{0}), reinterpret_cast<void*>(1)}) {
        EXPECT_EQ(SendThrough(userInfo, 1), ZVS_GVX_OPEN_SOCKET_ERROR);
    }
}

TEST(StreamGateTest, PlacesAreUsedAgain) {
    std::set<std::uintptr_t> places;
    for (int i = 0; i < 1000; ++i) {
        const gvx::StreamGate gate;
        ASSERT_TRUE(gate.IsUsable());
        places.insert(reinterpret_cast<std::uintptr_t>(gate.UserInfo()) % gvx::StreamGate::kMaxGates);
    }
    EXPECT_LE(places.size(), 101u) << "as many as stood at a time, whatever test came before";
}
