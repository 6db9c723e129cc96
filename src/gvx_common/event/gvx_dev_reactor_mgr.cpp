#include "gvx_common/event/gvx_dev_reactor_mgr.h"

#include "base/bounded_string.h"
#include "base/log.h"
#include "bp/cmd.h"
#include "gvx_common/config/setting_table.h"
#include "gvx_common/utility/gvx_utility.h"

#include <algorithm>
#include <limits>
#include <new>

namespace {

constexpr unsigned long kDeviceStackBytes = 1048576;
constexpr unsigned int kPoolStep = 8;
// One bound device weighs as much as that many remembered ones.
constexpr int kTracksPerDevice = 128;

long MaxPoolSize() {
    return static_cast<long>(gvx::SettingNumber(gvx::Setting::MAX_DEV_REACTOR_NUM));
}

const char* Outcome(bool success) {
    return success ? "success" : "fail";
}

}  // namespace

CGvxDevReactorMgr CGvxDevReactorMgr::m_instance;

CGvxDevReactorMgr* CGvxDevReactorMgr::Instance() {
    return &m_instance;
}

CGvxDevReactorMgr* GvxDevReactorMgr() {
    return CGvxDevReactorMgr::Instance();
}

CGvxDevReactorMgr::CGvxDevReactorMgr() = default;

CGvxDevReactorMgr::~CGvxDevReactorMgr() {
    m_devReactorVector.clear();
    m_spareReactors.clear();
    m_devIDReactorMap.clear();
    m_devReactorHistoryTrack.clear();
}

CGvxReactor* CGvxDevReactorMgr::ScheduleReactor(const std::string& key) {
    if (const auto it = m_devIDReactorMap.find(key); it != m_devIDReactorMap.end()) {
        return it->second;
    }
    CGvxReactor* reactor = FindReactorFromHistory(key);
    if (reactor == nullptr) {
        reactor = AllocReactorFromPool(key);
    }
    if (reactor == nullptr) {
        GVX_LOG_ERR_CODE("Schedule reactor.", ZVS_NULL_POINTER, "key[%s], reactor is NULL.", key.c_str());
        return nullptr;
    }
    reactor->AttachReactor();
    const bool inserted = m_devIDReactorMap.emplace(key, reactor).second;
    GVX_LOG(OM_LOG_DEBUG, "Schedule reactor.", "bind key[%s], reactor[%p], result %s.", key.c_str(),
            static_cast<void*>(reactor), Outcome(inserted));
    if (IsNeedExpandReactorPool()) {
        ExpandReactorPool(kPoolStep);
    }
    return reactor;
}

CGvxReactor* CGvxDevReactorMgr::FindReactor(const std::string& key) {
    const auto it = m_devIDReactorMap.find(key);
    return it != m_devIDReactorMap.end() ? it->second : nullptr;
}

CGvxReactor* CGvxDevReactorMgr::FindAndReleaseReactor(const std::string& key) {
    const auto it = m_devIDReactorMap.find(key);
    if (it == m_devIDReactorMap.end()) {
        return FindReactorFromHistory(key);
    }
    CGvxReactor* const reactor = it->second;
    UpdateReactorUnbindTime(key);
    m_devIDReactorMap.erase(it);
    reactor->DetachReactor();
    GVX_LOG(OM_LOG_DEBUG, "Release reactor.", "unbind key[%s], reactor[%p].", key.c_str(), static_cast<void*>(reactor));
    return reactor;
}

CGvxReactor* CGvxDevReactorMgr::FindReactorFromHistory(const std::string& key) {
    const auto it = m_devReactorHistoryTrack.find(key);
    if (it == m_devReactorHistoryTrack.end()) {
        return nullptr;
    }
    it->second.m_scheduleTime = BP::OSTime::Time();
    GVX_LOG_INFO("Schedule reactor.", "key[%s], history reactor[%p].", key.c_str(),
                 static_cast<void*>(it->second.m_reactor));
    return it->second.m_reactor;
}

CGvxReactor* CGvxDevReactorMgr::AllocReactorFromPool(const std::string& key) {
    CGvxReactor* const best = LeastLoadedReactor();
    if (best != nullptr) {
        const bool inserted = m_devReactorHistoryTrack.emplace(key, ReactorTrack{best, BP::OSTime::Time()}).second;
        if (inserted) {
            best->IncreaseHistoryTrackNum();
        }
        GVX_LOG(OM_LOG_DEBUG, "Schedule reactor.", "bind key[%s], new reactor[%p], result %s.", key.c_str(),
                static_cast<void*>(best), Outcome(inserted));
    }
    return best;
}

CGvxReactor* CGvxDevReactorMgr::LeastLoadedReactor() const {
    CGvxReactor* best = nullptr;
    int least = std::numeric_limits<int>::max();
    for (const auto& reactor : m_devReactorVector) {
        const int load = reactor->GetEventHandleNum() * kTracksPerDevice + reactor->GetHistoryTrackNum();
        if (load < least) {
            best = reactor.get();
            least = load;
        }
        if (load == 0) {
            break;
        }
    }
    return best;
}

void CGvxDevReactorMgr::UpdateReactorUnbindTime(const std::string& key) {
    const auto it = m_devReactorHistoryTrack.find(key);
    if (it == m_devReactorHistoryTrack.end()) {
        return;
    }
    it->second.m_scheduleTime = BP::OSTime::Time();
    GVX_LOG(OM_LOG_DEBUG, "Release reactor.",
            "UpdateReactorUnbindTime, unbind key[%s], history reactor[%p], scheduleTime[%ld].", key.c_str(),
            static_cast<void*>(it->second.m_reactor), static_cast<long>(it->second.m_scheduleTime));
}

