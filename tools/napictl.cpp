// napictl: looks after the profiles of the profile service. This file holds its commands and
// options; what the commands do is in *_command.cpp and *_commands.cpp.
#include "napictl.h"

#include "commands.h"
#include "common_rows.h"
#include "profile_columns.h"
#include "profile_service.h"

using commandline::anyNumber;
using commandline::Candidate;
using commandline::Option;
using commandline::ValueKind;

namespace {

constexpr Option programOptions[] = {commandline::stateOption, commandline::backendOption,
                                     commandline::helpOption, commandline::versionOption};
constexpr Option showSecretsOption = {showSecretsName, nullptr,
                                      "print passwords instead of ********"};

/// The names that --fields takes.
QStringList columnWords()
{
    QStringList words = {QStringLiteral("all")};
    for (const Column &column : allColumns())
        words += nameOf(column);
    return words;
}

constexpr Option chosenFieldsOption = {
    fieldsOption,
    "FIELDS",
    "show these, in this order, with commas between them; all is every one",
    ValueKind::Words,
    columnWords,
    'f'};
constexpr Option shownTerselyOption = {
    terseOption,
    nullptr,
    "print for programs: values with colons between them, : and \\ after a backslash",
    ValueKind::None,
    nullptr,
    't'};
constexpr Option listOptions[] = {
    chosenFieldsOption,
    shownTerselyOption,
    {jsonOption, nullptr, "print one JSON array with an object a profile"}};
constexpr Option showOptions[] = {
    chosenFieldsOption,
    shownTerselyOption,
    {jsonOption, nullptr, "print JSON, the format of import"},
    {rawOption, nullptr, "print a map of the bytes of the record"},
    showSecretsOption,
};
constexpr Option importOptions[] = {
    {"replace", nullptr,
     "overwrite profiles of the same name; a masked password leaves the stored one"},
    {"prune", nullptr, "remove the profiles that the file does not have"},
    {"dry-run", nullptr, "say what would be done, a line for each profile, and do nothing"},
};
constexpr Option editOptions[] = {showSecretsOption};
constexpr Option exportOptions[] = {showSecretsOption};
constexpr Option diffOptions[] = {showSecretsOption};
constexpr Option provisionOptions[] = {
    {"country", "CC", "take the operators of this country, two letters of ISO 3166-1",
     ValueKind::Text},
    {"provider", "TEXT", "take the operators with this text in their names", ValueKind::Text},
    {"all", nullptr,
     "store every access point instead of one for each operator, of every country when none is "
     "given, and cut names that are longer than 63 bytes"},
    {"database", "FILE", "read this database in place of the installed one", ValueKind::File},
};

/// "gprs.address=", "editable=true" and so on.
QStringList fieldWords()
{
    QStringList words;
    for (const ProfileField &field : profileFields())
        if (const QStringList values = fieldValues(field); values.isEmpty())
            words += fieldPath(field) + u'=';
        else
            for (const QString &value : values)
                words += fieldPath(field) + u'=' + value;
    return words;
}

/// The fields that can be set, a line for each part.
QStringList fieldDetails()
{
    QStringList lines = {QString(), QStringLiteral("Fields:")};
    const ProfilePart *part = nullptr;
    for (const ProfileField &field : profileFields()) {
        const bool beginsLine = !field.part || field.part != part;
        part = field.part;
        if (beginsLine)
            lines += QStringLiteral(" ");
        lines.last() += u' ' + fieldPath(field);
    }
    return lines;
}

/// Which arguments of a command name profiles that are there.
enum class ProfileArguments { None, First, All };

struct CommandRow : commandline::Command {
    ExitStatus (*run)(Output &, const Invocation &);
    ProfileArguments profiles = ProfileArguments::None;
};

constexpr std::span<const Option> noOptions;

constexpr CommandRow rows[] = {
    {{"list", "", "list the profiles with their IDs and the parts that they have", 0, 0,
      listOptions},
     runList},
    {{"show", "NAME...", "show profiles; a pattern such as 'Voda*' stands for all that it matches",
      1, anyNumber, showOptions},
     runShow,
     ProfileArguments::All},
    {{"create", "NAME [FIELD=VALUE...]", "create a profile", 1, anyNumber, noOptions,
      ValueKind::Text, nullptr, fieldWords, fieldDetails},
     runCreate},
    {{"set", "NAME FIELD=VALUE...", "change fields of a profile, all or none", 2, anyNumber,
      noOptions, ValueKind::Text, nullptr, fieldWords, fieldDetails},
     runSet,
     ProfileArguments::First},
    {{"edit", "NAME", "edit a profile as JSON, in $VISUAL or $EDITOR", 1, 1, editOptions},
     runEdit,
     ProfileArguments::First},
    {{"rename", "NAME NEW", "give a profile another name; it keeps its ID", 2, 2},
     runRename,
     ProfileArguments::First},
    {{"clone", "NAME NEW", "create a profile with all that another one has", 2, 2},
     runClone,
     ProfileArguments::First},
    {{"delete", "NAME...", "delete profiles; a pattern stands for all that it matches", 1,
      anyNumber},
     runDelete,
     ProfileArguments::All},
    {{"import", "FILE", "create the profiles of a JSON file (- is standard input)", 1, 1,
      importOptions, ValueKind::File},
     runImport},
    {{"diff", "FILE", "tell how the profiles of a JSON file differ from the stored ones", 1, 1,
      diffOptions, ValueKind::File},
     runDiff},
    {{"export", "", "write all profiles as JSON", 0, 0, exportOptions}, runExport},
    {{"provision", "", "create profiles of real operators", 0, 0, provisionOptions}, runProvision},
    {{"monitor", "", "print what becomes of the profiles, until it is interrupted"}, runMonitor},
    {{"check", "", "check that the store and every profile in it are sound"}, runCheck},
};

std::vector<const commandline::Command *> commands()
{
    std::vector<const commandline::Command *> all;
    for (const CommandRow &row : rows)
        all.push_back(&row);
    all.push_back(&commandline::helpCommand);
    return all;
}

constexpr commandline::ExitMeaning exitStatuses[] = {
    {ExitStatus::Success, "everything was done"},
    {ExitStatus::Failed, "an operation failed"},
    {ExitStatus::WrongUsage, "wrong usage: the command line or an input file"},
    {ExitStatus::Unusable, "the profile store cannot be used, or the output cannot be written"},
    {ExitStatus::Different, "with diff: the file and the store differ"},
};

/// What every program goes by, and the editor.
std::span<const commandline::EnvironmentVariable> environment()
{
    static const std::vector<commandline::EnvironmentVariable> all = [] {
        std::vector<commandline::EnvironmentVariable> rows(
            std::begin(commandline::handsetEnvironment), std::end(commandline::handsetEnvironment));
        rows.push_back({"VISUAL", "the editor of edit"});
        rows.push_back({"EDITOR", "the editor of edit, where there is no $VISUAL"});
        rows.push_back(
            {"TMPDIR", "where the text of edit is, in a folder of its own; /tmp otherwise"});
        return rows;
    }();
    return all;
}

/// State directory and backend are handed to the profile service the way every program does it.
void chooseStore(const Invocation &invocation)
{
    if (invocation.has(commandline::stateOption.name))
        qputenv("KUB_STATE_DIR", invocation.value(commandline::stateOption.name).toUtf8());
    if (invocation.has(commandline::backendOption.name))
        qputenv("KUB_NAPI_BACKEND", invocation.value(commandline::backendOption.name).toUtf8());
}

} // namespace

const commandline::Program &napictlProgram()
{
    static const commandline::Program program = {
        "napictl",      "look after the network access profiles of the simulated handset",
        programOptions, commands(),
        exitStatuses,   environment()};
    return program;
}

std::vector<Candidate> completeNapictlArgument(const Invocation &before, const QString &)
{
    const ProfileArguments profiles = static_cast<const CommandRow &>(*before.command).profiles;
    chooseStore(before);
    QList<QByteArray> names;
    const bool isProfile = profiles == ProfileArguments::All ||
                           (profiles == ProfileArguments::First && before.arguments.isEmpty());
    if (!isProfile || !isStoreThere() || listProfileNames(names) != NAPI_OK)
        return {};
    std::vector<Candidate> candidates;
    for (const QByteArray &name : names)
        if (const QString text = QString::fromUtf8(name); !before.arguments.contains(text))
            candidates.push_back({text});
    return candidates;
}

ExitStatus executeNapictl(Output &output, const Invocation &invocation)
{
    chooseStore(invocation);
    return static_cast<const CommandRow &>(*invocation.command).run(output, invocation);
}
