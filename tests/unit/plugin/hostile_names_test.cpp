// Names that a server chooses end up in file keys, in the profile service and in messages: none may
// crash, overflow, inject a format or touch another profile.
#include "server_change_test.h"

namespace {

using namespace doubles;

class HostileNameTest : public ServerChangeTest, public ::testing::WithParamInterface<std::string> {
protected:
    void SetUp() override
    {
        ServerChangeTest::SetUp();
        handset.napi.Store("Home", ToRecord(PatternBytes(0)), 1);
        handset.napi.nextId = 5;
    }

    /// As the file shows the name: what is not UTF-8 is shown by a replacement.
    static std::string AsUtf8(const std::string &name)
    {
        return QString::fromUtf8(name.data(), static_cast<qsizetype>(name.size())).toStdString();
    }
    /// As the name is used in a key of references.
    static std::string AsLatin1(const std::string &name)
    {
        return QString::fromLatin1(name.data(), static_cast<qsizetype>(name.size())).toStdString();
    }

    void ExpectHomeUntouched(const TreePtr &tree)
    {
        EXPECT_TRUE(SameBytes(handset.napi.Find("Home")->record, PatternBytes(0)));
        EXPECT_EQ(Mapped(tree).at(0).first, "Home");
        EXPECT_EQ(std::string(PluginTreeProbe(*tree).Find("Home")->sProfileID.text()).front(), '1');
        EXPECT_TRUE(Exists(tree, "Home"));
    }
};

TEST_P(HostileNameTest, OfANewProfileIsStoredAsItIs)
{
    const std::string &name = GetParam();
    const std::string profile = name.substr(0, name.find("&&_"));
    const TreePtr tree = LoadTree(CONN_ROOT);
    JemSmartPtr<DmtNode> node;

    const int status = tree->CreateInteriorNode(name.c_str(), node);

    if (profile.empty() || profile.size() > 63) {
        EXPECT_EQ(status, 1);
        EXPECT_EQ(NapdefOnDisk(), (Entries{{"1Ph1DC1", "Home"}}));
        EXPECT_EQ(Children(tree, ""), Lines{"Home"});
    } else {
        EXPECT_EQ(status, 0);
        EXPECT_EQ(NapdefOnDisk(), (Entries{{"1Ph1DC1", "Home"}, {"5Ph2DC1", AsUtf8(name)}}));
        EXPECT_NE(handset.napi.Find(profile), nullptr);
        EXPECT_EQ(Children(tree, ""), (Lines{"Home", name}));
        EXPECT_EQ(tree->CreateLeafNode((name + "/Addr").c_str(), node, Text("x")), 0);
        EXPECT_EQ(handset.napi.Find(profile)->record.csdAddress[0], 'x');
        EXPECT_EQ(tree->CreateLeafNode((name + "/Bearer").c_str(), node, Text("GSM-GPRS")), 0);
        EXPECT_EQ(NapdefOnDisk(), (Entries{{"1Ph1DC1", "Home"}, {"5Ph1DC1", AsUtf8(name)}}));
        EXPECT_EQ(tree->DeleteNode(name.c_str()), 0);
        EXPECT_EQ(handset.napi.Find(profile), nullptr);
        EXPECT_EQ(NapdefOnDisk(), (Entries{{"1Ph1DC1", "Home"}}));
    }
    ExpectHomeUntouched(tree);
}

TEST_P(HostileNameTest, OfARenamedProxyProfileKeysItsReferences)
{
    const std::string &name = GetParam();
    const TreePtr tree = MountOffice(INTPROFS_ROOT);

    EXPECT_EQ(tree->RenameNode("Office", name.c_str()), 0);

    EXPECT_EQ(ProxyOnDisk(), (Entries{{"1", "Home"}, {"5", AsUtf8(name)}}));
    const Entries home{{"Home/Ph1", "Home"}, {"Home/Ph2", "Home"}, {"Home/Ph3", "Home"}};
    Entries expected = home;
    expected[AsLatin1(name) + "/Ph1"] = "Office";
    EXPECT_EQ(ReferencesOnDisk(), expected);

    EXPECT_EQ(Write(tree, name + "/Ph2/Conn", Text(name)), 0);
    expected[AsLatin1(name) + "/Ph2"] = AsUtf8(name);
    EXPECT_EQ(ReferencesOnDisk(), expected);
    EXPECT_EQ(StringOf(Value(tree, name + "/Ph2/Conn")), name) << "the engine keeps the bytes";

    EXPECT_EQ(tree->DeleteNode(name.c_str()), 0);
    EXPECT_EQ(ReferencesOnDisk(), home);
    ExpectHomeUntouched(tree);
}

TEST_P(HostileNameTest, StandsInMessagesAsItIs)
{
    const std::string &name = GetParam();
    const TreePtr tree = MountOffice(CONN_ROOT);
    DmtChildValuesMap map;
    map.put(DMString(name.c_str()), Text("x"));
    JemSmartPtr<DmtNode> node;

    EXPECT_EQ(tree->RenameNode(name.c_str(), "x"), 404);
    EXPECT_EQ(tree->DeleteNode(name.c_str()), 0);
    EXPECT_EQ(tree->CreateLeafNode((name + "/x").c_str(), node, Text("x")), 404);
    EXPECT_EQ(tree->SetChildValuesMap("Office", map), 404);
    EXPECT_EQ(tree->RenameNode("Office/Addr", name.c_str()), 1);

    ExpectMessages(
        {"T Leave: RenameNode fail! The node: " + name + " is not exist!\n",
         "T Warning: DeleteNode! Node " + name + " is not exist!\n",
         "T Leave:CreateLeafNodeInternal() fail! Parent node: " + name + " is not exist!\n",
         "T Leave: SetChildValuesMap fail! The node: Office/" + name + " is not exist!\n",
         "T Leave: RenameNode fail! The node: Office/Addr can not be renamed!\n"});
    SetEngineValue(tree, "Office/Bearer", Text(name));
    EXPECT_EQ(Write(tree, "Office/Addr", Text("x")), 1);
    ExpectMessages({"N Leave: SetValueforNAPDEF()! Invalid Bearer type: " + name + "\n",
                    "N Leave: SetValueInternal()! SetValueforNAPDEF or SetValueforPROXY() "
                    "failed!\n",
                    "N Leave: SetValue()! SetValueInternal() failed!\n"});
}

INSTANTIATE_TEST_SUITE_P(
    Names, HostileNameTest,
    ::testing::Values("%", "%s%s%s%n", "%1000000d", "&&_", "&&_PH1", "Office2&&_&&_", "a&&b",
                      "line\nbreak", "\r\n[NAPIDEF_Profile]\r\n1Ph1DC1=x", "\n", "=", "a=b", "[x]",
                      "\\", "\"quoted\"", " ", ".", "..", "1", "1Ph1DC1", "5Ph2DC1", "Ph1DC1",
                      "Ph1", "\x01\x02\x7f", "B\xc3\xbcro", "\xe4\xb8\xad", "\xff\xfe\xfd", "\xc3",
                      "\xc0\xaf", "\xed\xa0\x80", std::string(63, 'x'), std::string(64, 'x'),
                      std::string(10000, 'x'), std::string(10000, '%'),
                      "short&&_" + std::string(10000, 'x'), std::string(64, 'x') + "&&_"),
    [](const auto &info) { return std::to_string(info.index); });

TEST_F(ServerChangeTest, NameWithSlashesIsAPathAndNeverAProfile)
{
    const TreePtr tree = MountOffice(CONN_ROOT);
    JemSmartPtr<DmtNode> node;
    for (const char *const path : {"a/b", "a/", "a/b/c", "//"}) {
        EXPECT_EQ(tree->CreateInteriorNode(path, node), 404) << path;
        EXPECT_EQ(tree->DeleteNode(path), 0) << path;
    }
    EXPECT_EQ(TakeOutsideCalls(), Lines{});
    EXPECT_EQ(Mapped(tree), (Mapping{{"Office", "5Ph1DC1 G"}}));
}

} // namespace
