#include "xml_codec.h"

#include "element_sink.h"
#include "element_source.h"
#include "message_reader.h"
#include "message_writer.h"
#include "xml_parser.h"
#include "xml_text.h"
#include "xml_writer.h"

#include <array>
#include <string>
#include <vector>

namespace syncml {
namespace {

std::string_view textView(QByteArrayView bytes)
{
    return {bytes.data(), static_cast<std::size_t>(bytes.size())};
}

// ---- reading

/// Appends without the room for as much again that QByteArray makes: a value can be most of what
/// the message takes.
void appendSlowlyGrowing(QByteArray &bytes, QByteArrayView more)
{
    const qsizetype size = bytes.size() + more.size();
    if (size > bytes.capacity())
        bytes.reserve(size + size / 4);
    bytes.append(more);
}

class XmlSource final : public ElementSource {
public:
    XmlSource(const QByteArray &bytes, const Limits &limits)
        : ElementSource(limits), m_parser(bytes, limits)
    {
        if (checkSize(bytes.size()) && !bytes.isValidUtf8())
            fail(415, QStringLiteral("the message is not in UTF-8"));
    }

    QByteArray readData() override
    {
        QByteArray text;
        std::optional<XmlWriter> markup;
        int depth = 0;
        for (;;) {
            switch (step()) {
            case Token::Start:
                if (!markup) {
                    markup.emplace();
                    markup->text(textView(text));
                }
                markup->start(textView(m_markup));
                ++depth;
                break;
            case Token::Text:
                if (markup)
                    markup->text(textView(m_text));
                else if (text.isNull())
                    text = m_text.toByteArray();
                else
                    appendSlowlyGrowing(text, m_text);
                break;
            case Token::End:
                if (depth == 0) {
                    text.squeeze(); // a text that came in pieces has made room for more
                    return markup ? QByteArray::fromStdString(markup->xml()) : text;
                }
                markup->end(textView(m_markup));
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
        const XmlParser::Event event = m_parser.next();
        switch (event.kind) {
        case XmlParser::EventKind::Start:
            m_element = event.element;
            m_unknownName = event.name;
            m_markup = event.text;
            return Token::Start;
        case XmlParser::EventKind::Text:
            m_text = event.text;
            return Token::Text;
        case XmlParser::EventKind::End:
            m_markup = event.text;
            return Token::End;
        case XmlParser::EventKind::Finished:
            return Token::Finished;
        case XmlParser::EventKind::Attribute: // not asked for
        case XmlParser::EventKind::Refused:
            break;
        }
        fail(m_parser.refusal().status, m_parser.refusal().text);
        return Token::Failed;
    }

    void locate(DecodeError &error) const override
    {
        const XmlParser::Place place = m_parser.place();
        error.line = place.line;
        error.column = place.column;
    }

private:
    XmlParser m_parser;
};

// ---- writing

struct Tags {
    std::string start;
    std::string end;

    /// The start tag without its closing bracket.
    std::string_view openStart() const
    {
        return std::string_view(start).substr(0, start.size() - 1);
    }
};

/// The tags of each element.
const std::array<Tags, elementCount> &tagsOfElements()
{
    static const std::array<Tags, elementCount> tags = [] {
        std::array<Tags, elementCount> made;
        for (std::size_t index = 0; index < elementCount; ++index) {
            const auto element = static_cast<Element>(index);
            const ElementInfo &info = elementInfo(element);
            std::string &start = made[index].start;
            start = '<' + std::string(info.name);
            if (element == Element::SyncML)
                start += R"( xmlns="SYNCML:SYNCML1.2")";
            else if (info.page == metinfPage)
                start += R"( xmlns="syncml:metinf")";
            start += '>';
            made[index].end = "</" + std::string(info.name) + '>';
        }
        return made;
    }();
    return tags;
}

class XmlSink final : public ElementSink {
public:
    explicit XmlSink(XmlLayout layout) : m_writer(layout)
    {
        constexpr std::size_t usualDepth = 16;
        m_open.reserve(usualDepth);
        m_writer.declaration();
    }

    void start(Element element) override
    {
        m_writer.start(tagsOf(element).openStart());
        m_open.push_back(element);
    }

    void end() override
    {
        m_writer.end(elementInfo(m_open.back()).name);
        m_open.pop_back();
    }

    bool bytes(Element element, const QByteArray &bytes) override
    {
        if (!isXmlText(bytes))
            return false;
        writeText(element, textView(bytes));
        return true;
    }

    void empty(Element element) override { writeText(element, {}); }

    qsizetype size() const override { return static_cast<qsizetype>(m_writer.xml().size()); }

    QByteArray finish()
    {
        m_writer.endLine();
        return QByteArray::fromStdString(m_writer.xml());
    }

protected:
    void writeText(Element element, std::string_view utf8) override
    {
        const Tags &tags = tagsOf(element);
        m_writer.element(tags.start, utf8, tags.end);
    }

private:
    const Tags &tagsOf(Element element) const { return m_tags[static_cast<std::size_t>(element)]; }

    const std::array<Tags, elementCount> &m_tags = tagsOfElements();
    XmlWriter m_writer;
    std::vector<Element> m_open;
};

} // namespace

DecodeResult decodeXml(const QByteArray &bytes, const Limits &limits)
{
    XmlSource source(bytes, limits);
    return readMessage(source, limits);
}

std::unique_ptr<ElementSource> makeXmlSource(const QByteArray &bytes, const Limits &limits)
{
    return std::make_unique<XmlSource>(bytes, limits);
}

EncodeResult encodeXml(const Message &message, XmlLayout layout)
{
    XmlSink sink(layout);
    if (const auto written = writeMessage(message, sink); !written)
        return support::Unexpected(written.error());
    return sink.finish();
}

std::unique_ptr<ElementSink> makeXmlSink()
{
    return std::make_unique<XmlSink>(XmlLayout::OneLine);
}

bool fitsXml(QByteArrayView bytes)
{
    return isXmlText(bytes);
}

} // namespace syncml
