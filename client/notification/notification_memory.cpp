#include "notification_memory.h"

#include <QCryptographicHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace client::notification {

using support::Expected;
using support::Unexpected;

namespace {

/// What the file has of a notification. The nonce itself is nobody else's business.
QString entryOf(const QByteArray &nonce, quint16 sessionId)
{
    const QByteArray what = nonce + ':' + QByteArray::number(sessionId);
    return QString::fromLatin1(
        QCryptographicHash::hash(what, QCryptographicHash::Sha256).toHex().first(32));
}

} // namespace

Expected<bool, QString> NotificationMemory::add(const QString &account, const QByteArray &nonce,
                                                quint16 sessionId) const
{
    const auto stored = m_file.readObject();
    if (!stored)
        return Unexpected(stored.error());
    QJsonObject accounts = stored->value_or(QJsonObject());
    const QJsonValue known = accounts.value(account);
    if (!known.isUndefined() && !known.isArray())
        return Unexpected(
            QStringLiteral("%1: what it has of %2 is not a list").arg(m_file.path(), account));
    QJsonArray entries = known.toArray();
    const QString entry = entryOf(nonce, sessionId);
    if (entries.contains(entry))
        return false;
    entries.append(entry);
    while (entries.size() > mostPerAccount)
        entries.removeFirst();
    accounts[account] = entries;
    const auto kept = m_file.replace(QJsonDocument(accounts).toJson(QJsonDocument::Compact));
    return kept ? Expected<bool, QString>(true) : Unexpected(kept.error());
}

} // namespace client::notification
