#include "alerts.h"

#include <algorithm>
#include <iterator>

namespace client {

using syncml::Command;
using syncml::CommandKind;
using syncml::Message;

bool isAlert(const Command &command, const char *code)
{
    return command.kind == CommandKind::Alert &&
           command.data.value_or(QByteArray()).trimmed() == code;
}

bool isUserAlert(const Command &command)
{
    static constexpr const char *codes[] = {"1100", "1101", "1102", "1103", "1104"};
    return std::ranges::any_of(codes,
                               [&command](const char *code) { return isAlert(command, code); });
}

bool hasAlert(const Message &message, const char *code)
{
    return std::ranges::any_of(message.commands,
                               [code](const Command &command) { return isAlert(command, code); });
}

bool isRequestForMore(const Message &message)
{
    const auto isPartOfRequest = [](const Command &command) {
        return command.kind == CommandKind::Status || isAlert(command, alert_code::nextMessage);
    };
    return std::ranges::all_of(message.commands, isPartOfRequest) &&
           hasAlert(message, alert_code::nextMessage);
}

} // namespace client
