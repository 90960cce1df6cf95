#include "command_table.h"

#include "commands.h"
#include "common_rows.h"

#include <algorithm>
#include <cstring>

namespace client::cli {

namespace {

using commandline::anyNumber;
using commandline::Option;
using commandline::ValueKind;

// ---- Options -------------------------------------------------------------------------------------

QStringList propertyWords()
{
    const auto names = propertyNames();
    return {names.begin(), names.end()};
}

QStringList formatWords()
{
    const auto names = settableFormats();
    return {names.begin(), names.end()};
}

QStringList askedForWords()
{
    return {QStringLiteral("-")};
}

QStringList encodingWords()
{
    return {QStringLiteral("xml"), QStringLiteral("wbxml")};
}

QStringList zeroNonceWords()
{
    return {QStringLiteral("text"), QStringLiteral("octets")};
}

constexpr Option showSecrets = {"show-secrets", nullptr,
                                "print secrets instead of ********, in a record too"};

constexpr Option programOptions[] = {
    commandline::stateOption,
    commandline::pluginOption,
    commandline::pluginsOption,
    commandline::backendOption,
    {"record", "FILE", "write down what happens, a JSON object an event, secrets masked",
     ValueKind::File},
    showSecrets,
    {strictOption, nullptr,
     "exit with 5 when what was answered 200 is not what the tree says afterwards"},
    {"verbose", nullptr, "plug-in messages go to standard error, not to client/plugin.log"},
    commandline::helpOption,
    commandline::versionOption,
};
constexpr Option shellProgramOptions[] = {showSecrets, commandline::helpOption};

constexpr Option treeOptions[] = {
    {"json", nullptr, "print one JSON object a node"},
};
constexpr Option getOptions[] = {
    {"json", nullptr, "print one JSON array with an object an address"},
    {"prop", "NAME", "print a property: ACL, Format, Name, Size, Title, TStamp, Type or VerNo",
     ValueKind::Text, propertyWords},
};
constexpr Option addOptions[] = {
    {"format", "FORMAT",
     "chr, int, bool, bin, null or node; without it chr with a VALUE, node without",
     ValueKind::Text, formatWords},
};
constexpr Option processOptions[] = {
    {"server-id", "ID", "run the commands on behalf of that server, under the nodes' ACLs",
     ValueKind::Text},
    {"summary", nullptr, "print a line a command in place of the client's package"},
    {"json", nullptr, "print one JSON object a command in place of it"},
};
constexpr Option encodingOption = {"encoding", "ENCODING",
                                   "xml or wbxml: encoding of the first message", ValueKind::OneOf,
                                   encodingWords};
constexpr Option authoritiesOption = {
    "ca", "FILE", "PEM certificates to trust in place of the system's", ValueKind::File};
constexpr Option traceOption = {
    "trace", "FILE", "write every message to a file (- is standard output), secrets masked",
    ValueKind::File};
constexpr Option commandsAsJson = {"json", nullptr, "print one JSON object a command"};
constexpr Option sessionOptions[] = {
    encodingOption,
    authoritiesOption,
    {"timeout", "SECONDS", "how long the server may take for one answer", ValueKind::Text},
    {"session-timeout", "SECONDS", "how long the whole session may take", ValueKind::Text},
    {"max-msg-size", "BYTES", "largest message, as announced to the server", ValueKind::Text},
    {"max-obj-size", "BYTES", "largest object, as announced to the server", ValueKind::Text},
    {"event", "TYPE=TEXT", "report a client event (Alert 1224); repeatable", ValueKind::Text},
    {"generic-alert", "[FIELD=VALUE ...] TYPE=TEXT", "report a generic alert (1226); repeatable",
     ValueKind::Text},
    traceOption,
    commandsAsJson,
    {"questions", nullptr,
     "with --json: print the server's questions too, and read the answers from standard input"},
    {"here", nullptr, "hold it in this process, also when dmclientd runs"},
    {"notified", "ID", "the server has asked for this session, 1 to FFFF, by a notification",
     ValueKind::Text},
    {"zero-nonce", "FORM", "begin with the nonce of a server that has lost its own: text or octets",
     ValueKind::OneOf, zeroNonceWords},
};
constexpr Option notifyOptions[] = {
    {"check", nullptr, "say what it is and whether it is proved, and have no session"},
    {"yes", nullptr, "have the session without a question"},
    encodingOption,
    authoritiesOption,
    traceOption,
    commandsAsJson,
};
constexpr Option statusOptions[] = {
    {"json", nullptr, "print one JSON object"},
};
constexpr Option monitorOptions[] = {
    {"json", nullptr, "print one JSON object an event"},
};
constexpr Option accountOptions[] = {
    {"json", nullptr, "print accounts as JSON: list and show"},
};
constexpr Option bootstrapOptions[] = {
    {"pending", nullptr,
     "list the messages that came by SMS and wait, or apply the one of that ID"},
    {"discard", nullptr, "with --pending: forget the message of that ID"},
    {"pin", "-", "read the PIN that proves the message from standard input", ValueKind::OneOf,
     askedForWords},
    {"imsi", "IMSI", "the subscriber whom a message is for that the network proves",
     ValueKind::Text},
    {"yes", nullptr, "apply it without a question"},
    {"json", nullptr, "print what is applied as one JSON object, and ask nothing"},
    {"questions", nullptr,
     "with --pending and --json: print questions too, and read the answers from standard input"},
};
constexpr Option reportOptions[] = {
    {"output", "FILE", "the page; without it the first record's name with .html, in this folder",
     ValueKind::File, nullptr, 'o'},
};
constexpr Option recordOptions[] = {
    {"json", nullptr, "print the lines of a record as they are, or an array of all records"},
    {"all", nullptr, "remove all records"},
};
constexpr Option shellOptions[] = {
    {"fail-fast", nullptr, "stop at the first line that fails"},
};

// ---- Commands ------------------------------------------------------------------------------------

constexpr CommandRow rows[] = {
    {{"tree", "[URI]", "draw the tree with format and value of each leaf", 0, 1, treeOptions},
     Needs::Tree,
     runTree,
     NodeArgument::UriToList},
    {{"get", "URI...", "print values of leaves, or names of children", 1, anyNumber, getOptions},
     Needs::Tree,
     runGet,
     NodeArgument::UriToRead,
     NodeArgument::UriToRead},
    {{"add", "URI [VALUE]", "add a leaf, or an interior node", 1, 2, addOptions},
     Needs::Tree,
     runAdd,
     NodeArgument::Uri},
    {{"replace", "URI VALUE | URI CHILD=VALUE... | URI?prop=NAME VALUE",
      "change a leaf, leaves of an interior node in one call, or a property", 2, anyNumber},
     Needs::Tree,
     runReplace,
     NodeArgument::UriToReplace,
     NodeArgument::ChildValue},
    {{"rename", "URI NAME", "give a node another name", 2, 2},
     Needs::Tree,
     runRename,
     NodeArgument::Uri},
    {{"delete", "URI", "delete a node with everything beneath it", 1, 1},
     Needs::Tree,
     runDelete,
     NodeArgument::Uri},
    {{"copy", "URI URI", "copy the value of one leaf to another", 2, 2},
     Needs::Tree,
     runCopy,
     NodeArgument::Uri,
     NodeArgument::Uri},
    {{"process", "FILE", "answer one DM package, XML or WBXML (- is standard input)", 1, 1,
      processOptions, ValueKind::File},
     Needs::Tree,
     runProcess},
    {{"session", "ACCOUNT | URL", "have a management session with a DM server", 1, 1,
      sessionOptions},
     Needs::Tree,
     runSession,
     NodeArgument::None,
     NodeArgument::None,
     runSessionByService},
    {{"notify", "FILE",
      "have the session that a server's notification asks for (- is standard input)", 1, 1,
      notifyOptions, ValueKind::File},
     Needs::Tree,
     runNotify},
    {{"replay",
      "RECORD",
      "run the server's messages of a record, and say what differs",
      1,
      1,
      {},
      ValueKind::File},
     Needs::Tree,
     runReplay},
    {{"account",
      "list | show NAME | add NAME FIELD=VALUE... | set NAME FIELD=VALUE... | remove NAME",
      "keep the DM accounts: servers that may manage this device", 1, anyNumber, accountOptions,
      ValueKind::Text, accountWords, accountFieldWords, accountDetails},
     Needs::Accounts,
     runAccount},
    {{"bootstrap", "FILE | --pending [ID]",
      "set up accounts and profiles from a bootstrap message (- is standard input)", 0, 1,
      bootstrapOptions, ValueKind::File},
     Needs::Tree,
     runBootstrap,
     NodeArgument::None,
     NodeArgument::None,
     listBootstraps},
    {{"record", "list | show [NAME | FILE] | remove NAME... | remove --all",
      "list, show or remove the records that are kept of sessions", 1, anyNumber, recordOptions,
      ValueKind::Text, recordWords},
     Needs::Accounts,
     runRecord},
    {{"report", "[RECORD [RECORD]]", "make a page for a browser of a record, or of two to compare",
      0, 2, reportOptions, ValueKind::File},
     Needs::Nothing,
     runReport},
    {{"ddf", "", "print the device description (DM DDF 1.2) for a server"}, Needs::Nothing, runDdf},
};
/// Those that need the tree and change nothing, or are about another run.
constexpr const char *readingCommands[] = {"tree", "get", "replay"};

constexpr CommandRow shellRow = {
    {"shell", "", "run many commands on one mount, typed or from a pipe", 0, 0, shellOptions},
    Needs::Tree,
    runShell};
constexpr CommandRow exploreRow = {
    {"explore", "", "work with the handset on a page in a browser, and see what it does"},
    Needs::Nothing,
    runExplore};
constexpr CommandRow statusRow = {
    {"status", "", "say what dmclientd does, and how the last sessions ended", 0, 0, statusOptions},
    Needs::Nothing,
    runStatus};
constexpr CommandRow monitorRow = {
    {"monitor", "", "print what dmclientd does as it happens", 0, 0, monitorOptions},
    Needs::Nothing,
    runMonitor};
constexpr Option agentOptions[] = {
    {"desktop", nullptr, "ask by notifications of the desktop, not on this terminal"}};
constexpr CommandRow agentRow = {
    {"agent", "", "be asked what servers ask the user, in sessions that dmclientd holds", 0, 0,
     agentOptions},
    Needs::Nothing,
    runAgent};
constexpr CommandRow storedRow = {
    {"stored", "URI", "put into the record of the shell what is stored for a node at this moment",
     1, 1},
    Needs::Tree,
    runStored};
constexpr CommandRow quitRow = {{"quit", "", "leave the shell"}, Needs::Nothing, runQuit};

/// The rows of both programs, those that only this program has, and help.
std::vector<const commandline::Command *>
commandsWith(std::initializer_list<const commandline::Command *> ownRows)
{
    std::vector<const commandline::Command *> commands;
    for (const CommandRow &row : rows)
        commands.push_back(&row);
    commands.insert(commands.end(), ownRows);
    commands.push_back(&commandline::helpCommand);
    return commands;
}

constexpr commandline::ExitMeaning exitStatuses[] = {
    {ExitStatus::Success, "every DM command succeeded"},
    {ExitStatus::Failed, "a DM command was answered 4xx or 5xx, or a bootstrap message "
                         "was not applied"},
    {ExitStatus::WrongUsage, "wrong usage: the command line, a line of the shell or an input file"},
    {ExitStatus::Unusable, "the plug-in or the state cannot be used, or something that should be "
                           "kept or printed cannot be written"},
    {ExitStatus::SessionFailed, "a session with a server failed or was aborted"},
    {ExitStatus::Different, "with --strict: everything was answered 2xx, but the tree says "
                            "something else, now or at the next mount"},
};

} // namespace

const commandline::Program &program()
{
    static const commandline::Program program = {
        "dmclient",     "a DM client with the network access profiles of one simulated handset",
        programOptions, commandsWith({&statusRow, &monitorRow, &agentRow, &shellRow, &exploreRow}),
        exitStatuses,   commandline::handsetEnvironment};
    return program;
}

const commandline::Program &shellProgram()
{
    static const commandline::Program program = {"", "commands that run on one mount, a line each",
                                                 shellProgramOptions,
                                                 commandsWith({&storedRow, &quitRow})};
    return program;
}

bool CommandRow::isChanging() const
{
    return needs == Needs::Tree &&
           std::ranges::none_of(readingCommands, [this](const char *reading) {
               return std::strcmp(name, reading) == 0;
           });
}

const CommandRow &rowOf(const commandline::Command &command)
{
    return static_cast<const CommandRow &>(command);
}

} // namespace client::cli
