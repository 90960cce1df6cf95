// Loading plug-ins, right ones and wrong ones.

#include "dm_device.h"
#include "noted.h"

#include "dmnative_control.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <dlfcn.h>
#include <gtest/gtest.h>

namespace client {

namespace {

QString pluginFile(const char *name)
{
    return QStringLiteral(KUB_TEST_PLUGIN_FOLDER "/lib%1.so").arg(QString::fromLatin1(name));
}

constexpr char connRoot[] = "./DevDetail/Ext/Conf/Conn/Profiles";

/// What is said when the plug-in is loaded; empty when it is taken.
std::string problemWith(const char *name)
{
    QString error;
    const auto plugin = madeOrNull(PluginHost::load(pluginFile(name)), error);
    EXPECT_EQ(plugin == nullptr, !error.isEmpty());
    return error.replace(pluginFile(name), QStringLiteral("FILE")).toStdString();
}

/// What is said when a root is asked for.
std::string problemMounting(const char *name, const char *root)
{
    QString error;
    const auto plugin = madeOrNull(PluginHost::load(pluginFile(name)), error);
    if (!plugin)
        return "not loaded: " + error.toStdString();
    const JemSmartPtr<DmtTree> tree = madeOrNull(plugin->treeFor(root), error);
    EXPECT_EQ(!tree, !error.isEmpty());
    return error.replace(pluginFile(name), QStringLiteral("FILE")).toStdString();
}

TEST(PluginHostTest, APluginIsLoadedAndGivesItsTrees)
{
    EXPECT_EQ(problemWith("right_plugin"), "");
    EXPECT_EQ(problemMounting("right_plugin", connRoot), "");
}

TEST(PluginHostTest, LibrariesThatTellNobodyOfTheirCallsAreNoFault)
{
    class NobodyCalls : public call_observer::ProfileCallObserver {
    public:
        bool wantsRecords() const override { return true; }
        bool observe(const call_observer::ProfileCall &) noexcept override
        {
            ADD_FAILURE();
            return true;
        }
    } listener;
    QString error;
    const auto plugin = madeOrNull(PluginHost::load(pluginFile("right_plugin")), error);
    ASSERT_NE(plugin, nullptr) << error.toStdString();
    plugin->observeCalls(&listener, nullptr);
    EXPECT_TRUE(plugin->treeFor(connRoot));
}

TEST(PluginHostTest, AMissingFileIsNamed)
{
    EXPECT_EQ(problemWith("no_such_plugin").find("cannot load the plug-in FILE: "), 0u);
}

TEST(PluginHostTest, AFileThatIsNoLibraryIsNamed)
{
    QString error;
    EXPECT_EQ(madeOrNull(PluginHost::load(QStringLiteral("/etc/hostname")), error), nullptr);
    EXPECT_TRUE(error.contains(QStringLiteral("/etc/hostname"))) << error.toStdString();
}

TEST(PluginHostTest, AnUndefinedSymbolIsFoundWhenThePluginIsLoadedAndNotLater)
{
    const std::string problem = problemWith("plugin_with_undefined_symbol");
    EXPECT_NE(problem.find("SymbolThatNobodyDefines"), std::string::npos) << problem;
}

TEST(PluginHostTest, AnotherInterfaceVersionIsRefused)
{
    EXPECT_EQ(problemWith("plugin_of_old_version"),
              "the plug-in FILE has interface version 0x10000; this client needs 0x10001");
}

TEST(PluginHostTest, BothExportsAreRequired)
{
    EXPECT_EQ(problemWith("plugin_without_version"),
              "FILE is not a plug-in: it does not export DMT_PluginLib_GetAPIVersion");
    EXPECT_EQ(problemWith("plugin_without_tree"),
              "FILE is not a plug-in: it does not export DMT_PluginLib_Data_GetPluginTree");
}

TEST(PluginHostTest, ARootThatIsNotServedIsNamed)
{
    EXPECT_EQ(problemMounting("plugin_of_one_root", "./X/IntProfs"),
              "the plug-in FILE did not mount ./X/IntProfs: it does not serve this root");
}

TEST(PluginHostTest, ARootThatCannotBeLoadedIsNamedWithTheStatus)
{
    EXPECT_EQ(problemMounting("plugin_that_cannot_load", connRoot),
              std::string("the plug-in FILE did not mount ") + connRoot + ": status 1");
}

TEST(PluginHostTest, ASuccessWithoutATreeIsAFailure)
{
    EXPECT_EQ(problemMounting("plugin_that_lies", connRoot),
              std::string("the plug-in FILE did not mount ") + connRoot +
                  ": it reported success without a tree");
}

// ---- The whole device ----------------------------------------------------------------------------

class DmDeviceTest : public testing::Test {
protected:
    /// A device whose roots nothing has needed yet.
    std::unique_ptr<DmDevice> openUnmounted(const char *plugin)
    {
        auto device = madeOrNull(
            DmDevice::open({.stateDirectory = directory.filePath(QStringLiteral("state")),
                            .profilePlugin = pluginFile(plugin)}),
            error);
        return device && noted(device->makeTree(), error) ? std::move(device) : nullptr;
    }
    std::unique_ptr<DmDevice> open(const char *plugin)
    {
        auto device = openUnmounted(plugin);
        const bool isMounted =
            device &&
            noted(device->tree().mountFor(NodeUri(), ManagementTree::Use::ReadAll), error);
        return isMounted ? std::move(device) : nullptr;
    }
    static bool isLoaded(const char *plugin)
    {
        void *const library =
            dlopen(pluginFile(plugin).toLocal8Bit().constData(), RTLD_NOW | RTLD_NOLOAD);
        if (library)
            dlclose(library);
        return library != nullptr;
    }
    static NodeUri uri(const char *text)
    {
        return parseAddress(QString::fromLatin1(text), UriLimits())->node;
    }

