#include "yes_or_no.h"

#include "line_input.h"

#include <QByteArray>
#include <optional>
#include <unistd.h>

namespace client::cli {

bool askYesOrNo(const char *question)
{
    using support::LineInput;
    const LineInput input(STDIN_FILENO);
    const QByteArray prompt = QByteArray(question) + " yes or no: ";
    input.flush();
    QByteArray line;
    if (::write(STDOUT_FILENO, prompt.constData(), static_cast<std::size_t>(prompt.size())) <= 0 ||
        input.readLine(LineInput::Echo::On, std::nullopt, line) != LineInput::Result::Line)
        return false;
    const QByteArray word = line.trimmed().toLower();
    return word == "y" || word == "yes";
}

} // namespace client::cli
