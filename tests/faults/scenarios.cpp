#include "scenarios.h"

namespace faults {

using doubles::CONN_GROUP;
using doubles::CONN_ROOT;
using doubles::INTPROFS_ROOT;
using doubles::NAPDEF_FILE;
using doubles::NAPDEF_GROUP;
using doubles::NodeMessage;
using doubles::PROXY_FILE;
using doubles::PROXY_GROUP;
using doubles::Record;
using doubles::TreeMessage;

int Mount(const char *root, JemSmartPtr<DmtPluginTree> &tree)
{
    return DMT_PluginLib_Data_GetPluginTree(root, nullptr, tree);
}

namespace {

// ---- The stage ----------------------------------------------------------------------------------

/// One profile for each bearer, and one that no tree shows.
void StoreProfiles(Stage &stage)
{
    stage.handset.napi.Store("Office", Record("internet"));
    stage.handset.napi.Store("Modem", Record("", "+491"));
    stage.handset.napi.Store("Second", Record("", "", "+492"));
    stage.handset.napi.Store("Empty", Record(""));
}

void Require(int status)
{
    if (status != DMT_OK)
        throw std::logic_error("a scenario could not be prepared: " + std::to_string(status));
}

void MountBoth(Stage &stage)
{
    StoreProfiles(stage);
    Require(Mount(CONN_ROOT, stage.conn));
    Require(Mount(INTPROFS_ROOT, stage.intProfs));
}

JemSmartPtr<DmtNode> NodeAt(const JemSmartPtr<DmtPluginTree> &tree, const std::string &path)
{
    JemSmartPtr<DmtNode> node;
    Require(tree->GetNode(path.c_str(), node));
    return node;
}

// ---- Messages -----------------------------------------------------------------------------------

Lines operator+(Lines left, const Lines &right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

Lines Tree(const std::string &text)
{
    return {TreeMessage(text + "\n")};
}

Lines NodeSays(const std::string &text)
{
    return {NodeMessage(text + "\n")};
}

const Lines MAPPING_FILE_FAILED = Tree("Leave: LoadProfilesinDB! LoadProfileMapCfgFile failed");
const Lines PUT_FAILED = Tree("Leave:LoadProfilesinDB : PutProfileMap  failed");
const Lines REMOVE_WARNING = Tree("Warning: RenameProfileMapDB! removeEntry failed!");
const Lines LIST_FAILED = Tree(
    "Leave: LoadProfilesinDB : NAPI_ListAllProfile failed! return %d! Not load profiles in fs!");
const Lines NO_BEARER_NODE =
    Tree("Leave: LoadChildrenofProfile()! RenameProfileMapDB() failed! Not load this profile!");
const Lines NAME_FAILED = Tree("Leave:GetProfileName! NAPI_GetProfileNameByID failed, return %d!");

// ---- Mounting -----------------------------------------------------------------------------------

/// Discarding the mapping file and opening the new one.
Script OpenOwnFile(const Follow &whenItReadsAsEmpty = Continuing())
{
    Script script;
    script.Ignored("getSettingDirectory").WhenFailing(whenItReadsAsEmpty);
    script.Ignored("unlink");
    script.Ends("new", Tree("Leave: LoadProfileMapCfgFile! new SETUP_SET_Manager failed!") +
                           MAPPING_FILE_FAILED);
    script.Ignored("SETUP_SET_Manager").WhenFailing(whenItReadsAsEmpty);
    return script;
}

Script ListProfiles()
{
    Script script;
    // Without a count there is no profile; without names there is none that can be read.
    script.Ends("NAPI_ListAllProfile", LIST_FAILED).WhenUntouched(Continuing({}, "profiles"));
    script.Ends("new[]", Tree("Leave: LoadProfilesinDB fail: Allocate memory failed! Not load "
                              "profiles in fs!"));
    script.Ends("NAPI_ListAllProfile", LIST_FAILED).WhenUntouched(Continuing({}, "profiles"));
    return script;
}

/// Reading, identifying and mapping one listed profile.
/// @param sharesKeys  the ID alone is the key: two profiles that get the same ID share their entry
Script MapProfile(const std::string &name, const std::string &allocationFailed, bool sharesKeys)
{
    Script write;
    write.Ends("setSettingInfo", Tree("Leave: PutProfileMap! setSettingInfo failed") + PUT_FAILED)
        .WhenUntouched(Continuing({}, {}, "no entry of " + name));
    write.Ends("flush", Tree("Leave: PutProfileMap! flush  failed") + PUT_FAILED);
    write.In("entry of " + name);

    Script map;
    map.Ends("NAPI_GetProfileIDByName",
             Tree("Leave: LoadProfilesinDB : NAPI_GetProfileIDByName failed! return %d"))
        .WhenUntouched([=](const Notes &notes) {
            const bool isTaken = sharesKeys && notes.count("ID 0 is mapped") > 0;
            return Outcome{{}, false, 0, isTaken ? "entry of " + name : "", "ID 0 is mapped"};
        });
    map.Ends("new", Tree(allocationFailed));
    map.Ignored("getSettingInfo");
    map.Append(write);
    map.In(name);

    const Follow passedOver = Continuing({}, name); // an empty record has no bearer either
    Script script;
    script.Ignored("NAPI_ReadProfile").WhenFailing(passedOver).WhenUntouched(passedOver);
    return script.Append(map).In("profiles");
}

/// A profile without a bearer is read, and that is all.
Script PassOverProfile()
{
    return Script().Ignored("NAPI_ReadProfile").In("profiles");
}

/// What the Bearer leaf of a profile does to the mapping file.
/// @param sharesKeyWith  a later node whose entry is the same one: gone when this half is not done
Script MoveKeyAtMount(const std::string &name, const std::string &sharesKeyWith = "nobody")
{
    const std::string rest = "second half of " + name;
    const std::string isGone = "no entry of " + sharesKeyWith;
    const auto refuses = [&](const std::string &text) {
        return Continuing(Tree(text) + NO_BEARER_NODE, rest, isGone);
    };
    Script secondHalf;
    secondHalf.Ignored("setSettingInfo")
        .WhenFailing(refuses("Leave: RenameProfileMapDB! setSettingInfo failed!"))
        .WhenUntouched(Continuing({}, {}, isGone));
    secondHalf.Warns("flush", Tree("Leave: RenameProfileMapDB! flush  failed") + NO_BEARER_NODE);
    secondHalf.In(rest);

    Script script;
    script.Warns("removeEntry", REMOVE_WARNING).WhenSucceeding([=](const Notes &notes) {
        return notes.count("no entry of " + name) ? Outcome{REMOVE_WARNING} : Outcome{};
    });
    script.Ignored("flush").WhenFailing(refuses("Leave: RenameProfileMapDB! flush  Failed"));
    return script.Append(secondHalf).In(name).In("profiles");
}

Lines NoReference(const std::string &slot)
{
    return Tree("Leave: GetConnValue(), the Conn of  " + slot + " has no related fields");
}

/// A query of the other tree's file that counts as empty when it cannot be opened.
Script QueryNapdefFile(const std::string &query, int entries)
{
    Script reads;
    reads.Ignored("SETUP_SET_Manager");
    for (int i = 0; i < entries; ++i)
        reads.Ignored("getSettingInfo");
    reads.In(query);
    Script script;
    script.Ignored("getSettingDirectory");
    script.Ignored("new").WhenFailing(Continuing({}, query));
    return script.Append(reads);
}

/// The default reference of a slot whose bearer the profile has.
Script StoreDefaultReference(const std::string &name)
{
    const Lines failed = Tree("Leave: GetConnValue! SetConnValue failed");
    Script script = QueryNapdefFile("name of " + name, 1);
    script.Ignored("setSettingInfo")
        .WhenFailing(Continuing(Tree("Leave: SetConnValue! setSettingInfo failed!") + failed,
                                "flush of " + name));
    script.Append(Script()
                      .Warns("flush", Tree("Leave: SetConnValue! flush  failed") + failed)
                      .In("flush of " + name));
    return script;
}

/// The three slots of a profile that has one bearer.
Script References(const std::string &name, const std::string &bearerSlot)
{
    Script script;
    for (const std::string slot : {"Ph1", "Ph2", "Ph3"}) {
        script.Ignored("getSettingInfo");
        if (slot == bearerSlot)
            script.Append(StoreDefaultReference(name));
        else
            script.Says(NoReference(slot));
    }
    return script.In(name).In("profiles");
}

constexpr char MEMORY_FAILED[] = "Leave: LoadProfilesinDB :  Allocate memory  failed";

Scenario MountConn()
{
    Script script = OpenOwnFile();
    script.Ignored("getEntryKeyList");
    script.Append(ListProfiles());
    script.Append(MapProfile("Office", MEMORY_FAILED, false));
    script.Append(MapProfile("Modem", MEMORY_FAILED, false));
    script.Append(MapProfile("Second", "Leave:LoadProfilesinDB: Allocate memory failed", false));
    script.Append(PassOverProfile());
    for (const char *name : {"Office", "Modem", "Second"})
        script.Append(MoveKeyAtMount(name));
    return {"mount-conn", StoreProfiles, [](Stage &stage) { return Mount(CONN_ROOT, stage.conn); },
            script};
}

Scenario MountIntProfs()
{
    constexpr char memoryFailed[] = "Leave:LoadProfilesinDB :  Allocate memory  failed";
    Script script = OpenOwnFile();
    script.Ignored("getEntryKeyList").Ignored("getEntryKeyList");
    script.Append(ListProfiles());
    for (const char *name : {"Office", "Modem", "Second"})
        script.Append(MapProfile(name, memoryFailed, true));
    script.Append(PassOverProfile());
    script.Append(References("Office", "Ph1"));
    script.Append(References("Modem", "Ph2"));
    script.Append(References("Second", "Ph3"));
    return {"mount-intprofs",
            [](Stage &stage) {
                StoreProfiles(stage);
                Require(Mount(CONN_ROOT, stage.conn));
            },
            [](Stage &stage) { return Mount(INTPROFS_ROOT, stage.intProfs); }, script};
}

// ---- Mounting over a file that could not be deleted ---------------------------------------------

/// An entry of the file that is stale, and why its key says so.
Script RemoveStaleEntry(const Lines &says, bool asksService)
{
    const Lines flushFailed =
        Tree("Leave: LoadProfileMapCfgFile! flush  failed") + MAPPING_FILE_FAILED;
    Script remove;
    remove.Warns("removeEntry", REMOVE_WARNING);
    remove.Ends("flush", flushFailed);
    remove.In("removal");
    Script script;
    script.Says(says);
    if (asksService) // a service that knows no name for the ID, but says it did, keeps the entry
        script.Ignored("NAPI_GetProfileNameByID").WhenUntouched(Continuing({}, "removal"));
    return script.Append(remove);
}

Script KeepEntry()
{
    Script script;
    script.Ignored("NAPI_GetProfileNameByID").WhenFailing(Continuing({}, "Kept"));
    Script record;
    record.Ends("new", Tree(MEMORY_FAILED) + MAPPING_FILE_FAILED);
    return script.Append(record.In("Kept"));
}

Scenario MountConnOverFile()
{
    const Follow isEmpty = Continuing({}, "entries");
    Script entries = KeepEntry();
    entries.Append(RemoveStaleEntry({}, true).In("removal of 9"));
    entries.Append(RemoveStaleEntry(Tree("ExtractProfileID() Failed: key = x, ID = 0"), false));
    entries.In("entries");

    Script office; // its key is in the file: nothing to write
    office.Ends("NAPI_GetProfileIDByName",
                Tree("Leave: LoadProfilesinDB : NAPI_GetProfileIDByName failed! return %d"));
    office.Ends("new", Tree(MEMORY_FAILED));
    office.Ignored("getSettingInfo");
    office.In("Office");
    const Follow passedOver = Continuing({}, "Office");

    Script script = OpenOwnFile(isEmpty);
    script.Ignored("getEntryKeyList").WhenFailing(isEmpty);
    script.Append(entries);
    script.Append(ListProfiles());
    Script read;
    read.Ignored("NAPI_ReadProfile").WhenFailing(passedOver).WhenUntouched(passedOver);
    script.Append(read.Append(office).In("profiles"));
    Script kept = MoveKeyAtMount("Kept", "Office");
    script.Append(kept.In("entries"));
    script.Append(MoveKeyAtMount("Office"));
    return {"mount-conn-over-file",
            [](Stage &stage) {
                stage.handset.napi.Store("Office", Record("internet"));
                stage.handset.settings.unlinkKeepsFiles = true;
                stage.handset.settings.Preload(NAPDEF_FILE, NAPDEF_GROUP, "1Ph1DC1", "Kept");
                stage.handset.settings.Preload(NAPDEF_FILE, NAPDEF_GROUP, "9Ph1DC1", "Gone");
                stage.handset.settings.Preload(NAPDEF_FILE, NAPDEF_GROUP, "x", "Bad");
            },
            [](Stage &stage) { return Mount(CONN_ROOT, stage.conn); }, script};
}

Scenario MountIntProfsOverFile()
{
    const Follow isEmpty = Continuing({}, "entries");

    // The bearers of the kept profile; only its reference for Ph1 asks for one of them.
    const Follow loses = Continuing({}, {}, "no bearer");
    Script bearers;
    bearers.Ignored("SETUP_SET_Manager").WhenFailing(loses);
    bearers.Ignored("getSettingInfo").WhenFailing(loses).WhenUntouched(loses);
    bearers.Ignored("getSettingInfo").Ignored("getSettingInfo");
    bearers.In("bearers");
    Script kept;
    kept.Ends("new", Tree(MEMORY_FAILED) + MAPPING_FILE_FAILED);
    kept.Ignored("getSettingDirectory").WhenFailing(loses);
    kept.Ignored("new").WhenFailing(Continuing({}, "bearers", "no bearer"));
    kept.Append(bearers);
    kept.In("Kept");
    Script entries;
    entries.Ignored("NAPI_GetProfileNameByID").WhenFailing(Continuing({}, "Kept"));
    entries.Append(kept);
    entries.In("entries");

    Script staleReference; // whether it could be removed is nobody's business
    staleReference.Ignored("removeEntry");
    staleReference.Ends("flush",
                        Tree("Leave: LoadProfileMapCfgFile! flush  failed") + MAPPING_FILE_FAILED);

    Script office;
    office.Ends("NAPI_GetProfileIDByName",
                Tree("Leave: LoadProfilesinDB : NAPI_GetProfileIDByName failed! return %d"));
    office.Ends("new", Tree("Leave:LoadProfilesinDB :  Allocate memory  failed"));
    office.Ignored("getSettingInfo");
    office.In("Office");

    // A reference that is not found has its default computed and stored again, unless the bearer
    // is lost too.
    const Follow asksForDefault = [](const Notes &notes) {
        return notes.count("no bearer") ? Outcome{NoReference("Ph1")} : Outcome{};
    };
    Script keptReferences;
    keptReferences.Ignored("getSettingInfo")
        .WhenFailing(asksForDefault)
        .WhenUntouched(asksForDefault);
    keptReferences.Ignored("getSettingInfo").Says(NoReference("Ph2"));
    keptReferences.Ignored("getSettingInfo").Says(NoReference("Ph3"));
    keptReferences.In("Kept").In("entries");

    Script script = OpenOwnFile(isEmpty);
    script.Ignored("getEntryKeyList").WhenFailing(isEmpty);
    script.Append(entries);
    script.Ignored("getEntryKeyList").WhenFailing(Continuing({}, "stale"));
    script.Append(staleReference.In("stale").In("entries"));
    script.Append(ListProfiles());
    const Follow passedOver = Continuing({}, "Office");
    Script read;
    read.Ignored("NAPI_ReadProfile").WhenFailing(passedOver).WhenUntouched(passedOver);
    script.Append(read.Append(office).In("profiles"));
    script.Append(keptReferences);
    script.Append(References("Office", "Ph1"));
    return {"mount-intprofs-over-file",
            [](Stage &stage) {
                stage.handset.napi.Store("Office", Record("internet"));
                Require(Mount(CONN_ROOT, stage.conn));
                stage.handset.settings.unlinkKeepsFiles = true;
                stage.handset.settings.Preload(PROXY_FILE, PROXY_GROUP, "1", "Kept");
                stage.handset.settings.Preload(PROXY_FILE, CONN_GROUP, "Kept/Ph1", "Reference");
                stage.handset.settings.Preload(PROXY_FILE, CONN_GROUP, "Gone/Ph2", "Reference");
            },
            [](Stage &stage) { return Mount(INTPROFS_ROOT, stage.intProfs); }, script};
}

// ---- Reading and writing leaves -----------------------------------------------------------------

/// Which of the two trees of a stage.
using TreeOf = JemSmartPtr<DmtPluginTree> Stage::*;

/// The record behind a leaf, for a reader. @param outer  messages of the callers above it
Script ReadRecord(const Lines &outer = {})
{
    const std::string readFailed = "Leave: GetValue() fail! NAPI_ReadProfile() return %d! ";
    Script script;
    script
        .Ends("NAPI_GetProfileNameByID",
              NAME_FAILED + NodeSays("Leave: GetValue() fail! GetProfileName() return error!") +
                  outer)
        // No name: no profile has it.
        .WhenUntouched(
            Ending(NodeSays("Leave: GetValue() fail! NAPI_ReadProfile() return 3! ") + outer));
    return script.Ends("NAPI_ReadProfile", NodeSays(readFailed) + outer);
}

const Lines SET_FAILED = NodeSays("Leave: SetValue()! SetValueInternal() failed!");
const Lines MODIFY_FAILED =
    NodeSays("Leave: SetValueInternal()! NAPI_ModifyProfile() failed! return %d");

/// The same for a writer.
Script ReadRecordToWrite(const Lines &outer)
{
    const std::string readFailed = "Leave: SetValueInternal()! NAPI_ReadProfile() failed! return ";
    Script script;
    script
        .Ends("NAPI_GetProfileNameByID",
              NAME_FAILED + NodeSays("Leave: SetValueInternal()! GetProfileName() failed!") + outer)
        .WhenUntouched(Ending(NodeSays(readFailed + "3") + outer));
    return script.Ends("NAPI_ReadProfile", NodeSays(readFailed + "%d") + outer);
}

Script WriteRecord(const Lines &outer = SET_FAILED)
{
    return ReadRecordToWrite(outer).Ends("NAPI_ModifyProfile", MODIFY_FAILED + outer);
}

Script WriteBearer(const Lines &outer = SET_FAILED)
{
    const auto moveFailed = [&](const std::string &text) {
        return Tree(text) + NodeSays("Leave: SetValueInternal()! RenameProfileMapDB() failed!") +
               outer;
    };
    Script script = ReadRecordToWrite(outer);
    script.Warns("removeEntry", REMOVE_WARNING);
    script.Ends("flush", moveFailed("Leave: RenameProfileMapDB! flush  Failed"));
    script.Ends("setSettingInfo", moveFailed("Leave: RenameProfileMapDB! setSettingInfo failed!"));
    script.Ends("flush", moveFailed("Leave: RenameProfileMapDB! flush  failed"));
    return script.Ends("NAPI_ModifyProfile", MODIFY_FAILED + outer);
}

Script WriteConn()
{
    const auto storeFailed = [](const std::string &text) {
        return Tree(text) + NodeSays("Leave: SetValueInternal()! SetConnValue() failed!") +
               SET_FAILED;
    };
    Script script = ReadRecordToWrite(SET_FAILED);
    script.Ends("setSettingInfo", storeFailed("Leave: SetConnValue! setSettingInfo failed!"));
    return script.Ends("flush", storeFailed("Leave: SetConnValue! flush  failed"));
}

struct Leaf {
    TreeOf tree;
    std::string path;
    DmtData value;
};

/// Every leaf whose value lives in the record, for each bearer's part that it can live in.
std::vector<Leaf> RecordLeaves()
{
    std::vector<Leaf> leaves;
    for (const std::string profile : {"Office/", "Modem/", "Second/"})
        for (const auto &[leaf, value] : std::initializer_list<std::pair<const char *, DmtData>>{
                 {"Addr", DmtData("new")},
                 {"DNS1", DmtData("10.0.0.1")},
                 {"DNS2", DmtData("10.0.0.2")},
                 {"Linger", DmtData(60)},
                 {"Auth/PAP/AuthId", DmtData("id")},
                 {"Auth/PAP/AuthPw", DmtData(PASSWORD)},
                 {"LineType", DmtData("Isdn")},
                 {"Speed", DmtData(9600)}})
            leaves.push_back({&Stage::conn, profile + leaf, value});
    for (const auto &[leaf, value] : std::initializer_list<std::pair<const char *, DmtData>>{
             {"Office/Ph1/Addr", DmtData("proxy")},
             {"Office/Ph2/Addr", DmtData("proxy")},
             {"Office/Ph3/Addr", DmtData("proxy")},
             {"Office/Ph1/Port/PortNbr", DmtData(8080)},
             {"Office/Ph2/Port/PortNbr", DmtData(8080)},
             {"Office/UserEditable", DmtData(false)}})
        leaves.push_back({&Stage::intProfs, leaf, value});
    return leaves;
}

Scenario Reading(const Leaf &leaf)
{
    return {"get-" + leaf.path, MountBoth,
            [leaf](Stage &stage) {
                DmtData value;
                return NodeAt(stage.*leaf.tree, leaf.path)->GetValue(value);
            },
            ReadRecord()};
}

Scenario Writing(const Leaf &leaf, const Script &script)
{
    return {
        "set-" + leaf.path, MountBoth,
        [leaf](Stage &stage) { return NodeAt(stage.*leaf.tree, leaf.path)->SetValue(leaf.value); },
        script};
}

// ---- Adding -------------------------------------------------------------------------------------

int AddInterior(const JemSmartPtr<DmtPluginTree> &tree, const char *path)
{
    JemSmartPtr<DmtNode> node;
    return tree->CreateInteriorNode(path, node);
}

int AddLeaf(const JemSmartPtr<DmtPluginTree> &tree, const char *path, const DmtData &value)
{
    JemSmartPtr<DmtNode> node;
    return tree->CreateLeafNode(path, node, value);
}

Lines IdNotFound(const std::string &status)
{
    return Tree("Leave:CreateInteriorNodeInternal():NAPI_GetProfileIDByName  failed! return " +
                status);
}

Lines CreateFailed(const std::string &status)
{
    return Tree("Leave:CreateInteriorNodeInternal: NAPI_CreateProfile failed! return " + status);
}

/// Mapping a profile that is there.
Script MapAddedProfile()
{
    const Lines mapFailed = Tree("Leave:CreateInteriorNodeInternal: AddProfileMap failed");
    Script script;
    script.Ends("new", Tree("Leave:CreateInteriorNodeInternal() fail: Allocate memory  failed"));
    script.Ends("NAPI_GetProfileIDByName", IdNotFound("%d"));
    script.Ignored("getSettingInfo");
    script.Ends("setSettingInfo", Tree("Leave: AddProfileMap:setSettingInfo  Failed") + mapFailed);
    return script.Ends("flush", Tree("Leave: AddProfileMap:flush  Failed") + mapFailed);
}

Script CreateProfile()
{
    Script script;
    // A service that says the profile is there makes the plug-in look for its ID.
    script.Ignored("NAPI_IsProfileValid").WhenUntouched(Ending(IdNotFound("3")));
    script.Ends("NAPI_GetMaxProfiles",
                Tree("Leave: CreateInteriorNodeInternal()! Profile number reaches maximum!"));
    script.Ends("NAPI_CreateProfile", CreateFailed("%d")).WhenUntouched(Ending(IdNotFound("3")));
    return script.Append(MapAddedProfile());
}

Script AdoptProfile()
{
    Script script; // a profile that is said not to be there is created, which the service refuses
    script.Ends("NAPI_IsProfileValid", CreateFailed("4"));
    return script.Append(MapAddedProfile());
}

const Lines ADD_LEAF_FAILED = Tree("Leave: CreateLeafNode()! SetValueInternal failed! 1");

void AddAdditions(std::vector<Scenario> &scenarios)
{
    for (const TreeOf tree : {&Stage::conn, &Stage::intProfs}) {
        const std::string kind = tree == &Stage::conn ? "conn" : "intprofs";
        scenarios.push_back({"add-profile-" + kind, MountBoth,
                             [tree](Stage &stage) { return AddInterior(stage.*tree, "New"); },
                             CreateProfile()});
        scenarios.push_back({"adopt-profile-" + kind, MountBoth,
                             [tree](Stage &stage) { return AddInterior(stage.*tree, "Empty"); },
                             AdoptProfile()});
    }
    const auto withNew = [](Stage &stage) {
        MountBoth(stage);
        Require(AddInterior(stage.conn, "New"));
    };
    scenarios.push_back(
        {"add-record-leaf", withNew,
         [](Stage &stage) { return AddLeaf(stage.conn, "New/Addr", DmtData("+493")); },
         WriteRecord(ADD_LEAF_FAILED)});
    scenarios.push_back(
        {"add-bearer-leaf", withNew,
         [](Stage &stage) { return AddLeaf(stage.conn, "New/Bearer", DmtData("GSM-GPRS")); },
         WriteBearer(ADD_LEAF_FAILED)});
    scenarios.push_back({"add-interior-node", withNew,
                         [](Stage &stage) { return AddInterior(stage.conn, "New/Auth"); },
                         Script()});
}

// ---- Renaming and deleting ----------------------------------------------------------------------

Script RenameProfile(bool hasReference)
{
    const Lines renameFailed = Tree("Leave: RenameNode! RenameProfileMap failed!");
    Script script;
    script.Ends("setSettingInfo",
                Tree("Leave: RenameProfileMap! setSettingInfo failed!") + renameFailed);
    script.Ends("flush", Tree("Leave: RenameProfileMap! flush  failed") + renameFailed);
    if (hasReference) { // nothing about references is examined
        const Follow isAbsent = Continuing({}, "reference");
        script.Ignored("getSettingInfo").WhenFailing(isAbsent).WhenUntouched(isAbsent);
        script.Append(Script()
                          .Ignored("removeEntry")
                          .Ignored("setSettingInfo")
                          .Ignored("flush")
                          .In("reference"));
        script.Ignored("getSettingInfo").Ignored("getSettingInfo");
    }
    return script.Says(Tree("Leave: RenameProfileMap!"));
}

const Lines DELETE_FAILED = Tree("Leave: DeleteNode! DeleteProfileInDB failed! ");

/// Up to the moment when the profile's ID is known.
Script Unmap(int references)
{
    Script script;
    script
        .Ends("NAPI_GetProfileNameByID",
              NAME_FAILED + Tree("Leave: DeleteNode! GetProfileName failed! "))
        .WhenUntouched(Continuing({}, {}, "no name"));
    const Follow keeps = Continuing({}, {}, "own entry is left");
    script.Warns("removeEntry", REMOVE_WARNING)
        .WhenFailing(Continuing(REMOVE_WARNING, {}, "own entry is left"))
        .WhenUntouched(keeps);
    for (int i = 0; i < references; ++i)
        script.Ignored("removeEntry");
    script.Ends("flush", Tree("Leave: DeleteProfileMap! flush  Failed") +
                             Tree("Leave: DeleteNode! DeleteProfileMap failed! "));
    const auto idFailed = [](const std::string &status) {
        return Tree("Leave:DeleteProfileInDB: NAPI_GetProfileIDByName  failed! return " + status) +
               DELETE_FAILED;
    };
    script.Ends("NAPI_GetProfileIDByName", idFailed("%d"))
        .WhenSucceeding([=](const Notes &notes) {
            return notes.count("no name") ? Outcome{idFailed("3"), true, 1} : Outcome{};
        })
        .WhenUntouched(Continuing({}, {}, "another ID")); // which nothing maps
    return script;
}

/// Looking for entries of the profile in both files.
/// @param otherHasIt  index of the read that finds one; -1 when none does
Script LookForEntries(int entryFound)
{
    const Follow otherIsEmpty = Continuing({}, {}, entryFound >= 0 ? "entry is not found" : "");
    Script reads;
    reads.Ignored("SETUP_SET_Manager").WhenFailing(otherIsEmpty);
    for (int i = 0; i < 4; ++i) {
        reads.Ignored("getSettingInfo");
        if (i == entryFound)
            reads.WhenFailing(otherIsEmpty).WhenUntouched(otherIsEmpty);
    }
    reads.In("look-up");
    Script script;
    script.Ignored("getSettingDirectory").WhenFailing(otherIsEmpty);
    script.Ignored("new").WhenFailing(Continuing({}, "look-up", "cannot be looked up"));
    return script.Append(reads);
}

/// Clearing the part of a profile that another subtree still uses. When the other entry is not
/// found the profile is deleted as a whole instead.
Script ClearPart()
{
    const Follow deletesInstead = [](const Notes &notes) {
        const bool isMapped =
            notes.count("own entry is left") || notes.count("cannot be looked up");
        const bool isDeleted =
            notes.count("another ID") || (notes.count("entry is not found") && !isMapped);
        return isDeleted ? Outcome{Tree("Leave: DeleteProfileInDB!"), true, 0} : Outcome{};
    };
    Script script;
    script.Says(deletesInstead);
    script.Ends("NAPI_ReadProfile",
                Tree("??? Leave: DeleteProfileInDB : NAPI_ReadProfile failed! return %d") +
                    DELETE_FAILED);
    return script.Ends("NAPI_ModifyProfile",
                       Tree("Leave: SetValue()! NAPI_ModifyProfile() failed! return %d") +
                           DELETE_FAILED);
}

/// Deleting a profile that nothing uses any more. When that cannot be told, its part is cleared.
Script DeleteWhole()
{
    const Follow clearsInstead = [](const Notes &notes) {
        const bool isMapped = (notes.count("own entry is left") && !notes.count("another ID")) ||
                              notes.count("cannot be looked up");
        return isMapped ? Outcome{{}, true, 0} : Outcome{};
    };
    Script script;
    script.Says(clearsInstead);
    script.Ends("NAPI_DeleteProfile",
                Tree("Leave: DeleteProfileInDB! NAPI_DeleteProfile failed! return %d") +
                    DELETE_FAILED);
    return script.Says(Tree("Leave: DeleteProfileInDB!"));
}

void AddRenames(std::vector<Scenario> &scenarios)
{
    scenarios.push_back({"rename-conn", MountBoth,
                         [](Stage &stage) { return stage.conn->RenameNode("Office", "Work"); },
                         RenameProfile(false)});
    scenarios.push_back({"rename-intprofs", MountBoth,
                         [](Stage &stage) { return stage.intProfs->RenameNode("Office", "Work"); },
                         RenameProfile(true)});
}

void AddDeletions(std::vector<Scenario> &scenarios)
{
    const auto deleting = [](TreeOf tree) {
        return [tree](Stage &stage) { return (stage.*tree)->DeleteNode("Office"); };
    };
    const auto withoutOther = [](TreeOf other) {
        return [other](Stage &stage) {
            MountBoth(stage);
            Require((stage.*other)->DeleteNode("Office"));
        };
    };
    constexpr int ownReads[] = {0, 1}; // PROXY_Profile, and NAPIDEF_Profile with the GPRS suffix
    scenarios.push_back({"delete-conn-not-last", MountBoth, deleting(&Stage::conn),
                         Unmap(0).Append(LookForEntries(ownReads[0])).Append(ClearPart())});
    scenarios.push_back({"delete-conn-last", withoutOther(&Stage::intProfs), deleting(&Stage::conn),
                         Unmap(0).Append(LookForEntries(-1)).Append(DeleteWhole())});
    scenarios.push_back({"delete-intprofs-not-last", MountBoth, deleting(&Stage::intProfs),
                         Unmap(3).Append(LookForEntries(ownReads[1])).Append(ClearPart())});
    scenarios.push_back({"delete-intprofs-last", withoutOther(&Stage::conn),
                         deleting(&Stage::intProfs),
                         Unmap(3).Append(LookForEntries(-1)).Append(DeleteWhole())});
    scenarios.push_back({"delete-leaf", MountBoth,
                         [](Stage &stage) { return stage.conn->DeleteNode("Office/Addr"); },
                         Script()});
}

// ---- All children, and letting go ---------------------------------------------------------------

void AddBulk(std::vector<Scenario> &scenarios)
{
    Script readAll; // "Bearer" needs no call
    for (int leaf = 0; leaf < 6; ++leaf)
        readAll.Append(ReadRecord(Tree("Leave: GetChildValuesMap! GetChildNodes failed!")));
    scenarios.push_back({"get-children-map", MountBoth,
                         [](Stage &stage) {
                             DmtChildValuesMap values;
                             return stage.conn->GetChildValuesMap("Office", values);
                         },
                         readAll});
    Script writeTwo;
    for (int leaf = 0; leaf < 2; ++leaf)
        writeTwo.Append(
            WriteRecord(SET_FAILED + Tree("Leave: SetChildValuesMap! SetValue failed!")));
    scenarios.push_back({"set-children-map", MountBoth,
                         [](Stage &stage) {
                             DmtChildValuesMap values;
                             values.put("Addr", DmtData("new"));
                             values.put("Linger", DmtData(60));
                             return stage.conn->SetChildValuesMap("Office", values);
                         },
                         writeTwo});
    scenarios.push_back({"release", MountBoth,
                         [](Stage &stage) {
                             stage.conn.reset();
                             stage.intProfs.reset();
                             return 0;
                         },
                         Script()});
}

} // namespace

std::vector<Scenario> AllScenarios()
{
    std::vector<Scenario> scenarios{MountConn(), MountIntProfs(), MountConnOverFile(),
                                    MountIntProfsOverFile()};
    for (const Leaf &leaf : RecordLeaves()) {
        scenarios.push_back(Reading(leaf));
        scenarios.push_back(Writing(leaf, WriteRecord()));
    }
    for (const char *bearer : {"GSM-GPRS", "GSM-CSD", "GSM-CSD2"})
        for (const char *path : {"Office/Bearer", "Modem/Bearer", "Second/Bearer"}) {
            scenarios.push_back(Writing({&Stage::conn, path, DmtData(bearer)}, WriteBearer()));
            scenarios.back().name += std::string("-") + bearer;
        }
    scenarios.push_back(
        Writing({&Stage::intProfs, "Office/Ph1/Conn", DmtData("Modem")}, WriteConn()));
    AddAdditions(scenarios);
    AddRenames(scenarios);
    AddDeletions(scenarios);
    AddBulk(scenarios);
    return scenarios;
}

} // namespace faults
