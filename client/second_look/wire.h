// How a client and its second look talk: frames of a length and that many bytes.
#pragma once

#include "mirror.h"

#include <QByteArray>

namespace client::wire {

/// What the process is to do.
struct Setup {
    QString folder; ///< that the copy is in, and that goes with the process
    QString pluginFolder;
    QString profilePlugin;
    QString backend;        ///< as DmDevice::Options has it
    bool isCopied = false;  ///< whether changes are made once more on a copy of the profiles
    bool isMounted = false; ///< whether the client has mounted them
};

enum class Request : quint8 {
    Setup,     ///< is not answered
    WholeTree, ///< answered with the tree, unless it has more than mostNodesOfTree
    Changes,   ///< answered with what each has done
    NextMount  ///< the same changes again; answered with what the next mount says
};

// It is looked at three times, and stands on one line of a record.
inline constexpr std::size_t mostNodesOfTree = 50'000;

QByteArray pack(const Setup &setup);
QByteArray pack(Request request, const std::vector<TreeChange> &changes);
QByteArray pack(const std::optional<Picture> &tree);
QByteArray pack(const std::vector<SeenChange> &seen);
QByteArray pack(const support::Expected<NextMount, QString> &looks);

/// What a frame holds. False for one that is damaged.
bool unpack(const QByteArray &frame, Request &request, Setup &setup,
            std::vector<TreeChange> &changes);
bool unpack(const QByteArray &frame, std::optional<Picture> &tree);
bool unpack(const QByteArray &frame, std::vector<SeenChange> &seen);
bool unpack(const QByteArray &frame, support::Expected<NextMount, QString> &looks);

/// A frame with its length in front.
QByteArray withLength(const QByteArray &frame);
inline constexpr quint32 longestFrame = 256 * 1024 * 1024;
inline constexpr qsizetype lengthBytes = sizeof(quint32);
/// The length that is written in lengthBytes bytes; none when no frame is that long.
std::optional<qsizetype> lengthIn(const QByteArray &bytes);

} // namespace client::wire
