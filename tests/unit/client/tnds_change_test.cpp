// Serialised trees of a server: all of one or nothing, by the rules of single commands.

#include "processor_fixture.h"

namespace client {

namespace {

using syncml::CommandKind;
using syncml::Item;

QByteArray named(const char *name, const QByteArray &rest = "")
{
    return "<Node><NodeName>" + QByteArray(name) + "</NodeName>" + rest + "</Node>";
}

QByteArray leaf(const char *name, const char *format, const QByteArray &value,
                const QByteArray &properties = "")
{
    return named(name, "<RTProperties><Format><" + QByteArray(format) + "/></Format>" + properties +
                           "</RTProperties><Value>" + value + "</Value>");
}

QByteArray interior(const char *name, const QByteArray &children, const QByteArray &properties = "")
{
    return named(name, "<RTProperties><Format><node/></Format>" + properties + "</RTProperties>" +
                           children);
}

class TndsChangeTest : public CommandProcessorTest {
protected:
    static Item payload(const QByteArray &uri, const QByteArray &nodes, const char *format = "xml",
                        const char *encoding = "xml")
    {
        Item item = target(uri, "<MgmtTree><VerDTD>1.2</VerDTD>" + nodes + "</MgmtTree>");
        item.meta.emplace();
        item.meta->format = QString::fromLatin1(format);
        item.meta->type =
            QStringLiteral("application/vnd.syncml.dmtnds+") + QString::fromLatin1(encoding);
        return item;
    }
    /// The status of the command, and the reason that people are told.
    int change(CommandKind kind, const Item &item)
    {
        CommandProcessor processor(managementTree, principal);
        reason.clear();
        processor.setOutcomeListener([this](const auto &, const auto &, const Outcome &outcome) {
            reason = outcome.reason;
        });
        std::vector<syncml::Command> answers;
        processor.run(command(kind, {item}), answers);
        EXPECT_EQ(answers.size(), 1u);
        return answers.at(0).data->toInt();
    }
    int add(const char *path, const QByteArray &nodes)
    {
        return change(CommandKind::Add, payload(profileUri(path), nodes));
    }
    int replace(const char *path, const QByteArray &nodes)
    {
        return change(CommandKind::Replace, payload(profileUri(path), nodes));
    }
    /// Every node beneath a node with its value and what is kept of it.
    std::string picture(const NodeUri &top)
    {
        const TreeView owners = ownersTree();
        std::string text;
        for (const ListedNode &listed : owners.list(*owners.find(top), TreeView::Values::Read)) {
            text += listed.node.uri().toDisplay().mid(top.toDisplay().size()).toStdString();
            if (listed.value && *listed.value)
                text += "=" + valueText(**listed.value).toStdString();
            for (const Property property : {Property::Acl, Property::Title, Property::VerNo})
                text += " " + owners.property(listed.node, property)->toStdString();
            text += '\n';
        }
        return text;
    }
    std::string valuesBeneath(const char *path)
    {
        std::string text;
        const TreeView owners = ownersTree();
        const NodeUri top = profile(path);
        for (const ListedNode &listed : owners.list(*owners.find(top), TreeView::Values::Read))
            if (listed.value && *listed.value)
                text +=
                    (text.empty() ? "" : " ") +
                    listed.node.uri().toDisplay().mid(top.toDisplay().size() + 1).toStdString() +
                    "=" + valueText(**listed.value).toStdString();
        return text;
    }
    std::string aclOf(const char *path)
    {
        const TreeView owners = ownersTree();
        return owners.property(*owners.find(profile(path)), Property::Acl)->toStdString();
    }
    void setAcl(const char *path, const char *list)
    {
        ASSERT_TRUE(ownersTree().replaceProperty(profile(path), Property::Acl, list));
    }

