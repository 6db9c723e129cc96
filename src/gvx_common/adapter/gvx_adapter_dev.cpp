#include "gvx_common/adapter/gvx_adapter_dev.h"

#include "base/clock.h"
#include "base/log.h"
#include "gvx_common/adapter/gvx_device_state.h"
#include "gvx_common/records/device_config_records.h"

#include <ace/Guard_T.h>

namespace {

int Unsupported(const char* operation, const std::string& device) {
    GVX_LOG_INFO(operation, "The plug-in does not support it. [dev:%s]", device.c_str());
    return ZVS_GVX_DEV_UN_SUPPORT;
}

}  // namespace

CAdapterDevBase::CAdapterDevBase() = default;
CAdapterDevBase::~CAdapterDevBase() = default;

int CAdapterDevBase::SendGpsPositionSubscribe(unsigned int, const std::string&, const std::string&, ZVS_UINT32,
                                              const std::string&, const std::string&) {
    return Unsupported("SendGpsPositionSubscribe", m_strMainDevID);
}

int CAdapterDevBase::SendSensorInfoSubscribe(const std::string&, const std::string&, unsigned int, unsigned int) {
    return Unsupported("SendSensorInfoSubscribe", m_strMainDevID);
}

int CAdapterDevBase::GetExternDevList(EXT_DEVICE_MAP&, EXT_DEVICE_MAP&, EXT_DEVICE_MAP&) {
    return Unsupported("GetExternDevList", m_strMainDevID);
}

int CAdapterDevBase::SetExternDevList(EXT_DEVICE_P_MAP&, EXT_DEVICE_P_MAP&, EXT_DEVICE_P_MAP&) {
    return Unsupported("SetExternDevList", m_strMainDevID);
}

int CAdapterDevBase::AddExternDevList(EXT_DEVICE_P_MAP&, EXT_DEVICE_P_MAP&, EXT_DEVICE_P_MAP&) {
    return Unsupported("AddExternDevList", m_strMainDevID);
}

int CAdapterDevBase::AddMultimachineAssistanceIpc(const std::string&, const std::string&) {
    return Unsupported("AddMultimachineAssistanceIpc", m_strMainDevID);
}

void CAdapterDevBase::SetLoginStatus(bool login) {
    {
        ACE_Guard<ACE_Recursive_Thread_Mutex> guard(m_mutexDevLogin);
        m_bLogin = login;
    }
    gvx::NoteDeviceLogin(m_strMainDevID, login);
}

bool CAdapterDevBase::GetLoginStatus() {
    ACE_Guard<ACE_Recursive_Thread_Mutex> guard(m_mutexDevLogin);
    return m_bLogin;
}

void CAdapterDevBase::UpdateLastAlarmTime() {
    m_uiLastAlarmTime = gvx::WallSeconds();
}

void CAdapterDevBase::ClearLastAlarmTime() {
    m_uiLastAlarmTime = 0;
}

void CAdapterDevBase::SetLoginHandle(long handle) {
    m_Handle = handle;
}

Json::Value CAdapterDevBase::GetVideoChannelInfo() const {
    if (!m_cacheDeviceAbility.isObject()) {
        return Json::Value();
    }
    return m_cacheDeviceAbility.get("videoChannelInfo", Json::Value());
}
