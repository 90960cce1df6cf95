// The store when the bus or the daemon does what a sound one does not do on demand.
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <ostream>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QDir>
#include <QTemporaryDir>
#include <QThread>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include "fake_networkmanager.h"
#include "networkmanager_profile_store.h"
#include "silent_bus.h"

namespace {

using Names = std::vector<std::string>;
using Methods = std::vector<std::string>;

QDBusMessage noAnswer(const QDBusMessage &)
{
    return {};
}

FakeNetworkManager::Handler error(const char *name, const char *text)
{
    return [=](const QDBusMessage &call) {
        return call.createErrorReply(QString::fromLatin1(name), QString::fromLatin1(text));
    };
}

/// What the daemon signals of a connection that it has been given.
QDBusMessage newConnection(const QDBusObjectPath &path)
{
    QDBusMessage signal = QDBusMessage::createSignal(u"/org/freedesktop/NetworkManager/Settings"_qs,
                                                     u"org.freedesktop.NetworkManager.Settings"_qs,
                                                     u"NewConnection"_qs);
    signal.setArguments({QVariant::fromValue(path)});
    return signal;
}

constexpr char permissionDenied[] = "org.freedesktop.NetworkManager.Settings.PermissionDenied";

constexpr std::chrono::milliseconds limit(NetworkManagerBus::callLimitMs);
constexpr std::chrono::milliseconds impatientLimit(NetworkManagerBus::impatientLimitMs);
constexpr std::chrono::milliseconds rounding = limit / 15; // Qt's timers may be 5 % early
constexpr std::chrono::milliseconds busyMachine(2000);

std::chrono::milliseconds timeOf(const std::function<void()> &action)
{
    const auto begin = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                                 begin);
}

class Faults : public testing::Test {
protected:
    Faults()
        : m_bus(std::make_unique<PrivateBus>()), m_fake(std::make_unique<FakeNetworkManager>(3))
    {
        const StoreResult result = open();
        EXPECT_FALSE(result.failed()) << result.message;
    }

    StoreResult open()
    {
        m_store.reset();
        return NetworkManagerProfileStore::open(m_directory.path().toStdString() + "/ids.db",
                                                m_store);
    }
    void expectList(const Names &expected)
    {
        Names names;
        const StoreResult result = m_store->list(1000, names);
        EXPECT_FALSE(result.failed()) << result.message;
        EXPECT_EQ(names, expected);
    }
    NAP_PROFILE_S read(std::string_view name)
    {
        NAP_PROFILE_S record = {};
        const StoreResult result = m_store->read(name, record);
        EXPECT_FALSE(result.failed()) << result.message;
        return record;
    }
    /// What was called, but for signs that are asked for when there was nothing for a while.
    std::vector<RecordedCall> takeCalls()
    {
        std::vector<RecordedCall> calls = m_fake->takeCalls();
        std::erase_if(calls, [](const RecordedCall &call) { return call.method == "Get"; });
        return calls;
    }
    Methods takeMethods()
    {
        Methods methods;
        for (const RecordedCall &call : takeCalls())
            methods.push_back(call.method);
        return methods;
    }
    static ConnectionSettings sentSettings(const RecordedCall &call)
    {
        return qdbus_cast<ConnectionSettings>(call.arguments.value(0));
    }

    const Names m_all = {"Fake 0", "Fake 1", "Fake 2"};
    const QTemporaryDir m_directory;
    std::unique_ptr<PrivateBus> m_bus;
    std::unique_ptr<FakeNetworkManager> m_fake;
    std::unique_ptr<ProfileStore> m_store;
};

// ---- No bus, no daemon --------------------------------------------------------------------------

TEST_F(Faults, NoBusIsUnavailableUntilThereIsOne)
{
    expectList(m_all);
    m_fake.reset();
    m_bus.reset();
    Names names;
    StoreResult result = m_store->list(10, names);
    EXPECT_EQ(result.status, NAPI_ERROR_UNAVAILABLE);
    EXPECT_NE(result.message.find("cannot reach the system bus"), std::string::npos)
        << result.message;
    std::unique_ptr<ProfileStore> other;
    EXPECT_EQ(
        NetworkManagerProfileStore::open(m_directory.path().toStdString() + "/other", other).status,
        NAPI_ERROR_UNAVAILABLE);
    m_bus = std::make_unique<PrivateBus>();
    m_fake = std::make_unique<FakeNetworkManager>(3);
    expectList(m_all);
}

TEST_F(Faults, BusWithoutADaemonIsUnavailableUntilThereIsOne)
{
    m_fake.reset();
    const StoreResult result = open();
    EXPECT_EQ(result.status, NAPI_ERROR_UNAVAILABLE);
    EXPECT_NE(result.message.find("NetworkManager is not running"), std::string::npos)
        << result.message;
    m_fake = std::make_unique<FakeNetworkManager>(3);
    ASSERT_FALSE(open().failed());
    expectList(m_all);
}

// ---- Time ---------------------------------------------------------------------------------------

