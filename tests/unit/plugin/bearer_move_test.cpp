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

/// What a row of the table does to a record, in literal offsets.
struct MoveRow {
    const char *from;
    const char *to;
    void (*expect)(RecordBytes &bytes);
};

void GprsToCsd(RecordBytes &bytes)
{
    Copy(bytes, 0x008, 0x17D, 44);
    Copy(bytes, 0x06C, 0x1A9, 64);
    Copy(bytes, 0x0D0, 0x1E9, 64);
    Copy(bytes, 0x138, 0x230, 4);
    Copy(bytes, 0x13C, 0x234, 4);
    Copy(bytes, 0x140, 0x238, 2);
    Zero(bytes, 0x23B, 1);
    Zero(bytes, 0x008, 100);
    Zero(bytes, 0x06C, 100);
    Zero(bytes, 0x0D0, 100);
    Zero(bytes, 0x138, 4);
    Zero(bytes, 0x13C, 4);
    Zero(bytes, 0x140, 2);
}

void GprsToCsd2(RecordBytes &bytes)
{
    Copy(bytes, 0x008, 0x23C, 44);
    Copy(bytes, 0x06C, 0x268, 64);
    Copy(bytes, 0x0D0, 0x2A8, 64);
    Copy(bytes, 0x138, 0x2EC, 4);
    Copy(bytes, 0x13C, 0x2F0, 4);
    Copy(bytes, 0x140, 0x2F4, 2);
    Zero(bytes, 0x2F7, 1);
    Zero(bytes, 0x008, 100);
    Zero(bytes, 0x06C, 100);
    Zero(bytes, 0x0D0, 100);
    Zero(bytes, 0x138, 4);
    Zero(bytes, 0x13C, 4);
    Zero(bytes, 0x140, 2);
}

void CsdToGprs(RecordBytes &bytes)
{
    Zero(bytes, 0x008, 100);
    Zero(bytes, 0x06C, 100);
    Zero(bytes, 0x0D0, 100);
    Copy(bytes, 0x17D, 0x008, 44);
    Copy(bytes, 0x1A9, 0x06C, 64);
    Copy(bytes, 0x1E9, 0x0D0, 64);
    Copy(bytes, 0x230, 0x138, 4);
    Copy(bytes, 0x234, 0x13C, 4);
    Copy(bytes, 0x238, 0x140, 2);
    Zero(bytes, 0x17D, 44);
    Zero(bytes, 0x1A9, 64);
    Zero(bytes, 0x1E9, 64);
    Zero(bytes, 0x230, 4);
    Zero(bytes, 0x234, 4);
    Zero(bytes, 0x238, 2);
    Zero(bytes, 0x23B, 1);
}

void NoBearerToCsd2(RecordBytes &bytes)
{
    Copy(bytes, 0x17D, 0x23C, 44);
    Copy(bytes, 0x1A9, 0x268, 64);
    Copy(bytes, 0x1E9, 0x2A8, 64);
    Copy(bytes, 0x230, 0x2EC, 4);
    Copy(bytes, 0x234, 0x2F0, 4);
    Copy(bytes, 0x238, 0x2F4, 2);
    Copy(bytes, 0x23B, 0x2F7, 1);
    Zero(bytes, 0x17D, 44);
    Zero(bytes, 0x1A9, 64);
    Zero(bytes, 0x1E9, 64);
    Zero(bytes, 0x238, 2);
    Zero(bytes, 0x23B, 1);
}

void CsdToCsd2(RecordBytes &bytes)
{
    NoBearerToCsd2(bytes);
    Zero(bytes, 0x230, 4); // the servers stay where they are when there was no bearer
    Zero(bytes, 0x234, 4);
}

void Csd2ToGprs(RecordBytes &bytes)
{
    Zero(bytes, 0x008, 100);
    Zero(bytes, 0x06C, 100);
    Zero(bytes, 0x0D0, 100);
    Copy(bytes, 0x23C, 0x008, 44);
    Copy(bytes, 0x268, 0x06C, 64);
    Copy(bytes, 0x2A8, 0x0D0, 64);
    Copy(bytes, 0x2EC, 0x138, 4);
    Copy(bytes, 0x2F0, 0x13C, 4);
    Copy(bytes, 0x2F4, 0x140, 2);
    Zero(bytes, 0x23C, 44);
    Zero(bytes, 0x268, 64);
    Zero(bytes, 0x2A8, 64);
    Zero(bytes, 0x2EC, 4);
    Zero(bytes, 0x2F0, 4);
    Zero(bytes, 0x2F4, 2);
    Zero(bytes, 0x2F7, 1);
}

void Csd2ToCsd(RecordBytes &bytes)
{
    Copy(bytes, 0x23C, 0x17D, 44);
    Copy(bytes, 0x268, 0x1A9, 64);
    Copy(bytes, 0x2A8, 0x1E9, 64);
    Copy(bytes, 0x2EC, 0x230, 4);
    Copy(bytes, 0x2F0, 0x234, 4);
    Copy(bytes, 0x2F4, 0x238, 2);
    Copy(bytes, 0x2F7, 0x23B, 1);
    Zero(bytes, 0x23C, 44);
    Zero(bytes, 0x268, 64);
    Zero(bytes, 0x2A8, 64);
    Zero(bytes, 0x2EC, 4);
    Zero(bytes, 0x2F0, 4);
    Zero(bytes, 0x2F4, 2);
    Zero(bytes, 0x2F7, 1);
}

