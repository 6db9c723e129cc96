#include "gvx_common/adapter/gvx_plugin.h"

// Defined nowhere: the object cannot be loaded with all symbols resolved.
const GvxPluginDescription* BadPluginDefinedNowhere();

const GvxPluginDescription* GvxDescribePlugin() {
    return BadPluginDefinedNowhere();
}
