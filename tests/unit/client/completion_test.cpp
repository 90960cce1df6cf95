// What could stand next on a line of the shell.

#include "completion.h"

#include "command_table.h"
#include "mounted_tree.h"
#include "parser.h"
#include "words.h"

#include <set>

namespace client::cli {

namespace {

class CompletionTest : public MountedTree {
protected:
    /// Words that continue the line; "~" after one that more must follow directly.
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
                                "process", "session", "notify", "replay", "account", "bootstrap",
                                "record", "report", "ddf", "stored", "quit", "help"}));
    EXPECT_EQ(after("re"), (Words{"replace", "rename", "replay", "record", "report"}));
    EXPECT_EQ(after("help ge"), Words{"get"});
}

TEST_F(CompletionTest, AddressesGrowOneNameAtATime)
{
    EXPECT_EQ(after("get "), Words{".~"});
    EXPECT_EQ(after("get ."), (Words{"./DevInfo~", "./DevDetail~", "./Ext~"}));
    EXPECT_EQ(after("get ./"), (Words{"./DevInfo~", "./DevDetail~", "./Ext~"}));
    EXPECT_EQ(after("get ./Dev"), (Words{"./DevInfo~", "./DevDetail~"}));
    EXPECT_EQ(after("get ./Ext/Profiles/O"), Words{"./Ext/Profiles/Office~"});
    EXPECT_EQ(after("get ./Ext/Profiles/Home/"), Words{"./Ext/Profiles/Home/Addr"});
    EXPECT_EQ(after("get ./Ext/Profiles/Home"), Words{"./Ext/Profiles/Home/Addr"});
    EXPECT_EQ(after("get Ext/Pro"), Words{"Ext/Profiles~"});
    EXPECT_EQ(after("get ./Nowhere/"), Words());
}

TEST_F(CompletionTest, NodesThatWereAddedAreOffered)
{
    tree.add(profile("My Place"), typed("node", ""));
    EXPECT_EQ(after("tree ./Ext/Profiles/M"), Words{"./Ext/Profiles/My Place~"});
}

TEST_F(CompletionTest, EachArgumentIsCompletedForWhatItIs)
{
    EXPECT_EQ(after("copy ./Ext/Profiles/Home/Addr ./Ext/Profiles/O"),
              Words{"./Ext/Profiles/Office~"});
    EXPECT_EQ(after("rename ./Ext/Profiles/Home "), Words());
    EXPECT_EQ(after("process "), Words());
}

TEST_F(CompletionTest, PropertiesAreOfferedAfterTheOptionAndAfterAQuestionMark)
{
    EXPECT_EQ(after("get --prop "),
              (Words{"ACL", "Format", "Name", "Size", "Title", "TStamp", "Type", "VerNo"}));
    EXPECT_EQ(after("get --prop F"), Words{"Format"});
    EXPECT_EQ(after("get --prop Format ./Dev"), (Words{"./DevInfo~", "./DevDetail~"}));
    EXPECT_EQ(after("get ./DevInfo?prop=N"), Words{"./DevInfo?prop=Name"});
}

TEST_F(CompletionTest, OnlyPropertiesThatTheCommandTakesAreOffered)
{
    EXPECT_EQ(after("get ./DevInfo?prop=S"), Words()) << "an interior node has no size";
    EXPECT_EQ(after("get ./DevInfo/Man?prop=S"), Words{"./DevInfo/Man?prop=Size"});
    EXPECT_EQ(after("replace ./Ext/Profiles/Home?"),
              (Words{"./Ext/Profiles/Home?prop=ACL", "./Ext/Profiles/Home?prop=Name",
                     "./Ext/Profiles/Home?prop=Title"}));
    for (const char *const permanent : {".", "./DevInfo", "./DevInfo/Man", "./Ext/Profiles"}) {
        const std::string uri = permanent;
        EXPECT_EQ(after(("replace " + uri + "?").c_str()),
                  (Words{uri + "?prop=ACL", uri + "?prop=Title"}));
    }
    EXPECT_EQ(after("delete ./DevInfo?"), Words());
    EXPECT_EQ(after("tree ./DevInfo?prop=N"), Words());
}

/// What a command does with the word that was offered, as the shell would hand it over.
class AddressTest : public CompletionTest {
protected:
    AddressTest()
    {
        for (const char *const name : {"a b",
                                       " lead",
                                       "trail ",
                                       "100%",
                                       "%41",
                                       "q?prop=ACL",
                                       "it's",
                                       "\"quoted\"",
                                       "back\\slash",
                                       "\xC3\x84rzte",
                                       "\xF0\x9F\x98\x80",
                                       "\xF0\x9F\x98\x81",
                                       "-dash",
                                       "--json",
                                       "a=b",
                                       "#hash",
                                       "tab\there",
                                       "line\nbreak",
                                       "\xC2\xA0",
                                       "\xE2\x80\xAEright",
                                       "Office",
                                       "Office2",
                                       "..",
                                       "*",
                                       "e%CC%81",
                                       "=",
                                       "x;y",
                                       "$HOME",
                                       "~"}) {
            const std::string path = std::string("Office/") + name;
            memory->addInterior(name);
            memory->addLeaf((std::string(name) + "/Addr").c_str(), DmtData("v"));
            memory->addLeaf(path.c_str(), DmtData("v"));
        }
    }

    /// The words of a line with the word typed at its end.
    static QStringList wordsOf(const QByteArray &command, const QString &word)
    {
        const auto words = splitWords(command + ' ' + quoteWord(word).toUtf8());
        return words.value_or(QStringList());
    }

