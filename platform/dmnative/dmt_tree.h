/// @file
/// The engine's management trees: the interface that it calls, and the bases of a plug-in's tree.
///
/// The order of the virtual members is the binary interface: an engine calls them by slot number.
/// Slots 0 and 1 are the complete and the deleting destructor. Nothing is ever inserted or moved.
#pragma once

#include "dmt_node.h"

class DMFileHandler;

/// One node that differs between a plug-in's tree and its overlay. No tree of this library has any.
struct DmtOverlayPluginSyncData {
    DMString path;          ///< relative to the root of the tree
    signed char change = 0; ///< a code of the tree's own
};

/// A management tree, or the part of one that a plug-in serves, as the engine sees it.
///
/// Every operation is called on the engine's thread, one at a time. Paths are relative to the root
/// of the tree, "/"-separated and without a leading slash; the root itself is the empty path.
/// Operations return 0 on success, otherwise a DmtStatus or a plug-in's own code; outputs are left
/// as they were on failure unless stated.
class DMNATIVE_API DmtTree : public JemRefCounted {
public:
    /// Slot 2: The node at a path; null is the root. DMT_NOT_FOUND when none is registered there.
    virtual int GetNode(const char *path, JemSmartPtr<DmtNode> &node) = 0;
    /// Slot 3: Removes the node and everything beneath it. DMT_NOT_ALLOWED in a read-only tree,
    /// DMT_NOT_FOUND when there is no node.
    virtual int DeleteNode(const char *path) = 0;
    /// Slot 4: Copies the node and everything beneath it to a new path. DMT_FEATURE_NOT_SUPPORTED
    /// in trees that do not copy.
    virtual int Clone(const char *path, const char *newPath) = 0;
    /// Slot 5: Gives a node another name, which is one path segment; it keeps its place among its
    /// siblings. DMT_NOT_ALLOWED in a read-only tree, else as DmtRWPluginNode::Rename.
    virtual int RenameNode(const char *path, const char *newName) = 0;
    /// Slot 6: Called for a server's Add of a leaf, with its value; hands out the new node.
    /// DMT_NOT_ALLOWED in a read-only tree.
    virtual int CreateLeafNode(const char *path, JemSmartPtr<DmtNode> &node,
                               const DmtData &value) = 0;
    /// Slot 7: As slot 6; the last argument is the flag that slot 20 of a node reports.
    virtual int CreateLeafNode(const char *path, JemSmartPtr<DmtNode> &node, const DmtData &value,
                               unsigned char hasChunkedValue) = 0;
    /// Slot 8: Called for a server's Add of an interior node, which has no children yet; hands out
    /// the new node. DMT_NOT_ALLOWED in a read-only tree.
    virtual int CreateInteriorNode(const char *path, JemSmartPtr<DmtNode> &node) = 0;
    /// Slot 9: The values of the leaf children of a node. On failure the map is empty or holds what
    /// was collected before the failure. DMT_FEATURE_NOT_SUPPORTED in trees without it.
    virtual int GetChildValuesMap(const char *path, DmtChildValuesMap &values) = 0;
    /// Slot 10: Writes values to the children of a node in the order of the map and stops at the
    /// first failure; what was written before it stays. DMT_NOT_ALLOWED in trees without it.
    virtual int SetChildValuesMap(const char *path, const DmtChildValuesMap &values) = 0;
    /// Slot 11: Names of a node's children in listed order; the output is emptied first. Fails as
    /// slot 2 for the node, or as slot 9 of the node.
    virtual int GetChildNodeNames(const char *path, DMStringVector &names) = 0;
    /// Slot 12: Writes what is held back; 0 when nothing is.
    virtual int Flush() = 0;
    /// Slot 13: Keeps what was changed since Begin. DMT_FEATURE_NOT_SUPPORTED in trees without it.
    virtual int Commit() = 0;
    /// Slot 14: Takes back what was changed since Begin. DMT_FEATURE_NOT_SUPPORTED in trees without
    /// transactions.
    virtual int Rollback() = 0;
    /// Slot 15: Begins a transaction. DMT_FEATURE_NOT_SUPPORTED in trees without them.
    virtual int Begin() = 0;
    /// Slot 16: Whether changes wait for Commit.
    virtual bool IsAtomic() const = 0;
    /// Slot 17: Server identifier on whose behalf the tree is used; empty when there is none.
    virtual DMString GetPrincipal() const = 0;
};