TEST_F(Faults, DaemonThatDoesNotAnswerEndsAtTheLimitAndThenSooner)
{
    expectList(m_all);
    m_fake->handle("GetSecrets", noAnswer); // but does answer GetSettings
    NAP_PROFILE_S record;
    StoreResult result;
    const auto first = timeOf([&] { result = m_store->read("Fake 1", record); });
    EXPECT_EQ(result.status, NAPI_ERROR_UNAVAILABLE);
    EXPECT_NE(result.message.find("has not answered"), std::string::npos) << result.message;
    EXPECT_GE(first, limit - rounding);
    EXPECT_LE(first, limit + busyMachine);

    const auto second = timeOf([&] { result = m_store->read("Fake 1", record); });
    EXPECT_EQ(result.status, NAPI_ERROR_UNAVAILABLE);
    EXPECT_GE(second, impatientLimit - rounding);
    EXPECT_LE(second, impatientLimit + busyMachine);

    // One answer, and the daemon has all its time again.
    const auto noSecrets = error("org.freedesktop.NetworkManager.AgentManager.NoSecrets", "none");
    m_fake->handle("GetSecrets", noSecrets);
    read("Fake 1");
    m_fake->handle("GetSecrets", [=](const QDBusMessage &call) {
        QThread::sleep(1);
        return noSecrets(call);
    });
    static_assert(impatientLimit < std::chrono::seconds(1));
    read("Fake 1");
}

/// A socket that clients can connect to, one at a time, and that says nothing by itself.
class Listener {
public:
    explicit Listener(const QByteArray &name)
    {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        std::copy(name.begin(), name.end(), address.sun_path);
        const std::size_t size =
            offsetof(sockaddr_un, sun_path) + static_cast<std::size_t>(name.size());
        EXPECT_EQ(
            ::bind(m_socket, reinterpret_cast<sockaddr *>(&address), static_cast<socklen_t>(size)),
            0);
        EXPECT_EQ(::listen(m_socket, 0), 0);
    }
    ~Listener() { ::close(m_socket); }
    Listener(const Listener &) = delete;
    Listener &operator=(const Listener &) = delete;

    /// Waits for a client. @return a connection to it.
    int accept() const { return ::accept(m_socket, nullptr, nullptr); }

private:
    const int m_socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
};

TEST_F(Faults, BusThatStopsEndsCallsAtTheLimitAndThenSooner)
{
    expectList(m_all);
    m_bus->freeze();
    NAP_PROFILE_S record;
    const auto firstRead =
        timeOf([&] { EXPECT_EQ(m_store->read("Fake 1", record).status, NAPI_ERROR_UNAVAILABLE); });
    EXPECT_GE(firstRead, limit - rounding);
    EXPECT_LE(firstRead, limit + busyMachine);
    const auto secondRead =
        timeOf([&] { EXPECT_EQ(m_store->read("Fake 1", record).status, NAPI_ERROR_UNAVAILABLE); });
    EXPECT_LE(secondRead, impatientLimit + busyMachine);
    m_bus->thaw();
    EXPECT_STREQ(read("Fake 1").gprsAddress, "fake.apn");
}

TEST_F(Faults, BusThatSaysNothingEndsOpeningAtTheLimitAndThenSooner)
{
    m_fake.reset();
    m_bus.reset();
    {
        const Listener silent(PrivateBus::address().mid(sizeof "unix:path=" - 1).toUtf8());
        const auto expectSilence = [&] {
            unsigned int count = 0;
            const StoreResult result = m_store->count(count);
            EXPECT_EQ(result.status, NAPI_ERROR_UNAVAILABLE);
            EXPECT_NE(result.message.find("does not answer"), std::string::npos) << result.message;
        };
        const auto first = timeOf(expectSilence);
        EXPECT_GE(first, limit - rounding);
        EXPECT_LE(first, limit + busyMachine);
        const auto second = timeOf(expectSilence);
        EXPECT_LE(second, impatientLimit + busyMachine);
        PrivateBus::removeSocket();
    }
    // One answer, and the bus and the daemon have all their time again.
    m_bus = std::make_unique<PrivateBus>();
    m_fake = std::make_unique<FakeNetworkManager>(3);
    m_fake->handle("ListConnections", [](const QDBusMessage &call) {
        QThread::sleep(1);
        return call.createReply(QVariant::fromValue(QList<QDBusObjectPath>()));
    });
    expectList({});
}

class SilentBus : public testing::Test {
protected:
    ~SilentBus() override { EXPECT_EQ(openFiles(), m_openFiles); }

    static constexpr int shortMs = 100;
    const QTemporaryDir m_directory;
    const QByteArray m_path = m_directory.filePath(QStringLiteral("it's a bus")).toUtf8();
    const QByteArray m_address = "unix:guid=0,path=" + m_path.toPercentEncoding("/");

private:
    static uint openFiles() { return QDir(u"/proc/self/fd"_qs).count(); }

    const uint m_openFiles = openFiles();
};

TEST_F(SilentBus, IsNotOneThatIsNotThere)
{
    for (const QByteArray &address :
         {QByteArray(), m_address, QByteArrayLiteral("tcp:host=127.0.0.1,port=1"),
          QByteArrayLiteral("nonsense"), QByteArrayLiteral("unix:tmpdir=/tmp"),
          "unix:path=" + QByteArray(200, 'x')}) {
        errno = EAGAIN; // left by an earlier call
        EXPECT_FALSE(isBusSilent(address, shortMs)) << address.toStdString();
    }
}

TEST_F(SilentBus, IsTheFirstThatAcceptsAConnection)
{
    const Listener listener(m_path);
    EXPECT_FALSE(isBusSilent("fake:path=" + m_path, shortMs)) << "another transport";
    EXPECT_TRUE(isBusSilent("unix:path=/nowhere;" + m_address, shortMs));
}

