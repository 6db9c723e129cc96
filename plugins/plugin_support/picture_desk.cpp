#include "plugin_support/picture_desk.h"

#include "base/clock.h"
#include "base/fixed_text.h"
#include "base/log.h"
#include "base/unique_fd.h"
#include "gvx_common/adapter/gvx_reason.h"
#include "gvx_common/https/https_stream_util.h"
#include "gvx_common/utility/gvx_utility.h"
#include "plugin_support/guarded.h"

#include <algorithm>
#include <cerrno>
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
    if (m_thread.joinable()) {
        m_thread.join();
    }
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

void PictureDesk::Tell(ADAPTER_REPORT_TYPE type, const Picture& picture) {
    ADAPTER_COMMON_MESSAGE message{};
    message.ExceptionType = type;
    message.ExceptionTime = gvx::WallSeconds();
    message.ulIdentifyID = picture.sessionID;
    message.enSnapType = picture.type;
    message.useHttps = true;
    ADAPTER_COMMON_MESSAGE_CALLBACK* const callback = m_callback;
    if (callback != nullptr && gvx::PutText(message.chDevId, picture.device) &&
        gvx::PutText(message.chSubDevId, picture.lens) && gvx::PutText(message.stContentId, picture.contentID)) {
        callback(message);
    }
}

bool PictureDesk::HasRoomLocked(std::size_t bytes) const {
    for (const std::list<Picture>* list : {&m_kept, &m_leaving}) {
        for (const Picture& picture : *list) {
            bytes += picture.bytes->size();
        }
    }
    return m_kept.size() + m_leaving.size() < kMostPictures && bytes <= kMostBytes;
}

int PictureDesk::Keep(const std::string& device, const std::string& lens, const PU_SNAP_CONF_REQ& request,
                      const PictureBytes& bytes) {
    if (!request.bIsUpload) {
        GVX_LOG_INFO(m_title, "A picture of %zu bytes was taken, and is not asked for. [lens:%s]", bytes->size(),
                     lens.c_str());
        return ZVS_SUCCEED;
    }
    Picture picture{device, lens, "", request.sessionId, request.enSnapType, bytes, ""};
    std::string now;
    CGvxUtility::GetCurrentUtcTime(now, "YYYYMMDDhhmmss");
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        while (!HasRoomLocked(bytes->size()) && !m_kept.empty()) {
            GVX_LOG_WARN(m_title, "Picture %s is dropped: no address came for it.", m_kept.front().contentID.c_str());
            m_kept.pop_front();
        }
        if (!HasRoomLocked(bytes->size())) {
            return GvxFail(ZVS_GVX_GET_SNAP_SHOT_ERROR, "A picture of %zu bytes is dropped: %zu others are being sent.",
                           bytes->size(), m_leaving.size());
        }
        picture.contentID = lens + "-" + now + "-" + std::to_string(++m_number) + ".jpg";
        m_kept.push_back(picture);
    }
    Tell(ADAPTER_REPORT_PICTURE_TAKEN, picture);
    return ZVS_SUCCEED;
}

void PictureDesk::NoteEnd(const std::string& lens, const PU_UPLOAD_IMAGE_COMP_REQ& end) const {
    GVX_LOG_INFO(m_title, "The platform's word about picture %s: %d. [lens:%s]", end.strContentID.c_str(), end.nResult,
                 lens.c_str());
}

int PictureDesk::Send(const std::string& device, const PU_UPLOAD_IMAGE_RSP& address) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = std::find_if(m_kept.begin(), m_kept.end(), [&](const Picture& picture) {
        return picture.device == device && picture.contentID == address.strContentID;
    });
    if (found == m_kept.end()) {
        return GvxFail(ZVS_PARA_INVALID, "There is no picture '%s'.", address.strContentID.c_str());
    }
    if (address.nResult != 0) {
        m_kept.erase(found);
        return GvxFail(ZVS_FAIL, "Picture '%s' is dropped: it got no address, code %d.", address.strContentID.c_str(),
                       address.nResult);
    }
    found->url = address.strUrl;
    m_leaving.splice(m_leaving.end(), m_kept, found);
    if (!m_thread.joinable()) {
        try {
            m_thread = std::thread(&PictureDesk::Run, this);
        } catch (const std::system_error& fault) {
            m_leaving.clear();
            return GvxFail(ZVS_FAIL, "There is no thread for uploads: %s.", fault.what());
        }
        pthread_setname_np(m_thread.native_handle(), m_threadName);
    }
    m_changed.notify_all();
    return ZVS_SUCCEED;
}

void PictureDesk::Run() {
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        m_changed.wait(lock, [this] { return m_stop || !m_leaving.empty(); });
        if (m_stop) {
            return;
        }
        const Picture picture = std::move(m_leaving.front());
        m_leaving.pop_front();
        lock.unlock();
        const int sent = Guarded(m_title, "Upload", [&]() -> int { return Upload(picture) ? ZVS_SUCCEED : ZVS_FAIL; });
        Guarded(m_title, "Tell", [&]() -> int {
            Tell(sent == ZVS_SUCCEED ? ADAPTER_REPORT_PICTURE_SENT : ADAPTER_REPORT_PICTURE_LOST, picture);
            return ZVS_SUCCEED;
        });
        lock.lock();
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