/// Read-only base of a plug-in's tree: a table of nodes by path, beneath the path at which the
/// engine mounts the tree. Look-up by path does not depend on the number of nodes.
class DMNATIVE_API DmtPluginTree : public DmtTree {
public:
    int GetNode(const char *path, JemSmartPtr<DmtNode> &node) override;
    int DeleteNode(const char *path) override;
    int Clone(const char *path, const char *newPath) override;
    int RenameNode(const char *path, const char *newName) override;
    int CreateLeafNode(const char *path, JemSmartPtr<DmtNode> &node, const DmtData &value) override;
    int CreateLeafNode(const char *path, JemSmartPtr<DmtNode> &node, const DmtData &value,
                       unsigned char hasChunkedValue) override;
    int CreateInteriorNode(const char *path, JemSmartPtr<DmtNode> &node) override;
    int GetChildValuesMap(const char *path, DmtChildValuesMap &values) override;
    int SetChildValuesMap(const char *path, const DmtChildValuesMap &values) override;
    int GetChildNodeNames(const char *path, DMStringVector &names) override;
    int Flush() override;
    int Commit() override;
    int Rollback() override;
    int Begin() override;
    bool IsAtomic() const override;
    DMString GetPrincipal() const override;

    /// Slot 18: Tells of a node that was added to the overlay. Slots 18 to 20 and 22 to 25 are for
    /// overlays: nodes on top of a read-only tree. @return DMT_FEATURE_NOT_SUPPORTED
    virtual int OnAdd(const char *path, DMVector<unsigned char> &cookie);
    /// Slot 19: Tells of a node of the overlay that was deleted. @return DMT_FEATURE_NOT_SUPPORTED
    virtual int OnDelete(const char *path);
    /// Slot 20: Nodes beneath a path that differ from the overlay's. @return
    /// DMT_FEATURE_NOT_SUPPORTED
    virtual int Synchronize(const char *path, DMVector<DmtOverlayPluginSyncData> &changes);
    /// Slot 21: Tells the tree that the engine is done with it; the nodes go with the last
    /// reference. @return 0
    virtual int Release();
    /// Slot 22: The node of the overlay at a path. @return null, since this base has none
    virtual JemSmartPtr<DmtNode> FindAddedNode(const char *path);
    /// Slot 23: The node of the overlay above a path. @return null, since this base has none
    virtual JemSmartPtr<DmtNode> FindAddedParentNode(const char *path);
    /// Slot 24: Puts a node into the overlay. @return DMT_FEATURE_NOT_SUPPORTED
    virtual int SetAddedNode(JemSmartPtr<DmtNode> node);
    /// Slot 25: Takes a node out of the overlay. @return DMT_FEATURE_NOT_SUPPORTED
    virtual int RemoveAddedNode(const char *path);
    /// Slot 26: Called once, from the constructor of the plug-in's tree, with the mount path, which
    /// is copied. @return 0
    virtual int Init(const char *rootPath);
    /// Slot 27: Mount path, a slash, and path; the mount path alone for the empty path or null.
    /// @return 0
    virtual int GetFullPath(const char *path, DMString &fullPath) const;
    /// Slot 28: Asks the tree whether it is sound. @return 0, since this base has nothing to check
    virtual int Verify();
    /// Slot 29: A parameter of the tree by name. @return DMT_NOT_FOUND, since this base has none
    virtual int GetParameter(const char *name, DMString &value);
    /// Slot 30: Notes a command for a later roll-back. DMT_FEATURE_NOT_SUPPORTED in a read-only
    /// tree; DmtRWPluginTree notes nothing and answers 0.
    virtual int LogCommand(unsigned char command, const char *path, unsigned char phase,
                           const DmtNode *node);
    /// Slot 31: As DeleteNode of these bases, which a tree may have replaced. DMT_NOT_ALLOWED in a
    /// read-only tree, DMT_NOT_FOUND when there is no node.
    virtual int RemoveNode(const char *path);

    /// Registers the node, a DmtPluginNode, at the path, or replaces the one that is there; what is
    /// beneath that stays. The tree holds one reference from then on. A path that its parent does
    /// not list yet is appended to the parent's children. @return 0; DMT_COMMAND_FAILED for a null
    /// node
    int SetNode(const char *path, JemSmartPtr<DmtNode> node);

