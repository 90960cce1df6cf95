// Fails every outside call of every scenario, once and from then on, in each way that it can fail.
//
//   fault-sweep                                     everything
//   fault-sweep SCENARIO SITE NTH KIND MODE         the one case that a failure has printed
//
// After each run: the status and the messages are those that the scenario's script gives for the
// fault, the engine's memory is balanced, a record holds its old or its new bytes, and both roots
// mount over what is left. At the end every call site of the plug-in's sources must have failed.
#include "call_sites.h"
#include "scenarios.h"

#include <cstring>
#include <iostream>
#include <map>

namespace faults {
namespace {

using doubles::Fault;
using doubles::FaultKind;

const std::set<std::string> ENGINE_SITES{"GetNode",       "SetNode",  "DeleteNode",
                                         "GetChildNodes", "SetValue", "Rename"};

/// The ways in which a call of a site can fail.
struct Kind {
    const char *name;
    FaultKind kind;
    int status;
};

std::vector<Kind> KindsOf(const std::string &site)
{
    constexpr Kind refused{"refused", FaultKind::Fails, 99};
    constexpr Kind untouched{"untouched", FaultKind::SucceedsUntouched, 0};
    if (site == "NAPI_GetMaxProfiles") // its result is the number itself
        return {{"zero", FaultKind::Fails, 0}, {"negative", FaultKind::Fails, -1}};
    if (site.rfind("NAPI_", 0) == 0)
        return {refused, {"not-found", FaultKind::Fails, NAPI_ERROR_NOT_FOUND}, untouched};
    if (site == "new" || site == "new[]")
        return {{"null", FaultKind::Fails, 0}};
    if (site == "SETUP_SET_Manager" || site == "getEntryKeyList" || site == "getSettingDirectory")
        return {{"empty", FaultKind::Fails, 0}};
    return {{"false", FaultKind::Fails, 0}, untouched};
}

struct Case {
    const Scenario *scenario;
    Fault fault;
    const char *kind;

    std::string Command() const
    {
        return "fault-sweep " + scenario->name + " '" + fault.site + "' " +
               std::to_string(fault.nth) + " " + kind + " " +
               (fault.fromThenOn ? "persistent" : "once");
    }
};

using Records = std::map<std::string, std::string>;

std::string BytesOf(const NAP_PROFILE_S &record)
{
    return std::string(reinterpret_cast<const char *>(&record), sizeof record);
}

Records RecordsOf(const Stage &stage)
{
    Records records;
    for (const auto &profile : stage.handset.napi.profiles)
        records[profile.name] = BytesOf(profile.record);
    return records;
}

struct CleanRun {
    Lines sites;
    Records before;
    Records after;
    std::set<std::string> written; ///< records that the operation wrote on the way
};

class Sweep {
public:
    bool RunAll();
    bool RunOne(const std::vector<std::string> &words);

private:
    bool Run(const Case &one, const CleanRun &clean);
    CleanRun RunClean(const Scenario &scenario, std::string &problems);
    std::vector<Case> CasesOf(const Scenario &scenario, const CleanRun &clean) const;
    void Watch(Stage &stage, Lines *sites);

