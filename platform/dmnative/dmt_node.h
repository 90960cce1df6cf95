// The engine's management nodes: the interface that it calls, and the bases of a plug-in's nodes.
//
// The order of the virtual members is the binary interface: an engine calls them by slot number.
// Slots 0 and 1 are the complete and the deleting destructor. Nothing is ever inserted or moved.
#pragma once

#include "dmt_data.h"
#include "dmt_status.h"

#include <cstdint>

class DmtTree;
class DmtPluginTree;
class DmtTreeLink;

/// Access control list of a node, as the text that the DM protocol defines.
struct DmtAcl {
    DMString text;
};

/// Run-time properties of a node.
struct DmtAttributes {
    DMString name;
    DMString title;
    DmtAcl acl;
    signed char type = DmtData::Null; ///< DmtData::Type of the value; Node for an interior node
    std::uint32_t sizeBytes = 0;      ///< of the value; 0 for an interior node
};

/// One piece of a value that is moved in pieces.
struct DmtDataChunk {
    DMVector<unsigned char> bytes;
    bool last = true;
};

/// A management node as the engine sees it.
///
/// Every operation is called on the engine's thread, one at a time, and returns a status: 0 on
/// success, otherwise a DmtStatus or a plug-in's own code. Outputs are filled on success and left
/// as they were on failure. Paths are relative to the root of the node's tree.
class DMNATIVE_API DmtNode : public JemRefCounted {
public:
    /// Slot 2. The owning tree; DMT_COMMAND_FAILED once that tree is destroyed.
    virtual int GetTree(JemSmartPtr<DmtTree> &tree) const = 0;
    /// Slot 3. Path of the node; empty for the root of its tree.
    virtual int GetPath(DMString &path) const = 0;
    /// Slot 4.
    virtual int GetAttributes(DmtAttributes &attributes) const = 0;
    /// Slot 5. UTF-8 text, copied.
    virtual int SetTitle(const char *title) = 0;
    /// Slot 6.
    virtual int SetAcl(const DmtAcl &acl) = 0;
    /// Slot 7. Called for a server's Get of a leaf.
    virtual int GetValue(DmtData &value) = 0;
    /// Slot 8. Called for a server's Replace of a leaf.
    virtual int SetValue(const DmtData &value) = 0;
    /// Slot 9. Children in the order in which the node lists them; the output is emptied first.
    /// Listed names without a registered node are left out. DMT_NOT_ALLOWED on a leaf.
    virtual int GetChildNodes(DMVector<JemSmartPtr<DmtNode>> &children) const = 0;
    /// Slot 10.
    virtual bool IsLeaf() const = 0;
    /// Slot 11. DMT_NOT_FOUND when there is no child of that name.
    virtual int GetChildNode(const char *name, JemSmartPtr<DmtNode> &child) = 0;
    /// Slot 12. DMT_NOT_ALLOWED on nodes that cannot be executed.
    virtual int Execute(const char *argument, DMString &result) = 0;
    /// Slot 13. Last segment of the path.
    virtual int GetNodeName(DMString &name) const = 0;
    /// Slot 14. The node's name by value.
    virtual DMString GetName() const = 0;
    /// Slots 15 to 19. Move a value in pieces; DMT_FEATURE_NOT_SUPPORTED on nodes whose values fit
    /// into one DmtData.
    virtual int GetFirstChunk(DmtDataChunk &chunk) = 0;
    virtual int GetNextChunk(DmtDataChunk &chunk) = 0;
    virtual int SetFirstChunk(DmtDataChunk &chunk) = 0;
    virtual int SetNextChunk(DmtDataChunk &chunk) = 0;
    virtual int SetLastChunk(DmtDataChunk &chunk) = 0;
    /// Slot 20. 1 when the value is moved in pieces (slots 15 to 19), else 0.
    virtual std::uint8_t HasChunkedValue() const = 0;
};

