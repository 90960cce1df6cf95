#include "alerts.h"

#include <algorithm>
#include <iterator>

namespace client {

using syncml::Command;
using syncml::CommandKind;
using syncml::Message;

namespace {

QByteArray textOf(AlertCode code)
{
    return QByteArray::number(static_cast<int>(code));
}

} // namespace

Command makeAlert(AlertCode code)
{
    Command alert;
    alert.kind = CommandKind::Alert;
    alert.data = textOf(code);
    return alert;
}

bool isAlert(const Command &command, AlertCode code)
{
    return command.kind == CommandKind::Alert &&
           command.data.value_or(QByteArray()).trimmed() == textOf(code);
}

bool isUserAlert(const Command &command)
{
    if (command.kind != CommandKind::Alert)
        return false;
    static constexpr AlertCode codes[] = {AlertCode::Display, AlertCode::Confirmation,
                                          AlertCode::TextInput, AlertCode::SingleChoice,
                                          AlertCode::MultipleChoice};
    return std::ranges::any_of(codes,
                               [&command](AlertCode code) { return isAlert(command, code); });
}

bool hasAlert(const Message &message, AlertCode code)
{
    return std::ranges::any_of(message.commands,
                               [code](const Command &command) { return isAlert(command, code); });
}

bool isRequestForMore(const Message &message)
{
    const auto isPartOfRequest = [](const Command &command) {
        return command.kind == CommandKind::Status || isAlert(command, AlertCode::NextMessage);
    };
    return std::ranges::all_of(message.commands, isPartOfRequest) &&
           hasAlert(message, AlertCode::NextMessage);
}

} // namespace client
