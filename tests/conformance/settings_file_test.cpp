// The host's settings files: their text format, and what happens to bad files and on bad disks.
#include <chrono>
#include <fcntl.h>
#include <memory>
#include <random>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "child_process.h"
#include "settings_format.h"
#include "setup_set_manager.h"

namespace {

const QString settingsGroup = QStringLiteral("PROXY_Conn");
const QString settingsKey = QStringLiteral("Office/Ph1");

constexpr qsizetype tooMuchToAdd = 5000; // bytes of changes after which a small file is replaced

class SettingsFileOnDisk : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(m_directory.isValid()); }

    void writeFile(const QByteArray &bytes) const
    {
        QFile file(m_path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        ASSERT_EQ(file.write(bytes), bytes.size());
    }
    QByteArray bytesOf(const QString &path) const
    {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("unreadable");
    }
    QStringList files() const
    {
        return QDir(m_directory.path())
            .entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden);
    }

    QTemporaryDir m_directory;
    QString m_path = m_directory.filePath(QStringLiteral("test.cfg"));
};

QString read(const SETUP_SET_Manager &manager, const QString &group, const QString &key)
{
    QString value;
    manager.getSettingInfo(group, key, value, QString(), false);
    return value;
}

void expectMentions(const std::string &message, std::initializer_list<const char *> parts)
{
    for (const char *part : parts)
        EXPECT_NE(message.find(part), message.npos) << "no \"" << part << "\" in: " << message;
}

TEST_F(SettingsFileOnDisk, NothingOfTheCallersIsNeededOnceItIsUnloaded)
{
    // As the literals of a library that is unloaded afterwards.
    char16_t group[] = u"Settings";
    char16_t key[] = u"Colour";
    char16_t value[] = u"green";
    const auto literal = [](char16_t *text) {
        return QString::fromRawData(
            reinterpret_cast<const QChar *>(text),
            static_cast<qsizetype>(std::char_traits<char16_t>::length(text)));
    };
    {
        SETUP_SET_Manager manager(m_path, false);
        ASSERT_TRUE(manager.setSettingInfo(literal(group), literal(key), literal(value), false));
        ASSERT_TRUE(manager.flush());
    }
    for (char16_t *text : {group, key, value})
        text[0] = u'x';
    EXPECT_EQ(read(SETUP_SET_Manager(m_path, false), QStringLiteral("Settings"),
                   QStringLiteral("Colour")),
              QStringLiteral("green"));
}

//////////////////////////////////////////////////////////////////////////////////////////////////
// Text format

TEST_F(SettingsFileOnDisk, TextIsReadableAndInAscendingOrder)
{
    SETUP_SET_Manager manager(m_path, false);
    manager.setSettingInfo(settingsGroup, settingsKey, QStringLiteral("Mobile = fast"), false);
    manager.setSettingInfo(QStringLiteral("NAPIDEF_Profile"), QStringLiteral("7Ph2DC1"),
                           u"Vid\u00E9otron"_qs, false);
    manager.setSettingInfo(QStringLiteral("NAPIDEF_Profile"), QStringLiteral("12Ph1DC1"), u""_qs,
                           false);
    ASSERT_TRUE(manager.flush());
    EXPECT_EQ(bytesOf(m_path), "[NAPIDEF_Profile]\n"
                               "12Ph1DC1=\n"
                               "7Ph2DC1=Vid\xC3\xA9otron\n"
                               "[PROXY_Conn]\n"
                               "Office/Ph1=Mobile = fast\n");
}

TEST_F(SettingsFileOnDisk, EscapesAreTheDocumentedOnes)
{
    const QString text = u" [=\\\n\r\t\u007F\uFEFF\u0001] "_qs + QChar(0xDC00);
    EXPECT_EQ(formatSettings({{text, {{text, text}}}}),
              "[\\s[=\\\\\\n\\r\\t\\u007f\\ufeff\\u0001] \\udc00]\n"
              "\\s[\\=\\\\\\n\\r\\t\\u007f\\ufeff\\u0001] \\udc00="
              "\\s[=\\\\\\n\\r\\t\\u007f\\ufeff\\u0001] \\udc00\n");
    EXPECT_EQ(formatSettings({{u"a "_qs, {{u"[a]"_qs, u" b "_qs}, {u""_qs, u""_qs}}}}),
              "[a\\s]\n=\n\\[a]=\\sb\\s\n");
}

TEST_F(SettingsFileOnDisk, EmptyGroupIsNotWritten)
{
    EXPECT_EQ(formatSettings({{u"a"_qs, {}}, {u"b"_qs, {{u"k"_qs, u"v"_qs}}}}), "[b]\nk=v\n");
}

