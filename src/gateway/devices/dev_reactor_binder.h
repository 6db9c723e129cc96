#pragma once

#include <condition_variable>
#include <cstddef>
#include <ctime>
#include <list>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

class CGvxReactor;

namespace gvx {

// The one door to CGvxDevReactorMgr, which has no lock of its own: every caller in the process goes through here and is
// serialised by m_mutex. Reactors live until the process ends, so a result stays valid. Nothing is pushed, and no
// session work runs, while the mutex is held.
//
// Session work calls the Settle operations alone: they leave a note, and the next of the other operations acts on it
// first, so that no work waits here. Those may be called by any thread that serves no reactor's upcall: the link I/O
// thread, timers, the one that starts and stops. A new reactor waits for its thread, so a thread of this object makes
// reactors before they are needed; only a burst that outruns it makes its own, and before the mutex is taken.
class DevReactorBinder {
public:
    static constexpr std::size_t kDefaultMaxDevices = 10000;

    DevReactorBinder() = default;
    ~DevReactorBinder();
    DevReactorBinder(const DevReactorBinder&) = delete;
    DevReactorBinder& operator=(const DevReactorBinder&) = delete;

    // Fills the pool and begins to make spare reactors; 0 for success.
    int InitPool(unsigned int count);

    // The reactor of a key that is no device, bound when needed; null when the pool is empty.
    CGvxReactor* Bind(const std::string& key);
    // The reactor of a bound key, or null. A device is bound from its first addition in the queue to its deletion.
    CGvxReactor* Find(const std::string& key);

    // Devices that may be bound at a time. As many again may have gone and still have their history; further ones are
    // refused until that has expired, so that additions which fail cannot fill the memory.
    void SetMaxDevices(std::size_t count);

    // An addition of the device is about to be queued. Until it is settled, the key stays bound: what arrives behind
    // the addition must queue behind it. Null, with a sentence for the sender, when the key finds no place.
    CGvxReactor* BindForAddition(const std::string& key, std::string& reason);
    // That addition was served, or could not be queued. Keeps the key bound when the device exists, and releases it
    // otherwise unless more additions wait. Any thread.
    void SettleAddition(const std::string& key, bool deviceExists) noexcept;
    // The device was deleted. Any thread.
    void SettleDeletion(const std::string& key);

    // Forgets the history of devices that are long gone.
    void Sweep();

    // All reactors of the pool; each stays until the process ends.
    std::vector<CGvxReactor*> Reactors();

private:
    struct Note {
        std::string key;
        bool addition;
        bool deviceExists;
    };

    bool MakeSpare(std::unique_lock<std::mutex>& lock);
    void PrepareReactors();
    void MakeSpares();
    CGvxReactor* ScheduleLocked(const std::string& key);
    CGvxReactor* BindLocked(const std::string& key);
    void ReleaseLocked(const std::string& key);
    bool HasPlaceLocked(const std::string& key, std::string& reason) const;
    void ActOnNotesLocked();
    void SettleLocked(const Note& note);

    std::mutex m_mutex;  // Guards CGvxDevReactorMgr and all down to m_notesMutex.
    std::map<std::string, std::size_t> m_waitingAdditions;
    std::set<std::string> m_bound;              // devices alone
    std::map<std::string, std::time_t> m_gone;  // devices that have history alone, and since when
    std::size_t m_maxDevices = kDefaultMaxDevices;
    std::thread m_maker;
    std::condition_variable m_sparesWanted;
    bool m_stopMaking = false;
    std::mutex m_notesMutex;  // Innermost; guards what follows.
    std::list<Note> m_notes;
    std::list<Note> m_waitingNotes;  // one for each addition that waits: to settle it takes no memory
};

}  // namespace gvx