TEST_F(SilentBus, CanHaveAnAbstractName)
{
    const QByteArray name = "kub " + QByteArray::number(::getpid());
    const Listener listener('\0' + name);
    EXPECT_TRUE(isBusSilent("unix:abstract=" + name.toPercentEncoding() + ",guid=0", shortMs));
    EXPECT_FALSE(isBusSilent("unix:path=" + name.toPercentEncoding(), shortMs));
}

TEST_F(SilentBus, WithoutRoomForOneMoreIsWaitedForAsLong)
{
    const Listener listener(m_path);
    EXPECT_TRUE(isBusSilent(m_address, shortMs)) << "takes all the room that there is";
    bool isSilent = false;
    const auto time = timeOf([&] { isSilent = isBusSilent(m_address, shortMs); });
    EXPECT_TRUE(isSilent);
    EXPECT_GE(time.count(), shortMs - shortMs / 10);
    EXPECT_LE(time, busyMachine);
}

TEST_F(SilentBus, IsNotOneThatAnswersOrHangsUp)
{
    const int longMs = NetworkManagerBus::callLimitMs;
    const Listener listener(m_path);
    std::thread other([&] { ::close(listener.accept()); });
    EXPECT_FALSE(isBusSilent(m_address, longMs)) << "ends the connection";
    other.join();

    std::string greeting(7, '?');
    other = std::thread([&] {
        const int client = listener.accept();
        EXPECT_EQ(::recv(client, greeting.data(), greeting.size(), MSG_WAITALL), 7);
        EXPECT_EQ(::send(client, "R", 1, 0), 1);
        ::close(client);
    });
    EXPECT_FALSE(isBusSilent(m_address, longMs));
    other.join();
    EXPECT_EQ(greeting, std::string("\0AUTH\r\n", 7));

    const PrivateBus bus;
    const auto time = timeOf([&] { EXPECT_FALSE(isBusSilent(systemBusAddresses(), longMs)); });
    EXPECT_LT(time, limit) << "a real bus understands the greeting";
}

TEST_F(SilentBus, IsLookedForWhereTheSystemBusIs)
{
    const QByteArray before = qgetenv("DBUS_SYSTEM_BUS_ADDRESS");
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", m_address);
    EXPECT_EQ(systemBusAddresses(), m_address);
    qunsetenv("DBUS_SYSTEM_BUS_ADDRESS");
    EXPECT_EQ(systemBusAddresses(), "unix:path=/var/run/dbus/system_bus_socket");
    if (!before.isNull())
        qputenv("DBUS_SYSTEM_BUS_ADDRESS", before);
}

TEST_F(Faults, CallsInFlightAreLimited)
{
    m_fake = nullptr;
    m_fake = std::make_unique<FakeNetworkManager>(300);
    m_fake->answerInBatches("GetSettings");
    unsigned int count = 0;
    ASSERT_FALSE(m_store->count(count).failed());
    EXPECT_EQ(count, 300U);
    EXPECT_LE(m_fake->mostUnanswered(), 64);
    EXPECT_GE(m_fake->mostUnanswered(), 2) << "several at a time";
}

// ---- Refusals and failures ----------------------------------------------------------------------

TEST_F(Faults, MissingPermissionIsUnavailableAndWritesNothing)
{
    for (const char *name : {permissionDenied, "org.freedesktop.NetworkManager.PermissionDenied",
                             "org.freedesktop.NetworkManager.Settings.NotPrivileged",
                             "org.freedesktop.DBus.Error.AccessDenied"}) {
        for (const char *method : {"Update2", "Delete", "AddConnection2", "GetSecrets"})
            m_fake->handle(method, error(name, "Insufficient privileges"));
        NAP_PROFILE_S record = {};
        for (const StoreResult &result :
             {m_store->read("Fake 0", record), m_store->modify("Fake 0", record),
              m_store->remove("Fake 0"), m_store->create("New", record, 10)}) {
            EXPECT_EQ(result.status, NAPI_ERROR_UNAVAILABLE) << name;
            EXPECT_NE(result.message.find("Insufficient privileges"), std::string::npos);
        }
    }
}

// ---- Secrets that are found in user data --------------------------------------------------------

class FoundSecret : public Faults {
protected:
    FoundSecret()
    {
        m_fake->handle("GetSettings", [](const QDBusMessage &call) {
            ConnectionSettings settings = FakeNetworkManager::connectionSettings(0);
            settings[u"user"_qs][u"data"_qs] = QVariant::fromValue(
                QMap<QString, QString>{{u"kub-dm.csd.authPassword"_qs, u"found"_qs}});
            return call.createReply(QVariant::fromValue(settings));
        });
        m_fake->handle("ListConnections", [](const QDBusMessage &call) {
            const QDBusObjectPath path(FakeNetworkManager::connectionPath(0));
            return call.createReply(QVariant::fromValue(QList<QDBusObjectPath>{path}));
        });
        expectList({"Fake 0"});
        m_fake->takeCalls();
    }
    /// What is in the database, as another process sees it.
    int keptSecrets() const
    {
        const std::string path = m_directory.path().toStdString() + "/ids.db";
        sqlite3 *database = nullptr;
        sqlite3_stmt *statement = nullptr;
        int kept = -1;
        constexpr const char *sql =
            "SELECT count(*) FROM profile_secret WHERE value = x'666f756e64'";
        if (sqlite3_open(path.c_str(), &database) == SQLITE_OK &&
            sqlite3_prepare_v2(database, sql, -1, &statement, nullptr) == SQLITE_OK &&
            sqlite3_step(statement) == SQLITE_ROW)
            kept = sqlite3_column_int(statement, 0);
        sqlite3_finalize(statement);
        sqlite3_close(database);
        return kept;
    }
};

