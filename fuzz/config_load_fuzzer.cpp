// The configuration loader: the first byte says which file the rest is. Settings are then read, checked and edited.

#include "fuzz_folder.h"

#include "base/cbb_xml.h"
#include "gvx_common/config/gvx_config_mgr.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace {

constexpr const char* kFiles[] = {
    "zvs_gvx.conf",
    "zvs_gvx_nat.conf",
    "net.xml",
    "home/zvs_common/config/common.xml",
    "home/zvs_common/cloudconfig.xml",
    "log_sftp.conf",
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const FuzzFolder folder;
    folder.Write(kFiles[data[0] % std::size(kFiles)], std::string(reinterpret_cast<const char*>(data) + 1, size - 1));
    const auto mgr = std::make_unique<CGvxConfigMgr>();
    mgr->Init();
    for (const auto& [key, value] : mgr->GetMapCfgKeyValue()) {
        std::string checked = value;
        mgr->CheckConfValue(key, checked);
        mgr->SetGVXConfigValue("S", key, "1");
    }
    CBB::CXml document;
    mgr->GetGvxConfig(document, "");
    mgr->SetLocalIP("10.0.0.1");
    return 0;
}