void Nothing(RecordBytes &) {}

const MoveRow moveRows[] = {
    {"GSM-GPRS", "GSM-CSD", GprsToCsd},
    {"GSM-GPRS", "GSM-CSD2", GprsToCsd2},
    {"GSM-CSD", "GSM-GPRS", CsdToGprs},
    {"", "GSM-GPRS", CsdToGprs},
    {"GSM-CSD", "GSM-CSD2", CsdToCsd2},
    {"", "GSM-CSD2", NoBearerToCsd2},
    {"GSM-CSD2", "GSM-GPRS", Csd2ToGprs},
    {"GSM-CSD2", "GSM-CSD", Csd2ToCsd},
    {"GSM-GPRS", "GSM-GPRS", Nothing},
    {"GSM-CSD", "GSM-CSD", Nothing},
    {"GSM-CSD2", "GSM-CSD2", Nothing},
    {"", "GSM-CSD", Nothing},
    {"", "", Nothing},
    {"GPRS", "GPRS", Nothing},
    {"GSM-GPRS", "", Nothing},
    {"GSM-CSD", "", Nothing},
    {"GSM-CSD2", "", Nothing},
    {"GSM-GPRS", "GPRS", Nothing},
    {"GSM-CSD", "gsm-csd2", Nothing},
    {"GSM-CSD2", "GSM-CSD3", Nothing},
    {"", "GPRS", Nothing},
    {"GPRS", "GSM-GPRS", Nothing},
    {"GPRS", "GSM-CSD", Nothing},
    {"gsm-csd", "GSM-CSD2", Nothing},
    {" GSM-CSD2", "GSM-CSD", Nothing},
};

class MoveRowTest : public PluginTest, public ::testing::WithParamInterface<MoveRow> {};

TEST_P(MoveRowTest, ChangesExactlyTheBytesOfTheTwoParts)
{
    const MoveRow &row = GetParam();
    for (const RecordBytes &before : RecordsToMove()) {
        RecordBytes expected = before;
        row.expect(expected);
        NAP_PROFILE_S record = ToRecord(before);

        DM_NAPI_PluginNode::MoveFieldInNAPI(&record, row.from, row.to);

        EXPECT_TRUE(SameBytes(record, expected)) << '"' << row.from << "\" to \"" << row.to << '"';
    }
    ExpectNothingLogged();
    EXPECT_EQ(handset.journal.Take(), Lines{});
}

INSTANTIATE_TEST_SUITE_P(AllRows, MoveRowTest, ::testing::ValuesIn(moveRows));

class BearerMoveTest : public ServerChangeTest {};

TEST_F(BearerMoveTest, TextEndsAtItsTerminatorAndTheRestOfTheTargetIsZero)
{
    // Behind the terminator stands what an earlier, longer text has left.
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

TEST_F(BearerMoveTest, TextThatJustFitsAndTextThatIsOneByteLongerBothFillTheTarget)
{
    for (const std::size_t length : {43u, 44u, 45u, 99u, 100u}) {
        RecordBytes bytes{};
        PutText(bytes, 0x008, 100, std::string(length, 'a'));
        PutText(bytes, 0x06C, 100, std::string(length, 'i'));
        PutText(bytes, 0x0D0, 100, std::string(length, 'p'));
        NAP_PROFILE_S record = ToRecord(bytes);

        DM_NAPI_PluginNode::MoveFieldInNAPI(&record, "GSM-GPRS", "GSM-CSD2");

        RecordBytes expected{};
        PutText(expected, 0x23C, 44, std::string(length, 'a'));
        PutText(expected, 0x268, 64, std::string(length, 'i'));
        PutText(expected, 0x2A8, 64, std::string(length, 'p'));
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
    RecordBytes expected = before;
    GprsToCsd2(expected);
    EXPECT_TRUE(SameBytes(Stored(), expected));
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
            RecordBytes expected = before;
            for (const MoveRow &row : moveRows)
                if (std::string(row.from) == from.bearer && std::string(row.to) == to.bearer)
                    row.expect(expected);

            EXPECT_EQ(Write(tree, "Office/Bearer", Text(to.bearer)), 0);

            EXPECT_TRUE(SameBytes(Stored(), expected)) << from.bearer << " to " << to.bearer;
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
    const MoveRow writes[] = {
        {"", "GSM-GPRS", CsdToGprs}, {"", "GSM-CSD2", NoBearerToCsd2}, {"", "GSM-CSD", Nothing}};
    for (const auto &[noBearer, bearer, expect] : writes) {
        handset.napi.profiles.clear();
        const RecordBytes before = PatternBytes(0);
        const TreePtr tree = MountOffice(CONN_ROOT, CSD_PART, before);
        SetEngineValue(tree, "Office/Bearer", Text(noBearer));

        EXPECT_EQ(Write(tree, "Office/Bearer", Text(bearer)), 0);

        RecordBytes expected = before;
        expect(expected);
        EXPECT_TRUE(SameBytes(Stored(), expected)) << bearer;
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
    RecordBytes expected = PatternBytes(0);
    GprsToCsd(expected);
    EXPECT_TRUE(SameBytes(Stored(), expected));
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
    RecordBytes expected = before;
    CsdToGprs(expected);
    EXPECT_TRUE(SameBytes(Stored(), expected));
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