    QTemporaryDir directory;
    QString error;
};

TEST_F(DmDeviceTest, BothRootsAreMounted)
{
    const auto device = open("right_plugin");
    ASSERT_NE(device, nullptr) << error.toStdString();
    for (const char *uri :
         {"./DevDetail/Ext/Conf/Conn/Profiles/Office/Addr",
          "./DevDetail/Ext/Conf/IntProfs/Profiles/Office/Addr", "./DevInfo/DevId"})
        EXPECT_TRUE(
            device->ownersView().find(parseAddress(QString::fromLatin1(uri), UriLimits())->node))
            << uri;
}

TEST_F(DmDeviceTest, NothingIsLoadedForNodesThatAreNotThePlugins)
{
    const auto device = openUnmounted("right_plugin");
    ASSERT_NE(device, nullptr) << error.toStdString();
    for (TreeView tree :
         {device->ownersView(), TreeView(device->tree(), Principal::server("dm.example"))}) {
        EXPECT_TRUE(tree.value(*tree.find(uri("./DevInfo/Man"))));
        EXPECT_TRUE(tree.property(*tree.find(uri("./DevDetail")), Property::Acl));
        EXPECT_EQ(tree.children(*tree.find(NodeUri())).size(), 3u);
        EXPECT_EQ(tree.list(*tree.find(uri("./DMAcc")), TreeView::Values::Read).size(), 1u);
    }
    ASSERT_TRUE(device->ownersView().replaceProperty(uri("."), Property::Title, "Mine"));
    ASSERT_TRUE(noted(device->saveProperties(), error)) << error.toStdString();
    EXPECT_FALSE(isLoaded("right_plugin"));
    EXPECT_FALSE(QFile::exists(directory.filePath(QStringLiteral("state/client/plugin.log"))));

    EXPECT_TRUE(device->ownersView().find(uri(connRoot)));
    EXPECT_TRUE(isLoaded("right_plugin"));
}

TEST_F(DmDeviceTest, APluginIsNotMissedBeforeItIsNeeded)
{
    const auto device = openUnmounted("no_such_plugin");
    ASSERT_NE(device, nullptr) << error.toStdString();
    EXPECT_TRUE(device->ownersView().find(uri("./DevInfo/Man")));
    EXPECT_EQ(device->takeMountFaults(), QStringList());
    const Outcome outcome = device->ownersView().find(uri(connRoot)).outcome();
    EXPECT_EQ(outcome.status, DmStatus::DataStoreFailure);
    EXPECT_EQ(outcome.reason.indexOf(QStringLiteral("cannot load the plug-in")), 0)
        << outcome.reason.toStdString();
    EXPECT_EQ(device->takeMountFaults(), QStringList(outcome.reason));
    EXPECT_EQ(device->takeMountFaults(), QStringList()) << "it was taken";
    EXPECT_TRUE(device->ownersView().find(uri("./DevInfo/Man")));
}

TEST_F(DmDeviceTest, OnlyTheOwnerReadsOneRootWhenTheOtherIsRefused)
{
    constexpr char address[] = "./DevDetail/Ext/Conf/Conn/Profiles/Office/Addr";
    const auto device = openUnmounted("plugin_of_one_root");
    ASSERT_NE(device, nullptr) << error.toStdString();
    TreeView owner = device->ownersView();
    EXPECT_TRUE(owner.find(uri(connRoot)));
    EXPECT_EQ(owner.replace(uri(address), {{}, {}, "x"}).status, DmStatus::DataStoreFailure);
    TreeView server(device->tree(), Principal::server("dm.example"));
    EXPECT_EQ(server.find(uri(connRoot)).outcome().status, DmStatus::DataStoreFailure);
    EXPECT_TRUE(owner.find(uri(connRoot)));
}

TEST_F(DmDeviceTest, APluginThatRefusesOneRootIsNotUsedAtAll)
{
    EXPECT_EQ(open("plugin_of_one_root"), nullptr);
    EXPECT_TRUE(error.contains(QStringLiteral("IntProfs"))) << error.toStdString();
}

/// Plug-ins that files in a folder of the test's own describe.
class DescribedPluginsTest : public DmDeviceTest {
protected:
    DescribedPluginsTest() { QDir(directory.path()).mkdir(QStringLiteral("plugins")); }

