#pragma once

#include "gvx_common/alarm/gvx_dev_err.h"

#include <ace/Thread_Mutex.h>

#include <atomic>
#include <condition_variable>
#include <cstdarg>
#include <cstddef>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

// Tells the platform in words which device failed, when and why. A plug-in reports from the thread on which its
// operation was called, and the answer to that request carries the report; or it reports from a thread of its own,
// with the link of the device, and the report goes to the service control unit as a message. Reports are advisory: a
// failure here is logged and reaches nobody else.
//
// Every operation may be called from any thread, save where it says otherwise. mutexToList and mutexToMap are never
// held together, and neither is held while a message is sent.
class GVXErrorMgr {
public:
    // How many reports may wait to be sent: a further one is taken while fewer than this wait.
    static constexpr std::size_t kMaxWaitingReports = 41;
    // From this age on, in seconds, a kept report is given up, and an equal report is sent again.
    static constexpr long long kKeptReportSeconds = 61;
    static constexpr long long kOverlapSeconds = 31;

    // The one object, made with its thread at the first call; null only without memory. Valid until release.
    static GVXErrorMgr* getInstance();
    // Ends the thread and deletes the object with all reports. Nobody may be inside it or use it later; a further
    // getInstance makes a new one.
    static void release();

    // An object of one's own has no thread: its owner calls reportPass.
    GVXErrorMgr() = default;
    ~GVXErrorMgr();
    GVXErrorMgr(const GVXErrorMgr&) = delete;
    GVXErrorMgr& operator=(const GVXErrorMgr&) = delete;

    // Ends the thread within one pass; kept reports are not given out any more. reWork undoes it. One thread at a time.
    void stopWork();
    void reWork();

    // Keeps a report for the answer to the request that this thread serves; a second one adds its device and channel
    // to the first. `func` names the reporting function and stands in the log; `operation` and the printed text make
    // the detail "<operation> failed because <text>.", the text at most 4096 characters, else none. None of the
    // first three texts and `operation` may be null: the report is then dropped with a log line.
    void reportError(const char* func, const char* devCode, const char* channelCode, int errorCode,
                     const char* operation, const char* format, ...) __attribute__((format(printf, 7, 8)));

    // The same outside any request: queued, and sent on behalf of that link. One device's same code is sent once in
    // about 30 seconds. A report beyond the limit is dropped.
    void reportHstError(const char* linkID, const char* func, const char* devCode, const char* channelCode,
                        int errorCode, const char* operation, const char* format, ...)
        __attribute__((format(printf, 8, 9)));

    // Moves the calling thread's report into xml, with errorCode instead of its own unless that is -1. 0; 1 when there
    // is none or the work is stopped, and xml is then unchanged; ZVS_MU_LOCK_NOT_INIT_OK without the lock.
    int getXmlInfoByTidWithDestory(CBB::CXml& xml, int errorCode);

    // Drops what the calling thread's report was kept for; without a line when there is none. What serves requests
    // calls it ahead of each, so that a report never leaves with the answer to another one.
    void forgetErrRsp();
    // Drop one kept report or the first that waits to be sent; or all of a kind.
    void eraseErrRsp(int tid);
    void eraseErrRpt();
    void removeAllErrRsp();
    void removeAllErrRpt();
    void removeAllErr();

    // Whether one more report may wait. The caller holds mutexToList or takes the answer for a hint.
    bool checkEnableStorageRpt() const;
    bool checkEnableStorageRptSubruleCount() const;
    bool checkEnableStorageRptSubruleMemory() const;

    // One pass of the report thread: sends the first waiting report, then gives up what has aged. On that thread, or
    // on the owner's where there is none.
    void reportPass();

    // How many reports are kept for responses, and how many wait to be sent.
    std::size_t countErrRsp() const;
    std::size_t countErrRpt() const;

private:
    // Counts the report out of g_bp_memstat.
    struct ReportDeleter {
        void operator()(GVXDevErr* err) const;
    };
    using ReportPtr = std::unique_ptr<GVXDevErr, ReportDeleter>;

    int initial();
    int initialReportThread();
    void reportThread();
    // True when the work is stopped, at once or while waiting.
    bool waitForNextPass();

    static std::string getDetailError(const char* operation, const char* format, va_list args)
        __attribute__((format(printf, 2, 0)));
    static std::string getTimeString();
    static void fillReport(GVXDevErr& err, const char* cDevCode, const char* cChannelCode, int errorCode,
                           const std::string& detail);

    void saveError(int tid, const char* cDevCode, const char* cChannelCode, int errorCode, const char* cErrDetail);
    void saveHstError(const char* cLinkID, const char* cDevCode, const char* cChannelCode, int errorCode,
                      const char* cErrDetail);
    void saveRspErrToMap(int tid, GVXDevErr& err);
    void saveReportToList(GVXDevErr& err);
    // The caller holds mutexToMap. 0 and the report, or 1.
    int getStruErrUsedTid(int tid, GVXDevErr*& err) const;
    void eraseErrRspLocked(int tid);

    static ReportPtr copyReport(const GVXDevErr& err);  // null without memory
    ReportPtr popReport();                              // null when none waits
    void sendFirstReport(long long now);
    void CheckOverLap(GVXDevErr& report) const;
    void recordOverLap(const GVXDevErr& report, long long now);
    static void sendErrorToSCU(GVXDevErr* struErr, const std::string& linkID, const std::string& transID);
    void ageKeptReports(long long now);
    void ageOverLap(long long now);

    static GVXErrorMgr* m_this;               // Guarded by mutexToInstance.
    mutable ACE_Thread_Mutex mutexToList;     // guards m_lstErr
    mutable ACE_Thread_Mutex mutexToMap;      // guards m_mapError
    static ACE_Thread_Mutex mutexToInstance;  // guards m_this; outermost, and held while the thread is made

    std::list<ReportPtr> m_lstErr;        // reports to send
    std::map<int, ReportPtr> m_mapError;  // kept reports by thread identifier
    std::atomic<std::size_t> m_kept{0};   // how many those are; written under mutexToMap
    // Device and code to the time of sending; of the report thread alone.
    std::map<std::pair<std::string, int>, long long> m_mapOverLap;
    std::thread m_ReportThreadID;
    std::atomic<bool> m_bInitial{false};
    std::atomic<bool> m_StopWork{false};

    std::mutex m_wakeMutex;  // guards no data: a stop that is told under it is not slept through
    std::condition_variable m_wake;
};
