#include "gateway/links/link_options.h"

#include "gvx_common/config/setting_table.h"

namespace gvx {

namespace {

struct TimeRow {
    Setting setting;
    int BP::LinkOptions::*field;
};
constexpr TimeRow kTimes[] = {
    {Setting::GVX_LINK_REGISTER_TIME, &BP::LinkOptions::registerTimeoutMs},
    {Setting::GVX_LINK_FRAME_TIME, &BP::LinkOptions::frameTimeoutMs},
    {Setting::GVX_LINK_KEEPALIVE_TIME, &BP::LinkOptions::keepAliveMs},
    {Setting::GVX_LINK_DEAD_TIME, &BP::LinkOptions::silenceTimeoutMs},
    {Setting::GVX_LINK_BACKOFF_MIN, &BP::LinkOptions::backoffMinMs},
    {Setting::GVX_LINK_BACKOFF_MAX, &BP::LinkOptions::backoffMaxMs},
};

struct SizeRow {
    Setting setting;
    std::size_t BP::LinkOptions::*field;
};
constexpr SizeRow kSizes[] = {
    {Setting::GVX_LINK_MAX_FRAME, &BP::LinkOptions::maxFrameBytes},
    {Setting::GVX_LINK_MAX_QUEUE, &BP::LinkOptions::maxQueuedBytes},
    {Setting::GVX_LINK_MAX_NUM, &BP::LinkOptions::maxLinks},
};

}  // namespace

void ReadLinkOptions(BP::LinkOptions& options) {
    for (const TimeRow& row : kTimes) {
        options.*row.field = static_cast<int>(SettingNumber(row.setting));
    }
    for (const SizeRow& row : kSizes) {
        options.*row.field = static_cast<std::size_t>(SettingNumber(row.setting));
    }
}

}  // namespace gvx
