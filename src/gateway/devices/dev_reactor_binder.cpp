#include "gateway/devices/dev_reactor_binder.h"

#include "base/log.h"
#include "bp/cmd.h"
#include "gvx_common/config/setting_table.h"
#include "gvx_common/event/gvx_dev_reactor_mgr.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <system_error>
#include <utility>

#include <pthread.h>

namespace gvx {

DevReactorBinder::~DevReactorBinder() {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_stopMaking = true;
    }
    m_sparesWanted.notify_all();
    if (m_maker.joinable()) {
        m_maker.join();
    }
}

int DevReactorBinder::InitPool(unsigned int count) {
    int result = 0;
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        for (unsigned int made = 0; made < count && MakeSpare(lock); ++made) {
        }
        result = CGvxDevReactorMgr::Instance()->ReactorPoolInit(count);
    }
    if (result == 0 && !m_maker.joinable()) {
        try {
            m_maker = std::thread(&DevReactorBinder::MakeSpares, this);
            pthread_setname_np(m_maker.native_handle(), "GvxReactorMaker");
        } catch (const std::system_error& fault) {
            GVX_LOG_WARN("Init reactor pool.", "Reactors are made as they are needed: there is no thread for it, %s.",
                         fault.what());
        }
    }
    return result;
}

void DevReactorBinder::MakeSpares() {
    constexpr std::chrono::seconds kPauseAfterFailure(1);
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_stopMaking) {
        if (CGvxDevReactorMgr::Instance()->SparesWanted() == 0) {
            m_sparesWanted.wait(lock);
            continue;
        }
        if (MakeSpare(lock)) {
            continue;
        }
        if (!m_stopMaking) {
            m_sparesWanted.wait_for(lock, kPauseAfterFailure);
        }
    }
}

CGvxReactor* DevReactorBinder::ScheduleLocked(const std::string& key) {
    CGvxReactor* const reactor = CGvxDevReactorMgr::Instance()->ScheduleReactor(key);
    m_sparesWanted.notify_one();
    return reactor;
}

// Makes one while the lock is open. False when it cannot be had.
bool DevReactorBinder::MakeSpare(std::unique_lock<std::mutex>& lock) {
    CGvxDevReactorMgr* const pool = CGvxDevReactorMgr::Instance();
    const std::size_t number = pool->BeginMaking();
    lock.unlock();
    CountedPtr<CGvxReactor> reactor = CGvxDevReactorMgr::MakeReactor(number);
    lock.lock();
    return pool->EndMaking(number, std::move(reactor));
}

// Makes what the next binding would make. What is not made here, the pool makes, or says that it cannot.
void DevReactorBinder::PrepareReactors() {
    std::unique_lock<std::mutex> lock(m_mutex);
    while (CGvxDevReactorMgr::Instance()->ReactorsNeeded() > 0 && MakeSpare(lock)) {
    }
}

CGvxReactor* DevReactorBinder::Bind(const std::string& key) {
    PrepareReactors();
    const std::lock_guard<std::mutex> lock(m_mutex);
    ActOnNotesLocked();
    return ScheduleLocked(key);
}

CGvxReactor* DevReactorBinder::Find(const std::string& key) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    ActOnNotesLocked();
    return CGvxDevReactorMgr::Instance()->FindReactor(key);
}

void DevReactorBinder::SetMaxDevices(std::size_t count) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_maxDevices = count;
}

CGvxReactor* DevReactorBinder::BindForAddition(const std::string& key, std::string& reason) {
    PrepareReactors();
    const std::lock_guard<std::mutex> lock(m_mutex);
    ActOnNotesLocked();
    if (!HasPlaceLocked(key, reason)) {
        return nullptr;
    }
    // All that takes memory comes first: a key that is bound without its note would stay bound.
    std::list<Note> note(1, {key, true, false});
    decltype(m_waitingAdditions) waiting{{key, 0}};
    CGvxReactor* reactor = BindLocked(key);
    if (reactor == nullptr) {
        reason = "There is no device reactor.";
        return nullptr;
    }
    m_waitingAdditions.merge(waiting);
    ++m_waitingAdditions[key];
    const std::lock_guard<std::mutex> notesLock(m_notesMutex);
    m_waitingNotes.splice(m_waitingNotes.end(), note);
    return reactor;
}

bool DevReactorBinder::HasPlaceLocked(const std::string& key, std::string& reason) const {
    if (m_bound.count(key) != 0) {
        return true;
    }
    if (m_bound.size() >= m_maxDevices) {
        reason = "The gateway has " + std::to_string(m_maxDevices) + " devices, the most that MAX_DEVICE_NUM allows.";
        return false;
    }
    if (m_gone.count(key) == 0 && m_gone.size() >= m_maxDevices) {
        reason = "More devices have gone or failed of late than MAX_DEVICE_NUM allows for; a new one has to wait.";
        return false;
    }
    return true;
}

CGvxReactor* DevReactorBinder::BindLocked(const std::string& key) {
    CGvxReactor* reactor = ScheduleLocked(key);
    if (reactor != nullptr) {
        m_gone.erase(key);
        m_bound.insert(key);
    }
    return reactor;
}

void DevReactorBinder::ReleaseLocked(const std::string& key) {
    CGvxDevReactorMgr::Instance()->FindAndReleaseReactor(key);
    if (m_bound.erase(key) != 0) {
        m_gone[key] = BP::OSTime::Time();
    }
}

void DevReactorBinder::Sweep() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    ActOnNotesLocked();
    CGvxDevReactorMgr::Instance()->DelExpiredHistoryTrack();
    const std::time_t now = BP::OSTime::Time();
    const long long limit = SettingNumber(Setting::HISTORY_TRACK_EXPIRED_TIME);
    for (auto gone = m_gone.begin(); gone != m_gone.end();) {
        gone = now - gone->second > limit ? m_gone.erase(gone) : std::next(gone);
    }
}

std::vector<CGvxReactor*> DevReactorBinder::Reactors() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return CGvxDevReactorMgr::Instance()->Reactors();
}

void DevReactorBinder::SettleAddition(const std::string& key, bool deviceExists) noexcept {
    const std::lock_guard<std::mutex> lock(m_notesMutex);
    const auto note = std::find_if(m_waitingNotes.begin(), m_waitingNotes.end(),
                                   [&key](const Note& each) { return each.key == key; });
    if (note != m_waitingNotes.end()) {
        note->deviceExists = deviceExists;
        m_notes.splice(m_notes.end(), m_waitingNotes, note);
    }
}

void DevReactorBinder::SettleDeletion(const std::string& key) {
    const std::lock_guard<std::mutex> lock(m_notesMutex);
    m_notes.push_back({key, false, false});
}

void DevReactorBinder::ActOnNotesLocked() {
    std::list<Note> notes;
    {
        const std::lock_guard<std::mutex> lock(m_notesMutex);
        notes.swap(m_notes);
    }
    for (const Note& note : notes) {
        SettleLocked(note);
    }
}

void DevReactorBinder::SettleLocked(const Note& note) {
    const auto waiting = m_waitingAdditions.find(note.key);
    if (note.addition && waiting != m_waitingAdditions.end() && --waiting->second == 0) {
        m_waitingAdditions.erase(waiting);
    }
    if (note.deviceExists) {
        BindLocked(note.key);
    } else if (m_waitingAdditions.count(note.key) == 0) {
        ReleaseLocked(note.key);
    }
}

}  // namespace gvx
