// Whoever sits at a desktop, asked by notifications.
#pragma once

#include "expected.h"
#include "user_interaction.h"

#include <memory>

namespace client {

/// Shows what a server says as notifications (org.freedesktop.Notifications of the session bus),
/// with a button for each answer. A text cannot be typed there, nor several choices made, and a
/// text that is longer than anybody reads in a notification is not shown in part. One question at a
/// time, in any thread.
class DesktopUser final : public UserInteraction {
public:
    static constexpr qsizetype longestText = 1000; ///< characters
    static constexpr std::size_t mostChoices = 6;

    /// @param interruptFile  takes a question back when it can be read
    /// @return never null; the error is a sentence that says what the desktop lacks
    static support::Expected<std::unique_ptr<UserInteraction>, QString> open(int interruptFile);

    Response show(const QString &text, const InteractionOptions &options) override;
    Response confirm(const QString &text, const InteractionOptions &options) override;
    Response ask(const QString &text, const InteractionOptions &options, QString &typed) override;
    Response choose(const QString &text, const std::vector<QString> &choices, Choice kind,
                    const InteractionOptions &options, std::vector<int> &chosen) override;

private:
    DesktopUser(bool takesMarkup, int interruptFile)
        : m_takesMarkup(takesMarkup), m_interruptFile(interruptFile)
    {
    }

    Response put(const QString &text, const std::vector<QString> &buttons,
                 const InteractionOptions &options, int &pressed) const;

    const bool m_takesMarkup;
    const int m_interruptFile;
};

} // namespace client
