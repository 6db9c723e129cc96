#include "gvxctl/device_commands.h"

#include "base/json_io.h"
#include "gvx_common/forms/request_table.h"
#include "nss/nss_msg_type.h"

#include <gtest/gtest.h>

namespace gvxctl {
namespace {

const gvx::RequestRow& RowOf(std::uint16_t reqID) {
    for (const gvx::RequestRow& row : gvx::AllRequests()) {
        if (row.reqID == reqID) {
            return row;
        }
    }
    return *gvx::AllRequests().begin();
}

TEST(DeviceCommands, WordsBecomeABodyOrAreRefused) {
    const struct {
        std::uint16_t reqID;
        std::vector<std::string> words;
        const char* body;
        const char* wanted;  // the body, or what is refused
    } rows[] = {
        {NSS_PTZ_CONTROL_REQ,
         {"zoom-in", "Zoom=2.5"},
         "",
         R"({"Command":"zoom-in","DevCode":"CAM001","LensCode":"L","Zoom":2.5})"},
        {NSS_PTZ_CONTROL_REQ, {}, R"({"Command":1})", R"({"Command":1,"DevCode":"CAM001","LensCode":"L"})"},
        {NSS_SET_WATERMARK_REQ, {"on"}, "", R"({"DevCode":"CAM001","Enable":true,"LensCode":"L"})"},
        {NSS_GUARD_SET_REQ, {"off"}, "", R"({"DevCode":"CAM001","Enable":false,"LensCode":"L"})"},
        {NSS_DEVICE_REBOOT_REQ, {}, "", R"({"DevCode":"CAM001"})"},
        {NSS_SET_DEV_PWD_REQ,
         {"007", "NewPassword=1e3"},
         "",
         R"({"DevCode":"CAM001","NewPassword":"1e3","UserName":"007"})"},
        {NSS_DEVICE_REQUEST_SEND_REQ,
         {"turn", "Body={\"a\":[1]}"},
         "",
         R"({"Body":{"a":[1]},"DevCode":"CAM001","LensCode":"L","Method":"turn"})"},
        {NSS_VALIDATE_DEVICE_REQ, {"10.0.0.9", "Port=554"}, "", R"({"IP":"10.0.0.9","PluginName":"file","Port":554})"},
        {NSS_VALIDATE_DEVICE_REQ, {"10.0.0.9", "Model=x"}, "", "There is no member Model."},
        {NSS_DEVICE_REBOOT_REQ, {"now"}, "", "\"now\" is no NAME=VALUE."},
        {NSS_PTZ_CONTROL_REQ, {"up", "Speed=fast"}, "", "Speed is not one of 1 to 10."},
        {NSS_PTZ_CONTROL_REQ, {"up"}, "[1]", "The body is no JSON object."},
        {NSS_SET_OSD_PARA_REQ, {"Texts=[{\"Tekst\":\"a\"}]"}, "", "There is no member Texts[0].Tekst."},
    };
    for (const auto& row : rows) {
        DeviceRequestOptions options;
        options.lensCode = "L";
        options.words = row.words;
        options.body = row.body;
        Json::Value body;
        std::string error;
        const bool made = MakeRequestBody(RowOf(row.reqID), options, body, error);
        EXPECT_EQ((made ? gvx::WriteJson(body) : error + "\n").find(row.wanted), 0u)
            << row.wanted << ": " << gvx::WriteJson(body) << error;
    }
}

}  // namespace
}  // namespace gvxctl
