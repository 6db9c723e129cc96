#include "gvx_common/utility/gvx_utility.h"

#include "base/log.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>

#include <strings.h>

namespace {

// The C library's character classes depend on the locale; what may pass here does not.
constexpr std::size_t kMaxDomainLength = 253;
constexpr std::size_t kMaxLabelLength = 63;
constexpr unsigned int kMaxAddressGroup = 255;
constexpr int kAddressDots = 3;
constexpr const char* kDomainSuffixes = "|com|net|org|edu|gov|cn|";

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}
bool IsLower(char c) {
    return c >= 'a' && c <= 'z';
}
bool IsUpper(char c) {
    return c >= 'A' && c <= 'Z';
}
bool IsLetterOrDigit(char c) {
    return IsLower(c) || IsUpper(c) || IsDigit(c);
}

// Reads one group and moves behind it; false when it is empty, above 255 or led by a zero it may not have.
bool ReadAddressGroup(const char*& at) {
    const char* begin = at;
    unsigned int value = 0;
    for (; IsDigit(*at); ++at) {
        value = std::min(value * 10 + static_cast<unsigned int>(*at - '0'), kMaxAddressGroup + 1);
    }
    return at != begin && value <= kMaxAddressGroup && (value == 0 || *begin != '0');
}

// Labels of letters, digits and inner hyphens; the last one's end is the end of the name.
bool HasLegalLabels(const std::string& name) {
    std::size_t labelLength = 0;
    for (std::size_t i = 0; i < name.size(); ++i) {
        if (name[i] == '.') {
            if (labelLength == 0) {
                return false;
            }
            labelLength = 0;
            continue;
        }
        const bool innerHyphen = name[i] == '-' && labelLength > 0 && i + 1 < name.size() && name[i + 1] != '.';
        if (!IsLetterOrDigit(name[i]) && !innerHyphen) {
            return false;
        }
        if (++labelLength > kMaxLabelLength) {
            return false;
        }
    }
    return true;
}

constexpr int kMaxLoggedWhitelist = 1024;
constexpr const char* kRtspScheme = "rtsp://";
constexpr std::size_t kMaxRtspHostLength = 127;
constexpr unsigned short kDefaultRtspPort = 554;
constexpr long kMaxPort = 65535;

using Range = std::pair<unsigned int, unsigned int>;

// Reads the number at `at` and moves behind its digits. A sign or leading blanks are read as part of the number and
// not skipped.
int ReadRtspPort(const char*& at, unsigned short& port) {
    char* end = nullptr;
    const long number = std::strtol(at, &end, 10);
    if (end == at) {
        GVX_LOG_ERR("ParseRtspUrl", "No port number follows.");
        return ZVS_FAIL;
    }
    if (number < 1 || number > kMaxPort) {
        const long shown = std::clamp(number, static_cast<long>(INT_MIN), static_cast<long>(INT_MAX));
        GVX_LOG_ERR("ParseRtspUrl", "Bad port number is [%d].", static_cast<int>(shown));
        return ZVS_FAIL;
    }
    port = static_cast<unsigned short>(number);
    at += std::strspn(at, "0123456789");
    return ZVS_SUCCEED;
}

// The text has passed IsIPv4, which allows groups such as "000" that inet_pton does not.
unsigned int ToHostOrder(const std::string& address) {
    unsigned int value = 0;
    for (const std::string& group : CGvxUtility::split(address, ".")) {
        value = (value << 8) | static_cast<unsigned int>(CGvxUtility::toInt(group));
    }
    return value;
}

Range WidenTrailingZeros(unsigned int address) {
    for (const unsigned int hostBits : {0x00FFFFFFu, 0x0000FFFFu, 0x000000FFu}) {
        if ((address & hostBits) == 0) {
            return Range(address, address | hostBits);
        }
    }
    return Range(address, address);
}

bool ReadRange(const std::string& entry, std::size_t comma, Range& range) {
    const std::string low = entry.substr(0, comma);
    const std::string high = entry.substr(comma + 1);
    if (!CGvxUtility::IsIPv4(low.c_str()) || !CGvxUtility::IsIPv4(high.c_str())) {
        return false;
    }
    range = Range(ToHostOrder(low), ToHostOrder(high));
    return true;
}

// A single address is looked at in the whole text, so that it passes only as the one entry there is.
bool ReadEntry(const std::string& entry, const std::string& wholeText, Range& range) {
    const std::size_t comma = entry.find(',');
    if (comma != std::string::npos) {
        return ReadRange(entry, comma, range);
    }
    if (entry == "0.0.0.0") {
        range = Range(0, 0);
        return true;
    }
    if (entry == "*.*.*.*") {
        range = Range(0, 0xFFFFFFFFu);
        return true;
    }
    if (!CGvxUtility::IsIPv4(wholeText.c_str())) {
        return false;
    }
    range = WidenTrailingZeros(ToHostOrder(entry));
    return true;
}

}  // namespace

bool CGvxUtility::isNum(const std::string& text) {
    return std::all_of(text.begin(), text.end(), IsDigit);
}

bool CGvxUtility::IsIPv4(const char* text) {
    if (text == nullptr) {
        return false;
    }
    for (int dots = 0; ReadAddressGroup(text); ++dots) {
        if (*text == '\0') {
            return dots == kAddressDots;
        }
        if (*text++ != '.') {
            return false;
        }
    }
    return false;
}

bool CGvxUtility::IsNetMask(const char* text) {
    std::uint32_t mask = 0;
    if (text == nullptr || convertIpv4ToNum(text, mask) != ZVS_SUCCEED) {
        return false;
    }
    const std::uint32_t hostBits = ~mask;
    return (hostBits & (hostBits + 1)) == 0;
}

