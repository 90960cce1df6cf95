#include "global_options.h"

#include "command_table.h"

#include <QCommandLineParser>

namespace client::cli {

namespace {

struct GlobalOption {
    const char *name;
    const char *valueName; ///< null for a flag
    const char *help;
};

constexpr GlobalOption globalOptions[] = {
    {"state", "DIR",
     "state of the simulated handset; without it $KUB_STATE_DIR, or\n"
     "$XDG_STATE_HOME/kub-dm, or ~/.local/state/kub-dm"},
    {"plugin", "FILE", "the plug-in to load; without it libkubdmnapipluginlib.so.1"},
    {"backend", "NAME",
     "where the profiles are kept, sqlite or networkmanager; without it\n"
     "$KUB_NAPI_BACKEND, or sqlite"},
    {"verbose", nullptr, "plug-in messages go to standard error, not to client/plugin.log"},
    {"help", nullptr, "print this help; behind a command, help for that command"},
    {"version", nullptr, "print the version"},
};

QString optionHelp()
{
    QString text;
    for (const GlobalOption &option : globalOptions) {
        QString left = QStringLiteral("--") + QString::fromLatin1(option.name);
        if (option.valueName)
            left += u' ' + QString::fromLatin1(option.valueName);
        constexpr int rightColumn = 18;
        const QString indent = u'\n' + QString(rightColumn, u' ');
        text += QStringLiteral("  %1%2\n")
                    .arg(left.leftJustified(rightColumn - 2),
                         QString::fromLatin1(option.help).replace(u'\n', indent));
    }
    return text;
}

} // namespace

QString programHelp()
{
    return QStringLiteral(
               "Usage: dmclient [OPTION...] COMMAND [ARGUMENT...]\n"
               "A DM client with the network access profiles of one simulated handset.\n"
               "\n"
               "Commands:\n%1"
               "\n"
               "Options:\n%2"
               "\n"
               "Exit status: 0 when every DM command succeeded, 1 when one was answered\n"
               "4xx or 5xx, 2 for wrong usage, 3 when the plug-in or the state cannot be\n"
               "used, 4 when a session with a server failed. dmclient(1) says more.\n")
        .arg(commandOverview(false), optionHelp());
}

namespace {

void addGlobalOptions(QCommandLineParser &parser)
{
    parser.setOptionsAfterPositionalArgumentsMode(QCommandLineParser::ParseAsPositionalArguments);
    for (const GlobalOption &option : globalOptions)
        parser.addOption({QString::fromLatin1(option.name), QString(),
                          QString::fromLatin1(option.valueName ? option.valueName : "")});
}

bool isProfileBackend(const QString &name)
{
    return name == QStringLiteral("sqlite") || name == QStringLiteral("networkmanager");
}

} // namespace

std::optional<CommandLine> parseCommandLine(const QStringList &words, Output &output,
                                            ExitStatus &exitStatus)
{
    QCommandLineParser parser;
    addGlobalOptions(parser);
    exitStatus = ExitStatus::WrongUsage;
    if (!parser.parse(words)) {
        output.problem(parser.errorText());
        return std::nullopt;
    }
    const bool wantsVersion = parser.isSet(QStringLiteral("version"));
    if (wantsVersion || parser.isSet(QStringLiteral("help"))) {
        output.raw(wantsVersion ? QByteArrayLiteral("dmclient " KUB_VERSION "\n")
                                : programHelp().toUtf8());
        exitStatus = ExitStatus::Success;
        return std::nullopt;
    }
    const QString backend = parser.value(QStringLiteral("backend"));
    if (parser.isSet(QStringLiteral("backend")) && !isProfileBackend(backend)) {
        output.problem(
            QStringLiteral("--backend is sqlite or networkmanager, not '%1'").arg(backend));
        return std::nullopt;
    }
    const QString state = parser.value(QStringLiteral("state"));
    if (parser.isSet(QStringLiteral("state")) && state.isEmpty()) {
        output.problem(QStringLiteral("--state names no directory"));
        return std::nullopt;
    }
    const QString plugin = parser.value(QStringLiteral("plugin"));
    if (parser.isSet(QStringLiteral("plugin")) && plugin.isEmpty()) {
        output.problem(QStringLiteral("--plugin names no file"));
        return std::nullopt;
    }
    const QStringList rest = parser.positionalArguments();
    if (rest.isEmpty()) {
        output.problem(QStringLiteral("no command; try dmclient --help"));
        return std::nullopt;
    }
    CommandLine commandLine;
    commandLine.command = rest[0];
    commandLine.words = rest.mid(1);
    commandLine.device.stateDirectory = state.isEmpty() ? StateDirectory::defaultPath() : state;
    if (!plugin.isEmpty())
        commandLine.device.pluginFile = plugin;
    commandLine.device.profileBackend = backend;
    commandLine.device.pluginMessagesToStandardError = parser.isSet(QStringLiteral("verbose"));
    return commandLine;
}

} // namespace client::cli
