// The profile service tells whoever listens of every call, whichever store is behind it. Every
// profile of the store is deleted.
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "heap_count.h"
#include "napi.h"
#include "profile_call_observer.h"

extern "C" call_observer::SetProfileCallObserver kub_napi_set_call_observer;

namespace {

using call_observer::ProfileCall;

constexpr unsigned int maximum = 2; // KUB_NAPI_MAX of this program

std::optional<NAP_PROFILE_S> copied(const NAP_PROFILE_S *record)
{
    return record ? std::optional(*record) : std::nullopt;
}

/// A call as it was told, with copies of what it pointed to.
struct Heard {
    explicit Heard(const ProfileCall &call)
        : function(call.function), profile(call.profile), id(call.id), count(call.count),
          status(call.status), reason(call.reason), duration(call.duration),
          before(copied(call.before)), after(copied(call.after))
    {
    }

    std::string function;
    std::string profile;
    std::optional<std::uint32_t> id;
    std::optional<std::uint32_t> count;
    int status;
    std::string reason;
    std::chrono::nanoseconds duration;
    std::optional<NAP_PROFILE_S> before;
    std::optional<NAP_PROFILE_S> after;
};

class Listener : public call_observer::ProfileCallObserver {
public:
    bool wantsRecords() const override { return records; }
    bool observe(const ProfileCall &call) noexcept override
    {
        if (costs::counting)
            return showsReasons;
        calls.emplace_back(call);
        if (whenCalled)
            whenCalled();
        return showsReasons;
    }

    /// The one call since the last time.
    Heard takeOnly()
    {
        EXPECT_EQ(calls.size(), 1U);
        const Heard only = calls.empty() ? Heard({.function = "none"}) : calls.front();
        calls.clear();
        return only;
    }

    bool records = true;
    bool showsReasons = true;
    std::function<void()> whenCalled;
    std::vector<Heard> calls;
};

NAP_PROFILE_S recordOf(const char *address)
{
    NAP_PROFILE_S record = {};
    std::strcpy(record.gprsAddress, address);
    return record;
}

bool isSame(const std::optional<NAP_PROFILE_S> &one, const NAP_PROFILE_S &other)
{
    return one && std::memcmp(&*one, &other, sizeof other) == 0;
}

unsigned int idOf(const char *name)
{
    unsigned int id = 0;
    EXPECT_EQ(NAPI_GetProfileIDByName(name, &id), NAPI_OK);
    return id;
}

class ProfileCallObserverTest : public testing::Test {
protected:
    void SetUp() override
    {
        char names[64][NAPI_NAME_SIZE];
        unsigned int count = std::size(names);
        ASSERT_EQ(NAPI_ListAllProfile(names[0], &count), NAPI_OK);
        for (unsigned int index = 0; index < count; ++index)
            ASSERT_EQ(NAPI_DeleteProfile(names[index]), NAPI_OK);
        ASSERT_EQ(NAPI_CreateProfile("Office", &m_stored, 0, 0), NAPI_OK);
        m_id = idOf("Office");
        kub_napi_set_call_observer(&m_listener);
    }
    void TearDown() override { kub_napi_set_call_observer(nullptr); }

