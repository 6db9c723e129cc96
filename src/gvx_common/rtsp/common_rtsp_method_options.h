#pragma once

#include "gvx_common/rtsp/common_rtsp_method_base.h"

// The exchange that asks a device for its methods (RFC 2326, section 10.1).
class CCommonRtspMethodOptions : public CCommonRtspMethodBase {
public:
    using CCommonRtspMethodBase::CCommonRtspMethodBase;

    // 0 when the methods of "Public" were taken (GetMethodNames); RTSP_UNAUTHORIZED when a challenge was
    // (GetRealmAndNonce); else 1, status 551 included.
    int ParseRecvPack() override;

private:
    static int DivideMethodName(const char* szValue, std::vector<std::string>& vecOut);
};
