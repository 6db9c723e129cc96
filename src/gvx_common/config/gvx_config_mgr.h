#pragma once

#include "gvx_common/config/published_text.h"
#include "gvx_common/records/config_records.h"
#include "gvx_common/records/device_alarm_records.h"

#include <ace/Recursive_Thread_Mutex.h>

#include <atomic>
#include <climits>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace CBB {
class CXml;
}
class ACE_Message_Block;
enum _PU_DEV_FORM_TYPE : int;

using MapCfgKeyValue = std::map<std::string, std::string>;

// Fixed places of what others keep about this gateway, below the root prefix.
constexpr const char* GVX_CLOUD_CONFIG_PATH = "/home/zvs_common/cloudconfig.xml";
constexpr const char* GVXCONFIG_OMU_COMMON_CONFIG_PATH = "/home/zvs_common/config/common.xml";

// The settings of the process: read once at start, then looked up by key at the point of use. A key is unique across
// the system, and sections of the file leave no trace. An illegal value raises an alarm and stays in force; a reader
// that needs a safe value clamps it itself.
//
// Results are 0 for success and 1 for failure unless stated. Reads may come from any thread at any time, also during a
// second Init or an edit. Init, the loads, the edits and the unified document take turns: a call waits until the one
// before it has ended.
class CGvxConfigMgr {
public:
    // The singleton; never null, alive until the process ends.
    static CGvxConfigMgr* Instance();

    CGvxConfigMgr();
    ~CGvxConfigMgr();
    CGvxConfigMgr(const CGvxConfigMgr&) = delete;
    CGvxConfigMgr& operator=(const CGvxConfigMgr&) = delete;

    // Reads net.xml, the alarm descriptions, zvs_gvx.conf and zvs_gvx_nat.conf of the configuration folder, then what
    // the operation and maintenance unit and the cloud say; a fault of net.xml or of the last two does not stop it.
    // A second call drops all settings and reads them anew; rows of alarm descriptions handed out before are then gone.
    int Init();
    // The same for a look at the configuration: no file is written or removed.
    int Look();

    // Reads the settings of confFile, and zvs_gvx_nat.conf of the configuration folder. Keys that are known already
    // keep their value. The first byte of the file is consumed as the check that it can be read.
    int LoadZVSGvxConfig(const std::string& confFile);

    // Reads the configuration again while everything runs: zvs_gvx.conf and zvs_gvx_nat.conf, then what the operation
    // and maintenance unit's file says of addresses. What is read live, or with the next stream, acts from now on as
    // after an edit; a setting that acts at a start alone keeps its value, and one line names those that wait for a
    // restart, each of them once. Nothing changes when one of the files or net.xml cannot be read, the unit's file or
    // cloudconfig.xml is there and cannot be, or one holds a value that cannot be used: lines of the log name it by
    // file and line. Plug-ins are switched last. 0; 1 for a refused file. Any thread that holds no lock; it reads from
    // the disk.
    int Reload();
    // Whether what is there of the platform's files, cloudconfig.xml and the unit's, can be used; a finding for each
    // that cannot. Gives the run mode that stands there now, empty where there is none.
    static bool PlatformFilesAreUsable(std::string& runMode);
    // How often that has succeeded and how often it was refused, since the process began. Any thread.
    std::uint64_t CountReloads() const noexcept { return m_reloads; }
    std::uint64_t CountRefusedReloads() const noexcept { return m_refusedReloads; }

    // Whether the value is legal for the key; a key without a rule is. Otherwise value becomes the text that the
    // alarm offers as default (empty for digit strings; unchanged for addresses and identities).
    bool CheckConfValue(const std::string& key, std::string& value) const;

    // ---- the gateway's place in the network (gvx_config_mgr_network.cpp) ----

    // Fills the net element identifier from net.xml; an empty one becomes "GVX#001", with an alarm.
    int LoadLocalIPFromXml();

    // Writes the address (IPv4) to every LocalIP of net.xml and takes it as the local one.
    int SetLocalIP(const char* ip);
    // Sets the value of each element named LocalIP, depth first from the root. depth counts the levels entered.
    void TraversingXMLToSetLocalIP(CBB::CXml& xml, const char* ip, int depth);

    // The signalling address, which is also the local one, and the media address: running value and file.
    // ZVS_IP_INVALID for a text that is no IPv4 address.
    int SetGVXLocalIP(const std::string& ip);
    int SetGVXMediaIP(const std::string& ip);

