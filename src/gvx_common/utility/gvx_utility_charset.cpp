#include "gvx_common/utility/gvx_utility.h"

#include "base/log.h"

#include <cerrno>

#include <iconv.h>

namespace {

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

}  // namespace

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
    Converter converter(kUtf8, kUtf8);
    std::string same;
    return converter.IsOpen() && converter.Run(text, same);
}
