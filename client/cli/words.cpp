#include "words.h"

#include <histedit.h>
#include <memory>

namespace client::cli {

namespace {

struct EndTokenizer {
    void operator()(Tokenizer *tokenizer) const { tok_end(tokenizer); }
};

struct Tokens {
    QStringList words;
    int cursorWord = 0;
};

std::optional<Tokens> tokenize(const QByteArray &line)
{
    const std::unique_ptr<Tokenizer, EndTokenizer> tokenizer(tok_init(nullptr));
    const LineInfo info{line.constData(), line.constData() + line.size(),
                        line.constData() + line.size()};
    int count = 0;
    const char **words = nullptr;
    Tokens tokens;
    if (tok_line(tokenizer.get(), &info, &count, &words, &tokens.cursorWord, nullptr) != 0)
        return std::nullopt;
    for (int i = 0; i < count; ++i)
        tokens.words.push_back(QString::fromUtf8(words[i]));
    return tokens;
}

} // namespace

std::optional<QStringList> splitWords(const QByteArray &line)
{
    const auto tokens = tokenize(line);
    return tokens ? std::optional(tokens->words) : std::nullopt;
}

std::optional<UnfinishedLine> splitUnfinished(const QByteArray &line)
{
    const auto tokens = tokenize(line);
    if (!tokens)
        return std::nullopt;
    return UnfinishedLine{tokens->words.mid(0, tokens->cursorWord),
                          tokens->words.value(tokens->cursorWord)};
}

QString quoteWord(const QString &word)
{
    QString quoted;
    for (const QChar character : word) {
        if (character == u' ' || character == u'\'' || character == u'"' || character == u'\\')
            quoted += u'\\';
        quoted += character;
    }
    return quoted;
}

} // namespace client::cli
