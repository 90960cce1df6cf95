// Editing a line on a terminal, with history and completion.
#pragma once

#include "completion.h"

#include <QByteArray>
#include <functional>
#include <memory>
#include <optional>

namespace client::cli {

class LineEditor {
public:
    using Completer = std::function<std::vector<Candidate>(const UnfinishedLine &)>;

    /// @param historyFile  read now and written after every line; readable by its owner only.
    /// Empty:
    ///                     the lines of this run are all that there is
    LineEditor(const QString &historyFile, Completer completer);
    ~LineEditor();
    LineEditor(const LineEditor &) = delete;
    LineEditor &operator=(const LineEditor &) = delete;

    /// Asks for a line. @return the line without its line break; none at the end of input
    std::optional<QByteArray> readLine();
    void remember(const QByteArray &line);

private:
    struct Library;

    unsigned char completeAtCursor();

    QByteArray m_historyFile;
    Completer m_completer;
    std::unique_ptr<Library> m_library;
};

} // namespace client::cli
