// The header of a device's answer: its lines, its challenges, and what our next request makes of them. Whatever the
// device sends, fields stay terminated, a value is part of its line, and a request gains one line at most.

#include "fuzz_folder.h"

#include "gvx_common/config/gvx_config_mgr.h"
#include "gvx_common/http/common_http_stream.h"
#include "gvx_common/security/gvx_security_mgr.h"

#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

void Require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

template <std::size_t N>
bool Terminated(const char (&field)[N]) {
    return std::memchr(field, '\0', N) != nullptr;
}

std::size_t Lines(const char* text) {
    std::size_t count = 0;
    for (; *text != '\0'; ++text) {
        count += *text == '\n' || *text == '\r' ? 1 : 0;
    }
    return count;
}

void CheckLine(const std::string& text, const char* name, int offset) {
    char value[64];
    int length = sizeof(value);
    if (CCommonHttpStream::ParseSession(text.c_str(), name, value, length, offset) == 0) {
        const std::string found(value, static_cast<std::size_t>(length));
        Require(length > 0 && found.find("\r\n") == std::string::npos);
        Require(text.find(":" + found + "\r\n", static_cast<std::size_t>(offset)) != std::string::npos);
    }
    length = sizeof(value);
    int end = -1;
    if (CCommonHttpStream::parseSession(text.c_str(), name, value, length, end) == 0) {
        Require(text.compare(static_cast<std::size_t>(end), 2, "\r\n") == 0 && end >= length);
    }
}

struct Device {
    FuzzFolder folder;
    std::unique_ptr<CCommonHttpStream> stream;

    Device() {
        GvxConfigMgr()->Init();
        char password[256];
        Require(GvxSecurityMgr()->EncryptString("secret", password, sizeof(password)) == 0);
        stream = std::make_unique<CCommonHttpStream>();
        stream->Init("", 0, "admin", password);
    }
    ~Device() {
        stream.reset();
        GvxSecurityMgr()->UnInit();
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Device device;
    const std::string text = std::string(reinterpret_cast<const char*>(data), size).c_str();
    CheckLine(text, "Content-Length", 0);
    CheckLine(text, "www-authenticate", size > 0 ? data[0] % 64 : 0);
    Common_HTTP_AUTH auth{};
    if (!CCommonHttpStream::IsUnauthorizedRsp(text.c_str(), auth)) {
        return 0;
    }
    Require(Terminated(auth.szRealm) && Terminated(auth.szNonce) && Terminated(auth.szMsgQOP));
    Require(auth.uiAlgorithm <= HTTP_AUTH_ALGORTM_MASK_MIXED);
    const char* value = auth.authType == HTTP_AUTH_DIGEST ? device.stream->GenDigestAuthorization(auth, "/snap.jpg")
                                                          : device.stream->GenBasicAuthorization();
    long length = 0;
    const char* request =
        device.stream->FormatARequestHeader("cam", "/snap.jpg", length, "GET ", nullptr, nullptr, 0, 0, 0);
    const std::size_t before = Lines(request);
    request = value != nullptr ? device.stream->FormatRequestHeaderEx("Authorization", value, length) : nullptr;
    Require(request == nullptr || Lines(request) == before + 2);
    return 0;
}
