#include "base/log.h"

#include "base/bounded_string.h"

std::atomic<long> g_bp_memstat{0};

namespace {

constexpr int kErrorFormatBytes = 512;

void WriteTo(IOMLogger* logger, int level, const char* title, const OMLogPlace& place, const char* format, ...)
    __attribute__((format(printf, 5, 6)));

void WriteTo(IOMLogger* logger, int level, const char* title, const OMLogPlace& place, const char* format, ...) {
    va_list args;
    va_start(args, format);
    logger->VLog(level, title, place, format, args);
    va_end(args);
}

}  // namespace

int ZVS_LogFormatErrCode(char* buffer, int size, int errorCode, const char* format) {
    if (buffer == nullptr || size <= 0) {
        return -1;
    }
    const auto room = static_cast<std::size_t>(size);
    return snprintf_s(buffer, room, room, "[%d %s] %s", errorCode, ZvsErrorName(errorCode),
                      format == nullptr ? "" : format);
}

bool OMLogEnabled(int level) noexcept {
    const IOMLogger* logger = OMAdapter::getInstance()->getLogger();
    return logger != nullptr && logger->IsEnabled(level);
}

void OMWriteLog(int level, const char* title, const OMLogPlace& place, const char* format, ...) {
    IOMLogger* logger = OMAdapter::getInstance()->getLogger();
    if (logger == nullptr) {
        return;
    }
    va_list args;
    va_start(args, format);
    logger->VLog(level, title, place, format, args);
    va_end(args);
}

void OMWriteLogErrCode(int level, const char* title, int errorCode, const OMLogPlace& place, const char* format, ...) {
    IOMLogger* logger = OMAdapter::getInstance()->getLogger();
    if (logger == nullptr) {
        return;
    }
    char coded[kErrorFormatBytes];
    const bool fits = ZVS_LogFormatErrCode(coded, sizeof(coded), errorCode, format) > 0;
    va_list args;
    va_start(args, format);
    logger->VLog(level, title, place, fits ? coded : format, args);
    va_end(args);
}

void OMWriteOperation(const OMLogPlace& place, const char* message, const char* element, const char* link,
                      const char* transaction, const char* text, const char* result) {
    IOMLogger* logger = OMAdapter::getInstance()->getOperationLogger();
    if (logger != nullptr && logger->IsEnabled(OM_LOG_INFO)) {
        WriteTo(logger, OM_LOG_INFO, "Operation", place, "[%s] [%s] [%s] [%s] %s, %s", message, element, link,
                transaction, text, result);
    }
}

void OMWriteDebug(const OMLogPlace& place, const char* format, ...) {
    IOMLogger* logger = OMAdapter::getInstance()->getLogger();
    if (logger == nullptr) {
        return;
    }
    va_list args;
    va_start(args, format);
    logger->VDebug(place, format, args);
    va_end(args);
}

CFunction_Log_Begin_End::CFunction_Log_Begin_End(const char* text, const char* extendInfo) noexcept
    : m_text(text == nullptr ? "" : text), m_extendInfo(extendInfo == nullptr ? "" : extendInfo) {
    GVX_DEBUG("Begin %s", m_text);
}

CFunction_Log_Begin_End::~CFunction_Log_Begin_End() {
    GVX_DEBUG("End %s, The extend info is %s", m_text, m_extendInfo);
}
