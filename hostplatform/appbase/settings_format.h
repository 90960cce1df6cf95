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
//
// Changes follow the entries that they change. Those of one flush begin with a line that says how
// many bytes of lines they are, so that they count as a whole: a file that ends before them has
// none.
//
//     \+31
//     [group]
//     key=new value
//     \-other key       the entry is removed
#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QList>
#include <QMap>
#include <QString>
#include <optional>

/// Entries of one group by key, and groups by name. No text in it is null.
using SettingsGroup = QMap<QString, QString>;
using SettingsGroups = QMap<QString, SettingsGroup>;

/// An entry that is set, or removed when there is no value.
struct SettingsChange {
    QString group;
    QString key;
    std::optional<QString> value;
};

void applyChange(const SettingsChange &change, SettingsGroups &groups);

struct ParsedSettings {
    SettingsGroups groups;
    bool hasChanges = false;  ///< there are changes after the entries
    bool isCutOff = false;    ///< the last changes are not all there, and left out
    int skippedLines = 0;     ///< lines that are neither a group, nor an entry of one, nor empty
    int firstSkippedLine = 0; ///< number of the first of them, counted from 1
};

/// Reads any bytes in linear time. A group that comes twice is one group; of two entries with the
/// same key the later one counts.
ParsedSettings parseSettings(QByteArrayView text);

/// @return the text that parseSettings reads back into the same groups; groups without an entry are
///         left out.
QByteArray formatSettings(const SettingsGroups &groups);

/// @return what a file needs at its end for the changes, in their order, to be made to what it
/// holds.
///         The file has to end in a line feed, or be empty.
QByteArray formatChanges(const QList<SettingsChange> &changes);
