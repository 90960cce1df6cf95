// How far a long operation is, for the person who waits for it.
#pragma once

#include <QString>

/// Shows "label: done of total" on a terminal while a long operation runs.
class Progress {
public:
    Progress(const QString &label, qsizetype total);
    ~Progress();
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    void show(qsizetype done) const;

private:
    QString m_label;
    qsizetype m_total;
    bool m_isShown;
};
