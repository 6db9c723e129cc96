// NAT lists and whitelists.

#include "gvx_common/config/gvx_config_mgr.h"
#include "gvx_common/utility/gvx_utility.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <list>
#include <memory>
#include <string>
#include <utility>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const auto mgr = std::make_unique<CGvxConfigMgr>();
    std::string list = text;
    const int parsed = mgr->ParsePrivateIpList(list);
    if (parsed == 0 ? !list.empty() : mgr->CheckIpAvailable(list.substr(0, list.find(';')))) {
        std::abort();
    }
    for (const std::string& entry : mgr->GetPrivateIpList()) {
        if (!mgr->CheckIpAvailable(entry)) {
            std::abort();
        }
    }
    std::list<std::pair<unsigned int, unsigned int>> ranges;
    CGvxUtility::AnalysisWhitelist(text, ranges);
    return 0;
}
