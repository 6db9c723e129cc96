#pragma once

#include "base/unique_fd.h"
#include "bp/cmd.h"
#include "bp/session.h"
#include "gvx_common/event/gvx_reactor.h"
#include "nss/nss_msg_type.h"
#include "support/caught_frames.h"
#include "support/settings_folder.h"
#include "support/wait_until.h"

#include <ace/Event_Handler.h>
#include <ace/Malloc_Base.h>
#include <ace/Message_Block.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <sys/socket.h>
#include <unistd.h>

// Payload of a frame that is counted as long as it or a clone of it lives.
class CountedData : public ACE_Data_Block {
public:
    // A message block gives its data block back to ACE's allocator, so it has to come from there.
    static CountedData* Make(std::atomic<int>& live) {
        return new (ACE_Allocator::instance()->malloc(sizeof(CountedData))) CountedData(live);
    }
    ~CountedData() override { --m_live; }
    ACE_Data_Block* clone_nocopy(ACE_Message_Block::Message_Flags, size_t) const override { return Make(m_live); }

private:
    explicit CountedData(std::atomic<int>& live)
        : ACE_Data_Block(1, ACE_Message_Block::MB_DATA, nullptr, nullptr, nullptr, 0, nullptr), m_live(live) {
        ++m_live;
    }
    std::atomic<int>& m_live;
};

// A queue entry with the command that it owns.
class TestCmd {
public:
    TestCmd(std::uint32_t reqID, const std::string& devID, std::time_t timestamp = 0) {
        m_cmd.SetReqID(reqID);
        m_cmd.SetTimestamp(timestamp);
        m_entry.m_pCmd = &m_cmd;
        m_entry.m_devID = devID;
    }
    TestCmd& Service(std::uint32_t number) {
        m_cmd.SetServiceID(number);
        return *this;
    }
    TestCmd& Block(const std::string& bytes) {
        m_cmd.SetMsgBlock(BlockOf(bytes));
        return *this;
    }
    // Counts this command and its clones in live.
    TestCmd& Counted(std::atomic<int>& live) {
        m_cmd.SetMsgBlock(new ACE_Message_Block(CountedData::Make(live)));
        return *this;
    }
    const BP::CGvxNssCmd_& Entry() const { return m_entry; }

private:
    BP::CCmd m_cmd;
    BP::CGvxNssCmd_ m_entry;
};

inline int Push(CGvxReactor& reactor, std::uint32_t reqID, const std::string& devID, std::time_t timestamp = 0) {
    return reactor.PushMessage(TestCmd(reqID, devID, timestamp).Entry());
}

// What sessions have served, in order. The work of the types given to the constructor is to write it down.
class ServedCmds {
public:
    explicit ServedCmds(const std::vector<std::uint32_t>& reqIDs) {
        for (const std::uint32_t reqID : reqIDs) {
            BP::RegisterSessionWork(reqID, [this](BP::CGvxSessionBase& session, const BP::CCmd& cmd) {
                char number[8];
                std::snprintf(number, sizeof(number), "%04x@", cmd.GetReqID() & 0xFFFFu);
                const std::lock_guard<std::mutex> guard(m_mutex);
                m_served.push_back(number + session.GetRespDevID());
                return 0;
            });
        }
    }
    ~ServedCmds() { BP::ClearSessionWork(); }

    // "0131@devA", "0109@devA", in order.
    std::vector<std::string> All() const {
        const std::lock_guard<std::mutex> guard(m_mutex);
        return m_served;
    }
    std::size_t Count() const { return All().size(); }
    bool WaitForCount(std::size_t count) const {
        return WaitUntil([&] { return Count() >= count; });
    }

private:
    mutable std::mutex m_mutex;
    std::vector<std::string> m_served;  // Guarded by m_mutex.
};

// Keeps a reactor's thread inside one command until it is opened, so that a test can fill the queue behind it.
// Opens by itself at its end; declare it behind the reactor.
class Gate {
public:
    static constexpr std::uint32_t kReqID = NSS_DEVICE_REBOOT_REQ;

    explicit Gate(CGvxReactor& reactor) {
        const auto entered = std::make_shared<std::promise<void>>();
        BP::RegisterSessionWork(kReqID, [entered, open = m_open.get_future().share()](auto&, const auto&) {
            entered->set_value();
            open.wait();
            return 0;
        });
        EXPECT_EQ(0, Push(reactor, kReqID, "gate"));
        EXPECT_EQ(std::future_status::ready, entered->get_future().wait_for(std::chrono::seconds(20)));
    }
    ~Gate() { Open(); }
    void Open() {
        if (!std::exchange(m_isOpen, true)) {
            m_open.set_value();
        }
    }

private:
    std::promise<void> m_open;
    bool m_isOpen = false;
};

struct SocketPair {
    SocketPair() {
        int ends[2] = {-1, -1};
        EXPECT_EQ(0, ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends));
        ours = gvx::UniqueFd(ends[0]);
        peer = gvx::UniqueFd(ends[1]);
    }
    void Send(const std::string& text) {
        EXPECT_EQ(static_cast<ssize_t>(text.size()), ::write(peer.Get(), text.data(), text.size()));
    }
    gvx::UniqueFd ours;
    gvx::UniqueFd peer;
};

// Counts its calls and answers what the test says, one answer a call, then 0.
class RecordingHandler : public ACE_Event_Handler {
public:
    explicit RecordingHandler(int handle = -1) : m_handle(handle) {}
    ~RecordingHandler() override { reactor(nullptr); }

    ACE_HANDLE get_handle() const override { return m_handle; }
    int handle_input(ACE_HANDLE) override { return Called("input"); }
    int handle_output(ACE_HANDLE) override { return Called("output"); }
    int handle_exception(ACE_HANDLE) override { return Called("exception"); }
    int handle_timeout(const ACE_Time_Value&, const void*) override { return Called("timeout"); }
    int handle_close(ACE_HANDLE, ACE_Reactor_Mask mask) override {
        Called("close:" + std::to_string(mask));
        return 0;
    }
    void Answer(std::vector<int> answers) {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_answers = std::move(answers);
    }
    // "input input close:1"; forgets it.
    std::string Calls() {
        const std::lock_guard<std::mutex> guard(m_mutex);
        return std::exchange(m_calls, {});
    }
    bool WasCalled() const {
        const std::lock_guard<std::mutex> guard(m_mutex);
        return !m_calls.empty();
    }

private:
    int Called(const std::string& what) {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_calls += (m_calls.empty() ? "" : " ") + what;
        if (m_answers.empty() || what.compare(0, 5, "close") == 0) {
            return 0;
        }
        const int answer = m_answers.front();
        m_answers.erase(m_answers.begin());
        return answer;
    }
    const int m_handle;
    mutable std::mutex m_mutex;
    std::vector<int> m_answers;  // Guarded by m_mutex.
    std::string m_calls;         // Guarded by m_mutex.
};
