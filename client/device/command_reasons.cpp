#include "command_reasons.h"

#include <algorithm>

namespace client {

namespace {

/// A message of the plug-in, taken apart.
struct PluginMessage {
    QString function; ///< that it says it leaves; may be empty
    QString text;     ///< what it says, which may be nothing
};

bool isOfName(QChar character)
{
    return character.isLetterOrNumber() || character == u'_';
}

qsizetype nameLength(QStringView text)
{
    return std::ranges::find_if_not(text, isOfName) - text.begin();
}

/// Takes "(file.cpp:123)" away.
QStringView withoutPlace(QStringView text)
{
    const qsizetype end = text.startsWith(u'(') ? text.indexOf(u')') : -1;
    const bool isPlace = end > 0 && text.first(end).contains(u':');
    return isPlace ? text.sliced(end + 1).trimmed() : text;
}

QStringView withoutLeadingMarks(QStringView text)
{
    const QStringView marks = u" ()!:,.";
    while (!text.isEmpty() && marks.contains(text.front()))
        text = text.sliced(1);
    return text;
}

/// Takes "failed!" away in front of what failed.
QStringView withoutLeadingFailure(QStringView text)
{
    const QStringView word = text.first(nameLength(text));
    if (word.compare(u"fail", Qt::CaseInsensitive) != 0 &&
        word.compare(u"failed", Qt::CaseInsensitive) != 0)
        return text;
    const QStringView rest = withoutLeadingMarks(text.sliced(word.size()));
    return rest.isEmpty() ? text : rest;
}

/// "(x.cpp:1)Leave: SetValue()! failed! Speed illegal" says "Speed illegal" and leaves SetValue.
PluginMessage parse(QStringView message)
{
    const QStringView whole = withoutPlace(message);
    constexpr QStringView leave = u"Leave:";
    const qsizetype begin = whole.indexOf(leave);
    const bool leavesFunction = begin >= 0 && std::ranges::none_of(whole.first(begin), isOfName);
    if (!leavesFunction)
        return {{}, whole.toString()};
    const QStringView rest = whole.sliced(begin + leave.size()).trimmed();
    const QStringView function = rest.first(nameLength(rest));
    const QStringView text =
        withoutLeadingFailure(withoutLeadingMarks(rest.sliced(function.size())));
    return {function.toString(), text.toString()};
}

/// Whether the text has the name as a word of its own.
bool mentions(QStringView text, QStringView name)
{
    for (qsizetype at = text.indexOf(name); at >= 0; at = text.indexOf(name, at + 1)) {
        const qsizetype end = at + name.size();
        if ((at == 0 || !isOfName(text[at - 1])) && (end == text.size() || !isOfName(text[end])))
            return true;
    }
    return false;
}

/// The plug-in has one kind of message for failures and for what it does as a matter of course,
/// such as giving a proxy its default connection.
bool tellsOfTrouble(QStringView message)
{
    return message.contains(u"fail", Qt::CaseInsensitive) ||
           message.contains(u"warning", Qt::CaseInsensitive);
}

} // namespace

void CommandReasons::clear()
{
    m_sentences.clear();
    m_lastFunction.clear();
    m_more = 0;
}

void CommandReasons::addMessage(std::string_view message)
{
    const QString line =
        QString::fromUtf8(message.data(), static_cast<qsizetype>(message.size())).simplified();
    const PluginMessage parsed = parse(line);
    // On the way up each function says that the one beneath it failed, which has said why.
    const bool isOnTheWayUp = !m_lastFunction.isEmpty() && parsed.function != m_lastFunction &&
                              mentions(parsed.text, m_lastFunction);
    if (!parsed.function.isEmpty())
        m_lastFunction = parsed.function;
    // A message that says nothing but which function ends comes with success as well.
    if (!isOnTheWayUp && !parsed.text.isEmpty())
        add({parsed.text, tellsOfTrouble(line)});
}

void CommandReasons::addFailure(const char *function, const QString &sentence)
{
    m_lastFunction = QString::fromLatin1(function);
    add({sentence.simplified(), true});
}

void CommandReasons::add(const Sentence &sentence)
{
    const bool isKnown = std::ranges::any_of(
        m_sentences, [&](const Sentence &known) { return known.text == sentence.text; });
    if (isKnown)
        return;
    if (m_sentences.size() < mostSentences)
        m_sentences += sentence;
    else
        ++m_more;
}

QString CommandReasons::text(Kind kind) const
{
    QStringList texts;
    for (const Sentence &sentence : m_sentences)
        if (kind == Kind::All || sentence.isTrouble)
            texts += sentence.text;
    if (m_more > 0 && !texts.isEmpty())
        texts += QStringLiteral("and more");
    return texts.join(QStringLiteral("; "));
}

} // namespace client
