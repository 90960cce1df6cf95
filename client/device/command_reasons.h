// Why a command ended as it did: what was said beneath it, for a person.
#pragma once

#include <QString>
#include <QStringList>
#include <string_view>

namespace client {

/// Collects what the plug-in and the libraries beneath it say while a command runs. Of each message
/// it keeps what it says, without where in the plug-in that was; each once.
class CommandReasons {
public:
    /// Most sentences that are kept of one command.
    static constexpr qsizetype mostSentences = 8;

    /// Forgets everything.
    void clear();
    /// Takes a whole message of the plug-in, in any bytes.
    void addMessage(std::string_view message);
    /// Takes the sentence of a library about a call that failed.
    void addFailure(const char *function, const QString &sentence);

    enum class Kind {
        All,
        Trouble, ///< what tells of a failure or warns
    };
    /// What was said since it was cleared, in its order, in one line; empty when nothing was.
    QString text(Kind kind) const;

private:
    struct Sentence {
        QString text;
        bool isTrouble;
    };

    void add(const Sentence &sentence);

    QList<Sentence> m_sentences;
    QString m_lastFunction; ///< that has said why it failed
    qsizetype m_more = 0;   ///< sentences that were not kept
};

} // namespace client
