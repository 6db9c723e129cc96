#include "bp/link.h"

#include "base/bounded_string.h"
#include "base/clock.h"
#include "base/log.h"
#include "bp/errno_text.h"
#include "bp/registration.h"
#include "nss/nss_msg_type.h"

#include <ace/Reactor.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace BP {

void Link::Connected() {
    m_state = State::Registering;
    reactor()->cancel_wakeup(this, ACE_Event_Handler::WRITE_MASK);
    m_writeWatched = false;
    if (reactor()->schedule_wakeup(this, ACE_Event_Handler::READ_MASK) == -1) {
        Close(OM_LOG_WARNING, ErrnoText("the connection cannot be watched", errno));
        return;
    }
    m_lastHeardMs = m_lastSaidMs = gvx::MonotonicMilliseconds();
    m_setupDeadlineMs = m_lastHeardMs + m_options.registerTimeoutMs;
    m_owner.WakeBy(m_setupDeadlineMs);
    SendControl(MakeRegisterRequest(m_localID));
}

void Link::RegistrationArrived(MessageBlockPtr frame, std::uint16_t type, std::uint32_t rspCode) {
    const std::uint16_t wanted = static_cast<std::uint16_t>(m_outgoing ? NSS_BP_REGISTER_RSP : NSS_BP_REGISTER_REQ);
    char text[96] = {0};
    if (type != wanted) {
        sprintf_s(text, sizeof(text), "the first frame is no registration but 0x%04x", type);
        Close(OM_LOG_WARNING, text);
        return;
    }
    if (m_outgoing && rspCode != 0) {
        sprintf_s(text, sizeof(text), "the peer refused the registration with code %u", rspCode);
        Close(OM_LOG_WARNING, text);
        return;
    }
    std::string fault;
    if (!ReadRegistration(frame.get(), m_linkID, &fault)) {
        RefuseRegistration(frame.get(), fault);
        return;
    }
    if (!m_outgoing && !SendControl(MakeRegisterResponse(frame.get(), m_localID, ZVS_SUCCEED))) {
        Close(OM_LOG_WARNING, "the registration could not be answered");
        return;
    }
    if (m_state == State::Registering) {
        BecomeOpen();
    }
}

void Link::RefuseRegistration(const ACE_Message_Block* frame, const std::string& fault) {
    m_linkID.clear();
    if (!m_outgoing) {
        SendControl(MakeRegisterResponse(frame, m_localID, ZVS_PARA_INVALID));
        Flush();
    }
    Close(OM_LOG_WARNING, fault);
}

void Link::BecomeOpen() {
    m_state = State::Open;
    m_setupDeadlineMs = kNoDeadline;
    m_reader.SetMaxFrameBytes(m_options.maxFrameBytes);
    m_owner.WakeBy(std::min(m_lastSaidMs + m_options.keepAliveMs, m_lastHeardMs + m_options.silenceTimeoutMs));
    GVX_LOG_INFO("Link opened", "[peer:%s:%u, link:%s] %s", m_peer.ip.c_str(), m_peer.port, m_linkID.c_str(),
                 m_outgoing ? "outgoing" : "incoming");
    m_owner.LinkRegistered(*this);
}

}  // namespace BP
