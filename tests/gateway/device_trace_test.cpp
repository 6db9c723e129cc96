#include "gateway/admin/nss_trace.h"
#include "gateway/admin/trace_desk.h"
#include "gvx_common/utility/gvx_device_trace.h"
#include "nss/nss_msg_type.h"
#include "support/fake_peer.h"
#include "support/temp_folder.h"
#include "support/wait_until.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr std::uint32_t kPacketBlock = 6;
constexpr std::uint32_t kStatisticsBlock = 5;

struct PcapngBlocks {
    std::size_t packets = 0;
    bool whole = false;  // every block tells its length twice, and the last one ends the file
};

PcapngBlocks ReadBlocks(const std::string& bytes) {
    PcapngBlocks found;
    std::uint32_t type = 0;
    for (std::size_t at = 0; at + 12 <= bytes.size();) {
        std::uint32_t size = 0;
        std::uint32_t again = 0;
        std::memcpy(&type, bytes.data() + at, 4);
        std::memcpy(&size, bytes.data() + at + 4, 4);
        if (size < 12 || size % 4 != 0 || at + size > bytes.size()) {
            return found;
        }
        std::memcpy(&again, bytes.data() + at + size - 4, 4);
        if (again != size) {
            return found;
        }
        found.packets += type == kPacketBlock ? 1 : 0;
        at += size;
        found.whole = at == bytes.size() && type == kStatisticsBlock;
    }
    return found;
}

class DeviceTraceTest : public testing::Test {
protected:
    gvx::TraceFacts Start(const std::string& device, int seconds = 60) {
        gvx::TraceFacts facts;
        EXPECT_TRUE(desk->Start(device, seconds, facts, reason)) << reason;
        return facts;
    }

    gvx::TraceFacts Newest() { return desk->List().front(); }

    std::string Contents(const gvx::TraceFacts& facts) {
        std::string all;
        std::string piece;
        while (desk->Read(facts.file, all.size(), piece, reason) && !piece.empty()) {
            all += piece;
        }
        return all;
    }

    TempFolder folder;
    std::unique_ptr<gvx::TraceDesk> desk = std::make_unique<gvx::TraceDesk>(folder.Path() + "/traces", "test");
    std::string reason;
};

void Packets(const std::string& device, std::size_t count) {
    std::vector<std::uint8_t> bytes(1400, 0x80);
    GvxTracedPacket packet;
    packet.local = GvxMakeTraceEnd("10.0.0.1", 5000);
    packet.peer = GvxMakeTraceEnd("10.0.0.2", 6000);
    packet.pData = bytes.data();
    packet.nSize = bytes.size();
    for (std::size_t i = 0; i < count; ++i) {
        GvxReportTracedPacket(device, packet);
    }
}

TEST_F(DeviceTraceTest, EndsWithItsTimeItsSizeItsDeviceAndTheGateway) {
    auto cam = std::make_unique<gvx::DeviceTraceKeeper>("CAM");
    const gvx::DeviceTraceKeeper other("OTHER");
    Start("CAM", 1);
    gvx::TraceFacts none;
    EXPECT_FALSE(desk->Start("CAM", 1, none, reason)) << "one at a time";
    ASSERT_TRUE(WaitUntil([&] { return !Newest().running; }));
    EXPECT_EQ("Its time was over.", Newest().ended);
    EXPECT_FALSE(GvxIsAnyDeviceTraced());

    Start("CAM", 600);
    ASSERT_TRUE(WaitUntil([&] {
        Packets("CAM", 1000);
        return !Newest().running;
    }));
    const gvx::TraceFacts full = Newest();
    EXPECT_EQ("The file is full.", full.ended);
    EXPECT_LE(full.bytes, gvx::TraceRecorder::kFileBytes);
    EXPECT_GT(full.bytes, gvx::TraceRecorder::kFileBytes - 4096);
    const std::string bytes = Contents(full);
    EXPECT_EQ(full.bytes, bytes.size());
    EXPECT_TRUE(ReadBlocks(bytes).whole);
    std::filesystem::resize_file(folder.Path() + "/traces/" + full.file, 1000);
    EXPECT_EQ("", Contents(full));
    EXPECT_NE(std::string::npos, reason.find("was cut: 1000 bytes")) << reason;

    Start("CAM");
    Packets("CAM", 20000);  // more than its buffer takes at once
    cam.reset();
    ASSERT_TRUE(WaitUntil([&] { return !Newest().running; }));
    EXPECT_EQ("The device was deleted.", Newest().ended);
    EXPECT_EQ(20000u, Newest().packets + Newest().lost);
    EXPECT_EQ(Newest().packets, ReadBlocks(Contents(Newest())).packets);
    EXPECT_FALSE(desk->Start("CAM", 1, none, reason)) << "there is none any more";

    const gvx::TraceFacts last = Start("OTHER");
    desk = std::make_unique<gvx::TraceDesk>(folder.Path() + "/traces", "test");
    EXPECT_NE(std::string::npos, Contents(last).find("The gateway stops.")) << "the file is whole";
    EXPECT_TRUE(ReadBlocks(Contents(last)).whole);
}

