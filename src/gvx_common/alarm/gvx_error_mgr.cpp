#include "gvx_common/alarm/gvx_error_mgr.h"

#include "base/bounded_string.h"
#include "base/cbb_xml.h"
#include "base/clock.h"
#include "base/log.h"
#include "bp/cmd.h"
#include "gvx_common/config/gvx_config_mgr.h"
#include "gvx_common/link/gvx_connection_mgr.h"
#include "gvx_common/utility/gvx_utility.h"

#include <ace/Guard_T.h>

#include <chrono>
#include <cstdlib>
#include <exception>
#include <iterator>
#include <new>
#include <system_error>
#include <utility>

#include <unistd.h>

namespace {

constexpr std::size_t kDetailBytes = 4097;
constexpr const char* kFaultModule = "GVX";

constexpr std::chrono::seconds kPassPeriod(1);
constexpr const char* kThreadName = "ErrorReport";

// Reports age by a clock that nobody sets.
long long NowSeconds() {
    return gvx::MonotonicMilliseconds() / 1000;
}

}  // namespace

GVXErrorMgr* GVXErrorMgr::m_this = nullptr;
ACE_Thread_Mutex GVXErrorMgr::mutexToInstance;

GVXErrorMgr* GVXErrorMgr::getInstance() {
    const ACE_Guard<ACE_Thread_Mutex> guard(mutexToInstance);
    if (m_this == nullptr) {
        m_this = new (std::nothrow) GVXErrorMgr;
        GVX_CHECK_NULL_RETURN(m_this, nullptr);
        ++g_bp_memstat;
        if (m_this->initial() != 0) {
            GVX_LOG_ERR("getInstance", "initial error");
        }
    }
    return m_this;
}

void GVXErrorMgr::release() {
    const ACE_Guard<ACE_Thread_Mutex> guard(mutexToInstance);
    if (m_this != nullptr) {
        delete m_this;
        m_this = nullptr;
        --g_bp_memstat;
    }
}

GVXErrorMgr::~GVXErrorMgr() {
    stopWork();
    removeAllErr();
}

void GVXErrorMgr::reportError(const char* cErrDetailFunc, const char* cDevCode, const char* cChannelCode, int errorCode,
                              const char* cErrDetailOpt, const char* format, ...) {
    GVX_CHECK_NULL_RETURN_VOID(cDevCode);
    GVX_CHECK_NULL_RETURN_VOID(cChannelCode);
    GVX_CHECK_NULL_RETURN_VOID(cErrDetailFunc);
    GVX_CHECK_NULL_RETURN_VOID(cErrDetailOpt);
    va_list args;
    va_start(args, format);
    const std::string detail = getDetailError(cErrDetailOpt, format, args);
    va_end(args);
    const int tid = gettid();
    GVX_LOG_INFO(cErrDetailFunc, "Tid=[%x], cDevCode = [%s] cErrDetail = [%s]", static_cast<unsigned int>(tid),
                 cDevCode, detail.c_str());
    saveError(tid, cDevCode, cChannelCode, errorCode, detail.c_str());
}

void GVXErrorMgr::reportHstError(const char* cLinkID, const char* cErrDetailFunc, const char* cDevCode,
                                 const char* cChannelCode, int errorCode, const char* cErrDetailOpt, const char* format,
                                 ...) {
    GVX_CHECK_NULL_RETURN_VOID(cLinkID);
    GVX_CHECK_NULL_RETURN_VOID(cDevCode);
    GVX_CHECK_NULL_RETURN_VOID(cChannelCode);
    GVX_CHECK_NULL_RETURN_VOID(cErrDetailFunc);
    GVX_CHECK_NULL_RETURN_VOID(cErrDetailOpt);
    va_list args;
    va_start(args, format);
    const std::string detail = getDetailError(cErrDetailOpt, format, args);
    va_end(args);
    GVX_LOG_INFO(cErrDetailFunc, "cLinkID = [%s], cDevCode = [%s], cErrDetail = [%s]", cLinkID, cDevCode,
                 detail.c_str());
    saveHstError(cLinkID, cDevCode, cChannelCode, errorCode, detail.c_str());
}

