#include "gvx_common/utility/gvx_utility.h"

#include "base/log.h"

#include <algorithm>
#include <cstring>

// The C library's character classes depend on the locale; what may pass here does not.
namespace {

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

bool CGvxUtility::FilePathJuge(const char* text) {
    return text == nullptr || std::strpbrk(text, " |;?`") != nullptr;
}
