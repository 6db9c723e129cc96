#include "gateway/links/link_options.h"

#include "base/log.h"
#include "bp/link_tls.h"
#include "gvx_common/config/gvx_config_mgr.h"
#include "gvx_common/config/setting_table.h"

#include <algorithm>
#include <sstream>
#include <string>

namespace gvx {

namespace {

struct TimeRow {
    Setting setting;
    int BP::LinkOptions::*field;
};
constexpr TimeRow kTimes[] = {
    {Setting::GVX_LINK_REGISTER_TIME, &BP::LinkOptions::registerTimeoutMs},
    {Setting::GVX_LINK_FRAME_TIME, &BP::LinkOptions::frameTimeoutMs},
    {Setting::GVX_LINK_KEEPALIVE_TIME, &BP::LinkOptions::keepAliveMs},
    {Setting::GVX_LINK_DEAD_TIME, &BP::LinkOptions::silenceTimeoutMs},
    {Setting::GVX_LINK_BACKOFF_MIN, &BP::LinkOptions::backoffMinMs},
    {Setting::GVX_LINK_BACKOFF_MAX, &BP::LinkOptions::backoffMaxMs},
};

struct SizeRow {
    Setting setting;
    std::size_t BP::LinkOptions::*field;
};
constexpr SizeRow kSizes[] = {
    {Setting::GVX_LINK_MAX_FRAME, &BP::LinkOptions::maxFrameBytes},
    {Setting::GVX_LINK_MAX_QUEUE, &BP::LinkOptions::maxQueuedBytes},
    {Setting::GVX_LINK_MAX_NUM, &BP::LinkOptions::maxLinks},
    {Setting::GVX_LINK_MEMORY_TOTAL, &BP::LinkOptions::maxMemoryBytes},
};

}  // namespace

void ReadLinkOptions(BP::LinkOptions& options) {
    for (const TimeRow& row : kTimes) {
        options.*row.field = static_cast<int>(SettingNumber(row.setting));
    }
    for (const SizeRow& row : kSizes) {
        options.*row.field = static_cast<std::size_t>(SettingNumber(row.setting));
    }
}

std::string LinkListenIp() {
    std::string ip = SettingText(Setting::GVX_LISTEN_IP);
    if (ip.empty()) {
        ip = CGvxConfigMgr::Instance()->GetIPToLisetenWhenNoFloatIP();
    }
    return ip.empty() ? "0.0.0.0" : ip;
}

StartResult ReadLinkTls(const std::string& listenIp, BP::LinkTlsFiles& files) {
    files = {};
    if (SettingNumber(Setting::GVX_LINK_TLS) == 0) {
        if (listenIp.compare(0, 4, "127.") != 0 && listenIp != "::1") {
            GVX_LOG_WARN("Link TLS",
                         "Links on %s are not enciphered, and peers are believed by their word: GVX_LINK_TLS.",
                         listenIp.c_str());
        }
        return {};
    }
    files.certificate = SettingText(Setting::GVX_LINK_TLS_CERT);
    files.key = SettingText(Setting::GVX_LINK_TLS_KEY);
    files.authority = SettingText(Setting::GVX_LINK_TLS_CA);
    if (files.certificate.empty() || files.key.empty() || files.authority.empty()) {
        return StartFailure(ExitCode::ConfigRefused,
                            "GVX_LINK_TLS needs GVX_LINK_TLS_CERT, GVX_LINK_TLS_KEY and GVX_LINK_TLS_CA");
    }
    std::string fault;
    if (BP::LinkTls::Load(files, &fault) == nullptr) {
        return StartFailure(ExitCode::ConfigRefused, "GVX_LINK_TLS: " + fault);
    }
    return {};
}

void ReadLinkPeers(const std::string& listenIp, std::vector<BP::NetNetwork>& peers) {
    peers.clear();
    std::istringstream list(SettingText(Setting::GVX_LINK_PEERS));
    bool listed = false;
    for (std::string entry; std::getline(list, entry, ',');) {
        entry.erase(std::remove(entry.begin(), entry.end(), ' '), entry.end());
        listed = listed || !entry.empty();
        BP::NetNetwork network;
        if (BP::NetNetwork::Parse(entry, network)) {
            peers.push_back(network);
        } else if (!entry.empty()) {
            GVX_LOG_ERR_CODE("Link peers", ZVS_PARA_INVALID,
                             "GVX_LINK_PEERS holds what is no network such as 10.0.0.0/8: \"%s\". It lets nobody in.",
                             entry.c_str());
        }
    }
    if (!peers.empty()) {
        return;
    }
    BP::NetAddress local;
    if (!listed && BP::NetAddress::Parse(listenIp.c_str(), 0, local)) {
        peers = BP::OwnNetworks(local);
    }
    for (const char* loopback : {"127.0.0.0/8", "::1"}) {
        BP::NetNetwork network;
        BP::NetNetwork::Parse(loopback, network);
        peers.push_back(network);
    }
}

}  // namespace gvx
