// napictl's formats as functions over bytes: whatever the bytes are, they end in profiles or in a
// sentence that says what is wrong.
#include <cstring>
#include <random>

#include <QFile>
#include <gtest/gtest.h>

#include "profile_fields.h"
#include "profile_json.h"
#include "profile_naming.h"
#include "provider_database.h"

namespace {

NAP_PROFILE_S recordOf(const std::initializer_list<std::pair<const char16_t *, QString>> &values)
{
    QList<FieldValue> list;
    for (const auto &[path, text] : values)
        list += FieldValue{findField(path), text};
    NAP_PROFILE_S record = {};
    EXPECT_TRUE(setFields(record, list));
    return record;
}

NAP_PROFILE_S randomRecord(std::mt19937 &generator)
{
    NAP_PROFILE_S record;
    auto *bytes = reinterpret_cast<unsigned char *>(&record);
    for (std::size_t index = 0; index < sizeof record; ++index)
        bytes[index] = static_cast<unsigned char>(generator());
    return record;
}

//////////////////////////////////////////////////////////////////////////////////////////////////
// Fields

TEST(ProfileFields, EachFieldWritesItsOwnBytesAndNoOthers)
{
    struct Row {
        const char16_t *path;
        QString text;
        std::size_t offset;
        QByteArray bytes;
    };
    const QString text44 = QString(44, u'a');
    const QString text64 = QString(64, u'b');
    const QString text100 = QString(100, u'c');
    const Row rows[] = {
        {u"editable", u"false"_qs, 0x004, QByteArray("\x01\0\0\0", 4)},
        {u"gprs.address", text100, 0x008, text100.toLatin1()},
        {u"gprs.authId", text100, 0x06C, text100.toLatin1()},
        {u"gprs.authPassword", text100, 0x0D0, text100.toLatin1()},
        {u"gprs.dns1", u"1.2.3.4"_qs, 0x138, "\x04\x03\x02\x01"},
        {u"gprs.dns2", u"255.2.3.4"_qs, 0x13C, "\x04\x03\x02\xFF"},
        {u"gprs.linger", u"258"_qs, 0x140, "\x02\x01"},
        {u"csd.address", text44, 0x17D, text44.toLatin1()},
        {u"csd.authId", text64, 0x1A9, text64.toLatin1()},
        {u"csd.authPassword", text64, 0x1E9, text64.toLatin1()},
        {u"csd.dns1", u"1.2.3.4"_qs, 0x230, "\x04\x03\x02\x01"},
        {u"csd.dns2", u"1.2.3.4"_qs, 0x234, "\x04\x03\x02\x01"},
        {u"csd.linger", u"65535"_qs, 0x238, "\xFF\xFF"},
        {u"csd.speed", u"14400"_qs, 0x23B, "\x0E"},
        {u"csd2.address", text44, 0x23C, text44.toLatin1()},
        {u"csd2.authId", text64, 0x268, text64.toLatin1()},
        {u"csd2.authPassword", text64, 0x2A8, text64.toLatin1()},
        {u"csd2.dns1", u"1.2.3.4"_qs, 0x2EC, "\x04\x03\x02\x01"},
        {u"csd2.dns2", u"1.2.3.4"_qs, 0x2F0, "\x04\x03\x02\x01"},
        {u"csd2.linger", u"258"_qs, 0x2F4, "\x02\x01"},
        {u"csd2.speed", u"2400"_qs, 0x2F7, "\x04"},
        {u"proxy1.address", text100, 0x2F8, text100.toLatin1()},
        {u"proxy1.port", u"258"_qs, 0x35C, "\x02\x01"},
        {u"proxy2.address", text100, 0x3C3, text100.toLatin1()},
        {u"proxy2.port", u"258"_qs, 0x428, "\x02\x01"},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(QString::fromUtf16(row.path).toStdString());
        const NAP_PROFILE_S record = recordOf({{row.path, row.text}});
        QByteArray expected(sizeof record, '\0');
        expected.replace(static_cast<qsizetype>(row.offset), row.bytes.size(), row.bytes);
        EXPECT_EQ(QByteArray(reinterpret_cast<const char *>(&record), sizeof record).toHex(),
                  expected.toHex());
        EXPECT_EQ(fieldText(*findField(row.path), record), row.text);
    }
    // The line types have no bytes of their own.
    EXPECT_EQ(std::size(rows) + 2, profileFields().size());
}

TEST(ProfileFields, SpeedCodesAreThoseOfTheRecord)
{
    struct Row {
        QString lineType;
        QString speed;
        int code;
        QString readBack;
    };
    const QString modem = u"ANALOG-MODEM"_qs;
    const QString isdn = u"Isdn"_qs;
    const QString v110 = u"V.110"_qs;
    const Row rows[] = {
        {modem, u"0"_qs, 0x00, modem},    {modem, u"14400"_qs, 0x0E, modem},
        {modem, u"9600"_qs, 0x07, modem}, {modem, u"4800"_qs, 0x06, modem},
        {modem, u"2400"_qs, 0x04, modem}, {isdn, u"14400"_qs, 0x4B, isdn},
        {isdn, u"9600"_qs, 0x47, isdn},   {isdn, u"4800"_qs, 0x46, isdn},
        {isdn, u"2400"_qs, 0x44, isdn},   {v110, u"0"_qs, 0x00, modem},
        {v110, u"14400"_qs, 0x0E, modem}, {v110, u"9600"_qs, 0x07, modem},
        {v110, u"4800"_qs, 0x06, modem},  {v110, u"2400"_qs, 0x04, modem},
    };
    for (const Row &row : rows) {
        const NAP_PROFILE_S record =
            recordOf({{u"csd.lineType", row.lineType}, {u"csd.speed", row.speed}});
        EXPECT_EQ(record.csdSpeedCode, row.code);
        EXPECT_EQ(fieldText(*findField(u"csd.lineType"), record), row.readBack);
        EXPECT_EQ(fieldText(*findField(u"csd.speed"), record), row.speed);
        EXPECT_TRUE(recordFaults(record).isEmpty());
    }
    NAP_PROFILE_S unknown = {};
    unknown.csdSpeedCode = 0x05;
    EXPECT_EQ(fieldText(*findField(u"csd.lineType"), unknown), modem);
    EXPECT_EQ(fieldText(*findField(u"csd.speed"), unknown), u"0"_qs);
    EXPECT_EQ(recordFaults(unknown).size(), 1);
}

TEST(ProfileFields, OnlyDottedQuadsAreAddresses)
{
    NAP_PROFILE_S record = {};
    const ProfileField *dns = findField(u"gprs.dns1");
    for (const char *text :
         {"", "1", "1.2.3", "1.2.3.4.5", "256.1.1.1", "1.2.3.-4", "+1.2.3.4", "0x7f.0.0.1",
          "1..2.3", ".1.2.3.4", "1.2.3.4.", " 1.2.3.4", "1.2.3.4\n", "0001.2.3.4", "::1",
          "::ffff:1.2.3.4", "none", "\xD9\xA1.2.3.4"})
        EXPECT_FALSE(setFields(record, {{dns, QString::fromUtf8(text)}})) << text;
    EXPECT_EQ(record.gprsDns1, 0U);
    EXPECT_TRUE(setFields(record, {{dns, u"010.0.0.255"_qs}}));
    EXPECT_EQ(record.gprsDns1, 0x0A0000FFU);
}

TEST(ProfileFields, ShorterTextLeavesNothingOfTheLongerOne)
{
    NAP_PROFILE_S record = recordOf({{u"gprs.authId", QString(100, u'x')}});
    const ProfileField *authId = findField(u"gprs.authId");
    ASSERT_TRUE(setFields(record, {{authId, u"ab"_qs}}));
    EXPECT_EQ(QByteArray(record.gprsAuthId, 100), "ab" + QByteArray(98, '\0'));
}

TEST(ProfileFields, FlagKeepsTheOtherBits)
{
    NAP_PROFILE_S record = {};
    record.flags = 0xF0F0F0F1;
    ASSERT_TRUE(setFields(record, {{findField(u"editable"), u"true"_qs}}));
    EXPECT_EQ(record.flags, 0xF0F0F0F0U);
    ASSERT_TRUE(setFields(record, {{findField(u"editable"), u"false"_qs}}));
    EXPECT_EQ(record.flags, 0xF0F0F0F1U);
}

TEST(ProfileFields, ClearingKeepsWhatNoFieldNames)
{
    std::mt19937 generator(7);
    const NAP_PROFILE_S before = randomRecord(generator);
    NAP_PROFILE_S after = before;
    clearFields(after);
    EXPECT_EQ(std::memcmp(after.reserved142, before.reserved142, sizeof before.reserved142), 0);
    EXPECT_EQ(std::memcmp(after.proxy1Text, before.proxy1Text, sizeof before.proxy1Text), 0);
    EXPECT_EQ(after.creation, before.creation);
    EXPECT_EQ(after.proxy2Byte, before.proxy2Byte);
    EXPECT_EQ(after.flags, before.flags & ~1U);
    for (const ProfilePart &part : profileParts())
        EXPECT_FALSE(isPartUsed(part, after)) << part.name;
}

//////////////////////////////////////////////////////////////////////////////////////////////////
// JSON

TEST(ProfileJson, AnyRecordWithoutFaultsRoundTrips)
{
    const unsigned int seed = std::random_device{}();
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 generator(seed);
    for (int round = 0; round < 200; ++round) {
        NAP_PROFILE_S record = {};
        QList<FieldValue> values;
        for (const ProfileField &field : profileFields()) {
            if (field.kind != FieldKind::Text && field.kind != FieldKind::Secret)
                continue;
            QString text;
            for (auto length = generator() % (field.bytes.size / 3); length > 0; --length)
                text += QChar(static_cast<char16_t>(1 + generator() % 0xD7FF));
            values += FieldValue{&field, text};
        }
        ASSERT_TRUE(setFields(record, values));
        record.gprsDns1 = static_cast<std::uint32_t>(generator());
        record.gprsLinger = static_cast<std::uint16_t>(generator());
        record.proxy2Port = static_cast<std::uint16_t>(generator());
        record.flags = generator() & 1U;
        const auto profiles = parseProfiles(formatProfile(u"n\"\\\u00E9"_qs, record, true));
        ASSERT_TRUE(profiles) << profiles.error().toStdString();
        ASSERT_EQ(profiles->size(), 1);
        EXPECT_EQ(profiles->first().name, u"n\"\\\u00E9"_qs);
        NAP_PROFILE_S readBack = {};
        ASSERT_TRUE(setFields(readBack, profiles->first().values));
        EXPECT_EQ(std::memcmp(&record, &readBack, sizeof record), 0);
    }
}

TEST(ProfileJson, AnyRecordIsWrittenAsGoodJson)
{
    const unsigned int seed = std::random_device{}();
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 generator(seed);
    for (int round = 0; round < 500; ++round) {
        const QByteArray json =
            formatProfileArray({formatProfile(u"a"_qs, randomRecord(generator), false),
                                formatProfile(u"b"_qs, randomRecord(generator), true)});
        const auto profiles = parseProfiles(json);
        ASSERT_TRUE(profiles) << json.constData();
        EXPECT_EQ(profiles->size(), 2) << json.constData();
    }
}

TEST(ProfileJson, DamagedTextsEndInAFaultOrInProfiles)
{
    const unsigned int seed = std::random_device{}();
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 generator(seed);
    const QByteArray whole = formatProfileArray(
        {formatProfile(u"a"_qs, recordOf({{u"gprs.address", u"internet"_qs}}), true)});
    for (int round = 0; round < 5000; ++round) {
        QByteArray damaged = whole;
        for (auto changes = 1 + generator() % 4; changes > 0; --changes) {
            const auto at = static_cast<qsizetype>(generator()) % damaged.size();
            damaged.replace(at, generator() % 3,
                            QByteArray(1, "{}[]\",:0\xFF\n"[generator() % 10]));
        }
        const auto profiles = parseProfiles(damaged);
        EXPECT_TRUE(profiles || !profiles.error().isEmpty());
    }
}

//////////////////////////////////////////////////////////////////////////////////////////////////
// Names

TEST(ProfileNaming, NamesAreCutAtTheEndOfACharacter)
{
    EXPECT_EQ(cutProfileName(u"short"_qs, " 2"), "short 2");
    EXPECT_EQ(cutProfileName(QString(63, u'x'), {}), QByteArray(63, 'x'));
    EXPECT_EQ(cutProfileName(QString(64, u'x'), {}), QByteArray(63, 'x'));
    EXPECT_EQ(cutProfileName(QString(64, u'x'), " 10"), QByteArray(60, 'x') + " 10");
    EXPECT_EQ(cutProfileName(u"x"_qs + QString(31, u'\u00E9'), {}).size(), 63);
    EXPECT_EQ(cutProfileName(QString(32, u'\u00E9'), {}).size(), 62);
    EXPECT_EQ(cutProfileName(QString(22, u'\u79FB'), " 2"), QString(20, u'\u79FB').toUtf8() + " 2");
    EXPECT_EQ(cutProfileName(QString(60, u'x') + u"   y"_qs, {}), QByteArray(60, 'x'));
    for (int length = 55; length < 70; ++length) {
        const QByteArray name = cutProfileName(QString(length, u'x') + u"\U0001F4F1"_qs, " 3");
        EXPECT_LE(name.size(), 63);
        EXPECT_TRUE(QUtf8StringView(name).isValidUtf8());
        EXPECT_TRUE(name.endsWith(" 3"));
    }
}

TEST(ProfileNaming, ProviderComesBeforeTheAccessPoint)
{
    EXPECT_EQ(profileNameCandidates(u"O2"_qs, u"Surf"_qs, true),
              (QStringList{u"O2"_qs, u"O2 Surf"_qs}));
    EXPECT_EQ(profileNameCandidates(u" O2 "_qs, u"Surf\n Mail"_qs, false),
              QStringList{u"O2 Surf Mail"_qs});
    EXPECT_EQ(profileNameCandidates(u"O2"_qs, u"o2 Surf"_qs, false), QStringList{u"o2 Surf"_qs});
    EXPECT_EQ(profileNameCandidates(QString(), u"Surf"_qs, true), QStringList{u"Surf"_qs});
}

//////////////////////////////////////////////////////////////////////////////////////////////////
// Operators' database

TEST(ProviderDatabase, DeepNestingIsNoHarm)
{
    const QByteArray deep = QByteArray("<x>").repeated(300000);
    for (const char *before : {"", "<country code='aq'>", "<country><provider><name>",
                               "<country><provider><gsm><apn value='a'><username>"}) {
        EXPECT_FALSE(
            parseProviderDatabase(QByteArray("<serviceproviders format='2.0'>") + before + deep));
    }
}

TEST(ProviderDatabase, DamagedDatabaseEndsInAFaultOrInProviders)
{
    QFile file(QStringLiteral("/usr/share/mobile-broadband-provider-info/serviceproviders.xml"));
    if (!file.open(QIODevice::ReadOnly))
        GTEST_SKIP() << "the package mobile-broadband-provider-info is not installed";
    const QByteArray whole = file.readAll();
    const unsigned int seed = std::random_device{}();
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 generator(seed);
    for (int round = 0; round < 50; ++round) {
        QByteArray damaged = whole.left(static_cast<qsizetype>(2000 + generator() % 40000));
        const auto at = static_cast<qsizetype>(generator()) % damaged.size();
        damaged.replace(at, generator() % 20, "</provider>");
        EXPECT_FALSE(parseProviderDatabase(damaged));
    }
    const auto providers = parseProviderDatabase(whole);
    ASSERT_TRUE(providers) << providers.error().toStdString();
    EXPECT_GT(providers->size(), 600);
}

} // namespace
