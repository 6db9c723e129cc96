#include "gvx_common/rtsp/common_rtsp_method_options.h"

#include <cstring>

#include "base/log.h"

namespace {

constexpr char kTitle[] = "RTSP options";
constexpr char kPublic[] = "Public";

}  // namespace

int CCommonRtspMethodOptions::ParseRecvPack() {
    const int iRet = CCommonRtspMethodBase::ParseRecvPack();
    if (iRet == RTSP_UNAUTHORIZED) {
        return TakeChallenge("Cant find name: WWW-Authenticate", "Divide realm and nonce fail.");
    }
    if (iRet != 0) {
        GVX_LOG_ERR(kTitle, "Parse recv pack fail.");
        return 1;
    }
    m_vecMethodName.clear();
    char methods[sizeof(ParamSet::szValue)] = {};
    if (GetRecvParam(kPublic, methods, sizeof(methods) - 1) == nullptr) {
        GVX_LOG_ERR(kTitle, "Cant find name: %s", kPublic);
        return 1;
    }
    if (DivideMethodName(methods, m_vecMethodName) != 0) {
        GVX_LOG_ERR(kTitle, "Divide method name fail.");
        return 1;
    }
    return 0;
}

// Blanks and commas separate; what lies empty between them is no method.
int CCommonRtspMethodOptions::DivideMethodName(const char* szValue, std::vector<std::string>& vecOut) {
    constexpr char kSeparators[] = " ,";
    if (szValue == nullptr) {
        return 1;
    }
    for (const char* at = szValue + std::strspn(szValue, kSeparators); *at != '\0';
         at += std::strspn(at, kSeparators)) {
        const std::size_t length = std::strcspn(at, kSeparators);
        vecOut.emplace_back(at, length);
        at += length;
    }
    return 0;
}
