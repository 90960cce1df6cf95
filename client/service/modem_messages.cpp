#include "modem_messages.h"

#include "journal.h"

#include <QDBusArgument>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusVariant>
#include <QMap>
#include <QVariantMap>
#include <algorithm>
#include <utility>

namespace client {

namespace {

const QString modemManager = QStringLiteral("org.freedesktop.ModemManager1");
const QString modemManagerPath = QStringLiteral("/org/freedesktop/ModemManager1");
const QString modemInterface = QStringLiteral("org.freedesktop.ModemManager1.Modem");
const QString simInterface = QStringLiteral("org.freedesktop.ModemManager1.Sim");
const QString messagingInterface = QStringLiteral("org.freedesktop.ModemManager1.Modem.Messaging");
const QString smsInterface = QStringLiteral("org.freedesktop.ModemManager1.Sms");
const QString objectManagerInterface = QStringLiteral("org.freedesktop.DBus.ObjectManager");
const QString propertiesInterface = QStringLiteral("org.freedesktop.DBus.Properties");

// MMSmsState and MMSmsPduType.
constexpr uint stateReceiving = 2;
constexpr uint stateReceived = 3;
constexpr uint typeDeliver = 1;

using Interfaces = QMap<QString, QVariantMap>;
using ManagedObjects = QMap<QDBusObjectPath, Interfaces>;

QDBusMessage callOf(const QString &path, const QString &interface, const char *method)
{
    QDBusMessage message =
        QDBusMessage::createMethodCall(modemManager, path, interface, QString::fromLatin1(method));
    // A device whose modem nobody uses keeps ModemManager asleep.
    message.setAutoStartService(false);
    return message;
}

/// The one argument of a reply or of a signal that begins with it; what has another signature is
/// not looked at.
template <class T>
std::optional<T> argumentOf(const QDBusMessage &message, int index, const char *signature)
{
    if (message.type() == QDBusMessage::ErrorMessage ||
        message.signature() != QLatin1String(signature))
        return std::nullopt;
    return qdbus_cast<T>(message.arguments().at(index));
}

/// Zero when it is no number of that type.
uint numberIn(const QVariantMap &properties, const char *name)
{
    const QVariant value = properties.value(QString::fromLatin1(name));
    return value.metaType() == QMetaType::fromType<uint>() ? value.toUInt() : 0;
}

/// The property that was asked for; invalid when there is none.
QVariant valueIn(const QDBusMessage &reply)
{
    const auto value = argumentOf<QDBusVariant>(reply, 0, "v");
    return value ? value->variant() : QVariant();
}

QStringList pathsIn(const QVariant &value)
{
    QStringList paths;
    if (value.metaType() != QMetaType::fromType<QDBusArgument>() ||
        value.value<QDBusArgument>().currentSignature() != u"ao")
        return paths;
    for (const QDBusObjectPath &path : qdbus_cast<QList<QDBusObjectPath>>(value))
        paths += path.path();
    return paths;
}

} // namespace

ModemMessages::ModemMessages(const QDBusConnection &bus, Take take)
    : m_bus(bus), m_watcher(modemManager, bus), m_take(std::move(take))
{
    const QString anyPath;
    m_bus.connect(modemManager, modemManagerPath, objectManagerInterface,
                  QStringLiteral("InterfacesAdded"), this, SLOT(takeInterfaces(QDBusMessage)));
    m_bus.connect(modemManager, anyPath, messagingInterface, QStringLiteral("Added"), this,
                  SLOT(takeAdded(QDBusMessage)));
    m_bus.connect(modemManager, anyPath, messagingInterface, QStringLiteral("Deleted"), this,
                  SLOT(takeDeleted(QDBusMessage)));
    m_bus.connect(modemManager, anyPath, propertiesInterface, QStringLiteral("PropertiesChanged"),
                  {smsInterface}, QString(), this, SLOT(takeChange(QDBusMessage)));
    connect(&m_watcher, &QDBusServiceWatcher::serviceOwnerChanged, this, [this] { beginAnew(); });
    beginAnew();
}

void ModemMessages::beginAnew()
{
    ++m_generation;
    m_waiting.clear();
    m_reading.clear();
    m_completed.clear();
    m_receiving.clear();
    m_hasMissed = false;
    listModems();
}

/// Calls back only while the ModemManager runs that was asked.
void ModemMessages::call(const QDBusMessage &message, const Answered &answered)
{
    auto *const watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(message), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, answered, generation = m_generation](QDBusPendingCallWatcher *finished) {
                finished->deleteLater();
                if (generation == m_generation)
                    answered(finished->reply());
            });
}