    QString folder() const { return directory.filePath(QStringLiteral("plugins")); }
    void describe(const char *file, const char *plugin, const char *root)
    {
        QFile description(folder() + u'/' + QString::fromLatin1(file));
        ASSERT_TRUE(description.open(QIODevice::WriteOnly));
        description.write("{\"library\": \"" + pluginFile(plugin).toUtf8() + "\", \"roots\": [\"" +
                          root + "\"]}");
    }
    std::unique_ptr<DmDevice> openDescribed(const QString &profilePlugin = {})
    {
        auto device = madeOrNull(
            DmDevice::open({.stateDirectory = directory.filePath(QStringLiteral("state")),
                            .pluginFolder = folder(),
                            .profilePlugin = profilePlugin}),
            error);
        return device && noted(device->makeTree(), error) ? std::move(device) : nullptr;
    }
    /// The status of finding a node, as the protocol numbers it; 0 for one that is there.
    static int faultAt(DmDevice &device, const char *address)
    {
        const auto found = device.ownersView().find(uri(address));
        return found ? 0 : static_cast<int>(found.outcome().status);
    }
};

TEST_F(DescribedPluginsTest, EachHasItsNodes)
{
    describe("10-profiles.json", "right_plugin", connRoot);
    describe("20-vendor.json", "plugin_of_one_root", "./Vendor/Example");
    const auto device = openDescribed();
    ASSERT_NE(device, nullptr) << error.toStdString();
    EXPECT_EQ(device->damage(), QStringList());
    EXPECT_EQ(faultAt(*device, "./Vendor/Example/Office/Addr"), 0);
    EXPECT_FALSE(isLoaded("right_plugin")) << "nothing needs it";
    EXPECT_EQ(faultAt(*device, "./DevDetail/Ext/Conf/Conn/Profiles/Office/Addr"), 0);
    EXPECT_EQ(device->profilePlugin(), pluginFile("right_plugin"));
}

TEST_F(DescribedPluginsTest, OneThatCannotBeLoadedTakesNothingFromTheOthers)
{
    describe("10-profiles.json", "right_plugin", connRoot);
    describe("20-vendor.json", "no_such_plugin", "./Vendor/Example");
    const auto device = openDescribed();
    ASSERT_NE(device, nullptr) << error.toStdString();
    EXPECT_EQ(faultAt(*device, "./Vendor/Example/Office"), 510);
    EXPECT_EQ(faultAt(*device, "./DevDetail/Ext/Conf/Conn/Profiles/Office"), 0);
    EXPECT_EQ(device->takeMountFaults().size(), 1);
}

TEST_F(DescribedPluginsTest, OneThatIsNotDescribedRightIsLeftOutAndNamed)
{
    describe("10-profiles.json", "right_plugin", connRoot);
    describe("20-vendor.json", "right_plugin", "./DevInfo/Man");
    const auto device = openDescribed();
    ASSERT_NE(device, nullptr) << error.toStdString();
    EXPECT_EQ(
        device->damage().join(u'\n').replace(folder(), QStringLiteral("FOLDER")).toStdString(),
        "FOLDER/20-vendor.json: ./DevInfo/Man: the client has nodes of its own there; the "
        "client goes on without that plug-in");
    EXPECT_EQ(device->reasonAgainstServers(), QString());
    EXPECT_EQ(faultAt(*device, "./DevDetail/Ext/Conf/Conn/Profiles/Office"), 0);
}

TEST_F(DescribedPluginsTest, AnotherLibraryTakesThePlaceOfThatOfTheProfiles)
{
    describe("10-vendor.json", "right_plugin", "./Vendor/Example");
    EXPECT_EQ(openDescribed(pluginFile("right_plugin")), nullptr);
    EXPECT_EQ(error.replace(folder(), QStringLiteral("FOLDER"))
                  .replace(pluginFile("right_plugin"), QStringLiteral("FILE"))
                  .toStdString(),
              "FILE cannot take the place of a plug-in: none that has the profiles is described in "
              "FOLDER");
    describe("20-profiles.json", "no_such_plugin", connRoot);
    const auto device = openDescribed(pluginFile("right_plugin"));
    ASSERT_NE(device, nullptr) << error.toStdString();
    EXPECT_EQ(faultAt(*device, "./DevDetail/Ext/Conf/Conn/Profiles/Office"), 0);
}

TEST_F(DescribedPluginsTest, ListsOfNodesWhosePluginIsAbsentForARunAreKept)
{
    constexpr const char *addresses[] = {"./Vendor/Example/Office",
                                         "./DevDetail/Ext/Conf/Conn/Profiles/Office"};
    describe("10-profiles.json", "right_plugin", connRoot);
    describe("20-vendor.json", "right_plugin", "./Vendor/Example");
    const auto change = [this](const char *address, Property property, const char *text) {
        const auto device = openDescribed();
        ASSERT_NE(device, nullptr) << error.toStdString();
        EXPECT_TRUE(device->ownersView().replaceProperty(uri(address), property, text));
        EXPECT_TRUE(noted(device->saveProperties(), error)) << error.toStdString();
    };
    for (const char *address : addresses)
        change(address, Property::Acl, "Get=a.example");
    for (const char *file : {"/10-profiles.json", "/20-vendor.json"})
        ASSERT_TRUE(QFile::remove(folder() + QString::fromLatin1(file)));
    change(".", Property::Title, "Mine");

    describe("10-profiles.json", "right_plugin", connRoot);
    describe("20-vendor.json", "right_plugin", "./Vendor/Example");
    const auto device = openDescribed();
    for (const char *address : addresses)
        EXPECT_EQ(device->ownersView()
                      .property(*device->ownersView().find(uri(address)), Property::Acl)
                      ->toStdString(),
                  "Get=a.example")
            << address;
}

TEST_F(DmDeviceTest, TreesAreDroppedBeforeTheirPluginIsUnloaded)
{
    const std::size_t before = dmnative_control::LiveBlocks();
    auto device = open("right_plugin");
    ASSERT_NE(device, nullptr);
    EXPECT_GT(dmnative_control::LiveBlocks(), before);
    device.reset();
    EXPECT_EQ(dmnative_control::LiveBlocks(), before);
    EXPECT_EQ(dlopen(pluginFile("right_plugin").toLocal8Bit().constData(), RTLD_NOW | RTLD_NOLOAD),
              nullptr);
}

TEST_F(DmDeviceTest, AFailedMountLeavesNothingBehind)
{
    const std::size_t before = dmnative_control::LiveBlocks();
    EXPECT_EQ(open("plugin_of_one_root"), nullptr);
    EXPECT_EQ(dmnative_control::LiveBlocks(), before);
    EXPECT_NE(open("right_plugin"), nullptr); // the lock is free again
}

TEST_F(DmDeviceTest, TheDeviceKeepsItsIdentifier)
{
    const auto idOf = [this] { return open("right_plugin")->tree().deviceId(); };
    const QByteArray id = idOf();
    EXPECT_TRUE(id.startsWith("urn:uuid:")) << id.toStdString();
    EXPECT_EQ(idOf(), id);
}

TEST_F(DmDeviceTest, ABrokenDeviceIdentifierIsReportedAndNotReplaced)
{
    ASSERT_NE(open("right_plugin"), nullptr);
    const QString path = directory.filePath(QStringLiteral("state/client/device-id"));
    for (const QByteArray &content : {QByteArray(" \n"), QByteArray(300, 'x')}) {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(content);
        file.close();
        const auto device = open("right_plugin");
        ASSERT_NE(device, nullptr) << error.toStdString();
        EXPECT_EQ(device->damage().size(), 1);
        EXPECT_TRUE(device->damage().value(0).contains(path));
        EXPECT_TRUE(device->reasonAgainstServers().contains(path));
        ASSERT_TRUE(file.open(QIODevice::ReadOnly));
        EXPECT_EQ(file.readAll(), content);
    }
}

// ---- What the device keeps of its nodes ----------------------------------------------------------

class KeptPropertiesTest : public DmDeviceTest {
protected:
    static constexpr char office[] = "./DevDetail/Ext/Conf/Conn/Profiles/Office";

