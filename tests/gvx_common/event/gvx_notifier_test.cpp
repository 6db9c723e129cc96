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
        g_calls += message->GetMessageType() == EN_GVX_MESSAGE_TYPE_MAIN_DEVICE_ONLINE ? m_name : "?";
    }

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

TEST(GvxNotifierTest, TellsInOrderOfAttachmentAndTwiceWhenAttachedTwiceButNotItself) {
    const auto message = std::make_shared<GvxMessage>();
    message->SetMessageTye(EN_GVX_MESSAGE_TYPE_MAIN_DEVICE_ONLINE);
    Observer a("a");
    Observer b("b");
    BothRoles both;
    both.Notify(message);
    EXPECT_EQ("", g_calls);
    for (GvxObserver* observer : std::initializer_list<GvxObserver*>{&b, &both, nullptr, &a, &b}) {
        both.Attach(observer);
    }
    both.Notify(message);
    EXPECT_EQ("bab", g_calls);
    both.Detach(&b);
    both.Notify(message);
    EXPECT_EQ("baba", g_calls);
    GvxNotifier other;
    other.Attach(&both);
    other.Notify(message);
    EXPECT_EQ("babaself", g_calls) << "but others";
}

}  // namespace
