// The management tree as somebody uses it: an operation and an outcome for each thing that a
// command does.
#pragma once

#include "management_tree.h"
#include "node_value.h"

#include <map>
#include <optional>
#include <vector>

namespace client {

/// One node of a listing.
struct ListedNode {
    TreeNode node;
    int depth = 0; ///< below the node that the listing began with
    /// The leaf's value, or why it cannot be read; none for interior nodes and when values were not
    /// asked for.
    std::optional<Result<DmtData>> value;
};

/// Properties of a node that a server can name.
enum class Property { Acl, Format, Name, Size, Title, TStamp, Type, VerNo };

/// The property of that name, compared byte for byte.
std::optional<Property> propertyNamed(const QString &name);
/// "ACL", "Format" and so on.
QString nameOf(Property property);
/// Whether the property can be given another value.
bool isReplaceable(Property property);
/// Names of all properties.
std::vector<QString> propertyNames();

/// The management tree as one principal uses it.
///
/// Operations check in this order and stop at the first check that fails: the node, or for a new
/// one its parent, exists (404); the command may be used on it (405); the server on whose behalf
/// the tree is used has the right (425); a new node or a new name is not there yet (418); the value
/// has the right format (415); then the plug-in decides. Nothing is changed unless the plug-in is
/// reached.
class TreeView {
public:
    /// @param tree  has to outlive the view
    TreeView(ManagementTree &tree, Principal principal)
        : m_tree(&tree), m_principal(std::move(principal))
    {
    }

    ManagementTree &tree() const { return *m_tree; }
    const UriLimits &uriLimits() const { return m_tree->uriLimits(); }

    // ---- Reading

    /// 404 for a node that does not exist. 405 for one whose name has a slash, and beneath it: a
    /// plug-in that splits paths at slashes takes it for another node. It is listed among the
    /// children of its parent, and that is all.
    Result<TreeNode> find(const NodeUri &uri) const;
    /// As find, for a command that reads: 405 for the Inbox and what is beneath it, which can only
    /// be added to, whether it is there or not.
    Result<TreeNode> findToRead(const NodeUri &uri) const;
    /// As find, for an operation that may change the node or what is beneath it.
    Result<TreeNode> findToChange(const NodeUri &uri) const;
    /// Children in the order in which the tree lists them; none for a leaf.
    std::vector<TreeNode> children(const TreeNode &node) const;
    /// Whether the names of the node's children, and its properties, may be read: 425 if not.
    Outcome mayGet(const TreeNode &node) const;
    /// Whether the node may be given another name: 405 if its name is fixed, 425 without the right.
    Outcome mayRename(const TreeNode &node) const;
    /// Whether the node may be deleted: 405 if it is to stay, 425 without the right.
    Outcome mayRemove(const TreeNode &node) const;
    /// Whether an interior node, with what is beneath it, may be given other contents: 405 if it
    /// takes none, 425 without the right to replace it.
    Outcome mayReplaceContents(const TreeNode &interior) const;
    /// The value of a leaf; 405 for an interior node.
    Result<DmtData> value(const TreeNode &node) const;
    /// 406 for the size of an interior node.
    Result<QByteArray> property(const TreeNode &node, Property property) const;
    QString type(const TreeNode &node) const { return m_tree->type(node); }
    enum class Values { Omit, Read };
    /// The node and everything beneath it, parents before their children, without the nodes that
    /// may not be read. The leaves of a node are read in one call; when that fails, one by one, so
    /// that one unreadable leaf hides no other.
    std::vector<ListedNode> list(const TreeNode &start, Values values) const;
    /// @param room  bytes that the listing may take, addresses and values counted and
    ///              bytesBesideTexts for each node; becomes what is left of them
    /// @return none when it would take more; no more than that is read then
    std::optional<std::vector<ListedNode>> list(const TreeNode &start, Values values,
                                                qsizetype &room) const;

    // ---- Changing

    /// What a server says about a new node, or about a new value.
    struct NewValue {
        QString format; ///< Meta Format; empty when the server gave none
        QString type;   ///< Meta Type; empty when the server gave none
        std::optional<QByteArray> data;
    };