TEST_F(FoundSecret, IsOnTheDiskBeforeItGoesFromTheConnection)
{
    std::atomic<int> keptAtUpdate = -1;
    m_fake->handle("Update2", [&](const QDBusMessage &call) {
        keptAtUpdate = keptSecrets();
        return call.createReply(QVariantMap());
    });
    EXPECT_STREQ(read("Fake 0").csdAuthPassword, "found");
    EXPECT_EQ(keptAtUpdate, 1);
    for (const RecordedCall &call : takeCalls()) {
        if (call.method == "Update2") {
            EXPECT_EQ(sentSettings(call), FakeNetworkManager::connectionSettings(0));
        }
    }
}

TEST_F(FoundSecret, IsReadWhereItIsWhenItMayNotBeTakenAway)
{
    m_fake->handle("Update2", error(permissionDenied, "Insufficient privileges"));
    for (int round = 0; round < 2; ++round)
        EXPECT_STREQ(read("Fake 0").csdAuthPassword, "found");
}

TEST_F(FoundSecret, StaysInTheConnectionWhenItCannotBeKept)
{
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit before = {};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const rlimit noFiles = {.rlim_cur = 0, .rlim_max = before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &noFiles);
    NAP_PROFILE_S record = read("Fake 0");
    EXPECT_STREQ(record.csdAuthPassword, "found");
    record.csdLinger = 3;
    EXPECT_EQ(m_store->modify("Fake 0", record).status, NAPI_OK);
    record.csdAuthPassword[0] = 'F';
    EXPECT_TRUE(m_store->modify("Fake 0", record).failed());
    setrlimit(RLIMIT_FSIZE, &before);
    int updates = 0;
    for (const RecordedCall &call : takeCalls()) {
        if (call.method != "Update2")
            continue;
        ++updates;
        const auto data =
            qdbus_cast<QMap<QString, QString>>(sentSettings(call)[u"user"_qs][u"data"_qs]);
        EXPECT_EQ(data[u"kub-dm.csd.authPassword"_qs], u"found"_qs);
    }
    EXPECT_EQ(updates, 1);
    EXPECT_EQ(keptSecrets(), 0);
}

TEST_F(Faults, ConnectionsThatOneMayNotSeeOrThatGoAreLeftOut)
{
    m_fake->handle("GetSettings", [](const QDBusMessage &call) {
        const int index = call.path().section(u'/', -1).toInt();
        if (index == 0)
            return error(permissionDenied, "no")(call);
        if (index == 1)
            return error("org.freedesktop.DBus.Error.UnknownMethod", "no object")(call);
        return call.createReply(QVariant::fromValue(FakeNetworkManager::connectionSettings(index)));
    });
    expectList({"Fake 2"});
}

TEST_F(Faults, AgentWithoutAPasswordMeansNoPassword)
{
    for (const char *name : {"org.freedesktop.NetworkManager.AgentManager.NoSecrets",
                             "org.freedesktop.NetworkManager.SecretAgent.NoSecrets",
                             "org.freedesktop.NetworkManager.SecretAgent.UserCanceled"}) {
        m_fake->handle("GetSecrets", error(name, "none"));
        EXPECT_EQ(read("Fake 0").gprsAuthPassword[0], '\0') << name;
    }
}

TEST_F(Faults, ReasonOfAFailureHasACodeOfItsOwn)
{
    struct Row {
        std::string name;
        NAPI_STATUS status;
        std::string subject = "NetworkManager: ";
    };
    const std::string noAnswer = "NetworkManager has not answered: ";
    const std::string noBus = "cannot reach the system bus: ";
    const Row rows[] = {
        {"org.freedesktop.NetworkManager.Settings.Failed", NAPI_ERROR_IO},
        {"org.freedesktop.NetworkManager.Settings.ReadOnlyConnection", NAPI_ERROR_READ_ONLY},
        {"org.freedesktop.NetworkManager.Settings.UuidExists", NAPI_ERROR_EXISTS},
        {"org.freedesktop.DBus.Error.NoReply", NAPI_ERROR_UNAVAILABLE, noAnswer},
        {"org.freedesktop.DBus.Error.Timeout", NAPI_ERROR_UNAVAILABLE, noAnswer},
        {"org.freedesktop.DBus.Error.TimedOut", NAPI_ERROR_UNAVAILABLE, noAnswer},
        {"org.freedesktop.DBus.Error.NameHasNoOwner", NAPI_ERROR_UNAVAILABLE},
        {"org.freedesktop.DBus.Error.Disconnected", NAPI_ERROR_UNAVAILABLE, noBus},
        {"org.freedesktop.DBus.Error.UnknownObject", NAPI_ERROR_NOT_FOUND},
        {"org.example.Unheard.Of", NAPI_ERROR_IO},
    };
    for (const Row &row : rows) {
        m_fake->handle("Update2", error(row.name.c_str(), "the reason"));
        const StoreResult result = m_store->modify("Fake 0", NAP_PROFILE_S{});
        EXPECT_EQ(result.status, row.status) << row.name;
        EXPECT_EQ(result.message, row.subject + "the reason (" + row.name + ")");
    }
}

