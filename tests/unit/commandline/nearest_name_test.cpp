// Names that somebody may have meant.

#include "nearest_name.h"

#include <gtest/gtest.h>

namespace commandline {

namespace {

TEST(EditDistanceTest, CountsCharactersThatAreMissingTooManyWrongOrSwapped)
{
    struct Row {
        const char *one;
        const char *other;
        int distance;
    };
    for (const Row &row : {Row{"", "", 0}, Row{"list", "list", 0}, Row{"", "list", 4},
                           Row{"lst", "list", 1}, Row{"llist", "list", 1}, Row{"lost", "list", 1},
                           Row{"lsit", "list", 1}, Row{"lsti", "list", 2}, Row{"ab", "ba", 1},
                           Row{"kitten", "sitting", 3}, Row{"abc", "xyz", 3}}) {
        const QString one = QString::fromLatin1(row.one);
        const QString other = QString::fromLatin1(row.other);
        EXPECT_EQ(editDistance(one, other), row.distance) << row.one << ' ' << row.other;
        EXPECT_EQ(editDistance(other, one), row.distance) << row.other << ' ' << row.one;
    }
}

TEST(NearestNameTest, IsOneThatIsNear)
{
    const QStringList names = {QStringLiteral("rename"), QStringLiteral("remove"),
                               QStringLiteral("delete"), QStringLiteral("x")};
    const auto nearest = [&](const char *typed) {
        return nearestName(QString::fromLatin1(typed), names).toStdString();
    };
    EXPECT_EQ(nearest("renam"), "rename");
    EXPECT_EQ(nearest("remov"), "remove");
    EXPECT_EQ(nearest("reame"), "rename");
    EXPECT_EQ(nearest("deelte"), "delete");
    EXPECT_EQ(nearest("deltee"), "delete");
    EXPECT_EQ(nearest("dltee"), "") << "two mistakes in five characters";
    EXPECT_EQ(nearest("frobnicate"), "");
    EXPECT_EQ(nearest("y"), "") << "it has nothing in common with x";
    EXPECT_EQ(nearest(""), "");
}

} // namespace

} // namespace commandline
