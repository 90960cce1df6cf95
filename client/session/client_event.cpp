#include "client_event.h"

#include "media_type.h"
#include "node_uri.h"
#include "node_value.h"

#include <QStringList>
#include <algorithm>
#include <iterator>

namespace client {

namespace {

using support::Expected;
using support::Unexpected;

// ---- Fields --------------------------------------------------------------------------------------

constexpr const char *marks[] = {"fatal",         "critical", "minor",        "warning",
                                 "informational", "harmless", "indeterminate"};
/// Formats of a text that can be typed.
constexpr const char *formats[] = {"chr", "int", "bool", "b64", "xml"};

Expected<void, QString> checkOneOf(const QString &word, const auto &words)
{
    QStringList texts;
    for (const char *const known : words)
        texts += QString::fromLatin1(known);
    if (!texts.contains(word))
        return Unexpected(QStringLiteral("is not one of %1").arg(texts.join(QStringLiteral(", "))));
    return {};
}

struct Field {
    const char *name;
    /// The error is the rest of a sentence that begins with the value.
    Expected<void, QString> (*set)(ClientEvent &event, const QString &value);
};

constexpr Field fields[] = {
    {"mark",
     [](ClientEvent &event, const QString &value) -> Expected<void, QString> {
         event.mark = value;
         return checkOneOf(value, marks);
     }},
    {"format",
     [](ClientEvent &event, const QString &value) -> Expected<void, QString> {
         event.format = value;
         return checkOneOf(value, formats);
     }},
    {"source",
     [](ClientEvent &event, const QString &value) -> Expected<void, QString> {
         event.source = value;
         const Result<Address> address = parseAddress(value, UriLimits());
         if (!address || address->query != Address::Query::None)
             return Unexpected(QStringLiteral("is not the URI of a node"));
         return {};
     }},
    {"correlator",
     [](ClientEvent &event, const QString &value) -> Expected<void, QString> {
         event.correlator = value;
         if (value.isEmpty())
             return Unexpected(QStringLiteral("is empty"));
         return {};
     }},
};

// ---- Types and texts -----------------------------------------------------------------------------

/// Whether the text goes on with the type of a generic alert.
bool beginsWithType(QStringView text)
{
    return text.startsWith(u"Content-Type:") || text.startsWith(u"Reversed-Domain-Name:");
}

bool fitsFormat(const ClientEvent &event)
{
    const auto type = typeOfFormat(event.format);
    return !type || parseValue(*type, event.data);
}

/// Takes "TYPE=TEXT".
bool takeTypeAndText(const QString &text, ClientEvent &event)
{
    const qsizetype equals = text.indexOf(u'=');
    if (equals < 1)
        return false;
    event.type = text.left(equals);
    event.data = text.mid(equals + 1).toUtf8();
    return true;
}

/// Takes "FIELD=VALUE ".
Expected<void, QString> takeField(QStringView &text, ClientEvent &event)
{
    const qsizetype end = text.indexOf(u' ');
    const QString word = text.first(end < 0 ? text.size() : end).toString();
    const QString name = word.section(u'=', 0, 0);
    const auto *const field = std::ranges::find_if(
        fields, [&name](const Field &row) { return name == QLatin1String(row.name); });
    if (field == std::end(fields) || !word.contains(u'='))
        return Unexpected(
            QStringLiteral("\"%1\" is neither mark=, source=, format= or correlator= nor the "
                           "beginning of Content-Type: or Reversed-Domain-Name:")
                .arg(word));
    const QString value = word.section(u'=', 1);
    if (const auto set = field->set(event, value); !set)
        return Unexpected(QStringLiteral("%1 \"%2\" %3").arg(name, value, set.error()));
    text = text.sliced(word.size()).trimmed();
    return {};
}

} // namespace

Expected<ClientEvent, QString> parseClientEvent(const QString &text)
{
    ClientEvent event;
    if (!takeTypeAndText(text, event))
        return Unexpected(QStringLiteral("is not TYPE=TEXT"));
    return event;
}

Expected<ClientEvent, QString> parseGenericAlert(const QString &text)
{
    ClientEvent event;
    event.code = AlertCode::GenericAlert;
    QStringView rest = QStringView(text).trimmed();
    while (!rest.isEmpty() && !beginsWithType(rest))
        if (const auto taken = takeField(rest, event); !taken)
            return Unexpected(taken.error());
    if (!takeTypeAndText(rest.toString(), event))
        return Unexpected(QStringLiteral("there is no TYPE=TEXT"));
    if (!syncml::isAlertType(event.type))
        return Unexpected(QStringLiteral("the type is written as Content-Type: text/plain or "
                                         "Reversed-Domain-Name: org.example.event"));
    if (!fitsFormat(event))
        return Unexpected(QStringLiteral("the text is not of the format %1").arg(event.format));
    return event;
}

} // namespace client
