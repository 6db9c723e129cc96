#include "gateway/intake/intake_flow.h"

#include "base/log.h"
#include "base/shortage.h"
#include "gateway/intake/intake_taker.h"
#include "gateway/plugins/plugin_guard.h"
#include "gateway/plugins/plugin_host.h"

#include <cstring>
#include <exception>

namespace gvx {

namespace {

constexpr unsigned int kThreads = 1;

// A copy of the block; null for one that no receiver has made.
std::shared_ptr<const PushedBlock> CopyBlock(const ACE_Message_Block& block) {
    auto copy = std::make_shared<PushedBlock>();
    GVX_RECEIVED_HEAD& head = copy->head;
    if (block.length() < sizeof(head)) {
        return nullptr;
    }
    std::memcpy(&head, block.rd_ptr(), sizeof(head));
    const bool terminated = memchr(head.peerAddr, 0, sizeof(head.peerAddr)) != nullptr &&
                            memchr(head.recvTime, 0, sizeof(head.recvTime)) != nullptr;
    if (!terminated || head.length < 1 || static_cast<std::size_t>(head.length) != block.length() - sizeof(head)) {
        return nullptr;
    }
    copy->data.assign(block.rd_ptr() + sizeof(head), static_cast<std::size_t>(head.length));
    copy->view.pPeerAddr = head.peerAddr;
    copy->view.usPeerPort = static_cast<std::uint16_t>(block.msg_priority());
    copy->view.pRecvTime = head.recvTime;
    copy->view.pData = copy->data.data();
    copy->view.uiLength = static_cast<std::uint32_t>(head.length);
    return copy;
}

}  // namespace

IntakeFlow::IntakeFlow() : CQueueFlowControl("Intake", "TCP") {}

IntakeFlow& IntakeFlow::Instance() {
    static IntakeFlow* const instance = new IntakeFlow;
    return *instance;
}

bool IntakeFlow::Open(const IntakeLimits& limits, std::vector<const LoadedPlugin*> takers) {
    auto made = std::make_shared<Takers>();
    try {
        for (const LoadedPlugin* taker : takers) {
            made->push_back(std::make_unique<IntakeTaker>(*taker));
        }
    } catch (const std::exception& error) {
        NoteShortage(error);
        GVX_LOG_ERR("Intake", "there is no thread or no memory for a plug-in: %s", error.what());
        return false;
    }
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_takers = std::move(made);
        m_open = true;
    }
    return initAllMaxValue(limits.maxBlocks, limits.maxWaitMs, limits.maxRate == 0 ? kNoRateLimit : limits.maxRate,
                           kThreads, limits.alarmIntervalSec);
}

void IntakeFlow::Close() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_open = false;
}

// A taker that does not come back is never destroyed: its plug-in still uses it. Fini comes last: it would leave the
// length counted that it finds.
bool IntakeFlow::WaitIdle(std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    std::unique_lock<std::mutex> lock(m_mutex);
    bool idle = m_emptied.wait_until(lock, deadline, [this] { return m_pending == 0; });
    const std::shared_ptr<const Takers> takers = m_takers;
    lock.unlock();
    if (takers != nullptr) {
        for (const auto& taker : *takers) {
            idle = taker->IsIdle(deadline) && idle;
        }
    }
    Fini();
    if (idle) {
        lock.lock();
        m_takers.reset();
    }
    return idle;
}

void IntakeFlow::Take(BP::MessageBlockPtr block) {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        ++m_pending;
    }
    if (enqueue_tail(block.get()) == 0) {
        (void)block.release();  // the queue's
        return;
    }
    CountDown();
}

int IntakeFlow::QFC_MsgProc(void* block) {
    std::shared_ptr<const Takers> takers;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        takers = m_open ? m_takers : nullptr;
    }
    const auto copy = takers == nullptr ? nullptr : CopyBlock(*static_cast<ACE_Message_Block*>(block));
    if (copy == nullptr) {
        return ZVS_FAIL;
    }
    std::vector<IntakeTaker*> given;
    for (const auto& taker : *takers) {
        if (taker->Give(copy)) {
            given.push_back(taker.get());
        }
    }
    int result = given.size() == takers->size() ? ZVS_SUCCEED : ZVS_FAIL;
    const auto deadline =
        std::chrono::steady_clock::now() + std::chrono::milliseconds(PluginCallWatch::Instance().LimitMs());
    for (IntakeTaker* taker : given) {
        const int code = taker->Wait(deadline).value_or(ZVS_FAIL);
        result = result == ZVS_SUCCEED ? code : result;
    }
    return result;
}

void IntakeFlow::QFC_MsgFree(void* block) {
    static_cast<ACE_Message_Block*>(block)->release();
    CountDown();
}

void IntakeFlow::CountDown() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    --m_pending;
    m_emptied.notify_all();
}

}  // namespace gvx