    // Takes both addresses from the operation and maintenance unit's file; what it does not give stays.
    void UpdateIPAddressFromOmuConfig(const std::string& path);

    // Writes both addresses to zvs_gvx.conf alone, the media address first; no undo when the second fails.
    int EditZvsGvxConfIP(const char*& localIP, const char*& mediaIP);
    // Writes ports to zvs_gvx.conf alone: each key must be one that holds a port. Ends at the first failure.
    int EditZvsGvxConfPort(const std::vector<std::pair<std::string, std::uint16_t>>& ports);

    // Replaces the list of private subnets by "<ip>/<mask>;<ip>/<mask>;...", which is consumed up to the entry that is
    // bad; the entries before it stay in the list.
    int ParsePrivateIpList(std::string& list);
    bool CheckIpAvailable(std::string entry);
    std::list<std::string> GetPrivateIpList();

    // Reads the run mode.
    void LoadCloudConf();
    // 1 standard, 2 simplify, 3 compatible; 0 with a log line when unknown.
    int GetNetWorkMode() const;
    // The address to listen on where there is no floating one; empty for all interfaces.
    std::string GetIPToLisetenWhenNoFloatIP() const;

    // ---- edits at run time (gvx_config_mgr_edit.cpp) ----

    // The entry for a changed setting: a frame with the JSON text {"ConfigSection", "ConfigName", "ConfigValue"}. 2
    // for null, the decoder's code for a bad frame, else the result of SetGvxConfigEdit. The block stays the caller's.
    int SetEditConfigFromFrame(ACE_Message_Block* pMb);
    // Checks one edit, switches the running component, then writes file and settings. A refused edit changes
    // nothing; a failed write after the switch is not undone. GVX_Config::kNotOnDisk, here and below: the value is in
    // force and in the file, but a power loss may bring the old one back.
    int SetGvxConfigEdit(CONFIG_INFO& info);
    // Whether the edit may be made; keys that are not known are refused.
    bool CheckSetValue(const CONFIG_INFO& info) const;
    // Writes one setting, which must exist, in the section that it stands in, and takes it over. An unchanged value
    // does not touch the file. No check of the value.
    int SetGVXConfigValue(const std::string& section, const std::string& key, const std::string& value);
    // One setting of the log upload: WorkSpace, ServerAddr, ServerPort, Username or Password. 2 for null.
    int SetLogSFTPConf(const char* name, const char* value);

    // These ask plug-ins, which may take their time: no lock is held meanwhile.
    int setSipStackLogSwitch(unsigned int value);
    int SetHikAndDahuaSDKSwitch(const std::string& name, unsigned int value);
    // The protocol of the plug-in that an edit of that key asks, the first where there are two; 0: it asks none.
    static int SwitchedProtocol(const std::string& key);
    // Sets the value of the element at a slash path from the root.
    int ModXmlElemValue(CBB::CXml& xml, const char* path, const char* value);

    // ---- secure video links, GB35114 (gvx_config_mgr_35114.cpp) ----

    // The entry for a frame with these settings, a change or the answer to a query. Its body is a JSON object with the
    // keys of section GB35114_CFG, or an XML document with an element of each in Content. It may name what it is about:
    // ConfigType, which is "GB35114_CFG", and NodeCode, which is this gateway's. All four settings are there and legal,
    // and are taken together, in the file and at run time; otherwise none is. 2 for null, the decoder's code for a bad
    // frame, else 0 or 1 with a log line that names the fault. The block stays the caller's.
    int Set35114ChangeFromFrame(ACE_Message_Block* pMb);
    void Get35114ConfigInfo(GVX_35114_CONFIG_INFO& info) const;

    // Calls the listener with the settings as they stand after each change of one of them, by a frame or an edit, on
    // the thread that changes them. It may neither add nor remove a listener, nor take a lock that is held while one is
    // removed. Gives its number, for Remove35114Listener: after that
    // has returned, the listener is not called any more.
    using Config35114Listener = std::function<void(const GVX_35114_CONFIG_INFO&)>;
    unsigned int Add35114Listener(Config35114Listener listener);
    void Remove35114Listener(unsigned int number);

    // ---- the unified document (gvx_config_mgr_unified.cpp) ----

