#include "gateway/process/operation_log.h"

#include "base/default_logger.h"
#include "base/om_adapter.h"
#include "gvx_common/config/gvx_config_mgr.h"

namespace gvx {

StartResult StartOperationLog() {
    OMLoggerOptions options;
    options.console = false;
    options.file = CGvxConfigMgr::Instance()->GetConfValue("GVX_OPERATION_LOG_FILE", "");
    if (options.file.empty()) {
        return {};
    }
    std::string error;
    auto logger = MakeDefaultLogger(options, &error);
    if (logger == nullptr) {
        return StartFailure(ExitCode::StartFailed, "operation log file " + options.file + ": " + error);
    }
    OMAdapter::getInstance()->setOperationLogger(std::move(logger));
    return {};
}

}  // namespace gvx
