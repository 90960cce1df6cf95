// The report command: records as a page for a browser.

#include "commands.h"
#include "installed_page.h"
#include "private_file.h"
#include "recording.h"

#include <QFile>
#include <QFileInfo>

namespace client::cli {

namespace {

using Bytes = support::Expected<QByteArray, QString>;

/// A record as an element of a page. Where JSON has a "<" it is in a string, and the escape says
/// the same without being the beginning of a tag.
Bytes recordElement(RecordReader &record)
{
    QByteArray element = "<script type=\"application/json\" class=\"record\">";
    for (;;) {
        const auto event = record.next();
        if (!event)
            return support::Unexpected(event.error());
        if (!*event)
            return element + "</script>\n";
        element += QByteArray(record.line()).replace('<', "\\u003c");
    }
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

/// The name of a record with another ending, in the current folder.
QString pageName(const QString &record)
{
    return QFileInfo(record).completeBaseName() + QStringLiteral(".html");
}

} // namespace

ExitStatus runReport(Context &context)
{
    const KeptRecords records = keptRecords(deviceOptions(context.invocation).stateDirectory);
    QStringList words = context.invocation.arguments;
    if (words.isEmpty()) {
        const auto newest = records.newest();
        if (!newest)
            return problem(context, newest.error(), ExitStatus::Unusable);
        words = {*newest};
    }
    QByteArray elements;
    for (const QString &word : words) {
        auto record = records.open(word);
        const Bytes element =
            record ? recordElement(*record) : Bytes(support::Unexpected(record.error()));
        if (!element)
            return wrongUsage(context, element.error());
        elements += *element;
    }
    const Bytes page = installedPage("report", elements);
    if (!page)
        return problem(context, page.error(), ExitStatus::Unusable);

    const QString file = context.invocation.has("output") ? context.invocation.value("output")
                                                          : pageName(words.first());
    if (file == u"-") {
        context.output.raw(*page);
        return ExitStatus::Success;
    }
    if (const auto check = checkTarget(file); !check)
        return wrongUsage(context, check.error());
    if (const auto written = support::replacePrivately(file, *page); !written)
        return problem(context, written.error(), ExitStatus::Unusable);
    context.output.line(file);
    return ExitStatus::Success;
}

} // namespace client::cli
