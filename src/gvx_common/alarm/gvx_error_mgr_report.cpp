#include "gvx_common/alarm/gvx_error_mgr.h"

#include "base/cbb_xml.h"
#include "base/log.h"
#include "bp/cmd.h"
#include "gvx_common/link/gvx_connection_mgr.h"
#include "gvx_common/utility/gvx_utility.h"

#include <chrono>
#include <iterator>
#include <system_error>

// The report thread: sends, holds repeats back and gives up what has aged.

namespace {

constexpr std::chrono::seconds kPassPeriod(1);
constexpr const char* kThreadName = "ErrorReport";

std::string OverLapKey(const std::string& devCode, int errorCode) {
    return devCode + std::to_string(errorCode);
}

}  // namespace

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
        reportPass();
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
    const std::time_t now = BP::OSTime::Time();
    sendFirstReport(now);
    ageKeptReports(now);
    ageOverLap(now);
}

void GVXErrorMgr::sendFirstReport(std::time_t now) {
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
        return m_mapOverLap.count(OverLapKey(pair.first, report.nErrorCode)) != 0;
    });
}

void GVXErrorMgr::recordOverLap(const GVXDevErr& report, std::time_t now) {
    for (const GVXDevErr::DevPair& pair : report.lstDevInfo) {
        m_mapOverLap.emplace(OverLapKey(pair.first, report.nErrorCode), now);
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

void GVXErrorMgr::ageOverLap(std::time_t now) {
    for (auto entry = m_mapOverLap.begin(); entry != m_mapOverLap.end();) {
        entry = now - entry->second >= kOverlapSeconds ? m_mapOverLap.erase(entry) : std::next(entry);
    }
}
