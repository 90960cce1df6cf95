// A second look whose process goes wrong: this program is that process as well, and does what a
// variable of the environment says.

#include "second_look.h"
#include "second_look_process.h"
#include "wire.h"

#include <QDir>
#include <QTemporaryDir>
#include <cerrno>
#include <cstdio>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace client {
namespace {

constexpr char behaviourVariable[] = "SECOND_LOOK_TEST_BEHAVIOUR";

// ---- The process ---------------------------------------------------------------------------------

void say(const QByteArray &bytes)
{
    std::fwrite(bytes.constData(), 1, static_cast<std::size_t>(bytes.size()), stdout);
    std::fflush(stdout);
}

bool hearBytes(QByteArray &bytes)
{
    return std::fread(bytes.data(), 1, static_cast<std::size_t>(bytes.size()), stdin) ==
           static_cast<std::size_t>(bytes.size());
}

/// The next request; none at the end.
std::optional<wire::Request> hear(std::vector<TreeChange> &changes)
{
    QByteArray length(wire::lengthBytes, '\0');
    if (!hearBytes(length))
        return std::nullopt;
    QByteArray frame(wire::lengthIn(length).value_or(0), '\0');
    auto request = wire::Request::Setup;
    wire::Setup setup;
    if (!hearBytes(frame) || !wire::unpack(frame, request, setup, changes))
        return std::nullopt;
    return request;
}

[[noreturn]] void hang()
{
    for (;;)
        ::pause();
}

/// What is answered to changes that were seen like that.
QByteArray answerOf(const std::vector<SeenChange> &seen)
{
    return wire::withLength(wire::pack(seen));
}

/// Serves as the real process does, up to the first answer about changes.
[[noreturn]] void goWrong(const std::string &behaviour)
{
    std::vector<TreeChange> changes;
    while (const auto request = hear(changes)) {
        const std::vector<SeenChange> seen(changes.size());
        if (request == wire::Request::WholeTree) {
            say(wire::withLength(wire::pack(std::optional<Picture>())));
        } else if (request == wire::Request::Changes) {
            if (behaviour == "hangs")
                hang();
            if (behaviour == "ends")
                break;
            if (behaviour == "hangs in an answer") {
                say(answerOf(seen).first(7));
                hang();
            }
            if (behaviour == "ends in an answer") {
                say(answerOf(seen).chopped(1));
                break;
            }
            if (behaviour == "announces too much")
                say(QByteArray(wire::lengthBytes, '\xFF'));
            if (behaviour == "says something else")
                say(wire::withLength("something"));
            if (behaviour == "says too little")
                say(answerOf({}));
            if (behaviour == "says too much")
                say(answerOf(std::vector<SeenChange>(changes.size() + 1)));
            if (behaviour == "goes another way")
                say(answerOf(std::vector<SeenChange>(
                    changes.size(), SeenChange{DmStatus::CommandFailed, {}, {}, {}})));
            say(answerOf(seen));
        } else if (request == wire::Request::NextMount) {
            if (behaviour == "hangs at the next mount")
                hang();
            if (behaviour == "ends at the next mount")
                break;
            if (behaviour == "says something else of the next mount")
                say(wire::withLength("something"));
            if (behaviour == "cannot mount")
                say(wire::withLength(wire::pack(support::Expected<NextMount, QString>(
                    support::Unexpected(QStringLiteral("cannot mount"))))));
            say(wire::withLength(wire::pack(support::Expected<NextMount, QString>(NextMount{}))));
        }
    }
    if (behaviour == "does not end")
        hang();
    ::_exit(0);
}

// ---- The client ----------------------------------------------------------------------------------

class Listener : public LookObserver {
public:
    int runningCommand() const override { return 1; }
    void treeSeen(const Picture &) override {}
    void commandSeen(int, const TreeDifference &) override {}
    void nextMountSeen(const TreeDifference &) override {}
    void differenceNoted(int, const DifferenceNote &) override {}
    void note(const QString &text) override { notes.push_back(text.toStdString()); }

