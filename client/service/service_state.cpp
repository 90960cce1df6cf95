#include "service_state.h"

#include "late_operations.h"
#include "private_storage.h"
#include "state_location.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/file.h>
#include <utility>

namespace client {

using support::Expected;
using support::Unexpected;

namespace {

// As many as there can be accounts of, and of results a few, each with a line of text.
constexpr qsizetype largestFile = 1024 * 1024;

const QString resultsKey = QStringLiteral("results");

} // namespace

Expected<std::unique_ptr<ServiceState>, QString> ServiceState::open(const QString &path)
{
    const std::string state = handset_state::absolutePath(QFile::encodeName(path).toStdString());
    const std::string folder = state + "/service";
    handset_state::Refusal refusal = handset_state::makeStateDirectory(state);
    for (const std::string &needed : {state + "/client", folder})
        if (!refusal)
            refusal = handset_state::makeFolder(needed);
    handset_state::FileDescriptor lockFile;
    if (!refusal)
        lockFile = handset_state::openFile(folder + "/lock", O_RDWR | O_CREAT, refusal);
    if (refusal)
        return Unexpected(QString::fromLocal8Bit(refusal.text().c_str()));
    const QString root = QFile::decodeName(state.c_str());
    if (::flock(lockFile.get(), LOCK_EX | LOCK_NB) != 0)
        return Unexpected(
            errno == EWOULDBLOCK
                ? QStringLiteral("another dmclientd serves the state directory %1").arg(root)
                : QStringLiteral("cannot lock %1/service/lock: %2")
                      .arg(root, QString::fromLocal8Bit(std::strerror(errno))));
    return std::unique_ptr<ServiceState>(new ServiceState(root, std::move(lockFile)));
}

ServiceState::ServiceState(QString path, handset_state::FileDescriptor lockFile)
    : m_path(std::move(path)), m_lockFile(std::move(lockFile)),
      m_schedule(m_path + QStringLiteral("/service/schedule.json"), largestFile),
      m_results(m_path + QStringLiteral("/service/results.json"), largestFile)
{
}

QString ServiceState::accountsFile() const
{
    return m_path + QStringLiteral("/client/accounts.json");
}

QString ServiceState::lateOperationsFile() const
{
    return m_path + QStringLiteral("/client/") + QLatin1String(client::lateOperationsFile);
}

Expected<std::optional<QJsonObject>, QString> ServiceState::readSchedule() const
{
    return m_schedule.readObject();
}

Expected<void, QString> ServiceState::writeSchedule(const QJsonObject &schedule) const
{
    return m_schedule.replace(QJsonDocument(schedule).toJson());
}

Expected<std::vector<SessionResult>, QString> ServiceState::readResults() const
{
    const auto object = m_results.readObject();
    if (!object)
        return Unexpected(object.error());
    std::vector<SessionResult> results;
    if (!*object)
        return results;
    const QJsonValue stored = (**object)[resultsKey];
    if (!stored.isArray())
        return Unexpected(
            QStringLiteral("%1: %2 is not an array").arg(m_results.path(), resultsKey));
    for (const QJsonValueRef entry : stored.toArray()) {
        auto result = sessionResultFromJson(entry.toObject());
        if (!result)
            return Unexpected(QStringLiteral("%1: entry %2 of %3 %4")
                                  .arg(m_results.path())
                                  .arg(results.size() + 1)
                                  .arg(resultsKey, result.error()));
        results.push_back(*std::move(result));
    }
    return results;
}

Expected<void, QString> ServiceState::writeResults(const std::vector<SessionResult> &results) const
{
    QJsonArray array;
    for (const SessionResult &result : results)
        array += toJson(result);
    return m_results.replace(QJsonDocument(QJsonObject{{resultsKey, array}}).toJson());
}

} // namespace client
