#include "gvx_common/rtsp/common_rtsp_method_base.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "base/bounded_string.h"
#include "base/log.h"
#include "base/zvs_error.h"
#include "gvx_common/utility/gvx_utility.h"

ParamSet::~ParamSet() {
    memset_s(szValue, sizeof(szValue), 0, sizeof(szValue));
}

namespace {

constexpr char kTitle[] = "RTSP method";
constexpr char kVersion[] = "RTSP/1.0";
constexpr char kLineEnd[] = "\r\n";
constexpr char kChallengeHeader[] = "WWW-Authenticate";
constexpr int kStatusOk = 200;
constexpr int kStatusUnauthorized = 401;
constexpr int kStatusOptionNotSupported = 551;
constexpr std::size_t kNameBytes = 256;
constexpr std::size_t kNumberBytes = 64;
constexpr std::size_t kChallengeBytes = 64;  // of a realm or a nonce, terminator included
constexpr std::size_t kMaxAlgorithmLength = 62;

// Copies the quoted value that follows name. It begins behind the name and one character, taken for the quote, and ends
// at the next quote. False when there is no such quote or the value is too long.
bool CopyQuoted(const char* at, const char* name, const char* bufferName, std::string& value) {
    char text[kChallengeBytes] = {};
    const std::size_t begin = std::strlen(name) + 1;
    const char* end = std::strlen(at) >= begin ? std::strchr(at + begin, '"') : nullptr;
    if (end == nullptr) {
        GVX_LOG_ERR(kTitle, "The value of %s has no closing quote.", name);
        return false;
    }
    if (strncpy_s(text, sizeof(text), at + begin, static_cast<std::size_t>(end - at) - begin) != 0) {
        GVX_LOG_ERR(kTitle, "strncpy_s %s failed!", bufferName);
        return false;
    }
    value = text;
    return true;
}

}  // namespace

CCommonRtspMethodBase::CCommonRtspMethodBase(const char* szMethodName) {
    if (szMethodName == nullptr ||
        strncpy_s(m_szMethodName, sizeof(m_szMethodName), szMethodName, std::strlen(szMethodName)) != 0) {
        GVX_LOG_ERR(kTitle, "strncpy_s m_szMethodName failed!");
    }
}

CCommonRtspMethodBase::~CCommonRtspMethodBase() {
    WipeSendPack();
}

int CCommonRtspMethodBase::Init() {
    m_hmSendParamSet.clear();
    m_hmRecvParamSet.clear();
    WipeSendPack();
    return 0;
}

void CCommonRtspMethodBase::WipeSendPack() {
    memset_s(m_szSendPack, sizeof(m_szSendPack), 0, sizeof(m_szSendPack));
    m_nSendPackLen = 0;
}

void CCommonRtspMethodBase::SetUrl(const char* szUrl) {
    if (szUrl == nullptr || strncpy_s(m_szUrl, sizeof(m_szUrl), szUrl, std::strlen(szUrl)) != 0) {
        m_szUrl[0] = '\0';
        GVX_LOG_ERR(kTitle, "strncpy_s m_szUrl failed!");
    }
}

void CCommonRtspMethodBase::SetSendParam(const char* szName, const char* szValue) {
    if (szName == nullptr || szValue == nullptr) {
        GVX_LOG_ERR(kTitle, "Input parameter is null.");
        return;
    }
    BindSendParamSet(szName, szValue);
}

void CCommonRtspMethodBase::SetSendParam(const char* szName, int nValue) {
    char value[kNumberBytes] = {};
    if (snprintf_s(value, sizeof(value), sizeof(value) - 1, "%d", nValue) >= 0) {
        SetSendParam(szName, value);
    }
}

int CCommonRtspMethodBase::BindSendParamSet(const char* szName, const char* szValue) {
    gvx::CountedPtr<ParamSet>& pParamSet = m_hmSendParamSet[szName];
    if (pParamSet == nullptr) {
        pParamSet = gvx::MakeCounted<ParamSet>();
    }
    if (pParamSet == nullptr) {
        m_hmSendParamSet.erase(szName);
        GVX_LOG_ERR(kTitle, "New ParamSet error.");
        return 1;
    }
    pParamSet->bSet = true;
    if (strncpy_s(pParamSet->szValue, sizeof(pParamSet->szValue), szValue, std::strlen(szValue)) != 0) {
        std::memset(pParamSet->szValue, 0, sizeof(pParamSet->szValue));
        GVX_LOG_ERR(kTitle, "strncpy_s pParamSet->szValue failed!");
        return 1;
    }
    return 0;
}

int CCommonRtspMethodBase::BuidHead() {
    if (snprintf_s(m_szHead, sizeof(m_szHead), sizeof(m_szHead) - 1, "%s %s %s", m_szMethodName, m_szUrl, kVersion) <
        0) {
        GVX_LOG_ERR(kTitle, "snprintf_s m_szHead failed");
        return 1;
    }
    return 0;
}

