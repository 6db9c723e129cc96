#include "file/alarm_intake.h"

#include "base/json_io.h"
#include "base/log.h"

namespace gvxfile {

void AlarmIntake::Take(const GvxIntakeBlock& block) {
    const std::string connection = std::string(block.pPeerAddr) + ":" + std::to_string(block.usPeerPort);
    m_lines.Add(connection, block.pData, block.uiLength,
                [&](const std::string& line) { TakeLine(line, connection, block.pRecvTime); });
}

void AlarmIntake::TakeLine(const std::string& line, const std::string& connection, const char* recvTime) {
    AlarmTrigger trigger;
    std::string error;
    if (!ReadAlarmTrigger(line, trigger, error) || !Report(trigger, recvTime, error)) {
        GVX_LOG_WARN("file plug-in", "An alarm from %s is dropped. %s [dev:%.40s]", connection.c_str(), error.c_str(),
                     trigger.device.c_str());
    }
}

bool AlarmIntake::Report(const AlarmTrigger& trigger, const char* recvTime, std::string& error) const {
    enPuDevFormType form = PU_IPC;
    if (!m_devices->FindForm(trigger.device, form)) {
        error = "This plug-in has no such device.";
        return false;
    }
    std::string source = trigger.device;
    if (trigger.channel != AlarmTrigger::kNoChannel) {
        source = m_devices->LensOf(trigger.device, static_cast<unsigned int>(trigger.channel));
    }
    if (source.empty()) {
        error = "The device has no lens of that channel.";
        return false;
    }
    ZVS_ALARM_REPORT alarm{};
    if (!m_table.Translate(trigger, form, alarm, error)) {
        return false;
    }
    Json::Value report(Json::objectValue);
    report["AlarmInCode"] = source;
    report["AlarmType"] = alarm.cAlarmType;
    report["Action"] = static_cast<int>(alarm.bAction);
    report["OccurTime"] = recvTime;
    report["AlarmDesc"] = alarm.cAlarmDesc;
    report["ExtParam"] = alarm.cExtParam;
    ADAPTER_ALARM_CALLBACK* const callback = m_callback;
    if (callback == nullptr) {
        error = "Nobody takes alarms.";
        return false;
    }
    callback(trigger.device.c_str(), gvx::WriteJson(report).c_str());
    return true;
}

}  // namespace gvxfile
