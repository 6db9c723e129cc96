#include "gvx_common/event/gvx_reactor.h"

#include "event_test_support.h"
#include "support/recording_logger.h"
#include "support/run_threads.h"

#include <algorithm>
#include <array>
#include <utility>

namespace {

constexpr std::uint32_t kDevices = 64;
constexpr std::uint32_t kProducers = 4;
constexpr std::uint32_t kPushesPerProducer = 600;
constexpr std::time_t kLongAgo = 1000;  // a moment of 1970

struct Pushed {
    std::uint32_t reqID = 0;
    std::uint32_t device = 0;
    bool old = false;
    bool accepted = false;
    bool served = false;
};

// Half of the devices are never deleted: their old commands have to expire.
std::uint32_t ReqIDOf(std::uint32_t push, std::uint32_t device) {
    static const std::vector<std::pair<std::uint32_t, std::uint32_t>> others = {{3, NSS_ADD_MAIN_DEV_REQ},
                                                                                {11, NSS_DEL_MAIN_DEV_REQ},
                                                                                {12, NSS_ADD_MAIN_DEV_REQ},
                                                                                {17, GVX_INTERNAL_REQ_DELETE}};
    for (const auto& [turn, reqID] : others) {
        if (device >= kDevices / 2 && push % 23 == turn) {
            return reqID;
        }
    }
    return NSS_PTZ_CONTROL_REQ;
}

// Every command has a number of its own, in its service; the numbers of one device rise in the order of their pushes.
TEST(GvxReactorAccountTest, LimitPurgeAndExpiryLoseNothingAndKeepTheOrder) {
    ScopedRecordingLogger log(OM_LOG_INFO);
    std::atomic<int> live{0};
    std::vector<Pushed> cmds(2 * kProducers * kPushesPerProducer);  // each written by its producer alone
    std::mutex mutex;
    std::vector<std::uint32_t> served;  // numbers, in order. Guarded by mutex.
    CGvxReactor reactor;
    for (const std::uint32_t reqID : {NSS_PTZ_CONTROL_REQ + 0u, NSS_ADD_MAIN_DEV_REQ + 0u, NSS_DEL_MAIN_DEV_REQ + 0u,
                                      GVX_INTERNAL_REQ_DELETE + 0u}) {
        BP::RegisterSessionWork(reqID, [&](BP::CGvxSessionBase&, const BP::CCmd& cmd) {
            const std::lock_guard<std::mutex> guard(mutex);
            served.push_back(cmd.GetServiceID());
            return 0;
        });
    }
    // Each producer has devices of its own and takes them in turn.
    const auto produceAll = [&](std::uint32_t firstNumber) {
        RunThreads(kProducers, [&](std::uint32_t producer) {
            for (std::uint32_t push = 0; push < kPushesPerProducer; ++push) {
                const std::uint32_t number = firstNumber + producer * kPushesPerProducer + push;
                Pushed& cmd = cmds[number];
                cmd.device = producer + kProducers * (push % (kDevices / kProducers));
                cmd.reqID = ReqIDOf(push, cmd.device);
                cmd.old = push % 7 == 3;
                TestCmd entry(cmd.reqID, "dev" + std::to_string(cmd.device), cmd.old ? kLongAgo : 0);
                cmd.accepted = reactor.PushMessage(entry.Service(number).Counted(live).Entry()) == 0;
            }
        });
        return static_cast<std::size_t>(
            std::count_if(cmds.begin(), cmds.end(), [](const Pushed& cmd) { return cmd.accepted; }));
    };
    {
        Gate gate(reactor);
        EXPECT_EQ(513u, produceAll(0)) << "as many as a busy reactor takes";
    }
    const std::size_t accepted = produceAll(kProducers * kPushesPerProducer);
    const auto settled = [&] {
        const std::lock_guard<std::mutex> guard(mutex);
        return served.size() + log->Count("will discard.") + log->Count(" discard cmd[");
    };
    EXPECT_TRUE(WaitUntil([&] { return settled() >= accepted && live == 0; })) << settled() << ", " << live << " kept";
    reactor.UnInit();
    BP::ClearSessionWork();
    EXPECT_EQ(accepted, settled());
    EXPECT_GE(cmds.size() - accepted, log->Count("device cmd queue excceed max size."));
    EXPECT_TRUE(log->Contains("takes commands again, refused["));
    EXPECT_TRUE(log->Contains("will discard.") && log->Contains(" discard cmd["));
    struct Next {
        std::uint32_t cmd = 0;
        std::uint32_t deletion = 0;
    };
    std::array<Next, kDevices> devices;
    for (const std::uint32_t number : served) {
        SCOPED_TRACE(number);
        Pushed& cmd = cmds[number];
        Next& next = devices[cmd.device];
        EXPECT_TRUE(cmd.accepted && !std::exchange(cmd.served, true));
        EXPECT_GE(number, next.cmd) << "a deletion overtakes what was pushed before it; all else keeps its order";
        if (cmd.reqID == NSS_DEL_MAIN_DEV_REQ || cmd.reqID == GVX_INTERNAL_REQ_DELETE) {
            EXPECT_GE(number, next.deletion) << "an older deletion goes with the later one";
            next.deletion = number + 1;
            continue;
        }
        next.cmd = number + 1;
        if (cmd.reqID != NSS_ADD_MAIN_DEV_REQ) {
            EXPECT_GE(number, next.deletion) << "served although its device was deleted meanwhile";
            EXPECT_FALSE(cmd.old) << "served although it has expired";
        }
    }
    for (const Pushed& cmd : cmds) {
        EXPECT_FALSE(cmd.reqID == NSS_ADD_MAIN_DEV_REQ && cmd.accepted && !cmd.served) << "always served";
    }
}

}  // namespace