TEST_F(SettingsFileOnDisk, GroupThatComesTwiceIsOneAndLaterEntryCounts)
{
    const ParsedSettings parsed = parseSettings("[a]\nk=1\nl=1\n[b]\nk=2\n[a]\nk=3\n");
    EXPECT_EQ(parsed.groups, (SettingsGroups{{u"a"_qs, {{u"k"_qs, u"3"_qs}, {u"l"_qs, u"1"_qs}}},
                                             {u"b"_qs, {{u"k"_qs, u"2"_qs}}}}));
    EXPECT_EQ(parsed.skippedLines, 0);
}

TEST_F(SettingsFileOnDisk, LastLineNeedsNoLineFeed)
{
    EXPECT_EQ(parseSettings("[a]\nk=1").groups, (SettingsGroups{{u"a"_qs, {{u"k"_qs, u"1"_qs}}}}));
}

TEST_F(SettingsFileOnDisk, MalformedLinesAreSkippedAndTheOthersRead)
{
    const char *malformed[] = {
        "no equals sign", "=\xFF",         "k=\xC3", "k=\\x",          "k=\\u12",    "k=\\uD8G0",
        "k=\\",           "\\=only a key", "k\\q=1", "k=\xED\xA0\x80", "\xC0\x80=1", "k=\\u00E9",
    };
    for (const char *line : malformed) {
        const ParsedSettings parsed =
            parseSettings(QByteArray("[a]\nfirst=1\n") + line + "\nlast=2\n");
        EXPECT_EQ(parsed.groups,
                  (SettingsGroups{{u"a"_qs, {{u"first"_qs, u"1"_qs}, {u"last"_qs, u"2"_qs}}}}))
            << line;
        EXPECT_EQ(parsed.skippedLines, 1) << line;
        EXPECT_EQ(parsed.firstSkippedLine, 3) << line;
    }
}

TEST_F(SettingsFileOnDisk, EntriesOfAMalformedGroupBelongToNoGroup)
{
    for (const char *line : {"[", "[b", "[b] ", "[\xFF]", "[\\x]", "[b\\]"}) {
        const ParsedSettings parsed = parseSettings(QByteArray("[a]\n") + line + "\nk=1\n[c]\nk=2");
        EXPECT_EQ(parsed.groups.value(u"a"_qs), SettingsGroup()) << line;
        EXPECT_EQ(parsed.groups.value(u"c"_qs), (SettingsGroup{{u"k"_qs, u"2"_qs}})) << line;
        EXPECT_EQ(parsed.skippedLines, 2) << line;
        EXPECT_EQ(parsed.firstSkippedLine, 2) << line;
    }
}

TEST_F(SettingsFileOnDisk, EntryBeforeAnyGroupIsSkipped)
{
    const ParsedSettings parsed = parseSettings("\n\nk=1\n[a]\nk=2\n");
    EXPECT_EQ(parsed.groups, (SettingsGroups{{u"a"_qs, {{u"k"_qs, u"2"_qs}}}}));
    EXPECT_EQ(parsed.firstSkippedLine, 3);
}

TEST_F(SettingsFileOnDisk, ByteOrderMarkInsideAFileIsKept)
{
    EXPECT_EQ(parseSettings("[a]\n\xEF\xBB\xBFk=\xEF\xBB\xBF\xEF\xBB\xBFv\\s\xEF\xBB\xBF\n").groups,
              (SettingsGroups{{u"a"_qs, {{u"\uFEFFk"_qs, u"\uFEFF\uFEFFv \uFEFF"_qs}}}}));
}

TEST_F(SettingsFileOnDisk, RandomBytesAreReadWithoutHarm)
{
    const unsigned int seed = std::random_device{}();
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 generator(seed);
    constexpr char alphabet[] = "[]=\\\nab su0\xC3\xA9\xED\xA0\x80\xFF\0";
    for (int round = 0; round < 2000; ++round) {
        QByteArray bytes;
        for (auto length = generator() % 200; length > 0; --length)
            bytes += alphabet[generator() % sizeof alphabet];
        const ParsedSettings parsed = parseSettings(bytes);
        SettingsGroups withoutEmpty = parsed.groups;
        withoutEmpty.removeIf([](const auto &group) { return group.value().isEmpty(); });
        const ParsedSettings again = parseSettings(formatSettings(parsed.groups));
        EXPECT_EQ(again.groups, withoutEmpty) << bytes.toHex().constData();
        EXPECT_EQ(again.skippedLines, 0);
    }
}

//////////////////////////////////////////////////////////////////////////////////////////////////
// Changes at the end of a file

