#include "gvx_common/alarm/emergency_protection.h"

#include "base/bounded_string.h"
#include "base/log.h"
#include "base/log_fault.h"
#include "base/zvs_error.h"
#include "bp/service.h"
#include "gvx_common/config/config_findings.h"
#include "gvx_common/link/gvx_connection_mgr.h"

#include <cstddef>
#include <cstring>
#include <exception>

// What raises and clears the gateway's own alarms.

namespace {

// The way of the configuration's faults into the alarm state.
class ConfigFaults : public gvx::ConfigAlarmSink {
public:
    void OnFileFault(const std::string& location, const std::string& description) override {
        CEmergencyProtection::Instance()->OnConfigReadAlarm(location, description);
    }
    bool OnSideFileFault(const std::string& location, const std::string& description) override {
        CEmergencyProtection* const alarms = CEmergencyProtection::Instance();
        if (alarms->IsAlarmStatusItemExist(ALARM_GVX_CONFIG_READ_FAIL, "") == ZVS_SUCCEED) {
            return false;
        }
        alarms->OnConfigReadAlarm(location, description);
        alarms->AddAlarmStatusItem(ALARM_GVX_CONFIG_READ_FAIL, "");
        return true;
    }
    void OnIllegalSetting(const std::string& location, const std::string& description) override {
        GvxConnectionMgr()->SetGvxAlarmRepMsg("ALARM_GVX_CONFIG_READ_FAIL", GVX_ALARM_DEV_TYPE, location, description);
    }
};

[[maybe_unused]] const bool g_registered = [] {
    static ConfigFaults faults;
    gvx::SetConfigAlarmSink(&faults);
    CGvxConnectionMgr::SetMainServiceObserver(MainServiceStep::Opening, [](const std::string& /*linkId*/) {
        CEmergencyProtection::Instance()->HoldAlarmsBack();
    });
    // What it throws would end the process behind the plug-ins' announcement; the next sending goes on.
    CGvxConnectionMgr::SetMainServiceObserver(MainServiceStep::HeldAlarms, [](const std::string& /*linkId*/) {
        try {
            CEmergencyProtection::Instance()->LetAlarmsGo();
        } catch (const std::exception& fault) {
            GVX_LOG_ERR("Alarm delivery", "The held alarms wait: %s", fault.what());
        }
    });
    return true;
}();

constexpr std::size_t kLogTextBytes = 256;

// How a fault of the logger is told.
struct LogFaultAlarm {
    unsigned int raiseCode;  // of gvx::LogFault
    const char* id;
    const char* raiseType;
    const char* clearType;
};

constexpr const char* kRecordOn = "ALARM_GVX_LOG_RECORD_FAIL_ON";
constexpr const char* kRecordOff = "ALARM_GVX_LOG_RECORD_FAIL_OFF";
constexpr const char* kBackupOn = "ALARM_GVX_LOG_BCK_FAIL_ON";
constexpr const char* kBackupOff = "ALARM_GVX_LOG_BCK_FAIL_OFF";

constexpr LogFaultAlarm kLogFaultAlarms[] = {
    {gvx::LOG_FAULT_OPEN, ALARM_GVX_LOG_RECORD_FAIL, kRecordOn, kRecordOff},
    {gvx::LOG_FAULT_WRITE, ALARM_GVX_LOG_RECORD_FAIL, kRecordOn, kRecordOff},
    {gvx::LOG_FAULT_BOUND, ALARM_GVX_LOG_RECORD_FAIL, kRecordOn, kRecordOff},
    {gvx::LOG_FAULT_BACKUP, ALARM_GVX_LOG_BACK_FAIL, kBackupOn, kBackupOff},
    {gvx::LOG_FAULT_SHIFT, ALARM_GVX_LOG_BACK_FAIL, kBackupOn, kBackupOff},
    {gvx::LOG_FAULT_REMOVE, ALARM_GVX_LOG_BACK_FAIL, kBackupOn, kBackupOff},
};

const LogFaultAlarm* FindLogFault(unsigned int errorCode) {
    for (const LogFaultAlarm& fault : kLogFaultAlarms) {
        if (errorCode == fault.raiseCode || errorCode == fault.raiseCode + gvx::kLogFaultEnded) {
            return &fault;
        }
    }
    return nullptr;
}

// Repeats of a fault in writing lines are worth a line; those of a fault in backing files up come with each line.
bool TellsRepeats(const char* id) {
    return std::strcmp(id, ALARM_GVX_LOG_RECORD_FAIL) == 0;
}

std::string ThreadText(const BP::fluxControlWarnInfo& info) {
    // The name goes on behind the record.
    const char* name = reinterpret_cast<const char*>(&info) + offsetof(BP::fluxControlWarnInfo, pThreadName);
    return "<Level>" + std::to_string(static_cast<int>(info.uiLevel)) + "</Level><ThreadID>" +
           std::to_string(static_cast<int>(info.uiThreadID)) + "</ThreadID><ThreadName>" +
           std::string(name, strnlen(name, info.uiNameLength)) + "</ThreadName>";
}

}  // namespace

void CEmergencyProtection::OnConfigReadAlarm(const std::string& location, const std::string& description) {
    GVX_LOG_INFO("OnConfigReadAlarm", "Congfig file alarm %s", location.c_str());
    GVX_LOG_ERR("Configuration alarm", "Configuration cannot be used: %s, description[%s]", location.c_str(),
                description.c_str());
    SetGvxBPAlarmRepMsg("ALARM_GVX_CONFIG_READ_FAIL", GVX_ALARM_DEV_TYPE, location, description, false);
    AddAlarmStatusItem(ALARM_GVX_CONFIG_READ_FAIL, location);
}

