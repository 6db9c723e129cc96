#include "gvx_common/security/gvx_security_mgr.h"
#include "support/rtsp_client.h"

#include <cstdio>
#include <iostream>
#include <string>

// Goes through a whole session with an RTSP server, and prints a line for each step. The clear password is the one line
// of standard input.
//
//   rtsp_session URL USER TRANSPORT
//
// TRANSPORT is the header's value for the first media, with two numbers "0-1" that are counted up for the next. When
// the media travels on the connection, packets are read until each of its channels has brought one.

namespace {

constexpr int kMaxPackets = 2000;

bool Told(const char* step, int result, const std::string& more = std::string()) {
    std::printf("%s %d%s\n", step, result, result == 0 ? more.c_str() : "");
    return result == 0;
}

std::string TransportOf(const std::string& pattern, int media) {
    const std::string numbers = "0-1";
    std::string transport = pattern;
    const std::size_t at = transport.rfind(numbers);
    if (at != std::string::npos) {
        transport.replace(at, numbers.size(), std::to_string(2 * media) + "-" + std::to_string(2 * media + 1));
    }
    return transport;
}

bool SetUpAndPlay(RtspClient& client, const std::string& transport) {
    int media = 0;
    for (const CCommonSession* session : client.Sessions()) {
        if (!Told("SETUP", client.Setup(*session, TransportOf(transport, media++)))) {
            return false;
        }
    }
    if (!Told("PLAY", client.Play())) {
        return false;
    }
    if (transport.find("interleaved=") != std::string::npos) {
        const auto missing = [&] { return client.Packets().count(0) == 0 || client.Packets().count(2) == 0; };
        for (int read = 0; read < kMaxPackets && missing() && client.ReadInterleaved(); ++read) {
        }
        std::printf("PACKETS %s\n", missing() ? "missing" : "of each");
    }
    return Told("TEARDOWN", client.Teardown());
}

}  // namespace

int main(int argc, char** argv) {
    std::string clear;
    char password[512] = {};
    if (argc != 4 || !std::getline(std::cin, clear) ||
        CSecurityMgr::Instance()->EncryptString(clear.c_str(), password, sizeof(password)) != 0) {
        std::fprintf(stderr, "usage: %s URL USER TRANSPORT <PASSWORD\n", argv[0]);
        return 2;
    }
    RtspClient client(argv[1], argv[2], password);
    const int connected = client.Connect();
    const int options = connected == 0 ? client.Options() : connected;
    std::string told;
    for (const std::string& method : client.MethodNames()) {
        told += " " + method;
    }
    if (!Told("OPTIONS", options, told)) {
        return 1;
    }
    const int result = client.Describe();
    told.clear();
    for (const CCommonSession* session : client.Sessions()) {
        told +=
            std::string(" ") + session->m_szSessionName + "=" + session->m_szSessionType + "=" + session->m_szCtrlPath;
    }
    if (!Told("DESCRIBE", result, told) || !SetUpAndPlay(client, argv[3])) {
        return 1;
    }
    std::printf("AUTHORIZATION %s\n", client.Authorization().substr(0, client.Authorization().find(' ')).c_str());
    return 0;
}
