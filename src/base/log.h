#pragma once

#include "base/om_adapter.h"
#include "base/zvs_error.h"

#include <atomic>
#include <cstdarg>
#include <string>

// How lines are written. Formats are literals, checked by the compiler; an argument is evaluated once, and only when
// its line will be written, the level in each case. Any thread.

// Writes `format`, led by the error code and its name, into buffer (at most size bytes, terminated).
// Returns the length without the terminator, -1 when it does not fit (the buffer then holds an empty text).
// The result is itself a format: format is copied unchanged behind the code.
int ZVS_LogFormatErrCode(char* buffer, int size, int errorCode, const char* format);

// One line through the installed logger, if there is one. Called by the macros below.
void OMWriteLog(int level, const char* title, const OMLogPlace& place, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

// The same at error level or another, with the error code put in front (two steps: ZVS_LogFormatErrCode into
// 512 bytes, then the line). A format too long for the 512 bytes is written without the code.
void OMWriteLogErrCode(int level, const char* title, int errorCode, const OMLogPlace& place, const char* format, ...)
    __attribute__((format(printf, 5, 6)));

// One line of the operation log: the message, our own identifier, the link, the transaction, what was done and how it
// ended. Called by GVX_LOG_OPERATION.
void OMWriteOperation(const OMLogPlace& place, const char* message, const char* element, const char* link,
                      const char* transaction, const char* text, const char* result);

void OMWriteDebug(const OMLogPlace& place, const char* format, ...) __attribute__((format(printf, 2, 3)));

bool OMLogEnabled(int level) noexcept;

// Objects that live long are counted here as they are made and deleted.
extern std::atomic<long> g_bp_memstat;

#define GVX_LOG_PLACE                \
    OMLogPlace {                     \
        __FILE__, __LINE__, __func__ \
    }

// GVX_LOG(OM_LOG_INFO, "title", "format %d", value)
#define GVX_LOG(level, title, ...)                                          \
    do {                                                                    \
        if (const int gvxLogLevel_ = (level); OMLogEnabled(gvxLogLevel_)) { \
            OMWriteLog(gvxLogLevel_, (title), GVX_LOG_PLACE, __VA_ARGS__);  \
        }                                                                   \
    } while (false)

#define GVX_LOG_ERR(title, ...) GVX_LOG(OM_LOG_ERR, title, __VA_ARGS__)
#define GVX_LOG_WARN(title, ...) GVX_LOG(OM_LOG_WARNING, title, __VA_ARGS__)
#define GVX_LOG_INFO(title, ...) GVX_LOG(OM_LOG_INFO, title, __VA_ARGS__)

// An error line that carries an error code: GVX_LOG_ERR_CODE("title", ZVS_NULL_POINTER, "key[%s]", key)
#define GVX_LOG_ERR_CODE(title, code, ...)                                                              \
    do {                                                                                                \
        if (OMLogEnabled(OM_LOG_ERR)) {                                                                 \
            OMWriteLogErrCode(OM_LOG_ERR, (title), static_cast<int>(code), GVX_LOG_PLACE, __VA_ARGS__); \
        }                                                                                               \
    } while (false)

#define GVX_LOG_WARN_CODE(title, code, ...)                                                                 \
    do {                                                                                                    \
        if (OMLogEnabled(OM_LOG_WARNING)) {                                                                 \
            OMWriteLogErrCode(OM_LOG_WARNING, (title), static_cast<int>(code), GVX_LOG_PLACE, __VA_ARGS__); \
        }                                                                                                   \
    } while (false)

#define GVX_LOG_OPERATION(message, element, link, transaction, text, result) \
    OMWriteOperation(GVX_LOG_PLACE, (message), (element), (link), (transaction), (text), (result))

#define GVX_DEBUG(...)                                \
    do {                                              \
        if (OMLogEnabled(OM_LOG_DEBUG)) {             \
            OMWriteDebug(GVX_LOG_PLACE, __VA_ARGS__); \
        }                                             \
    } while (false)

// Null checks of internal pointers: one error line with a fixed text, then the failure value of the function.
#define GVX_CHECK_NULL_RETURN(pointer, result)                                                \
    do {                                                                                      \
        if ((pointer) == nullptr) {                                                           \
            GVX_LOG_ERR("Point " #pointer " is null.", "Make sure there is something wrong"); \
            return result;                                                                    \
        }                                                                                     \
    } while (false)

#define GVX_CHECK_NULL_RETURN_VOID(pointer)                                                   \
    do {                                                                                      \
        if ((pointer) == nullptr) {                                                           \
            GVX_LOG_ERR("Point " #pointer " is null.", "Make sure there is something wrong"); \
            return;                                                                           \
        }                                                                                     \
    } while (false)

// Writes the debug line "Begin %s" when it is made and "End %s, The extend info is %s" when it goes out of
// scope. text and extendInfo are not copied: both must outlive the object. Nothing is formatted while debug
// lines are off.
class CFunction_Log_Begin_End {
public:
    CFunction_Log_Begin_End(const char* text, const char* extendInfo) noexcept;
    ~CFunction_Log_Begin_End();
    CFunction_Log_Begin_End(const CFunction_Log_Begin_End&) = delete;
    CFunction_Log_Begin_End& operator=(const CFunction_Log_Begin_End&) = delete;

private:
    const char* m_text;
    const char* m_extendInfo;
};
