#include "console.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <unistd.h>

#include <QFile>

#include "foreign_text.h"

void printOutput(const QByteArray &text)
{
    std::fwrite(text.constData(), 1, static_cast<std::size_t>(text.size()), stdout);
}

void printOutput(const QString &text)
{
    printOutput(text.toUtf8());
}

void printError(const QString &message)
{
    std::fflush(stdout);
    std::fprintf(stderr, "napictl: %s\n", printable(message).toUtf8().constData());
}

ExitStatus finishOutput(ExitStatus status)
{
    const bool isWritten = std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
    if (isWritten || status != ExitOk)
        return status;
    printError(QStringLiteral("cannot write the output: ") +
               QString::fromLocal8Bit(std::strerror(errno)));
    return ExitFailed;
}

QString printable(const QString &text)
{
    return QString::fromStdString(foreign_text::printable(text.toStdString()));
}

void printJson(const QByteArray &json)
{
    printOutput(QByteArray::fromStdString(foreign_text::printableJson(json.toStdString())));
}

QByteArray readInput(const QString &fileName, QString &fault)
{
    constexpr qint64 largestInput = 64 * 1024 * 1024;
    const bool isStandardInput = fileName == u"-";
    QFile file(fileName);
    const bool isOpen =
        isStandardInput ? file.open(stdin, QIODevice::ReadOnly) : file.open(QIODevice::ReadOnly);
    QByteArray bytes;
    if (isOpen)
        bytes = file.read(largestInput + 1);
    if (!isOpen || file.error() != QFileDevice::NoError)
        fault = QStringLiteral("%1: cannot read it: %2").arg(fileName, file.errorString());
    else if (bytes.size() > largestInput)
        fault = QStringLiteral("%1: it is larger than 64 MiB").arg(fileName);
    return fault.isNull() ? bytes : QByteArray();
}

Progress::Progress(const QString &label, qsizetype total)
    : m_label(label), m_total(total), m_isShown(total >= 100 && ::isatty(STDERR_FILENO) == 1)
{
}

Progress::~Progress()
{
    if (m_isShown)
        std::fputc('\n', stderr);
}

void Progress::show(qsizetype done) const
{
    constexpr qsizetype step = 20;
    if (m_isShown && (done % step == 0 || done == m_total)) {
        std::fprintf(stderr, "\r%s: %lld of %lld", m_label.toUtf8().constData(),
                     static_cast<long long>(done), static_cast<long long>(m_total));
    }
}
