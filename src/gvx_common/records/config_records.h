#pragma once

#include <string>
#include <vector>

// Where the gateway runs, by the number in the cloud's file.
enum enRunMode : int { RunMode_BOX = 0, RunMode_CLOUD = 1, RunMode_CLOUDEDGE = 2 };

// One edit of a setting at run time. The texts are terminated.
struct ZVS_GVX_CONFIG_INFO {
    char chConfigName[64];  // the key
    char chConfigType[32];  // the section
    char chConfigValue[32];
};
using CONFIG_INFO = ZVS_GVX_CONFIG_INFO;

// How this gateway takes part in secure video links (GB35114): the settings of section GB35114_CFG. Texts are
// terminated, and empty where the configuration has none.
struct GVX_35114_CONFIG_INFO {
    char chSecurityLevel[2];  // GB35114_SECURITY_LEVEL: "A", "B" or "C"
    char chKeyLabel[33];      // GB35114_KEYLABEL: 3 to 32 letters and digits
    char chServerID[21];      // GB35114_SERVER_ID: 20 digits
    unsigned int
        uiDateInterval;  // GB35114_DATE_INTERNAL: seconds between two date notices, 5 to 3600; 600 where it is absent
};

// What kind of value an edit carries; taken along and not looked at.
using CONFIG_MANAGER_DATA_TYPE = int;

// The same edit as it arrives.
struct _CONFIG_MANAGER_DATA_JSON {
    std::string configSection;
    std::string configName;
    std::string configValue;
    CONFIG_MANAGER_DATA_TYPE configValueType = 0;
};
using CONFIG_MANAGER_DATA_JSON = _CONFIG_MANAGER_DATA_JSON;

// One setting of the unified document. The value is wiped with the object: it may be a password.
class COMUUnifiedConfig {
public:
    COMUUnifiedConfig(const std::string& type, const std::string& name, const std::string& value)
        : m_configType(type), m_configName(name), m_configValue(value) {}
    COMUUnifiedConfig(const COMUUnifiedConfig&) = default;
    COMUUnifiedConfig& operator=(const COMUUnifiedConfig&) = default;
    virtual ~COMUUnifiedConfig();

    const std::string& GetConfigType() const { return m_configType; }
    const std::string& GetConfigName() const { return m_configName; }
    const std::string& GetConfigValue() const { return m_configValue; }

private:
    std::string m_configType;
    std::string m_configName;
    std::string m_configValue;
};
using COMUUnifiedConfigList = std::vector<COMUUnifiedConfig>;
