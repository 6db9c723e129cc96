#include "gvx_common/event/GvxNotifier.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace {

std::string g_calls;

class Observer : public GvxObserver {
public:
    explicit Observer(const char* name) : m_name(name) {}
    void OnGvxMessage(std::shared_ptr<GvxMessage> message) override {
        g_calls += m_name;
        m_kept = std::move(message);
    }
    std::shared_ptr<GvxMessage> m_kept;

private:
    const char* m_name;
};

// The observer's part lies behind another base, as in an adapter that has both roles.
struct Padding {
    virtual ~Padding() = default;
    int data = 0;
};
class BothRoles : public Padding, public GvxNotifier, public GvxObserver {
public:
    void OnGvxMessage(std::shared_ptr<GvxMessage>) override { g_calls += "self"; }
};

std::shared_ptr<GvxMessage> Message() {
    auto message = std::make_shared<GvxMessage>();
    message->SetMessageTye(EN_GVX_MESSAGE_TYPE_MAIN_DEVICE_ONLINE);
    return message;
}

class GvxNotifierTest : public ::testing::Test {
protected:
    void SetUp() override { g_calls.clear(); }
    GvxNotifier m_notifier;
    Observer m_a{"a"};
    Observer m_b{"b"};
};

TEST_F(GvxNotifierTest, TellsInOrderOfAttachmentAndTwiceWhenAttachedTwice) {
    m_notifier.Notify(Message());
    EXPECT_EQ("", g_calls);
    m_notifier.Attach(&m_b);
    m_notifier.Attach(&m_a);
    m_notifier.Attach(&m_b);
    m_notifier.Notify(Message());
    EXPECT_EQ("bab", g_calls);
    m_notifier.Detach(&m_b);
    m_notifier.Notify(Message());
    EXPECT_EQ("baba", g_calls);
}

TEST_F(GvxNotifierTest, ObjectDoesNotObserveItself) {
    BothRoles both;
    both.Attach(&both);
    both.Attach(nullptr);
    both.Attach(&m_a);
    both.Notify(Message());
    EXPECT_EQ("a", g_calls);
    m_notifier.Attach(&both);
    m_notifier.Notify(Message());
    EXPECT_EQ("aself", g_calls) << "but others";
}

}  // namespace
