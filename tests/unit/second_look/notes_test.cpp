#include "notes.h"

#include "secret_leaf.h"

#include <gtest/gtest.h>

namespace client {
namespace {

constexpr char connRoot[] = "./DevDetail/Ext/Conf/Conn/Profiles";

/// "Office/Addr" is that leaf of that profile.
NodeUri at(const QByteArray &path)
{
    return nodeAt(QByteArray(connRoot + QByteArray("/") + path).constData());
}

SeenNode node(const QByteArray &path, const char *format, std::optional<QByteArray> value = {},
              DmStatus status = DmStatus::Ok)
{
    return {at(path), QLatin1String(format), std::move(value), status};
}

Picture pictureWith(std::initializer_list<SeenNode> nodes)
{
    Picture picture;
    for (const SeenNode &one : nodes)
        picture.emplace(one.uri, one);
    return picture;
}

TreeChange replaced(const char *path, const char *value)
{
    return {.kind = TreeChange::Kind::Replace, .node = at(path), .value = {{}, {}, value}};
}

TreeChange added(const char *path, std::optional<QByteArray> value = {})
{
    return {.kind = TreeChange::Kind::Add, .node = at(path), .value = {{}, {}, std::move(value)}};
}

TreeChange removed(const char *path)
{
    return {.kind = TreeChange::Kind::Remove, .node = at(path)};
}

TreeChange propertyReplaced(const char *path, Property property, const char *value)
{
    return {.kind = TreeChange::Kind::ReplaceProperty,
            .node = at(path),
            .property = property,
            .value = {{}, {}, value}};
}

TreeChange renamed(const char *path, const char *name)
{
    return propertyReplaced(path, Property::Name, name);
}

TreeChange childrenReplaced(const char *path, std::vector<TreeView::ChildValue> children)
{
    return {.kind = TreeChange::Kind::ReplaceChildren,
            .node = at(path),
            .children = std::move(children)};
}

TreeChange copied(const char *from, const char *to)
{
    return {.kind = TreeChange::Kind::Copy, .node = at(to), .source = at(from)};
}

TreeChange marker(TreeChange::Kind kind)
{
    return {.kind = kind};
}

TreeChange refused(TreeChange change)
{
    change.outcome = {DmStatus::CommandFailed, {}};
    return change;
}

/// A leaf that was asked for a value and says another one, or is not there.
AskedValue asked(const char *value, const SeenNode &reads)
{
    return {reads.uri, value, reads};
}

SeenChange seenWith(std::vector<AskedValue> asked)
{
    return {DmStatus::Ok, std::move(asked), {}, {}};
}

using Texts = std::vector<std::string>;

Texts textsOf(const std::vector<DifferenceNote> &notes)
{
    Texts texts;
    for (const DifferenceNote &note : notes)
        texts.push_back(note.text.toStdString());
    return texts;
}

// ---- Now -----------------------------------------------------------------------------------------

struct NowCase {
    const char *name;
    TreeChange change;
    SeenChange seen;
    Texts notes;
};

void PrintTo(const NowCase &row, std::ostream *stream)
{
    *stream << row.name;
}

class NotesNowTest : public testing::TestWithParam<NowCase> {};

TEST_P(NotesNowTest, SaysIt)
{
    const NowCase &row = GetParam();
    const std::vector<DifferenceNote> notes = notesNow(7, row.change, row.seen);
    EXPECT_EQ(textsOf(notes), row.notes);
    for (const DifferenceNote &note : notes) {
        EXPECT_EQ(note.change, 7U);
        EXPECT_FALSE(note.isAtNextMount);
    }
}

const QByteArray secret = "s3cr3t";

const NowCase nowCases[] = {
    {"AsAsked",
     replaced("Office/Addr", "a"),
     seenWith({asked("a", node("Office/Addr", "chr", "a"))}),
     {}},
    {"Another",
     replaced("Office/Linger", "70000"),
     seenWith({asked("70000", node("Office/Linger", "int", "4464"))}),
     {"reads 4464"}},
    {"Cut",
     replaced("Office/Addr", "abcdef"),
     seenWith({asked("abcdef", node("Office/Addr", "chr", "abc"))}),
     {"reads its first 3 bytes, abc"}},
    {"CutToOneByte",
     replaced("Office/Addr", "abcdef"),
     seenWith({asked("abcdef", node("Office/Addr", "chr", "a"))}),
     {"reads its first byte, a"}},
    {"NumberThatBeginsLikeIt",
     replaced("Office/Linger", "72817"),
     seenWith({asked("72817", node("Office/Linger", "int", "7281"))}),
     {"reads 7281"}},
    {"Empty",
     replaced("Office/Addr", "abc"),
     seenWith({asked("abc", node("Office/Addr", "chr", ""))}),
     {"reads \"\""}},
    {"NotThere",
     replaced("Office/Addr", "abc"),
     seenWith({{at("Office/Addr"), "abc", std::nullopt}}),
     {"is not there"}},
    {"Unreadable",
     replaced("Office/Speed", "1"),
     seenWith({asked("1", node("Office/Speed", "int", std::nullopt, DmStatus::CommandFailed))}),
     {}},
    {"Secret",
     replaced("Office/Auth/PAP/AuthPw", "longer"),
     seenWith({asked("longer", node("Office/Auth/PAP/AuthPw", "chr", "long"))}),
     {"reads its first 4 bytes, ********"}},
    {"EmptySecret",
     replaced("Office/Auth/PAP/AuthPw", "longer"),
     seenWith({asked("longer", node("Office/Auth/PAP/AuthPw", "chr", ""))}),
     {"reads \"\""}},
    {"EachOfSeveral",
     childrenReplaced("Office", {{"Linger", "70000"}, {"Addr", "a"}, {"Foo", "x"}}),
     seenWith({asked("70000", node("Office/Linger", "int", "4464")),
               asked("a", node("Office/Addr", "chr", "a")),
               {at("Office/Foo"), "x", std::nullopt}}),
     {"Linger reads 4464", "Foo is not there"}},
    {"Refused",
     refused(replaced("Office/Linger", "70000")),
     seenWith({asked("70000", node("Office/Linger", "int", "4464"))}),
     {}},
    {"OtherProperty",
     propertyReplaced("Office", Property::Title, "x"),
     seenWith({asked("x", node("Office/Addr", "chr", "y"))}),
     {}},
    {"Overwritten",
     renamed("Office", "Team"),
     {DmStatus::Ok, {}, {}, QStringLiteral("the settings are overwritten")},
     {"the settings are overwritten"}},
    {"OthersChanged",
     replaced("Office/LineType", "ISDN"),
     {DmStatus::Ok,
      {asked("ISDN", node("Office/LineType", "chr", "ISDN"))},
      {{},
       {{"ANALOG", node("Office/LineType", "chr", "ISDN")},
        {"9600", node("Office/Speed", "int", "4800")},
        {"old", node("Office/Auth/PAP/AuthPw", "chr", "new")},
        {QByteArray(), node("Office/DNS1", "chr", "1.1.1.1")},
        {std::nullopt, node("Office/DNS2", "chr", "1.1.1.1")},
        {"x", node("Office/Addr", "chr", std::nullopt, DmStatus::CommandFailed)}},
       {}},
      {}},
     {"./DevDetail/Ext/Conf/Conn/Profiles/Office/Speed changed as well and reads 4800",
      "./DevDetail/Ext/Conf/Conn/Profiles/Office/Auth/PAP/AuthPw changed as well and reads "
      "********"}},
    {"OthersChangedWithARename",
     renamed("Office", "Team"),
     {DmStatus::Ok, {}, {{}, {{"9600", node("Office/Speed", "int", "4800")}}, {}}, {}},
     {}},
};

INSTANTIATE_TEST_SUITE_P(, NotesNowTest, testing::ValuesIn(nowCases),
                         [](const auto &row) { return std::string(row.param.name); });

TEST(NoteNowTest, WhatReadsInsteadIsGivenByItselfAndMasked)
{
    const auto reads = [](const char *path, const char *value) {
        const std::vector<DifferenceNote> notes = notesNow(
            0, replaced(path, "asked"), seenWith({asked("asked", node(path, "chr", value))}));
        return notes.size() == 1 ? notes[0].reads : std::nullopt;
    };
    EXPECT_EQ(reads("Office/Addr", "other"), "other");
    EXPECT_EQ(reads("Office/Auth/PAP/AuthPw", "other"), secretMask);
    EXPECT_EQ(reads("Office/Auth/PAP/AuthPw", ""), "");
}

// ---- At the next mount ---------------------------------------------------------------------------

struct NextCase {
    const char *name;
    std::vector<TreeChange> changes;
    std::vector<SeenChange> seen; ///< none where nothing could be made once more
    NextMount looks;
    std::vector<std::pair<std::size_t, std::string>> notes; ///< with the place of the change
};

void PrintTo(const NextCase &row, std::ostream *stream)
{
    *stream << row.name;
}

class NotesAtNextMountTest : public testing::TestWithParam<NextCase> {};

TEST_P(NotesAtNextMountTest, SaysIt)
{
    const NextCase &row = GetParam();
    std::vector<std::pair<std::size_t, std::string>> found;
    for (const DifferenceNote &note : notesAtNextMount(row.changes, row.seen, row.looks)) {
        EXPECT_TRUE(note.isAtNextMount);
        found.emplace_back(note.change, note.text.toStdString());
    }
    EXPECT_EQ(found, row.notes);
}

const SeenNode office = node("Office", "node");
const SeenNode team = node("Team", "node");
const SeenNode addr = node("Office/Addr", "chr", "a");
const SeenChange nothing = seenWith({});
const std::string gone = "gone at the next mount";

const NextCase nextCases[] = {
    {"AsItIs",
     {replaced("Office/Addr", "a")},
     {seenWith({asked("a", addr)})},
     {pictureWith({office, addr}), pictureWith({office, addr})},
     {}},
    {"AnotherValue",
     {replaced("Office/Addr", "ab")},
     {seenWith({asked("ab", node("Office/Addr", "chr", "ab"))})},
     {pictureWith({office, node("Office/Addr", "chr", "ab")}),
      pictureWith({office, node("Office/Addr", "chr", "x")})},
     {{0, "reads x at the next mount"}}},
    {"CutAtTheNextMount",
     {replaced("Office/Addr", "ab")},
     {seenWith({asked("ab", node("Office/Addr", "chr", "ab"))})},
     {pictureWith({office, node("Office/Addr", "chr", "ab")}), pictureWith({office, addr})},
     {{0, "reads its first byte, a at the next mount"}}},
    {"WhatIsSaidNowIsNotSaidAgain",
     {replaced("Office/Linger", "70000")},
     {seenWith({asked("70000", node("Office/Linger", "int", "4464"))})},
     {pictureWith({office, node("Office/Linger", "int", "4464")}),
      pictureWith({office, node("Office/Linger", "int", "4464")})},
     {}},
    {"LeafThatNoProfileHas",
     {added("Office/Foo", "x")},
     {seenWith({asked("x", node("Office/Foo", "chr", "x"))})},
     {pictureWith({office, node("Office/Foo", "chr", "x")}), pictureWith({office})},
     {{0, gone + ": a profile has no such node"}}},
    {"LeafOfAProfileThatIsGone",
     {added("Office/Addr", "")},
     {seenWith({asked("", node("Office/Addr", "chr", ""))})},
     {pictureWith({office, node("Office/Addr", "chr", "")}), {}},
     {{0, gone + ": the profile is"}}},
    {"LeafWithoutAValue",
     {added("Office/Addr", "")},
     {seenWith({asked("", node("Office/Addr", "chr", ""))})},
     {pictureWith({office, node("Office/Addr", "chr", "")}), pictureWith({office})},
     {{0, gone + ": it has no value"}}},
    {"ProfileWithoutALeaf",
     {added("Office")},
     {nothing},
     {pictureWith({office}), {}},
     {{0, gone + ": no leaf of the profile is set, and it still counts among the profiles that can "
                 "be stored"}}},
    {"ProfileThatStays",
     {added("Office")},
     {nothing},
     {pictureWith({office}), pictureWith({office})},
     {}},
    {"NameThatComesBack",
     {renamed("Office", "Team")},
     {nothing},
     {pictureWith({team}), pictureWith({office})},
     {{0, "Office again at the next mount"}}},
    {"NameThatStays",
     {renamed("Office", "Team")},
     {nothing},
     {pictureWith({team}), pictureWith({team})},
     {}},
    {"NameOfAProfileThatIsGone",
     {renamed("Office", "Team")},
     {nothing},
     {pictureWith({team}), {}},
     {{0, gone + ": no leaf of the profile is set, and it still counts among the profiles that can "
                 "be stored"}}},
    {"ValueUnderANameThatComesBack",
     {replaced("Office/Addr", "a"), renamed("Office", "Team"), renamed("Team", "Staff")},
     {seenWith({asked("a", addr)}), nothing, nothing},
     {pictureWith({node("Staff", "node"), node("Staff/Addr", "chr", "a")}),
      pictureWith({office, addr})},
     {{2, "Office again at the next mount"}}},
    {"AnotherValueUnderANameThatComesBack",
     {renamed("Office", "Team"), replaced("Team/Addr", "b")},
     {nothing, seenWith({asked("b", node("Team/Addr", "chr", "b"))})},
     {pictureWith({team, node("Team/Addr", "chr", "b")}), pictureWith({office, addr})},
     {{0, "Office again at the next mount"}, {1, "reads a at the next mount"}}},
    {"DeletedProfileThatIsBack",
     {removed("Office")},
     {nothing},
     {{}, pictureWith({office})},
     {{0, "back at the next mount: another bearer or the proxies of the profile remain"}}},
    {"DeletedUnderAnotherNameAndBack",
     {renamed("Office", "Team"), removed("Team")},
     {nothing, nothing},
     {{}, pictureWith({office})},
     {{1, "back at the next mount: another bearer or the proxies of the profile remain"}}},
    {"DeletedLeafThatIsBack",
     {removed("Office/Addr")},
     {nothing},
     {pictureWith({office}), pictureWith({office, addr})},
     {{0, "back at the next mount"}}},
    {"DeletedAndGone", {removed("Office")}, {nothing}, {{}, {}}, {}},
    {"EachOfSeveral",
     {childrenReplaced("Office", {{"Addr", "a"}, {"Foo", "x"}})},
     {seenWith({asked("a", addr), asked("x", node("Office/Foo", "chr", "x"))})},
     {pictureWith({office, addr, node("Office/Foo", "chr", "x")}),
      pictureWith({office, node("Office/Addr", "chr", "b")})},
     {{0, "Addr reads b at the next mount"}, {0, "Foo " + gone + ": a profile has no such node"}}},
    {"Unreadable",
     {replaced("Office/Addr", "a")},
     {seenWith({asked("a", addr)})},
     {pictureWith({office, addr}),
      pictureWith({office, node("Office/Addr", "chr", std::nullopt, DmStatus::CommandFailed)})},
     {}},
    {"Refused", {refused(added("Office/Foo", "x"))}, {nothing}, {pictureWith({office}), {}}, {}},
    {"MadeOnce_Another",
     {replaced("Office/Linger", " 070000 ")},
     {},
     {{}, pictureWith({office, node("Office/Linger", "int", "4464")})},
     {{0, "reads 4464 at the next mount"}}},
    {"MadeOnce_TheSameValueInOtherWords",
     {replaced("Office/Linger", " 070 ")},
     {},
     {{}, pictureWith({office, node("Office/Linger", "int", "70")})},
     {}},
    {"MadeOnce_Gone",
     {added("Office/Foo", "x")},
     {},
     {{}, pictureWith({office})},
     {{0, gone + ": a profile has no such node"}}},
    {"MadeOnce_EachOfSeveral",
     {childrenReplaced("Office", {{"Addr", "a"}, {"Linger", "70000"}})},
     {},
     {{}, pictureWith({office, addr, node("Office/Linger", "int", "4464")})},
     {{0, "Linger reads 4464 at the next mount"}}},
    {"MadeOnce_ProfileWithoutALeaf",
     {added("Office")},
     {},
     {{}, {}},
     {{0, gone + ": no leaf of the profile is set, and it still counts among the profiles that can "
                 "be stored"}}},
    {"MadeOnce_CopyThatIsGone",
     {copied("Office/Addr", "Home/Foo")},
     {},
     {{}, pictureWith({node("Home", "node")})},
     {{0, gone + ": a profile has no such node"}}},
    {"MadeOnce_TheValueOfACopyIsNotKnown",
     {copied("Office/Addr", "Home/Addr")},
     {},
     {{}, pictureWith({node("Home", "node"), node("Home/Addr", "chr", "x")})},
     {}},
};

INSTANTIATE_TEST_SUITE_P(, NotesAtNextMountTest, testing::ValuesIn(nextCases),
                         [](const auto &row) { return std::string(row.param.name); });

TEST(NoteAtNextMountTest, WhatReadsInsteadIsGivenByItselfAndMasked)
{
    const char *const path = "Office/Auth/PAP/AuthPw";
    const std::vector<DifferenceNote> notes = notesAtNextMount(
        {replaced(path, "a"), replaced("Office/Addr", "a")},
        {seenWith({asked("a", node(path, "chr", "a"))}), seenWith({asked("a", addr)})},
        {{}, pictureWith({office, node(path, "chr", secret), node("Office/Addr", "chr", "b")})});
    ASSERT_EQ(notes.size(), 2U);
    EXPECT_EQ(notes[0].reads, secretMask);
    EXPECT_EQ(notes[0].text, QStringLiteral("reads ******** at the next mount"));
    EXPECT_EQ(notes[1].reads, "b");
}

// ---- Which changes count -------------------------------------------------------------------------

struct CountCase {
    const char *name;
    std::vector<TreeChange> changes;
    std::string counts; ///< "x" for one that counts, "." for one that does not
};

void PrintTo(const CountCase &row, std::ostream *stream)
{
    *stream << row.name;
}

class ChangesThatCountTest : public testing::TestWithParam<CountCase> {};

TEST_P(ChangesThatCountTest, Count)
{
    std::string found;
    for (const bool counts : changesThatCount(GetParam().changes))
        found += counts ? 'x' : '.';
    EXPECT_EQ(found, GetParam().counts);
}

const CountCase countCases[] = {
    {"None", {}, ""},
    {"EachOnItsOwn", {replaced("A/Addr", "1"), replaced("B/Addr", "2"), added("C")}, "xxx"},
    {"RefusedOne", {refused(replaced("A/Addr", "1"))}, "."},
    {"TheLastOfALeaf", {replaced("A/Addr", "1"), replaced("A/Addr", "2")}, ".x"},
    {"RefusedOneLeavesTheEarlier",
     {replaced("A/Addr", "1"), refused(replaced("A/Addr", "2"))},
     "x."},
    {"OtherProperty",
     {propertyReplaced("A", Property::Title, "x"), propertyReplaced("A", Property::Acl, "Get=*")},
     ".."},
    {"OtherPropertyOfWhatWasAdded",
     {added("A"), propertyReplaced("A", Property::Title, "x")},
     "x."},
    {"DeletedAfterwards", {replaced("A/Addr", "1"), removed("A")}, ".x"},
    {"AnotherDeleted", {replaced("A/Addr", "1"), removed("B")}, "xx"},
    {"WrittenWithOthers",
     {replaced("A/Addr", "1"), childrenReplaced("A", {{"Linger", "1"}, {"Addr", "2"}})},
     ".x"},
    {"OthersWritten", {replaced("A/Addr", "1"), childrenReplaced("A", {{"Linger", "1"}})}, "xx"},
    {"CopiedOver", {replaced("A/Addr", "1"), copied("B/Addr", "A/Addr")}, ".x"},
    {"CopiedFrom", {replaced("A/Addr", "1"), copied("A/Addr", "B/Addr")}, "xx"},
    {"RenamedAgain", {renamed("A", "B"), renamed("B", "C")}, ".x"},
    {"AnotherRenamed", {renamed("A", "B"), renamed("C", "D")}, "xx"},
    {"RenamedOnesLeaf",
     {replaced("A/Addr", "1"), renamed("A", "B"), replaced("B/Addr", "2")},
     ".xx"},
    {"RenamedAndDeleted", {replaced("A/Addr", "1"), renamed("A", "B"), removed("B")}, "..x"},
    {"AnotherUnderTheOldName",
     {replaced("A/Addr", "1"), renamed("A", "B"), replaced("A/Addr", "2")},
     "xxx"},
    {"TakenBack",
     {replaced("A/Addr", "1"), marker(TreeChange::Kind::AtomicBegins), replaced("A/Addr", "2"),
      renamed("A", "B"), marker(TreeChange::Kind::AtomicTakenBack), replaced("B/Addr", "3")},
     "x....x"},
    {"OfAnAtomicThatEndedWell",
     {marker(TreeChange::Kind::AtomicBegins), replaced("A/Addr", "2")},
     ".x"},
};

INSTANTIATE_TEST_SUITE_P(, ChangesThatCountTest, testing::ValuesIn(countCases),
                         [](const auto &row) { return std::string(row.param.name); });

} // namespace
} // namespace client
