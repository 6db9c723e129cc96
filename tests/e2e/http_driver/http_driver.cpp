// Fetches snapshots and uploads files as a plug-in does, for the scripts that play the other side. Commands come on
// standard input, a line each; each is answered by a line.
//   password TEXT                        the credentials of what follows
//   snapshot HOST PORT USER PATH FILE    answered by the result, the type of challenge, its algorithms and lengths
//   upload THREADS FILE URL [FILE URL]   answered by the result of each
#include "base/bounded_string.h"
#include "base/default_logger.h"
#include "base/zvs_error.h"
#include "gvx_common/config/gvx_config_mgr.h"
#include "gvx_common/http/common_http_stream.h"
#include "gvx_common/https/https_stream_util.h"
#include "gvx_common/security/gvx_security_mgr.h"

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

std::string g_enciphered;

struct Camera {
    std::string host;
    std::uint16_t port = 0;
    std::string user;
    std::string path;
    std::string file;
};

// One exchange, with an Authorization header where that is not null.
int Exchange(CCommonHttpStream& stream, const Camera& camera, const char* authorization, Common_HTTP_AUTH& challenge) {
    long length = 0;
    const int result = stream.Init(camera.host.c_str(), camera.port, camera.user.c_str(), g_enciphered.c_str());
    if (result != 0) {
        return result;
    }
    const bool sent =
        stream.FormatRequestHeader(camera.host.c_str(), std::to_string(camera.port).c_str(), camera.path.c_str(),
                                   length, "GET ", nullptr, nullptr, 0, 0, 0) != nullptr &&
        (authorization == nullptr || stream.FormatRequestHeaderEx("Authorization", authorization, length) != nullptr) &&
        stream.SendRequest(nullptr, length, false);
    return sent ? stream.DealHttpSnapShot(camera.file.c_str(), challenge) : 1;
}

void Snapshot(std::istream& words) {
    Camera camera;
    words >> camera.host >> camera.port >> camera.user >> camera.path >> camera.file;
    CCommonHttpStream stream;
    Common_HTTP_AUTH challenge{};
    challenge.authType = HTTP_AUTH_MAX;
    int result = Exchange(stream, camera, nullptr, challenge);
    if (result == ZVS_GVX_UNAUTHORIZED) {
        const char* value = challenge.authType == HTTP_AUTH_BASIC
                                ? stream.GenBasicAuthorization()
                                : stream.GenDigestAuthorization(challenge, camera.path.c_str());
        Common_HTTP_AUTH second{};
        result = value == nullptr ? 1 : Exchange(stream, camera, std::string(value).c_str(), second);
    }
    stream.Close();
    std::printf("%d %d %d %zu %zu %s\n", result, challenge.authType, challenge.uiAlgorithm,
                std::strlen(challenge.szRealm), std::strlen(challenge.szNonce),
                challenge.szMsgQOP[0] != '\0' ? challenge.szMsgQOP : "-");
}

void Upload(std::istream& words) {
    std::size_t threads = 0;
    std::vector<std::pair<std::string, std::string>> uploads;
    words >> threads;
    for (std::string file, url; words >> file >> url;) {
        uploads.emplace_back(file, url);
    }
    std::vector<int> results(uploads.size(), -1);
    std::atomic<std::size_t> next{0};
    std::vector<std::thread> running;
    for (std::size_t i = 0; i < threads; ++i) {
        running.emplace_back([&uploads, &results, &next] {
            for (std::size_t at = next++; at < uploads.size(); at = next++) {
                results[at] = CHttpsStreamUtil::GetInstance()->UploadFile(uploads[at].first, uploads[at].second);
            }
        });
    }
    for (std::thread& thread : running) {
        thread.join();
    }
    for (const int result : results) {
        std::printf("%d ", result);
    }
    std::printf("\n");
}

}  // namespace

int main() {
    std::signal(SIGPIPE, SIG_IGN);
    OMAdapter::getInstance()->setLogger(MakeDefaultLogger(OMLoggerOptions(), nullptr));
    if (GvxConfigMgr()->Init() != 0) {
        return 1;
    }
    for (std::string line; std::getline(std::cin, line);) {
        std::istringstream words(line);
        std::string command;
        words >> command;
        if (command == "password") {
            char enciphered[1024];
            std::string clear;
            words >> clear;
            if (GvxSecurityMgr()->EncryptString(clear.c_str(), enciphered, sizeof(enciphered)) != 0) {
                return 1;
            }
            g_enciphered = enciphered;
            std::printf("0\n");
        } else if (command == "snapshot") {
            Snapshot(words);
        } else if (command == "upload") {
            Upload(words);
        }
        std::fflush(stdout);
    }
    GvxSecurityMgr()->UnInit();
    return 0;
}
