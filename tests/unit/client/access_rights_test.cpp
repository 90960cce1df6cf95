// Which right on which node each operation of a server needs.

#include "mounted_tree.h"

#include <QTemporaryDir>

namespace client {

namespace {

constexpr char server[] = "ServerS";

class AccessRightsTest : public MountedTree {
protected:
    AccessRightsTest() { useAs(Principal::server(server)); }

    void setAcl(const char *path, const char *text)
    {
        const NodeUri node = path[0] == '\0' ? uri(mountRoot) : profile(path);
        ASSERT_EQ(code(ownersTree().replaceProperty(node, Property::Acl, text)), 200);
    }
    std::string aclOf(const char *path)
    {
        return ownersTree().property(*tree.find(profile(path)), Property::Acl)->toStdString();
    }
    int get(const char *path) { return code(tree.value(*tree.find(profile(path))).outcome()); }
    int getAcl(const char *path)
    {
        return code(tree.property(*tree.find(profile(path)), Property::Acl).outcome());
    }
    int replace(const char *path) { return code(tree.replace(profile(path), text("new"))); }
    int replaceAcl(const char *path, const char *text = "Get=*")
    {
        return code(tree.replaceProperty(profile(path), Property::Acl, text));
    }
    int add(const char *path, const char *format = "chr")
    {
        return code(tree.add(profile(path), typed(format, "")));
    }
};

// ---- One right an operation ----------------------------------------------------------------------

TEST_F(AccessRightsTest, ReadingAValueNeedsGetOnTheNode)
{
    setAcl("", "Get=*");
    setAcl("Office", "Get=ServerS");
    EXPECT_EQ(get("Office/Addr"), 200);
    setAcl("Office/Addr", "Get=Other&Replace=ServerS");
    EXPECT_EQ(get("Office/Addr"), 425);
}

TEST_F(AccessRightsTest, ReadingAPropertyNeedsGetOnTheNode)
{
    setAcl("Office", "Get=Other&Add=ServerS&Replace=ServerS&Delete=ServerS");
    for (const Property property :
         {Property::Acl, Property::Format, Property::Name, Property::Title, Property::TStamp,
          Property::Type, Property::VerNo})
        EXPECT_EQ(code(tree.property(*tree.find(profile("Office")), property).outcome()), 425);
    EXPECT_EQ(code(tree.property(*tree.find(profile("Office/Addr")), Property::Size).outcome()),
              425);
}

TEST_F(AccessRightsTest, ReadingTheNamesOfChildrenNeedsGetOnTheNode)
{
    setAcl("Office", "Get=Other");
    EXPECT_EQ(code(tree.mayGet(*tree.find(profile("Office")))), 425);
    setAcl("Office", "Get=ServerS");
    EXPECT_EQ(code(tree.mayGet(*tree.find(profile("Office")))), 200);
}

TEST_F(AccessRightsTest, ReplacingAValueNeedsReplaceOnTheNode)
{
    setAcl("Office/Addr", "Add=*&Delete=*&Get=*");
    EXPECT_EQ(replace("Office/Addr"), 425);
    EXPECT_EQ(read(profile("Office/Addr")), "internet");
    setAcl("Office", "Get=*");
    setAcl("Office/Addr", "Replace=ServerS");
    EXPECT_EQ(replace("Office/Addr"), 200);
}

TEST_F(AccessRightsTest, ReplacingSeveralValuesNeedsReplaceOnEach)
{
    setAcl("Office/Linger", "Get=*");
    EXPECT_EQ(code(tree.replaceChildren(profile("Office"), {{"Addr", "a"}, {"Linger", "1"}})), 425);
    EXPECT_EQ(read(profile("Office/Addr")), "internet");
}

TEST_F(AccessRightsTest, ReplacingTheTitleNeedsReplaceOnTheNode)
{
    const auto title = [this] {
        return code(tree.replaceProperty(profile("Office"), Property::Title, "t"));
    };
    setAcl("Office", "Add=*&Delete=*&Get=*");
    EXPECT_EQ(title(), 425);
    setAcl("Office", "Replace=ServerS");
    EXPECT_EQ(title(), 200);
}

TEST_F(AccessRightsTest, RenamingNeedsReplaceOnTheNode)
{
    const auto rename = [this](const char *from, const char *to) {
        return code(tree.replaceProperty(profile(from), Property::Name, to));
    };
    setAcl("Office", "Add=*&Delete=*&Get=*");
    EXPECT_EQ(rename("Office", "Work"), 425);
    setAcl("", "Get=*");
    setAcl("Office", "Replace=ServerS");
    EXPECT_EQ(rename("Office", "Work"), 200);
}

TEST_F(AccessRightsTest, ReplacingTheAclOfAnInteriorNodeNeedsReplaceOnItOrOnItsParent)
{
    setAcl("", "Get=*");
    setAcl("Office", "Get=*");
    EXPECT_EQ(replaceAcl("Office"), 425);
    setAcl("", "Get=*&Replace=ServerS");
    EXPECT_EQ(replaceAcl("Office"), 200);
    setAcl("", "Get=*");
    setAcl("Office", "Get=*&Replace=ServerS");
    EXPECT_EQ(replaceAcl("Office"), 200);
}

TEST_F(AccessRightsTest, ReplacingTheAclOfALeafNeedsReplaceOnItsParent)
{
    setAcl("Office", "Get=*");
    setAcl("Office/Addr", "Replace=ServerS");
    EXPECT_EQ(replaceAcl("Office/Addr"), 425);
    setAcl("Office/Addr", "Get=Other");
    setAcl("Office", "Replace=ServerS");
    EXPECT_EQ(replaceAcl("Office/Addr"), 200);
    EXPECT_EQ(aclOf("Office/Addr"), "Get=*");
}

TEST_F(AccessRightsTest, AddingNeedsAddOnTheParent)
{
    setAcl("Office", "Delete=*&Get=*&Replace=*");
    setAcl("Office/Addr", "Add=ServerS");
    EXPECT_EQ(add("Office/New"), 425);
    EXPECT_EQ(add("Office/Node", "node"), 425);
    EXPECT_EQ(add("Office/Addr"), 425);
    setAcl("", "Get=*");
    setAcl("Office", "Add=ServerS");
    EXPECT_EQ(add("Office/New"), 200);
}

TEST_F(AccessRightsTest, DeletingNeedsDeleteOnTheNodeAddressedOnly)
{
    setAcl("Office", "Add=*&Get=*&Replace=*");
    EXPECT_EQ(code(tree.remove(profile("Office"))), 425);
    setAcl("", "Get=*");
    setAcl("Office", "Delete=ServerS");
    setAcl("Office/Addr", "Get=Other");
    setAcl("Office/Auth", "Get=Other");
    EXPECT_EQ(code(tree.remove(profile("Office"))), 200);
    EXPECT_EQ(childrenOf(uri(mountRoot)), "Home");
}

TEST_F(AccessRightsTest, ExecutingNeedsExecOnTheNode)
{
    memory->executables = {{"Office/Auth", ""}};
    setAcl("Office", "Add=*&Delete=*&Exec=*&Get=*&Replace=*");
    setAcl("Office/Auth", "Add=*&Delete=*&Get=*&Replace=*&Exec=Other");
    EXPECT_EQ(code(tree.execute(profile("Office/Auth"), "x")), 425);
    EXPECT_EQ(code(tree.mayExecute(profile("Office/Auth"))), 425);
    EXPECT_EQ(memory->calls, std::vector<std::string>());
    setAcl("Office/Auth", "Exec=ServerS");
    EXPECT_EQ(code(tree.mayExecute(profile("Office/Auth"))), 200);
    EXPECT_EQ(code(tree.execute(profile("Office/Auth"), "x")), 200);
    EXPECT_EQ(memory->calls, std::vector<std::string>{"execute Office/Auth x"});
}

TEST_F(AccessRightsTest, ANodeThatStandsForNothingIsNotExecutedWhateverTheListSays)
{
    setAcl("Office", "Exec=ServerS");
    EXPECT_EQ(code(tree.execute(profile("Office"), "")), 405);
}

TEST_F(AccessRightsTest, CopyingNeedsGetOnTheSourceAndReplaceOnTheTarget)
{
    const auto copy = [this] {
        return code(tree.copy(profile("Home/Addr"), profile("Office/Addr")));
    };
    setAcl("Home/Addr", "Replace=*");
    EXPECT_EQ(copy(), 425);
    setAcl("Home/Addr", "Get=ServerS");
    setAcl("Office/Addr", "Get=*");
    EXPECT_EQ(copy(), 425);
    setAcl("Office/Addr", "Replace=ServerS");
    EXPECT_EQ(copy(), 200);
    setAcl("Office/Linger", "Replace=*");
    EXPECT_EQ(code(tree.copy(profile("Office/Linger"), profile("Office/Addr"))), 425)
        << "the right comes before the format";
}

TEST_F(AccessRightsTest, CopyingToANewLeafNeedsGetOnTheSourceAndAddOnTheParent)
{
    const auto copy = [this](const char *target) {
        return code(tree.copy(profile("Home/Addr"), profile(target)));
    };
    setAcl("Office", "Get=*&Replace=*");
    EXPECT_EQ(copy("Office/New"), 425);
    setAcl("Office", "Add=ServerS");
    EXPECT_EQ(copy("Office/New"), 200);
    setAcl("Home/Addr", "Replace=*");
    EXPECT_EQ(copy("Office/Newer"), 425);
    setAcl("Home/Addr", "");
}

TEST_F(AccessRightsTest, FullRightsOnTheParentGiveNoDirectAccessToTheChild)
{
    setAcl("Office", "Add=ServerS&Delete=ServerS&Get=ServerS&Replace=ServerS");
    setAcl("Office/Addr", "Get=Other");
    EXPECT_EQ(get("Office/Addr"), 425);
    EXPECT_EQ(replace("Office/Addr"), 425);
    EXPECT_EQ(replaceAcl("Office/Addr", "Get=ServerS&Replace=ServerS"), 200);
    EXPECT_EQ(replace("Office/Addr"), 200);
}

// ---- Inheritance ---------------------------------------------------------------------------------

TEST_F(AccessRightsTest, AnEmptyListInheritsTheNearestOneWhole)
{
    setAcl("", "Add=*&Delete=*&Get=*&Replace=*");
    setAcl("Office", "Get=ServerS");
    EXPECT_EQ(get("Office/Auth/AuthPw"), 200);
    EXPECT_EQ(replace("Office/Auth/AuthPw"), 425); // not merged with what stands further up
    setAcl("Office", "");
    EXPECT_EQ(replace("Office/Auth/AuthPw"), 200);
}

TEST_F(AccessRightsTest, TheOwnListIsReadEvenWhenAnotherOneHolds)
{
    setAcl("Office", "Get=*");
    EXPECT_EQ(aclOf("Office"), "Get=*");
    EXPECT_EQ(aclOf("Office/Addr"), "");
}

TEST_F(AccessRightsTest, AListOfATreesOwnHoldsUntilItIsReplaced)
{
    class Root final : public DmtRWPluginNode {
    public:
        Root() { m_acl.text = DMString("Get=ServerS"); }
    };
    auto *const root = new Root;
    const JemSmartPtr<DmtNode> holder(root);
    root->Init(JemSmartPtr<DmtPluginTree>(memory), "Own");
    memory->SetNode("Own", holder);
    memory->addLeaf("Own/Addr", DmtData("x"));
    EXPECT_EQ(get("Own/Addr"), 200);
    EXPECT_EQ(replace("Own/Addr"), 425);
    setAcl("Own", "");
    EXPECT_EQ(replace("Own/Addr"), 200);
}

TEST_F(AccessRightsTest, TheRootKeepsItsList)
{
    EXPECT_EQ(code(tree.replaceProperty(NodeUri(), Property::Acl, "Get=*")), 405);
    useAs(Principal::owner());
    EXPECT_EQ(code(tree.replaceProperty(NodeUri(), Property::Acl, "")), 500);
    EXPECT_EQ(code(tree.replaceProperty(NodeUri(), Property::Acl, "Get=a")), 200);
    EXPECT_EQ(tree.property(*tree.find(NodeUri()), Property::Acl)->toStdString(), "Get=a");
}

TEST_F(AccessRightsTest, TheClientsOwnNodesGiveEveryServerGetAndNothingElse)
{
    EXPECT_EQ(code(tree.value(*tree.find(uri("./DevInfo/Man"))).outcome()), 200);
    EXPECT_EQ(code(tree.replaceProperty(uri("./DevInfo"), Property::Title, "x")), 425);
    EXPECT_EQ(code(tree.replaceProperty(uri("./DevInfo/Man"), Property::Acl, "Get=*")), 425);
}

TEST_F(AccessRightsTest, TheOwnerOfTheDeviceIsAskedForNoRight)
{
    useAs(Principal::owner());
    setAcl("Office", "Get=Nobody");
    EXPECT_EQ(get("Office/Addr"), 200);
    EXPECT_EQ(replace("Office/Addr"), 200);
    EXPECT_EQ(add("Office/New"), 200);
    EXPECT_EQ(code(tree.remove(profile("Office"))), 200);
}

// ---- New nodes -----------------------------------------------------------------------------------

TEST_F(AccessRightsTest, ANewNodeInherits)
{
    EXPECT_EQ(add("New", "node"), 200);
    EXPECT_EQ(add("New/Addr"), 200);
    EXPECT_EQ(aclOf("New"), "");
    EXPECT_EQ(aclOf("New/Addr"), "");
}

TEST_F(AccessRightsTest, ACreatorThatLacksReplaceOnTheParentRulesItsNewInteriorNode)
{
    setAcl("", "Add=*&Get=A+B");
    EXPECT_EQ(add("New", "node"), 200);
    EXPECT_EQ(aclOf("New"), "Add=ServerS&Delete=ServerS&Get=A+B+ServerS&Replace=ServerS");
    EXPECT_EQ(add("New/Addr"), 200);
    EXPECT_EQ(replace("New/Addr"), 200);
    EXPECT_EQ(aclOf("New/Addr"), "");
    EXPECT_EQ(code(tree.remove(profile("New"))), 200);
}

TEST_F(AccessRightsTest, ACreatorWithoutAnAccountGetsNothingThatAnotherWouldNotHave)
{
    setAcl("", "Add=*&Get=A");
    useAs(Principal::anonymousServer());
    EXPECT_EQ(add("New", "node"), 200);
    EXPECT_EQ(aclOf("New"), "");
    EXPECT_EQ(add("New/Addr"), 200);
    EXPECT_EQ(replace("New/Addr"), 425);
    EXPECT_EQ(get("New/Addr"), 425);
    EXPECT_EQ(code(tree.remove(profile("New"))), 425);
}

TEST_F(AccessRightsTest, EverybodyKeepsGetOnANewNodeWhereEverybodyHadIt)
{
    setAcl("", "Add=*&Get=*");
    EXPECT_EQ(add("New", "node"), 200);
    EXPECT_EQ(aclOf("New"), "Add=ServerS&Delete=ServerS&Get=*&Replace=ServerS");
}

TEST_F(AccessRightsTest, ANewLeafInheritsEvenWhenItsCreatorMayNotReplaceIt)
{
    setAcl("", "Add=*&Get=*");
    EXPECT_EQ(add("Leaf"), 200);
    EXPECT_EQ(aclOf("Leaf"), "");
    EXPECT_EQ(replace("Leaf"), 425);
}

// ---- Order of the checks -------------------------------------------------------------------------

TEST_F(AccessRightsTest, ExistenceAndTheRulesOfTheNodeAreCheckedBeforeTheList)
{
    setAcl("", "Exec=Nobody");
    memory->calls.clear();
    EXPECT_EQ(replace("Nobody/Addr"), 404);
    EXPECT_EQ(add("Nobody/Addr"), 404);
    EXPECT_EQ(replace("Office"), 405);
    EXPECT_EQ(add("Office/Addr/Deeper"), 405);
    EXPECT_EQ(code(tree.replaceProperty(profile("Office"), Property::Format, "x")), 405);
    EXPECT_EQ(code(tree.remove(NodeUri())), 405);
    EXPECT_EQ(code(tree.remove(uri(mountRoot))), 405);
    EXPECT_EQ(code(tree.replaceProperty(uri(mountRoot), Property::Name, "x")), 405);
    EXPECT_EQ(code(tree.copy(profile("Office"), profile("New"))), 406);
    EXPECT_EQ(memory->calls, std::vector<std::string>());
}

TEST_F(AccessRightsTest, TheListIsCheckedBeforeFormatsNamesAndThePlugin)
{
    setAcl("", "Exec=Nobody");
    memory->calls.clear();
    EXPECT_EQ(code(tree.replace(profile("Office/Linger"), typed("chr", "x"))), 425);
    EXPECT_EQ(add("Office/Addr", "xml"), 425);
    EXPECT_EQ(add("Office/New", "xml"), 425);
    EXPECT_EQ(code(tree.replaceProperty(profile("Office"), Property::Name, "Home")), 425);
    EXPECT_EQ(code(tree.replaceProperty(profile("Office"), Property::Name, "*")), 425);
    EXPECT_EQ(code(tree.copy(profile("Office/Linger"), profile("Office/Addr"))), 425);
    EXPECT_EQ(replaceAcl("Office", "nonsense"), 425);
    EXPECT_EQ(get("Office/Addr"), 425);
    EXPECT_EQ(memory->calls, std::vector<std::string>());
}

// ---- What people are told ------------------------------------------------------------------------

TEST_F(AccessRightsTest, ADenialNamesTheRuleAndTheListThatDenied)
{
    setAcl("Office", "Get=Other");
    EXPECT_EQ(tree.replace(profile("Office/Addr"), text("x")).reason.toStdString(),
              "ServerS needs Replace on ./Ext/Profiles/Office/Addr, and the ACL of "
              "./Ext/Profiles/Office is \"Get=Other\"");
    EXPECT_EQ(tree.replaceProperty(profile("Office"), Property::Acl, "").status, DmStatus::Ok);
    EXPECT_EQ(tree.replaceProperty(uri("./DevInfo"), Property::Acl, "").reason.toStdString(),
              "ServerS needs Replace on ./DevInfo or on its parent, and the ACL of . is "
              "\"Add=*&Get=*\"");
}

TEST_F(AccessRightsTest, AMalformedListIsAFailureAndNothingIsStored)
{
    setAcl("Office", "Get=*&Replace=ServerS");
    const Outcome outcome = tree.replaceProperty(profile("Office"), Property::Acl, "Get=*&Read=*");
    EXPECT_EQ(code(outcome), 500);
    EXPECT_EQ(outcome.reason.toStdString(),
              "malformed ACL: \"Read=*\" does not begin with Add=, Delete=, Exec=, Get= or "
              "Replace=");
    EXPECT_EQ(aclOf("Office"), "Get=*&Replace=ServerS");
}

TEST_F(AccessRightsTest, AListOfMoreThan16KibIs413AndNothingIsStored)
{
    setAcl("Office", "Get=*&Replace=ServerS");
    const QByteArray longest = "Get=" + QByteArray(PropertyStore::longestAcl - 4, 'x');
    EXPECT_EQ(code(tree.replaceProperty(profile("Office"), Property::Acl, longest + 'x')), 413);
    EXPECT_EQ(aclOf("Office"), "Get=*&Replace=ServerS");
    EXPECT_EQ(code(tree.replaceProperty(profile("Office"), Property::Acl, longest)), 200);
}

TEST_F(AccessRightsTest, ANodeWhoseListWouldBeTooLongIsNotMade)
{
    setAcl("", ("Add=*&Get=" + QByteArray(PropertyStore::longestAcl - 20, 'x')).constData());
    EXPECT_EQ(add("New", "node"), 413);
    EXPECT_FALSE(tree.find(profile("New")));
}

TEST_F(AccessRightsTest, ANodeWhoseTypeIsTooLongIsNotMade)
{
    TreeView::NewValue value;
    value.format = QStringLiteral("node");
    value.type = QString(PropertyStore::longestType + 1, u'x');
    EXPECT_EQ(code(tree.add(profile("New"), value)), 413);
    EXPECT_FALSE(tree.find(profile("New")));
    value.type.chop(1);
    EXPECT_EQ(code(tree.add(profile("New"), value)), 200);
}

TEST_F(AccessRightsTest, AListThatWouldFillTheFileIs420AndASmallerOneStillHasRoom)
{
    useAs(Principal::owner());
    const QByteArray large = "Get=" + QByteArray(16000, 'x');
    const auto give = [this](int number, const QByteArray &acl) {
        const NodeUri node = profile("Office").child(QByteArray::number(number));
        tree.add(node, typed("node", ""));
        return code(tree.replaceProperty(node, Property::Acl, acl));
    };
    int number = 0;
    while (number < 2000 && give(number, large) == 200)
        ++number;
    EXPECT_GT(number, 500);
    EXPECT_EQ(give(number, large), 420);
    EXPECT_EQ(
        managementTree.properties().get(profile("Office").child(QByteArray::number(number))).acl,
        std::nullopt);
    EXPECT_EQ(give(0, large), 200);
    EXPECT_EQ(give(0, "Get=a"), 200);
}

// ---- Listings ------------------------------------------------------------------------------------

TEST_F(AccessRightsTest, AListingLeavesOutWhatMayNotBeRead)
{
    setAcl("Office/Addr", "Replace=*");
    setAcl("Office/Auth", "Replace=*");
    setAcl("Office/Auth/AuthPw", "Get=ServerS");
    std::string names;
    for (const ListedNode &listed :
         tree.list(*tree.find(profile("Office")), TreeView::Values::Read))
        names += listed.node.uri().name().toStdString() + ' ';
    EXPECT_EQ(names, "Office Linger Enabled Port AuthPw ");
}

// ---- Accounts that go ----------------------------------------------------------------------------

TEST_F(AccessRightsTest, AServerWhoseAccountIsGoneLosesItsRights)
{
    setAcl("", "Get=*");
    setAcl("Office", "Get=ServerS+Other&Replace=ServerS");
    setAcl("Home", "Replace=ServerS");
    EXPECT_EQ(replace("Home/Addr"), 200);
    managementTree.forgetServer(server);
    EXPECT_EQ(aclOf("Office"), "Get=Other");
    EXPECT_EQ(aclOf("Home"), "");
    EXPECT_EQ(replace("Home/Addr"), 425);
}

// ---- Profiles ------------------------------------------------------------------------------------

/// Two roots that show the same two profiles, 1 and 2, each by a node.
class ProfileRightsTest : public MountedTree {
protected:
    ProfileRightsTest()
    {
        for (const auto &[root, nodes] :
             {std::pair(uri("./Conn"), conn), std::pair(uri("./Prox"), prox)}) {
            for (const char *const name : {"Office", "Home"})
                nodes->addInterior(name);
            nodes->addLeaf("Office/Addr", DmtData("internet"));
            managementTree.mount(root, nodes,
                                 {.acl = acl("Add=*&Get=*"),
                                  .profileAcl = acl("Add=*&Delete=*&Get=*&Replace=*"),
                                  .profileNumbers = [this, root = root] { return numbers[root]; }});
        }
    }

