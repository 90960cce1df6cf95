#include "xml_parser.h"

#include "xml_writer.h"

#include <QRandomGenerator>
#include <algorithm>
#include <expat.h>
#include <new>
#include <string_view>

namespace syncml {
namespace {

/// Between the parts of a name, as expat gives it. No XML has it, so no namespace does.
constexpr char nameSeparator = '\x01';

/// Bytes that are parsed at once, when no single token is longer.
constexpr qsizetype pieceBytes = 16 * 1024;

/// Bytes of a message for each event, about, where it has short values.
constexpr qsizetype bytesPerEvent = 12;

/// What nobody can foresee, against names that are made to collide in expat's tables. Asked for
/// once: expat would ask the system for each message.
unsigned long hashSalt()
{
    static const auto salt =
        static_cast<unsigned long>(QRandomGenerator::system()->generate64()) | 1;
    return salt;
}

QByteArrayView shown(const char *text)
{
    constexpr qsizetype mostBytes = 64;
    const QByteArrayView view(text);
    return view.first(std::min(view.size(), mostBytes));
}

} // namespace

/// A name with its namespace, apart.
struct XmlParser::QualifiedName {
    std::string_view uri;
    std::string_view local;
    std::string_view prefix;

    /// @param name  `local`, `uri local` or `uri local prefix`
    explicit QualifiedName(std::string_view name)
    {
        const std::size_t first = name.find(nameSeparator);
        if (first == std::string_view::npos) {
            local = name;
            return;
        }
        const std::size_t second = name.find(nameSeparator, first + 1);
        uri = name.substr(0, first);
        local = name.substr(first + 1, second - first - 1);
        if (second != std::string_view::npos)
            prefix = name.substr(second + 1);
    }

    void appendTo(std::string &xml) const
    {
        if (!prefix.empty())
            (xml += prefix) += ':';
        xml += local;
    }
};

// ---- Expat ---------------------------------------------------------------------------------------

struct XmlParser::Handlers {
    static XmlParser &of(void *self) { return *static_cast<XmlParser *>(self); }