bool CCommonRtspMethodBase::RequestHoldsControlCharacter() const {
    if (CGvxUtility::HoldsControlCharacter(m_szHead)) {
        GVX_LOG_ERR(kTitle, "The request line holds a control character.");
        return true;
    }
    for (const auto& [name, param] : m_hmSendParamSet) {
        if (CGvxUtility::HoldsControlCharacter(name.c_str()) || CGvxUtility::HoldsControlCharacter(param->szValue)) {
            GVX_LOG_ERR(kTitle, "A header of the request holds a control character.");
            return true;
        }
    }
    return false;
}

bool CCommonRtspMethodBase::AppendToSendPack(const char* name, const char* separator, const char* value) {
    const std::size_t room = sizeof(m_szSendPack) - m_nSendPackLen;
    const int length =
        snprintf_s(m_szSendPack + m_nSendPackLen, room, room - 1, "%s%s%s%s", name, separator, value, kLineEnd);
    if (length < 0) {
        GVX_LOG_ERR(kTitle, "snprintf_s m_szSendPack failed");
        return false;
    }
    m_nSendPackLen += static_cast<std::uint32_t>(length);
    return true;
}

int CCommonRtspMethodBase::BuidSendPack() {
    WipeSendPack();
    if (m_szMethodName[0] == '\0' || m_szUrl[0] == '\0') {
        GVX_LOG_ERR(kTitle, "The request has no method or no URL.");
        return 1;
    }
    if (BuidHead() != 0 || RequestHoldsControlCharacter() || !AppendToSendPack(m_szHead, "", "")) {
        return 1;
    }
    for (const auto& [name, param] : m_hmSendParamSet) {
        if (param->szValue[0] != '\0' && !AppendToSendPack(name.c_str(), ": ", param->szValue)) {
            return 1;
        }
    }
    return AppendToSendPack("", "", "") ? 0 : 1;
}

std::uint32_t CCommonRtspMethodBase::GetSendPack(char* szPack, std::uint32_t nSize) const {
    if (szPack == nullptr || m_nSendPackLen == 0 || strncpy_s(szPack, nSize, m_szSendPack, m_nSendPackLen) != 0) {
        GVX_LOG_ERR(kTitle, "strncpy_s szPack failed!");
        return 1;
    }
    return m_nSendPackLen;
}

int CCommonRtspMethodBase::SetRecvPack(const char* szPack, int nLen) {
    if (szPack == nullptr || nLen < 0) {
        GVX_LOG_ERR(kTitle, "Pack is NULL or Pack len %d < 0.", nLen);
        return 1;
    }
    if (static_cast<std::size_t>(nLen) >= sizeof(m_szRecvPack)) {
        GVX_LOG_ERR(kTitle, "PackLen %d is too long.", nLen);
        return 1;
    }
    std::memset(m_szRecvPack, 0, sizeof(m_szRecvPack));
    m_pCurrLine = nullptr;
    m_nRecvPackLen = 0;
    if (strncpy_s(m_szRecvPack, sizeof(m_szRecvPack), szPack, sizeof(m_szRecvPack)) != 0) {
        GVX_LOG_ERR(kTitle, "strncpy_s m_szRecvPack failed!");
        return 1;
    }
    m_nRecvPackLen = static_cast<std::uint32_t>(nLen);
    return 0;
}

// Ends the line with a terminator and gives the start of the next one; null when no line end is left.
char* CCommonRtspMethodBase::GetLine(char* szLine) {
    char* end = szLine + std::strcspn(szLine, kLineEnd);
    if (*end == '\0') {
        return nullptr;
    }
    char* next = end + (end[0] == '\r' && end[1] == '\n' ? 2 : 1);
    *end = '\0';
    return next;
}

void CCommonRtspMethodBase::ParseRspCode(const char* szLine) {
    m_nRetCode = 1;
    // Nine digits fit an int; a status has three.
    if (sscanf_s(szLine, "%*s%9d", &m_nRetCode) != 1) {
        GVX_LOG_ERR(kTitle, "Failed to read the response code of [%s].", szLine);
    }
}

int CCommonRtspMethodBase::ParseRecvPack() {
    char* line = m_szRecvPack;
    char* next = GetLine(line);
    ParseRspCode(line);
    int result = 0;
    switch (m_nRetCode) {
        case kStatusOk:
            break;
        case kStatusUnauthorized:
            result = RTSP_UNAUTHORIZED;
            break;
        case kStatusOptionNotSupported:
            GVX_LOG_ERR(kTitle, "Option not supported by the PU.");
            return ZVS_GVX_DEV_UN_SUPPORT;
        default:
            GVX_LOG_ERR(kTitle, "Response code %d error.", m_nRetCode);
            return 1;
    }
    m_hmRecvParamSet.clear();
    m_pCurrLine = nullptr;
    for (line = next; line != nullptr && *line != '\0'; line = next) {
        next = GetLine(line);
        if (*line == '\0') {
            m_pCurrLine = next;
            break;
        }
        if (ParseLine(line) != 0) {
            GVX_LOG_ERR(kTitle, "Failed to parse line.");
            return 1;
        }
    }
    return result;
}

