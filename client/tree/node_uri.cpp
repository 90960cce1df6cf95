#include "node_uri.h"

#include "utf8.h"

#include <QByteArrayList>
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

int characterCount(QByteArrayView utf8)
{
    // UTF-8 continuation bytes do not start a character.
    return static_cast<int>(std::ranges::count_if(
        utf8, [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0) != 0x80; }));
}

bool isReservedName(QByteArrayView name)
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

Outcome checkNameLength(QByteArrayView name, const UriLimits &limits)
{
    if (name.size() <= limits.maxSegmentLength)
        return {};
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

NodeUri::NodeUri(const std::vector<QByteArray> &names)
{
    for (const QByteArray &name : names) {
        if (!isRoot())
            m_names += separator;
        m_names += name;
    }
}

std::vector<QByteArray> NodeUri::names() const
{
    if (isRoot())
        return {};
    const QByteArrayList names = m_names.split(separator);
    return {names.begin(), names.end()};
}

QByteArray NodeUri::name() const
{
    return isRoot() ? QByteArray(".") : m_names.sliced(m_names.lastIndexOf(separator) + 1);
}

NodeUri NodeUri::child(const QByteArray &name) const
{
    if (isRoot())
        return fromJoinedNames(name);
    QByteArray names;
    names.reserve(m_names.size() + 1 + name.size());
    names += m_names;
    names += separator;
    names += name;
    return fromJoinedNames(std::move(names));
}

bool NodeUri::contains(QByteArrayView joinedNames) const
{
    const qsizetype size = m_names.size();
    const bool endsWithName = size == 0 || joinedNames.size() == size ||
                              (joinedNames.size() > size && joinedNames[size] == separator);
    return endsWithName && joinedNames.startsWith(m_names);
}

QByteArray NodeUri::toUri() const
{
    QByteArray uri(".");
    for (const QByteArray &name : names())
        uri += '/' + escapeName(name);
    return uri;
}

QString NodeUri::toDisplay() const
{
    QString uri(u'.');
    for (const QByteArray &name : names())
        uri += u'/' + displayName(name);
    return uri;
}

// ---- Reading addresses ---------------------------------------------------------------------------

namespace {

std::optional<QByteArray> unescaped(QByteArrayView segment)
{
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

Outcome checkName(QByteArrayView name, const UriLimits &limits)
{
    if (isReservedName(name))
        return notFound(
            QStringLiteral("\"%1\" cannot be the name of a node").arg(QString::fromUtf8(name)));
    if (name.contains('\0'))
        return notFound(QStringLiteral("the name of a node has no NUL"));
    return checkNameLength(name, limits);
}

/// @param path  in which nothing is escaped; becomes the joined names
Outcome joinNames(QByteArray &path, const UriLimits &limits)
{
    for (qsizetype begin = 0, end = 0; begin <= path.size(); begin = end + 1) {
        end = path.indexOf('/', begin);
        if (end < 0)
            end = path.size();
        else
            path[end] = NodeUri::separator;
        const QByteArrayView name = QByteArrayView(path).sliced(begin, end - begin);
        if (Outcome checked = checkName(name, limits); !checked)
            return checked;
    }
    return {};
}

Result<NodeUri> parseEscapedPath(const QByteArray &path, const UriLimits &limits)
{
    std::vector<QByteArray> names;
    for (const QByteArray &segment : path.split('/')) {
        auto name = unescaped(segment);
        if (!name)
            return notFound(
                QStringLiteral("malformed escape in \"%1\"").arg(QString::fromUtf8(segment)));
        if (Outcome checked = checkName(*name, limits); !checked)
            return checked;
        names.push_back(*std::move(name));
    }
    return NodeUri(names);
}

Result<NodeUri> parsePath(QByteArray path, const UriLimits &limits)
{
    if (path == ".")
        return NodeUri();
    if (path.startsWith("./"))
        path.remove(0, 2);
    const qsizetype depth = path.count('/') + 1;
    if (Outcome checked = checkLimit(depth, limits.maxDepth, "more than %1 names in the URI");
        !checked)
        return checked;
    if (path.contains('%'))
        return parseEscapedPath(path, limits);
    if (Outcome joined = joinNames(path, limits); !joined)
        return joined;
    return NodeUri::fromJoinedNames(std::move(path));
}

void parseQuery(QStringView query, Address &address)
{
    const QStringView kind = query.first(query.indexOf(u'=') + 1);
    address.query = kind == u"prop="   ? Address::Query::Property
                    : kind == u"list=" ? Address::Query::List
                                       : Address::Query::Unknown;
    const bool isKnown = address.query != Address::Query::Unknown;
    address.argument = query.sliced(isKnown ? kind.size() : 0).toString();
}

} // namespace

Result<Address> parseAddress(QStringView text, const UriLimits &limits)
{
    const QStringView uri = text.trimmed();
    if (const Outcome length =
            checkLimit(uri.size(), limits.maxTotalLength, "a URI of more than %1 characters");
        !length)
        return length;

    const qsizetype questionMark = uri.indexOf(u'?');
    const QStringView path = questionMark < 0 ? uri : uri.first(questionMark);
    Result<NodeUri> node = parsePath(path.toUtf8(), limits);
    if (!node)
        return node.outcome();
    Address address;
    address.node = *std::move(node);
    if (questionMark >= 0)
        parseQuery(uri.sliced(questionMark + 1), address);
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
