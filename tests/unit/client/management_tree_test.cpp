// The whole tree: what can be found in it, and the rules that hold before a plug-in is asked.

#include "mounted_tree.h"

namespace client {

namespace {

using Calls = std::vector<std::string>;
using Values = TreeView::Values;

class ManagementTreeTest : public MountedTree {};

// ---- Finding and reading -------------------------------------------------------------------------

TEST_F(ManagementTreeTest, TheClientsOwnNodesStandBesideTheMountedOnes)
{
    EXPECT_EQ(childrenOf(uri(".")), "DevInfo DevDetail Ext");
    EXPECT_EQ(childrenOf(uri("./Ext")), "Profiles");
    EXPECT_EQ(childrenOf(uri(mountRoot)), "Office Home");
    EXPECT_EQ(childrenOf(profile("Office")), "Addr Linger Enabled Port Auth");
}

TEST_F(ManagementTreeTest, DevInfoAndDevDetailDescribeTheDevice)
{
    EXPECT_EQ(childrenOf(uri("./DevInfo")), "DevId Man Mod DmV Lang");
    EXPECT_EQ(childrenOf(uri("./DevDetail")), "URI DevTyp OEM FwV SwV HwV LrgObj");
    EXPECT_EQ(read(uri("./DevInfo/DevId")), "urn:test:1");
    EXPECT_EQ(read(uri("./DevInfo/DmV")), "1.2");
    EXPECT_EQ(read(uri("./DevDetail/URI/MaxDepth")), "8");
    EXPECT_EQ(read(uri("./DevDetail/URI/MaxTotLen")), "200");
    EXPECT_EQ(read(uri("./DevDetail/URI/MaxSegLen")), "20");
    EXPECT_EQ(read(uri("./DevDetail/LrgObj")), "true");
}

TEST_F(ManagementTreeTest, ANodeIsFoundOnlyWhenEveryNodeAboveItIsThere)
{
    memory->addLeaf("Ghost/Leaf", DmtData("x")); // registered without its parent
    EXPECT_EQ(code(tree.find(profile("Ghost/Leaf")).outcome()), 404);
    EXPECT_EQ(code(tree.find(profile("Nobody")).outcome()), 404);
    EXPECT_EQ(code(tree.find(profile("Office/Addr/Deeper")).outcome()), 404);
    EXPECT_EQ(code(tree.find(uri("./DevInfo/Nothing")).outcome()), 404);
}

TEST_F(ManagementTreeTest, NamesAreCaseSensitive)
{
    EXPECT_EQ(code(tree.find(profile("office")).outcome()), 404);
}

/// With a tree at ./Other that has a node Office/Evil: a plug-in that takes paths apart at their
/// slashes reads what is beneath it from a profile Office.
class SlashInANameTest : public ManagementTreeTest {
protected:
    SlashInANameTest()
    {
        // The engine keeps such a node beneath the root, which lists it.
        DMStringVector names;
        names.push_back(DMString("Office/Evil"));
        auto *const root = new Root;
        const JemSmartPtr<DmtNode> holder(root);
        root->Init(JemSmartPtr<DmtPluginTree>(other), "", names);
        other->SetNode("", holder);
        other->addInterior("Office/Evil");
        other->addLeaf("Office/Evil/Secret", DmtData("s3cret"));
        managementTree.mount(uri("./Other"), other, {.acl = acl("Add=*&Delete=*&Get=*&Replace=*")});
        useAs(Principal::server("S"));
        other->calls.clear();
    }

    class Root final : public DmtRWPluginNode {};

