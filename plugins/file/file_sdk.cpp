#include "file/file_sdk.h"

#include "base/log.h"
#include "file/file_device.h"
#include "file/guarded.h"

#include <memory>
#include <utility>

namespace gvxfile {
namespace {

constexpr const char* kTitle = "file plug-in";

// Written by Init, which runs once and before anybody asks.
std::string& LastErrorText() {
    static std::string text;
    return text;
}

void Describe(const MainDeviceInfo& info, FileDevice& device) {
    device.SetMainDevID(info.strDevCode);
    device.SetParentCode(info.strParentCode);
    device.SetDevFormType(info.eDevFormType);
    device.SetIP(info.strIP);
    device.SetPort(info.nPort);
    device.SetUserName(info.strUserName);
    device.SetPassword(info.strPassword);
    device.SetModelType(info.strModel);
}

}  // namespace

const char* FileSdk::LastError() {
    return LastErrorText().c_str();
}

bool FileSdk::Init(const char* configFile) {
    const int result = Guarded("Init", [&]() -> int {
        LastErrorText() = "The media cannot be read.";
        if (!m_media.Load(configFile == nullptr ? "" : configFile, LastErrorText())) {
            GVX_LOG_ERR_CODE(kTitle, ZVS_OPEN_FILE_ERROR, "%s", LastError());
            return ZVS_OPEN_FILE_ERROR;
        }
        LastErrorText().clear();
        GVX_LOG_INFO(kTitle, "%zu media are ready to play.", m_media.Size());
        return ZVS_SUCCEED;
    });
    return result == ZVS_SUCCEED;
}

int FileSdk::CreateDevice(const MainDeviceInfo& info, CAdapterDevBase*& device) {
    device = nullptr;
    return Guarded("CreateDevice", [&]() -> int {
        std::vector<MediaPtr> lenses;
        std::string error;
        if (!m_media.Resolve(info.strExtend, lenses, error)) {
            GVX_LOG_ERR_CODE(kTitle, ZVS_PARA_INVALID, "Device[%s]: %s", info.strDevCode.c_str(), error.c_str());
            return ZVS_PARA_INVALID;
        }
        auto made = std::make_unique<FileDevice>(std::move(lenses));
        Describe(info, *made);
        device = made.release();
        return ZVS_SUCCEED;
    });
}

}  // namespace gvxfile
