#include "gvx_common/utility/gvx_utility.h"

#include "base/bounded_string.h"
#include "base/clock.h"
#include "base/log.h"
#include "base/utf8.h"
#include "base/whole_file.h"
#include "base/zvs_error.h"

#include <tinyxml2.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <iterator>
#include <mutex>
#include <string_view>
#include <system_error>

#include <iconv.h>
#include <pthread.h>
#include <unistd.h>

namespace {

constexpr const char* kBlanks = " \t\r\n";

template <typename Change>
std::string Changed(std::string text, Change change) {
    std::transform(text.begin(), text.end(), text.begin(), change);
    return text;
}

constexpr unsigned int kMaxSeqID = 60000;
constexpr unsigned int kFirstSeqIDAfterWrap = 3;  // 0 to 2 do not come again
constexpr std::size_t kTransactionNoBytes = 64;
constexpr unsigned int kXModemPolynomial = 0x1021;
constexpr int kDefaultBitRate = 2048;

struct BitRateRow {
    std::string_view resolution;
    int kilobits;
};

constexpr BitRateRow kBitRates[] = {
    {"704*576", 1024},   {"704*480", 1024},   {"352*576", 512},   {"704*288", 512},    {"352*288", 256},
    {"176*144", 128},    {"160*128", 128},    {"320*240", 256},   {"640*480", 768},    {"480*480", 576},
    {"800*592", 1192},   {"1024*768", 1984},  {"1280*800", 2272}, {"1280*1024", 3076}, {"1600*1024", 3640},
    {"1600*1200", 3792}, {"1920*1200", 4548}, {"1280*720", 2048}, {"1280*960", 3072},  {"1920*1080", 4096},
    {"2408*1536", 7168},
};

constexpr const char* kUtf8 = "UTF-8";
constexpr const char* kChinese = "GB18030";

class Converter {
public:
    Converter(const char* from, const char* to) : m_handle(iconv_open(to, from)) {}
    ~Converter() {
        if (IsOpen()) {
            iconv_close(m_handle);
        }
    }
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;

    bool IsOpen() const { return m_handle != reinterpret_cast<iconv_t>(-1); }

    // False with errno for bytes that are not of the set, a character that is cut off at the end included.
    bool Run(std::string in, std::string& out) {
        char* source = in.data();
        std::size_t left = in.size();
        return Push(&source, &left, out) && Push(nullptr, nullptr, out);
    }

private:
    bool Push(char** source, std::size_t* left, std::string& out) {
        for (;;) {
            char piece[1024];
            char* target = piece;
            std::size_t room = sizeof(piece);
            const std::size_t result = iconv(m_handle, source, left, &target, &room);
            out.append(piece, sizeof(piece) - room);
            if (result != static_cast<std::size_t>(-1)) {
                return true;
            }
            if (errno != E2BIG) {
                return false;
            }
        }
    }

