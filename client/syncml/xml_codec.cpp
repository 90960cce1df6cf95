#include "xml_codec.h"

#include "element_sink.h"
#include "element_source.h"
#include "message_reader.h"
#include "message_writer.h"
#include "xml_guard.h"
#include "xml_text.h"

#include <QXmlStreamReader>
#include <QXmlStreamWriter>
#include <algorithm>
#include <utility>

namespace syncml {
namespace {

constexpr auto syncmlNamespace = "SYNCML:SYNCML1.2";
constexpr auto metinfNamespace = "syncml:metinf";

void writeCharacters(QXmlStreamWriter &writer, QStringView text)
{
    // A carriage return must be a reference, or the reader takes it for half of a line end.
    for (;;) {
        const qsizetype end = text.indexOf(u'\r');
        writer.writeCharacters((end < 0 ? text : text.first(end)).toString());
        if (end < 0)
            return;
        writer.writeEntityReference(QStringLiteral("#13"));
        text = text.sliced(end + 1);
    }
}

// ---- reading

/// Writes down the markup that stands inside Data.
class MarkupCapture {
public:
    MarkupCapture() : m_writer(&m_markup) {}

    /// Gives the bytes that it wrote, which declarations can make far more than were read.
    qsizetype start(const QXmlStreamReader &reader)
    {
        const qsizetype before = m_markup.size();
        m_writer.writeStartElement(reader.qualifiedName().toString());
        ++m_depth;
        for (const auto &declaration : reader.namespaceDeclarations())
            declare(declaration.prefix(), declaration.namespaceUri());
        declareWhenMissing(reader.prefix(), reader.namespaceUri());
        for (const auto &attribute : reader.attributes())
            declareWhenMissing(attribute.prefix(), attribute.namespaceUri());
        for (const auto &attribute : reader.attributes())
            m_writer.writeAttribute(attribute.qualifiedName().toString(),
                                    attribute.value().toString());
        return m_markup.size() - before;
    }

    void end()
    {
        m_writer.writeEndElement();
        --m_depth;
        while (!m_declared.empty() && m_declared.back().depth > m_depth)
            m_declared.pop_back();
    }

    void characters(QStringView text) { writeCharacters(m_writer, text); }

    const QByteArray &markup() const { return m_markup; }

private:
    struct Declaration {
        QString prefix;
        int depth;
    };

    void declare(QStringView prefix, QStringView uri)
    {
        if (prefix.isEmpty())
            m_writer.writeDefaultNamespace(uri.toString());
        else
            m_writer.writeNamespace(uri.toString(), prefix.toString());
        m_declared.push_back({prefix.toString(), m_depth});
    }

    /// A prefix may have been declared outside Data, where the markup will no longer stand.
    void declareWhenMissing(QStringView prefix, QStringView uri)
    {
        if (prefix.isEmpty() || prefix == u"xml")
            return;
        if (std::ranges::find(m_declared, prefix, &Declaration::prefix) == m_declared.end())
            declare(prefix, uri);
    }

    QByteArray m_markup;
    QXmlStreamWriter m_writer;
    std::vector<Declaration> m_declared;
    int m_depth = 0;
};

DecodeError decodeErrorOf(const support::XmlRefusal &refusal)
{
    DecodeError error;
    error.status = refusal.kind == support::XmlRefusal::Kind::Declarations ? 400 : 416;
    error.text = refusal.text;
    error.line = refusal.line;
    error.column = refusal.column;
    return error;
}

class XmlSource final : public ElementSource {
public:
    XmlSource(const QByteArray &bytes, const Limits &limits) : ElementSource(limits)
    {
        if (!checkSize(bytes.size()))
            return;
        if (!bytes.isValidUtf8())
            fail(415, QStringLiteral("the message is not in UTF-8"));
        else if (const auto refusal = support::guardXml(bytes, limits.attributes))
            fail(decodeErrorOf(*refusal));
        else
            m_reader.addData(QString::fromUtf8(bytes));
    }

