// Session descriptions of RTSP: the parser, its getters, and the sessions that are made of them.

#include "gvx_common/rtsp/common_sdp.h"
#include "gvx_common/rtsp/common_session.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

void Require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

// A value ends within its line, in a buffer of just its size.
void RequireLine(const char* value, std::size_t size) {
    Require(std::memchr(value, '\0', size) != nullptr && std::strpbrk(value, "\r\n") == nullptr);
}

void AskMedia(CCommonSdp& sdp, const std::string& name, bool parsed) {
    char line[1024] = {};
    char narrow[16] = {};
    const int found = sdp.GetMediaElement(name.c_str(), 'm', sizeof(line), line);
    Require(!parsed || found == 1);
    RequireLine(line, sizeof(line));
    for (char key = 'a'; key <= 'z'; ++key) {
        Require(sdp.GetMediaElement(name.c_str(), key, sizeof(narrow), narrow) ==
                sdp.GetMediaElement(name.c_str(), key, 0, nullptr));
        RequireLine(narrow, sizeof(narrow));
    }
    for (const char* key : {"control", "rtpmap", "fmtp", "range", ""}) {
        if (sdp.GetMediaElementA(name.c_str(), key, line, sizeof(line)) == 0) {
            RequireLine(line, sizeof(line));
        }
        sdp.GetMediaElementA(name.c_str(), key, narrow, sizeof(narrow));
    }
    CCommonSession session;
    sdp.GetMediaElement(name.c_str(), 'm', sizeof(line), line);
    const int typed = session.SetMediaType(line);
    Require((typed == 0) == (session.m_szSessionType[0] != '\0'));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    CCommonSdp sdp;
    Require(sdp.Init() == 0);
    // The length is what a peer claims, right or wrong.
    const int claimed = size == 0 ? 0 : static_cast<int>(size) * (data[0] % 3);
    Require((sdp.InitSdpPack(text.c_str(), claimed) == 0) == (std::strlen(text.c_str()) < 4096));
    const bool parsed = sdp.ParseSdp() == 0;
    char value[64] = {};
    for (char key = 'a'; key <= 'z'; ++key) {
        sdp.GetSessionElement(key, sizeof(value), value);
        RequireLine(value, sizeof(value));
    }
    for (const char* key : {"control", "range", "tool", ""}) {
        sdp.GetSessionElementA(key, value, sizeof(value));
        RequireLine(value, sizeof(value));
    }
    const std::list<std::string> names = *sdp.GetMediaNameList();
    for (const std::string& name : names) {
        Require(!name.empty() && name.size() < 128);
        AskMedia(sdp, name, parsed);
    }
    Require((sdp.ParseSdp() == 0) == parsed && *sdp.GetMediaNameList() == names);
    return 0;
}
