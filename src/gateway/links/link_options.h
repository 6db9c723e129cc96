#pragma once

#include "bp/net_factory.h"

namespace gvx {

// Fills the limits and times of platform links from the configuration: the keys GVX_LINK_* of section MESSAGE in
// zvs_gvx.conf; the own identifier is left as it is. Any thread.
void ReadLinkOptions(BP::LinkOptions& options);

}  // namespace gvx
