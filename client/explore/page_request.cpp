#include "page_request.h"

#include <QList>
#include <algorithm>
#include <map>

namespace client {

using support::Expected;
using support::Unexpected;

namespace {

Unexpected<PageRefusal> refuse(int status, const char *reason)
{
    return Unexpected(PageRefusal{status, reason});
}

/// Header fields by their names in lower case.
using Fields = std::map<QByteArray, QByteArray>;

bool isTokenCharacter(char character)
{
    return QByteArrayView("!#$%&'*+-.^_`|~").contains(character) ||
           (character >= '0' && character <= '9') || (character >= 'A' && character <= 'Z') ||
           (character >= 'a' && character <= 'z');
}

Expected<Fields, PageRefusal> readFields(const QList<QByteArray> &lines)
{
    Fields fields;
    for (const QByteArray &line : lines) {
        const qsizetype colon = line.indexOf(':');
        const QByteArray name = line.left(colon).toLower();
        if (colon < 1 || !std::ranges::all_of(name, isTokenCharacter))
            return refuse(400, "a line of the head is not a header field");
        if (!fields.emplace(name, line.mid(colon + 1).trimmed()).second)
            return refuse(400, "a header field comes twice");
    }
    return fields;
}

QByteArray valueOf(const Fields &fields, const char *name)
{
    const auto field = fields.find(name);
    return field == fields.end() ? QByteArray() : field->second;
}

/// As long for a token that is nearly right as for any other.
bool isSame(const QByteArray &given, const QByteArray &secret)
{
    if (given.size() != secret.size())
        return false;
    unsigned int difference = 0;
    for (qsizetype index = 0; index < given.size(); ++index)
        difference |= static_cast<unsigned char>(given[index] ^ secret[index]);
    return difference == 0;
}

/// Whether a page from elsewhere has asked, as far as the browser says. Only the first request, for
/// the page itself, comes from nowhere.
bool isFromElsewhere(const Fields &fields, const QByteArray &authority)
{
    const QByteArray origin = valueOf(fields, "origin");
    const QByteArray site = valueOf(fields, "sec-fetch-site");
    const bool isForeignOrigin = !origin.isEmpty() && origin != "http://" + authority;
    const bool isForeignSite = !site.isEmpty() && site != "same-origin" && site != "none";
    return isForeignOrigin || isForeignSite;
}

Expected<qsizetype, PageRefusal> bodySizeOf(const Fields &fields, const QByteArray &method)
{
    if (fields.contains("transfer-encoding"))
        return refuse(501, "a body has to come with its Content-Length");
    const auto field = fields.find("content-length");
    if (method == "GET" && field != fields.end() && field->second != "0")
        return refuse(400, "a GET has no body");
    if (method == "GET")
        return 0;
    if (field == fields.end())
        return refuse(411, "a body has to come with its Content-Length");
    const bool isNumber = !field->second.isEmpty() && field->second.size() <= 9 &&
                          std::ranges::all_of(field->second, [](char character) {
                              return character >= '0' && character <= '9';
                          });
    if (!isNumber)
        return refuse(400, "the Content-Length is not a number of bytes");
    const qsizetype size = field->second.toLongLong();
    if (size > PageRequestReader::bodyBytes)
        return refuse(413, "the body is too large");
    // A page from elsewhere may send a form without asking; for this type its browser asks first.
    if (valueOf(fields, "content-type") != "application/json")
        return refuse(415, "the body has to be application/json");
    return size;
}

} // namespace

std::optional<Expected<PageRequest, PageRefusal>> PageRequestReader::take(const QByteArray &bytes)
{
    m_bytes += bytes;
    if (m_bodySize < 0) {
        const qsizetype end = m_bytes.indexOf("\r\n\r\n");
        if (end > headBytes || (end < 0 && m_bytes.size() > headBytes))
            return refuse(431, "the head is too large");
        if (end < 0)
            return std::nullopt;
        if (const auto read = readHead(m_bytes.left(end)); !read)
            return Unexpected(read.error());
        m_bytes.remove(0, end + 4);
    }
    if (m_bytes.size() > m_bodySize)
        return refuse(400, "there is more than the body that was announced");
    if (m_bytes.size() < m_bodySize)
        return std::nullopt;
    m_request.body = m_bytes;
    return m_request;
}

Expected<void, PageRefusal> PageRequestReader::readHead(const QByteArray &head)
{
    QList<QByteArray> lines = head.split('\n');
    for (QByteArray &line : lines)
        if (line.endsWith('\r'))
            line.chop(1);
    if (std::ranges::any_of(lines, [](const QByteArray &line) {
            return std::ranges::any_of(line, [](char c) { return uchar(c) < ' ' && c != '\t'; });
        }))
        return refuse(400, "the head has control characters");
    const QList<QByteArray> words = lines.takeFirst().split(' ');
    if (words.size() != 3 || words[2] != "HTTP/1.1")
        return refuse(400, "the first line is not a request of HTTP/1.1");
    const auto fields = readFields(lines);
    if (!fields)
        return Unexpected(fields.error());
    // A name that somebody has bound to this machine's own address is not its address.
    if (valueOf(*fields, "host") != m_door.authority)
        return refuse(403, "the Host is not the address of this page");
    if (isFromElsewhere(*fields, m_door.authority))
        return refuse(403, "the request comes from another page");
    const QByteArray &target = words[1];
    const qsizetype end = target.indexOf('/', 1);
    if (!target.startsWith('/') || end < 0 || !isSame(target.mid(1, end - 1), m_door.token))
        return refuse(404, "the address lacks the token that dmclient has printed");
    m_request.method = words[0];
    m_request.path = target.mid(end + 1);
    if (m_request.method != "GET" && m_request.method != "POST")
        return refuse(405, "only GET and POST are answered");
    const auto size = bodySizeOf(*fields, m_request.method);
    if (!size)
        return Unexpected(size.error());
    m_bodySize = *size;
    return {};
}

} // namespace client
