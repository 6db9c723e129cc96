#include "rtsp/camera_picture.h"

#include "base/clock.h"
#include "base/zvs_error.h"
#include "gvx_common/security/gvx_security_mgr.h"
#include "support/scripted_server.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

namespace gvxrtsp {
namespace {

const std::string kJpeg = "\xFF\xD8 picture \xFF\xD9";

std::string Answer(const std::string& status, const std::string& heads, const std::string& body) {
    return "HTTP/1.1 " + status + "\r\n" + heads + "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

TEST(FetchCameraPicture, TakesAWholeJpegAndNothingElse) {
    const struct {
        const char* name;
        std::string answer;
        int result;
        const char* said;  // a part of the reason
    } rows[] = {
        {"a picture", Answer("200 OK", "", kJpeg), 0, ""},
        {"one with padding", Answer("200 OK", "", kJpeg + std::string(900, '\0')), 0, ""},
        {"another path", Answer("404 Not Found", "", "<html>"), ZVS_GVX_GET_SNAP_SHOT_ERROR,
         "\"HTTP/1.1 404 Not Found\""},
        {"another place", Answer("302 Found", "Location: http://192.0.2.1/x.jpg\r\n", ""), ZVS_GVX_GET_SNAP_SHOT_ERROR,
         "302"},
        {"a picture that breaks off", "HTTP/1.1 200 OK\r\nContent-Length: 5000\r\n\r\n\xFF\xD8 pic",
         ZVS_GVX_GET_SNAP_SHOT_ERROR, "no whole JPEG"},
        {"a length beyond all limits", "HTTP/1.1 200 OK\r\nContent-Length: 99999999999\r\n\r\n" + kJpeg,
         ZVS_GVX_GET_SNAP_SHOT_ERROR, "no whole JPEG"},
        {"no length", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\n", ZVS_GVX_GET_SNAP_SHOT_ERROR,
         "200 OK"},
        {"a header without end", std::string(20000, 'x'), ZVS_GVX_GET_SNAP_SHOT_ERROR, "no whole JPEG"},
        {"control characters", Answer("500 \x1b[31m\n", "", ""), ZVS_GVX_GET_SNAP_SHOT_ERROR, "500 ?[31m?"},
        {"silence", "", ZVS_GVX_GET_SNAP_SHOT_ERROR, "gave no answer"},
        {"a question for the password", Answer("401 Unauthorized", "WWW-Authenticate: Basic realm=\"x\"\r\n", ""),
         ZVS_GVX_UNAUTHORIZED, "refuses user or password"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        ScriptedServer server([&](ScriptedServer::Link& link) {
            link.ReadRequest();
            link.Write(row.answer);
        });
        CameraProfile profile;
        profile.address = "127.0.0.1";
        profile.httpPort = server.Port();
        std::string bytes;
        std::string error;
        EXPECT_EQ(row.result,
                  FetchCameraPicture(profile, "/snapshot.jpg", gvx::MonotonicMilliseconds() + 8000, bytes, error));
        EXPECT_NE(std::string::npos, error.find(row.said)) << error;
        EXPECT_EQ(row.result == 0, bytes.compare(0, kJpeg.size(), kJpeg) == 0);
    }
}

TEST(FetchCameraPicture, AsksNoSecondTimeWhenTheTimeIsOver) {
    std::atomic<int> asked{0};
    ScriptedServer server([&](ScriptedServer::Link& link) {
        link.ReadRequest();
        std::this_thread::sleep_for(std::chrono::milliseconds(asked++ == 0 ? 1600 : 0));
        link.Write(Answer("401 Unauthorized", "WWW-Authenticate: Basic realm=\"x\"\r\n", ""));
    });
    CameraProfile profile;
    char stored[CSecurityMgr::EncipheredSize(64)] = {};
    ASSERT_EQ(0, CSecurityMgr::Instance()->EncryptString("Camera-123", stored, sizeof(stored)));
    profile.address = "127.0.0.1";
    profile.httpPort = server.Port();
    profile.user = "admin";
    profile.password = stored;
    const auto ask = [&](int milliseconds) {
        std::string bytes;
        std::string error;
        FetchCameraPicture(profile, "/snapshot.jpg", gvx::MonotonicMilliseconds() + milliseconds, bytes, error);
        return error.substr(error.find(' ') + 1);
    };
    EXPECT_EQ("gave no picture in time.", ask(2500));
    EXPECT_EQ(1, asked);
    EXPECT_EQ("refuses user or password.", ask(8000));
    EXPECT_EQ(3, asked);
}

}  // namespace
}  // namespace gvxrtsp