    /// Every address that completion leads to from there, each checked.
    void follow(const QByteArray &command, const QString &typed, std::set<std::string> &reached)
    {
        for (const Candidate &candidate : complete({{QString::fromUtf8(command)}, typed}, tree)) {
            const std::string shown = candidate.word.toStdString();
            ASSERT_TRUE(candidate.word.startsWith(typed)) << shown;
            const QStringList words = wordsOf(command, candidate.word);
            ASSERT_EQ(words.size(), 2) << shown;
            const auto invocation =
                commandline::parse(shellProgram(), words, commandline::Completeness::Partial);
            ASSERT_TRUE(invocation && invocation->arguments.size() == 1) << shown;
            const auto address = parseAddress(invocation->arguments[0], tree.uriLimits());
            ASSERT_TRUE(address) << shown;
            ASSERT_TRUE(tree.find(address->node)) << shown;
            if (reached.insert(address->node.toUri().toStdString()).second && !candidate.isWhole)
                follow(command, candidate.word + u'/', reached);
        }
    }
};

TEST_F(AddressTest, EveryAddressThatIsOfferedIsTaken)
{
    for (const char *const command :
         {"get", "tree", "replace", "delete", "rename", "add", "copy"}) {
        std::set<std::string> reached;
        follow(command, QString(), reached);
        std::set<std::string> reachable;
        for (const ListedNode &listed : tree.list(*tree.find(NodeUri()), TreeView::Values::Omit))
            if (parseAddress(QString::fromLatin1(listed.node.uri().toUri()), tree.uriLimits()))
                reachable.insert(listed.node.uri().toUri().toStdString());
        EXPECT_EQ(reached, reachable) << command;
    }
}

TEST_F(AddressTest, EveryPropertyThatIsOfferedCanBeReplaced)
{
    std::size_t offered = 0;
    for (const ListedNode &listed : tree.list(*tree.find(NodeUri()), TreeView::Values::Omit)) {
        const QString typed = listed.node.uri().toDisplay() + u'?';
        for (const Candidate &candidate : complete({{QStringLiteral("replace")}, typed}, tree)) {
            const auto address = parseAddress(candidate.word, tree.uriLimits());
            ASSERT_TRUE(address) << candidate.word.toStdString();
            const auto property = propertyNamed(address->argument);
            ASSERT_TRUE(property) << candidate.word.toStdString();
            // What the property has already is refused for this reason alone, or taken.
            const Result<QByteArray> value = tree.property(listed.node, *property);
            ASSERT_TRUE(value) << candidate.word.toStdString();
            EXPECT_NE(tree.replaceProperty(address->node, *property, *value).status,
                      DmStatus::NotAllowed)
                << candidate.word.toStdString();
            ++offered;
        }
    }
    EXPECT_GT(offered, 0U);
}

TEST_F(AddressTest, EveryChildThatIsOfferedIsThatChild)
{
    std::set<std::string> named;
    const QString office = QStringLiteral("./Ext/Profiles/Office");
    for (const Candidate &candidate : complete({{QStringLiteral("replace"), office}, {}}, tree)) {
        const QStringList words =
            wordsOf("replace ./Ext/Profiles/Office", candidate.word + QStringLiteral("v=w"));
        const auto invocation = commandline::parse(shellProgram(), words);
        ASSERT_TRUE(invocation) << invocation.error().toStdString();
        const QString child = invocation->arguments[1].section(u'=', 0, 0);
        ASSERT_TRUE(parseAddress(child, tree.uriLimits())) << child.toStdString();
        named.insert(parseAddress(child, tree.uriLimits())->node.name().toStdString());
    }
    for (const char *const name : {"a=b", "=", "-dash", "--json", "100%", "it's", "Addr"})
        EXPECT_TRUE(named.contains(name)) << name;
    EXPECT_FALSE(named.contains(".."));
}

TEST_F(AddressTest, WhatCandidatesHaveInCommonEndsBetweenCharacters)
{
    const auto common = [](const char *first, const char *second) {
        return commonStart({{QString::fromUtf8(first)}, {QString::fromUtf8(second)}}).toStdString();
    };
    EXPECT_EQ(common("./Office", "./Office2"), "./Office");
    EXPECT_EQ(common("./\xF0\x9F\x98\x80", "./\xF0\x9F\x98\x81"), "./");
    EXPECT_EQ(common("./a%20", "./a%2F"), "./a");
    EXPECT_EQ(common("./a%20b", "./a%20c"), "./a%20");
    EXPECT_EQ(commonStart({{QStringLiteral("./100%25")}}).toStdString(), "./100%25");
}

TEST_F(CompletionTest, OptionsAndFormatsAreOffered)
{
    EXPECT_EQ(after("tree --"), (Words{"--json", "--show-secrets", "--help"}));
    EXPECT_EQ(after("add ./Ext/Profiles/Home/X 1 --format "),
              (Words{"chr", "int", "bool", "bin", "b64", "node", "null"}));
    EXPECT_EQ(after("delete --"), (Words{"--show-secrets", "--help"}));
}

TEST_F(CompletionTest, WordsOfTheTableAreOffered)
{
    EXPECT_EQ(after("session --encoding "), (Words{"xml", "wbxml"}));
    EXPECT_EQ(after("session --ca "), Words());
    EXPECT_EQ(after("account s"), (Words{"show", "set"}));
    EXPECT_EQ(after("account set Test client-"),
              (Words{"client-auth=~", "client-name=~", "client-secret=~", "client-nonce=~"}));
    EXPECT_EQ(after("help account "), Words());
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
