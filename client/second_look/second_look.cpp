#include "second_look.h"

#include "second_look_process.h"
#include "wire.h"

#include <QDeadlineTimer>
#include <QFile>
#include <algorithm>
#include <csignal>
#include <filesystem>
#include <iterator>
#include <sys/statvfs.h>
#include <utility>

namespace client {

using support::Expected;
using support::Unexpected;

namespace {

/// Bytes beneath a folder.
std::uintmax_t sizeOf(const std::filesystem::path &folder)
{
    std::error_code ignored;
    std::uintmax_t bytes = 0;
    for (const auto &entry : std::filesystem::recursive_directory_iterator(folder, ignored))
        if (entry.is_regular_file(ignored))
            bytes += entry.file_size(ignored);
    return bytes;
}

/// Whether what commands are about to write does not lack the room for a copy of the state.
bool hasRoomForCopy(const std::filesystem::path &state)
{
    constexpr std::uintmax_t bytesLeft = 1024 * 1024;
    constexpr fsfilcnt_t filesLeft = 64;
    struct statvfs room = {};
    if (::statvfs(state.c_str(), &room) != 0)
        return true;
    const bool hasFiles = room.f_files == 0 || room.f_favail >= filesLeft; // 0: without a limit
    return hasFiles && room.f_bavail * room.f_frsize >= 4 * sizeOf(state) + bytesLeft;
}

/// Bytes of a change's texts.
qsizetype sizeOf(const TreeChange &change)
{
    qsizetype bytes = change.value.data.value_or(QByteArray()).size() +
                      change.node.joinedNames().size() + change.source.joinedNames().size();
    for (const TreeView::ChildValue &child : change.children)
        bytes += child.name.size() + child.text.size();
    return bytes;
}

QString unreadableAnswer()
{
    return QStringLiteral("its answer cannot be read");
}

} // namespace

SecondLook::SecondLook(DmDevice &device, std::chrono::milliseconds patience)
    : m_device(device), m_patience(patience)
{
    m_device.tree().setChangeObserver(this);
}

SecondLook::~SecondLook()
{
    m_device.tree().setChangeObserver(nullptr);
    m_device.setLoadListener(nullptr);
    end();
}

// ---- The copy ------------------------------------------------------------------------------------

void SecondLook::beforeChange(const NodeUri &node)
{
    if (m_isPrepared || !m_device.tree().objectOf(node))
        return;
    m_isPrepared = true;
    if (!m_device.hasProfilesInState())
        return;
    if (const auto copied = copyState(); !copied)
        fail(copied.error());
}

Expected<void, QString> SecondLook::copyState()
{
    if (!hasRoomForCopy(QFile::encodeName(m_device.state().path()).toStdString()))
        return Unexpected(QStringLiteral("too little room beside %1 for a copy of the state")
                              .arg(m_device.state().path()));
    if (auto begun = begin(); !begun)
        return begun;
    if (auto copied = m_device.copyFilesTo(m_folder); !copied)
        return copied;
    const auto copyProfiles = [this]() -> Expected<void, QString> {
        if (auto copied = m_device.copyProfilesTo(m_folder); !copied)
            return copied;
        return setUp(true);
    };
    if (m_device.isProfilePluginLoaded())
        return copyProfiles();
    m_device.setLoadListener([this, copyProfiles] {
        if (const auto copied = copyProfiles(); !copied)
            fail(copied.error());
    });
    return {};
}

// ---- The process ---------------------------------------------------------------------------------

Expected<void, QString> SecondLook::begin()
{
    const auto folder = m_device.state().makeScratchFolder();
    if (!folder)
        return Unexpected(folder.error());
    m_folder = *folder;
    m_process.setProgram(QStringLiteral("/proc/self/exe"));
    m_process.setArguments({QString::fromLatin1(secondLookWord), m_folder});
    m_process.setStandardErrorFile(QProcess::nullDevice());
    m_process.setChildProcessModifier([] {
        for (const int signal : {SIGINT, SIGTERM, SIGHUP})
            std::signal(signal, SIG_IGN);
    });
    m_process.start();
    if (!m_process.waitForStarted(patience()))
        return Unexpected(
            QStringLiteral("its process cannot be started: %1").arg(m_process.errorString()));
    return {};
}

Expected<void, QString> SecondLook::setUp(bool isMounted)
{
    m_isSetUp = true;
    const DmDevice::Options options = m_device.optionsFor(m_folder);
    m_process.write(wire::withLength(wire::pack(wire::Setup{
        .folder = m_folder,
        .pluginFolder = options.pluginFolder,
        .profilePlugin = options.profilePlugin,
        .backend = options.profileBackend,
        .isCopied = m_device.hasProfilesInState(),
        .isMounted = isMounted,
    })));
    if (!m_process.waitForBytesWritten(patience()))
        return Unexpected(QStringLiteral("its process is gone"));
    return {};
}

Expected<QByteArray, QString> SecondLook::read(qsizetype bytes)
{
    QDeadlineTimer deadline(m_patience);
    while (m_received.size() < bytes) {
        if (!m_process.bytesAvailable() &&
            !m_process.waitForReadyRead(static_cast<int>(deadline.remainingTime())))
            return Unexpected(m_process.state() == QProcess::Running
                                  ? QStringLiteral("it takes too long")
                                  : QStringLiteral("its process has ended"));
        m_received += m_process.readAllStandardOutput();
    }
    QByteArray first = m_received.first(bytes);
    m_received.remove(0, bytes);
    return first;
}

Expected<QByteArray, QString> SecondLook::ask(const QByteArray &frame)
{
    m_process.write(wire::withLength(frame));
    const auto length = read(wire::lengthBytes);
    if (!length)
        return Unexpected(length.error());
    const std::optional<qsizetype> bytes = wire::lengthIn(*length);
    if (!bytes)
        return Unexpected(unreadableAnswer());
    return read(*bytes);
}

void SecondLook::fail(const QString &reason)
{
    if (m_failure.isEmpty() && !m_isOver)
        m_failure = reason;
    end();
}

void SecondLook::end()
{
    m_isOver = true;
    if (m_process.state() != QProcess::NotRunning) {
        m_process.closeWriteChannel();
        // One that was asked something and has not answered is not waited for.
        if (!m_failure.isEmpty() || !m_process.waitForFinished(patience())) {
            m_process.kill();
            m_process.waitForFinished(patience());
        }
    }
    if (!m_folder.isEmpty())
        StateDirectory::removeScratchFolder(std::exchange(m_folder, {}));
}

// ---- Looking -------------------------------------------------------------------------------------

QString SecondLook::takeFailure()
{
    if (!m_hasChanged || m_failure.isEmpty())
        return {};
    const QString failure =
        QStringLiteral("no second look: %1").arg(std::exchange(m_failure, QString()));
    if (m_observer)
        m_observer->note(failure);
    return failure;
}

Expected<void, QString> SecondLook::lookAt(const std::vector<TreeChange> &changes)
{
    if (!m_isSetUp)
        if (auto set = setUp(false); !set)
            return set;
    if (m_observer && m_seen.empty() && m_device.isProfilePluginLoaded())
        if (auto looked = lookAtTree(); !looked)
            return looked;
    const auto answer = ask(wire::pack(wire::Request::Changes, changes));
    if (!answer)
        return Unexpected(answer.error());
    std::vector<SeenChange> seen;
    if (!wire::unpack(*answer, seen) || seen.size() != changes.size())
        return Unexpected(unreadableAnswer());
    for (std::size_t i = 0; i < seen.size(); ++i)
        if (seen[i].status != changes[i].outcome.status)
            return Unexpected(QStringLiteral("it went another way at %1 %2: %3 in place of %4")
                                  .arg(commandName(changes[i]), addressOf(changes[i]))
                                  .arg(static_cast<int>(seen[i].status))
                                  .arg(static_cast<int>(changes[i].outcome.status)));
    for (std::size_t i = 0; i < seen.size(); ++i) {
        const TreeDifference &difference = seen[i].difference;
        if (m_tree)
            apply(difference, *m_tree);
        if (m_observer && !difference.isEmpty())
            m_observer->commandSeen(m_commands[m_seen.size() + i], difference);
    }
    std::ranges::move(seen, std::back_inserter(m_seen));
    return {};
}

void SecondLook::changed(const TreeChange &change)
{
    m_hasChanged = m_hasChanged || (change.outcome && !change.isMarker());
    if (m_isOver)
        return;
    m_room -= bytesOfChange + sizeOf(change);
    if (m_room < 0) {
        fail(QStringLiteral("more was changed than it follows"));
        return;
    }
    m_changes.push_back(change);
    m_commands.push_back(m_observer ? m_observer->runningCommand() : 0);
}

Expected<void, QString> SecondLook::lookAtTree()
{
    const auto answer = ask(wire::pack(wire::Request::WholeTree, {}));
    if (!answer)
        return Unexpected(answer.error());
    if (!wire::unpack(*answer, m_tree))
        return Unexpected(unreadableAnswer());
    if (m_tree)
        m_observer->treeSeen(*m_tree);
    else
        m_observer->note(QStringLiteral("the tree has more than %1 nodes: only those that commands "
                                        "were about are in this record")
                             .arg(wire::mostNodesOfTree));
    return {};
}

void SecondLook::tellOfNextMount(const NextMount &looks)
{
    if (!m_observer)
        return;
    // What a change has done to the profiles of others.
    if (m_tree)
        if (const TreeDifference rest = difference(*m_tree, looks.now); !rest.isEmpty())
            m_observer->commandSeen(m_commands.back(), rest);
    if (const TreeDifference next = difference(looks.now, looks.next); !next.isEmpty())
        m_observer->nextMountSeen(next);
}

void SecondLook::count(const std::vector<DifferenceNote> &notes)
{
    m_differences += notes.size();
    if (m_observer)
        for (const DifferenceNote &note : notes)
            m_observer->differenceNoted(m_commands[note.change], note);
}

std::vector<DifferenceNote> SecondLook::lookNow()
{
    std::vector<DifferenceNote> notes;
    const std::size_t first = m_seen.size();
    if (!m_isPrepared || m_isOver || first == m_changes.size() || !m_device.hasProfilesInState())
        return notes;
    const std::vector<TreeChange> changes(m_changes.begin() + static_cast<std::ptrdiff_t>(first),
                                          m_changes.end());
    if (const auto looked = lookAt(changes); !looked) {
        fail(looked.error());
        return notes;
    }
    const std::vector<bool> counts = changesThatCount(changes);
    for (std::size_t i = 0; i < changes.size(); ++i)
        if (counts[i])
            std::ranges::move(notesNow(first + i, changes[i], m_seen[first + i]),
                              std::back_inserter(notes));
    count(notes);
    return notes;
}

std::vector<DifferenceNote> SecondLook::lookAtNextMount()
{
    if (!m_isPrepared || m_isOver || !m_hasChanged)
        return {};
    if (!m_device.hasProfilesInState()) {
        auto begun = begin();
        if (begun)
            begun = setUp(false);
        if (!begun) {
            fail(begun.error());
            return {};
        }
    }
    support::Expected<NextMount, QString> looks = support::Unexpected(QString());
    const auto answer = ask(wire::pack(wire::Request::NextMount, m_changes));
    if (!answer || !wire::unpack(*answer, looks) || !looks) {
        fail(!answer ? answer.error() : looks ? unreadableAnswer() : looks.error());
        return {};
    }
    end();
    if (m_device.hasProfilesInState())
        tellOfNextMount(*looks);
    std::vector<DifferenceNote> notes = notesAtNextMount(m_changes, m_seen, *looks);
    count(notes);
    return notes;
}

// ---- For people ----------------------------------------------------------------------------------

QString commandName(const TreeChange &change)
{
    switch (change.kind) {
    case TreeChange::Kind::Add:
        return QStringLiteral("Add");
    case TreeChange::Kind::Remove:
        return QStringLiteral("Delete");
    case TreeChange::Kind::Copy:
        return QStringLiteral("Copy");
    default:
        return QStringLiteral("Replace");
    }
}

QString addressOf(const TreeChange &change)
{
    const QString node = change.node.toDisplay();
    return change.kind == TreeChange::Kind::ReplaceProperty
               ? QStringLiteral("%1?prop=%2").arg(node, nameOf(change.property))
               : node;
}

} // namespace client
