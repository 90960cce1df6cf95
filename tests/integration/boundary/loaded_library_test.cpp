// The loaded library as an engine drives it, through its two symbols and through slot numbers.
#include "loaded_plugin.h"

#include "aplog.h"
#include "dmnative_control.h"
#include "settings_format.h"
#include "setup_set_manager.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <regex>
#include <utility>
#include <vector>

namespace {

/// What a settings file holds, as a file that is written in one go.
std::string EntriesOf(const std::string &path)
{
    const ParsedSettings parsed = parseSettings(QByteArray::fromStdString(FileContent(path)));
    EXPECT_EQ(parsed.skippedLines, 0) << path;
    return formatSettings(parsed.groups).toStdString();
}

constexpr char CONN_ROOT[] = "./DevDetail/Ext/Conf/Conn/Profiles";
constexpr char INTPROFS_ROOT[] = "./DevDetail/Ext/Conf/IntProfs/Profiles";

using TreePtr = JemSmartPtr<DmtPluginTree>;

/// Each test starts with an empty profile service and no mapping files.
class LoadedLibraryTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        unsigned int count = 0;
        ASSERT_EQ(NAPI_ListAllProfile(nullptr, &count), 0);
        std::vector<char> names((std::size_t{count} + 1) * NAPI_NAME_SIZE);
        ASSERT_EQ(NAPI_ListAllProfile(names.data(), &count), 0);
        for (unsigned int i = 0; i < count; ++i)
            ASSERT_EQ(NAPI_DeleteProfile(&names[std::size_t{i} * NAPI_NAME_SIZE]), 0);
        std::filesystem::remove_all(StateDirectory() + "/settings");
        std::filesystem::create_directory(StateDirectory() + "/settings");
        m_blocksBefore = dmnative_control::LiveBlocks();
    }
    void TearDown() override
    {
        EXPECT_EQ(dmnative_control::LiveBlocks(), m_blocksBefore) << "blocks of the engine leaked";
    }

    static std::string NapdefFile()
    {
        return StateDirectory() + "/settings/kub_napdef_profilemapping.cfg";
    }
    static std::string ProxyFile()
    {
        return StateDirectory() + "/settings/kub_proxy_profilemapping.cfg";
    }
    /// One group as the settings class reads it from the file.
    static std::map<std::string, std::string> Entries(const std::string &path, const char *group)
    {
        const SETUP_SET_Manager manager(QString::fromStdString(path), false);
        std::map<std::string, std::string> entries;
        const QMap<QString, QString> found = manager.getEntryKeyList(QString::fromUtf8(group));
        for (auto it = found.begin(); it != found.end(); ++it)
            entries[it.key().toStdString()] = it.value().toStdString();
        return entries;
    }
    static std::string Text(const TreePtr &tree, const char *path)
    {
        JemSmartPtr<DmtNode> node;
        DmtData value;
        DMString text;
        EXPECT_EQ(tree->GetNode(path, node), 0) << path;
        if (!node)
            return "<no node>";
        EXPECT_EQ(node->GetValue(value), 0) << path;
        EXPECT_EQ(value.GetString(text), 0) << path;
        return text.text();
    }

private:
    std::size_t m_blocksBefore = 0;
};

// ---- Loading -----------------------------------------------------------------------------------

TEST_F(LoadedLibraryTest, SaysItsVersion)
{
    EXPECT_EQ(LoadedPlugin().Version(), 0x10001);
}

TEST_F(LoadedLibraryTest, CanBeUnloadedAndLoadedAgain)
{
    StoreProfile("Office", Record("internet"));
    for (int round = 0; round < 3; ++round) {
        {
            const LoadedPlugin plugin;
            TreePtr tree;
            ASSERT_EQ(plugin.Mount(CONN_ROOT, tree), 0);
            EXPECT_EQ(Text(tree, "Office/Addr"), "internet");
        }
        EXPECT_FALSE(LoadedPlugin::IsInMemory());
    }
}

