#include "gvx_common/event/gvx_reactor.h"

#include "event_test_support.h"
#include "bp/cmd.h"
#include "support/recording_logger.h"

#include <algorithm>
#include <array>
#include <thread>
#include <utility>

namespace {

constexpr std::uint32_t kDevices = 64;
constexpr std::uint32_t kProducers = 4;
constexpr std::uint32_t kPushesPerProducer = 600;
constexpr std::time_t kLongAgo = 1000;  // a moment of 1970

// Every command has a number of its own, in its service; the numbers of one device rise in the order of their pushes.
struct Account {
    enum class Fate { Refused, Accepted, Served };
    struct Cmd {
        std::uint32_t reqID = 0;
        std::uint32_t device = 0;
        bool old = false;
        Fate fate = Fate::Refused;
    };
    std::vector<Cmd> cmds{2 * kProducers * kPushesPerProducer};  // each written by its producer alone
    std::mutex mutex;
    std::vector<std::uint32_t> served;  // numbers, in order. Guarded by mutex.

    std::size_t Count(Fate fate) const {
        return static_cast<std::size_t>(
            std::count_if(cmds.begin(), cmds.end(), [&](const Cmd& cmd) { return cmd.fate == fate; }));
    }
    std::size_t ServedCount() {
        const std::lock_guard<std::mutex> guard(mutex);
        return served.size();
    }
};

bool IsDeletion(std::uint32_t reqID) {
    return reqID == NSS_DEL_MAIN_DEV_REQ || reqID == GVX_INTERNAL_REQ_DELETE;
}

// Half of the devices are never deleted: their old commands have to expire.
std::uint32_t ReqIDOf(std::uint32_t push, std::uint32_t device) {
    if (device < kDevices / 2) {
        return NSS_PTZ_CONTROL_REQ;
    }
    switch (push % 23) {
        case 11:
            return NSS_DEL_MAIN_DEV_REQ;
        case 17:
            return GVX_INTERNAL_REQ_DELETE;
        case 12:
        case 3:
            return NSS_ADD_MAIN_DEV_REQ;
        default:
            return NSS_PTZ_CONTROL_REQ;
    }
}

class GvxReactorAccountTest : public ::testing::Test {
protected:
    GvxReactorAccountTest() {
        for (const std::uint32_t reqID : {NSS_PTZ_CONTROL_REQ + 0u, NSS_ADD_MAIN_DEV_REQ + 0u,
                                          NSS_DEL_MAIN_DEV_REQ + 0u, GVX_INTERNAL_REQ_DELETE + 0u}) {
            BP::RegisterSessionWork(reqID, [this](BP::CGvxSessionBase&, const BP::CCmd& cmd) {
                const std::lock_guard<std::mutex> guard(m_account.mutex);
                m_account.served.push_back(cmd.GetServiceID());
                return 0;
            });
        }
    }
    ~GvxReactorAccountTest() override {
        m_reactor.UnInit();
        BP::ClearSessionWork();
    }

    // Each producer has devices of its own and takes them in turn.
    void Produce(std::uint32_t producer, std::uint32_t firstNumber) {
        for (std::uint32_t push = 0; push < kPushesPerProducer; ++push) {
            const std::uint32_t number = firstNumber + producer * kPushesPerProducer + push;
            Account::Cmd& cmd = m_account.cmds[number];
            cmd.device = producer + kProducers * (push % (kDevices / kProducers));
            cmd.reqID = ReqIDOf(push, cmd.device);
            cmd.old = push % 7 == 3;
            TestCmd entry(cmd.reqID, "dev" + std::to_string(cmd.device), cmd.old ? kLongAgo : 0);
            if (m_reactor.PushMessage(entry.Service(number).Counted(m_live).Entry()) == 0) {
                cmd.fate = Account::Fate::Accepted;
            }
        }
    }
    void ProduceAll(std::uint32_t firstNumber) {
        std::vector<std::thread> producers;
        for (std::uint32_t producer = 0; producer < kProducers; ++producer) {
            producers.emplace_back([=] { Produce(producer, firstNumber); });
        }
        for (std::thread& producer : producers) {
            producer.join();
        }
    }
    std::size_t Gone(const RecordingLogger& log) const {
        return log.Count("will discard.") + log.Count(" discard cmd[");
    }
    void MarkServed() {
        for (const std::uint32_t number : m_account.served) {
            ASSERT_EQ(Account::Fate::Accepted, m_account.cmds[number].fate) << "served twice or never accepted";
            m_account.cmds[number].fate = Account::Fate::Served;
        }
    }

    std::atomic<int> m_live{0};
    Account m_account;
    CGvxReactor m_reactor;
};

// What the served commands of one device must look like, one after the other.
class DeviceOrder {
public:
    void Check(std::uint32_t number, const Account::Cmd& cmd) {
        if (IsDeletion(cmd.reqID)) {
            EXPECT_GE(number, m_nextCmd) << "a deletion overtakes what was pushed before it, and is not overtaken";
            EXPECT_GE(number, m_nextDeletion) << "an older deletion goes with the later one";
            m_nextDeletion = number + 1;
            return;
        }
        EXPECT_GE(number, m_nextCmd) << "out of order";
        m_nextCmd = number + 1;
        if (cmd.reqID != NSS_ADD_MAIN_DEV_REQ) {
            EXPECT_GE(number, m_nextDeletion) << "served although its device was deleted meanwhile";
            EXPECT_FALSE(cmd.old) << "served although it has expired";
        }
    }

private:
    std::uint32_t m_nextCmd = 0;
    std::uint32_t m_nextDeletion = 0;
};

TEST_F(GvxReactorAccountTest, LimitPurgeAndExpiryLoseNothingAndKeepTheOrder) {
    ScopedRecordingLogger log(OM_LOG_INFO);
    {
        Gate gate(m_reactor);
        ProduceAll(0);
        EXPECT_EQ(513u, m_account.Count(Account::Fate::Accepted)) << "as many as a busy reactor takes";
    }
    ProduceAll(kProducers * kPushesPerProducer);
    const std::size_t accepted = m_account.Count(Account::Fate::Accepted);
    EXPECT_TRUE(WaitUntil([&] { return m_account.ServedCount() + Gone(*log) >= accepted && m_live == 0; }))
        << m_account.ServedCount() << " served, " << Gone(*log) << " discarded, " << m_live << " kept";
    m_reactor.UnInit();
    EXPECT_EQ(accepted, m_account.served.size() + Gone(*log));
    EXPECT_EQ(m_account.Count(Account::Fate::Refused), log->Count("device cmd queue excceed max size."));
    EXPECT_GT(log->Count("will discard."), 0u);
    EXPECT_GT(log->Count(" discard cmd["), 0u);
    MarkServed();
    std::array<DeviceOrder, kDevices> orders;
    for (const std::uint32_t number : m_account.served) {
        SCOPED_TRACE(number);
        const Account::Cmd& cmd = m_account.cmds[number];
        orders[cmd.device].Check(number, cmd);
    }
    for (const Account::Cmd& cmd : m_account.cmds) {
        const bool neverDiscarded = cmd.reqID == NSS_ADD_MAIN_DEV_REQ;
        EXPECT_FALSE(neverDiscarded && cmd.fate == Account::Fate::Accepted) << "a re-addition is always served";
    }
}

}  // namespace
