// A document of XML as a series of events, with the limits that keep a hostile one from costing
// more than its length.
#pragma once

#include "codec_result.h"
#include "element.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QString>
#include <memory>
#include <string>
#include <vector>

struct XML_ParserStruct;

namespace syncml {

/// Expat, a piece of the document at a time: its handlers note what they are told, and whoever
/// reads takes that before the next piece is parsed.
class XmlParser {
public:
    /// Whether attributes are told. DM messages have none of their own.
    enum class Attributes { Skipped, Told };

    /// @param document  in UTF-8, whatever its declaration says
    XmlParser(const QByteArray &document, const Limits &limits,
              Attributes attributes = Attributes::Skipped);
    ~XmlParser();
    XmlParser(const XmlParser &) = delete;
    XmlParser &operator=(const XmlParser &) = delete;

    enum class EventKind { Start, Attribute, Text, End, Finished, Refused };

    struct Event {
        EventKind kind = EventKind::Finished;
        Element element = Element::Unknown; ///< of a Start
        // These last until the next event is asked for.
        /// Local name of a Start whose element is Unknown, and of an Attribute. The attributes of a
        /// tag come after its Start; declarations of namespaces are none.
        QByteArrayView name;
        int attributes = 0; ///< of a Start: so many Attributes follow
        /// A Text's bytes, all up to the next tag, references resolved, and the value of an
        /// Attribute, white space in it being blanks. Inside Data also what a tag
        /// is in markup that stands alone: of a Start all but its closing bracket, with the
        /// namespaces that are declared outside Data, and of an End the name.
        QByteArrayView text;
    };

    /// Finished and Refused come once, as the last.
    Event next();

    /// Why the document is refused, after its last event.
    struct Refusal {
        int status = 0; ///< as of a DecodeError
        QString text;
    };
    const Refusal &refusal() const { return m_refusal; }

    struct Place {
        qint64 line = 1;   ///< from 1
        qint64 column = 0; ///< characters, from 0
    };
    /// Where the last event begins, or what is refused.
    Place place() const;

private:
    struct Handlers;
    struct StoredEvent {
        EventKind kind;
        Element element;
        qsizetype at;          ///< in the document
        std::size_t textBegin; ///< in m_texts: the name, and the text after it
        std::size_t nameSize;
        std::size_t textSize;
        int attributes; ///< of a Start, as far as they are told
    };
    struct QualifiedName;
    struct Declaration {
        std::string prefix; ///< empty: of names without one
        std::string uri;
        int depth; ///< of the element that it stands at
    };

    void parsePiece();
    qsizetype parserPlace() const;
    StoredEvent &store(EventKind kind);
    void closeText(StoredEvent &event);
    void tellAttributes(const char **attributes);
    /// Ends the parsing. What was told before remains.
    void stop();
    void refuse(int status, const QString &text);

    // ---- What expat tells
    void noteDeclaration(const char *prefix, const char *uri);
    void startElement(const char *name, const char **attributes);
    void endElement(const char *name);
    void appendText(const char *text, int size);
    void checkXmlDeclaration(const char *version, const char *encoding);
    void checkDocumentType(bool hasDeclarations);
    void refuseEntity(const char *name);
    bool hasUnknownEntity(QByteArrayView tag) const;

    // ---- Markup inside Data
    bool isInsideData() const { return m_dataDepth > 0 && m_depth > m_dataDepth; }
    void appendMarkup(const QualifiedName &name, const char **attributes);
    void appendDeclaration(const Declaration &declaration);
    void appendMissingDeclaration(const QualifiedName &name);

    const QByteArray m_document;
    const Limits m_limits;
    const Attributes m_attributes;
    std::unique_ptr<XML_ParserStruct, void (*)(XML_ParserStruct *)> m_expat;
    qsizetype m_fed = 0;      ///< bytes that expat was given
    bool m_isStopped = false; ///< nothing more is parsed
    bool m_hasDocumentType = false;
    Refusal m_refusal;
    qsizetype m_refusedAt = 0;

    std::vector<StoredEvent> m_events;
    std::size_t m_next = 0;
    std::string m_texts; ///< of the stored events
    qsizetype m_place = 0;
    qsizetype m_textBytes = 0; ///< of all events so far

    int m_depth = 0;                            ///< elements that are open
    int m_dataDepth = 0;                        ///< of the outermost Data that is open; 0: none
    std::vector<Declaration> m_ownDeclarations; ///< of the tag that comes next
    qsizetype m_ownDeclarationCount = 0;
    std::vector<Declaration> m_declarations; ///< that stand inside the Data that is open
};

} // namespace syncml
