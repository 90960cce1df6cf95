/// @file
/// The engine's management nodes: the interface that it calls, and the bases of a plug-in's nodes.
///
/// The order of the virtual members is the binary interface: an engine calls them by slot number.
/// Slots 0 and 1 are the complete and the deleting destructor. Nothing is ever inserted or moved.
#pragma once

#include "dmt_data.h"
#include "dmt_status.h"

#include <cstdint>

class DmtTree;
class DmtPluginTree;
class DmtTreeLink;

/// Access control list of a node, as the text that the DM protocol defines.
struct DmtAcl {
    DMString text; ///< such as "Get=*&Replace=dm.example"; empty for none of the node's own
};

/// Run-time properties of a node.
struct DmtAttributes {
    DMString name;                    ///< last segment of the path; empty for the root of a tree
    DMString title;                   ///< UTF-8 text for people
    DmtAcl acl;                       ///< of the node itself, without what it inherits
    signed char type = DmtData::Null; ///< DmtData::Type of the value; Node for an interior node
    std::uint32_t sizeBytes = 0;      ///< bytes of a String, without its terminator; else 0
};

/// One piece of a value that is moved in pieces.
struct DmtDataChunk {
    DMVector<unsigned char> bytes; ///< of this piece
    bool last = true;              ///< whether no piece follows
};

/// A management node as the engine sees it.
///
/// Every operation is called on the engine's thread, one at a time, and returns a status: 0 on
/// success, otherwise a DmtStatus or a plug-in's own code. Outputs are filled on success and left
/// as they were on failure. Paths are relative to the root of the node's tree.
class DMNATIVE_API DmtNode : public JemRefCounted {
public:
    /// Slot 2: The owning tree; DMT_COMMAND_FAILED once that tree is destroyed.
    virtual int GetTree(JemSmartPtr<DmtTree> &tree) const = 0;
    /// Slot 3: Path of the node; empty for the root of its tree.
    virtual int GetPath(DMString &path) const = 0;
    /// Slot 4: All run-time properties at once, as copies.
    virtual int GetAttributes(DmtAttributes &attributes) const = 0;
    /// Slot 5: The title for people: UTF-8 text, copied. DMT_NOT_ALLOWED on a read-only node.
    virtual int SetTitle(const char *title) = 0;
    /// Slot 6: Replaces the access control list, which is copied and not checked. DMT_NOT_ALLOWED
    /// on a read-only node.
    virtual int SetAcl(const DmtAcl &acl) = 0;
    /// Slot 7: Called for a server's Get of a leaf. The value is a copy.
    virtual int GetValue(DmtData &value) = 0;
    /// Slot 8: Called for a server's Replace of a leaf. The value is copied. DMT_NOT_ALLOWED on a
    /// read-only or an interior node.
    virtual int SetValue(const DmtData &value) = 0;
    /// Slot 9: Children in the order in which the node lists them; the output is emptied first.
    /// Listed names without a registered node are left out. DMT_NOT_ALLOWED on a leaf,
    /// DMT_COMMAND_FAILED once the tree is destroyed.
    virtual int GetChildNodes(DMVector<JemSmartPtr<DmtNode>> &children) const = 0;
    /// Slot 10: Whether the node has a value; an interior node has children instead.
    virtual bool IsLeaf() const = 0;
    /// Slot 11: The child of a name, which is one path segment and not null. DMT_NOT_FOUND when
    /// there is none, DMT_COMMAND_FAILED once the tree is destroyed.
    virtual int GetChildNode(const char *name, JemSmartPtr<DmtNode> &child) = 0;
    /// Slot 12: Called for a server's Exec, with its data as text. The result stays with the
    /// engine: the DM protocol has no way to send it. DMT_NOT_ALLOWED on nodes that cannot be
    /// executed.
    virtual int Execute(const char *argument, DMString &result) = 0;
    /// Slot 13: Last segment of the path; empty for the root of a tree.
    virtual int GetNodeName(DMString &name) const = 0;
    /// Slot 14: The node's name by value.
    virtual DMString GetName() const = 0;
    /// Slot 15: Begins to read a value in pieces. Slots 15 to 19 answer DMT_FEATURE_NOT_SUPPORTED
    /// on nodes whose values fit into one DmtData.
    virtual int GetFirstChunk(DmtDataChunk &chunk) = 0;
    /// Slot 16: Reads the piece after the one that was read before.
    virtual int GetNextChunk(DmtDataChunk &chunk) = 0;
    /// Slot 17: Begins to write a value in pieces.
    virtual int SetFirstChunk(DmtDataChunk &chunk) = 0;
    /// Slot 18: Writes the piece after the one that was written before.
    virtual int SetNextChunk(DmtDataChunk &chunk) = 0;
    /// Slot 19: Writes the last piece, with which the value is whole.
    virtual int SetLastChunk(DmtDataChunk &chunk) = 0;
    /// Slot 20: 1 when the value is moved in pieces (slots 15 to 19), else 0.
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

