#include "base/cbb_xml.h"

#include "base/text_member.h"
#include "support/temp_folder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include <sys/stat.h>

namespace {

TEST(XmlCursor, SearchesBehindItselfStaysOnFailureAndFollowsPaths) {
    CBB::CXml xml;
    ASSERT_TRUE(xml.Parse("<r><a>1</a><b/><a k='v'>2</a></r>"));
    EXPECT_EQ(xml.GetElemValue(), nullptr);
    EXPECT_FALSE(xml.IntoElem());
    EXPECT_FALSE(xml.OutOfElem());
    ASSERT_TRUE(xml.FindElem("r"));
    ASSERT_TRUE(xml.IntoElem());
    ASSERT_TRUE(xml.FindElem("a"));
    EXPECT_STREQ(xml.GetElemValue(), "1");
    ASSERT_TRUE(xml.FindElem("a"));
    EXPECT_STREQ(xml.GetElemValue(), "2");
    EXPECT_FALSE(xml.FindElem("a"));
    EXPECT_FALSE(xml.FindElem("b"));
    EXPECT_STREQ(xml.GetElemValue(), "2");
    EXPECT_TRUE(xml.FindFirstElem("b"));
    EXPECT_FALSE(xml.IntoElem()) << "b has no children";
    ASSERT_TRUE(xml.NextElem());
    EXPECT_FALSE(xml.NextElem()) << "nothing behind the last";
    EXPECT_STREQ(xml.GetAttributeValue("k"), "v");
    EXPECT_EQ(xml.GetAttributeValue("other"), nullptr);
    ASSERT_TRUE(xml.OutOfElem());
    EXPECT_STREQ(xml.GetElemName(), "r");
    xml.Rewind();
    ASSERT_TRUE(xml.NextElem());
    EXPECT_STREQ(xml.GetElemName(), "r");

    ASSERT_TRUE(xml.Parse("<Net><E><Server/></E><E><Client><ID>GVX#001</ID></Client></E></Net>"));
    EXPECT_FALSE(xml.FindElem("Net/E/Server/ID"));
    ASSERT_TRUE(xml.FindElem("Net/E/Client/ID"));
    EXPECT_STREQ(xml.GetElemValue(), "GVX#001");
    ASSERT_TRUE(xml.SetElemValue("GVX#002"));
    ASSERT_TRUE(xml.OutOfElem());
    EXPECT_STREQ(xml.GetElemName(), "Client");
    EXPECT_NE(xml.ToString().find("<ID>GVX#002</ID>"), std::string::npos);
}

TEST(XmlParser, RefusesWhatIsNoDocumentAndIsThenEmpty) {
    CBB::CXml xml;
    std::string deep;
    for (int i = 0; i < 5000; ++i) {
        deep += "<a>";
    }
    const std::string withZero("<a/>\0<b/>", 9);
    std::string attributes = "<a";
    for (int i = 0; i < 257; ++i) {
        attributes += " a" + std::to_string(i) + "=''";
    }
    std::string elements = "<r>";
    for (int i = 0; i < 100000; ++i) {
        elements += "<a/>";
    }
    for (const std::string& text : std::vector<std::string>{"",
                                                            "text",
                                                            "<a>",
                                                            "<a></b>",
                                                            "<a/><b/>",
                                                            "<a/>text",
                                                            withZero,
                                                            deep,
                                                            "<!-- only -->",
                                                            "<a>\xC3\x28</a>",
                                                            "<a>\xED\xA0\x80</a>",
                                                            "<a>&#0;</a>",
                                                            "<a>&#1;</a>",
                                                            "<a>&other;</a>",
                                                            "<a b='<'/>",
                                                            "<a b='1' b='2'/>",
                                                            "<!DOCTYPE a [<!ENTITY e 'x'>]><a>&e;</a>",
                                                            "<?xml version='1.0' encoding='GB2312'?><a/>",
                                                            attributes + "/>",
                                                            "<!--<a '--><r>" + attributes + "/></r>",
                                                            elements + "</r>"}) {
        ASSERT_TRUE(xml.Parse("<r/>"));
        EXPECT_FALSE(xml.Parse(text.data(), text.size())) << text.substr(0, 20);
        EXPECT_FALSE(xml.NextElem()) << text.substr(0, 20);
    }
    EXPECT_FALSE(xml.Parse(nullptr));
    EXPECT_FALSE(xml.Load("/nonexistent/file.xml"));
    EXPECT_FALSE(xml.Load("/"));
    EXPECT_TRUE(xml.Parse(("<!-- head <" + std::string(600, '"') + " --><a/><!-- tail -->").c_str()));
}

TEST(XmlParser, TextsAreWholeWhateverDividesThemAndComeAsUtf8) {
    const std::pair<std::string, const char*> rows[] = {
        {"<a>CAM<![CDATA[X]]>002</a>", "CAMX002"},
        {"<a><![CDATA[1]]><![CDATA[<2>]]></a>", "1<2>"},
        {"<a>be<!-- and -->fore<b/>behind</a>", "before"},
        {"<?go on?><a><?go?>x&lt;&#65;&#x42;</a>", "x<AB"},
        {"<a>\n  <b/>\n</a>", ""},
        {"<a><![CDATA[ ]]></a>", " "},
        {"<a><b/>behind</a>", ""},
        {"<?xml version='1.0' encoding='ISO-8859-1'?><a>\xE9</a>", "\xC3\xA9"},
        {std::string("\xFF\xFE<\0a\0>\0x\0<\0/\0a\0>\0", 18), "x"},
    };
    for (const auto& [text, value] : rows) {
        CBB::CXml xml;
        ASSERT_TRUE(xml.Parse(text.data(), text.size())) << text;
        ASSERT_TRUE(xml.FindElem("a")) << text;
        EXPECT_STREQ(xml.GetElemValue(), value) << text;
        const std::string body = text.substr(std::min(text.find("<a>"), text.size()));
        const std::string below = "<?xml version='1.0' encoding='ISO-8859-1'?><r>" + body + "</r>";
        const gvx::TextMember member = gvx::FindXmlMember(below.data(), below.size(), "r", "a");
        EXPECT_TRUE(body.empty() || member.text == value) << below << member.text << member.fault;
    }
}

TEST(XmlEncoder, WritesCompactTextThatReadsBackAndRefusesWhatXmlCannotCarry) {
    CBB::CXml xml;
    ASSERT_TRUE(xml.AddDeclaration("1.0", "UTF-8"));
    for (const char* name : {"a b", "", "1a"}) {
        EXPECT_FALSE(xml.AddElem(name)) << name;
    }
    ASSERT_TRUE(xml.AddElem("Content"));
    EXPECT_FALSE(xml.AddElem("SecondRoot"));
    EXPECT_FALSE(xml.SetElemValue("\x01"));
    ASSERT_TRUE(xml.IntoElem());
    EXPECT_FALSE(xml.AddElem("A", "\x1F"));
    ASSERT_TRUE(xml.AddElem("DevCode", "a<b&\"c\""));
    ASSERT_TRUE(xml.AddElem("LensList"));
    ASSERT_TRUE(xml.IntoElem());
    ASSERT_TRUE(xml.AddElem("Lens"));
    ASSERT_TRUE(xml.SetAttributeValue("id", "1"));
    ASSERT_TRUE(xml.OutOfElem());
    ASSERT_TRUE(xml.AddElem("Port", nullptr));
    unsigned int length = 0;
    const std::string text = xml.GetXMLStream(length);
    EXPECT_EQ(text.size(), length);
    EXPECT_EQ(text,
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?><Content><DevCode>a&lt;b&amp;\"c\"</DevCode>"
              "<LensList><Lens id=\"1\"/></LensList><Port/></Content>");
    CBB::CXml again;
    ASSERT_TRUE(again.Parse(text.c_str()));
    ASSERT_TRUE(again.FindElem("Content/DevCode"));
    EXPECT_STREQ(again.GetElemValue(), "a<b&\"c\"");
}

TEST(XmlFile, IsReplacedWholeAndKeepsItsAccessBits) {
    const TempFolder folder;
    const std::string path = folder.Write("net.xml", "<Net><LocalIP>1.1.1.1</LocalIP></Net>");
    ASSERT_EQ(chmod(path.c_str(), 0600), 0);
    CBB::CXml xml;
    ASSERT_TRUE(xml.Load(path.c_str()));
    ASSERT_TRUE(xml.FindElem("Net/LocalIP"));
    ASSERT_TRUE(xml.SetElemValue("2.2.2.2"));
    ASSERT_TRUE(xml.Save(path.c_str()));
    EXPECT_NE(folder.Read("net.xml").find("<LocalIP>2.2.2.2</LocalIP>"), std::string::npos);
    struct stat status {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600u);
    EXPECT_FALSE(std::filesystem::exists(path + ".bak"));
    EXPECT_FALSE(xml.Save(folder.Path("missing/net.xml").c_str()));
    EXPECT_FALSE(CBB::CXml().Save(path.c_str()));
}

}  // namespace