    const JemSmartPtr<MemoryTree> other = MemoryTree::create();
    const NodeUri evil = uri("./Other/Office%2FEvil");
    const NodeUri secret = uri("./Other/Office%2FEvil/Secret");
};

TEST_F(SlashInANameTest, TheNodeIsListedByItsParent)
{
    EXPECT_EQ(childrenOf(uri("./Other")), "Office/Evil");
}

TEST_F(SlashInANameTest, NothingIsDoneWithTheNodeOrBeneathIt)
{
    for (const NodeUri &node : {evil, secret}) {
        EXPECT_EQ(code(tree.find(node).outcome()), 405);
        EXPECT_EQ(code(tree.add(node.child("New"), typed("chr", "x"))), 405);
        EXPECT_EQ(code(tree.replace(node, text("x"))), 405);
        for (const Property property : {Property::Acl, Property::Name, Property::Title})
            EXPECT_EQ(code(tree.replaceProperty(node, property, "Get=*")), 405);
        EXPECT_EQ(code(tree.remove(node)), 405);
        EXPECT_EQ(code(tree.copy(node, profile("Office/Addr"))), 405);
        EXPECT_EQ(code(tree.copy(profile("Office/Addr"), node)), 405);
        EXPECT_EQ(code(tree.execute(node, "")), 405);
        EXPECT_EQ(code(tree.replaceChildren(node, {{"Secret", "x"}})), 405);
    }
    EXPECT_EQ(other->calls, Calls());
}

TEST_F(SlashInANameTest, AListingEndsAtTheNode)
{
    std::string listed;
    for (const ListedNode &entry : tree.list(*tree.find(uri("./Other")), Values::Read))
        listed += entry.node.uri().name().toStdString() + ' ';
    EXPECT_EQ(listed, "Other Office/Evil ");
    EXPECT_EQ(std::ranges::count(other->calls, "read all Office/Evil"), 0);
    EXPECT_EQ(std::ranges::count(other->calls, "get Office/Evil/Secret"), 0);
}

TEST_F(SlashInANameTest, ALeafOfSuchANameIsListedWithoutItsValue)
{
    other->addLeaf("Office/Evil", DmtData("s3cret"));
    for (const ListedNode &entry : tree.list(*tree.find(uri("./Other")), Values::Read))
        EXPECT_FALSE(entry.value && *entry.value) << entry.node.uri().name().toStdString();
}

TEST_F(SlashInANameTest, ANodeOfThatNameThatIsNotThereIsNotFound)
{
    EXPECT_EQ(code(tree.find(uri("./Other/Office%2FGood")).outcome()), 404);
}

TEST_F(ManagementTreeTest, AnEscapedSlashIsNoWayAroundTheNodesInBetween)
{
    EXPECT_EQ(read(profile("Office%2FAddr")), "404");
    EXPECT_EQ(code(tree.add(profile("Office%2FNew"), typed("chr", "x"))), 405);
    EXPECT_EQ(code(tree.find(profile("Office/New")).outcome()), 404);
}

TEST_F(ManagementTreeTest, AnInteriorNodeHasNoValue)
{
    EXPECT_EQ(read(profile("Office")), "405");
}

TEST_F(ManagementTreeTest, ALeafCanBeReadWithoutHavingAValue)
{
    EXPECT_EQ(read(profile("Office/Port")), "");
    EXPECT_EQ(tree.find(profile("Office/Port"))->valueType(), DmtData::Int);
}

TEST_F(ManagementTreeTest, APluginsRefusalToReadIsPassedOn)
{
    memory->failures = {{"get Office/Addr", 1}, {"get Office/Linger", 510}};
    EXPECT_EQ(read(profile("Office/Addr")), "500");
    EXPECT_EQ(read(profile("Office/Linger")), "510");
}

TEST_F(ManagementTreeTest, ARefusalThatIsNoStatusOfItsOwnIsThePlugins)
{
    memory->failures = {{"set Office/Addr", 1}, {"set Office/Linger", 415}};
    EXPECT_EQ(tree.replace(profile("Office/Addr"), text("x")).reason.toStdString(),
              "the plug-in refused it");
    EXPECT_EQ(tree.replace(profile("Office/Linger"), text("1")).reason.toStdString(),
              "refused by the node");
}

// ---- Properties ----------------------------------------------------------------------------------

class PropertiesTest : public ManagementTreeTest {
protected:
    std::string get(const NodeUri &node, Property property) const
    {
        const Result<QByteArray> value = tree.property(*tree.find(node), property);
        return value ? value->toStdString() : std::to_string(code(value.outcome()));
    }
};

TEST_F(PropertiesTest, FormatIsTheTypeOfTheValueWithoutReadingIt)
{
    EXPECT_EQ(get(profile("Office"), Property::Format), "node");
    EXPECT_EQ(get(profile("Office/Addr"), Property::Format), "chr");
    EXPECT_EQ(get(profile("Office/Linger"), Property::Format), "int");
    EXPECT_EQ(get(profile("Office/Enabled"), Property::Format), "bool");
    EXPECT_EQ(memory->calls, Calls());
}

TEST_F(PropertiesTest, NameIsTheLastSegment)
{
    EXPECT_EQ(get(profile("Office"), Property::Name), "Office");
    EXPECT_EQ(get(uri("."), Property::Name), ".");
}

TEST_F(PropertiesTest, TypeIsTheMimeTypeOfALeafAndTheObjectIdOfAnInteriorNode)
{
    EXPECT_EQ(get(profile("Office/Addr"), Property::Type), "text/plain");
    EXPECT_EQ(get(profile("Office"), Property::Type), "");
    EXPECT_EQ(get(uri("./DevInfo"), Property::Type), "urn:oma:mo:oma-dm-devinfo:1.0");
    EXPECT_EQ(get(uri("./DevDetail"), Property::Type), "urn:oma:mo:oma-dm-devdetail:1.0");
}

TEST_F(PropertiesTest, AclIsTheNodesOwn)
{
    EXPECT_EQ(get(uri("."), Property::Acl), "Add=*&Get=*");
    EXPECT_EQ(get(uri("./DevInfo"), Property::Acl), "");
    EXPECT_EQ(get(uri(mountRoot), Property::Acl), "Add=*&Delete=*&Get=*&Replace=*");
    EXPECT_EQ(get(profile("Office/Addr"), Property::Acl), "");
}

TEST_F(PropertiesTest, SizeIsThatOfTheUnencodedValue)
{
    DMVector<unsigned char> bytes;
    for (const int byte : {0, 1, 2, 255})
        bytes.push_back(static_cast<unsigned char>(byte));
    memory->addLeaf("Home/Icon", DmtData(bytes));
    memory->addLeaf("Home/Name", DmtData("Caf\xc3\xa9"));
    EXPECT_EQ(get(profile("Home/Icon"), Property::Size), "4");
    EXPECT_EQ(get(profile("Home/Name"), Property::Size), "5");
    EXPECT_EQ(get(profile("Office/Linger"), Property::Size), "2");
    EXPECT_EQ(get(profile("Office/Enabled"), Property::Size), "4");
    EXPECT_EQ(get(profile("Office/Port"), Property::Size), "0");
}

TEST_F(PropertiesTest, AnInteriorNodeHasNoSizeAndAnUnreadableLeafDoesNotTellIts)
{
    memory->failures = {{"get Office/Addr", 510}};
    EXPECT_EQ(get(profile("Office"), Property::Size), "406");
    EXPECT_EQ(get(profile("Office/Addr"), Property::Size), "510");
}

TEST_F(PropertiesTest, ATitleIsTextOfAtMost255Bytes)
{
    const auto set = [this](const QByteArray &title) {
        return code(tree.replaceProperty(profile("Office"), Property::Title, title));
    };
    EXPECT_EQ(get(profile("Office"), Property::Title), "");
    EXPECT_EQ(set("My \xc3\xa9"), 200);
    EXPECT_EQ(get(profile("Office"), Property::Title), "My \xc3\xa9");
    EXPECT_EQ(set(QByteArray(256, 'x')), 413);
    EXPECT_EQ(set("\xff"), 415);
    EXPECT_EQ(get(profile("Office"), Property::Title), "My \xc3\xa9");
    EXPECT_EQ(set(QByteArray(255, 'x')), 200);
    EXPECT_EQ(set(""), 200);
    EXPECT_EQ(get(profile("Office"), Property::Title), "");
}

TEST_F(PropertiesTest, PropertiesOtherThanAclNameAndTitleAreReadOnly)
{
    const auto replace = [this](Property property) {
        return code(tree.replaceProperty(profile("Office/Addr"), property, "x"));
    };
    for (const Property property :
         {Property::Format, Property::Size, Property::TStamp, Property::Type, Property::VerNo})
        EXPECT_EQ(replace(property), 405);
    EXPECT_EQ(code(tree.replaceProperty(profile("Nobody"), Property::Format, "x")), 404);
    EXPECT_EQ(memory->calls, Calls());
}

TEST_F(PropertiesTest, APermanentNodeTakesATitleAndAList)
{
    EXPECT_EQ(code(tree.replaceProperty(uri(mountRoot), Property::Title, "t")), 200);
    EXPECT_EQ(code(tree.replaceProperty(uri("./DevInfo"), Property::Acl, "Get=*")), 200);
}

// ---- Time and number of the last change ----------------------------------------------------------

class ChangesTest : public PropertiesTest {
protected:
    ChangesTest()
    {
        managementTree.setClock([this] { return now; });
    }
    /// "20260101T000000Z 1"
    std::string changes(const NodeUri &node) const
    {
        return get(node, Property::TStamp) + " " + get(node, Property::VerNo);
    }
    std::string changes(const char *path) const { return changes(profile(path)); }