TEST_F(LoadedLibraryTest, RefusesRootsThatItDoesNotServe)
{
    const LoadedPlugin plugin;
    TreePtr tree;
    for (const char *const root :
         {"./DevDetail/Ext/Conf/Conn/Profiles/", "./devDetail/Ext/Conf/Conn/Profiles",
          "./DevDetail/Ext/Conf/Conn", "DevDetail/Ext/Conf/Conn/Profiles",
          "./DevDetail/Ext/Conf/IntProfs/profiles", "./DevDetail/Ext/Conf/IntProfs/Profiles/x", ".",
          ""}) {
        EXPECT_EQ(plugin.Mount(root, tree), 406) << root;
        EXPECT_FALSE(tree) << root;
    }
    ASSERT_EQ(plugin.Mount(CONN_ROOT, tree), 0);
    DmtPluginTree *const before = tree.get();
    EXPECT_EQ(plugin.Mount("./Other", tree), 406);
    EXPECT_EQ(tree.get(), before);
    EXPECT_EQ(CountOf(before), 1);
    EXPECT_FALSE(std::filesystem::exists(ProxyFile()));
}

TEST_F(LoadedLibraryTest, ReplacesTheTreeThatTheOutPointerHeld)
{
    const LoadedPlugin plugin;
    TreePtr tree;
    ASSERT_EQ(plugin.Mount(CONN_ROOT, tree), 0);
    const TreePtr first(tree);
    EXPECT_EQ(CountOf(first.get()), 2);
    ASSERT_EQ(plugin.Mount(INTPROFS_ROOT, tree), 0);
    EXPECT_NE(tree.get(), first.get());
    EXPECT_EQ(CountOf(first.get()), 1);
    EXPECT_EQ(CountOf(tree.get()), 1);
    ASSERT_EQ(plugin.Mount(INTPROFS_ROOT, tree), 0) << "the one that it held is destroyed";
}

TEST_F(LoadedLibraryTest, MountsBothRootsTwice)
{
    StoreProfile("Office", Record("internet"));
    const LoadedPlugin plugin;
    TreePtr conn[2];
    TreePtr intProfs[2];
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(plugin.Mount(CONN_ROOT, conn[i]), 0);
        ASSERT_EQ(plugin.Mount(INTPROFS_ROOT, intProfs[i]), 0);
    }
    EXPECT_NE(conn[0].get(), conn[1].get());
    EXPECT_NE(intProfs[0].get(), intProfs[1].get());
    conn[1].reset();
    intProfs[0].reset();
    EXPECT_EQ(Text(conn[0], "Office/Addr"), "internet");
    EXPECT_EQ(Text(intProfs[1], "Office/Ph1/Conn"), "Office");
}

TEST_F(LoadedLibraryTest, RefusesTheMountWhenItsMappingFileCannotBeWritten)
{
    StoreProfile("Office", Record("internet"));
    const LoadedPlugin plugin;
    TreePtr tree;
    // A directory in the mapping file's place: it can be neither deleted nor replaced.
    std::filesystem::create_directories(NapdefFile() + "/in the way");
    testing::internal::CaptureStderr();
    EXPECT_EQ(plugin.Mount(CONN_ROOT, tree), 1);
    testing::internal::GetCapturedStderr();
    EXPECT_FALSE(tree);
    std::filesystem::remove_all(NapdefFile());
    EXPECT_EQ(plugin.Mount(CONN_ROOT, tree), 0);
}

TEST_F(LoadedLibraryTest, PrintsFailuresAndNoTraces)
{
    StoreProfile("Office", Record("internet", "+4917"));
    const LoadedPlugin plugin;
    char *text = nullptr;
    std::size_t size = 0;
    std::FILE *const stream = open_memstream(&text, &size);
    std::FILE *const before = std::exchange(libaplog_to_module_ptr, stream);
    {
        TreePtr conn;
        TreePtr intProfs;
        EXPECT_EQ(plugin.Mount(CONN_ROOT, conn), 0);
        EXPECT_EQ(Text(conn, "Office/Addr"), "internet");
        EXPECT_EQ(plugin.Mount(INTPROFS_ROOT, intProfs), 0);
        EXPECT_EQ(plugin.Mount("./Other", intProfs), 406);
    }
    libaplog_to_module_ptr = before;
    std::fclose(stream);
    const std::string printed =
        std::regex_replace(std::string(text, size), std::regex(":[0-9]+\\)"), ":#)");
    std::free(text);
    EXPECT_EQ(printed,
              "(DM_Napi_PluginTree.cpp:#)Leave: GetConnValue(), the Conn of  Ph3 has no related "
              "fields\n"
              "(DM_Napi_Plugin.cpp:#)Rootpath of the Subtree is not a NAPI Plugin!\n");
}

