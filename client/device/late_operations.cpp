#include "late_operations.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <algorithm>
#include <iterator>
#include <optional>
#include <utility>

namespace client {

using support::Expected;
using support::Unexpected;

// ---- The file ------------------------------------------------------------------------------------

namespace {

const QString operationsKey = QStringLiteral("operations");

struct LateTextRow {
    const char *key;
    QString LateOperation::*member;
    qsizetype longest;
};

// What accept() takes is within these; longer ones were written by somebody else.
constexpr LateTextRow lateTexts[] = {
    {"account", &LateOperation::account, 1024},
    {"session", &LateOperation::sessionId, 1024},
    {"target", &LateOperation::target, LateOperations::longestTarget},
    {"correlator", &LateOperation::correlator, LateOperations::longestCorrelator},
    {"alert", &LateOperation::alertType, 1024},
};

struct LateBytesRow {
    const char *key;
    QByteArray LateOperation::*member;
    qsizetype longest;
};

constexpr LateBytesRow lateBytes[] = {
    {"server", &LateOperation::serverId, 1024},
    {"argument", &LateOperation::argument, LateOperations::longestArgument},
};

struct StageRow {
    const char *word;
    LateOperation::Stage stage;
};

constexpr StageRow stages[] = {
    {"accepted", LateOperation::Stage::Accepted},
    {"begun", LateOperation::Stage::Begun},
    {"ended", LateOperation::Stage::Ended},
};

QJsonObject toJson(const LateOperation &operation)
{
    const auto *const stage = std::ranges::find(stages, operation.stage, &StageRow::stage);
    QJsonObject object{{QStringLiteral("id"), operation.id},
                       {QStringLiteral("stage"), QLatin1String(stage->word)},
                       {QStringLiteral("status"), static_cast<int>(operation.status)},
                       {QStringLiteral("broken off"), operation.wasBrokenOff}};
    for (const LateTextRow &row : lateTexts)
        object[QLatin1String(row.key)] = operation.*row.member;
    for (const LateBytesRow &row : lateBytes)
        object[QLatin1String(row.key)] = QString::fromLatin1((operation.*row.member).toBase64());
    return object;
}

std::optional<QByteArray> bytesFrom(const QJsonValue &value)
{
    auto decoded = QByteArray::fromBase64Encoding(value.toString().toLatin1(),
                                                  QByteArray::AbortOnBase64DecodingErrors);
    return value.isString() && decoded ? std::optional(*std::move(decoded)) : std::nullopt;
}

/// @return the name of the member that is wrong
Expected<LateOperation, QString> lateOperationFrom(const QJsonObject &object)
{
    LateOperation operation;
    operation.id = object[u"id"].toInt();
    if (operation.id < 1)
        return Unexpected(QStringLiteral("id"));
    for (const LateTextRow &row : lateTexts) {
        const QJsonValue value = object[QLatin1String(row.key)];
        operation.*row.member = value.toString();
        if (!value.isString() || (operation.*row.member).size() > row.longest)
            return Unexpected(QString::fromLatin1(row.key));
    }
    for (const LateBytesRow &row : lateBytes) {
        const auto bytes = bytesFrom(object[QLatin1String(row.key)]);
        if (!bytes || bytes->size() > row.longest)
            return Unexpected(QString::fromLatin1(row.key));
        operation.*row.member = *bytes;
    }
    const QString word = object[u"stage"].toString();
    const auto *const stage = std::ranges::find_if(
        stages, [&word](const StageRow &row) { return word == QLatin1String(row.word); });
    if (stage == std::end(stages))
        return Unexpected(QStringLiteral("stage"));
    operation.stage = stage->stage;
    const auto status = parseStatus(QByteArray::number(object[u"status"].toInt()));
    if (!status)
        return Unexpected(QStringLiteral("status"));
    operation.status = *status;
    operation.wasBrokenOff = object[u"broken off"].toBool();
    return operation;
}

} // namespace

Expected<LateOperations, QString> LateOperations::load(const QString &path)
{
    LateOperations loaded(path);
    const auto object = loaded.m_file.readObject();
    if (!object)
        return Unexpected(object.error());
    if (!*object)
        return loaded;
    const QJsonValue stored = (**object)[operationsKey];
    const QJsonArray entries = stored.toArray();
    if (!stored.isArray() || entries.size() > static_cast<qsizetype>(most))
        return Unexpected(QStringLiteral("%1: %2 is not a list of at most %3")
                              .arg(path, operationsKey)
                              .arg(most));
    std::set<int> ids;
    for (const QJsonValue &entry : entries) {
        auto operation = lateOperationFrom(entry.toObject());
        const QString wrong = !operation                          ? operation.error()
                              : !ids.insert(operation->id).second ? QStringLiteral("id")
                                                                  : QString();
        if (!wrong.isEmpty())
            return Unexpected(QStringLiteral("%1: %2 of entry %3 is wrong")
                                  .arg(path, wrong)
                                  .arg(loaded.m_operations.size() + 1));
        loaded.m_lastId = std::max(loaded.m_lastId, operation->id);
        loaded.m_operations.push_back(*std::move(operation));
    }
    return loaded;
}

LateOperations::Change LateOperations::replaceBy(std::vector<LateOperation> operations)
{
    if (operations == m_operations)
        return {};
    QJsonArray entries;
    for (const LateOperation &operation : operations)
        entries += toJson(operation);
    const auto kept = m_file.replace(QJsonDocument(QJsonObject{{operationsKey, entries}}).toJson());
    if (kept)
        m_operations = std::move(operations);
    return kept;
}

// ---- Operations ----------------------------------------------------------------------------------

std::set<int> LateOperations::begunOf(const QString &account) const
{
    std::set<int> ids;
    for (const LateOperation &operation : m_operations)
        if (operation.account == account && operation.stage != LateOperation::Stage::Accepted)
            ids.insert(operation.id);
    return ids;
}

Outcome LateOperations::checkIdle(const QString &target) const
{
    const bool isBusy = std::ranges::any_of(m_operations, [&](const LateOperation &operation) {
        return operation.target == target && operation.stage != LateOperation::Stage::Ended;
    });
    return isBusy ? Outcome{DmStatus::Forbidden,
                            QStringLiteral("another Exec of %1 has not ended yet").arg(target)}
                  : Outcome();
}

Outcome LateOperations::accept(LateOperation operation)
{
    if (const Outcome idle = checkIdle(operation.target); !idle)
        return idle;
    if (operation.correlator.size() > longestCorrelator ||
        operation.target.size() > longestTarget || operation.argument.size() > longestArgument)
        return {DmStatus::TooLarge,
                QStringLiteral("an operation that ends later has at most %1 bytes of data, and a "
                               "correlator of at most %2 characters")
                    .arg(longestArgument)
                    .arg(longestCorrelator)};
    const auto ofAccount = static_cast<std::size_t>(
        std::ranges::count(m_operations, operation.account, &LateOperation::account));
    if (ofAccount >= mostPerAccount || m_operations.size() >= most)
        return {DmStatus::CommandFailed,
                QStringLiteral("%1 operations wait for their end, or for the server to take their "
                               "result")
                    .arg(ofAccount >= mostPerAccount ? ofAccount : m_operations.size())};
    operation.id = m_lastId + 1;
    std::vector<LateOperation> operations = m_operations;
    operations.push_back(std::move(operation));
    if (const auto kept = replaceBy(std::move(operations)); !kept)
        return {DmStatus::CommandFailed, kept.error()};
    ++m_lastId;
    return {DmStatus::Accepted, {}};
}

template <class Edit>
LateOperations::Change LateOperations::change(int id, Edit &&edit)
{
    std::vector<LateOperation> operations = m_operations;
    const auto operation = std::ranges::find(operations, id, &LateOperation::id);
    if (operation != operations.end())
        edit(*operation);
    return replaceBy(std::move(operations));
}

LateOperations::Change LateOperations::begin(int id)
{
    return change(id,
                  [](LateOperation &operation) { operation.stage = LateOperation::Stage::Begun; });
}

LateOperations::Change LateOperations::end(int id, DmStatus status)
{
    return change(id, [status](LateOperation &operation) {
        operation.stage = LateOperation::Stage::Ended;
        operation.status = status;
        operation.argument.clear();
    });
}

LateOperations::Change LateOperations::forget(const std::set<int> &ids)
{
    return keepOnly([&ids](const LateOperation &operation) { return !ids.contains(operation.id); });
}

LateOperations::Change LateOperations::breakOffBegun()
{
    std::vector<LateOperation> operations = m_operations;
    for (LateOperation &operation : operations) {
        if (operation.stage != LateOperation::Stage::Begun)
            continue;
        operation.stage = LateOperation::Stage::Ended;
        operation.status = DmStatus::CommandFailed;
        operation.wasBrokenOff = true;
        operation.argument.clear();
    }
    return replaceBy(std::move(operations));
}

} // namespace client
