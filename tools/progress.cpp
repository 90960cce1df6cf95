#include "progress.h"

#include <cstdio>
#include <unistd.h>

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
