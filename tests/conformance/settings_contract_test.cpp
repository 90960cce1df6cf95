// What any implementation of the settings files promises its callers. The library under test is the
// one that this program is linked with.
#include <random>

#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "setup_set_manager.h"

namespace {

const QString settingsGroup = QStringLiteral("NAPIDEF_Profile");

class SettingsContract : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(m_directory.isValid()); }

    /// A manager that has read the file as it is now.
    SETUP_SET_Manager reopened() const { return SETUP_SET_Manager(m_path, false); }

    void writeFile(const QByteArray &bytes) const
    {
        QFile file(m_path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        ASSERT_EQ(file.write(bytes), bytes.size());
    }
    QByteArray fileBytes() const
    {
        QFile file(m_path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    QTemporaryDir m_directory;
    QString m_path = m_directory.filePath(QStringLiteral("test.cfg"));
};

QString read(const SETUP_SET_Manager &manager, const QString &group, const QString &key)
{
    QString value = QStringLiteral("untouched");
    manager.getSettingInfo(group, key, value, QString(), false);
    return value;
}

void expectRoundTrip(const QString &path, const QString &text)
{
    const QString other = QStringLiteral("other");
    SETUP_SET_Manager written(path, false);
    ASSERT_TRUE(written.setSettingInfo(other, other, text, false));
    ASSERT_TRUE(written.setSettingInfo(other, text, other, false));
    ASSERT_TRUE(written.setSettingInfo(text, other, other, false));
    ASSERT_TRUE(written.flush());
    const SETUP_SET_Manager readBack(path, false);
    EXPECT_EQ(read(readBack, other, other), text == other ? other : text);
    EXPECT_EQ(read(readBack, other, text), text == other ? text : other);
    EXPECT_EQ(read(readBack, text, other), text == other ? text : other);
    EXPECT_EQ(readBack.getEntryKeyList(text), written.getEntryKeyList(text));
    EXPECT_EQ(readBack.getEntryKeyList(other), written.getEntryKeyList(other));
}

TEST_F(SettingsContract, MissingFileIsAnEmptyOne)
{
    testing::internal::CaptureStderr();
    const SETUP_SET_Manager manager = reopened();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_TRUE(manager.getEntryKeyList(settingsGroup).isEmpty());
    EXPECT_FALSE(QFile::exists(m_path));
}

TEST_F(SettingsContract, EntryIsReadBackAfterFlush)
{
    SETUP_SET_Manager manager = reopened();
    ASSERT_TRUE(manager.setSettingInfo(settingsGroup, QStringLiteral("5Ph1DC1"),
                                       QStringLiteral("Office"), false));
    ASSERT_TRUE(manager.flush());
    EXPECT_EQ(read(reopened(), settingsGroup, QStringLiteral("5Ph1DC1")), QStringLiteral("Office"));
}

TEST_F(SettingsContract, AbsentEntryGivesTheDefaultAndEmptyEntryTheEmptyText)
{
    SETUP_SET_Manager manager = reopened();
    manager.setSettingInfo(settingsGroup, QStringLiteral("empty"), u""_qs, false);
    manager.setSettingInfo(settingsGroup, QStringLiteral("null"), QString(), false);
    for (int round = 0; round < 2; ++round) {
        const SETUP_SET_Manager current = reopened();
        const SETUP_SET_Manager &tested = round == 0 ? manager : current;
        for (const auto &key : {QStringLiteral("empty"), QStringLiteral("null")}) {
            QString value;
            EXPECT_TRUE(
                tested.getSettingInfo(settingsGroup, key, value, QStringLiteral("d"), false));
            EXPECT_TRUE(value.isEmpty());
            EXPECT_FALSE(value.isNull());
        }
        QString value = QStringLiteral("old");
        EXPECT_FALSE(tested.getSettingInfo(settingsGroup, QStringLiteral("absent"), value,
                                           QString(), false));
        EXPECT_TRUE(value.isNull());
        EXPECT_FALSE(tested.getSettingInfo(QStringLiteral("no group"), QStringLiteral("absent"),
                                           value, QStringLiteral("default"), false));
        EXPECT_EQ(value, QStringLiteral("default"));
        EXPECT_FALSE(
            tested.getSettingInfo(settingsGroup, QStringLiteral("absent"), value, u""_qs, false));
        EXPECT_TRUE(value.isEmpty() && !value.isNull());
        ASSERT_TRUE(manager.flush());
    }
}

TEST_F(SettingsContract, DifficultTextsRoundTripAsGroupKeyAndValue)
{
    const QString texts[] = {
        u""_qs,
        u"/"_qs,
        u"a/b//c/"_qs,
        u"\\"_qs,
        u"\\n"_qs,
        u"\\\\u0041"_qs,
        u"="_qs,
        u"a=b=c"_qs,
        u"%00%41"_qs,
        u"["_qs,
        u"]"_qs,
        u"[group]"_qs,
        u"]["_qs,
        u"#comment"_qs,
        u";comment"_qs,
        u"line\nfeed"_qs,
        u"\n[other]\nother=x\n"_qs,
        u"carriage\rreturn\r\n"_qs,
        u"\ttab\t"_qs,
        u" "_qs,
        u"   "_qs,
        u"  blanks at both ends  "_qs,
        u"\u00A0no-break space\u00A0"_qs,
        u"\"quoted\" 'text'"_qs,
        u"general"_qs,
        u"General"_qs,
        u"Vid\u00E9otron"_qs,
        u"\u0647\u0645\u0631\u0627\u0647 \u0627\u0648\u0644"_qs,
        u"\u79FB\u52A8\u5F69\u4FE1"_qs,
        u"\U0001F4F1 phone"_qs,
        u"\uFEFF"
        "byte order mark"_qs,
        u"\u2028\u2029\u0085"_qs,
        u"\uFFFE\uFFFF"_qs,
        QString(QChar(u'\0')),
        QStringLiteral("a\0b\0").left(4),
        QString(QChar(0xD800)),
        QString(QChar(0xDFFF)),
        QString(QChar(0xDC00)) + QChar(0xD800),
        QString(QChar(0xD800)) + QChar(0xD83D) + QChar(0xDCF1) + QChar(0xDC00),
        QString(70000, u'x'),
    };
    for (const QString &text : texts) {
        SCOPED_TRACE(testing::PrintToString(text.left(40).toStdString()));
        expectRoundTrip(m_path, text);
        ASSERT_TRUE(QFile::remove(m_path));
    }
}

TEST_F(SettingsContract, EveryCodeUnitRoundTrips)
{
    constexpr int unitsInAll = 0x10000;
    constexpr int unitsInText = 64;
    SETUP_SET_Manager written = reopened();
    for (int first = 0; first < unitsInAll; first += unitsInText) {
        QString text;
        for (int unit = first; unit < first + unitsInText; ++unit)
            text += QChar(unit);
        written.setSettingInfo(settingsGroup, text, text, false);
        written.setSettingInfo(text, text, settingsGroup, false);
    }
    ASSERT_TRUE(written.flush());
    const SETUP_SET_Manager readBack = reopened();
    EXPECT_EQ(readBack.getEntryKeyList(settingsGroup), written.getEntryKeyList(settingsGroup));
    EXPECT_EQ(readBack.getEntryKeyList(settingsGroup).size(), unitsInAll / unitsInText);
    for (const QString &text : readBack.getEntryKeyList(settingsGroup))
        EXPECT_EQ(read(readBack, text, text), settingsGroup);
}

TEST_F(SettingsContract, RandomTextsRoundTrip)
{
    const unsigned int seed = std::random_device{}();
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 generator(seed);
    constexpr char16_t alphabet[] = u"ab \\=[]#;%/\n\r\tsnru0\u00E9\xD83D\xDCF1\xFEFF\x7F";
    const auto randomText = [&] {
        QString text = u""_qs;
        for (auto length = generator() % 8; length > 0; --length)
            text += QChar(alphabet[generator() % std::size(alphabet)]);
        return text;
    };
    QMap<QString, QMap<QString, QString>> expected;
    SETUP_SET_Manager written = reopened();
    for (int entry = 0; entry < 5000; ++entry) {
        const QString group = randomText().left(2);
        const QString key = randomText();
        const QString value = randomText();
        expected[group][key] = value;
        ASSERT_TRUE(written.setSettingInfo(group, key, value, false));
    }
    ASSERT_TRUE(written.flush());
    const SETUP_SET_Manager readBack = reopened();
    for (auto group = expected.cbegin(); group != expected.cend(); ++group)
        EXPECT_EQ(readBack.getEntryKeyList(group.key()), *group);
}

TEST_F(SettingsContract, EntriesComeInAscendingKeyOrder)
{
    SETUP_SET_Manager manager = reopened();
    for (const char *key : {"5Ph1DC1", "12Ph1DC1", "7Ph3DC1", "12Ph2DC1"})
        manager.setSettingInfo(settingsGroup, QString::fromLatin1(key), QStringLiteral("x"), false);
    ASSERT_TRUE(manager.flush());
    const QStringList expected = {QStringLiteral("12Ph1DC1"), QStringLiteral("12Ph2DC1"),
                                  QStringLiteral("5Ph1DC1"), QStringLiteral("7Ph3DC1")};
    EXPECT_EQ(manager.getEntryKeyList(settingsGroup).keys(), expected);
    EXPECT_EQ(reopened().getEntryKeyList(settingsGroup).keys(), expected);
}

TEST_F(SettingsContract, GroupsAreApartFromEachOther)
{
    const QString proxy = QStringLiteral("PROXY_Profile");
    const QString key = QStringLiteral("5");
    SETUP_SET_Manager manager = reopened();
    manager.setSettingInfo(settingsGroup, key, QStringLiteral("one"), false);
    manager.setSettingInfo(proxy, key, QStringLiteral("two"), false);
    ASSERT_TRUE(manager.removeEntry(settingsGroup, key));
    ASSERT_TRUE(manager.flush());
    EXPECT_TRUE(reopened().getEntryKeyList(settingsGroup).isEmpty());
    EXPECT_EQ(read(reopened(), proxy, key), QStringLiteral("two"));
}

TEST_F(SettingsContract, RemovingAnAbsentEntryFails)
{
    const QString key = QStringLiteral("5");
    SETUP_SET_Manager manager = reopened();
    EXPECT_FALSE(manager.removeEntry(settingsGroup, key));
    manager.setSettingInfo(settingsGroup, key, QStringLiteral("x"), false);
    EXPECT_FALSE(manager.removeEntry(QStringLiteral("other"), key));
    EXPECT_TRUE(manager.removeEntry(settingsGroup, key));
    EXPECT_FALSE(manager.removeEntry(settingsGroup, key));
    EXPECT_TRUE(read(manager, settingsGroup, key).isNull());
}

TEST_F(SettingsContract, LaterValueReplacesEarlierOne)
{
    const QString key = QStringLiteral("5");
    SETUP_SET_Manager manager = reopened();
    manager.setSettingInfo(settingsGroup, key, QStringLiteral("long first value"), false);
    ASSERT_TRUE(manager.flush());
    manager.setSettingInfo(settingsGroup, key, QStringLiteral("2nd"), false);
    ASSERT_TRUE(manager.flush());
    EXPECT_EQ(reopened().getEntryKeyList(settingsGroup).size(), 1);
    EXPECT_EQ(read(reopened(), settingsGroup, key), QStringLiteral("2nd"));
}

TEST_F(SettingsContract, NothingIsWrittenWithoutFlush)
{
    {
        SETUP_SET_Manager manager = reopened();
        manager.setSettingInfo(settingsGroup, QStringLiteral("5"), QStringLiteral("x"), false);
    }
    EXPECT_FALSE(QFile::exists(m_path));
}

TEST_F(SettingsContract, FlushOfNothingMakesAnEmptyFile)
{
    SETUP_SET_Manager manager = reopened();
    ASSERT_TRUE(manager.flush());
    EXPECT_TRUE(QFile::exists(m_path));
    EXPECT_EQ(fileBytes(), QByteArray());
}

TEST_F(SettingsContract, FileIsForItsOwnerOnly)
{
    SETUP_SET_Manager manager = reopened();
    ASSERT_TRUE(manager.flush());
    EXPECT_EQ(QFile::permissions(m_path) & ~(QFile::ReadUser | QFile::WriteUser),
              QFile::ReadOwner | QFile::WriteOwner);
}

TEST_F(SettingsContract, FlushLeavesNoOtherFile)
{
    SETUP_SET_Manager manager = reopened();
    manager.setSettingInfo(settingsGroup, QStringLiteral("5"), QStringLiteral("x"), false);
    ASSERT_TRUE(manager.flush());
    ASSERT_TRUE(manager.flush());
    EXPECT_EQ(QDir(m_directory.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
              QStringList(QStringLiteral("test.cfg")));
}

TEST_F(SettingsContract, FlushOfUnlinkedFileWritesItAgain)
{
    SETUP_SET_Manager manager = reopened();
    manager.setSettingInfo(settingsGroup, QStringLiteral("5"), QStringLiteral("x"), false);
    ASSERT_TRUE(manager.flush());
    ASSERT_TRUE(QFile::remove(m_path));
    ASSERT_TRUE(manager.flush());
    EXPECT_EQ(read(reopened(), settingsGroup, QStringLiteral("5")), QStringLiteral("x"));
}

TEST_F(SettingsContract, FlushIsReachedThroughTheVirtualTable)
{
    class Counting : public SETUP_SET_Manager {
    public:
        using SETUP_SET_Manager::SETUP_SET_Manager;
        bool flush() override
        {
            ++flushes;
            return false;
        }
        int flushes = 0;
    };
    Counting counting(m_path, false);
    SETUP_SET_Manager &manager = counting;
    EXPECT_FALSE(manager.flush());
    EXPECT_EQ(counting.flushes, 1);
}

TEST_F(SettingsContract, FlushIntoMissingDirectoryFailsAndKeepsMemory)
{
    const QString path = m_directory.filePath(QStringLiteral("missing/test.cfg"));
    SETUP_SET_Manager manager(path, false);
    manager.setSettingInfo(settingsGroup, QStringLiteral("5"), QStringLiteral("x"), false);
    testing::internal::CaptureStderr();
    EXPECT_FALSE(manager.flush());
    const std::string message = testing::internal::GetCapturedStderr();
    EXPECT_NE(message.find(path.toStdString()), message.npos) << message;
    EXPECT_NE(message.find("No such file or directory"), message.npos) << message;
    EXPECT_EQ(read(manager, settingsGroup, QStringLiteral("5")), QStringLiteral("x"));
    ASSERT_TRUE(QDir(m_directory.path()).mkdir(QStringLiteral("missing")));
    EXPECT_TRUE(manager.flush());
}

TEST_F(SettingsContract, PathThatIsADirectoryIsReportedAndLeftAlone)
{
    ASSERT_TRUE(QDir().mkpath(m_path + QStringLiteral("/inside")));
    testing::internal::CaptureStderr();
    SETUP_SET_Manager manager = reopened();
    EXPECT_FALSE(manager.flush());
    const std::string message = testing::internal::GetCapturedStderr();
    EXPECT_NE(message.find(m_path.toStdString()), message.npos) << message;
    EXPECT_NE(message.find("directory"), message.npos) << message;
    EXPECT_TRUE(QFileInfo(m_path + QStringLiteral("/inside")).isDir());
    EXPECT_EQ(QDir(m_directory.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
              QStringList(QStringLiteral("test.cfg")));
}

TEST_F(SettingsContract, DirectoryThatTakesTheFilesPlaceIsLeftAlone)
{
    SETUP_SET_Manager manager = reopened();
    ASSERT_TRUE(manager.flush());
    ASSERT_TRUE(QFile::remove(m_path));
    ASSERT_TRUE(QDir().mkpath(m_path + QStringLiteral("/inside")));
    EXPECT_FALSE(manager.flush());
    EXPECT_TRUE(QFileInfo(m_path + QStringLiteral("/inside")).isDir());
    EXPECT_EQ(QDir(m_directory.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
              QStringList(QStringLiteral("test.cfg")));
}

TEST_F(SettingsContract, SettingDirectoryEndsInASlashAndExists)
{
    ASSERT_TRUE(qputenv("KUB_STATE_DIR", m_directory.path().toUtf8()));
    const QString directory = getSettingDirectory();
    EXPECT_TRUE(directory.endsWith(u'/'));
    EXPECT_TRUE(QFileInfo(directory).isDir());
}

} // namespace
