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

NodeUri NodeUri::beneath(const NodeUri &relative) const
{
    if (isRoot() || relative.isRoot())
        return isRoot() ? relative : *this;
    return fromJoinedNames(m_names + separator + relative.m_names);
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

Result<NodeUri> parsePath(QByteArrayView path, const UriLimits &limits)
{
    if (path == ".")
        return NodeUri();
    if (path.startsWith("./"))
        path = path.sliced(2);
    const qsizetype depth = std::ranges::count(path, '/') + 1;
    if (Outcome checked = checkLimit(depth, limits.maxDepth, "more than %1 names in the URI");
        !checked)
        return checked;
    std::vector<QByteArray> names;
    for (const QByteArray &segment : path.toByteArray().split('/')) {
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
    return NodeUri(names);
}

/// The node at a path of printable ASCII in which nothing is escaped and no name begins like a
/// reserved one, as nearly every path is; none for any other, and for one beyond a limit.
std::optional<NodeUri> plainNode(QStringView path, const UriLimits &limits)
{
    if (path.startsWith(u"./"))
        path = path.sliced(2);
    const auto mayBeInName = [](char16_t c) { return c >= 0x20 && c < 0x7F && c != u'%'; };
    const auto mayBeginName = [](char16_t c) { return c != u'/' && c != u'.' && c != u'*'; };
    const auto isWithin = [](qsizetype length, int limit) { return limit <= 0 || length <= limit; };
    QByteArray names(path.size(), Qt::Uninitialized);
    char *to = names.data();
    const char *nameBegin = to;
    int depth = 1;
    for (const QChar character : path) {
        const char16_t c = character.unicode();
        const bool isFirst = to == nameBegin;
        if (!mayBeInName(c) || (isFirst && !mayBeginName(c)))
            return std::nullopt;
        *to++ = c == u'/' ? NodeUri::separator : static_cast<char>(c);
        if (c != u'/')
            continue;
        if (!isWithin(to - 1 - nameBegin, limits.maxSegmentLength))
            return std::nullopt;
        nameBegin = to;
        ++depth;
    }
    if (to == nameBegin || !isWithin(to - nameBegin, limits.maxSegmentLength) ||
        !isWithin(depth, limits.maxDepth))
        return std::nullopt;
    return NodeUri::fromJoinedNames(std::move(names));
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
    Address address;
    if (std::optional<NodeUri> plain = plainNode(path, limits)) {
        address.node = *std::move(plain);
    } else {
        Result<NodeUri> node = parsePath(path.toUtf8(), limits);
        if (!node)
            return node.outcome();
        address.node = *std::move(node);
    }
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
