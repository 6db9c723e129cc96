#include "plugin_support/picture_desk.h"

#include "base/clock.h"
#include "base/zvs_error.h"
#include "support/scripted_server.h"
#include "support/wait_until.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <list>
#include <mutex>
#include <new>
#include <string>
#include <vector>

namespace gvxplugin {
namespace {

std::mutex g_mutex;
std::vector<std::string> g_reports;  // type, session and picture; guarded by g_mutex

void TakeReport(ADAPTER_COMMON_MESSAGE& message) {
    const std::lock_guard<std::mutex> lock(g_mutex);
    g_reports.push_back(std::to_string(message.ExceptionType) + " " + std::to_string(message.ulIdentifyID) + " " +
                        message.stContentId);
}

std::vector<std::string> Reports(const std::string& start) {
    const std::lock_guard<std::mutex> lock(g_mutex);
    std::vector<std::string> found;
    for (const std::string& report : g_reports) {
        if (report.compare(0, start.size(), start) == 0) {
            found.push_back(report);
        }
    }
    return found;
}

class PictureDeskTest : public testing::Test {
protected:
    PictureDeskTest() {
        m_desk.SetCallback(&TakeReport);
        m_request.bIsUpload = true;
        const std::lock_guard<std::mutex> lock(g_mutex);
        g_reports.clear();
    }
    // Takes a picture and gives it that address; its name.
    std::string SendTo(const std::string& url) {
        EXPECT_EQ(0, m_desk.Keep("CAM1", "CAM1_0", m_request, std::make_shared<std::string>("picture")));
        PU_UPLOAD_IMAGE_RSP address;
        const std::string last = Reports("101 ").back();
        address.strContentID = last.substr(last.rfind(' ') + 1);
        address.strUrl = url;
        m_desk.Send("CAM1", address);
        return address.strContentID;
    }

    PictureDesk m_desk{"test", "TestUpload"};
    PU_SNAP_CONF_REQ m_request{};
};

TEST_F(PictureDeskTest, SixteenPicturesAreTakenAtATimeAndWhatIsNotTakenIsTold) {
    const auto soon = [] { return gvx::MonotonicMilliseconds() + 20; };
    std::list<PictureDesk::Turn> turns;
    for (int i = 0; i < 16; ++i) {
        turns.emplace_back(m_desk, soon());
        EXPECT_TRUE(turns.back().HasCome());
    }
    EXPECT_FALSE(PictureDesk::Turn(m_desk, soon()).HasCome());
    turns.pop_back();
    EXPECT_TRUE(PictureDesk::Turn(m_desk, soon()).HasCome());
    const std::string device = "CAM1";
    m_request.sessionId = 7;
    m_request.nSnapNum = 3;
    try {
        PictureDesk::Owed owed(m_desk, device, "CAM1_0", m_request);
        owed.NoteTaken();
        throw std::bad_alloc();
    } catch (const std::bad_alloc&) {
        EXPECT_EQ(std::vector<std::string>(2, "103 7 "), Reports("")) << "told on every way out";
    }
    for (int i = 0; i < 65; ++i) {
        EXPECT_EQ(0, m_desk.Keep("CAM1", "CAM1_0", m_request, std::make_shared<std::string>("picture")));
    }
    EXPECT_EQ(3u, Reports("103 ").size()) << "the oldest of 65 has given way";
}

TEST_F(PictureDeskTest, AServerThatAnswersNothingHoldsUpNoOther) {
    ScriptedServer silent([](ScriptedServer::Link& link) { link.WaitClosed(); });
    std::vector<std::string> held;
    for (int i = 0; i < 40; ++i) {
        held.push_back(SendTo("https://127.0.0.1:" + std::to_string(silent.Port()) + "/in?FILESESSIONID=1"));
    }
    const std::vector<std::string> refused = Reports("103 ");
    EXPECT_GE(refused.size(), 6u) << "half of the room is for one server, and two are being sent";
    const std::string other = SendTo("https://127.0.0.1:1/in?FILESESSIONID=1");
    ASSERT_TRUE(WaitUntil([&] { return Reports("103 0 " + other).size() == 1; }));
    const std::vector<std::string> lost = Reports("103 0 ");
    EXPECT_LT(std::find(lost.begin(), lost.end(), "103 0 " + other),
              std::find(lost.begin(), lost.end(), "103 0 " + held.front()))
        << "it went past";
}

}  // namespace
}  // namespace gvxplugin
