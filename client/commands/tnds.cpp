#include "tnds.h"

#include "ddf.h"
#include "xml_codec.h"

#include <QXmlStreamWriter>

namespace client {

// ---- What is asked for ---------------------------------------------------------------------------

namespace {

constexpr char listingName[] = "TNDS";
constexpr char valueWord[] = "Value";

const TndsContent everything{{Property::Acl, Property::Format, Property::Title, Property::TStamp,
                              Property::Type, Property::VerNo},
                             true};

/// Puts one word into the content, or takes it out.
bool apply(const QString &word, bool isWanted, TndsContent &content)
{
    if (word == QLatin1String(valueWord)) {
        content.hasValues = isWanted;
        return true;
    }
    const auto property = propertyNamed(word);
    if (!property)
        return false;
    if (isWanted)
        content.properties.insert(*property);
    else
        content.properties.erase(*property);
    return true;
}

} // namespace

support::Expected<TndsContent, QString> parseTndsRequest(const QString &argument)
{
    if (!argument.startsWith(QLatin1String(listingName)))
        return support::Unexpected(QStringLiteral("no listing %1").arg(argument));
    const QString rest = argument.mid(static_cast<qsizetype>(sizeof listingName) - 1);
    if (rest.isEmpty())
        return everything;
    const QChar sign = rest.front();
    if (sign != u'+' && sign != u'-')
        return support::Unexpected(QStringLiteral("no listing %1").arg(argument));
    TndsContent content = sign == u'+' ? TndsContent() : everything;
    for (const QString &word : rest.mid(1).split(sign))
        if (!apply(word, sign == u'+', content))
            return support::Unexpected(
                QStringLiteral("\"%1\" is not a property of a serialised tree").arg(word));
    return content;
}

// ---- The document --------------------------------------------------------------------------------

namespace {

class TndsWriter {
public:
    TndsWriter(const TreeView &tree, const TndsContent &content, qsizetype mostBytes)
        : m_tree(tree), m_content(content), m_mostBytes(mostBytes), m_xml(&m_document)
    {
    }

    std::optional<QByteArray> write(const std::vector<ListedNode> &listing)
    {
        m_xml.writeStartDocument();
        m_xml.writeStartElement(QStringLiteral("MgmtTree"));
        m_xml.writeDefaultNamespace(QString::fromLatin1(descriptionNamespace));
        text("VerDTD", descriptionVersion);
        writeNodes(listing);
        m_xml.writeEndElement();
        return isTooLarge() ? std::nullopt : std::optional(m_document);
    }

private:
    bool isTooLarge() const { return m_document.size() > m_mostBytes; }

    void writeNodes(const std::vector<ListedNode> &listing)
    {
        std::vector<ListedNode> orphans;
        for (const ListedNode &listed : listing) {
            if (isTooLarge())
                break;
            const NodeUri &uri = listed.node.uri();
            while (!m_open.empty() && !m_open.back().contains(uri))
                closeNode();
            const bool isTop = m_open.empty();
            if (isTop || m_open.back() == uri.parent())
                writeNode(listed, isTop);
            else
                orphans.push_back(listed);
        }
        while (!m_open.empty())
            closeNode();
        if (!orphans.empty() && !isTooLarge())
            writeNodes(orphans);
    }

    void closeNode()
    {
        m_xml.writeEndElement();
        m_open.pop_back();
    }

    /// Leaves the node's element open for its children.
    void writeNode(const ListedNode &listed, bool isTop)
    {
        const NodeUri &uri = listed.node.uri();
        m_xml.writeStartElement(QStringLiteral("Node"));
        m_open.push_back(uri);
        text("NodeName", uri.isRoot() ? QByteArray(".") : escapeName(uri.name()));
        if (isTop && !uri.isRoot())
            text("Path", uri.parent().toUri());
        writeProperties(listed);
        if (listed.node.isLeaf() && m_content.hasValues && listed.value && *listed.value)
            text("Value", transferred(**listed.value));
    }

    /// The type is what a node cannot do without, and the format what a base64 value cannot.
    void writeProperties(const ListedNode &listed)
    {
        m_xml.writeStartElement(QStringLiteral("RTProperties"));
        for (const Property property :
             {Property::Acl, Property::Format, Property::Name, Property::Size, Property::Title,
              Property::TStamp, Property::Type, Property::VerNo}) {
            const bool isAskedFor = m_content.properties.contains(property);
            if (property == Property::Format && (isAskedFor || travelsAsBase64(listed)))
                writeFormat(listed);
            else if (property == Property::Type)
                writeType(listed.node);
            else if (isAskedFor)
                writeProperty(listed.node, property);
        }
        m_xml.writeEndElement();
    }

    void writeProperty(const TreeNode &node, Property property)
    {
        // What is empty, or what the node does not have, is left out.
        const Result<QByteArray> value = m_tree.property(node, property);
        if (value && !value->isEmpty())
            text(nameOf(property).toLatin1().constData(), *value);
    }

    /// Whether the document has a value of the node, and has it in base64.
    bool travelsAsBase64(const ListedNode &listed) const
    {
        const bool hasValue = m_content.hasValues && listed.value && *listed.value &&
                              (*listed.value)->GetType() != DmtData::Null;
        return hasValue && (listed.node.valueType() == DmtData::Bin ||
                            !syncml::fitsXml(valueText(**listed.value)));
    }

    /// The format of the value as it is here, or of the node where there is no value.
    void writeFormat(const ListedNode &listed)
    {
        m_xml.writeStartElement(QStringLiteral("Format"));
        m_xml.writeEmptyElement(travelsAsBase64(listed) ? QStringLiteral("b64")
                                                        : formatName(listed.node.valueType()));
        m_xml.writeEndElement();
    }

    void writeType(const TreeNode &node)
    {
        m_xml.writeStartElement(QStringLiteral("Type"));
        text(node.isLeaf() ? "MIME" : "DDFName", m_tree.type(node).toUtf8());
        m_xml.writeEndElement();
    }

    static QByteArray transferred(const DmtData &value)
    {
        const QByteArray bytes = valueText(value);
        return syncml::fitsXml(bytes) ? bytes : bytes.toBase64();
    }

    void text(const char *element, const QByteArray &value)
    {
        m_xml.writeTextElement(QString::fromLatin1(element), QString::fromUtf8(value));
    }

    const TreeView &m_tree;
    const TndsContent &m_content;
    qsizetype m_mostBytes;
    QByteArray m_document;
    QXmlStreamWriter m_xml;
    std::vector<NodeUri> m_open; ///< nodes whose element is open, from the top
};

} // namespace

std::optional<QByteArray> tndsDocument(const TreeView &tree, const std::vector<ListedNode> &listing,
                                       const TndsContent &content, qsizetype mostBytes)
{
    return TndsWriter(tree, content, mostBytes).write(listing);
}

} // namespace client
