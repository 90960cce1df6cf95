// Properties that follow their nodes, in memory and in their file.

#include "noted.h"
#include "property_store.h"

#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace client {

namespace {

using Properties = PropertyStore::Properties;

const NodeUri office({"P", "Office"});
const NodeUri officeAddr({"P", "Office", "Addr"});
const NodeUri office2({"P", "Office2"});

Properties typed(const QByteArray &type)
{
    Properties properties;
    properties.type = QString::fromUtf8(type);
    return properties;
}

AccessControlList acl(const char *text)
{
    QString error;
    return *AccessControlList::parse(text);
}

class PropertyStoreTest : public testing::Test {
protected:
    PropertyStoreTest()
    {
        for (const NodeUri &node : {office, officeAddr, office2})
            store.set(node, typed(node.toUri()));
    }
    std::string typeOf(const NodeUri &node) const { return store.get(node).type.toStdString(); }

    PropertyStore store;
};

// ---- In memory -----------------------------------------------------------------------------------

TEST_F(PropertyStoreTest, ANodeThatWasGivenNoneHasEmptyProperties)
{
    EXPECT_EQ(store.get(NodeUri({"X"})), Properties());
}

TEST_F(PropertyStoreTest, DeletingANodeForgetsEverythingBeneathItAndNoNeighbour)
{
    store.remove(office);
    EXPECT_EQ(typeOf(office), "");
    EXPECT_EQ(typeOf(officeAddr), "");
    EXPECT_EQ(typeOf(office2), "./P/Office2");
}

TEST_F(PropertyStoreTest, PropertiesFollowARename)
{
    store.move(office, NodeUri({"P", "Work"}));
    EXPECT_EQ(typeOf(office), "");
    EXPECT_EQ(typeOf(officeAddr), "");
    EXPECT_EQ(typeOf(NodeUri({"P", "Work"})), "./P/Office");
    EXPECT_EQ(typeOf(NodeUri({"P", "Work", "Addr"})), "./P/Office/Addr");
    EXPECT_EQ(typeOf(office2), "./P/Office2");
}

TEST_F(PropertyStoreTest, PropertiesSurviveARenameToAnotherNodesPlaceInTheOrder)
{
    store.move(office, NodeUri({"P", "Office3"}));
    EXPECT_EQ(typeOf(NodeUri({"P", "Office3", "Addr"})), "./P/Office/Addr");
    EXPECT_EQ(typeOf(office2), "./P/Office2");
}

TEST_F(PropertyStoreTest, OnlyNodesThatFulfilAConditionAreKept)
{
    store.keepOnly([](const NodeUri &node) { return node != officeAddr; });
    EXPECT_EQ(typeOf(office), "./P/Office");
    EXPECT_EQ(typeOf(officeAddr), "");
}

// ---- Accounts that go ----------------------------------------------------------------------------

class ForgottenServer : public PropertyStoreTest {
protected:
    void give(const NodeUri &node, const char *text)
    {
        Properties properties;
        properties.acl = acl(text);
        store.set(node, properties);
    }
    std::string aclOf(const NodeUri &node) const
    {
        return store.get(node).acl->toText().toStdString();
    }
    void forget(const char *server) { store.forgetServer(server, acl("Add=*&Get=*")); }
};

TEST_F(ForgottenServer, GoesFromEveryListAndTakesEmptyRightsAlong)
{
    give(office, "Add=a+b&Delete=b&Get=*&Replace=b+c");
    forget("b");
    EXPECT_EQ(aclOf(office), "Add=a&Get=*&Replace=c");
}

TEST_F(ForgottenServer, LeavesAnEmptyListWhereItWasAlone)
{
    give(office, "Get=b&Replace=b");
    forget("b");
    EXPECT_EQ(aclOf(office), "");
}

TEST_F(ForgottenServer, IsNotMistakenForAnotherWhoseNameBeginsAlike)
{
    give(office, "Get=b+bb");
    forget("b");
    EXPECT_EQ(aclOf(office), "Get=bb");
}

TEST_F(ForgottenServer, GivesARightOfTheRootBackToThoseWhoHadItFirst)
{
    give(NodeUri(), "Add=*&Get=b&Replace=b");
    forget("b");
    EXPECT_EQ(aclOf(NodeUri()), "Add=*&Get=*");
}

// ---- In a file -----------------------------------------------------------------------------------

class PropertyFile : public PropertyStoreTest {
protected:
    void save()
    {
        QString error;
        EXPECT_TRUE(noted(store.save(file, numbers), error)) << error.toStdString();
    }
    PropertyStore load() const
    {
        QString error;
        const auto loaded = noted(PropertyStore::load(file, numbers), error);
        EXPECT_TRUE(loaded) << error.toStdString();
        return loaded ? *loaded : PropertyStore();
    }
    /// What loading a file with that content ends with.
    std::string errorOf(const QByteArray &content) const
    {
        QFile output(file);
        EXPECT_TRUE(output.open(QIODevice::WriteOnly));
        output.write(content);
        output.close();
        QString error;
        EXPECT_FALSE(noted(PropertyStore::load(file, numbers), error));
        EXPECT_TRUE(error.startsWith(file + QStringLiteral(": "))) << error.toStdString();
        return error.mid(file.size() + 2).toStdString();
    }