    const NAP_PROFILE_S m_stored = recordOf("stored.example");
    const NAP_PROFILE_S m_given = recordOf("given.example");
    unsigned int m_id = 0;
    Listener m_listener;
};

TEST_F(ProfileCallObserverTest, ListTellsHowManyItCountedAndHowManyItListed)
{
    unsigned int count = 0;
    ASSERT_EQ(NAPI_ListAllProfile(nullptr, &count), NAPI_OK);
    const Heard counted = m_listener.takeOnly();
    EXPECT_EQ(counted.function, "NAPI_ListAllProfile");
    EXPECT_EQ(counted.count, 1U);
    EXPECT_EQ(counted.status, NAPI_OK);

    char names[5][NAPI_NAME_SIZE];
    count = std::size(names);
    ASSERT_EQ(NAPI_ListAllProfile(names[0], &count), NAPI_OK);
    EXPECT_EQ(m_listener.takeOnly().count, 1U);
}

TEST_F(ProfileCallObserverTest, ReadTellsTheRecordAndItsProfile)
{
    NAP_PROFILE_S record;
    ASSERT_EQ(NAPI_ReadProfile("Office", &record, 0, 0), NAPI_OK);
    const Heard call = m_listener.takeOnly();
    EXPECT_EQ(call.function, "NAPI_ReadProfile");
    EXPECT_EQ(call.profile, "Office");
    EXPECT_EQ(call.id, m_id);
    EXPECT_FALSE(call.before);
    EXPECT_TRUE(isSame(call.after, m_stored));
    EXPECT_TRUE(call.reason.empty());
    EXPECT_GT(call.duration.count(), 0);
}

TEST_F(ProfileCallObserverTest, ModifyTellsTheRecordBeforeAndAfter)
{
    ASSERT_EQ(NAPI_ModifyProfile("Office", &m_given, 0, 0), NAPI_OK);
    const Heard call = m_listener.takeOnly();
    EXPECT_EQ(call.function, "NAPI_ModifyProfile");
    EXPECT_EQ(call.profile, "Office");
    EXPECT_EQ(call.id, m_id);
    EXPECT_TRUE(isSame(call.before, m_stored));
    EXPECT_TRUE(isSame(call.after, m_given));
}

TEST_F(ProfileCallObserverTest, CreateTellsTheRecordAndTheNewId)
{
    ASSERT_EQ(NAPI_CreateProfile("Home", &m_given, 0, 0), NAPI_OK);
    const Heard call = m_listener.takeOnly();
    EXPECT_EQ(call.function, "NAPI_CreateProfile");
    EXPECT_EQ(call.profile, "Home");
    EXPECT_EQ(call.id, idOf("Home"));
    EXPECT_FALSE(call.before);
    EXPECT_TRUE(isSame(call.after, m_given));
}

TEST_F(ProfileCallObserverTest, DeleteTellsTheRecordThatWent)
{
    ASSERT_EQ(NAPI_DeleteProfile("Office"), NAPI_OK);
    const Heard call = m_listener.takeOnly();
    EXPECT_EQ(call.function, "NAPI_DeleteProfile");
    EXPECT_EQ(call.profile, "Office");
    EXPECT_EQ(call.id, m_id);
    EXPECT_TRUE(isSame(call.before, m_stored));
    EXPECT_FALSE(call.after);
}

TEST_F(ProfileCallObserverTest, QuestionsTellNameAndId)
{
    unsigned int id = 0;
    ASSERT_EQ(NAPI_GetProfileIDByName("Office", &id), NAPI_OK);
    Heard call = m_listener.takeOnly();
    EXPECT_EQ(call.function, "NAPI_GetProfileIDByName");
    EXPECT_EQ(call.profile, "Office");
    EXPECT_EQ(call.id, m_id);

    char name[NAPI_NAME_SIZE];
    ASSERT_EQ(NAPI_GetProfileNameByID(m_id, name), NAPI_OK);
    call = m_listener.takeOnly();
    EXPECT_EQ(call.function, "NAPI_GetProfileNameByID");
    EXPECT_EQ(call.profile, "Office");
    EXPECT_EQ(call.id, m_id);

    ASSERT_EQ(NAPI_IsProfileValid("Office"), NAPI_OK);
    call = m_listener.takeOnly();
    EXPECT_EQ(call.function, "NAPI_IsProfileValid");
    EXPECT_EQ(call.profile, "Office");

    ASSERT_EQ(NAPI_GetMaxProfiles(), static_cast<int>(maximum));
    call = m_listener.takeOnly();
    EXPECT_EQ(call.function, "NAPI_GetMaxProfiles");
    EXPECT_EQ(call.count, maximum);
}

TEST_F(ProfileCallObserverTest, FailureCarriesItsSentence)
{
    NAP_PROFILE_S record;
    EXPECT_EQ(NAPI_ReadProfile("Nobody", &record, 0, 0), NAPI_ERROR_NOT_FOUND);
    Heard call = m_listener.takeOnly();
    EXPECT_EQ(call.profile, "Nobody");
    EXPECT_EQ(call.status, NAPI_ERROR_NOT_FOUND);
    EXPECT_NE(call.reason.find("has no "), std::string::npos) << call.reason;
    EXPECT_FALSE(call.after);

    EXPECT_EQ(NAPI_CreateProfile("Office", &m_given, 0, 0), NAPI_ERROR_EXISTS);
    call = m_listener.takeOnly();
    EXPECT_NE(call.reason.find("of that name already"), std::string::npos) << call.reason;
    EXPECT_FALSE(call.id);
    EXPECT_FALSE(call.after);

    EXPECT_EQ(NAPI_ReadProfile("Office/Home", &record, 0, 0), NAPI_ERROR_BAD_NAME);
    call = m_listener.takeOnly();
    EXPECT_EQ(call.profile, "Office/Home");
    EXPECT_EQ(call.status, NAPI_ERROR_BAD_NAME);
    EXPECT_NE(call.reason.find("profile name"), std::string::npos) << call.reason;

    EXPECT_EQ(NAPI_ModifyProfile("Office", nullptr, 0, 0), NAPI_ERROR_BAD_ARGUMENT);
    call = m_listener.takeOnly();
    EXPECT_EQ(call.function, "NAPI_ModifyProfile");
    EXPECT_EQ(call.reason, "a call got a null pointer");

    ASSERT_EQ(NAPI_CreateProfile("Home", &m_given, 0, 0), NAPI_OK);
    m_listener.calls.clear();
    EXPECT_EQ(NAPI_CreateProfile("One more", &m_given, 0, 0), NAPI_ERROR_STORE_FULL);
    call = m_listener.takeOnly();
    EXPECT_EQ(call.status, NAPI_ERROR_STORE_FULL);
    EXPECT_FALSE(call.reason.empty());
}

TEST_F(ProfileCallObserverTest, ValueThatTheStoreRefusesIsExplained)
{
    if (qgetenv("KUB_NAPI_BACKEND") != "networkmanager")
        GTEST_SKIP() << "the other store takes any";
    const NAP_PROFILE_S refused = recordOf("two words");
    EXPECT_EQ(NAPI_ModifyProfile("Office", &refused, 0, 0), NAPI_ERROR_VALUE_REFUSED);
    const Heard call = m_listener.takeOnly();
    EXPECT_NE(call.reason.find("'two words'"), std::string::npos) << call.reason;
    EXPECT_TRUE(isSame(call.before, m_stored));
    EXPECT_FALSE(call.after);
}

TEST_F(ProfileCallObserverTest, ListenerThatWantsNoRecordsCausesNoReading)
{
    m_listener.records = false;
    ASSERT_EQ(NAPI_ModifyProfile("Office", &m_given, 0, 0), NAPI_OK);
    const Heard call = m_listener.takeOnly();
    EXPECT_EQ(call.profile, "Office");
    EXPECT_FALSE(call.id);
    EXPECT_FALSE(call.before);
    EXPECT_TRUE(isSame(call.after, m_given)) << "the caller's own";
}

TEST_F(ProfileCallObserverTest, TellingOfACallTakesNothingFromTheHeap)
{
    if (!costs::CountsAllocations())
        GTEST_SKIP() << "the sanitizer has the heap";
    if (qgetenv("KUB_NAPI_BACKEND") == "networkmanager")
        GTEST_SKIP() << "threads of the bus use it, too";
    const auto allocations = [this](call_observer::ProfileCallObserver *observer) {
        kub_napi_set_call_observer(observer);
        NAP_PROFILE_S record;
        const std::uint64_t before = costs::AllocationsNow();
        costs::counting = true;
        EXPECT_EQ(NAPI_ReadProfile("Office", &record, 0, 0), NAPI_OK);
        EXPECT_EQ(NAPI_ModifyProfile("Office", &m_given, 0, 0), NAPI_OK);
        EXPECT_EQ(NAPI_IsProfileValid("Nobody"), NAPI_ERROR_NOT_FOUND);
        costs::counting = false;
        return costs::AllocationsNow() - before;
    };
    m_listener.records = false;
    allocations(nullptr); // what the store keeps for later calls
    const std::uint64_t unheard = allocations(nullptr);
    EXPECT_EQ(allocations(&m_listener), unheard);
    m_listener.records = true;
    EXPECT_GT(allocations(&m_listener), unheard) << "reading a record does";
}

TEST_F(ProfileCallObserverTest, CallsAreToldInTheirOrderUntilTheListenerIsTakenAway)
{
    char name[NAPI_NAME_SIZE];
    idOf("Office");
    NAPI_GetProfileNameByID(m_id, name);
    NAPI_IsProfileValid("Nobody");
    kub_napi_set_call_observer(nullptr);
    NAPI_IsProfileValid("Office");
    std::vector<std::string> functions;
    for (const Heard &call : m_listener.calls)
        functions.push_back(call.function);
    EXPECT_EQ(functions,
              (std::vector<std::string>{"NAPI_GetProfileIDByName", "NAPI_GetProfileNameByID",
                                        "NAPI_IsProfileValid"}));
}

TEST_F(ProfileCallObserverTest, ListenerMayCallTheService)
{
    m_listener.whenCalled = [this] {
        m_listener.whenCalled = nullptr;
        EXPECT_EQ(NAPI_IsProfileValid("Office"), NAPI_OK);
    };
    ASSERT_EQ(NAPI_ModifyProfile("Office", &m_given, 0, 0), NAPI_OK);
    ASSERT_EQ(m_listener.calls.size(), 2U);
    EXPECT_EQ(m_listener.calls[1].function, "NAPI_IsProfileValid");
}

TEST_F(ProfileCallObserverTest, ReasonGoesToStandardErrorUnlessTheListenerShowsIt)
{
    const auto errorOutput = [this](bool showsReasons) {
        m_listener.showsReasons = showsReasons;
        testing::internal::CaptureStderr();
        const NAP_PROFILE_S *const missing = nullptr;
        EXPECT_EQ(NAPI_CreateProfile("Home", missing, 0, 0), NAPI_ERROR_BAD_ARGUMENT);
        return testing::internal::GetCapturedStderr();
    };
    EXPECT_EQ(errorOutput(true), "");
    EXPECT_EQ(errorOutput(false), "libnapi: a call got a null pointer\n");
}

TEST_F(ProfileCallObserverTest, WithoutListenerTheStoreAnswersTheSame)
{
    NAP_PROFILE_S observed;
    NAP_PROFILE_S unobserved;
    ASSERT_EQ(NAPI_ModifyProfile("Office", &m_given, 0, 0), NAPI_OK);
    ASSERT_EQ(NAPI_ReadProfile("Office", &observed, 0, 0), NAPI_OK);
    kub_napi_set_call_observer(nullptr);
    ASSERT_EQ(NAPI_ModifyProfile("Office", &m_stored, 0, 0), NAPI_OK);
    ASSERT_EQ(NAPI_ReadProfile("Office", &unobserved, 0, 0), NAPI_OK);
    EXPECT_TRUE(isSame(observed, m_given));
    EXPECT_TRUE(isSame(unobserved, m_stored));
    EXPECT_EQ(idOf("Office"), m_id);
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