int CCommonRtspMethodBase::ParseLine(const char* szLine) {
    const char* colon = std::strchr(szLine, ':');
    if (colon == nullptr) {
        GVX_LOG_ERR(kTitle, "Parse line [%s] not have ':'.", szLine);
        return 1;
    }
    char szName[kNameBytes] = {};
    if (strncpy_s(szName, sizeof(szName), szLine, static_cast<std::size_t>(colon - szLine)) != 0) {
        GVX_LOG_ERR(kTitle, "strncpy_s szName failed!");
        return 1;
    }
    const char* value = colon + 1;
    value += std::strspn(value, " ");
    const std::size_t length = std::strcspn(value, kLineEnd);
    if (length >= sizeof(ParamSet::szValue)) {
        GVX_LOG_ERR(kTitle, "Name [%s] content len is too long.", szName);
        return 1;
    }
    const auto [at, isNew] = m_hmRecvParamSet.emplace(szName, nullptr);
    if (!isNew) {
        return 0;
    }
    at->second = gvx::MakeCounted<ParamSet>();
    if (at->second == nullptr) {
        m_hmRecvParamSet.erase(at);
        GVX_LOG_ERR(kTitle, "RecvParamSet bind name [%s] error: %d.", szName, 1);
        return 1;
    }
    at->second->bSet = true;
    return strncpy_s(at->second->szValue, sizeof(at->second->szValue), value, length) == 0 ? 0 : 1;
}

const char* CCommonRtspMethodBase::GetRecvParam(const char* szName, char* szValue, std::uint32_t nValueSize) const {
    if (szName == nullptr || szValue == nullptr) {
        GVX_LOG_ERR(kTitle, "Input parameter is null.");
        return nullptr;
    }
    const auto at = m_hmRecvParamSet.find(szName);
    if (at == m_hmRecvParamSet.end()) {
        GVX_LOG_INFO(kTitle, "[%s] is not exist.", szName);
        return nullptr;
    }
    const std::size_t size = static_cast<std::size_t>(nValueSize) + 1;
    if (strncpy_s(szValue, size, at->second->szValue, size) != 0) {
        GVX_LOG_ERR(kTitle, "strncpy_s szValue failed!");
        return nullptr;
    }
    return at->second->szValue;
}

int CCommonRtspMethodBase::GetRecvParam(const char* szName, int& nValue) const {
    char value[kNumberBytes] = {};
    if (GetRecvParam(szName, value, sizeof(value) - 1) == nullptr) {
        return 1;
    }
    nValue = CGvxUtility::toInt(value);
    return 0;
}

void CCommonRtspMethodBase::GetRealmAndNonce(std::string& strRealm, std::string& strNonce, std::string& strAlgo) const {
    strRealm = m_strRealm;
    strNonce = m_strNonce;
    strAlgo = m_strAlgo;
}

int CCommonRtspMethodBase::DivideRealmAndNonce(const char* szOpt, std::string& Realm, std::string& Nonce,
                                               std::string& algo) {
    constexpr char kRealm[] = "realm=";
    constexpr char kNonce[] = "nonce=";
    constexpr char kAlgorithm[] = "algorithm=";
    if (szOpt == nullptr) {
        GVX_LOG_ERR(kTitle, "Input parameter is null.");
        return 1;
    }
    const char* realm = std::strstr(szOpt, kRealm);
    if (realm == nullptr) {
        GVX_LOG_ERR(kTitle, "The challenge has no realm.");
        return 1;
    }
    if (!CopyQuoted(realm, kRealm, "szRealm", Realm)) {
        return 1;
    }
    Nonce.clear();
    const char* nonce = std::strstr(szOpt, kNonce);
    if (nonce != nullptr && !CopyQuoted(nonce, kNonce, "szNonce", Nonce)) {
        return 1;
    }
    algo.clear();
    const char* algorithm = std::strstr(szOpt, kAlgorithm);
    if (algorithm != nullptr) {
        algorithm += std::strlen(kAlgorithm);
        algo.assign(algorithm, std::min(std::strcspn(algorithm, ", "), kMaxAlgorithmLength));
    }
    return 0;
}

int CCommonRtspMethodBase::TakeChallenge(const char* headerMissing, const char* splitFailed) {
    m_vecMethodName.clear();
    char challenge[sizeof(ParamSet::szValue)] = {};
    if (GetRecvParam(kChallengeHeader, challenge, sizeof(challenge) - 1) == nullptr) {
        GVX_LOG_ERR(kTitle, "%s", headerMissing);
        return 1;
    }
    if (DivideRealmAndNonce(challenge, m_strRealm, m_strNonce, m_strAlgo) != 0) {
        GVX_LOG_ERR(kTitle, "%s", splitFailed);
        return 1;
    }
    return RTSP_UNAUTHORIZED;
}
