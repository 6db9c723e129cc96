#include "bp/transactions.h"

#include "base/clock.h"
#include "bp/dispatcher.h"
#include "nss/nss_msg_header.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace BP {

namespace {

constexpr std::int64_t kTransactionLimitMs = 60000;

// A wait looks at the clock at least this often, because a clock that is set does not wake it.
constexpr std::int64_t kWaitSliceMs = 200;

}  // namespace

// Never destroyed: reactors serve, and hence send, until late in the end of the process.
TransactionTable& TransactionTable::Instance() {
    static TransactionTable& table = *new TransactionTable;
    return table;
}

void TransactionTable::Open(std::string transID, std::uint32_t serviceID) {
    if (transID.empty()) {
        return;
    }
    const OpenTransaction opened{serviceID, gvx::MonotonicMilliseconds()};
    std::lock_guard<std::mutex> guard(m_mutex);
    m_open.insert_or_assign(std::move(transID), opened);
}

void TransactionTable::Remove(std::string_view transID) {
    std::lock_guard<std::mutex> guard(m_mutex);
    const auto found = m_open.find(transID);
    if (found != m_open.end()) {
        m_open.erase(found);
    }
}

std::size_t TransactionTable::CountOpen() {
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_open.size();
}

std::size_t TransactionTable::Expire() {
    std::lock_guard<std::mutex> guard(m_mutex);
    const std::int64_t now = gvx::MonotonicMilliseconds();
    std::size_t expired = 0;
    for (auto entry = m_open.begin(); entry != m_open.end();) {
        const bool old = now - entry->second.openedMs > kTransactionLimitMs;
        entry = old ? m_open.erase(entry) : std::next(entry);
        expired += old ? 1 : 0;
    }
    return expired;
}

std::unique_ptr<CCmd> TransactionTable::Deliver(std::unique_ptr<CCmd> response) {
    std::lock_guard<std::mutex> guard(m_mutex);
    const auto open = m_open.find(response->GetTransID());
    if (open != m_open.end()) {
        response->SetServiceID(open->second.serviceID);
        m_open.erase(open);
    }
    const auto wait = m_waits.find(response->GetTransID());
    if (wait == m_waits.end() || wait->second->m_answer != nullptr ||
        wait->second->m_answerID != response->GetReqID() || wait->second->m_linkID != response->GetNetLinkID()) {
        return response;
    }
    wait->second->m_answer = std::move(response);
    wait->second->m_changed.notify_one();
    return nullptr;
}

void TransactionTable::LinkClosed(const std::string& linkID) {
    std::lock_guard<std::mutex> guard(m_mutex);
    for (const auto& wait : m_waits) {
        if (wait.second->m_linkID == linkID) {
            wait.second->m_linkLost = true;
            wait.second->m_changed.notify_one();
        }
    }
}

void TransactionTable::StopWaiting() {
    std::lock_guard<std::mutex> guard(m_mutex);
    m_stopped = true;
    for (const auto& wait : m_waits) {
        wait.second->m_changed.notify_one();
    }
}

void TransactionTable::Resume() {
    std::lock_guard<std::mutex> guard(m_mutex);
    m_stopped = false;
}

TransactionTable::Wait::Wait(std::string transID, std::string linkID, std::uint32_t reqID)
    : m_table(Instance()),
      m_transID(std::move(transID)),
      m_linkID(std::move(linkID)),
      m_answerID((reqID + kNssResponseOffset) & 0xFFFF) {
    std::lock_guard<std::mutex> guard(m_table.m_mutex);
    m_begun = !m_table.m_stopped && !m_transID.empty() && m_table.m_waits.emplace(m_transID, this).second;
}

TransactionTable::Wait::~Wait() {
    if (m_begun) {
        std::lock_guard<std::mutex> guard(m_table.m_mutex);
        m_table.m_waits.erase(m_transID);
    }
}

std::unique_ptr<CCmd> TransactionTable::Wait::Take(std::int64_t timeoutMs) {
    const std::int64_t deadline = gvx::MonotonicMilliseconds() + timeoutMs;
    std::unique_lock<std::mutex> lock(m_table.m_mutex);
    while (m_begun && m_answer == nullptr && !m_linkLost && !m_table.m_stopped) {
        const std::int64_t left = deadline - gvx::MonotonicMilliseconds();
        if (left <= 0) {
            break;
        }
        m_changed.wait_for(lock, std::chrono::milliseconds(std::min(left, kWaitSliceMs)));
    }
    // Under the same lock, so that an answer either comes out here or finds no wait and goes the common way.
    if (m_begun) {
        m_table.m_waits.erase(m_transID);
        m_begun = false;
    }
    return std::move(m_answer);
}

void CTransactionMgr::RemoveTransaction(const char* transID) {
    if (transID != nullptr) {
        TransactionTable::Instance().Remove(transID);
    }
}

std::size_t CTransactionMgr::OpenTransactions() {
    return TransactionTable::Instance().CountOpen();
}

std::size_t CTransactionMgr::ExpireTransactions() {
    return TransactionTable::Instance().Expire();
}

void CTransactionMgr::StopWaiting() {
    TransactionTable::Instance().StopWaiting();
}

void CTransactionMgr::Resume() {
    TransactionTable::Instance().Resume();
}

}  // namespace BP