std::string GVXErrorMgr::getDetailError(const char* operation, const char* format, va_list args) {
    char printed[kDetailBytes] = {};
    if (vsnprintf_s(printed, sizeof(printed), sizeof(printed) - 1, format, args) < 0) {
        printed[0] = '\0';
    }
    std::string detail = std::string(operation) + " failed " + "because " + printed;
    if (detail.back() != '.') {
        detail += '.';
    }
    return detail;
}

std::string GVXErrorMgr::getTimeString() {
    constexpr long kSecondsOfMinute = 60;
    constexpr long kMinutesOfHour = 60;
    const std::time_t now = gvx::WallSeconds();
    std::tm local{};
    const long offset = localtime_r(&now, &local) == nullptr ? 0 : local.tm_gmtoff;
    const long minutes = std::labs(offset) / kSecondsOfMinute;
    char zone[16] = {};
    snprintf_s(zone, sizeof(zone), sizeof(zone) - 1, "%c%02d:%02d", offset < 0 ? '-' : '+',
               static_cast<int>(minutes / kMinutesOfHour), static_cast<int>(minutes % kMinutesOfHour));
    return CGvxUtility::GetCurTime() + zone;
}

void GVXErrorMgr::fillReport(GVXDevErr& err, const char* cDevCode, const char* cChannelCode, int errorCode,
                             const std::string& detail) {
    err.nInfoType = GVX_ERR_TYPE_DEV;
    err.lstDevInfo.emplace_back(cDevCode, cChannelCode);
    err.nErrorCode = errorCode;
    err.sErrorOccurTime = getTimeString();
    err.sFaultSourceIP = CGvxConfigMgr::Instance()->GetLocalIP();
    err.sFaultSourceModule = kFaultModule;
    err.sErrDetail = detail;
    err.nTicks = NowSeconds();
}

void GVXErrorMgr::saveError(int tid, const char* cDevCode, const char* cChannelCode, int errorCode,
                            const char* cErrDetail) {
    GVX_CHECK_NULL_RETURN_VOID(cDevCode);
    GVX_CHECK_NULL_RETURN_VOID(cChannelCode);
    GVX_CHECK_NULL_RETURN_VOID(cErrDetail);
    GVXDevErr err;
    fillReport(err, cDevCode, cChannelCode, errorCode, cErrDetail);
    saveRspErrToMap(tid, err);
}

void GVXErrorMgr::saveHstError(const char* cLinkID, const char* cDevCode, const char* cChannelCode, int errorCode,
                               const char* cErrDetail) {
    GVX_CHECK_NULL_RETURN_VOID(cDevCode);
    GVX_CHECK_NULL_RETURN_VOID(cChannelCode);
    GVX_CHECK_NULL_RETURN_VOID(cErrDetail);
    GVXDevErr err;
    fillReport(err, cDevCode, cChannelCode, errorCode, cErrDetail);
    err.sLinkID = cLinkID;
    saveReportToList(err);
}

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
    m_kept = m_mapError.size();
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
    GVX_LOG(OM_LOG_DEBUG, "getXmlInfoByTidWithDestory", "xml=%s", xml.ToString().c_str());
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
    m_kept = m_mapError.size();
}

void GVXErrorMgr::forgetErrRsp() {
    if (m_kept == 0) {
        return;
    }
    const ACE_Guard<ACE_Thread_Mutex> guard(mutexToMap);
    m_mapError.erase(gettid());
    m_kept = m_mapError.size();
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
    m_kept = 0;
}

void GVXErrorMgr::removeAllErrRpt() {
    const ACE_Guard<ACE_Thread_Mutex> guard(mutexToList);
    m_lstErr.clear();
}

void GVXErrorMgr::removeAllErr() {
    removeAllErrRpt();
    removeAllErrRsp();
}

void GVXErrorMgr::ageKeptReports(long long now) {
    const ACE_Guard<ACE_Thread_Mutex> guard(mutexToMap);
    for (auto entry = m_mapError.begin(); entry != m_mapError.end();) {
        entry = now - entry->second->nTicks >= kKeptReportSeconds ? m_mapError.erase(entry) : std::next(entry);
    }
    m_kept = m_mapError.size();
}

std::size_t GVXErrorMgr::countErrRsp() const {
    const ACE_Guard<ACE_Thread_Mutex> guard(mutexToMap);
    return m_mapError.size();
}