/// Answers GetSettings with the ID by which the connection is listed, and when it is looked at
/// again with another one, that many times.
FakeNetworkManager::Handler renamedAfterTheList(int times)
{
    return [times, isListed = false](const QDBusMessage &call) mutable {
        ConnectionSettings settings = FakeNetworkManager::connectionSettings(1);
        isListed = !isListed;
        if (!isListed && times-- > 0)
            settings[u"connection"_qs][u"id"_qs] = u"Another"_qs;
        return call.createReply(QVariant::fromValue(settings));
    };
}

TEST_F(Faults, ConnectionThatNeverStaysTheSameIsBusyWhenItIsToBeChanged)
{
    m_fake->handle("ListConnections", [](const QDBusMessage &call) {
        const QList<QDBusObjectPath> paths = {
            QDBusObjectPath(FakeNetworkManager::connectionPath(1))};
        return call.createReply(QVariant::fromValue(paths));
    });
    m_fake->handle("GetSettings", renamedAfterTheList(1000));
    NAP_PROFILE_S record = {};
    const StoreResult result = m_store->modify("Fake 1", record);
    EXPECT_EQ(result.status, NAPI_ERROR_BUSY);
    EXPECT_NE(result.message.find("changes"), std::string::npos) << result.message;

    // It is listed, and changes then, and once more while that is looked into.
    m_fake->handle("GetSettings", renamedAfterTheList(2));
    expectList({"Fake 1"});
    EXPECT_FALSE(m_store->modify("Fake 1", record).failed());
}

TEST_F(Faults, UpdateIsTakenBackWhenThePasswordCannotBeRemoved)
{
    const ConnectionSettings onlyPassword = {{u"gsm"_qs, {{u"password"_qs, u"secret"_qs}}}};
    m_fake->handle("GetSecrets", [=](const QDBusMessage &call) {
        return call.createReply(QVariant::fromValue(onlyPassword));
    });
    m_fake->handle("ClearSecrets", error("org.freedesktop.NetworkManager.Settings.Failed", "disk"));
    expectList(m_all);
    m_fake->takeCalls();
    EXPECT_EQ(m_store->modify("Fake 0", NAP_PROFILE_S{}).status, NAPI_ERROR_IO);
    const std::vector<RecordedCall> calls = takeCalls();
    ASSERT_EQ(calls.size(), 5U);
    EXPECT_EQ(calls[2].method, "Update2");
    EXPECT_FALSE(sentSettings(calls[2])[u"gsm"_qs].contains(u"apn"_qs));
    EXPECT_EQ(calls[3].method, "ClearSecrets");
    EXPECT_EQ(calls[4].method, "Update2");
    EXPECT_EQ(sentSettings(calls[4]), FakeNetworkManager::connectionSettings(0));
}

TEST_F(Faults, ConnectionWhoseIdCannotBeKeptIsDeletedAgain)
{
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit before = {};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    expectList(m_all);
    m_fake->handle("AddConnection2", [=](const QDBusMessage &call) {
        const rlimit noFiles = {.rlim_cur = 0, .rlim_max = before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &noFiles);
        const QDBusObjectPath path(FakeNetworkManager::connectionPath(77));
        return call.createReply({QVariant::fromValue(path), QVariantMap()});
    });
    const StoreResult result = m_store->create("New", NAP_PROFILE_S{}, 10);
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_TRUE(result.failed());
    EXPECT_NE(result.message.find("ids.db"), std::string::npos) << result.message;
    const RecordedCall last = takeCalls().back();
    EXPECT_EQ(last.method, "Delete");
    EXPECT_EQ(last.path, FakeNetworkManager::connectionPath(77));
    expectList(m_all);
}

TEST_F(Faults, DaemonThatEndsDuringACallIsUnavailableAndTheNextOneServes)
{
    expectList(m_all);
    m_fake->handle("Update2", [](const QDBusMessage &) {
        QThread::currentThread()->quit(); // its connection to the bus ends
        return QDBusMessage();
    });
    NAP_PROFILE_S record = read("Fake 1");
    record.csdLinger = 1;
    const StoreResult result = m_store->modify("Fake 1", record);
    EXPECT_EQ(result.status, NAPI_ERROR_UNAVAILABLE) << result.message;
    m_fake.reset();
    m_fake = std::make_unique<FakeNetworkManager>(3);
    EXPECT_FALSE(m_store->modify("Fake 1", record).failed());
}

TEST_F(Faults, PathThatLeadsToAnotherConnectionOfTheSameIdIsNoticed)
{
    const auto twins = [](int shift) {
        return [shift](const QDBusMessage &call) {
            const int index = (call.path().section(u'/', -1).toInt() + shift) % 3;
            ConnectionSettings settings = FakeNetworkManager::connectionSettings(index);
            settings[u"connection"_qs][u"id"_qs] = u"Twin"_qs;
            settings[u"gsm"_qs][u"apn"_qs] = u"apn%1"_qs.arg(index);
            return call.createReply(QVariant::fromValue(settings));
        };
    };
    m_fake->handle("GetSettings", twins(0));
    EXPECT_STREQ(read("Twin~00000001").gprsAddress, "apn1");
    m_fake.reset();
    m_bus.reset();
    m_bus = std::make_unique<PrivateBus>();
    m_fake = std::make_unique<FakeNetworkManager>(3);
    m_fake->handle("GetSettings", twins(1));
    EXPECT_STREQ(read("Twin~00000001").gprsAddress, "apn1");
}

