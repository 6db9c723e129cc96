#pragma once

#include "gvx_common/rtsp/common_rtsp_method_base.h"
#include "gvx_common/rtsp/common_session.h"

#include <list>

class CCommonSocketStream;

// The exchange that asks a device for the description of a stream (RFC 2326, section 10.2).
class CCommonRtspMethodDescribe : public CCommonRtspMethodBase {
public:
    using CCommonRtspMethodBase::CCommonRtspMethodBase;
    ~CCommonRtspMethodDescribe() override;

    // Also makes the parser and the list of sessions. 0, or 1 without memory.
    int Init() override;

    // Where the rest of a description is read from: the connection on which the answer came. Not owned; to be set
    // before ParseRecvPack, also when the answer is there whole.
    void SetSocketStream(CCommonSocketStream* pSocketStream) { m_pSocketStream = pSocketStream; }

    // 0 when the description was read and taken apart; RTSP_UNAUTHORIZED when a challenge was taken
    // (GetRealmAndNonce); else 1. What of the description has not come yet is read from the socket, each wait within
    // its receive time-out, the whole within RTSP_EXCHANGE_TIMEOUT seconds and the socket's own deadline. What is
    // beyond 4095 bytes of head and description is cut off and stays unread.
    int ParseRecvPack() override;

    // A session for each media, in order of appearance; owned by this object, valid until the next ParseRecvPack. Null
    // before Init.
    std::list<CCommonSession*>* GetSessionList() { return m_pSessionList.get(); }

    // The session's "a=range" (RFC 2326, section C.1.5). 0; 1 or 2 when there is none or it does not fit ulength.
    int GetRangeInfo(char* szRange, std::uint32_t ulength);

private:
    int ReadRestOfBody(std::int64_t nTotolLen);
    void CheckChar();
    int SetSession();
    void ClearSessionList();

    gvx::CountedPtr<std::list<CCommonSession*>> m_pSessionList;  // owns its elements
    CCommonSocketStream* m_pSocketStream = nullptr;
};
