// The files that say which plug-ins there are.

#include "plugin_description.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace client {

namespace {

class PluginDescriptionTest : public testing::Test {
protected:
    void write(const QString &name, const QByteArray &content)
    {
        QFile file(folder.filePath(name));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(content);
    }
    /// What is wrong with a file that says this; empty when nothing is.
    std::string faultOf(const QByteArray &content)
    {
        write(QStringLiteral("one.json"), content);
        const auto description = readPluginDescription(folder.filePath(QStringLiteral("one.json")));
        return description ? std::string() : withoutFolder(description.error());
    }
    std::string withoutFolder(QString text) const
    {
        return text.replace(folder.path(), QStringLiteral("FOLDER")).toStdString();
    }
    /// Libraries and roots of the folder's plug-ins, a line each.
    static std::string shown(const PluginDescriptions &descriptions)
    {
        std::string lines;
        for (const PluginDescription &plugin : descriptions.plugins) {
            lines += plugin.library.toStdString();
            for (const NodeUri &root : plugin.roots)
                lines += ' ' + root.toUri().toStdString();
            lines += '\n';
        }
        return lines;
    }

    QTemporaryDir folder;
};

TEST_F(PluginDescriptionTest, HasALibraryAndItsRootsInOrder)
{
    write(QStringLiteral("one.json"),
          R"({"library": "libvendor.so.1", "roots": ["./Vendor/B", "./Vendor/A"]})");
    const auto description = readPluginDescription(folder.filePath(QStringLiteral("one.json")));
    ASSERT_TRUE(description) << description.error().toStdString();
    EXPECT_EQ(description->library, QStringLiteral("libvendor.so.1"));
    ASSERT_EQ(description->roots.size(), 2u);
    EXPECT_EQ(description->roots[0].toUri(), "./Vendor/B");
    EXPECT_EQ(description->roots[1].toUri(), "./Vendor/A");
}

TEST_F(PluginDescriptionTest, NamesNodesWhoseExecTakesLong)
{
    write(QStringLiteral("one.json"), R"({"library": "x", "roots": ["./V", "./W"], "longExec": {
        "./W/Run": "Reversed-Domain-Name: org.example.run", "V/Do": "Content-Type: text/plain"}})");
    const auto description = readPluginDescription(folder.filePath(QStringLiteral("one.json")));
    ASSERT_TRUE(description) << description.error().toStdString();
    ASSERT_EQ(description->longExec.size(), 2u);
    EXPECT_EQ(description->longExec.at(nodeAt("./W/Run")),
              QStringLiteral("Reversed-Domain-Name: org.example.run"));
    EXPECT_EQ(description->longExec.at(nodeAt("./V/Do")),
              QStringLiteral("Content-Type: text/plain"));
}

