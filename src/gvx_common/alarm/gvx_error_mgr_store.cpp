#include "gvx_common/alarm/gvx_error_mgr.h"

#include "base/cbb_xml.h"
#include "base/log.h"

#include <ace/Guard_T.h>

#include <iterator>
#include <new>
#include <utility>

#include <unistd.h>

// Reports that wait: those kept for a response, by thread, and those to be sent.

void GVXErrorMgr::ReportDeleter::operator()(GVXDevErr* err) const {
    delete err;
    --g_bp_memstat;
}

GVXErrorMgr::ReportPtr GVXErrorMgr::copyReport(const GVXDevErr& err) {
    ReportPtr copy(new (std::nothrow) GVXDevErr(err));
    if (copy != nullptr) {
        ++g_bp_memstat;
    }
    return copy;
}

void GVXErrorMgr::saveRspErrToMap(int tid, GVXDevErr& err) {
    const ACE_Guard<ACE_Thread_Mutex> guard(mutexToMap);
    GVXDevErr* kept = nullptr;
    if (getStruErrUsedTid(tid, kept) == ZVS_SUCCEED) {
        kept->addDevErr(err);
        return;
    }
    ReportPtr pDevErrStru = copyReport(err);
    GVX_CHECK_NULL_RETURN_VOID(pDevErrStru);
    m_mapError.emplace(tid, std::move(pDevErrStru));
}

void GVXErrorMgr::saveReportToList(GVXDevErr& err) {
    const ACE_Guard<ACE_Thread_Mutex> guard(mutexToList);
    if (!checkEnableStorageRpt()) {
        return;
    }
    ReportPtr pGVXDevErr = copyReport(err);
    GVX_CHECK_NULL_RETURN_VOID(pGVXDevErr);
    m_lstErr.push_back(std::move(pGVXDevErr));
}

bool GVXErrorMgr::checkEnableStorageRpt() const {
    return checkEnableStorageRptSubruleCount() && checkEnableStorageRptSubruleMemory();
}

bool GVXErrorMgr::checkEnableStorageRptSubruleCount() const {
    return m_lstErr.size() < kMaxWaitingReports;
}

bool GVXErrorMgr::checkEnableStorageRptSubruleMemory() const {
    return true;  // a report is small, and the count rule bounds them all
}

int GVXErrorMgr::getStruErrUsedTid(int tid, GVXDevErr*& err) const {
    const auto entry = m_mapError.find(tid);
    if (entry == m_mapError.end()) {
        return ZVS_FAIL;
    }
    err = entry->second.get();
    return ZVS_SUCCEED;
}

int GVXErrorMgr::getXmlInfoByTidWithDestory(CBB::CXml& xml, int errorCode) {
    const ACE_Guard<ACE_Thread_Mutex> guard(mutexToMap);
    if (!guard.locked()) {
        return ZVS_MU_LOCK_NOT_INIT_OK;
    }
    if (m_StopWork) {
        return ZVS_FAIL;
    }
    const int tid = gettid();
    GVXDevErr* err = nullptr;
    int result = getStruErrUsedTid(tid, err);
    if (result != ZVS_SUCCEED) {
        return result;
    }
    if (errorCode != -1) {
        err->nErrorCode = errorCode;
    }
    result = err->fromStruToXml(xml);
    if (result != ZVS_SUCCEED) {
        GVX_LOG_ERR("getXmlInfoByTidWithDestory", "fromStruToXml failed");
    }
    GVX_LOG_INFO("getXmlInfoByTidWithDestory", "xml=%s", xml.ToString().c_str());
    eraseErrRspLocked(tid);
    return result;
}

void GVXErrorMgr::eraseErrRsp(int tid) {
    const ACE_Guard<ACE_Thread_Mutex> guard(mutexToMap);
    eraseErrRspLocked(tid);
}

void GVXErrorMgr::eraseErrRspLocked(int tid) {
    if (m_mapError.empty()) {
        GVX_LOG_ERR("eraseErrRsp", "m_mapError is empty");
        return;
    }
    const auto entry = m_mapError.find(tid);
    if (entry == m_mapError.end()) {
        GVX_LOG_ERR("eraseErrRsp", "cann't find nTid in m_mapError ");
        return;
    }
    m_mapError.erase(entry);
}

GVXErrorMgr::ReportPtr GVXErrorMgr::popReport() {
    const ACE_Guard<ACE_Thread_Mutex> guard(mutexToList);
    if (m_lstErr.empty()) {
        return nullptr;
    }
    ReportPtr first = std::move(m_lstErr.front());
    m_lstErr.pop_front();
    return first;
}

void GVXErrorMgr::eraseErrRpt() {
    popReport();
}

void GVXErrorMgr::removeAllErrRsp() {
    const ACE_Guard<ACE_Thread_Mutex> guard(mutexToMap);
    m_mapError.clear();
}

void GVXErrorMgr::removeAllErrRpt() {
    const ACE_Guard<ACE_Thread_Mutex> guard(mutexToList);
    m_lstErr.clear();
}

void GVXErrorMgr::removeAllErr() {
    removeAllErrRpt();
    removeAllErrRsp();
}

void GVXErrorMgr::ageKeptReports(std::time_t now) {
    const ACE_Guard<ACE_Thread_Mutex> guard(mutexToMap);
    for (auto entry = m_mapError.begin(); entry != m_mapError.end();) {
        entry = now - entry->second->nTicks >= kKeptReportSeconds ? m_mapError.erase(entry) : std::next(entry);
    }
}

std::size_t GVXErrorMgr::countErrRsp() const {
    const ACE_Guard<ACE_Thread_Mutex> guard(mutexToMap);
    return m_mapError.size();
}

std::size_t GVXErrorMgr::countErrRpt() const {
    const ACE_Guard<ACE_Thread_Mutex> guard(mutexToList);
    return m_lstErr.size();
}
