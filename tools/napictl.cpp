// napictl: looks after the profiles of the profile service. This file holds the command line; the
// commands stand in *_command.cpp and *_commands.cpp.
#include <climits>
#include <span>

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QUtf8StringView>

#include "commands.h"
#include "profile_fields.h"
#include "standard_streams.h"

namespace {

struct Option {
    const char *name;
    const char *valueName; ///< null for an option without a value
    const char *description;
    const char *defaultValue = "";
};

constexpr const char *kDatabase = "/usr/share/mobile-broadband-provider-info/serviceproviders.xml";

constexpr Option kStateOption = {
    "state", "DIR",
    "State directory of the handset, by default $KUB_STATE_DIR or ~/.local/state/kub-dm."};
constexpr Option kBackendOption = {"backend", "NAME",
                                   "Where the profiles are kept, sqlite or networkmanager; by "
                                   "default $KUB_NAPI_BACKEND or sqlite."};
constexpr Option kHelpOption = {"help", nullptr, "Displays this help."};
constexpr Option kGlobalOptions[] = {kStateOption, kBackendOption, kHelpOption};
constexpr Option kShowSecretsOption = {"show-secrets", nullptr, "Shows passwords."};
constexpr Option kShowOptions[] = {
    {"json", nullptr, "Writes JSON, the format of import."},
    kShowSecretsOption,
};
constexpr Option kImportOptions[] = {
    {"replace", nullptr,
     "Overwrites profiles of the same name. A masked password leaves the stored one."},
};
constexpr Option kExportOptions[] = {kShowSecretsOption};
constexpr Option kProvisionOptions[] = {
    {"country", "CC", "Takes the operators of this country, two letters of ISO 3166-1."},
    {"provider", "TEXT", "Takes the operators with this text in their names."},
    {"all", nullptr,
     "Stores every access point instead of one for each operator, of every country when none is "
     "given, and cuts names that are longer than 63 bytes."},
    {"database", "FILE", "Reads this database in place of the installed one.", kDatabase},
};

struct Command {
    const char *name;
    const char *arguments; ///< as in the usage line
    const char *summary;
    std::span<const Option> options;
    qsizetype leastArguments;
    qsizetype mostArguments;
    bool takesFields;
    ExitStatus (*run)(Output &, const QCommandLineParser &, const QStringList &);
};

constexpr qsizetype kAnyNumber = INT_MAX;

constexpr Command kCommands[] = {
    {"list",
     "",
     "Lists the profiles with their IDs and the parts that they have.",
     {},
     0,
     0,
     false,
     runList},
    {"show", "NAME", "Shows one profile.", kShowOptions, 1, 1, false, runShow},
    {"create", "NAME [FIELD=VALUE...]", "Creates a profile.", {}, 1, kAnyNumber, true, runCreate},
    {"set",
     "NAME FIELD=VALUE...",
     "Changes fields of a profile, all or none.",
     {},
     2,
     kAnyNumber,
     true,
     runSet},
    {"delete", "NAME...", "Deletes profiles.", {}, 1, kAnyNumber, false, runDelete},
    {"import", "FILE", "Creates the profiles of a JSON file; - is standard input.", kImportOptions,
     1, 1, false, runImport},
    {"export", "", "Writes all profiles as JSON.", kExportOptions, 0, 0, false, runExport},
    {"provision", "", "Creates profiles of real operators.", kProvisionOptions, 0, 0, false,
     runProvision},
    {"check",
     "",
     "Checks that the store and every profile in it are sound.",
     {},
     0,
     0,
     false,
     runCheck},
};

const Command *findCommand(const QString &name)
{
    for (const Command &command : kCommands) {
        if (name == QLatin1StringView(command.name))
            return &command;
    }
    return nullptr;
}

//////////////////////////////////////////////////////////////////////////////////////////////////
// Help

QString optionLine(const Option &option)
{
    QString usage = QStringLiteral("--") + QString::fromLatin1(option.name);
    if (option.valueName != nullptr)
        usage += u' ' + QString::fromLatin1(option.valueName);
    return QStringLiteral("  %1  %2\n")
        .arg(usage, -15)
        .arg(QString::fromLatin1(option.description));
}

QString generalHelp()
{
    QString text =
        QStringLiteral("Usage: napictl [--state DIR] [--backend NAME] COMMAND [ARGUMENT...]\n"
                       "Looks after the network access profiles of the simulated "
                       "handset.\n\nCommands:\n");
    for (const Command &command : kCommands) {
        text += QStringLiteral("  %1  %2\n")
                    .arg(QString::fromLatin1(command.name), -15)
                    .arg(QString::fromLatin1(command.summary));
    }
    text += QStringLiteral("\nOptions:\n") + optionLine(kStateOption) + optionLine(kBackendOption) +
            optionLine(kHelpOption);
    return text + QStringLiteral("\n'napictl COMMAND --help' tells more about a command.\n");
}

/// The fields that can be set, a line for each part.
QString fieldHelp()
{
    QString text = QStringLiteral("\nFields:");
    const ProfilePart *part = nullptr;
    for (const ProfileField &field : profileFields()) {
        const bool beginsLine = field.part == nullptr || field.part != part;
        part = field.part;
        text += QString::fromLatin1(beginsLine ? "\n  " : " ") + fieldPath(field);
    }
    return text + u'\n';
}

QString commandHelp(const Command &command)
{
    QString text = QStringLiteral("Usage: napictl [--state DIR] [--backend NAME] ") +
                   QString::fromLatin1(command.name);
    if (!command.options.empty())
        text += QStringLiteral(" [OPTION...]");
    if (*command.arguments != 0)
        text += u' ' + QString::fromLatin1(command.arguments);
    text += u'\n' + QString::fromLatin1(command.summary) + QStringLiteral("\n\nOptions:\n");
    for (const Option &option : command.options)
        text += optionLine(option);
    text += optionLine(kStateOption) + optionLine(kBackendOption) + optionLine(kHelpOption);
    return command.takesFields ? text + fieldHelp() : text;
}

//////////////////////////////////////////////////////////////////////////////////////////////////
// Command line

void addOptions(QCommandLineParser &parser, std::span<const Option> options)
{
    for (const Option &option : options) {
        QStringList names(QString::fromLatin1(option.name));
        if (names.first() == u"help")
            names += QStringLiteral("h");
        parser.addOption(QCommandLineOption(names, QString(), QString::fromLatin1(option.valueName),
                                            QString::fromLatin1(option.defaultValue)));
    }
}

ExitStatus refuseUsage(Output &output, const QString &message, const Command *command)
{
    output.problem(message);
    const QString help =
        command == nullptr
            ? QStringLiteral("napictl --help")
            : QStringLiteral("napictl %1 --help").arg(QString::fromLatin1(command->name));
    output.problem(QStringLiteral("see '%1'").arg(help));
    return ExitStatus::WrongUsage;
}

/// State directory and backend are handed to the profile service the way every program does it.
/// @return null, or what is wrong with one of the options
QString chooseStore(const QCommandLineParser &parser)
{
    const QString state = QString::fromLatin1(kStateOption.name);
    if (parser.isSet(state)) {
        const QString directory = parser.value(state);
        if (directory.isEmpty())
            return QStringLiteral("--state names no directory");
        qputenv("KUB_STATE_DIR", directory.toUtf8());
    }
    const QString backend = QString::fromLatin1(kBackendOption.name);
    if (parser.isSet(backend)) {
        const QString name = parser.value(backend);
        if (name != u"sqlite" && name != u"networkmanager")
            return QStringLiteral("--backend is sqlite or networkmanager");
        qputenv("KUB_NAPI_BACKEND", name.toUtf8());
    }
    return {};
}

/// @param arguments  the name of the command and what stands behind it
ExitStatus runCommand(Output &output, const Command &command, const QStringList &arguments)
{
    QCommandLineParser parser;
    addOptions(parser, command.options);
    addOptions(parser, kGlobalOptions);
    if (!parser.parse(arguments))
        return refuseUsage(output, parser.errorText(), &command);
    if (parser.isSet(QString::fromLatin1(kHelpOption.name))) {
        output.raw(commandHelp(command).toUtf8());
        return ExitStatus::Success;
    }
    const QStringList operands = parser.positionalArguments();
    if (operands.size() < command.leastArguments)
        return refuseUsage(
            output,
            QStringLiteral("%1: arguments are missing: %2")
                .arg(QString::fromLatin1(command.name), QString::fromLatin1(command.arguments)),
            &command);
    if (operands.size() > command.mostArguments)
        return refuseUsage(
            output, QStringLiteral("%1: too many arguments").arg(QString::fromLatin1(command.name)),
            &command);
    if (const QString fault = chooseStore(parser); !fault.isNull())
        return refuseUsage(output, fault, &command);
    return command.run(output, parser, operands);
}

ExitStatus runCommandLine(Output &output, const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.setOptionsAfterPositionalArgumentsMode(QCommandLineParser::ParseAsPositionalArguments);
    addOptions(parser, kGlobalOptions);
    if (!parser.parse(arguments))
        return refuseUsage(output, parser.errorText(), nullptr);
    if (parser.isSet(QString::fromLatin1(kHelpOption.name))) {
        output.raw(generalHelp().toUtf8());
        return ExitStatus::Success;
    }
    const QStringList operands = parser.positionalArguments();
    if (operands.isEmpty())
        return refuseUsage(output, QStringLiteral("a command is missing"), nullptr);
    const Command *command = findCommand(operands.first());
    if (command == nullptr) {
        return refuseUsage(output, operands.first() + QStringLiteral(": there is no such command"),
                           nullptr);
    }
    if (const QString fault = chooseStore(parser); !fault.isNull())
        return refuseUsage(output, fault, nullptr);
    return runCommand(output, *command, operands);
}

} // namespace

int main(int argc, char *argv[])
{
    support::occupyClosedStandardStreams();
    const QCoreApplication application(argc, argv);
    Output output(QStringLiteral("napictl"));
    for (int index = 1; index < argc; ++index) {
        if (!QUtf8StringView(argv[index]).isValidUtf8())
            return static_cast<int>(refuseUsage(
                output, QStringLiteral("argument %1 is not UTF-8").arg(index), nullptr));
    }
    return static_cast<int>(output.finish(runCommandLine(output, QCoreApplication::arguments())));
}
