// Taking back what the commands of an Atomic have changed.
#pragma once

#include "tree_change.h"

#include <optional>
#include <vector>

namespace client {

/// Notes before each change what the tree shows, and makes the tree show it again.
///
/// A plug-in cannot take anything back. What it shows is put back through the same operations as a
/// server's: nodes are added, deleted and renamed, values written. Changing one leaf can change
/// others (a profile's bearer takes the settings along), so each note is of the whole object that a
/// change belongs to: the child of a mounted root with everything beneath it.
class UndoLog {
public:
    /// From here on. Everything is read and taken back on behalf of the device's owner.
    /// @param tree  has to outlive the log
    explicit UndoLog(ManagementTree &tree);

    /// Notes what the tree shows before a change of that node, or an attempt at one.
    /// @param renamedTo  address of the node after the change, when that renames it
    void note(const NodeUri &node, const std::optional<NodeUri> &renamedTo = std::nullopt);
    std::size_t size() const { return m_notes.size(); }

    /// Takes everything back, the last change first, and gives all nodes their properties again.
    /// @return for each note whether everything is back as it was. It is not when the tree shows
    ///         something else, when the changed value could not be read before, or when a whole
    ///         object had to be made again: such an object has lost what no leaf carries.
    std::vector<bool> rollBack();

private:
    struct Leaf {
        QString format;
        std::optional<QByteArray> value; ///< none when it cannot be read
        bool hasValue = false;           ///< a leaf can be readable without having a value

        bool operator==(const Leaf &) const = default;
    };
    /// The nodes of an object, parents before children; no content for an interior node.
    using Picture = std::vector<std::pair<NodeUri, std::optional<Leaf>>>;

    struct Note {
        NodeUri node;
        std::optional<NodeUri> renamedTo; ///< of a node that exists
        std::optional<NodeUri> object;    ///< none for a node that no plug-in serves
        Picture before;
        bool isLost = false; ///< the value that the change replaces could not be read
    };

    void tell(TreeChange::Kind kind);
    Picture pictureOf(const NodeUri &object) const;
    bool takeBack(const Note &note);
    /// Makes the tree show the picture. @return whether it does now
    bool restore(const NodeUri &object, const Picture &picture);
    void removeAdded(const Picture &now, const Picture &picture);
    void addMissing(const Picture &now, const Picture &picture);
    void writeDiffering(const Picture &now, const Picture &picture);

    TreeView m_tree;
    PropertyStore m_properties;
    std::vector<Note> m_notes;
};

} // namespace client
