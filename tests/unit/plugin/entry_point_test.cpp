// The two functions that the library exports, and where its messages go.
#include "plugin_test.h"

#include "aplog.h"

#include <cstdint>

namespace {

using namespace doubles;

class EntryPointTest : public PluginTest {
protected:
    static int Mount(const char *root, JemSmartPtr<DmtPluginTree> &tree)
    {
        return DMT_PluginLib_Data_GetPluginTree(root, nullptr, tree);
    }
};

TEST_F(EntryPointTest, InterfaceVersionIs1Point1)
{
    EXPECT_EQ(DMT_PluginLib_GetAPIVersion(), 65537);
}

TEST_F(EntryPointTest, ServesBothRootsEachWithATreeOfItsKind)
{
    JemSmartPtr<DmtPluginTree> conn;
    JemSmartPtr<DmtPluginTree> intProfs;

    EXPECT_EQ(Mount(CONN_ROOT, conn), 0);
    EXPECT_EQ(Mount(INTPROFS_ROOT, intProfs), 0);

    ASSERT_TRUE(conn && intProfs);
    EXPECT_STREQ(conn->GetRootPath().text(), CONN_ROOT);
    EXPECT_STREQ(intProfs->GetRootPath().text(), INTPROFS_ROOT);
    EXPECT_TRUE(dynamic_cast<DM_NAPI_PluginTree &>(*conn).IsNAPDEF());
    EXPECT_FALSE(dynamic_cast<DM_NAPI_PluginTree &>(*intProfs).IsNAPDEF());
    ExpectNothingLogged();
}

TEST_F(EntryPointTest, IgnoresItsSecondArgument)
{
    JemSmartPtr<DmtPluginTree> tree;
    EXPECT_EQ(DMT_PluginLib_Data_GetPluginTree(CONN_ROOT,
                                               reinterpret_cast<void *>(std::uintptr_t{1}), tree),
              0);
    EXPECT_TRUE(tree);
}

TEST_F(EntryPointTest, RefusesEveryRootThatDiffersInOneByte)
{
    const std::string refusal = EntryMessage("Rootpath of the Subtree is not a NAPI Plugin!\n");
    for (const std::string root : {CONN_ROOT, INTPROFS_ROOT}) {
        std::vector<std::string> nearMisses{root + "/",       root + " ",     " " + root,
                                            "." + root,       root.substr(1), root.substr(2),
                                            root + "/Office", root + root,    ""};
        for (std::size_t i = 0; i < root.size(); ++i) {
            std::string changed = root;
            changed[i] = static_cast<char>(changed[i] ^ 0x20); // the other case of a letter
            nearMisses.push_back(changed);
            nearMisses.push_back(root.substr(0, i));
            nearMisses.push_back(root.substr(0, i) + root.substr(i + 1));
        }
        for (const std::string &nearMiss : nearMisses) {
            SCOPED_TRACE(nearMiss);
            JemSmartPtr<DmtPluginTree> tree;
            EXPECT_EQ(Mount(nearMiss.c_str(), tree), 406);
            EXPECT_FALSE(tree);
            ExpectLogged({refusal});
        }
    }
    EXPECT_EQ(handset.journal.Lines(), Lines{});
}

TEST_F(EntryPointTest, RefusesNoRootAtAll)
{
    JemSmartPtr<DmtPluginTree> tree;
    EXPECT_EQ(Mount(nullptr, tree), 406);
    EXPECT_FALSE(tree);
    ExpectLogged({EntryMessage("Rootpath of the Subtree is not a NAPI Plugin!\n")});
}

TEST_F(EntryPointTest, ARefusedRootLeavesTheOutPointerAlone)
{
    JemSmartPtr<DmtPluginTree> tree;
    ASSERT_EQ(Mount(CONN_ROOT, tree), 0);
    DmtPluginTree *const before = tree.get();

    EXPECT_EQ(Mount("./DevDetail/Ext/Conf/Conn/Profiles/", tree), 406);

    EXPECT_EQ(tree.get(), before);
    EXPECT_EQ(before->RefCount(), 1);
}

TEST_F(EntryPointTest, TheEngineHoldsTheOnlyReference)
{
    handset.napi.Store("Office", Record("internet"));
    JemSmartPtr<DmtPluginTree> tree;
    ASSERT_EQ(Mount(CONN_ROOT, tree), 0);
    EXPECT_EQ(tree->RefCount(), 1);
}

TEST_F(EntryPointTest, DroppingTheLastReferenceDestroysTheTree)
{
    handset.napi.Store("Office", Record("internet"));
    JemSmartPtr<DmtPluginTree> tree;
    ASSERT_EQ(Mount(CONN_ROOT, tree), 0);
    JemSmartPtr<DmtPluginTree> second(tree);
    handset.journal.Clear();

    tree.reset();
    EXPECT_EQ(handset.settings.OpenManagers(), 1) << "one reference is left";

    second.reset();
    EXPECT_EQ(handset.journal.Lines(), (Lines{"~SETUP_SET_Manager(napdef)"}));
}

TEST_F(EntryPointTest, TheTreeComesFromTheEnginesMemoryAtTheEnginesSite)
{
    const AllocationWatch watch;
    JemSmartPtr<DmtPluginTree> tree;
    ASSERT_EQ(Mount(CONN_ROOT, tree), 0);
    EXPECT_EQ(watch.SitesOfSize(sizeof(DM_NAPI_PluginTree)), (Lines{"jem_defs:255"}));

    // It goes back there too.
    const std::size_t before = dmnative_control::LiveBlocks("jem_defs", 255);
    EXPECT_GT(before, 0u);
    tree.reset();
    EXPECT_EQ(dmnative_control::LiveBlocks("jem_defs", 255), 0u);
}

TEST_F(EntryPointTest, ASecondMountOfARootIsATreeOfItsOwn)
{
    handset.napi.Store("Office", Record("internet"));
    JemSmartPtr<DmtPluginTree> first;
    JemSmartPtr<DmtPluginTree> second;
    ASSERT_EQ(Mount(CONN_ROOT, first), 0);
    ASSERT_EQ(Mount(CONN_ROOT, second), 0);

    EXPECT_NE(first.get(), second.get());
    EXPECT_EQ(first->RefCount(), 1);
    EXPECT_EQ(second->RefCount(), 1);

    second.reset();
    JemSmartPtr<DmtNode> node;
    EXPECT_EQ(first->GetNode("Office/Addr", node), 0);
    DmtData value;
    EXPECT_EQ(node->GetValue(value), 0);
    EXPECT_EQ(StringOf(value), "internet");
}

TEST_F(EntryPointTest, SuccessDropsWhatTheOutPointerHeld)
{
    JemSmartPtr<DmtPluginTree> tree;
    ASSERT_EQ(Mount(CONN_ROOT, tree), 0);
    handset.journal.Clear();

    ASSERT_EQ(Mount(INTPROFS_ROOT, tree), 0);

    EXPECT_STREQ(tree->GetRootPath().text(), INTPROFS_ROOT);
    EXPECT_EQ(tree->RefCount(), 1);
    EXPECT_EQ(handset.settings.OpenManagers(NAPDEF_FILE), 0) << "the first tree is destroyed";
    EXPECT_EQ(handset.settings.OpenManagers(PROXY_FILE), 1);
}

TEST_F(EntryPointTest, SuccessTakesOneReferenceFromATreeThatIsHeldElsewhere)
{
    JemSmartPtr<DmtPluginTree> tree;
    ASSERT_EQ(Mount(CONN_ROOT, tree), 0);
    const JemSmartPtr<DmtPluginTree> elsewhere(tree);

    ASSERT_EQ(Mount(CONN_ROOT, tree), 0);

    EXPECT_NE(tree.get(), elsewhere.get());
    EXPECT_EQ(elsewhere->RefCount(), 1);
    EXPECT_EQ(tree->RefCount(), 1);
}

TEST_F(EntryPointTest, AFailedLoadDestroysTheNewTreeAndLeavesTheOutPointerAlone)
{
    JemSmartPtr<DmtPluginTree> tree;
    ASSERT_EQ(Mount(CONN_ROOT, tree), 0);
    DmtPluginTree *const before = tree.get();
    const std::size_t blocks = dmnative_control::LiveBlocks();
    handset.faults.Fail("NAPI_ListAllProfile");

    EXPECT_EQ(Mount(INTPROFS_ROOT, tree), 1);

    EXPECT_EQ(tree.get(), before);
    EXPECT_EQ(before->RefCount(), 1);
    EXPECT_EQ(dmnative_control::LiveBlocks(), blocks);
    EXPECT_EQ(handset.settings.OpenManagers(), 1);
}

TEST_F(EntryPointTest, EveryFailureOfTheLoadIsReportedAs1)
{
    handset.napi.Store("Office", Record("internet"));
    handset.faults.Fail("NAPI_GetProfileIDByName", 1, 404);
    JemSmartPtr<DmtPluginTree> tree;
    EXPECT_EQ(Mount(CONN_ROOT, tree), 1);
    EXPECT_FALSE(tree);
}

// ---- Where messages go -----------------------------------------------------------------------

TEST_F(EntryPointTest, MessagesGoToStandardOutputWhileThereIsNoStream)
{
    FILE *const stream = libaplog_to_module_ptr;
    libaplog_to_module_ptr = nullptr;
    testing::internal::CaptureStdout();
    JemSmartPtr<DmtPluginTree> tree;
    Mount("./Other", tree);
    std::fflush(stdout);
    const std::string output = testing::internal::GetCapturedStdout();
    libaplog_to_module_ptr = stream;

    EXPECT_NE(output.find(")Rootpath of the Subtree is not a NAPI Plugin!\n"), std::string::npos);
    ExpectNothingLogged();
}

TEST_F(EntryPointTest, TheStreamIsTheOneOfTheMomentOfTheCall)
{
    FILE *const first = libaplog_to_module_ptr;
    char *text = nullptr;
    std::size_t size = 0;
    FILE *const second = open_memstream(&text, &size);
    JemSmartPtr<DmtPluginTree> tree;

    Mount("./First", tree);
    libaplog_to_module_ptr = second;
    Mount("./Second", tree);
    libaplog_to_module_ptr = first;
    Mount("./Third", tree);

    std::fclose(second);
    EXPECT_NE(std::string(text).find("Rootpath"), std::string::npos);
    std::free(text);
    const std::string refusal = EntryMessage("Rootpath of the Subtree is not a NAPI Plugin!\n");
    ExpectLogged({refusal, refusal});
}

// A stream that counts what reaches its file.
struct WriteCounter {
    int writes = 0;
    std::string text;

