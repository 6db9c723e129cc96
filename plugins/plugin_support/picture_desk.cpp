#include "plugin_support/picture_desk.h"

#include "base/clock.h"
#include "base/fixed_text.h"
#include "base/log.h"
#include "base/shortage.h"
#include "base/unique_fd.h"
#include "gvx_common/adapter/gvx_device_state.h"
#include "gvx_common/adapter/gvx_reason.h"
#include "gvx_common/https/https_stream_util.h"
#include "gvx_common/utility/gvx_utility.h"
#include "plugin_support/guarded.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <system_error>

#include <pthread.h>
#include <unistd.h>

namespace gvxplugin {
namespace {

constexpr std::size_t kMostPictures = 64;
constexpr std::size_t kMostBytes = 64u * 1024 * 1024;
constexpr std::size_t kMostCaptures = 16;
constexpr std::size_t kMostWaitingCaptures = 512;
constexpr std::size_t kUploads = 4;
constexpr std::ptrdiff_t kUploadsOfAServer = 2;
constexpr std::ptrdiff_t kPicturesOfAServer = kMostPictures / 2;

// Scheme, host and port.
std::string ServerOf(const std::string& url) {
    const std::size_t host = url.find("://");
    return url.substr(0, url.find('/', host == std::string::npos ? 0 : host + 3));
}

bool WriteAll(int fd, const std::string& bytes) {
    for (std::size_t done = 0; done < bytes.size();) {
        const ssize_t count = write(fd, bytes.data() + done, bytes.size() - done);
        if (count < 0 && errno != EINTR) {
            return false;
        }
        done += static_cast<std::size_t>(std::max<ssize_t>(count, 0));
    }
    return true;
}

}  // namespace

PictureDesk::~PictureDesk() {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = true;
    }
    m_changed.notify_all();
    for (std::thread& thread : m_threads) {
        thread.join();
    }
}

PictureDesk::Turn::Turn(PictureDesk& desk, std::int64_t endMs) : m_desk(desk), m_hasCome(desk.BeginCapture(endMs)) {}

PictureDesk::Turn::~Turn() {
    if (m_hasCome) {
        {
            const std::lock_guard<std::mutex> lock(m_desk.m_mutex);
            --m_desk.m_captures;
        }
        m_desk.m_turns.notify_one();
    }
}

// A picture that waits for an address gives way only to one for which nothing else can be had.
bool PictureDesk::BeginCapture(std::int64_t endMs) {
    std::unique_lock<std::mutex> lock(m_mutex);
    const auto hasTurn = [this] { return m_captures < kMostCaptures; };
    const auto hasPlace = [&] {
        return hasTurn() && m_captures + m_kept.size() + m_leaving.size() + m_sending.size() < kMostPictures;
    };
    if (!hasPlace()) {
        if (m_waitingCaptures >= kMostWaitingCaptures) {
            return false;
        }
        ++m_waitingCaptures;
        m_turns.wait_for(lock, std::chrono::milliseconds(endMs - gvx::MonotonicMilliseconds()), hasPlace);
        --m_waitingCaptures;
    }
    if (!hasTurn()) {
        return false;
    }
    ++m_captures;
    return true;
}

void PictureDesk::Report(ADAPTER_REPORT_TYPE type, const std::string& device, const std::string& lens,
                         const std::string& serviceID) {
    ADAPTER_COMMON_MESSAGE message{};
    message.ExceptionType = type;
    ADAPTER_COMMON_MESSAGE_CALLBACK* const callback = m_callback;
    if (callback != nullptr && gvx::PutText(message.chDevId, device) && gvx::PutText(message.chSubDevId, lens) &&
        gvx::PutText(message.chServiceID, serviceID)) {
        callback(message);
    }
}

void PictureDesk::Tell(ADAPTER_REPORT_TYPE type, const Picture& picture) noexcept {
    Tell(type, picture.device, picture.lens, picture.contentID, picture.sessionID, picture.type);
}

