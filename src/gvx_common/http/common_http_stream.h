#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "gvx_common/http/http_credentials.h"
#include "gvx_common/socket/common_socket_stream.h"

class ACE_Message_Queue_Base;

enum HTTP_AUTH_TYPE { HTTP_AUTH_BASIC = 0, HTTP_AUTH_DIGEST = 1, HTTP_AUTH_MAX = 2 };

// What a device offers, as bits that add up over its challenges.
enum HTTP_AUTH_ALGORITHM_MASK {
    HTTP_AUTH_ALGORTM_MASK_MD5 = 1,
    HTTP_AUTH_ALGORTM_MASK_SHA256 = 2,
    HTTP_AUTH_ALGORTM_MASK_MIXED = 3,
};

// A device's challenge (RFC 7616, section 3.3) and what answered it. The caller zeroes it before its first use. A
// realm, nonce or qop that is longer than its field is cut.
struct Common_HTTP_AUTH {
    HTTP_AUTH_TYPE authType;
    char szUserName[32];
    char szRealm[128];
    char szNonce[64];
    char szUri[256];
    char szNonceCount[32];  // of the answer: "00000001"
    char szCNonce[64];      // of the answer
    char szMsgQOP[16];      // as offered, a list of several words whole
    char szResponse[64];
    char szIP[16];
    char szPort[8];
    std::uint8_t uiAlgorithm;  // HTTP_AUTH_ALGORITHM_MASK bits; 0 when the device names none that is known
};

constexpr const char* NONCECOUNT = "00000001";
// A body's reading goes on while no more waits than this were in vain before the last one.
constexpr int CMN_MAX_TIME_OUT_TIMES = 5;

// A small HTTP/1.1 client (RFC 9112) for fetching pictures and settings from a camera: a request is composed in a fixed
// buffer, sent over one connection, and its answer read into another.
//
//     Init, FormatRequestHeader [FormatRequestHeaderEx ...] [FormatRequestBody ...], SendRequest, then
//     DealHttpSnapShot, or GetResponseHeader, or GetResponse.
//
// Requests say "Connection: close", so that a second one, such as the answer to a challenge, begins with Init.
//
// Every call ends: a wait for bytes takes 8 s at most, and everything from Init to the request, and from the request to
// the end of its answer, HTTP_EXCHANGE_TIMEOUT seconds (600 by default), or what LimitExchange says. One thread at a
// time uses an object. Pointers
// that it gives are its own, valid until the next request. Results are 0 for success, 1 for a failure and 2 for an
// argument that is not allowed, unless stated.
class CCommonHttpStream {
public:
    static constexpr int kRequestBytes = 10240;    // of a request, a header and a body under composition, terminator in
    static constexpr int kResponseBytes = 614400;  // of a body, unless a picture needs more

    CCommonHttpStream();
    // Closes the connection and wipes the credentials.
    ~CCommonHttpStream();
    CCommonHttpStream(const CCommonHttpStream&) = delete;
    CCommonHttpStream& operator=(const CCommonHttpStream&) = delete;

    // Connects; a connection that is open is closed first. PassWord is in its enciphered form (CSecurityMgr), of a
    // clear password of any length; Username has 59 characters at most. Both are taken even when the connection fails.
    // The connection's result; 2 for null, 1 for a name that is too long or a password that is not enciphered.
    int Init(const char* szHost, std::uint16_t uPort, const char* Username, const char* PassWord);
    // The seconds that Init to the request, and the request to the end of its answer, may take from now on; 0 for
    // those of HTTP_EXCHANGE_TIMEOUT.
    void LimitExchange(int seconds) { m_exchangeSeconds = seconds; }
    // Forgets the exchange and closes the connection.
    void Close();
    void ClearLastReq();

    // Begin a request and give its text, or null with a log line when a text is too long or holds a control character,
    // which could end its line early. RequestType carries a blank at its end ("GET "). pPort, pCookie and pReferer may
    // be null. nFrom above 0 asks for a range of bytes, up to nTo when that is greater. Length takes the length of the
    // text. The last argument has no effect.
    const char* FormatRequestHeader(const char* pServer, const char* pPort, const char* pObject, long& Length,
                                    const char* RequestType, const char* pCookie, const char* pReferer, long nFrom,
                                    long nTo, int nReserved);
    const char* FormatARequestHeader(const char* pServer, const char* pObject, long& Length, const char* RequestType,
                                     const char* pCookie, const char* pReferer, long nFrom, long nTo, int nReserved);
    // Add one header line to the request; results as above. The line feeds in what GenBasicAuthorization gave are left
    // out: they are no part of the value (RFC 7617, section 2).
    const char* FormatRequestHeaderEx(const char* pType, const char* pValue, long& Length);
    // Adds "type=value" to the body, with nothing between pairs, and then the whole body to the request.
    const char* FormatRequestBody(const char* pType, const char* pValue, long& Length);

