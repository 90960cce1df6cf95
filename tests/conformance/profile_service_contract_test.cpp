// What any implementation of the profile service promises its callers, asked through its calls. The
// service under test is the one that this program is linked with; KUB_STATE_DIR and whatever else
// the service reads from the environment choose its store, by default one in a temporary directory.
// Every profile in that store is deleted.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <QProcess>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "napi.h"

namespace {

constexpr unsigned int maximum = 40; // KUB_NAPI_MAX of this program
constexpr char poison = '\x5A';

std::vector<std::string> listedNames(unsigned int capacity)
{
    std::vector<char> slots(std::size_t{capacity} * NAPI_NAME_SIZE, poison);
    unsigned int count = capacity;
    EXPECT_EQ(NAPI_ListAllProfile(slots.data(), &count), NAPI_OK);
    EXPECT_LE(count, capacity);
    std::vector<std::string> names;
    for (unsigned int index = 0; index < count; ++index)
        names.emplace_back(&slots[std::size_t{index} * NAPI_NAME_SIZE]);
    return names;
}

unsigned int profileCount()
{
    unsigned int count = 0xFFFFFFFF;
    EXPECT_EQ(NAPI_ListAllProfile(nullptr, &count), NAPI_OK);
    return count;
}

/// Puts a text of packet data into a record: letters and digits of the length, then a terminator
/// where there is room for one. The bytes after it stay.
template <std::size_t size>
void setPlainText(char (&field)[size], std::mt19937 &generator, std::size_t length)
{
    constexpr std::string_view characters =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    for (std::size_t index = 0; index < length; ++index)
        field[index] = characters[generator() % characters.size()];
    if (length < size)
        field[length] = '\0';
}

/// @return a record of any bytes, but with packet data of plain texts: a service may refuse others,
///         because it may hand them to a modem.
NAP_PROFILE_S patternRecord(unsigned int seed)
{
    constexpr std::size_t longestAccessPointName = 64;
    std::mt19937 generator(seed);
    NAP_PROFILE_S record;
    auto *bytes = reinterpret_cast<unsigned char *>(&record);
    for (std::size_t index = 0; index < sizeof record; ++index)
        bytes[index] = static_cast<unsigned char>(generator());
    setPlainText(record.gprsAddress, generator, generator() % (longestAccessPointName + 1));
    setPlainText(record.gprsAuthId, generator, generator() % (sizeof record.gprsAuthId + 1));
    setPlainText(record.gprsAuthPassword, generator,
                 generator() % (sizeof record.gprsAuthPassword + 1));
    return record;
}

NAP_PROFILE_S recordOfOnes()
{
    std::mt19937 generator(1);
    NAP_PROFILE_S record;
    std::memset(&record, 0xFF, sizeof record);
    setPlainText(record.gprsAddress, generator, 64);
    setPlainText(record.gprsAuthId, generator, sizeof record.gprsAuthId);
    setPlainText(record.gprsAuthPassword, generator, sizeof record.gprsAuthPassword);
    return record;
}

bool isSame(const NAP_PROFILE_S &one, const NAP_PROFILE_S &other)
{
    return std::memcmp(&one, &other, sizeof one) == 0;
}

unsigned int idOf(const std::string &name)
{
    unsigned int id = 0;
    EXPECT_EQ(NAPI_GetProfileIDByName(name.c_str(), &id), NAPI_OK) << name;
    return id;
}

std::string nameOf(unsigned int id)
{
    char name[NAPI_NAME_SIZE];
    std::memset(name, poison, sizeof name);
    EXPECT_EQ(NAPI_GetProfileNameByID(id, name), NAPI_OK) << id;
    return std::string(name, strnlen(name, sizeof name));
}

int create(const std::string &name)
{
    const NAP_PROFILE_S record = {};
    return NAPI_CreateProfile(name.c_str(), &record, 0, 0);
}

class ProfileServiceContract : public testing::Test {
protected:
    void SetUp() override
    {
        for (const std::string &name : listedNames(1000))
            ASSERT_EQ(NAPI_DeleteProfile(name.c_str()), NAPI_OK) << name;
    }
};

TEST_F(ProfileServiceContract, EmptyStoreListsNothing)
{
    EXPECT_EQ(profileCount(), 0U);
    EXPECT_TRUE(listedNames(5).empty());
    unsigned int count = 0;
    char slot = poison;
    EXPECT_EQ(NAPI_ListAllProfile(&slot, &count), NAPI_OK);
    EXPECT_EQ(count, 0U);
    EXPECT_EQ(slot, poison);
}

TEST_F(ProfileServiceContract, RecordComesBackByteForByte)
{
    std::vector<NAP_PROFILE_S> records = {{}, recordOfOnes()};
    for (unsigned int seed = 100; seed < 120; ++seed)
        records.push_back(patternRecord(seed));
    for (const NAP_PROFILE_S &record : records) {
        ASSERT_EQ(NAPI_CreateProfile("Office", &record, 0, 0), NAPI_OK);
        NAP_PROFILE_S read = patternRecord(3);
        ASSERT_EQ(NAPI_ReadProfile("Office", &read, 0, 0), NAPI_OK);
        EXPECT_TRUE(isSame(read, record));
        ASSERT_EQ(NAPI_DeleteProfile("Office"), NAPI_OK);
    }
}

TEST_F(ProfileServiceContract, ModifyReplacesTheRecordOfThatProfileOnly)
{
    ASSERT_EQ(create("Office"), NAPI_OK);
    ASSERT_EQ(create("Home"), NAPI_OK);
    const unsigned int id = idOf("Office");
    const NAP_PROFILE_S record = patternRecord(4);
    ASSERT_EQ(NAPI_ModifyProfile("Office", &record, 0, 0), NAPI_OK);
    NAP_PROFILE_S read = {};
    ASSERT_EQ(NAPI_ReadProfile("Office", &read, 0, 0), NAPI_OK);
    EXPECT_TRUE(isSame(read, record));
    ASSERT_EQ(NAPI_ReadProfile("Home", &read, 0, 0), NAPI_OK);
    EXPECT_TRUE(isSame(read, NAP_PROFILE_S{}));
    EXPECT_EQ(idOf("Office"), id);
    ASSERT_EQ(NAPI_ModifyProfile("Office", &record, 0, 0), NAPI_OK) << "the same record again";
}

TEST_F(ProfileServiceContract, EachRecordCanFollowEachOther)
{
    std::vector<NAP_PROFILE_S> records = {{}, recordOfOnes()};
    for (unsigned int seed = 200; seed < 206; ++seed)
        records.push_back(patternRecord(seed));
    ASSERT_EQ(create("Office"), NAPI_OK);
    for (const NAP_PROFILE_S &first : records) {
        for (const NAP_PROFILE_S &second : records) {
            ASSERT_EQ(NAPI_ModifyProfile("Office", &first, 0, 0), NAPI_OK);
            ASSERT_EQ(NAPI_ModifyProfile("Office", &second, 0, 0), NAPI_OK);
            NAP_PROFILE_S read = {};
            ASSERT_EQ(NAPI_ReadProfile("Office", &read, 0, 0), NAPI_OK);
            EXPECT_TRUE(isSame(read, second));
        }
    }
}

TEST_F(ProfileServiceContract, ServersOfPacketDataKeepTheirPlaces)
{
    constexpr std::uint32_t addresses[] = {0, 0x01020304, 0x0A000001, 0xFFFFFFFF};
    ASSERT_EQ(create("Office"), NAPI_OK);
    NAP_PROFILE_S record = {};
    for (const std::uint32_t first : addresses) {
        for (const std::uint32_t second : addresses) {
            record.gprsDns1 = first;
            record.gprsDns2 = second;
            ASSERT_EQ(NAPI_ModifyProfile("Office", &record, 0, 0), NAPI_OK);
            NAP_PROFILE_S read = {};
            ASSERT_EQ(NAPI_ReadProfile("Office", &read, 0, 0), NAPI_OK);
            EXPECT_EQ(read.gprsDns1, first);
            EXPECT_EQ(read.gprsDns2, second);
        }
    }
}

TEST_F(ProfileServiceContract, NamesAndIdsLeadToEachOther)
{
    const std::vector<std::string> names = {
        "Office", "Home", "\xD9\x87\xD9\x85\xD8\xB1", "a~b", "%41", " blank ", "PX1"};
    std::set<unsigned int> ids;
    for (const std::string &name : names) {
        ASSERT_EQ(create(name), NAPI_OK) << name;
        ids.insert(idOf(name));
        EXPECT_EQ(nameOf(idOf(name)), name);
        EXPECT_EQ(NAPI_IsProfileValid(name.c_str()), NAPI_OK);
    }
    EXPECT_EQ(ids.size(), names.size());
    EXPECT_FALSE(ids.contains(0U));
}

TEST_F(ProfileServiceContract, ListIsInTheOrderOfTheIds)
{
    const std::vector<std::string> names = {"zebra", "Apple", "mango", "apple"};
    for (const std::string &name : names)
        ASSERT_EQ(create(name), NAPI_OK);
    EXPECT_EQ(listedNames(10), names);
    ASSERT_EQ(NAPI_DeleteProfile("zebra"), NAPI_OK);
    ASSERT_EQ(create("zebra"), NAPI_OK);
    EXPECT_EQ(listedNames(10), (std::vector<std::string>{"Apple", "mango", "apple", "zebra"}));
    std::vector<unsigned int> ids;
    for (const std::string &name : listedNames(10))
        ids.push_back(idOf(name));
    EXPECT_TRUE(std::is_sorted(ids.begin(), ids.end()));
}

TEST_F(ProfileServiceContract, ListNeverWritesPastItsCapacity)
{
    for (const char *name : {"one", "two", "three"})
        ASSERT_EQ(create(name), NAPI_OK);
    for (unsigned int capacity = 0; capacity <= 4; ++capacity) {
        std::vector<char> slots(std::size_t{5} * NAPI_NAME_SIZE, poison);
        unsigned int count = capacity;
        ASSERT_EQ(NAPI_ListAllProfile(slots.data(), &count), NAPI_OK);
        EXPECT_EQ(count, std::min(capacity, 3U));
        const auto unused = slots.begin() + static_cast<long>(std::size_t{count} * NAPI_NAME_SIZE);
        EXPECT_TRUE(std::all_of(unused, slots.end(), [](char byte) { return byte == poison; }));
    }
}

TEST_F(ProfileServiceContract, NameOf63BytesFillsItsSlot)
{
    const std::string longest(63, 'n');
    ASSERT_EQ(create(longest), NAPI_OK);
    EXPECT_EQ(listedNames(1), std::vector<std::string>{longest});
    EXPECT_EQ(nameOf(idOf(longest)), longest);
}

TEST_F(ProfileServiceContract, NamesThatHoldAReservedOneAreNames)
{
    const std::vector<std::string> names = {"...", "..~", ".profile", "a.", "**", "* *", "-"};
    for (const std::string &name : names)
        EXPECT_EQ(create(name), NAPI_OK) << name;
    EXPECT_EQ(listedNames(static_cast<unsigned int>(names.size())), names);
}

TEST_F(ProfileServiceContract, BadNamesAreRefusedByEveryCall)
{
    const std::string badNames[] = {
        "",
        std::string(64, 'n'),
        std::string(65, 'n'),
        std::string(100000, 'n'),
        "Office/Home", // the paths of a management tree are split at slashes
        "/",
        "Office/",
        ".", // and these are not names in them
        "..",
        "*",
        "\xFF",
        "caf\xE9",
        "\xC0\x80",
        "\xED\xA0\x80",
        "\xF4\x90\x80\x80",
        "\xE2\x82",
        "\xF0\x8F\xBF\xBF",
        std::string(62, 'n') + "\xC3\xA9", // cut at 63 bytes it would end inside a character
    };
    for (const std::string &name : badNames) {
        NAP_PROFILE_S record = patternRecord(5);
        unsigned int id = 0x5A5A5A5A;
        EXPECT_EQ(create(name), NAPI_ERROR_BAD_NAME);
        EXPECT_EQ(NAPI_ReadProfile(name.c_str(), &record, 0, 0), NAPI_ERROR_BAD_NAME);
        EXPECT_EQ(NAPI_ModifyProfile(name.c_str(), &record, 0, 0), NAPI_ERROR_BAD_NAME);
        EXPECT_EQ(NAPI_DeleteProfile(name.c_str()), NAPI_ERROR_BAD_NAME);
        EXPECT_EQ(NAPI_GetProfileIDByName(name.c_str(), &id), NAPI_ERROR_BAD_NAME);
        EXPECT_EQ(NAPI_IsProfileValid(name.c_str()), NAPI_ERROR_BAD_NAME);
        EXPECT_TRUE(isSame(record, patternRecord(5)));
        EXPECT_EQ(id, 0x5A5A5A5AU);
    }
    EXPECT_EQ(profileCount(), 0U);
}

TEST_F(ProfileServiceContract, EveryKindOfUtf8CharacterIsAGoodName)
{
    for (const char *name :
         {"\x01", "\x7F", "\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xED\x9F\xBF", "\xEE\x80\x80",
          "\xEF\xBF\xBF", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"}) {
        EXPECT_EQ(create(name), NAPI_OK) << name;
        EXPECT_EQ(nameOf(idOf(name)), name);
    }
}

TEST_F(ProfileServiceContract, UnknownNamesAndIdsAreNotFoundAndOutputsStay)
{
    ASSERT_EQ(create("Office"), NAPI_OK);
    const unsigned int unknownId = idOf("Office") + 1;
    NAP_PROFILE_S record = patternRecord(6);
    unsigned int id = 0x5A5A5A5A;
    char name[NAPI_NAME_SIZE] = "kept";
    for (const char *unknown : {"office", "Offic", "Office ", "Home"}) {
        EXPECT_EQ(NAPI_ReadProfile(unknown, &record, 0, 0), NAPI_ERROR_NOT_FOUND);
        EXPECT_EQ(NAPI_ModifyProfile(unknown, &record, 0, 0), NAPI_ERROR_NOT_FOUND);
        EXPECT_EQ(NAPI_DeleteProfile(unknown), NAPI_ERROR_NOT_FOUND);
        EXPECT_EQ(NAPI_GetProfileIDByName(unknown, &id), NAPI_ERROR_NOT_FOUND);
        EXPECT_EQ(NAPI_IsProfileValid(unknown), NAPI_ERROR_NOT_FOUND);
    }
    for (const unsigned int absent : {0U, unknownId, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU})
        EXPECT_EQ(NAPI_GetProfileNameByID(absent, name), NAPI_ERROR_NOT_FOUND);
    EXPECT_TRUE(isSame(record, patternRecord(6)));
    EXPECT_EQ(id, 0x5A5A5A5AU);
    EXPECT_STREQ(name, "kept");
    EXPECT_EQ(profileCount(), 1U);
}

TEST_F(ProfileServiceContract, NullPointersAreRefused)
{
    NAP_PROFILE_S record = {};
    unsigned int number = 0;
    char slot[NAPI_NAME_SIZE] = {};
    EXPECT_EQ(NAPI_ListAllProfile(nullptr, nullptr), NAPI_ERROR_BAD_ARGUMENT);
    EXPECT_EQ(NAPI_ListAllProfile(slot, nullptr), NAPI_ERROR_BAD_ARGUMENT);
    EXPECT_EQ(NAPI_ReadProfile(nullptr, &record, 0, 0), NAPI_ERROR_BAD_ARGUMENT);
    EXPECT_EQ(NAPI_ReadProfile("Office", nullptr, 0, 0), NAPI_ERROR_BAD_ARGUMENT);
    EXPECT_EQ(NAPI_ModifyProfile(nullptr, &record, 0, 0), NAPI_ERROR_BAD_ARGUMENT);
    EXPECT_EQ(NAPI_ModifyProfile("Office", nullptr, 0, 0), NAPI_ERROR_BAD_ARGUMENT);
    EXPECT_EQ(NAPI_CreateProfile(nullptr, &record, 0, 0), NAPI_ERROR_BAD_ARGUMENT);
    EXPECT_EQ(NAPI_CreateProfile("Office", nullptr, 0, 0), NAPI_ERROR_BAD_ARGUMENT);
    EXPECT_EQ(NAPI_DeleteProfile(nullptr), NAPI_ERROR_BAD_ARGUMENT);
    EXPECT_EQ(NAPI_GetProfileIDByName(nullptr, &number), NAPI_ERROR_BAD_ARGUMENT);
    EXPECT_EQ(NAPI_GetProfileIDByName("Office", nullptr), NAPI_ERROR_BAD_ARGUMENT);
    EXPECT_EQ(NAPI_GetProfileNameByID(1, nullptr), NAPI_ERROR_BAD_ARGUMENT);
    EXPECT_EQ(NAPI_IsProfileValid(nullptr), NAPI_ERROR_BAD_ARGUMENT);
}

TEST_F(ProfileServiceContract, TakenNameIsRefusedAndItsProfileKept)
{
    const NAP_PROFILE_S first = patternRecord(7);
    const NAP_PROFILE_S second = patternRecord(8);
    ASSERT_EQ(NAPI_CreateProfile("Office", &first, 0, 0), NAPI_OK);
    EXPECT_EQ(NAPI_CreateProfile("Office", &second, 0, 0), NAPI_ERROR_EXISTS);
    NAP_PROFILE_S read = {};
    ASSERT_EQ(NAPI_ReadProfile("Office", &read, 0, 0), NAPI_OK);
    EXPECT_TRUE(isSame(read, first));
    EXPECT_EQ(profileCount(), 1U);
}

TEST_F(ProfileServiceContract, DeletedProfileIsGone)
{
    ASSERT_EQ(create("Office"), NAPI_OK);
    const unsigned int id = idOf("Office");
    ASSERT_EQ(NAPI_DeleteProfile("Office"), NAPI_OK);
    char name[NAPI_NAME_SIZE] = "kept";
    EXPECT_EQ(NAPI_GetProfileNameByID(id, name), NAPI_ERROR_NOT_FOUND);
    EXPECT_EQ(NAPI_IsProfileValid("Office"), NAPI_ERROR_NOT_FOUND);
    EXPECT_EQ(NAPI_DeleteProfile("Office"), NAPI_ERROR_NOT_FOUND);
    EXPECT_EQ(profileCount(), 0U);
}

TEST_F(ProfileServiceContract, IdsAreNeverUsedAgain)
{
    unsigned int last = 0;
    for (int round = 0; round < 5; ++round) {
        ASSERT_EQ(create("Office"), NAPI_OK);
        const unsigned int id = idOf("Office");
        EXPECT_GT(id, last);
        last = id;
        EXPECT_EQ(create("Office"), NAPI_ERROR_EXISTS);
        ASSERT_EQ(NAPI_DeleteProfile("Office"), NAPI_OK);
    }
}

TEST_F(ProfileServiceContract, FullStoreTakesNoMoreUntilOneIsDeleted)
{
    ASSERT_EQ(NAPI_GetMaxProfiles(), static_cast<int>(maximum));
    for (unsigned int index = 0; index < maximum; ++index)
        ASSERT_EQ(create("profile " + std::to_string(index)), NAPI_OK);
    EXPECT_EQ(create("one too many"), NAPI_ERROR_STORE_FULL);
    EXPECT_EQ(create("profile 0"), NAPI_ERROR_EXISTS);
    EXPECT_EQ(profileCount(), maximum);
    ASSERT_EQ(NAPI_DeleteProfile("profile 7"), NAPI_OK);
    EXPECT_EQ(create("one too many"), NAPI_OK);
}

TEST_F(ProfileServiceContract, ChangesOfAnotherProcessAreSeenAtOnce)
{
    ASSERT_EQ(create("here"), NAPI_OK);
    const QString writer = QStringLiteral(KUB_WRITER_PROGRAM);
    ASSERT_EQ(QProcess::execute(writer, {QStringLiteral("there"), QStringLiteral("2")}), 0);
    EXPECT_EQ(listedNames(10), (std::vector<std::string>{"here", "there0", "there1"}));
    EXPECT_EQ(NAPI_DeleteProfile("there0"), NAPI_OK);
}

TEST_F(ProfileServiceContract, ProcessesThatWriteAtTheSameTimeLoseNothing)
{
    constexpr int perWriter = 8;
    const char *prefixes[] = {"alpha", "beta", "gamma", "delta"};
    std::vector<std::unique_ptr<QProcess>> writers;
    for (const char *prefix : prefixes) {
        writers.push_back(std::make_unique<QProcess>());
        writers.back()->setProcessChannelMode(QProcess::ForwardedChannels);
        writers.back()->start(QStringLiteral(KUB_WRITER_PROGRAM),
                              {QString::fromLatin1(prefix), QString::number(perWriter)});
    }
    for (int index = 0; index < perWriter; ++index)
        EXPECT_EQ(create("own" + std::to_string(index)), NAPI_OK);
    for (const auto &writer : writers) {
        ASSERT_TRUE(writer->waitForFinished(60000));
        EXPECT_EQ(writer->exitStatus(), QProcess::NormalExit);
        EXPECT_EQ(writer->exitCode(), 0);
    }
    const std::vector<std::string> names = listedNames(maximum);
    EXPECT_EQ(std::set<std::string>(names.begin(), names.end()).size(), 5U * perWriter);
    std::set<unsigned int> ids;
    for (const std::string &name : names)
        ids.insert(idOf(name));
    EXPECT_EQ(ids.size(), names.size());
}

} // namespace

int main(int argc, char *argv[])
{
    testing::InitGoogleTest(&argc, argv);
    const QTemporaryDir directory;
    if (!qEnvironmentVariableIsSet("KUB_STATE_DIR"))
        qputenv("KUB_STATE_DIR", directory.path().toUtf8());
    qputenv("KUB_NAPI_MAX", QByteArray::number(maximum));
    return RUN_ALL_TESTS();
}