/// Read-only base of a plug-in's nodes. It keeps the path, the link to the owning tree, the name
/// and the value; it answers every read from them and refuses every write with DMT_NOT_ALLOWED.
///
/// The link to the tree does not count as a reference. When the tree is destroyed its nodes stay
/// usable by whoever still holds one, but answer DMT_COMMAND_FAILED to whatever needs the tree.
class DMNATIVE_API DmtPluginNode : public DmtNode {
public:
    int GetTree(JemSmartPtr<DmtTree> &tree) const override;
    int GetPath(DMString &path) const override;
    int GetAttributes(DmtAttributes &attributes) const override;
    int SetTitle(const char *title) override;
    int SetAcl(const DmtAcl &acl) override;
    int GetValue(DmtData &value) override;
    int SetValue(const DmtData &value) override;
    int GetChildNodes(DMVector<JemSmartPtr<DmtNode>> &children) const override;
    bool IsLeaf() const override;
    int GetChildNode(const char *name, JemSmartPtr<DmtNode> &child) override;
    int Execute(const char *argument, DMString &result) override;
    int GetNodeName(DMString &name) const override;
    DMString GetName() const override;
    int GetFirstChunk(DmtDataChunk &chunk) override;
    int GetNextChunk(DmtDataChunk &chunk) override;
    int SetFirstChunk(DmtDataChunk &chunk) override;
    int SetNextChunk(DmtDataChunk &chunk) override;
    int SetLastChunk(DmtDataChunk &chunk) override;
    std::uint8_t HasChunkedValue() const override;

    /// Slots 21 to 24. Called once, right after construction, before the node is registered with
    /// its tree. The path is relative to the root of the tree; the name is its last segment. A null
    /// path is the empty one. Slot 21: interior node without children.
    virtual int Init(JemSmartPtr<DmtPluginTree> tree, const char *path);
    /// Slot 22: interior node without children, with the flag that slot 20 reports.
    virtual int Init(JemSmartPtr<DmtPluginTree> tree, const char *path,
                     unsigned char hasChunkedValue);
    /// Slot 23: leaf with its first value and the flag that slot 20 reports.
    virtual int Init(JemSmartPtr<DmtPluginTree> tree, const char *path, const DmtData &value,
                     unsigned char hasChunkedValue);
    /// Slot 24: interior node that lists these children. A listed child appears once a node is
    /// registered for it.
    virtual int Init(JemSmartPtr<DmtPluginTree> tree, const char *path,
                     const DMStringVector &childNames);

protected:
    DmtPluginNode();
    ~DmtPluginNode() override;

    DMString m_path;             ///< relative to the root of the tree
    DmtTreeLink *m_treeLink;     ///< weak link, shared with the tree
    DMString m_name;             ///< last segment of m_path
    DmtData m_value;             ///< value that the engine keeps for a leaf
    DMStringVector m_childNames; ///< as given to Init; the tree keeps the living list
    DMString m_title;
    DmtAcl m_acl;
    std::uint8_t m_isLeaf;
    std::uint8_t m_hasChunkedValue;
    std::uint64_t m_reserved[2]; ///< room for the engine; keeps the published size

private:
    friend class DmtPluginTree;
    friend class DmtRWPluginNode;

    /// Takes the path, and its last segment as the name.
    void TakePath(const DMString &path);
    int InitAs(const JemSmartPtr<DmtPluginTree> &tree, const char *path, bool leaf,
               unsigned char hasChunkedValue);
};

/// Base of a plug-in's nodes that a server may change: it keeps what is written to it.
class DMNATIVE_API DmtRWPluginNode : public DmtPluginNode {
public:
    int SetTitle(const char *title) override;
    int SetAcl(const DmtAcl &acl) override;
    /// Keeps the value in the node; DMT_NOT_ALLOWED on an interior node.
    int SetValue(const DmtData &value) override;

    /// Gives the node a new name and moves everything beneath it along; it keeps its place among
    /// its siblings. @return DMT_NOT_FOUND for a node that is not registered, DMT_NOT_ALLOWED for
    /// the root of a tree or a name that is empty or has a slash, DMT_ALREADY_EXISTS for a taken
    /// name.
    int Rename(const char *newName);

protected:
    DmtRWPluginNode();
    ~DmtRWPluginNode() override;
};

#if defined(__LP64__)
// Engines of this interface lay a plug-in's nodes out in this size.
static_assert(sizeof(DmtRWPluginNode) == 144);
#endif