class SettingsChanges : public SettingsFileOnDisk {
protected:
    void SetUp() override
    {
        SettingsFileOnDisk::SetUp();
        set("a", "1");
        set("b", "2");
        ASSERT_TRUE(m_manager->flush());
    }

    void set(const char *key, const QString &value)
    {
        m_manager->setSettingInfo(u"g"_qs, QString::fromLatin1(key), value, false);
    }
    void set(const char *key, const char *value) { set(key, QString::fromLatin1(value)); }
    SettingsGroup entriesOnDisk() const
    {
        return SETUP_SET_Manager(m_path, false).getEntryKeyList(u"g"_qs);
    }
    /// As a process reads them that has not seen the file before.
    SettingsGroup entriesForOthers() const
    {
        return parseSettings(bytesOf(m_path)).groups.value(u"g"_qs);
    }

    std::unique_ptr<SETUP_SET_Manager> m_manager =
        std::make_unique<SETUP_SET_Manager>(m_path, false);
    const QByteArray m_whole = "[g]\na=1\nb=2\n";
};

TEST_F(SettingsChanges, AreAddedAtTheEnd)
{
    set("c", "3");
    m_manager->removeEntry(u"g"_qs, u"a"_qs);
    m_manager->setSettingInfo(u"h"_qs, u"a"_qs, u"4"_qs, false);
    ASSERT_TRUE(m_manager->flush());
    EXPECT_EQ(bytesOf(m_path), m_whole + "\\+20\n[g]\nc=3\n\\-a\n[h]\na=4\n");
    const SettingsGroup expected = {{u"b"_qs, u"2"_qs}, {u"c"_qs, u"3"_qs}};
    EXPECT_EQ(entriesOnDisk(), expected);
    EXPECT_EQ(entriesForOthers(), expected);
}

TEST_F(SettingsChanges, OfNothingLeaveTheFile)
{
    set("a", "1");
    ASSERT_TRUE(m_manager->flush());
    EXPECT_EQ(bytesOf(m_path), m_whole);
}

TEST_F(SettingsChanges, CountOnlyWhenAllOfThemAreThere)
{
    set("a", "x");
    m_manager->removeEntry(u"g"_qs, u"b"_qs);
    ASSERT_TRUE(m_manager->flush());
    const QByteArray changed = bytesOf(m_path);
    ASSERT_GT(changed.size(), m_whole.size());
    const SettingsGroup before = {{u"a"_qs, u"1"_qs}, {u"b"_qs, u"2"_qs}};
    for (qsizetype size = m_whole.size() + 1; size < changed.size(); ++size) {
        const ParsedSettings parsed = parseSettings(changed.first(size));
        EXPECT_EQ(parsed.groups.value(u"g"_qs), before) << size;
        EXPECT_TRUE(parsed.isCutOff) << size;
        EXPECT_EQ(parsed.skippedLines, 0) << size;
    }
    EXPECT_EQ(parseSettings(changed).groups.value(u"g"_qs), (SettingsGroup{{u"a"_qs, u"x"_qs}}));
}

TEST_F(SettingsChanges, ThatAreCutOffAreReportedAndKeptBesideTheNewFile)
{
    const QByteArray cutOff = m_whole + "\\+20\n[g]\na=9\n";
    writeFile(cutOff);
    testing::internal::CaptureStderr();
    SETUP_SET_Manager manager(m_path, false);
    expectMentions(testing::internal::GetCapturedStderr(),
                   {m_path.toUtf8().constData(), "not all there"});
    EXPECT_EQ(read(manager, u"g"_qs, u"a"_qs), u"1"_qs);
    ASSERT_TRUE(manager.flush());
    EXPECT_EQ(bytesOf(m_path), m_whole);
    EXPECT_EQ(bytesOf(m_path + QStringLiteral(".damaged")), cutOff);
}

TEST_F(SettingsChanges, OfSeveralFlushesAreReadInTheirOrder)
{
    set("a", "2");
    ASSERT_TRUE(m_manager->flush());
    m_manager->removeEntry(u"g"_qs, u"a"_qs);
    ASSERT_TRUE(m_manager->flush());
    EXPECT_FALSE(entriesForOthers().contains(u"a"_qs));
    set("a", "3");
    ASSERT_TRUE(m_manager->flush());
    EXPECT_EQ(entriesForOthers().value(u"a"_qs), u"3"_qs);
}

TEST_F(SettingsChanges, OfTheSameEntriesDoNotFillTheDisk)
{
    for (int round = 0; round < 2000; ++round) {
        set("a", QString::number(round));
        ASSERT_TRUE(m_manager->flush());
        ASSERT_LT(bytesOf(m_path).size(), tooMuchToAdd);
    }
    EXPECT_EQ(entriesForOthers().value(u"a"_qs), u"1999"_qs);
    EXPECT_EQ(files(), QStringList(u"test.cfg"_qs));
}