    iconv_t m_handle;
};

using tinyxml2::XMLElement;

// The first element of that name, depth first; the parser bounds the depth.
const XMLElement* FindAnywhere(const XMLElement* element, const char* name) {
    for (; element != nullptr; element = element->NextSiblingElement()) {
        const XMLElement* found =
            std::string(element->Name()) == name ? element : FindAnywhere(element->FirstChildElement(), name);
        if (found != nullptr) {
            return found;
        }
    }
    return nullptr;
}

std::string TextOf(const XMLElement& element) {
    const char* text = element.GetText();
    return text == nullptr ? std::string() : std::string(text);
}

constexpr std::size_t kMaxThreadNameLength = 15;

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
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    const char* const end = text + std::strlen(text);
    const char* const found = std::search(text, end, needle, needle + std::strlen(needle),
                                          [lower](char a, char b) { return lower(a) == lower(b); });
    return found != end || *needle == '\0' ? found : nullptr;
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

unsigned int CGvxUtility::CreatSeqID() {
    static std::mutex mutex;
    static unsigned int counter = 0;  // Guarded by mutex.
    const std::lock_guard<std::mutex> guard(mutex);
    if (counter > kMaxSeqID) {
        counter = kFirstSeqIDAfterWrap;
    }
    return counter++;
}

std::string CGvxUtility::GenerateTransactionNo(const std::string& prefix, unsigned int number) {
    static std::mutex mutex;
    const std::lock_guard<std::mutex> guard(mutex);
    const std::time_t now = gvx::WallSeconds();
    std::tm local{};
    if (localtime_r(&now, &local) == nullptr) {
        return std::string();
    }
    char text[kTransactionNoBytes] = {};
    const int length = snprintf_s(text, sizeof(text), sizeof(text) - 1, "%s%04d%02d%02d%02d%02d%02d%05u",
                                  prefix.c_str(), local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour,
                                  local.tm_min, local.tm_sec, number);
    return length < 0 ? std::string() : std::string(text);
}

unsigned short CGvxUtility::CalcCRCXModem(const char* data, unsigned int length) {
    if (data == nullptr) {
        return 1;
    }
    unsigned int crc = 0;
    for (unsigned int i = 0; i < length; ++i) {
        crc ^= static_cast<unsigned int>(static_cast<unsigned char>(data[i])) << 8;
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc & 0x8000u) != 0 ? (crc << 1) ^ kXModemPolynomial : crc << 1;
        }
        crc &= 0xFFFFu;
    }
    return static_cast<unsigned short>(crc);
}

unsigned long CGvxUtility::RotatingHash(const std::string& text, unsigned long modulus) {
    if (modulus == 0) {
        GVX_LOG_ERR_CODE("RotatingHash", ZVS_PARA_INVALID, "The modulus is 0.");
        return 0;
    }
    std::uint64_t state = text.size();
    for (const char c : text) {
        state = (state << 4) ^ (state >> 28) ^ static_cast<unsigned char>(c);
    }
    return static_cast<unsigned long>(state % modulus);
}

void CGvxUtility::GetDefaultBitRateByResolution(const std::string& resolution, int& bitRate) {
    const auto* row =
        std::find_if(std::begin(kBitRates), std::end(kBitRates),
                     [&resolution](const BitRateRow& candidate) { return candidate.resolution == resolution; });
    bitRate = row == std::end(kBitRates) ? kDefaultBitRate : row->kilobits;
}

int CGvxUtility::ConvertCharset(const char* from, const char* to, const std::string& in, std::string& out) {
    if (from == nullptr || to == nullptr) {
        return ZVS_PARA_INVALID;
    }
    Converter converter(from, to);
    std::string converted;
    if (!converter.IsOpen() || !converter.Run(in, converted)) {
        GVX_LOG_ERR("ConvertCharset", "Can not convert from[%s] to[%s], err[%d]", from, to, errno);
        return ZVS_FAIL;
    }
    out.swap(converted);
    return ZVS_SUCCEED;
}

int CGvxUtility::GbkToUtf8(const std::string& in, std::string& out) {
    return ConvertCharset(kChinese, kUtf8, in, out);
}

int CGvxUtility::Utf8ToGbk(const std::string& in, std::string& out) {
    return ConvertCharset(kUtf8, kChinese, in, out);
}

bool CGvxUtility::IsUtf8(const std::string& text) {
    return gvx::IsUtf8(text);
}

const XMLElement* CGvxUtility::FindXmlElement(const XMLElement* parent, const char* path) {
    if (path == nullptr || *path == '\0') {
        return nullptr;
    }
    for (const std::string& name : split(path, "/")) {
        parent = parent == nullptr ? nullptr : parent->FirstChildElement(name.c_str());
    }
    return parent;
}

int CGvxUtility::GetXmlElementText(const XMLElement* parent, const char* path, std::string& value) {
    const XMLElement* element = FindXmlElement(parent, path);
    if (element == nullptr) {
        return ZVS_FAIL;
    }
    value = TextOf(*element);
    return ZVS_SUCCEED;
}