bool CGvxUtility::IsPort(int port) {
    return port >= 1 && port <= 65535;
}

bool CGvxUtility::IsValidDomainName(const std::string& name) {
    if (name.empty() || name.front() == '.' || name.back() == '.' || name.size() > kMaxDomainLength) {
        return false;
    }
    if (!HasLegalLabels(name)) {
        return false;
    }
    const std::size_t dot = name.rfind('.');
    const std::string suffix = dot == std::string::npos ? name : name.substr(dot + 1);
    return std::strstr(kDomainSuffixes, ("|" + suffix + "|").c_str()) != nullptr;
}

bool CGvxUtility::Check35114Level(const std::string& text, unsigned int length) {
    GVX_LOG_INFO("Check35114Level", "start.");
    return text.size() == length && (text == "A" || text == "B" || text == "C");
}

bool CGvxUtility::CheckKeyLabel(const std::string& text, unsigned int min, unsigned int max) {
    GVX_LOG_INFO("CheckKeyLabel", "start.");
    return text.size() >= min && text.size() <= max && std::all_of(text.begin(), text.end(), IsLetterOrDigit);
}

bool CGvxUtility::CheckServerID(const std::string& text, unsigned int length) {
    GVX_LOG_INFO("CheckServerID", "start.");
    return text.size() == length && isNum(text);
}

bool CGvxUtility::checkPassword(const std::string& text, unsigned int length) {
    if (text.size() != length) {
        return false;
    }
    const int classes = (std::any_of(text.begin(), text.end(), IsLower) ? 1 : 0) +
                        (std::any_of(text.begin(), text.end(), IsUpper) ? 1 : 0) +
                        (std::any_of(text.begin(), text.end(), IsDigit) ? 1 : 0) +
                        (std::all_of(text.begin(), text.end(), IsLetterOrDigit) ? 0 : 1);
    return classes >= 2;
}

int CGvxUtility::checkCmdPath(const char* text) {
    if (text == nullptr) {
        GVX_LOG_ERR("checkCmdPath", "the command is invalid.");
        return ZVS_PARA_INVALID;
    }
    const char* end = text + std::strlen(text);
    const bool legal =
        std::all_of(text, end, [](char c) { return IsLetterOrDigit(c) || std::memchr("./_: -", c, 6) != nullptr; });
    if (!legal) {
        GVX_LOG_ERR("checkCmdPath", "Invalid input param, command contain invaild char.");
        return ZVS_PARA_INVALID;
    }
    return ZVS_SUCCEED;
}

bool CGvxUtility::HoldsControlCharacter(const char* text) {
    for (; text != nullptr && *text != '\0'; ++text) {
        const unsigned char c = static_cast<unsigned char>(*text);
        if (c < ' ' || c == 0x7f) {
            return true;
        }
    }
    return false;
}

bool CGvxUtility::FilePathJuge(const char* text) {
    return text == nullptr || std::strpbrk(text, " |;?`") != nullptr;
}

std::string CGvxUtility::convertNum2Ipv4(std::uint32_t address) {
    return toStr(address >> 24) + "." + toStr((address >> 16) & 0xFFu) + "." + toStr((address >> 8) & 0xFFu) + "." +
           toStr(address & 0xFFu);
}

int CGvxUtility::convertIpv4ToNum(const std::string& text, std::uint32_t& address) {
    if (!IsIPv4(text.c_str())) {
        return ZVS_FAIL;
    }
    address = ToHostOrder(text);
    return ZVS_SUCCEED;
}

int CGvxUtility::ParseRtspUrl(const std::string& url, std::string& host, unsigned short& port, std::string& authUrl) {
    if (strncasecmp(url.c_str(), kRtspScheme, std::strlen(kRtspScheme)) != 0) {
        GVX_LOG_ERR("ParseRtspUrl", "Url format error");
        return ZVS_FAIL;
    }
    const char* at = url.c_str() + std::strlen(kRtspScheme);
    if (const char* credentialsEnd = std::strrchr(at, '@')) {
        at = credentialsEnd + 1;
    }
    const std::size_t hostLength = std::strcspn(at, ":/");
    if (hostLength > kMaxRtspHostLength) {
        GVX_LOG_ERR("ParseRtspUrl", "Url is too long.");
        return ZVS_FAIL;
    }
    host.assign(at, hostLength);
    at += hostLength;
    port = kDefaultRtspPort;
    authUrl = kRtspScheme + host;
    if (*at == ':') {
        ++at;
        if (ReadRtspPort(at, port) != ZVS_SUCCEED) {
            return ZVS_FAIL;
        }
        authUrl += ":" + toStr(port);
    }
    authUrl += at;
    GVX_LOG_INFO("ParseRtspUrl", "Auth url is [%s].", authUrl.c_str());
    return ZVS_SUCCEED;
}

int CGvxUtility::AnalysisWhitelist(const std::string& text, std::list<std::pair<unsigned int, unsigned int>>& ranges) {
    if (text.find('\0') != std::string::npos) {
        GVX_LOG_ERR("AnalysisWhitelist", "A zero byte stands in the list of %zu bytes.", text.size());
        return ZVS_PARA_INVALID;
    }
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find(';', begin), text.size());
        Range range;
        if (!ReadEntry(text.substr(begin, end - begin), text, range)) {
            GVX_LOG_ERR("AnalysisWhitelist", "input param[%.*s].", kMaxLoggedWhitelist, text.c_str());
            return ZVS_PARA_INVALID;
        }
        ranges.push_back(range);
        begin = end + 1;
    }
    return ZVS_SUCCEED;
}
