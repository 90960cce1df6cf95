// Secrets that are typed instead of standing on a command line.
#pragma once

#include <QString>
#include <optional>

namespace client::cli {

struct Context;

/// A line of standard input, unless its lines are the commands of a shell.
/// @param name  what it is the secret of
/// @return none with what is wrong in error
std::optional<QString> readSecret(const Context &context, const QString &name, QString &error);

} // namespace client::cli
