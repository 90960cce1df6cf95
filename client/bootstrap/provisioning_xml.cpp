// A provisioning document in XML.

#include "document_builder.h"
#include "xml_parser.h"
#include "xml_text.h"

namespace client::bootstrap {

namespace {

using Kind = syncml::XmlParser::EventKind;

class XmlReader {
public:
    XmlReader(const QByteArray &bytes, const ProvisioningLimits &limits)
        : m_limits(limits),
          m_parser(bytes, parserLimits(bytes, limits), syncml::XmlParser::Attributes::Told),
          m_builder(limits)
    {
    }

    support::Expected<ProvisioningDocument, QString> read()
    {
        for (auto event = m_parser.next(); event.kind != Kind::Finished; event = m_parser.next()) {
            const QString fault = take(event);
            if (fault.isEmpty())
                continue;
            const auto place = m_parser.place();
            return support::Unexpected(QStringLiteral("line %1, column %2: %3")
                                           .arg(place.line)
                                           .arg(place.column + 1)
                                           .arg(fault));
        }
        if (!m_builder.isComplete())
            return support::Unexpected(QStringLiteral("the document is too large"));
        return m_builder.take();
    }

private:
    /// Limits at which the builder has refused the document before.
    static syncml::Limits parserLimits(const QByteArray &bytes, const ProvisioningLimits &limits)
    {
        syncml::Limits parser;
        parser.depth = limits.depth + 3;
        parser.textBytes = bytes.size();
        return parser;
    }

    /// @return what is wrong with it; empty when nothing is
    QString take(const syncml::XmlParser::Event &event)
    {
        switch (event.kind) {
        case Kind::Start:
            return takeTag(event);
        case Kind::Text:
            return syncml::withoutOuterBlanks(event.text).isEmpty()
                       ? QString()
                       : QStringLiteral("text between the elements");
        case Kind::End:
            return m_builder.close();
        case Kind::Refused:
            return m_parser.refusal().text;
        case Kind::Attribute:
        case Kind::Finished:
            break;
        }
        return {};
    }

    QString takeTag(const syncml::XmlParser::Event &start)
    {
        const auto element = documentElementNamed(start.name);
        if (!element)
            return QStringLiteral("an element that a provisioning document does not have");
        TagAttributes attributes;
        for (int i = 0; i < start.attributes; ++i) {
            const syncml::XmlParser::Event attribute = m_parser.next();
            if (QString fault = attributes.set(attribute.name, attribute.text, m_limits);
                !fault.isEmpty())
                return fault;
        }
        return m_builder.open(*element, std::move(attributes));
    }

    const ProvisioningLimits m_limits;
    syncml::XmlParser m_parser;
    DocumentBuilder m_builder;
};

} // namespace

support::Expected<ProvisioningDocument, QString>
readProvisioningXml(const QByteArray &bytes, const ProvisioningLimits &limits)
{
    if (!bytes.isValidUtf8())
        return support::Unexpected(QStringLiteral("the document is not in UTF-8"));
    return XmlReader(bytes, limits).read();
}

} // namespace client::bootstrap
