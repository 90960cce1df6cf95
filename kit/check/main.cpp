// dm-plugin-check: examines the binary of a data plug-in.

#include "checks.h"
#include "common_rows.h"
#include "examination.h"
#include "instruments.h"
#include "program.h"
#include "report.h"
#include "terminal.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <algorithm>
#include <system_error>

using commandline::Candidate;
using commandline::Command;
using commandline::ExitStatus;
using commandline::Invocation;
using commandline::Option;
using commandline::Output;
using commandline::ValueKind;

namespace {

constexpr char rootName[] = "root";
constexpr char stateName[] = "state";
constexpr char timeoutName[] = "timeout";
constexpr char junitName[] = "junit";
constexpr char valgrindName[] = "valgrind";

constexpr Option options[] = {
    {rootName, "PATH", "a root of the plug-in; once for each, in the order of mounting",
     ValueKind::Text},
    {stateName, "DIR", "a state directory to begin with; without it an empty one",
     ValueKind::Directory},
    {timeoutName, "SECONDS", "how long a call may take, 10 if nothing else is said",
     ValueKind::Text},
    {junitName, "FILE", "write a report for a continuous integration as well", ValueKind::File},
    {valgrindName, nullptr, "do it all under valgrind"},
    commandline::onlyHelpOption,
    commandline::versionOption,
};

constexpr Command checkCommand = {"dm-plugin-check", "LIBRARY", "", 1, 1, options, ValueKind::File};

constexpr commandline::ExitMeaning exitStatuses[] = {
    {ExitStatus::Success, "nothing was found"},
    {ExitStatus::Failed, "something was found"},
    {ExitStatus::WrongUsage, "the command line is wrong"},
    {ExitStatus::Unusable,
     "the plug-in cannot be loaded, the report cannot be written, or there is "
     "no room for copies of the state"},
};

struct Wanted {
    Plugin plugin;
    std::string state;
    Examiner::Limits limits;
    QString junit;
};

/// @return what is wrong with the command line; empty when nothing is
QString readWanted(const Invocation &invocation, Wanted &wanted)
{
    const QStringList roots = invocation.values(rootName);
    if (roots.isEmpty() || roots.contains(QString()))
        return QStringLiteral("--root PATH is wanted, such as --root ./Vendor/Example");
    for (const QString &root : roots)
        wanted.plugin.roots.push_back(root.toStdString());
    // A bare name is looked for in the library folders; examinations have folders of their own.
    const QString &file = invocation.arguments.first();
    wanted.plugin.file =
        QFile::encodeName(QFile::exists(file) ? QFileInfo(file).absoluteFilePath() : file)
            .toStdString();
    const QString state = invocation.value(stateName);
    if (!state.isEmpty() && !QFileInfo(state).isDir())
        return QStringLiteral("--state %1 is not a directory").arg(state);
    if (!state.isEmpty())
        wanted.state = QFile::encodeName(QFileInfo(state).absoluteFilePath()).toStdString();
    wanted.junit = invocation.value(junitName);
    if (invocation.has(timeoutName)) {
        const QString timeout = invocation.value(timeoutName);
        bool isNumber = false;
        wanted.limits.seconds = timeout.toInt(&isNumber);
        if (!isNumber || wanted.limits.seconds < 1 || wanted.limits.seconds > 3600)
            return QStringLiteral("--timeout wants a number from 1 to 3600 instead of \"%1\"")
                .arg(timeout);
    }
    return {};
}

/// Why the library cannot be loaded; empty when it can.
std::string loadingFault(const Wanted &wanted)
{
    Examiner examiner(wanted.state, wanted.limits);
    const auto findings = examiner.run(Copies::One, [&wanted](Witness &witness, int) {
        witness.calls(wanted.plugin.file, "loading");
        const Library library(wanted.plugin.file);
        if (!library.fault().empty())
            witness.find("", library.fault());
        return false;
    });
    return findings.empty() ? std::string() : findings.front().came;
}

/// Makes all checks and prints each result.
std::vector<Result> check(const Wanted &wanted, Output &output)
{
    Examiner examiner(wanted.state, wanted.limits);
    std::vector<Result> results;
    const Check *faulty = nullptr; // the first check with findings
    for (const Check &one : allChecks()) {
        const std::size_t times = one.isOfEachRoot ? wanted.plugin.roots.size() : 1;
        for (std::size_t root = 0; root < times; ++root) {
            Result result{&one, one.isOfEachRoot ? wanted.plugin.roots[root] : "", {}, {}};
            if (faulty && one.stage > faulty->stage)
                result.whySkipped = std::string("because of ") + faulty->id;
            else
                result.findings = examiner.run(one.copies, [&](Witness &witness, int item) {
                    return one.examine(witness, wanted.plugin, root, item);
                });
            print(result, output);
            results.push_back(std::move(result));
        }
        if (!faulty && std::ranges::any_of(
                           results, [](const Result &result) { return !result.findings.empty(); }))
            faulty = &one;
    }
    return results;
}

ExitStatus run(const Wanted &wanted, Output &output)
{
    if (const std::string fault = loadingFault(wanted); !fault.empty())
        return output.problem(QStringLiteral("cannot load the plug-in: %1")
                                  .arg(commandline::printable(QByteArray::fromStdString(fault))),
                              ExitStatus::Unusable);
    const std::vector<Result> results = check(wanted, output);
    if (!wanted.junit.isEmpty())
        if (const QString fault =
                writeJUnit(wanted.junit, QString::fromStdString(wanted.plugin.file), results);
            !fault.isEmpty())
            return output.problem(fault, ExitStatus::Unusable);
    std::size_t findings = 0;
    for (const Result &result : results)
        findings += result.findings.size();
    output.line(findings == 0   ? QStringLiteral("Nothing found.")
                : findings == 1 ? QStringLiteral("1 finding.")
                                : QStringLiteral("%1 findings.").arg(findings));
    return findings == 0 ? ExitStatus::Success : ExitStatus::Failed;
}

ExitStatus execute(Output &output, const Invocation &invocation)
{
    Wanted wanted;
    if (const QString fault = readWanted(invocation, wanted); !fault.isEmpty())
        return output.problem(fault, ExitStatus::WrongUsage);
    const QStringList words = QCoreApplication::arguments();
    try {
        if (invocation.has(valgrindName)) {
            const auto ended = runUnderValgrind(words);
            return ended ? *ended
                         : output.problem(QStringLiteral("valgrind is not installed"),
                                          ExitStatus::Unusable);
        }
        if (!isSanitized())
            if (const std::string sanitizer = sanitizerOf(wanted.plugin.file); !sanitizer.empty())
                return output.problem(
                    QStringLiteral("cannot begin again with %1: %2")
                        .arg(QString::fromStdString(sanitizer), runWithSanitizer(words, sanitizer)),
                    ExitStatus::Unusable);
        wanted.limits.isSanitized = isSanitized();
        return run(wanted, output);
    } catch (const std::system_error &error) {
        return output.problem(QString::fromLocal8Bit(error.what()), ExitStatus::Unusable);
    }
}

} // namespace

int main(int argc, char *argv[])
{
    return commandline::run(
        argc, argv,
        {checkCommand.name,
         "examines a data plug-in on copies of a state; see dm-plugin-check(1)",
         {},
         {},
         exitStatuses,
         {},
         &checkCommand},
        execute, [](const Invocation &, const QString &) { return std::vector<Candidate>(); });
}
