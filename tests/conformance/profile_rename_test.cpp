// What the host's profile service promises of a rename, whichever store it has.

#include "profile_rename.h"

#include "napi.h"

#include <QTemporaryDir>
#include <cstring>
#include <gtest/gtest.h>
#include <string>

namespace {

class ProfileRenameTest : public testing::Test {
protected:
    void SetUp() override
    {
        std::strcpy(m_office.gprsAddress, "internet.example");
        std::strcpy(m_office.gprsAuthPassword, "OhBehave");
        std::strcpy(m_office.csdAddress, "+491720000");
        std::strcpy(m_office.csdAuthPassword, "OhBehave2");
        ASSERT_EQ(NAPI_CreateProfile("Office", &m_office, 0, 0), NAPI_OK);
        ASSERT_EQ(NAPI_CreateProfile("Home", &m_home, 0, 0), NAPI_OK);
    }
    void TearDown() override
    {
        for (const char *name : {"Office", "Home", "Headquarters"})
            NAPI_DeleteProfile(name);
    }
    static unsigned int idOf(const char *name)
    {
        unsigned int id = 0;
        EXPECT_EQ(NAPI_GetProfileIDByName(name, &id), NAPI_OK) << name;
        return id;
    }

    NAP_PROFILE_S m_office = {};
    const NAP_PROFILE_S m_home = {};
};

TEST_F(ProfileRenameTest, KeepsTheIdAndTheRecord)
{
    const unsigned int id = idOf("Office");
    const unsigned int homeId = idOf("Home");
    ASSERT_EQ(kub_napi_rename_profile("Office", "Headquarters"), NAPI_OK);
    EXPECT_EQ(idOf("Headquarters"), id);
    EXPECT_EQ(idOf("Home"), homeId);
    char name[NAPI_NAME_SIZE];
    ASSERT_EQ(NAPI_GetProfileNameByID(id, name), NAPI_OK);
    EXPECT_STREQ(name, "Headquarters");
    NAP_PROFILE_S record = {};
    ASSERT_EQ(NAPI_ReadProfile("Headquarters", &record, 0, 0), NAPI_OK);
    EXPECT_EQ(std::memcmp(&record, &m_office, sizeof record), 0);
    EXPECT_EQ(NAPI_IsProfileValid("Office"), NAPI_ERROR_NOT_FOUND);
    ASSERT_EQ(NAPI_CreateProfile("Office", &m_home, 0, 0), NAPI_OK) << "the old name is free";
    EXPECT_NE(idOf("Office"), id);
}

TEST_F(ProfileRenameTest, LeavesTheOldNameWhenItCannotGiveTheNewOne)
{
    const unsigned int id = idOf("Office");
    EXPECT_EQ(kub_napi_rename_profile("Office", "Home"), NAPI_ERROR_EXISTS);
    EXPECT_EQ(kub_napi_rename_profile("Office", "Office"), NAPI_ERROR_EXISTS);
    EXPECT_EQ(kub_napi_rename_profile("none", "Headquarters"), NAPI_ERROR_NOT_FOUND);
    for (const char *bad : {"", "a/b", ".", "..", "*", "\xff"}) {
        EXPECT_EQ(kub_napi_rename_profile("Office", bad), NAPI_ERROR_BAD_NAME) << bad;
        EXPECT_EQ(kub_napi_rename_profile(bad, "Headquarters"), NAPI_ERROR_BAD_NAME) << bad;
    }
    const std::string tooLong(NAPI_NAME_SIZE, 'x');
    EXPECT_EQ(kub_napi_rename_profile("Office", tooLong.c_str()), NAPI_ERROR_BAD_NAME);
    EXPECT_EQ(kub_napi_rename_profile("Office", nullptr), NAPI_ERROR_BAD_ARGUMENT);
    EXPECT_EQ(kub_napi_rename_profile(nullptr, "Headquarters"), NAPI_ERROR_BAD_ARGUMENT);
    EXPECT_EQ(idOf("Office"), id);
    EXPECT_EQ(NAPI_IsProfileValid("Headquarters"), NAPI_ERROR_NOT_FOUND);
}

TEST_F(ProfileRenameTest, TakesTheLongestName)
{
    const std::string longest(NAPI_NAME_SIZE - 1, 'x');
    const unsigned int id = idOf("Office");
    ASSERT_EQ(kub_napi_rename_profile("Office", longest.c_str()), NAPI_OK);
    EXPECT_EQ(idOf(longest.c_str()), id);
    EXPECT_EQ(kub_napi_rename_profile(longest.c_str(), "Office"), NAPI_OK);
}

} // namespace

int main(int argc, char *argv[])
{
    testing::InitGoogleTest(&argc, argv);
    const QTemporaryDir directory;
    if (!qEnvironmentVariableIsSet("KUB_STATE_DIR"))
        qputenv("KUB_STATE_DIR", directory.path().toUtf8());
    return RUN_ALL_TESTS();
}