void PictureDesk::Tell(ADAPTER_REPORT_TYPE type, std::string_view device, std::string_view lens,
                       std::string_view contentID, std::uint64_t sessionID, SnapType snapType) noexcept {
    ADAPTER_COMMON_MESSAGE message{};
    message.ExceptionType = type;
    message.ExceptionTime = gvx::WallSeconds();
    message.ulIdentifyID = sessionID;
    message.enSnapType = snapType;
    message.useHttps = true;
    ADAPTER_COMMON_MESSAGE_CALLBACK* const callback = m_callback;
    if (callback != nullptr && gvx::PutText(message.chDevId, device) && gvx::PutText(message.chSubDevId, lens) &&
        gvx::PutText(message.stContentId, contentID)) {
        Guarded(m_title, "Tell", [&]() -> int {
            callback(message);
            return ZVS_SUCCEED;
        });
    }
}

bool PictureDesk::HasRoomLocked(std::size_t bytes) const {
    for (const std::list<Picture>* list : {&m_kept, &m_leaving, &m_sending}) {
        for (const Picture& picture : *list) {
            bytes += picture.bytes->size();
        }
    }
    return m_kept.size() + m_leaving.size() + m_sending.size() < kMostPictures && bytes <= kMostBytes;
}

int PictureDesk::Keep(const std::string& device, const std::string& lens, const PU_SNAP_CONF_REQ& request,
                      const PictureBytes& bytes) {
    if (!request.bIsUpload) {
        GVX_LOG_INFO(m_title, "A picture of %zu bytes was taken, and is not asked for. [lens:%s]", bytes->size(),
                     lens.c_str());
        return ZVS_SUCCEED;
    }
    std::string now;
    CGvxUtility::GetCurrentUtcTime(now, "YYYYMMDDhhmmss");
    const std::string contentID = lens + "-" + now + "-" + std::to_string(++m_number) + ".jpg";
    const Picture picture{device, lens, contentID, request.sessionId, request.enSnapType, bytes, "", ""};
    std::list<Picture> kept(1, picture);  // ahead of the others' loss, which would not be told if there were no memory
    std::list<Picture> dropped;
    std::size_t beingSent = 0;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        while (!HasRoomLocked(bytes->size()) && !m_kept.empty()) {
            dropped.splice(dropped.end(), m_kept, m_kept.begin());
        }
        if (HasRoomLocked(bytes->size())) {
            m_kept.splice(m_kept.end(), kept);
        } else {
            beingSent = m_leaving.size() + m_sending.size();
        }
    }
    for (const Picture& one : dropped) {
        GVX_LOG_WARN(m_title, "Picture %s is dropped: no address came for it.", one.contentID.c_str());
        Tell(ADAPTER_REPORT_PICTURE_LOST, one);
    }
    if (!kept.empty()) {
        return GvxFail(ZVS_GVX_GET_SNAP_SHOT_ERROR, "A picture of %zu bytes is dropped: %zu others are being sent.",
                       bytes->size(), beingSent);
    }
    Tell(ADAPTER_REPORT_PICTURE_TAKEN, picture);
    return ZVS_SUCCEED;
}

void PictureDesk::NoteLost(const std::string& device, const char* lens, const PU_SNAP_CONF_REQ& request,
                           std::uint32_t count, const std::string& reason) noexcept {
    if (count == 0) {
        return;
    }
    Guarded(m_title, "NoteLost", [&]() -> int {
        gvx::NoteDeviceError(device,
                             "There is no picture. " + (reason.empty() ? "An error ended the request." : reason));
        return ZVS_SUCCEED;
    });
    for (std::uint32_t number = 0; number < count && request.bIsUpload; ++number) {
        Tell(ADAPTER_REPORT_PICTURE_LOST, device, lens, "", request.sessionId, request.enSnapType);
    }
}

void PictureDesk::NoteEnd(const std::string& lens, const PU_UPLOAD_IMAGE_COMP_REQ& end) const {
    if (!end.strContentID.empty()) {  // else one that was never taken
        GVX_LOG_INFO(m_title, "The platform's word about picture %s: %d. [lens:%s]", end.strContentID.c_str(),
                     end.nResult, lens.c_str());
    }
}

