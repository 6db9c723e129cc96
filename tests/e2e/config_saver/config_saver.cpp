#include "gvx_common/config/gvx_config_mgr.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

// Starts on a configuration folder and edits one setting, so that a script can end it at any moment.
//   config_saver start DIR         starts; prints the setting
//   config_saver edit DIR VALUE    starts and edits once; prints the setting
//   config_saver loop DIR          starts and edits without end; prints each value once it is saved
// Exits 0; 1 when the edit failed; 2 for a wrong use; 3 when the start failed; 4 when it left the side file.

namespace {

constexpr const char* kSection = "SERVICE_CAPACITY";
constexpr const char* kKey = "MAX_CAPS";
constexpr int kLargest = 150;

std::string Setting() {
    return GvxConfigMgr()->GetConfValue(kKey, "absent");
}

int Edit(const std::string& value) {
    return GvxConfigMgr()->SetGVXConfigValue(kSection, kKey, value) != 0 ? 1 : 0;
}

void Print(const std::string& text) {
    std::printf("%s\n", text.c_str());
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        return 2;
    }
    const std::string mode = argv[1];
    const std::string folder = argv[2];
    setenv("GVX_CONFIG_DIR", folder.c_str(), 1);
    if (GvxConfigMgr()->Init() != 0) {
        return 3;
    }
    if (std::filesystem::exists(folder + "/zvs_gvx.conf.bak")) {
        return 4;
    }
    if (mode == "loop") {
        for (int value = std::atoi(Setting().c_str()) % kLargest + 1; Edit(std::to_string(value)) == 0;
             value = value % kLargest + 1) {
            Print(std::to_string(value));
        }
        return 1;
    }
    const int result = mode == "edit" && argc == 4 ? Edit(argv[3]) : 0;
    Print(Setting());
    return result;
}
