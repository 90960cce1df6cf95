#include "kept_records.h"

#include "private_storage.h"
#include "record_file.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <algorithm>
#include <cerrno>
#include <utility>

namespace client {

using support::Expected;
using support::Unexpected;

namespace {

constexpr char ending[] = ".jsonl";

QString nameOf(const RunDescription &run)
{
    return QStringLiteral("%1-%2%3").arg(run.begin.toString(QStringLiteral("yyyyMMdd'T'HHmmss")),
                                         run.id, QLatin1String(ending));
}

bool isRecordName(const QString &name)
{
    static const QRegularExpression pattern(
        QStringLiteral("^[0-9]{8}T[0-9]{6}-[0-9a-f]{16}\\.jsonl$"));
    return pattern.match(name).hasMatch();
}

/// A name with its ending, which need not be typed.
QString fullName(const QString &word)
{
    return word.endsWith(QLatin1String(ending)) ? word : word + QLatin1String(ending);
}

} // namespace

Expected<EventWriter::Sink, QString> KeptRecords::begin(const RunDescription &run) const
{
    const auto refusal = handset_state::makeFolder(QFile::encodeName(m_folder).toStdString());
    if (refusal)
        return Unexpected(QString::fromLocal8Bit(refusal.text().c_str()));
    prune(mostRecords - 1);
    return RecordFile::createInState(path(nameOf(run)), mostBytes);
}

Expected<QStringList, QString> KeptRecords::names() const
{
    const QString clientFolder = QFileInfo(m_folder).path();
    struct Level {
        QString folder;
        handset_state::Refusal (*check)(const std::string &path);
    };
    for (const Level &level : {Level{QFileInfo(clientFolder).path(), handset_state::checkFolder},
                               Level{clientFolder, handset_state::checkOwnFolder},
                               Level{m_folder, handset_state::checkOwnFolder}}) {
        const auto refusal = level.check(QFile::encodeName(level.folder).toStdString());
        if (refusal.error == ENOENT)
            return QStringList();
        if (refusal)
            return Unexpected(QString::fromLocal8Bit(refusal.text().c_str()));
    }
    QStringList names = QDir(m_folder).entryList(QDir::Files | QDir::System, QDir::Name);
    names.removeIf([](const QString &name) { return !isRecordName(name); });
    // Of those of one second the name says nothing, but what came later ended later.
    const auto age = [this](const QString &name) {
        const QString second = name.section(u'-', 0, 0);
        return std::pair(second, QFileInfo(path(name)).lastModified());
    };
    std::ranges::sort(names, {}, age);
    return names;
}

void KeptRecords::prune(int most) const
{
    const auto all = names();
    if (!all)
        return;
    qint64 bytes = 0;
    for (const QString &name : *all)
        bytes += QFileInfo(path(name)).size();
    qsizetype left = all->size();
    for (const QString &name : *all) {
        if (left <= most && bytes <= mostBytes)
            return;
        bytes -= QFileInfo(path(name)).size();
        --left;
        // One that cannot be removed is not worth a session.
        QFile::remove(path(name));
    }
}

Expected<RecordReader, QString> KeptRecords::open(const QString &word) const
{
    const auto all = names();
    if (const QString name = fullName(word); all && all->contains(name))
        return RecordReader::openInState(path(name));
    if (QFileInfo::exists(word))
        return RecordReader::open(word);
    if (!all)
        return Unexpected(all.error());
    return Unexpected(
        QStringLiteral("there is neither a record %1 in %2 nor a file %1").arg(word, m_folder));
}

Expected<QString, QString> KeptRecords::newest() const
{
    const auto all = names();
    if (!all)
        return Unexpected(all.error());
    if (all->isEmpty())
        return Unexpected(QStringLiteral("no session is recorded in %1").arg(m_folder));
    return all->last();
}

Expected<void, QString> KeptRecords::remove(const QString &word) const
{
    const QString name = fullName(word);
    const auto all = names();
    if (!all)
        return Unexpected(all.error());
    if (!all->contains(name))
        return Unexpected(QStringLiteral("there is no record %1 in %2").arg(word, m_folder));
    QFile file(path(name));
    if (!file.remove())
        return Unexpected(
            QStringLiteral("cannot remove %1: %2").arg(file.fileName(), file.errorString()));
    return {};
}

} // namespace client
