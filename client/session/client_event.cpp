#include "client_event.h"

#include "node_uri.h"
#include "node_value.h"

#include <QRegularExpression>
#include <algorithm>
#include <iterator>

namespace client {

namespace {

// ---- Fields --------------------------------------------------------------------------------------

constexpr const char *marks[] = {"fatal",         "critical", "minor",        "warning",
                                 "informational", "harmless", "indeterminate"};
/// Formats of a text that can be typed.
constexpr const char *formats[] = {"chr", "int", "bool", "b64", "xml"};

bool isOneOf(const QString &word, const auto &words)
{
    return std::ranges::any_of(words,
                               [&word](const char *known) { return word == QLatin1String(known); });
}

QString oneOf(const auto &words)
{
    QStringList texts;
    for (const char *const word : words)
        texts += QString::fromLatin1(word);
    return QStringLiteral("is not one of %1").arg(texts.join(QStringLiteral(", ")));
}

struct Field {
    const char *name;
    /// @return what is wrong with the value; null when nothing is
    QString (*set)(ClientEvent &event, const QString &value);
};

constexpr Field fields[] = {
    {"mark",
     [](ClientEvent &event, const QString &value) {
         event.mark = value;
         return isOneOf(value, marks) ? QString() : oneOf(marks);
     }},
    {"format",
     [](ClientEvent &event, const QString &value) {
         event.format = value;
         return isOneOf(value, formats) ? QString() : oneOf(formats);
     }},
    {"source",
     [](ClientEvent &event, const QString &value) {
         event.source = value;
         const Result<Address> address = parseAddress(value, UriLimits());
         return address && address->query == Address::Query::None
                    ? QString()
                    : QStringLiteral("is not the URI of a node");
     }},
    {"correlator",
     [](ClientEvent &event, const QString &value) {
         event.correlator = value;
         return value.isEmpty() ? QStringLiteral("is empty") : QString();
     }},
};

// ---- Types and texts -----------------------------------------------------------------------------

/// Whether the text goes on with the type of a generic alert.
bool beginsWithType(QStringView text)
{
    return text.startsWith(u"Content-Type:") || text.startsWith(u"Reversed-Domain-Name:");
}

bool isAlertType(const QString &type)
{
    static const QRegularExpression form(QRegularExpression::anchoredPattern(
        QStringLiteral("Content-Type: *[!#$&^_.+A-Za-z0-9-]+/[!#$&^_.+A-Za-z0-9-]+( *;[^\\p{C}]*)?"
                       "|Reversed-Domain-Name: *[A-Za-z0-9-]+(\\.[A-Za-z0-9-]+)*")));
    return form.match(type).hasMatch();
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
bool takeField(QStringView &text, ClientEvent &event, QString &error)
{
    const qsizetype end = text.indexOf(u' ');
    const QString word = text.first(end < 0 ? text.size() : end).toString();
    const QString name = word.section(u'=', 0, 0);
    const auto *const field = std::ranges::find_if(
        fields, [&name](const Field &row) { return name == QLatin1String(row.name); });
    if (field == std::end(fields) || !word.contains(u'=')) {
        error = QStringLiteral("\"%1\" is neither mark=, source=, format= or correlator= nor the "
                               "beginning of Content-Type: or Reversed-Domain-Name:")
                    .arg(word);
        return false;
    }
    const QString value = word.section(u'=', 1);
    if (const QString problem = field->set(event, value); !problem.isNull()) {
        error = QStringLiteral("%1 \"%2\" %3").arg(name, value, problem);
        return false;
    }
    text = text.sliced(word.size()).trimmed();
    return true;
}

} // namespace

std::optional<ClientEvent> parseClientEvent(const QString &text, QString &error)
{
    ClientEvent event;
    if (takeTypeAndText(text, event))
        return event;
    error = QStringLiteral("is not TYPE=TEXT");
    return std::nullopt;
}

std::optional<ClientEvent> parseGenericAlert(const QString &text, QString &error)
{
    ClientEvent event;
    event.code = AlertCode::GenericAlert;
    QStringView rest = QStringView(text).trimmed();
    while (!rest.isEmpty() && !beginsWithType(rest))
        if (!takeField(rest, event, error))
            return std::nullopt;
    if (!takeTypeAndText(rest.toString(), event))
        error = QStringLiteral("there is no TYPE=TEXT");
    else if (!isAlertType(event.type))
        error = QStringLiteral("the type is written as Content-Type: text/plain or "
                               "Reversed-Domain-Name: org.example.event");
    else if (!fitsFormat(event))
        error = QStringLiteral("the text is not of the format %1").arg(event.format);
    else
        return event;
    return std::nullopt;
}

} // namespace client
