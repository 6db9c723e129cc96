#pragma once

#include "gvx_common/adapter/gvx_adapter_sdk.h"

#include <atomic>
#include <string>

// What tests may ask of the loaded plug-in "moody", found by dlsym as "g_moody".
struct MoodyState {
    std::atomic<bool> release{false};  // operations that hang return
    std::atomic<int> hanging{0};       // operations that hang at this moment
    std::atomic<int> alive{0};         // devices, lenses and stream threads
    std::atomic<int> refused{0};       // packets that were answered with ZVS_GVX_OPEN_SOCKET_ERROR
    std::atomic<ADAPTER_COMMON_MESSAGE_CALLBACK*> report{nullptr};

    // Reports an exception of that type for the device, as a device SDK would.
    void Report(const std::string& device, unsigned short type) const {
        ADAPTER_COMMON_MESSAGE message{};
        message.ExceptionType = type;
        device.copy(message.chDevId, sizeof(message.chDevId) - 1);
        report.load()(message);
    }
};
extern "C" __attribute__((visibility("default"))) MoodyState g_moody;
