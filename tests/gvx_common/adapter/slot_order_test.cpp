#include "gvx_common/adapter/gvx_adapter_interface.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>

// A plug-in finds an operation by its place in the table of virtual functions: one that is moved, added or taken away
// makes every plug-in that was built before call something else. GVX_PLUGIN_ABI_VERSION is then to be raised.

namespace {

// Place of a virtual function, as a pointer to member holds it (Itanium C++ ABI, section 2.3).
template <typename Function>
std::ptrdiff_t SlotOf(Function function) {
    std::ptrdiff_t offsetPlusOne = 0;
    std::memcpy(&offsetPlusOne, &function, sizeof(offsetPlusOne));
    return (offsetPlusOne - 1) / static_cast<std::ptrdiff_t>(sizeof(void*));
}

constexpr std::ptrdiff_t kDestructorSlots = 2;

}  // namespace

TEST(SlotOrder, OfThePluginClass) {
    const std::ptrdiff_t first = SlotOf(&CAdapterSdkBase::ModifyListenIp);
    EXPECT_EQ(1, SlotOf(&CAdapterSdkBase::Init) - first);
    EXPECT_EQ(2, SlotOf(&CAdapterSdkBase::CreateDevice) - first);
    EXPECT_EQ(15, SlotOf(&CAdapterSdkBase::CheckIpInWhitelist) - first);
    EXPECT_EQ(20, SlotOf(&CAdapterSdkBase::SendRemoteProbeMessage) - first);
}

TEST(SlotOrder, OfTheDeviceClass) {
    EXPECT_EQ(kDestructorSlots, SlotOf(&CAdapterDevBase::Init));
    EXPECT_EQ(kDestructorSlots + 5, SlotOf(&CAdapterDevBase::CreateLens));
    EXPECT_EQ(kDestructorSlots + 42, SlotOf(&CAdapterDevBase::GetLensIDThroughChannoId));
    EXPECT_EQ(kDestructorSlots + 57, SlotOf(&CAdapterDevBase::SetLoginStatus));
    EXPECT_EQ(kDestructorSlots + 76, SlotOf(&CAdapterDevBase::GetJsonDeivceAbility));
}

TEST(SlotOrder, OfTheLensClass) {
    EXPECT_EQ(kDestructorSlots, SlotOf(&CAdapterLensBase::Init));
    EXPECT_EQ(kDestructorSlots + 6, SlotOf(&CAdapterLensBase::StartStream));
    EXPECT_EQ(kDestructorSlots + 8, SlotOf(&CAdapterLensBase::RequestKeyframe));
    EXPECT_EQ(kDestructorSlots + 51, SlotOf(&CAdapterLensBase::StartPuRecord));
    EXPECT_EQ(kDestructorSlots + 68, SlotOf(&CAdapterLensBase::PushBackRecordIndex));
    EXPECT_EQ(kDestructorSlots + 86, SlotOf(&CAdapterLensBase::OnCheckSnapShotRequest));
}
