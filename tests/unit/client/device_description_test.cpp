// The device description: its document, and that it says of the tree what the tree is.

#include "ddf.h"
#include "ddf_check.h"
#include "mounted_tree.h"
#include "node_description.h"

#include <QFile>
#include <QRegularExpression>

namespace client {

namespace {

QByteArray contents(const QString &path)
{
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << path.toStdString();
    return file.readAll();
}

// ---- The check itself ----------------------------------------------------------------------------

TEST(DescriptionCheckTest, FindsWhatTheDtdDoesNotAllow)
{
    const auto check = [](const char *inside) {
        return faultsOfDescription(QByteArray("<MgmtTree><VerDTD>1.2</VerDTD>") + inside +
                                   "</MgmtTree>");
    };
    EXPECT_TRUE(check("<Node><NodeName>A</NodeName></Node>").empty());
    EXPECT_FALSE(check("").empty());
    EXPECT_FALSE(check("<Node><NodeName>A</NodeName>text</Node>").empty());
    EXPECT_FALSE(check("<Node><Path>.</Path><NodeName>A</NodeName></Node>").empty());
    EXPECT_FALSE(
        check("<Node><NodeName>A</NodeName><Value>1</Value><Node><NodeName/></Node></Node>")
            .empty());
    EXPECT_FALSE(check("<Node><NodeName>A</NodeName><Colour/></Node>").empty());
    EXPECT_FALSE(check("<Node><NodeName/><Node><NodeName/><Path>.</Path></Node></Node>").empty());
    EXPECT_FALSE(check("<Node><NodeName>A</NodeName><RTProperties><Format><chr/></Format>"
                       "</RTProperties></Node>")
                     .empty());
    EXPECT_FALSE(check("<Node>").empty());
}

// ---- The document --------------------------------------------------------------------------------

TEST(DeviceDescriptionTest, IsValid)
{
    EXPECT_EQ(faultsOfDescription(deviceDescriptionDocument()), std::vector<std::string>());
}

TEST(DeviceDescriptionTest, NamesItsDtd)
{
    EXPECT_TRUE(deviceDescriptionDocument().contains(
        "<!DOCTYPE MgmtTree PUBLIC \"-//OMA//DTD-DM-DDF 1.2//EN\" "
        "\"http://www.openmobilealliance.org/tech/DTD/dm_ddf-v1_2.dtd\">"));
    EXPECT_TRUE(deviceDescriptionDocument().contains("<VerDTD>1.2</VerDTD>"));
}

TEST(DeviceDescriptionTest, StandsInTheDocumentationAsItIs)
{
    // "dmclient ddf" prints it.
    EXPECT_EQ(deviceDescriptionDocument(),
              contents(QStringLiteral(KUB_SOURCE_FOLDER "/docs/ddf/kub-dm.xml")));
}

TEST(DeviceDescriptionTest, HasEveryMountedRootWithThePathToIt)
{
    const QString document = QString::fromUtf8(deviceDescriptionDocument());
    const auto hasRoot = [&document](const char *name, const char *path) {
        const QRegularExpression node(
            QStringLiteral("<NodeName>%1</NodeName>\\s*<Path>%2</Path>")
                .arg(QString::fromLatin1(name),
                     QRegularExpression::escape(QString::fromLatin1(path))));
        return document.contains(node);
    };
    EXPECT_TRUE(hasRoot("Profiles", "./DevDetail/Ext/Conf/Conn"));
    EXPECT_TRUE(hasRoot("Profiles", "./DevDetail/Ext/Conf/IntProfs"));
    EXPECT_TRUE(hasRoot("DMAcc", "."));
    EXPECT_TRUE(hasRoot("DevInfo", "."));
    EXPECT_TRUE(hasRoot("DevDetail", "."));
}

TEST(DeviceDescriptionTest, NodesAreFoundByTheirAddress)
{
    const auto describe = [](const char *uri) {
        return descriptionOf(parseAddress(QString::fromLatin1(uri), {})->node);
    };
    constexpr char profiles[] = "./DevDetail/Ext/Conf/Conn/Profiles";
    EXPECT_STREQ(describe(profiles)->name, "Profiles");
    EXPECT_STREQ(describe("./DevDetail/Ext/Conf/Conn/Profiles/Any name")->name, "");
    EXPECT_EQ(describe("./DevDetail/Ext/Conf/Conn/Profiles/Any name/Linger")->format, DmtData::Int);
    EXPECT_EQ(describe("./DevDetail/Ext/Conf/IntProfs/Profiles/X/Ph2/Port/PortNbr")->format,
              DmtData::Int);
    EXPECT_STREQ(describe("./DMAcc/X/AppAuth/1/AAuthSecret")->name, "AAuthSecret");
    for (const char *const undescribed :
         {".", "./Other", "./DevDetail/Ext", "./DevDetail/Ext/Conf/Conn",
          "./DevDetail/Ext/Conf/Conn/Profiles/X/Other",
          "./DevDetail/Ext/Conf/Conn/Profiles/X/Addr/Deeper", "./DevInfo/Other"})
        EXPECT_EQ(describe(undescribed), nullptr) << undescribed;
}

// ---- What it says is what holds ------------------------------------------------------------------

class DescribedNodesTest : public MountedTree {
protected:
    /// Nodes beneath the start that are not described, or are described otherwise.
    std::vector<std::string> contradictions(const NodeUri &start) const
    {
        std::vector<std::string> found;
        for (const ListedNode &listed : tree.list(*tree.find(start), TreeView::Values::Omit)) {
            const NodeDescription *const description = descriptionOf(listed.node.uri());
            if (!description || description->format != listed.node.valueType())
                found.push_back(listed.node.uri().toDisplay().toStdString());
        }
        return found;
    }
};

TEST_F(DescribedNodesTest, TheClientsOwnNodesAreAsTheyAreDescribed)
{
    EXPECT_EQ(contradictions(uri("./DevInfo")), std::vector<std::string>());
    EXPECT_EQ(contradictions(uri("./DevDetail")), std::vector<std::string>());
    EXPECT_EQ(tree.type(*tree.find(uri("./DevInfo"))),
              QStringLiteral("urn:oma:mo:oma-dm-devinfo:1.0"));
}

/// A tree at the place of a plug-in's, where the descriptions hold.
class AccessTypesTest : public MountedTree {
protected:
    AccessTypesTest()
    {
        accounts->addInterior("X");
        accounts->addInterior("X/AppAuth");
        accounts->addInterior("X/AppAuth/1");
        accounts->addLeaf("X/AppAuth/1/AAuthSecret", DmtData("secret"));
        accounts->addLeaf("X/AppAuth/1/AAuthLevel", DmtData("CLCRED"));
        managementTree.mount(uri("./DMAcc"), accounts, {.acl = acl("Get=Nobody")});
        useAs(Principal::server("S"));
        accounts->calls.clear();
    }

