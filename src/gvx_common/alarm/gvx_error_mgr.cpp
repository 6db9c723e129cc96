#include "gvx_common/alarm/gvx_error_mgr.h"

#include "base/bounded_string.h"
#include "base/clock.h"
#include "base/log.h"
#include "bp/cmd.h"
#include "gvx_common/config/gvx_config_mgr.h"
#include "gvx_common/utility/gvx_utility.h"

#include <ace/Guard_T.h>

#include <cstdlib>
#include <new>

#include <unistd.h>

// The one object, and the making of reports. Keeping them stands in gvx_error_mgr_store.cpp, sending in
// gvx_error_mgr_report.cpp.

namespace {

constexpr std::size_t kDetailBytes = 4097;
constexpr const char* kFaultModule = "GVX";

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

void GVXErrorMgr::reportError(const char* cErrDetailFunc, const char* cDevCode, const char* cChannelCode,
                              int errorCode, const char* cErrDetailOpt, const char* format, ...) {
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
    err.nTicks = BP::OSTime::Time();
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