int PictureDesk::Send(const std::string& device, const PU_UPLOAD_IMAGE_RSP& address) {
    const std::string server = ServerOf(address.strUrl);
    const auto isForServer = [&](const Picture& picture) { return picture.server == server; };
    std::unique_lock<std::mutex> lock(m_mutex);
    const auto found = std::find_if(m_kept.begin(), m_kept.end(), [&](const Picture& picture) {
        return picture.device == device && picture.contentID == address.strContentID;
    });
    if (found == m_kept.end()) {
        return GvxFail(ZVS_PARA_INVALID, "There is no picture '%s'.", address.strContentID.c_str());
    }
    if (address.nResult != 0) {
        m_kept.erase(found);
        m_turns.notify_one();
        return GvxFail(ZVS_FAIL, "Picture '%s' is dropped: it got no address, code %d.", address.strContentID.c_str(),
                       address.nResult);
    }
    found->url = address.strUrl;
    found->server = server;
    const std::string fault = std::count_if(m_leaving.begin(), m_leaving.end(), isForServer) >= kPicturesOfAServer
                                  ? "too many others wait for the same server"
                                  : StartThreadLocked();
    if (fault.empty()) {
        m_leaving.splice(m_leaving.end(), m_kept, found);
        m_changed.notify_one();
        return ZVS_SUCCEED;
    }
    const Picture lost = std::move(*found);
    m_kept.erase(found);
    m_turns.notify_one();
    lock.unlock();
    Tell(ADAPTER_REPORT_PICTURE_LOST, lost);
    return GvxFail(ZVS_FAIL, "Picture '%s' is dropped: %s.", address.strContentID.c_str(), fault.c_str());
}

// One more for one more picture, up to so many; in words why there is none at all.
std::string PictureDesk::StartThreadLocked() {
    if (m_threads.size() >= kUploads || m_threads.size() > m_leaving.size() + m_sending.size()) {
        return {};
    }
    try {
        m_threads.emplace_back(&PictureDesk::Run, this);
    } catch (const std::system_error& fault) {
        gvx::NoteShortage(gvx::Resource::Thread, fault.code().value());
        return m_threads.empty() ? std::string("there is no thread for uploads: ") + fault.what() : std::string();
    }
    pthread_setname_np(m_threads.back().native_handle(), m_threadName);
    return {};
}

// The first whose server has a thread left.
std::list<PictureDesk::Picture>::iterator PictureDesk::NextLocked() {
    return std::find_if(m_leaving.begin(), m_leaving.end(), [this](const Picture& picture) {
        return std::count_if(m_sending.begin(), m_sending.end(),
                             [&](const Picture& other) { return other.server == picture.server; }) < kUploadsOfAServer;
    });
}

void PictureDesk::Run() {
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        auto picture = m_leaving.end();
        m_changed.wait(lock, [&] { return m_stop || (picture = NextLocked()) != m_leaving.end(); });
        if (m_stop) {
            return;
        }
        m_sending.splice(m_sending.end(), m_leaving, picture);
        lock.unlock();
        const int sent = Guarded(m_title, "Upload", [&]() -> int { return Upload(*picture) ? ZVS_SUCCEED : ZVS_FAIL; });
        Tell(sent == ZVS_SUCCEED ? ADAPTER_REPORT_PICTURE_SENT : ADAPTER_REPORT_PICTURE_LOST, *picture);
        lock.lock();
        m_sending.erase(picture);
        m_turns.notify_one();
        m_changed.notify_all();  // of this server one more may go
    }
}

// The upload takes a file by its name.
bool PictureDesk::Upload(const Picture& picture) const {
    std::error_code ignored;
    std::string path = (std::filesystem::temp_directory_path(ignored) / "gvx_picture_XXXXXX").string();
    const gvx::UniqueFd file(mkostemp(path.data(), O_CLOEXEC));
    const std::unique_ptr<const char, int (*)(const char*)> name(path.c_str(), unlink);
    if (file.Get() == -1 || !WriteAll(file.Get(), *picture.bytes)) {
        GVX_LOG_ERR_CODE(m_title, ZVS_WRITE_FILE_ERROR, "%s cannot be written: %s", path.c_str(), std::strerror(errno));
        return false;
    }
    const int result = CHttpsStreamUtil::GetInstance()->UploadFile(path, picture.url);
    if (result != ZVS_SUCCEED) {
        GVX_LOG_ERR_CODE(m_title, result, "Picture %s could not be sent.", picture.contentID.c_str());
    }
    return result == ZVS_SUCCEED;
}

}  // namespace gvxplugin