// ---- Which messages there are --------------------------------------------------------------------

void ModemMessages::listModems()
{
    call(callOf(modemManagerPath, objectManagerInterface, "GetManagedObjects"),
         [this](const QDBusMessage &reply) {
             const auto objects = argumentOf<ManagedObjects>(reply, 0, "a{oa{sa{sv}}}");
             if (!objects)
                 return;
             for (auto object = objects->begin(); object != objects->end(); ++object)
                 if (object->contains(messagingInterface))
                     listMessages(object.key().path());
         });
}

void ModemMessages::takeInterfaces(const QDBusMessage &signal)
{
    const auto path = argumentOf<QDBusObjectPath>(signal, 0, "oa{sa{sv}}");
    const auto interfaces = argumentOf<Interfaces>(signal, 1, "oa{sa{sv}}");
    if (path && interfaces->contains(messagingInterface))
        listMessages(path->path());
}

void ModemMessages::listMessages(const QString &modem)
{
    QDBusMessage message = callOf(modem, propertiesInterface, "Get");
    message << messagingInterface << QStringLiteral("Messages");
    call(message, [this, modem](const QDBusMessage &reply) {
        for (const QString &path : pathsIn(valueIn(reply)))
            wait({modem, path});
    });
}

void ModemMessages::takeAdded(const QDBusMessage &signal)
{
    const auto path = argumentOf<QDBusObjectPath>(signal, 0, "ob");
    const auto isReceived = argumentOf<bool>(signal, 1, "ob");
    if (path && *isReceived && !wait({signal.path(), path->path()}))
        m_hasMissed = true;
}

void ModemMessages::takeDeleted(const QDBusMessage &signal)
{
    if (const auto path = argumentOf<QDBusObjectPath>(signal, 0, "o")) {
        std::erase(m_waiting, Place{signal.path(), path->path()});
        std::erase(m_receiving, Place{signal.path(), path->path()});
    }
}

/// The last part of a message has come.
void ModemMessages::takeChange(const QDBusMessage &signal)
{
    const auto changed = argumentOf<QVariantMap>(signal, 1, "sa{sv}as");
    if (!changed || numberIn(*changed, "State") != stateReceived)
        return;
    // What it was before may still be on the way to here: the bus library hands on an answer that
    // came at once later than the signals after it.
    const auto reading = std::ranges::find(m_reading, signal.path(), &Place::message);
    if (reading != m_reading.end()) {
        if (std::ranges::find(m_completed, *reading) == m_completed.end())
            m_completed.push_back(*reading);
        return;
    }
    const auto place = std::ranges::find(m_receiving, signal.path(), &Place::message);
    if (place == m_receiving.end())
        return;
    const Place whole = *place;
    m_receiving.erase(place);
    if (!wait(whole))
        m_hasMissed = true;
}

// ---- Reading them --------------------------------------------------------------------------------

bool ModemMessages::wait(const Place &place)
{
    const auto isIn = [&place](const auto &places) {
        return std::ranges::find(places, place) != places.end();
    };
    if (isIn(m_waiting) || isIn(m_reading) || isIn(m_receiving))
        return true;
    if (m_waiting.size() >= mostWaiting) {
        if (const auto count = m_unread.add(RefusalCount::Clock::now()))
            writeJournal(JournalPriority::Warning,
                         QStringLiteral("%1 short messages are not read for now: more than %2 wait")
                             .arg(*count)
                             .arg(mostWaiting));
        return false;
    }
    m_waiting.push_back(place);
    readNext();
    return true;
}