    PropertyStore::ProfileNumbers numbers;
    QTemporaryDir directory;
    QString file = directory.filePath(QStringLiteral("properties.json"));
};

TEST_F(PropertyFile, KeepsEveryProperty)
{
    const NodeUri odd({"P", "a b/c%\xff"});
    Properties properties;
    properties.type = QStringLiteral("com.example/1.0/X");
    properties.title = "Caf\xc3\xa9 \"1\"";
    properties.acl = acl("Get=*&Replace=a+b");
    properties.changed = QDateTime(QDate(2026, 2, 3), QTime(4, 5, 6), Qt::UTC);
    properties.version = 65535;
    store.set(odd, properties);
    save();
    EXPECT_EQ(load().get(odd), properties);
    EXPECT_EQ(load().get(office), typed("./P/Office"));
}

TEST_F(PropertyFile, TellsAnEmptyListFromOneThatWasNeverReplaced)
{
    Properties properties;
    properties.acl = AccessControlList();
    store.set(office, properties);
    save();
    EXPECT_EQ(load().get(office).acl, AccessControlList());
    EXPECT_EQ(load().get(office2).acl, std::nullopt);
}

TEST_F(PropertyFile, CanBeReadByItsOwnerOnly)
{
    save();
    EXPECT_EQ(QFileInfo(file).permissions() & ~(QFile::ReadUser | QFile::WriteUser),
              QFile::ReadOwner | QFile::WriteOwner);
}

TEST_F(PropertyFile, IsNotWrittenAsLongAsNothingChanges)
{
    save();
    EXPECT_TRUE(QFile::remove(file));
    save();
    EXPECT_FALSE(QFile::exists(file));
    store.set(office, typed("other"));
    save();
    EXPECT_TRUE(QFile::exists(file));
}

TEST_F(PropertyFile, HasRenamedNodesUnderTheNamesThatTheNextMountShows)
{
    const NodeUri work({"P", "Work"});
    const NodeUri desk({"P", "Desk"});
    store.move(office, work);
    store.move(work, desk);
    store.set(desk.child("DNS1"), typed("new"));
    save();
    EXPECT_EQ(load().get(office), typed("./P/Office"));
    EXPECT_EQ(load().get(officeAddr), typed("./P/Office/Addr"));
    EXPECT_EQ(load().get(office.child("DNS1")), typed("new"));
    EXPECT_EQ(load().get(desk), Properties());
    EXPECT_EQ(load().get(work), Properties());
}

TEST_F(PropertyFile, HasNodesThatChangedTheirNamesWithEachOtherUnderTheirOwn)
{
    const NodeUri aside({"P", "Aside"});
    store.move(office, aside);
    store.move(office2, office);
    store.move(aside, office2);
    save();
    EXPECT_EQ(load().get(office), typed("./P/Office"));
    EXPECT_EQ(load().get(office2), typed("./P/Office2"));
}

TEST_F(PropertyFile, PrefersTheRenamedNodeToOneThatWasAddedInItsPlace)
{
    store.move(office, NodeUri({"P", "Aside"}));
    store.set(office, typed("added later"));
    store.move(office2, NodeUri({"P", "Zoo"}));
    store.set(office2, typed("added later"));
    save();
    EXPECT_EQ(load().get(office), typed("./P/Office"));
    EXPECT_EQ(load().get(office2), typed("./P/Office2"));
}

TEST_F(PropertyFile, ForgetsTheFirstNameWithTheNode)
{
    const NodeUri work({"P", "Work"});
    store.move(office, work);
    store.remove(work);
    store.set(work, typed("another node"));
    save();
    EXPECT_EQ(load().get(work), typed("another node"));
    EXPECT_EQ(load().get(office), Properties());
}

// ---- Profiles by their numbers

TEST_F(PropertyFile, GivesTheTreeOfAProfileBackUnderItsNewName)
{
    numbers = {{office, 5}, {office2, 6}};
    save();
    const NodeUri team({"P", "Team"});
    numbers = {{team, 5}, {office2, 6}};
    EXPECT_EQ(load().get(team), typed("./P/Office"));
    EXPECT_EQ(load().get(team.child("Addr")), typed("./P/Office/Addr"));
    EXPECT_EQ(load().get(office2), typed("./P/Office2"));
    EXPECT_EQ(load().get(office), Properties());
}

TEST_F(PropertyFile, GivesAnotherProfileOfTheSameNameNothing)
{
    numbers = {{office, 5}};
    save();
    numbers = {{office, 7}};
    EXPECT_EQ(load().get(office), Properties());
    EXPECT_EQ(load().get(officeAddr), Properties());
    EXPECT_EQ(load().get(office2), typed("./P/Office2"));
}

TEST_F(PropertyFile, TellsTheProfilesOfTwoRootsApart)
{
    const NodeUri other({"Q", "Office"});
    numbers = {{office, 5}, {other, 5}};
    store.set(other, typed("other"));
    save();
    EXPECT_EQ(load().get(office), typed("./P/Office"));
    EXPECT_EQ(load().get(other), typed("other"));
}

TEST_F(PropertyFile, HasAProfileThatWasRenamedInThisMountUnderItsNumber)
{
    const NodeUri team({"P", "Team"});
    store.move(office, team);
    numbers = {{team, 5}};
    save();
    numbers = {{office, 5}};
    EXPECT_EQ(load().get(office), typed("./P/Office"));
    EXPECT_EQ(load().get(officeAddr), typed("./P/Office/Addr"));
}

TEST_F(PropertyFile, KeepsWhatBelongsToAProfileThatNoNodeShowsForAWhile)
{
    numbers = {{office, 5}};
    save();
    numbers.clear();
    QString error;
    auto loaded = noted(PropertyStore::load(file, numbers), error);
    EXPECT_EQ(loaded->get(office), Properties());
    loaded->set(office2, typed("changed"));
    EXPECT_TRUE(noted(loaded->save(file, numbers), error));
    numbers = {{office, 5}};
    EXPECT_EQ(load().get(office), typed("./P/Office"));
    EXPECT_EQ(load().get(officeAddr), typed("./P/Office/Addr"));
    EXPECT_EQ(load().get(office2), typed("changed"));
}

TEST_F(PropertyFile, TellsTheProfilesOfTwoStoresApart)
{
    numbers = {{office, 5}};
    save();
    numbers.store = QStringLiteral("other");
    EXPECT_EQ(load().get(office), Properties());
    store = load();
    store.set(office, typed("of the other"));
    save();
    EXPECT_EQ(load().get(office), typed("of the other"));
    numbers.store.clear();
    EXPECT_EQ(load().get(office), typed("./P/Office"));
}

TEST_F(PropertyFile, ForgetsAServerInTheListsOfProfilesThatNoNodeShows)
{
    QString error;
    Properties listed;
    listed.acl = *AccessControlList::parse("Get=a.example+b.example");
    store.set(office, listed);
    numbers = {{office, 5}};
    save();
    auto loaded = noted(PropertyStore::load(file, {}), error);
    loaded->forgetServer("a.example", AccessControlList());
    ASSERT_TRUE(noted(loaded->save(file, {}), error));
    EXPECT_EQ(load().get(office).acl->toText(), "Get=b.example");
}

TEST_F(PropertyFile, GivesUpProfilesThatNoNodeShowsBeforeItIsTooLarge)
{
    Properties large;
    QString error;
    large.acl = *AccessControlList::parse("Get=" + QByteArray(16000, 'x'));
    for (quint32 i = 0; i < 500; ++i) {
        const NodeUri node({"P", QByteArray::number(i)});
        store.set(node, large);
        numbers[node] = i;
    }
    save();
    auto loaded = noted(PropertyStore::load(file, {}), error);
    for (int i = 0; i < 600; ++i)
        loaded->set(NodeUri({"Q", QByteArray::number(i)}), large);
    ASSERT_TRUE(noted(loaded->save(file, {}), error)) << error.toStdString();
    EXPECT_EQ(load().get(NodeUri({"P", "1"})), Properties());
    EXPECT_EQ(load().get(NodeUri({"Q", "1"})), large);
}

TEST_F(PropertyFile, HasNoNodesBeneathARootBeforeItIsMounted)
{
    QString error;
    numbers = {{office, 5}};
    save();
    auto loaded = noted(PropertyStore::load(file, {}, {NodeUri({"P"})}), error);
    ASSERT_TRUE(loaded) << error.toStdString();
    EXPECT_EQ(loaded->get(office), Properties());
    EXPECT_EQ(loaded->get(office2), Properties());
    loaded->set(NodeUri({"Q"}), typed("changed"));
    ASSERT_TRUE(noted(loaded->save(file, {}), error)) << error.toStdString();
    EXPECT_EQ(load().get(officeAddr), typed("./P/Office/Addr"));

    loaded->resolve(NodeUri({"P"}), numbers);
    EXPECT_FALSE(loaded->isChanged());
    EXPECT_EQ(loaded->get(office), typed("./P/Office"));
    EXPECT_EQ(loaded->get(officeAddr), typed("./P/Office/Addr"));
    EXPECT_EQ(loaded->get(office2), typed("./P/Office2"));
    ASSERT_TRUE(noted(loaded->save(file, numbers), error)) << error.toStdString();
    EXPECT_EQ(load().get(office), typed("./P/Office"));
}

TEST_F(PropertyFile, ThatIsOutdatedBeneathARootIsSoWhenTheRootIsMounted)
{
    QString error;
    save();
    numbers = {{office, 5}};
    auto loaded = noted(PropertyStore::load(file, {}, {NodeUri({"P"})}), error);
    ASSERT_TRUE(loaded) << error.toStdString();
    EXPECT_FALSE(loaded->isChanged());
    loaded->resolve(NodeUri({"P"}), numbers);
    EXPECT_TRUE(loaded->isChanged());
}

TEST_F(PropertyFile, ForgetsAServerBeneathARootThatIsNotMounted)
{
    QString error;
    Properties listed;
    listed.acl = acl("Get=a.example+b.example");
    store.set(office, listed);
    store.set(office2, listed);
    numbers = {{office, 5}};
    save();
    auto loaded = noted(PropertyStore::load(file, {}, {NodeUri({"P"})}), error);
    loaded->forgetServer("a.example", AccessControlList());
    ASSERT_TRUE(noted(loaded->save(file, {}), error));
    EXPECT_EQ(load().get(office).acl->toText(), "Get=b.example");
    EXPECT_EQ(load().get(office2).acl->toText(), "Get=b.example");
}

TEST_F(PropertyFile, GivesUpNothingBeneathARootThatIsNotMounted)
{
    Properties large;
    QString error;
    large.acl = acl(("Get=" + QByteArray(16000, 'x')).constData());
    for (quint32 i = 0; i < 500; ++i) {
        const NodeUri node({"P", QByteArray::number(i)});
        store.set(node, large);
        numbers[node] = i;
    }
    save();
    auto loaded = noted(PropertyStore::load(file, {}, {NodeUri({"P"})}), error);
    ASSERT_TRUE(loaded) << error.toStdString();
    const auto other = [](int i) { return NodeUri({"Q", QByteArray::number(i)}); };
    int number = 0;
    for (; number < 600 && loaded->hasRoomFor(other(number), large); ++number)
        loaded->set(other(number), large);
    EXPECT_GT(number, 0);
    EXPECT_LT(number, 600);
    ASSERT_TRUE(noted(loaded->save(file, {}), error)) << error.toStdString();
    const PropertyStore after = load();
    for (const auto &[node, profile] : numbers)
        EXPECT_EQ(after.get(node), large) << profile;
}

TEST_F(PropertyFile, TakesANameThatLooksLikeANumberForAName)
{
    const NodeUri odd({"P", "#5"});
    store.set(odd, typed("name"));
    numbers = {{office, 5}};
    save();
    EXPECT_EQ(load().get(odd), typed("name"));
    EXPECT_EQ(load().get(office), typed("./P/Office"));
}

TEST_F(PropertyFile, OfAnEarlierVersionWithNamesOnlyIsTakenOverOnce)
{
    save();
    numbers = {{office, 5}};
    QString error;
    auto loaded = noted(PropertyStore::load(file, numbers), error);
    EXPECT_EQ(loaded->get(officeAddr), typed("./P/Office/Addr"));
    ASSERT_TRUE(noted(loaded->save(file, numbers), error));
    numbers = {{office, 7}};
    EXPECT_EQ(load().get(office), Properties());
}

TEST_F(PropertyFile, IsNotWrittenAnewWhenItsProfilesHaveTheirNumbers)
{
    numbers = {{office, 5}};
    save();
    QString error;
    auto loaded = noted(PropertyStore::load(file, numbers), error);
    EXPECT_TRUE(QFile::remove(file));
    EXPECT_TRUE(noted(loaded->save(file, numbers), error));
    EXPECT_FALSE(QFile::exists(file));
}

TEST_F(PropertyFile, ForgetsAServerAndANodeWithoutAMount)
{
    QString error;
    const NodeUri account({"DMAcc", "Old"});
    const auto withAcl = [&](const char *acl) {
        PropertyStore::Properties properties;
        properties.acl = *AccessControlList::parse(acl);
        return properties;
    };
    numbers = {{office, 5}};
    store.set(office, withAcl("Get=a+b&Replace=a"));
    store.set(NodeUri(), withAcl("Add=a&Get=*"));
    store.set(account.child("AppID"), typed("gone"));
    store.set(NodeUri({"DMAcc", "Older"}), typed("stays"));
    save();
    const AccessControlList rootAcl = *AccessControlList::parse("Add=*&Get=*");
    ASSERT_TRUE(noted(PropertyStore::forgetInFile(file, account, "a", rootAcl), error))
        << error.toStdString();
    const PropertyStore loaded = load();
    EXPECT_EQ(loaded.get(office), withAcl("Get=b"));
    EXPECT_EQ(loaded.get(NodeUri()), withAcl("Add=*&Get=*"));
    EXPECT_EQ(loaded.get(account.child("AppID")), Properties());
    EXPECT_EQ(loaded.get(NodeUri({"DMAcc", "Older"})), typed("stays"));

    ASSERT_TRUE(QFile::remove(file));
    EXPECT_TRUE(noted(PropertyStore::forgetInFile(file, account, "a", rootAcl), error));
    EXPECT_FALSE(QFile::exists(file));
    errorOf("{\"./A\": ");
    EXPECT_FALSE(noted(PropertyStore::forgetInFile(file, account, "a", rootAcl), error));
    EXPECT_TRUE(error.startsWith(file + QStringLiteral(": byte "))) << error.toStdString();
    errorOf("{\"./A\": {\"acl\": \"x\"}}");
    EXPECT_FALSE(noted(PropertyStore::forgetInFile(file, account, "a", rootAcl), error));
}

TEST_F(PropertyFile, MayBeMissing)
{
    EXPECT_EQ(load().get(office), Properties());
}

TEST_F(PropertyFile, SaysWhatIsWrongInItAndWhere)
{
    EXPECT_EQ(errorOf("{\"./A\": {"), "byte 9: unterminated object");
    EXPECT_EQ(errorOf("[]"), "byte 0: not a JSON object");
    EXPECT_EQ(errorOf("{\"./A/\": {}}"), "./A/ is not a node with properties");
    EXPECT_EQ(errorOf("{\"./P/#x\": {}}"), "./P/#x is not a node with properties");
    EXPECT_EQ(errorOf("{\"./P/#5/\": {}}"), "./P/#5/ is not a node with properties");
    EXPECT_EQ(errorOf("{\"./P//#5\": {}}"), "./P//#5 is not a node with properties");
    EXPECT_EQ(errorOf("{\"./A?prop=ACL\": {}}"), "./A?prop=ACL is not a node with properties");
    EXPECT_EQ(errorOf("{\"./A\": 5}"), "./A is not a node with properties");
    EXPECT_EQ(errorOf("{\"./A\": {\"colour\": \"red\"}}"),
              "./A: colour is not a property with a text");
    EXPECT_EQ(errorOf("{\"./A\": {\"title\": 5}}"), "./A: title is not a property with a text");
    EXPECT_EQ(errorOf("{\"./A\": {\"version\": \"65536\"}}"),
              "./A: version: \"65536\" is not a number from 0 to 65535");
    EXPECT_EQ(errorOf("{\"./A\": {\"changed\": \"soon\"}}"),
              "./A: changed: \"soon\" is not a time");
    EXPECT_EQ(errorOf("{\"./A\": {\"acl\": \"Read=*\"}}"),
              "./A: acl: \"Read=*\" does not begin with Add=, Delete=, Exec=, Get= or Replace=");
}

TEST_F(PropertyFile, IsDamagedByAPropertyThatNobodyCouldHaveGiven)
{
    const auto with = [](const char *name, const QByteArray &text) {
        return QByteArray("{\"./A\": {\"") + name + "\": \"" + text + "\"}}";
    };
    EXPECT_EQ(errorOf(with("type", QByteArray(256, 'x'))), "./A: type: more than 255 bytes");
    EXPECT_EQ(errorOf(with("title", QByteArray(256, 'x'))), "./A: title: more than 255 bytes");
    EXPECT_EQ(errorOf(with("acl", "Get=" + QByteArray(16381, 'x'))),
              "./A: acl: more than 16384 bytes");
}

TEST_F(PropertyFile, HasRoomForWhatItTakesAndCanAlwaysBeRead)
{
    PropertyStore::Properties large;
    large.title = QByteArray(PropertyStore::longestTitle, '\x01'); // six bytes each in a file
    QString error;
    large.acl = *AccessControlList::parse("Get=" + QByteArray(16000, 'x'));
    int number = 0;
    const auto next = [&] { return NodeUri({"P", QByteArray::number(number)}); };
    for (; number < 2000 && store.hasRoomFor(next(), large); ++number)
        store.set(next(), large);
    EXPECT_GT(number, 500);
    EXPECT_LT(number, 2000);
    const NodeUri last({"P", QByteArray::number(number - 1)});
    EXPECT_TRUE(store.hasRoomFor(last, large)) << "what it has it may have";
    EXPECT_TRUE(store.hasRoomFor(last, typed("small")));
    save();
    EXPECT_LE(QFileInfo(file).size(), 12 * 1024 * 1024);
    EXPECT_EQ(load().get(last), large);

    store.move(last, NodeUri({"P", "Moved"}));
    store.remove(NodeUri({"P", "Moved"}));
    EXPECT_TRUE(store.hasRoomFor(next(), large));
    store.keepOnly([](const NodeUri &) { return false; });
    int more = 0;
    for (; more < 2000 && store.hasRoomFor(NodeUri({"P", QByteArray::number(more)}), large); ++more)
        store.set(NodeUri({"P", QByteArray::number(more)}), large);
    EXPECT_EQ(more, number) << "what goes makes room";
}

TEST_F(PropertyFile, NotesOfChangesTakeRoom)
{
    const QDateTime now = QDateTime::currentDateTimeUtc();
    constexpr int tooMany = 100'000;
    int number = 0;
    const auto next = [&] { return NodeUri({"P", QByteArray::number(number)}); };
    for (; number < tooMany && store.hasRoomFor(next(), typed("small")); ++number)
        store.noteChange(next(), now);
    EXPECT_LT(number, tooMany);
    EXPECT_EQ(store.get(NodeUri({"P", "0"})).version, 1);
    save();
    EXPECT_LE(QFileInfo(file).size(), 12 * 1024 * 1024);
    store.remove(NodeUri({"P"}));
    EXPECT_TRUE(store.hasRoomFor(next(), typed("small")));
}

TEST_F(PropertyFile, ThatWouldBeTooLargeIsNotWritten)
{
    store.set(office, typed("old"));
    save();
    PropertyStore::Properties large;
    QString error;
    large.acl = *AccessControlList::parse("Get=" + QByteArray(16000, 'x'));
    for (int i = 0; i < 1100; ++i)
        store.set(NodeUri({"P", QByteArray::number(i)}), large);
    EXPECT_FALSE(noted(store.save(file, numbers), error));
    EXPECT_EQ(error,
              QStringLiteral("cannot write %1: it would be larger than 16777216 bytes").arg(file));
    EXPECT_EQ(load().get(office), typed("old"));
}

TEST_F(PropertyFile, ThatCannotBeReadOrWrittenIsReported)
{
    QString error;
    const QString folder = directory.filePath(QStringLiteral("folder"));
    ASSERT_TRUE(QDir().mkdir(folder));
    EXPECT_FALSE(noted(PropertyStore::load(folder, {}), error));
    EXPECT_TRUE(error.startsWith(QStringLiteral("cannot use ") + folder));
    EXPECT_FALSE(
        noted(store.save(directory.filePath(QStringLiteral("no/such/folder")), {}), error));
    EXPECT_TRUE(error.startsWith(QStringLiteral("cannot write ")));
}

} // namespace

} // namespace client
