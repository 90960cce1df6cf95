// Moving a profile's data between the record parts of two bearers, byte for byte, and the write of
// a Bearer leaf that does it.
#include "server_change_test.h"

namespace {

using namespace doubles;

// ---- The move alone ------------------------------------------------------------------------------

/// Records to move: no text of the patterns is terminated, those of the last one are.
std::vector<RecordBytes> RecordsToMove()
{
    RecordBytes terminated = PatternBytes(0);
    for (const PartOffsets &part : ALL_PARTS) {
        PutText(terminated, part.address, part.addressSize,
                std::string("address of ") + part.bearer);
        PutText(terminated, part.authId, part.authSize, std::string("id of ") + part.bearer);
        PutText(terminated, part.authPassword, part.authSize, std::string("pw of ") + part.bearer);
    }
    return {PatternBytes(0), PatternBytes(1), terminated};
}

/// What a write of one text over another moves.
struct MoveRow {
    const char *from;
    const char *to;
    const PartOffsets *source = nullptr; ///< null: nothing moves
    const PartOffsets *target = nullptr;
    bool serversStay = false; ///< the DNS servers are copied and left in the source as well
};

void PrintTo(const MoveRow &row, std::ostream *out)
{
    *out << '"' << row.from << "\" to \"" << row.to << '"';
}

const MoveRow moveRows[] = {
    {"GSM-GPRS", "GSM-CSD", &GPRS_PART, &CSD_PART},
    {"GSM-GPRS", "GSM-CSD2", &GPRS_PART, &CSD2_PART},
    {"GSM-CSD", "GSM-GPRS", &CSD_PART, &GPRS_PART},
    {"", "GSM-GPRS", &CSD_PART, &GPRS_PART},
    {"GSM-CSD", "GSM-CSD2", &CSD_PART, &CSD2_PART},
    {"", "GSM-CSD2", &CSD_PART, &CSD2_PART, true},
    {"GSM-CSD2", "GSM-GPRS", &CSD2_PART, &GPRS_PART},
    {"GSM-CSD2", "GSM-CSD", &CSD2_PART, &CSD_PART},
    {"GSM-GPRS", "GSM-GPRS"},
    {"GSM-CSD", "GSM-CSD"},
    {"GSM-CSD2", "GSM-CSD2"},
    {"", "GSM-CSD"},
    {"", ""},
    {"GPRS", "GPRS"},
    {"GSM-GPRS", ""},
    {"GSM-CSD", ""},
    {"GSM-CSD2", ""},
    {"GSM-GPRS", "GPRS"},
    {"GSM-CSD", "gsm-csd2"},
    {"GSM-CSD2", "GSM-CSD3"},
    {"", "GPRS"},
    {"GPRS", "GSM-GPRS"},
    {"GPRS", "GSM-CSD"},
    {"gsm-csd", "GSM-CSD2"},
    {" GSM-CSD2", "GSM-CSD"},
};

/// The record after the move. A field that is shorter in the target is cut.
RecordBytes Moved(const RecordBytes &before, const MoveRow &row)
{
    RecordBytes after = before;
    if (!row.source)
        return after;
    const PartOffsets &source = *row.source;
    const PartOffsets &target = *row.target;
    const auto copy = [&](std::size_t from, std::size_t to, std::size_t width) {
        std::memcpy(after.data() + to, before.data() + from, width);
    };
    ZeroPart(after, source);
    ZeroPart(after, target);
    const std::size_t authSize = std::min(source.authSize, target.authSize);
    copy(source.address, target.address, std::min(source.addressSize, target.addressSize));
    copy(source.authId, target.authId, authSize);
    copy(source.authPassword, target.authPassword, authSize);
    copy(source.dns1, target.dns1, 4);
    copy(source.dns2, target.dns2, 4);
    copy(source.linger, target.linger, 2);
    if (source.speedCode != 0 && target.speedCode != 0)
        copy(source.speedCode, target.speedCode, 1);
    if (row.serversStay) {
        copy(source.dns1, source.dns1, 4);
        copy(source.dns2, source.dns2, 4);
    }
    return after;
}

/// The record after a write of the one text over the other.
RecordBytes Moved(const RecordBytes &before, const std::string &from, const std::string &to)
{
    for (const MoveRow &row : moveRows)
        if (row.from == from && row.to == to)
            return Moved(before, row);
    ADD_FAILURE() << "no row for " << from << " to " << to;
    return before;
}

class MoveRowTest : public PluginTest, public ::testing::WithParamInterface<MoveRow> {};

TEST_P(MoveRowTest, ChangesExactlyTheBytesOfTheTwoParts)
{
    const MoveRow &row = GetParam();
    for (const RecordBytes &before : RecordsToMove()) {
        NAP_PROFILE_S record = ToRecord(before);

        DM_NAPI_PluginNode::MoveFieldInNAPI(&record, row.from, row.to);

        EXPECT_TRUE(SameBytes(record, Moved(before, row)));
    }
    ExpectNothingLogged();
    EXPECT_EQ(handset.journal.Take(), Lines{});
}

INSTANTIATE_TEST_SUITE_P(AllRows, MoveRowTest, ::testing::ValuesIn(moveRows));

class BearerMoveTest : public ServerChangeTest {};

TEST_F(BearerMoveTest, TextEndsAtItsTerminatorAndTheRestOfTheTargetIsZero)
{
    // After the terminator stands what an earlier, longer text has left.
    for (const PartOffsets &from : ALL_PARTS) {
        for (const PartOffsets &to : ALL_PARTS) {
            if (std::string(from.bearer) == to.bearer)
                continue;
            RecordBytes bytes = PatternBytes(0);
            std::memcpy(bytes.data() + from.address, "abc", 4);
            std::memcpy(bytes.data() + from.authId, "i", 2);
            std::memcpy(bytes.data() + from.authPassword, "", 1);
            NAP_PROFILE_S record = ToRecord(bytes);

            DM_NAPI_PluginNode::MoveFieldInNAPI(&record, from.bearer, to.bearer);

            const RecordBytes moved = ToBytes(record);
            RecordBytes expected = moved;
            PutText(expected, to.address, to.addressSize, "abc");
            PutText(expected, to.authId, to.authSize, "i");
            PutText(expected, to.authPassword, to.authSize, "");
            Zero(expected, from.address, from.addressSize);
            Zero(expected, from.authId, from.authSize);
            Zero(expected, from.authPassword, from.authSize);
            EXPECT_TRUE(SameBytes(moved, expected)) << from.bearer << " to " << to.bearer;
        }
    }
}

void PutTexts(RecordBytes &bytes, const PartOffsets &part, std::size_t length)
{
    PutText(bytes, part.address, part.addressSize, std::string(length, 'a'));
    PutText(bytes, part.authId, part.authSize, std::string(length, 'i'));
    PutText(bytes, part.authPassword, part.authSize, std::string(length, 'p'));
}

TEST_F(BearerMoveTest, TextThatJustFitsAndTextThatIsOneByteLongerBothFillTheTarget)
{
    for (const std::size_t length : {43u, 44u, 45u, 99u, 100u}) {
        RecordBytes bytes{};
        PutTexts(bytes, GPRS_PART, length);
        NAP_PROFILE_S record = ToRecord(bytes);

        DM_NAPI_PluginNode::MoveFieldInNAPI(&record, "GSM-GPRS", "GSM-CSD2");

        RecordBytes expected{};
        PutTexts(expected, CSD2_PART, length);
        EXPECT_TRUE(SameBytes(record, expected)) << length;
    }
}

// ---- The write of a Bearer leaf --------------------------------------------------------------------

TEST_F(BearerMoveTest, WriteMovesTheRecordRenamesTheMappingAndIsKeptByTheEngine)
{
    const RecordBytes before = PatternBytes(0);
    const TreePtr tree = MountOffice(CONN_ROOT, GPRS_PART, before);

    EXPECT_EQ(Write(tree, "Office/Bearer", Text("GSM-CSD2")), 0);

    ExpectNothingLogged();
    EXPECT_EQ(
        handset.journal.Take(),
        (Lines{"NAPI_GetProfileNameByID(5)", R"(NAPI_ReadProfile("Office"))",
               R"(removeEntry(napdef, "NAPIDEF_Profile", "5Ph1DC1"))", "flush(napdef)",
               R"(setSettingInfo(napdef, "NAPIDEF_Profile", "5Ph3DC1", "Office"))", "flush(napdef)",
               R"(NAPI_ModifyProfile("Office"))", R"(SetValue("Office/Bearer"))"}));
    EXPECT_TRUE(SameBytes(Stored(), Moved(before, "GSM-GPRS", "GSM-CSD2")));
    EXPECT_EQ(Mapped(tree), (Mapping{{"Office", "5Ph3DC1 2"}}));
    EXPECT_EQ(NapdefOnDisk(), (Entries{{"5Ph3DC1", "Office"}}));
    EXPECT_EQ(StringOf(EngineValue(tree, "Office/Bearer")), "GSM-CSD2");
}

TEST_F(BearerMoveTest, EveryMoveReachesTheServiceAndTheMapping)
{
    for (const PartOffsets &from : ALL_PARTS) {
        for (const PartOffsets &to : ALL_PARTS) {
            handset.napi.profiles.clear();
            const RecordBytes before = PatternBytes(1);
            const TreePtr tree = MountOffice(CONN_ROOT, from, before);

            EXPECT_EQ(Write(tree, "Office/Bearer", Text(to.bearer)), 0);

            EXPECT_TRUE(SameBytes(Stored(), Moved(before, from.bearer, to.bearer)))
                << from.bearer << " to " << to.bearer;
            EXPECT_EQ(NapdefOnDisk(), (Entries{{std::string("5") + to.suffix, "Office"}}));
        }
    }
}

TEST_F(BearerMoveTest, SameBearerMovesNothingButRenamesTheMappingAndRewritesTheRecord)
{
    const RecordBytes before = PatternBytes(0);
    const TreePtr tree = MountOffice(CONN_ROOT, CSD_PART, before);

    EXPECT_EQ(Write(tree, "Office/Bearer", Text("GSM-CSD")), 0);

    EXPECT_EQ(
        handset.journal.Take(),
        (Lines{"NAPI_GetProfileNameByID(5)", R"(NAPI_ReadProfile("Office"))",
               R"(removeEntry(napdef, "NAPIDEF_Profile", "5Ph2DC1"))", "flush(napdef)",
               R"(setSettingInfo(napdef, "NAPIDEF_Profile", "5Ph2DC1", "Office"))", "flush(napdef)",
               R"(NAPI_ModifyProfile("Office"))", R"(SetValue("Office/Bearer"))"}));
    EXPECT_TRUE(SameBytes(Stored(), before));
    EXPECT_EQ(Mapped(tree), (Mapping{{"Office", "5Ph2DC1 C"}}));
    EXPECT_EQ(NapdefOnDisk(), (Entries{{"5Ph2DC1", "Office"}}));
}

TEST_F(BearerMoveTest, FirstWriteTakesTheDataFromCircuitSwitchedData)
{
    for (const char *const bearer : {"GSM-GPRS", "GSM-CSD2", "GSM-CSD"}) {
        handset.napi.profiles.clear();
        const RecordBytes before = PatternBytes(0);
        const TreePtr tree = MountOffice(CONN_ROOT, CSD_PART, before);
        SetEngineValue(tree, "Office/Bearer", Text(""));

        EXPECT_EQ(Write(tree, "Office/Bearer", Text(bearer)), 0);

        EXPECT_TRUE(SameBytes(Stored(), Moved(before, "", bearer))) << bearer;
        EXPECT_EQ(handset.napi.modified.size(), 1u) << "the record is rewritten in any case";
        handset.napi.modified.clear();
    }
}

TEST_F(BearerMoveTest, FirstWriteOfAnUnknownTextPassesTheLeafAndIsRefusedByTheMapping)
{
    const RecordBytes before = PatternBytes(0);
    const TreePtr tree = MountOffice(CONN_ROOT, CSD_PART, before);
    SetEngineValue(tree, "Office/Bearer", Text(""));

    EXPECT_EQ(Write(tree, "Office/Bearer", Text("GPRS")), 1);

    ExpectMessages({"T Leave: RenameProfileMapDB fail! illegal Bearer value: GPRS!\n",
                    "N Leave: SetValueInternal()! RenameProfileMapDB() failed!\n",
                    "N Leave: SetValue()! SetValueInternal() failed!\n"});
    EXPECT_EQ(handset.journal.Take(),
              (Lines{"NAPI_GetProfileNameByID(5)", R"(NAPI_ReadProfile("Office"))"}));
    EXPECT_EQ(Mapped(tree), (Mapping{{"Office", "5"}})) << "a bare ID without a flag stays";
    EXPECT_EQ(NapdefOnDisk(), (Entries{{"5Ph2DC1", "Office"}}));
    EXPECT_TRUE(SameBytes(Stored(), before));
    EXPECT_EQ(StringOf(EngineValue(tree, "Office/Bearer")), "");

    // The profile still works, and a known bearer repairs the mapping in memory; the file keeps the
    // entry that nobody knows any more.
    EXPECT_EQ(Write(tree, "Office/Bearer", Text("GSM-GPRS")), 0);
    ExpectMessages({"T Warning: RenameProfileMapDB! removeEntry failed!\n"});
    EXPECT_EQ(Mapped(tree), (Mapping{{"Office", "5Ph1DC1 G"}}));
    EXPECT_EQ(NapdefOnDisk(), (Entries{{"5Ph1DC1", "Office"}, {"5Ph2DC1", "Office"}}));
}

TEST_F(BearerMoveTest, IllegalBearerIsRefusedAfterTheProfileWasRead)
{
    for (const char *const illegal :
         {"", "GPRS", "gsm-gprs", "GSM-GPRS ", " GSM-CSD", "GSM-CSD3", "GSM-CS"}) {
        handset.napi.profiles.clear();
        const TreePtr tree = MountOffice(CONN_ROOT, GPRS_PART, PatternBytes(0));

        EXPECT_EQ(Write(tree, "Office/Bearer", Text(illegal)), 1) << illegal;

        ExpectMessages({"N Leave: SetValueInternal()! failed! Bearer illegal \n",
                        "N Leave: SetValue()! SetValueInternal() failed!\n"});
        EXPECT_EQ(handset.journal.Take(),
                  (Lines{"NAPI_GetProfileNameByID(5)", R"(NAPI_ReadProfile("Office"))"}));
        EXPECT_EQ(Mapped(tree), (Mapping{{"Office", "5Ph1DC1 G"}}));
        EXPECT_TRUE(SameBytes(Stored(), PatternBytes(0)));
        EXPECT_EQ(StringOf(EngineValue(tree, "Office/Bearer")), "GSM-GPRS");
    }
}

TEST_F(BearerMoveTest, IllegalBearerOfAnUnreadableProfileIsReportedAsUnreadable)
{
    const TreePtr tree = MountOffice(CONN_ROOT);
    handset.faults.Fail("NAPI_ReadProfile", 1, 42);

    EXPECT_EQ(Write(tree, "Office/Bearer", Text("GPRS")), 1);

    ExpectMessages({"N Leave: SetValueInternal()! NAPI_ReadProfile() failed! return 42\n",
                    "N Leave: SetValue()! SetValueInternal() failed!\n"});
}

TEST_F(BearerMoveTest, KeptBearerOutsideTheThreeMovesNothingAndIsReplaced)
{
    const RecordBytes before = PatternBytes(0);
    const TreePtr tree = MountOffice(CONN_ROOT, GPRS_PART, before);
    SetEngineValue(tree, "Office/Bearer", Text("WLAN"));

    EXPECT_EQ(Write(tree, "Office/Bearer", Text("WLAN")), 1) << "only an empty one is lenient";
    EXPECT_EQ(Write(tree, "Office/Bearer", Text("GSM-CSD")), 0);

    EXPECT_TRUE(SameBytes(Stored(), before));
    EXPECT_EQ(Mapped(tree), (Mapping{{"Office", "5Ph2DC1 C"}}));
    EXPECT_EQ(StringOf(EngineValue(tree, "Office/Bearer")), "GSM-CSD");
}

TEST_F(BearerMoveTest, ValueOfAnotherTypeFailsWithTheStatusOfTheGetter)
{
    for (const bool oldIsWrong : {true, false}) {
        handset.napi.profiles.clear();
        const TreePtr tree = MountOffice(CONN_ROOT, GPRS_PART, PatternBytes(0));
        if (oldIsWrong)
            SetEngineValue(tree, "Office/Bearer", Number(1));

        EXPECT_EQ(Write(tree, "Office/Bearer", oldIsWrong ? Text("GSM-CSD") : Number(1)), 415);

        ExpectMessages({"N Leave: SetValueInternal()! GetString() failed!\n",
                        "N Leave: SetValue()! SetValueInternal() failed!\n"});
        EXPECT_EQ(handset.journal.Take(),
                  (Lines{"NAPI_GetProfileNameByID(5)", R"(NAPI_ReadProfile("Office"))"}));
        EXPECT_EQ(Mapped(tree), (Mapping{{"Office", "5Ph1DC1 G"}}));
    }
}

TEST_F(BearerMoveTest, FailedModifyLeavesTheMappingRenamed)
{
    const TreePtr tree = MountOffice(CONN_ROOT, GPRS_PART, PatternBytes(0));
    handset.faults.Fail("NAPI_ModifyProfile", 1, 42);

    EXPECT_EQ(Write(tree, "Office/Bearer", Text("GSM-CSD")), 1);

    ExpectMessages({"N Leave: SetValueInternal()! NAPI_ModifyProfile() failed! return 42\n",
                    "N Leave: SetValue()! SetValueInternal() failed!\n"});
    EXPECT_TRUE(SameBytes(Stored(), PatternBytes(0)));
    EXPECT_EQ(Mapped(tree), (Mapping{{"Office", "5Ph2DC1 C"}}));
    EXPECT_EQ(NapdefOnDisk(), (Entries{{"5Ph2DC1", "Office"}}));
    EXPECT_EQ(StringOf(EngineValue(tree, "Office/Bearer")), "GSM-GPRS");
}

TEST_F(BearerMoveTest, StatusOfTheEngineIsPassedOnAfterEverythingElseIsDone)
{
    const TreePtr tree = MountOffice(CONN_ROOT, GPRS_PART, PatternBytes(0));
    handset.faults.Fail("SetValue", 1, 507);

    EXPECT_EQ(Write(tree, "Office/Bearer", Text("GSM-CSD")), 507);

    ExpectMessages({"N Leave: SetValue()! SetValueInternal() failed!\n"});
    EXPECT_TRUE(SameBytes(Stored(), Moved(PatternBytes(0), "GSM-GPRS", "GSM-CSD")));
    EXPECT_EQ(NapdefOnDisk(), (Entries{{"5Ph2DC1", "Office"}}));
}

// ---- What a failing mapping file leaves behind ---------------------------------------------------

struct MappingFault {
    const char *site;
    int nth;
    const char *message;
    Entries onDisk;
    Entries inMemory;
};

void PrintTo(const MappingFault &fault, std::ostream *out)
{
    *out << fault.site << " fails at call " << fault.nth;
}

class MappingFaultTest : public ServerChangeTest,
                         public ::testing::WithParamInterface<MappingFault> {};

TEST_P(MappingFaultTest, LeavesTheRecordAndTheEngineAsTheyWere)
{
    const MappingFault &fault = GetParam();
    const TreePtr tree = MountOffice(CONN_ROOT, GPRS_PART, PatternBytes(0));
    handset.faults.Fail(fault.site, fault.nth);

    EXPECT_EQ(Write(tree, "Office/Bearer", Text("GSM-CSD")), 1);

    ExpectMessages({fault.message, "N Leave: SetValueInternal()! RenameProfileMapDB() failed!\n",
                    "N Leave: SetValue()! SetValueInternal() failed!\n"});
    EXPECT_EQ(NapdefOnDisk(), fault.onDisk);
    EXPECT_EQ(handset.settings.InMemory(NAPDEF_FILE, NAPDEF_GROUP), fault.inMemory);
    EXPECT_EQ(Mapped(tree), (Mapping{{"Office", "5Ph2DC1 C"}})) << "memory moves first";
    EXPECT_TRUE(SameBytes(Stored(), PatternBytes(0)));
    EXPECT_EQ(StringOf(EngineValue(tree, "Office/Bearer")), "GSM-GPRS");
}

const Entries oldEntry{{"5Ph1DC1", "Office"}};
const Entries newEntry{{"5Ph2DC1", "Office"}};

INSTANTIATE_TEST_SUITE_P(
    AllCalls, MappingFaultTest,
    ::testing::Values(
        MappingFault{"flush", 1, "T Leave: RenameProfileMapDB! flush  Failed\n", oldEntry, {}},
        MappingFault{
            "setSettingInfo", 1, "T Leave: RenameProfileMapDB! setSettingInfo failed!\n", {}, {}},
        MappingFault{"flush", 2, "T Leave: RenameProfileMapDB! flush  failed\n", {}, newEntry}));

TEST_F(BearerMoveTest, EntryThatCannotBeRemovedIsWarnedOfAndStays)
{
    const TreePtr tree = MountOffice(CONN_ROOT, GPRS_PART, PatternBytes(0));
    handset.faults.Fail("removeEntry");

    EXPECT_EQ(Write(tree, "Office/Bearer", Text("GSM-CSD")), 0);

    ExpectMessages({"T Warning: RenameProfileMapDB! removeEntry failed!\n"});
    EXPECT_EQ(NapdefOnDisk(), (Entries{{"5Ph1DC1", "Office"}, {"5Ph2DC1", "Office"}}));
    EXPECT_EQ(Mapped(tree), (Mapping{{"Office", "5Ph2DC1 C"}}));
}

TEST_F(BearerMoveTest, WithoutAMappingFileOnlyMemoryAndTheRecordChange)
{
    const TreePtr tree = MountOffice(CONN_ROOT, GPRS_PART, PatternBytes(0));
    CloseMappingFile(tree);

    EXPECT_EQ(Write(tree, "Office/Bearer", Text("GSM-CSD")), 0);

    EXPECT_EQ(handset.journal.Take(),
              (Lines{"NAPI_GetProfileNameByID(5)", R"(NAPI_ReadProfile("Office"))",
                     R"(NAPI_ModifyProfile("Office"))", R"(SetValue("Office/Bearer"))"}));
    EXPECT_EQ(Mapped(tree), (Mapping{{"Office", "5Ph2DC1 C"}}));
    EXPECT_EQ(NapdefOnDisk(), (Entries{{"5Ph1DC1", "Office"}}));
}

TEST_F(BearerMoveTest, BearerIsHandledByNameInTheProxyKindToo)
{
    const RecordBytes before = PatternBytes(0);
    const TreePtr tree = MountOffice(INTPROFS_ROOT, CSD_PART, before);
    PutLeaf(tree, "Office/Bearer", Text("GSM-CSD"));

    EXPECT_EQ(Write(tree, "Office/Bearer", Text("GSM-GPRS")), 0);

    EXPECT_EQ(
        handset.journal.Take(),
        (Lines{"NAPI_GetProfileNameByID(5)", R"(NAPI_ReadProfile("Office"))",
               R"(removeEntry(proxy, "PROXY_Profile", "5"))", "flush(proxy)",
               R"(setSettingInfo(proxy, "PROXY_Profile", "5Ph1DC1", "Office"))", "flush(proxy)",
               R"(NAPI_ModifyProfile("Office"))", R"(SetValue("Office/Bearer"))"}));
    EXPECT_TRUE(SameBytes(Stored(), Moved(before, "GSM-CSD", "GSM-GPRS")));
    EXPECT_EQ(Mapped(tree), (Mapping{{"Office", "5Ph1DC1 G"}}));
    EXPECT_EQ(ProxyOnDisk(), (Entries{{"5Ph1DC1", "Office"}}));
}

TEST_F(BearerMoveTest, MappingFollowsTheNameThatTheNodeHasNow)
{
    const TreePtr tree = MountOffice(CONN_ROOT);
    ASSERT_EQ(tree->RenameNode("Office", "B\xc3\xbcro"), 0);
    handset.journal.Clear();

    EXPECT_EQ(Write(tree, "B\xc3\xbcro/Bearer", Text("GSM-CSD")), 0);

    EXPECT_EQ(Mapped(tree), (Mapping{{"B\xc3\xbcro", "5Ph2DC1 C"}}));
    EXPECT_EQ(NapdefOnDisk(), (Entries{{"5Ph2DC1", "B\xc3\xbcro"}}));
}

} // namespace
