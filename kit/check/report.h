// What the checks have found, for people and for a continuous integration.
#pragma once

#include "checks.h"
#include "output.h"

#include <QString>
#include <vector>

/// How a check of a root, or of the whole library, has ended.
struct Result {
    const Check *check;
    std::string root; ///< empty for the whole library
    std::vector<Finding> findings;
    std::string whySkipped; ///< empty when it was made
};

/// A line for the check and one for each of the first findings. What is the plug-in's is made
/// printable.
void print(const Result &result, commandline::Output &output);

/// Writes all as a JUnit file. @return why it cannot be written; empty when it was
QString writeJUnit(const QString &file, const QString &library, const std::vector<Result> &results);
