#include "command_id.h"

#include <vector>

namespace client {

QString commandId(std::size_t number)
{
    // Every message has these, so they share their texts; few messages have more.
    constexpr std::size_t mostKept = 1000;
    static std::vector<QString> kept;
    if (number >= mostKept)
        return QString::number(number);
    while (kept.size() <= number)
        kept.push_back(QString::number(kept.size()));
    return kept[number];
}

} // namespace client