    QString reason;
};

const QByteArray newProfile =
    interior("New", leaf("Addr", "chr", "new.example") + leaf("Linger", "int", "7") +
                        interior("Auth", leaf("AuthPw", "chr", "s3cret")));

// ---- Add -----------------------------------------------------------------------------------------

TEST_F(TndsChangeTest, AddMakesEveryNodeWithItsValueAndItsProperties)
{
    EXPECT_EQ(
        add("New", interior("New",
                            leaf("Addr", "chr", "new.example",
                                 "<Title>Address</Title><Type><MIME>text/plain</MIME></Type>") +
                                leaf("Key", "b64", "AQI="),
                            "<ACL>Get=*</ACL><Type><DDFName>com.example/1.0</DDFName></Type>")),
        200)
        << reason.toStdString();
    EXPECT_EQ(valuesBeneath("New"), "Addr=new.example Key=AQI=");
    EXPECT_EQ(aclOf("New"), "Get=*");
    EXPECT_EQ(tree.type(*tree.find(profile("New"))), QStringLiteral("com.example/1.0"));
    EXPECT_EQ(*tree.property(*tree.find(profile("New/Addr")), Property::Title), "Address");
}

TEST_F(TndsChangeTest, TheDocumentMayComeInBase64AndInEitherEncoding)
{
    // MgmtTree > VerDTD, Node > NodeName, Node > NodeName, RTProperties > Format > int, Value
    const QByteArray wbxml =
        QByteArray::fromHex("02016a000002607703312e3200016466034e6577000164660341"
                            "00016f5c1e0101760337000101"
                            "0101");
    Item item = payload(profileUri("New"), "", "bin", "wbxml");
    item.data = wbxml;
    EXPECT_EQ(change(CommandKind::Add, item), 200) << reason.toStdString();
    EXPECT_EQ(valuesBeneath("New"), "A=7");
    item.target = location(profileUri("Third"));
    item.data = QByteArray(wbxml).replace("New", "").toBase64();
    EXPECT_EQ(change(CommandKind::Add, item), 200) << reason.toStdString();
    EXPECT_EQ(valuesBeneath("Third"), "A=7");
    item.target = location(profileUri("Fourth"));
    item.data = "neither";
    EXPECT_EQ(change(CommandKind::Add, item), 415);
    item.data = std::nullopt;
    EXPECT_EQ(change(CommandKind::Add, item), 412);
}

TEST_F(TndsChangeTest, WhatAGetAnswersCanBeAddedAndReplaced)
{
    ASSERT_TRUE(tree.remove(profile("Office/Port"))); // without a value there is none to give back
    const auto answers =
        answersTo(command(CommandKind::Get, {target(profileUri("Office?list=TNDS+Value+Format"))}));
    Item item = payload(profileUri("Office"), "");
    item.data = answers.at(1).items.at(0).data;
    const std::string before = valuesBeneath("Office");
    EXPECT_EQ(change(CommandKind::Add, item), 418);
    EXPECT_EQ(change(CommandKind::Replace, item), 200) << reason.toStdString();
    EXPECT_EQ(valuesBeneath("Office"), before);
    ASSERT_TRUE(tree.remove(profile("Office")));
    EXPECT_EQ(change(CommandKind::Add, item), 200) << reason.toStdString();
    EXPECT_EQ(valuesBeneath("Office"), before);
}

struct Place {
    const char *name;
    const char *target;
    const char *nodeName;
    const char *path;
    const char *made; ///< the node, or the status
};

class TndsPlace : public TndsChangeTest, public testing::WithParamInterface<Place> {};

TEST_P(TndsPlace, IsAtOrBeneathTheTarget)
{
    const Place &place = GetParam();
    const QByteArray path = *place.path ? QByteArray("<Path>") + place.path + "</Path>" : "";
    const std::string before = picture(uri("."));
    const int status = add(place.target, "<Node><NodeName>" + QByteArray(place.nodeName) +
                                             "</NodeName>" + path + "</Node>");
    if (status != 200) {
        EXPECT_EQ(std::to_string(status), place.made) << reason.toStdString();
        EXPECT_EQ(picture(uri(".")), before);
        return;
    }
    EXPECT_TRUE(tree.find(profile(place.made))) << place.made;
}

const Place places[] = {
    {"TheTargetsName", "New", "New", "", "New"},
    {"NoName", "New", "", "", "New"},
    {"AnotherName", "Home", "New", "", "Home/New"},
    {"EscapedName", "Home", "a%20b", "", "Home/a%20b"},
    {"PathFromTheRoot", "New", "New", "./Ext/Profiles", "New"},
    {"PathFromTheRootBeneath", "Office", "New", "./Ext/Profiles/Office/Auth", "Office/Auth/New"},
    {"RelativePath", "Office", "New", "Auth", "Office/Auth/New"},
    {"RelativePathWithADot", "Office", "New", "./Auth", "Office/Auth/New"},
    {"PathToASibling", "Office", "New", "./Ext/Profiles/Home", "404"},
    {"PathToTheRoot", "Office", "New", ".", "Office/New"},
    {"PathUpwards", "Office", "New", "../Home", "404"},
    {"PathOfAProperty", "Office", "New", "Auth?prop=ACL", "404"},
    {"NameWithASlash", "Office", "Auth/New", "", "405"},
    {"NameWithAnEscapedSlash", "Office", "Auth%2FNew", "", "405"},
    {"NameOfTheParent", "Office", "..", "", "404"},
    {"NameWithAQuery", "Office", "New?prop=ACL", "", "405"},
    {"NameOfEveryNode", "Office", "*", "", "404"},
    {"MissingAncestor", "Nobody", "New", "", "404"},
    {"BeneathALeaf", "Office/Addr", "New", "", "405"},
};

INSTANTIATE_TEST_SUITE_P(, TndsPlace, testing::ValuesIn(places),
                         [](const auto &info) { return std::string(info.param.name); });

TEST_F(TndsChangeTest, AddressesBeyondTheLimitsAreTooLong)
{
    QByteArray deep = named("x");
    for (int i = 0; i < 20; ++i)
        deep = named("x", deep);
    EXPECT_EQ(add("New", named("New", deep)), 414);
    EXPECT_EQ(add("New", named("New", named(QByteArray(300, 'x').constData()))), 414);
    EXPECT_FALSE(tree.find(profile("New")));
}

// ---- All or nothing ------------------------------------------------------------------------------

struct Fault {
    const char *name;
    QByteArray lastNode; ///< of a tree that is otherwise right
    int status;
    const char *reason;
};

class TndsFault : public TndsChangeTest, public testing::WithParamInterface<Fault> {};

TEST_P(TndsFault, LeavesTheTreeAsItWasAndNamesTheNode)
{
    const std::string before = picture(uri("."));
    memory->failures = {{"create New/Broken", 1}, {"create Home/Broken", 1}};
    const QByteArray children = leaf("First", "chr", "x") + GetParam().lastNode;
    EXPECT_EQ(add("New", interior("New", children)), GetParam().status);
    EXPECT_EQ(reason.toStdString(), GetParam().reason);
    EXPECT_EQ(picture(uri(".")), before);
    EXPECT_EQ(replace("Home", interior("Home", children)), GetParam().status);
    EXPECT_EQ(reason.toStdString(), QString::fromLatin1(GetParam().reason)
                                        .replace(QStringLiteral("/New"), QStringLiteral("/Home"))
                                        .toStdString());
    EXPECT_EQ(picture(uri(".")), before);
}

const Fault faults[] = {
    {"Value", leaf("A", "int", "seven"), 415,
     "./Ext/Profiles/New/A of the serialised tree: the value is not a 32-bit decimal number"},
    {"Format", leaf("A", "date", "20260101"), 415,
     "./Ext/Profiles/New/A of the serialised tree: no node here can have the format date"},
    {"NoFormat", named("A", "<Value>x</Value>"), 415,
     "./Ext/Profiles/New/A of the serialised tree: a new node needs a format"},
    {"LeafWithNodes",
     named("A", "<RTProperties><Format><chr/></Format></RTProperties>" + named("B")), 415,
     "./Ext/Profiles/New/A of the serialised tree: a node of the format chr has none beneath it"},
    {"Twice", leaf("First", "chr", "y"), 418,
     "./Ext/Profiles/New/First of the serialised tree: it stands there twice"},
    {"Refused", leaf("Broken", "chr", "y"), 500,
     "./Ext/Profiles/New/Broken of the serialised tree: the plug-in refused it"},
    {"List", leaf("A", "chr", "y", "<ACL>Rule=*</ACL>"), 500,
     "./Ext/Profiles/New/A of the serialised tree: malformed ACL: "
     "\"Rule=*\" does not begin with Add=, Delete=, Exec=, Get= or Replace="},
    {"Title", leaf("A", "chr", "y", "<Title>" + QByteArray(300, 'x') + "</Title>"), 413,
     "./Ext/Profiles/New/A of the serialised tree: a title of more than 255 bytes"},
};

INSTANTIATE_TEST_SUITE_P(, TndsFault, testing::ValuesIn(faults),
                         [](const auto &info) { return std::string(info.param.name); });

TEST_F(TndsChangeTest, WhatThePluginKeepsInSpiteOfARefusalIsTakenBackToo)
{
    memory->failures = {{"create New/Auth", 1}};
    const std::string before = picture(uri("."));
    EXPECT_EQ(add("New", newProfile), 500);
    EXPECT_EQ(picture(uri(".")), before);
    // What cannot be taken back is told.
    memory->failures = {{"create New/Auth", 1}, {"delete New", 1}};
    EXPECT_EQ(add("New", newProfile), 500);
    EXPECT_TRUE(reason.endsWith(QStringLiteral("taken back, but not everything is as it was")))
        << reason.toStdString();
}

TEST_F(TndsChangeTest, InAnAtomicItIsTakenBackWithTheRest)
{
    const std::string before = picture(uri("."));
    const Lines lines = run(group(
        CommandKind::Atomic,
        {command(CommandKind::Add, {payload(profileUri("New"), newProfile)}, "a"),
         command(CommandKind::Replace, {payload(profileUri("Home"), interior("Home", ""))}, "b"),
         command(CommandKind::Delete, {target(profileUri("Nobody"))}, "c")}));
    EXPECT_EQ(lines[0], "Status g Atomic 507");
    EXPECT_EQ(lines[1].substr(0, 16), "Status a Add 216");
    EXPECT_EQ(lines[2].substr(0, 20), "Status b Replace 216");
    EXPECT_EQ(picture(uri(".")), before);
}

// ---- Replace -------------------------------------------------------------------------------------

TEST_F(TndsChangeTest, ReplaceLeavesNothingOfWhatWasBeneath)
{
    EXPECT_EQ(replace("Office", interior("Office", leaf("Addr", "chr", "other.example") +
                                                       leaf("New", "int", "1"))),
              200)
        << reason.toStdString();
    EXPECT_EQ(valuesBeneath("Office"), "Addr=other.example New=1");
    EXPECT_EQ(childrenOf(profile("Office")), "Addr New");
}

TEST_F(TndsChangeTest, ReplaceOfALeafIsOfItsValue)
{
    EXPECT_EQ(replace("Home/Addr", leaf("Addr", "chr", "x")), 200);
    EXPECT_EQ(read(profile("Home/Addr")), "x");
    EXPECT_EQ(replace("Home/Addr", leaf("Addr", "int", "1")), 415);
    EXPECT_EQ(replace("Home/Addr", interior("Addr", named("New"))), 415);
}

TEST_F(TndsChangeTest, ReplaceNeedsTheTargetAndBeginsWithIt)
{
    EXPECT_EQ(replace("Nobody", interior("Nobody", "")), 404);
    EXPECT_EQ(replace("Office", named("Addr")), 400);
    EXPECT_EQ(replace("Office", named("Other")), 400);
    EXPECT_EQ(change(CommandKind::Replace, payload(".", named(""))), 405);
    EXPECT_EQ(change(CommandKind::Replace, payload("./DevInfo", interior("DevInfo", ""))), 405);
    EXPECT_EQ(read(profile("Office/Addr")), "internet");
}

// ---- Rights --------------------------------------------------------------------------------------

class TndsRightsTest : public TndsChangeTest {
protected:
    TndsRightsTest() { principal = Principal::server("evil.example"); }
};

TEST_F(TndsRightsTest, AddingNeedsAddAndItsCreatorRulesTheNewNode)
{
    ASSERT_TRUE(ownersTree().replaceProperty(uri(mountRoot), Property::Acl, "Get=*"));
    EXPECT_EQ(add("New", newProfile), 425);
    ASSERT_TRUE(ownersTree().replaceProperty(uri(mountRoot), Property::Acl, "Add=*&Get=*"));
    EXPECT_EQ(add("New", newProfile), 200) << reason.toStdString();
    EXPECT_EQ(aclOf("New"), "Add=evil.example&Delete=evil.example&Get=*&Replace=evil.example");
}

TEST_F(TndsRightsTest, AForeignNodeInTheTreeKeepsAllOfItOut)
{
    setAcl("Office", "Add=*&Get=*&Replace=*");
    setAcl("Office/Auth", "Get=*");
    const std::string before = picture(uri("."));
    EXPECT_EQ(add("Office", named("New") + "<Node><NodeName>X</NodeName><Path>Auth</Path></Node>"),
              425);
    EXPECT_EQ(picture(uri(".")), before);
}

TEST_F(TndsRightsTest, NothingIsDeletedWhenSomethingBeneathTheTargetMayNotBe)
{
    setAcl("Office/Auth", "Get=*");
    const std::string before = picture(uri("."));
    memory->calls.clear();
    EXPECT_EQ(replace("Office", interior("Office", leaf("Addr", "chr", "x"))), 425);
    EXPECT_EQ(picture(uri(".")), before);
    EXPECT_TRUE(std::ranges::none_of(memory->calls,
                                     [](const auto &call) { return call.starts_with("delete "); }));
}

TEST_F(TndsRightsTest, ReplacingNeedsReplaceOnTheTarget)
{
    setAcl("Office", "Add=*&Delete=*&Get=*");
    EXPECT_EQ(replace("Office", interior("Office", "")), 425);
    EXPECT_EQ(childrenOf(profile("Office")), "Addr Linger Enabled Port Auth");
}

TEST_F(TndsRightsTest, AListNeedsTheRightToReplaceIt)
{
    setAcl("Office", "Add=*&Get=*");
    const std::string before = picture(uri("."));
    EXPECT_EQ(add("Office", leaf("New", "chr", "x", "<ACL>Replace=evil.example</ACL>")), 425);
    EXPECT_EQ(picture(uri(".")), before);
}

TEST_F(TndsRightsTest, AListOfOthersDoesNotKeepTheRestOfTheTreeOut)
{
    EXPECT_EQ(add("New", interior("New",
                                  leaf("Addr", "chr", "x", "<ACL>Get=other.example</ACL>") +
                                      interior("Auth", leaf("AuthPw", "chr", "y")),
                                  "<ACL>Get=other.example</ACL>")),
              200)
        << reason.toStdString();
    EXPECT_EQ(aclOf("New"), "Get=other.example");
    EXPECT_EQ(aclOf("New/Addr"), "Get=other.example");
    EXPECT_EQ(valuesBeneath("New"), "Addr=x Auth/AuthPw=y");
}

// ---- Missing ancestors ---------------------------------------------------------------------------

class TndsAncestorsTest : public TndsChangeTest {
protected:
    TndsAncestorsTest()
    {
        profiles->addInterior("Office");
        managementTree.mount(uri(root), profiles, {.acl = acl("Add=*&Delete=*&Get=*&Replace=*")});
    }
    static QByteArray described(const char *path) { return QByteArray(root) + '/' + path; }