    /// The path at which the tree is mounted; the null string before Init.
    const DMString &GetRootPath() const { return m_rootPath; }

    class NodeTable; // the library's own

protected:
    DmtPluginTree();
    ~DmtPluginTree() override;

    /// Removes the node, everything beneath it and the parent's mention of it. @return 0, or
    /// DMT_NOT_FOUND when there is no node
    int DropNode(const char *path);

private:
    friend class DmtPluginNode;
    friend class DmtRWPluginNode;

    DMString m_rootPath;
    DmtTreeLink *m_link; ///< shared with the nodes; cut when the tree is destroyed
    NodeTable *m_nodes;
};

/// Base of trees that take part in overlays.
class DMNATIVE_API DmtAPIPluginTree : public DmtPluginTree {
public:
    int OnAdd(const char *path, DMVector<unsigned char> &cookie) override;
    int OnDelete(const char *path) override;
    int Synchronize(const char *path, DMVector<DmtOverlayPluginSyncData> &changes) override;
    JemSmartPtr<DmtNode> FindAddedNode(const char *path) override;
    JemSmartPtr<DmtNode> FindAddedParentNode(const char *path) override;
    int SetAddedNode(JemSmartPtr<DmtNode> node) override;
    int RemoveAddedNode(const char *path) override;

protected:
    DmtAPIPluginTree();
    ~DmtAPIPluginTree() override;
};

/// Base of a plug-in's tree that a server may change.
class DMNATIVE_API DmtRWPluginTree : public DmtAPIPluginTree {
public:
    /// Removes the node, everything beneath it and the parent's mention of it; DMT_NOT_FOUND when
    /// there is none.
    int DeleteNode(const char *path) override;
    /// As DmtRWPluginNode::Rename of the node, which must be one; DMT_NOT_FOUND when there is none.
    int RenameNode(const char *path, const char *newName) override;
    /// Ends in slot 32.
    int CreateLeafNode(const char *path, JemSmartPtr<DmtNode> &node, const DmtData &value) override;
    /// Ends in slot 32, which does not get the flag.
    int CreateLeafNode(const char *path, JemSmartPtr<DmtNode> &node, const DmtData &value,
                       unsigned char hasChunkedValue) override;
    /// Ends in slot 34, with no child names.
    int CreateInteriorNode(const char *path, JemSmartPtr<DmtNode> &node) override;
    int GetChildValuesMap(const char *path, DmtChildValuesMap &values) override;
    int SetChildValuesMap(const char *path, const DmtChildValuesMap &values) override;
    /// 0: every change of this base takes effect at once.
    int Flush() override;
    /// 0, as Flush.
    int Commit() override;
    /// DMT_FEATURE_NOT_SUPPORTED.
    int Rollback() override;
    /// DMT_FEATURE_NOT_SUPPORTED.
    int Begin() override;
    /// false.
    bool IsAtomic() const override;
    int Verify() override;
    int LogCommand(unsigned char command, const char *path, unsigned char phase,
                   const DmtNode *node) override;
    int RemoveNode(const char *path) override;

    /// Slot 32: Where slots 6 and 7 arrive; forwards to slot 35. @return what that answers
    virtual int CreateLeafNodeForwarder(const char *path, JemSmartPtr<DmtNode> &node,
                                        const DmtData &value);
    /// Slot 33: File for a LogCommand that writes, which that of this base does not. Not owned, may
    /// be null.
    virtual void setLogFileHandle(DMFileHandler *file);
    /// Slot 34: Registers a new interior node that lists the given children, in place of one that
    /// is there, and hands it out. @return 0, or what SetNode answers
    virtual int CreateInteriorNodeInternal(const char *path, JemSmartPtr<DmtNode> &node,
                                           const DMStringVector &childNames);
    /// Slot 35: Registers a new leaf, in place of a node that is there, and hands it out. @return
    /// 0, or what SetNode answers
    virtual int CreateLeafNodeInternal(const char *path, JemSmartPtr<DmtNode> &node,
                                       const DmtData &value);

protected:
    DmtRWPluginTree();
    ~DmtRWPluginTree() override;

private:
    DMFileHandler *m_logFile;
};
