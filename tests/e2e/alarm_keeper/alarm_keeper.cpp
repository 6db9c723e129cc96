#include "base/alarm_store.h"
#include "base/log.h"
#include "bp/dispatcher.h"
#include "bp/service.h"
#include "gvx_common/alarm/emergency_protection.h"
#include "gvx_common/config/cloud_config_mgr.h"
#include "gvx_common/link/gvx_connection_mgr.h"

#include <ace/Message_Block.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

// Raises and clears alarms on a store, so that a script can end it at any moment. Every line on standard output is
// written before the next step begins:
//   sent TYPE LOCATION      an alarm has gone out to OMU
//   loaded RESULT           the store has been opened, and what it held taken over
//   begin raise N, done raise N (the same for clear and flow)
// Usage:
//   alarm_keeper loop STORE THREADS LINKS    without end; each thread has ten log files of its own; the links open so
//                                            many milliseconds after the store, or before it (-1), or never (-2)
//   alarm_keeper ask STORE                   does what standard input says, "raise N" or "clear N", until its end

namespace {

constexpr const char* kPath = "/log";
constexpr unsigned int kRaiseCode = 500;
constexpr unsigned int kClearCode = 550;
constexpr int kFilesOfAThread = 10;
constexpr std::size_t kBodyAt = 116;

std::mutex g_outputMutex;

void Tell(const std::string& line) {
    const std::lock_guard<std::mutex> lock(g_outputMutex);
    const std::string text = line + "\n";
    if (write(STDOUT_FILENO, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        _exit(3);
    }
}

int TellAlarm(std::unique_ptr<BP::CCmd> cmd) {
    if (cmd->GetNetElemType() == kElementOMU) {
        GVX_ALARM_REPORT report{};
        std::memcpy(&report, cmd->GetMsgBlock()->rd_ptr() + kBodyAt, kGvxAlarmWireBytes);
        Tell(std::string("sent ") + report.cAlarmType + " " + report.cLocationInfo);
    }
    return 0;
}

// What is to be said about links that swallow everything.
void PrepareLinks() {
    CCloudConfigMgr::Instance()->SetCloudConfigInited(true);
    GvxConnectionMgr()->SetException([](ADAPTER_COMMON_MESSAGE&) {});
    BP::CDispatcher::SetWriter([](const std::string&, ACE_Message_Block* block) {
        block->release();
        return 0;
    });
    BP::CDispatcher::SetSink(&TellAlarm);
    BP::CTransactionMgr::StopWaiting();  // nobody answers
}

void OpenLinks() {
    GvxConnectionMgr()->OnLinkOpened("", 0, "OMU#1", "127.0.0.1", 1);
    GvxConnectionMgr()->OnLinkOpened("", 0, "GVX#000", "127.0.0.1", 1);
}

void Do(const std::string& what, int number) {
    Tell("begin " + what + " " + std::to_string(number));
    const std::string file = std::to_string(number);
    if (what == "flow") {
        BP::fluxControlWarnInfo info{};
        info.uiThreadID = static_cast<unsigned int>(number);
        CEmergencyProtection::Instance()->OnFluxControlWarn(&info);
    } else {
        CEmergencyProtection::Instance()->OnLogWarn(what == "raise" ? kRaiseCode : kClearCode, kPath, file.c_str());
    }
    Tell("done " + what + " " + std::to_string(number));
}

[[noreturn]] void Loop(int thread) {
    unsigned int seed = static_cast<unsigned int>(getpid() * 31 + thread);
    int flow = (thread + 1) * 1000000;
    for (;;) {
        const int draw = rand_r(&seed) % (2 * kFilesOfAThread + 1);
        const int file = thread * kFilesOfAThread + draw / 2;
        if (draw == 2 * kFilesOfAThread) {
            Do("flow", ++flow);
        } else {
            Do(draw % 2 == 0 ? "raise" : "clear", file);
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    const std::string mode = argc > 2 ? argv[1] : "";
    if (mode != "ask" && (mode != "loop" || argc < 5)) {
        return 2;
    }
    const int linksAt = mode == "loop" ? std::atoi(argv[4]) : -1;
    PrepareLinks();
    if (linksAt == -1) {
        OpenLinks();
    }
    Tell("loaded " + std::to_string(CEmergencyProtection::Instance()->LoadAlarmStatus(argv[2])));
    if (mode == "ask") {
        int number = 0;
        for (std::string what; std::cin >> what >> number;) {
            Do(what, number);
        }
        return 0;
    }
    std::vector<std::thread> threads;
    if (linksAt >= 0) {
        threads.emplace_back([linksAt] {
            std::this_thread::sleep_for(std::chrono::milliseconds(linksAt));
            OpenLinks();
        });
    }
    for (int thread = 0; thread < std::atoi(argv[3]); ++thread) {
        threads.emplace_back(&Loop, thread);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    return 0;
}
