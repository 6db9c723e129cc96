#include "bp/link_fixture.h"

#include "base/unique_fd.h"
#include "bp/send_queue.h"

#include <atomic>
#include <thread>

#include <sys/socket.h>
#include <sys/uio.h>

namespace {

using LinkQueue = LinkFixture;  // end to end, tests/e2e/slow_reader.py fills a queue

TEST(SendQueue, RefusalsFormOneEpisodeUntilTheQueueIsWrittenOut) {
    int ends[2];
    ASSERT_EQ(0, ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends));
    const gvx::UniqueFd near(ends[0]);
    const gvx::UniqueFd far(ends[1]);
    const auto memory = std::make_shared<BP::LinkMemory>(1u << 20);
    const BP::LinkAccount::Ptr account = BP::LinkAccount::Open(memory);
    const std::size_t frameBytes = BP::LinkAccount::BytesOf(BP::MakeBareFrame(NssMsgHeader{}).get());
    BP::SendQueue queue(2 * frameBytes, *account);
    const auto push = [&queue] {
        BP::MessageBlockPtr block = BP::MakeBareFrame(NssMsgHeader{});
        const BP::SendQueue::PushResult result = queue.Push(block.get());
        if (result == BP::SendQueue::PushResult::Queued) {
            block.release();
        }
        return result;
    };
    using Push = BP::SendQueue::PushResult;
    for (int episode = 0; episode < 2; ++episode) {
        for (const Push expected : {Push::Queued, Push::Queued, Push::FirstFull, Push::Full, Push::Full}) {
            EXPECT_EQ(expected, push());
        }
        const BP::SendQueue::WriteResult written = queue.WriteTo(
            [&near](struct iovec* parts, int count) { return ::writev(near.Get(), parts, count); }, 1u << 20);
        EXPECT_EQ(BP::SendQueue::WriteState::Drained, written.state);
        EXPECT_EQ(2 * kNssHeaderBytes, written.bytes);
        EXPECT_EQ(3u, written.refusedInEpisode);
        EXPECT_EQ(0u, queue.Bytes());
        EXPECT_EQ(0u, memory->Bytes());
    }
    EXPECT_EQ(6u, queue.FramesRefused());
    EXPECT_EQ(4u, queue.FramesOut());
    EXPECT_EQ(Push::Queued, push());
    const std::shared_ptr<const BP::LinkProgress> progress = queue.Progress();
    EXPECT_FALSE(progress->closed);
    queue.Close();
    EXPECT_TRUE(progress->closed);
    EXPECT_EQ(5u, progress->queued);
    EXPECT_EQ(4u, progress->written) << "the last is lost with the link";
    EXPECT_EQ(0u, queue.Bytes());
    EXPECT_EQ(Push::Closed, push());
}

TEST_F(LinkQueue, FramesOfOneSenderKeepTheirOrderAndFramesOfManyStayWhole) {
    StartListening();
    auto peer = RegisteredPeer("SCU#001");
    constexpr int kThreads = 4;
    constexpr int kFrames = 500;
    std::atomic<int> failures{0};
    std::vector<std::thread> senders;
    for (int sender = 0; sender < kThreads; ++sender) {
        senders.emplace_back([sender, &failures] {
            for (int number = 0; number < kFrames; ++number) {
                const std::string trans = std::to_string(sender) + "/" + std::to_string(number);
                ACE_Message_Block* block = Frame(kType, trans, static_cast<std::size_t>(number) % 300);
                ACE_Message_Block* tail = block->duplicate();  // a chain: the head, and the same bytes from there on
                tail->rd_ptr(kNssHeaderBytes);
                block->wr_ptr(block->rd_ptr() + kNssHeaderBytes);
                block->cont(tail);
                failures += Send("SCU#001", block) != 0 ? 1 : 0;
            }
        });
    }
    std::vector<int> next(kThreads, 0);
    for (int count = 0; count < kThreads * kFrames; ++count) {
        const auto frame = peer->ReadFrame();
        if (!frame) {
            ADD_FAILURE() << "frame " << count << " is missing";
            break;
        }
        const std::string trans = frame->Transaction();
        const std::size_t sender = static_cast<std::size_t>(trans[0] - '0');
        EXPECT_EQ(std::to_string(sender) + "/" + std::to_string(next[sender]), trans);
        EXPECT_EQ(static_cast<std::size_t>(next[sender]++) % 300, frame->body.size());
    }
    for (std::thread& sender : senders) {
        sender.join();
    }
    EXPECT_EQ(0, failures);
}

TEST_F(LinkQueue, SendersSurviveLinksThatComeAndGo) {
    StartListening();
    std::atomic<bool> stop{false};
    std::thread sender([&stop] {
        while (!stop) {
            if (Send("SCU#001", Frame(kType, "t", 100)) != 0) {
                std::this_thread::yield();
            }
        }
    });
    for (int round = 0; round < 20; ++round) {
        auto peer = RegisteredPeer("SCU#001");
        EXPECT_TRUE(peer->ReadFrame().has_value());
    }
    auto peer = RegisteredPeer("SCU#001");
    BP::CNetFactory::Stop();
    stop = true;
    sender.join();
    const auto events = Events();
    ASSERT_EQ(42u, events.size());
    for (std::size_t at = 0; at < events.size(); ++at) {
        EXPECT_EQ(at % 2 == 0 ? "opened SCU#001 10105" : "closed SCU#001 10105", events[at]);
    }
}

}  // namespace
