#include "gvx_common/utility/gvx_utility.h"

#include "base/zvs_error.h"

#include <algorithm>
#include <climits>
#include <cstdlib>

namespace {

constexpr const char* kBlanks = " \t\r\n";

template <typename Change>
std::string Changed(std::string text, Change change) {
    std::transform(text.begin(), text.end(), text.begin(), change);
    return text;
}

}  // namespace

CGvxUtility* CGvxUtility::Instance() {
    static CGvxUtility instance;
    return &instance;
}

CGvxUtility* GvxUtility() {
    return CGvxUtility::Instance();
}

std::string CGvxUtility::trim(const std::string& text) {
    const std::size_t begin = text.find_first_not_of(kBlanks);
    if (begin == std::string::npos) {
        return std::string();
    }
    return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

std::vector<std::string> CGvxUtility::split(const std::string& text, const std::string& separator) {
    std::vector<std::string> pieces;
    if (text.empty()) {
        return pieces;
    }
    std::size_t begin = 0;
    if (!separator.empty()) {
        for (std::size_t end = text.find(separator); end != std::string::npos; end = text.find(separator, begin)) {
            pieces.push_back(text.substr(begin, end - begin));
            begin = end + separator.size();
        }
    }
    pieces.push_back(text.substr(begin));
    return pieces;
}

std::string CGvxUtility::toUpper(const std::string& text) {
    return Changed(text, [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; });
}

std::string CGvxUtility::toLower(const std::string& text) {
    return Changed(text, [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
}

int CGvxUtility::toInt(const std::string& text) {
    const long number = std::strtol(text.c_str(), nullptr, 10);
    return static_cast<int>(std::clamp(number, static_cast<long>(INT_MIN), static_cast<long>(INT_MAX)));
}

std::string CGvxUtility::hexToStr(unsigned int value) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    do {
        text.insert(text.begin(), kDigits[value & 0xFu]);
        value >>= 4;
    } while (value != 0);
    return text;
}

int CGvxUtility::GetIntergerByHexString(const std::string& text, unsigned int& value) {
    const bool prefixed = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    const std::string digits = prefixed ? text.substr(2) : text;
    if (digits.empty() || digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
        return ZVS_FAIL;
    }
    const std::size_t first = std::min(digits.find_first_not_of('0'), digits.size());
    if (digits.size() - first > 8) {
        return ZVS_FAIL;
    }
    value = static_cast<unsigned int>(std::strtoul(digits.c_str(), nullptr, 16));
    return ZVS_SUCCEED;
}

const char* CGvxUtility::strcasestr(const char* text, const char* needle) {
    if (text == nullptr || needle == nullptr) {
        return nullptr;
    }
    const std::size_t position = toLower(text).find(toLower(needle));
    return position == std::string::npos ? nullptr : text + position;
}

std::string CGvxUtility::replaceAll(const std::string& text, const std::string& from, const std::string& to) {
    std::string result;
    std::size_t begin = 0;
    while (!from.empty()) {
        const std::size_t found = text.find(from, begin);
        if (found == std::string::npos) {
            break;
        }
        result.append(text, begin, found - begin).append(to);
        begin = found + from.size();
    }
    return result.append(text, begin, std::string::npos);
}
