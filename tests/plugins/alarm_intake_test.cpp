#include "base/json_io.h"
#include "gvx_common/adapter/gvx_adapter_interface.h"
#include "gvx_common/adapter/gvx_plugin.h"
#include "gvx_common/config/gvx_config_mgr.h"
#include "support/recording_logger.h"
#include "support/stream_bytes.h"
#include "support/temp_folder.h"
#include "support/test_clock.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

std::vector<std::pair<std::string, Json::Value>> g_alarms;

void TakeAlarm(const char* device, const char* json) {
    Json::Value report;
    EXPECT_TRUE(gvx::ParseJson(json, std::strlen(json), report, nullptr)) << json;
    g_alarms.emplace_back(device, report);
}

// The plug-in with the shipped tables and two devices: CAM001, a camera of two lenses, and DVR001, a recorder.
class AlarmIntakeTest : public testing::Test {
protected:
    AlarmIntakeTest() {
        const auto conf = SourceTree() / "conf";
        GvxConfigMgr()->ClearAlarmInfoDesccription();
        GvxConfigMgr()->LoadAlarmDescriptionConfig((conf / "alarm/gvx_nvt_alarm_description.xml").c_str());
        std::filesystem::copy_file(conf / "plugins/file_alarms.xml", m_folder.Path("file_alarms.xml"));
        m_folder.Write("v.h264", stream_bytes::H264Stream(5, 2));
        g_alarms.clear();
        const std::string config = m_folder.Write("file.json", R"({"media": {"demo": {"video": "v.h264", "fps": 5}}})");
        EXPECT_TRUE(m_sdk->Init(config.c_str())) << GvxPluginLastError();
        m_sdk->SetAlarmMessageCallback(&TakeAlarm);
        m_camera = MakeDevice("CAM001", PU_IPC);
        m_recorder = MakeDevice("DVR001", PU_DVR);
        CAdapterDevBase* parent = m_camera.get();
        CAdapterLensBase* lens = nullptr;
        EXPECT_EQ(0, m_camera->CreateLens("CAM001_gate", 1, parent, lens));
        m_lens.reset(lens);
    }

    std::unique_ptr<CAdapterDevBase> MakeDevice(const char* code, enPuDevFormType form) {
        MainDeviceInfo info;
        info.strDevCode = code;
        info.eDevFormType = form;
        info.strExtend = R"({"media": ["demo", "demo"]})";
        CAdapterDevBase* device = nullptr;
        EXPECT_EQ(0, m_sdk->CreateDevice(info, device));
        return std::unique_ptr<CAdapterDevBase>(device);
    }
    void Push(const std::string& bytes, std::uint16_t port = 4000) {
        for (std::size_t at = 0; at < bytes.size(); at += 1024) {
            const std::string piece = bytes.substr(at, 1024);
            const GvxIntakeBlock block{"10.0.0.9", port, "20260102030405", piece.data(),
                                       static_cast<std::uint32_t>(piece.size())};
            EXPECT_EQ(0, GvxTakeIntakeBlock(m_sdk.get(), &block));
        }
    }
    // One line, which must give one alarm.
    Json::Value AlarmOf(const std::string& line) {
        const std::size_t before = g_alarms.size();
        Push(line + "\n");
        EXPECT_EQ(before + 1, g_alarms.size()) << line << "\n" << m_log->Dump();
        return g_alarms.size() > before ? g_alarms.back().second : Json::Value();
    }

    TempFolder m_folder;
    ScopedRecordingLogger m_log;
    std::unique_ptr<CAdapterSdkBase, decltype(&GvxDestroyAdapter)> m_sdk{GvxCreateAdapter(), &GvxDestroyAdapter};
    std::unique_ptr<CAdapterDevBase> m_camera, m_recorder;
    std::unique_ptr<CAdapterLensBase> m_lens;
};

