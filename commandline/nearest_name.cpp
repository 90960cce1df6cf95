#include "nearest_name.h"

#include <algorithm>
#include <vector>

namespace commandline {

int editDistance(const QString &one, const QString &other)
{
    // Rows of the usual table: for each beginning of the one, the distances of all of the other's.
    const auto length = static_cast<std::size_t>(other.size());
    std::vector<int> beforeLast(length + 1);
    std::vector<int> last(length + 1);
    std::vector<int> row(length + 1);
    for (std::size_t j = 0; j <= length; ++j)
        row[j] = static_cast<int>(j);
    for (qsizetype i = 0; i < one.size(); ++i) {
        beforeLast.swap(last);
        last.swap(row);
        row[0] = static_cast<int>(i) + 1;
        for (std::size_t j = 0; j < length; ++j) {
            const auto at = static_cast<qsizetype>(j);
            const bool isSame = one[i] == other[at];
            row[j + 1] = std::min({last[j + 1] + 1, row[j] + 1, last[j] + (isSame ? 0 : 1)});
            const bool isSwapped =
                i > 0 && j > 0 && one[i] == other[at - 1] && one[i - 1] == other[at];
            if (isSwapped)
                row[j + 1] = std::min(row[j + 1], beforeLast[j - 1] + 1);
        }
    }
    return row[length];
}

QString nearestName(const QString &typed, const QStringList &names)
{
    constexpr qsizetype charactersForOneMistake = 3;
    const int mostMistakes = std::max(1, static_cast<int>(typed.size() / charactersForOneMistake));
    QString nearest;
    int smallest = mostMistakes + 1;
    for (const QString &name : names) {
        // A name that has nothing in common with what was typed is not meant.
        const int distance = editDistance(typed, name);
        if (distance < smallest && distance < name.size()) {
            smallest = distance;
            nearest = name;
        }
    }
    return nearest;
}

} // namespace commandline
