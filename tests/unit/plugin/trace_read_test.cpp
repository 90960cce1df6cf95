// What level 8 prints while a root is mounted and read: every message, in order.
#include "plugin_test.h"

#include <regex>

namespace {

using namespace doubles;

class TraceTest : public PluginTest {
protected:
    /// Everything that was logged since the last look, with addresses as 0x#.
    Lines TakeTrace()
    {
        static const std::regex address("0x[0-9a-f]+");
        Lines messages = handset.log.Take();
        for (std::string &message : messages)
            message = std::regex_replace(message, address, "0x#");
        return messages;
    }
    static Lines TreeTrace(const Lines &texts)
    {
        Lines messages;
        for (const std::string &text : texts)
            messages.push_back(TreeMessage(text));
        return messages;
    }
    static Lines NodeTrace(const Lines &texts)
    {
        Lines messages;
        for (const std::string &text : texts)
            messages.push_back(NodeMessage(text));
        return messages;
    }
    static Lines Joined(const std::vector<Lines> &parts)
    {
        Lines all;
        for (const Lines &part : parts)
            all.insert(all.end(), part.begin(), part.end());
        return all;
    }
    void Entry(const std::string &path, const std::string &group, const std::string &key,
               const std::string &value)
    {
        handset.settings.unlinkKeepsFiles = true;
        handset.settings.Preload(path, group, key, value);
    }
};

const std::string NAPDEF_OPENED =
    "SETUP_SET_Manager FileName = /settings/kub_napdef_profilemapping.cfg, m_psetupManager=0x#\n";
const std::string PROXY_OPENED =
    "SETUP_SET_Manager FileName = /settings/kub_proxy_profilemapping.cfg, m_psetupManager=0x#\n";

// ---- Entry point and tree object -----------------------------------------------------------------

TEST_F(TraceTest, ARefusedRoot)
{
    JemSmartPtr<DmtPluginTree> tree;
    DMT_PluginLib_Data_GetPluginTree("./Other", nullptr, tree);
    EXPECT_EQ(TakeTrace(),
              (Lines{EntryMessage("\nEnter in napiplugin\nEnter "
                                  "napi_plugin:DMT_PluginLib_Data_GetPluginTree : RootNodePath = "
                                  "./Other\n"),
                     EntryMessage("Rootpath of the Subtree is not a NAPI Plugin!\n")}));
}

TEST_F(TraceTest, AnEmptyMountFromTheEntryPointToTheDestructor)
{
    JemSmartPtr<DmtPluginTree> tree;
    DMT_PluginLib_Data_GetPluginTree(CONN_ROOT, nullptr, tree);
    tree.reset();
    EXPECT_EQ(
        TakeTrace(),
        Joined({{EntryMessage("\nEnter in napiplugin\nEnter "
                              "napi_plugin:DMT_PluginLib_Data_GetPluginTree : RootNodePath = "
                              "./DevDetail/Ext/Conf/Conn/Profiles\n")},
                TreeTrace({" Constructor of DM_NAPI_PluginTree! rootpath = "
                           "./DevDetail/Ext/Conf/Conn/Profiles\n",
                           "Enter: LoadProfilesinDB()!\n", "Enter: LoadProfileMapCfgFile()!\n",
                           NAPDEF_OPENED, "Leave: LoadProfileMapCfgFile()!\n",
                           "NAPI_ListAllProfile: Counter = 0\n",
                           "m_ProfileMaps includes: 0 item!\n", "Leave: LoadProfilesinDB()!\n",
                           "Destructor of DM_NAPI_PluginTree! rootpath = "
                           "./DevDetail/Ext/Conf/Conn/Profiles\n"})}));
}

TEST_F(TraceTest, PathOperations)
{
    const TreePtr tree = NewTree(CONN_ROOT);
    TakeTrace();
    DMString parent;
    DMString name;
    tree->ParseNodePath("a/b/c", parent, name);
    tree->ParseNodePath("", parent, name);
    tree->ParseLogicalId("Office&&_PH1_DC1", name);
    tree->HasEmptyNodeName("a/");
    EXPECT_EQ(TakeTrace(),
              TreeTrace({"ParseNodePath(),NodePath = a/b/c, ParentNodePath = a/b, NodeName = c\n",
                         "ParseNodePath(),NodePath = , ParentNodePath = , NodeName = \n",
                         "ParseLogicalId(),sNodeName = Office&&_PH1_DC1, sLogicalId = Office\n",
                         "ParseNodePath(),NodePath = a/, ParentNodePath = a, NodeName = \n"}));
}

TEST_F(TraceTest, ProfileName)
{
    handset.napi.Store("Stored name", Record("internet"), 12);
    const TreePtr tree = NewTree(CONN_ROOT);
    PluginTreeProbe(*tree).Put("Node", "12Ph1DC1");
    PluginTreeProbe(*tree).Put("Unknown", "13Ph2DC1");
    PluginTreeProbe(*tree).Put("Bad", "x");
    TakeTrace();
    DMString name;
    tree->GetProfileName("Node", name);
    EXPECT_EQ(
        TakeTrace(),
        TreeTrace({"Enter: GetProfileName()!\n", "ProfileNodeName=Node, ProfileID=12Ph1DC1 \n",
                   "ExtractProfileID() OK: key = 12, ID = 12\n",
                   "Leave: GetProfileName! NodeName = Node, ProfileName = Stored name\n"}));
    tree->GetProfileName("Missing", name);
    EXPECT_EQ(TakeTrace(),
              TreeTrace({"Enter: GetProfileName()!\n",
                         "Leave:GetProfileName! Can not find Missing in m_ProfileMaps!\n"}));
    tree->GetProfileName("Unknown", name);
    EXPECT_EQ(
        TakeTrace(),
        TreeTrace({"Enter: GetProfileName()!\n", "ProfileNodeName=Unknown, ProfileID=13Ph2DC1 \n",
                   "ExtractProfileID() OK: key = 13, ID = 13\n",
                   "Leave:GetProfileName! NAPI_GetProfileNameByID failed, return 3!\n"}));
    tree->GetProfileName("Bad", name);
    EXPECT_EQ(TakeTrace(),
              TreeTrace({"Enter: GetProfileName()!\n", "ProfileNodeName=Bad, ProfileID=x \n",
                         "ExtractProfileID() Failed: key = x, ID = 0\n",
                         "Leave:GetProfileName! ExtractProfileID failed!\n"}));
}

// ---- The map ------------------------------------------------------------------------------------

TEST_F(TraceTest, LoadingANapdefFile)
{
    for (const unsigned int id : {1u, 2u, 3u, 4u})
        handset.napi.Store("Profile " + std::to_string(id), Record("internet"), id);
    Entry(NAPDEF_FILE, NAPDEF_GROUP, "1Ph1DC1", "One");
    Entry(NAPDEF_FILE, NAPDEF_GROUP, "2Ph2DC1", "Two");
    Entry(NAPDEF_FILE, NAPDEF_GROUP, "3Ph3DC1", "Three");
    Entry(NAPDEF_FILE, NAPDEF_GROUP, "4", "Four");
    Entry(NAPDEF_FILE, NAPDEF_GROUP, "5Ph1DC1", "Gone");
    Entry(NAPDEF_FILE, NAPDEF_GROUP, "x", "Rubbish");
    const TreePtr tree = NewTree(CONN_ROOT);
    TakeTrace();
    EXPECT_EQ(tree->LoadProfileMapCfgFile(), 0);
    EXPECT_EQ(
        TakeTrace(),
        TreeTrace({"Enter: LoadProfileMapCfgFile()!\n", NAPDEF_OPENED,
                   "ExtractProfileID() OK: key = 1, ID = 1\n",
                   "Put item to m_ProfileMaps: <NodeName, ProfileID> = <One, 1Ph1DC1>\n",
                   "Bearer is CPRS\n", "ExtractProfileID() OK: key = 2, ID = 2\n",
                   "Put item to m_ProfileMaps: <NodeName, ProfileID> = <Two, 2Ph2DC1>\n",
                   "Bearer is CSD\n", "ExtractProfileID() OK: key = 3, ID = 3\n",
                   "Put item to m_ProfileMaps: <NodeName, ProfileID> = <Three, 3Ph3DC1>\n",
                   "Bearer is CSD2\n", "ExtractProfileID() OK: key = 4, ID = 4\n",
                   "Put item to m_ProfileMaps: <NodeName, ProfileID> = <Four, 4>\n",
                   "error format\n", "ExtractProfileID() OK: key = 5, ID = 5\n",
                   "Remove item: Key = 5Ph1DC1\n", "ExtractProfileID() Failed: key = x, ID = 0\n",
                   "Remove item: Key = x\n", "Leave: LoadProfileMapCfgFile()!\n"}));
}

TEST_F(TraceTest, LoadingAProxyFile)
{
    handset.napi.Store("Profile", Record("internet"), 5);
    Entry(PROXY_FILE, PROXY_GROUP, "5", "Office");
    Entry(PROXY_FILE, CONN_GROUP, "Gone/Ph2", "Home");
    const TreePtr tree = NewTree(INTPROFS_ROOT);
    TakeTrace();
    EXPECT_EQ(tree->LoadProfileMapCfgFile(), 0);
    EXPECT_EQ(
        TakeTrace(),
        TreeTrace({"Enter: LoadProfileMapCfgFile()!\n", PROXY_OPENED,
                   "ExtractProfileID() OK: key = 5, ID = 5\n", "Enter: GetBearFromNapCfg()!\n",
                   "Leave: GetBearFromNapCfg()!\n", "pProfileInfo->sProfileID is 5\n",
                   "Remove item: Key = Gone/Ph2\n", "Leave: LoadProfileMapCfgFile()!\n"}));
}

TEST_F(TraceTest, AManagerThatCouldNotBeMade)
{
    const TreePtr tree = NewTree(CONN_ROOT);
    TakeTrace();
    handset.faults.Fail("new");
    tree->LoadProfileMapCfgFile();
    EXPECT_EQ(TakeTrace(),
              TreeTrace({"Enter: LoadProfileMapCfgFile()!\n", NAPDEF_OPENED,
                         "Leave: LoadProfileMapCfgFile! new SETUP_SET_Manager failed!\n"}));
}

TEST_F(TraceTest, Insertions)
{
    const TreePtr tree = NewTree(CONN_ROOT);
    ASSERT_EQ(tree->LoadProfileMapCfgFile(), 0);
    TakeTrace();
    tree->PutProfileMap("Office", NewInfo("5Ph1DC1"));
    EXPECT_EQ(TakeTrace(),
              TreeTrace({"Enter: PutProfileMap! <NodeName, ProfileID> = <Office, 5Ph1DC1>\n",
                         "PutProfileMap: <Key = ProfileID, Value = ProfileNodeName > = <5Ph1DC1, "
                         "Office>\n"}));
    tree->PutProfileMap("Office", NewInfo("5Ph2DC1"));
    EXPECT_EQ(TakeTrace(),
              TreeTrace({"Enter: PutProfileMap! <NodeName, ProfileID> = <Office, 5Ph2DC1>\n",
                         "Leave: PutProfileMap! <NodeName, ProfileID> = <Office, 5Ph1DC1> has "
                         "exist in m_ProfileMaps and cfg!\n"}));
    tree->AddProfileMap("Home", NewInfo("6Ph1DC1"));
    EXPECT_EQ(TakeTrace(), TreeTrace({"AddProfileMap: <NodeName, ProfileID> = <Home, 6Ph1DC1>\n",
                                      "qsKey = 6Ph1DC1,qsValue = Home,qsTemp = \n"}));
    tree->AddProfileMap("Work", NewInfo("5Ph1DC1"));
    EXPECT_EQ(TakeTrace(),
              TreeTrace({"AddProfileMap: <NodeName, ProfileID> = <Work, 5Ph1DC1>\n",
                         "qsKey = 5Ph1DC1,qsValue = Work,qsTemp = Office\n",
                         "??? Leave: AddProfileMap:setSettingInfo  Failed, the entry of "
                         "profileid+suffix has exist\n"}));
    tree->AddProfileMap("Home", NewInfo("5Ph1DC1"));
    EXPECT_EQ(TakeTrace(), TreeTrace({"AddProfileMap: <NodeName, ProfileID> = <Home, 5Ph1DC1>\n",
                                      "Leave: AddProfileMap fail! Node named Home has exist in "
                                      "m_ProfileMaps!\n"}));
}

TEST_F(TraceTest, DeletionRenamingAndBearerChange)
{
    const TreePtr tree = NewTree(CONN_ROOT);
    ASSERT_EQ(tree->LoadProfileMapCfgFile(), 0);
    ASSERT_EQ(tree->PutProfileMap("Office", NewInfo("5Ph1DC1")), 0);
    TakeTrace();
    tree->RenameProfileMapDB("Office", "GSM-CSD");
    EXPECT_EQ(TakeTrace(),
              TreeTrace({"Enter: RenameProfileMapinDB() \n",
                         "RenameProfileMapDB: before removeEntry, group = NAPIDEF_Profile, qskey = "
                         "5Ph1DC1\n",
                         "RenameProfileMapDB: qsGroupName = NAPIDEF_Profile, qsKey = "
                         "5Ph2DC1,qsValue = Office\n",
                         "Leave: RenameProfileMapDB()\n"}));
    tree->RenameProfileMap("Office", "Work");
    EXPECT_EQ(TakeTrace(),
              TreeTrace({"Enter: RenameProfileMap() \n", "Leave: RenameProfileMap!\n"}));
    tree->DeleteProfileMap("Work");
    EXPECT_EQ(TakeTrace(), TreeTrace({"DeleteProfileMap: Group: NAPIDEF_Profile <NodeName, "
                                      "ProfileID> = <Work, 5Ph2DC1>\n"}));
}

TEST_F(TraceTest, MapChangesThatFail)
{
    const TreePtr tree = NewTree(CONN_ROOT);
    TakeTrace();
    tree->RenameProfileMapDB("Office", "GSM-CSD");
    tree->RenameProfileMap("Office", "Work");
    tree->DeleteProfileMap("Office");
    EXPECT_EQ(
        TakeTrace(),
        TreeTrace({"Enter: RenameProfileMapinDB() \n",
                   "Leave: RenameProfileMapDB fail! Can not lookup Office in m_ProfileMaps!\n",
                   "Enter: RenameProfileMap() \n",
                   "Leave: RenameProfileMap fail! Can not lookup Office in m_ProfileMaps!\n",
                   "Leave: DeleteProfileMap fail! Can not lookup Office in m_ProfileMaps!\n"}));
    PluginTreeProbe(*tree).Put("Office", "5Ph1DC1", "G");
    tree->RenameProfileMapDB("Office", "GSM-CSD");
    EXPECT_EQ(TakeTrace(),
              TreeTrace({"Enter: RenameProfileMapinDB() \n", "Leave: RenameProfileMapDB()\n"}))
        << "without an open file";
}

TEST_F(TraceTest, BearerAndNameQueries)
{
    const TreePtr tree = NewTree(INTPROFS_ROOT);
    TakeTrace();
    const NAP_PROFILE_S record = Record("packet", "switched", "switched too");
    tree->IsGPRS(&record);
    tree->IsCSD(&record);
    tree->IsCSD2(&record);
    EXPECT_EQ(TakeTrace(), TreeTrace({"IsGPRS: GPRS = packet\n", "IsCSD: CSD = switched\n",
                                      "IsCSD2: CSD = switched too\n"}));
    const NAP_PROFILE_S none{};
    tree->IsGPRS(&none);
    tree->IsCSD(&none);
    tree->IsCSD2(&none);
    EXPECT_EQ(TakeTrace(), Lines{});

    ProfileInfo info;
    info.sProfileID = "5";
    tree->GetBearFromNapCfg(&info);
    EXPECT_EQ(TakeTrace(),
              TreeTrace({"Enter: GetBearFromNapCfg()!\n", "Leave: GetBearFromNapCfg()!\n"}));
    tree->GetBearFromNapCfg(nullptr);
    EXPECT_EQ(TakeTrace(), TreeTrace({"Enter: GetBearFromNapCfg()!\n"}));

    handset.settings.Preload(NAPDEF_FILE, NAPDEF_GROUP, "5Ph1DC1", "Büro");
    DMString name;
    tree->GetNapdefName(&info.sProfileID, "Ph1", name);
    EXPECT_EQ(TakeTrace(), TreeTrace({"Enter: GetNapdefName()!\n", "the sNapdefName is Büro\n",
                                      "Leave: GetNapdefName()!\n"}));
    tree->GetNapdefName(nullptr, "Ph1", name);
    EXPECT_EQ(TakeTrace(), TreeTrace({"Enter: GetNapdefName()!\n"}));
}

TEST_F(TraceTest, ConnectionReferences)
{
    const TreePtr tree = NewTree(INTPROFS_ROOT);
    ASSERT_EQ(tree->LoadProfileMapCfgFile(), 0);
    TakeTrace();
    ProfileInfo info;
    info.sProfileID = "5";
    info.bIsGPRS = info.bIsCSD = info.bIsCSD2 = true;
    DMString value;
    for (const auto &[ph, flag] : {std::pair<std::string, std::string>{"Ph1", "bIsGPRS"},
                                   {"Ph2", "bIsCSD"},
                                   {"Ph3", "bIsCSD2"}}) {
        tree->GetConnValue(&info, "Office", ph.c_str(), value);
        EXPECT_EQ(TakeTrace(),
                  TreeTrace({"Enter: GetConnValue()! NodePath = Office/" + ph + "/Conn\n",
                             "pProfileInfo->" + flag + " is true\n", "Enter: GetNapdefName()!\n",
                             "the sNapdefName is \n", "Leave: GetNapdefName()!\n",
                             "Enter: SetConnValue()! NodePath = Office/" + ph + "/Conn\n",
                             "Leave: SetConnValue()! value = Office\n",
                             "Leave: GetConnValue()! Value = Office\n"}));
    }
    tree->GetConnValue(&info, "Office", "Ph1", value);
    EXPECT_EQ(TakeTrace(), TreeTrace({"Enter: GetConnValue()! NodePath = Office/Ph1/Conn\n",
                                      "Leave: GetConnValue()!entry exist, Value = Office\n"}));
    tree->GetConnValue(&info, "Office", "Ph4", value);
    EXPECT_EQ(TakeTrace(),
              TreeTrace({"Enter: GetConnValue()! NodePath = Office/Ph4/Conn\n",
                         "Leave: GetConnValue(), the Conn of  Ph4 has no related fields\n"}));
    tree->SetConnValue(DMString(), DMString(), DMString());
    EXPECT_EQ(TakeTrace(), TreeTrace({"Enter: SetConnValue()! NodePath = //Conn\n",
                                      "Leave: SetConnValue()! value = \n"}));
    const TreePtr bare = NewTree(INTPROFS_ROOT);
    TakeTrace();
    bare->SetConnValue("Office", "Ph1", "Home");
    EXPECT_EQ(TakeTrace(), TreeTrace({"Enter: SetConnValue()! NodePath = Office/Ph1/Conn\n"}));
}

// ---- A mount -----------------------------------------------------------------------------------

Lines ChildTrace(const std::string &profile, const std::string &child)
{
    return {
        TreeMessage("Enter: LoadChildrenofProfile()! NodePath = " + profile + "/" + child + "\n"),
        TreeMessage("Leave: LoadChildrenofProfile()! \n")};
}

TEST_F(TraceTest, ANapdefMount)
{
    handset.napi.Store("Office", Record("internet", "", "+4918"), 5);
    handset.napi.Store("Ñet", Record("", "+4917"), 6);
    handset.napi.Store("No bearer", NAP_PROFILE_S{}, 7);
    handset.napi.Store("Unreadable", Record("internet"), 4294967295u);
    handset.faults.Fail("NAPI_ReadProfile", 4);
    const TreePtr tree = NewTree(CONN_ROOT);
    TakeTrace();
    EXPECT_EQ(tree->LoadProfilesinDB(), 0);

    const auto subtree = [](const std::string &profile, const std::string &key) {
        return Joined(
            {TreeTrace(
                 {"Enter: LoadSubTreeofProfile()! ProfileNode = " + profile +
                      ", ProfileID = " + key + "\n",
                  "Enter: LoadChildrenofProfile()! NodePath = " + profile + "/Bearer\n",
                  "Enter: RenameProfileMapinDB() \n",
                  "RenameProfileMapDB: before removeEntry, group = NAPIDEF_Profile, qskey = " +
                      key + "\n",
                  "RenameProfileMapDB: qsGroupName = NAPIDEF_Profile, qsKey = " + key +
                      ",qsValue = " + profile + "\n",
                  "Leave: RenameProfileMapDB()\n", "Leave: LoadChildrenofProfile()! \n"}),
             ChildTrace(profile, "Addr"), ChildTrace(profile, "DNS1"), ChildTrace(profile, "DNS2"),
             ChildTrace(profile, "Linger"), ChildTrace(profile, "Auth"),
             ChildTrace(profile, "LineType"), ChildTrace(profile, "Speed"),
             TreeTrace({"Leave: LoadSubTreeofProfile()! \n"})});
    };
    EXPECT_EQ(
        TakeTrace(),
        Joined({TreeTrace(
                    {"Enter: LoadProfilesinDB()!\n",
                     "Enter: LoadProfileMapCfgFile()!\n",
                     NAPDEF_OPENED,
                     "Leave: LoadProfileMapCfgFile()!\n",
                     "NAPI_ListAllProfile: Counter = 4\n",
                     "NAPI_ListAllProfile: Profile[0] = Office\n",
                     "NAPI_ListAllProfile: Profile[1] = Ñet\n",
                     "NAPI_ListAllProfile: Profile[2] = No bearer\n",
                     "NAPI_ListAllProfile: Profile[3] = Unreadable\n",
                     "NAPI_ReadProfile: profilename = Office\n",
                     "GPRS Addr = internet\n",
                     "CSD  Addr = \n",
                     "CSD2 Addr = +4918\n",
                     "IsGPRS: GPRS = internet\n",
                     "IsCSD2: CSD = +4918\n",
                     "NAPI_GetProfileIDByName ok: ProfileName=Office, ProfileID=5\n",
                     "ProfileName  = Office",
                     "Enter: PutProfileMap! <NodeName, ProfileID> = <Office, 5Ph1DC1>\n",
                     "PutProfileMap: <Key = ProfileID, Value = ProfileNodeName > = <5Ph1DC1, "
                     "Office>\n",
                     "Enter: PutProfileMap! <NodeName, ProfileID> = <Office, 5Ph3DC1>\n",
                     "Leave: PutProfileMap! <NodeName, ProfileID> = <Office, 5Ph1DC1> has exist in "
                     "m_ProfileMaps and cfg!\n",
                     "NAPI_ReadProfile: profilename = Ñet\n",
                     "GPRS Addr = \n",
                     "CSD  Addr = +4917\n",
                     "CSD2 Addr = \n",
                     "IsCSD: CSD = +4917\n",
                     "NAPI_GetProfileIDByName ok: ProfileName=Ñet, ProfileID=6\n",
                     "ProfileName  = Ñet",
                     "ProfileName is not in English",
                     "ProfileName=PX1",
                     "Enter: PutProfileMap! <NodeName, ProfileID> = <PX1, 6Ph2DC1>\n",
                     "PutProfileMap: <Key = ProfileID, Value = ProfileNodeName > = <6Ph2DC1, "
                     "PX1>\n",
                     "NAPI_ReadProfile: profilename = No bearer\n",
                     "GPRS Addr = \n",
                     "CSD  Addr = \n",
                     "CSD2 Addr = \n",
                     "NAPI_ReadProfile Unreadable failed! Continue!\n",
                     "m_ProfileMaps includes: 2 item!\n",
                     "Item 0: <NodeName, ProfileID> = <Office, 5Ph1DC1>\n",
                     "Bearer = GPRS\n"}),
                subtree("Office", "5Ph1DC1"),
                TreeTrace({"Item 1: <NodeName, ProfileID> = <PX1, 6Ph2DC1>\n", "Bearer = CSD\n"}),
                subtree("PX1", "6Ph2DC1"), TreeTrace({"Leave: LoadProfilesinDB()!\n"})}));
}

TEST_F(TraceTest, AProxyMount)
{
    handset.napi.Store("Office", Record("", "", "+4918"), 4294967295u);
    const TreePtr tree = NewTree(INTPROFS_ROOT);
    TakeTrace();
    EXPECT_EQ(tree->LoadProfilesinDB(), 0);
    const auto withoutReference = [](const std::string &ph) {
        return TreeTrace({"Enter: LoadChildrenofProfile()! NodePath = Office/" + ph + "\n",
                          "Enter: GetConnValue()! NodePath = Office/" + ph + "/Conn\n",
                          "Leave: GetConnValue(), the Conn of  " + ph + " has no related fields\n",
                          "Leave: LoadChildrenofProfile()! \n"});
    };
    EXPECT_EQ(
        TakeTrace(),
        Joined(
            {TreeTrace({"Enter: LoadProfilesinDB()!\n", "Enter: LoadProfileMapCfgFile()!\n",
                        PROXY_OPENED, "Leave: LoadProfileMapCfgFile()!\n",
                        "NAPI_ListAllProfile: Counter = 1\n",
                        "NAPI_ListAllProfile: Profile[0] = Office\n",
                        "NAPI_ReadProfile: profilename = Office\n", "GPRS Addr = \n",
                        "CSD  Addr = \n", "CSD2 Addr = +4918\n", "IsCSD2: CSD = +4918\n",
                        "NAPI_GetProfileIDByName ok: ProfileName=Office, ProfileID=-1\n",
                        "ProfileName  = Office",
                        "Enter: PutProfileMap! <NodeName, ProfileID> = <Office, 4294967295>\n",
                        "PutProfileMap: <Key = ProfileID, Value = ProfileNodeName > = <4294967295, "
                        "Office>\n",
                        "m_ProfileMaps includes: 1 item!\n",
                        "Item 0: <NodeName, ProfileID> = <Office, 4294967295>\n", "Bearer = CSD2\n",
                        "Enter: LoadSubTreeofProfile()! ProfileNode = Office, ProfileID = "
                        "4294967295\n"}),
             withoutReference("Ph1"), withoutReference("Ph2"),
             TreeTrace({"Enter: LoadChildrenofProfile()! NodePath = Office/Ph3\n",
                        "Enter: GetConnValue()! NodePath = Office/Ph3/Conn\n",
                        "pProfileInfo->bIsCSD2 is true\n", "Enter: GetNapdefName()!\n",
                        "the sNapdefName is \n", "Leave: GetNapdefName()!\n",
                        "Enter: SetConnValue()! NodePath = Office/Ph3/Conn\n",
                        "Leave: SetConnValue()! value = Office\n",
                        "Leave: GetConnValue()! Value = Office\n",
                        "Leave: LoadChildrenofProfile()! \n"}),
             ChildTrace("Office", "UserEditable"),
             TreeTrace({"Leave: LoadSubTreeofProfile()! \n", "Leave: LoadProfilesinDB()!\n"})}));
}

TEST_F(TraceTest, ABearerFlagIsTracedInTheOrderGprsCsdCsd2)
{
    handset.napi.Store("Office", Record("a", "b", "c"), 1);
    handset.napi.Store("Home", Record("", "b", "c"), 2);
    const TreePtr tree = NewTree(INTPROFS_ROOT);
    EXPECT_EQ(tree->LoadProfilesinDB(), 0);
    Lines bearers;
    for (const std::string &message : TakeTrace())
        if (message.find(":#)Bearer = ") != std::string::npos)
            bearers.push_back(message);
    EXPECT_EQ(bearers, TreeTrace({"Bearer = GPRS\n", "Bearer = CSD\n"}));
}

TEST_F(TraceTest, EmptyTextsOfASubtreeAreTracedAsEmpty)
{
    const TreePtr tree = NewTree(CONN_ROOT);
    const ProfileInfo info;
    TakeTrace();
    tree->LoadSubTreeofProfile(DMString(), &info);
    const Lines trace = TakeTrace();
    ASSERT_GE(trace.size(), 2u);
    EXPECT_EQ(trace[0],
              TreeMessage("Enter: LoadSubTreeofProfile()! ProfileNode = , ProfileID = \n"));
    EXPECT_EQ(trace[1], TreeMessage("Enter: LoadChildrenofProfile()! NodePath = /Bearer\n"));
}

// ---- Reading ------------------------------------------------------------------------------------

class ReadTraceTest : public TraceTest {
protected:
    void SetUp() override
    {
        TraceTest::SetUp();
        handset.napi.Store("Stored", Record("internet", "+4917"), 5);
        napdef = LoadTree(CONN_ROOT);
        proxy = LoadTree(INTPROFS_ROOT);
    }
    void TearDown() override
    {
        napdef.reset();
        proxy.reset();
        TraceTest::TearDown();
    }
    Lines TraceOfReading(const TreePtr &tree, const char *path)
    {
        const JemSmartPtr<DmtNode> node = Node(tree, path);
        TakeTrace();
        DmtData value;
        node->GetValue(value);
        return TakeTrace();
    }
    static Lines ProfileNodeTrace(const std::string &path)
    {
        return NodeTrace({"Enter: GetProfileNodeName()! NodePath = " + path + "\n",
                          "Leave: GetProfileNodeName()! Profile Node name: Stored \n"});
    }
    static Lines ProfileNameTrace(const std::string &key)
    {
        return TreeTrace({"Enter: GetProfileName()!\n",
                          "ProfileNodeName=Stored, ProfileID=" + key + " \n",
                          "ExtractProfileID() OK: key = 5, ID = 5\n",
                          "Leave: GetProfileName! NodeName = Stored, ProfileName = Stored\n"});
    }
    static Lines KeptTrace(const std::string &path, const std::string &name,
                           const std::string &type)
    {
        return NodeTrace({"Enter: GetValue()! this = 0x#, NodeName = " + name + "\n",
                          "Get value from DMT.\n", "NodePath=" + path + ", type=" + type + "\n",
                          "Leave: GetValue()! \n"});
    }
    /// Of a leaf that is read from the record of its profile.
    /// @param kind  NAPDEF or PROXY
    static Lines RecordTrace(const std::string &path, const std::string &kind, const Lines &inside)
    {
        const std::string name = path.substr(path.rfind('/') + 1);
        return Joined(
            {NodeTrace({"Enter: GetValue()! this = 0x#, NodeName = " + name + "\n"}),
             ProfileNodeTrace(path), ProfileNameTrace(kind == "PROXY" ? "5" : "5Ph1DC1"),
             NodeTrace({"NAPI_ReadProfile: profilename = Stored\n",
                        "Enter: GetValuefor" + kind + "()! NodeName = " + name + "\n"}),
             inside, NodeTrace({"Leave: GetValuefor" + kind + "()! \n", "Leave: GetValue()! \n"})});
    }
    /// @param bearer  what is traced of the bearer that the profile's node has
    static Lines NapdefTrace(const std::string &path, const Lines &bearer)
    {
        return RecordTrace(path, "NAPDEF", Joined({ProfileNodeTrace(path), bearer}));
    }
    void KeepBearer(const DmtData &bearer)
    {
        dynamic_cast<DmtRWPluginNode &>(*Node(napdef, "Stored/Bearer"))
            .DmtRWPluginNode::SetValue(bearer);
    }

