// Every message of every operation that a server causes, level 8 included, in order. Built with the
// threshold raised.
#include "server_change_test.h"

namespace {

using namespace doubles;

class ServerChangeTraces : public ServerChangeTest {
protected:
    /// All messages since the last look, in short: "T ..." of the tree, "N ..." of the node,
    /// without the addresses of objects.
    Lines Logged()
    {
        Lines lines;
        for (std::string message : handset.log.Take()) {
            const std::string tree = TreeMessage("");
            const std::string node = NodeMessage("");
            if (message.rfind(tree, 0) == 0)
                message = "T " + message.substr(tree.size());
            else if (message.rfind(node, 0) == 0)
                message = "N " + message.substr(node.size());
            lines.push_back(message);
        }
        return lines;
    }

    /// What happens before a test's own call.
    void Forget() { handset.log.Take(); }

    // Messages of what many operations begin with.
    static Lines ProfileNodeName(const std::string &path, const std::string &profile)
    {
        return {"N Enter: GetProfileNodeName()! NodePath = " + path + "\n",
                "N Leave: GetProfileNodeName()! Profile Node name: " + profile + " \n"};
    }
    static Lines ParentName(const std::string &path, const std::string &parent)
    {
        return {"N Enter: GetParentNodeName()! NodePath = " + path + "\n",
                "N Leave: GetParentNodeName(), Parent node name = " + parent + "\n"};
    }
    static Lines ProfileName(const std::string &node, const std::string &key, const std::string &id,
                             const std::string &profile)
    {
        return {"T Enter: GetProfileName()!\n",
                "T ProfileNodeName=" + node + ", ProfileID=" + key + " \n",
                "T ExtractProfileID() OK: key = " + id + ", ID = " + id + "\n",
                "T Leave: GetProfileName! NodeName = " + node + ", ProfileName = " + profile +
                    "\n"};
    }
    static Lines ParsePath(const std::string &path, const std::string &parent,
                           const std::string &name)
    {
        return {"T ParseNodePath(),NodePath = " + path + ", ParentNodePath = " + parent +
                ", NodeName = " + name + "\n"};
    }
    /// The value of the Bearer leaf, asked by a sibling.
    static Lines ReadBearer(const std::string &bearer)
    {
        return {"N Get value from DMT.\n", "N NodePath=Office/Bearer, type=string\n",
                "N Leave: GetValue()! \n", "N Bearer = " + bearer + "\n"};
    }
    /// A write of a leaf of the profile Office, as far as the record is read.
    static Lines WriteBegins(const std::string &path, const std::string &key)
    {
        const std::string name = path.substr(path.rfind('/') + 1);
        return All(
            {{"N Enter: SetValue()!\n", "N Enter: SetValueInternal()! NodeName = " + name + "\n"},
             ProfileNodeName(path, "Office"),
             ProfileName("Office", key, "5", "Office"),
             {"N NAPI_ReadProfile: profilename = Office\n"}});
    }
    static Lines All(const std::vector<Lines> &parts)
    {
        Lines all;
        for (const Lines &part : parts)
            all.insert(all.end(), part.begin(), part.end());
        return all;
    }