// ---- Slots --------------------------------------------------------------------------------------

// Types of the slots as an engine that was built elsewhere calls them: the object, then the
// arguments. A smart pointer is one word.
using DestroySlot = void(void *);
using GetNodeSlot = int(void *tree, const char *path, void **node);
using GetFullPathSlot = int(const void *tree, const char *path, DMString &fullPath);
using GetPathSlot = int(const void *node, DMString &path);
using GetValueSlot = int(void *node, DmtData &value);
using IsLeafSlot = bool(const void *node);
using GetNodeNameSlot = int(const void *node, DMString &name);
using GetNameSlot = DMString(const void *node);
using HasChunkedValueSlot = std::uint8_t(const void *node);

TEST_F(LoadedLibraryTest, AnswersThroughItsSlots)
{
    NAP_PROFILE_S record = Record("internet");
    record.gprsDns1 = 0x0A000001;
    record.gprsLinger = 300;
    StoreProfile("Office", record);
    const LoadedPlugin plugin;
    TreePtr held;
    ASSERT_EQ(plugin.Mount(CONN_ROOT, held), 0);
    void *const tree = held.get();

    void *node = nullptr;
    EXPECT_EQ(Slot<GetNodeSlot>(tree, 2)(tree, "Office/Other", &node), 404);
    EXPECT_EQ(node, nullptr);
    ASSERT_EQ(Slot<GetNodeSlot>(tree, 2)(tree, "Office/Addr", &node), 0);
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(CountOf(node), 2);

    DMString text;
    EXPECT_EQ(Slot<GetFullPathSlot>(tree, 27)(tree, "Office", text), 0);
    EXPECT_EQ(text.text(), std::string(CONN_ROOT) + "/Office");
    EXPECT_EQ(Slot<GetPathSlot>(node, 3)(node, text), 0);
    EXPECT_STREQ(text.text(), "Office/Addr");
    EXPECT_EQ(Slot<GetNodeNameSlot>(node, 13)(node, text), 0);
    EXPECT_STREQ(text.text(), "Addr");
    EXPECT_STREQ(Slot<GetNameSlot>(node, 14)(node).text(), "Addr");
    EXPECT_EQ(Slot<HasChunkedValueSlot>(node, 20)(node), 0);
    EXPECT_TRUE(Slot<IsLeafSlot>(node, 10)(node));

    DmtData value;
    EXPECT_EQ(Slot<GetValueSlot>(node, 7)(node, value), 0);
    EXPECT_EQ(*reinterpret_cast<const signed char *>(&value), 1) << "a string";
    EXPECT_EQ(value.GetString(text), 0);
    EXPECT_STREQ(text.text(), "internet");
    --CountOf(node);

    ASSERT_EQ(Slot<GetNodeSlot>(tree, 2)(tree, "Office/Linger", &(node = nullptr)), 0);
    EXPECT_EQ(Slot<GetValueSlot>(node, 7)(node, value), 0);
    int number = 0;
    EXPECT_EQ(value.GetInt(number), 0);
    EXPECT_EQ(number, 300);
    --CountOf(node);

    ASSERT_EQ(Slot<GetNodeSlot>(tree, 2)(tree, "Office", &(node = nullptr)), 0);
    EXPECT_FALSE(Slot<IsLeafSlot>(node, 10)(node));
    --CountOf(node);
}

TEST_F(LoadedLibraryTest, TheLastReferenceGoesThroughTheDeletingDestructor)
{
    StoreProfile("Office", Record("internet"));
    const LoadedPlugin plugin;
    const std::size_t blocks = dmnative_control::LiveBlocks();
    TreePtr held;
    ASSERT_EQ(plugin.Mount(CONN_ROOT, held), 0);
    EXPECT_GT(dmnative_control::LiveBlocks(), blocks);
    void *const tree = held.get();
    ++CountOf(tree);
    held.reset();
    EXPECT_EQ(CountOf(tree), 1);
    Slot<DestroySlot>(tree, 1)(tree);
    EXPECT_EQ(dmnative_control::LiveBlocks(), blocks);
}

