#include "base/default_logger.h"
#include "gvx_common/config/gvx_config.h"
#include "gvx_common/config/gvx_config_mgr.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

// Starts on a configuration folder and edits one setting, so that a script can end it at any moment.
//   config_saver start DIR         starts; prints the setting
//   config_saver edit DIR VALUE    starts and edits once; prints the setting
//   config_saver reach DIR IP PORT edits addresses and a port; prints "stands" for each edit that is not on the disk,
//                                  then the local address
//   config_saver edits DIR COUNT   starts and edits one setting of each file, COUNT times
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

// One setting of each file that is saved whole.
int EditAll(int value) {
    const std::string text = std::to_string(value);
    CGvxConfigMgr& mgr = *GvxConfigMgr();
    return Edit(text) + mgr.SetGVXConfigValue("LOG_CFG", "GVX_PLUGIN_DEBUG_LOG_SWITCH", value % 2 != 0 ? "1" : "0") +
           mgr.SetGVXConfigValue("SUBNET_NAT", "SUBNET_NAT_IP_LIST", "10." + text + ".0.0/255.255.0.0") +
           mgr.SetLogSFTPConf("Password", ("password " + text).c_str());
}

std::string EditReach(const char* ip, const char* port) {
    CGvxConfigMgr& mgr = *GvxConfigMgr();
    std::string told;
    for (const int result :
         {mgr.SetGVXLocalIP(ip), mgr.EditZvsGvxConfIP(ip, ip),
          mgr.EditZvsGvxConfPort({{"GVX_LISTEN_PORT", static_cast<std::uint16_t>(std::atoi(port))}})}) {
        told += result == GVX_Config::kNotOnDisk ? "stands " : std::to_string(result) + " ";
    }
    return told + mgr.GetLocalIP();
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
    OMLoggerOptions log;
    log.level = OM_LOG_ERR;
    OMAdapter::getInstance()->setLogger(MakeDefaultLogger(log, nullptr));
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
    if (mode == "edits" && argc == 4) {
        const int first = std::atoi(Setting().c_str());
        int failed = 0;
        for (int edit = 1; edit <= std::atoi(argv[3]) && failed == 0; ++edit) {
            failed = EditAll((first + edit) % kLargest + 1);
        }
        return failed != 0 ? 1 : 0;
    }
    if (mode == "reach" && argc == 5) {
        Print(EditReach(argv[3], argv[4]));
        return 0;
    }
    const int result = mode == "edit" && argc == 4 ? Edit(argv[3]) : 0;
    Print(Setting());
    return result;
}
