#include "gateway/gateway_fixture.h"

#include "gateway/intake/intake.h"
#include "gateway/plugins/plugin_guard.h"
#include "support/wait_until.h"

namespace {

// The same gateway with a port on which devices push; "moody" is in the mood that they name.
class GatewayIntakeTest : public GatewayTest {
protected:
    GatewayIntakeTest() {
        intakePort = FakeListener().Port();
        folder.Settings(
            "GVX_PLUGIN_LIST=moody,takes\nGVX_PLUGIN_CALL_LIMIT=1\nGVX_INTAKE_MAX_WAIT_MS=3600000\nGVX_INTAKE_PORT=" +
            std::to_string(intakePort) + "\n");
    }
    void Push(const std::string& bytes) {
        device = FakePeer::Connect(intakePort);
        ASSERT_NE(device, nullptr);
        ASSERT_TRUE(device->SendRaw(bytes));
    }

    std::uint16_t intakePort = 0;
    std::unique_ptr<FakePeer> device;
};

}  // namespace

TEST_F(GatewayIntakeTest, FaultOfAPluginCostsItsBlockAlone) {
    Push("throw");
    EXPECT_TRUE(log->WaitFor("plug-in moody: GvxTakeIntakeBlock of device - threw: moody in TakeIntakeBlock"));
    Push("error");
    EXPECT_TRUE(log->WaitFor("plug-in moody: GvxTakeIntakeBlock of device - failed."));
    EXPECT_EQ(AddDevice("CAM1").code, 0u);

    const gvx::StartResult result = gvx::Intake().Start(gvx::ReadIntakeSettings(), {});
    EXPECT_EQ(result.code, gvx::ExitCode::CannotListen);
    EXPECT_NE(result.reason.find(std::to_string(intakePort)), std::string::npos) << result.reason;
}

TEST_F(GatewayIntakeTest, APluginThatDoesNotReturnIsNamedAndLeftBehind) {
    Push("hang");
    ASSERT_TRUE(WaitUntil([] { return !gvx::PluginCallWatch::Instance().OpenCalls().empty(); }));
    EXPECT_EQ(AddDevice("CAM1").code, 0u) << "nobody else is held up";
    EXPECT_TRUE(log->WaitFor("plug-in takes: GvxTakeIntakeBlock of device - failed. 4 bytes"));
    Push("another");
    EXPECT_TRUE(log->WaitFor("plug-in takes: GvxTakeIntakeBlock of device - failed. 7 bytes")) << "it goes on alone";
    EXPECT_FALSE(gateway->Stop());
    EXPECT_TRUE(log->Contains("plug-in moody: GvxTakeIntakeBlock of device - has not returned for"));
    EXPECT_TRUE(device->ReadUntilClosed());
    EndLeftBehind(0);
}
