// ?list=TNDS: a part of the tree as one document.

#include "answer_size.h"
#include "ddf_check.h"
#include "processor_fixture.h"
#include "tnds.h"

namespace client {

namespace {

using syncml::Command;
using syncml::CommandKind;
using syncml::Item;

class SerialisedTreeTest : public CommandProcessorTest {
protected:
    SerialisedTreeTest()
    {
        managementTree.setClock(
            [] { return QDateTime(QDate(2026, 1, 2), QTime(3, 4, 5), Qt::UTC); });
    }

    /// The document that a Get of the address answers, or the code of its Status. Every document is
    /// held against the DTD.
    std::string document(const QByteArray &uri)
    {
        const std::vector<Command> answers = answersTo(command(CommandKind::Get, {target(uri)}));
        if (answers.size() < 2)
            return answers.at(0).data->toStdString();
        EXPECT_EQ(answers[1].items.size(), 1u);
        const Item &item = answers[1].items.at(0);
        EXPECT_EQ(item.source->locUri.toUtf8(), uri);
        EXPECT_EQ(item.meta->format, QStringLiteral("xml"));
        EXPECT_EQ(item.meta->type, QStringLiteral("application/vnd.syncml.dmtnds+xml"));
        EXPECT_EQ(faultsOfDescription(*item.data), std::vector<std::string>());
        return item.data->toStdString();
    }
    /// The text with the properties that every node has in place of {leaf} and {node}.
    static std::string withTypes(const char *text)
    {
        return QByteArray(text)
            .replace("{leaf}", "<RTProperties><Type><MIME>text/plain</MIME></Type></RTProperties>")
            .replace("{node}", "<RTProperties><Type><DDFName></DDFName></Type></RTProperties>")
            .toStdString();
    }
    /// What stands inside MgmtTree after its version.
    std::string nodes(const QByteArray &uri)
    {
        const std::string all = document(uri);
        const std::string before = "<?xml version=\"1.0\" encoding=\"UTF-8\"?><MgmtTree "
                                   "xmlns=\"syncml:dmddf1.2\"><VerDTD>1.2</VerDTD>";
        const std::string after = "</MgmtTree>";
        if (all.size() < before.size() + after.size() || !all.starts_with(before))
            return all;
        return all.substr(before.size(), all.size() - before.size() - after.size());
    }
};

TEST_F(SerialisedTreeTest, HasNamesValuesAndProperties)
{
    tree.replaceProperty(profile("Home"), Property::Acl, "Get=*");
    tree.replaceProperty(profile("Home/Addr"), Property::Title, "Address");
    EXPECT_EQ(nodes(profileUri("Home?list=TNDS")),
              "<Node><NodeName>Home</NodeName><Path>./Ext/Profiles</Path>"
              "<RTProperties><ACL>Get=*</ACL><Format><node/></Format>"
              "<TStamp>20260102T030405Z</TStamp><Type><DDFName></DDFName></Type>"
              "<VerNo>1</VerNo></RTProperties>"
              "<Node><NodeName>Addr</NodeName>"
              "<RTProperties><Format><chr/></Format><Title>Address</Title>"
              "<TStamp>20260102T030405Z</TStamp><Type><MIME>text/plain</MIME></Type>"
              "<VerNo>1</VerNo></RTProperties>"
              "<Value>home.example</Value></Node></Node>");
}

TEST_F(SerialisedTreeTest, HasOnlyWhatAPlusAsksForAndTheType)
{
    EXPECT_EQ(
        nodes(profileUri("Home?list=TNDS+Value")),
        withTypes(
            "<Node><NodeName>Home</NodeName><Path>./Ext/Profiles</Path>{node}"
            "<Node><NodeName>Addr</NodeName>{leaf}<Value>home.example</Value></Node></Node>"));
    EXPECT_EQ(nodes(profileUri("Home/Addr?list=TNDS+Format+Size+Name")),
              "<Node><NodeName>Addr</NodeName><Path>./Ext/Profiles/Home</Path>"
              "<RTProperties><Format><chr/></Format><Name>Addr</Name><Size>12</Size>"
              "<Type><MIME>text/plain</MIME></Type></RTProperties></Node>");
}

TEST_F(SerialisedTreeTest, LeavesOutWhatAMinusNames)
{
    EXPECT_EQ(nodes(profileUri("Home/Addr?list=TNDS-Format-Value")),
              "<Node><NodeName>Addr</NodeName><Path>./Ext/Profiles/Home</Path>"
              "<RTProperties><Type><MIME>text/plain</MIME></Type><VerNo>0</VerNo></RTProperties>"
              "</Node>");
}

TEST_F(SerialisedTreeTest, WithoutValuesReadsNone)
{
    memory->calls.clear();
    document(profileUri("Office?list=TNDS-Value"));
    EXPECT_EQ(memory->calls, std::vector<std::string>());
}

TEST_F(SerialisedTreeTest, WhatCannotBeAskedForIsAMissingFeature)
{
    for (const char *const listing :
         {"TNDS+Nonsense", "TNDS-Nonsense", "TNDS+Value-ACL", "TNDS-ACL+Value", "TNDS+", "TNDS-",
          "TNDS+value", "TNDSX", "tnds", "TNDS ACL"})
        EXPECT_EQ(document(profileUri("Home?list=") + listing), "406") << listing;
    EXPECT_EQ(document(profileUri("Nobody?list=TNDS")), "404");
}

TEST_F(SerialisedTreeTest, BeginsAtTheRootToo)
{
    const std::string all = nodes(".?list=TNDS+Value");
    EXPECT_TRUE(all.starts_with(
        withTypes("<Node><NodeName>.</NodeName>{node}<Node><NodeName>DevInfo</NodeName>")))
        << all;
}

TEST_F(SerialisedTreeTest, NamesAreEscapedAsInAUri)
{
    memory->addInterior("My Caf\xc3\xa9");
    EXPECT_EQ(
        nodes(profileUri("My%20Caf%C3%A9?list=TNDS+Value")),
        withTypes(
            "<Node><NodeName>My%20Caf%C3%A9</NodeName><Path>./Ext/Profiles</Path>{node}</Node>"));
}

TEST_F(SerialisedTreeTest, ValuesThatXmlCannotCarryAreBase64)
{
    DMVector<unsigned char> bytes;
    bytes.push_back(0);
    bytes.push_back(static_cast<unsigned char>(255));
    memory->addLeaf("Home/Icon", DmtData(bytes));
    EXPECT_EQ(nodes(profileUri("Home/Icon?list=TNDS+Format+Value")),
              "<Node><NodeName>Icon</NodeName><Path>./Ext/Profiles/Home</Path><RTProperties>"
              "<Format><b64/></Format><Type><MIME>text/plain</MIME></Type></RTProperties>"
              "<Value>AP8=</Value></Node>");
    memory->addLeaf("Home/Bell", DmtData("\x07"));
    EXPECT_EQ(nodes(profileUri("Home/Bell?list=TNDS+Format+Value")),
              "<Node><NodeName>Bell</NodeName><Path>./Ext/Profiles/Home</Path><RTProperties>"
              "<Format><b64/></Format><Type><MIME>text/plain</MIME></Type></RTProperties>"
              "<Value>Bw==</Value></Node>");
}

TEST_F(SerialisedTreeTest, ABase64ValueSaysSoWhicheverPropertiesAreAskedFor)
{
    DMVector<unsigned char> bytes;
    bytes.push_back('A');
    memory->addLeaf("Home/Icon", DmtData(bytes));
    memory->addLeaf("Home/Bell", DmtData("a\x01"
                                         "b"));
    const std::string format = "<RTProperties><Format><b64/></Format><Type>";
    for (const char *const content : {"TNDS+Value", "TNDS-Format-ACL-VerNo-TStamp-Title"}) {
        const std::string bell = nodes(profileUri("Home/Bell?list=") + content);
        EXPECT_NE(bell.find(format), std::string::npos) << bell;
        EXPECT_NE(bell.find("<Value>YQFi</Value>"), std::string::npos) << bell;
        const std::string icon = nodes(profileUri("Home/Icon?list=") + content);
        EXPECT_NE(icon.find(format), std::string::npos) << icon;
        EXPECT_NE(icon.find("<Value>QQ==</Value>"), std::string::npos) << icon;
        const std::string address = nodes(profileUri("Home/Addr?list=") + content);
        EXPECT_EQ(address.find("<Format>"), std::string::npos) << address;
    }
    const std::string bell = nodes(profileUri("Home/Bell?list=TNDS+Type"));
    EXPECT_EQ(bell.find("<Format>"), std::string::npos) << bell;
}

TEST_F(SerialisedTreeTest, ABinaryLeafWithoutAValueHasItsOwnFormat)
{
    memory->addLeaf("Home/Icon", DmtData(DMVector<unsigned char>()));
    memory->withoutValue = {"Home/Icon"};
    for (const char *const content : {"TNDS+Format+Value", "TNDS+Format"}) {
        const std::string found = nodes(profileUri("Home/Icon?list=") + content);
        EXPECT_NE(found.find("<Format><bin/></Format>"), std::string::npos) << found;
    }
}

TEST_F(SerialisedTreeTest, OfMoreBytesThanItMayHaveThereIsNone)
{
    const auto listing = tree.list(*tree.find(profile("Office")), TreeView::Values::Read);
    const TndsContent content{{}, true};
    const auto whole = tndsDocument(tree, listing, content, mostAnswerBytes);
    ASSERT_TRUE(whole);
    EXPECT_EQ(tndsDocument(tree, listing, content, whole->size()), whole);
    EXPECT_EQ(tndsDocument(tree, listing, content, whole->size() - 1), std::nullopt);
}

TEST_F(SerialisedTreeTest, MarkupInAValueStaysText)
{
    memory->addLeaf("Home/Name", DmtData("a<b>&\"c"));
    EXPECT_EQ(nodes(profileUri("Home/Name?list=TNDS+Value")),
              withTypes("<Node><NodeName>Name</NodeName><Path>./Ext/Profiles/Home</Path>{leaf}"
                        "<Value>a&lt;b&gt;&amp;&quot;c</Value></Node>"));
}

TEST_F(SerialisedTreeTest, AnUnreadableLeafHasNoValue)
{
    memory->failures = {{"get Home/Addr", 1}};
    EXPECT_EQ(nodes(profileUri("Home?list=TNDS+Value")),
              withTypes("<Node><NodeName>Home</NodeName><Path>./Ext/Profiles</Path>{node}"
                        "<Node><NodeName>Addr</NodeName>{leaf}</Node></Node>"));
}

TEST_F(SerialisedTreeTest, LeavesOutWhatTheServerMayNotReadAndPlacesWhatIsBeneathByItsPath)
{
    principal = Principal::server("S");
    tree.replaceProperty(profile("Office/Auth"), Property::Acl, "Get=Other");
    tree.replaceProperty(profile("Office/Auth/AuthPw"), Property::Acl, "Get=S");
    tree.replaceProperty(profile("Office/Linger"), Property::Acl, "Get=Other");
    memory->addLeaf("Office/Last", DmtData("z"));
    EXPECT_EQ(
        nodes(profileUri("Office?list=TNDS+Value")),
        withTypes("<Node><NodeName>Office</NodeName><Path>./Ext/Profiles</Path>{node}"
                  "<Node><NodeName>Addr</NodeName>{leaf}<Value>internet</Value></Node>"
                  "<Node><NodeName>Enabled</NodeName>{leaf}<Value>true</Value></Node>"
                  "<Node><NodeName>Port</NodeName>{leaf}<Value></Value></Node>"
                  "<Node><NodeName>Last</NodeName>{leaf}<Value>z</Value></Node></Node>"
                  "<Node><NodeName>AuthPw</NodeName><Path>./Ext/Profiles/Office/Auth</Path>{leaf}"
                  "<Value>secret</Value></Node>"));
}

TEST_F(SerialisedTreeTest, NeedsGetOnTheNodeThatItBeginsWith)
{
    principal = Principal::server("S");
    tree.replaceProperty(profile("Office"), Property::Acl, "Get=Other");
    for (const char *const listing : {"TNDS", "Struct", "StructData"})
        EXPECT_EQ(document(profileUri("Office?list=") + listing), "425");
}

} // namespace

} // namespace client
