// dm-plugin-check: examines the binary of a data plug-in.

#include "checks.h"
#include "examination.h"
#include "exit_status.h"
#include "instruments.h"
#include "report.h"
#include "terminal.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <algorithm>
#include <system_error>

using commandline::ExitStatus;
using commandline::Output;

namespace {

struct OptionRow {
    const char *name;
    const char *valueName; ///< empty for a flag
    const char *help;
};

constexpr OptionRow optionRows[] = {
    {"root", "PATH", "a root of the plug-in; once for each, in the order of mounting"},
    {"state", "DIR", "a state directory to begin with; without it an empty one"},
    {"timeout", "SECONDS", "how long a call may take, 10 if nothing else is said"},
    {"junit", "FILE", "write a report for a continuous integration as well"},
    {"valgrind", "", "do it all under valgrind"},
};

QString value(const QCommandLineParser &parser, const char *name)
{
    return parser.value(QString::fromLatin1(name));
}

struct Wanted {
    Plugin plugin;
    std::string state;
    Examiner::Limits limits;
    QString junit;
};

/// @return what is wrong with the command line; empty when nothing is
QString readWanted(const QCommandLineParser &parser, Wanted &wanted)
{
    if (parser.positionalArguments().size() != 1)
        return QStringLiteral("one LIBRARY is wanted; see 'dm-plugin-check --help'");
    const QStringList roots = parser.values(QStringLiteral("root"));
    if (roots.isEmpty() || roots.contains(QString()))
        return QStringLiteral("--root PATH is wanted, such as --root ./Vendor/Example");
    for (const QString &root : roots)
        wanted.plugin.roots.push_back(root.toStdString());
    // A bare name is looked for in the library folders; examinations have folders of their own.
    const QString file = parser.positionalArguments().first();
    wanted.plugin.file =
        QFile::encodeName(QFile::exists(file) ? QFileInfo(file).absoluteFilePath() : file)
            .toStdString();
    const QString state = value(parser, "state");
    if (!state.isEmpty() && !QFileInfo(state).isDir())
        return QStringLiteral("--state %1 is not a directory").arg(state);
    if (!state.isEmpty())
        wanted.state = QFile::encodeName(QFileInfo(state).absoluteFilePath()).toStdString();
    wanted.junit = value(parser, "junit");
    if (parser.isSet(QStringLiteral("timeout"))) {
        bool isNumber = false;
        wanted.limits.seconds = value(parser, "timeout").toInt(&isNumber);
        if (!isNumber || wanted.limits.seconds < 1 || wanted.limits.seconds > 3600)
            return QStringLiteral("--timeout wants a number from 1 to 3600 instead of \"%1\"")
                .arg(value(parser, "timeout"));
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

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("dm-plugin-check"));
    QCoreApplication::setApplicationVersion(QStringLiteral(KUB_VERSION));
    Output output(QCoreApplication::applicationName());
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Examines a data plug-in on copies of a state; see dm-plugin-check(1)."));
    parser.addPositionalArgument(QStringLiteral("LIBRARY"), QStringLiteral("the plug-in's file"),
                                 QStringLiteral("LIBRARY"));
    for (const OptionRow &row : optionRows)
        parser.addOption({QString::fromLatin1(row.name), QString::fromLatin1(row.help),
                          QString::fromLatin1(row.valueName)});
    const QCommandLineOption help = parser.addHelpOption();
    const QCommandLineOption version = parser.addVersionOption();
    ExitStatus status = ExitStatus::Success;
    Wanted wanted;
    if (!parser.parse(QCoreApplication::arguments())) {
        status = output.problem(parser.errorText(), ExitStatus::WrongUsage);
    } else if (parser.isSet(help)) {
        output.raw(parser.helpText().toUtf8());
    } else if (parser.isSet(version)) {
        output.line(QStringLiteral("dm-plugin-check " KUB_VERSION));
    } else if (const QString fault = readWanted(parser, wanted); !fault.isEmpty()) {
        status = output.problem(fault, ExitStatus::WrongUsage);
    } else if (parser.isSet(QStringLiteral("valgrind"))) {
        const int ended = runUnderValgrind(argv);
        if (ended >= 0)
            return ended;
        status = output.problem(QStringLiteral("valgrind is not installed"), ExitStatus::Unusable);
    } else {
        const std::string sanitizer = isSanitized() ? "" : sanitizerOf(wanted.plugin.file);
        if (!sanitizer.empty())
            return static_cast<int>(output.problem(
                QStringLiteral("cannot begin again with %1: %2")
                    .arg(QString::fromStdString(sanitizer), runWithSanitizer(argv, sanitizer)),
                ExitStatus::Unusable));
        wanted.limits.isSanitized = isSanitized();
        try {
            status = run(wanted, output);
        } catch (const std::system_error &error) {
            status = output.problem(QString::fromLocal8Bit(error.what()), ExitStatus::Unusable);
        }
    }
    return static_cast<int>(output.finish(status));
}