TEST_F(PluginDescriptionTest, ARelativePathBeginsAtTheFolderOfTheFile)
{
    for (const auto &[given, library] :
         {std::pair("libvendor.so", QStringLiteral("libvendor.so")),
          std::pair("/opt/libvendor.so", QStringLiteral("/opt/libvendor.so")),
          std::pair("./libvendor.so", folder.filePath(QStringLiteral("./libvendor.so"))),
          std::pair("sub/libvendor.so", folder.filePath(QStringLiteral("sub/libvendor.so")))}) {
        write(QStringLiteral("one.json"),
              QByteArray(R"({"roots": ["./V"], "library": ")") + given + R"("})");
        const auto description = readPluginDescription(folder.filePath(QStringLiteral("one.json")));
        ASSERT_TRUE(description);
        EXPECT_EQ(description->library, library);
    }
}

TEST_F(PluginDescriptionTest, WhatIsWrongIsNamed)
{
    struct Row {
        const char *content;
        const char *fault;
    };
    const Row rows[] = {
        {"", "byte 0: illegal value"},
        {R"({"library": "x", "roots)", "byte 24: unterminated string"},
        {"[]", "byte 0: not a JSON object"},
        {R"({"library": "x", "roots": ["./V"], "rots": 1})", "there is no member rots"},
        {R"({"roots": ["./V"]})", "library is not a text"},
        {R"({"library": 1, "roots": ["./V"]})", "library is not a text"},
        {R"({"library": "", "roots": ["./V"]})", "library is not a text"},
        {R"({"library": "x"})", "roots is not a list of 1 to 64 addresses"},
        {R"({"library": "x", "roots": "./V"})", "roots is not a list of 1 to 64 addresses"},
        {R"({"library": "x", "roots": []})", "roots is not a list of 1 to 64 addresses"},
        {R"({"library": "x", "roots": [1]})", "\"\" is not the address of a node"},
        {R"({"library": "x", "roots": ["./V//W"]})", "\"./V//W\" is not the address of a node"},
        {R"({"library": "x", "roots": ["./V?prop=ACL"]})",
         "\"./V?prop=ACL\" is not the address of a node"},
        {R"({"library": "x", "roots": ["."]})", ".: the client has nodes of its own there"},
        {R"({"library": "x", "roots": ["./DMAcc/x"]})",
         "./DMAcc/x: the client has nodes of its own there"},
        {R"({"library": "x", "roots": ["./DevDetail"]})",
         "./DevDetail: the client has nodes of its own there"},
        {R"({"library": "x", "roots": ["./DevDetail/Ext"]})",
         "./DevDetail/Ext: the client has nodes of its own there"},
        {R"({"library": "x", "roots": ["./Inbox"]})",
         "./Inbox: the client has nodes of its own there"},
        {R"({"library": "x", "roots": ["./V", "./V/W"]})", "./V/W is within another of the roots"},
        {R"({"library": "x", "roots": ["./V/W", "./V"]})", "./V is within another of the roots"},
        {R"({"library": "x", "roots": ["./V", "V"]})", "./V is within another of the roots"},
        {R"({"library": "x", "roots": ["./V"], "longExec": ["./V/R"]})",
         "longExec is not an object of at most 64 addresses"},
        {R"({"library": "x", "roots": ["./V"], "longExec": {"./W/R": "Content-Type: a/b"}})",
         "\"./W/R\" is not the address of a node beneath its roots"},
        {R"({"library": "x", "roots": ["./V"], "longExec": {"./V?prop=ACL": "Content-Type: a/b"}})",
         "\"./V?prop=ACL\" is not the address of a node beneath its roots"},
        {R"({"library": "x", "roots": ["./V"], "longExec": {"./V/R": "org.example"}})",
         "./V/R: \"org.example\" is neither Content-Type: nor Reversed-Domain-Name: with a name "
         "behind it"},
        {R"({"library": "x", "roots": ["./V"], "longExec": {"./V/R": 1}})",
         "./V/R: \"\" is neither Content-Type: nor Reversed-Domain-Name: with a name behind it"},
    };
    for (const Row &row : rows)
        EXPECT_EQ(faultOf(row.content), std::string("FOLDER/one.json: ") + row.fault);
    EXPECT_EQ(faultOf(R"({"library": "x", "roots": ["./DevDetail/Ext/V", "./DevInfos"]})"), "");
}

TEST_F(PluginDescriptionTest, WhatCannotBeReadIsNamed)
{
    EXPECT_EQ(faultOf(QByteArray(64 * 1024 + 1, ' ')),
              "FOLDER/one.json is larger than 65536 bytes");
    const auto missing = readPluginDescription(folder.filePath(QStringLiteral("none.json")));
    EXPECT_EQ(withoutFolder(missing.error()),
              "cannot read FOLDER/none.json: No such file or directory");
}

TEST_F(PluginDescriptionTest, AFolderIsReadInTheOrderOfItsNames)
{
    write(QStringLiteral("20-b.json"), R"({"library": "b", "roots": ["./B"]})");
    write(QStringLiteral("10-z.json"), R"({"library": "z", "roots": ["./Z"]})");
    write(QStringLiteral("30-c.json.dpkg-old"), R"({"library": "c", "roots": ["./C"]})");
    write(QStringLiteral("README"), "not a description");
    const PluginDescriptions found = readPluginDescriptions(folder.path());
    EXPECT_EQ(shown(found), "z ./Z\nb ./B\n");
    EXPECT_EQ(found.faults, QStringList());
}

TEST_F(PluginDescriptionTest, TheFirstOneKeepsARootThatTwoWant)
{
    write(QStringLiteral("10.json"), R"({"library": "a", "roots": ["./V/A", "./V/B"]})");
    write(QStringLiteral("20.json"), R"({"library": "b", "roots": ["./C", "./V/B/D"]})");
    write(QStringLiteral("30.json"), R"({"library": "c", "roots": ["./V"]})");
    write(QStringLiteral("40.json"), R"({"library": "d", "roots": ["./C"]})");
    const PluginDescriptions found = readPluginDescriptions(folder.path());
    EXPECT_EQ(shown(found), "a ./V/A ./V/B\nd ./C\n") << "nothing of b is there";
    EXPECT_EQ(withoutFolder(found.faults.join(u'\n')),
              "FOLDER/20.json: another plug-in is at ./V/B/D already\n"
              "FOLDER/30.json: another plug-in is at ./V already");
}

TEST_F(PluginDescriptionTest, AFolderThatIsNotThereIsAFault)
{
    const PluginDescriptions found = readPluginDescriptions(folder.filePath(QStringLiteral("no")));
    EXPECT_EQ(withoutFolder(found.faults.join(u'\n')), "cannot list the plug-ins in FOLDER/no");
}

} // namespace

} // namespace client