std::size_t GVXErrorMgr::countErrRpt() const {
    const ACE_Guard<ACE_Thread_Mutex> guard(mutexToList);
    return m_lstErr.size();
}

// The report thread: sends, holds repeats back and gives up what has aged.

int GVXErrorMgr::initial() {
    if (!m_bInitial) {
        m_bInitial = initialReportThread() == ZVS_SUCCEED;
    }
    return m_bInitial ? ZVS_SUCCEED : ZVS_FAIL;
}

int GVXErrorMgr::initialReportThread() {
    try {
        m_ReportThreadID = std::thread([this] { reportThread(); });
    } catch (const std::system_error& fault) {
        GVX_LOG_ERR("initialReportThread", "Create Thread ReportThread Error");
        GVX_DEBUG("%s", fault.what());
        return ZVS_FAIL;
    }
    CGvxUtility::pthreadSetThreadname(m_ReportThreadID.native_handle(), kThreadName);
    return ZVS_SUCCEED;
}

void GVXErrorMgr::stopWork() {
    {
        const std::lock_guard<std::mutex> lock(m_wakeMutex);
        m_StopWork = true;
    }
    m_wake.notify_all();
    if (m_ReportThreadID.joinable()) {
        m_ReportThreadID.join();
    }
}

void GVXErrorMgr::reWork() {
    if (m_StopWork.exchange(false) && m_bInitial) {
        m_bInitial = false;
        initial();
    }
}

void GVXErrorMgr::reportThread() {
    while (!m_StopWork) {
        try {
            reportPass();
        } catch (const std::exception& fault) {  // no memory, in all likelihood: the next pass may have some
            GVX_LOG_ERR("reportThread", "A pass ended early: %s", fault.what());
        }
        if (waitForNextPass()) {
            return;
        }
    }
}

bool GVXErrorMgr::waitForNextPass() {
    std::unique_lock<std::mutex> lock(m_wakeMutex);
    return m_wake.wait_for(lock, kPassPeriod, [this] { return m_StopWork.load(); });
}

void GVXErrorMgr::reportPass() {
    const long long now = NowSeconds();
    sendFirstReport(now);
    ageKeptReports(now);
    ageOverLap(now);
}

void GVXErrorMgr::sendFirstReport(long long now) {
    const ReportPtr report = popReport();
    if (report == nullptr) {
        return;
    }
    CheckOverLap(*report);
    sendErrorToSCU(report.get(), report->sLinkID, BP::CMKTransID::GenerateTransID());
    recordOverLap(*report, now);
}

void GVXErrorMgr::CheckOverLap(GVXDevErr& report) const {
    report.lstDevInfo.remove_if([&](const GVXDevErr::DevPair& pair) {
        return m_mapOverLap.count(std::make_pair(pair.first, report.nErrorCode)) != 0;
    });
}

void GVXErrorMgr::recordOverLap(const GVXDevErr& report, long long now) {
    for (const GVXDevErr::DevPair& pair : report.lstDevInfo) {
        m_mapOverLap.emplace(std::make_pair(pair.first, report.nErrorCode), now);
    }
}

void GVXErrorMgr::sendErrorToSCU(GVXDevErr* struErr, const std::string& linkID, const std::string& transID) {
    GVX_CHECK_NULL_RETURN_VOID(struErr);
    if (struErr->lstDevInfo.empty()) {
        return;
    }
    CBB::CXml xml;
    if (struErr->fromStruToXml(xml) != ZVS_SUCCEED) {
        GVX_LOG_ERR("sendErrorToSCU", "fromStruToXml failed");
        return;
    }
    GVX_LOG_INFO("sendErrorToSCU", "sLinkID = [%s], sTransID = [%s], xmlResp = [%s]", linkID.c_str(), transID.c_str(),
                 xml.ToString().c_str());
    CGvxConnectionMgr::Instance()->SendReqMsgWithXml(BP::SUBSYS_SCU, kElementSCU, NSS_COMMON_INFO_REQ, xml, linkID,
                                                     transID);
}

void GVXErrorMgr::ageOverLap(long long now) {
    for (auto entry = m_mapOverLap.begin(); entry != m_mapOverLap.end();) {
        entry = now - entry->second >= kOverlapSeconds ? m_mapOverLap.erase(entry) : std::next(entry);
    }
}
