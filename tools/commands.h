// The commands of napictl. Each gets as many arguments as the command table allows.
#pragma once

#include "command.h"
#include "expected.h"
#include "input_file.h"
#include "output.h"

using commandline::ExitStatus;
using commandline::Invocation;
using commandline::Output;

/// Reads and parses a file that the command line names. The error begins with the file.
template <typename Parsed>
support::Expected<Parsed, QString>
parseFile(const QString &fileName, support::Expected<Parsed, QString> (*parse)(const QByteArray &))
{
    constexpr qint64 largestInput = 64 * 1024 * 1024;
    const auto bytes = commandline::readInput(fileName, largestInput);
    if (!bytes)
        return support::Unexpected(bytes.error());
    auto parsed = parse(*bytes);
    if (!parsed)
        return support::Unexpected(QStringLiteral("%1: %2").arg(fileName, parsed.error()));
    return parsed;
}

/// Names of options that more than one command has.
inline constexpr char fieldsOption[] = "fields";
inline constexpr char terseOption[] = "terse";
inline constexpr char jsonOption[] = "json";
inline constexpr char rawOption[] = "raw";
inline constexpr char showSecretsName[] = "show-secrets";

ExitStatus runList(Output &output, const Invocation &invocation);
ExitStatus runShow(Output &output, const Invocation &invocation);
ExitStatus runCreate(Output &output, const Invocation &invocation);
ExitStatus runSet(Output &output, const Invocation &invocation);
ExitStatus runRename(Output &output, const Invocation &invocation);
ExitStatus runClone(Output &output, const Invocation &invocation);
ExitStatus runEdit(Output &output, const Invocation &invocation);
ExitStatus runMonitor(Output &output, const Invocation &invocation);
ExitStatus runDelete(Output &output, const Invocation &invocation);
ExitStatus runDiff(Output &output, const Invocation &invocation);
ExitStatus runImport(Output &output, const Invocation &invocation);
ExitStatus runExport(Output &output, const Invocation &invocation);
ExitStatus runProvision(Output &output, const Invocation &invocation);
ExitStatus runCheck(Output &output, const Invocation &invocation);
