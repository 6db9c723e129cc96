// The URL of an upload, which the platform names, and the server's answer to it: the input up to its first line feed
// and what follows.

#include "gvx_common/https/https_stream_util.h"

#include <algorithm>
#include <cstdlib>

namespace {

void Require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    const std::size_t split = std::min(input.find('\n'), input.size());
    const std::string url = input.substr(0, split);
    const std::string answer = input.substr(std::min(split + 1, input.size()));
    std::string host;
    std::string path;
    std::string session;
    std::uint16_t port = 0;
    CHttpsStreamUtil::IsHttpsProtocol(url);
    if (CHttpsStreamUtil::ParseURL(url, host, port, path, session) == 0) {
        Require(port != 0 && !path.empty() && path[0] == '/' && path.find('?') == std::string::npos);
        Require(session.size() >= 13 && session.find('&') == std::string::npos);
        Require(host.find(':') == std::string::npos && host.find('/') == std::string::npos);
        Require(url.compare(8, host.size() + 1, host + ":") == 0 && url.find(session) != std::string::npos);
    }
    unsigned int code = 1000;
    bool keep = false;
    std::uint64_t length = 1;
    CHttpsStreamUtil::HandleResponse(answer.data(), answer.size(), code, keep);
    Require(code <= 999);
    if (!CHttpsStreamUtil::BodyLength(answer.data(), answer.size(), code, length)) {
        return 0;
    }
    Require(length < 1000000000000000000u);
    return 0;
}
