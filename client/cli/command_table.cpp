#include "command_table.h"

#include "commands.h"

#include <QCommandLineParser>
#include <algorithm>

namespace client::cli {

namespace {

constexpr OptionRow showSecrets = {"show-secrets", OptionValue::None, nullptr,
                                   "print passwords instead of ********"};
constexpr OptionRow treeOptions[] = {
    {"json", OptionValue::None, nullptr, "print one JSON object a node"},
    showSecrets,
};
constexpr OptionRow getOptions[] = {
    {"prop", OptionValue::Property, "NAME",
     "print a property: ACL, Format, Name, Size, Title, TStamp, Type or VerNo"},
    showSecrets,
};
constexpr OptionRow addOptions[] = {
    {"format", OptionValue::Format, "FORMAT",
     "chr, int, bool, bin, null or node; without it chr with a VALUE, node without"},
};
constexpr OptionRow processOptions[] = {
    {"server-id", OptionValue::Text, "ID",
     "run the commands on behalf of that server, under the nodes' ACLs"},
};
constexpr OptionRow sessionOptions[] = {
    {"encoding", OptionValue::Text, "ENCODING", "xml or wbxml: encoding of the first message"},
    {"ca", OptionValue::File, "FILE", "PEM certificates to trust in place of the system's"},
    {"timeout", OptionValue::Text, "SECONDS", "how long the server may take for one answer"},
    {"session-timeout", OptionValue::Text, "SECONDS", "how long the whole session may take"},
    {"max-msg-size", OptionValue::Text, "BYTES", "largest message, as announced to the server"},
    {"max-obj-size", OptionValue::Text, "BYTES", "largest object, as announced to the server"},
    {"event", OptionValue::Text, "TYPE=TEXT", "report a client event (Alert 1224); repeatable"},
    {"generic-alert", OptionValue::Text, "[FIELD=VALUE ...] TYPE=TEXT",
     "report a generic alert (1226); repeatable"},
    {"trace", OptionValue::File, "FILE",
     "write every message to a file (- is standard output), secrets masked"},
    {"json", OptionValue::None, nullptr, "print one JSON object a command"},
};
constexpr OptionRow accountOptions[] = {
    {"show-secrets", OptionValue::None, nullptr, "print secrets instead of ********"},
};
constexpr OptionRow shellOptions[] = {
    {"fail-fast", OptionValue::None, nullptr, "stop at the first line that fails"},
};

constexpr int anyNumber = -1;
constexpr std::span<const OptionRow> noOptions;

constexpr CommandRow commands[] = {
    {"tree", "[URI]", "draw the tree with format and value of each leaf", 0, 1, ArgumentKind::Uri,
     ArgumentKind::None, treeOptions, Availability::Everywhere, Needs::Tree, runTree},
    {"get", "URI...", "print values of leaves, or names of children", 1, anyNumber,
     ArgumentKind::UriToRead, ArgumentKind::UriToRead, getOptions, Availability::Everywhere,
     Needs::Tree, runGet},
    {"add", "URI [VALUE]", "add a leaf, or an interior node", 1, 2, ArgumentKind::Uri,
     ArgumentKind::None, addOptions, Availability::Everywhere, Needs::Tree, runAdd},
    {"replace", "URI VALUE | URI CHILD=VALUE... | URI?prop=NAME VALUE",
     "change a leaf, leaves of an interior node in one call, or a property", 2, anyNumber,
     ArgumentKind::UriToReplace, ArgumentKind::ChildValue, noOptions, Availability::Everywhere,
     Needs::Tree, runReplace},
    {"rename", "URI NAME", "give a node another name", 2, 2, ArgumentKind::Uri, ArgumentKind::None,
     noOptions, Availability::Everywhere, Needs::Tree, runRename},
    {"delete", "URI", "delete a node with everything beneath it", 1, 1, ArgumentKind::Uri,
     ArgumentKind::None, noOptions, Availability::Everywhere, Needs::Tree, runDelete},
    {"copy", "URI URI", "copy the value of one leaf to another", 2, 2, ArgumentKind::Uri,
     ArgumentKind::Uri, noOptions, Availability::Everywhere, Needs::Tree, runCopy},
    {"process", "FILE", "answer one DM package, XML or WBXML (- is standard input)", 1, 1,
     ArgumentKind::File, ArgumentKind::None, processOptions, Availability::Everywhere, Needs::Tree,
     runProcess},
    {"session", "ACCOUNT | URL", "have a management session with a DM server", 1, 1,
     ArgumentKind::None, ArgumentKind::None, sessionOptions, Availability::Everywhere, Needs::Tree,
     runSession},
    {"account",
     "list | show NAME | add NAME FIELD=VALUE... | set NAME FIELD=VALUE... | remove NAME",
     "keep the DM accounts: servers that may manage this device", 1, anyNumber, ArgumentKind::None,
     ArgumentKind::None, accountOptions, Availability::Everywhere, Needs::Accounts, runAccount,
     accountDetails},
    {"ddf", "", "print the device description (DM DDF 1.2) for a server", 0, 0, ArgumentKind::None,
     ArgumentKind::None, noOptions, Availability::Everywhere, Needs::Nothing, runDdf},
    {"shell", "", "run many commands on one mount, typed or from a pipe", 0, 0, ArgumentKind::None,
     ArgumentKind::None, shellOptions, Availability::CommandLineOnly, Needs::Tree, runShell},
    {"help", "[COMMAND]", "say what the commands do", 0, 1, ArgumentKind::Command,
     ArgumentKind::None, noOptions, Availability::Everywhere, Needs::Nothing, runHelp},
    {"quit", "", "leave the shell", 0, 0, ArgumentKind::None, ArgumentKind::None, noOptions,
     Availability::ShellOnly, Needs::Nothing, runQuit},
};

bool isAvailable(const CommandRow &command, bool inShell)
{
    return command.availability == Availability::Everywhere ||
           (command.availability == Availability::ShellOnly) == inShell;
}

QString optionSynopsis(const OptionRow &option)
{
    const QString name = QStringLiteral("--") + QString::fromLatin1(option.name);
    return option.valueName ? name + u' ' + QString::fromLatin1(option.valueName) : name;
}

/// Two columns; a left text that is too long has a line of its own.
QString helpLine(const QString &left, const char *right)
{
    constexpr int leftWidth = 22;
    const QString gap = left.size() > leftWidth ? u'\n' + QString(leftWidth + 2, u' ')
                                                : QString(leftWidth - left.size(), u' ');
    return QStringLiteral("  %1%2  %3\n").arg(left, gap, QString::fromLatin1(right));
}

/// What of the command should name a file, and is empty; null when nothing is.
QString emptyFileName(const CommandRow &command, const Invocation &invocation)
{
    for (const OptionRow &option : command.options)
        if (option.value == OptionValue::File && invocation.values(option.name).contains(QString()))
            return QStringLiteral("--") + QString::fromLatin1(option.name);
    const bool isEmpty = command.firstArgument == ArgumentKind::File &&
                         !invocation.arguments.isEmpty() && invocation.arguments[0].isEmpty();
    return isEmpty ? QString::fromLatin1(command.arguments) : QString();
}

} // namespace

std::span<const CommandRow> commandTable()
{
    return commands;
}

const CommandRow *findCommand(const QString &name, bool inShell)
{
    const auto *const row =
        std::find_if(std::begin(commands), std::end(commands), [&](const CommandRow &command) {
            return name == QLatin1String(command.name) && isAvailable(command, inShell);
        });
    return row == std::end(commands) ? nullptr : row;
}

std::optional<Invocation> parseInvocation(const CommandRow &command, const QStringList &words,
                                          QString &error, Completeness completeness)
{
    QCommandLineParser parser;
    for (const OptionRow &option : command.options)
        parser.addOption({QString::fromLatin1(option.name), QString(),
                          QString::fromLatin1(option.valueName ? option.valueName : "")});
    if (!parser.parse(QStringList(QString::fromLatin1(command.name)) + words)) {
        error = QStringLiteral("%1: %2").arg(QString::fromLatin1(command.name), parser.errorText());
        return std::nullopt;
    }
    Invocation invocation;
    invocation.arguments = parser.positionalArguments();
    for (const QString &option : parser.optionNames())
        invocation.options[option] = parser.values(option);
    const auto count = invocation.arguments.size();
    if (completeness == Completeness::Partial)
        return invocation;
    if (count < command.minArguments ||
        (command.maxArguments != anyNumber && count > command.maxArguments)) {
        error = QStringLiteral("usage: %1").arg(synopsis(command));
        return std::nullopt;
    }
    if (const QString empty = emptyFileName(command, invocation); !empty.isNull()) {
        error =
            QStringLiteral("%1: %2 names no file").arg(QString::fromLatin1(command.name), empty);
        return std::nullopt;
    }
    return invocation;
}

QString synopsis(const CommandRow &command)
{
    QString text = QString::fromLatin1(command.name);
    if (command.arguments[0] != '\0')
        text += u' ' + QString::fromLatin1(command.arguments);
    for (const OptionRow &option : command.options)
        text += QStringLiteral(" [%1]").arg(optionSynopsis(option));
    return text;
}

QString commandOverview(bool inShell)
{
    QString text;
    for (const CommandRow &command : commands) {
        if (!isAvailable(command, inShell))
            continue;
        const QString left = QStringLiteral("%1 %2").arg(QString::fromLatin1(command.name),
                                                         QString::fromLatin1(command.arguments));
        text += helpLine(left, command.help);
    }
    return text;
}

QString commandHelp(const CommandRow &command)
{
    QString text =
        QStringLiteral("%1\n  %2\n").arg(synopsis(command), QString::fromLatin1(command.help));
    if (command.details)
        text += QStringLiteral("  %1\n").arg(command.details());
    for (const OptionRow &option : command.options)
        text += helpLine(optionSynopsis(option), option.help);
    return text;
}

} // namespace client::cli
