// A server deletes nodes: what leaves the engine, the mapping files and the profile service, and in
// which order.
#include "server_change_test.h"

namespace {

using namespace doubles;

class DeleteTest : public ServerChangeTest {
protected:
    /// Another subtree that shows the profile, in the other tree's file.
    void AlsoInProxyFile() { handset.settings.Preload(PROXY_FILE, PROXY_GROUP, "5", "Office"); }
};

/// What the clearing of the proxies zeroes, in literal offsets.
void ClearProxies(RecordBytes &bytes)
{
    Zero(bytes, 0x2F8, 100);
    Zero(bytes, 0x35C, 2);
    Zero(bytes, 0x35E, 100);
    Zero(bytes, 0x3C2, 1);
    Zero(bytes, 0x3C3, 100);
    Zero(bytes, 0x428, 2);
    Zero(bytes, 0x42A, 100);
    Zero(bytes, 0x48E, 1);
    bytes[0x004] = static_cast<std::uint8_t>(bytes[0x004] & ~1u);
}

// ---- Nodes that are not profiles -----------------------------------------------------------------

TEST_F(DeleteTest, MissingNodeCountsAsDeleted)
{
    const TreePtr tree = MountOffice(CONN_ROOT);
    for (const char *const path : {"Nobody", "Office/Nothing", "/Office", "Office/"}) {
        EXPECT_EQ(tree->DeleteNode(path), 0);
        ExpectMessages({std::string("T Warning: DeleteNode! Node ") + path + " is not exist!\n"});
        EXPECT_EQ(handset.journal.Take(), (Lines{std::string("GetNode(\"") + path + "\")"}));
    }
    handset.faults.Fail("GetNode", 1, 507);
    EXPECT_EQ(tree->DeleteNode("Office"), 0) << "whatever the engine's reason";
    EXPECT_TRUE(Exists(tree, "Office"));
}

TEST_F(DeleteTest, DeeperNodeLeavesTheEngineOnly)
{
    for (const auto &[root, path] :
         {std::pair{CONN_ROOT, "Office/Addr"}, std::pair{CONN_ROOT, "Office/Auth"},
          std::pair{CONN_ROOT, "Office/Bearer"}, std::pair{INTPROFS_ROOT, "Office/Ph1"},
          std::pair{INTPROFS_ROOT, "Office/Ph1/Conn"}}) {
        handset.napi.profiles.clear();
        const TreePtr tree = MountOffice(root, GPRS_PART, PatternBytes(0));
        const Mapping mapped = Mapped(tree);
        const Entries references = ReferencesOnDisk();

        EXPECT_EQ(tree->DeleteNode(path), 0);

        ExpectNothingLogged();
        EXPECT_EQ(handset.journal.Take(), (Lines{std::string("GetNode(\"") + path + "\")",
                                                 std::string("DeleteNode(\"") + path + "\")"}));
        EXPECT_FALSE(Exists(tree, path));
        EXPECT_TRUE(Exists(tree, "Office"));
        EXPECT_EQ(Mapped(tree), mapped);
        EXPECT_EQ(ReferencesOnDisk(), references);
        EXPECT_TRUE(SameBytes(Stored(), PatternBytes(0)));
    }
}

TEST_F(DeleteTest, StatusOfTheEngineIsPassedOnAndNothingElseHappens)
{
    for (const char *const path : {"Office", "Office/Addr"}) {
        handset.napi.profiles.clear();
        const TreePtr tree = MountOffice(CONN_ROOT);
        handset.faults.Fail("DeleteNode", 1, 507);

        EXPECT_EQ(tree->DeleteNode(path), 507);

        ExpectMessages({"T Leave: DeleteNode! DmtRWPluginTree::DeleteNode failed!\n"});
        EXPECT_EQ(TakeOutsideCalls(), Lines{});
        EXPECT_TRUE(Exists(tree, path));
        EXPECT_EQ(Mapped(tree), (Mapping{{"Office", "5Ph1DC1 G"}}));
    }
}

// ---- Profile nodes: order of calls -----------------------------------------------------------------

TEST_F(DeleteTest, LastSubtreeOfAProfileTakesTheProfileAlong)
{
    const TreePtr tree = MountOffice(CONN_ROOT);

    EXPECT_EQ(tree->DeleteNode("Office"), 0);

    ExpectMessages({"T Leave: DeleteProfileInDB!\n"}); // the success prints
    EXPECT_EQ(
        handset.journal.Take(),
        (Lines{R"(GetNode("Office"))", R"(DeleteNode("Office"))", "NAPI_GetProfileNameByID(5)",
               R"(removeEntry(napdef, "NAPIDEF_Profile", "5Ph1DC1"))", "flush(napdef)",
               R"(NAPI_GetProfileIDByName("Office"))", "getSettingDirectory()",
               R"(SETUP_SET_Manager("/settings/kub_proxy_profilemapping.cfg"))",
               R"(getSettingInfo(proxy, "PROXY_Profile", "5"))",
               R"(getSettingInfo(napdef, "NAPIDEF_Profile", "5Ph1DC1"))",
               R"(getSettingInfo(napdef, "NAPIDEF_Profile", "5Ph2DC1"))",
               R"(getSettingInfo(napdef, "NAPIDEF_Profile", "5Ph3DC1"))",
               "~SETUP_SET_Manager(proxy)", R"(NAPI_DeleteProfile("Office"))"}));
    EXPECT_EQ(handset.napi.Find("Office"), nullptr);
    EXPECT_EQ(Mapped(tree), Mapping{});
    EXPECT_EQ(NapdefOnDisk(), Entries{});
    EXPECT_EQ(Children(tree, ""), Lines{});
    EXPECT_FALSE(Exists(tree, "Office/Auth/PAP/AuthId"));
}

TEST_F(DeleteTest, LastSubtreeInTheProxyKindTakesReferencesAndProfileAlong)
{
    const TreePtr tree = MountOffice(INTPROFS_ROOT);
    ASSERT_EQ(Write(tree, "Office/Ph3/Conn", Text("Home")), 0);
    handset.journal.Clear();

    EXPECT_EQ(tree->DeleteNode("Office"), 0);

    // The slot that has no reference has no entry to remove; nobody minds.
    ExpectMessages({"T Leave: DeleteProfileInDB!\n"});
    EXPECT_EQ(handset.journal.Take(),
              (Lines{R"(GetNode("Office"))", R"(DeleteNode("Office"))",
                     "NAPI_GetProfileNameByID(5)", R"(removeEntry(proxy, "PROXY_Profile", "5"))",
                     R"(removeEntry(proxy, "PROXY_Conn", "Office/Ph1"))",
                     R"(removeEntry(proxy, "PROXY_Conn", "Office/Ph2"))",
                     R"(removeEntry(proxy, "PROXY_Conn", "Office/Ph3"))", "flush(proxy)",
                     R"(NAPI_GetProfileIDByName("Office"))", "getSettingDirectory()",
                     R"(SETUP_SET_Manager("/settings/kub_napdef_profilemapping.cfg"))",
                     R"(getSettingInfo(proxy, "PROXY_Profile", "5"))",
                     R"(getSettingInfo(napdef, "NAPIDEF_Profile", "5Ph1DC1"))",
                     R"(getSettingInfo(napdef, "NAPIDEF_Profile", "5Ph2DC1"))",
                     R"(getSettingInfo(napdef, "NAPIDEF_Profile", "5Ph3DC1"))",
                     "~SETUP_SET_Manager(napdef)", R"(NAPI_DeleteProfile("Office"))"}));
    EXPECT_EQ(ProxyOnDisk(), Entries{});
    EXPECT_EQ(ReferencesOnDisk(), Entries{});
}

TEST_F(DeleteTest, PartOfAProfileThatAnotherSubtreeShowsIsCleared)
{
    const TreePtr tree = MountOffice(CONN_ROOT, GPRS_PART, PatternBytes(0));
    AlsoInProxyFile();

    EXPECT_EQ(tree->DeleteNode("Office"), 0);

    ExpectNothingLogged();
    const Lines calls = handset.journal.Take();
    EXPECT_EQ(Lines(calls.end() - 3, calls.end()),
              (Lines{"~SETUP_SET_Manager(proxy)", R"(NAPI_ReadProfile("Office"))",
                     R"(NAPI_ModifyProfile("Office"))"}));
    RecordBytes expected = PatternBytes(0);
    ZeroPart(expected, GPRS_PART);
    EXPECT_TRUE(SameBytes(Stored(), expected));
    EXPECT_EQ(Mapped(tree), Mapping{});
    EXPECT_EQ(NapdefOnDisk(), Entries{});
}

TEST_F(DeleteTest, ProxySubtreeOfAProfileThatAConnSubtreeShowsIsCleared)
{
    for (const char *const key : {"5Ph1DC1", "5Ph2DC1", "5Ph3DC1"}) {
        handset.napi.profiles.clear();
        handset.settings.disk.clear();
        handset.settings.Preload(NAPDEF_FILE, NAPDEF_GROUP, key, "Anything");
        const TreePtr tree = MountOffice(INTPROFS_ROOT, GPRS_PART, PatternBytes(1));

        EXPECT_EQ(tree->DeleteNode("Office"), 0);

        ExpectNothingLogged();
        RecordBytes expected = PatternBytes(1);
        ClearProxies(expected);
        EXPECT_TRUE(SameBytes(Stored(), expected)) << key;
    }
}

TEST_F(DeleteTest, EachOfTheFourEntriesKeepsTheProfileAnEmptyOneToo)
{
    const struct {
        const char *root;
        const std::string &file;
        const char *group;
        const char *key;
    } entries[] = {{CONN_ROOT, PROXY_FILE, PROXY_GROUP, "5"},
                   {CONN_ROOT, NAPDEF_FILE, NAPDEF_GROUP, "5Ph2DC1"},
                   {CONN_ROOT, NAPDEF_FILE, NAPDEF_GROUP, "5Ph3DC1"},
                   {INTPROFS_ROOT, NAPDEF_FILE, NAPDEF_GROUP, "5Ph1DC1"},
                   {INTPROFS_ROOT, NAPDEF_FILE, NAPDEF_GROUP, "5Ph2DC1"},
                   {INTPROFS_ROOT, NAPDEF_FILE, NAPDEF_GROUP, "5Ph3DC1"}};
    for (const auto &entry : entries) {
        for (const char *const value : {"Other", ""}) {
            handset.napi.profiles.clear();
            handset.settings.disk.clear();
            const TreePtr tree = MountOffice(entry.root);
            const bool ownFile = (entry.file == NAPDEF_FILE) == tree->IsNAPDEF();
            if (ownFile)
                PluginTreeProbe(*tree).settings->setSettingInfo(QString::fromLatin1(entry.group),
                                                                QString::fromLatin1(entry.key),
                                                                QString::fromLatin1(value), false);
            else
                handset.settings.Preload(entry.file, entry.group, entry.key, value);

            EXPECT_EQ(tree->DeleteNode("Office"), 0);

            EXPECT_NE(handset.napi.Find("Office"), nullptr)
                << entry.root << ' ' << entry.key << " = \"" << value << '"';
        }
    }
}

TEST_F(DeleteTest, EntriesOfOtherProfilesDoNotKeepAProfile)
{
    for (const char *const key : {"15", "50", "05", "5Ph1DC1", "Office"})
        handset.settings.Preload(PROXY_FILE, PROXY_GROUP, key, "Office");
    handset.settings.Preload(PROXY_FILE, NAPDEF_GROUP, "5", "Office");
    handset.settings.Preload(PROXY_FILE, CONN_GROUP, "Office/Ph1", "Office");
    handset.settings.Preload(PROXY_FILE, CONN_GROUP, "5", "Office");
    const TreePtr tree = MountOffice(CONN_ROOT);
    for (const char *const key : {"15Ph1DC1", "5", "5Ph4DC1", "05Ph2DC1"})
        PluginTreeProbe(*tree).settings->setSettingInfo(QStringLiteral("NAPIDEF_Profile"),
                                                        QString::fromLatin1(key),
                                                        QStringLiteral("Office"), false);
    EXPECT_EQ(tree->DeleteNode("Office"), 0);

    EXPECT_EQ(handset.napi.Find("Office"), nullptr);
}

TEST_F(DeleteTest, OtherProfilesStay)
{
    handset.napi.Store("Home", ToRecord(PatternBytes(1)), 55);
    const TreePtr tree = MountOffice(CONN_ROOT);

    EXPECT_EQ(tree->DeleteNode("Office"), 0);

    EXPECT_EQ(Mapped(tree), (Mapping{{"Home", "55Ph1DC1 G"}}));
    EXPECT_EQ(NapdefOnDisk(), (Entries{{"55Ph1DC1", "Home"}}));
    EXPECT_TRUE(SameBytes(handset.napi.Find("Home")->record, PatternBytes(1)));
    EXPECT_EQ(Children(tree, ""), Lines{"Home"});
}

TEST_F(DeleteTest, SuffixOfTheKeyAndNotTheBearerLeafSelectsThePart)
{
    const TreePtr tree = MountOffice(CONN_ROOT, CSD2_PART, PatternBytes(0));
    SetEngineValue(tree, "Office/Bearer", Text("GSM-GPRS"));
    AlsoInProxyFile();

    EXPECT_EQ(tree->DeleteNode("Office"), 0);

    RecordBytes expected = PatternBytes(0);
    ZeroPart(expected, CSD2_PART);
    EXPECT_TRUE(SameBytes(Stored(), expected));
}

TEST_F(DeleteTest, KeyWithoutASuffixClearsTheProxyPart)
{
    const TreePtr tree = MountOffice(CONN_ROOT, GPRS_PART, PatternBytes(0));
    PluginTreeProbe(*tree).Find("Office")->sProfileID = "5";
    AlsoInProxyFile();

    EXPECT_EQ(tree->DeleteNode("Office"), 0);

    RecordBytes expected = PatternBytes(0);
    ClearProxies(expected);
    EXPECT_TRUE(SameBytes(Stored(), expected));
}

TEST_F(DeleteTest, WithoutAMappingFileAProfileIsClearedAndNeverDeleted)
{
    for (const char *const root : {CONN_ROOT, INTPROFS_ROOT}) {
        handset.napi.profiles.clear();
        handset.settings.disk.clear();
        const TreePtr tree = MountOffice(root, GPRS_PART, PatternBytes(0));
        CloseMappingFile(tree);

        EXPECT_EQ(tree->DeleteNode("Office"), 0);

        EXPECT_EQ(handset.journal.Take(),
                  (Lines{R"(GetNode("Office"))", R"(DeleteNode("Office"))",
                         "NAPI_GetProfileNameByID(5)", R"(NAPI_GetProfileIDByName("Office"))",
                         R"(NAPI_ReadProfile("Office"))", R"(NAPI_ModifyProfile("Office"))"}));
        RecordBytes expected = PatternBytes(0);
        if (tree->IsNAPDEF())
            ZeroPart(expected, GPRS_PART);
        else
            ClearProxies(expected);
        EXPECT_TRUE(SameBytes(Stored(), expected));
        EXPECT_EQ(Mapped(tree), Mapping{});
    }
}

// ---- The part that is cleared, byte for byte --------------------------------------------------------

struct ClearedPart {
    const char *suffix;
    const PartOffsets *part = nullptr; ///< null: the proxies
};

void PrintTo(const ClearedPart &cleared, std::ostream *out)
{
    *out << '"' << cleared.suffix << "\" clears "
         << (cleared.part ? cleared.part->bearer : "the proxies");
}

class ClearedPartTest : public DeleteTest, public ::testing::WithParamInterface<ClearedPart> {};

TEST_P(ClearedPartTest, LosesItsBytesAndNoOthers)
{
    const TreePtr tree = MountOffice(CONN_ROOT);
    AlsoInProxyFile();
    for (RecordBytes before : {PatternBytes(0), PatternBytes(1)}) {
        for (const int flags : {0x00, 0x01, 0xFE, 0xFF}) {
            before[0x004] = static_cast<std::uint8_t>(flags);
            Stored() = ToRecord(before);

            EXPECT_EQ(tree->DeleteProfileInDB("Office", GetParam().suffix), 0);

            RecordBytes expected = before;
            if (GetParam().part)
                ZeroPart(expected, *GetParam().part);
            else
                ClearProxies(expected);
            EXPECT_TRUE(SameBytes(Stored(), expected)) << "flags " << flags;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(AllRows, ClearedPartTest,
                         ::testing::Values(ClearedPart{"Ph1DC1", &GPRS_PART},
                                           ClearedPart{"Ph2DC1", &CSD_PART},
                                           ClearedPart{"Ph3DC1", &CSD2_PART}, ClearedPart{""},
                                           ClearedPart{"5"}, ClearedPart{"ph1dc1"},
                                           ClearedPart{"Ph4DC1"}, ClearedPart{"5Ph1DC1"},
                                           ClearedPart{"Ph1DC1 "}, ClearedPart{"Ph1"}));

TEST_F(DeleteTest, ClearedBearerIsGoneForTheNextMount)
{
    TreePtr tree = MountOffice(CONN_ROOT, GPRS_PART, PatternBytes(0));
    AlsoInProxyFile();
    ASSERT_EQ(tree->DeleteNode("Office"), 0);

    tree = LoadTree(CONN_ROOT);

    EXPECT_EQ(Mapped(tree), (Mapping{{"Office", "5Ph2DC1 C"}}));
}

// ---- Failing steps ---------------------------------------------------------------------------------------

TEST_F(DeleteTest, UnmappedNodeIsReportedAfterItHasLeftTheEngine)
{
    const TreePtr conn = LoadTree(CONN_ROOT);
    PutLeaf(conn, "Note", Text(""));
    EXPECT_EQ(conn->DeleteNode("Note"), 1);
    ExpectMessages({"T Leave: DeleteNode! Can not lookup Note in m_ProfileMaps!\n"});
    EXPECT_FALSE(Exists(conn, "Note"));

    const TreePtr proxy = LoadTree(INTPROFS_ROOT);
    PutLeaf(proxy, "Note", Text(""));
    EXPECT_EQ(proxy->DeleteNode("Note"), 1);
    ExpectMessages({"T Leave:GetProfileName! Can not find Note in m_ProfileMaps!\n",
                    "T Leave: DeleteNode! GetProfileName failed! \n"});
    EXPECT_FALSE(Exists(proxy, "Note"));
    EXPECT_EQ(TakeOutsideCalls(), Lines{});
}

TEST_F(DeleteTest, RootLeavesTheEngineAndIsThenNoProfile)
{
    {
        const TreePtr tree = MountOffice(CONN_ROOT);
        EXPECT_EQ(tree->DeleteNode(""), 1);
        ExpectMessages({"T Leave: DeleteNode! Can not lookup  in m_ProfileMaps!\n"});
        EXPECT_EQ(handset.journal.Take(), (Lines{R"(GetNode(""))", R"(DeleteNode(""))"}));
        EXPECT_FALSE(Exists(tree, ""));
        EXPECT_EQ(Mapped(tree), (Mapping{{"Office", "5Ph1DC1 G"}}));
    }
    const TreePtr tree = LoadTree(INTPROFS_ROOT);
    EXPECT_EQ(tree->DeleteNode(""), 1);
    ExpectMessages({"T Leave:GetProfileName! Can not find  in m_ProfileMaps!\n",
                    "T Leave: DeleteNode! GetProfileName failed! \n"});
    EXPECT_FALSE(Exists(tree, ""));
}

TEST_F(DeleteTest, UnknownProfileNameKeepsTheMapping)
{
    for (const char *const root : {CONN_ROOT, INTPROFS_ROOT}) {
        handset.napi.profiles.clear();
        const TreePtr tree = MountOffice(root);
        const Mapping mapped = Mapped(tree);
        handset.faults.Fail("NAPI_GetProfileNameByID", 1, 42);

        EXPECT_EQ(tree->DeleteNode("Office"), 1);

        ExpectMessages({"T Leave:GetProfileName! NAPI_GetProfileNameByID failed, return 42!\n",
                        "T Leave: DeleteNode! GetProfileName failed! \n"});
        EXPECT_FALSE(Exists(tree, "Office"));
        EXPECT_EQ(Mapped(tree), mapped);
        EXPECT_EQ(handset.journal.Only({"removeEntry", "flush"}), Lines{});
        EXPECT_NE(handset.napi.Find("Office"), nullptr);
    }
}

TEST_F(DeleteTest, FailedFlushKeepsTheMemoryEntryAndTheService)
{
    const TreePtr tree = MountOffice(CONN_ROOT);
    handset.faults.Fail("flush");

    EXPECT_EQ(tree->DeleteNode("Office"), 1);

    ExpectMessages({"T Leave: DeleteProfileMap! flush  Failed\n",
                    "T Leave: DeleteNode! DeleteProfileMap failed! \n"});
    EXPECT_FALSE(Exists(tree, "Office"));
    EXPECT_EQ(Mapped(tree), (Mapping{{"Office", "5Ph1DC1 G"}}));
    EXPECT_EQ(handset.settings.InMemory(NAPDEF_FILE, NAPDEF_GROUP), Entries{});
    EXPECT_EQ(NapdefOnDisk(), (Entries{{"5Ph1DC1", "Office"}}));
    EXPECT_EQ(handset.journal.Only({"NAPI_GetProfileIDByName"}), Lines{});
    EXPECT_NE(handset.napi.Find("Office"), nullptr);
}

TEST_F(DeleteTest, EntryThatCannotBeRemovedIsWarnedOfAndKeepsTheProfile)
{
    const TreePtr tree = MountOffice(CONN_ROOT, GPRS_PART, PatternBytes(0));
    handset.faults.Fail("removeEntry");

    EXPECT_EQ(tree->DeleteNode("Office"), 0);

    ExpectMessages({"T Warning: RenameProfileMapDB! removeEntry failed!\n"});
    EXPECT_EQ(Mapped(tree), Mapping{});
    EXPECT_EQ(NapdefOnDisk(), (Entries{{"5Ph1DC1", "Office"}}));
    RecordBytes expected = PatternBytes(0);
    ZeroPart(expected, GPRS_PART);
    EXPECT_TRUE(SameBytes(Stored(), expected)) << "the entry that stays counts as a subtree";
}

TEST_F(DeleteTest, ReferencesThatCannotBeRemovedAreNoMatter)
{
    const TreePtr tree = MountOffice(INTPROFS_ROOT);
    handset.faults.Fail("removeEntry", 2);

    EXPECT_EQ(tree->DeleteNode("Office"), 0);

    ExpectMessages({"T Leave: DeleteProfileInDB!\n"});
    EXPECT_EQ(ReferencesOnDisk(), (Entries{{"Office/Ph1", "Office"}}));
}

struct ServiceFault {
    const char *call;
    bool shownElsewhere;
    const char *message;
};

void PrintTo(const ServiceFault &fault, std::ostream *out)
{
    *out << fault.call << " fails";
}

class ServiceFaultTest : public DeleteTest, public ::testing::WithParamInterface<ServiceFault> {};

TEST_P(ServiceFaultTest, LeavesAProfileThatNoSubtreeMaps)
{
    const TreePtr tree = MountOffice(CONN_ROOT, GPRS_PART, PatternBytes(0));
    if (GetParam().shownElsewhere)
        AlsoInProxyFile();
    handset.faults.Fail(GetParam().call, 1, 42);

    EXPECT_EQ(tree->DeleteNode("Office"), 1);

    ExpectMessages({GetParam().message, "T Leave: DeleteNode! DeleteProfileInDB failed! \n"});
    EXPECT_FALSE(Exists(tree, "Office"));
    EXPECT_EQ(Mapped(tree), Mapping{});
    EXPECT_EQ(NapdefOnDisk(), Entries{});
    EXPECT_TRUE(SameBytes(Stored(), PatternBytes(0)));
}

INSTANTIATE_TEST_SUITE_P(
    AllCalls, ServiceFaultTest,
    ::testing::Values(
        ServiceFault{"NAPI_GetProfileIDByName", false,
                     "T Leave:DeleteProfileInDB: NAPI_GetProfileIDByName  failed! return 42\n"},
        ServiceFault{"NAPI_DeleteProfile", false,
                     "T Leave: DeleteProfileInDB! NAPI_DeleteProfile failed! return 42\n"},
        ServiceFault{"NAPI_ReadProfile", true,
                     "T ??? Leave: DeleteProfileInDB : NAPI_ReadProfile failed! return 42\n"},
        ServiceFault{"NAPI_ModifyProfile", true,
                     "T Leave: SetValue()! NAPI_ModifyProfile() failed! return 42\n"}));

TEST_F(DeleteTest, DeletedNameCanBeAddedAgain)
{
    const TreePtr tree = MountOffice(CONN_ROOT);
    ASSERT_EQ(tree->DeleteNode("Office"), 0);
    JemSmartPtr<DmtNode> node;

    EXPECT_EQ(tree->CreateInteriorNode("Office", node), 0);

    EXPECT_EQ(Mapped(tree), (Mapping{{"Office", "6Ph2DC1 C"}}));
}

TEST_F(DeleteTest, NodeThatSomebodyStillHoldsAnswersAfterItsProfileIsGone)
{
    const TreePtr tree = MountOffice(CONN_ROOT);
    const JemSmartPtr<DmtNode> leaf = Node(tree, "Office/Addr");
    ASSERT_EQ(tree->DeleteNode("Office"), 0);
    handset.log.Take();

    EXPECT_EQ(leaf->SetValue(Text("x")), 1);

    ExpectMessages({"T Leave:GetProfileName! Can not find Office in m_ProfileMaps!\n",
                    "N Leave: SetValueInternal()! GetProfileName() failed!\n",
                    "N Leave: SetValue()! SetValueInternal() failed!\n"});
}

} // namespace
