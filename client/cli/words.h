// The words of one line of the shell.
#pragma once

#include "completion_words.h"

#include <QByteArray>
#include <QStringList>
#include <optional>

namespace client::cli {

using commandline::UnfinishedLine;

/// Splits a line at blanks. Single quotes keep everything as it is, double quotes keep blanks and
/// single quotes, and a backslash takes the next character as it is (inside double quotes only a
/// double quote and a backslash).
/// @return none when a quote is not closed, or the line ends in a backslash
std::optional<QStringList> splitWords(const QByteArray &line);

/// The same for the part of a line in front of the cursor; none inside of quotes.
std::optional<UnfinishedLine> splitUnfinished(const QByteArray &line);

/// The text as it has to be typed to be one word again.
QString quoteWord(const QString &word);

} // namespace client::cli
