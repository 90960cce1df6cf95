// Where the commands of dmclient print.
#pragma once

#include "dm_status.h"
#include "terminal.h"

#include <QJsonDocument>

namespace client::cli {

/// Results go to standard output. A single command reports failures on standard error and is silent
/// about successes; in the shell every command's status is a line of standard output, so that the
/// answers of a script's lines can be told apart.
class Output {
public:
    enum class Reports { Failures, Everything };

    Output();

    void setReports(Reports reports) { m_reports = reports; }

    const Painter &painter() const { return m_painter; }
    /// A line of a result. What comes from elsewhere in it has to be printable.
    void line(const QString &text);
    /// A value or a name that came from the tree: as it is, or made harmless for a terminal.
    void value(const QByteArray &bytes);
    /// Lines of the program's own.
    void raw(const QByteArray &bytes);
    /// A document with values or names from the tree: as it is, or made harmless for a terminal.
    void document(const QByteArray &bytes);
    /// A JSON document, written so that nothing in its strings steers a terminal.
    void json(const QJsonDocument &document, QJsonDocument::JsonFormat format);
    /// How a command on a node ended.
    void status(const QString &command, const QString &uri, const Outcome &outcome);
    /// What is wrong with the command itself or with a file that it names.
    void problem(const QString &text);
    /// Why something that was printed is lost, such as "No space left on device"; null when nothing
    /// is.
    QString lossReason() const;

private:
    void report(const QString &text, bool failed);

    bool m_toTerminal;
    Painter m_painter;
    Painter m_errorPainter;
    Reports m_reports = Reports::Failures;
    int m_writeError = 0; ///< errno of the first result that could not be written
};

} // namespace client::cli
