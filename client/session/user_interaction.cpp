#include "user_interaction.h"

#include "alerts.h"
#include "utf8.h"

#include <QRegularExpression>
#include <algorithm>
#include <chrono>
#include <iterator>
#include <set>

namespace client {

using namespace syncml;
using support::Expected;
using support::Unexpected;

// ---- Options -------------------------------------------------------------------------------------

namespace {

void setTime(std::optional<std::chrono::seconds> &field, const QString &value)
{
    bool isNumber = false;
    const uint seconds = value.toUInt(&isNumber);
    if (isNumber)
        field = std::chrono::seconds(seconds);
}

void setInput(InteractionOptions &options, const QString &value)
{
    using Input = InteractionOptions::Input;
    struct Row {
        char16_t letter;
        Input input;
    };
    static constexpr Row rows[] = {{u'A', Input::Text},      {u'N', Input::Number},
                                   {u'D', Input::Date},      {u'T', Input::Time},
                                   {u'P', Input::Telephone}, {u'I', Input::IpAddress}};
    for (const Row &row : rows)
        if (value == QChar(row.letter))
            options.input = row.input;
}

struct OptionRow {
    const char *name;
    void (*set)(InteractionOptions &options, const QString &value);
};

constexpr OptionRow optionRows[] = {
    {"MINDT", [](InteractionOptions &o, const QString &value) { setTime(o.minimumTime, value); }},
    {"MAXDT", [](InteractionOptions &o, const QString &value) { setTime(o.maximumTime, value); }},
    {"DR", [](InteractionOptions &o, const QString &value) { o.defaultResponse = value; }},
    {"MAXLEN",
     [](InteractionOptions &o, const QString &value) {
         bool isNumber = false;
         const int length = value.toInt(&isNumber);
         if (isNumber && length > 0)
             o.maximumLength = length;
     }},
    {"IT", setInput},
    {"ET", [](InteractionOptions &o, const QString &value) { o.isSecret = value == u"P"; }},
};

} // namespace

bool asksForSecret(const Command &alert)
{
    return isAlert(alert, AlertCode::TextInput) && !alert.items.empty() &&
           parseInteractionOptions(alert.items[0].data.value_or(QByteArray())).isSecret;
}

InteractionOptions parseInteractionOptions(const QByteArray &text)
{
    InteractionOptions options;
    for (const QByteArray &entry : text.trimmed().split('&')) {
        const qsizetype equals = entry.indexOf('=');
        if (equals < 0)
            continue;
        const QByteArray name = entry.left(equals).trimmed();
        QByteArray value = entry.mid(equals + 1);
        value.replace('+', ' ');
        for (const OptionRow &row : optionRows)
            if (name == row.name)
                row.set(options, QString::fromUtf8(QByteArray::fromPercentEncoding(value)));
    }
    return options;
}

// ---- Answers -------------------------------------------------------------------------------------

namespace {

struct InputForm {
    InteractionOptions::Input input;
    const char *pattern;
    const char *problem;
};

constexpr InputForm inputForms[] = {
    {InteractionOptions::Input::Number, "[0-9]*", "Digits only, please."},
    {InteractionOptions::Input::Date, "[0-9]{8}", "A date of eight digits, please: DDMMYYYY."},
    {InteractionOptions::Input::Time, "[0-9]{6}", "A time of six digits, please: hhmmss."},
    {InteractionOptions::Input::Telephone, "\\+?[0-9*#pw]*", "A telephone number, please."},
    {InteractionOptions::Input::IpAddress, "[0-9]{1,3}(\\.[0-9]{1,3}){3}",
     "An address of four numbers, please: 192.0.2.1."},
};

} // namespace

Expected<void, QString> checkTyped(const QString &typed, const InteractionOptions &options)
{
    if (options.maximumLength && typed.size() > *options.maximumLength)
        return Unexpected(
            QStringLiteral("At most %1 characters, please.").arg(*options.maximumLength));
    for (const InputForm &form : inputForms) {
        const QRegularExpression expression(
            QRegularExpression::anchoredPattern(QString::fromLatin1(form.pattern)));
        if (form.input == options.input && !expression.match(typed).hasMatch())
            return Unexpected(QString::fromLatin1(form.problem));
    }
    return {};
}

Expected<void, QString> checkChosen(const std::vector<int> &chosen, std::size_t count,
                                    UserInteraction::Choice kind)
{
    std::set<int> numbers;
    for (const int number : chosen)
        if (number < 1 || static_cast<std::size_t>(number) > count ||
            !numbers.insert(number).second)
            return Unexpected(QStringLiteral("Numbers from 1 to %1, please.").arg(count));
    if (kind == UserInteraction::Choice::Single && chosen.size() != 1)
        return Unexpected(QStringLiteral("One number, please."));
    return {};
}

// ---- Alerts --------------------------------------------------------------------------------------

namespace {

using Response = UserInteraction::Response;

/// The texts of an alert, options apart.
struct Question {
    InteractionOptions options;
    QString text;
    std::vector<QString> choices;
};

/// None when a text is not UTF-8.
std::optional<Question> readQuestion(const Command &alert)
{
    Question question;
    question.options = parseInteractionOptions(alert.items[0].data.value_or(QByteArray()));
    for (std::size_t i = 1; i < alert.items.size(); ++i) {
        const auto text = support::fromUtf8(alert.items[i].data.value_or(QByteArray()));
        if (!text)
            return std::nullopt;
        if (i == 1)
            question.text = *text;
        else
            question.choices.push_back(*text);
    }
    return question;
}

Item itemWith(const QByteArray &data)
{
    Item item;
    item.data = data;
    return item;
}

Response show(UserInteraction &user, const Question &question, std::vector<Item> &)
{
    return user.show(question.text, question.options);
}

Response confirm(UserInteraction &user, const Question &question, std::vector<Item> &)
{
    return user.confirm(question.text, question.options);
}

Response ask(UserInteraction &user, const Question &question, std::vector<Item> &items)
{
    QString typed;
    const Response response = user.ask(question.text, question.options, typed);
    if (response == Response::Given)
        items.push_back(itemWith(typed.toUtf8()));
    return response;
}

template <UserInteraction::Choice kind>
Response choose(UserInteraction &user, const Question &question, std::vector<Item> &items)
{
    std::vector<int> chosen;
    const Response response =
        user.choose(question.text, question.choices, kind, question.options, chosen);
    if (response == Response::Given)
        for (const int number : chosen)
            items.push_back(itemWith(QByteArray::number(number)));
    return response;
}

struct UserAlertRow {
    AlertCode code;
    std::size_t fewestItems; ///< options, text, and for a choice at least one thing to choose
    Response (*run)(UserInteraction &, const Question &, std::vector<Item> &);
};

constexpr UserAlertRow userAlerts[] = {
    {AlertCode::Display, 2, show},
    {AlertCode::Confirmation, 2, confirm},
    {AlertCode::TextInput, 2, ask},
    {AlertCode::SingleChoice, 3, choose<UserInteraction::Choice::Single>},
    {AlertCode::MultipleChoice, 3, choose<UserInteraction::Choice::Multiple>},
};

const UserAlertRow *rowOf(const Command &alert)
{
    const auto *const row = std::ranges::find_if(
        userAlerts, [&alert](const UserAlertRow &entry) { return isAlert(alert, entry.code); });
    return row == std::end(userAlerts) ? nullptr : row;
}

DmStatus statusOf(Response response)
{
    switch (response) {
    case Response::Given:
        return DmStatus::Ok;
    case Response::Refused:
        return DmStatus::NotModified;
    case Response::Cancelled:
        return DmStatus::Cancelled;
    case Response::TimedOut:
        return DmStatus::TimedOut;
    case Response::NobodyThere:
        return DmStatus::FeatureNotSupported;
    case Response::CannotShow:
        break;
    }
    return DmStatus::RequestTooLarge;
}

} // namespace

DmStatus answerUserAlert(const Command &alert, UserInteraction *user,
                         std::optional<std::chrono::seconds> mostTime, std::vector<Item> &items)
{
    const UserAlertRow *const row = rowOf(alert);
    if (!row || !user)
        return DmStatus::FeatureNotSupported;
    if (alert.items.size() < row->fewestItems)
        return DmStatus::IncompleteCommand;
    auto question = readQuestion(alert);
    if (!question)
        return DmStatus::RequestTooLarge;
    std::optional<std::chrono::seconds> &most = question->options.maximumTime;
    if (mostTime)
        most = std::min(most.value_or(*mostTime), *mostTime);
    return statusOf(row->run(*user, *question, items));
}

} // namespace client
