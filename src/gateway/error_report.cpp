#include "gateway/error_report.h"

#include "base/zvs_error.h"
#include "gvx_common/alarm/gvx_error_mgr.h"

namespace gvx {

void StartErrorReports() {
    GVXErrorMgr::getInstance();
}

void StopErrorReports() {
    GVXErrorMgr::release();
}

bool TakeErrorReport(int code, CBB::CXml& xml) {
    if (code == ZVS_SUCCEED) {
        return false;
    }
    GVXErrorMgr* const reports = GVXErrorMgr::getInstance();
    return reports != nullptr && reports->getXmlInfoByTidWithDestory(xml, code) == ZVS_SUCCEED;
}

}  // namespace gvx