    std::vector<std::string> notes;
};

class ProcessTest : public testing::Test {
protected:
    ProcessTest()
    {
        // The libraries beneath the plug-in know one state directory in a process.
        static const QTemporaryDir state;
        auto opened = DmDevice::open(
            {.stateDirectory = state.path(), .profilePlugin = QStringLiteral(KUB_PLUGIN_FILE)});
        EXPECT_TRUE(opened);
        device = *std::move(opened);
        EXPECT_TRUE(device->makeTree());
    }

    void begin(const char *behaviour, std::chrono::milliseconds patience = std::chrono::minutes(1))
    {
        qputenv(behaviourVariable, behaviour);
        look.emplace(*device, patience);
    }

    /// Adds a profile, and deletes it again.
    void change()
    {
        const NodeUri profile = profileRoots().front().child("New");
        EXPECT_TRUE(device->tree().mountFor(profile, ManagementTree::Use::Change));
        EXPECT_TRUE(device->ownersView().add(profile, {QStringLiteral("node"), {}, {}}));
        EXPECT_TRUE(device->ownersView().find(profile));
        EXPECT_TRUE(device->ownersView().remove(profile));
    }

    /// Whether the process has ended and was waited for, and its copy is gone.
    bool isOver() const
    {
        const QDir folder(device->state().clientFile(QString()));
        return ::waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD &&
               folder.entryList({QStringLiteral("scratch-*")}).isEmpty();
    }

