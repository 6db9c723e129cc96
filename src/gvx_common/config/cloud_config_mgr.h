#pragma once

#include <atomic>
#include <memory>
#include <mutex>

class bpInotifyEventWatcher;
class InotifyConfigHandler;

// Whether the cloud side has taken this gateway over: the flag of cloudconfig.xml, followed as the file changes. No
// alarm leaves before it is set. Init and UnInit are called by one thread; the flag is read on any.
class CCloudConfigMgr {
public:
    // The singleton; never null, alive until the process ends.
    static CCloudConfigMgr* Instance();

    CCloudConfigMgr(const CCloudConfigMgr&) = delete;
    CCloudConfigMgr& operator=(const CCloudConfigMgr&) = delete;

    // Reads the file and begins to watch it, whether it and its folder are there or not. 0; 1 when the file cannot be
    // read, holds an empty flag, or cannot be watched. A second call begins anew.
    int Init();

    // Ends the watching; the flag stays.
    void UnInit();

    // Runs on the watcher's thread after each change of the file. A file that can be read and has no flag takes it
    // away; one that cannot be read, or whose flag is empty, leaves it as it was. 0 or 1.
    static int CloudConfigFileCallBack();

    bool GetCloudConfigInited() const noexcept { return m_inited; }
    void SetCloudConfigInited(bool inited) noexcept { m_inited = inited; }

private:
    CCloudConfigMgr();
    ~CCloudConfigMgr();

    int ReadFlag();

    // Held for a whole reading, so that what was read last is what stays; no other lock is taken under it.
    std::mutex m_mutexRead;
    bool m_toldMissing = false;  // Guarded by m_mutexRead.

    std::unique_ptr<bpInotifyEventWatcher> m_pInotifyWatcher;
    std::unique_ptr<InotifyConfigHandler> m_notifyCloudConfigHandler;
    std::atomic<bool> m_inited{false};
};
