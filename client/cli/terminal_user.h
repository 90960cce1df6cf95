// The person at the terminal, asked on behalf of a DM server.
#pragma once

#include "expected.h"
#include "line_input.h"
#include "user_interaction.h"

#include <functional>

namespace client::cli {

/// Shows a server's texts and questions on a terminal. Control characters in them are shown, not
/// obeyed, and each text says that it comes from the server. Ctrl-D cancels.
class TerminalUser final : public UserInteraction {
public:
    /// @param input          terminal to read from
    /// @param output         terminal to write to
    /// @param interruptFile  can be read when questions are over
    TerminalUser(int input, int output, int interruptFile)
        : m_input(input, interruptFile), m_output(output)
    {
    }

    Response show(const QString &text, const InteractionOptions &options) override;
    Response confirm(const QString &text, const InteractionOptions &options) override;
    Response ask(const QString &text, const InteractionOptions &options, QString &typed) override;
    Response choose(const QString &text, const std::vector<QString> &choices, Choice kind,
                    const InteractionOptions &options, std::vector<int> &chosen) override;

private:
    /// What a typed text means, or what is wrong with it.
    using Answer = support::Expected<Response, QString>;
    /// Asks until an answer is accepted, cancelled, or time is up.
    Response askUntilAccepted(const QString &prompt, const InteractionOptions &options,
                              const std::function<Answer(const QString &typed)> &accept);
    void print(const QString &text);
    void printFromServer(const QString &text);

    support::LineInput m_input;
    int m_output;
};

} // namespace client::cli