    int setAcl(const char *path, const char *list, const char *server = nullptr)
    {
        return as(server, [&] { return tree.replaceProperty(uri(path), Property::Acl, list); });
    }
    int replace(const char *path, const char *server)
    {
        return as(server, [&] { return tree.replace(uri(path), text("x")); });
    }
    int add(const char *path, const char *server, const char *format = "node")
    {
        return as(server, [&] { return tree.add(uri(path), typed(format, "")); });
    }
    int remove(const char *path, const char *server)
    {
        return as(server, [&] { return tree.remove(uri(path)); });
    }
    int rename(const char *path, const char *name, const char *server)
    {
        return as(server, [&] { return tree.replaceProperty(uri(path), Property::Name, name); });
    }
    std::string aclOf(const char *path) const
    {
        return tree.property(*tree.find(uri(path)), Property::Acl)->toStdString();
    }

    const JemSmartPtr<MemoryTree> conn = MemoryTree::create();
    const JemSmartPtr<MemoryTree> prox = MemoryTree::create();
    /// By root, as the plug-in notes them at every moment.
    std::map<NodeUri, std::map<QString, quint32>> numbers = {
        {uri("./Conn"), {{QStringLiteral("Office"), 1}, {QStringLiteral("Home"), 2}}},
        {uri("./Prox"), {{QStringLiteral("Office"), 1}, {QStringLiteral("Home"), 2}}}};

private:
    template <class Operation>
    int as(const char *server, Operation operation)
    {
        useAs(server ? Principal::server(server) : Principal::owner());
        const int status = code(operation());
        useAs(Principal::owner());
        return status;
    }
};

/// The same two roots, mounted when something needs them.
class ProfilesMountedWhenNeeded : public ProfileRightsTest {
protected:
    ProfilesMountedWhenNeeded()
    {
        for (const auto &[root, nodes] : {std::pair("Conn", conn), std::pair("Prox", prox)})
            late.mountWhenNeeded(
                NodeUri({root}),
                [this, root = std::string(root), nodes = nodes]() -> Source {
                    mounted += root + ' ';
                    if (root == refused)
                        return support::Unexpected(QStringLiteral("it is refused"));
                    return JemSmartPtr<DmtTree>(nodes);
                },
                {.acl = acl("Add=*&Get=*"),
                 .profileAcl = acl("Add=*&Delete=*&Get=*&Replace=*"),
                 .profileNumbers = [this, uri = NodeUri({root})] { return numbers[uri]; }});
    }
    using Source = support::Expected<JemSmartPtr<DmtTree>, QString>;