    QDateTime now = QDateTime(QDate(2026, 1, 2), QTime(3, 4, 5), Qt::UTC);
};

TEST_F(ChangesTest, ANodeThatNobodyChangedHasNoTimeAndTheNumberZero)
{
    EXPECT_EQ(changes("Office/Addr"), " 0");
}

TEST_F(ChangesTest, EachChangeOfAValueCountsForItsLeaf)
{
    tree.replace(profile("Office/Addr"), text("a"));
    EXPECT_EQ(changes("Office/Addr"), "20260102T030405Z 1");
    now = now.addSecs(1);
    tree.copy(profile("Home/Addr"), profile("Office/Addr"));
    EXPECT_EQ(changes("Office/Addr"), "20260102T030406Z 2");
    now = now.addSecs(1);
    tree.replaceChildren(profile("Office"), {{"Addr", "a"}, {"Linger", "1"}});
    EXPECT_EQ(changes("Office/Addr"), "20260102T030407Z 3");
    EXPECT_EQ(changes("Office/Linger"), "20260102T030407Z 1");
    EXPECT_EQ(changes("Office"), " 0");
}

TEST_F(ChangesTest, ARefusedChangeDoesNotCount)
{
    memory->failures = {{"set Office/Addr", 1}, {"delete Office", 1}, {"create New", 1}};
    tree.replace(profile("Office/Addr"), text("a"));
    tree.replace(profile("Office/Linger"), text("soon"));
    tree.remove(profile("Office"));
    tree.add(profile("New"), typed("node", ""));
    tree.replaceProperty(profile("Office"), Property::Acl, "nonsense");
    EXPECT_EQ(changes("Office/Addr"), " 0");
    EXPECT_EQ(changes("Office/Linger"), " 0");
    EXPECT_EQ(changes("Office"), " 0");
    EXPECT_EQ(changes(uri(mountRoot)), " 0");
}

TEST_F(ChangesTest, AddingRenamingAndDeletingCountForTheParentToo)
{
    tree.add(profile("New"), typed("node", ""));
    EXPECT_EQ(changes("New"), "20260102T030405Z 0");
    EXPECT_EQ(changes(uri(mountRoot)), "20260102T030405Z 1");
    tree.copy(profile("Office/Linger"), profile("New/Linger"));
    EXPECT_EQ(changes("New/Linger"), "20260102T030405Z 0");
    EXPECT_EQ(changes("New"), "20260102T030405Z 1");
    tree.replaceProperty(profile("New"), Property::Name, "Newer");
    EXPECT_EQ(changes("Newer"), "20260102T030405Z 2");
    EXPECT_EQ(changes(uri(mountRoot)), "20260102T030405Z 2");
    tree.remove(profile("Newer"));
    EXPECT_EQ(changes(uri(mountRoot)), "20260102T030405Z 3");
}

TEST_F(ChangesTest, PropertiesThatAServerSetsCount)
{
    tree.replaceProperty(profile("Office"), Property::Title, "t");
    EXPECT_EQ(changes("Office"), "20260102T030405Z 1");
    tree.replaceProperty(profile("Office"), Property::Acl, "Get=*");
    EXPECT_EQ(changes("Office"), "20260102T030405Z 2");
}

TEST_F(ChangesTest, TheNumberGoesFrom65535ToZero)
{
    PropertyStore store;
    PropertyStore::Properties properties;
    properties.version = 65535;
    store.set(profile("Office/Addr"), properties);
    managementTree.setProperties(store);
    EXPECT_EQ(get(profile("Office/Addr"), Property::VerNo), "65535");
    tree.replace(profile("Office/Addr"), text("a"));
    EXPECT_EQ(get(profile("Office/Addr"), Property::VerNo), "0");
}

TEST_F(ChangesTest, ALeafThatAPluginKeepsWhenItRefusesTheValueIsANewNode)
{
    memory->failures = {{"keep Office/New", 1}};
    EXPECT_EQ(code(tree.add(profile("Office/New"), typed("chr", "x"))), 500);
    EXPECT_EQ(changes("Office/New"), "20260102T030405Z 0");
    EXPECT_EQ(changes("Office"), "20260102T030405Z 1");
}

TEST_F(ChangesTest, PropertiesOfNodesThatAreNotThereAreNotTakenOver)
{
    PropertyStore store;
    PropertyStore::Properties properties;
    properties.title = "kept";
    store.set(profile("Office"), properties);
    store.set(profile("Nobody"), properties);
    managementTree.setProperties(store);
    EXPECT_EQ(get(profile("Office"), Property::Title), "kept");
    memory->addInterior("Nobody");
    EXPECT_EQ(get(profile("Nobody"), Property::Title), "");
}

TEST_F(ChangesTest, ANodeThatIsAddedAgainStartsAnew)
{
    tree.replaceProperty(profile("Home"), Property::Acl, "Get=Nobody");
    tree.remove(profile("Home"));
    tree.add(profile("Home"), typed("node", ""));
    EXPECT_EQ(get(profile("Home"), Property::Acl), "");
    EXPECT_EQ(get(profile("Home"), Property::VerNo), "0");
}

TEST_F(PropertiesTest, PropertyNamesAreCaseSensitive)
{
    EXPECT_EQ(propertyNamed(QStringLiteral("ACL")), Property::Acl);
    EXPECT_EQ(propertyNamed(QStringLiteral("VerNo")), Property::VerNo);
    EXPECT_EQ(propertyNamed(QStringLiteral("acl")), std::nullopt);
    EXPECT_EQ(propertyNamed(QString()), std::nullopt);
}

// ---- Listing -------------------------------------------------------------------------------------

class ListingTest : public ManagementTreeTest {
protected:
    std::string list(const NodeUri &start, Values values) const
    {
        std::string text;
        for (const ListedNode &listed : tree.list(*tree.find(start), values)) {
            text += std::string(static_cast<std::size_t>(listed.depth), '-') +
                    listed.node.uri().name().toStdString();
            if (listed.value)
                text += *listed.value ? "=" + valueText(**listed.value).toStdString()
                                      : "!" + std::to_string(code(listed.value->outcome()));
            text += ' ';
        }
        return text;
    }
};

TEST_F(ListingTest, ParentsComeBeforeTheirChildren)
{
    EXPECT_EQ(list(uri("./Ext"), Values::Omit),
              "Ext -Profiles --Office ---Addr ---Linger ---Enabled ---Port ---Auth ----AuthPw "
              "--Home ---Addr ");
    EXPECT_EQ(memory->calls, Calls());
}

TEST_F(ListingTest, TheLeavesOfANodeAreReadInOneCall)
{
    EXPECT_EQ(list(profile("Office"), Values::Read),
              "Office -Addr=internet -Linger=30 -Enabled=true -Port= -Auth --AuthPw=secret ");
    EXPECT_EQ(memory->calls, (Calls{"read all Office", "get Office/Addr", "get Office/Linger",
                                    "get Office/Enabled", "get Office/Port", "read all Office/Auth",
                                    "get Office/Auth/AuthPw"}));
}

TEST_F(ListingTest, OneUnreadableLeafHidesNoOther)
{
    memory->failures = {{"get Office/Linger", 1}};
    EXPECT_EQ(list(profile("Office"), Values::Read),
              "Office -Addr=internet -Linger!500 -Enabled=true -Port= -Auth --AuthPw=secret ");
}

TEST_F(ListingTest, ATreeWithoutTheBulkCallIsReadLeafByLeaf)
{
    memory->failures = {{"read all Office", 406}};
    EXPECT_EQ(list(profile("Office"), Values::Read),
              "Office -Addr=internet -Linger=30 -Enabled=true -Port= -Auth --AuthPw=secret ");
}

TEST_F(ListingTest, ALeafIsAListingOfItself)
{
    EXPECT_EQ(list(profile("Office/Addr"), Values::Read), "Addr=internet ");
}

// ---- Adding --------------------------------------------------------------------------------------

class AddTest : public ManagementTreeTest {};

TEST_F(AddTest, ALeafAndAnInteriorNodeAreAdded)
{
    EXPECT_EQ(code(tree.add(profile("New"), {QStringLiteral("node"), {}, std::nullopt})), 200);
    EXPECT_EQ(code(tree.add(profile("New/Speed"), typed("int", "9600"))), 200);
    EXPECT_EQ(childrenOf(uri(mountRoot)), "Office Home New");
    EXPECT_EQ(read(profile("New/Speed")), "9600");
}

TEST_F(AddTest, MissingAncestorsAreNotCreated)
{
    EXPECT_EQ(code(tree.add(profile("New/Addr"), typed("chr", "x"))), 404);
    EXPECT_EQ(childrenOf(uri(mountRoot)), "Office Home");
}

TEST_F(AddTest, WhatIsThereIsNotAddedAgain)
{
    EXPECT_EQ(code(tree.add(profile("Office"), typed("node", ""))), 418);
    EXPECT_EQ(code(tree.add(profile("Office/Addr"), typed("chr", "other"))), 418);
    EXPECT_EQ(read(profile("Office/Addr")), "internet");
}

TEST_F(AddTest, ALeafHasNoChildren)
{
    EXPECT_EQ(code(tree.add(profile("Office/Addr/Deeper"), typed("chr", "x"))), 405);
}

TEST_F(AddTest, TheClientsOwnPartTakesNoNodes)
{
    EXPECT_EQ(code(tree.add(uri("."), typed("node", ""))), 405);
    EXPECT_EQ(code(tree.add(uri("./New"), typed("node", ""))), 405);
    EXPECT_EQ(code(tree.add(uri("./DevInfo/New"), typed("chr", "x"))), 405);
    EXPECT_EQ(code(tree.add(uri("./Ext/New"), typed("node", ""))), 405);
    EXPECT_EQ(code(tree.add(uri(mountRoot), typed("node", ""))), 405);
}

TEST_F(AddTest, ANewNodeNeedsAFormatThatExistsHere)
{
    EXPECT_EQ(code(tree.add(profile("Office/New"), text("x"))), 415);
    EXPECT_EQ(code(tree.add(profile("Office/New"), typed("xml", "<x/>"))), 415);
    EXPECT_EQ(code(tree.add(profile("Office/New"), typed("int", "many"))), 415);
    EXPECT_EQ(code(tree.find(profile("Office/New")).outcome()), 404);
}

TEST_F(AddTest, SerialisedTreesAreRefused)
{
    const TreeView::NewValue payload{
        QStringLiteral("xml"), QStringLiteral("application/vnd.syncml.dmtnds+xml"), "<MgmtTree/>"};
    EXPECT_EQ(code(tree.add(profile("New"), payload)), 415);
    EXPECT_EQ(code(tree.replace(profile("Office/Addr"), payload)), 415);
}

TEST_F(AddTest, TheTypeOfANewNodeIsKept)
{
    tree.add(profile("New"), {QStringLiteral("node"), QStringLiteral("com.example/1.0/X"), {}});
    EXPECT_EQ(tree.type(*tree.find(profile("New"))), QStringLiteral("com.example/1.0/X"));
    tree.replaceProperty(profile("New"), Property::Name, "Newer");
    EXPECT_EQ(tree.type(*tree.find(profile("Newer"))), QStringLiteral("com.example/1.0/X"));
    tree.remove(profile("Newer"));
    tree.add(profile("Newer"), typed("node", ""));
    EXPECT_EQ(tree.type(*tree.find(profile("Newer"))), QString());
}

TEST_F(AddTest, ThePluginHasTheLastWord)
{
    memory->failures = {{"create New", 1}, {"create Office/New", 420}};
    EXPECT_EQ(code(tree.add(profile("New"), typed("node", ""))), 500);
    EXPECT_EQ(code(tree.add(profile("Office/New"), typed("chr", "x"))), 420);
}

// ---- Replacing -----------------------------------------------------------------------------------

class ReplaceTest : public ManagementTreeTest {};

TEST_F(ReplaceTest, AValueIsReplacedInTheLeafsOwnFormat)
{
    EXPECT_EQ(code(tree.replace(profile("Office/Addr"), text("other"))), 200);
    EXPECT_EQ(code(tree.replace(profile("Office/Linger"), text("31"))), 200);
    EXPECT_EQ(code(tree.replace(profile("Office/Enabled"), typed("BOOL", "false"))), 200);
    EXPECT_EQ(read(profile("Office/Addr")), "other");
    EXPECT_EQ(read(profile("Office/Linger")), "31");
    EXPECT_EQ(read(profile("Office/Enabled")), "false");
}

TEST_F(ReplaceTest, AMissingNodeIsNotCreated)
{
    EXPECT_EQ(code(tree.replace(profile("Office/New"), typed("chr", "x"))), 404);
    EXPECT_EQ(code(tree.find(profile("Office/New")).outcome()), 404);
}

TEST_F(ReplaceTest, AnInteriorNodeCannotBeReplaced)
{
    EXPECT_EQ(code(tree.replace(profile("Office"), text("x"))), 405);
    EXPECT_EQ(code(tree.replace(uri("."), text("x"))), 405);
}

TEST_F(ReplaceTest, ASerialisedTreeForAnInteriorNodeIsAnUnsupportedFormat)
{
    const TreeView::NewValue payload{
        QStringLiteral("xml"), QStringLiteral("application/vnd.syncml.dmtnds+xml"), "<MgmtTree/>"};
    EXPECT_EQ(code(tree.replace(profile("Office"), payload)), 415);
    EXPECT_EQ(code(tree.replace(uri(mountRoot), payload)), 415);
    EXPECT_EQ(code(tree.replace(profile("Nobody"), payload)), 404);
    EXPECT_EQ(memory->calls, Calls());
}

TEST_F(ReplaceTest, AnotherTypeThanTheLeafsIsRefused)
{
    const auto replaceAs = [this](const char *type) {
        return code(tree.replace(profile("Office/Addr"),
                                 {QStringLiteral("chr"), QString::fromLatin1(type), "new"}));
    };
    EXPECT_EQ(replaceAs("image/png"), 415);
    EXPECT_EQ(read(profile("Office/Addr")), "internet");
    EXPECT_EQ(replaceAs("text/plain"), 200);
    EXPECT_EQ(replaceAs("Text/Plain; charset=UTF-8"), 200);
    tree.add(profile("Home/Icon"), {QStringLiteral("bin"), QStringLiteral("image/png"), "AA=="});
    EXPECT_EQ(code(tree.replace(profile("Home/Icon"), {{}, QStringLiteral("image/png"), "AA=="})),
              200);
    EXPECT_EQ(code(tree.replace(profile("Home/Icon"), {{}, QStringLiteral("text/plain"), "AA=="})),
              415);
}

TEST_F(ReplaceTest, TheClientsOwnLeavesAreReadOnly)
{
    EXPECT_EQ(code(tree.replace(uri("./DevInfo/Man"), text("x"))), 405);
    EXPECT_EQ(read(uri("./DevInfo/Man")), "maker");
}

TEST_F(ReplaceTest, AnotherFormatThanTheLeafsIsRefused)
{
    EXPECT_EQ(code(tree.replace(profile("Office/Linger"), typed("chr", "31"))), 415);
    EXPECT_EQ(code(tree.replace(profile("Office/Addr"), typed("int", "1"))), 415);
    EXPECT_EQ(code(tree.replace(profile("Office/Addr"), typed("nonsense", "1"))), 415);
    EXPECT_EQ(code(tree.replace(profile("Office/Linger"), text("soon"))), 415);
    EXPECT_EQ(memory->calls, Calls());
}

TEST_F(ReplaceTest, ATextWithoutDataBecomesEmpty)
{
    EXPECT_EQ(code(tree.replace(profile("Office/Addr"), {{}, {}, std::nullopt})), 200);
    EXPECT_EQ(read(profile("Office/Addr")), "");
}

TEST_F(ReplaceTest, ThePluginHasTheLastWord)
{
    memory->failures = {{"set Office/Addr", 1}};
    EXPECT_EQ(code(tree.replace(profile("Office/Addr"), text("x"))), 500);
    EXPECT_EQ(read(profile("Office/Addr")), "internet");
}

TEST_F(ReplaceTest, RulesAreCheckedInOrderBeforeThePluginIsReached)
{
    // Existence comes before what may be done, and that before the format.
    EXPECT_EQ(code(tree.replace(profile("Nobody/Addr"), typed("int", "x"))), 404);
    EXPECT_EQ(code(tree.replace(uri("./DevInfo/Man"), typed("int", "x"))), 405);
    EXPECT_EQ(code(tree.add(profile("Office/Addr/Deeper"), typed("xml", "x"))), 405);
    EXPECT_EQ(code(tree.add(profile("Office/Addr"), typed("xml", "x"))), 418);
    EXPECT_EQ(memory->calls, Calls());
}

TEST_F(ReplaceTest, SeveralChildrenAreReplacedInOneCall)
{
    EXPECT_EQ(code(tree.replaceChildren(profile("Office"), {{"Addr", "a"}, {"Linger", "7"}})), 200);
    EXPECT_EQ(memory->calls, (Calls{"write all Office", "set Office/Addr", "set Office/Linger"}));
    EXPECT_EQ(read(profile("Office/Linger")), "7");
}

TEST_F(ReplaceTest, AnImpossibleChildStopsABulkReplaceBeforeItBegins)
{
    const auto replace = [this](const char *name, const char *value) {
        return code(tree.replaceChildren(profile("Office"), {{"Addr", "a"}, {name, value}}));
    };
    EXPECT_EQ(replace("Nothing", "x"), 404);
    EXPECT_EQ(replace("Auth", "x"), 405);
    EXPECT_EQ(replace("Auth/AuthPw", "x"), 404);
    EXPECT_EQ(replace("Linger", "x"), 415);
    EXPECT_EQ(code(tree.replaceChildren(profile("Nobody"), {{"Addr", "a"}})), 404);
    EXPECT_EQ(code(tree.replaceChildren(uri("./DevInfo"), {{"Man", "a"}})), 405);
    EXPECT_EQ(memory->calls, Calls());
}

TEST_F(ReplaceTest, ABulkReplaceStopsAtTheChildThatThePluginRefuses)
{
    memory->failures = {{"set Office/Linger", 1}};
    EXPECT_EQ(code(tree.replaceChildren(profile("Office"),
                                        {{"Addr", "a"}, {"Linger", "7"}, {"Enabled", "false"}})),
              500);
    EXPECT_EQ(read(profile("Office/Addr")), "a");
    EXPECT_EQ(read(profile("Office/Enabled")), "true");
}

// ---- Renaming and deleting -----------------------------------------------------------------------

class RenameTest : public ManagementTreeTest {
protected:
    int rename(const NodeUri &node, const char *newName)
    {
        return code(tree.replaceProperty(node, Property::Name, newName));
    }
};

TEST_F(RenameTest, ANodeMovesWithEverythingBeneathIt)
{
    EXPECT_EQ(rename(profile("Office"), "Work"), 200);
    EXPECT_EQ(read(profile("Work/Auth/AuthPw")), "secret");
    EXPECT_EQ(code(tree.find(profile("Office")).outcome()), 404);
}

TEST_F(RenameTest, ATakenNameIsRefused)
{
    EXPECT_EQ(rename(profile("Office"), "Home"), 418);
}

TEST_F(RenameTest, PermanentNodesKeepTheirNames)
{
    for (const char *node : {".", "./DevInfo", "./DevInfo/Man", "./Ext", mountRoot})
        EXPECT_EQ(rename(uri(node), "Other"), 405) << node;
    EXPECT_EQ(memory->calls, Calls());
}

TEST_F(RenameTest, ANameThatNoNodeCanHaveIsRefused)
{
    for (const char *name : {"", ".", "..", "*", "a/b"})
        EXPECT_EQ(rename(profile("Office"), name), 405) << name;
    EXPECT_EQ(rename(profile("Office"), "a name of 21 letters."), 414);
    EXPECT_EQ(rename(profile("Office"), "a name of 20 letters"), 200);
}

TEST_F(RenameTest, TheNewNameIsPlainTextAndNotEscaped)
{
    EXPECT_EQ(rename(profile("Office"), "100%25"), 200);
    EXPECT_EQ(childrenOf(uri(mountRoot)), "100%25 Home");
}

TEST_F(RenameTest, AMissingNodeIsNotFound)
{
    EXPECT_EQ(rename(profile("Nobody"), "a/b"), 404);
}

TEST_F(RenameTest, ThePluginHasTheLastWord)
{
    memory->failures = {{"rename Office/Addr", 1}};
    EXPECT_EQ(rename(profile("Office/Addr"), "Host"), 500);
}

class DeleteTest : public ManagementTreeTest {};

TEST_F(DeleteTest, ANodeGoesWithEverythingBeneathIt)
{
    EXPECT_EQ(code(tree.remove(profile("Office"))), 200);
    EXPECT_EQ(childrenOf(uri(mountRoot)), "Home");
    EXPECT_EQ(code(tree.find(profile("Office/Auth/AuthPw")).outcome()), 404);
}

TEST_F(DeleteTest, AMissingNodeIsNotFoundAlthoughAPluginMayNotMind)
{
    EXPECT_EQ(code(tree.remove(profile("Nobody"))), 404);
    EXPECT_EQ(memory->calls, Calls());
}

TEST_F(DeleteTest, PermanentNodesStay)
{
    for (const char *node : {".", "./DevInfo", "./DevDetail/URI/MaxDepth", "./Ext", mountRoot})
        EXPECT_EQ(code(tree.remove(uri(node))), 405) << node;
    EXPECT_EQ(memory->calls, Calls());
}

TEST_F(DeleteTest, ThePluginHasTheLastWord)
{
    memory->failures = {{"delete Office", 1}};
    EXPECT_EQ(code(tree.remove(profile("Office"))), 500);
}

// ---- Copying and executing -----------------------------------------------------------------------

class CopyTest : public ManagementTreeTest {
protected:
    int copy(const char *source, const char *target)
    {
        return code(tree.copy(profile(source), profile(target)));
    }
};

TEST_F(CopyTest, AValueOverwritesTheTargetsValue)
{
    EXPECT_EQ(copy("Home/Addr", "Office/Addr"), 200);
    EXPECT_EQ(read(profile("Office/Addr")), "home.example");
    tree.replace(profile("Home/Addr"), text("changed"));
    EXPECT_EQ(read(profile("Office/Addr")), "home.example");
}

TEST_F(CopyTest, AMissingTargetIsAddedWithTheSourcesFormat)
{
    EXPECT_EQ(copy("Office/Linger", "Home/Linger"), 200);
    EXPECT_EQ(read(profile("Home/Linger")), "30");
    EXPECT_EQ(tree.find(profile("Home/Linger"))->valueType(), DmtData::Int);
}

TEST_F(CopyTest, OnlyLeavesAreCopied)
{
    EXPECT_EQ(copy("Office", "New"), 406);
    EXPECT_EQ(copy("Office/Addr", "Home"), 406);
}

TEST_F(CopyTest, BothEndsHaveToExistOrBeAddable)
{
    EXPECT_EQ(copy("Nobody/Addr", "Office/Addr"), 404);
    EXPECT_EQ(copy("Office/Addr", "Nobody/Addr"), 404);
    EXPECT_EQ(copy("Office/Addr", "Office/Addr/Deeper"), 405);
    EXPECT_EQ(code(tree.copy(profile("Office/Addr"), uri("./DevInfo/Man"))), 405);
    EXPECT_EQ(code(tree.copy(profile("Office/Addr"), uri("./DevInfo/New"))), 405);
}

TEST_F(CopyTest, FormatsHaveToAgree)
{
    EXPECT_EQ(copy("Office/Linger", "Office/Addr"), 415);
}

TEST_F(CopyTest, AnUnreadableSourceChangesNothing)
{
    memory->failures = {{"get Home/Addr", 1}};
    EXPECT_EQ(copy("Home/Addr", "Office/Addr"), 500);
    EXPECT_EQ(copy("Home/Addr", "Office/New"), 500);
    EXPECT_EQ(read(profile("Office/Addr")), "internet");
    EXPECT_EQ(read(profile("Office/New")), "404");
}

TEST_F(CopyTest, ALeafWithoutAValueIsNotCopied)
{
    EXPECT_EQ(copy("Office/Port", "Office/Linger"), 403);
    EXPECT_EQ(copy("Office/Port", "Home/Port"), 403);
    EXPECT_EQ(read(profile("Office/Linger")), "30");
}

using ExecuteTest = MountedTree;

TEST_F(ExecuteTest, TheNodeGetsTheArgumentAndItsStatusIsTheAnswer)
{
    memory->executables = {{"Office", ""}};
    EXPECT_EQ(code(tree.execute(profile("Office"), "now")), 200);
    EXPECT_EQ(code(tree.execute(profile("Office"), "")), 200);
    for (const auto &[status, answer] :
         {std::pair(DMT_FAILED, 500), std::pair(DMT_NOT_ALLOWED, 405),
          std::pair(DMT_UNSUPPORTED_FORMAT, 415)}) {
        memory->failures["execute Office later"] = status;
        EXPECT_EQ(code(tree.execute(profile("Office"), "later")), answer);
    }
    EXPECT_EQ(memory->calls[0], "execute Office now");
    EXPECT_EQ(memory->calls[1], "execute Office ");
}

TEST_F(ExecuteTest, NodesThatStandForNothingAndTheClientsOwnAreNotAllowed)
{
    EXPECT_EQ(code(tree.execute(profile("Office"), "")), 405);
    EXPECT_EQ(code(tree.execute(profile("Office/Addr"), "")), 405);
    EXPECT_EQ(code(tree.execute(uri("./DevInfo"), "")), 405);
    EXPECT_EQ(code(tree.execute(uri("./Ext"), "")), 405);
    EXPECT_EQ(code(tree.execute(profile("Nobody"), "")), 404);
}

TEST_F(ExecuteTest, WhatItDeletesLosesItsProperties)
{
    memory->executables = {{"Office", "Home"}};
    ASSERT_TRUE(tree.replaceProperty(profile("Home"), Property::Acl, "Get=a.example"));
    ASSERT_TRUE(tree.replaceProperty(profile("Office"), Property::Acl, "Exec=a.example"));
    ASSERT_TRUE(tree.execute(profile("Office"), ""));
    EXPECT_EQ(code(tree.find(profile("Home")).outcome()), 404);
    ASSERT_TRUE(tree.add(profile("Home"), typed("node", "")));
    EXPECT_EQ(*tree.property(*tree.find(profile("Home")), Property::Acl), QByteArray());
    EXPECT_EQ(*tree.property(*tree.find(profile("Office")), Property::Acl), "Exec=a.example");
}

} // namespace

} // namespace client
