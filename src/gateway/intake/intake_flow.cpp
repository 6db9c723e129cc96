#include "gateway/intake/intake_flow.h"

#include "base/log.h"
#include "gateway/plugins/plugin_host.h"
#include "gvx_common/intake/gvx_receiver.h"

#include <cstring>

namespace gvx {

namespace {

constexpr unsigned int kThreads = 1;

// A view of the block, which must outlive it. False for a block that no receiver has made.
bool ReadBlock(const ACE_Message_Block& block, GVX_RECEIVED_HEAD& head, GvxIntakeBlock& view) {
    if (block.length() < sizeof(head)) {
        return false;
    }
    std::memcpy(&head, block.rd_ptr(), sizeof(head));
    const bool terminated = memchr(head.peerAddr, 0, sizeof(head.peerAddr)) != nullptr &&
                            memchr(head.recvTime, 0, sizeof(head.recvTime)) != nullptr;
    if (!terminated || head.length < 1 || static_cast<std::size_t>(head.length) != block.length() - sizeof(head)) {
        return false;
    }
    view.pPeerAddr = head.peerAddr;
    view.usPeerPort = static_cast<std::uint16_t>(block.msg_priority());
    view.pRecvTime = head.recvTime;
    view.pData = block.rd_ptr() + sizeof(head);
    view.uiLength = static_cast<std::uint32_t>(head.length);
    return true;
}

}  // namespace

IntakeFlow::IntakeFlow() : CQueueFlowControl("Intake", "TCP") {}

IntakeFlow& IntakeFlow::Instance() {
    static IntakeFlow* const instance = new IntakeFlow;
    return *instance;
}

bool IntakeFlow::Open(const IntakeLimits& limits, std::vector<const LoadedPlugin*> takers) {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_takers = std::make_shared<const Takers>(std::move(takers));
    }
    return initAllMaxValue(limits.maxBlocks, limits.maxWaitMs, limits.maxRate == 0 ? kNoRateLimit : limits.maxRate,
                           kThreads, limits.alarmIntervalSec);
}

void IntakeFlow::Close() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_takers.reset();
}

// Fini comes last: it would leave the length counted that it finds.
bool IntakeFlow::WaitIdle(std::chrono::milliseconds limit) {
    std::unique_lock<std::mutex> lock(m_mutex);
    const bool idle = m_emptied.wait_for(lock, limit, [this] { return m_pending == 0; });
    lock.unlock();
    Fini();
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
        takers = m_takers;
    }
    GVX_RECEIVED_HEAD head{};
    GvxIntakeBlock view{};
    if (takers == nullptr || !ReadBlock(*static_cast<ACE_Message_Block*>(block), head, view)) {
        return ZVS_FAIL;
    }
    int result = ZVS_SUCCEED;
    for (const LoadedPlugin* taker : *takers) {
        const int code = taker->TakeIntakeBlock(view);
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
