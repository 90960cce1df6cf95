// The commands of napictl. Each gets the parsed options and the arguments behind the command's
// name, as many as the command table allows.
#pragma once

#include <QCommandLineParser>
#include <QStringList>

#include "exit_status.h"

ExitStatus runList(const QCommandLineParser &options, const QStringList &arguments);
ExitStatus runShow(const QCommandLineParser &options, const QStringList &arguments);
ExitStatus runCreate(const QCommandLineParser &options, const QStringList &arguments);
ExitStatus runSet(const QCommandLineParser &options, const QStringList &arguments);
ExitStatus runDelete(const QCommandLineParser &options, const QStringList &arguments);
ExitStatus runImport(const QCommandLineParser &options, const QStringList &arguments);
ExitStatus runExport(const QCommandLineParser &options, const QStringList &arguments);
ExitStatus runProvision(const QCommandLineParser &options, const QStringList &arguments);
ExitStatus runCheck(const QCommandLineParser &options, const QStringList &arguments);
