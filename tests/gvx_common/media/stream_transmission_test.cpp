#include "gvx_common/media/gvx_stream_transmission.h"

#include "gvx_common/media_memory/media_block_buffer.h"
#include "media_test_support.h"
#include "support/recording_logger.h"
#include "support/test_clock.h"

#include <ace/Message_Block.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <set>
#include <string>
#include <vector>

namespace {

class StreamTransmission : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(CMediaBlockBuffer::instance()->init(GVX_MEDIA_BLOCK_SIZE, 256, sizeof(SOCKET_INFO*)), 0);
    }
    void TearDown() override {
        EXPECT_EQ(CMediaBlockBuffer::instance()->getRemainBlockNum(), 256u);
        CMediaBlockBuffer::instance()->close();
    }

    // A block as a sender makes it.
    static ACE_Message_Block* Block(SOCKET_INFO* record, const std::string& packet) {
        ACE_Message_Block* block = CMediaBlockBuffer::instance()->allocMediaBlock();
        block->rd_ptr(block->rd_ptr() - sizeof(record));
        std::memcpy(block->rd_ptr(), &record, sizeof(record));
        block->copy(packet.data(), packet.size());
        return block;
    }
};

TEST_F(StreamTransmission, APacedThreadTakesAPartOfTheBacklogAndPauses) {
    const TestSocket receiver(SOCK_DGRAM);
    UdpRecord record(receiver, receiver);  // outlives the threads that serve it
    EXPECT_EQ(CStreamTransmission().GetBatch(100), 0u);
    const ScopedSettings settings("STREAM_SMOOTH_COEFF=4\nMEDIA_SEND_FIXED_NUM=10\nMEDIA_SEND_INTERVAL=30\n");
    CStreamTransmission paced;
    EXPECT_EQ(paced.GetBatch(100), 35u);
    EXPECT_EQ(paced.GetBatch(5), 5u);
    EXPECT_EQ(paced.GetBatch(0), 0u);
    std::chrono::steady_clock::time_point begin;
    {
        const HeldThreads held({paced.GetQueue()});
        for (int i = 0; i < 100; ++i) {
            ASSERT_NE(paced.GetQueue()->enqueue_tail(Block(&record.info, std::to_string(i))), -1);
        }
        begin = std::chrono::steady_clock::now();
    }
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(receiver.Receive(), std::to_string(i));
    }
    // Batches of 35, 26, 19, 15 and 5: four pauses at least, however fast or slow the machine is.
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(4 * 30));
}

TEST_F(StreamTransmission, ThreadsEndAtOnceAndGiveQueuedBlocksBack) {
    const ScopedSettings settings("STREAM_SMOOTH_COEFF=100\nMEDIA_SEND_FIXED_NUM=1\nMEDIA_SEND_INTERVAL=20\n");
    const TestSocket receiver(SOCK_DGRAM);
    UdpRecord record(receiver, receiver);
    // A handler of the program for SIGINT stays.
    struct sigaction own {};
    struct sigaction former {};
    own.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGINT, &own, &former), 0);
    for (int round = 0; round < 100; ++round) {
        CStreamTransmission transmission;
        ASSERT_TRUE(transmission.IsRunning());
        for (int i = 0; i < 100 && round < 5; ++i) {
            ASSERT_NE(transmission.GetQueue()->enqueue_tail(Block(&record.info, "x")), -1);
        }
        transmission.UnInit();
        EXPECT_FALSE(transmission.IsRunning());
        EXPECT_EQ(CMediaBlockBuffer::instance()->getRemainBlockNum(), 256u);
    }
    struct sigaction now {};
    sigaction(SIGINT, &former, &now);
    EXPECT_EQ(now.sa_handler, own.sa_handler);
}

// A packet that does not fit what the system takes at once, and whose rest always fits a record.
std::string LongPacket(int number) {
    return std::string(static_cast<std::size_t>(3000 + number % 50), static_cast<char>('a' + number % 26));
}

bool HasRest(const SOCKET_INFO& info) {
    return info.unRestBegin != info.unRestEnd;
}

// Sends until a packet leaves in part; the peer reads a little whenever one does not leave at all.
bool SendUntilRest(CStreamTransmission& transmission, SOCKET_INFO* info, const TestSocket& peer, std::string& wire,
                   std::string& accepted) {
    for (int i = 0; i < 20000 && !HasRest(*info); ++i) {
        const std::string packet = LongPacket(i);
        const std::uint64_t dropped = info->losses.Lost();
        transmission.DoSendVideoFrame(&info, packet.data(), static_cast<unsigned int>(packet.size()));
        if (info->losses.Lost() == dropped) {
            accepted += packet;
        } else {
            wire += peer.Receive(700);
        }
    }
    return HasRest(*info);
}

// Sends single bytes, none of which can leave in part, until one finds no room.
bool SendUntilFull(CStreamTransmission& transmission, TcpRecord& record) {
    SOCKET_INFO* info = &record.info;
    const std::uint64_t dropped = record.info.losses.Lost();
    for (int i = 0; i < 100000 && record.info.losses.Lost() == dropped; ++i) {
        transmission.DoSendVideoFrame(&info, "x", 1);
    }
    return record.info.losses.Lost() != dropped && !HasRest(record.info);
}

