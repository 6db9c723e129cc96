#include "gvx_common/config/gvx_config_mgr.h"

#include "base/log.h"
#include "base/paths.h"
#include "base/thread_own.h"
#include "gvx_common/config/side_files_check.h"
#include "gvx_common/utility/gvx_utility.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr std::size_t kMaxPathLength = 4096;
constexpr const char* kAlarmDescriptionFile = "/alarm/gvx_nvt_alarm_description.xml";
constexpr int kMinSyncSeconds = 3600;
constexpr int kMaxSyncSeconds = 86400;

bool ResolvesAndOpens(const std::string& path) {
    const std::unique_ptr<char, decltype(&std::free)> resolved(realpath(path.c_str(), nullptr), &std::free);
    if (!resolved) {
        return false;
    }
    // Without waiting: a pipe in its place would block the start.
    const int fd = open(resolved.get(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd == -1) {
        return false;
    }
    struct stat status {};
    const bool regular = fstat(fd, &status) == 0 && S_ISREG(status.st_mode);
    close(fd);
    return regular;
}

// The other files that are rewritten at run time.
constexpr const char* kRewrittenFiles[] = {"zvs_gvx_nat.conf", "log.xml", "net.xml", "log_sftp.conf", "log_sftp.key"};

// What a half-finished save left behind is never consulted: the live file stands.
void RemoveSideFile(const char* name, const std::string& backFile) {
    if (!ResolvesAndOpens(backFile)) {
        return;
    }
    GVX_LOG_INFO("CGvxConfigMgr::Init", "Exist a backfile of %s:[%s], delete it for better.", name, backFile.c_str());
    if (std::remove(backFile.c_str()) != 0) {
        GVX_LOG_ERR("CGvxConfigMgr::Init", "Can not delete [%s], err[%d]", backFile.c_str(), errno);
    }
}

std::uint64_t NextGeneration() {
    static std::atomic<std::uint64_t> last{0};
    return ++last;
}

// A thread's own hold on the settings that it read last, so that a read takes no lock and writes to no memory that
// other threads use. A thread that reads no more keeps what it holds until it ends.
struct SettingsHold {
    std::shared_ptr<const MapCfgKeyValue> settings;
    ~SettingsHold();
};

// The same as plain data, which a read reaches without a call. Generations count from 1.
struct HeldSettings {
    std::uint64_t generation;
    const MapCfgKeyValue* settings;
};
__thread HeldSettings t_held __attribute__((tls_model("initial-exec")));

SettingsHold::~SettingsHold() {
    t_held = {};
}

}  // namespace

CGvxConfigMgr::CGvxConfigMgr()
    : m_MapCfgKeyValue(std::make_shared<const MapCfgKeyValue>()), m_ulGeneration(NextGeneration()) {}

CGvxConfigMgr::~CGvxConfigMgr() {
    ClearAlarmInfoDesccription();
}

CGvxConfigMgr* CGvxConfigMgr::Instance() {
    // Never deleted: detached threads may still read a setting while static objects end.
    static CGvxConfigMgr* const instance = new CGvxConfigMgr;
    return instance;
}

CGvxConfigMgr* GvxConfigMgr() {
    return CGvxConfigMgr::Instance();
}

int CGvxConfigMgr::Init() {
    const EditGuard editing(m_mutexEdit);
    m_mayWrite = true;
    return ReadAll();
}

int CGvxConfigMgr::Look() {
    const EditGuard editing(m_mutexEdit);
    m_mayWrite = false;
    return ReadAll();
}

// Under m_mutexEdit.
int CGvxConfigMgr::ReadAll() {
    m_waitForRestart.clear();
    LoadLocalIPFromXml();
    Publish(std::make_shared<const MapCfgKeyValue>());
    ClearAlarmInfoDesccription();
    std::string directory;
    if (get_config_directory(directory) != 0) {
        GVX_LOG_ERR("CGvxConfigMgr::Init", "CGvxConfigMgr get config directory failed");
        return ZVS_FAIL;
    }
    gvx::CheckSideFiles(directory);
    if (LoadAlarmDescriptionConfig((directory + kAlarmDescriptionFile).c_str()) != ZVS_SUCCEED) {
        GVX_LOG_ERR("CGvxConfigMgr::Init", "Load alarm description config failed.");
        return ZVS_FAIL;
    }
    const std::string confFile = directory + "/zvs_gvx.conf";
    const std::string backFile = confFile + ".bak";
    if (backFile.size() > kMaxPathLength) {
        GVX_LOG_ERR("CGvxConfigMgr::Init", "BackFile name is too long:%d.", static_cast<int>(backFile.size()));
        return ZVS_FAIL;
    }
    if (m_mayWrite) {
        RemoveSideFile("zvs_gvx.conf", backFile);
        for (const char* name : kRewrittenFiles) {
            RemoveSideFile(name, directory + "/" + name + ".bak");
        }
    }
    const int result = LoadZVSGvxConfig(confFile);
    if (result != ZVS_SUCCEED) {
        GVX_LOG_ERR("CGvxConfigMgr::Init", "Failed to load zvs gvx config");
        return result;
    }
    m_bIsOnline = false;
    m_strLocalIP.Set(GetConfValue("GVX_MESSAGE_IP", "127.0.0.1"));
    ReadSyncTime();
    UpdateIPAddressFromOmuConfig(gvx::RootedPath(GVXCONFIG_OMU_COMMON_CONFIG_PATH));
    LoadCloudConf();
    GVX_LOG_INFO("CGvxConfigMgr::Init", "Local ip is %s, Message ip is %s, Media ip is %s", GetLocalIP().c_str(),
                 GetConfValue("GVX_MESSAGE_IP", "0.0.0.0").c_str(), GetConfValue("GVX_MEDIA_IP", "0.0.0.0").c_str());
    return ZVS_SUCCEED;
}