    // Sends pRequestHeader, or for null what was composed; a Length of 0 stands for that of the text. The last argument
    // has no effect.
    bool SendRequest(const char* pRequestHeader, long Length, bool bReserved);

    // Reads the answer's header, up to its blank line, and nothing of what follows; null when that failed. A header of
    // kRequestBytes without a blank line ends there.
    const char* GetResponseHeader(int& nLength);
    // Reads until the peer closes or kResponseBytes are there; null when nothing came. Once the header was read alone
    // it gives what is held, which is nothing.
    const char* GetResponse(int& nLength, bool bNeedPrintResponse);
    // Whether the header's bytes up to nIndex, that one included, end with a blank line.
    void IsResponseEnd(int nIndex, bool& bEndResponse) const;

    // Whether szSession stands in szDst at the begin of a line's value: -2 when it does not, 1 when it does, and 0 with
    // an empty szValue when nothing stands behind it. It copies no value; use ParseSession for that.
    int GetField(const char* szDst, const char* szSession, char* szValue, int nMaxLength) const;
    // The value of the header line param, from the colon to the line's end, leading blanks kept: looked for from offset
    // on, whatever the case of letters. buflen is outbuf's size on the way in and the value's length on the way out;
    // no terminator is added. 0; 2 when there is no such line; 1 when its value is empty or does not fit.
    static int ParseSession(const char* pMsg, const char* param, char* outbuf, int& buflen, int offset);
    // The same from the start with the case of letters as given; offset takes the place of the line's end.
    static int parseSession(const char* pMsg, const char* param, char* outbuf, int& buflen, int& offset);

    // Reads the answer to a request for a picture and appends it to the file, which the caller has chosen with care: it
    // is opened as named. A picture that ends early counts, too. 0; ZVS_GVX_UNAUTHORIZED when the device asks for
    // credentials, its challenge then is in httpAuth; ZVS_ALLOC_MEMORY_ERROR or ZVS_OPERATE_MEMORY_ERROR; 1 for a
    // broken answer, a length outside 1 to SNASHOT_PIC_MAX_SIZE, or a file that cannot be written; 2 for a null name.
    int DealHttpSnapShot(const char* snapFileName, Common_HTTP_AUTH& httpAuth);
    // The header that the last answer had, for telling why an exchange failed; empty when none came.
    const char* LastHeader() const { return m_ResponseHeader; }
    int DealHttpContent(bool bReserved, ACE_Message_Queue_Base* pQueue);  // does nothing; 0
    int save2file(const char* snapFileName, const char* buf, int buflen) const;

    // Whether the header refuses for want of credentials (401); httpAuth takes its challenges.
    static bool IsUnauthorizedRsp(const char* pResponseHeader, Common_HTTP_AUTH& httpAuth);
    // The value for an Authorization line. Null with a log line when it cannot be made, also when AUTH_ALLOW_BASIC
    // keeps the password from leaving in clear. It has a line feed after each 72 characters and at its end.
    const char* GenBasicAuthorization();
    // The same for a digest challenge, for a GET of pUri. MD5 is taken when the device offers both.
    const char* GenDigestAuthorization(Common_HTTP_AUTH& httpAuth, const char* pUri);

    // Diagnostics: log the rest of the answer, then close; nothing; the size of the body that is held.
    void DumpHttpContent();
    void DumpRequest() const;
    void DumpResponse() const;
    const char* GetContent() const { return m_pContent.get(); }
    const char* GetRequest() const { return m_RequestHeader; }

    // Decimal digits of a number: 0 for a negative one, 8 for 10000000 and above.
    static int GetBitCount(int nNumber);
    // Where needle stands in a buffer that may hold NUL bytes, or null. After a mismatch it goes on with the next
    // character, so that it misses "aab" in "aaab".
    static const char* myStrStr(const char* pBuffer, int nLength, const char* pNeedle);

private:
    bool Append(const char* text);
    bool AppendEnd(const char* pCookieAndRange, long nFrom, long nTo);
    void ForgetRequest();
    void StartDeadline();
    bool ReadHeader(int& count);
    int ReadPicture(int snapLen, int& held);

    CCommonSocketStream m_oSocketStream;
    long m_RequestLength = 0;
    char m_RequestBody[kRequestBytes] = {};
    char m_RequestHeader[kRequestBytes] = {};
    std::uint16_t m_port = 80;
    char m_ipaddr[256] = {};
    bool m_bConnected = false;
    int m_exchangeSeconds = 0;
    int m_nCurIndex = 0;
    int m_nResponseSize = 0;
    int m_nResponseHeaderSize = -1;
    std::unique_ptr<char[]> m_pResponse;
    int m_nResponseLimit = 0;                       // bytes behind m_pResponse
    char m_ResponseHeader[kRequestBytes + 1] = {};  // one more for a terminator
    bool m_bResponsed = false;
    std::unique_ptr<char[]> m_pContent;
    gvx::HttpCredentials m_credentials;
};