TEST_F(Faults, ChangeGoesToTheDaemonThatWasReadFrom)
{
    std::unique_ptr<FakeNetworkManager> successor;
    std::atomic<bool> isListed = false;
    m_fake->handle("GetSettings", [&](const QDBusMessage &call) {
        if (isListed) {
            m_fake->giveUpName();
            successor = std::make_unique<FakeNetworkManager>(3);
        }
        const int index = call.path().section(u'/', -1).toInt();
        return call.createReply(QVariant::fromValue(FakeNetworkManager::connectionSettings(index)));
    });
    expectList(m_all);
    isListed = true;
    EXPECT_FALSE(m_store->remove("Fake 1").failed());
    ASSERT_NE(successor, nullptr);
    EXPECT_TRUE(successor->takeCalls().empty());
    EXPECT_EQ(takeMethods().back(), "Delete");
}

TEST_F(Faults, AnswersOfAnotherFormAreAnErrorOfTheirOwn)
{
    const auto rubbish = [](const QDBusMessage &call) { return call.createReply(u"rubbish"_qs); };
    for (const char *method : {"GetSecrets", "GetSettings", "ListConnections"}) {
        m_fake->handle(method, rubbish);
        NAP_PROFILE_S record = {};
        const StoreResult result = m_store->read("Fake 0", record);
        EXPECT_EQ(result.status, NAPI_ERROR_IO) << method;
        EXPECT_NE(result.message.find(method), std::string::npos) << result.message;
        ASSERT_FALSE(open().failed());
    }
    m_fake->handle("ListConnections", rubbish);
    Names names;
    EXPECT_EQ(m_store->list(10, names).status, NAPI_ERROR_IO);
    ASSERT_FALSE(open().failed());
    m_fake->handle("ListConnections", [](const QDBusMessage &call) {
        return call.createReply(QVariant::fromValue(QList<QDBusObjectPath>()));
    });
    m_fake->handle("AddConnection2", rubbish);
    const StoreResult created = m_store->create("New", NAP_PROFILE_S{}, 10);
    EXPECT_EQ(created.status, NAPI_ERROR_IO);
    EXPECT_NE(created.message.find("AddConnection2"), std::string::npos) << created.message;
}

// ---- What goes over the bus ---------------------------------------------------------------------

TEST_F(Faults, OperationsCostAFewCalls)
{
    expectList(m_all);
    EXPECT_EQ(takeMethods(),
              (Methods{"ListConnections", "GetSettings", "GetSettings", "GetSettings"}));
    expectList(m_all);
    EXPECT_EQ(takeMethods(), Methods{"ListConnections"});
    read("Fake 0"); // the first secrets show whether the daemon signals them
    takeMethods();
    NAP_PROFILE_S record = read("Fake 1");
    EXPECT_EQ(takeMethods(), (Methods{"GetSettings", "GetSecrets"})) << "once more of Fake 0";
    read("Fake 1");
    std::uint32_t id = 0;
    EXPECT_FALSE(m_store->idByName("Fake 1", id).failed());
    std::string name;
    EXPECT_FALSE(m_store->nameById(id, name).failed());
    EXPECT_EQ(m_store->read("Unknown", record).status, NAPI_ERROR_NOT_FOUND);
    EXPECT_EQ(takeMethods(), Methods());
    EXPECT_FALSE(m_store->modify("Fake 1", record).failed());
    EXPECT_EQ(takeMethods(), (Methods{"GetSettings", "GetSecrets"})) << "nothing to write";
    record.csdLinger = 1;
    EXPECT_FALSE(m_store->modify("Fake 1", record).failed());
    EXPECT_EQ(takeMethods(), (Methods{"GetSettings", "GetSecrets", "Update2"}));
    read("Fake 1");
    EXPECT_EQ(takeMethods(), (Methods{"GetSettings", "GetSecrets"}));
    EXPECT_FALSE(m_store->remove("Fake 1").failed());
    EXPECT_EQ(takeMethods(), (Methods{"GetSettings", "Delete"}));
}

TEST_F(Faults, CreationCostsOneCall)
{
    expectList(m_all);
    m_fake->takeCalls();
    int created = 100;
    m_fake->handle("AddConnection2", [&](const QDBusMessage &call) {
        const QDBusObjectPath path(FakeNetworkManager::connectionPath(created++));
        m_fake->signal(newConnection(path));
        return call.createReply({QVariant::fromValue(path), QVariantMap()});
    });
    for (const char *name : {"One", "Two", "Three"})
        ASSERT_FALSE(m_store->create(name, NAP_PROFILE_S{}, 10).failed());
    EXPECT_EQ(m_store->create("Two", NAP_PROFILE_S{}, 10).status, NAPI_ERROR_EXISTS);
    EXPECT_EQ(takeMethods(), (Methods{"AddConnection2", "AddConnection2", "AddConnection2"}));
}

// ---- What is kept -------------------------------------------------------------------------------

/// Answers GetSettings with that access point name.
FakeNetworkManager::Handler settingsWithApn(const QString &apn)
{
    return [=](const QDBusMessage &call) {
        const int index = call.path().section(u'/', -1).toInt();
        ConnectionSettings settings = FakeNetworkManager::connectionSettings(index);
        settings[u"gsm"_qs][u"apn"_qs] = apn;
        return call.createReply(QVariant::fromValue(settings));
    };
}

