#pragma once

#include "gvx_common/records/device_alarm_records.h"
#include "gvx_common/records/gvx_adapter_records.h"

#include <string>
#include <vector>

namespace gvxplugin {

// A device's word that an alarm has begun or ended, in the device's own terms.
struct AlarmEvent {
    std::string code;        // of the mapping table
    bool hasAction = false;  // without one the alarm has begun
    std::string action;
    std::string description;  // empty: that of the tables
};

// The alarm codes of the devices and what they mean to the platform: the mapping table of the plug-in, over which the
// gateway's own description table gives the type of the device's form. Filled once, then read by any thread.
class AlarmTable {
public:
    AlarmTable() = default;
    ~AlarmTable();
    AlarmTable(const AlarmTable&) = delete;
    AlarmTable& operator=(const AlarmTable&) = delete;

    // A file that does not exist is an empty table. codes are those that the plug-in raises, for what is told of a
    // misspelt one; empty where devices have codes of their own. False with one sentence in error, which names the
    // file.
    bool Load(const std::string& path, const std::vector<std::string>& codes, std::string& error);

    // Fills type, direction, description and extension of an alarm. False with one sentence in error.
    bool Translate(const AlarmEvent& trigger, enPuDevFormType form, ZVS_ALARM_REPORT& report, std::string& error) const;

    std::size_t Size() const { return m_mappings.current_size(); }

private:
    DEVICE_ALARM_INFO_MAPPINGS_MAP m_mappings;  // owns its rows
};

}  // namespace gvxplugin
