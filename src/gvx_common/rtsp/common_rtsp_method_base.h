#pragma once

#include "gvx_common/rtsp/common_sdp.h"
#include "gvx_common/utility/counted_ptr.h"

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

// One header's value, wiped at its end: it may be a credential.
struct ParamSet {
    ParamSet() = default;
    ~ParamSet();
    ParamSet(const ParamSet&) = delete;
    ParamSet& operator=(const ParamSet&) = delete;

    bool bSet = false;
    char szValue[512] = {};
};
using HMParamSet = std::unordered_map<std::string, gvx::CountedPtr<ParamSet>>;  // by header name

// ParseRecvPack's result for a challenge: compute the authorisation, set it as a header, and send again.
constexpr int RTSP_UNAUTHORIZED = -401;

// One RTSP request and its answer (RFC 2326), as texts: the caller owns the connection. An exchange goes Init, SetUrl,
// SetSendParam, BuidSendPack, GetSendPack, then the caller writes and reads, then SetRecvPack and ParseRecvPack. A
// request holds 2047 bytes at most, an answer 4095. Failures are log lines and results. One thread at a time uses an
// object.
class CCommonRtspMethodBase {
public:
    // szMethodName opens the request line: "OPTIONS", "SETUP" ...
    explicit CCommonRtspMethodBase(const char* szMethodName);
    virtual ~CCommonRtspMethodBase();
    CCommonRtspMethodBase(const CCommonRtspMethodBase&) = delete;
    CCommonRtspMethodBase& operator=(const CCommonRtspMethodBase&) = delete;

    // Forgets the headers to send and those received, and wipes the request. 0.
    virtual int Init();

    // Takes the answer apart; once for each text, which it cuts up. 0 for status 200; RTSP_UNAUTHORIZED for 401;
    // ZVS_GVX_DEV_UN_SUPPORT for 551; 1 for any other status and for headers that are none.
    virtual int ParseRecvPack();

    // At most 255 characters; a longer URL, or null, is logged and leaves none.
    void SetUrl(const char* szUrl);

    // Sets a header, at most 511 characters of value; a longer one is logged and leaves it empty. An empty value keeps
    // the header from being sent. Null is logged and changes nothing.
    void SetSendParam(const char* szName, const char* szValue);
    void SetSendParam(const char* szName, int nValue);

    // Builds the request from URL and headers, whose order is not that in which they were set. 0; 1 when it does not
    // fit, and the request then ends after the last header that did; 1 and no request when method or URL is empty, or
    // when one of them or a header holds a control character, which would make other lines of it.
    int BuidSendPack();

    // Copies the request with a terminator. Its length; 1 when it does not fit nSize or there is none.
    std::uint32_t GetSendPack(char* szPack, std::uint32_t nSize) const;

    // Takes the answer, a terminated text: its head, and of its body what has come. nLen is the number of bytes
    // received, below 4096. 0 or 1.
    int SetRecvPack(const char* szPack, int nLen);

    // A header of the answer, by its name as the device wrote it; of one that repeats, the first. Copies the value with
    // a terminator: szValue holds nValueSize + 1 bytes. Gives the address of this object's own copy, valid until the
    // next ParseRecvPack or Init; null when there is no such header, or it does not fit.
    const char* GetRecvParam(const char* szName, char* szValue, std::uint32_t nValueSize) const;
    // The number that the value begins with, 0 when there is none. 0, or 1 when there is no such header or its value is
    // longer than 63 characters.
    int GetRecvParam(const char* szName, int& nValue) const;

    // The parts of the last challenge that Options or Describe met.
    void GetRealmAndNonce(std::string& strRealm, std::string& strNonce, std::string& strAlgo) const;

    // Splits the value of a challenge (RFC 7616, section 3.3). A realm is required; a nonce and an algorithm may be
    // missing, and are empty then. Realm and nonce have at most 63 characters, the algorithm is cut after 62. 0 or 1.
    static int DivideRealmAndNonce(const char* szOpt, std::string& Realm, std::string& Nonce, std::string& algo);

    const char* GetMethodName() const { return m_szMethodName; }
    // What "Public" named, in order, once Options was answered.
    const std::vector<std::string>& GetMethodNames() const { return m_vecMethodName; }
    int GetRetCode() const { return m_nRetCode; }

protected:
    // Sets the members of the challenge from the answer's "WWW-Authenticate", and forgets the methods.
    // RTSP_UNAUTHORIZED; 1 with the given log text when the header is missing or can not be split.
    int TakeChallenge(const char* headerMissing, const char* splitFailed);

    HMParamSet m_hmSendParamSet;
    HMParamSet m_hmRecvParamSet;
    char m_szHead[512] = {};
    char m_szSendPack[2048] = {};
    char m_szRecvPack[4096] = {};
    int m_nRetCode = 1;
    std::uint32_t m_nSendPackLen = 0;
    std::uint32_t m_nRecvPackLen = 0;
    char m_szMethodName[128] = {};
    char m_szUrl[256] = {};
    char* m_pCurrLine = nullptr;  // behind the blank line of a parsed answer, inside m_szRecvPack
    std::string m_strRealm;
    std::string m_strNonce;
    std::string m_strAlgo;
    std::vector<std::string> m_vecMethodName;
    gvx::CountedPtr<CCommonSdp> m_pSdp;  // made by Describe

private:
    void WipeSendPack();
    int BuidHead();
    bool RequestHoldsControlCharacter() const;
    bool AppendToSendPack(const char* name, const char* separator, const char* value);
    int BindSendParamSet(const char* szName, const char* szValue);
    void ParseRspCode(const char* szLine);
    int ParseLine(const char* szLine);
    static char* GetLine(char* szLine);
};
