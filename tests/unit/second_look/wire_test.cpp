#include "wire.h"

#include <gtest/gtest.h>

namespace client::wire {
namespace {

NodeUri office(const char *leaf)
{
    return nodeAt("./DevDetail/Ext/Conf/Conn/Profiles/Office").child(leaf);
}

SeenNode seenNode(const char *leaf, std::optional<QByteArray> value, DmStatus status = DmStatus::Ok)
{
    return {office(leaf), QStringLiteral("chr"), std::move(value), status};
}

/// One of each kind, with something in every field.
std::vector<TreeChange> sampleChanges()
{
    std::vector<TreeChange> changes;
    for (int kind = 0; kind <= static_cast<int>(TreeChange::Kind::AtomicTakenBack); ++kind)
        changes.push_back({.kind = static_cast<TreeChange::Kind>(kind),
                           .principal = Principal::owner(),
                           .node = office("Addr"),
                           .source = office("DNS1"),
                           .property = Property::Title,
                           .value = {QStringLiteral("chr"), QStringLiteral("text/plain"), "value"},
                           .children = {{"Linger", "30"}, {"DNS2", ""}},
                           .outcome = {DmStatus::CommandFailed, {}}});
    changes[0].principal = Principal::server("dm.example");
    changes[1].principal = Principal::anonymousServer();
    changes[2].node = NodeUri();
    changes[2].value.data = std::nullopt;
    changes[3].value.data = QByteArray();
    return changes;
}

std::vector<SeenChange> sampleSeen()
{
    SeenChange seen;
    seen.status = DmStatus::NotFound;
    seen.asked = {{office("Addr"), "asked", std::nullopt},
                  {office("Linger"), "70000", seenNode("Linger", "4464")}};
    seen.difference = {
        {seenNode("Speed", std::nullopt, DmStatus::Forbidden)},
        {{"before", seenNode("DNS1", "after")}, {std::nullopt, seenNode("DNS2", QByteArray())}},
        {office("Foo"), NodeUri()}};
    seen.overwritten = QStringLiteral("the settings (Addr \u00e4) are overwritten");
    return {seen, SeenChange()};
}

Picture samplePicture(const char *value)
{
    Picture picture;
    for (SeenNode node : {seenNode("Addr", value), seenNode("Auth", std::nullopt),
                          seenNode("Speed", std::nullopt, DmStatus::CommandFailed)})
        picture.emplace(node.uri, node);
    return picture;
}

/// Whether a frame is read as changes.
bool isRead(const QByteArray &frame)
{
    Request request = Request::Setup;
    wire::Setup setup;
    std::vector<TreeChange> changes;
    return unpack(frame, request, setup, changes);
}

// ---- What is written is read ---------------------------------------------------------------------

TEST(WireTest, ASetupIsReadAsItWasWritten)
{
    for (const bool isCopied : {false, true}) {
        const wire::Setup written{QStringLiteral("/state/\u00e4"),
                                  QStringLiteral("/plugins"),
                                  QStringLiteral("plugin.so"),
                                  QStringLiteral("sqlite"),
                                  isCopied,
                                  !isCopied};
        Request request = Request::NextMount;
        wire::Setup read;
        std::vector<TreeChange> changes;
        ASSERT_TRUE(unpack(pack(written), request, read, changes));
        EXPECT_EQ(request, Request::Setup);
        EXPECT_EQ(read.folder, written.folder);
        EXPECT_EQ(read.pluginFolder, written.pluginFolder);
        EXPECT_EQ(read.profilePlugin, written.profilePlugin);
        EXPECT_EQ(read.backend, written.backend);
        EXPECT_EQ(read.isCopied, written.isCopied);
        EXPECT_EQ(read.isMounted, written.isMounted);
        EXPECT_TRUE(changes.empty());
    }
}

TEST(WireTest, ChangesAreReadAsTheyWereWritten)
{
    const std::vector<TreeChange> written = sampleChanges();
    for (const Request asked : {Request::WholeTree, Request::Changes, Request::NextMount}) {
        Request request = Request::Setup;
        wire::Setup setup;
        std::vector<TreeChange> read;
        ASSERT_TRUE(unpack(pack(asked, written), request, setup, read));
        EXPECT_EQ(request, asked);
        ASSERT_EQ(read.size(), written.size());
        for (std::size_t i = 0; i < read.size(); ++i) {
            SCOPED_TRACE(i);
            EXPECT_EQ(read[i].kind, written[i].kind);
            EXPECT_EQ(read[i].principal.isOwner(), written[i].principal.isOwner());
            EXPECT_EQ(read[i].principal.serverId(), written[i].principal.serverId());
            EXPECT_EQ(read[i].node, written[i].node);
            EXPECT_EQ(read[i].source, written[i].source);
            EXPECT_EQ(read[i].property, written[i].property);
            EXPECT_EQ(read[i].value.format, written[i].value.format);
            EXPECT_EQ(read[i].value.type, written[i].value.type);
            EXPECT_EQ(read[i].value.data, written[i].value.data);
            ASSERT_EQ(read[i].children.size(), 2U);
            EXPECT_EQ(read[i].children[0].name, "Linger");
            EXPECT_EQ(read[i].children[0].text, "30");
            EXPECT_EQ(read[i].children[1].name, "DNS2");
            EXPECT_EQ(read[i].children[1].text, "");
            EXPECT_EQ(read[i].outcome.status, written[i].outcome.status);
        }
    }
}

TEST(WireTest, WhatWasSeenIsReadAsItWasWritten)
{
    const std::vector<SeenChange> written = sampleSeen();
    std::vector<SeenChange> read;
    ASSERT_TRUE(unpack(pack(written), read));
    ASSERT_EQ(read.size(), written.size());
    for (std::size_t i = 0; i < read.size(); ++i) {
        EXPECT_EQ(read[i].status, written[i].status);
        EXPECT_EQ(read[i].asked, written[i].asked);
        EXPECT_EQ(read[i].difference, written[i].difference);
        EXPECT_EQ(read[i].overwritten, written[i].overwritten);
    }
}

TEST(WireTest, ATreeIsReadAsItWasWrittenAndSoIsNone)
{
    std::optional<Picture> read;
    ASSERT_TRUE(unpack(pack(std::optional(samplePicture("x"))), read));
    EXPECT_EQ(read, samplePicture("x"));
    read.reset();
    ASSERT_TRUE(unpack(pack(std::optional<Picture>()), read));
    EXPECT_FALSE(read);
}

TEST(WireTest, TheNextMountIsReadAsItWasWrittenAndSoIsItsFault)
{
    support::Expected<NextMount, QString> read = support::Unexpected(QString());
    ASSERT_TRUE(unpack(pack(support::Expected<NextMount, QString>(
                           NextMount{samplePicture("now"), samplePicture("next")})),
                       read));
    ASSERT_TRUE(read);
    EXPECT_EQ(read->now, samplePicture("now"));
    EXPECT_EQ(read->next, samplePicture("next"));
    ASSERT_TRUE(unpack(pack(support::Expected<NextMount, QString>(
                           support::Unexpected(QStringLiteral("no mount")))),
                       read));
    ASSERT_FALSE(read);
    EXPECT_EQ(read.error(), QStringLiteral("no mount"));
}

// ---- Damage --------------------------------------------------------------------------------------

TEST(WireTest, APartOfAFrameIsDamaged)
{
    const QByteArray changes = pack(Request::Changes, sampleChanges());
    for (qsizetype size = 0; size < changes.size(); ++size)
        EXPECT_FALSE(isRead(changes.first(size))) << size;
    const QByteArray answer = pack(sampleSeen());
    const QByteArray tree = pack(std::optional(samplePicture("x")));
    const QByteArray next =
        pack(support::Expected<NextMount, QString>(NextMount{samplePicture("a"), {}}));
    for (qsizetype size = 0; size < answer.size(); ++size) {
        std::vector<SeenChange> seen;
        EXPECT_FALSE(unpack(answer.first(size), seen)) << size;
    }
    for (qsizetype size = 0; size < tree.size(); ++size) {
        std::optional<Picture> read;
        EXPECT_FALSE(unpack(tree.first(size), read)) << size;
    }
    for (qsizetype size = 0; size < next.size(); ++size) {
        support::Expected<NextMount, QString> read = support::Unexpected(QString());
        EXPECT_FALSE(unpack(next.first(size), read)) << size;
    }
}

TEST(WireTest, AFrameWithMoreBehindItIsDamaged)
{
    EXPECT_FALSE(isRead(pack(Request::Changes, sampleChanges()) + 'x'));
    EXPECT_FALSE(isRead(pack(wire::Setup()) + 'x'));
    std::vector<SeenChange> seen;
    EXPECT_FALSE(unpack(pack(sampleSeen()) + 'x', seen));
}

TEST(WireTest, HostileBytesAreReadToAnEnd)
{
    const std::vector<QByteArray> frames = {
        pack(Request::Changes, sampleChanges()), pack(Request::NextMount, sampleChanges()),
        pack(sampleSeen()), pack(std::optional(samplePicture("x"))), QByteArray(64, '\xFF')};
    for (const QByteArray &frame : frames)
        for (qsizetype place = 0; place < frame.size(); ++place)
            for (const char byte : {'\0', '\x01', '\x7F', '\xFF'}) {
                QByteArray damaged = frame;
                damaged[place] = byte;
                std::vector<SeenChange> seen;
                std::optional<Picture> tree;
                support::Expected<NextMount, QString> next = support::Unexpected(QString());
                Request request = Request::Setup;
                wire::Setup setup;
                std::vector<TreeChange> changes;
                if (unpack(damaged, request, setup, changes)) {
                    EXPECT_LE(request, Request::NextMount);
                    for (const TreeChange &change : changes) {
                        EXPECT_LE(change.kind, TreeChange::Kind::AtomicTakenBack);
                        EXPECT_LE(change.property, Property::VerNo);
                    }
                }
                // A count or a length makes nothing that the bytes do not have.
                unpack(damaged, seen);
                unpack(damaged, tree);
                unpack(damaged, next);
                EXPECT_LE(changes.size() + seen.size(), static_cast<std::size_t>(frame.size()));
            }
}

TEST(WireTest, AKindThatDoesNotExistIsDamage)
{
    std::vector<TreeChange> changes(1);
    EXPECT_TRUE(isRead(pack(Request::Changes, changes)));
    changes[0].kind = static_cast<TreeChange::Kind>(99);
    EXPECT_FALSE(isRead(pack(Request::Changes, changes)));
    changes[0].kind = static_cast<TreeChange::Kind>(-1);
    EXPECT_FALSE(isRead(pack(Request::Changes, changes)));
    changes = std::vector<TreeChange>(1);
    changes[0].property = static_cast<Property>(99);
    EXPECT_FALSE(isRead(pack(Request::Changes, changes)));
    EXPECT_FALSE(isRead(pack(static_cast<Request>(99), {})));
    EXPECT_FALSE(isRead(QByteArray("\0\0\1\0\0\0\0\0", 8))); // 256 is none of the requests
}

TEST(WireTest, ANameThatNoNodeCanHaveIsDamage)
{
    using namespace std::string_literals;
    for (const std::string &names : {"\0A"s, "A\0"s, "A\0\0B"s, "\0"s}) {
        std::vector<TreeChange> changes(1);
        changes[0].node = NodeUri::fromJoinedNames(QByteArray::fromStdString(names));
        EXPECT_FALSE(isRead(pack(Request::Changes, changes))) << testing::PrintToString(names);
    }
}

// ---- Lengths -------------------------------------------------------------------------------------

TEST(WireTest, ALengthIsThatOfItsFrame)
{
    for (const int size : {0, 1, 255, 256, 70000}) {
        const QByteArray bytes = withLength(QByteArray(size, 'x'));
        EXPECT_EQ(bytes.size(), lengthBytes + size);
        EXPECT_EQ(lengthIn(bytes.first(lengthBytes)), size);
        EXPECT_EQ(bytes.sliced(lengthBytes), QByteArray(size, 'x'));
    }
}

TEST(WireTest, ALengthThatNoFrameHasIsNone)
{
    EXPECT_EQ(lengthIn(QByteArray("\0\0\0\x10", 4)), longestFrame);
    EXPECT_FALSE(lengthIn(QByteArray("\1\0\0\x10", 4)));
    EXPECT_FALSE(lengthIn(QByteArray(4, '\xFF')));
}

} // namespace
} // namespace client::wire
