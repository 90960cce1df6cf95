// The pages that are built and installed with the program.
#pragma once

#include "expected.h"

#include <QByteArray>
#include <QString>

namespace client::cli {

/// How each of them begins, and what is made of it.
inline constexpr QByteArrayView
    pageStart("<!DOCTYPE html>\n<html lang=\"en\">\n<!-- A report of dmclient");

/// Reads the page of a command, "report" or "explore", and puts the elements of records into it.
/// @return the page, or which file cannot be used and why
support::Expected<QByteArray, QString> installedPage(const char *command,
                                                     const QByteArray &records);

} // namespace client::cli