    JemSmartPtr<MemoryTree> accounts = MemoryTree::create();
};

TEST_F(AccessTypesTest, AMissingAccessTypeIsFoundBeforeAMissingRightAndWithoutThePlugin)
{
    const NodeUri secret = uri("./DMAcc/X/AppAuth/1/AAuthSecret");
    const NodeUri level = uri("./DMAcc/X/AppAuth/1/AAuthLevel");
    EXPECT_EQ(code(tree.value(*tree.find(secret)).outcome()), 405);
    EXPECT_EQ(code(tree.value(*tree.find(level)).outcome()), 425);
    EXPECT_EQ(code(tree.replace(level, text("x"))), 405);
    EXPECT_EQ(code(tree.replace(secret, text("x"))), 425);
    EXPECT_EQ(code(tree.remove(level)), 405);
    EXPECT_EQ(code(tree.remove(uri("./DMAcc/X"))), 405);
    EXPECT_EQ(code(tree.add(uri("./DMAcc/Y"), typed("node", ""))), 405);
    EXPECT_EQ(code(tree.add(uri("./DMAcc/X/Y"), typed("chr", ""))), 405);
    EXPECT_EQ(code(tree.replaceProperty(uri("./DMAcc/X"), Property::Name, "Y")), 405);
    EXPECT_EQ(code(tree.copy(secret, profile("Home/Addr"))), 405);
    EXPECT_EQ(code(tree.copy(secret, profile("Home/New"))), 405);
    EXPECT_EQ(code(tree.copy(profile("Home/Addr"), level)), 405);
    EXPECT_EQ(code(tree.replaceChildren(uri("./DMAcc/X/AppAuth/1"), {{"AAuthLevel", "x"}})), 405);
    EXPECT_EQ(accounts->calls, std::vector<std::string>());
}

/// Profiles at the place of the plug-in's.
class DescribedProfilesTest : public MountedTree {
protected:
    DescribedProfilesTest()
    {
        profiles->addInterior("Office");
        profiles->addLeaf("Office/Addr", DmtData("x"));
        profiles->addInterior("Office/Auth");
        managementTree.mount(uri(root), profiles);
    }
    static NodeUri node(const char *path) { return uri((QByteArray(root) + path).constData()); }

    static constexpr char root[] = "./DevDetail/Ext/Conf/Conn/Profiles";
    const JemSmartPtr<MemoryTree> profiles = MemoryTree::create();
};

TEST_F(DescribedProfilesTest, ANodeWhoseNameIsFixedIsNotRenamed)
{
    const auto rename = [this](const char *path) {
        return code(tree.replaceProperty(node(path), Property::Name, "New"));
    };
    EXPECT_EQ(rename("/Office/Addr"), 405);
    EXPECT_EQ(rename("/Office/Auth"), 405);
    EXPECT_EQ(profiles->calls, std::vector<std::string>());
    EXPECT_EQ(rename("/Office"), 200);
}

TEST_F(DescribedProfilesTest, ALeafIsNotAddedWithATypeThatItCannotHave)
{
    const auto add = [this](const char *path, const char *type) {
        return code(tree.add(node(path), {QStringLiteral("chr"), QString::fromLatin1(type), "1"}));
    };
    EXPECT_EQ(add("/Office/DNS1", "image/png"), 415);
    EXPECT_EQ(profiles->calls, std::vector<std::string>());
    EXPECT_EQ(add("/Office/DNS1", "text/plain"), 200);
    EXPECT_EQ(add("/Office/DNS2", ""), 200);
}

TEST_F(AccessTypesTest, TheSizeOfASecretIsAsUnreadableAsTheSecret)
{
    useAs(Principal::owner());
    const TreeNode secret = *tree.find(uri("./DMAcc/X/AppAuth/1/AAuthSecret"));
    EXPECT_EQ(code(tree.property(secret, Property::Size).outcome()), 405);
    EXPECT_EQ(tree.property(secret, Property::Format)->toStdString(), "chr");
}

} // namespace

} // namespace client