void CGvxConfigMgr::ReadSyncTime() {
    std::string value;
    if (FindConfValue("GVX_SDK_SYNC_TIME_SWITCH", value)) {
        m_uiSyncTimeSwitch = static_cast<unsigned int>(CGvxUtility::toInt(value));
    }
    m_uiSyncTimeInterval = static_cast<unsigned int>(
        GetConfNumber("GVX_SDK_SYNC_TIME_INTERVAL", kMinSyncSeconds, kMinSyncSeconds, kMaxSyncSeconds));
}

CGvxConfigMgr::Snapshot CGvxConfigMgr::TakeSnapshot() const {
    const std::lock_guard<std::mutex> guard(m_mutexConf);
    return m_MapCfgKeyValue;
}

inline const MapCfgKeyValue& CGvxConfigMgr::View(Snapshot& held) const {
    return t_held.generation == m_ulGeneration.load(std::memory_order_acquire) ? *t_held.settings : ViewAnew(held);
}

const MapCfgKeyValue& CGvxConfigMgr::ViewAnew(Snapshot& held) const {
    static gvx::ThreadOwn<SettingsHold> holds;
    SettingsHold* const hold = holds.Get();
    if (hold == nullptr) {
        held = TakeSnapshot();
        return *held;
    }
    const std::lock_guard<std::mutex> guard(m_mutexConf);
    held.swap(hold->settings);  // what was held before may end here, and does so outside the lock
    hold->settings = m_MapCfgKeyValue;
    t_held = {m_ulGeneration, hold->settings.get()};
    return *hold->settings;
}

void CGvxConfigMgr::Publish(Snapshot settings) {
    {
        const std::lock_guard<std::mutex> guard(m_mutexConf);
        m_MapCfgKeyValue.swap(settings);
        m_ulGeneration.store(NextGeneration(), std::memory_order_release);
    }
    // The former settings end here, outside the lock, unless a reader still holds them.
}

void CGvxConfigMgr::PublishValues(const Settings& values) {
    MapCfgKeyValue changed = *TakeSnapshot();
    for (const auto& [key, value] : values) {
        changed[key] = value;
    }
    Publish(std::make_shared<const MapCfgKeyValue>(std::move(changed)));
    if (std::any_of(values.begin(), values.end(), [](const auto& value) { return Is35114Key(value.first); })) {
        Tell35114();
    }
}

bool CGvxConfigMgr::FindConfValue(const std::string& key, std::string& value) const {
    Snapshot held;
    const MapCfgKeyValue& settings = View(held);
    const auto found = settings.find(key);
    if (found == settings.end()) {
        return false;
    }
    value = found->second;
    return true;
}

std::string CGvxConfigMgr::GetConfValue(const std::string& key, const std::string& defaultValue) const {
    Snapshot held;
    const MapCfgKeyValue& settings = View(held);
    const auto found = settings.find(key);
    return found != settings.end() ? found->second : defaultValue;
}

bool CGvxConfigMgr::GetBoolConfValue(const std::string& key, bool defaultValue) const {
    return GetConfValue(key, defaultValue ? "1" : "0") != "0";
}

int CGvxConfigMgr::GetConfNumber(const std::string& key, int defaultValue, int least, int most) const {
    std::string value;
    return std::clamp(FindConfValue(key, value) ? CGvxUtility::toInt(value) : defaultValue, least, most);
}

MapCfgKeyValue CGvxConfigMgr::GetMapCfgKeyValue() const {
    return *TakeSnapshot();
}

std::string CGvxConfigMgr::GetErrorConfigName() const {
    const std::lock_guard<std::mutex> guard(m_mutexConf);
    return m_strCfgName;
}