TEST_F(Faults, OnlyTheConnectionThatHasChangedIsReadAgain)
{
    for (const std::string &name : m_all)
        read(name);
    read(m_all[0]);
    m_fake->takeCalls();
    m_fake->signalChange(2);
    for (const std::string &name : m_all)
        read(name);
    const std::vector<RecordedCall> calls = takeCalls();
    ASSERT_EQ(calls.size(), 2U);
    EXPECT_EQ(calls[0].method, "GetSettings");
    EXPECT_EQ(calls[1].method, "GetSecrets");
    EXPECT_EQ(calls[1].path, FakeNetworkManager::connectionPath(2));
}

struct SecretsRow {
    bool areSignalled;
    bool areReadBefore;
};

void PrintTo(const SecretsRow &row, std::ostream *output)
{
    *output << (row.areSignalled ? "signalled" : "not signalled")
            << (row.areReadBefore ? ", not the first" : ", the first");
}

class ChangeWhileSecretsAreHandedOut : public Faults,
                                       public testing::WithParamInterface<SecretsRow> {};

TEST_P(ChangeWhileSecretsAreHandedOut, IsSeenByTheNextRead)
{
    if (!GetParam().areSignalled)
        m_fake->handOutSecretsWithoutASignal();
    std::atomic<bool> isChanged = false;
    m_fake->handle("GetSettings", [&](const QDBusMessage &call) {
        return settingsWithApn(isChanged ? u"new"_qs : u"old"_qs)(call);
    });
    for (int round = 0; GetParam().areReadBefore && round < 2; ++round)
        read("Fake 0");
    m_fake->handle("GetSecrets", [&](const QDBusMessage &call) {
        if (!isChanged.exchange(true))
            m_fake->signalChange(1);
        return call.createReply(QVariant::fromValue(ConnectionSettings()));
    });
    EXPECT_STREQ(read("Fake 1").gprsAddress, "old");
    EXPECT_STREQ(read("Fake 1").gprsAddress, "new");
}

INSTANTIATE_TEST_SUITE_P(Secrets, ChangeWhileSecretsAreHandedOut,
                         testing::Values(SecretsRow{true, true}, SecretsRow{true, false},
                                         SecretsRow{false, true}, SecretsRow{false, false}));

TEST_F(Faults, SecretsThatAnotherProcessKeepsAreSeen)
{
    m_fake->handOutSecretsWithoutASignal();
    NAP_PROFILE_S record = read("Fake 1");
    std::unique_ptr<ProfileStore> other;
    ASSERT_FALSE(
        NetworkManagerProfileStore::open(m_directory.path().toStdString() + "/ids.db", other)
            .failed());
    for (const char *password : {"first", "second", ""}) {
        std::strcpy(record.csdAuthPassword, password);
        ASSERT_FALSE(other->modify("Fake 1", record).failed());
        EXPECT_STREQ(read("Fake 1").csdAuthPassword, password);
    }
}

