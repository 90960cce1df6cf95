// Statuses of commands.

#include "dm_status.h"

#include <gtest/gtest.h>

namespace client {

namespace {

TEST(DmStatusTest, SuccessOfTheEngineIs200)
{
    EXPECT_EQ(outcomeOfEngineCall(0).status, DmStatus::Ok);
}

TEST(DmStatusTest, APluginsOwnRefusalIs500)
{
    EXPECT_EQ(outcomeOfEngineCall(1).status, DmStatus::CommandFailed);
    EXPECT_EQ(outcomeOfEngineCall(-1).status, DmStatus::CommandFailed);
    EXPECT_EQ(outcomeOfEngineCall(499).status, DmStatus::CommandFailed);
}

TEST(DmStatusTest, AFailureStatusOfThePluginGoesOutAsItIs)
{
    for (const int status : {404, 405, 406, 415, 418, 420, 500, 510})
        EXPECT_EQ(static_cast<int>(outcomeOfEngineCall(status).status), status);
}

TEST(DmStatusTest, AFailureNeverBecomesASuccess)
{
    for (const int status : {200, 202, 212, 215, 304})
        EXPECT_EQ(outcomeOfEngineCall(status).status, DmStatus::CommandFailed) << status;
}

TEST(DmStatusTest, AStatusIsThreeDigitsFrom200To599)
{
    for (const char *const text : {"200", " 200 ", "\n\t200\r\n"})
        EXPECT_EQ(parseStatus(text), DmStatus::Ok) << text;
    EXPECT_EQ(parseStatus("404"), DmStatus::NotFound);
    EXPECT_EQ(parseStatus("599"), static_cast<DmStatus>(599));
    for (const char *const text :
         {"", "0", "-200", "+200", "100", "199", "600", "999", "0200", "20", "2000", "0x0c8", "2 0",
          "200 OK", "OK", "\xd9\xa2\xd9\xa0\xd9\xa0"})
        EXPECT_EQ(parseStatus(text), std::nullopt) << text;
    EXPECT_EQ(parseStatus(QByteArray("20\0", 3)), std::nullopt);
}

TEST(DmStatusTest, EachClassOfStatusesSucceedsIsRefusedOrNeither)
{
    for (const int status : {200, 202, 216, 299}) {
        EXPECT_TRUE(succeeded(static_cast<DmStatus>(status))) << status;
        EXPECT_FALSE(isRefusal(static_cast<DmStatus>(status))) << status;
    }
    EXPECT_FALSE(succeeded(DmStatus::NotModified));
    EXPECT_FALSE(isRefusal(DmStatus::NotModified));
    for (const int status : {400, 401, 499, 500, 517}) {
        EXPECT_FALSE(succeeded(static_cast<DmStatus>(status))) << status;
        EXPECT_TRUE(isRefusal(static_cast<DmStatus>(status))) << status;
    }
}

TEST(DmStatusTest, OutcomesAreDescribedWithTheirMeaningAndReason)
{
    EXPECT_EQ(describe(DmStatus::NotFound), QStringLiteral("404 Not Found"));
    EXPECT_EQ(describe(Outcome{DmStatus::NotFound, QStringLiteral("no node ./X")}),
              QStringLiteral("404 Not Found: no node ./X"));
    EXPECT_EQ(describe(Outcome()), QStringLiteral("200 OK"));
}

} // namespace

} // namespace client
