// Drives device and lens as the gateway does, without one: a stream has to bring pictures, and to end when it is
// stopped.
#include "device.h"

#include <gvx_common/records/stream_param.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <memory>
#include <thread>

namespace {

constexpr int kPictures = 3;
std::atomic<int> g_pictures{0};

// What the gateway's send function gets: RTP packets. Bit 7 of the second byte marks the last one of a NAL unit, and type
// 5 or a fragment of type 28 carries the picture (RFC 6184, section 5.4).
int Take(MEDIA_DATA* data, STREAM_TYPE_EX*) {
    const auto* packet = static_cast<const unsigned char*>(data->pDataBuf);
    const int type = packet[12] & 0x1F;
    if ((packet[1] & 0x80) != 0 && (type == 5 || type == 28)) {
        ++g_pictures;
    }
    return 0;
}

int Check(bool good, const char* what) {
    std::printf("%s: %s\n", good ? "ok" : "FAILED", what);
    return good ? 0 : 1;
}

}  // namespace

int main() {
    MainDeviceInfo info;
    info.strDevCode = "CAM001";
    gvx_plugin_@IDENT@::Device device(info);
    int failed = Check(device.Init() == 0, "the device logs in");

    CAdapterDevBase* parent = &device;
    CAdapterLensBase* made = nullptr;
    failed += Check(device.CreateLens("CAM001_0", 0, parent, made) == 0 && made != nullptr, "there is a lens");
    const std::unique_ptr<CAdapterLensBase> lens(made);
    if (lens == nullptr) {
        return 1;
    }
    const std::unique_ptr<CStreamParam> param(lens->CreateStreamParam("live"));
    param->m_nStreamID = STREAM_TYPE_REAL_MAIN;
    param->m_nDstTransProtocol = RTP_OVER_UDP;
    failed += Check(lens->NegotiateStreamParam(param.get()) == 0, "the stream's parameters are agreed on");
    failed += Check(lens->StartStream(nullptr, &Take, param.get(), false) == 0, "the stream starts");
    for (int i = 0; i < 1000 && g_pictures < kPictures; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    failed += Check(g_pictures >= kPictures, "pictures come");
    failed += Check(lens->StopStream(param.get(), false) == 0, "the stream stops");
    const int before = g_pictures;
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    failed += Check(g_pictures == before, "nothing comes behind the stop");
    return failed == 0 ? 0 : 1;
}
