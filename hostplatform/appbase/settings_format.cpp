#include "settings_format.h"

#include <QUtf8StringView>

namespace {

constexpr char16_t byteOrderMark = 0xFEFF;
// Neither is an escape, so no entry begins with one.
constexpr QByteArrayView changesMark("\\+");
constexpr QByteArrayView removalMark("\\-");

enum class TextRole { Group, Key, Value };

struct ShortEscape {
    char16_t character;
    char letter;
};

constexpr ShortEscape shortEscapes[] = {
    {u'\\', '\\'}, {u'\n', 'n'}, {u'\r', 'r'}, {u'\t', 't'}, {u' ', 's'}, {u'=', '='}, {u'[', '['},
};

// ---- Writing ------------------------------------------------------------------------------------

bool isLoneSurrogate(QStringView text, qsizetype index)
{
    const QChar unit = text[index];
    if (unit.isHighSurrogate())
        return index + 1 == text.size() || !text[index + 1].isLowSurrogate();
    return unit.isLowSurrogate() && (index == 0 || !text[index - 1].isHighSurrogate());
}

bool needsEscape(QStringView text, qsizetype index, TextRole role)
{
    const char16_t unit = text[index].unicode();
    switch (unit) {
    case u'\\':
    case u'\x7F':
    case byteOrderMark:
        return true;
    case u' ':
        return index == 0 || index + 1 == text.size();
    case u'=':
        return role == TextRole::Key;
    case u'[':
        return role == TextRole::Key && index == 0;
    default:
        return unit < u' ' || isLoneSurrogate(text, index);
    }
}

void appendEscape(QByteArray &line, char16_t unit)
{
    line += '\\';
    for (const ShortEscape &escape : shortEscapes) {
        if (escape.character == unit) {
            line += escape.letter;
            return;
        }
    }
    line += 'u';
    line += QByteArray::number(unit, 16).rightJustified(4, '0');
}

void appendText(QByteArray &line, QStringView text, TextRole role)
{
    qsizetype plainBegin = 0;
    for (qsizetype index = 0; index < text.size(); ++index) {
        if (!needsEscape(text, index, role))
            continue;
        line += text.sliced(plainBegin, index - plainBegin).toUtf8();
        appendEscape(line, text[index].unicode());
        plainBegin = index + 1;
    }
    line += text.sliced(plainBegin).toUtf8();
}

void appendGroup(QByteArray &text, QStringView name)
{
    text += '[';
    appendText(text, name, TextRole::Group);
    text += "]\n";
}

void appendEntry(QByteArray &text, QStringView key, QStringView value)
{
    appendText(text, key, TextRole::Key);
    text += '=';
    appendText(text, value, TextRole::Value);
    text += '\n';
}

// ---- Reading ------------------------------------------------------------------------------------

/// @return valid UTF-8 as a text that is not null. QString's own conversion drops one byte order
///         mark that comes first.
QString fromUtf8(QByteArrayView bytes)
{
    if (bytes.isEmpty())
        return QLatin1StringView("");
    if (bytes.startsWith("\xEF\xBB\xBF"))
        return QChar(byteOrderMark) + QString::fromUtf8(bytes);
    return QString::fromUtf8(bytes);
}

/// Appends what the escape at the beginning of the bytes stands for.
/// @return the length of the escape in bytes, 0 when it is none.
qsizetype appendUnescaped(QString &text, QByteArrayView bytes)
{
    constexpr qsizetype shortLength = 2;
    constexpr qsizetype unitLength = 6;
    if (bytes.size() < shortLength)
        return 0;
    for (const ShortEscape &escape : shortEscapes) {
        if (escape.letter == bytes[1]) {
            text += QChar(escape.character);
            return shortLength;
        }
    }
    if (bytes[1] != 'u' || bytes.size() < unitLength)
        return 0;
    char16_t unit = 0;
    for (const char digit : bytes.sliced(shortLength, unitLength - shortLength)) {
        int value = 0;
        if (digit >= '0' && digit <= '9')
            value = digit - '0';
        else if (digit >= 'a' && digit <= 'f')
            value = digit - 'a' + 10;
        else
            return 0;
        unit = static_cast<char16_t>(unit * 16 + value);
    }
    text += QChar(unit);
    return unitLength;
}

/// @return false when the bytes hold an unknown escape. The text is never null.
bool readText(QByteArrayView bytes, QString &text)
{
    qsizetype backslash = bytes.indexOf('\\');
    if (backslash < 0) {
        text = fromUtf8(bytes);
        return true;
    }
    text = QLatin1StringView("");
    for (; backslash >= 0; backslash = bytes.indexOf('\\')) {
        text += fromUtf8(bytes.first(backslash));
        bytes = bytes.sliced(backslash);
        const qsizetype length = appendUnescaped(text, bytes);
        if (length == 0)
            return false;
        bytes = bytes.sliced(length);
    }
    text += fromUtf8(bytes);
    return true;
}

/// @return the position of the equals sign that ends the key, -1 when there is none.
qsizetype findKeyEnd(QByteArrayView line)
{
    const qsizetype equals = line.indexOf('=');
    const qsizetype backslash = line.indexOf('\\');
    if (backslash < 0 || equals < backslash)
        return equals;
    for (qsizetype index = backslash; index < line.size(); ++index) {
        if (line[index] == '=')
            return index;
        if (line[index] == '\\')
            ++index;
    }
    return -1;
}

class Parser {
public:
    void read(QByteArrayView text)
    {
        while (!text.isEmpty() && !parsed.isCutOff) {
            const QByteArrayView line = takeLine(text);
            if (line.startsWith(changesMark) || (!m_isEnded && changesMark.startsWith(line)))
                readChanges(line, text);
            else if (!line.isEmpty() && !readLine(line))
                skip(m_lineNumber);
        }
    }

