#include "pending_bootstraps.h"

#include "private_file.h"
#include "private_storage.h"
#include "wsp_push.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <algorithm>
#include <utility>

namespace client::push {

using support::Expected;
using support::PrivateFile;
using support::Unexpected;

namespace {

constexpr const char *bootstrapTypes[] = {push_type::connectivityXml, push_type::connectivityWbxml,
                                          push_type::dmXml, push_type::dmWbxml};

constexpr char suffix[] = ".json";
constexpr qsizetype idDigits = 16;
/// The message in base64, and a few short fields.
constexpr qsizetype largestFile = WspPush::largest / 3 * 4 + 1024;
constexpr qsizetype longestImsi = 15;

const QString receivedKey = QStringLiteral("received");
const QString messageKey = QStringLiteral("message");
const QString imsiKey = QStringLiteral("imsi");
const QString pinTriesKey = QStringLiteral("pin-tries");
const QString setAsideKey = QStringLiteral("set-aside");

/// The same for the same document and proof, whatever else of the push has changed. With another
/// proof it is another message: a forger's must not stand for the operator's.
QString idOf(const WspPush &push)
{
    const QByteArray what = *push.security + '\n' + push.mac->toUpper() + '\n' + push.body;
    return QString::fromLatin1(
        QCryptographicHash::hash(what, QCryptographicHash::Sha256).toHex().first(idDigits));
}

bool isId(const QString &word)
{
    return word.size() == idDigits && std::ranges::all_of(word, [](QChar digit) {
               return (digit >= u'0' && digit <= u'9') || (digit >= u'a' && digit <= u'f');
           });
}

} // namespace

bool isBootstrapPush(const QByteArray &bytes)
{
    const auto push = readWspPush(bytes);
    return push && std::ranges::any_of(bootstrapTypes, [&push](const char *type) {
               return push->mediaType == type;
           });
}

/// What a file has.
struct PendingBootstraps::Entry {
    std::chrono::milliseconds received{0};
    std::optional<PendingBootstrap> pending; ///< none: it was dealt with
};

PendingBootstraps::PendingBootstraps(const QString &stateDirectory)
    : m_folder(stateDirectory + QStringLiteral("/client/bootstrap"))
{
}

QString PendingBootstraps::fileOf(const QString &id) const
{
    return m_folder + u'/' + id + QLatin1String(suffix);
}

Expected<std::optional<PendingBootstraps::Entry>, QString>
PendingBootstraps::read(const QString &id) const
{
    const PrivateFile file(fileOf(id), largestFile);
    const auto stored = file.readObject();
    if (!stored)
        return Unexpected(stored.error());
    if (!*stored)
        return std::optional<Entry>();
    const QJsonObject &object = **stored;
    Entry entry;
    entry.received = std::chrono::milliseconds(object[receivedKey].toInteger());
    if (!object.contains(messageKey))
        return std::optional(entry);
    PendingBootstrap pending{.id = id, .received = entry.received};
    const auto message = QByteArray::fromBase64Encoding(object[messageKey].toString().toLatin1(),
                                                        QByteArray::AbortOnBase64DecodingErrors);
    pending.message = message.decoded;
    pending.imsi = object[imsiKey].toString().toLatin1();
    pending.pinTries = object[pinTriesKey].toInt(-1);
    pending.isSetAside = object[setAsideKey].toBool();
    const auto push = readWspPush(pending.message);
    if (!message || pending.pinTries < 0 || pending.imsi.size() > longestImsi || !push ||
        !push->security || !push->mac || idOf(*push) != id)
        return Unexpected(
            QStringLiteral("%1: it is not the message that it is called after").arg(file.path()));
    entry.pending = std::move(pending);
    return std::optional(std::move(entry));
}

Expected<void, QString> PendingBootstraps::write(const QString &id, const Entry &entry) const
{
    QJsonObject object{{receivedKey, static_cast<qint64>(entry.received.count())}};
    if (entry.pending) {
        object[messageKey] = QString::fromLatin1(entry.pending->message.toBase64());
        object[imsiKey] = QString::fromLatin1(entry.pending->imsi);
        object[pinTriesKey] = entry.pending->pinTries;
        object[setAsideKey] = entry.pending->isSetAside;
    }
    return PrivateFile(fileOf(id), largestFile)
        .replace(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

QStringList PendingBootstraps::ids() const
{
    QStringList found;
    for (const QString &name : QDir(m_folder).entryList(QDir::Files | QDir::System | QDir::Hidden))
        if (const QString id = name.chopped(std::min(name.size(), qsizetype(sizeof suffix - 1)));
            isId(id) && name == id + QLatin1String(suffix))
            found += id;
    return found;
}

Expected<PendingBootstraps::Addition, QString>
PendingBootstraps::add(const QByteArray &message, const QByteArray &imsi,
                       std::chrono::milliseconds received) const
{
    const auto push = readWspPush(message);
    if (!push || !push->security || !push->mac)
        return Addition{Added::NoProof, {}};
    const QString id = idOf(*push);
    if (const auto refusal = handset_state::makeFolder(QFile::encodeName(m_folder).toStdString()))
        return Unexpected(QString::fromLocal8Bit(refusal.text().c_str()));

    std::size_t pending = 0;
    std::vector<std::pair<std::chrono::milliseconds, QString>> remembered;
    for (const QString &one : ids()) {
        // One that cannot be read takes the place of a message.
        const auto entry = read(one);
        if (one == id)
            return entry ? Expected<Addition, QString>(Addition{Added::Known, id})
                         : Unexpected(entry.error());
        if (entry && *entry && !(*entry)->pending)
            remembered.emplace_back((*entry)->received, one);
        else
            ++pending;
    }
    if (pending >= most)
        return Addition{Added::NoRoom, id};
    std::ranges::sort(remembered);
    for (std::size_t i = 0; i + mostRemembered < remembered.size() + 1; ++i)
        QFile::remove(fileOf(remembered[i].second));
    const auto kept = write(
        id, {received, PendingBootstrap{.id = id,
                                        .received = received,
                                        .message = message,
                                        .imsi = imsi.size() > longestImsi ? QByteArray() : imsi}});
    return kept ? Expected<Addition, QString>(Addition{Added::New, id}) : Unexpected(kept.error());
}

PendingBootstraps::Listing PendingBootstraps::list() const
{
    Listing listing;
    for (const QString &id : ids()) {
        auto entry = read(id);
        if (!entry)
            listing.damage += entry.error();
        else if (*entry && (*entry)->pending)
            listing.pending.push_back(*std::move((*entry)->pending));
    }
    std::ranges::stable_sort(listing.pending, {}, &PendingBootstrap::received);
    return listing;
}

Expected<PendingBootstrap, QString> PendingBootstraps::find(const QString &id) const
{
    if (isId(id)) {
        auto entry = read(id);
        if (!entry)
            return Unexpected(entry.error());
        if (*entry && (*entry)->pending)
            return *std::move((*entry)->pending);
    }
    return Unexpected(QStringLiteral("no message %1 waits").arg(id));
}

Expected<void, QString> PendingBootstraps::change(const PendingBootstrap &pending) const
{
    return write(pending.id, {pending.received, pending});
}

Expected<void, QString> PendingBootstraps::finish(const QString &id) const
{
    const auto entry = read(id);
    return write(id, {entry && *entry ? (*entry)->received : std::chrono::milliseconds(0), {}});
}

} // namespace client::push
