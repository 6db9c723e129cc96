#include "bp/cmd.h"

#include <ace/Message_Block.h>

#include <exception>
#include <new>

namespace BP {

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
        if (m_pMsgBlock != nullptr) {
            copy->m_pMsgBlock = m_pMsgBlock->clone();
            if (copy->m_pMsgBlock == nullptr) {
                return nullptr;
            }
        }
        return copy.release();
    } catch (const std::exception&) {
        return nullptr;  // the only one that can come is the lack of memory
    }
}

}  // namespace BP