    ParsedSettings parsed;

private:
    QByteArrayView takeLine(QByteArrayView &text)
    {
        ++m_lineNumber;
        const qsizetype lineEnd = text.indexOf('\n');
        m_isEnded = lineEnd >= 0;
        const QByteArrayView line = m_isEnded ? text.first(lineEnd) : text;
        text = m_isEnded ? text.sliced(lineEnd + 1) : QByteArrayView();
        return line;
    }

    void skip(int lineNumber)
    {
        if (parsed.skippedLines++ == 0)
            parsed.firstSkippedLine = lineNumber;
    }

    /// Reads the changes that the line begins from the text after it.
    void readChanges(QByteArrayView line, QByteArrayView &text)
    {
        parsed.hasChanges = true;
        parsed.isCutOff = !m_isEnded;
        if (parsed.isCutOff)
            return;
        bool isNumber = false;
        const qsizetype size = line.sliced(changesMark.size()).toInt(&isNumber);
        if (!isNumber || size < 0)
            return skip(m_lineNumber);
        parsed.isCutOff = size > text.size();
        if (parsed.isCutOff)
            return;
        QByteArrayView changes = text.first(size);
        text = text.sliced(size);
        m_group = nullptr;
        while (!changes.isEmpty()) {
            const QByteArrayView change = takeLine(changes);
            if (!(change.startsWith(removalMark) ? readRemoval(change) : readLine(change)))
                skip(m_lineNumber);
        }
        m_group = nullptr;
    }

    /// @return false when the line is malformed. After a malformed group line the entries up to the
    ///         next group belong to no group.
    bool readLine(QByteArrayView line)
    {
        const bool isGroup = line.startsWith('[');
        if (isGroup)
            m_group = nullptr;
        if (!isUtf8(line))
            return false;
        return isGroup ? readGroup(line) : readEntry(line);
    }

    bool readGroup(QByteArrayView line)
    {
        QString name;
        if (line.size() < 2 || !line.endsWith(']') || !readText(line.sliced(1).chopped(1), name))
            return false;
        m_group = &parsed.groups[name];
        return true;
    }

    bool readEntry(QByteArrayView line)
    {
        const qsizetype keyEnd = findKeyEnd(line);
        QString key;
        QString value;
        if (!m_group || keyEnd < 0 || !readText(line.first(keyEnd), key) ||
            !readText(line.sliced(keyEnd + 1), value))
            return false;
        m_group->insert(key, value);
        return true;
    }

    bool readRemoval(QByteArrayView line)
    {
        QString key;
        if (!m_group || !isUtf8(line) || !readText(line.sliced(removalMark.size()), key))
            return false;
        m_group->remove(key);
        return true;
    }

    static bool isUtf8(QByteArrayView line)
    {
        return QUtf8StringView(line.data(), line.size()).isValidUtf8();
    }

    SettingsGroup *m_group = nullptr;
    int m_lineNumber = 0;
    bool m_isEnded = true; ///< a line feed ended the last line
};

} // namespace

ParsedSettings parseSettings(QByteArrayView text)
{
    Parser parser;
    parser.read(text);
    return std::move(parser.parsed);
}

QByteArray formatSettings(const SettingsGroups &groups)
{
    QByteArray text;
    for (auto group = groups.cbegin(); group != groups.cend(); ++group) {
        if (group->isEmpty())
            continue;
        appendGroup(text, group.key());
        for (auto entry = group->cbegin(); entry != group->cend(); ++entry)
            appendEntry(text, entry.key(), entry.value());
    }
    return text;
}

QByteArray formatChanges(const QList<SettingsChange> &changes)
{
    QByteArray lines;
    const QString *group = nullptr;
    for (const SettingsChange &change : changes) {
        if (!group || *group != change.group)
            appendGroup(lines, change.group);
        group = &change.group;
        if (change.value) {
            appendEntry(lines, change.key, *change.value);
        } else {
            lines += removalMark;
            appendText(lines, change.key, TextRole::Key);
            lines += '\n';
        }
    }
    return changesMark.toByteArray() + QByteArray::number(lines.size()) + '\n' + lines;
}

void applyChange(const SettingsChange &change, SettingsGroups &groups)
{
    if (change.value)
        groups[change.group].insert(change.key, *change.value);
    else if (const auto group = groups.find(change.group); group != groups.end())
        group->remove(change.key);
}
