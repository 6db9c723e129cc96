#include "gvx_common/adapter/gvx_reason.h"

#include "base/utf8.h"

#include <cstdarg>
#include <cstdio>

namespace {

constexpr std::size_t kReasonBytes = 511;

// Without a constructor or a destructor: a plug-in's thread may end at any time. The rest of a character that begins
// within the limit still fits, so that it shows.
thread_local char t_reason[kReasonBytes + 4];

void Print(const char* format, va_list arguments) {
    const bool printed = std::vsnprintf(t_reason, sizeof(t_reason), format, arguments) >= 0;
    t_reason[printed ? gvx::CutAtCharacter(t_reason, kReasonBytes).size() : 0] = '\0';
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