    /// The list of the profile that the second root shows is what the file has.
    void keepListOfSecondNode(const char *list)
    {
        PropertyStore store;
        store.set(NodeUri({"Prox", "Office"}),
                  {.type = {}, .title = {}, .acl = acl(list), .changed = {}, .version = 0});
        const QString file = directory.filePath(QStringLiteral("properties.json"));
        const PropertyStore::ProfileNumbers known = {{NodeUri({"Prox", "Office"}), 1}};
        ASSERT_TRUE(store.save(file, known));
        auto loaded = PropertyStore::load(file, late.profileNumbers(), late.unmountedRoots());
        ASSERT_TRUE(loaded);
        late.setProperties(*std::move(loaded));
    }

    ManagementTree late{hostInfo("urn:uuid:x")};
    TreeView owner{late, Principal::owner()};
    TreeView server{late, Principal::server("B")};
    std::string mounted; ///< or tried to be, in order
    std::string refused;
    QTemporaryDir directory;
};

TEST_F(ProfilesMountedWhenNeeded, TheFirstRootComesBeforeTheSecond)
{
    EXPECT_TRUE(owner.find(uri("./DevInfo")));
    EXPECT_EQ(mounted, "");
    EXPECT_TRUE(owner.find(uri("./Prox/Office/Addr")));
    EXPECT_TRUE(owner.find(uri("./Conn/Office/Addr")));
    EXPECT_EQ(mounted, "Conn Prox ");
}

TEST_F(ProfilesMountedWhenNeeded, TheOwnerReadsNodesOfTheFirstOneAlone)
{
    EXPECT_TRUE(owner.value(*owner.find(uri("./Conn/Office/Addr"))));
    EXPECT_EQ(owner.children(*owner.find(uri("./Conn"))).size(), 2u);
    EXPECT_EQ(mounted, "Conn ");
    EXPECT_TRUE(owner.replace(uri("./Conn/Office/Addr"), text("x")));
    EXPECT_EQ(mounted, "Conn Prox ");
}

TEST_F(ProfilesMountedWhenNeeded, AListingShowsBoth)
{
    EXPECT_EQ(owner.children(*owner.find(NodeUri())).size(), 4u);
    EXPECT_EQ(mounted, "Conn Prox ");
}

TEST_F(ProfilesMountedWhenNeeded, BothComeBeforeAChangeReachesThePlugin)
{
    EXPECT_EQ(code(owner.add(uri("./Conn/New"), typed("node", ""))), 200);
    EXPECT_EQ(mounted, "Conn Prox ");
    refused = "Prox";
    EXPECT_EQ(code(server.remove(uri("./Conn/New"))), 200) << "what is mounted stays so";
}

TEST_F(ProfilesMountedWhenNeeded, AListOfTheOtherNodeProtectsAProfileFromTheStart)
{
    keepListOfSecondNode("Get=A&Replace=A");
    EXPECT_EQ(code(server.replace(uri("./Conn/Office/Addr"), text("x"))), 425);
    EXPECT_EQ(code(server.findToRead(uri("./Conn/Office")).outcome()), 200);
    EXPECT_EQ(owner.property(*owner.find(uri("./Conn/Office")), Property::Acl)->toStdString(),
              "Get=A&Replace=A");
}

TEST_F(ProfilesMountedWhenNeeded, TheOwnerSeesTheListOfTheOtherNode)
{
    keepListOfSecondNode("Get=A&Replace=A");
    EXPECT_EQ(owner.property(*owner.find(uri("./Conn/Office")), Property::Acl)->toStdString(),
              "Get=A&Replace=A");
}

TEST_F(ProfilesMountedWhenNeeded, AServerGetsNowhereWhileTheOtherNodeIsUnknown)
{
    keepListOfSecondNode("Get=A&Replace=A");
    refused = "Prox";
    EXPECT_EQ(code(server.find(uri("./Conn/Office/Addr")).outcome()), 510);
    EXPECT_EQ(code(server.replace(uri("./Conn/Office/Addr"), text("x"))), 510);
    EXPECT_EQ(code(owner.remove(uri("./Conn/Office"))), 510);
    EXPECT_EQ(mounted, "Conn Prox ") << "it is not tried again and again";
    EXPECT_EQ(late.mountFaults(), QStringList(QStringLiteral("it is refused")));
}

TEST_F(ProfileRightsTest, EveryServerManagesAProfileThatNoneHasMadeItsOwn)
{
    EXPECT_EQ(aclOf("./Conn/Office"), "Add=*&Delete=*&Get=*&Replace=*");
    EXPECT_EQ(replace("./Conn/Office/Addr", "B"), 200);
    EXPECT_EQ(add("./Conn/Office/Linger", "B", "int"), 415);
    EXPECT_EQ(rename("./Conn/Office", "Team", "B"), 200);
    EXPECT_EQ(remove("./Conn/Home", "B"), 200);
}

TEST_F(ProfileRightsTest, AProfileOfOneServerIsNoOthers)
{
    ASSERT_EQ(setAcl("./Conn/Office", "Add=A&Delete=A&Get=A&Replace=A", "A"), 200);
    EXPECT_EQ(setAcl("./Conn/Office", "Replace=*", "B"), 425);
    EXPECT_EQ(setAcl("./Conn", "Replace=*", "B"), 425);
    EXPECT_EQ(replace("./Conn/Office/Addr", "B"), 425);
    EXPECT_EQ(add("./Conn/Office/New", "B", "chr"), 425);
    EXPECT_EQ(rename("./Conn/Office", "Mine", "B"), 425);
    EXPECT_EQ(rename("./Conn/Home", "Office", "B"), 418);
    EXPECT_EQ(remove("./Conn/Office", "B"), 425);
    EXPECT_EQ(replace("./Conn/Office/Addr", "A"), 200);
}

TEST_F(ProfileRightsTest, AServerRulesTheProfileThatItAdds)
{
    EXPECT_EQ(add("./Conn/New", "A"), 200);
    EXPECT_EQ(aclOf("./Conn/New"), "Add=A&Delete=A&Get=*&Replace=A");
    EXPECT_EQ(add("./Conn/New/Addr", "B", "chr"), 425);
    EXPECT_EQ(add("./Conn/New/Addr", "A", "chr"), 200);
    EXPECT_EQ(aclOf("./Conn/New/Addr"), "");
    EXPECT_EQ(remove("./Conn/New", "B"), 425);
}

TEST_F(ProfileRightsTest, AProfileThatTheOwnerAddsIsForEveryServer)
{
    EXPECT_EQ(add("./Conn/New", nullptr), 200);
    EXPECT_EQ(aclOf("./Conn/New"), "Add=*&Delete=*&Get=*&Replace=*");
}

TEST_F(ProfileRightsTest, AnEmptyListInheritsFromTheRootOfTheProfiles)
{
    ASSERT_EQ(setAcl("./Conn/Office", "", "A"), 200);
    EXPECT_EQ(aclOf("./Conn/Office"), "");
    EXPECT_EQ(replace("./Conn/Office/Addr", "A"), 425);
    EXPECT_EQ(setAcl("./Conn/Office", "Replace=A", "A"), 425);
    EXPECT_EQ(setAcl("./Conn/Office", "Replace=A"), 200);
}

TEST_F(ProfileRightsTest, AProfileHasItsListUnderBothRoots)
{
    ASSERT_EQ(setAcl("./Conn/Office", "Get=*&Replace=A", "A"), 200);
    EXPECT_EQ(aclOf("./Prox/Office"), "Get=*&Replace=A");
    EXPECT_EQ(replace("./Prox/Office/Addr", "B"), 425);
    EXPECT_EQ(setAcl("./Prox/Office", "Replace=B", "B"), 425);
    EXPECT_EQ(replace("./Prox/Office/Addr", "A"), 200);
    EXPECT_EQ(aclOf("./Prox/Home"), "Add=*&Delete=*&Get=*&Replace=*");
}

TEST_F(ProfileRightsTest, TheOtherNodeOfAProfileCanHaveAListOfItsOwn)
{
    ASSERT_EQ(setAcl("./Conn/Office", "Get=*&Replace=A", "A"), 200);
    ASSERT_EQ(setAcl("./Prox/Office", "Get=*&Replace=A+B", "A"), 200);
    EXPECT_EQ(replace("./Prox/Office/Addr", "B"), 200);
    EXPECT_EQ(replace("./Conn/Office/Addr", "B"), 425);
}

TEST_F(ProfileRightsTest, ADeletedNodeLeavesItsListToTheOtherOneOfTheProfile)
{
    ASSERT_EQ(setAcl("./Conn/Office", "Delete=A&Get=*&Replace=A", "A"), 200);
    numbers[uri("./Conn")].erase(QStringLiteral("Office"));
    ASSERT_EQ(remove("./Conn/Office", "A"), 200);
    EXPECT_EQ(aclOf("./Prox/Office"), "Delete=A&Get=*&Replace=A");
    EXPECT_EQ(replace("./Prox/Office/Addr", "B"), 425);
}

TEST_F(ProfileRightsTest, ANodeThatIsAddedForAProfileOfAnotherServerGivesNoRights)
{
    // A renames its node, and B adds one of the old name: the plug-in finds the profile again.
    ASSERT_EQ(setAcl("./Conn/Office", "Get=*&Replace=A", "A"), 200);
    numbers[uri("./Conn")] = {{QStringLiteral("Team"), 1}};
    ASSERT_EQ(rename("./Conn/Office", "Team", "A"), 200);
    numbers[uri("./Conn")] = {{QStringLiteral("Team"), 1}, {QStringLiteral("Office"), 1}};
    EXPECT_EQ(add("./Conn/Office", "B"), 200);
    EXPECT_EQ(aclOf("./Conn/Office"), "Get=*&Replace=A");
    EXPECT_EQ(add("./Conn/Office/Addr", "B", "chr"), 425);
    EXPECT_EQ(setAcl("./Conn/Office", "Replace=B", "B"), 425);
}

TEST_F(ProfileRightsTest, AProfileThatIsMadeAnewIsNobodysAnyMore)
{
    ASSERT_EQ(setAcl("./Conn/Office", "Delete=A&Get=*&Replace=A", "A"), 200);
    numbers[uri("./Conn")].erase(QStringLiteral("Office"));
    ASSERT_EQ(remove("./Conn/Office", "A"), 200);
    numbers[uri("./Conn")][QStringLiteral("Office")] = 3;
    ASSERT_EQ(add("./Conn/Office", nullptr), 200);
    EXPECT_EQ(aclOf("./Conn/Office"), "Add=*&Delete=*&Get=*&Replace=*");
}

TEST_F(ProfileRightsTest, NodesWithoutNumbersShareNothing)
{
    conn->addInterior("Odd");
    prox->addInterior("Odd");
    ASSERT_EQ(setAcl("./Conn/Odd", "Get=*", "A"), 200);
    EXPECT_EQ(aclOf("./Prox/Odd"), "Add=*&Delete=*&Get=*&Replace=*");
}

// ---- The worked example of the standard ----------------------------------------------------------

/// root Add=*&Get=*
///     NodeA  Get=ServerC&Replace=ServerC
///         Node1 (leaf)  Get=*
///     NodeB  Get=ServerA&Replace=ServerA
///         Node2 (leaf)
///         Node3  Get=ServerB&Replace=ServerB&Delete=ServerB
///             Node4 (leaf)
///             Node5 (leaf)  Get=ServerA&Replace=ServerA&Get=ServerB
///     NodeC  as NodeB, without children
class WorkedExample : public AccessRightsTest {
protected:
    WorkedExample()
    {
        setAcl("", "Add=*&Get=*");
        for (const char *const node : {"NodeA", "NodeB", "NodeB/Node3", "NodeC"})
            memory->addInterior(node);
        for (const char *const leaf :
             {"NodeA/Node1", "NodeB/Node2", "NodeB/Node3/Node4", "NodeB/Node3/Node5"})
            memory->addLeaf(leaf, DmtData("value"));
        setAcl("NodeA", "Get=ServerC&Replace=ServerC");
        setAcl("NodeA/Node1", "Get=*");
        setAcl("NodeB", "Get=ServerA&Replace=ServerA");
        setAcl("NodeB/Node3", "Get=ServerB&Replace=ServerB&Delete=ServerB");
        setAcl("NodeB/Node3/Node5", "Get=ServerA&Replace=ServerA&Get=ServerB");
        setAcl("NodeC", "Get=ServerA&Replace=ServerA");
    }
    /// Runs an operation for each of three servers; the servers for which it succeeds.
    template <class Operation>
    std::string permitted(Operation operation)
    {
        std::string servers;
        for (const char name : {'A', 'B', 'C'}) {
            useAs(Principal::server(QByteArray("Server") + name));
            if (operation() == 200)
                servers += name;
        }
        return servers;
    }
};

TEST_F(WorkedExample, AnyoneReadsNode1)
{
    EXPECT_EQ(permitted([this] { return get("NodeA/Node1"); }), "ABC");
}

TEST_F(WorkedExample, OnlyServerCChangesTheListOfNode1InOneStep)
{
    EXPECT_EQ(permitted([this] { return replaceAcl("NodeA/Node1"); }), "C");
}

TEST_F(WorkedExample, NobodyDirectlyReplacesOrDeletesNode1)
{
    EXPECT_EQ(permitted([this] { return replace("NodeA/Node1"); }), "");
    EXPECT_EQ(permitted([this] { return code(tree.remove(profile("NodeA/Node1"))); }), "");
}

TEST_F(WorkedExample, ServerCDeletesNode1InTwoSteps)
{
    useAs(Principal::server("ServerC"));
    EXPECT_EQ(replaceAcl("NodeA/Node1", "Delete=ServerC"), 200);
    EXPECT_EQ(code(tree.remove(profile("NodeA/Node1"))), 200);
}

TEST_F(WorkedExample, TheListOfNode1IsItsOwnAndThatOfNode4Empty)
{
    EXPECT_EQ(aclOf("NodeA/Node1"), "Get=*");
    EXPECT_EQ(aclOf("NodeB/Node3/Node4"), "");
}

TEST_F(WorkedExample, Node4HasTheListOfNode3)
{
    EXPECT_EQ(permitted([this] { return get("NodeB/Node3/Node4"); }), "B");
    EXPECT_EQ(permitted([this] { return replace("NodeB/Node3/Node4"); }), "B");
}

TEST_F(WorkedExample, ServerAReplacesNode5AndBothServersReadIt)
{
    EXPECT_EQ(permitted([this] { return replace("NodeB/Node3/Node5"); }), "A");
    EXPECT_EQ(permitted([this] { return get("NodeB/Node3/Node5"); }), "AB");
}

TEST_F(WorkedExample, ServerAChangesTheListOfNode3ThroughItsParent)
{
    EXPECT_EQ(permitted([this] {
                  return replaceAcl("NodeB/Node3", "Get=ServerB&Replace=ServerB&Delete=ServerB");
              }),
              "AB");
}

TEST_F(WorkedExample, OnlyServerBDeletesNode3)
{
    EXPECT_EQ(permitted([this] { return code(tree.remove(profile("NodeB/Node3"))); }), "B");
}

} // namespace

} // namespace client