int CGvxUtility::GetXmlElementInt(const XMLElement* parent, const char* path, int& value) {
    std::string text;
    if (GetXmlElementText(parent, path, text) != ZVS_SUCCEED) {
        return ZVS_FAIL;
    }
    value = toInt(text);
    return ZVS_SUCCEED;
}

int CGvxUtility::SetXmlElementText(XMLElement* parent, const char* name, const std::string& value) {
    if (parent == nullptr || name == nullptr) {
        return ZVS_FAIL;
    }
    XMLElement* element = parent->FirstChildElement(name);
    if (element == nullptr) {
        element = parent->GetDocument()->NewElement(name);
        parent->InsertEndChild(element);
    }
    element->SetText(value.c_str());
    return ZVS_SUCCEED;
}

std::string CGvxUtility::GetDevCodeFromGetLogMsg(const std::string& xml) {
    tinyxml2::XMLDocument document;
    if (document.Parse(xml.data(), xml.size()) != tinyxml2::XML_SUCCESS) {
        return std::string();
    }
    const XMLElement* element = FindAnywhere(document.RootElement(), "DevCode");
    return element == nullptr ? std::string() : TextOf(*element);
}

bool CGvxUtility::fileExist(const std::string& path) {
    return access(path.c_str(), F_OK) == 0;
}

int CGvxUtility::fileWrite(const std::string& path, const std::string& content) {
    FILE* file = std::fopen(path.c_str(), "we");
    if (file == nullptr) {
        GVX_LOG_ERR_CODE("fileWrite", ZVS_OPEN_FILE_ERROR, "fopen failed,Filename [%s], err[%d]", path.c_str(), errno);
        return ZVS_FAIL;
    }
    const bool written = std::fwrite(content.data(), 1, content.size(), file) == content.size();
    if (std::fclose(file) != 0 || !written) {
        GVX_LOG_ERR_CODE("fileWrite", ZVS_WRITE_FILE_ERROR, "write failed,Filename [%s], err[%d]", path.c_str(), errno);
        return ZVS_FAIL;
    }
    return ZVS_SUCCEED;
}

int CGvxUtility::fileRead(const std::string& path, std::string& content, std::size_t maxBytes) {
    if (!gvx::ReadWholeFile(path, maxBytes, content)) {
        GVX_LOG_ERR_CODE("fileRead", ZVS_OPEN_FILE_ERROR, "read failed,Filename [%s]", path.c_str());
        return ZVS_FAIL;
    }
    return ZVS_SUCCEED;
}

int CGvxUtility::fileRemove(const std::string& path) {
    if (unlink(path.c_str()) != 0) {
        GVX_LOG_ERR("fileRemove", "unlink failed,Filename [%s], err[%d]", path.c_str(), errno);
        return ZVS_FAIL;
    }
    return ZVS_SUCCEED;
}

int CGvxUtility::dirCreate(const std::string& path) {
    std::error_code error;
    std::filesystem::create_directories(path, error);
    if (error || !std::filesystem::is_directory(path, error)) {
        GVX_LOG_ERR("dirCreate", "mkdir failed,Dirname [%s], err[%d]", path.c_str(), error.value());
        return ZVS_FAIL;
    }
    return ZVS_SUCCEED;
}

int CGvxUtility::pthreadSetThreadname(const unsigned long* threads, int count, const std::string& name) {
    GVX_CHECK_NULL_RETURN(threads, EINVAL);
    int result = 0;
    for (int i = 0; i < count; ++i) {
        const int one = pthreadSetThreadname(threads[i], name.c_str());
        result = result == 0 ? one : result;
    }
    return result;
}

int CGvxUtility::pthreadSetThreadname(unsigned long thread, const char* name) {
    GVX_CHECK_NULL_RETURN(name, EINVAL);
    char cut[kMaxThreadNameLength + 1] = {};
    std::memcpy(cut, name, strnlen(name, kMaxThreadNameLength));
    const int result = pthread_setname_np(static_cast<pthread_t>(thread), cut);
    if (result != 0) {
        GVX_LOG_WARN("pthreadSetThreadname", "Can not name thread[%s], err[%d]", cut, result);
    }
    return result;
}