// What stays for two seconds ends the stream: the rest of a packet, or that no packet finds room at all.
TEST_F(StreamTransmission, APeerThatTakesNothingForTwoSecondsEndsTheStream) {
    const ScopedSettings settings("MEDIA_PARK_BYTES=0\n");
    for (const bool withRest : {true, false}) {
        ScopedTestClock clock;
        CStreamTransmission transmission;
        TcpRecord record;
        SOCKET_INFO* info = &record.info;
        const auto sendAfter = [&](int milliseconds) {
            clock->AdvanceMs(milliseconds);
            transmission.DoSendVideoFrame(&info, "x", 1);
            return record.info.bGone.load();
        };
        std::string wire;
        std::string accepted;
        if (withRest) {
            ASSERT_TRUE(SendUntilRest(transmission, info, record.peer, wire, accepted));
        } else {
            ASSERT_TRUE(SendUntilFull(transmission, record));
            EXPECT_FALSE(sendAfter(1999));
            record.peer.Receive();  // it reads after all, so the time begins anew
            EXPECT_FALSE(sendAfter(0) || record.info.bStalled);
            ASSERT_TRUE(SendUntilFull(transmission, record));
        }
        EXPECT_FALSE(sendAfter(1999));
        EXPECT_TRUE(sendAfter(1));
        EXPECT_TRUE(sendAfter(0));
    }
}

TEST_F(StreamTransmission, WhatFindsNoRoomWaitsForASecondAtMost) {
    ScopedTestClock clock;
    const ScopedSettings settings("MEDIA_PARK_BYTES=65536\n");
    CStreamTransmission transmission;
    TcpRecord record;
    SOCKET_INFO* info = &record.info;
    const auto waiting = [info] { return info->losses.LostOrWaiting() - info->losses.Lost(); };
    const std::string packet(1000, 'p');
    for (int i = 0; i < 10000 && info->losses.Lost() == 0; ++i) {
        transmission.DoSendVideoFrame(&info, packet.data(), 1000);
    }
    EXPECT_GT(waiting(), 50u);
    EXPECT_LE(waiting(), 65u);
    clock->AdvanceMs(1001);
    transmission.DoSendVideoFrame(&info, packet.data(), 1000);
    EXPECT_LE(waiting(), HasRest(*info) ? 2u : 1u);
    EXPECT_FALSE(info->bGone);
    // What has waited longer still goes when there is room by then.
    const std::uint64_t lost = info->losses.Lost();
    while (!record.peer.IsQuiet()) {
        record.peer.Receive();
    }
    clock->AdvanceMs(1001);
    transmission.DoSendVideoFrame(&info, packet.data(), 1000);
    EXPECT_TRUE(waiting() == 0 && info->losses.Lost() == lost);
}

TEST_F(StreamTransmission, AStalledStreamDoesNotKeepAnotherFromArriving) {
    const ScopedSettings settings("MEDIA_PARK_BYTES=65536\n");
    const ScopedSlowClock clock;
    TcpRecord stalled;
    const TestSocket receiver(SOCK_DGRAM);
    UdpRecord other(receiver, receiver);
    CStreamTransmission transmission;
    const std::string packet(2000, 's');
    for (int i = 0; i < 100; ++i) {
        for (int part = 0; part < 4; ++part) {
            ASSERT_NE(transmission.GetQueue()->enqueue_tail(Block(&stalled.info, packet)), -1);
        }
        ASSERT_NE(transmission.GetQueue()->enqueue_tail(Block(&other.info, std::to_string(i))), -1);
        ASSERT_EQ(receiver.Receive(), std::to_string(i));
    }
    transmission.UnInit();
    EXPECT_GT(stalled.info.losses.Lost(), 300u);  // its peer has read nothing
    EXPECT_FALSE(stalled.info.bGone);
}

TEST(StreamTransManager, ThreadsAreCappedAndNewStreamsGoToTheLeastLoaded) {
    CStreamTransMgr* manager = CStreamTransMgr::Instance();
    EXPECT_EQ(manager->GetMediaQueue(), nullptr);
    for (const auto& [setting, threads] :
         std::vector<std::pair<std::string, unsigned int>>{{"", 5}, {"=3\n", 3}, {"=100\n", 64}, {"=-1\n", 64}}) {
        const ScopedSettings some(setting.empty() ? "" : "TRANSMISSION_THREAD_NUM" + setting);
        ASSERT_EQ(manager->Init(), 0);
        EXPECT_EQ(manager->GetThreadNum(), threads);
        manager->UnInit();
        EXPECT_EQ(manager->GetThreadNum(), 0u);
    }
    const ScopedSettings settings("TRANSMISSION_THREAD_NUM=4\n");
    ASSERT_EQ(manager->Init(), 0);
    std::multiset<CStreamTransmission::Queue*> taken;
    for (int i = 0; i < 8; ++i) {
        taken.insert(manager->GetMediaQueue());
    }
    EXPECT_EQ(manager->GetStreamNums(), std::vector<unsigned int>(4, 2));
    // Two streams of one thread end: the next two go there.
    CStreamTransmission::Queue* const freed = *taken.begin();
    manager->ReleaseMediaQueue(freed);
    manager->ReleaseMediaQueue(freed);
    EXPECT_EQ(manager->GetMediaQueue(), freed);
    EXPECT_EQ(manager->GetMediaQueue(), freed);
    for (auto* queue : taken) {
        manager->ReleaseMediaQueue(queue);
    }
    manager->ReleaseMediaQueue(freed);  // one too many does no harm
    EXPECT_EQ(manager->GetStreamNums(), std::vector<unsigned int>(4, 0));
    manager->UnInit();
}

}  // namespace
