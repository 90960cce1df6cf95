// What filling a NetworkManager takes, through the profile service or by the same calls made bare.
//
//   kub-networkmanager-fill service|bare PROFILES
//
// Creates that many profiles, prints the elapsed milliseconds, and deletes them again. All
// connections there are have to be its own: run it with
// tests/integration/networkmanager/with-private-networkmanager only. bench/fill-times takes the two
// in turn.
#include "record_conversion.h"
#include "temporary_handset.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QUuid>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

namespace {

using bench::Require;

std::string NameOf(int number)
{
    return "Operator " + std::to_string(number);
}

double MillisecondsOf(const std::function<void()> &action)
{
    const auto begin = std::chrono::steady_clock::now();
    action();
    const std::chrono::duration<double, std::milli> time = std::chrono::steady_clock::now() - begin;
    return time.count();
}

double FillByTheService(int profiles)
{
    Require(::setenv("KUB_NAPI_BACKEND", "networkmanager", 1) == 0, "setenv");
    const double time = MillisecondsOf([&] {
        for (int number = 0; number < profiles; ++number) {
            const NAP_PROFILE_S record = bench::PacketRecord(number);
            Require(NAPI_CreateProfile(NameOf(number).c_str(), &record, 0, 0) == 0,
                    "NAPI_CreateProfile");
        }
    });
    for (int number = 0; number < profiles; ++number)
        Require(NAPI_DeleteProfile(NameOf(number).c_str()) == 0, "NAPI_DeleteProfile");
    return time;
}

QDBusMessage CallTo(const QString &path, const QString &interface, const QString &method)
{
    const QString service = QStringLiteral("org.freedesktop.NetworkManager");
    return QDBusMessage::createMethodCall(service, path, service + interface, method);
}

/// The call by which the profile service creates such a profile.
QDBusMessage Creation(int number)
{
    GsmConnection connection = newConnection(QString::fromStdString(NameOf(number)),
                                             QUuid::createUuid().toString(QUuid::WithoutBraces));
    ConnectionChange change;
    Require(!writeRecord(NAP_PROFILE_S{}, bench::PacketRecord(number), connection, change).failed(),
            "writeRecord");
    connection.settings[QStringLiteral("gsm")].insert(connection.gsmSecrets);
    QDBusMessage call = CallTo(QStringLiteral("/org/freedesktop/NetworkManager/Settings"),
                               QStringLiteral(".Settings"), QStringLiteral("AddConnection2"));
    constexpr uint toDisk = 0x1;
    call.setArguments({QVariant::fromValue(connection.settings), toDisk, QVariantMap()});
    return call;
}

double FillBare(int profiles)
{
    qDBusRegisterMetaType<ConnectionSettings>();
    qDBusRegisterMetaType<QMap<QString, QString>>();
    qDBusRegisterMetaType<QList<uint>>();
    const QDBusConnection bus = QDBusConnection::systemBus();
    const auto answerTo = [&](const QDBusMessage &call) {
        const QDBusMessage answer = bus.call(call);
        Require(answer.type() == QDBusMessage::ReplyMessage, call.member().toStdString());
        return answer;
    };
    std::vector<QDBusMessage> creations;
    for (int number = 0; number < profiles; ++number)
        creations.push_back(Creation(number));
    QStringList paths;
    const double time = MillisecondsOf([&] {
        for (const QDBusMessage &creation : creations)
            paths += qvariant_cast<QDBusObjectPath>(answerTo(creation).arguments().value(0)).path();
    });
    for (const QString &path : paths)
        answerTo(CallTo(path, QStringLiteral(".Settings.Connection"), QStringLiteral("Delete")));
    return time;
}

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    const std::string way = argc == 3 ? argv[1] : "";
    const int profiles = argc == 3 ? std::atoi(argv[2]) : 0;
    if ((way != "service" && way != "bare") || profiles < 1) {
        std::fprintf(stderr, "usage: kub-networkmanager-fill service|bare PROFILES\n");
        return 2;
    }
    const bench::TemporaryHandset handset;
    std::printf("%.1f\n", way == "bare" ? FillBare(profiles) : FillByTheService(profiles));
    return 0;
}
