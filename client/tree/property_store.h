// Run-time properties of nodes that no plug-in keeps.
#pragma once

#include "access_control.h"
#include "expected.h"
#include "node_uri.h"

#include <QDateTime>
#include <QString>
#include <iterator>
#include <map>
#include <optional>
#include <vector>

namespace client {

/// Properties by node, for nodes that were given any. They follow a rename and go with a deletion.
///
/// In a file, what belongs to a profile has the profile's number for its name, which no other
/// profile of its store ever has: a profile keeps its properties whatever its node is called, and a
/// new one of the same name has none. What belongs to a profile that no node shows, because it has
/// no bearer for a while or another store is in use, stays there as long as the file has room for
/// it. Every other node is there under the name that its mount gives it. A name that a server gave
/// lives as long as the mount, so what was kept for a renamed node is found again under its first
/// name.
class PropertyStore {
public:
    /// The numbers of the profiles that nodes show, by node; a node that is not in it shows none.
    struct ProfileNumbers : std::map<NodeUri, quint32, NodeUri::Order> {
        using map::map;
        QString store; ///< that gave the numbers; empty for the one that is used without a choice
    };

    struct Properties {
        QString type;     ///< MIME type of a leaf, Management Object id of an interior node
        QByteArray title; ///< UTF-8
        /// None when nobody replaced the list that the node came with; an empty list inherits.
        std::optional<AccessControlList> acl;
        QDateTime changed;   ///< UTC; invalid as long as nothing was changed
        quint16 version = 0; ///< changes so far, modulo 65536

        bool operator==(const Properties &) const = default;
    };

    /// Limits of one property, in bytes of UTF-8. A file that breaks one is damaged.
    static constexpr qsizetype longestType = 255;
    static constexpr qsizetype longestTitle = 255;
    static constexpr qsizetype longestAcl = 16 * 1024;

    /// Whether the node can have these properties: all together have to fit into a file, with room
    /// for the notes of changes that nodes get without being asked. What takes less room than
    /// before can always be had.
    bool hasRoomFor(const NodeUri &node, const Properties &properties) const;

    /// Reads a file that save() has written; a missing one is an empty store. A profile can be
    /// there under the name of its node, as files of earlier versions have it; the next save gives
    /// it its number.
    /// @param numbers    of the profiles that are mounted
    /// @param unmounted  roots whose nodes nobody knows yet: what is kept beneath them stays in the
    ///                   file whatever happens, and has no node before resolve()
    /// @return what is wrong with a damaged file, and where
    static support::Expected<PropertyStore, QString>
    load(const QString &file, const ProfileNumbers &numbers,
         const std::vector<NodeUri> &unmounted = {});
    /// Gives what is kept beneath a root that has been mounted since load() to its nodes.
    /// @param numbers  of the profiles that are mounted, those beneath the root among them
    void resolve(const NodeUri &root, const ProfileNumbers &numbers);
    /// Forgets in a file what is kept of a node and everything beneath it, if one is given, and a
    /// server as forgetServer() does, when it is not empty: for a client that has mounted nothing.
    /// The node must not belong to a profile.
    /// @return why the file cannot be read or written
    static support::Expected<void, QString> forgetInFile(const QString &file,
                                                         const std::optional<NodeUri> &node,
                                                         const QByteArray &server,
                                                         const AccessControlList &rootAcl);
    /// Replaces the file in one step; only its owner can read it. Does nothing when nothing has
    /// changed since load() or the last save.
    /// @param numbers  of the profiles, by the names that their nodes have now
    /// @return the reason of a failure, which leaves the file as it was
    support::Expected<void, QString> save(const QString &file, const ProfileNumbers &numbers);

    bool isChanged() const { return m_isChanged; }

    /// The node's properties, as long as the store is not changed; empty ones when it was given
    /// none.
    const Properties &get(const NodeUri &node) const { return get(node.joinedNames()); }
    /// @param joinedNames  of the node
    const Properties &get(QByteArrayView joinedNames) const;
    void set(const NodeUri &node, Properties properties);
    /// Notes that the node has changed.
    /// @param time  in UTC
    void noteChange(const NodeUri &node, const QDateTime &time);
    /// Forgets the node and everything beneath it.
    void remove(const NodeUri &node);
    /// Moves the node and everything beneath it to a new place.
    void move(const NodeUri &from, const NodeUri &to);
    /// Forgets every node that does not fulfil the condition.
    template <class Condition>
    void keepOnly(Condition condition)
    {
        for (auto entry = m_properties.begin(); entry != m_properties.end();)
            entry = condition(entry->first) ? std::next(entry) : erase(entry);
    }

    /// Takes every right from a server whose account is gone. A list that is left empty inherits;
    /// at the root a right that is left without servers goes back to the servers that rootAcl gives
    /// it to.
    void forgetServer(const QByteArray &server, const AccessControlList &rootAcl);

private:
    using Map = std::map<NodeUri, Properties, NodeUri::Order>;

    /// Takes over what a file says under that key. @return whether the node has another key now
    bool take(const QString &key, const Properties &properties, const ProfileNumbers &numbers);
    Map extract(const NodeUri &node);
    Map::iterator erase(Map::iterator entry);
    NodeUri firstNameOf(const NodeUri &node) const;
    /// What the node is called in a file.
    QString keyOf(const NodeUri &node, const ProfileNumbers &numbers) const;

    Map m_properties;
    /// What renamed nodes were called when their tree was mounted, by what they are called now.
    std::map<NodeUri, NodeUri> m_firstNames;
    /// Of profiles that no node shows, by what the file calls them.
    std::map<QString, Properties> m_withoutNode;
    /// Of what is beneath roots that are not mounted yet, by what the file calls it.
    std::map<QString, Properties> m_unresolved;
    /// That the properties of nodes, and those of m_unresolved, have in a file, at most.
    qsizetype m_bytes = 0;
    bool m_isChanged = false;
};

} // namespace client
