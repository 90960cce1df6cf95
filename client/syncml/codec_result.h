// What both codecs take and give back besides the message itself.
#pragma once

#include "expected.h"
#include "message.h"

#include <QByteArray>
#include <QString>
#include <optional>

namespace syncml {

/// How much of a message is taken before it is refused. The defaults leave room for a package of
/// 10,000 commands and keep what one hostile message can cost below about 100 MB.
struct Limits {
    qsizetype messageBytes = 4 * 1024 * 1024;
    /// Elements inside each other, markup inside Data included. Commands inside commands are read
    /// recursively, so this bounds the stack too.
    int depth = 64;
    qsizetype commands = 20'000; ///< of the whole message, nested ones included
    /// Items, references (TargetRef, SourceRef) and EMI elements of the whole message together.
    qsizetype items = 50'000;
    /// Attributes of one tag of XML. DM itself has none but namespace declarations.
    qsizetype attributes = 32;
    /// Bytes of all texts together, tags inside Data included. They are more than the message
    /// itself only where it repeats something by a short name: string-table references of WBXML,
    /// and namespace declarations that are copied along with markup inside Data.
    qsizetype textBytes = 4 * 1024 * 1024;
};

/// Why a message was not read.
struct DecodeError {
    /// The status to answer: 400 not a well-formed DM message, 415 an encoding or document type
    /// that is not supported, 416 a limit was passed.
    int status = 0;
    QString text; ///< one sentence without its full stop, for a person
    // The place is the end of what could not be taken.
    qint64 line = 0;   ///< XML: from 1; WBXML: 0
    qint64 column = 0; ///< XML: from 0; WBXML: 0
    qint64 offset = 0; ///< WBXML: bytes before the place; XML: 0
    /// The header when it had been read whole before the fault: who to answer.
    std::optional<SyncHdr> header;

    /// `text` with its place in front, as in "line 3, column 17: ...".
    QString toString() const;
};

using DecodeResult = support::Expected<Message, DecodeError>;

/// Why a message was not written: something mandatory is missing, something does not belong to its
/// command, or the encoding cannot carry a text.
struct EncodeError {
    QString text; ///< names the command and the element
};

/// How XML is written.
enum class XmlLayout {
    OneLine,
    Indented, ///< each element on a line of its own, for people
};

using EncodeResult = support::Expected<QByteArray, EncodeError>;

} // namespace syncml
