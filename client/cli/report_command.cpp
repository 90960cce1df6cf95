// The report command: records as a page for a browser.

#include "commands.h"
#include "input_file.h"
#include "installed_page.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

namespace client::cli {

namespace {

/// What one record may have; a browser shows no larger page.
constexpr qint64 mostRecordBytes = 256 * 1024 * 1024;
constexpr int recordFormat = 1;

using Bytes = support::Expected<QByteArray, QString>;

/// Nothing, or what keeps bytes from being a record that the page can show.
support::Expected<void, QString> checkRecord(const QByteArray &record)
{
    const auto fail = [](const QString &reason) { return support::Unexpected(reason); };
    QJsonParseError fault;
    const QJsonObject run =
        QJsonDocument::fromJson(record.left(record.indexOf('\n')), &fault).object();
    if (fault.error != QJsonParseError::NoError)
        return fail(QStringLiteral("it is not a record: line 1, byte %1: %2")
                        .arg(fault.offset)
                        .arg(fault.errorString()));
    if (run[u"event"].toString() != u"run")
        return fail(QStringLiteral("it is not a record: line 1 is not the event of a run"));
    if (run[u"format"].toInt() != recordFormat)
        return fail(QStringLiteral("line 1: a record of format %1, not %2")
                        .arg(run[u"format"].toVariant().toString())
                        .arg(recordFormat));
    return {};
}

Bytes readRecord(const QString &file)
{
    Bytes record = commandline::readInput(file, mostRecordBytes);
    if (!record)
        return record;
    if (const auto check = checkRecord(*record); !check)
        return support::Unexpected(QStringLiteral("%1: %2").arg(file, check.error()));
    return record;
}

/// A record as an element of a page. Where JSON has a "<" it is in a string, and the escape says
/// the same without being the beginning of a tag.
QByteArray recordElement(QByteArray record)
{
    return "<script type=\"application/json\" class=\"record\">" + record.replace('<', "\\u003c") +
           "</script>\n";
}

/// Nothing, or why a file that is there is not one to write a report over.
support::Expected<void, QString> checkTarget(const QString &file)
{
    if (!QFileInfo::exists(file))
        return {};
    QFile there(file);
    const bool isReport = QFileInfo(file).isFile() && there.open(QIODevice::ReadOnly) &&
                          (there.size() == 0 || there.read(pageStart.size()) == pageStart);
    if (isReport)
        return {};
    return support::Unexpected(
        QStringLiteral("%1 is there and is not a report; name another file with -o").arg(file));
}

/// Writes a file that only its owner can read, since records can hold what is nobody else's.
support::Expected<void, QString> writePrivately(const QString &file, const QByteArray &bytes)
{
    QSaveFile target(file);
    const bool isWritten = target.open(QIODevice::WriteOnly) &&
                           target.setPermissions(QFile::ReadOwner | QFile::WriteOwner) &&
                           target.write(bytes) == bytes.size() && target.commit();
    if (isWritten)
        return {};
    return support::Unexpected(
        QStringLiteral("cannot write %1: %2").arg(file, target.errorString()));
}

/// The name of a record with another ending, in the current folder.
QString pageName(const QString &record)
{
    return QFileInfo(record).completeBaseName() + QStringLiteral(".html");
}

} // namespace

ExitStatus runReport(Context &context)
{
    const QStringList &records = context.invocation.arguments;
    QByteArray elements;
    for (const QString &file : records) {
        const Bytes record = readRecord(file);
        if (!record)
            return wrongUsage(context, record.error());
        elements += recordElement(*record);
    }
    const Bytes page = installedPage("report", elements);
    if (!page)
        return problem(context, page.error(), ExitStatus::Unusable);

    const QString file = context.invocation.has("output") ? context.invocation.value("output")
                                                          : pageName(records.first());
    if (file == u"-") {
        context.output.raw(*page);
        return ExitStatus::Success;
    }
    if (const auto check = checkTarget(file); !check)
        return wrongUsage(context, check.error());
    if (const auto written = writePrivately(file, *page); !written)
        return problem(context, written.error(), ExitStatus::Unusable);
    context.output.line(file);
    return ExitStatus::Success;
}

} // namespace client::cli