TEST_F(Faults, NumberThatARefusedCreationGaveAnotherConnectionIsNotKept)
{
    // Another program adds two connections while the creation waits for the database.
    expectList(m_all);
    const auto listed = [](const QDBusMessage &call) {
        QList<QDBusObjectPath> paths;
        for (const int index : {0, 1, 2, 4, 3})
            paths.append(QDBusObjectPath(FakeNetworkManager::connectionPath(index)));
        return call.createReply(QVariant::fromValue(paths));
    };
    m_fake->handle("ListConnections", listed);
    m_fake->handle("AddConnection2", error(permissionDenied, "no"));
    sqlite3 *database = nullptr;
    ASSERT_EQ(sqlite3_open((m_directory.path() + u"/ids.db"_qs).toUtf8().constData(), &database),
              SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(database, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
    std::thread otherProgram([&] {
        QThread::msleep(200);
        m_fake->signal(newConnection(QDBusObjectPath(FakeNetworkManager::connectionPath(3))));
        sqlite3_exec(database, "COMMIT", nullptr, nullptr, nullptr);
    });
    EXPECT_EQ(m_store->create("New", NAP_PROFILE_S{}, 10).status, NAPI_ERROR_UNAVAILABLE);
    otherProgram.join();
    sqlite3_close(database);
    std::unique_ptr<ProfileStore> other;
    ASSERT_FALSE(
        NetworkManagerProfileStore::open(m_directory.path().toStdString() + "/ids.db", other)
            .failed());
    std::uint32_t id = 0;
    std::uint32_t otherId = 0;
    EXPECT_FALSE(other->idByName("Fake 3", otherId).failed());
    EXPECT_FALSE(m_store->idByName("Fake 3", id).failed());
    EXPECT_EQ(id, otherId);
}

/// Somebody on the bus who is not the daemon, and sends each of the others its own copy of a
/// signal.
class Stranger {
public:
    ~Stranger() { QDBusConnection::disconnectFromBus(m_name); }

    void sendToAll(const QString &path, const QString &interface, const QString &member,
                   const QVariantList &arguments = {})
    {
        const QStringList names = m_connection.interface()->registeredServiceNames();
        for (const QString &name : names) {
            QDBusMessage signal = QDBusMessage::createTargetedSignal(name, path, interface, member);
            signal.setArguments(arguments);
            m_connection.send(signal);
        }
        m_connection.interface()->isServiceRegistered(u"none"_qs); // all have been passed on
    }

private:
    const QString m_name = u"stranger"_qs;
    QDBusConnection m_connection = QDBusConnection::connectToBus(PrivateBus::address(), m_name);
};

TEST_F(Faults, SignalThatIsOnItsWayIsWaitedFor)
{
    read("Fake 1");
    m_fake->handle("Get", [&](const QDBusMessage &call) {
        m_fake->signalChange(1, FakeNetworkManager::Wait::No);
        return call.createReply(QVariant::fromValue(QDBusVariant(true)));
    });
    takeCalls();
    QThread::msleep(NetworkManagerBus::silenceLimitMs + 1);
    std::uint32_t id = 0;
    EXPECT_FALSE(m_store->idByName("Fake 1", id).failed());
    EXPECT_EQ(takeMethods(), Methods{"GetSettings"});
}

TEST_F(Faults, DaemonThatSaysNothingIsUnavailableForWhatIsKnownAsWell)
{
    read("Fake 1");
    m_fake->handle("Get", noAnswer);
    QThread::msleep(NetworkManagerBus::silenceLimitMs + 1);
    NAP_PROFILE_S record = {};
    const StoreResult result = m_store->read("Fake 1", record);
    EXPECT_EQ(result.status, NAPI_ERROR_UNAVAILABLE);
    EXPECT_NE(result.message.find("has not answered"), std::string::npos) << result.message;
}

TEST_F(Faults, SignalsOfAStrangerDoNotCount)
{
    expectList(m_all);
    m_fake->takeCalls();
    Stranger stranger;
    const QString connection = u"org.freedesktop.NetworkManager.Settings.Connection"_qs;
    stranger.sendToAll(FakeNetworkManager::connectionPath(1), connection, u"Updated"_qs);
    stranger.sendToAll(FakeNetworkManager::connectionPath(1), connection, u"Removed"_qs);
    stranger.sendToAll(u"/org/freedesktop/DBus"_qs, u"org.freedesktop.DBus"_qs,
                       u"NameOwnerChanged"_qs,
                       {u"org.freedesktop.NetworkManager"_qs, QString(), QString()});
    std::uint32_t id = 0;
    EXPECT_FALSE(m_store->idByName("Fake 1", id).failed());
    EXPECT_EQ(takeMethods(), Methods());
}

TEST_F(Faults, MessageThatIsTooLongToListenToLosesNothing)
{
    expectList(m_all);
    Stranger stranger;
    stranger.sendToAll(u"/"_qs, u"org.example"_qs, u"Long"_qs, {QString(100000, u'x')});
    m_fake->handle("GetSettings", settingsWithApn(u"new"_qs));
    EXPECT_STREQ(read("Fake 1").gprsAddress, "new");
}

TEST_F(Faults, MoreSignalsThanCanBeLookedAtMeanEverything)
{
    expectList(m_all);
    m_fake->takeCalls();
    for (int signals = 0; signals < 20000; ++signals)
        m_fake->signalChange(1, FakeNetworkManager::Wait::No);
    m_fake->signalChange(1);
    std::uint32_t id = 0;
    EXPECT_FALSE(m_store->idByName("Fake 0", id).failed());
    EXPECT_EQ(takeMethods(),
              (Methods{"ListConnections", "GetSettings", "GetSettings", "GetSettings"}));
    int rounds = 0;
    do {
        ASSERT_LT(++rounds, 1000) << "they come to an end";
        EXPECT_FALSE(m_store->idByName("Fake 0", id).failed());
    } while (!takeMethods().empty());
}

TEST_F(Faults, UnchangedSecretsAreNotSent)
{
    NAP_PROFILE_S record = read("Fake 1");
    record.csdLinger = 1;
    m_fake->takeCalls();
    ASSERT_FALSE(m_store->modify("Fake 1", record).failed());
    ConnectionSettings sent = sentSettings(takeCalls().back());
    EXPECT_FALSE(sent[u"gsm"_qs].contains(u"password"_qs));
    EXPECT_FALSE(sent[u"gsm"_qs].contains(u"pin"_qs));

    record.gprsAuthPassword[0] = 'S';
    ASSERT_FALSE(m_store->modify("Fake 1", record).failed());
    sent = sentSettings(takeCalls().back());
    EXPECT_EQ(sent[u"gsm"_qs][u"password"_qs], QVariant(u"Secret"_qs));
    EXPECT_EQ(sent[u"gsm"_qs][u"pin"_qs], QVariant(u"1234"_qs)) << "it would be dropped";
}

TEST_F(Faults, PasswordThatAnAgentKeepsIsNotAskedFor)
{
    m_fake->handle("GetSettings", [](const QDBusMessage &call) {
        const int index = call.path().section(u'/', -1).toInt();
        ConnectionSettings settings = FakeNetworkManager::connectionSettings(index);
        settings[u"gsm"_qs][u"password-flags"_qs] = 1U;
        return call.createReply(QVariant::fromValue(settings));
    });
    EXPECT_EQ(read("Fake 1").gprsAuthPassword[0], '\0');
    const Methods methods = takeMethods();
    EXPECT_EQ(std::count(methods.begin(), methods.end(), "GetSecrets"), 0);
}

} // namespace

int main(int argc, char *argv[])
{
    testing::InitGoogleTest(&argc, argv);
    const QCoreApplication application(argc, argv); // the fake has an event loop
    return RUN_ALL_TESTS();
}
