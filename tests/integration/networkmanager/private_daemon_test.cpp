#include "private_daemon_test.h"

#include <QProcess>

#include "networkmanager_profile_store.h"

namespace {

QString run(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, arguments);
    EXPECT_TRUE(process.waitForFinished());
    QString output = QString::fromUtf8(process.readAll());
    EXPECT_EQ(process.exitCode(), 0)
        << arguments.join(u' ').toStdString() << ": " << output.toStdString();
    while (output.endsWith(u'\n'))
        output.chop(1);
    return output;
}

} // namespace

PrivateDaemonTest::PrivateDaemonTest() : m_directory(std::make_unique<QTemporaryDir>())
{
    if (!qEnvironmentVariableIsSet("PRIVATE_NETWORKMANAGER")) {
        ADD_FAILURE() << "run this with with-private-networkmanager";
        std::abort();
    }
    const QString uuids = nmcli({u"-g"_qs, u"uuid"_qs, u"connection"_qs, u"show"_qs});
    if (!uuids.isEmpty())
        nmcli(QStringList{u"connection"_qs, u"delete"_qs} + uuids.split(u'\n'));
    open();
}

PrivateDaemonTest::~PrivateDaemonTest() = default;

QString PrivateDaemonTest::nmcli(const QStringList &arguments)
{
    return run(u"nmcli"_qs, arguments);
}

QString PrivateDaemonTest::addByHand(const QString &id, const QStringList &properties)
{
    const QString before = nmcli({u"-g"_qs, u"uuid"_qs, u"connection"_qs, u"show"_qs});
    nmcli(QStringList{u"connection"_qs, u"add"_qs, u"type"_qs, u"gsm"_qs, u"con-name"_qs, id,
                      u"ifname"_qs, u"*"_qs} +
          properties);
    QStringList after = nmcli({u"-g"_qs, u"uuid"_qs, u"connection"_qs, u"show"_qs}).split(u'\n');
    for (const QString &uuid : before.split(u'\n'))
        after.removeAll(uuid);
    EXPECT_EQ(after.size(), 1);
    return after.value(0);
}

/// nmcli itself now and then shows no secret of a connection that has just been changed, although
/// the daemon hands it out. It shows none that is not there, so the longest of a few answers
/// counts.
QString PrivateDaemonTest::settled(const QStringList &arguments)
{
    QString longest;
    for (int round = 0; round < 5; ++round) {
        const QString answer = nmcli(arguments);
        if (answer.size() > longest.size())
            longest = answer;
    }
    return longest;
}

QString PrivateDaemonTest::shown(const QString &uuid, const QString &property)
{
    return settled({u"-s"_qs, u"-e"_qs, u"no"_qs, u"-g"_qs, property, u"connection"_qs, u"show"_qs,
                    u"uuid"_qs, uuid});
}

QStringList PrivateDaemonTest::shownAll(const QString &uuid)
{
    return settled({u"-s"_qs, u"-t"_qs, u"connection"_qs, u"show"_qs, u"uuid"_qs, uuid})
        .split(u'\n');
}

void PrivateDaemonTest::daemon(const char *action)
{
    run(qEnvironmentVariable("PRIVATE_NETWORKMANAGER"), {QString::fromLatin1(action)});
}

QString PrivateDaemonTest::keyFile(const QString &uuid)
{
    const QString list =
        nmcli({u"-e"_qs, u"no"_qs, u"-g"_qs, u"uuid,filename"_qs, u"connection"_qs, u"show"_qs});
    for (const QString &line : list.split(u'\n')) {
        if (line.startsWith(uuid + u':'))
            return line.mid(uuid.size() + 1);
    }
    ADD_FAILURE() << "no file for " << uuid.toStdString();
    return {};
}

void PrivateDaemonTest::open()
{
    const std::string path = m_directory->path().toStdString() + "/ids.db";
    const StoreResult result = NetworkManagerProfileStore::open(path, m_store);
    if (result.failed()) {
        ADD_FAILURE() << result.message;
        std::abort();
    }
}

void PrivateDaemonTest::reopen()
{
    m_store.reset();
    open();
}

void PrivateDaemonTest::forgetNumbers()
{
    m_store.reset();
    m_directory = std::make_unique<QTemporaryDir>();
    open();
}

void PrivateDaemonTest::mountNumbersReadOnly()
{
    m_store.reset();
    run(u"mount"_qs, {u"--bind"_qs, u"-o"_qs, u"ro"_qs, m_directory->path(), m_directory->path()});
    open();
}

void PrivateDaemonTest::unmountNumbers()
{
    m_store.reset();
    run(u"umount"_qs, {m_directory->path()});
    open();
}

NAP_PROFILE_S PrivateDaemonTest::read(std::string_view name)
{
    NAP_PROFILE_S record = {};
    const StoreResult result = m_store->read(name, record);
    EXPECT_FALSE(result.failed()) << result.message;
    return record;
}

void PrivateDaemonTest::modify(std::string_view name, const NAP_PROFILE_S &record)
{
    const StoreResult result = m_store->modify(name, record);
    EXPECT_FALSE(result.failed()) << result.message;
}

void PrivateDaemonTest::create(std::string_view name, const NAP_PROFILE_S &record)
{
    const StoreResult result = m_store->create(name, record, 10000);
    EXPECT_FALSE(result.failed()) << result.message;
}

void PrivateDaemonTest::remove(std::string_view name)
{
    const StoreResult result = m_store->remove(name);
    EXPECT_FALSE(result.failed()) << result.message;
}

std::vector<std::string> PrivateDaemonTest::list()
{
    std::vector<std::string> names;
    const StoreResult result = m_store->list(100000, names);
    EXPECT_FALSE(result.failed()) << result.message;
    return names;
}

std::uint32_t PrivateDaemonTest::idOf(std::string_view name)
{
    std::uint32_t id = 0;
    const StoreResult result = m_store->idByName(name, id);
    EXPECT_FALSE(result.failed()) << result.message;
    return id;
}
