#include "tnds_reader.h"

#include "codec.h"
#include "ddf.h"
#include "element_source.h"
#include "node_value.h"
#include "secret_leaf.h"

#include <algorithm>
#include <iterator>

namespace client {

namespace {

/// Moves through the elements of one document. After a fault every step does nothing.
class TndsReader {
public:
    TndsReader(syncml::ElementSource &source, const TndsLimits &limits)
        : m_source(source), m_limits(limits)
    {
    }

    std::vector<TndsNode> read()
    {
        if (m_source.openDocument() && m_source.name() != QLatin1String("MgmtTree"))
            m_source.fail(415, QStringLiteral("%1 is not a serialised tree").arg(m_source.name()));
        while (m_source.nextChild()) {
            if (m_source.element() == syncml::Element::VerDTD)
                readVersion();
            else if (m_source.name() == QLatin1String("Node"))
                readNode(0);
            else
                m_source.skip();
        }
        m_source.closeDocument();
        if (!m_hasVersion)
            m_source.fail(400, QStringLiteral("the tree does not name its VerDTD"));
        if (m_nodes.empty())
            m_source.fail(400, QStringLiteral("the tree has no Node"));
        return std::move(m_nodes);
    }

private:
    using Member = void (TndsReader::*)(TndsNode &);
    struct Row {
        const char *element;
        Member read;
    };

    void readVersion()
    {
        const QString version = m_source.readText();
        if (!m_source.error() && version != QLatin1String(descriptionVersion))
            m_source.fail(415, QStringLiteral("VerDTD %1 is not supported, only %2 is")
                                   .arg(version, QLatin1String(descriptionVersion)));
        m_hasVersion = true;
    }

    /// Nodes are inside each other no deeper than elements may be.
    void readNode(int depth)
    {
        static constexpr Row rows[] = {
            {"NodeName", &TndsReader::readName},
            {"Path", &TndsReader::readPath},
            {"RTProperties", &TndsReader::readProperties},
            {"Value", &TndsReader::readValue},
        };
        if (m_nodes.size() == m_limits.nodes)
            m_source.fail(413, QStringLiteral("more than %1 nodes").arg(m_limits.nodes));
        const std::size_t place = m_nodes.size();
        m_nodes.emplace_back().depth = depth;
        while (m_source.nextChild()) {
            if (m_source.name() == QLatin1String("Node"))
                readNode(depth + 1);
            else
                readChild(rows, m_nodes[place]);
        }
        const bool hasChildren = m_nodes.size() > place + 1;
        if (hasChildren && m_nodes[place].value)
            m_source.fail(400, QStringLiteral("the node %1 has both a value and nodes beneath it")
                                   .arg(m_nodes[place].name));
        if (depth > 0 && !m_nodes[place].path.isEmpty())
            m_source.fail(400, QStringLiteral("the node %1 has a Path, but is inside another node")
                                   .arg(m_nodes[place].name));
    }

    void readProperties(TndsNode &node)
    {
        static constexpr Row rows[] = {
            {"ACL", &TndsReader::readAcl},
            {"Format", &TndsReader::readFormat},
            {"Title", &TndsReader::readTitle},
            {"Type", &TndsReader::readType},
        };
        while (m_source.nextChild())
            readChild(rows, node);
    }

    template <std::size_t size>
    void readChild(const Row (&rows)[size], TndsNode &node)
    {
        const QString name = m_source.name();
        const auto *const row = std::ranges::find_if(
            rows, [&](const Row &entry) { return name == QLatin1String(entry.element); });
        if (row == std::end(rows))
            m_source.skip();
        else
            (this->*row->read)(node);
    }

    void readName(TndsNode &node) { node.name = m_source.readText(); }
    void readPath(TndsNode &node) { node.path = m_source.readText(); }
    void readAcl(TndsNode &node) { node.acl = m_source.readText().toUtf8(); }
    void readTitle(TndsNode &node) { node.title = m_source.readText().toUtf8(); }

    void readValue(TndsNode &node)
    {
        if (node.value)
            m_source.fail(400, QStringLiteral("the node %1 has two values").arg(node.name));
        node.value = m_source.readBytes();
        if (node.value->isNull())
            node.value = QByteArrayLiteral("");
    }

    /// The format is the name of the only element inside.
    void readFormat(TndsNode &node)
    {
        while (m_source.nextChild()) {
            if (!node.format.isEmpty())
                m_source.fail(400, QStringLiteral("the node %1 has two formats").arg(node.name));
            node.format = m_source.name();
            m_source.skip();
        }
    }

    /// A leaf has a MIME in it, an interior node a DDFName, which may be empty.
    void readType(TndsNode &node)
    {
        while (m_source.nextChild()) {
            const QString name = m_source.name();
            if (name == QLatin1String("MIME") || name == QLatin1String("DDFName"))
                node.type = m_source.readText();
            else
                m_source.skip();
        }
    }

    syncml::ElementSource &m_source;
    const TndsLimits &m_limits;
    std::vector<TndsNode> m_nodes;
    bool m_hasVersion = false;
};

Outcome outcomeOf(const syncml::DecodeError &error)
{
    // The limits of a message are those of a request; a tree is an object.
    const auto status = static_cast<DmStatus>(error.status);
    return {status == DmStatus::RequestTooLarge ? DmStatus::TooLarge : status,
            QStringLiteral("the serialised tree: ") + error.toString()};
}

Result<std::vector<TndsNode>> readDocument(const QByteArray &document, const TndsLimits &limits)
{
    syncml::Limits ofElements;
    ofElements.messageBytes = limits.bytes;
    ofElements.textBytes = limits.bytes;
    ofElements.depth = limits.depth;
    const auto source = syncml::makeTreeSource(document, ofElements);
    if (!source)
        return Outcome{DmStatus::UnsupportedFormat,
                       QStringLiteral("the serialised tree is neither XML nor WBXML")};
    std::vector<TndsNode> nodes = TndsReader(*source, limits).read();
    if (source->error())
        return outcomeOf(*source->error());
    return nodes;
}

/// Whether the bytes begin as base64 does, and neither XML nor WBXML.
bool isBase64(const QByteArray &bytes)
{
    const QByteArray text = bytes.trimmed();
    return !text.isEmpty() && (QChar::isLetterOrNumber(static_cast<unsigned char>(text.front())) ||
                               text.front() == '+' || text.front() == '/');
}

} // namespace

Result<std::vector<TndsNode>> readTnds(const QByteArray &document, const TndsLimits &limits)
{
    if (isBase64(document)) {
        const Result<DmtData> decoded = parseValue(DmtData::Bin, document);
        return decoded ? readDocument(valueBytes(*decoded), limits) : decoded.outcome();
    }
    return readDocument(document, limits);
}

std::vector<QByteArray> secretsOf(const std::vector<TndsNode> &nodes)
{
    std::vector<QByteArray> secrets;
    for (const TndsNode &node : nodes) {
        const QByteArray name = QByteArray::fromPercentEncoding(node.name.toUtf8());
        if (!node.value || !(name.isEmpty() || isSecretLeaf(name)))
            continue;
        secrets.push_back(*node.value);
        if (typeOfFormat(node.format) == DmtData::Bin)
            secrets.push_back(QByteArray::fromBase64(*node.value));
    }
    return secrets;
}

} // namespace client
