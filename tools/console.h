// What napictl writes: results to standard output, everything else to standard error.
#pragma once

#include <QByteArray>
#include <QString>

#include "exit_status.h"

void printOutput(const QByteArray &text);
void printOutput(const QString &text);

/// Writes "napictl: message", the message as printable gives it.
void printError(const QString &message);

/// Writes what is left of the output. @return ExitFailed, with a message, when it could not be
/// written and the status was ExitOk; else the status.
ExitStatus finishOutput(ExitStatus status);

/// @return one line of text that a terminal shows and does not obey (foreign_text.h).
QString printable(const QString &text);

/// Writes a JSON document so that nothing in its strings steers a terminal.
void printJson(const QByteArray &json);

/// Reads a file, "-" for standard input. @param fault  receives what is wrong; null when nothing is
QByteArray readInput(const QString &fileName, QString &fault);

/// Shows "label: done of total" on a terminal while a long operation runs.
class Progress {
public:
    Progress(const QString &label, qsizetype total);
    ~Progress();
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    void show(qsizetype done) const;

private:
    QString m_label;
    qsizetype m_total;
    bool m_isShown;
};
