#include "ddf.h"

#include "node_description.h"
#include "node_value.h"

#include <QXmlStreamWriter>

namespace client {

namespace {

constexpr char documentType[] = "<!DOCTYPE MgmtTree PUBLIC \"-//OMA//DTD-DM-DDF 1.2//EN\" "
                                "\"http://www.openmobilealliance.org/tech/DTD/dm_ddf-v1_2.dtd\">";

struct AccessElement {
    AccessType access;
    const char *element;
};

constexpr AccessElement accessElements[] = {
    {AccessAdd, "Add"},   {AccessCopy, "Copy"}, {AccessDelete, "Delete"},
    {AccessExec, "Exec"}, {AccessGet, "Get"},   {AccessReplace, "Replace"},
};

/// In the order of Occurrence.
constexpr const char *occurrenceElements[] = {"One", "ZeroOrOne", "ZeroOrMore", "OneOrMore"};

class DescriptionWriter {
public:
    DescriptionWriter() : m_xml(&m_document)
    {
        m_xml.setAutoFormatting(true);
        m_xml.setAutoFormattingIndent(2);
    }

    QByteArray write()
    {
        m_xml.writeStartDocument();
        m_xml.writeDTD(QString::fromLatin1(documentType));
        m_xml.writeStartElement(QStringLiteral("MgmtTree"));
        text("VerDTD", QString::fromLatin1(descriptionVersion));
        for (const DescribedTree &tree : describedTrees())
            writeNode(tree.root, tree.parent);
        m_xml.writeEndDocument();
        return m_document;
    }

private:
    void writeNode(const NodeDescription &node, const char *path = nullptr)
    {
        m_xml.writeStartElement(QStringLiteral("Node"));
        if (node.name[0] == '\0')
            m_xml.writeEmptyElement(QStringLiteral("NodeName"));
        else
            text("NodeName", QString::fromLatin1(node.name));
        if (path)
            text("Path", QString::fromLatin1(path));
        writeProperties(node);
        for (const NodeDescription &child : node.children)
            writeNode(child);
        m_xml.writeEndElement();
    }

    void writeProperties(const NodeDescription &node)
    {
        m_xml.writeStartElement(QStringLiteral("DFProperties"));
        m_xml.writeStartElement(QStringLiteral("AccessType"));
        for (const AccessElement &row : accessElements)
            if (node.access & row.access)
                m_xml.writeEmptyElement(QString::fromLatin1(row.element));
        m_xml.writeEndElement();
        text("Description", QString::fromLatin1(node.meaning));
        choice("DFFormat", formatName(node.format));
        choice("Occurrence",
               QString::fromLatin1(occurrenceElements[static_cast<std::size_t>(node.occurrence)]));
        choice("Scope", node.isPermanent ? QStringLiteral("Permanent") : QStringLiteral("Dynamic"));
        m_xml.writeStartElement(QStringLiteral("DFType"));
        text(node.format == DmtData::Node ? "DDFName" : "MIME", QString::fromLatin1(node.type));
        m_xml.writeEndElement();
        choice("CaseSense", QStringLiteral("CS"));
        m_xml.writeEndElement();
    }

    /// An element that says by its one child what it means.
    void choice(const char *element, const QString &chosen)
    {
        m_xml.writeStartElement(QString::fromLatin1(element));
        m_xml.writeEmptyElement(chosen);
        m_xml.writeEndElement();
    }

    void text(const char *element, const QString &value)
    {
        m_xml.writeTextElement(QString::fromLatin1(element), value);
    }

    QByteArray m_document;
    QXmlStreamWriter m_xml;
};

} // namespace

QByteArray deviceDescriptionDocument()
{
    return DescriptionWriter().write();
}

} // namespace client
