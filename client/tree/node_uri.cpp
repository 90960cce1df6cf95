#include "node_uri.h"

#include "utf8.h"

#include <algorithm>
#include <cctype>

namespace client {

// ---- Names ---------------------------------------------------------------------------------------

namespace {

// Besides letters, digits and "-._~", which are never escaped, these may stand in a path segment.
constexpr char segmentCharacters[] = "!*'():@&=+$,";

bool isMisreadInDisplay(const QString &text, qsizetype position)
{
    const QChar character = text[position];
    if (character == u'/' || character == u'?' || character == u'%')
        return true;
    if (character == u' ')
        return position == 0 || position == text.size() - 1;
    return character.isSpace() || character.category() == QChar::Other_Control ||
           character.category() == QChar::Other_Format;
}

int characterCount(const QByteArray &utf8)
{
    // UTF-8 continuation bytes do not start a character.
    return static_cast<int>(std::ranges::count_if(
        utf8, [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0) != 0x80; }));
}

bool isReservedName(const QByteArray &name)
{
    return name.isEmpty() || name == "." || name == ".." || name == "*";
}

/// 414 for what goes beyond its limit.
/// @param rule  with %1 for the limit
Outcome checkLimit(qsizetype length, int limit, const char *rule)
{
    if (limit <= 0 || length <= limit)
        return {};
    return {DmStatus::UriTooLong, QString::fromLatin1(rule).arg(limit)};
}

Outcome checkNameLength(const QByteArray &name, const UriLimits &limits)
{
    return checkLimit(characterCount(name), limits.maxSegmentLength,
                      "a name of more than %1 characters");
}

} // namespace

QByteArray escapeName(const QByteArray &name)
{
    return name.toPercentEncoding(QByteArray(segmentCharacters));
}

QString displayName(const QByteArray &name)
{
    const auto text = support::fromUtf8(name);
    if (!text)
        return QString::fromLatin1(escapeName(name));
    QString shown;
    for (qsizetype i = 0; i < text->size(); ++i) {
        const QChar character = (*text)[i];
        if (isMisreadInDisplay(*text, i))
            shown += QString::fromLatin1(QString(character).toUtf8().toPercentEncoding());
        else
            shown += character;
    }
    return shown;
}

// ---- Node URIs -----------------------------------------------------------------------------------

QByteArray NodeUri::name() const
{
    return isRoot() ? QByteArray(".") : m_names.back();
}

NodeUri NodeUri::ancestor(std::size_t depth) const
{
    return NodeUri({m_names.begin(), m_names.begin() + static_cast<std::ptrdiff_t>(depth)});
}

NodeUri NodeUri::child(const QByteArray &name) const
{
    std::vector<QByteArray> names = m_names;
    names.push_back(name);
    return NodeUri(std::move(names));
}

bool NodeUri::contains(const NodeUri &other) const
{
    return m_names.size() <= other.m_names.size() &&
           std::equal(m_names.begin(), m_names.end(), other.m_names.begin());
}

std::strong_ordering NodeUri::operator<=>(const NodeUri &other) const
{
    return std::lexicographical_compare_three_way(
        m_names.begin(), m_names.end(), other.m_names.begin(), other.m_names.end(),
        [](const QByteArray &left, const QByteArray &right) { return left.compare(right) <=> 0; });
}

QByteArray NodeUri::toUri() const
{
    QByteArray uri(".");
    for (const QByteArray &name : m_names)
        uri += '/' + escapeName(name);
    return uri;
}

QString NodeUri::toDisplay() const
{
    QString uri(u'.');
    for (const QByteArray &name : m_names)
        uri += u'/' + displayName(name);
    return uri;
}

// ---- Reading addresses ---------------------------------------------------------------------------

namespace {

std::optional<QByteArray> unescaped(QByteArrayView segment)
{
    if (!segment.contains('%'))
        return segment.toByteArray();
    for (qsizetype i = 0; i < segment.size(); ++i) {
        if (segment[i] != '%')
            continue;
        const auto isHex = [&segment](qsizetype at) {
            return at < segment.size() && std::isxdigit(static_cast<unsigned char>(segment[at]));
        };
        if (!isHex(i + 1) || !isHex(i + 2))
            return std::nullopt;
    }
    return QByteArray::fromPercentEncoding(segment.toByteArray());
}

Outcome notFound(const QString &reason)
{
    return {DmStatus::NotFound, reason};
}

Result<NodeUri> parsePath(QByteArrayView path, const UriLimits &limits)
{
    if (path == ".")
        return NodeUri();
    if (path.startsWith("./"))
        path = path.sliced(2);
    const auto depth = std::ranges::count(path, '/') + 1;
    if (const Outcome checked = checkLimit(depth, limits.maxDepth, "more than %1 names in the URI");
        !checked)
        return checked;

    std::vector<QByteArray> names;
    names.reserve(static_cast<std::size_t>(depth));
    for (qsizetype begin = 0, end = 0; begin <= path.size(); begin = end + 1) {
        end = path.indexOf('/', begin);
        if (end < 0)
            end = path.size();
        const QByteArrayView segment = path.sliced(begin, end - begin);
        auto name = unescaped(segment);
        if (!name)
            return notFound(
                QStringLiteral("malformed escape in \"%1\"").arg(QString::fromUtf8(segment)));
        if (isReservedName(*name))
            return notFound(QStringLiteral("\"%1\" cannot be the name of a node")
                                .arg(QString::fromUtf8(*name)));
        if (name->contains('\0'))
            return notFound(QStringLiteral("the name of a node has no NUL"));
        if (const Outcome length = checkNameLength(*name, limits); !length)
            return length;
        names.push_back(*std::move(name));
    }
    return NodeUri(std::move(names));
}

void parseQuery(const QString &query, Address &address)
{
    const QString kind = query.left(query.indexOf(u'=') + 1);
    address.query = kind == u"prop="   ? Address::Query::Property
                    : kind == u"list=" ? Address::Query::List
                                       : Address::Query::Unknown;
    address.argument = address.query == Address::Query::Unknown ? query : query.mid(kind.size());
}

} // namespace

Result<Address> parseAddress(const QString &text, const UriLimits &limits)
{
    const QString uri = text.trimmed();
    if (const Outcome length =
            checkLimit(uri.size(), limits.maxTotalLength, "a URI of more than %1 characters");
        !length)
        return length;

    const qsizetype questionMark = uri.indexOf(u'?');
    Result<NodeUri> node = parsePath(uri.left(questionMark).toUtf8(), limits);
    if (!node)
        return node.outcome();
    Address address;
    address.node = *std::move(node);
    if (questionMark >= 0)
        parseQuery(uri.mid(questionMark + 1), address);
    return address;
}

Outcome checkNewName(const QByteArray &name, const UriLimits &limits)
{
    if (isReservedName(name) || name.contains('/') || name.contains('\0'))
        return {DmStatus::NotAllowed,
                QStringLiteral("\"%1\" cannot be the name of a node").arg(QString::fromUtf8(name))};
    return checkNameLength(name, limits);
}

NodeUri nodeAt(const char *uri)
{
    return parseAddress(QString::fromLatin1(uri))->node;
}

Outcome notAllowed(const NodeUri &uri, const char *rule)
{
    return {DmStatus::NotAllowed,
            QStringLiteral("%1 %2").arg(uri.toDisplay(), QString::fromLatin1(rule))};
}

} // namespace client
