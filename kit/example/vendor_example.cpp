// A data plug-in that can be read in ten minutes: a vendor's settings, under management.
//
//     ./Vendor/Example
//         Settings     a server adds, changes, renames and deletes leaves here, of texts
//         Reset        Exec on it forgets them all
//
// The engine calls it through two exported functions (at the end of this file) and the virtual
// tables of DmtTree and DmtNode. It keeps every change in a settings file of its own before it
// answers, so that the next mount shows what a server was told.
//
// What a plug-in has to think of, in the order in which it stands here: what a value may be, where
// it is kept, what is done when that fails, and which of the engine's calls change something.

#include "aplog.h"
#include "dmnative/dmt_plugin_api.h"
#include "setup_set_manager.h"

#include <QByteArray>
#include <QString>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string_view>

namespace {

constexpr char rootPath[] = "./Vendor/Example";
constexpr char settingsPath[] = "Settings";
constexpr char resetPath[] = "Reset";

// ---- Values --------------------------------------------------------------------------------------

/// Says on the handset's log why something is refused. A client puts the sentence behind the
/// status.
void logFailure(const char *sentence)
{
    std::FILE *const log = libaplog_to_module_ptr ? libaplog_to_module_ptr : stdout;
    std::fprintf(log, "(%s)%s\n", __FILE_NAME__, sentence);
}

/// The text, unless its bytes are not UTF-8: the settings file would keep another one.
std::optional<QString> textOf(const char *bytes)
{
    QString text = QString::fromUtf8(bytes);
    return text.toUtf8() == bytes ? std::optional(std::move(text)) : std::nullopt;
}

/// The text that a leaf is to have.
std::optional<QString> textOf(const DmtData &value)
{
    DMString text;
    return value.GetString(text) == DMT_OK ? textOf(text.text()) : std::nullopt;
}

/// The name of a leaf beneath Settings; none for every other path.
std::optional<QString> settingAt(const char *path)
{
    constexpr std::string_view folder = "Settings/";
    const std::string_view given(path ? path : "");
    const bool isSetting = given.starts_with(folder) && given.size() > folder.size() &&
                           given.find('/', folder.size()) == given.npos;
    return isSetting ? textOf(path + folder.size()) : std::nullopt;
}

// ---- Where they are kept -------------------------------------------------------------------------

/// The settings in their file. Each change is in the file when it returns true; otherwise neither
/// the file nor the memory has it.
class Settings {
public:
    Settings() : m_file(getSettingDirectory() + QStringLiteral("vendor_example.cfg"), false) {}

    QMap<QString, QString> all() const { return m_file.getEntryKeyList(group()); }

    bool set(const QString &name, const QString &value)
    {
        const QMap<QString, QString> before = all();
        m_file.setSettingInfo(group(), name, value, false);
        return keepOrReturnTo(before);
    }

    bool rename(const QString &name, const QString &newName)
    {
        const QMap<QString, QString> before = all();
        m_file.setSettingInfo(group(), newName, before[name], false);
        m_file.removeEntry(group(), name);
        return keepOrReturnTo(before);
    }

    bool remove(const QString &name)
    {
        const QMap<QString, QString> before = all();
        m_file.removeEntry(group(), name);
        return keepOrReturnTo(before);
    }

    bool clear()
    {
        const QMap<QString, QString> before = all();
        replaceAll({});
        return keepOrReturnTo(before);
    }

private:
    static QString group() { return QStringLiteral("Settings"); }

    void replaceAll(const QMap<QString, QString> &entries)
    {
        for (const QString &name : all().keys())
            m_file.removeEntry(group(), name);
        for (auto entry = entries.begin(); entry != entries.end(); ++entry)
            m_file.setSettingInfo(group(), entry.key(), entry.value(), false);
    }

    bool keepOrReturnTo(const QMap<QString, QString> &before)
    {
        if (m_file.flush())
            return true;
        replaceAll(before);
        logFailure("the settings cannot be written");
        return false;
    }

    SETUP_SET_Manager m_file;
};

// ---- The tree ------------------------------------------------------------------------------------

class ExampleTree final : public DmtRWPluginTree {
public:
    ExampleTree() { Init(rootPath); }

    /// Makes the nodes of what is kept. @return 0, or why there is no tree
    int load() noexcept;

    // What a server changes. Everything else is as the bases of the engine have it: they find
    // nodes, list them, and refuse what no plug-in offers. Nothing may throw into the engine.
    int CreateLeafNodeInternal(const char *path, JemSmartPtr<DmtNode> &node,
                               const DmtData &value) noexcept override;
    int CreateInteriorNodeInternal(const char *path, JemSmartPtr<DmtNode> &node,
                                   const DMStringVector &childNames) noexcept override;
    int RenameNode(const char *path, const char *newName) noexcept override;
    int DeleteNode(const char *path) noexcept override;

    /// Keeps the value of a leaf that is there.
    int keep(const char *path, const DmtData &value) noexcept;
    /// Forgets all settings, and their nodes.
    int reset() noexcept;

private:
    /// Registers a node, initialised with what follows its path.
    template <class Node, class... Contents>
    JemSmartPtr<DmtNode> add(const char *path, const Contents &...contents)
    {
        auto *const node = new Node;
        const JemSmartPtr<DmtNode> holder(node);
        node->Init(JemSmartPtr<DmtPluginTree>(this), path, contents...);
        SetNode(path, holder);
        return holder;
    }