TEST_F(SettingsChanges, BeyondTwiceTheEntriesReplaceTheFile)
{
    set("a", QString(tooMuchToAdd, u'x'));
    ASSERT_TRUE(m_manager->flush());
    EXPECT_EQ(bytesOf(m_path), "[g]\na=" + QByteArray(tooMuchToAdd, 'x') + "\nb=2\n");
}

TEST_F(SettingsChanges, OfAVeryLongSeriesAreAllKept)
{
    set("much room", QString(10 * tooMuchToAdd, u'x'));
    ASSERT_TRUE(m_manager->flush());
    for (int change = 0; change < 1500; ++change)
        set(change % 2 == 0 ? "a" : "b", QString::number(change));
    ASSERT_TRUE(m_manager->flush());
    EXPECT_EQ(entriesForOthers().value(u"a"_qs), u"1498"_qs);
    EXPECT_EQ(entriesForOthers().value(u"b"_qs), u"1499"_qs);
}

TEST_F(SettingsChanges, OfWhoReadTheFileLaterAreAddedToo)
{
    set("a", "2");
    ASSERT_TRUE(m_manager->flush());
    const QByteArray before = bytesOf(m_path);
    SETUP_SET_Manager later(m_path, false);
    later.setSettingInfo(u"g"_qs, u"b"_qs, u"3"_qs, false);
    ASSERT_TRUE(later.flush());
    EXPECT_EQ(bytesOf(m_path), before + "\\+8\n[g]\nb=3\n");
}

TEST_F(SettingsChanges, OfProcessAfterProcessDoNotFillTheDisk)
{
#ifdef KUB_SANITIZED
    constexpr int processes = 20; // of ten times the price; the rest is the other build's
#else
    constexpr int processes = 500;
#endif
    for (int round = 0; round < processes; ++round) {
        EXPECT_CHILD_PASSES(runInChild([&] {
            // What this process has read is not what a new one has.
            QFile::copy(m_path, m_path + u".new"_qs);
            ::rename((m_path + u".new"_qs).toUtf8().constData(), m_path.toUtf8().constData());
            SETUP_SET_Manager manager(m_path, false);
            manager.setSettingInfo(u"g"_qs, u"a"_qs, QString::number(round), false);
            EXPECT_TRUE(manager.flush());
        }));
        ASSERT_LT(bytesOf(m_path).size(), tooMuchToAdd);
    }
}

/// Bytes that this process has given to write(2) so far.
qint64 bytesWritten()
{
    QFile file(u"/proc/self/io"_qs);
    if (!file.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray &line : file.readAll().split('\n')) {
        if (line.startsWith("wchar: "))
            return line.sliced(7).toLongLong();
    }
    return -1;
}