void CEmergencyProtection::OnLogWarn(unsigned int errorCode, const char* filePath, const char* fileName) {
    const LogFaultAlarm* const fault = FindLogFault(errorCode);
    if (fault == nullptr) {
        return;
    }
    // The clear repeats the text of the raise, so that it finds the entry that it ends.
    char buf[kLogTextBytes];
    if (sprintf_s(buf, sizeof(buf), "FilePath=%s,FileName=%s,ErrorCode=%d", filePath == nullptr ? "" : filePath,
                  fileName == nullptr ? "" : fileName, static_cast<int>(fault->raiseCode)) < 1) {
        GVX_LOG_ERR("OnLogWarn", "snprintf_s buf failed");
        return;
    }
    const std::lock_guard<BP_Thread_Mutex> guard(m_faultMutex);
    if (errorCode == fault->raiseCode) {
        RaiseLogAlarm(fault->raiseType, fault->id, errorCode, buf);
    } else {
        ClearLogAlarm(fault->clearType, fault->id, errorCode, buf);
    }
}

void CEmergencyProtection::RaiseLogAlarm(const char* type, const char* id, unsigned int errorCode,
                                         const std::string& text) {
    if (IsAlarmStatusItemExist(id, text) == ZVS_SUCCEED) {
        if (TellsRepeats(id)) {
            GVX_LOG_INFO("OnLogWarn", "OnLogWarn ErrorCode = %u has sended.", errorCode);
        }
        return;
    }
    SetGvxAlarmRepMsg(type, GVX_ALARM_DEV_TYPE, text, "");
    GVX_LOG_INFO("OnLogWarn", "OnLogWarn add alarm item. alarmid = %s .", id);
    AddAlarmStatusItem(id, text);
}

void CEmergencyProtection::ClearLogAlarm(const char* type, const char* id, unsigned int errorCode,
                                         const std::string& text) {
    if (IsAlarmStatusItemExist(id, text) != ZVS_SUCCEED) {
        if (TellsRepeats(id)) {
            GVX_LOG(OM_LOG_DEBUG, "OnLogWarn", "OnLogWarn ErrorCode = %u has not sended.", errorCode);
        }
        return;
    }
    gvx::OutboundAlarm clear{{type, GVX_ALARM_DEV_TYPE, text, ""}};
    {
        const std::lock_guard<BP_Thread_Mutex> guard(m_Mutex);
        EndByLocked(clear, Pair(id, text));
    }
    GVX_LOG_INFO("OnLogWarn", "OnLogWarn delete alarm item. alarmid = %s .", id);
    RaiseBehindOmu(std::move(clear));
}

void CEmergencyProtection::RaiseBehindOmu(gvx::OutboundAlarm alarm) {
    if (GvxConnectionMgr()->AdmitAlarm(alarm.type, alarm.inType, alarm.location, alarm.description)) {
        m_outbox.AddBehindOmu({std::move(alarm)});
    }
}

void CEmergencyProtection::WarnFlow(const std::string& text) {
    const std::lock_guard<BP_Thread_Mutex> step(m_faultMutex);
    SetGvxBPAlarmRepMsg("ALARM_GVX_FLOW_CONTROL_ERROR_ON", GVX_ALARM_DEV_TYPE, text, text, false);
    AddAlarmStatusItem(ALARM_GVX_FLOW_CONTROL, text);
}

void CEmergencyProtection::ResumeFlow(const std::string& text) {
    const std::lock_guard<BP_Thread_Mutex> step(m_faultMutex);
    gvx::OutboundAlarm resume{{"ALARM_GVX_FLOW_CONTROL_ERROR_OFF", GVX_ALARM_DEV_TYPE, text, text}};
    {
        const std::lock_guard<BP_Thread_Mutex> guard(m_Mutex);
        const Pair pair(ALARM_GVX_FLOW_CONTROL, text);
        if (m_openAlarms.count(pair) != 0) {
            EndByLocked(resume, pair);
        }
    }
    m_outbox.Add(std::move(resume));
}

void CEmergencyProtection::OnFluxControlWarn(BP::fluxControlWarnInfo* pInfo) {
    GVX_CHECK_NULL_RETURN_VOID(pInfo);
    const std::string text = ThreadText(*pInfo);
    GVX_LOG_INFO("OnFluxControlWarn", "On Flux Control Warn %s", text.c_str());
    WarnFlow(text);
}

void CEmergencyProtection::OnFluxControlResume(BP::fluxControlWarnInfo* pInfo) {
    GVX_CHECK_NULL_RETURN_VOID(pInfo);
    const std::string text = ThreadText(*pInfo);
    GVX_LOG_INFO("OnFluxControlResume", "On Flux Control Resume %s", text.c_str());
    ResumeFlow(text);
}

void CEmergencyProtection::OnFluxControlWarn(const std::string& protocol, const std::string& queue,
                                             const std::string& code) {
    const std::string text = "Protocal=" + protocol + ",Msg Queue=" + queue + ",FlowControlCode=[" + code + "]";
    GVX_LOG_INFO("OnFluxControlWarn", "On Flux Control Warn %s", text.c_str());
    WarnFlow(text);
}

void CEmergencyProtection::OnFluxControlResume(const std::string& protocol, const std::string& queue,
                                               const std::string& code) {
    const std::string text = "Protocal=" + protocol + ",MsgQueue=" + queue + ",FlowControlCode=[" + code + "]";
    GVX_LOG_INFO("OnFluxControlResume", "On Flux Control Resume %s", text.c_str());
    ResumeFlow(text);
}
