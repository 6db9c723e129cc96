#pragma once

#include "base/alarm_store.h"
#include "bp/dispatcher.h"
#include "gvx_common/alarm/emergency_protection.h"
#include "gvx_common/config/cloud_config_mgr.h"
#include "gvx_common/config/gvx_config_mgr.h"
#include "gvx_common/link/gvx_connection_mgr.h"
#include "support/caught_frames.h"
#include "support/recording_logger.h"
#include "support/temp_folder.h"

#include <gtest/gtest.h>

#include <string>

// A text field of a record, by its place on the wire.
inline std::string TextAt(const std::string& bytes, std::size_t offset, std::size_t size) {
    return bytes.size() < offset + size ? "short"
                                        : std::string(bytes.data() + offset, strnlen(bytes.data() + offset, size));
}

// A gateway with an address, a node code and the cloud's consent, and a place for its store. OMU and the main service
// have links, where frames are caught; what is meant for OMU goes there through the gateway, as from the core.
class AlarmFixture : public testing::Test {
protected:
    static constexpr const char* kOmu = "OMU#0099";
    static constexpr const char* kMain = "GVX#000";

    void SetUp() override {
        GvxConnectionMgr()->SetGvxService(TestService());
        GvxConnectionMgr()->SetException([](ADAPTER_COMMON_MESSAGE&) {});
        m_folder.Write("net.xml", "<Net><NetElements><LocalIP>1</LocalIP></NetElements></Net>");
        m_folder.Write("log.xml", "<Log><NodeCode>node7</NodeCode></Log>");
        ASSERT_EQ(0, GvxConfigMgr()->SetLocalIP("10.0.0.1"));
        CCloudConfigMgr::Instance()->SetCloudConfigInited(true);
        BP::CDispatcher::SetSink([this](std::unique_ptr<BP::CCmd> cmd) {
            if (!cmd->IsFedIn() || cmd->GetNetElemType() != kElementOMU) {
                return 0;
            }
            ACE_Message_Block* block = cmd->ReleaseMsgBlock();
            const int result =
                m_omuIsGone ? 1
                            : BP::CDispatcher::dispatcherOutWithoutTransaction(kElementOMU, cmd->GetNetLinkID().c_str(),
                                                                               "", cmd->GetReqID(), block, false, 0);
            cmd->SetMsgBlock(block);
            return result;
        });
        BP::CTransactionMgr::StopWaiting();  // nobody answers here
        GvxConnectionMgr()->OnLinkOpened("", 0, kOmu, "127.0.0.1", 1);
        OpenMainService();
        m_frames.Take();
    }
    void TearDown() override {
        CloseMainService();
        BP::CDispatcher::SetSink({});
        BP::CTransactionMgr::Resume();
        CCloudConfigMgr::Instance()->SetCloudConfigInited(false);
        ZVS_AlarmClose();
    }
    static void OpenMainService() { GvxConnectionMgr()->OnLinkOpened("", 0, kMain, "127.0.0.1", 2); }
    static void CloseMainService() { GvxConnectionMgr()->OnLinkClosed("", 0, kMain, "127.0.0.1", 2); }

    const TempFolder m_folder;
    const ScopedEnvironment m_configDir{"GVX_CONFIG_DIR", m_folder.Path()};
    const std::string m_store = m_folder.Path("alarms.db");
    const ScopedRecordingLogger m_log{OM_LOG_INFO};
    CaughtFrames m_frames;
    bool m_omuIsGone = false;
};
