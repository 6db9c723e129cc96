#pragma once

// One media of a described stream, as a plug-in sets it up.
class CCommonSession {
public:
    CCommonSession() = default;
    virtual ~CCommonSession() = default;
    virtual void Clear();

    // szLine is the value of an "m=" line: "<media> <port> <protocol> <format> ...". Sets m_szSessionType from it. 0;
    // 1 with a log line when the line does not end with a format below 128, or has no protocol of these two.
    int SetMediaType(const char* szLine);

    char m_szSessionName[64] = {};   // media name, as CCommonSdp lists it
    char m_szCtrlPath[512] = {};     // value of the attribute "control": a URL, or a path below the content base
    char m_szSessionType[64] = {};   // "RTP/AVP" or "RAW/RAW/UDP"; empty when it is neither
    char m_szContentBase[128] = {};  // for the caller's use
};