    QByteArray readData() override
    {
        QByteArray text;
        std::optional<MarkupCapture> capture;
        int depth = 0;
        for (;;) {
            switch (step()) {
            case Token::Start:
                if (!capture) {
                    capture.emplace();
                    capture->characters(QString::fromUtf8(text));
                }
                countText(capture->start(m_reader));
                ++depth;
                break;
            case Token::Text:
                if (capture)
                    capture->characters(m_reader.text());
                else
                    text.append(m_text);
                break;
            case Token::End:
                if (depth == 0) {
                    text.squeeze(); // a conversion makes room for three times as much
                    return capture ? capture->markup() : text;
                }
                capture->end();
                --depth;
                break;
            case Token::Finished:
            case Token::Failed:
                return {};
            }
        }
    }

protected:
    Token advance() override
    {
        for (;;) {
            switch (m_reader.readNext()) {
            case QXmlStreamReader::StartElement:
                m_element = elementByName(m_reader.name());
                if (m_element == Element::Unknown)
                    m_unknownName = m_reader.name().toString();
                return Token::Start;
            case QXmlStreamReader::EndElement:
                return Token::End;
            case QXmlStreamReader::Characters:
                m_text = m_reader.text().toUtf8();
                return Token::Text;
            case QXmlStreamReader::EndDocument:
                return Token::Finished;
            case QXmlStreamReader::StartDocument:
                if (!isUtf8(m_reader.documentEncoding())) {
                    fail(415, QStringLiteral("the encoding %1 is not supported, only UTF-8 is")
                                  .arg(m_reader.documentEncoding()));
                    return Token::Failed;
                }
                break;
            case QXmlStreamReader::EntityReference:
                fail(400, QStringLiteral("the entity %1 is not known").arg(m_reader.name()));
                return Token::Failed;
            case QXmlStreamReader::Comment:
            case QXmlStreamReader::DTD:
            case QXmlStreamReader::ProcessingInstruction:
                break;
            case QXmlStreamReader::Invalid:
            case QXmlStreamReader::NoToken:
                fail(400, m_reader.errorString());
                return Token::Failed;
            }
        }
    }

    void locate(DecodeError &error) const override
    {
        error.line = m_reader.lineNumber();
        error.column = m_reader.columnNumber();
    }

private:
    static bool isUtf8(QStringView declared)
    {
        constexpr QStringView names[] = {u"", u"UTF-8", u"UTF8", u"US-ASCII"};
        return std::ranges::any_of(names, [declared](QStringView name) {
            return name.compare(declared, Qt::CaseInsensitive) == 0;
        });
    }

    QXmlStreamReader m_reader;
};

// ---- writing

class XmlSink final : public ElementSink {
public:
    XmlSink() : m_writer(&m_xml) { m_writer.writeStartDocument(); }

    void start(Element element) override
    {
        const ElementInfo &info = elementInfo(element);
        m_writer.writeStartElement(elementName(element));
        if (element == Element::SyncML)
            m_writer.writeDefaultNamespace(QLatin1StringView(syncmlNamespace));
        else if (info.page == metinfPage)
            m_writer.writeDefaultNamespace(QLatin1StringView(metinfNamespace));
    }

    void end() override { m_writer.writeEndElement(); }

    bool text(Element element, const QString &text) override
    {
        if (!isXmlText(text))
            return false;
        writeWhole(element, text);
        return true;
    }

    bool bytes(Element element, const QByteArray &bytes) override
    {
        const std::optional<QString> text = xmlTextFromUtf8(bytes);
        if (!text)
            return false;
        writeWhole(element, *text);
        return true;
    }

    void empty(Element element) override
    {
        start(element);
        end();
    }

    QByteArray finish()
    {
        m_writer.writeEndDocument();
        return std::move(m_xml);
    }

private:
    void writeWhole(Element element, const QString &text)
    {
        start(element);
        if (!text.isEmpty())
            writeCharacters(m_writer, text);
        end();
    }

    QByteArray m_xml;
    QXmlStreamWriter m_writer;
};

} // namespace

DecodeResult decodeXml(const QByteArray &bytes, const Limits &limits)
{
    XmlSource source(bytes, limits);
    return readMessage(source, limits);
}

EncodeResult encodeXml(const Message &message)
{
    XmlSink sink;
    if (const auto written = writeMessage(message, sink); !written)
        return support::Unexpected(written.error());
    return sink.finish();
}

bool fitsXml(QByteArrayView bytes)
{
    return xmlTextFromUtf8(bytes).has_value();
}

} // namespace syncml