TEST_F(LoadedLibraryTest, EveryNodeIs144BytesOfTheEnginesSite)
{
    StoreProfile("Office", Record("internet"));
    const LoadedPlugin plugin;
    for (const auto &[root, nodes] :
         {std::pair{CONN_ROOT, 12 + 1}, std::pair{INTPROFS_ROOT, 17 + 1}}) {
        int of144Bytes = 0;
        dmnative_control::SetAllocationFault(
            [&of144Bytes](std::string_view file, int line, std::size_t size) {
                of144Bytes += file == "jem_defs" && line == 255 && size == 144 ? 1 : 0;
                return false;
            });
        TreePtr tree;
        EXPECT_EQ(plugin.Mount(root, tree), 0);
        dmnative_control::SetAllocationFault({});
        EXPECT_EQ(of144Bytes, nodes) << root;
    }
}

// ---- Mapping files -------------------------------------------------------------------------------

TEST_F(LoadedLibraryTest, WritesBothMappingFiles)
{
    const std::string office = StoreProfile("Office", Record("internet", "", "+4918"));
    const std::string net = StoreProfile("Ñet", Record("", "+4917"));
    const std::string buero = StoreProfile("Büro = [heim]", Record("heim"));
    StoreProfile("No bearer", NAP_PROFILE_S{});
    const LoadedPlugin plugin;
    TreePtr conn;
    TreePtr intProfs;
    ASSERT_EQ(plugin.Mount(CONN_ROOT, conn), 0);
    ASSERT_EQ(plugin.Mount(INTPROFS_ROOT, intProfs), 0);

    EXPECT_EQ(Entries(NapdefFile(), "NAPIDEF_Profile"),
              (std::map<std::string, std::string>{{office + "Ph1DC1", "Office"},
                                                  {net + "Ph2DC1", "PX1"},
                                                  {buero + "Ph1DC1", "Büro = [heim]"}}));
    EXPECT_EQ(Entries(ProxyFile(), "PROXY_Profile"),
              (std::map<std::string, std::string>{
                  {office, "Office"}, {net, "PX1"}, {buero, "Büro = [heim]"}}));
    // The third slot of "Office" has no entry of its bearer in the other file: its own name stands.
    EXPECT_EQ(Entries(ProxyFile(), "PROXY_Conn"),
              (std::map<std::string, std::string>{{"Office/Ph1", "Office"},
                                                  {"Office/Ph3", "Office"},
                                                  {"PX1/Ph2", "PX1"},
                                                  {"BÃ¼ro = [heim]/Ph1", "Büro = [heim]"}}));
}

TEST_F(LoadedLibraryTest, MappingFilesHoldTheseEntries)
{
    const std::string office = StoreProfile("Office", Record("internet", "", "+4918"));
    const std::string home = StoreProfile("Büro", Record("", "+4917"));
    const LoadedPlugin plugin;
    TreePtr conn;
    TreePtr intProfs;
    ASSERT_EQ(plugin.Mount(CONN_ROOT, conn), 0);
    ASSERT_EQ(plugin.Mount(INTPROFS_ROOT, intProfs), 0);

    // Entries stand in the order of their keys as texts: "10" before "9".
    const auto ordered = [&](const std::string &ofOffice, const std::string &ofHome) {
        return office < home ? ofOffice + ofHome : ofHome + ofOffice;
    };
    EXPECT_EQ(EntriesOf(NapdefFile()),
              "[NAPIDEF_Profile]\n" + ordered(office + "Ph1DC1=Office\n", home + "Ph2DC1=Büro\n"));
    EXPECT_EQ(EntriesOf(ProxyFile()), "[PROXY_Conn]\n"
                                      "BÃ¼ro/Ph2=Büro\n"
                                      "Office/Ph1=Office\n"
                                      "Office/Ph3=Office\n"
                                      "[PROXY_Profile]\n" +
                                          ordered(office + "=Office\n", home + "=Büro\n"));
}

TEST_F(LoadedLibraryTest, AMountWithoutProfilesLeavesNoMappingFile)
{
    const LoadedPlugin plugin;
    TreePtr tree;
    ASSERT_EQ(plugin.Mount(CONN_ROOT, tree), 0);
    ASSERT_EQ(plugin.Mount(INTPROFS_ROOT, tree), 0);
    EXPECT_FALSE(std::filesystem::exists(NapdefFile()));
    EXPECT_FALSE(std::filesystem::exists(ProxyFile()));
}

