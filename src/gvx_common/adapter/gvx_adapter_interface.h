#pragma once

// The plug-in contract: the three base classes that a device protocol derives from.
#include "gvx_common/adapter/gvx_adapter_dev.h"
#include "gvx_common/adapter/gvx_adapter_lens.h"
#include "gvx_common/adapter/gvx_adapter_sdk.h"
