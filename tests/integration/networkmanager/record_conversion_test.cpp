// A record as a connection's settings and back, without a bus.
#include <cstring>
#include <random>

#include <QFile>
#include <QtEndian>
#include <gtest/gtest.h>

#include "record_conversion.h"

namespace {

using UserData = QMap<QString, QString>;

template <std::size_t size>
void setText(char (&field)[size], const char *text)
{
    std::memset(field, 0, size);
    std::memcpy(field, text, std::min(size, std::strlen(text)));
}

NAP_PROFILE_S read(const GsmConnection &connection)
{
    NAP_PROFILE_S record;
    const StoreResult result = readRecord(connection, record);
    EXPECT_FALSE(result.failed()) << result.message;
    return record;
}

/// Changes the connection from the record that it gives to another one.
ConnectionChange write(GsmConnection &connection, const NAP_PROFILE_S &record)
{
    ConnectionChange change = {.settings = true, .secrets = true}; // of an earlier one
    const StoreResult result = writeRecord(read(connection), record, connection, change);
    EXPECT_FALSE(result.failed()) << result.message;
    return change;
}

StoreResult refusal(GsmConnection connection, const NAP_PROFILE_S &record)
{
    ConnectionChange change;
    return writeRecord(read(connection), record, connection, change);
}

bool isSame(const NAP_PROFILE_S &one, const NAP_PROFILE_S &other)
{
    return std::memcmp(&one, &other, sizeof one) == 0;
}

UserData userData(const GsmConnection &connection)
{
    return connection.settings.value(u"user"_qs).value(u"data"_qs).value<UserData>();
}

GsmConnection emptyConnection()
{
    return newConnection(u"Office"_qs, u"11111111-0000-4000-8000-000000000000"_qs);
}

/// As nmcli would make it.
GsmConnection connectionMadeByHand()
{
    GsmConnection connection;
    connection.settings[u"connection"_qs] = {
        {u"id"_qs, u"Hand"_qs}, {u"type"_qs, u"gsm"_qs}, {u"timestamp"_qs, 12345ULL}};
    connection.settings[u"gsm"_qs] = {
        {u"apn"_qs, u"hand.apn"_qs}, {u"username"_qs, u"me"_qs}, {u"home-only"_qs, true}};
    connection.settings[u"ipv4"_qs] = {
        {u"method"_qs, u"auto"_qs},
        {u"dns"_qs, QVariant::fromValue(QList<uint>{qToBigEndian(0x01020304U)})},
        {u"dns-data"_qs, QStringList{u"1.2.3.4"_qs}}};
    connection.settings[u"ppp"_qs] = {{u"mru"_qs, 1400U}};
    connection.gsmSecrets = {{u"password"_qs, u"secret"_qs}, {u"pin"_qs, u"1234"_qs}};
    return connection;
}

TEST(ReadRecord, PacketDataIsTheConnectionsOwn)
{
    NAP_PROFILE_S expected = {};
    setText(expected.gprsAddress, "hand.apn");
    setText(expected.gprsAuthId, "me");
    setText(expected.gprsAuthPassword, "secret");
    expected.gprsDns1 = 0x01020304;
    EXPECT_TRUE(isSame(read(connectionMadeByHand()), expected));
}

TEST(ReadRecord, ServersOfAnOlderDaemonAreNumbers)
{
    GsmConnection connection = connectionMadeByHand();
    connection.settings[u"ipv4"_qs].remove(u"dns-data"_qs);
    EXPECT_EQ(read(connection).gprsDns1, 0x01020304U);
}

TEST(ReadRecord, ConnectionWithoutAnythingIsARecordOfZeros)
{
    EXPECT_TRUE(isSame(read(GsmConnection()), NAP_PROFILE_S{}));
    EXPECT_TRUE(isSame(read(emptyConnection()), NAP_PROFILE_S{}));
}

TEST(ReadRecord, LongTextIsCutAtACharacterAndKeptInTheConnection)
{
    GsmConnection connection = connectionMadeByHand();
    const QString name = QString(99, u'u') + u"\u00FCber"_qs;
    connection.settings[u"gsm"_qs][u"username"_qs] = name;
    NAP_PROFILE_S record = read(connection);
    EXPECT_EQ(std::string(record.gprsAuthId, sizeof record.gprsAuthId),
              std::string(99, 'u') + '\0');
    record.gprsLinger = 5;
    write(connection, record);
    EXPECT_EQ(connection.settings[u"gsm"_qs][u"username"_qs].toString(), name);
}

TEST(ReadRecord, DamagedUserDataIsNamed)
{
    struct Row {
        const char *key;
        const char *value;
    };
    const Row rows[] = {
        {"kub-dm.csd.linger", "banana"},
        {"kub-dm.csd.linger", "-1"},
        {"kub-dm.csd.linger", "65536"},
        {"kub-dm.csd.linger", "007"},
        {"kub-dm.csd.linger", " 7"},
        {"kub-dm.flags", "4294967296"},
        {"kub-dm.csd.dns1", "1.2.3"},
        {"kub-dm.csd.dns1", "::1"},
        {"kub-dm.reserved134", "abc"},
        {"kub-dm.reserved134", "0102030405"},
        {"kub-dm.reserved134", "AB000000"},
        {"kub-dm.csd.address", "100%"},
        {"kub-dm.csd.address", "a%00"},
        {"kub-dm.csd.address", "%zz"},
        {"kub-dm.csd.address", "\xC3\xBC"},
        {"kub-dm.proxy1.byte", "256"},
        {"kub-dm.csd.speedCode", "0"},
        {"kub-dm.csd.linger", "+7"},
        {"kub-dm.gprs.addressTail", "%4"},
        {"kub-dm.csd2.linger", "1e3"},
        {"kub-dm.csd.address", "0123456789012345678901234567890123456789012345"},
    };
    for (const Row &row : rows) {
        GsmConnection connection = connectionMadeByHand();
        const UserData data = {{QString::fromUtf8(row.key), QString::fromUtf8(row.value)}};
        connection.settings[u"user"_qs][u"data"_qs] = QVariant::fromValue(data);
        NAP_PROFILE_S record;
        std::memset(&record, 0x5A, sizeof record);
        const StoreResult result = readRecord(connection, record);
        EXPECT_EQ(result.status, NAPI_ERROR_CORRUPT) << row.key << '=' << row.value;
        EXPECT_NE(result.message.find(row.key), std::string::npos) << result.message;
        EXPECT_EQ(record.flags, 0x5A5A5A5AU) << "outputs are written on success only";
    }
}

TEST(WriteRecord, RecordOfEqualBytesChangesNothing)
{
    GsmConnection connection = connectionMadeByHand();
    const GsmConnection before = connection;
    const ConnectionChange change = write(connection, read(connection));
    EXPECT_FALSE(change.settings);
    EXPECT_FALSE(change.secrets);
    EXPECT_EQ(connection.settings, before.settings);
    EXPECT_EQ(connection.gsmSecrets, before.gsmSecrets);
}

TEST(WriteRecord, OneFieldChangesOneProperty)
{
    GsmConnection connection = connectionMadeByHand();
    GsmConnection expected = connection;
    NAP_PROFILE_S record = read(connection);
    setText(record.gprsAddress, "new.apn");
    const ConnectionChange change = write(connection, record);
    EXPECT_TRUE(change.settings);
    EXPECT_FALSE(change.secrets);
    expected.settings[u"gsm"_qs][u"apn"_qs] = u"new.apn"_qs;
    EXPECT_EQ(connection.settings, expected.settings);
}

TEST(WriteRecord, PasswordChangesTheSecretsOnlyAndKeepsTheOthers)
{
    GsmConnection connection = connectionMadeByHand();
    GsmConnection expected = connection;
    NAP_PROFILE_S record = read(connection);
    setText(record.gprsAuthPassword, "other");
    ConnectionChange change = write(connection, record);
    EXPECT_FALSE(change.settings);
    EXPECT_TRUE(change.secrets);
    expected.gsmSecrets[u"password"_qs] = u"other"_qs;
    EXPECT_EQ(connection.gsmSecrets, expected.gsmSecrets);
    EXPECT_EQ(connection.settings, expected.settings);

    setText(record.gprsAuthPassword, "");
    change = write(connection, record);
    EXPECT_TRUE(change.secrets);
    EXPECT_EQ(connection.gsmSecrets, (QVariantMap{{u"pin"_qs, u"1234"_qs}}));
}

TEST(WriteRecord, EmptyTextRemovesTheProperty)
{
    GsmConnection connection = connectionMadeByHand();
    write(connection, NAP_PROFILE_S{});
    EXPECT_EQ(connection.settings[u"gsm"_qs], (QVariantMap{{u"home-only"_qs, true}}));
    EXPECT_FALSE(connection.settings.contains(u"user"_qs));
}

TEST(WriteRecord, KeysAndFormsOfUserDataAreAsDocumented)
{
    NAP_PROFILE_S record = {};
    record.creation = 1;
    record.flags = NAPI_FLAG_NOT_EDITABLE;
    record.gprsLinger = 30;
    setText(record.csdAddress, "+49 30 \xC3\xBC%");
    setText(record.csdAuthId, "id");
    setText(record.csdAuthPassword, "pw");
    record.csdDns1 = 0x0A000001;
    record.csdDns2 = 0xFFFFFFFF;
    record.csdLinger = 65535;
    record.csdSpeedCode = 0x47;
    setText(record.csd2Address, "+49");
    setText(record.csd2AuthId, "id2");
    setText(record.csd2AuthPassword, "pw2");
    record.csd2Dns1 = 0x0A000002;
    record.csd2Dns2 = 0x0A000003;
    record.csd2Linger = 1;
    record.csd2SpeedCode = 255;
    setText(record.proxy1Address, "proxy.example");
    record.proxy1Port = 8080;
    setText(record.proxy1Text, "text");
    record.proxy1Byte = 2;
    setText(record.proxy2Address, "second.example");
    record.proxy2Port = 1;
    setText(record.proxy2Text, "text2");
    record.proxy2Byte = 3;
    record.reserved134[3] = 0xAB;
    record.gprsAddress[5] = 'x';
    record.gprsDns2 = 0x01020304;

    GsmConnection connection = emptyConnection();
    write(connection, record);
    const UserData expected = {
        {u"kub-dm.creation"_qs, u"1"_qs},
        {u"kub-dm.flags"_qs, u"1"_qs},
        {u"kub-dm.gprs.linger"_qs, u"30"_qs},
        {u"kub-dm.gprs.addressTail"_qs, u"%00%00%00%00x"_qs},
        {u"kub-dm.gprs.dns"_qs, u"0.0.0.0 1.2.3.4"_qs},
        {u"kub-dm.csd.address"_qs, u"+49 30 %C3%BC%25"_qs},
        {u"kub-dm.csd.authId"_qs, u"id"_qs},
        {u"kub-dm.csd.dns1"_qs, u"10.0.0.1"_qs},
        {u"kub-dm.csd.dns2"_qs, u"255.255.255.255"_qs},
        {u"kub-dm.csd.linger"_qs, u"65535"_qs},
        {u"kub-dm.csd.speedCode"_qs, u"71"_qs},
        {u"kub-dm.csd2.address"_qs, u"+49"_qs},
        {u"kub-dm.csd2.authId"_qs, u"id2"_qs},
        {u"kub-dm.csd2.dns1"_qs, u"10.0.0.2"_qs},
        {u"kub-dm.csd2.dns2"_qs, u"10.0.0.3"_qs},
        {u"kub-dm.csd2.linger"_qs, u"1"_qs},
        {u"kub-dm.csd2.speedCode"_qs, u"255"_qs},
        {u"kub-dm.proxy1.address"_qs, u"proxy.example"_qs},
        {u"kub-dm.proxy1.port"_qs, u"8080"_qs},
        {u"kub-dm.proxy1.text"_qs, u"text"_qs},
        {u"kub-dm.proxy1.byte"_qs, u"2"_qs},
        {u"kub-dm.proxy2.address"_qs, u"second.example"_qs},
        {u"kub-dm.proxy2.port"_qs, u"1"_qs},
        {u"kub-dm.proxy2.text"_qs, u"text2"_qs},
        {u"kub-dm.proxy2.byte"_qs, u"3"_qs},
        {u"kub-dm.reserved134"_qs, u"000000ab"_qs},
    };
    EXPECT_EQ(userData(connection), expected);
    EXPECT_TRUE(isSame(read(connection), record));

    write(connection, NAP_PROFILE_S{});
    EXPECT_FALSE(connection.settings.contains(u"user"_qs)) << "nothing is left behind";
}

TEST(WriteRecord, EveryKeyIsInTheDocument)
{
    QFile file(QStringLiteral(KUB_DOCUMENT));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QString document = QString::fromUtf8(file.readAll());
    NAP_PROFILE_S record;
    std::memset(&record, 0x01, sizeof record);
    for (char *text : {record.gprsAddress, record.gprsAuthId, record.gprsAuthPassword})
        std::strcpy(text, "text"); // with a tail
    GsmConnection connection = emptyConnection();
    write(connection, record);
    const UserData data = userData(connection);
    for (auto entry = data.begin(); entry != data.end(); ++entry)
        EXPECT_TRUE(document.contains(u'`' + entry.key() + u'`')) << entry.key().toStdString();
    EXPECT_EQ(document.count(u"`kub-dm."_qs), data.size() + 1)
        << "each once, and what they begin with";
}

TEST(WriteRecord, SecretsWithoutAPlaceInTheConnectionAreKeptBesideIt)
{
    NAP_PROFILE_S record = {};
    setText(record.csdAuthPassword, "first");
    setText(record.csd2AuthPassword, "second");
    std::memcpy(record.gprsAuthPassword, "new\0older", 9);
    GsmConnection connection = emptyConnection();
    const ConnectionChange change = write(connection, record);
    EXPECT_TRUE(change.keptSecrets);
    const KeptSecrets expected = {{"csd.authPassword", "first"},
                                  {"csd2.authPassword", "second"},
                                  {"gprs.authPasswordTail", "older"}};
    EXPECT_EQ(connection.keptSecrets, expected);
    EXPECT_EQ(userData(connection), UserData());
    EXPECT_TRUE(isSame(read(connection), record));

    record.csdAuthPassword[0] = 'F';
    EXPECT_FALSE(write(connection, record).settings) << "the connection is not changed for it";
    record.csdLinger = 1;
    EXPECT_FALSE(write(connection, record).keptSecrets);
    EXPECT_TRUE(isSame(read(connection), record));
    write(connection, {});
    EXPECT_TRUE(connection.keptSecrets.empty());
}

TEST(ReadRecord, KeptSecretThatFitsNoFieldIsNamedAndNotShown)
{
    GsmConnection connection = emptyConnection();
    connection.keptSecrets = {{"csd.authPassword", std::string(65, 'z')}};
    NAP_PROFILE_S record;
    const StoreResult result = readRecord(connection, record);
    EXPECT_EQ(result.status, NAPI_ERROR_CORRUPT);
    EXPECT_NE(result.message.find("csd.authPassword"), std::string::npos);
    EXPECT_EQ(result.message.find("zz"), std::string::npos);
}

TEST(ReadSecretFields, RecordInTwoStepsIsThatInOne)
{
    std::minstd_rand random(7);
    for (int round = 0; round < 50; ++round) {
        NAP_PROFILE_S record = {};
        for (char *byte :
             {record.gprsAuthPassword, record.csdAuthPassword, record.csd2AuthPassword}) {
            const std::size_t length = random() % sizeof record.csdAuthPassword;
            for (std::size_t index = 0; index < length; ++index)
                byte[index] = static_cast<char>(random() % 3 == 0 ? 0 : 'a' + random() % 26);
        }
        setText(record.gprsAddress, "office.apn");
        GsmConnection connection = emptyConnection();
        write(connection, record);
        NAP_PROFILE_S found = read({connection.settings, {}, {}});
        EXPECT_STREQ(found.gprsAuthPassword, "");
        setText(found.csdAuthPassword, "of an earlier connection");
        const GsmConnection secrets = {{}, connection.gsmSecrets, connection.keptSecrets};
        ASSERT_FALSE(readSecretFields(secrets, found).failed());
        EXPECT_TRUE(isSame(found, record));
    }
}

TEST(ReadSecretFields, KeptSecretThatFitsNoFieldLeavesTheRecord)
{
    NAP_PROFILE_S record = {};
    setText(record.csdAuthPassword, "before");
    const NAP_PROFILE_S before = record;
    const GsmConnection secrets = {{}, {}, {{"csd2.authPassword", std::string(1000, 'x')}}};
    EXPECT_EQ(readSecretFields(secrets, record).status, NAPI_ERROR_CORRUPT);
    EXPECT_TRUE(isSame(record, before));
}

TEST(TakeSecrets, GoFromUserDataToThoseBesideTheConnection)
{
    GsmConnection connection = emptyConnection();
    connection.settings[u"user"_qs][u"data"_qs] =
        QVariant::fromValue(UserData{{u"kub-dm.csd.authPassword"_qs, u"p%25%C3%BC"_qs},
                                     {u"kub-dm.csd2.authPassword"_qs, u"second"_qs},
                                     {u"kub-dm.gprs.authPasswordTail"_qs, u"%00tail"_qs},
                                     {u"kub-dm.csd.linger"_qs, u"3"_qs}});
    connection.keptSecrets = {{"csd.authPassword", "replaced"}};
    bool isTaken = false;
    EXPECT_FALSE(takeSecretsFromUserData(connection, isTaken).failed());
    EXPECT_TRUE(isTaken);
    EXPECT_EQ(userData(connection), (UserData{{u"kub-dm.csd.linger"_qs, u"3"_qs}}));
    const KeptSecrets expected = {{"csd.authPassword", "p%\xC3\xBC"},
                                  {"csd2.authPassword", "second"},
                                  {"gprs.authPasswordTail", std::string("\0tail", 5)}};
    EXPECT_EQ(connection.keptSecrets, expected);
    EXPECT_FALSE(takeSecretsFromUserData(connection, isTaken).failed());
    EXPECT_FALSE(isTaken) << "there are none left";
    EXPECT_EQ(connection.keptSecrets, expected);
}

TEST(TakeSecrets, DamagedOneStaysAndIsNamedButNotShown)
{
    GsmConnection connection = emptyConnection();
    const UserData data = {{u"kub-dm.csd.authPassword"_qs, u"secret%zz"_qs}};
    connection.settings[u"user"_qs][u"data"_qs] = QVariant::fromValue(data);
    bool isTaken = true;
    const StoreResult result = takeSecretsFromUserData(connection, isTaken);
    EXPECT_EQ(result.status, NAPI_ERROR_CORRUPT);
    EXPECT_NE(result.message.find("kub-dm.csd.authPassword"), std::string::npos);
    EXPECT_EQ(result.message.find("secret%zz"), std::string::npos);
    EXPECT_EQ(userData(connection), data);
}

TEST(WriteRecord, UserDataOfOthersStays)
{
    GsmConnection connection = connectionMadeByHand();
    const UserData others = {{u"org.example.note"_qs, u"mine"_qs}, {u"kub-dm.later"_qs, u"?"_qs}};
    connection.settings[u"user"_qs][u"data"_qs] = QVariant::fromValue(others);
    NAP_PROFILE_S record = read(connection);
    record.csdLinger = 9;
    write(connection, record);
    UserData expected = others;
    expected[u"kub-dm.csd.linger"_qs] = u"9"_qs;
    EXPECT_EQ(userData(connection), expected);
    record.csdLinger = 0;
    write(connection, record);
    EXPECT_EQ(userData(connection), others);

    connection.settings[u"user"_qs] = {{u"another"_qs, u"property"_qs}};
    const ConnectionSettings before = connection.settings;
    record.csdLinger = 9;
    write(connection, record);
    EXPECT_EQ(userData(connection).size(), 1);
    record.csdLinger = 0;
    write(connection, record);
    EXPECT_EQ(connection.settings, before);
}

TEST(WriteRecord, EveryByteOfARecordComesBack)
{
    const unsigned int seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 generator(seed);
    GsmConnection connection = emptyConnection();
    for (int round = 0; round < 50; ++round) {
        NAP_PROFILE_S record;
        auto *bytes = reinterpret_cast<unsigned char *>(&record);
        for (std::size_t index = 0; index < sizeof record; ++index)
            bytes[index] = generator() % 3 == 0 ? 0 : static_cast<unsigned char>(generator());
        std::strcpy(record.gprsAddress, std::string(generator() % 65, 'a').c_str());
        std::strcpy(record.gprsAuthId, std::string(generator() % 99, 'b').c_str());
        std::strcpy(record.gprsAuthPassword, std::string(generator() % 99, 'c').c_str());
        write(connection, record);
        ASSERT_TRUE(isSame(read(connection), record));
    }
}

TEST(WriteRecord, TextThatBecameLongerElsewhereCoversItsTail)
{
    GsmConnection connection = emptyConnection();
    NAP_PROFILE_S record = {};
    record.gprsAuthId[0] = 'a';
    std::memset(record.gprsAuthId + 2, 't', 98);
    write(connection, record);
    connection.settings[u"gsm"_qs][u"username"_qs] = QString(98, u'u');
    record = read(connection);
    EXPECT_EQ(std::string(record.gprsAuthId, 100), std::string(98, 'u') + '\0' + "t");

    // What was covered is gone once the field is written.
    setText(record.gprsAuthId, "a");
    record.gprsAuthId[2] = 't';
    write(connection, record);
    EXPECT_TRUE(isSame(read(connection), record));
}

TEST(WriteRecord, TailOfATextLeavesThePropertyAlone)
{
    GsmConnection connection = connectionMadeByHand();
    const QString name = QString(98, u'u') + u"\u20AC and more"_qs; // longer than the field
    connection.settings[u"gsm"_qs][u"username"_qs] = name;
    NAP_PROFILE_S record = read(connection);
    record.gprsAuthId[99] = 't';
    record.gprsAuthPassword[99] = 't';
    const ConnectionChange change = write(connection, record);
    EXPECT_TRUE(change.settings);
    EXPECT_FALSE(change.secrets);
    EXPECT_EQ(connection.settings[u"gsm"_qs][u"username"_qs].toString(), name);
    EXPECT_TRUE(isSame(read(connection), record));
}

TEST(WriteRecord, TextThatIsNoUtf8IsRefused)
{
    struct Row {
        char *text;
        const char *field;
    };
    NAP_PROFILE_S record = {};
    for (const Row &row :
         {Row{record.gprsAddress, "gprs.address"}, Row{record.gprsAuthId, "gprs.authId"},
          Row{record.gprsAuthPassword, "gprs.authPassword"}}) {
        record = {};
        std::strcpy(row.text, "caf\xE9");
        const StoreResult result = refusal(connectionMadeByHand(), record);
        EXPECT_EQ(result.status, NAPI_ERROR_VALUE_REFUSED);
        EXPECT_TRUE(result.message.starts_with(row.field)) << result.message;
    }
}

TEST(WriteRecord, BlanksAroundAnAccessPointNameAreRefused)
{
    NAP_PROFILE_S record = {};
    for (const char *name : {" apn", "apn ", "apn\n", "\tapn"}) {
        setText(record.gprsAddress, name);
        const StoreResult result = refusal(connectionMadeByHand(), record);
        EXPECT_EQ(result.status, NAPI_ERROR_VALUE_REFUSED) << name;
        EXPECT_TRUE(result.message.starts_with("gprs.address")) << result.message;
    }
}

TEST(WriteRecord, PasswordThatTheDaemonDoesNotKeepIsRefused)
{
    for (const uint flags : {1U, 2U, 4U}) {
        GsmConnection connection = connectionMadeByHand();
        connection.settings[u"gsm"_qs][u"password-flags"_qs] = flags;
        connection.gsmSecrets.clear();
        NAP_PROFILE_S record = read(connection);
        EXPECT_EQ(record.gprsAuthPassword[0], '\0');
        setText(record.gprsAddress, "fine");
        EXPECT_FALSE(refusal(connection, record).failed());
        setText(record.gprsAuthPassword, "p");
        const StoreResult result = refusal(connection, record);
        EXPECT_EQ(result.status, NAPI_ERROR_VALUE_REFUSED);
        EXPECT_TRUE(result.message.starts_with("gprs.authPassword")) << result.message;
    }
}

TEST(WriteRecord, ServersKeepTheFormThatTheConnectionHas)
{
    GsmConnection connection = connectionMadeByHand();
    NAP_PROFILE_S record = read(connection);
    record.gprsDns2 = 0x05060708;
    write(connection, record);
    EXPECT_EQ(connection.settings[u"ipv4"_qs][u"dns-data"_qs].toStringList(),
              (QStringList{u"1.2.3.4"_qs, u"5.6.7.8"_qs}));

    connection = emptyConnection();
    write(connection, record);
    EXPECT_EQ(connection.settings[u"ipv4"_qs][u"dns"_qs].value<QList<uint>>(),
              (QList<uint>{qToBigEndian(0x01020304U), qToBigEndian(0x05060708U)}));
    EXPECT_TRUE(isSame(read(connection), record));
}

TEST(SettingsToSend, OldFormsGoWhereTheNewOneIsThere)
{
    ConnectionSettings settings;
    settings[u"ipv4"_qs] = {{u"dns"_qs, 1},    {u"dns-data"_qs, 2},   {u"addresses"_qs, 3},
                            {u"routes"_qs, 4}, {u"route-data"_qs, 5}, {u"method"_qs, 6}};
    settings[u"ipv6"_qs] = {{u"addresses"_qs, 1}, {u"address-data"_qs, 2}};
    settings[u"gsm"_qs] = {{u"apn"_qs, 1}};
    ConnectionSettings expected = settings;
    expected[u"ipv4"_qs] = {
        {u"dns-data"_qs, 2}, {u"addresses"_qs, 3}, {u"route-data"_qs, 5}, {u"method"_qs, 6}};
    expected[u"ipv6"_qs] = {{u"address-data"_qs, 2}};
    EXPECT_EQ(settingsToSend(settings), expected);
}

TEST(NewConnection, DoesNotConnectByItself)
{
    const GsmConnection connection = emptyConnection();
    EXPECT_EQ(property(connection.settings, u"connection"_qs, u"autoconnect"_qs), QVariant(false));
    EXPECT_EQ(property(connection.settings, u"connection"_qs, u"type"_qs), QVariant(u"gsm"_qs));
    EXPECT_EQ(property(connection.settings, u"connection"_qs, u"id"_qs), QVariant(u"Office"_qs));
}

TEST(FieldOfProperty, NamesEveryPropertyThatIsWritten)
{
    EXPECT_EQ(fieldOfProperty(u"gsm.apn"_qs), u"gprs.address"_qs);
    EXPECT_EQ(fieldOfProperty(u"gsm.username"_qs), u"gprs.authId"_qs);
    EXPECT_EQ(fieldOfProperty(u"gsm.password"_qs), u"gprs.authPassword"_qs);
    EXPECT_EQ(fieldOfProperty(u"ipv4.dns"_qs), u"gprs.dns1 or gprs.dns2"_qs);
    EXPECT_EQ(fieldOfProperty(u"connection.id"_qs), QString());
}

} // namespace