    static constexpr char root[] = "./DevDetail/Ext/Conf/IntProfs/Profiles";
    JemSmartPtr<MemoryTree> profiles = MemoryTree::create();
};

TEST_F(TndsAncestorsTest, AreMadeWhereTheyAreDescribed)
{
    EXPECT_EQ(change(CommandKind::Add,
                     payload(described("Office/Ph1/Addr"), named("", "<Value>me</Value>"))),
              200)
        << reason.toStdString();
    EXPECT_EQ(read(uri(described("Office/Ph1/Addr").constData())), "me");
    EXPECT_EQ(change(CommandKind::Add, payload(described("Office/Nothing/Here"), named(""))), 404);
    EXPECT_EQ(change(CommandKind::Add, payload(described("Office/UserEditable/Here"), named(""))),
              404);
}

TEST_F(TndsAncestorsTest, GoWithTheTreeThatFails)
{
    profiles->failures = {{"create Office/Ph1/Addr", 1}};
    EXPECT_EQ(change(CommandKind::Add,
                     payload(described("Office/Ph1/Addr"), named("", "<Value>me</Value>"))),
              500);
    EXPECT_EQ(childrenOf(uri(described("Office").constData())), "");
}

TEST_F(TndsAncestorsTest, TheFormatIsThatOfTheDescription)
{
    const auto addLeaf = [&](const QByteArray &node) {
        return change(CommandKind::Add, payload(described("Office"), node));
    };
    EXPECT_EQ(addLeaf(leaf("UserEditable", "chr", "true")), 415);
    EXPECT_EQ(addLeaf(named("UserEditable", "<Value>true</Value>")), 200);
    // A text that XML cannot carry.
    EXPECT_EQ(addLeaf(interior("Ph1", leaf("Addr", "b64", "YQFi"))), 200) << reason.toStdString();
    EXPECT_EQ(read(uri(described("Office/Ph1/Addr").constData())), "a\x01"
                                                                   "b");
}

} // namespace

} // namespace client
