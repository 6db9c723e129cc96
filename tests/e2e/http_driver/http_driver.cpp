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

int Request(CCommonHttpStream& stream, const std::string& host, std::uint16_t port, const std::string& user,
            const std::string& path, const char* authorization) {
    long length = 0;
    const std::string portText = std::to_string(port);
    int result = stream.Init(host.c_str(), port, user.c_str(), g_enciphered.c_str());
    const bool formatted =
        stream.FormatRequestHeader(host.c_str(), portText.c_str(), path.c_str(), length, "GET ", nullptr, nullptr, 0, 0,
                                   0) != nullptr &&
        (authorization == nullptr || stream.FormatRequestHeaderEx("Authorization", authorization, length) != nullptr);
    if (result == 0 && (!formatted || !stream.SendRequest(nullptr, length, false))) {
        result = 1;
    }
    return result;
}

void Snapshot(std::istream& words) {
    std::string host;
    std::uint16_t port = 0;
    std::string user;
    std::string path;
    std::string file;
    words >> host >> port >> user >> path >> file;
    CCommonHttpStream stream;
    Common_HTTP_AUTH challenge{};
    challenge.authType = HTTP_AUTH_MAX;
    int result = Request(stream, host, port, user, path, nullptr);
    if (result == 0) {
        result = stream.DealHttpSnapShot(file.c_str(), challenge);
    }
    if (result == ZVS_GVX_UNAUTHORIZED) {
        const char* value = challenge.authType == HTTP_AUTH_BASIC
                                ? stream.GenBasicAuthorization()
                                : stream.GenDigestAuthorization(challenge, path.c_str());
        const std::string authorization = value != nullptr ? value : "";
        result = value == nullptr ? 1 : Request(stream, host, port, user, path, authorization.c_str());
        if (result == 0) {
            Common_HTTP_AUTH second{};
            result = stream.DealHttpSnapShot(file.c_str(), second);
        }
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