    static std::string property(const TreeView &tree, const char *node, Property property)
    {
        return tree.property(*tree.find(uri(node)), property)->toStdString();
    }
    static void setAcl(TreeView tree, const char *node, const char *acl)
    {
        EXPECT_TRUE(tree.replaceProperty(uri(node), Property::Acl, acl));
    }
    QString file() const
    {
        return directory.filePath(QStringLiteral("state/client/properties.json"));
    }
    static Account account(const char *serverId)
    {
        Account account;
        account.address = QUrl(QStringLiteral("http://dm.example/"));
        account.serverId = serverId;
        return account;
    }
};

TEST_F(KeptPropertiesTest, SurviveTheMount)
{
    auto device = open("right_plugin");
    ASSERT_NE(device, nullptr) << error.toStdString();
    device->ownersView().replaceProperty(uri(office), Property::Title, "Our office");
    setAcl(device->ownersView(), office, "Get=*&Replace=dm.example");
    const std::string changed = property(device->ownersView(), office, Property::TStamp);
    ASSERT_TRUE(noted(device->saveProperties(), error)) << error.toStdString();
    device.reset();
    device = open("right_plugin");
    EXPECT_EQ(property(device->ownersView(), office, Property::Title), "Our office");
    EXPECT_EQ(property(device->ownersView(), office, Property::Acl), "Get=*&Replace=dm.example");
    EXPECT_EQ(property(device->ownersView(), office, Property::TStamp), changed);
    EXPECT_EQ(property(device->ownersView(), office, Property::VerNo), "2");
    EXPECT_EQ(QFileInfo(file()).permissions() & ~(QFile::ReadUser | QFile::WriteUser),
              QFile::ReadOwner | QFile::WriteOwner);
}

TEST_F(KeptPropertiesTest, SurviveARunThatDoesNotNeedTheirNodes)
{
    auto device = open("right_plugin");
    ASSERT_NE(device, nullptr) << error.toStdString();
    setAcl(device->ownersView(), office, "Get=*&Replace=dm.example+other");
    ASSERT_TRUE(noted(device->saveProperties(), error)) << error.toStdString();
    device.reset();

    device = openUnmounted("right_plugin");
    ASSERT_TRUE(device->ownersView().replaceProperty(uri("."), Property::Title, "Mine"));
    ASSERT_TRUE(noted(device->putAccount(QStringLiteral("one"), account("dm.example")), error));
    ASSERT_TRUE(noted(device->removeAccount(QStringLiteral("one")), error));
    ASSERT_TRUE(noted(device->saveProperties(), error)) << error.toStdString();
    EXPECT_FALSE(isLoaded("right_plugin"));
    EXPECT_EQ(property(device->ownersView(), office, Property::Acl), "Get=*&Replace=other");
    device.reset();

    device = openUnmounted("right_plugin");
    TreeView server(device->tree(), Principal::server("dm.example"));
    EXPECT_EQ(server.replaceProperty(uri(office), Property::Title, "x").status,
              DmStatus::PermissionDenied);
    EXPECT_EQ(property(device->ownersView(), office, Property::Acl), "Get=*&Replace=other");
}

TEST_F(KeptPropertiesTest, AreDroppedWithANodeThatTheMountDoesNotShow)
{
    ASSERT_NE(open("right_plugin"), nullptr);
    QFile output(file());
    ASSERT_TRUE(output.open(QIODevice::WriteOnly));
    output.write("{\"./DevDetail/Ext/Conf/Conn/Profiles/Gone\": {\"title\": \"gone\"}}");
    output.close();
    const auto device = open("right_plugin");
    ASSERT_NE(device, nullptr) << error.toStdString();
    ASSERT_TRUE(noted(device->saveProperties(), error));
    ASSERT_TRUE(output.open(QIODevice::ReadOnly));
    EXPECT_EQ(output.readAll().trimmed(), "{}");
}

TEST_F(KeptPropertiesTest, ThatCannotBeUnderstoodStayAsTheyAreAndKeepServersOut)
{
    ASSERT_NE(open("right_plugin"), nullptr);
    QFile output(file());
    ASSERT_TRUE(output.open(QIODevice::WriteOnly));
    output.write("nonsense");
    output.close();
    const auto device = open("right_plugin");
    ASSERT_NE(device, nullptr) << error.toStdString();
    EXPECT_TRUE(device->damage().value(0).startsWith(file()));
    EXPECT_TRUE(device->reasonAgainstServers().contains(file()));
    EXPECT_TRUE(noted(device->saveProperties(), error)) << "nothing has to be kept";
    TreeView tree = device->ownersView();
    EXPECT_EQ(tree.property(*tree.find(uri(office)), Property::Acl).outcome().status,
              DmStatus::DataStoreFailure);
    EXPECT_EQ(tree.replaceProperty(uri(office), Property::Title, "x").status,
              DmStatus::DataStoreFailure);
    EXPECT_TRUE(tree.remove(uri(office)));
    EXPECT_FALSE(noted(device->saveProperties(), error));
    EXPECT_TRUE(error.contains(file())) << error.toStdString();
    ASSERT_TRUE(output.open(QIODevice::ReadOnly));
    EXPECT_EQ(output.readAll(), "nonsense");
}

TEST_F(KeptPropertiesTest, EveryServerMayManageTheProfilesUntilOneRestrictsIt)
{
    const auto device = open("right_plugin");
    ASSERT_NE(device, nullptr);
    TreeView server(device->tree(), Principal::server("dm.example"));
    for (const char *const root :
         {"./DevDetail/Ext/Conf/Conn/Profiles", "./DevDetail/Ext/Conf/IntProfs/Profiles"}) {
        const QByteArray profile = QByteArray(root) + "/Office";
        EXPECT_EQ(property(server, root, Property::Acl), "Add=*&Get=*");
        EXPECT_EQ(property(server, profile, Property::Acl), "Add=*&Delete=*&Get=*&Replace=*");
    }
    EXPECT_EQ(property(server, "./DMAcc", Property::Acl), "");
    setAcl(server, office, "Get=*");
    EXPECT_EQ(server.replaceProperty(uri(office), Property::Acl, "Replace=*").status,
              DmStatus::PermissionDenied);
}

TEST_F(KeptPropertiesTest, LoseTheRightsOfAServerWithItsLastAccount)
{
    const auto device = open("right_plugin");
    ASSERT_NE(device, nullptr);
    ASSERT_TRUE(noted(device->putAccount(QStringLiteral("one"), account("dm.example")), error));
    ASSERT_TRUE(noted(device->putAccount(QStringLiteral("two"), account("dm.example")), error));
    setAcl(device->ownersView(), office, "Get=*&Replace=dm.example+other");
    ASSERT_TRUE(noted(device->removeAccount(QStringLiteral("one")), error));
    EXPECT_EQ(property(device->ownersView(), office, Property::Acl),
              "Get=*&Replace=dm.example+other");
    ASSERT_TRUE(noted(device->removeAccount(QStringLiteral("two")), error));
    EXPECT_EQ(property(device->ownersView(), office, Property::Acl), "Get=*&Replace=other");
    EXPECT_FALSE(noted(device->removeAccount(QStringLiteral("two")), error));
}

TEST_F(KeptPropertiesTest, LoseTheRightsOfAServerThatIsCalledOtherwiseNow)
{
    const auto device = open("right_plugin");
    ASSERT_NE(device, nullptr);
    ASSERT_TRUE(noted(device->putAccount(QStringLiteral("one"), account("old")), error));
    setAcl(device->ownersView(), office, "Get=*&Replace=old+new");
    ASSERT_TRUE(noted(device->putAccount(QStringLiteral("one"), account("new")), error));
    EXPECT_EQ(property(device->ownersView(), office, Property::Acl), "Get=*&Replace=new");
}

} // namespace

} // namespace client