    static ssize_t Write(void *cookie, const char *data, std::size_t size)
    {
        auto *const counter = static_cast<WriteCounter *>(cookie);
        ++counter->writes;
        counter->text.append(data, size);
        return static_cast<ssize_t>(size);
    }
};

TEST_F(EntryPointTest, MessagesAreNotFlushed)
{
    WriteCounter counter;
    FILE *const stream =
        fopencookie(&counter, "w", {nullptr, WriteCounter::Write, nullptr, nullptr});
    std::setvbuf(stream, nullptr, _IOFBF, 65536);
    FILE *const before = libaplog_to_module_ptr;
    libaplog_to_module_ptr = stream;
    JemSmartPtr<DmtPluginTree> tree;
    Mount("./Other", tree);
    libaplog_to_module_ptr = before;

    EXPECT_EQ(counter.writes, 0);
    std::fclose(stream);
    EXPECT_NE(counter.text.find("Rootpath"), std::string::npos);
}

TEST_F(EntryPointTest, TheFileNameInAPrefixHasNoFolder)
{
    char *text = nullptr;
    std::size_t size = 0;
    FILE *const stream = open_memstream(&text, &size);
    FILE *const before = libaplog_to_module_ptr;
    libaplog_to_module_ptr = stream;
    JemSmartPtr<DmtPluginTree> tree;
    Mount("./Other", tree);
    libaplog_to_module_ptr = before;
    std::fclose(stream);

    const std::string message(text);
    std::free(text);
    const std::string start = "(DM_Napi_Plugin.cpp:";
    const std::size_t refusal = message.rfind(start);
    ASSERT_NE(refusal, std::string::npos) << message;
    const std::size_t number = refusal + start.size();
    const std::size_t end = message.find_first_not_of("0123456789", number);
    EXPECT_GT(end, number);
    EXPECT_EQ(message.substr(end), ")Rootpath of the Subtree is not a NAPI Plugin!\n");
}

} // namespace
