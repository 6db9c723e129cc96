#pragma once

#include "bp/net_factory.h"
#include "gateway/settings/exit_codes.h"

#include <string>
#include <vector>

namespace gvx {

// Fills the limits and times of platform links from the configuration: the keys GVX_LINK_* of section MESSAGE in
// zvs_gvx.conf; the own identifier is left as it is. Any thread.
void ReadLinkOptions(BP::LinkOptions& options);

// Where platform links are accepted: GVX_LISTEN_IP, and where that is empty, the address that the configuration gives
// for a host without a floating one (CGvxConfigMgr::GetIPToLisetenWhenNoFloatIP); 0.0.0.0 for all. Of the same thread.
std::string LinkListenIp();

// TLS of links: with GVX_LINK_TLS=1 the files GVX_LINK_TLS_CERT, GVX_LINK_TLS_KEY and GVX_LINK_TLS_CA, which must be
// usable; with 0 none. Says in the log that links are plain where listenIp is not the loopback's.
StartResult ReadLinkTls(const std::string& listenIp, BP::LinkTlsFiles& files);

// Who may connect there: the networks of GVX_LINK_PEERS; where it is empty, the networks of that address and the
// loopback. What is no network is told in the log and lets nobody in.
void ReadLinkPeers(const std::string& listenIp, std::vector<BP::NetNetwork>& peers);

}  // namespace gvx