    // Builds the document of all settings that may be read, or of one section. It may hold the clear password of the
    // log upload. ZVS_OPEN_FILE_ERROR when zvs_gvx.conf cannot be read.
    int GetGvxConfig(CBB::CXml& xml, const char* configType);
    int AppendCommonCfgUnifiedConfigs(const std::string& type, COMUUnifiedConfigList& out);
    int AppendLogCfgUnifiedConfigs(COMUUnifiedConfigList& out);
    // A setting that XML can not carry is left out, with a log line that names it; the others are written.
    int BuildUnifiedConfigXml(const COMUUnifiedConfigList& configs, CBB::CXml& xml);

    // ---- device alarms (gvx_config_mgr_alarm_load.cpp, gvx_config_mgr_alarm.cpp) ----

    // Fills the description table. ZVS_NULL_POINTER for null; after a failure the rows before it stay.
    int LoadAlarmDescriptionConfig(const char* path);
    void ClearAlarmInfoDesccription();
    // 0 when found. The row stays the table's, valid until the next Init.
    int GetAlarmDescription(const std::string& type, GVX_DEVICE_ALARM_INFO_DESCRIPTION*& row);

    // Fills a plug-in's mapping table, which owns its rows; results as above.
    int LoadAlarmMappingsConfig(const char* path, DEVICE_ALARM_INFO_MAPPINGS_MAP& mappings);
    // Deletes the rows of a mapping table.
    static void ClearAlarmMappings(DEVICE_ALARM_INFO_MAPPINGS_MAP& mappings);

    // Reads other/device_ability.xml, keyed by the Id of the model.
    int LoadDeviceAbility(DEVICE_ABILITY_MAP& abilities);

    // Sets type and direction from a device's code and action word. A word that is a prefix of the configured one, or
    // of "true" or "false", counts, in any case of letters; one that is unknown leaves the direction.
    int MatchAlarmTypeAndAction(const std::string& code, const std::string& action, ZVS_ALARM_REPORT& report,
                                const DEVICE_ALARM_INFO_MAPPINGS_MAP& mappings);
    // Completes a report whose cAlarmType is a neutral type: the type of the device form, description, extension.
    int BuildAlarmInfoForNVT(ZVS_ALARM_REPORT& report, _PU_DEV_FORM_TYPE form);
    // Builds a report from a mapping row alone; action words are compared exactly. ZVS_NULL_POINTER for a null row.
    int BuildAlarmInfoForEAS(const std::string& code, const std::string& action, ZVS_ALARM_REPORT& report,
                             const DEVICE_ALARM_INFO_MAPPINGS_MAP& mappings);

    // ---- settings ----

    // The value of key as the file has it, or defaultValue when the key is absent. A key that is present with an
    // empty value gives the empty text.
    std::string GetConfValue(const std::string& key, const std::string& defaultValue) const;

    // True unless the value equals "0": "2", "yes" and the empty text count as true.
    bool GetBoolConfValue(const std::string& key, bool defaultValue) const;

    // The value of key as a whole number, or defaultValue when the key is absent; a number outside least to most counts
    // as the nearer of the two. A text without leading digits counts as 0.
    int GetConfNumber(const std::string& key, int defaultValue, int least = INT_MIN, int most = INT_MAX) const;

    // A copy of all settings as they stand now, for plug-ins.
    MapCfgKeyValue GetMapCfgKeyValue() const;

    // The reference stays valid until the process ends, also when the value is replaced.
    const std::string& GetLocalIP() const noexcept { return m_strLocalIP.Get(); }
    const std::string& GetGvxNetElementID() const noexcept { return m_strNetElementID.Get(); }

    // An enRunMode.
    int GetRunMode() const noexcept { return m_iRunMode; }
    bool IsOnline() const noexcept { return m_bIsOnline; }

    // Whether a setting failed its check since the process began, and the key that failed last.
    bool HasConfigError() const noexcept { return m_bCfgErr; }
    std::string GetErrorConfigName() const;

    // Clock synchronisation of devices: the switch (0 or 1) and the interval in seconds (3600 to 86400 after Init).
    unsigned int GetSdkSyncTimeInterval() const noexcept { return m_uiSyncTimeInterval; }
    unsigned int GetSdkSyncTimeSwitch() const noexcept { return m_uiSyncTimeSwitch; }
    void setSdkSyncTimeInterval(unsigned int seconds) noexcept { m_uiSyncTimeInterval = seconds; }
    void setSdkSyncTimeSwitch(unsigned int on) noexcept { m_uiSyncTimeSwitch = on; }

private:
    using EditGuard = std::lock_guard<std::recursive_mutex>;
    using Settings = std::vector<std::pair<std::string, std::string>>;
    using Snapshot = std::shared_ptr<const MapCfgKeyValue>;

