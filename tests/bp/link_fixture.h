#pragma once

#include "bp/dispatcher.h"
#include "bp/frame_reader.h"
#include "bp/net_factory.h"
#include "support/caught_frames.h"
#include "support/fake_peer.h"
#include "support/recording_logger.h"
#include "support/wait_until.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

// Links under test: events and frames are recorded, and everything is stopped at the end.
class LinkFixture : public ::testing::Test {
protected:
    static constexpr std::uint16_t kType = 0x0501;

    void SetUp() override {
        BP::CDispatcher::SetSink([this](std::unique_ptr<BP::CCmd> cmd) {
            std::lock_guard<std::mutex> guard(m_mutex);
            m_frames.push_back(std::move(cmd));
            return 0;
        });
    }

    void TearDown() override {
        BP::CNetFactory::Stop();
        BP::CDispatcher::SetSink(nullptr);
    }

    BP::LinkEvents Recorder() {
        BP::LinkEvents events;
        const auto note = [this](const char* what) {
            return [this, what](const std::string&, int type, const std::string& link, const std::string&, unsigned) {
                std::lock_guard<std::mutex> guard(m_mutex);
                m_events.push_back(what + link + " " + std::to_string(type));
            };
        };
        events.opened = note("opened ");
        events.closed = note("closed ");
        return events;
    }

    // Starts with the options and listens on a free port of the loopback.
    void StartListening(BP::LinkOptions options = BP::LinkOptions()) {
        options.localID = "GVX#001";
        ASSERT_EQ(0, BP::CNetFactory::Start(options, Recorder()));
        ASSERT_EQ(0, BP::CNetFactory::Listen("127.0.0.1", 0, &m_port));
    }

    std::unique_ptr<FakePeer> RegisteredPeer(const std::string& id) {
        std::unique_ptr<FakePeer> peer = FakePeer::Connect(m_port);
        if (peer == nullptr || peer->Register(id) != 0u) {
            ADD_FAILURE() << id << " could not register\n" << m_log->Dump();
        }
        return peer;
    }

    // A frame from the peer reaches the sink, and one to the peer reaches it.
    ::testing::AssertionResult Exchanges(FakePeer& peer, const std::string& id) {
        const std::string trans = "exchange-" + std::to_string(++m_exchanges);
        if (!peer.SendFrame(kType, 7, trans) || !WaitUntil([&] {
                return Has([&](const BP::CCmd& f) { return f.GetNetLinkID() == id && f.GetTransID() == trans; });
            })) {
            return ::testing::AssertionFailure() << "nothing came in from " << id << "\n" << m_log->Dump();
        }
        const int result = Send(id, Frame(kType, trans, 10));
        if (result != 0) {
            return ::testing::AssertionFailure() << "send to " << id << ": " << result;
        }
        const auto frame = peer.ReadFrame();
        if (!frame || frame->Transaction() != trans) {
            return ::testing::AssertionFailure() << "nothing came out to " << id;
        }
        return ::testing::AssertionSuccess();
    }

    template <typename Predicate>
    bool Has(Predicate predicate) {
        std::lock_guard<std::mutex> guard(m_mutex);
        return std::any_of(m_frames.begin(), m_frames.end(), [&](const auto& cmd) { return predicate(*cmd); });
    }

    // Takes the block, sent or not.
    static int Send(const std::string& id, ACE_Message_Block* block) {
        const int result = BP::CNetFactory::Send(id, block);
        if (result != 0) {
            block->release();
        }
        return result;
    }
    static ACE_Message_Block* Frame(std::uint16_t type, const std::string& transID, std::size_t bodyBytes) {
        return BlockOf(FakePeer::MakeFrame(type, 1, transID, 0, std::string(bodyBytes, 'b')));
    }

    std::vector<std::string> Events() {
        std::lock_guard<std::mutex> guard(m_mutex);
        return m_events;
    }
    bool WaitForEvents(std::size_t count) {
        return WaitUntil([&] { return Events().size() >= count; });
    }
    static std::size_t OpenLinks() { return BP::CNetFactory::Links().size(); }

    ScopedRecordingLogger m_log{OM_LOG_INFO};
    std::uint16_t m_port = 0;

private:
    int m_exchanges = 0;
    std::mutex m_mutex;
    std::vector<std::unique_ptr<BP::CCmd>> m_frames;  // Guarded by m_mutex.
    std::vector<std::string> m_events;                // Guarded by m_mutex.
};