TEST_F(AlarmIntakeTest, TranslatesCodeActionAndForm) {
    const struct {
        const char* line;
        const char* source;
        const char* type;
        int action;
        const char* description;
    } rows[] = {
        {R"({"device":"CAM001","channel":1,"code":"shield","action":"STOP","description":"paint"})", "CAM001_gate",
         "ALARM_IPC_SHIELD_OFF", 0, "paint"},
        {R"({"device":"CAM001","code":"disk_fault","description":"x"})", "CAM001", "ALARM_IPC_SD_CARD_FAULT_ON", 1,
         "x"},
        {R"({"device":"CAM001","code":"hot","action":"stop"})", "CAM001", "ALARM_IPC_HIGH_TEMPERATURE_ON", 0,
         "The temperature of the camera is too high."},
        {R"({"device":"DVR001","code":"disk_full","action":"false"})", "DVR001", "ALARM_DVR_DISK_FULL_OFF", 0,
         "The storage of the device is full."},
    };
    for (const auto& row : rows) {
        const Json::Value alarm = AlarmOf(row.line);
        EXPECT_EQ(row.source, alarm["AlarmInCode"].asString()) << row.line;
        EXPECT_EQ(row.type, alarm["AlarmType"].asString()) << row.line;
        EXPECT_EQ(row.action, alarm["Action"].asInt()) << row.line;
        EXPECT_EQ("20260102030405", alarm["OccurTime"].asString());
        EXPECT_EQ(row.description, alarm["AlarmDesc"].asString()) << row.line;
    }
    EXPECT_EQ("DVR001", g_alarms.back().first);
}

TEST_F(AlarmIntakeTest, LinesAreMadeOfPiecesOfTheirConnection) {
    ScopedTestClock clock;
    const std::string line = R"({"device":"CAM001","code":"shield","action":"start"})";
    for (std::size_t at = 0; at < line.size(); ++at) {
        Push(line.substr(at, 1), 4000);
        Push(line.substr(at, 1), 4001);
    }
    EXPECT_TRUE(g_alarms.empty());
    Push("\r\n" + line + "\n\n" + line + "\n" + line.substr(0, 10), 4000);
    EXPECT_EQ(3u, g_alarms.size());
    Push("\n", 4001);
    EXPECT_EQ(4u, g_alarms.size());
    Push(line.substr(10) + "\n", 4000);
    EXPECT_EQ(5u, g_alarms.size());
    EXPECT_EQ(0u, m_log->CountLevel(OM_LOG_WARNING)) << m_log->Dump();

    Push("{\"device\":", 4000);
    clock->AdvanceSeconds(61);
    AlarmOf(R"({"device":"CAM001","code":"shield"})");  // the half line of a connection that is gone is forgotten
    for (std::uint32_t port = 1; port <= 4097; ++port) {
        Push("half", static_cast<std::uint16_t>(port));
    }
    EXPECT_EQ(1u, m_log->Count("too many connections have sent but a part"));
}

TEST_F(AlarmIntakeTest, WhatCannotBeUsedIsDroppedAndNothingElse) {
    const std::pair<std::string, const char*> rows[] = {
        {std::string(2000, '['), "no JSON object"},
        {R"({"code":"shield"})", "names no \"device\""},
        {R"({"device":"CAM001","code":"shield","channel":0})", "no lens of that channel"},
        {R"({"device":"CAM009","code":"shield"})", "no such device"},
        {R"({"device":"CAM001","code":"shield","action":"maybe"})", "has no meaning"},
        {R"({"device":"CAM001","code":"shield","description":")" + std::string(1024, 'd') + "\"}", "too long"},
    };
    for (const auto& [line, reason] : rows) {
        m_log->Clear();
        Push(line + "\n");
        EXPECT_TRUE(m_log->Contains(reason)) << line.substr(0, 80) << "\n" << m_log->Dump();
        EXPECT_TRUE(g_alarms.empty()) << line.substr(0, 80);
    }
    AlarmOf(R"({"device":"CAM001","code":"shield"})");
    m_camera.reset();
    Push("{\"device\":\"CAM001\",\"code\":\"shield\"}\n");
    EXPECT_EQ(1u, g_alarms.size()) << "a device that is gone has no alarms";
    m_folder.Write("file_alarms.xml", "<AlarmInfoList><AlarmInfo>");
    EXPECT_FALSE(m_sdk->Init(m_folder.Path("file.json").c_str())) << "a table that is none stops the start";
}

}  // namespace