    /// Holds the messages against the expected ones; those that print an address count by what
    /// stands before it.
    void ExpectAll(const Lines &expected)
    {
        Lines logged = Logged();
        for (std::string &message : logged)
            if (const std::size_t address = message.find("this = 0x"); address != std::string::npos)
                message = message.substr(0, address) + "this = ?" +
                          message.substr(message.find(',', address));
        EXPECT_EQ(logged, expected);
    }
};

TEST_F(ServerChangeTraces, WriteOfAField)
{
    const TreePtr tree = MountOffice(CONN_ROOT);
    Forget();

    ASSERT_EQ(Write(tree, "Office/Addr", Text("apn")), 0);

    ExpectAll(All(
        {WriteBegins("Office/Addr", "5Ph1DC1"),
         {"N Enter: SetValueforNAPDEF()! NodeName = Addr\n", "N ... Want to set new value = apn\n"},
         ProfileNodeName("Office/Addr", "Office"),
         {"N Enter: GetValue()! this = ?, NodeName = Bearer\n"},
         ReadBearer("GSM-GPRS"),
         {"N Leave: SetValueforNAPDEF()! \n", "N Leave: SetValueInternal()! \n",
          "N Leave: SetValue()! \n"}}));
}

TEST_F(ServerChangeTraces, WriteOfANumberIntoAField)
{
    const TreePtr tree = MountOffice(CONN_ROOT);
    DropNode(tree, "Office/Bearer");
    Forget();

    ASSERT_EQ(Write(tree, "Office/Linger", Number(30)), 0);

    ExpectAll(All({WriteBegins("Office/Linger", "5Ph1DC1"),
                   {"N Enter: SetValueforNAPDEF()! NodeName = Linger\n",
                    "N ... Want to set new value = 30\n"},
                   ProfileNodeName("Office/Linger", "Office"),
                   {"N Bearer = GSM-CSD\n", "N Leave: SetValueforNAPDEF()! \n",
                    "N Leave: SetValueInternal()! \n", "N Leave: SetValue()! \n"}}));
}

TEST_F(ServerChangeTraces, WriteThatTheEngineKeeps)
{
    const TreePtr tree = MountOffice(CONN_ROOT);
    PutLeaf(tree, "Office/Name", Text(""));
    Forget();

    ASSERT_EQ(Write(tree, "Office/Name", Text("x")), 0);

    ExpectAll(All({{"N Enter: SetValue()!\n", "N Enter: SetValueInternal()! NodeName = Name\n"},
                   ProfileNodeName("Office/Name", "Office"),
                   {"N Leave: SetValueInternal()! update node not in NAP_PROFILE_S,Not need to "
                    "update profile in db!\n",
                    "N Leave: SetValue()! \n"}}));
}

TEST_F(ServerChangeTraces, NothingToWriteAndAnInteriorNode)
{
    const TreePtr tree = MountOffice(CONN_ROOT);
    Forget();

    EXPECT_EQ(
        static_cast<DM_NAPI_PluginNode &>(*Node(tree, "Office/Addr")).SetValueInternal(nullptr), 0);
    ExpectAll({"N Enter: SetValueInternal()! NodeName = Addr\n",
               "N Leave: SetValueInternal()! Not need set value!\n \n"});

    handset.faults.LeaveUntouched("SetValue");
    EXPECT_EQ(Write(tree, "Office", Text("x")), 0);
    ExpectAll({"N Enter: SetValue()!\n",
               "N Leave: SetValue()! You're setting value for interior node!\n"});
}

TEST_F(ServerChangeTraces, WriteOfABearer)
{
    const TreePtr tree = MountOffice(CONN_ROOT);
    Forget();

    ASSERT_EQ(Write(tree, "Office/Bearer", Text("GSM-CSD2")), 0);

    ExpectAll(
        All({WriteBegins("Office/Bearer", "5Ph1DC1"),
             {"N Enter: MoveFieldInNAPI()!\n", "N Leave: MoveFieldInNAPI()! \n",
              "T Enter: RenameProfileMapinDB() \n",
              "T RenameProfileMapDB: before removeEntry, group = NAPIDEF_Profile, qskey = "
              "5Ph1DC1\n",
              "T RenameProfileMapDB: qsGroupName = NAPIDEF_Profile, qsKey = 5Ph3DC1,qsValue "
              "= Office\n",
              "T Leave: RenameProfileMapDB()\n",
              "N Leave: SetValueInternal()! set value for Bearer!\n", "N Leave: SetValue()! \n"}}));
}

TEST_F(ServerChangeTraces, FirstBearerThatMovesNothing)
{
    const TreePtr tree = MountOffice(CONN_ROOT, CSD_PART);
    SetEngineValue(tree, "Office/Bearer", Text(""));
    CloseMappingFile(tree);
    Forget();

    ASSERT_EQ(Write(tree, "Office/Bearer", Text("GSM-CSD")), 0);

    // The move is not even entered.
    ExpectAll(
        All({WriteBegins("Office/Bearer", "5Ph2DC1"),
             {"T Enter: RenameProfileMapinDB() \n", "T Leave: RenameProfileMapDB()\n",
              "N Leave: SetValueInternal()! set value for Bearer!\n", "N Leave: SetValue()! \n"}}));
}

TEST_F(ServerChangeTraces, EveryMoveEntersAndLeaves)
{
    for (const char *const from : {"GSM-GPRS", "GSM-CSD", "GSM-CSD2", "", "other"}) {
        for (const char *const to : {"GSM-GPRS", "GSM-CSD", "GSM-CSD2", "", "other"}) {
            NAP_PROFILE_S record{};
            DM_NAPI_PluginNode::MoveFieldInNAPI(&record, from, to);
            ExpectAll({"N Enter: MoveFieldInNAPI()!\n", "N Leave: MoveFieldInNAPI()! \n"});
        }
    }
}

TEST_F(ServerChangeTraces, WriteOfAReference)
{
    const TreePtr tree = MountOffice(INTPROFS_ROOT);
    Forget();

    ASSERT_EQ(Write(tree, "Office/Ph2/Conn", Text("Home")), 0);

    ExpectAll(All({WriteBegins("Office/Ph2/Conn", "5"),
                   ParentName("Office/Ph2/Conn", "Ph2"),
                   {"T Enter: SetConnValue()! NodePath = Office/Ph2/Conn\n",
                    "T Leave: SetConnValue()! value = Home\n", "N Leave: SetValue()! \n"}}));
}

TEST_F(ServerChangeTraces, WriteOfAProxyField)
{
    const TreePtr tree = MountOffice(INTPROFS_ROOT);
    Forget();

    ASSERT_EQ(Write(tree, "Office/UserEditable", DmtData(false)), 0);

    ExpectAll(All({WriteBegins("Office/UserEditable", "5"),
                   {"N Enter: SetValueforPROXY()! NodeName = UserEditable\n",
                    "N ... Want to set new value = 0\n", "N Leave: SetValueforPROXY()! \n",
                    "N Leave: SetValueInternal()! \n", "N Leave: SetValue()! \n"}}));
}

TEST_F(ServerChangeTraces, WritesOfProxyFieldsOfBothTypes)
{
    const struct {
        const char *path;
        DmtData value;
        bool hasItsType;
        Lines once;
    } rows[] = {
        {"Office/UserEditable", Number(0), false, {}},
        {"Office/Ph1/Addr", Number(0), false, {}},
        {"Office/Ph1/Port/PortNbr", Text("80"), false, {}},
        {"Office/Ph1/Addr", Text("proxy"), true, {"N ... Want to set new value = proxy\n"}},
        {"Office/Ph1/Port/PortNbr",
         Number(80),
         true,
         {"N ... Want to set new value = 80, GetString = \n",
          "N GetGrandParentNodeName(): NodePath = Office/Ph1/Port/PortNbr, ParentPath = "
          "Office/Ph1/Port, GrandParentPath=Office/Ph1, GrandParentnode = Ph1\n"}},
    };
    const TreePtr tree = MountOffice(INTPROFS_ROOT);
    Forget();
    for (const auto &row : rows) {
        SCOPED_TRACE(std::string(row.path) + (row.hasItsType ? "" : " of another type"));
        ASSERT_EQ(Write(tree, row.path, row.value), 0);
        const Lines logged = Logged();
        const auto timesOf = [&logged](const std::string &line) {
            return std::count(logged.begin(), logged.end(), line);
        };
        EXPECT_EQ(timesOf("N Leave: SetValueforPROXY()! GetInt() or GetString() failed!\n"),
                  row.hasItsType ? 0 : 1);
        for (const std::string &line : row.once)
            EXPECT_EQ(timesOf(line), 1) << line;
        EXPECT_EQ(logged.back(), "N Leave: SetValue()! \n") << "the call goes on";
    }
}

TEST_F(ServerChangeTraces, NewProfile)
{
    const TreePtr tree = LoadTree(CONN_ROOT);
    JemSmartPtr<DmtNode> node;

    ASSERT_EQ(tree->CreateInteriorNode("Office&&_x", node), 0);

    ExpectAll(All({{"T Enter: CreateInteriorNodeInternal()! NodePath = Office&&_x\n"},
                   ParsePath("Office&&_x", "", "Office&&_x"),
                   {"T ParseLogicalId(),sNodeName = Office&&_x, sLogicalId = Office\n",
                    "T Get Parent node of Office&&_x!\n", "T m_ProfileCount=0\n",
                    "T NAPI_CreateProfile OK! ProfileName = Office, m_ProfileCount=1\n",
                    "T NAPI_GetProfileIDByName OK! ProfileID = 1\n",
                    "T pProfileInfo->sProfileID is 1Ph2DC1\n",
                    "T AddProfileMap: <NodeName, ProfileID> = <Office&&_x, 1Ph2DC1>\n",
                    "T qsKey = 1Ph2DC1,qsValue = Office&&_x,qsTemp = \n",
                    "T Leave: CreateInteriorNodeInternal()! \n"}}));

    EXPECT_EQ(tree->CreateInteriorNode("Office&&_x", node), 418);
    ExpectAll(All({{"T Enter: CreateInteriorNodeInternal()! NodePath = Office&&_x\n"},
                   ParsePath("Office&&_x", "", "Office&&_x"),
                   {"T ParseLogicalId(),sNodeName = Office&&_x, sLogicalId = Office\n",
                    "T Leave: CreateInteriorNodeInternal()!This node has exist!\n"}}));

    EXPECT_EQ(tree->CreateInteriorNode("Office", node), 1);
    const Lines adopted = Logged();
    EXPECT_EQ(Lines(adopted.end() - 7, adopted.end()),
              (Lines{"T NAPI_CreateProfile, ProfileName = Office has exist!\n",
                     "T NAPI_GetProfileIDByName OK! ProfileID = 1\n",
                     "T pProfileInfo->sProfileID is 1Ph2DC1\n",
                     "T AddProfileMap: <NodeName, ProfileID> = <Office, 1Ph2DC1>\n",
                     "T qsKey = 1Ph2DC1,qsValue = Office,qsTemp = Office&&_x\n",
                     "T ??? Leave: AddProfileMap:setSettingInfo  Failed, the entry of "
                     "profileid+suffix has exist\n",
                     "T Leave:CreateInteriorNodeInternal: AddProfileMap failed\n"}));
}

TEST_F(ServerChangeTraces, NewLeaf)
{
    const TreePtr tree = MountOffice(CONN_ROOT);
    JemSmartPtr<DmtNode> node;
    Forget();

    ASSERT_EQ(tree->CreateLeafNode("Office/Name", node, Text("x")), 0);

    ExpectAll(
        All({{"T Enter: CreateLeafNodeInternal()! NodePath = Office/Name\n"},
             ParsePath("Office/Name", "Office", "Name"),
             {"T Get Parent node of Office/Name!\n", "T Create new node! Node path = Office/Name\n",
              "N Enter: SetValueInternal()! NodeName = Name\n"},
             ProfileNodeName("Office/Name", "Office"),
             {"N Leave: SetValueInternal()! update node not in NAP_PROFILE_S,Not need to "
              "update profile in db!\n",
              "T Leave: CreateLeafNodeInternal()! \n"}}));

    EXPECT_EQ(tree->CreateLeafNode("Office/Name", node, Text("x")), 418);
    ExpectAll({"T Enter: CreateLeafNodeInternal()! NodePath = Office/Name\n",
               "T This node has exist!\n"});

    EXPECT_EQ(tree->CreateLeafNode("Office/x/Speed", node, Text("x")), 404);
    Forget();
    DropNode(tree, "Office/Speed");
    EXPECT_EQ(tree->CreateLeafNode("Office/Speed", node, Text("x")), 1);
    ExpectAll(All({{"T Enter: CreateLeafNodeInternal()! NodePath = Office/Speed\n"},
                   ParsePath("Office/Speed", "Office", "Speed"),
                   {"T Get Parent node of Office/Speed!\n",
                    "T Leave:CreateLeafNodeInternal() fail!illegal Speed/n"}}));
}

TEST_F(ServerChangeTraces, DeletedProfile)
{
    const TreePtr tree = MountOffice(CONN_ROOT);
    Forget();

    ASSERT_EQ(tree->DeleteNode("Office"), 0);

    ExpectAll(All(
        {{"T Enter: DeleteNode()! NodePath = Office\n",
          "T Call DmtRWPluginTree::DeleteNode! node path = Office\n"},
         ParsePath("Office", "", "Office"),
         {"T Delete children of the root node!\n"},
         ProfileName("Office", "5Ph1DC1", "5", "Office"),
         {"T DeleteProfileMap: Group: NAPIDEF_Profile <NodeName, ProfileID> = <Office, 5Ph1DC1>\n",
          "T Enter: DeleteProfileInDB()!\n", "T NAPI_GetProfileIDByName OK! ProfileID = 5\n",
          "T All the four subtrees are not exist, delete the profile in db.\n",
          "T Leave: DeleteProfileInDB!\n", "T Leave: DeleteNode()! \n"}}));
}

TEST_F(ServerChangeTraces, ClearedProfileAndDeeperNode)
{
    const TreePtr tree = MountOffice(INTPROFS_ROOT);
    handset.settings.Preload(NAPDEF_FILE, NAPDEF_GROUP, "5Ph1DC1", "Office");
    Forget();

    ASSERT_EQ(tree->DeleteNode("Office/Ph1"), 0);
    ExpectAll(All({{"T Enter: DeleteNode()! NodePath = Office/Ph1\n",
                    "T Call DmtRWPluginTree::DeleteNode! node path = Office/Ph1\n"},
                   ParsePath("Office/Ph1", "Office", "Ph1"),
                   {"T Leave: DeleteNode()! \n"}}));

    ASSERT_EQ(tree->DeleteNode("Office"), 0);
    ExpectAll(All(
        {{"T Enter: DeleteNode()! NodePath = Office\n",
          "T Call DmtRWPluginTree::DeleteNode! node path = Office\n"},
         ParsePath("Office", "", "Office"),
         {"T Delete children of the root node!\n"},
         ProfileName("Office", "5", "5", "Office"),
         {"T DeleteProfileMap: Group: PROXY_Profile <NodeName, ProfileID> = <Office, 5>\n",
          "T Enter: DeleteProfileInDB()!\n", "T NAPI_GetProfileIDByName OK! ProfileID = 5\n",
          "T Profile in db still includes other subtrees. Only need to modify part of profile.\n",
          "T Leave: DeleteProfileInDB()! \n", "T Leave: DeleteNode()! \n"}}));
}

TEST_F(ServerChangeTraces, RenamedProfile)
{
    const TreePtr tree = MountOffice(CONN_ROOT);
    Forget();

    ASSERT_EQ(tree->RenameNode("Office", "Work"), 0);

    const Lines logged = Logged();
    const Lines expected = {
        "T Enter: RenameNode()! Old node path = Office, New node name =Work\n",
        "T ParseNodePath(),NodePath = Office, ParentNodePath = , NodeName = Office\n",
        "T RenameNode: Judge whether the node with newname: Work is exist!\n",
        "T ParseNodePath(),NodePath = , ParentNodePath = , NodeName = \n",
        "T Enter: RenameProfileMap() \n",
        "T Leave: RenameProfileMap!\n",
        "T Leave: RenameNode()! \n"};
    EXPECT_EQ(logged, expected);
}

TEST_F(ServerChangeTraces, BulkReadAndWrite)
{
    const TreePtr tree = MountOffice(INTPROFS_ROOT);
    DmtChildValuesMap map;
    Forget();

    EXPECT_EQ(tree->SetChildValuesMap("Nobody", map), 0);
    ExpectAll({"T Enter: SetChildValuesMap!\n", "T Leave: SetChildValuesMap!\n"});

    EXPECT_EQ(tree->GetChildValuesMap("Office/Ph1/Port", map), 0);
    Lines logged = Logged();
    EXPECT_EQ(logged.front(), "T Enter: GetChildValuesMap!\n");
    EXPECT_EQ(logged.back(), "T Leave: GetChildValuesMap!\n");
    EXPECT_EQ(std::count(logged.begin(), logged.end(), "N Leave: GetValue()! \n"), 1);

    EXPECT_EQ(tree->SetChildValuesMap("Office/Ph1/Port", map), 0);
    logged = Logged();
    EXPECT_EQ(logged.front(), "T Enter: SetChildValuesMap!\n");
    EXPECT_EQ(logged.at(1), "N Enter: SetValue()!\n");
    EXPECT_EQ(logged.back(), "T Leave: SetChildValuesMap!\n");
}

} // namespace
