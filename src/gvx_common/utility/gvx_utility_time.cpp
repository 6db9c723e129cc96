#include "gvx_common/utility/gvx_utility.h"

#include "base/bounded_string.h"
#include "base/clock.h"
#include "base/log.h"

#include <algorithm>
#include <cstring>
#include <ctime>

namespace {

constexpr int kTimeFields = 6;
constexpr std::size_t kTimeBytes = 32;

enum class TimeForm { Compact, CompactUtc, Separated, Iso };

TimeForm FormOf(const char* format) {
    if (format != nullptr && std::strcmp(format, "YYYYMMDDhhmmss") == 0) {
        return TimeForm::Compact;
    }
    if (format != nullptr && std::strcmp(format, "YYYYMMDDThhmmssZ") == 0) {
        return TimeForm::CompactUtc;
    }
    return TimeForm::Separated;
}

int ScanFields(const char* text, TimeForm form, std::tm& fields) {
    int* year = &fields.tm_year;
    int* month = &fields.tm_mon;
    int* day = &fields.tm_mday;
    int* hour = &fields.tm_hour;
    int* minute = &fields.tm_min;
    int* second = &fields.tm_sec;
    switch (form) {
        case TimeForm::Compact:
            return sscanf_s(text, "%04d%02d%02d%02d%02d%02d", year, month, day, hour, minute, second);
        case TimeForm::CompactUtc:
            return sscanf_s(text, "%04d%02d%02dT%02d%02d%02dZ", year, month, day, hour, minute, second);
        case TimeForm::Iso:
            return sscanf_s(text, "%04d-%02d-%02dT%02d:%02d:%02d", year, month, day, hour, minute, second);
        case TimeForm::Separated:
            break;
    }
    return sscanf_s(text, "%04d-%02d-%02d %02d:%02d:%02d", year, month, day, hour, minute, second);
}

bool InCalendar(const std::tm& fields) {
    return fields.tm_year >= 0 && fields.tm_mon >= 1 && fields.tm_mon <= 12 && fields.tm_mday >= 1 &&
           fields.tm_mday <= 31 && fields.tm_hour >= 0 && fields.tm_hour <= 23 && fields.tm_min >= 0 &&
           fields.tm_min <= 59 && fields.tm_sec >= 0 && fields.tm_sec <= 60;
}

bool ReadTime(const char* title, const std::string& text, TimeForm form, std::tm& fields) {
    fields = std::tm{};
    const int count = ScanFields(text.c_str(), form, fields);
    if (count < kTimeFields) {
        GVX_LOG_ERR(title, "sscanf_s fail, return len[%d]", count);
        return false;
    }
    if (!InCalendar(fields)) {
        GVX_LOG_ERR(title, "Not a time[%s]", text.c_str());
        return false;
    }
    fields.tm_year -= 1900;
    fields.tm_mon -= 1;
    return true;
}

std::string WriteTime(const std::tm& fields, TimeForm form) {
    const int year = fields.tm_year + 1900;
    const int month = fields.tm_mon + 1;
    char text[kTimeBytes] = {};
    if (form == TimeForm::Compact) {
        sprintf_s(text, sizeof(text), "%04d%02d%02d%02d%02d%02d", year, month, fields.tm_mday, fields.tm_hour,
                  fields.tm_min, fields.tm_sec);
    } else if (form == TimeForm::CompactUtc) {
        sprintf_s(text, sizeof(text), "%04d%02d%02dT%02d%02d%02dZ", year, month, fields.tm_mday, fields.tm_hour,
                  fields.tm_min, fields.tm_sec);
    } else {
        sprintf_s(text, sizeof(text), "%04d-%02d-%02d %02d:%02d:%02d", year, month, fields.tm_mday, fields.tm_hour,
                  fields.tm_min, fields.tm_sec);
    }
    return text;
}

long OffsetAt(std::time_t moment) {
    std::tm local{};
    return localtime_r(&moment, &local) != nullptr ? local.tm_gmtoff : 0;
}

// The moment that local fields name. Where the clock has shown them twice it is the first; where it has left them out,
// what the clock would have shown without the change. mktime keeps a guess of the call before, which decides there.
std::time_t LocalToSeconds(std::tm fields) {
    constexpr std::time_t kDay = 86400;
    const std::time_t asUtc = timegm(&fields);
    const std::time_t before = asUtc - OffsetAt(asUtc - kDay);
    const std::time_t after = asUtc - OffsetAt(asUtc + kDay);
    const auto shows = [asUtc](std::time_t moment) { return moment + OffsetAt(moment) == asUtc; };
    const std::time_t first = std::min(before, after);
    const std::time_t last = std::max(before, after);
    return shows(first) ? first : shows(last) ? last : before;
}

bool UtcToLocal(std::tm utc, std::tm& local) {
    const std::time_t seconds = timegm(&utc);
    return localtime_r(&seconds, &local) != nullptr;
}

int TransUtcToLocal(const char* title, const std::string& utc, TimeForm utcForm, std::string& local,
                    TimeForm localForm) {
    std::tm utcFields{};
    std::tm localFields{};
    if (!ReadTime(title, utc, utcForm, utcFields) || !UtcToLocal(utcFields, localFields)) {
        return ZVS_FAIL;
    }
    std::string result = WriteTime(localFields, localForm);
    GVX_LOG_INFO(title, "Gvx utility: Trans time from utc[%s] to local[%s]. isdst=[%d]", utc.c_str(), result.c_str(),
                 localFields.tm_isdst);
    local.swap(result);
    return ZVS_SUCCEED;
}

std::string CurrentLocalTime(TimeForm form, const char* fallback) {
    const std::time_t now = gvx::WallSeconds();
    std::tm local{};
    return localtime_r(&now, &local) == nullptr ? std::string(fallback) : WriteTime(local, form);
}

}  // namespace

