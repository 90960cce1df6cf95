// Profile names of connections: unique, and the same whatever the order of looking.
#include <gtest/gtest.h>

#include "profile_name.h"
#include "profile_names.h"

namespace {

using Names = std::vector<std::string>;

const std::string one = "11111111-0000-4000-8000-000000000000";
const std::string two = "22222222-0000-4000-8000-000000000000";
const std::string three = "33333333-0000-4000-8000-000000000000";

TEST(ProfileNames, IdThatIsUniqueIsTheName)
{
    const std::string longest(63, 'x');
    EXPECT_EQ(profileNames({{"Office", one}, {"office", two}, {longest, three}}),
              (Names{"Office", "office", longest}));
    EXPECT_EQ(profileNames({}), Names());
}

TEST(ProfileNames, HoldersOfTheSameIdGetTheirUuids)
{
    EXPECT_EQ(profileNames({{"Office", one}, {"Home", two}, {"Office", three}}),
              (Names{"Office~11111111", "Home", "Office~33333333"}));
}

TEST(ProfileNames, EmptyIdIsUnnamed)
{
    EXPECT_EQ(profileNames({{"", one}}), Names{"unnamed~11111111"});
}

TEST(ProfileNames, LongIdIsCutAtACharacter)
{
    EXPECT_EQ(profileNames({{std::string(64, 'x'), one}}),
              Names{std::string(54, 'x') + "~11111111"});
    const std::string euro = "\xE2\x82\xAC";
    std::string id = "x";
    while (id.size() < 64)
        id += euro;
    std::string stem = "x";
    while (stem.size() + euro.size() <= 54)
        stem += euro;
    const Names names = profileNames({{id, one}});
    EXPECT_EQ(names, Names{stem + "~11111111"});
    EXPECT_TRUE(isProfileName(names[0]));
}

TEST(ProfileNames, IdWithASlashIsNoNameBecauseThePathsOfATreeAreSplitThere)
{
    EXPECT_EQ(profileNames({{"Office/Home", one}, {"Office", two}, {"/", three}}),
              (Names{"Office-Home~11111111", "Office", "-~33333333"}));
}

TEST(ProfileNames, IdThatNoAddressOfATreeCanHoldIsNoName)
{
    EXPECT_EQ(profileNames({{".", one}, {"..", two}, {"*", three}}),
              (Names{".~11111111", "..~22222222", "*~33333333"}));
}

TEST(ProfileNames, IdThatLooksLikeAMadeNameKeepsIt)
{
    EXPECT_EQ(profileNames({{"Office", one}, {"Office", two}, {"Office~11111111", three}}),
              (Names{"Office~11111111~2", "Office~22222222", "Office~11111111"}));
}

TEST(ProfileNames, LongIdsThatDifferAtTheEndOnlyAreTwoNames)
{
    const std::string id(80, 'y');
    const Names names = profileNames({{id + "1", one}, {id + "2", one}});
    EXPECT_EQ(names,
              (Names{std::string(54, 'y') + "~11111111", std::string(52, 'y') + "~11111111~2"}));
}

} // namespace
