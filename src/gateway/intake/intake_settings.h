#pragma once

#include <cstdint>
#include <string>

namespace gvx {

// Limits of the queue between the intake's connections and the plug-ins (CQueueFlowControl).
struct IntakeLimits {
    unsigned int maxBlocks = 1024;
    unsigned int maxWaitMs = 2000;
    unsigned int maxRate = 0;            // blocks in a window of up to two seconds; 0 for no limit
    unsigned int alarmIntervalSec = 60;  // quiet time before an alarm clears
};

// Where devices push what they have to tell.
struct IntakeSettings {
    std::string ip = "127.0.0.1";
    std::uint16_t port = 0;  // 0: there is no intake
    IntakeLimits limits;
};

// Reads the keys GVX_INTAKE_* of the configuration. Any thread.
IntakeSettings ReadIntakeSettings();

}  // namespace gvx