TEST_F(SettingsChanges, WriteBytesThatGrowWithTheirNumberOnly)
{
    const auto bytesOfEntries = [this](int first, int count) {
        const qint64 before = bytesWritten();
        EXPECT_GE(before, 0);
        for (int entry = first; entry < first + count; ++entry) {
            set(QByteArray::number(100'000 + entry).constData(), "a value of some length");
            EXPECT_TRUE(m_manager->flush());
        }
        return bytesWritten() - before;
    };
    const qint64 few = bytesOfEntries(0, 500);
    EXPECT_LT(bytesOfEntries(500, 2000), 8 * few);
}

TEST_F(SettingsChanges, OfAnotherProcessAreReplacedAsAWhole)
{
    set("a", "mine");
    EXPECT_CHILD_PASSES(runInChild([&] {
        SETUP_SET_Manager other(m_path, false);
        other.setSettingInfo(u"g"_qs, u"b"_qs, u"theirs"_qs, false);
        EXPECT_TRUE(other.flush());
    }));
    EXPECT_EQ(entriesOnDisk().value(u"b"_qs), u"theirs"_qs);
    ASSERT_TRUE(m_manager->flush());
    EXPECT_EQ(bytesOf(m_path), "[g]\na=mine\nb=2\n");
}

TEST_F(SettingsChanges, OfAnotherManagerAreReplacedAsAWhole)
{
    SETUP_SET_Manager other(m_path, false);
    other.setSettingInfo(u"g"_qs, u"b"_qs, u"theirs"_qs, false);
    ASSERT_TRUE(other.flush());
    EXPECT_EQ(entriesOnDisk().value(u"b"_qs), u"theirs"_qs);
    set("a", "mine");
    ASSERT_TRUE(m_manager->flush());
    EXPECT_EQ(bytesOf(m_path), "[g]\na=mine\nb=2\n");
    EXPECT_EQ(entriesOnDisk(), entriesForOthers());
}

TEST_F(SettingsChanges, AreNotSeenByOthersBeforeTheFlush)
{
    set("a", "9");
    EXPECT_EQ(entriesOnDisk().value(u"a"_qs), u"1"_qs);
}

TEST_F(SettingsChanges, AreNotSeenByWhoHasReadTheFileBefore)
{
    const SETUP_SET_Manager reader(m_path, false);
    set("a", "9");
    ASSERT_TRUE(m_manager->flush());
    EXPECT_EQ(read(reader, u"g"_qs, u"a"_qs), u"1"_qs);
    EXPECT_EQ(entriesOnDisk().value(u"a"_qs), u"9"_qs);
}

TEST_F(SettingsChanges, AreNotAddedToAFileThatSomebodyHasLocked)
{
    const int descriptor = ::open(m_path.toUtf8().constData(), O_RDONLY | O_CLOEXEC);
    ASSERT_GE(descriptor, 0);
    ASSERT_EQ(::flock(descriptor, LOCK_EX), 0);
    set("a", "9");
    ASSERT_TRUE(m_manager->flush());
    ::close(descriptor);
    EXPECT_EQ(bytesOf(m_path), "[g]\na=9\nb=2\n");
}

TEST_F(SettingsChanges, AreNotAddedToALineThatHasNoEnd)
{
    writeFile("[g]\na=1");
    SETUP_SET_Manager manager(m_path, false);
    manager.setSettingInfo(u"g"_qs, u"b"_qs, u"2"_qs, false);
    ASSERT_TRUE(manager.flush());
    EXPECT_EQ(bytesOf(m_path), m_whole);
}

TEST_F(SettingsChanges, OnAFullDiskLeaveTheFileAsItWas)
{
    const ChildOutcome outcome = runInChild([&] {
        constexpr qsizetype pageSize = 4096;
        mountPrivateFileSystem(m_directory.path().toStdString(), 2 * pageSize);
        SETUP_SET_Manager manager(m_path, false);
        manager.setSettingInfo(u"g"_qs, u"a"_qs, QString(pageSize - 100, u'x'), false);
        EXPECT_TRUE(manager.flush());
        const QByteArray before = bytesOf(m_path);
        {
            QFile full(m_directory.filePath(u"full"_qs));
            EXPECT_TRUE(full.open(QIODevice::WriteOnly));
            full.write(QByteArray(pageSize, 'x'));
        }
        // The first of these bytes still fit on the last page of the file.
        manager.setSettingInfo(u"g"_qs, u"b"_qs, QString(500, u'y'), false);
        EXPECT_FALSE(manager.flush());
        EXPECT_EQ(bytesOf(m_path), before);
        EXPECT_TRUE(QFile::remove(m_directory.filePath(u"full"_qs)));
        EXPECT_TRUE(manager.flush());
        EXPECT_EQ(read(SETUP_SET_Manager(m_path, false), u"g"_qs, u"b"_qs), QString(500, u'y'));
    });
    EXPECT_CHILD_PASSES(outcome);
    expectMentions(outcome.errorOutput, {"cannot write", "No space left on device"});
}

TEST_F(SettingsChanges, ThatAreMalformedAreSkippedLineByLine)
{
    struct Row {
        const char *lines;
        int firstSkipped;
    };
    const Row rows[] = {
        {"\\+x\n", 4},
        {"\\+-1\n", 4},
        {"\\+\n", 4},
        {"\\+4\nk=1\n", 5},
        {"\\-a\n", 4},
        {"\\+8\n[g]\n\\-\\x\n", 6},
        {"\\+3\n\\-a\n", 5},
        {"\\+8\n\\+5\n[g]\n", 5},
        {"\\+99999999999999999999\n", 4},
        {"\\+5\n[g]\n\n\\-a\n", 6},
    };
    for (const Row &row : rows) {
        const ParsedSettings parsed = parseSettings(m_whole + row.lines + "[g]\nb=3\n");
        EXPECT_EQ(parsed.groups.value(u"g"_qs),
                  (SettingsGroup{{u"a"_qs, u"1"_qs}, {u"b"_qs, u"3"_qs}}))
            << row.lines;
        EXPECT_EQ(parsed.firstSkippedLine, row.firstSkipped) << row.lines;
    }
}

//////////////////////////////////////////////////////////////////////////////////////////////////
// Bad files

TEST_F(SettingsFileOnDisk, SkippedLinesAreReportedAndKeptBesideTheNewFile)
{
    const QByteArray old = "[a]\nk=1\nrubbish\nmore rubbish\n";
    writeFile(old);
    testing::internal::CaptureStderr();
    SETUP_SET_Manager manager(m_path, false);
    expectMentions(testing::internal::GetCapturedStderr(),
                   {m_path.toUtf8().constData(), "2 malformed lines", "line 3"});
    EXPECT_EQ(bytesOf(m_path), old);
    ASSERT_TRUE(manager.flush());
    EXPECT_EQ(bytesOf(m_path), "[a]\nk=1\n");
    EXPECT_EQ(bytesOf(m_path + QStringLiteral(".damaged")), old);
    ASSERT_TRUE(manager.flush());
    EXPECT_EQ(bytesOf(m_path + QStringLiteral(".damaged")), old);
}

TEST_F(SettingsFileOnDisk, TenMegabytesOfRubbishAreRefusedQuicklyAndNotLost)
{
    std::mt19937 generator(20240229);
    QByteArray rubbish(10 * 1024 * 1024, Qt::Uninitialized);
    for (char &byte : rubbish)
        byte = static_cast<char>(generator());
    writeFile(rubbish);
    testing::internal::CaptureStderr();
    SETUP_SET_Manager manager(m_path, false);
    expectMentions(testing::internal::GetCapturedStderr(),
                   {m_path.toUtf8().constData(), "larger than 4 MiB"});
    manager.setSettingInfo(settingsGroup, settingsKey, u"x"_qs, false);
    ASSERT_TRUE(manager.flush());
    EXPECT_EQ(read(SETUP_SET_Manager(m_path, false), settingsGroup, settingsKey), u"x"_qs);
    EXPECT_EQ(bytesOf(m_path + QStringLiteral(".damaged")), rubbish);
}

TEST_F(SettingsFileOnDisk, RubbishIsReadInLinearTime)
{
    // The worst of a line each: groups, entries, escapes and nothing at all.
    for (const char *line :
         {"[\n", "[]\n", "=\n", "[a]\n=\n", "\\u0041", "\xFF\n", "\n", "[", "="}) {
        const QByteArray half = QByteArray(line).repeated(512 * 1024 / qstrlen(line));
        const QByteArray whole = half + half;
        const auto milliseconds = [](const QByteArray &bytes) {
            QElapsedTimer timer;
            timer.start();
            parseSettings(bytes);
            return timer.elapsed();
        };
        const qint64 halfTime = milliseconds(half);
        EXPECT_LE(milliseconds(whole), 200 + 6 * halfTime) << line;
    }
}

TEST_F(SettingsFileOnDisk, FileThatCouldNotBeReadBackIsNotWritten)
{
    SETUP_SET_Manager manager(m_path, false);
    manager.setSettingInfo(settingsGroup, settingsKey, u"small"_qs, false);
    ASSERT_TRUE(manager.flush());
    manager.setSettingInfo(settingsGroup, settingsKey, QString(5 * 1024 * 1024, u'x'), false);
    testing::internal::CaptureStderr();
    EXPECT_FALSE(manager.flush());
    expectMentions(testing::internal::GetCapturedStderr(), {"larger than 4 MiB"});
    EXPECT_EQ(read(SETUP_SET_Manager(m_path, false), settingsGroup, settingsKey), u"small"_qs);
}

TEST_F(SettingsFileOnDisk, PipeInPlaceOfTheFileIsReportedAndNotWaitedFor)
{
    ASSERT_EQ(::mkfifo(m_path.toUtf8().constData(), 0600), 0);
    testing::internal::CaptureStderr();
    const SETUP_SET_Manager manager(m_path, false);
    expectMentions(testing::internal::GetCapturedStderr(), {"not a regular file"});
}

TEST_F(SettingsFileOnDisk, PathWithoutUsableNameIsRefused)
{
    for (const QString &path : {QString(), m_path + QChar(u'\0') + u"x"_qs}) {
        testing::internal::CaptureStderr();
        EXPECT_FALSE(SETUP_SET_Manager(path, false).flush());
        expectMentions(testing::internal::GetCapturedStderr(), {"no usable name"});
    }
    EXPECT_EQ(files(), QStringList());
}

TEST_F(SettingsFileOnDisk, UnreadableFileIsReportedAndNotLost)
{
    writeFile("[a]\nk=1\n");
    ASSERT_EQ(::chmod(m_path.toUtf8().constData(), 0), 0);
    const ChildOutcome outcome = runInChild([&] {
        becomeNobodyWith(m_directory.path().toStdString());
        SETUP_SET_Manager manager(m_path, false);
        EXPECT_TRUE(manager.getEntryKeyList(u"a"_qs).isEmpty());
        manager.flush();
    });
    EXPECT_CHILD_PASSES(outcome);
    expectMentions(outcome.errorOutput, {"cannot read", "Permission denied"});
    const QString kept = m_path + QStringLiteral(".damaged");
    EXPECT_EQ(bytesOf(QFile::exists(kept) ? kept : m_path), "[a]\nk=1\n");
}

//////////////////////////////////////////////////////////////////////////////////////////////////
// Bad disks

TEST_F(SettingsFileOnDisk, FlushOnAFullDiskFailsAndLeavesTheOldFile)
{
    const ChildOutcome outcome = runInChild([&] {
        constexpr std::size_t pageSize = 4096;
        mountPrivateFileSystem(m_directory.path().toStdString(), 2 * pageSize);
        SETUP_SET_Manager manager(m_path, false);
        manager.setSettingInfo(settingsGroup, settingsKey, u"old"_qs, false);
        EXPECT_TRUE(manager.flush());
        const QString large(3 * pageSize, u'x');
        manager.setSettingInfo(settingsGroup, settingsKey, large, false);
        EXPECT_FALSE(manager.flush());
        EXPECT_EQ(read(manager, settingsGroup, settingsKey), large);
        EXPECT_EQ(read(SETUP_SET_Manager(m_path, false), settingsGroup, settingsKey), u"old"_qs);
        EXPECT_EQ(files(), QStringList(u"test.cfg"_qs));
        manager.setSettingInfo(settingsGroup, settingsKey, u"new"_qs, false);
        EXPECT_TRUE(manager.flush());
        EXPECT_EQ(read(SETUP_SET_Manager(m_path, false), settingsGroup, settingsKey), u"new"_qs);
    });
    EXPECT_CHILD_PASSES(outcome);
    expectMentions(outcome.errorOutput,
                   {m_path.toUtf8().constData(), "cannot write", "No space left on device"});
}

TEST_F(SettingsFileOnDisk, FlushBeyondTheFileSizeLimitFailsAndLeavesTheOldFile)
{
    SETUP_SET_Manager manager(m_path, false);
    manager.setSettingInfo(settingsGroup, settingsKey, u"old"_qs, false);
    ASSERT_TRUE(manager.flush());
    const ChildOutcome outcome = runInChild([&] {
        limitFileSize(1000);
        manager.setSettingInfo(settingsGroup, settingsKey, QString(2000, u'x'), false);
        EXPECT_FALSE(manager.flush());
    });
    EXPECT_CHILD_PASSES(outcome);
    expectMentions(outcome.errorOutput, {m_path.toUtf8().constData(), "File too large"});
    EXPECT_EQ(read(SETUP_SET_Manager(m_path, false), settingsGroup, settingsKey), u"old"_qs);
    EXPECT_EQ(files(), QStringList(u"test.cfg"_qs));
}

TEST_F(SettingsFileOnDisk, ReadOnlyDiskIsReadAndRefusesToFlush)
{
    const ChildOutcome outcome = runInChild([&] {
        mountPrivateFileSystem(m_directory.path().toStdString(), 1 << 20);
        SETUP_SET_Manager manager(m_path, false);
        manager.setSettingInfo(settingsGroup, settingsKey, u"old"_qs, false);
        EXPECT_TRUE(manager.flush());
        makeFileSystemReadOnly(m_directory.path().toStdString());
        SETUP_SET_Manager readOnly(m_path, false);
        EXPECT_EQ(read(readOnly, settingsGroup, settingsKey), u"old"_qs);
        readOnly.setSettingInfo(settingsGroup, settingsKey, u"new"_qs, false);
        EXPECT_FALSE(readOnly.flush());
        EXPECT_EQ(read(SETUP_SET_Manager(m_path, false), settingsGroup, settingsKey), u"old"_qs);
    });
    EXPECT_CHILD_PASSES(outcome);
    expectMentions(outcome.errorOutput,
                   {m_path.toUtf8().constData(), "cannot write", "Read-only file system"});
}

TEST_F(SettingsFileOnDisk, DirectoryThatMayNotBeWrittenRefusesToFlush)
{
    writeFile("[a]\nk=1\n");
    ASSERT_EQ(::chmod(m_directory.path().toUtf8().constData(), 0500), 0);
    const ChildOutcome outcome = runInChild([&] {
        becomeNobodyWith(m_directory.path().toStdString());
        SETUP_SET_Manager manager(m_path, false);
        EXPECT_EQ(read(manager, u"a"_qs, u"k"_qs), u"1"_qs);
        manager.setSettingInfo(u"a"_qs, u"k"_qs, QString(tooMuchToAdd, u'x'), false);
        EXPECT_FALSE(manager.flush());
    });
    EXPECT_CHILD_PASSES(outcome);
    expectMentions(outcome.errorOutput, {m_path.toUtf8().constData(), "Permission denied"});
    EXPECT_EQ(bytesOf(m_path), "[a]\nk=1\n");
}

//////////////////////////////////////////////////////////////////////////////////////////////////
// Two processes

TEST_F(SettingsFileOnDisk, ReadersAndWritersOfOtherProcessesAlwaysSeeAWholeFile)
{
    constexpr int writers = 4;
    constexpr int rounds = 100;
    constexpr int entries = 50;
    pid_t children[writers] = {};
    for (int writer = 0; writer < writers; ++writer) {
        children[writer] = ::fork();
        ASSERT_GE(children[writer], 0);
        if (children[writer] != 0)
            continue;
        bool good = true;
        for (int round = 0; round < rounds; ++round) {
            // Every file holds the same number of entries, all with one value.
            const QString value = QString::number(writer * rounds + round);
            SETUP_SET_Manager manager(m_path, false);
            const auto found = manager.getEntryKeyList(settingsGroup).values();
            good = good && (found.isEmpty() ||
                            (found.size() == entries && found.count(found.first()) == entries));
            for (int entry = 0; entry < entries; ++entry)
                manager.setSettingInfo(settingsGroup, QString::number(entry), value, false);
            good = manager.flush() && good;
        }
        std::_Exit(good ? 0 : 1);
    }
    for (const pid_t child : children) {
        int status = -1;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    EXPECT_EQ(files(), QStringList(u"test.cfg"_qs));
}

//////////////////////////////////////////////////////////////////////////////////////////////////
// Directory

struct DirectoryCase {
    const char *kubStateDir;
    const char *xdgStateHome;
    const char *expected; ///< below the temporary directory, which is also HOME
};

TEST_F(SettingsFileOnDisk, SettingDirectoryFollowsTheEnvironmentAndIsPrivate)
{
    const std::string root = m_directory.path().toStdString();
    const DirectoryCase cases[] = {
        {"/state", "/xdg", "/state/settings/"},
        {"/deep/below/", nullptr, "/deep/below/settings/"},
        {"", "/xdg", "/xdg/kub-dm/settings/"},
        {nullptr, "/xdg2", "/xdg2/kub-dm/settings/"},
        {nullptr, nullptr, "/.local/state/kub-dm/settings/"},
    };
    for (const DirectoryCase &row : cases) {
        const ChildOutcome outcome = runInChild([&] {
            const auto set = [&](const char *variable, const char *value) {
                if (value == nullptr)
                    ::unsetenv(variable);
                else
                    ::setenv(variable, *value == 0 ? "" : (root + value).c_str(), 1);
            };
            ::umask(0);
            set("HOME", "/");
            set("KUB_STATE_DIR", row.kubStateDir);
            set("XDG_STATE_HOME", row.xdgStateHome);
            EXPECT_EQ(getSettingDirectory().toStdString(), root + row.expected);
            struct stat status = {};
            ASSERT_EQ(::stat((root + row.expected).c_str(), &status), 0);
            EXPECT_EQ(status.st_mode & 07777U, 0700U);
        });
        EXPECT_EQ(outcome.exitCode, 0) << row.expected << outcome.errorOutput;
        EXPECT_EQ(outcome.errorOutput, "");
    }
}

TEST_F(SettingsFileOnDisk, RelativeStateHomeIsIgnored)
{
    const ChildOutcome outcome = runInChild([&] {
        ::setenv("HOME", m_directory.path().toUtf8().constData(), 1);
        ::setenv("XDG_STATE_HOME", "relative", 1);
        ::unsetenv("KUB_STATE_DIR");
        EXPECT_EQ(getSettingDirectory(), m_directory.path() + u"/.local/state/kub-dm/settings/"_qs);
    });
    EXPECT_EQ(outcome.exitCode, 0);
}

TEST_F(SettingsFileOnDisk, DirectoryThatCannotBeCreatedIsReported)
{
    writeFile("in the way");
    const ChildOutcome outcome = runInChild([&] {
        ::setenv("KUB_STATE_DIR", m_path.toUtf8().constData(), 1);
        EXPECT_EQ(getSettingDirectory(), m_path + u"/settings/"_qs);
    });
    EXPECT_EQ(outcome.exitCode, 0);
    expectMentions(outcome.errorOutput, {m_path.toUtf8().constData(), "Not a directory"});
}

} // namespace
