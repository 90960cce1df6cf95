#include "plugin_test.h"

#include "printed_levels.h"

namespace doubles {

NAP_PROFILE_S Record(const std::string &gprs, const std::string &csd, const std::string &csd2)
{
    NAP_PROFILE_S record{};
    SetText(record.gprsAddress, gprs);
    SetText(record.csdAddress, csd);
    SetText(record.csd2Address, csd2);
    return record;
}

std::string StringOf(const DmtData &value)
{
    DMString text;
    if (value.GetString(text) != 0)
        return "<no string, but type " + std::to_string(value.GetType()) + ">";
    return text.text();
}

int IntOf(const DmtData &value)
{
    int number = 0;
    EXPECT_EQ(value.GetInt(number), 0) << "type " << int{value.GetType()};
    return number;
}

bool BoolOf(const DmtData &value)
{
    bool flag = false;
    EXPECT_EQ(value.GetBoolean(flag), 0) << "type " << int{value.GetType()};
    return flag;
}

void PluginTest::SetUp()
{
    m_blocksBefore = dmnative_control::LiveBlocks();
}

void PluginTest::TearDown()
{
    EXPECT_EQ(dmnative_control::LiveBlocks(), m_blocksBefore) << "blocks of the engine leaked";
    EXPECT_EQ(handset.settings.OpenManagers(), 0) << "settings files left open";
}

TreePtr PluginTest::LoadTree(const char *root)
{
    TreePtr tree = NewTree(root);
    EXPECT_EQ(tree->LoadProfilesinDB(), 0) << handset.log.Text();
    handset.journal.Clear();
    handset.log.Take();
    return tree;
}

JemSmartPtr<DmtNode> PluginTest::Node(const TreePtr &tree, const std::string &path)
{
    dmnative_control::SetEngineCallObserver({});
    JemSmartPtr<DmtNode> node;
    tree->GetNode(path.c_str(), node);
    handset.ObserveEngine();
    return node;
}

DmtData PluginTest::Value(const TreePtr &tree, const std::string &path)
{
    DmtData value;
    const JemSmartPtr<DmtNode> node = Node(tree, path);
    EXPECT_TRUE(node) << path;
    if (node) {
        EXPECT_EQ(node->GetValue(value), 0) << path << '\n' << handset.log.Text();
    }
    return value;
}

Lines PluginTest::Children(const TreePtr &tree, const std::string &path)
{
    dmnative_control::SetEngineCallObserver({});
    Lines names;
    DMStringVector found;
    EXPECT_EQ(tree->GetChildNodeNames(path.c_str(), found), 0) << path;
    for (const DMString &name : found)
        names.push_back(name.text());
    handset.ObserveEngine();
    return names;
}

void PluginTest::ExpectLogged(const Lines &expected)
{
    const Lines messages = handset.log.Take();
    if (!TRACES_PRINT) {
        EXPECT_EQ(messages, expected);
        return;
    }
    auto next = expected.begin();
    for (const std::string &message : messages)
        if (next != expected.end() && message == *next)
            ++next;
    if (next != expected.end()) {
        ADD_FAILURE() << "not logged, or not in this order: " << *next;
    }
}

Lines PluginTest::TakeOutsideCalls()
{
    Lines outside;
    static const Lines engine{"GetNode",       "SetNode",  "DeleteNode",
                              "GetChildNodes", "SetValue", "Rename"};
    for (const std::string &line : handset.journal.Take())
        if (std::find(engine.begin(), engine.end(), line.substr(0, line.find('('))) == engine.end())
            outside.push_back(line);
    return outside;
}

} // namespace doubles