TEST_F(DeviceTraceTest, FourAtATimeAndTheOldestFilesGo) {
    std::vector<std::unique_ptr<gvx::DeviceTraceKeeper>> devices;
    for (const char* code : {"A/B", "A_B", "C", "D", "E"}) {
        devices.push_back(std::make_unique<gvx::DeviceTraceKeeper>(code));
    }
    const std::filesystem::path traces(folder.Path() + "/traces");
    std::filesystem::create_directory(traces);
    const auto old = std::filesystem::file_time_type::clock::now() - std::chrono::hours(9);
    for (const char* name : {"mine.pcapng", "C-20260102T030405Z-.pcapng", "C-20260102T030405Z-2.pcapng"}) {
        std::ofstream(traces / name) << name;
        std::filesystem::last_write_time(traces / name, old);
    }
    const std::string first = Start("A/B").file;
    EXPECT_NE(first, Start("A_B").file);
    Start("C");
    Start("D");
    gvx::TraceFacts facts;
    EXPECT_FALSE(desk->Start("E", 60, facts, reason));
    for (std::size_t i = 0; i < 2 * gvx::TraceDesk::kMostFiles; ++i) {
        const auto stopped = desk->Stop("D");
        ASSERT_NE(nullptr, stopped);
        ASSERT_TRUE(WaitUntil([&] { return !stopped->Facts().running; }));
        Start("D");
    }
    const std::filesystem::directory_iterator files(traces);
    EXPECT_EQ(gvx::TraceDesk::kMostFiles + 2, static_cast<std::size_t>(std::distance(begin(files), end(files))));
    EXPECT_TRUE(std::filesystem::exists(traces / "mine.pcapng")) << "a file of somebody else";
    EXPECT_FALSE(std::filesystem::exists(traces / "C-20260102T030405Z-2.pcapng"));
    EXPECT_EQ(gvx::TraceDesk::kMostFiles, desk->List().size());
    EXPECT_TRUE(std::filesystem::exists(traces / first)) << "a trace that runs keeps its file";
    std::filesystem::rename(traces, folder.Path() + "/moved");
    EXPECT_EQ(gvx::TraceDesk::kMostTraces, desk->List().size()) << "those that ended are forgotten";
    const auto stopped = desk->Stop("D");
    ASSERT_TRUE(WaitUntil([&] { return !stopped->Facts().running; }));
    EXPECT_TRUE(stopped->Facts().gone) << stopped->Facts().ended;
    EXPECT_EQ(gvx::TraceDesk::kMostTraces - 1, desk->List().size());
}

TEST_F(DeviceTraceTest, AFolderThatCannotBeHadIsARefusal) {
    const gvx::DeviceTraceKeeper device("CAM");
    gvx::TraceDesk nowhere("/proc/nowhere", "test");
    gvx::TraceFacts facts;
    EXPECT_FALSE(nowhere.Start("CAM", 60, facts, reason));
    EXPECT_NE(std::string::npos, reason.find("/proc/nowhere")) << reason;
    EXPECT_FALSE(GvxIsAnyDeviceTraced());
}

std::string Frame(const std::string& body) {
    return FakePeer::MakeFrame(NSS_ADD_MAIN_DEV_REQ, 7, "trans-1", 0, body);
}

std::string Frame(std::uint16_t tag, const std::string& value) {
    return Frame(FakePeer::MakeItem(tag, value));
}

TEST(NssTrace, AFrameConcernsADeviceWhoseCodeIsTheWholeOfAValue) {
    const std::pair<const char*, bool> rows[] = {{"<Content><DevCode>CAM1</DevCode></Content>", true},
                                                 {R"({"List":[{"DevCode" : "CAM1"}]})", true},
                                                 {"<Content><DevCode>CAM10</DevCode></Content>", false},
                                                 {"<Content><Name>the CAM1</Name></Content>", false}};
    for (const auto& [text, concerns] : rows) {
        const std::string frame = Frame(NSS_TAG_XML_CONTENT, text);
        EXPECT_EQ(concerns, gvx::ConcernsDevice(frame.data(), frame.size(), "CAM1")) << text;
    }
    const std::string one = Frame(NSS_TAG_XML_CONTENT, "<Content><Form>1</Form></Content>");
    EXPECT_FALSE(gvx::ConcernsDevice(one.data(), one.size(), "1")) << "a short code stands for much";
    const std::string code = Frame(NSS_TAG_XML_CONTENT, "<Content><DevCode>1</DevCode></Content>");
    EXPECT_TRUE(gvx::ConcernsDevice(code.data(), code.size(), "1"));
    EXPECT_EQ("trans-1", gvx::TransactionOfFrame(code.data(), code.size()));
}

TEST(NssTrace, SecretsAndWhatIsNoTextLeaveAFrameThatStaysWhole) {
    std::string note;
    const std::string secret =
        Frame(NSS_TAG_JSON_CONTENT, R"({"DevCode":"CAM1","Password":"enciphered","secret":"s"})");
    EXPECT_EQ(Frame(NSS_TAG_JSON_CONTENT, R"({"DevCode":"CAM1","Password":"***","secret":"***"})"),
              gvx::FrameWithoutSecrets(secret.data(), secret.size(), note));
    EXPECT_FALSE(note.empty());
    const std::string binary = Frame(NSS_TAG_ATTACHMENT, std::string("a\0b", 3));
    EXPECT_EQ(Frame(NSS_TAG_ATTACHMENT, std::string(3, '\0')),
              gvx::FrameWithoutSecrets(binary.data(), binary.size(), note));
    const std::string structure = Frame("password");
    EXPECT_EQ(Frame(std::string(8, '\0')), gvx::FrameWithoutSecrets(structure.data(), structure.size(), note));
    const std::string plain = Frame(NSS_TAG_XML_CONTENT, "<Content/>");
    EXPECT_EQ(plain, gvx::FrameWithoutSecrets(plain.data(), plain.size(), note));
    EXPECT_TRUE(note.empty());
    const std::string large = Frame(NSS_TAG_XML_CONTENT, std::string(gvx::kMostFrameBody, 'x'));
    EXPECT_EQ(large.substr(0, 116), gvx::FrameWithoutSecrets(large.data(), large.size(), note));
}

}  // namespace
