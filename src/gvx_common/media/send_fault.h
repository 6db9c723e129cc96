#pragma once

#include "base/log.h"
#include "gvx_common/media/socket_info.h"

namespace gvx {

inline void LogSendFault(const SOCKET_INFO& info, int error) {
    GVX_DEBUG("Send media over socket failed send error.Sservice id:[%s], errno: %d.", info.chServiceID, error);
}

}  // namespace gvx