    CallSites m_callSites;
    int m_cases = 0;
    int m_refused = 0;
    int m_tolerated = 0;
};

std::string Joined(const Lines &lines)
{
    std::string text;
    for (const std::string &line : lines)
        text += "    " + line + (!line.empty() && line.back() == '\n' ? "" : "\n");
    return text;
}

/// What is not as it has to be, a line each.
std::string Compare(int status, const Lines &messages, const Expected &expected)
{
    std::string problems;
    for (const std::string &message : messages)
        if (message.find(PASSWORD) != std::string::npos)
            problems += "  a message has the password\n";
    if (status != expected.status)
        problems += "  status " + std::to_string(status) + ", expected " +
                    std::to_string(expected.status) + "\n";
    if (messages != expected.messages)
        problems +=
            "  messages:\n" + Joined(messages) + "  expected:\n" + Joined(expected.messages);
    return problems;
}

std::string CheckRecords(const Records &found, const CleanRun &clean)
{
    std::string problems;
    for (const auto &[name, record] : found) {
        const auto before = clean.before.find(name);
        const auto after = clean.after.find(name);
        const bool isOld = before != clean.before.end() && before->second == record;
        const bool isNew = (after != clean.after.end() && after->second == record) ||
                           clean.written.count(record) > 0;
        // A profile that the clean run deletes may also be left with one part cleared.
        const bool isDeleted = after == clean.after.end() && before != clean.before.end();
        if (!isOld && !isNew && !isDeleted)
            problems += "  the record of " + name + " is neither the old nor the new one\n";
    }
    return problems;
}

std::string CheckNextMount(Stage &stage)
{
    stage.handset.faults.Clear();
    stage.conn.reset();
    stage.intProfs.reset();
    stage.handset.settings.unlinkKeepsFiles = false;
    std::string problems;
    if (Mount(doubles::CONN_ROOT, stage.conn) != 0)
        problems += "  the next mount of Conn fails\n";
    if (Mount(doubles::INTPROFS_ROOT, stage.intProfs) != 0)
        problems += "  the next mount of IntProfs fails\n";
    return problems;
}

void Sweep::Watch(Stage &stage, Lines *sites)
{
    stage.handset.faults.observer = [this, sites](const std::string &site, bool hit) {
        if (ENGINE_SITES.count(site))
            return;
        if (sites)
            sites->push_back(site);
        m_callSites.Reached(site, hit);
    };
}

CleanRun Sweep::RunClean(const Scenario &scenario, std::string &problems)
{
    CleanRun clean;
    Stage stage;
    scenario.prepare(stage);
    clean.before = RecordsOf(stage);
    stage.handset.napi.modified.clear();
    stage.handset.log.Take();
    Watch(stage, &clean.sites);
    const int status = scenario.run(stage);
    stage.handset.faults.observer = {};
    clean.after = RecordsOf(stage);
    for (const NAP_PROFILE_S &record : stage.handset.napi.modified)
        clean.written.insert(BytesOf(record));
    problems = Compare(status, stage.handset.log.Take(), scenario.script.Play(nullptr));
    if (clean.sites != scenario.script.Sites())
        problems += "  outside calls:\n" + Joined(clean.sites) + "  in the script:\n" +
                    Joined(scenario.script.Sites());
    return clean;
}

bool Sweep::Run(const Case &one, const CleanRun &clean)
{
    const std::size_t blocksBefore = dmnative_control::LiveBlocks();
    std::string problems;
    {
        Stage stage;
        one.scenario->prepare(stage);
        stage.handset.log.Take();
        stage.handset.faults.Clear();
        stage.handset.faults.Add(one.fault);
        Watch(stage, nullptr);
        const int status = one.scenario->run(stage);
        stage.handset.faults.observer = {};
        if (stage.handset.faults.Fired() == 0)
            problems += "  the fault did not fire\n";
        problems +=
            Compare(status, stage.handset.log.Take(), one.scenario->script.Play(&one.fault));
        if (one.fault.kind == FaultKind::Fails) // a service that lies may be told to store anything
            problems += CheckRecords(RecordsOf(stage), clean);
        problems += CheckNextMount(stage);
        ++(status == 0 ? m_tolerated : m_refused);
    }
    if (dmnative_control::LiveBlocks() != blocksBefore)
        problems += "  blocks of the engine leaked\n";
    ++m_cases;
    if (!problems.empty())
        std::cout << "FAILED: " << one.Command() << '\n' << problems;
    return problems.empty();
}

std::vector<Case> Sweep::CasesOf(const Scenario &scenario, const CleanRun &clean) const
{
    std::vector<Case> cases;
    std::map<std::string, int> calls;
    for (const std::string &site : clean.sites) {
        ++calls[site];
        for (const Kind &kind : KindsOf(site))
            for (const bool fromThenOn : {false, true})
                cases.push_back({&scenario,
                                 {site, calls[site], fromThenOn, kind.kind, kind.status},
                                 kind.name});
    }
    return cases;
}

bool Sweep::RunAll()
{
    bool allRight = true;
    for (const Scenario &scenario : AllScenarios()) {
        std::string problems;
        const CleanRun clean = RunClean(scenario, problems);
        if (!problems.empty()) {
            std::cout << "FAILED: " << scenario.name << " without a fault\n" << problems;
            allRight = false;
            continue;
        }
        for (const Case &one : CasesOf(scenario, clean))
            allRight &= Run(one, clean);
    }
    std::size_t callSites = 0;
    const std::string unreached = m_callSites.NeverFailed(KUB_PLUGIN_SOURCE_DIR, callSites);
    if (!unreached.empty())
        std::cout << "FAILED: call sites that never failed\n" << unreached;
    std::cout << m_cases << " faults: " << m_refused << " ended the operation with a failure, "
              << m_tolerated << " were tolerated; " << callSites << " call sites\n";
    return allRight && unreached.empty();
}

bool Sweep::RunOne(const std::vector<std::string> &words)
{
    for (const Scenario &scenario : AllScenarios()) {
        if (words[0] != scenario.name)
            continue;
        std::string problems;
        const CleanRun clean = RunClean(scenario, problems);
        std::cout << problems;
        for (const Case &one : CasesOf(scenario, clean))
            if (words[1] == one.fault.site && words[2] == std::to_string(one.fault.nth) &&
                words[3] == one.kind && (words[4] == "persistent") == one.fault.fromThenOn)
                return Run(one, clean);
    }
    std::cout << "there is no such case\n";
    return false;
}

} // namespace
} // namespace faults

int main(int argc, char **argv)
{
    faults::Sweep sweep;
    if (argc == 6)
        return sweep.RunOne({argv + 1, argv + argc}) ? 0 : 1;
    if (argc == 1)
        return sweep.RunAll() ? 0 : 1;
    std::cerr << "usage: fault-sweep [SCENARIO SITE NTH KIND once|persistent]\n";
    return 2;
}
