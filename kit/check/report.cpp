#include "report.h"

#include "terminal.h"

#include <QSaveFile>
#include <QXmlStreamWriter>
#include <algorithm>

using commandline::Colour;
using commandline::printable;

namespace {

constexpr std::size_t mostPrinted = 8; // findings of a check
constexpr qsizetype longest = 300;     // characters of a text that is the plug-in's

QString shown(const std::string &text)
{
    const QString line = printable(QByteArray::fromStdString(text));
    return line.size() <= longest ? line : line.first(longest) + QStringLiteral("...");
}

QString sentence(const Finding &finding)
{
    QStringList place;
    for (const std::string *const part : {&finding.node, &finding.slot})
        if (!part->empty())
            place += shown(*part);
    return QStringLiteral("%1: expected %2; came %3")
        .arg(place.join(QStringLiteral(": ")), shown(finding.expected), shown(finding.came));
}

QString title(const Result &result)
{
    return result.root.empty() ? QString::fromLatin1(result.check->id)
                               : QStringLiteral("%1 %2").arg(QString::fromLatin1(result.check->id),
                                                             shown(result.root));
}

} // namespace

void print(const Result &result, commandline::Output &output)
{
    const QString words =
        QStringLiteral("%1: %2").arg(title(result), QString::fromLatin1(result.check->title));
    if (!result.whySkipped.empty()) {
        output.line(QStringLiteral("skipped  %1 (%2)").arg(words, shown(result.whySkipped)));
        return;
    }
    output.line(result.findings.empty()
                    ? QStringLiteral("ok       ") + words
                    : output.painter().paint(Colour::Problem, QStringLiteral("FAILED")) +
                          QStringLiteral("   ") + words);
    for (std::size_t i = 0; i < std::min(mostPrinted, result.findings.size()); ++i)
        output.line(QStringLiteral("    ") + sentence(result.findings[i]));
    if (result.findings.size() > mostPrinted)
        output.line(QStringLiteral("    and %1 more").arg(result.findings.size() - mostPrinted));
}

QString writeJUnit(const QString &file, const QString &library, const std::vector<Result> &results)
{
    QSaveFile saved(file);
    if (!saved.open(QIODevice::WriteOnly))
        return QStringLiteral("cannot write %1: %2").arg(file, saved.errorString());
    QXmlStreamWriter xml(&saved);
    xml.setAutoFormatting(true);
    const auto count = [&results](auto property) {
        return QString::number(std::ranges::count_if(results, property));
    };
    xml.writeStartDocument();
    xml.writeStartElement(QStringLiteral("testsuite"));
    xml.writeAttribute(QStringLiteral("name"), printable(library));
    xml.writeAttribute(QStringLiteral("tests"), QString::number(results.size()));
    xml.writeAttribute(QStringLiteral("failures"),
                       count([](const Result &one) { return !one.findings.empty(); }));
    xml.writeAttribute(QStringLiteral("skipped"),
                       count([](const Result &one) { return !one.whySkipped.empty(); }));
    for (const Result &result : results) {
        xml.writeStartElement(QStringLiteral("testcase"));
        xml.writeAttribute(QStringLiteral("classname"), QStringLiteral("dm-plugin-check"));
        xml.writeAttribute(QStringLiteral("name"), title(result));
        if (!result.whySkipped.empty()) {
            xml.writeEmptyElement(QStringLiteral("skipped"));
            xml.writeAttribute(QStringLiteral("message"), shown(result.whySkipped));
        }
        if (!result.findings.empty()) {
            QStringList sentences;
            for (const Finding &finding : result.findings)
                sentences += sentence(finding);
            xml.writeStartElement(QStringLiteral("failure"));
            xml.writeAttribute(QStringLiteral("message"), sentences.first());
            xml.writeCharacters(sentences.join(u'\n'));
            xml.writeEndElement();
        }
        xml.writeEndElement();
    }
    xml.writeEndDocument();
    return saved.commit() ? QString()
                          : QStringLiteral("cannot write %1: %2").arg(file, saved.errorString());
}
