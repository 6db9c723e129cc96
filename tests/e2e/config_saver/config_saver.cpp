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

void Print(const std::string& text) {
    std::printf("%s\n", text.c_str());
    std::fflush(stdout);
}

int Start(const std::string& folder) {
    setenv("GVX_CONFIG_DIR", folder.c_str(), 1);
    if (GvxConfigMgr()->Init() != 0) {
        return 3;
    }
    return std::filesystem::exists(folder + "/zvs_gvx.conf.bak") ? 4 : 0;
}

int EditWithoutEnd() {
    int value = std::atoi(Setting().c_str());
    for (;;) {
        value = value % kLargest + 1;
        if (GvxConfigMgr()->SetGVXConfigValue(kSection, kKey, std::to_string(value)) != 0) {
            return 1;
        }
        Print(std::to_string(value));
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        return 2;
    }
    const std::string mode = argv[1];
    const int started = Start(argv[2]);
    if (started != 0) {
        return started;
    }
    if (mode == "loop") {
        return EditWithoutEnd();
    }
    const bool failed = mode == "edit" && (argc < 4 || GvxConfigMgr()->SetGVXConfigValue(kSection, kKey, argv[3]) != 0);
    Print(Setting());
    return failed ? 1 : 0;
}
