#include "bp/service.h"

#include <atomic>

namespace BP {

namespace {

std::atomic<IDeviceMgr*> g_deviceMgr{nullptr};

}  // namespace

void CDeviceMgr::SetImplementation(IDeviceMgr* implementation) {
    g_deviceMgr = implementation;
}

int CDeviceMgr::ProcessSdkException(const ACE_Message_Block* block) {
    IDeviceMgr* const deviceMgr = g_deviceMgr;
    return deviceMgr != nullptr ? deviceMgr->ProcessSdkException(block) : 1;
}

std::string CDeviceMgr::GetReqDevID(std::uint32_t seqID) {
    IDeviceMgr* const deviceMgr = g_deviceMgr;
    return deviceMgr != nullptr ? deviceMgr->GetReqDevID(seqID) : std::string();
}

int CDeviceMgr::HandleClusterTaskShiftIn(int reason, const std::string& nodeCode) {
    IDeviceMgr* const deviceMgr = g_deviceMgr;
    return deviceMgr != nullptr ? deviceMgr->HandleClusterTaskShiftIn(reason, nodeCode) : 1;
}

bool CDeviceMgr::FindMainDevice(const std::string& devCode, std::string& address) {
    IDeviceMgr* const deviceMgr = g_deviceMgr;
    return deviceMgr != nullptr && deviceMgr->FindMainDevice(devCode, address);
}

}  // namespace BP