    /// Slot 21: Makes the node an interior node without children. One of slots 21 to 24 is called
    /// once, right after construction, before the node is registered with its tree. The path is
    /// relative to the root of the tree; the name is its last segment. A null path is the empty
    /// one.
    /// @return 0
    virtual int Init(JemSmartPtr<DmtPluginTree> tree, const char *path);
    /// Slot 22: Interior node without children, with the flag that slot 20 reports.
    virtual int Init(JemSmartPtr<DmtPluginTree> tree, const char *path,
                     unsigned char hasChunkedValue);
    /// Slot 23: Leaf with its first value and the flag that slot 20 reports.
    virtual int Init(JemSmartPtr<DmtPluginTree> tree, const char *path, const DmtData &value,
                     unsigned char hasChunkedValue);
    /// Slot 24: Interior node that lists these children. A listed child appears once a node is
    /// registered for it.
    virtual int Init(JemSmartPtr<DmtPluginTree> tree, const char *path,
                     const DMStringVector &childNames);

protected:
    DmtPluginNode();
    ~DmtPluginNode() override;

    DMString m_path;                ///< relative to the root of the tree
    DmtTreeLink *m_treeLink;        ///< weak link, shared with the tree
    DMString m_name;                ///< last segment of m_path
    DmtData m_value;                ///< value that the engine keeps for a leaf
    DMStringVector m_childNames;    ///< as given to Init; the tree keeps the living list
    DMString m_title;               ///< as GetAttributes tells it
    DmtAcl m_acl;                   ///< as GetAttributes tells it
    std::uint8_t m_isLeaf;          ///< 1 for a leaf, 0 for an interior node
    std::uint8_t m_hasChunkedValue; ///< as slot 20 reports it
    std::uint64_t m_reserved[2];    ///< room for the engine; keeps the published size

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
    /// Keeps the title.
    int SetTitle(const char *title) override;
    /// Keeps the list.
    int SetAcl(const DmtAcl &acl) override;
    /// Keeps the value in the node; DMT_NOT_ALLOWED on an interior node.
    int SetValue(const DmtData &value) override;

    /// Gives the node a new name and moves everything beneath it along; it keeps its place among
    /// its siblings. @return DMT_NOT_ALLOWED for the root of a tree, or a name that is null, empty
    /// or has a slash; DMT_COMMAND_FAILED once the tree is destroyed; DMT_NOT_FOUND for a node that
    /// is not registered; DMT_ALREADY_EXISTS for a taken name, the node's own among them.
    int Rename(const char *newName);

protected:
    DmtRWPluginNode();
    ~DmtRWPluginNode() override;
};

#if defined(__LP64__)
// Engines of this interface lay a plug-in's nodes out in this size.
static_assert(sizeof(DmtRWPluginNode) == 144);
#endif
