#pragma once

#include "file/alarm_trigger.h"
#include "file/device_directory.h"
#include "file/line_assembler.h"
#include "gvx_common/adapter/gvx_plugin.h"

#include <atomic>
#include <memory>
#include <string>

namespace gvxfile {

// Turns what comes in through the gateway's intake port into alarms of this plug-in's devices.
class AlarmIntake {
public:
    explicit AlarmIntake(std::shared_ptr<DeviceDirectory> devices) : m_devices(std::move(devices)) {}

    // Before the first block. False with one sentence in error.
    bool Load(const std::string& tablePath, std::string& error) { return m_table.Load(tablePath, {}, error); }
    // Whom alarms are reported to; null takes it away. Any thread.
    void SetCallback(ADAPTER_ALARM_CALLBACK* callback) { m_callback = callback; }

    // One thread at a time. What cannot be read, or is meant for nobody here, is dropped with a log line.
    void Take(const GvxIntakeBlock& block);

    std::size_t Codes() const { return m_table.Size(); }

private:
    void TakeLine(const std::string& line, const std::string& connection, const char* recvTime);
    bool Report(const AlarmTrigger& trigger, const char* recvTime, std::string& error) const;

    const std::shared_ptr<DeviceDirectory> m_devices;
    gvxplugin::AlarmTable m_table;
    LineAssembler m_lines;
    std::atomic<ADAPTER_ALARM_CALLBACK*> m_callback{nullptr};
};

}  // namespace gvxfile
