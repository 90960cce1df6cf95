// The store on a real NetworkManager, with nmcli as the witness of what the daemon holds.
#include <algorithm>

#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QUuid>

#include "private_daemon_test.h"

namespace {

using Names = std::vector<std::string>;

/// What differs between two outputs of shownAll.
QStringList changes(const QStringList &before, const QStringList &after)
{
    QStringList lines;
    for (const QString &line : before) {
        if (!after.contains(line))
            lines.append(u"- "_qs + line);
    }
    for (const QString &line : after) {
        if (!before.contains(line))
            lines.append(u"+ "_qs + line);
    }
    return lines;
}

QByteArray contents(const QString &path)
{
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << path.toStdString();
    return file.readAll();
}

const QStringList fullConnection = {u"apn"_qs,
                                    u"hand.apn"_qs,
                                    u"gsm.username"_qs,
                                    u"me"_qs,
                                    u"gsm.password"_qs,
                                    u"secret"_qs,
                                    u"gsm.pin"_qs,
                                    u"1234"_qs,
                                    u"gsm.home-only"_qs,
                                    u"yes"_qs,
                                    u"gsm.network-id"_qs,
                                    u"26201"_qs,
                                    u"connection.permissions"_qs,
                                    u"user:root"_qs,
                                    u"connection.metered"_qs,
                                    u"yes"_qs,
                                    u"connection.autoconnect-priority"_qs,
                                    u"7"_qs,
                                    u"ipv4.method"_qs,
                                    u"manual"_qs,
                                    u"ipv4.addresses"_qs,
                                    u"10.1.1.1/24,10.1.2.1/16"_qs,
                                    u"ipv4.gateway"_qs,
                                    u"10.1.1.254"_qs,
                                    u"ipv4.routes"_qs,
                                    u"10.9.0.0/16 10.1.1.7 50 mtu=1200 table=5"_qs,
                                    u"ipv4.dns"_qs,
                                    u"1.1.1.1#one.example,2.2.2.2,3.3.3.3#three.example"_qs,
                                    u"ipv4.dns-search"_qs,
                                    u"example.org"_qs,
                                    u"ipv6.method"_qs,
                                    u"manual"_qs,
                                    u"ipv6.addresses"_qs,
                                    u"fd00::1/64"_qs,
                                    u"ipv6.routes"_qs,
                                    u"fd01::/64 fd00::2 9 mtu=1300"_qs,
                                    u"ipv6.dns"_qs,
                                    u"fd00::5#six"_qs,
                                    u"ppp.mru"_qs,
                                    u"1400"_qs,
                                    u"proxy.method"_qs,
                                    u"auto"_qs,
                                    u"proxy.pac-url"_qs,
                                    u"http://pac.example/"_qs};

class RealDaemon : public PrivateDaemonTest {
protected:
    /// Changes a profile, and shows what nmcli sees of it.
    template <typename Change>
    QStringList shownChanges(const QString &uuid, const char *name, Change change)
    {
        const QStringList before = shownAll(uuid);
        NAP_PROFILE_S record = read(name);
        change(record);
        modify(name, record);
        return changes(before, shownAll(uuid));
    }
    std::string uuidOf(const char *id)
    {
        return nmcli({u"-g"_qs, u"connection.uuid"_qs, u"connection"_qs, u"show"_qs, u"id"_qs,
                      QString::fromUtf8(id)})
            .toStdString();
    }
};

// ---- Connections that others made ---------------------------------------------------------------

TEST_F(RealDaemon, ConnectionMadeByHandIsAProfileWithPacketData)
{
    addByHand(u"Hand"_qs, fullConnection);
    EXPECT_EQ(list(), Names{"Hand"});
    NAP_PROFILE_S expected = {};
    setText(expected.gprsAddress, "hand.apn");
    setText(expected.gprsAuthId, "me");
    setText(expected.gprsAuthPassword, "secret");
    expected.gprsDns1 = 0x01010101;
    expected.gprsDns2 = 0x02020202;
    const NAP_PROFILE_S record = read("Hand");
    EXPECT_EQ(std::memcmp(&record, &expected, sizeof record), 0);
}

TEST_F(RealDaemon, ConnectionWithoutAnAccessPointNameHasNoPacketData)
{
    addByHand(u"Automatic"_qs, {u"apn"_qs, u""_qs, u"gsm.auto-config"_qs, u"yes"_qs});
    EXPECT_EQ(read("Automatic").gprsAddress[0], '\0');
}

TEST_F(RealDaemon, OtherTypesOfConnectionsAreNoProfiles)
{
    nmcli({u"connection"_qs, u"add"_qs, u"type"_qs, u"wifi"_qs, u"con-name"_qs, u"Home"_qs,
           u"ssid"_qs, u"home"_qs, u"ifname"_qs, u"*"_qs});
    EXPECT_EQ(list(), Names());
    NAP_PROFILE_S record;
    EXPECT_EQ(store().read("Home", record).status, NAPI_ERROR_NOT_FOUND);
    EXPECT_EQ(store().remove("Home").status, NAPI_ERROR_NOT_FOUND);
    create("Home");
    EXPECT_EQ(list(), Names{"Home"}) << "the name belongs to another kind of connection";
}

// ---- Secrets that NetworkManager has no place for -----------------------------------------------

TEST_F(RealDaemon, PasswordsOfCircuitSwitchedDataAreNotInTheConnection)
{
    NAP_PROFILE_S record = {};
    setText(record.csdAddress, "+4930");
    setText(record.csdAuthPassword, "recognisable1");
    setText(record.csd2AuthPassword, "recognisable2");
    create("Office", record);
    const QString uuid = QString::fromStdString(uuidOf("Office"));
    EXPECT_FALSE(contents(keyFile(uuid)).contains("recognisable"));
    reopen();
    NAP_PROFILE_S found = read("Office");
    EXPECT_EQ(std::memcmp(&found, &record, sizeof record), 0);

    setText(record.csdAuthPassword, "recognisable3");
    record.csdLinger = 7;
    modify("Office", record);
    EXPECT_FALSE(contents(keyFile(uuid)).contains("recognisable"));
    found = read("Office");
    EXPECT_EQ(std::memcmp(&found, &record, sizeof record), 0);
    remove("Office");
    create("Office");
    EXPECT_STREQ(read("Office").csdAuthPassword, "");
}

TEST_F(RealDaemon, PasswordsThatAreFoundInUserDataAreMoved)
{
    const QString uuid =
        addByHand(u"Hand"_qs, {u"apn"_qs, u"hand.apn"_qs, u"password"_qs, u"gprs"_qs});
    QFile file(keyFile(uuid));
    ASSERT_TRUE(file.open(QIODevice::Append));
    file.write("\n[user]\nkub-dm.csd.authPassword=recognisable%25\nkub-dm.csd.linger=9\n"
               "org.example.note=mine\n");
    file.close();
    nmcli({u"connection"_qs, u"reload"_qs});
    for (int round = 0; round < 2; ++round) {
        const NAP_PROFILE_S record = read("Hand");
        EXPECT_STREQ(record.csdAuthPassword, "recognisable%");
        EXPECT_STREQ(record.gprsAuthPassword, "gprs");
        EXPECT_EQ(record.csdLinger, 9);
        const QByteArray now = contents(keyFile(uuid));
        EXPECT_FALSE(now.contains("recognisable"));
        EXPECT_TRUE(now.contains("kub-dm.csd.linger=9"));
        EXPECT_TRUE(now.contains("org.example.note=mine"));
        reopen();
    }
}

// ---- Care with what is not ours -----------------------------------------------------------------

TEST_F(RealDaemon, EachFieldChangesItsPropertyAndNothingElse)
{
    const QString uuid = addByHand(u"Hand"_qs, fullConnection);
    EXPECT_EQ(shownChanges(uuid, "Hand", [](auto &r) { setText(r.gprsAddress, "new.apn"); }),
              (QStringList{u"- gsm.apn:hand.apn"_qs, u"+ gsm.apn:new.apn"_qs}));
    EXPECT_EQ(shownChanges(uuid, "Hand", [](auto &r) { setText(r.gprsAuthId, "you"); }),
              (QStringList{u"- gsm.username:me"_qs, u"+ gsm.username:you"_qs}));
    EXPECT_EQ(shownChanges(uuid, "Hand", [](auto &r) { setText(r.gprsAuthPassword, "pw"); }),
              (QStringList{u"- gsm.password:secret"_qs, u"+ gsm.password:pw"_qs}));
    EXPECT_EQ(shownChanges(uuid, "Hand", [](auto &r) { r.gprsDns1 = 0x09090909; }),
              (QStringList{u"- ipv4.dns:1.1.1.1#one.example,2.2.2.2,3.3.3.3#three.example"_qs,
                           u"+ ipv4.dns:9.9.9.9,2.2.2.2,3.3.3.3#three.example"_qs}));
    EXPECT_EQ(shownChanges(uuid, "Hand", [](auto &r) { setText(r.gprsAuthPassword, ""); }),
              (QStringList{u"- gsm.password:pw"_qs, u"+ gsm.password:"_qs}));
    EXPECT_EQ(shownChanges(uuid, "Hand", [](auto &r) { setText(r.gprsAuthId, ""); }),
              (QStringList{u"- gsm.username:you"_qs, u"+ gsm.username:"_qs}));
    EXPECT_EQ(shownChanges(uuid, "Hand", [](auto &r) { setText(r.gprsAddress, ""); }),
              (QStringList{u"- gsm.apn:new.apn"_qs, u"+ gsm.apn:"_qs}));
    EXPECT_EQ(shownChanges(uuid, "Hand", [](auto &r) { r.proxy1Port = 8080; }), QStringList());
    EXPECT_EQ(read("Hand").proxy1Port, 8080);
}

TEST_F(RealDaemon, FileOfTheConnectionChangesInTheSameLinesOnly)
{
    const QString uuid = addByHand(u"Hand"_qs, fullConnection);
    const QStringList before = QString::fromUtf8(contents(keyFile(uuid))).split(u'\n');
    NAP_PROFILE_S record = read("Hand");
    record.csdLinger = 3;
    setText(record.gprsAddress, "new.apn");
    modify("Hand", record);
    const QStringList after = QString::fromUtf8(contents(keyFile(uuid))).split(u'\n');
    EXPECT_EQ(changes(before, after), (QStringList{u"- apn=hand.apn"_qs, u"+ apn=new.apn"_qs,
                                                   u"+ [user]"_qs, u"+ kub-dm.csd.linger=3"_qs}));
}

TEST_F(RealDaemon, OnlySecretIsRemovedWithoutALeftover)
{
    const QString uuid = addByHand(
        u"Hand"_qs, {u"apn"_qs, u"a"_qs, u"gsm.username"_qs, u"u"_qs, u"gsm.password"_qs, u"p"_qs});
    EXPECT_EQ(shownChanges(uuid, "Hand", [](auto &r) { setText(r.gprsAuthPassword, ""); }),
              (QStringList{u"- gsm.password:p"_qs, u"+ gsm.password:"_qs}));
    daemon("stop");
    daemon("start");
    EXPECT_EQ(shown(uuid, u"gsm.password"_qs), QString());
    EXPECT_EQ(shown(uuid, u"gsm.username"_qs), u"u"_qs);
    NAP_PROFILE_S record = read("Hand");
    setText(record.gprsAuthPassword, "again");
    modify("Hand", record);
    EXPECT_EQ(shown(uuid, u"gsm.password"_qs), u"again"_qs);
    record = {};
    modify("Hand", record);
    EXPECT_EQ(shown(uuid, u"gsm.password"_qs), QString());
    EXPECT_EQ(shown(uuid, u"gsm.username"_qs), QString());
}

TEST_F(RealDaemon, RecordThatSaysTheSameIsNotWritten)
{
    const QString uuid = addByHand(u"Hand"_qs, fullConnection);
    const QString file = keyFile(uuid);
    QFile::rename(file, file + u".gone"_qs); // the daemon would write it again
    modify("Hand", read("Hand"));
    EXPECT_FALSE(QFile::exists(file));
    QFile::rename(file + u".gone"_qs, file);
}

TEST_F(RealDaemon, ChangeByOthersBetweenReadingAndWritingStays)
{
    const QString uuid = addByHand(u"Hand"_qs, {u"apn"_qs, u"a"_qs});
    NAP_PROFILE_S record = read("Hand");
    nmcli({u"connection"_qs, u"modify"_qs, uuid, u"connection.metered"_qs, u"yes"_qs});
    setText(record.gprsAddress, "b");
    modify("Hand", record);
    EXPECT_EQ(shown(uuid, u"connection.metered"_qs), u"yes"_qs);
    EXPECT_EQ(shown(uuid, u"gsm.apn"_qs), u"b"_qs);
}

TEST_F(RealDaemon, ConnectionInMemoryStaysInMemory)
{
    const QString uuid = addByHand(u"Hand"_qs, {u"apn"_qs, u"a"_qs, u"save"_qs, u"no"_qs});
    const QString file = keyFile(uuid);
    NAP_PROFILE_S record = read("Hand");
    setText(record.gprsAddress, "b");
    modify("Hand", record);
    EXPECT_EQ(shown(uuid, u"gsm.apn"_qs), u"b"_qs);
    EXPECT_EQ(keyFile(uuid), file);
    EXPECT_TRUE(file.startsWith(u"/run/"_qs)) << file.toStdString();
}

TEST_F(RealDaemon, PasswordThatAnAgentKeepsIsLeftAlone)
{
    const QString uuid =
        addByHand(u"Hand"_qs, {u"apn"_qs, u"a"_qs, u"gsm.password-flags"_qs, u"1"_qs});
    NAP_PROFILE_S record = read("Hand");
    setText(record.gprsAddress, "b");
    modify("Hand", record);
    EXPECT_EQ(shown(uuid, u"gsm.apn"_qs), u"b"_qs);
    setText(record.gprsAddress, "c");
    setText(record.gprsAuthPassword, "p");
    const StoreResult result = store().modify("Hand", record);
    EXPECT_EQ(result.status, NAPI_ERROR_VALUE_REFUSED);
    EXPECT_NE(result.message.find("gprs.authPassword"), std::string::npos) << result.message;
    EXPECT_EQ(shown(uuid, u"gsm.apn"_qs), u"b"_qs) << "nothing is half written";
}

TEST_F(RealDaemon, ChangeByOthersLeavesTheRestOfTheRecordAlone)
{
    NAP_PROFILE_S record = {};
    setText(record.gprsAddress, "a");
    setText(record.csdAddress, "+49 30 \xC3\xBC");
    record.proxy1Port = 8080;
    record.flags = NAPI_FLAG_NOT_EDITABLE;
    record.reserved134[0] = 0xAB;
    create("Office", record);
    const QString uuid = QString::fromStdString(uuidOf("Office"));
    nmcli({u"connection"_qs, u"modify"_qs, uuid, u"gsm.apn"_qs, u"b"_qs});
    daemon("stop");
    daemon("start");
    setText(record.gprsAddress, "b");
    const NAP_PROFILE_S after = read("Office");
    EXPECT_EQ(std::memcmp(&after, &record, sizeof after), 0);
}

TEST_F(RealDaemon, ServersThatOthersChangeWin)
{
    create("Office");
    NAP_PROFILE_S record = {};
    record.gprsDns2 = 0x0A000002;
    modify("Office", record);
    const QString uuid = QString::fromStdString(uuidOf("Office"));
    EXPECT_EQ(shown(uuid, u"ipv4.dns"_qs), u"10.0.0.2"_qs);
    EXPECT_EQ(read("Office").gprsDns2, 0x0A000002U);
    nmcli({u"connection"_qs, u"modify"_qs, uuid, u"ipv4.dns"_qs, u"1.2.3.4"_qs});
    EXPECT_EQ(read("Office").gprsDns1, 0x01020304U);
    EXPECT_EQ(read("Office").gprsDns2, 0U);
}

// ---- Values that NetworkManager refuses ---------------------------------------------------------

TEST_F(RealDaemon, RefusedValueIsNamedAndNothingIsWritten)
{
    const QString uuid = addByHand(u"Hand"_qs, fullConnection);
    const QStringList before = shownAll(uuid);
    const NAP_PROFILE_S unchanged = read("Hand");
    for (const char *accessPointName : {"with blank", "caf\xC3\xA9", "http://apn", "a,b", "x*"}) {
        NAP_PROFILE_S record = unchanged;
        setText(record.gprsAddress, accessPointName);
        setText(record.gprsAuthId, "fine");
        setText(record.gprsAuthPassword, "fine");
        record.gprsDns1 = 0x01020304;
        record.csdLinger = 77;
        const StoreResult result = store().modify("Hand", record);
        EXPECT_EQ(result.status, NAPI_ERROR_VALUE_REFUSED) << accessPointName;
        EXPECT_NE(result.message.find("gprs.address"), std::string::npos) << result.message;
        EXPECT_NE(result.message.find("gsm.apn"), std::string::npos) << result.message;
        EXPECT_EQ(result.message.find("secret"), std::string::npos) << result.message;
    }
    NAP_PROFILE_S record = unchanged;
    setText(record.gprsAddress, std::string(65, 'x'));
    EXPECT_EQ(store().modify("Hand", record).status, NAPI_ERROR_VALUE_REFUSED);
    EXPECT_EQ(changes(before, shownAll(uuid)), QStringList());
    const NAP_PROFILE_S after = read("Hand");
    EXPECT_EQ(std::memcmp(&after, &unchanged, sizeof after), 0);
}

TEST_F(RealDaemon, ServersThatTheMethodForbidsAreNamed)
{
    const QString uuid =
        addByHand(u"Hand"_qs, {u"apn"_qs, u"a"_qs, u"ipv4.method"_qs, u"disabled"_qs});
    NAP_PROFILE_S record = read("Hand");
    record.gprsDns1 = 0x01020304;
    const StoreResult result = store().modify("Hand", record);
    EXPECT_EQ(result.status, NAPI_ERROR_VALUE_REFUSED);
    EXPECT_NE(result.message.find("gprs.dns1"), std::string::npos) << result.message;
    EXPECT_EQ(shown(uuid, u"ipv4.dns"_qs), QString());
}

TEST_F(RealDaemon, RefusedCreationLeavesNothing)
{
    NAP_PROFILE_S record = {};
    setText(record.gprsAddress, "with blank");
    EXPECT_EQ(store().create("Office", record, 10).status, NAPI_ERROR_VALUE_REFUSED);
    EXPECT_EQ(list(), Names());
    EXPECT_EQ(nmcli({u"-g"_qs, u"name"_qs, u"connection"_qs, u"show"_qs}), QString());
    create("Office");
    EXPECT_EQ(idOf("Office"), 1U) << "the refused one has used up no ID";
}

TEST_F(RealDaemon, FileThatCannotBeWrittenIsNoFaultOfTheRecord)
{
    const QString uuid = addByHand(u"Hand"_qs, {u"apn"_qs, u"a"_qs});
    NAP_PROFILE_S record = read("Hand");
    setText(record.gprsAddress, "b");
    const QString folder = QFileInfo(keyFile(uuid)).path();
    ASSERT_TRUE(QFile::rename(folder, folder + u".away"_qs));
    QFile file(folder); // where the daemon would make a folder
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    for (const StoreResult &result :
         {store().modify("Hand", record), store().create("New", record, 10)}) {
        EXPECT_EQ(result.status, NAPI_ERROR_IO) << result.message;
        EXPECT_NE(result.message.find(folder.toStdString()), std::string::npos) << result.message;
    }
    ASSERT_TRUE(file.remove());
    ASSERT_TRUE(QFile::rename(folder + u".away"_qs, folder));
    EXPECT_EQ(shown(uuid, u"gsm.apn"_qs), u"a"_qs);
    EXPECT_EQ(list(), Names{"Hand"});
}

// ---- Names and IDs ------------------------------------------------------------------------------

TEST_F(RealDaemon, CreatedConnectionIsWrittenToDiskAndDoesNotConnectByItself)
{
    NAP_PROFILE_S record = {};
    setText(record.gprsAddress, "office.apn");
    create("Office", record);
    const QString uuid = QString::fromStdString(uuidOf("Office"));
    EXPECT_EQ(shown(uuid, u"connection.type"_qs), u"gsm"_qs);
    EXPECT_EQ(shown(uuid, u"connection.autoconnect"_qs), u"no"_qs);
    EXPECT_EQ(shown(uuid, u"gsm.apn"_qs), u"office.apn"_qs);
    EXPECT_EQ(shown(uuid, u"ipv4.method"_qs), u"auto"_qs);
    const QString file = keyFile(uuid);
    EXPECT_TRUE(file.startsWith(qEnvironmentVariable("PRIVATE_NETWORKMANAGER_DIR"))) << "on disk";
    EXPECT_TRUE(contents(file).contains("apn=office.apn"));
    remove("Office");
    EXPECT_EQ(nmcli({u"-g"_qs, u"name"_qs, u"connection"_qs, u"show"_qs}), QString());
}

TEST_F(RealDaemon, IdsAndNamesOutliveTheDaemonAndTheProcess)
{
    for (const char *name : {"zebra", " blank ", "a-b", "\xC3\xBC\xE2\x82\xAC", "mango"})
        create(name);
    remove("zebra");
    const Names names = list();
    EXPECT_EQ(names, (Names{" blank ", "a-b", "\xC3\xBC\xE2\x82\xAC", "mango"}));
    daemon("stop");
    daemon("start");
    EXPECT_EQ(list(), names);
    for (std::uint32_t id = 2; id <= 5; ++id)
        EXPECT_EQ(idOf(names[id - 2]), id);
    reopen();
    EXPECT_EQ(list(), names);
    EXPECT_EQ(idOf("mango"), 5U);
}

TEST_F(RealDaemon, ConnectionWithASlashInItsIdIsAProfileUnderANameWithoutOne)
{
    const QString uuid = addByHand(u"Office/Home"_qs);
    const std::string name = "Office-Home~" + uuid.left(8).toStdString();
    EXPECT_EQ(list(), Names{name});
    std::uint32_t id = idOf(name.c_str());
    EXPECT_EQ(store().idByName("Office/Home", id).status, NAPI_ERROR_NOT_FOUND);
    std::string found;
    EXPECT_EQ(store().nameById(id, found).status, NAPI_OK);
    EXPECT_EQ(found, name);
    NAP_PROFILE_S record = read(name.c_str());
    std::strcpy(record.gprsAddress, "changed.apn");
    modify(name.c_str(), record);
    EXPECT_EQ(shown(uuid, u"gsm.apn"_qs), u"changed.apn"_qs);
    EXPECT_EQ(shown(uuid, u"connection.id"_qs), u"Office/Home"_qs);
    remove(name.c_str());
    EXPECT_EQ(list(), Names());
}

TEST_F(RealDaemon, IdStaysWhenOthersRenameTheConnection)
{
    const QString uuid = addByHand(u"Hand"_qs);
    const std::uint32_t id = idOf("Hand");
    nmcli({u"connection"_qs, u"modify"_qs, uuid, u"connection.id"_qs, u"Renamed"_qs});
    EXPECT_EQ(idOf("Renamed"), id);
    std::uint32_t found = 0;
    EXPECT_EQ(store().idByName("Hand", found).status, NAPI_ERROR_NOT_FOUND);
    nmcli({u"connection"_qs, u"modify"_qs, uuid, u"connection.id"_qs, u"Hand"_qs});
    std::string name;
    EXPECT_FALSE(store().nameById(id, name).failed());
    EXPECT_EQ(name, "Hand");
}

TEST_F(RealDaemon, IdOfAConnectionThatOthersDeletedIsNotUsedAgain)
{
    const QString uuid = addByHand(u"Hand"_qs);
    EXPECT_EQ(idOf("Hand"), 1U);
    nmcli({u"connection"_qs, u"delete"_qs, uuid});
    std::string name;
    EXPECT_EQ(store().nameById(1, name).status, NAPI_ERROR_NOT_FOUND);
    NAP_PROFILE_S record;
    EXPECT_EQ(store().read("Hand", record).status, NAPI_ERROR_NOT_FOUND);
    addByHand(u"Hand"_qs);
    EXPECT_EQ(idOf("Hand"), 2U);
    EXPECT_EQ(store().nameById(1, name).status, NAPI_ERROR_NOT_FOUND);
}

TEST_F(RealDaemon, ConnectionThatComesBackFromABackupHasItsOldId)
{
    const QString uuid = addByHand(u"Hand"_qs);
    addByHand(u"Other"_qs);
    EXPECT_EQ(list(), (Names{"Hand", "Other"}));
    const QString file = keyFile(uuid);
    const QString backup = file + u"~"_qs; // no name of a connection
    ASSERT_TRUE(QFile::copy(file, backup));
    nmcli({u"connection"_qs, u"delete"_qs, uuid});
    EXPECT_EQ(list(), Names{"Other"});
    ASSERT_TRUE(QFile::rename(backup, file));
    nmcli({u"connection"_qs, u"reload"_qs});
    EXPECT_EQ(idOf("Hand"), 1U);
    EXPECT_EQ(list(), (Names{"Hand", "Other"}));
}

TEST_F(RealDaemon, IdsOnAReadOnlyDiskCanBeReadAndNoNewOneIsGiven)
{
    addByHand(u"Hand"_qs);
    EXPECT_EQ(list(), Names{"Hand"});
    mountNumbersReadOnly();
    EXPECT_EQ(idOf("Hand"), 1U);
    EXPECT_EQ(store().create("New", {}, 10).status, NAPI_ERROR_READ_ONLY);
    EXPECT_EQ(list(), Names{"Hand"});
    addByHand(u"Other"_qs);
    unsigned int count = 0;
    EXPECT_EQ(store().count(count).status, NAPI_ERROR_READ_ONLY);
    unmountNumbers();
    EXPECT_EQ(list(), (Names{"Hand", "Other"}));
}

TEST_F(RealDaemon, NameThatMovedToAnotherConnectionLeadsToThatOne)
{
    const QString first = addByHand(u"One"_qs, {u"apn"_qs, u"first"_qs});
    const QString second = addByHand(u"Two"_qs, {u"apn"_qs, u"second"_qs});
    list();
    nmcli({u"connection"_qs, u"modify"_qs, first, u"connection.id"_qs, u"Three"_qs});
    nmcli({u"connection"_qs, u"modify"_qs, second, u"connection.id"_qs, u"One"_qs});
    EXPECT_STREQ(read("One").gprsAddress, "second");
    EXPECT_STREQ(read("Three").gprsAddress, "first");
}

TEST_F(RealDaemon, ConnectionsOfTheSameIdGetNamesOfTheirOwn)
{
    const std::string first = addByHand(u"Twin"_qs, {u"apn"_qs, u"first"_qs}).toStdString();
    EXPECT_EQ(list(), Names{"Twin"});
    const std::string second = addByHand(u"Twin"_qs, {u"apn"_qs, u"second"_qs}).toStdString();
    const std::string firstName = "Twin~" + first.substr(0, 8);
    const std::string secondName = "Twin~" + second.substr(0, 8);
    EXPECT_EQ(list(), (Names{firstName, secondName}));
    EXPECT_STREQ(read(firstName).gprsAddress, "first");
    EXPECT_STREQ(read(secondName).gprsAddress, "second");
    EXPECT_EQ(idOf(firstName), 1U);
    EXPECT_EQ(store().create("Twin", {}, 100).status, NAPI_ERROR_EXISTS);

    daemon("stop");
    daemon("start");
    forgetNumbers();
    Names names = list();
    std::sort(names.begin(), names.end());
    Names expected = {firstName, secondName};
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(names, expected) << "names need no memory";

    remove(firstName);
    EXPECT_EQ(list(), Names{"Twin"});
    EXPECT_STREQ(read("Twin").gprsAddress, "second");
}

TEST_F(RealDaemon, NameThatTheBusWouldChangeIsRefused)
{
    // Qt drops a byte order mark at the beginning of a text.
    EXPECT_EQ(store().create("\xEF\xBB\xBFName", {}, 10).status, NAPI_ERROR_BAD_NAME);
    EXPECT_EQ(list(), Names());
}

TEST_F(RealDaemon, LongIdIsCutAndTheConnectionKeepsIt)
{
    const QString id = QString(100, u'n');
    const QString uuid = addByHand(id, {u"apn"_qs, u"a"_qs});
    const Names names = list();
    EXPECT_EQ(names, Names{std::string(54, 'n') + "~" + uuid.left(8).toStdString()});
    NAP_PROFILE_S record = read(names[0]);
    setText(record.gprsAddress, "b");
    modify(names[0], record);
    EXPECT_EQ(shown(uuid, u"gsm.apn"_qs), u"b"_qs);
    EXPECT_EQ(shown(uuid, u"connection.id"_qs), id);
}

// ---- Limits -------------------------------------------------------------------------------------

TEST_F(RealDaemon, DaemonThatIsGoneIsAnErrorUntilItIsBack)
{
    addByHand(u"Hand"_qs, {u"apn"_qs, u"a"_qs});
    const NAP_PROFILE_S record = read("Hand");
    const std::uint32_t id = idOf("Hand");
    daemon("stop");
    NAP_PROFILE_S ignored;
    std::uint32_t ignoredId = 0;
    std::string ignoredName;
    unsigned int ignoredCount = 0;
    for (const StoreResult &result :
         {store().read("Hand", ignored), store().modify("Hand", record),
          store().create("New", record, 10), store().remove("Hand"),
          store().idByName("Hand", ignoredId), store().nameById(id, ignoredName),
          store().count(ignoredCount)}) {
        EXPECT_EQ(result.status, NAPI_ERROR_UNAVAILABLE);
        EXPECT_NE(result.message.find("NetworkManager is not running"), std::string::npos)
            << result.message;
    }
    daemon("start");
    EXPECT_STREQ(read("Hand").gprsAddress, "a");
    EXPECT_EQ(idOf("Hand"), id);
    modify("Hand", record);
    EXPECT_EQ(list(), Names{"Hand"});
}

TEST_F(RealDaemon, RestartBetweenTwoCallsGoesUnnoticed)
{
    // Their object paths are others after the restart.
    const QString first = addByHand(u"First"_qs, {u"apn"_qs, u"first"_qs});
    addByHand(u"Second"_qs, {u"apn"_qs, u"second"_qs});
    list();
    nmcli({u"connection"_qs, u"delete"_qs, first});
    daemon("stop");
    daemon("start");
    EXPECT_STREQ(read("Second").gprsAddress, "second");
    daemon("stop");
    daemon("start");
    create("Third");
    EXPECT_EQ(list(), (Names{"Second", "Third"}));
}

TEST_F(RealDaemon, ListsFifteenHundredConnections)
{
    constexpr int connections = 1500;
    const QString folder =
        qEnvironmentVariable("PRIVATE_NETWORKMANAGER_DIR") + u"/system-connections/"_qs;
    daemon("stop");
    for (int index = 0; index < connections; ++index) {
        QFile file(folder + u"bulk%1.nmconnection"_qs.arg(index));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.setPermissions(QFile::ReadOwner | QFile::WriteOwner);
        file.write(u"[connection]\nid=Bulk %1\nuuid=%2\ntype=gsm\n\n[gsm]\napn=bulk\n"_qs.arg(index)
                       .arg(QUuid::createUuid().toString(QUuid::WithoutBraces))
                       .toUtf8());
    }
    daemon("start");
    const Names listed = list(); // gives them their IDs
    EXPECT_EQ(listed.size(), static_cast<std::size_t>(connections));
    EXPECT_EQ(list(), listed);
}

} // namespace
