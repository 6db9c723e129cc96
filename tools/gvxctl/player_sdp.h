#pragma once

#include "gvxctl/socket_util.h"

#include <cstdint>
#include <string>

namespace gvxctl {

// Makes of the gateway's session description, which tells where a stream comes from, the one by which a plain player
// receives it: the receiver's own address and ports, media blocks over UDP that are sent to (not the application block,
// not audio without a port at either end), nothing about who controls or which direction. False with a sentence when
// no block is left or one is not sent over UDP.
bool MakePlayerSdp(const std::string& answer, const Endpoint& video, std::uint16_t audioPort, std::string& player,
                   std::string& error);

}  // namespace gvxctl
