// Text format of a settings file.
//
//     [group]
//     key=value
//
// UTF-8, one line an entry, lines end in a line feed. Groups and keys stand in ascending order. No
// blank is ignored and there is no comment syntax. Any UTF-16 text is a possible group, key and
// value; these escapes make it fit on its line:
//
//     \\                backslash
//     \n \r \t          line feed, carriage return, tab
//     \s                a blank at the beginning or the end of a text
//     \=                an equals sign in a key
//     \[                an opening bracket at the beginning of a key
//     \uXXXX            one UTF-16 code unit: other control characters, U+FEFF, lone surrogates
#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QMap>
#include <QString>

/// Entries of one group by key, and groups by name. No text in it is null.
using SettingsGroup = QMap<QString, QString>;
using SettingsGroups = QMap<QString, SettingsGroup>;

struct ParsedSettings {
    SettingsGroups groups;
    int skippedLines = 0;     ///< lines that are neither a group, nor an entry of one, nor empty
    int firstSkippedLine = 0; ///< number of the first of them, counted from 1
};

/// Reads any bytes in linear time. A group that comes twice is one group; of two entries with the
/// same key the later one counts.
ParsedSettings parseSettings(QByteArrayView text);

/// @return the text that parseSettings reads back into the same groups; groups without an entry are
///         left out.
QByteArray formatSettings(const SettingsGroups &groups);
