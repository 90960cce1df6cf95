#include "line_editor.h"

#include "terminal.h"
#include "words.h"

#include <QFile>
#include <algorithm>
#include <cstdio>
#include <histedit.h>
#include <utility>

namespace client::cli {

using commandline::printable;

namespace {

constexpr int historyLines = 1000;

void showCandidates(const std::vector<Candidate> &candidates)
{
    std::fputc('\n', stdout);
    for (const Candidate &candidate : candidates) {
        // Of an address only the last name tells the candidates apart.
        const QString shown = candidate.word.mid(candidate.word.lastIndexOf(u'/', -2) + 1);
        std::printf("%s\n", printable(shown).toUtf8().constData());
    }
}

} // namespace

struct LineEditor::Library {
    EditLine *editor = nullptr;
    History *history = nullptr;

    ~Library()
    {
        el_end(editor);
        history_end(history);
    }
};

LineEditor::LineEditor(const QString &historyFile, Completer completer)
    : m_historyFile(QFile::encodeName(historyFile)), m_completer(std::move(completer)),
      m_library(std::make_unique<Library>())
{
    HistEvent event;
    m_library->history = history_init();
    history(m_library->history, &event, H_SETSIZE, historyLines);
    history(m_library->history, &event, H_SETUNIQUE, 1);
    if (!m_historyFile.isEmpty())
        history(m_library->history, &event, H_LOAD, m_historyFile.constData());

    EditLine *const editor = el_init("dmclient", stdin, stdout, stderr);
    m_library->editor = editor;
    const auto prompt = [](EditLine *) {
        static char text[] = "dm> ";
        return text;
    };
    const auto completeHere = [](EditLine *which, wint_t) -> unsigned char {
        void *self = nullptr;
        el_get(which, EL_CLIENTDATA, &self);
        return static_cast<LineEditor *>(self)->completeAtCursor();
    };
    el_set(editor, EL_CLIENTDATA, this);
    el_set(editor, EL_PROMPT, +prompt);
    el_set(editor, EL_EDITOR, "emacs");
    el_set(editor, EL_SIGNAL, 1);
    el_set(editor, EL_HIST, history, m_library->history);
    // In the narrow form the library copies these texts and never gives them back.
    el_wset(editor, EL_ADDFN, L"complete", L"Complete the word", +completeHere);
    el_set(editor, EL_BIND, "^I", "complete", nullptr);
}

LineEditor::~LineEditor() = default;

std::optional<QByteArray> LineEditor::readLine()
{
    int length = 0;
    const char *const line = el_gets(m_library->editor, &length);
    if (!line || length <= 0)
        return std::nullopt;
    QByteArray text(line, length);
    if (text.endsWith('\n'))
        text.chop(1);
    return text;
}

void LineEditor::remember(const QByteArray &line)
{
    HistEvent event;
    history(m_library->history, &event, H_ENTER, line.constData());
    // The library makes the file readable by its owner only before it writes to it.
    if (!m_historyFile.isEmpty())
        history(m_library->history, &event, H_SAVE, m_historyFile.constData());
}

unsigned char LineEditor::completeAtCursor()
{
    const LineInfo *const info = el_line(m_library->editor);
    const auto line = splitUnfinished(QByteArray(info->buffer, info->cursor - info->buffer));
    const std::vector<Candidate> candidates = line ? m_completer(*line) : std::vector<Candidate>();
    if (candidates.empty())
        return CC_ERROR;
    QString insertion = quoteWord(commonStart(candidates).mid(line->prefix.size()));
    if (candidates.size() == 1 && candidates.front().isWhole)
        insertion += u' ';
    if (!insertion.isEmpty())
        return el_insertstr(m_library->editor, insertion.toUtf8().constData()) == 0 ? CC_REFRESH
                                                                                    : CC_ERROR;
    showCandidates(candidates);
    return CC_REDISPLAY;
}

} // namespace client::cli