    TreePtr napdef;
    TreePtr proxy;
};

TEST_F(ReadTraceTest, ALeafThatTheEngineKeeps)
{
    EXPECT_EQ(TraceOfReading(napdef, "Stored/Bearer"),
              KeptTrace("Stored/Bearer", "Bearer", "string"));
    EXPECT_EQ(TraceOfReading(proxy, "Stored/Ph1/Conn"),
              KeptTrace("Stored/Ph1/Conn", "Conn", "string"));
}

TEST_F(ReadTraceTest, ALeafOfTheNapdefKind)
{
    EXPECT_EQ(TraceOfReading(napdef, "Stored/Auth/PAP/AuthPw"),
              NapdefTrace("Stored/Auth/PAP/AuthPw",
                          Joined({KeptTrace("Stored/Bearer", "Bearer", "string"),
                                  NodeTrace({"Bearer = GSM-GPRS\n"})})));
}

TEST_F(ReadTraceTest, ALeafWithoutABearer)
{
    napdef->DmtRWPluginTree::DeleteNode("Stored/Bearer");
    EXPECT_EQ(TraceOfReading(napdef, "Stored/Addr"),
              NapdefTrace("Stored/Addr", NodeTrace({"Bearer = GSM-CSD\n"})));
}

TEST_F(ReadTraceTest, ALeafWithAnUnreadableBearer)
{
    for (const auto &[bearer, type] :
         {std::pair{DmtData(5), "int"}, std::pair{DmtData(""), "string"}}) {
        KeepBearer(bearer);
        EXPECT_EQ(
            TraceOfReading(napdef, "Stored/Addr"),
            NapdefTrace("Stored/Addr",
                        Joined({KeptTrace("Stored/Bearer", "Bearer", type),
                                NodeTrace({"Get Stored/Bearer value error,use default value!\n",
                                           "Bearer = GSM-CSD\n"})})));
    }
}

TEST_F(ReadTraceTest, ALeafWithAnUnknownBearer)
{
    KeepBearer(DmtData("GPRS"));
    const Lines trace = TraceOfReading(napdef, "Stored/Addr");
    ASSERT_GE(trace.size(), 3u);
    EXPECT_EQ(
        Lines(trace.end() - 3, trace.end()),
        NodeTrace({"Bearer = GPRS\n",
                   "Leave: GetValueforNAPDEF() fail! Invalid Bearer type: GPRS\n",
                   "Leave: GetValue() fail! GetValueforNAPDEF or GetValueforPROXY return 1\n"}));
}

TEST_F(ReadTraceTest, LeavesOfTheProxyKind)
{
    const struct {
        std::string path, parent;
        Lines grandParent;
    } rows[] = {
        {"Stored/Ph1/Port/PortNbr",
         "Port",
         {"GetGrandParentNodeName(): NodePath = Stored/Ph1/Port/PortNbr, ParentPath = "
          "Stored/Ph1/Port, GrandParentPath=Stored/Ph1, GrandParentnode = Ph1\n"}},
        {"Stored/Ph3/Addr", "Ph3", {}},
        {"Stored/UserEditable", "Stored", {}},
    };
    for (const auto &row : rows)
        EXPECT_EQ(
            TraceOfReading(proxy, row.path.c_str()),
            RecordTrace(
                row.path, "PROXY",
                Joined({NodeTrace({"Enter: GetParentNodeName()! NodePath = " + row.path + "\n",
                                   "Leave: GetParentNodeName(), Parent node name = " + row.parent +
                                       "\n"}),
                        NodeTrace(row.grandParent)})))
            << row.path;
}

TEST_F(ReadTraceTest, AGrandParentThatThereIsNotIsNotTraced)
{
    for (const char *const path : {"A/B", "A/B/C"}) {
        const JemSmartPtr<DM_NAPI_PluginNode> node(
            new DM_NAPI_PluginNode(JemSmartPtr<DmtPluginTree>(napdef), path, DmtData("")));
        TakeTrace();
        node->GetGrandParentNodeName();
        EXPECT_EQ(TakeTrace(), Lines{}) << path;
    }
}

} // namespace
