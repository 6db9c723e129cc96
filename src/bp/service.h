#pragma once

#include <cstdint>
#include <functional>
#include <string>

class ACE_Message_Block;

namespace BP {

enum enSubsysType : int {
    SUBSYS_SCU = 1,
    SUBSYS_MU = 3,
    SUBSYS_GVX = 4,
    SUBSYS_OMU = 6,
    SUBSYS_IMGU = 10,
};

// The service that this process is to the platform. The gateway supplies it.
class IService {
public:
    virtual ~IService() = default;
    virtual std::uint32_t GetServiceID() const = 0;  // never 0
};

// What the layers below ask of the device table. The gateway supplies it; without one each question is answered
// by "not found". Any thread.
class IDeviceMgr {
public:
    virtual ~IDeviceMgr() = default;
    // A device SDK reported an exception; the block holds an ADAPTER_COMMON_MESSAGE and stays the caller's.
    virtual int ProcessSdkException(const ACE_Message_Block* block) = 0;
    // The device for which this process sent the request with that sequence number; empty when unknown.
    virtual std::string GetReqDevID(std::uint32_t seqID) = 0;
    // The cluster moves tasks to this node (the main-service link has gone, or it says so).
    virtual int HandleClusterTaskShiftIn(int reason, const std::string& nodeCode) = 0;
    // The address of the device of that code, empty when it has none. False when there is no such device.
    virtual bool FindMainDevice(const std::string& /*devCode*/, std::string& /*address*/) { return false; }
    // The code of the device to which a code of its own or of one of its channels belongs. False when it is not known.
    virtual bool FindOwner(const std::string& /*code*/, std::string& /*devCode*/) { return false; }
};

struct CDeviceMgr {
    // Not owned; null takes it away.
    static void SetImplementation(IDeviceMgr* implementation);
    static int ProcessSdkException(const ACE_Message_Block* block);  // 1 without an implementation
    static std::string GetReqDevID(std::uint32_t seqID);
    static int HandleClusterTaskShiftIn(int reason, const std::string& nodeCode);  // 1 without an implementation
    static bool FindMainDevice(const std::string& devCode, std::string& address);
    static bool FindOwner(const std::string& code, std::string& devCode);
};

// What the command layer's flow control tells about one of its threads. Numbers in host order.
struct fluxControlWarnInfo {
    std::uint32_t uiThreadID;
    bool bIsFluxControlWarn;
    std::uint32_t uiLevel;
    std::uint32_t uiNameLength;  // bytes at pThreadName, a terminator included or not
    char pThreadName[1];         // of variable length
};
using FLUX_CONTROL_WARN_INFO = fluxControlWarnInfo;

// Device protocols by their number.
enum enDevProtocolType : int {
    DEV_PROTOCOL_TYPE_ONVIF = 1,
    DEV_PROTOCOL_TYPE_T28181 = 2,
    DEV_PROTOCOL_TYPE_HIKSDK = 3,
    DEV_PROTOCOL_TYPE_TEYES = 4,
    DEV_PROTOCOL_TYPE_DHSDK = 5,
};

// One loaded plug-in, as the registry tells about it.
struct CPluginInfo {
    std::string m_strName;  // such as "file"
    std::string m_strVersion;
    std::string m_strPath;  // of the shared object
    std::string m_strMaker;

    // Switches of the plug-in; empty where it has none.
    std::function<int(std::uint32_t)> m_sdkLogSwitch;
    std::function<int(std::uint32_t)> m_sipStackLogSwitch;

    // The log of the device SDK behind the plug-in, and of its SIP stack: 0 off, 1 on. The plug-in's own answer, 0 for
    // success; 1 where it has no such switch.
    int SetSDKLogSwitch(std::uint32_t on) const { return m_sdkLogSwitch ? m_sdkLogSwitch(on) : 1; }
    int SetSipStackLogSwitch(std::uint32_t on) const { return m_sipStackLogSwitch ? m_sipStackLogSwitch(on) : 1; }
};

class IPluginRegistry {
public:
    virtual ~IPluginRegistry() = default;
    // Tells the main service which plug-ins this gateway has. 0 for success.
    virtual int RegisterPlugin() = 0;
    // False when there is no such plug-in.
    virtual bool FindPlugin(const std::string& name, CPluginInfo& info) = 0;
    // Finds the plug-in of an enDevProtocolType, which is loaded where it is not yet. False when there is none.
    virtual bool InstallPlugin(int /*protocol*/, CPluginInfo& /*info*/) { return false; }
    // Has every plug-in start anew. 0 for success.
    virtual int SendRebootPluginMsg() { return 1; }
};

struct CPluginMgr {
    static void SetImplementation(IPluginRegistry* implementation);  // not owned; null takes it away
    static int RegisterPlugin();                                     // 1 without an implementation
    static bool FindPlugin(const std::string& name, CPluginInfo& info);
    static bool InstallPlugin(int protocol, CPluginInfo& info);  // false without an implementation
    static int SendRebootPluginMsg();                            // 1 without an implementation
};

}  // namespace BP
