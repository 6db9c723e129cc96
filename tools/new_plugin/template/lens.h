#pragma once

#include <gvx_common/adapter/gvx_adapter_defaults.h>

#include <map>
#include <memory>

namespace gvx_plugin_@IDENT@ {

class Stream;

// One lens of a device, with a stream for each stream type and transport that the platform asks for. Operations come on
// the device's thread, one at a time.
class Lens : public CAdapterLensDefaults {
public:
    Lens(const char* lensId, short channel, CAdapterDevBase& parent);
    ~Lens() override;

    int NegotiateStreamParam(CStreamParam* param) override;
    int StartStream(void* userInfo, SEND_STREAM_FUNC* func, CStreamParam* param, bool needExternData) override;
    int StopStream(CStreamParam* param, bool force) override;
    int RequestKeyframe(CStreamParam* param) override;

private:
    std::map<int, std::unique_ptr<Stream>> m_streams;  // those that run, by channel
};

}  // namespace gvx_plugin_@IDENT@
