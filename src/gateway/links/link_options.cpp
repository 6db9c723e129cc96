#include "gateway/links/link_options.h"

#include "gateway/settings/number_setting.h"

#include <string>

namespace gvx {

namespace {

constexpr long long kMostMilliseconds = 3600000;

struct TimeRow {
    const char* key;
    int BP::LinkOptions::*field;
    long long least;
};
constexpr TimeRow kTimes[] = {
    {"GVX_LINK_REGISTER_TIME", &BP::LinkOptions::registerTimeoutMs, 100},
    {"GVX_LINK_FRAME_TIME", &BP::LinkOptions::frameTimeoutMs, 100},
    {"GVX_LINK_KEEPALIVE_TIME", &BP::LinkOptions::keepAliveMs, 100},
    {"GVX_LINK_DEAD_TIME", &BP::LinkOptions::silenceTimeoutMs, 200},
    {"GVX_LINK_BACKOFF_MIN", &BP::LinkOptions::backoffMinMs, 10},
    {"GVX_LINK_BACKOFF_MAX", &BP::LinkOptions::backoffMaxMs, 10},
};

struct SizeRow {
    const char* key;
    std::size_t BP::LinkOptions::*field;
    long long least;
    long long most;
};
constexpr SizeRow kSizes[] = {
    {"GVX_LINK_MAX_FRAME", &BP::LinkOptions::maxFrameBytes, 65536, 4194304},
    {"GVX_LINK_MAX_QUEUE", &BP::LinkOptions::maxQueuedBytes, 65536, 1073741824},
    {"GVX_LINK_MAX_NUM", &BP::LinkOptions::maxLinks, 1, 65535},
};

template <typename Number>
StartResult ReadField(const NumberSetting& setting, Number& field) {
    long long value = 0;
    StartResult result = ReadSetting(setting, value);
    if (!result.Failed()) {
        field = static_cast<Number>(value);
    }
    return result;
}

StartResult NotBelow(const char* key, long long value, const char* other, long long least) {
    if (value >= least) {
        return {};
    }
    return StartFailure(ExitCode::ConfigRefused, std::string(key) + " is too small beside " + other + ": " +
                                                     std::to_string(value) + ", at least " + std::to_string(least));
}

// A peer that only answers keep-alives must not count as dead between two of them.
StartResult CheckTogether(const BP::LinkOptions& options) {
    StartResult result =
        NotBelow("GVX_LINK_DEAD_TIME", options.silenceTimeoutMs, "GVX_LINK_KEEPALIVE_TIME", 2LL * options.keepAliveMs);
    if (!result.Failed()) {
        result = NotBelow("GVX_LINK_BACKOFF_MAX", options.backoffMaxMs, "GVX_LINK_BACKOFF_MIN", options.backoffMinMs);
    }
    if (!result.Failed()) {
        result = NotBelow("GVX_LINK_MAX_QUEUE", static_cast<long long>(options.maxQueuedBytes), "GVX_LINK_MAX_FRAME",
                          static_cast<long long>(options.maxFrameBytes));
    }
    return result;
}

}  // namespace

StartResult ReadLinkOptions(BP::LinkOptions& options) {
    for (const TimeRow& row : kTimes) {
        const StartResult result =
            ReadField({row.key, options.*row.field, row.least, kMostMilliseconds}, options.*row.field);
        if (result.Failed()) {
            return result;
        }
    }
    for (const SizeRow& row : kSizes) {
        const StartResult result = ReadField(
            {row.key, static_cast<long long>(options.*row.field), row.least, row.most}, options.*row.field);
        if (result.Failed()) {
            return result;
        }
    }
    return CheckTogether(options);
}

}  // namespace gvx
