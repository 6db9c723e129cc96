#pragma once

#include <functional>
#include <vector>

class CAdapterDevBase;
class CAdapterLensBase;
class CAdapterSdkBase;

namespace plugin_check {

// An operation that needs no story around it: it is called with records as they are made.
template <typename Object>
struct PlainOperation {
    const char* name;
    bool changes;  // it changes the device, or what is known of it
    std::function<int(Object&)> call;
};

const std::vector<PlainOperation<CAdapterSdkBase>>& SdkOperations();
const std::vector<PlainOperation<CAdapterDevBase>>& DeviceOperations();
const std::vector<PlainOperation<CAdapterLensBase>>& LensOperations();

}  // namespace plugin_check
