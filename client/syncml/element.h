// The element names of a message, their WBXML codes, and which parts each command is made of.
#pragma once

#include "message.h"

#include <QByteArrayView>
#include <QtGlobal>
#include <span>
#include <string_view>

namespace syncml {

/// Every element of the SyncML 1.2 and MetInf DTDs, in the byte order of the names.
enum class Element : quint8 {
    Add,
    Alert,
    Anchor,
    Archive,
    Atomic,
    Chal,
    Cmd,
    CmdID,
    CmdRef,
    Copy,
    Correlator,
    Cred,
    Data,
    Delete,
    EMI,
    Exec,
    Field,
    FieldLevel,
    Filter,
    FilterType,
    Final,
    Format,
    FreeID,
    FreeMem,
    Get,
    Item,
    Lang,
    Last,
    LocName,
    LocURI,
    Map,
    MapItem,
    Mark,
    MaxMsgSize,
    MaxObjSize,
    Mem,
    MetInf,
    Meta,
    MoreData,
    Move,
    MsgID,
    MsgRef,
    Next,
    NextNonce,
    NoResp,
    NoResults,
    NumberOfChanges,
    Put,
    Record,
    Replace,
    RespURI,
    Results,
    Search,
    Sequence,
    SessionID,
    SftDel,
    SharedMem,
    Size,
    Source,
    SourceParent,
    SourceRef,
    Status,
    Sync,
    SyncBody,
    SyncHdr,
    SyncML,
    Target,
    TargetParent,
    TargetRef,
    Type,
    VerDTD,
    VerProto,
    Version,
    Unknown, ///< any other name
};

constexpr std::size_t elementCount = static_cast<std::size_t>(Element::Unknown);

/// Code pages of WBXML.
constexpr quint8 syncmlPage = 0;
constexpr quint8 metinfPage = 1;

struct ElementInfo {
    std::string_view name;
    quint8 page;  ///< syncmlPage or metinfPage
    quint8 token; ///< tag code without the bit that says "has content"
};

/// What belongs to `element`, which is not Unknown.
const ElementInfo &elementInfo(Element element);

/// Name of `element`, which is not Unknown.
QString elementName(Element element);

/// Element with that local name, case-sensitive; Unknown when there is none.
Element elementByName(QByteArrayView name);

/// Element with that tag code in that code page; Unknown when there is none.
Element elementByToken(quint8 page, quint8 token);

/// Unknown for an element that is not a command of any SyncML protocol.
CommandKind commandKind(Element element);

/// Element of a command kind; Unknown for the kinds Unknown and Unsupported.
Element commandElement(CommandKind kind);

enum class Occurs { Once, AtMostOnce, Any, AtLeastOnce };

/// One child of a command.
struct CommandPart {
    Element element;
    Occurs occurs;
};

/// Children of a command of that kind in the order of the DTD, without those that DM does not use
/// and without the commands inside Atomic and Sequence, which come after them. Empty for Unknown
/// and Unsupported.
std::span<const CommandPart> commandParts(CommandKind kind);

/// True for Atomic and Sequence.
bool holdsCommands(CommandKind kind);

} // namespace syncml