    // The settings as they stand, from the calling thread's own copy of the pointer where that is fresh; held keeps
    // them alive otherwise. Valid until the thread's next call, or as long as held.
    const MapCfgKeyValue& View(Snapshot& held) const;
    const MapCfgKeyValue& ViewAnew(Snapshot& held) const;
    Snapshot TakeSnapshot() const;
    void Publish(Snapshot settings);
    void PublishValues(const Settings& values);
    static bool Is35114Key(const std::string& key);
    void Tell35114();
    int SetNatList(const std::string& file, const std::string& section, const std::string& key,
                   const std::string& value);
    void RestoreNatList();
    void TellNatList();
    int SetDebugLogSwitch(const std::string& directory, const std::string& value);
    int SetFileValue(const std::string& file, const std::string& section, const std::string& key,
                     const std::string& value);
    std::string SubnetNatText() const;
    void KeepSubnetNatText(const std::string& text);
    int ReadAll();
    void InsertSettings(const Settings& settings);
    void CheckSetting(const std::string& key, const std::string& value, const std::string& confFile);
    int LoadNatConfig();
    bool ReadNatSettings(const std::string& natFile, const std::string& content, bool refuses,
                         std::vector<std::string>& lists);
    void TakeNatLists(const std::vector<std::string>& lists);
    bool ReadForReload(const std::string& directory, Settings& settings, std::vector<std::string>& natLists,
                       std::string& elementID, std::string& runMode);
    int ReadAgain(Settings& changed);
    static bool ReadElementID(const std::string& netXml, std::string& id);
    void WaitForRestart(const std::map<std::string, std::string>& wanted);
    void ActOn(const Settings& changed);
    void SwitchPlugins(const Settings& changed);
    void ReadSyncTime();
    bool FindConfValue(const std::string& key, std::string& value) const;
    void ApplyNetElementID(const std::string& path, const std::string& value);

    // Held for a whole Init, load, edit or unified document, since an edit reads a file, changes it and writes it back:
    // guards the configuration files, and the settings and the NAT list against a second editor. It is taken before
    // every other lock of this class; readers of settings do without. Recursive, as edits are built of edits.
    std::recursive_mutex m_mutexEdit;
    bool m_mayWrite = true;  // Guarded by m_mutexEdit.
    // What the files have of settings that act at a start alone, where that is not in force. Guarded by m_mutexEdit.
    std::map<std::string, std::string> m_waitForRestart;
    std::atomic<std::uint64_t> m_reloads{0};
    std::atomic<std::uint64_t> m_refusedReloads{0};

    // Held for no longer than it takes to copy or replace a member; no other lock is taken under it. The settings are
    // replaced as a whole, so that readers never wait for a load.
    mutable std::mutex m_mutexConf;
    Snapshot m_MapCfgKeyValue;  // Guarded by m_mutexConf; never null.
    // Changes with m_MapCfgKeyValue, to a number that no other snapshot of any object ever had.
    std::atomic<std::uint64_t> m_ulGeneration{0};
    // Held while listeners are called; m_mutexEdit is then held, too, and was taken before.
    std::mutex m_mutex35114;
    std::map<unsigned int, Config35114Listener> m_listeners35114;  // Guarded by m_mutex35114.
    unsigned int m_lastListener35114 = 0;                          // Guarded by m_mutex35114.
    std::atomic<bool> m_bCfgErr{false};
    std::atomic<bool> m_bIsOnline{false};
    std::string m_strCfgName;  // Guarded by m_mutexConf.
    gvx::PublishedText m_strLocalIP;
    gvx::PublishedText m_strNetElementID;
    DEVICE_ALARM_INFO_DESC_MAP m_alarmDescMap;
    std::atomic<int> m_iRunMode{0};
    std::list<std::string> m_ListPrivateNatIP;  // Guarded by mutexToList.
    std::string m_strSubnetNatIPList;           // Guarded by m_mutexConf.
    ACE_Recursive_Thread_Mutex mutexToList;     // Guards m_ListPrivateNatIP; no other lock is taken under it.
    std::atomic<unsigned int> m_uiSyncTimeSwitch{0};
    std::atomic<unsigned int> m_uiSyncTimeInterval{0};
};

// The same object as CGvxConfigMgr::Instance().
CGvxConfigMgr* GvxConfigMgr();
