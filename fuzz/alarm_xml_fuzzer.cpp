// The XML files of the alarm mapping. What is loaded must be freed again, and reports built from it stay terminated.

#include "fuzz_folder.h"

#include "base/log.h"
#include "gvx_common/config/gvx_config_mgr.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const FuzzFolder folder;
    const std::string text(reinterpret_cast<const char*>(data), size);
    folder.Write("alarms.xml", text);
    folder.Write("other/device_ability.xml", text);
    const long counted = g_bp_memstat;
    {
        const auto mgr = std::make_unique<CGvxConfigMgr>();
        DEVICE_ALARM_INFO_MAPPINGS_MAP mappings;
        DEVICE_ABILITY_MAP abilities;
        mgr->LoadAlarmDescriptionConfig(folder.Path("alarms.xml").c_str());
        mgr->LoadAlarmMappingsConfig(folder.Path("alarms.xml").c_str(), mappings);
        mgr->LoadDeviceAbility(abilities);
        for (auto entry = mappings.begin(); entry != mappings.end(); ++entry) {
            ZVS_ALARM_REPORT report{};
            mgr->MatchAlarmTypeAndAction((*entry).ext_id_, "t", report, mappings);
            mgr->BuildAlarmInfoForEAS((*entry).ext_id_, "t", report, mappings);
            for (int form = 0; form < 8; ++form) {
                mgr->BuildAlarmInfoForNVT(report, static_cast<_PU_DEV_FORM_TYPE>(form));
            }
        }
        CGvxConfigMgr::ClearAlarmMappings(mappings);
    }
    if (g_bp_memstat != counted) {
        std::abort();
    }
    return 0;
}