TEST_F(LoadedLibraryTest, AMountDiscardsWhatTheLastOneLeft)
{
    StoreProfile("Office", Record("internet"));
    const LoadedPlugin plugin;
    {
        TreePtr tree;
        ASSERT_EQ(plugin.Mount(CONN_ROOT, tree), 0);
    }
    ASSERT_EQ(NAPI_DeleteProfile("Office"), 0);
    const std::string home = StoreProfile("Home", Record("internet"));
    TreePtr tree;
    ASSERT_EQ(plugin.Mount(CONN_ROOT, tree), 0);
    EXPECT_EQ(EntriesOf(NapdefFile()), "[NAPIDEF_Profile]\n" + home + "Ph1DC1=Home\n");
}

TEST_F(LoadedLibraryTest, ReferencesTakeTheNamesOfTheNapdefFileWhenItIsThere)
{
    const std::string office = StoreProfile("Office", Record("internet"));
    const LoadedPlugin plugin;
    TreePtr intProfs;
    ASSERT_EQ(plugin.Mount(INTPROFS_ROOT, intProfs), 0);
    EXPECT_EQ(Text(intProfs, "Office/Ph1/Conn"), "Office") << "without the NAPDEF file";
    EXPECT_EQ(Text(intProfs, "Office/Ph2/Conn"), "");

    {
        SETUP_SET_Manager napdef(QString::fromStdString(NapdefFile()), false);
        napdef.setSettingInfo(QStringLiteral("NAPIDEF_Profile"),
                              QString::fromStdString(office + "Ph1DC1"),
                              QStringLiteral("Chosen by a server"), false);
        ASSERT_TRUE(napdef.flush());
    }
    ASSERT_EQ(plugin.Mount(INTPROFS_ROOT, intProfs), 0);
    EXPECT_EQ(Text(intProfs, "Office/Ph1/Conn"), "Chosen by a server");
    EXPECT_EQ(Text(intProfs, "Office/Ph2/Conn"), "");
    EXPECT_EQ(Entries(ProxyFile(), "PROXY_Conn"),
              (std::map<std::string, std::string>{{"Office/Ph1", "Chosen by a server"}}));
}

// ---- Values --------------------------------------------------------------------------------------

TEST_F(LoadedLibraryTest, ReadsWhatTheServiceStores)
{
    NAP_PROFILE_S record = Record("internet");
    std::strcpy(record.gprsAuthId, "user");
    std::strcpy(record.gprsAuthPassword, "s3cret");
    record.gprsDns1 = 0xC0A80101;
    std::strcpy(record.proxy1Address, "proxy.example");
    std::strcpy(record.proxy2Address, "other.example");
    StoreProfile("Office", record);
    const LoadedPlugin plugin;
    TreePtr conn;
    TreePtr intProfs;
    ASSERT_EQ(plugin.Mount(CONN_ROOT, conn), 0);
    ASSERT_EQ(plugin.Mount(INTPROFS_ROOT, intProfs), 0);
    EXPECT_EQ(Text(conn, "Office/Bearer"), "GSM-GPRS");
    EXPECT_EQ(Text(conn, "Office/Addr"), "internet");
    EXPECT_EQ(Text(conn, "Office/DNS1"), "192.168.1.1");
    EXPECT_EQ(Text(conn, "Office/DNS2"), "0.0.0.0");
    EXPECT_EQ(Text(conn, "Office/Auth/PAP/AuthId"), "user");
    EXPECT_EQ(Text(conn, "Office/Auth/PAP/AuthPw"), "s3cret");
    EXPECT_EQ(Text(intProfs, "Office/Ph1/Addr"), "proxy.example");
    EXPECT_EQ(Text(intProfs, "Office/Ph2/Addr"), "other.example");
    EXPECT_EQ(Text(intProfs, "Office/Ph3/Addr"), "");

    std::strcpy(record.gprsAddress, "changed by another program");
    ASSERT_EQ(NAPI_ModifyProfile("Office", &record, 0, 0), 0);
    EXPECT_EQ(Text(conn, "Office/Addr"), "changed by another program");
}

} // namespace
