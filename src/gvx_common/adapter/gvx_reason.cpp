#include "gvx_common/adapter/gvx_reason.h"

#include <cstdarg>
#include <cstdio>

namespace {

constexpr std::size_t kReasonBytes = 512;

// Without a constructor or a destructor: a plug-in's thread may end at any time.
thread_local char t_reason[kReasonBytes];

void Print(const char* format, va_list arguments) {
    if (std::vsnprintf(t_reason, sizeof(t_reason), format, arguments) < 0) {
        t_reason[0] = '\0';
    }
}

}  // namespace

void GvxSetReason(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    Print(format, arguments);
    va_end(arguments);
}

int GvxFail(int code, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    Print(format, arguments);
    va_end(arguments);
    return code;
}

std::string GvxTakeReason() {
    std::string reason(t_reason);
    t_reason[0] = '\0';
    return reason;
}
