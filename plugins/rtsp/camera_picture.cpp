#include "rtsp/camera_picture.h"

#include "base/clock.h"
#include "base/log.h"
#include "base/unique_fd.h"
#include "gvx_common/codec/input_file.h"
#include "gvx_common/http/common_http_stream.h"
#include "gvx_common/utility/gvx_device_trace.h"
#include "rtsp/rtsp_dialogue.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <system_error>

#include <unistd.h>

namespace gvxrtsp {
namespace {

constexpr std::size_t kMostBytes = 64u * 1024 * 1024;
constexpr std::size_t kMostTold = 1024u * 1024 * 1024;
constexpr std::size_t kTailBytes = 1024;  // some cameras pad behind the end of a picture

// A file that only its owner may read, gone with the object.
class ScratchFile {
public:
    ScratchFile() {
        std::error_code ignored;
        m_path = (std::filesystem::temp_directory_path(ignored) / "gvx_snapshot_XXXXXX").string();
        m_file.Reset(mkostemp(m_path.data(), O_CLOEXEC));
    }
    ~ScratchFile() {
        if (m_file.Valid()) {
            unlink(m_path.c_str());
        }
    }
    ScratchFile(const ScratchFile&) = delete;
    ScratchFile& operator=(const ScratchFile&) = delete;

    bool Valid() const { return m_file.Valid(); }
    const std::string& Path() const { return m_path; }

private:
    std::string m_path;
    gvx::UniqueFd m_file;
};

// What is left until endMs is all that the next step may take. False when that is less than a second.
bool LimitStep(CCommonHttpStream& stream, std::int64_t endMs) {
    const std::int64_t seconds = (endMs - gvx::MonotonicMilliseconds()) / 1000;
    stream.LimitExchange(static_cast<int>(std::max<std::int64_t>(seconds, 1)));
    return seconds > 0;
}

void ReportMessage(const CameraProfile& profile, bool toDevice, const char* text, std::size_t leftOut) {
    GvxDialogueMessage message;
    message.pszProtocol = "HTTP";
    message.bToDevice = toDevice;
    message.peer = GvxMakeTraceEnd(profile.address, profile.httpPort);
    message.pszText = text;
    message.nLength = std::strlen(text);
    message.nLeftOut = leftOut;
    if (message.nLength != 0) {
        GvxReportDialogue(profile.device, message);
    }
}

// What the heads say; the body is not looked at. 0 as well for what is no believable length.
std::size_t BodyBytes(const char* heads) {
    char digits[16] = {};
    int size = sizeof(digits) - 1;
    const bool given = CCommonHttpStream::ParseSession(heads, "Content-Length", digits, size, 0) == 0;
    const char* const begin = digits + std::strspn(digits, " \t");
    std::size_t length = 0;
    const char* const end = std::from_chars(begin, digits + std::strlen(digits), length).ptr;
    const bool whole = given && end[std::strspn(end, " \t")] == '\0';
    return whole && length <= kMostTold ? length : 0;
}

// One request and its answer: every text of the exchange passes here. authorization is null for none.
int Exchange(CCommonHttpStream& stream, const CameraProfile& profile, const std::string& path,
             const char* authorization, const std::string& file, std::int64_t endMs, Common_HTTP_AUTH& challenge) {
    long length = 0;
    const std::string port = std::to_string(profile.httpPort);
    if (!LimitStep(stream, endMs)) {
        return ZVS_FAIL;
    }
    if (stream.Init(profile.address.c_str(), profile.httpPort, profile.user.c_str(), profile.password.c_str()) != 0) {
        return ZVS_GVX_OPEN_SOCKET_ERROR;
    }
    const bool sent =
        stream.FormatRequestHeader(profile.address.c_str(), port.c_str(), path.c_str(), length, "GET ", nullptr,
                                   nullptr, 0, 0, 0) != nullptr &&
        (authorization == nullptr || stream.FormatRequestHeaderEx("Authorization", authorization, length) != nullptr) &&
        LimitStep(stream, endMs) && stream.SendRequest(nullptr, length, false);
    ReportMessage(profile, true, stream.GetRequest(), 0);
    if (!sent) {
        return ZVS_FAIL;
    }
    const int result = stream.DealHttpSnapShot(file.c_str(), challenge);
    ReportMessage(profile, false, stream.LastHeader(), BodyBytes(stream.LastHeader()));
    return result;
}

bool IsWholeJpeg(const std::string& bytes) {
    const std::size_t end = bytes.rfind("\xFF\xD9");
    return bytes.compare(0, 2, "\xFF\xD8") == 0 && end != std::string::npos && bytes.size() - end <= kTailBytes;
}

}  // namespace

int FetchCameraPicture(const CameraProfile& profile, const std::string& path, std::int64_t endMs, std::string& bytes,
                       std::string& error) {
    const std::string where = "http://" + profile.address + ":" + std::to_string(profile.httpPort);
    const ScratchFile file;
    if (!file.Valid()) {
        error = "No file for a picture can be made: " + std::generic_category().message(errno) + ".";
        return ZVS_GVX_GET_SNAP_SHOT_ERROR;
    }
    const auto stream = std::make_unique<CCommonHttpStream>();
    Common_HTTP_AUTH challenge{};
    int result = Exchange(*stream, profile, path, nullptr, file.Path(), endMs, challenge);
    if (result == ZVS_GVX_UNAUTHORIZED && !profile.user.empty()) {
        const char* const made = challenge.authType == HTTP_AUTH_BASIC
                                     ? stream->GenBasicAuthorization()
                                     : stream->GenDigestAuthorization(challenge, path.c_str());
        if (made == nullptr) {
            error = where +
                    " asks for credentials in a form that is not given, such as Basic where AUTH_ALLOW_BASIC "
                    "forbids it.";
            return ZVS_GVX_GET_SNAP_SHOT_ERROR;
        }
        const std::string authorization = made;
        Common_HTTP_AUTH again{};
        result = Exchange(*stream, profile, path, authorization.c_str(), file.Path(), endMs, again);
    }
    if (result == ZVS_GVX_UNAUTHORIZED) {
        error = where + " refuses user or password.";
        return ZVS_GVX_UNAUTHORIZED;
    }
    if (result == ZVS_GVX_OPEN_SOCKET_ERROR) {
        error = "There is no connection to " + where + ".";
        return result;
    }
    const std::string status = StatusLine(stream->LastHeader());
    const bool taken = result == ZVS_SUCCEED && gvx::ReadWholeFile(file.Path(), kMostBytes, bytes, error);
    if (!taken && !LimitStep(*stream, endMs)) {
        error = where + " gave no picture in time.";
        return ZVS_GVX_GET_SNAP_SHOT_ERROR;
    }
    if (!taken || !IsWholeJpeg(bytes)) {
        error = where + (status.empty() ? " gave no answer." : " gave no whole JPEG: \"" + status + "\".");
        return ZVS_GVX_GET_SNAP_SHOT_ERROR;
    }
    return ZVS_SUCCEED;
}

}  // namespace gvxrtsp
