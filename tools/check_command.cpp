// check: reads every profile through the calls of the service and looks for contradictions.
#include "commands.h"

#include <cstring>

#include <QSet>

#include "profile_fields.h"
#include "profile_service.h"

namespace {

class Checker {
public:
    explicit Checker(Output &output) : m_output(output) {}

    void checkProfile(const QByteArray &name)
    {
        m_name = QString::fromUtf8(name);
        if (m_names.contains(name))
            add(QStringLiteral("the name is listed twice"));
        m_names += name;
        unsigned int id = 0;
        if (const int status = NAPI_GetProfileIDByName(name.constData(), &id); status != NAPI_OK)
            return addFailure(QStringLiteral("no ID for the name"), status);
        if (id <= m_lastId)
            add(QStringLiteral("the ID %1 is not above the one before").arg(id));
        m_lastId = id;
        checkNameOfId(name, id);
        if (const int status = NAPI_IsProfileValid(name.constData()); status != NAPI_OK)
            addFailure(QStringLiteral("not valid"), status);
        NAP_PROFILE_S record = {};
        if (const int status = NAPI_ReadProfile(name.constData(), &record, 0, 0); status != NAPI_OK)
            return addFailure(QStringLiteral("no record"), status);
        for (const QString &fault : recordFaults(record))
            add(fault);
    }

    qsizetype faults = 0;

private:
    void checkNameOfId(const QByteArray &name, unsigned int id)
    {
        char nameOfId[NAPI_NAME_SIZE] = {};
        if (const int status = NAPI_GetProfileNameByID(id, nameOfId); status != NAPI_OK)
            addFailure(QStringLiteral("no name for the ID %1").arg(id), status);
        else if (name != nameOfId)
            add(QStringLiteral("its ID %1 belongs to another name").arg(id));
    }

    void addFailure(const QString &fault, int status)
    {
        add(fault + QStringLiteral(": ") + serviceText(status));
    }

    void add(const QString &fault)
    {
        m_output.line(commandline::printable(m_name + QStringLiteral(": ") + fault));
        ++faults;
    }

    Output &m_output;
    QString m_name;
    QSet<QByteArray> m_names;
    unsigned int m_lastId = 0;
};

} // namespace

ExitStatus runCheck(Output &output, const Invocation &)
{
    unsigned int count = 0;
    QList<QByteArray> names;
    int status = NAPI_ListAllProfile(nullptr, &count);
    if (status == NAPI_OK)
        status = listProfileNames(names);
    if (status != NAPI_OK)
        return reportResult(output, {}, status);
    Checker checker(output);
    if (names.size() != qsizetype{count}) {
        output.line(
            QStringLiteral("%1 profiles are counted, %2 are listed").arg(count).arg(names.size()));
        ++checker.faults;
    }
    for (const QByteArray &name : names)
        checker.checkProfile(name);
    output.line(QStringLiteral("Profiles: %1, faults: %2").arg(names.size()).arg(checker.faults));
    return checker.faults == 0 ? ExitStatus::Success : ExitStatus::Failed;
}
