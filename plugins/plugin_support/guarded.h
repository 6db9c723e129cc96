#pragma once

#include "base/log.h"

#include <exception>
#include <new>

namespace gvxplugin {

// Runs the work of an operation and turns an exception into a result: none may leave a plug-in. Any thread; the log
// line names plug-in and operation.
template <typename Work>
int Guarded(const char* title, const char* operation, Work work) noexcept {
    try {
        return work();
    } catch (const std::bad_alloc&) {
        GVX_LOG_ERR_CODE(title, ZVS_ALLOC_MEMORY_ERROR, "%s", operation);
        return ZVS_ALLOC_MEMORY_ERROR;
    } catch (const std::exception& fault) {
        GVX_LOG_ERR_CODE(title, ZVS_FAIL, "%s: %s", operation, fault.what());
        return ZVS_FAIL;
    }
}

}  // namespace gvxplugin