    Settings m_settings;
};

// ---- Nodes ---------------------------------------------------------------------------------------

constexpr unsigned char inOnePiece = 0;

// Without a list of its own a node inherits: every server may add beneath it and read, no server
// may change what is there or execute it.

class RootNode final : public DmtPluginNode {};

class SettingsNode final : public DmtPluginNode {
public:
    SettingsNode() { m_acl.text = DMString("Add=*&Delete=*&Get=*&Replace=*"); }
};

class SettingNode final : public DmtRWPluginNode {
public:
    int SetValue(const DmtData &value) noexcept override
    {
        JemSmartPtr<DmtTree> tree;
        if (const int status = GetTree(tree))
            return status; // the engine still holds a node of a tree that is gone
        const int status = static_cast<ExampleTree *>(tree.get())->keep(m_path.text(), value);
        return status == DMT_OK ? DmtRWPluginNode::SetValue(value) : status;
    }
};

class ResetNode final : public DmtPluginNode {
public:
    ResetNode() { m_acl.text = DMString("Exec=*&Get=*"); }

    int Execute(const char *, DMString &) noexcept override
    {
        JemSmartPtr<DmtTree> tree;
        const int status = GetTree(tree);
        return status == DMT_OK ? static_cast<ExampleTree *>(tree.get())->reset() : status;
    }
};

// ---- What a server changes -----------------------------------------------------------------------

int ExampleTree::load() noexcept
{
    add<RootNode>("");
    add<SettingsNode>(settingsPath);
    add<ResetNode>(resetPath);
    const QMap<QString, QString> settings = m_settings.all();
    for (auto entry = settings.begin(); entry != settings.end(); ++entry) {
        const QByteArray path = QByteArray(settingsPath) + '/' + entry.key().toUtf8();
        // The file is the handset's: whatever somebody has written into it has to be a node's name.
        if (settingAt(path.constData()))
            add<SettingNode>(path.constData(), DmtData(entry.value().toUtf8().constData()),
                             inOnePiece);
    }
    return DMT_OK;
}

int ExampleTree::CreateLeafNodeInternal(const char *path, JemSmartPtr<DmtNode> &node,
                                        const DmtData &value) noexcept
{
    const std::optional<QString> name = settingAt(path);
    if (!name)
        return DMT_NOT_ALLOWED;
    JemSmartPtr<DmtNode> existing;
    if (GetNode(path, existing) == DMT_OK)
        return DMT_ALREADY_EXISTS;
    const std::optional<QString> text = textOf(value);
    if (!text)
        return DMT_UNSUPPORTED_FORMAT;
    if (!m_settings.set(*name, *text))
        return DMT_COMMAND_FAILED;
    node = add<SettingNode>(path, value, inOnePiece);
    return DMT_OK;
}

int ExampleTree::CreateInteriorNodeInternal(const char *, JemSmartPtr<DmtNode> &,
                                            const DMStringVector &) noexcept
{
    return DMT_NOT_ALLOWED;
}

int ExampleTree::keep(const char *path, const DmtData &value) noexcept
{
    const std::optional<QString> name = settingAt(path);
    const std::optional<QString> text = textOf(value);
    if (!name || !text)
        return DMT_UNSUPPORTED_FORMAT;
    return m_settings.set(*name, *text) ? DMT_OK : DMT_COMMAND_FAILED;
}

int ExampleTree::RenameNode(const char *path, const char *newName) noexcept
{
    const std::optional<QString> name = settingAt(path);
    const QByteArray newPath = QByteArray(settingsPath) + '/' + (newName ? newName : "");
    const std::optional<QString> renamed = settingAt(newPath.constData());
    if (!name || !renamed)
        return DMT_NOT_ALLOWED;
    JemSmartPtr<DmtNode> node;
    if (const int status = GetNode(path, node))
        return status;
    if (GetNode(newPath.constData(), node) == DMT_OK)
        return DMT_ALREADY_EXISTS;
    if (!m_settings.rename(*name, *renamed))
        return DMT_COMMAND_FAILED;
    return DmtRWPluginTree::RenameNode(path, newName);
}

int ExampleTree::DeleteNode(const char *path) noexcept
{
    const std::optional<QString> name = settingAt(path);
    if (!name)
        return DMT_NOT_ALLOWED;
    JemSmartPtr<DmtNode> node;
    if (const int status = GetNode(path, node))
        return status;
    return m_settings.remove(*name) ? DmtRWPluginTree::DeleteNode(path) : int(DMT_COMMAND_FAILED);
}

int ExampleTree::reset() noexcept
{
    if (!m_settings.clear())
        return DMT_COMMAND_FAILED;
    DMStringVector names;
    GetChildNodeNames(settingsPath, names);
    for (const DMString &name : names)
        DmtRWPluginTree::DeleteNode((DMString("Settings/") + name).text());
    return DMT_OK;
}

} // namespace

// ---- What an engine looks up ---------------------------------------------------------------------

#define KUB_EXPORT extern "C" __attribute__((visibility("default")))

KUB_EXPORT int DMT_PluginLib_GetAPIVersion() noexcept
{
    return DMT_PLUGIN_API_VERSION;
}

KUB_EXPORT int DMT_PluginLib_Data_GetPluginTree(const char *root, void *,
                                                JemSmartPtr<DmtPluginTree> &tree) noexcept
{
    if (!root || std::strcmp(root, rootPath) != 0)
        return DMT_FEATURE_NOT_SUPPORTED;
    auto *const loading = new ExampleTree;
    const JemSmartPtr<DmtPluginTree> holder(loading);
    if (const int status = loading->load())
        return status;
    tree = holder;
    return DMT_OK;
}
