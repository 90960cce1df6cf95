#include "tnds_secrets.h"

#include "secret_leaf.h"
#include "xml_scanner.h"

#include <vector>

namespace client {

namespace {

using Kind = XmlScanner::Kind;

/// A Node that is open.
struct OpenNode {
    ResolvedText name;
    ByteSpans values;
};

/// Follows the elements of a document.
class TndsReader {
public:
    explicit TndsReader(QByteArrayView document) : m_document(document) {}

    std::optional<ByteSpans> read()
    {
        XmlScanner scanner(m_document);
        for (XmlScanner::Piece piece; scanner.next(piece);)
            if (!take(piece))
                return std::nullopt;
        if (!m_open.empty() || !m_hasNode)
            return std::nullopt;
        return m_secrets;
    }

private:
    /// @return false for what such a document does not have
    bool take(const XmlScanner::Piece &piece)
    {
        switch (piece.kind) {
        case Kind::Start:
            start(piece);
            return true;
        case Kind::End:
            return end(piece);
        case Kind::Text:
        case Kind::Literal:
            if (isIn("NodeName"))
                m_nodes.back().name.append(m_document, piece);
            return true;
        case Kind::Other:
            return !isIn("NodeName"); // a name in two halves is nobody's
        case Kind::Broken:
            break;
        }
        return false;
    }

    void start(const XmlScanner::Piece &piece)
    {
        m_open.push_back(piece.name);
        if (piece.name == "Node") {
            m_nodes.emplace_back();
            m_hasNode = true;
        }
        if (isIn("Value") && m_open.size() >= 2 && m_open[m_open.size() - 2] == "Node")
            m_valueBegin = piece.span.end;
    }

    bool end(const XmlScanner::Piece &piece)
    {
        if (m_open.empty() || m_open.back() != piece.name)
            return false;
        m_open.pop_back();
        const bool isOfNode = !m_open.empty() && m_open.back() == "Node";
        if (piece.name == "Value" && isOfNode && piece.span.begin > m_valueBegin)
            m_nodes.back().values.push_back({m_valueBegin, piece.span.begin});
        if (piece.name == "Node")
            closeNode();
        return true;
    }

    void closeNode()
    {
        const OpenNode &node = m_nodes.back();
        // A node without a name is what its command is for, or nobody knows what.
        const QByteArray name = QByteArray::fromPercentEncoding(node.name.bytes().trimmed());
        if (name.isEmpty() || isSecretLeaf(name))
            m_secrets.insert(m_secrets.end(), node.values.begin(), node.values.end());
        m_nodes.pop_back();
    }

    /// Whether the innermost element is that one, of a Node.
    bool isIn(QByteArrayView name) const
    {
        return !m_open.empty() && m_open.back() == name && !m_nodes.empty();
    }

    QByteArrayView m_document;
    std::vector<QByteArrayView> m_open;
    std::vector<OpenNode> m_nodes;
    qsizetype m_valueBegin = 0;
    bool m_hasNode = false;
    ByteSpans m_secrets;
};

} // namespace

std::optional<ByteSpans> secretValues(QByteArrayView document)
{
    return TndsReader(document).read();
}

} // namespace client
