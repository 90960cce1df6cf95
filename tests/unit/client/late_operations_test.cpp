// What is kept of operations that end later.

#include "late_operations.h"

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace client {

namespace {

using Stage = LateOperation::Stage;

class LateOperationsTest : public testing::Test {
protected:
    QString path() const { return folder.filePath(QStringLiteral("late-operations.json")); }

    LateOperations load() const
    {
        auto loaded = LateOperations::load(path());
        EXPECT_TRUE(loaded) << loaded.error().toStdString();
        return loaded ? *std::move(loaded) : *LateOperations::load(QStringLiteral("/nowhere"));
    }
    /// What is wrong with a file that says this; empty when nothing is.
    std::string faultOf(const QByteArray &content)
    {
        QFile file(path());
        EXPECT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(content);
        file.close();
        const auto loaded = LateOperations::load(path());
        return loaded
                   ? std::string()
                   : QString(loaded.error()).replace(path(), QStringLiteral("FILE")).toStdString();
    }

    static LateOperation operation(const char *target, const char *account = "Test")
    {
        LateOperation operation;
        operation.account = QString::fromLatin1(account);
        operation.serverId = "dm.example";
        operation.sessionId = QStringLiteral("4A");
        operation.target = QString::fromLatin1(target);
        operation.correlator = QStringLiteral("c-1 \u00e4\n<&\"");
        operation.alertType = QStringLiteral("Reversed-Domain-Name: org.example.done");
        operation.argument = QByteArray("a\0b", 3);
        return operation;
    }
    static QString targetOf(std::size_t number) { return QStringLiteral("./V/%1").arg(number); }

    QTemporaryDir folder;
};

TEST_F(LateOperationsTest, AnAcceptedOneIsOnTheDiskAsItCame)
{
    LateOperations operations = load();
    EXPECT_EQ(operations.accept(operation("./V/A")).status, DmStatus::Accepted);
    LateOperation expected = operation("./V/A");
    expected.id = 1;
    EXPECT_EQ(load().all(), std::vector{expected});
    EXPECT_EQ(QFile::permissions(path()) & (QFileDevice::ReadGroup | QFileDevice::ReadOther |
                                            QFileDevice::WriteGroup | QFileDevice::WriteOther),
              QFileDevice::Permissions());
}

TEST_F(LateOperationsTest, EachStepIsOnTheDiskAndTheArgumentGoesWithTheEnd)
{
    LateOperations operations = load();
    operations.accept(operation("./V/A"));
    operations.accept(operation("./V/B"));
    EXPECT_TRUE(operations.begin(2));
    EXPECT_EQ(load().all()[0].stage, Stage::Accepted);
    EXPECT_EQ(load().all()[1].stage, Stage::Begun);
    EXPECT_EQ(load().begunOf(QStringLiteral("Test")), std::set{2});
    EXPECT_TRUE(operations.end(2, DmStatus::NotAllowed));
    const LateOperation ended = load().all()[1];
    EXPECT_EQ(ended.stage, Stage::Ended);
    EXPECT_EQ(ended.status, DmStatus::NotAllowed);
    EXPECT_EQ(ended.argument, "");
    EXPECT_FALSE(ended.wasBrokenOff);
    EXPECT_EQ(load().begunOf(QStringLiteral("Test")), std::set{2});
    EXPECT_EQ(load().begunOf(QStringLiteral("Other")), std::set<int>());
}

TEST_F(LateOperationsTest, WhatHadBegunIsBrokenOffAndNothingElse)
{
    LateOperations operations = load();
    for (const char *const target : {"./V/A", "./V/B", "./V/C"})
        operations.accept(operation(target));
    EXPECT_TRUE(operations.begin(1));
    EXPECT_TRUE(operations.end(1, DmStatus::Ok));
    EXPECT_TRUE(operations.begin(2));
    LateOperations later = load();
    EXPECT_TRUE(later.breakOffBegun());
    const LateOperations last = load();
    EXPECT_EQ(last.all()[0].status, DmStatus::Ok);
    EXPECT_FALSE(last.all()[0].wasBrokenOff);
    EXPECT_EQ(last.all()[1].stage, Stage::Ended);
    EXPECT_EQ(last.all()[1].status, DmStatus::CommandFailed);
    EXPECT_TRUE(last.all()[1].wasBrokenOff);
    EXPECT_EQ(last.all()[2].stage, Stage::Accepted);
}

TEST_F(LateOperationsTest, OneThatHasNotEndedKeepsOthersFromItsNode)
{
    LateOperations operations = load();
    operations.accept(operation("./V/A"));
    const Outcome second = operations.accept(operation("./V/A", "Other"));
    EXPECT_EQ(second.status, DmStatus::Forbidden);
    EXPECT_EQ(second.reason, QStringLiteral("another Exec of ./V/A has not ended yet"));
    EXPECT_TRUE(operations.begin(1));
    EXPECT_EQ(operations.checkIdle(QStringLiteral("./V/A")).status, DmStatus::Forbidden);
    EXPECT_TRUE(operations.checkIdle(QStringLiteral("./V/B")));
    EXPECT_TRUE(operations.end(1, DmStatus::Ok));
    EXPECT_EQ(operations.accept(operation("./V/A")).status, DmStatus::Accepted);
}

TEST_F(LateOperationsTest, AServerKeepsNoOtherFromAskingAndAllTogetherHaveALimit)
{
    LateOperations operations = load();
    for (std::size_t i = 0; i < LateOperations::most; ++i) {
        const std::string account = std::to_string(i / LateOperations::mostPerAccount);
        EXPECT_EQ(operations.accept(operation(qPrintable(targetOf(i)), account.c_str())).status,
                  DmStatus::Accepted);
        if (i + 1 == LateOperations::mostPerAccount) {
            const Outcome ninth = operations.accept(operation("./V/More", account.c_str()));
            EXPECT_EQ(ninth.status, DmStatus::CommandFailed);
            EXPECT_TRUE(ninth.reason.startsWith(u"8 operations wait"));
        }
    }
    EXPECT_EQ(operations.accept(operation("./V/More", "new")).status, DmStatus::CommandFailed);
    EXPECT_EQ(load().all().size(), LateOperations::most);
    EXPECT_TRUE(operations.forget({3, 4}));
    EXPECT_EQ(load().all().size(), LateOperations::most - 2);
    EXPECT_EQ(operations.accept(operation("./V/More", "new")).status, DmStatus::Accepted);
    EXPECT_EQ(load().all().back().id, static_cast<int>(LateOperations::most) + 1);
}

TEST_F(LateOperationsTest, WhatIsTooLargeIsRefusedAndTheLargestCanBeReadAgain)
{
    LateOperations operations = load();
    LateOperation large = operation("./V/A");
    large.argument.resize(LateOperations::longestArgument, '\x01');
    large.correlator = QString(LateOperations::longestCorrelator, u'\x01');
    LateOperation more = large;
    more.argument += 'x';
    EXPECT_EQ(operations.accept(more).status, DmStatus::TooLarge);
    more = large;
    more.correlator += u'x';
    EXPECT_EQ(operations.accept(more).status, DmStatus::TooLarge);
    more = large;
    more.target = QString(LateOperations::longestTarget + 1, u'x');
    EXPECT_EQ(operations.accept(more).status, DmStatus::TooLarge);
    EXPECT_TRUE(load().all().empty());
    for (std::size_t i = 0; i < LateOperations::most; ++i) {
        large.account = QString::number(i / LateOperations::mostPerAccount);
        large.target = targetOf(i).leftJustified(LateOperations::longestTarget, u'\x01');
        ASSERT_EQ(operations.accept(large).status, DmStatus::Accepted);
    }
    EXPECT_EQ(load().all(), operations.all());
}

TEST_F(LateOperationsTest, ThoseOfAccountsThatAreGoneAreForgotten)
{
    LateOperations operations = load();
    operations.accept(operation("./V/A"));
    operations.accept(operation("./V/B", "Other"));
    EXPECT_TRUE(operations.keepOnly(
        [](const LateOperation &one) { return one.account == QStringLiteral("Other"); }));
    ASSERT_EQ(load().all().size(), 1U);
    EXPECT_EQ(load().all()[0].id, 2);
}

TEST_F(LateOperationsTest, WhatCannotBeWrittenHasNotHappened)
{
    LateOperations nowhere = *LateOperations::load(folder.filePath(QStringLiteral("none/file")));
    const Outcome refused = nowhere.accept(operation("./V/A"));
    EXPECT_EQ(refused.status, DmStatus::CommandFailed);
    EXPECT_TRUE(refused.reason.contains(u"none/file"));
    EXPECT_TRUE(nowhere.all().empty());
}

TEST_F(LateOperationsTest, ADamagedFileIsNamedWithItsPlaceAndStaysAsItIs)
{
    LateOperations operations = load();
    operations.accept(operation("./V/A"));
    QFile file(path());
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QByteArray good = file.readAll();
    file.close();
    const auto with = [&good](const char *from, const char *to) {
        EXPECT_TRUE(good.contains(from)) << from;
        return QByteArray(good).replace(from, to);
    };
    EXPECT_EQ(faultOf(good), "");
    EXPECT_EQ(faultOf("{"), "FILE: byte 1: unterminated object");
    EXPECT_EQ(faultOf("{}"), "FILE: operations is not a list of at most 64");
    EXPECT_EQ(faultOf("{\"operations\": [1]}"), "FILE: id of entry 1 is wrong");
    EXPECT_EQ(faultOf(with("\"id\": 1", "\"id\": 0")), "FILE: id of entry 1 is wrong");
    EXPECT_EQ(faultOf(with("\"accepted\"", "\"done\"")), "FILE: stage of entry 1 is wrong");
    EXPECT_EQ(faultOf(with("\"status\": 200", "\"status\": 7")),
              "FILE: status of entry 1 is wrong");
    EXPECT_EQ(faultOf(with("\"YQBi\"", "\"Y*\"")), "FILE: argument of entry 1 is wrong");
    EXPECT_EQ(faultOf(with("\"4A\"", "4")), "FILE: session of entry 1 is wrong");
    const QByteArray entry =
        good.mid(good.indexOf('[') + 1).chopped(good.size() - good.lastIndexOf(']'));
    EXPECT_EQ(faultOf("{\"operations\": [" + entry + "," + entry + "]}"),
              "FILE: id of entry 2 is wrong");
    const QByteArray tooMany = QByteArray("1,").repeated(64) + "1";
    EXPECT_EQ(faultOf("{\"operations\": [" + tooMany + "]}"),
              "FILE: operations is not a list of at most 64");
}

} // namespace

} // namespace client