std::string CGvxUtility::GetCurTime() {
    return CurrentLocalTime(TimeForm::Separated, "1970-01-01 00:00:00");
}

std::string CGvxUtility::GetCurTimeNoSeperate() {
    return CurrentLocalTime(TimeForm::Compact, "19700101000000");
}

int CGvxUtility::GetCurrentUtcTime(std::string& text, const char* format) {
    const std::time_t now = gvx::WallSeconds();
    std::tm utc{};
    if (gmtime_r(&now, &utc) == nullptr) {
        GVX_LOG_ERR("GetCurrentUtcTime", "The clock is out of range.");
        return ZVS_FAIL;
    }
    text = WriteTime(utc, FormOf(format));
    return ZVS_SUCCEED;
}

int CGvxUtility::TransISOUTCFormatToString(const std::string& isoTime, std::string& text, const char* format) {
    std::tm utc{};
    if (!ReadTime("TransISOUTCFormatToString", isoTime, TimeForm::Iso, utc)) {
        return ZVS_FAIL;
    }
    text = WriteTime(utc, FormOf(format));
    return ZVS_SUCCEED;
}

int CGvxUtility::TransLocalFormatToUTC(const std::string& local, std::string& utc, const char* format) {
    std::tm fields{};
    if (!ReadTime("TransLocalFormatToUTC", local, FormOf(format), fields)) {
        return ZVS_FAIL;
    }
    const std::time_t seconds = LocalToSeconds(fields);
    if (gmtime_r(&seconds, &fields) == nullptr) {
        return ZVS_FAIL;
    }
    utc = WriteTime(fields, FormOf(format));
    return ZVS_SUCCEED;
}

int CGvxUtility::TransUTCFormatToLocal(const std::string& utc, std::string& local, const char* format) {
    return TransUtcToLocal("TransUTCFormatToLocal", utc, FormOf(format), local, FormOf(format));
}

int CGvxUtility::TransUTCFormatToLocalEx(const std::string& utc, std::string& local, const char* format,
                                         const char* localFormat) {
    return TransUtcToLocal("TransUTCFormatToLocalEx", utc, FormOf(format), local, FormOf(localFormat));
}

int CGvxUtility::TransLocalFormatToGMTUTC(const std::string& local, long& seconds, const char* format) {
    std::tm fields{};
    if (!ReadTime("TransLocalFormatToGMTUTC", local, FormOf(format), fields)) {
        return ZVS_FAIL;
    }
    seconds = static_cast<long>(LocalToSeconds(fields));
    return ZVS_SUCCEED;
}

int CGvxUtility::ParseGLUTCTimeToLocalTime(const std::string& utc, std::string& local, const char* format) {
    return TransUtcToLocal("ParseGLUTCTimeToLocalTime", utc, TimeForm::CompactUtc, local, FormOf(format));
}

bool CGvxUtility::CheckTimingStatus(long& last, int interval) {
    const long now = static_cast<long>(gvx::MonotonicMilliseconds() / 1000);
    if (now - last < interval) {
        return false;
    }
    last = now;
    return true;
}
