// Where the programs print.
#pragma once

#include "exit_status.h"
#include "terminal.h"

#include <QJsonDocument>

namespace commandline {

/// Results go to standard output. A single command reports failures on standard error, after the
/// name of the program, and is silent about successes; in a shell every command's end is a line of
/// standard output, so that the answers of a script's lines can be told apart.
class Output {
public:
    enum class Reports { Failures, Everything };

    explicit Output(const QString &programName);

    void setReports(Reports reports) { m_reports = reports; }

    const Painter &painter() const { return m_painter; }
    /// Columns that a line of a result may have.
    int width() const;
    /// A line of a result. What comes from elsewhere in it has to be printable.
    void line(const QString &text);
    /// A value or a name that came from elsewhere: as it is, or made harmless for a terminal.
    void value(const QByteArray &bytes);
    /// Lines of the program's own.
    void raw(const QByteArray &bytes);
    /// A document with values or names from elsewhere: as it is, or made harmless for a terminal.
    void document(const QByteArray &bytes);
    /// A JSON document, written so that nothing in its strings steers a terminal.
    void json(const QByteArray &document);
    void json(const QJsonDocument &document, QJsonDocument::JsonFormat format);
    /// How a command ended that was carried out.
    void ending(const QString &text, bool succeeded);
    /// Something that a person should know of what was done, where problems are told.
    void notice(const QString &text);
    /// What is wrong with the command itself, with a file that it names, or with the outcome.
    void problem(const QString &text);
    /// The same. @return the status, for the command to end with
    ExitStatus problem(const QString &text, ExitStatus status);
    /// Whether a result could not be written.
    bool isLost() const { return m_writeError != 0; }
    /// Reports the output that could not be written, if any.
    /// @return the exit status of a program that would have ended with this one
    ExitStatus finish(ExitStatus status);

private:
    void report(const QString &text, bool failed);

    QString m_programName;
    bool m_toTerminal;
    Painter m_painter;
    Painter m_errorPainter;
    Reports m_reports = Reports::Failures;
    int m_writeError = 0; ///< errno of the first result that could not be written
};

} // namespace commandline
