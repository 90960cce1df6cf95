// The commands of napictl. Each gets the parsed options and the arguments behind the command's
// name, as many as the command table allows.
#pragma once

#include <QCommandLineParser>
#include <QStringList>

#include "output.h"

using commandline::ExitStatus;
using commandline::Output;

/// What import and provision read at most.
inline constexpr qint64 largestInput = 64 * 1024 * 1024;

ExitStatus runList(Output &output, const QCommandLineParser &options, const QStringList &arguments);
ExitStatus runShow(Output &output, const QCommandLineParser &options, const QStringList &arguments);
ExitStatus runCreate(Output &output, const QCommandLineParser &options,
                     const QStringList &arguments);
ExitStatus runSet(Output &output, const QCommandLineParser &options, const QStringList &arguments);
ExitStatus runDelete(Output &output, const QCommandLineParser &options,
                     const QStringList &arguments);
ExitStatus runImport(Output &output, const QCommandLineParser &options,
                     const QStringList &arguments);
ExitStatus runExport(Output &output, const QCommandLineParser &options,
                     const QStringList &arguments);
ExitStatus runProvision(Output &output, const QCommandLineParser &options,
                        const QStringList &arguments);
ExitStatus runCheck(Output &output, const QCommandLineParser &options,
                    const QStringList &arguments);
