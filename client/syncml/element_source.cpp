#include "element_source.h"

#include "xml_text.h"

#include <utility>

namespace syncml {

ElementSource::ElementSource(const Limits &limits) : m_limits(limits) {}

bool ElementSource::openDocument()
{
    return step() == Token::Start;
}

bool ElementSource::nextChild(TextBetween textBetween)
{
    for (;;) {
        switch (step()) {
        case Token::Start:
            return true;
        case Token::Text:
            if (textBetween == TextBetween::Refused && !withoutOuterBlanks(m_text).isEmpty())
                fail(400, QStringLiteral("text where only elements can stand"));
            break;
        case Token::End:
        case Token::Finished:
        case Token::Failed:
            return false;
        }
    }
}

bool ElementSource::closeDocument()
{
    return step() == Token::Finished;
}

QString ElementSource::name() const
{
    return m_element == Element::Unknown ? QString::fromUtf8(m_unknownName)
                                         : elementName(m_element);
}

/// The name of the current element, to be told when it has been left.
class ElementSource::NameOfElement {
public:
    explicit NameOfElement(const ElementSource &source)
        : m_element(source.m_element),
          m_unknownName(m_element == Element::Unknown ? source.name() : QString())
    {
    }

    QString toString() const
    {
        return m_element == Element::Unknown ? m_unknownName : elementName(m_element);
    }

private:
    Element m_element;
    QString m_unknownName;
};

QString ElementSource::readText(OuterBlanks outerBlanks)
{
    const NameOfElement elementRead(*this);
    m_collected.clear();
    if (!appendTexts(m_collected))
        return {};
    const QByteArrayView bytes(m_collected);
    std::optional<QString> text =
        xmlTextFromUtf8(outerBlanks == OuterBlanks::Cut ? withoutOuterBlanks(bytes) : bytes);
    if (!text) {
        fail(400, QStringLiteral("%1 is not text in UTF-8").arg(elementRead.toString()));
        return {};
    }
    return *std::move(text);
}

namespace {

void append(std::string &bytes, QByteArrayView text)
{
    bytes.append(text.data(), static_cast<std::size_t>(text.size()));
}

/// Makes room for no more than the text where it is the only one.
void append(QByteArray &bytes, QByteArrayView text)
{
    if (bytes.isNull())
        bytes = text.toByteArray();
    else
        bytes.append(text);
}

} // namespace

QByteArray ElementSource::readBytes()
{
    QByteArray bytes;
    return appendTexts(bytes) ? bytes : QByteArray();
}

template <class Bytes>
bool ElementSource::appendTexts(Bytes &bytes)
{
    const NameOfElement elementRead(*this);
    for (;;) {
        switch (step()) {
        case Token::Start:
            fail(400, QStringLiteral("%1 inside %2, which holds text only")
                          .arg(name(), elementRead.toString()));
            return false;
        case Token::Text:
            append(bytes, m_text);
            break;
        case Token::End:
            return true;
        case Token::Finished:
        case Token::Failed:
            return false;
        }
    }
}

QByteArray ElementSource::readData()
{
    return readBytes();
}

void ElementSource::skip()
{
    const int outerDepth = m_depth - 1;
    while (m_depth > outerDepth) {
        const Token token = step();
        if (token == Token::Finished || token == Token::Failed)
            return;
    }
}

void ElementSource::fail(int status, const QString &text)
{
    DecodeError error;
    error.status = status;
    error.text = text;
    locate(error);
    fail(std::move(error));
}

void ElementSource::fail(DecodeError error)
{
    if (!m_error)
        m_error = std::move(error);
}

bool ElementSource::checkSize(qsizetype messageBytes)
{
    if (messageBytes <= m_limits.messageBytes)
        return true;
    fail(416, QStringLiteral("the message has %1 bytes, more than the %2 that are taken")
                  .arg(messageBytes)
                  .arg(m_limits.messageBytes));
    return false;
}

void ElementSource::countText(qsizetype bytes)
{
    m_textBytes += bytes;
    if (m_textBytes > m_limits.textBytes)
        fail(416, QStringLiteral("more than %1 bytes of text").arg(m_limits.textBytes));
}

ElementSource::Token ElementSource::step()
{
    if (m_error)
        return Token::Failed;
    const Token token = advance();
    switch (token) {
    case Token::Start:
        if (++m_depth > m_limits.depth)
            fail(416,
                 QStringLiteral("more than %1 elements inside each other").arg(m_limits.depth));
        countText(m_markup.size());
        break;
    case Token::Text:
        countText(m_text.size());
        break;
    case Token::End:
        --m_depth;
        break;
    case Token::Finished:
    case Token::Failed:
        break;
    }
    return m_error ? Token::Failed : token;
}

} // namespace syncml