    /// Adds a leaf, or an interior node when the format is "node". Missing ancestors are not
    /// created. A new node inherits its access control list; but when the server lacks Replace on
    /// the parent, an interior one gets a list of its own, with Add, Delete, Get and Replace for
    /// the server, and Get for those who have it on the parent.
    Outcome add(const NodeUri &uri, const NewValue &value);
    /// Replaces the value of a leaf. Without a format the value is read in the leaf's own.
    Outcome replace(const NodeUri &uri, const NewValue &value);
    struct ChildValue {
        QByteArray name;
        QByteArray text;
    };
    /// Replaces the values of several leaves of one interior node in one call of its tree, in the
    /// given order. The tree stops at the first value that it refuses; those before it stay.
    Outcome replaceChildren(const NodeUri &uri, const std::vector<ChildValue> &values);
    /// Replaces the ACL (at most 16 KiB, else 413), the Title (at most 255 bytes), or the Name,
    /// which renames the node; 405 for other properties, and for the ACL of the root unless the
    /// owner replaces it. A malformed ACL is answered with 500, and nothing is stored.
    Outcome replaceProperty(const NodeUri &uri, Property property, const QByteArray &value);
    Outcome remove(const NodeUri &uri);
    /// Copies the value of one leaf to another, which is added when it is missing.
    Outcome copy(const NodeUri &source, const NodeUri &target);
    /// Whether the node may be executed: 405 if it stands for nothing, 425 without the right.
    Outcome mayExecute(const NodeUri &uri) const;
    /// Has the tree of a node do what the node stands for; 405 for a node that stands for nothing.
    /// What that changes is not told as changes are, and nothing can take it back.
    /// @param argument  what the command has for the node; may be empty
    Outcome execute(const NodeUri &uri, const QByteArray &argument);

private:
    /// Carries out a change, and tells of it when somebody wants to know.
    /// @param describe  makes the TreeChange, but for who changes and how it ended
    template <class Operation, class Describe>
    Outcome observed(Operation operation, Describe describe);
    Outcome addNode(const NodeUri &uri, const NewValue &value);
    Outcome replaceValue(const NodeUri &uri, const NewValue &value);
    Outcome replaceValues(const NodeUri &uri, const std::vector<ChildValue> &values);
    Outcome replacePropertyOf(const NodeUri &uri, Property property, const QByteArray &value);
    Outcome removeNode(const NodeUri &uri);
    Outcome copyLeaf(const NodeUri &source, const NodeUri &target);

    /// The values of the leaves directly beneath a node, as far as one call yields them.
    static std::map<QByteArray, DmtData> leafValues(const TreeNode &interior);
    class Listing;
    /// @param acl  in effect on the node
    void listBeneath(const TreeNode &node, const AccessControlList &acl, int depth, Values values,
                     Listing &listing) const;

    // ---- Access control
    /// 425, with the rule and the list that say no, when the server lacks the right.
    /// @param elsewhere  where else the right would have been enough, for the rule
    Outcome permit(Right right, const TreeNode &node, const char *elsewhere = "") const;
    Outcome permitOnParent(Right right, const NodeUri &uri) const;
    Outcome permit(Right right, const NodeUri &uri, const ManagementTree::EffectiveAcl &effective,
                   const char *elsewhere = "") const;
    /// Whether a leaf may be given another value: 405, 425.
    Outcome permitReplace(const TreeNode &leaf) const;
    Outcome permitAclChange(const TreeNode &node) const;
    /// The list that a new interior node needs beside what it inherits; none when it needs nothing.
    std::optional<AccessControlList> aclForNewInterior(const TreeNode &parent) const;

    // ---- Changes
    Outcome replaceAcl(const TreeNode &node, const QByteArray &text);
    Outcome replaceTitle(const TreeNode &node, const QByteArray &title);
    /// The parent of a node that is to be added, once every rule allows the node.
    Result<TreeNode> parentForNewNode(const NodeUri &uri) const;
    /// The node, once every rule allows that it is executed.
    Result<TreeNode> findToExecute(const NodeUri &uri) const;
    Outcome copyToNewLeaf(const TreeNode &source, const NodeUri &target);
    Result<DmtData> valueToCopy(const TreeNode &source) const;
    Outcome rename(const TreeNode &node, const QByteArray &newName);
    /// Whether the node can be given these properties: 413 for one that is too long, 420 when all
    /// properties together leave no room.
    Outcome canKeep(const NodeUri &uri, const PropertyStore::Properties &properties) const;
    Outcome keep(const NodeUri &uri, PropertyStore::Properties properties);
    /// Tells whoever watches of a value that a leaf is about to have, if it is a secret.
    void tellOfSecret(bool isSecret, const DmtData &value) const;

    ManagementTree *m_tree;
    Principal m_principal;
};

} // namespace client
