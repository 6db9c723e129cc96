// RTSP URLs, domain names, addresses, times and character sets.

#include "gvx_common/utility/gvx_utility.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::string host;
    std::string authUrl;
    std::string out;
    unsigned short port = 0;
    long seconds = 0;
    unsigned int number = 0;
    if (CGvxUtility::ParseRtspUrl(text, host, port, authUrl) == 0 && (port == 0 || host.size() > 127)) {
        std::abort();
    }
    if (CGvxUtility::IsValidDomainName(text) && (text.size() > 253 || text.find("..") != std::string::npos)) {
        std::abort();
    }
    if (CGvxUtility::IsNetMask(text.c_str()) && !CGvxUtility::IsIPv4(text.c_str())) {
        std::abort();
    }
    CGvxUtility::TransISOUTCFormatToString(text, out, "YYYYMMDDhhmmss");
    CGvxUtility::TransLocalFormatToGMTUTC(text, seconds, "");
    CGvxUtility::ParseGLUTCTimeToLocalTime(text, out, "YYYYMMDDThhmmssZ");
    CGvxUtility::GetIntergerByHexString(text, number);
    if (CGvxUtility::GbkToUtf8(text, out) == 0 && !CGvxUtility::IsUtf8(out)) {
        std::abort();
    }
    CGvxUtility::GetDevCodeFromGetLogMsg(text);
    return 0;
}
