#include "gvx_common/adapter/gvx_adapter_dev.h"

#include "base/clock.h"

#include <ace/Guard_T.h>

CAdapterDevBase::CAdapterDevBase() = default;
CAdapterDevBase::~CAdapterDevBase() = default;

void CAdapterDevBase::SetLoginStatus(bool login) {
    ACE_Guard<ACE_Recursive_Thread_Mutex> guard(m_mutexDevLogin);
    m_bLogin = login;
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
