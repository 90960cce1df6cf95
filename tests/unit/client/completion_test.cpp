// What could stand next on a line of the shell.

#include "cli/completion.h"

#include "mounted_tree.h"

namespace client::cli {

namespace {

class CompletionTest : public MountedTree {
protected:
    /// Words that continue the line; "~" behind one that more must follow directly.
    std::vector<std::string> after(const QByteArray &line)
    {
        const auto unfinished = splitUnfinished(line);
        EXPECT_TRUE(unfinished) << line.toStdString();
        std::vector<std::string> words;
        for (const Candidate &candidate : complete(*unfinished, tree))
            words.push_back(candidate.word.toStdString() + (candidate.isWhole ? "" : "~"));
        return words;
    }
};

using Words = std::vector<std::string>;

TEST_F(CompletionTest, CommandsOfTheShellAreOffered)
{
    EXPECT_EQ(after(""), (Words{"tree", "get", "add", "replace", "rename", "delete", "copy",
                                "process", "session", "account", "ddf", "help", "quit"}));
    EXPECT_EQ(after("re"), (Words{"replace", "rename"}));
    EXPECT_EQ(after("help ge"), Words{"get"});
}

TEST_F(CompletionTest, AddressesGrowOneNameAtATime)
{
    EXPECT_EQ(after("get "), Words{"./~"});
    EXPECT_EQ(after("get ./"), (Words{"./DevInfo/~", "./DevDetail/~", "./Ext/~"}));
    EXPECT_EQ(after("get ./Dev"), (Words{"./DevInfo/~", "./DevDetail/~"}));
    EXPECT_EQ(after("get ./Ext/Profiles/O"), Words{"./Ext/Profiles/Office/~"});
    EXPECT_EQ(after("get ./Ext/Profiles/Home/"), Words{"./Ext/Profiles/Home/Addr"});
    EXPECT_EQ(after("get Ext/Pro"), Words{"Ext/Profiles/~"});
    EXPECT_EQ(after("get ./Nowhere/"), Words());
}

TEST_F(CompletionTest, NodesThatWereAddedAreOffered)
{
    tree.add(profile("My Place"), typed("node", ""));
    EXPECT_EQ(after("tree ./Ext/Profiles/M"), Words{"./Ext/Profiles/My Place/~"});
}

TEST_F(CompletionTest, EachArgumentIsCompletedForWhatItIs)
{
    EXPECT_EQ(after("copy ./Ext/Profiles/Home/Addr ./Ext/Profiles/O"),
              Words{"./Ext/Profiles/Office/~"});
    EXPECT_EQ(after("rename ./Ext/Profiles/Home "), Words());
    EXPECT_EQ(after("process "), Words());
}

TEST_F(CompletionTest, PropertiesAreOfferedBehindTheOptionAndBehindAQuestionMark)
{
    EXPECT_EQ(after("get --prop "),
              (Words{"ACL", "Format", "Name", "Size", "Title", "TStamp", "Type", "VerNo"}));
    EXPECT_EQ(after("get --prop F"), Words{"Format"});
    EXPECT_EQ(after("get --prop Format ./Dev"), (Words{"./DevInfo/~", "./DevDetail/~"}));
    EXPECT_EQ(after("get ./DevInfo?prop=N"), Words{"./DevInfo?prop=Name"});
}

TEST_F(CompletionTest, OptionsAndFormatsAreOffered)
{
    EXPECT_EQ(after("tree --"), (Words{"--json", "--show-secrets"}));
    EXPECT_EQ(after("add ./Ext/Profiles/Home/X 1 --format "),
              (Words{"chr", "int", "bool", "bin", "b64", "node", "null"}));
    EXPECT_EQ(after("delete --"), Words());
}

TEST_F(CompletionTest, LeavesAreOfferedWhereSeveralAreReplaced)
{
    EXPECT_EQ(after("replace ./Ext/Profiles/Office "),
              (Words{"Addr=~", "Linger=~", "Enabled=~", "Port=~"}));
    EXPECT_EQ(after("replace ./Ext/Profiles/Office Addr=x L"), Words{"Linger=~"});
}

TEST_F(CompletionTest, AnUnknownCommandOffersNothing)
{
    EXPECT_EQ(after("frobnicate ./"), Words());
}

} // namespace

} // namespace client::cli