    static void XMLCALL start(void *self, const XML_Char *name, const XML_Char **attributes)
    {
        of(self).startElement(name, attributes);
    }
    static void XMLCALL end(void *self, const XML_Char *name) { of(self).endElement(name); }
    static void XMLCALL text(void *self, const XML_Char *text, int size)
    {
        of(self).appendText(text, size);
    }
    static void XMLCALL declaration(void *self, const XML_Char *prefix, const XML_Char *uri)
    {
        of(self).noteDeclaration(prefix, uri);
    }
    static void XMLCALL xmlDeclaration(void *self, const XML_Char *version,
                                       const XML_Char *encoding, int)
    {
        of(self).checkXmlDeclaration(version, encoding);
    }
    static void XMLCALL documentType(void *self, const XML_Char *, const XML_Char *,
                                     const XML_Char *, int hasDeclarations)
    {
        of(self).checkDocumentType(hasDeclarations != 0);
    }
    static void XMLCALL skippedEntity(void *self, const XML_Char *name, int)
    {
        of(self).refuseEntity(name);
    }
};

XmlParser::XmlParser(const QByteArray &document, const Limits &limits, Attributes attributes)
    : m_document(document), m_limits(limits), m_attributes(attributes),
      m_expat(XML_ParserCreateNS("UTF-8", nameSeparator), XML_ParserFree)
{
    if (!m_expat)
        throw std::bad_alloc();
    const qsizetype bytes = std::min(document.size(), pieceBytes);
    m_events.reserve(static_cast<std::size_t>(bytes / bytesPerEvent));
    m_texts.reserve(static_cast<std::size_t>(bytes / 2));
    XML_Parser expat = m_expat.get();
    XML_SetHashSalt(expat, hashSalt());
    XML_SetUserData(expat, this);
    XML_SetReturnNSTriplet(expat, 1);
    XML_SetElementHandler(expat, Handlers::start, Handlers::end);
    XML_SetCharacterDataHandler(expat, Handlers::text);
    XML_SetStartNamespaceDeclHandler(expat, Handlers::declaration);
    XML_SetXmlDeclHandler(expat, Handlers::xmlDeclaration);
    XML_SetStartDoctypeDeclHandler(expat, Handlers::documentType);
    XML_SetSkippedEntityHandler(expat, Handlers::skippedEntity);
}

XmlParser::~XmlParser() = default;

qsizetype XmlParser::parserPlace() const
{
    return std::max<qsizetype>(XML_GetCurrentByteIndex(m_expat.get()), 0);
}

void XmlParser::parsePiece()
{
    m_events.clear();
    m_next = 0;
    m_texts.clear();
    // A token that goes on in the next piece is looked at from its beginning. A piece that is at
    // least as long again keeps that in proportion to the document.
    const qsizetype again = m_fed - parserPlace();
    const qsizetype size = std::min(std::max(pieceBytes, again), m_document.size() - m_fed);
    const char *const piece = m_document.constData() + m_fed;
    m_fed += size;
    const bool isLast = m_fed == m_document.size();
    const XML_Status status =
        XML_Parse(m_expat.get(), piece, static_cast<int>(size), isLast ? XML_TRUE : XML_FALSE);
    if (status == XML_STATUS_OK && !isLast)
        return;
    if (status != XML_STATUS_OK && !m_isStopped)
        refuse(400, QString::fromLatin1(XML_ErrorString(XML_GetErrorCode(m_expat.get()))));
    m_isStopped = true;
}

void XmlParser::stop()
{
    m_isStopped = true;
    XML_StopParser(m_expat.get(), XML_FALSE);
}

void XmlParser::refuse(int status, const QString &text)
{
    m_refusal = {status, text};
    m_refusedAt = parserPlace();
    stop();
}

// ---- Events --------------------------------------------------------------------------------------

XmlParser::Event XmlParser::next()
{
    while (m_next == m_events.size() && !m_isStopped)
        parsePiece();
    Event event;
    if (m_next == m_events.size()) {
        m_place = m_refusedAt;
        event.kind = m_refusal.status ? EventKind::Refused : EventKind::Finished;
        return event;
    }
    const StoredEvent &stored = m_events[m_next++];
    const QByteArrayView texts(m_texts);
    const auto begin = static_cast<qsizetype>(stored.textBegin);
    const auto nameSize = static_cast<qsizetype>(stored.nameSize);
    m_place = stored.at;
    event.kind = stored.kind;
    event.element = stored.element;
    event.attributes = stored.attributes;
    event.name = texts.sliced(begin, nameSize);
    event.text = texts.sliced(begin + nameSize, static_cast<qsizetype>(stored.textSize));
    return event;
}

XmlParser::Place XmlParser::place() const
{
    const QByteArrayView before = QByteArrayView(m_document).first(m_place);
    const auto beginsCharacter = [](char byte) {
        return (static_cast<unsigned char>(byte) & 0xC0) != 0x80;
    };
    return {std::ranges::count(before, '\n') + 1,
            std::ranges::count_if(before.sliced(before.lastIndexOf('\n') + 1), beginsCharacter)};
}

XmlParser::StoredEvent &XmlParser::store(EventKind kind)
{
    return m_events.emplace_back(
        StoredEvent{kind, Element::Unknown, parserPlace(), m_texts.size(), 0, 0, 0});
}

/// Gives the event what was appended to the texts after its name.
void XmlParser::closeText(StoredEvent &event)
{
    const std::size_t size = m_texts.size() - event.textBegin - event.nameSize;
    m_textBytes += static_cast<qsizetype>(size - event.textSize);
    event.textSize = size;
    // Whoever takes the events refuses what is beyond a limit. Nothing is to be made of the rest.
    if (m_textBytes > m_limits.textBytes)
        stop();
}

// ---- What expat tells ----------------------------------------------------------------------------

// Expat may go on telling what belongs to a tag for a while when it was stopped.

void XmlParser::noteDeclaration(const char *prefix, const char *uri)
{
    ++m_ownDeclarationCount;
    if (!m_isStopped && m_dataDepth > 0 && m_ownDeclarationCount <= m_limits.attributes)
        m_ownDeclarations.push_back({prefix ? prefix : "", uri ? uri : "", m_depth + 1});
}

void XmlParser::startElement(const char *name, const char **attributes)
{
    if (m_isStopped)
        return;
    ++m_depth;
    qsizetype attributeCount = m_ownDeclarationCount;
    for (const char *const *attribute = attributes; *attribute; attribute += 2)
        ++attributeCount;
    m_ownDeclarationCount = 0;
    if (attributeCount > m_limits.attributes) {
        refuse(416, QStringLiteral("more than %1 attributes").arg(m_limits.attributes));
        return;
    }
    if (m_hasDocumentType && attributeCount > 0 &&
        hasUnknownEntity(QByteArrayView(m_document)
                             .sliced(parserPlace(), XML_GetCurrentByteCount(m_expat.get())))) {
        refuse(400, QStringLiteral("an attribute has an entity that is not known"));
        return;
    }

    const QualifiedName qualified{name};
    StoredEvent &event = store(EventKind::Start);
    event.element = elementByName(
        QByteArrayView(qualified.local.data(), static_cast<qsizetype>(qualified.local.size())));
    if (event.element == Element::Unknown) {
        m_texts += qualified.local;
        event.nameSize = qualified.local.size();
    }
    if (isInsideData()) {
        appendMarkup(qualified, attributes);
        closeText(event);
    }
    if (event.element == Element::Data && m_dataDepth == 0)
        m_dataDepth = m_depth;
    if (m_attributes == Attributes::Told)
        tellAttributes(attributes);
    if (m_depth > m_limits.depth)
        stop();
}

/// Stores the attributes after their Start, which is the last event.
void XmlParser::tellAttributes(const char **attributes)
{
    const std::size_t start = m_events.size() - 1;
    for (const char *const *attribute = attributes; *attribute; attribute += 2) {
        StoredEvent &event = store(EventKind::Attribute);
        const QualifiedName name{attribute[0]};
        m_texts += name.local;
        event.nameSize = name.local.size();
        m_texts += attribute[1];
        closeText(event);
        ++m_events[start].attributes;
    }
}

void XmlParser::endElement(const char *name)
{
    if (m_isStopped)
        return;
    StoredEvent &event = store(EventKind::End);
    if (isInsideData()) {
        QualifiedName(name).appendTo(m_texts);
        event.textSize = m_texts.size() - event.textBegin;
        while (!m_declarations.empty() && m_declarations.back().depth == m_depth)
            m_declarations.pop_back();
    } else if (m_depth == m_dataDepth) {
        m_dataDepth = 0;
    }
    --m_depth;
}

void XmlParser::appendText(const char *text, int size)
{
    if (m_isStopped)
        return;
    // Each line and each reference comes on its own.
    StoredEvent &event = !m_events.empty() && m_events.back().kind == EventKind::Text
                             ? m_events.back()
                             : store(EventKind::Text);
    m_texts.append(text, static_cast<std::size_t>(size));
    closeText(event);
}

void XmlParser::checkXmlDeclaration(const char *version, const char *encoding)
{
    constexpr QByteArrayView utf8Names[] = {"UTF-8", "UTF8", "US-ASCII"};
    const auto isNameOfEncoding = [encoding](QByteArrayView name) {
        return name.compare(encoding, Qt::CaseInsensitive) == 0;
    };
    if (version && QByteArrayView(version) != "1.0")
        refuse(400, QStringLiteral("XML of version %1 is not supported")
                        .arg(QString::fromUtf8(shown(version))));
    else if (encoding && std::ranges::none_of(utf8Names, isNameOfEncoding))
        refuse(415, QStringLiteral("the encoding %1 is not supported, only UTF-8 is")
                        .arg(QString::fromUtf8(shown(encoding))));
}

void XmlParser::checkDocumentType(bool hasDeclarations)
{
    m_hasDocumentType = true;
    if (hasDeclarations)
        refuse(400, QStringLiteral("the document type has declarations of its own"));
}

void XmlParser::refuseEntity(const char *name)
{
    if (!m_isStopped)
        refuse(400,
               QStringLiteral("the entity %1 is not known").arg(QString::fromUtf8(shown(name))));
}

/// Whether the attributes of a tag refer to an entity that is not one of the five of XML. Behind a
/// document type, which could declare it elsewhere, expat leaves it out without a word.
bool XmlParser::hasUnknownEntity(QByteArrayView tag) const
{
    constexpr QByteArrayView known[] = {"#", "amp;", "lt;", "gt;", "quot;", "apos;"};
    for (qsizetype at = tag.indexOf('&'); at >= 0; at = tag.indexOf('&', at + 1)) {
        const QByteArrayView reference = tag.sliced(at + 1);
        if (std::ranges::none_of(
                known, [reference](QByteArrayView name) { return reference.startsWith(name); }))
            return true;
    }
    return false;
}

// ---- Markup inside Data --------------------------------------------------------------------------

void XmlParser::appendMarkup(const QualifiedName &name, const char **attributes)
{
    m_texts += '<';
    name.appendTo(m_texts);
    for (const Declaration &declaration : m_ownDeclarations)
        appendDeclaration(declaration);
    std::ranges::move(m_ownDeclarations, std::back_inserter(m_declarations));
    m_ownDeclarations.clear();
    appendMissingDeclaration(name);
    for (const char *const *attribute = attributes; *attribute; attribute += 2)
        appendMissingDeclaration(QualifiedName(*attribute));
    for (const char *const *attribute = attributes; *attribute; attribute += 2) {
        m_texts += ' ';
        QualifiedName(*attribute).appendTo(m_texts);
        m_texts += "=\"";
        appendAttributeValue(m_texts, attribute[1]);
        m_texts += '"';
    }
}

void XmlParser::appendDeclaration(const Declaration &declaration)
{
    m_texts += " xmlns";
    if (!declaration.prefix.empty())
        (m_texts += ':') += declaration.prefix;
    m_texts += "=\"";
    appendAttributeValue(m_texts, declaration.uri);
    m_texts += '"';
}

/// A prefix may have been declared outside Data, where the markup will no longer stand.
void XmlParser::appendMissingDeclaration(const QualifiedName &name)
{
    if (name.prefix.empty() || name.prefix == "xml" ||
        std::ranges::find(m_declarations, name.prefix, &Declaration::prefix) !=
            m_declarations.end())
        return;
    m_declarations.push_back({std::string(name.prefix), std::string(name.uri), m_depth});
    appendDeclaration(m_declarations.back());
}

} // namespace syncml
