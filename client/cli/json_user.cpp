#include "json_user.h"

#include "json_object.h"

#include <QJsonArray>
#include <algorithm>
#include <iterator>

namespace client::cli {

using support::LineInput;

namespace {

using Response = UserInteraction::Response;

struct ResponseRow {
    const char *word;
    Response response;
};

constexpr ResponseRow responses[] = {
    {"given", Response::Given},         {"refused", Response::Refused},
    {"cancelled", Response::Cancelled}, {"timed-out", Response::TimedOut},
    {"nobody", Response::NobodyThere},
};

Response responseOf(const QJsonObject &answer)
{
    const QString word = answer[u"response"].toString();
    const auto *const row = std::ranges::find_if(
        responses, [&word](const ResponseRow &one) { return word == QLatin1String(one.word); });
    return row == std::end(responses) ? Response::CannotShow : row->response;
}

QJsonObject optionsToJson(const InteractionOptions &options)
{
    using Input = InteractionOptions::Input;
    static constexpr std::pair<Input, const char *> inputs[] = {{Input::Number, "number"},
                                                                {Input::Date, "date"},
                                                                {Input::Time, "time"},
                                                                {Input::Telephone, "telephone"},
                                                                {Input::IpAddress, "address"}};
    QJsonObject object;
    if (options.minimumTime)
        object[u"minimum-time"] = static_cast<qint64>(options.minimumTime->count());
    if (options.maximumTime)
        object[u"maximum-time"] = static_cast<qint64>(options.maximumTime->count());
    if (!options.defaultResponse.isEmpty())
        object[u"default"] = options.defaultResponse;
    if (options.maximumLength)
        object[u"maximum-length"] = *options.maximumLength;
    for (const auto &[input, word] : inputs)
        if (input == options.input)
            object[u"input"] = QString::fromLatin1(word);
    if (options.isSecret)
        object[u"secret"] = true;
    return object;
}

/// None when they are not numbers.
std::optional<std::vector<int>> chosenIn(const QJsonObject &answer)
{
    std::vector<int> chosen;
    for (const QJsonValue &number : answer[u"chosen"].toArray()) {
        constexpr int none = -1;
        if (number.toInt(none) == none)
            return std::nullopt;
        chosen.push_back(number.toInt());
    }
    return chosen;
}

} // namespace

JsonUser::Answer JsonUser::answerTo(QJsonObject question, const QString &text,
                                    const InteractionOptions &options)
{
    std::optional<std::chrono::steady_clock::time_point> deadline;
    if (options.maximumTime)
        deadline = std::chrono::steady_clock::now() + *options.maximumTime;
    question[u"id"] = ++m_questions;
    question[u"text"] = text;
    question[u"options"] = optionsToJson(options);
    m_output.json(QJsonDocument(question), QJsonDocument::Compact);
    for (;;) {
        QByteArray line;
        switch (m_input.readLine(LineInput::Echo::On, deadline, line)) {
        case LineInput::Result::Line:
            break;
        case LineInput::Result::TimedOut:
            return {Response::TimedOut};
        case LineInput::Result::Interrupted:
            return {Response::Cancelled};
        case LineInput::Result::EndOfInput:
            return {Response::NobodyThere};
        }
        const auto answer = support::parseJsonObject(line);
        if (!answer)
            return {Response::CannotShow};
        if ((*answer)[u"id"] == m_questions)
            return {responseOf(*answer), *answer};
    }
}

UserInteraction::Response JsonUser::show(const QString &text, const InteractionOptions &options)
{
    return answerTo({{QStringLiteral("question"), QStringLiteral("display")}}, text, options)
        .response;
}

UserInteraction::Response JsonUser::confirm(const QString &text, const InteractionOptions &options)
{
    return answerTo({{QStringLiteral("question"), QStringLiteral("confirmation")}}, text, options)
        .response;
}

UserInteraction::Response JsonUser::ask(const QString &text, const InteractionOptions &options,
                                        QString &typed)
{
    const Answer answer =
        answerTo({{QStringLiteral("question"), QStringLiteral("text")}}, text, options);
    if (answer.response != Response::Given)
        return answer.response;
    typed = answer.object[u"text"].toString();
    const bool isText = answer.object[u"text"].isString();
    return isText && checkTyped(typed, options) ? Response::Given : Response::CannotShow;
}

UserInteraction::Response JsonUser::choose(const QString &text, const std::vector<QString> &choices,
                                           Choice kind, const InteractionOptions &options,
                                           std::vector<int> &chosen)
{
    const QString word =
        kind == Choice::Single ? QStringLiteral("choice") : QStringLiteral("choices");
    QJsonArray texts;
    for (const QString &choice : choices)
        texts += choice;
    const Answer answer = answerTo(
        {{QStringLiteral("question"), word}, {QStringLiteral("choices"), texts}}, text, options);
    if (answer.response != Response::Given)
        return answer.response;
    const auto numbers = chosenIn(answer.object);
    if (!numbers || !checkChosen(*numbers, choices.size(), kind))
        return Response::CannotShow;
    chosen = *numbers;
    return Response::Given;
}

} // namespace client::cli
