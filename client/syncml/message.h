// The elements of one DM message as plain structs: what both codecs read into and write from.
//
// A struct holds what the message says and judges nothing: numbers, versions, ids and status codes
// stay the text that was received, so that a bad one can be answered instead of being lost. An
// element that may be missing is a std::optional, or boxed, so that "missing" and "there but empty"
// stay different answers. White space around ids, references, URIs and the texts of Meta is cut
// when a message is read; Data, LocName, Correlator and NextNonce are kept as they came.
//
// Elements that the DTD has and DM does not use (NoResp, Archive, SftDel, Lang, Filter, Cred on a
// command, Anchor, Mem, Version, SourceParent, TargetParent and their like) are skipped when a
// message is read.
#pragma once

#include "boxed.h"

#include <QByteArray>
#include <QString>
#include <optional>
#include <vector>

namespace syncml {

/// Address of a message, or of an item: `Target` and `Source`.
struct Location {
    QString locUri;
    support::Boxed<QString> locName;

    bool operator==(const Location &) const = default;
};

/// What is said about an item, a command, a challenge or the session. One `MetInf` around the
/// children, or none, reads the same; none is written.
struct Meta {
    std::optional<QString> format; ///< in lower case when it was read, whatever was received
    std::optional<QString> type;   ///< MIME type, or a Management Object's id
    std::optional<QString> mark;
    std::optional<QString> size;         ///< bytes of the whole object as transferred, decimal
    std::optional<QByteArray> nextNonce; ///< as transferred: base64, or octets in opaque WBXML
    std::optional<QString> maxMsgSize;   ///< bytes, decimal
    std::optional<QString> maxObjSize;   ///< bytes, decimal
    std::vector<QString> emi;            ///< experimental meta information, one text an element

    bool operator==(const Meta &) const = default;
};

/// Credentials.
struct Cred {
    support::Boxed<Meta> meta; ///< the authentication type in `type`
    QByteArray data;

    bool operator==(const Cred &) const = default;
};

/// A challenge: the credentials that the sender asks for.
struct Chal {
    Meta meta;

    bool operator==(const Chal &) const = default;
};

/// One object that a command works on, or a text of an alert.
struct Item {
    std::optional<Location> target;
    std::optional<Location> source;
    support::Boxed<Meta> meta;
    /// The bytes of the value. From WBXML they are the bytes sent; from XML they are the UTF-8 of
    /// the text, or of the markup when XML stood inside Data unescaped.
    std::optional<QByteArray> data;
    bool moreData = false; ///< more chunks of this object follow in the next message

    bool operator==(const Item &) const = default;
};

/// What an item is about: its target, or its source where it has none.
inline QString addressOf(const Item &item)
{
    return item.target ? item.target->locUri : item.source ? item.source->locUri : QString();
}

enum class CommandKind {
    Unknown,     ///< an element that is not a SyncML command at all
    Unsupported, ///< a SyncML command that DM does not have: Map, Move, Put, Search or Sync
    Add,
    Alert,
    Atomic,
    Copy,
    Delete,
    Exec,
    Get,
    Replace,
    Results,
    Sequence,
    Status,
};

/// One element of `SyncBody`, `Atomic` or `Sequence`. Members that its kind does not have stay
/// empty. Of an Unknown or Unsupported one only `name` and `cmdId` are kept.
struct Command {
    CommandKind kind = CommandKind::Unknown;
    support::Boxed<QString> name; ///< the element's local name; only for Unknown and Unsupported
    std::optional<QString> cmdId; ///< opaque: never a number to count with

    // Add, Copy, Delete, Exec, Get, Replace, Atomic, Sequence, Results: holds for every item that
    // does not say otherwise
    support::Boxed<Meta> meta;
    // every command but Atomic and Sequence
    std::vector<Item> items;
    // Alert: the alert code. Status: the status code.
    std::optional<QByteArray> data;
    // Alert, Exec
    support::Boxed<QString> correlator;
    // Atomic, Sequence
    std::vector<Command> commands;

    // Status and Results: what they answer
    std::optional<QString> msgRef;
    std::optional<QString> cmdRef;
    std::optional<QString> cmd; ///< Status only: name of the command answered
    std::vector<QString> targetRefs;
    std::vector<QString> sourceRefs;
    support::Boxed<Chal> chal; ///< Status only

    bool operator==(const Command &) const = default;
};

/// `SyncHdr`. A mandatory element that was missing reads as the empty text.
struct SyncHdr {
    QString verDtd;
    QString verProto;
    QString sessionId;
    QString msgId;
    Location target;
    Location source;
    std::optional<QString> respUri;
    std::optional<Cred> cred;
    support::Boxed<Meta> meta;

    bool operator==(const SyncHdr &) const = default;
};

/// One whole message: `SyncHdr`, the commands of `SyncBody` in their order, and whether `Final`
/// closes the package.
struct Message {
    SyncHdr header;
    std::vector<Command> commands;
    bool final = false;

    bool operator==(const Message &) const = default;
};

/// Name of the command's element, as a Status carries it in `Cmd`.
QString commandName(const Command &command);

} // namespace syncml
