// The engine's management trees: the interface that it calls, and the bases of a plug-in's tree.
//
// The order of the virtual members is the binary interface: an engine calls them by slot number.
// Slots 0 and 1 are the complete and the deleting destructor. Nothing is ever inserted or moved.
#pragma once

#include "dmt_node.h"

class DMFileHandler;

/// One node that differs between a plug-in's tree and its overlay.
struct DmtOverlayPluginSyncData {
    DMString path;
    signed char change = 0;
};

/// A management tree, or the part of one that a plug-in serves, as the engine sees it.
///
/// Every operation is called on the engine's thread, one at a time. Paths are relative to the root
/// of the tree, "/"-separated and without a leading slash; the root itself is the empty path.
/// Operations return 0 on success, otherwise a DmtStatus or a plug-in's own code; outputs are left
/// as they were on failure unless stated.
class DMNATIVE_API DmtTree : public JemRefCounted {
public:
    /// Slot 2. DMT_NOT_FOUND for a path without a registered node; the output stays as it was.
    virtual int GetNode(const char *path, JemSmartPtr<DmtNode> &node) = 0;
    /// Slot 3. Removes the node and everything beneath it.
    virtual int DeleteNode(const char *path) = 0;
    /// Slot 4. Copies the node and everything beneath it to a new path.
    virtual int Clone(const char *path, const char *newPath) = 0;
    /// Slot 5. newName is one path segment.
    virtual int RenameNode(const char *path, const char *newName) = 0;
    /// Slots 6 and 7. Adds a leaf with its value; the last argument of slot 7 is the flag that slot
    /// 20 of a node reports.
    virtual int CreateLeafNode(const char *path, JemSmartPtr<DmtNode> &node,
                               const DmtData &value) = 0;
    virtual int CreateLeafNode(const char *path, JemSmartPtr<DmtNode> &node, const DmtData &value,
                               unsigned char hasChunkedValue) = 0;
    /// Slot 8. Adds an interior node without children.
    virtual int CreateInteriorNode(const char *path, JemSmartPtr<DmtNode> &node) = 0;
    /// Slot 9. The values of the leaf children of a node. On failure the map is empty or holds what
    /// was collected before the failure.
    virtual int GetChildValuesMap(const char *path, DmtChildValuesMap &values) = 0;
    /// Slot 10. Writes values to the children of a node in the order of the map and stops at the
    /// first failure; what was written before it stays.
    virtual int SetChildValuesMap(const char *path, const DmtChildValuesMap &values) = 0;
    /// Slot 11. Names of a node's children in listed order; the output is emptied first.
    virtual int GetChildNodeNames(const char *path, DMStringVector &names) = 0;
    /// Slots 12 to 16. Transactions.
    virtual int Flush() = 0;
    virtual int Commit() = 0;
    virtual int Rollback() = 0;
    virtual int Begin() = 0;
    virtual bool IsAtomic() const = 0;
    /// Slot 17. Server identifier on whose behalf the tree is used; empty when there is none.
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

    /// Slots 18 to 25. Overlay trees: nodes that are added on top of a read-only tree. This base
    /// refuses them with DMT_FEATURE_NOT_SUPPORTED, or finds nothing.
    virtual int OnAdd(const char *path, DMVector<unsigned char> &cookie);
    virtual int OnDelete(const char *path);
    virtual int Synchronize(const char *path, DMVector<DmtOverlayPluginSyncData> &changes);
    /// Slot 21. Tells the tree that the engine is done with it; the nodes go with the last
    /// reference.
    virtual int Release();
    virtual JemSmartPtr<DmtNode> FindAddedNode(const char *path);
    virtual JemSmartPtr<DmtNode> FindAddedParentNode(const char *path);
    virtual int SetAddedNode(JemSmartPtr<DmtNode> node);
    virtual int RemoveAddedNode(const char *path);
    /// Slot 26. Called once, from the constructor of the plug-in's tree, with the mount path.
    virtual int Init(const char *rootPath);
    /// Slot 27. Mount path, a slash, and path; the mount path alone for the empty path.
    virtual int GetFullPath(const char *path, DMString &fullPath) const;
    /// Slot 28.
    virtual int Verify();
    /// Slot 29. DMT_NOT_FOUND: this base has no parameters.
    virtual int GetParameter(const char *name, DMString &value);
    /// Slot 30. Notes a command for a later roll-back.
    virtual int LogCommand(unsigned char command, const char *path, unsigned char phase,
                           const DmtNode *node);
    /// Slot 31. As DeleteNode, without noting a command.
    virtual int RemoveNode(const char *path);

    /// Registers the node at the path, or replaces the one that is there. The tree holds one
    /// reference from then on. A path that its parent does not list yet is appended to the parent's
    /// children.
    int SetNode(const char *path, JemSmartPtr<DmtNode> node);

    /// The path at which the tree is mounted; the null string before Init.
    const DMString &GetRootPath() const { return m_rootPath; }

    class NodeTable; // the library's own

protected:
    DmtPluginTree();
    ~DmtPluginTree() override;

    /// Removes the node, everything beneath it and the parent's mention of it.
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
    int RenameNode(const char *path, const char *newName) override;
    /// Slots 6 and 7 end in slot 32, slot 8 in slot 34 (with no child names).
    int CreateLeafNode(const char *path, JemSmartPtr<DmtNode> &node, const DmtData &value) override;
    int CreateLeafNode(const char *path, JemSmartPtr<DmtNode> &node, const DmtData &value,
                       unsigned char hasChunkedValue) override;
    int CreateInteriorNode(const char *path, JemSmartPtr<DmtNode> &node) override;
    int GetChildValuesMap(const char *path, DmtChildValuesMap &values) override;
    int SetChildValuesMap(const char *path, const DmtChildValuesMap &values) override;
    /// Slots 12 to 16. Every change of this base takes effect at once: Flush and Commit succeed,
    /// Begin and Rollback answer DMT_FEATURE_NOT_SUPPORTED, IsAtomic is false.
    int Flush() override;
    int Commit() override;
    int Rollback() override;
    int Begin() override;
    bool IsAtomic() const override;
    int Verify() override;
    int LogCommand(unsigned char command, const char *path, unsigned char phase,
                   const DmtNode *node) override;
    int RemoveNode(const char *path) override;

    /// Slot 32. Where slots 6 and 7 arrive; forwards to slot 35.
    virtual int CreateLeafNodeForwarder(const char *path, JemSmartPtr<DmtNode> &node,
                                        const DmtData &value);
    /// Slot 33. File that LogCommand writes to; not owned, may be null.
    virtual void setLogFileHandle(DMFileHandler *file);
    /// Slot 34. Adds an interior node that lists the given children.
    virtual int CreateInteriorNodeInternal(const char *path, JemSmartPtr<DmtNode> &node,
                                           const DMStringVector &childNames);
    /// Slot 35. Adds a leaf.
    virtual int CreateLeafNodeInternal(const char *path, JemSmartPtr<DmtNode> &node,
                                       const DmtData &value);

protected:
    DmtRWPluginTree();
    ~DmtRWPluginTree() override;

private:
    DMFileHandler *m_logFile;
};
