// Whoever runs the program, asked on behalf of a DM server in JSON.
#pragma once

#include "line_input.h"
#include "output.h"
#include "user_interaction.h"

#include <QJsonObject>

namespace client::cli {

/// Puts a server's questions on standard output, an object a line, and reads the answers, an object
/// a line as well. A question has
///
///     {"question": "text", "id": 3, "text": "Your PIN?",
///      "options": {"maximum-time": 60, "input": "number", "secret": true}}
///
/// with "question" one of display, confirmation, text, choice and choices, and with "choices", an
/// array of texts, of the last two. Of the options minimum-time and maximum-time (seconds),
/// default, maximum-length (characters), input (number, date, time, telephone, address) and secret
/// only those are there that the server has given. An answer has
///
///     {"id": 3, "response": "given", "text": "4711"}
///
/// with "response" one of given, refused (no to a confirmation), cancelled, timed-out, cannot-show
/// and nobody, and with "text", or "chosen", an array of numbers from 1, where that was asked for.
/// Answers to other questions are skipped; one that cannot be read, or that the server would not
/// take, counts as cannot-show, and the end of the input as nobody.
class JsonUser final : public UserInteraction {
public:
    /// @param output         has to outlive the user
    /// @param input          file to read from
    /// @param interruptFile  can be read when questions are over
    JsonUser(commandline::Output &output, int input, int interruptFile)
        : m_output(output), m_input(input, interruptFile)
    {
    }

    Response show(const QString &text, const InteractionOptions &options) override;
    Response confirm(const QString &text, const InteractionOptions &options) override;
    Response ask(const QString &text, const InteractionOptions &options, QString &typed) override;
    Response choose(const QString &text, const std::vector<QString> &choices, Choice kind,
                    const InteractionOptions &options, std::vector<int> &chosen) override;

private:
    /// What came back, and with what.
    struct Answer {
        Response response;
        QJsonObject object = {};
    };
    Answer answerTo(QJsonObject question, const QString &text, const InteractionOptions &options);

    commandline::Output &m_output;
    support::LineInput m_input;
    int m_questions = 0;
};

} // namespace client::cli