    std::unique_ptr<DmDevice> device;
    std::optional<SecondLook> look;
};

// What is only waited for because it hangs.
constexpr std::chrono::seconds littlePatience(3);

struct Failure {
    const char *behaviour;
    const char *reason;
    std::chrono::milliseconds patience = std::chrono::minutes(1);
};

void PrintTo(const Failure &failure, std::ostream *stream)
{
    *stream << failure.behaviour;
}

std::string nameOfFailure(const testing::TestParamInfo<Failure> &info)
{
    std::string name = info.param.behaviour;
    std::erase(name, ' ');
    return name;
}

class FailureNowTest : public ProcessTest, public testing::WithParamInterface<Failure> {};

TEST_P(FailureNowTest, IsToldOnceAndEndsTheLook)
{
    begin(GetParam().behaviour, GetParam().patience);
    Listener listener;
    look->setObserver(&listener);
    change();
    EXPECT_TRUE(look->lookNow().empty());
    EXPECT_TRUE(isOver());
    const std::string reason = std::string("no second look: ") + GetParam().reason;
    EXPECT_EQ(look->takeFailure().toStdString(), reason);
    EXPECT_EQ(listener.notes.back(), reason);
    change();
    EXPECT_TRUE(look->lookNow().empty());
    EXPECT_TRUE(look->lookAtNextMount().empty());
    EXPECT_EQ(look->takeFailure().toStdString(), "");
    EXPECT_EQ(look->differences(), 0U);
}

INSTANTIATE_TEST_SUITE_P(
    , FailureNowTest,
    testing::Values(
        Failure{"hangs", "it takes too long", littlePatience},
        Failure{"hangs in an answer", "it takes too long", littlePatience},
        Failure{"ends", "its process has ended"},
        Failure{"ends in an answer", "its process has ended"},
        Failure{"announces too much", "its answer cannot be read"},
        Failure{"says something else", "its answer cannot be read"},
        Failure{"says too little", "its answer cannot be read"},
        Failure{"says too much", "its answer cannot be read"},
        Failure{"goes another way",
                "it went another way at Add ./DevDetail/Ext/Conf/Conn/Profiles/New: 500 in place "
                "of 200"}),
    nameOfFailure);

class FailureAtNextMountTest : public ProcessTest, public testing::WithParamInterface<Failure> {};

TEST_P(FailureAtNextMountTest, IsToldOnceAndEndsTheLook)
{
    begin(GetParam().behaviour, GetParam().patience);
    change();
    EXPECT_TRUE(look->lookNow().empty());
    EXPECT_EQ(look->takeFailure().toStdString(), "");
    EXPECT_TRUE(look->lookAtNextMount().empty());
    EXPECT_TRUE(isOver());
    EXPECT_EQ(look->takeFailure().toStdString(),
              std::string("no second look: ") + GetParam().reason);
    EXPECT_EQ(look->takeFailure().toStdString(), "");
}

INSTANTIATE_TEST_SUITE_P(
    , FailureAtNextMountTest,
    testing::Values(Failure{"hangs at the next mount", "it takes too long", littlePatience},
                    Failure{"ends at the next mount", "its process has ended"},
                    Failure{"says something else of the next mount", "its answer cannot be read"},
                    Failure{"cannot mount", "cannot mount"}),
    nameOfFailure);

TEST_F(ProcessTest, OneThatDoesWhatItHasToIsNotTold)
{
    begin("does what it has to");
    change();
    look->lookNow();
    EXPECT_FALSE(isOver());
    look->lookAtNextMount();
    EXPECT_TRUE(isOver());
    EXPECT_EQ(look->takeFailure().toStdString(), "");
}

TEST_F(ProcessTest, OneThatDoesNotEndIsEnded)
{
    begin("does not end", littlePatience);
    change();
    look->lookNow();
    look->lookAtNextMount();
    EXPECT_TRUE(isOver());
    EXPECT_EQ(look->takeFailure().toStdString(), "");
}

TEST_F(ProcessTest, OneThatDoesNotEndIsEndedWithTheLook)
{
    begin("does not end", littlePatience);
    change();
    look.reset();
    EXPECT_TRUE(isOver());
}

TEST_F(ProcessTest, ATreeThatIsTooLargeForARecordIsNoted)
{
    begin("does what it has to");
    Listener listener;
    look->setObserver(&listener);
    change();
    look->lookNow();
    EXPECT_EQ(listener.notes,
              (std::vector<std::string>{"the tree has more than 50000 nodes: only those that "
                                        "commands were about are in this record"}));
}

TEST_F(ProcessTest, NothingIsToldWhereNothingWasChanged)
{
    begin("ends");
    const NodeUri nowhere = profileRoots().front().child("Nowhere");
    EXPECT_TRUE(device->tree().mountFor(nowhere, ManagementTree::Use::Change));
    look->changed({.kind = TreeChange::Kind::AtomicBegins});
    EXPECT_FALSE(device->ownersView().remove(nowhere));
    look->changed({.kind = TreeChange::Kind::AtomicTakenBack});
    EXPECT_TRUE(look->lookNow().empty());
    EXPECT_TRUE(look->lookAtNextMount().empty());
    EXPECT_TRUE(isOver());
    EXPECT_EQ(look->takeFailure().toStdString(), "");
}

class FloodTest : public ProcessTest, public testing::WithParamInterface<qsizetype> {};

TEST_P(FloodTest, WhatIsFollowedHasAnEnd)
{
    begin("does what it has to");
    change();
    const TreeChange flood{.kind = TreeChange::Kind::Replace,
                           .node = profileRoots().front().child("New"),
                           .value = {{}, {}, QByteArray(GetParam(), 'x')}};
    const qsizetype each = SecondLook::bytesOfChange + GetParam();
    for (qsizetype sent = 0; sent <= SecondLook::bytesOfAllChanges; sent += each)
        look->changed(flood);
    const std::size_t kept = look->changes().size();
    EXPECT_LE(static_cast<qsizetype>(kept) * each, SecondLook::bytesOfAllChanges + 2 * each);
    look->changed(flood);
    EXPECT_EQ(look->changes().size(), kept);
    EXPECT_TRUE(look->lookNow().empty());
    EXPECT_EQ(look->takeFailure().toStdString(),
              "no second look: more was changed than it follows");
    EXPECT_TRUE(isOver());
}

INSTANTIATE_TEST_SUITE_P(, FloodTest, testing::Values(0, 1024 * 1024));

} // namespace
} // namespace client

int main(int argc, char **argv)
{
    if (argc == 3 && std::string_view(argv[1]) == client::secondLookWord)
        client::goWrong(qgetenv(client::behaviourVariable).toStdString());
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
