#include "gvx_common/rtsp/common_rtsp_method_describe.h"

#include <algorithm>
#include <cstddef>

#include <ace/OS_NS_errno.h>

#include "base/bounded_string.h"
#include "base/clock.h"
#include "base/log.h"
#include "gvx_common/config/setting_table.h"
#include "gvx_common/socket/common_socket_stream.h"
#include "gvx_common/utility/gvx_utility.h"

namespace {

constexpr char kTitle[] = "RTSP describe";
constexpr std::size_t kMediaLineBytes = 128;

std::int64_t ExchangeMilliseconds() {
    return gvx::SettingNumber(gvx::Setting::RTSP_EXCHANGE_TIMEOUT) * 1000;
}

// Puts a nearer deadline on a socket for a scope.
class ScopedDeadline {
public:
    ScopedDeadline(CCommonSocketStream& stream, std::int64_t monotonicMs)
        : m_stream(stream), m_former(stream.GetDeadline()) {
        m_stream.SetDeadline(m_former != 0 ? std::min(m_former, monotonicMs) : monotonicMs);
    }
    ~ScopedDeadline() { m_stream.SetDeadline(m_former); }
    ScopedDeadline(const ScopedDeadline&) = delete;
    ScopedDeadline& operator=(const ScopedDeadline&) = delete;

private:
    CCommonSocketStream& m_stream;
    const std::int64_t m_former;
};

}  // namespace

CCommonRtspMethodDescribe::~CCommonRtspMethodDescribe() {
    ClearSessionList();
}

int CCommonRtspMethodDescribe::Init() {
    if (m_pSdp == nullptr) {
        m_pSdp = gvx::MakeCounted<CCommonSdp>();
    }
    if (m_pSessionList == nullptr) {
        m_pSessionList = gvx::MakeCounted<std::list<CCommonSession*>>();
    }
    if (m_pSdp == nullptr || m_pSessionList == nullptr || m_pSdp->Init() != 0) {
        GVX_LOG_ERR(kTitle, "New sdp or session list error.");
        return 1;
    }
    return CCommonRtspMethodBase::Init();
}

int CCommonRtspMethodDescribe::ParseRecvPack() {
    const int iRet = CCommonRtspMethodBase::ParseRecvPack();
    if (iRet == RTSP_UNAUTHORIZED) {
        return TakeChallenge("Cant find name: WWW-Authenticate.", "Failed to divide realm and nonce.");
    }
    if (iRet != 0) {
        GVX_LOG_ERR(kTitle, "Failed to parse packet. iRet: %d.", iRet);
        return 1;
    }
    if (m_pCurrLine == nullptr) {
        GVX_LOG_ERR(kTitle, "Sdp line is NULL.");
        return 1;
    }
    int nContentLen = 0;
    if (GetRecvParam("Content-length", nContentLen) != 0 && GetRecvParam("Content-Length", nContentLen) != 0) {
        GVX_LOG_ERR(kTitle, "Failed to get the param of Content-Length.");
        return 1;
    }
    if (m_pSocketStream == nullptr) {
        GVX_LOG_ERR(kTitle, "SocketStream is NULL.");
        return 1;
    }
    if (ReadRestOfBody(std::int64_t{nContentLen} + (m_pCurrLine - m_szRecvPack)) != 0) {
        return 1;
    }
    CheckChar();
    if (m_pSdp == nullptr || m_pSessionList == nullptr) {
        GVX_LOG_ERR(kTitle, "Sdp handle is null.");
        return 1;
    }
    if (m_pSdp->InitSdpPack(m_pCurrLine, nContentLen) != 0) {
        GVX_LOG_ERR(kTitle, "Failed to init sdp packet.");
        return 1;
    }
    if (m_pSdp->ParseSdp() != 0) {
        GVX_LOG_ERR(kTitle, "Failed to parse sdp packet.");
        return 1;
    }
    ClearSessionList();
    return SetSession();
}

// The last byte of the buffer stays the terminator.
int CCommonRtspMethodDescribe::ReadRestOfBody(std::int64_t nTotolLen) {
    constexpr std::uint32_t kMaxLength = sizeof(m_szRecvPack) - 1;
    const ScopedDeadline deadline(*m_pSocketStream, gvx::MonotonicMilliseconds() + ExchangeMilliseconds());
    while (m_nRecvPackLen < nTotolLen && m_nRecvPackLen < kMaxLength) {
        const ssize_t nRecvLen = m_pSocketStream->Recv(m_szRecvPack + m_nRecvPackLen, kMaxLength - m_nRecvPackLen, 0);
        if (nRecvLen <= 0) {
            GVX_LOG_ERR(kTitle, "Recv from server error: %d.", ACE_OS::last_error());
            return 1;
        }
        m_nRecvPackLen += static_cast<std::uint32_t>(nRecvLen);
    }
    return 0;
}

void CCommonRtspMethodDescribe::CheckChar() {
    while (*m_pCurrLine == '\r' || *m_pCurrLine == '\n' || *m_pCurrLine == ' ') {
        ++m_pCurrLine;
    }
}

int CCommonRtspMethodDescribe::SetSession() {
    for (const std::string& name : *m_pSdp->GetMediaNameList()) {
        gvx::CountedPtr<CCommonSession> session = gvx::MakeCounted<CCommonSession>();
        if (session == nullptr) {
            GVX_LOG_ERR(kTitle, "New CCommonSession error!");
            ClearSessionList();
            return 1;
        }
        if (strncpy_s(session->m_szSessionName, sizeof(session->m_szSessionName), name.c_str(), name.size()) != 0) {
            GVX_LOG_ERR(kTitle, "strncpy_s m_szSessionName failed!");
            return 1;
        }
        char mediaLine[kMediaLineBytes] = {};
        if (m_pSdp->GetMediaElement(name.c_str(), 'm', sizeof(mediaLine), mediaLine) != 1) {
            return 1;
        }
        // Another protocol leaves the type empty, and the plug-in passes over that media.
        session->SetMediaType(mediaLine);
        if (m_pSdp->GetMediaElementA(name.c_str(), "control", session->m_szCtrlPath, sizeof(session->m_szCtrlPath)) !=
            0) {
            return 1;
        }
        m_pSessionList->push_back(session.release());
    }
    return 0;
}

void CCommonRtspMethodDescribe::ClearSessionList() {
    if (m_pSessionList == nullptr) {
        return;
    }
    for (CCommonSession* session : *m_pSessionList) {
        const gvx::CountedPtr<CCommonSession> owned(session);
    }
    m_pSessionList->clear();
}

int CCommonRtspMethodDescribe::GetRangeInfo(char* szRange, std::uint32_t ulength) {
    if (m_pSdp == nullptr) {
        GVX_LOG_ERR(kTitle, "Sdp handle is null.");
        return 1;
    }
    return m_pSdp->GetSessionElementA("range", szRange, ulength);
}
