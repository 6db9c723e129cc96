#include "gvx_common/config/gvx_config.h"

#include "support/recording_logger.h"
#include "support/settings_folder.h"

#include <gtest/gtest.h>

#include <memory>

#include <sys/stat.h>

namespace {

class IniStoreTest : public testing::Test {
protected:
    std::string Load(const std::string& content) {
        m_folder.Write("a.conf", content);
        m_store = std::make_unique<GVX_Config>(m_folder.Path("a.conf").c_str());
        return content;
    }
    std::string Saved() {
        EXPECT_EQ(0, m_store->save());
        return m_folder.Read("a.conf");
    }
    std::string Get(const char* section, const char* key) {
        char out[128] = "unchanged";
        const int result = m_store->get(section, key, out, sizeof(out));
        return result == 0 ? out : "result " + std::to_string(result) + " " + out;
    }

    ScopedRecordingLogger m_log;
    SettingsFolder m_folder;
    std::unique_ptr<GVX_Config> m_store;
};

TEST_F(IniStoreTest, ASetKeepsWhatStandsAroundTheValue) {
    const std::pair<std::string, const char*> rows[] = {
        {"; about A\n\n[A]\n; about k\nk=1\n\n; about B\n[B]\nk=2\n",
         "; about A\n\n[A]\n; about k\nk=new\n\n; about B\n[B]\nk=2\n"},
        {"; c\r\n[A]\r\n\r\nk=v\r\nm=v\r\n", "; c\r\n[A]\n\nk=new\nm=v\n"},
        // Lines that are nothing vanish, and their comments move on.
        {"; first\nearly=1\n[A]\n; second\n=x\nno equals\nk=1\n[]\nm=2\n; last\n\n",
         "; first\n[A]\n; second\nk=new\nm=2\n"},
        {"[A]\nk=1\nk=2\n[A]\nk=3\n", "[A]\nk=new\nk=2\n[A]\nk=3\n"},
        {std::string("[A]\n;\0 x\nk=1\n", 14), "[A]\n;\nk=new\n"},
    };
    for (const auto& [text, saved] : rows) {
        Load(text);
        EXPECT_EQ(0, m_store->set("A", "k", "new"));
        EXPECT_EQ("new", Get("A", "k"));
        EXPECT_EQ(saved, m_folder.Read("a.conf"));
        EXPECT_FALSE(std::filesystem::exists(m_folder.Path("a.conf.bak")));
    }
}

TEST_F(IniStoreTest, SplitsAtTheFirstEqualsAndTrimsOnlyTheValue) {
    Load("[A]\nkey = value \na=b=c\n#x=1;2\n lead=\t\n");
    EXPECT_EQ("value", Get("A", "key "));
    EXPECT_EQ("result 1 unchanged", Get("A", "key"));
    EXPECT_EQ("b=c", Get("A", "a"));
    EXPECT_EQ("1;2", Get("A", "#x"));
    EXPECT_EQ("", Get("A", " lead"));
    EXPECT_EQ("[A]\nkey =value\na=b=c\n#x=1;2\n lead=\n", Saved());
}

TEST_F(IniStoreTest, CommentBeyondTheLimitDoesNotSwallowWhatFollows) {
    // 8191 bytes are read at once: a comment that just fills them, one whose rest is a line of its own, one at the end.
    const std::string full = ";" + std::string(8190, 'c');
    for (const char* rest : {"", "rest", ";rest"}) {
        Load(full + rest + "\n[A]\n" + full + rest + "\nk=1\nm=2");
        EXPECT_EQ(0, m_store->set("A", "m", "3")) << rest;
        const std::string saved = m_folder.Read("a.conf");
        Load(saved);
        EXPECT_EQ("1", Get("A", "k")) << rest;
        EXPECT_EQ("3", Get("A", "m")) << rest;
        EXPECT_TRUE(saved == Saved()) << rest << ": a further save adds nothing";
    }
}

TEST_F(IniStoreTest, PipeIsNeverOpened) {
    const std::string pipe = m_folder.Path("pipe");
    ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
    GVX_Config store(pipe.c_str());
    EXPECT_EQ(1, store.init());

    const std::string text = Load("[A]\nk=old\n");
    ASSERT_EQ(0, mkfifo(m_folder.Path("a.conf.bak").c_str(), 0600));
    EXPECT_EQ(1, m_store->set("A", "k", "new"));
    EXPECT_EQ(text, m_folder.Read("a.conf"));
}

TEST_F(IniStoreTest, UnknownNamesChangeNothing) {
    const std::string text = Load("[A]\nk=1\nlost line\n");
    EXPECT_EQ(1, m_store->set("a", "k", "2"));
    EXPECT_EQ(1, m_store->set("A", "K", "2"));
    EXPECT_EQ(2, m_store->set("A", nullptr, "2"));
    EXPECT_EQ(1, m_store->set("A", "k", "2\nother=3"));
    EXPECT_EQ(text, m_folder.Read("a.conf"));
}

TEST_F(IniStoreTest, FailedSaveKeepsTheOldValueAndTheLiveFile) {
    const std::string text = Load("[A]\nk=old\nSFTP_PASSWORD=0ld-S3cret\n");
    std::filesystem::create_directory(m_folder.Path("a.conf.bak"));
    EXPECT_EQ(1, m_store->set("A", "k", "new"));
    EXPECT_EQ("old", Get("A", "k"));
    EXPECT_EQ(text, m_folder.Read("a.conf"));
    EXPECT_EQ(1, m_store->set("A", "SFTP_PASSWORD", "n3w-S3cret"));
    EXPECT_EQ(std::string::npos, m_log->Dump().find("S3cret"));
    char out[3] = "x";
    EXPECT_EQ(1, m_store->get("A", "k", out, sizeof(out))) << "a value that does not fit";
    EXPECT_EQ(1, GVX_Config(m_folder.Path("none.conf").c_str()).set("A", "k", "v"));
    EXPECT_FALSE(std::filesystem::exists(m_folder.Path("none.conf")));
}

TEST_F(IniStoreTest, PartsAtTheirLimitLoadAndLongerOnesAreRefused) {
    const std::string key(128, 'k');
    const std::string value(8062, 'v');  // the line end is the 8063rd
    Load("[A]\n" + key + "=1\n" + key + "k=2\nv=" + value + "\nw=" + value + "v\n[" + std::string(129, 's') +
         "]\nx=1\n");
    EXPECT_EQ("1", Get("A", key.c_str()));
    EXPECT_EQ("result 1 unchanged", Get("A", (key + "k").c_str()));
    std::string out(9000, '\0');
    EXPECT_EQ(0, m_store->get("A", "v", out.data(), 9000));
    EXPECT_EQ(value, out.c_str());
    EXPECT_EQ("result 1 unchanged", Get("A", "w"));
    EXPECT_EQ("1", Get("A", "x"));
    // 8191 characters make the first line; the value is refused there, and the rest begins a key line.
    Load("[A]\nk=" + std::string(8189, 'v') + "tail=5\nm=2\n");
    EXPECT_EQ("result 1 unchanged", Get("A", "k"));
    EXPECT_EQ("5", Get("A", "tail"));
    EXPECT_EQ("2", Get("A", "m"));
}

}  // namespace
