#pragma once

#include <json/value.h>

#include <mutex>
#include <string>

// What tests may ask of the loaded plug-in "keeper", found by dlsym as "g_keeper".
struct KeeperState {
    std::mutex mutex;
    Json::Value taken;  // what the last operation was given, in the form of its record; guarded by mutex
    std::string mask;   // of the last record with a mask; guarded by mutex
};
extern "C" __attribute__((visibility("default"))) KeeperState g_keeper;