void CGvxDevReactorMgr::DelExpiredHistoryTrack() {
    const long limit = static_cast<long>(gvx::SettingNumber(gvx::Setting::HISTORY_TRACK_EXPIRED_TIME));
    const std::time_t now = BP::OSTime::Time();
    for (auto it = m_devReactorHistoryTrack.begin(); it != m_devReactorHistoryTrack.end();) {
        const ReactorTrack& track = it->second;
        if (m_devIDReactorMap.count(it->first) != 0 || now - track.m_scheduleTime <= limit) {
            ++it;
            continue;
        }
        GVX_LOG(OM_LOG_DEBUG, "Expire history.",
                "DelExpiredHistoryTrack, unbind key[%s], history reactor[%p], scheduleTime[%ld].", it->first.c_str(),
                static_cast<void*>(track.m_reactor), static_cast<long>(track.m_scheduleTime));
        track.m_reactor->DecreaseHistoryTrackNum();
        it = m_devReactorHistoryTrack.erase(it);
    }
}

std::vector<CGvxReactor*> CGvxDevReactorMgr::Reactors() const {
    std::vector<CGvxReactor*> reactors;
    for (const auto& reactor : m_devReactorVector) {
        reactors.push_back(reactor.get());
    }
    return reactors;
}

bool CGvxDevReactorMgr::IsNeedExpandReactorPool() {
    const std::size_t size = m_devReactorVector.size();
    if (static_cast<long>(size) >= MaxPoolSize()) {
        GVX_LOG_INFO("Expand reactor pool.", "ReactorPool,current size[%lu], cannot expand", size);
        return false;
    }
    return BoundDevices() >= static_cast<long>(size) - 1;
}

long CGvxDevReactorMgr::BoundDevices() const {
    long bound = 0;
    for (const auto& reactor : m_devReactorVector) {
        bound += reactor->GetEventHandleNum();
    }
    return bound;
}

unsigned int CGvxDevReactorMgr::ReactorsNeeded() const {
    const long size = static_cast<long>(m_devReactorVector.size());
    const long spares = static_cast<long>(m_spareReactors.size());
    const long needed = std::min<long>(kPoolStep, MaxPoolSize() - size - static_cast<long>(m_inMaking)) - spares;
    return needed > 0 && BoundDevices() + 1 >= size - 1 ? static_cast<unsigned int>(needed) : 0;
}

// Two steps of growth, so that a burst of devices finds the second while the first is replaced.
unsigned int CGvxDevReactorMgr::SparesWanted() const {
    const long size = static_cast<long>(m_devReactorVector.size());
    const long spares = static_cast<long>(m_spareReactors.size());
    const long wanted = std::min<long>(2 * kPoolStep, MaxPoolSize() - size) - spares - static_cast<long>(m_inMaking);
    return wanted > 0 && BoundDevices() + kPoolStep >= size - 1 ? static_cast<unsigned int>(wanted) : 0;
}

void CGvxDevReactorMgr::ExpandReactorPool(unsigned int count) {
    const long size = static_cast<long>(m_devReactorVector.size());
    const long max = MaxPoolSize() - static_cast<long>(m_inMaking);
    if (size + static_cast<long>(count) > max) {
        count = max > size ? static_cast<unsigned int>(max - size) : 0;
    }
    GVX_LOG_INFO("Expand reactor pool.", "ReactorPool,current size[%lu], will expand size[%u]",
                 m_devReactorVector.size(), count);
    ReactorPoolInit(count);
}

int CGvxDevReactorMgr::ReactorPoolInit(unsigned int count) {
    GVX_LOG(OM_LOG_DEBUG, "Init reactor pool.", "int :ReactorPool,size[%u]", count);
    for (unsigned int i = 0; i < count; ++i) {
        if (m_spareReactors.empty()) {
            const std::size_t number = BeginMaking();
            if (!EndMaking(number, MakeReactor(number))) {
                return 1;
            }
        }
        m_devReactorVector.push_back(std::move(m_spareReactors.front()));
        m_spareReactors.pop_front();
    }
    return 0;
}

std::size_t CGvxDevReactorMgr::BeginMaking() {
    ++m_inMaking;
    return m_nextNumber++;
}

bool CGvxDevReactorMgr::EndMaking(std::size_t number, gvx::CountedPtr<CGvxReactor> reactor) {
    --m_inMaking;
    if (reactor == nullptr) {
        m_nextNumber -= number + 1 == m_nextNumber ? 1 : 0;
        return false;
    }
    try {
        m_spareReactors.push_back(std::move(reactor));
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

gvx::CountedPtr<CGvxReactor> CGvxDevReactorMgr::MakeReactor(std::size_t number) {
    char name[16] = {};
    snprintf_s(name, sizeof(name), sizeof(name) - 1, "Device%u", static_cast<unsigned int>(number));
    gvx::CountedPtr<CGvxReactor> reactor;
    try {
        reactor = gvx::MakeCounted<CGvxReactor>(kDeviceStackBytes, name);
    } catch (const std::bad_alloc&) {
        reactor = nullptr;
    }
    // A reactor without event loop or thread would take devices and serve none of them.
    if (reactor == nullptr || !reactor->IsRunning()) {
        GVX_LOG_ERR("Init reactor pool.", "Apply for reactor resources failed.");
        return nullptr;
    }
    return reactor;
}
