#include "record_fields.h"

#include <cstring>
#include <gtest/gtest.h>

namespace profile_record {
namespace {

TEST(RecordFieldsTest, ShowsWhatAPersonReads)
{
    NAP_PROFILE_S record{};
    record.csdLinger = 4464;
    record.gprsDns1 = 0x0A000001;
    std::strcpy(record.gprsAddress, "internet");
    std::memset(record.csdAddress, 'x', sizeof record.csdAddress);
    record.reserved134[1] = 0xAB;
    EXPECT_EQ(textOf(fieldNamed("csdLinger"), record), "4464");
    EXPECT_EQ(textOf(fieldNamed("gprsDns1"), record), "10.0.0.1");
    EXPECT_EQ(textOf(fieldNamed("gprsAddress"), record), "internet");
    EXPECT_EQ(textOf(fieldNamed("csdAddress"), record), std::string(44, 'x'));
    EXPECT_EQ(textOf(fieldNamed("reserved134"), record), "00ab0000");
}

TEST(RecordFieldsTest, OverwritesSecretsAndWhatIsLeftAfterThem)
{
    NAP_PROFILE_S record{};
    std::memcpy(record.gprsAuthPassword, "new\0longer", 10);
    std::memset(record.csd2AuthPassword, 'x', sizeof record.csd2AuthPassword);
    std::strcpy(record.gprsAuthId, "user");
    overwriteSecrets(record);
    EXPECT_EQ(std::string(record.gprsAuthPassword, 11), std::string("***\0******\0", 11));
    EXPECT_EQ(std::string(record.csd2AuthPassword, 64), std::string(64, '*'));
    EXPECT_STREQ(record.gprsAuthId, "user");
}

} // namespace
} // namespace profile_record
