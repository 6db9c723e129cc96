#pragma once

#include "bp/net_factory.h"
#include "gateway/settings/exit_codes.h"

namespace gvx {

// Fills the limits and times of platform links from the configuration: the keys GVX_LINK_* of section MESSAGE in
// zvs_gvx.conf; the own identifier is left as it is. A value that is not allowed refuses the start.
// Of the thread that starts the gateway.
StartResult ReadLinkOptions(BP::LinkOptions& options);

}  // namespace gvx
