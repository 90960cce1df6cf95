// What a change has done other than it was asked to, in sentences.
#pragma once

#include "mirror.h"

namespace client {

/// A difference between what was asked for and what the tree says.
struct DifferenceNote {
    std::size_t change = 0;          ///< its place among all changes
    QString text;                    ///< goes after "200 OK, but ": "reads 4464"
    std::optional<QByteArray> reads; ///< what the leaf says instead; masked where that is a secret
    bool isAtNextMount = false;
};

/// Which of the changes still count: those that ended well, that no failed Atomic has taken back,
/// and whose address no later change has touched.
std::vector<bool> changesThatCount(const std::vector<TreeChange> &changes);

/// What the tree says at once.
std::vector<DifferenceNote> notesNow(std::size_t place, const TreeChange &change,
                                     const SeenChange &seen);

/// What the next mount will say.
/// @param seen  for each change that was made once more; empty where that could not be done
std::vector<DifferenceNote> notesAtNextMount(const std::vector<TreeChange> &changes,
                                             const std::vector<SeenChange> &seen,
                                             const NextMount &looks);

} // namespace client
