#include "bp/cmd.h"

#include "base/clock.h"
#include "base/log.h"
#include "base/random.h"
#include "bp/frame_clone.h"

#include <ace/Message_Block.h>

#include <atomic>
#include <exception>
#include <new>

namespace BP {

namespace {

// Drawn once: what tells this process from every other, and from itself before a restart.
std::uint64_t DrawProcessPart() {
    std::uint64_t part = 0;
    if (CBB::GenerateRandom(&part, sizeof(part)) != 0) {
        GVX_LOG_WARN("Transaction text", "No random bytes, the time of day stands in for them.");
        part = static_cast<std::uint64_t>(gvx::CurrentClock().WallMicroseconds());
    }
    return part;
}

constexpr std::size_t kHexDigits = 16;

// One is drawn for every command served, so it is written without a format.
void WriteHex(std::uint64_t value, char* text) {
    for (std::size_t digit = kHexDigits; digit-- > 0; value >>= 4) {
        text[digit] = "0123456789abcdef"[value & 0xF];
    }
}

}  // namespace

CCmd::CCmd() = default;

CCmd::~CCmd() {
    SetMsgBlock(nullptr);
}

void CCmd::SetMsgBlock(ACE_Message_Block* block) {
    if (m_pMsgBlock != nullptr && m_pMsgBlock != block) {
        m_pMsgBlock->release();
    }
    m_pMsgBlock = block;
}

ACE_Message_Block* CCmd::ReleaseMsgBlock() {
    ACE_Message_Block* const block = m_pMsgBlock;
    m_pMsgBlock = nullptr;
    return block;
}

const std::string& CCmd::GetTransID() const {
    static const std::string& none = *new std::string;  // commands are looked at late in the end of the process
    return m_strTransID != nullptr ? *m_strTransID : none;
}

void CCmd::SetTransID(std::string transID) {
    m_strTransID = std::make_shared<const std::string>(std::move(transID));
}

CCmd* CCmd::NewClone() const noexcept {
    try {
        auto copy = std::make_unique<CCmd>();
        copy->m_uiReqID = m_uiReqID;
        copy->m_iNetElemType = m_iNetElemType;
        copy->m_uiServiceID = m_uiServiceID;
        copy->m_bFedIn = m_bFedIn;
        copy->m_timestamp = m_timestamp;
        copy->m_strNetLinkID = m_strNetLinkID;
        copy->m_strTransID = m_strTransID;
        copy->m_pAttachment = m_pAttachment;
        if (m_pMsgBlock != nullptr) {
            copy->m_pMsgBlock = CloneFrame(*m_pMsgBlock).release();
            if (copy->m_pMsgBlock == nullptr) {
                return nullptr;
            }
        }
        return copy.release();
    } catch (const std::exception&) {
        return nullptr;  // the only one that can come is the lack of memory
    }
}

std::time_t OSTime::Time() {
    return gvx::WallSeconds();
}

std::string CMKTransID::GenerateTransID() {
    std::string text;
    GenerateTransID(text);
    return text;
}

void CMKTransID::GenerateTransID(std::string& text) {
    static const std::uint64_t processPart = DrawProcessPart();
    static std::atomic<std::uint64_t> counter{0};
    text.assign(2 * kHexDigits + 1, '-');
    WriteHex(processPart, &text[0]);
    WriteHex(counter.fetch_add(1) + 1, &text[kHexDigits + 1]);
}

}  // namespace BP