void ModemMessages::readNext()
{
    while (m_reading.size() < mostReading && !m_waiting.empty()) {
        const Place place = m_waiting.front();
        m_waiting.pop_front();
        m_reading.push_back(place);
        ask(place);
    }
}

void ModemMessages::ask(const Place &place)
{
    QDBusMessage message = callOf(place.message, propertiesInterface, "GetAll");
    message << smsInterface;
    call(message, [this, place](const QDBusMessage &reply) { read(place, reply); });
}

void ModemMessages::read(const Place &place, const QDBusMessage &reply)
{
    const auto properties = argumentOf<QVariantMap>(reply, 0, "a{sv}").value_or(QVariantMap());
    const uint state = numberIn(properties, "State");
    if (std::erase(m_completed, place) && state == stateReceiving) {
        ask(place);
        return;
    }
    if (state == stateReceiving) {
        // Somebody who begins messages and does not end them takes no place of later ones.
        if (m_receiving.size() >= mostReceiving)
            m_receiving.pop_front();
        m_receiving.push_back(place);
    }
    const QVariant value = properties.value(QStringLiteral("Data"));
    const QByteArray data =
        value.metaType() == QMetaType::fromType<QByteArray>() ? value.toByteArray() : QByteArray();
    const bool isWhole = state == stateReceived && numberIn(properties, "PduType") == typeDeliver;
    if (isWhole && !data.isEmpty())
        findSim(place, data);
    else
        over(place);
}

/// A message may be proved by the subscriber's identity.
void ModemMessages::findSim(const Place &place, const QByteArray &data)
{
    QDBusMessage simOfModem = callOf(place.modem, propertiesInterface, "Get");
    simOfModem << modemInterface << QStringLiteral("Sim");
    call(simOfModem, [this, place, data](const QDBusMessage &reply) {
        const QVariant sim = valueIn(reply);
        if (sim.metaType() != QMetaType::fromType<QDBusObjectPath>()) {
            take(place, {data, {}});
            return;
        }
        QDBusMessage imsiOfSim =
            callOf(sim.value<QDBusObjectPath>().path(), propertiesInterface, "Get");
        imsiOfSim << simInterface << QStringLiteral("Imsi");
        call(imsiOfSim, [this, place, data](const QDBusMessage &answer) {
            const QVariant imsi = valueIn(answer);
            take(place, {data, imsi.metaType() == QMetaType::fromType<QString>()
                                   ? imsi.toString().toLatin1()
                                   : QByteArray()});
        });
    });
}

void ModemMessages::take(const Place &place, const Message &message)
{
    if (m_take(message) == Outcome::Over)
        remove(place);
    else
        over(place);
}

void ModemMessages::remove(const Place &place)
{
    QDBusMessage message = callOf(place.modem, messagingInterface, "Delete");
    message << QVariant::fromValue(QDBusObjectPath(place.message));
    call(message, [this, place](const QDBusMessage &reply) {
        if (reply.type() == QDBusMessage::ErrorMessage)
            if (const auto count = m_undeleted.add(RefusalCount::Clock::now()))
                writeJournal(JournalPriority::Warning,
                             QStringLiteral("%1 short messages that were dealt with stay in the "
                                            "modem, the last because: %2")
                                 .arg(*count)
                                 .arg(reply.errorMessage()));
        over(place);
    });
}

void ModemMessages::over(const Place &place)
{
    std::erase(m_reading, place);
    std::erase(m_completed, place);
    readNext();
    if (m_reading.empty() && std::exchange(m_hasMissed, false))
        listModems();
}

} // namespace client
