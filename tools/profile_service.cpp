#include "profile_service.h"

#include "state_location.h"

#include <QDir>
#include <QFile>
#include <cstring>

namespace {

struct StatusMeaning {
    int status;
    ExitStatus exitStatus;
    const char *text;
};

constexpr StatusMeaning meanings[] = {
    {NAPI_OK, ExitStatus::Success, "done"},
    {NAPI_ERROR_BAD_NAME, ExitStatus::Failed,
     "a name has 1 to 63 bytes of UTF-8 and no slash, and is not . or .. or *"},
    {NAPI_ERROR_NOT_FOUND, ExitStatus::Failed, "there is no such profile"},
    {NAPI_ERROR_EXISTS, ExitStatus::Failed, "there is a profile of that name already"},
    {NAPI_ERROR_STORE_FULL, ExitStatus::Failed,
     "the profile store is full; KUB_NAPI_MAX sets its size"},
    {NAPI_ERROR_VALUE_REFUSED, ExitStatus::Failed, "the profile store does not take a value of it"},
    {NAPI_ERROR_CORRUPT, ExitStatus::Unusable, "the profile store is damaged or is none"},
    {NAPI_ERROR_READ_ONLY, ExitStatus::Unusable, "the profile store cannot be written"},
    {NAPI_ERROR_NO_SPACE, ExitStatus::Unusable, "the disk of the profile store is full"},
    {NAPI_ERROR_BUSY, ExitStatus::Unusable, "another process keeps the profile store locked"},
    {NAPI_ERROR_UNAVAILABLE, ExitStatus::Unusable,
     "the profile store cannot be reached or denies access"},
};
constexpr StatusMeaning otherFailure = {NAPI_ERROR_IO, ExitStatus::Unusable,
                                        "the profile store cannot be used"};

const StatusMeaning &meaningOf(int status)
{
    for (const StatusMeaning &meaning : meanings) {
        if (meaning.status == status)
            return meaning;
    }
    return otherFailure;
}

} // namespace

QString serviceText(int status)
{
    return QString::fromLatin1(meaningOf(status).text);
}

ExitStatus reportResult(Output &output, const QString &subject, int status)
{
    const QString prefix = subject.isEmpty() ? QString() : subject + QStringLiteral(": ");
    if (status != NAPI_OK)
        output.problem(prefix + serviceText(status));
    return meaningOf(status).exitStatus;
}

bool isStoreThere()
{
    const QDir state(QFile::decodeName(handset_state::location().c_str()));
    return !state.entryList({QStringLiteral("*.db")}, QDir::Files).isEmpty();
}

int readProfile(const QString &name, StoredProfile &profile)
{
    const QByteArray key = name.toUtf8();
    profile.name = name;
    const int status = NAPI_GetProfileIDByName(key.constData(), &profile.id);
    return status != NAPI_OK ? status : NAPI_ReadProfile(key.constData(), &profile.record, 0, 0);
}

int listProfileNames(QList<QByteArray> &names)
{
    unsigned int count = 0;
    int status = NAPI_ListAllProfile(nullptr, &count);
    if (status != NAPI_OK)
        return status;
    QByteArray slots(qsizetype{count} * NAPI_NAME_SIZE + 1, '\0');
    status = NAPI_ListAllProfile(slots.data(), &count);
    for (unsigned int index = 0; status == NAPI_OK && index < count; ++index)
        names += QByteArray(slots.constData() + qsizetype{index} * NAPI_NAME_SIZE);
    return status;
}

ExitStatus checkRoom(Output &output, qsizetype newProfiles)
{
    QList<QByteArray> stored;
    if (const int status = listProfileNames(stored); status != NAPI_OK)
        return reportResult(output, {}, status);
    const int most = NAPI_GetMaxProfiles();
    if (stored.size() + newProfiles <= most)
        return ExitStatus::Success;
    return output.problem(QStringLiteral("%1 new profiles do not fit: %2 of at most %3 are stored; "
                                         "KUB_NAPI_MAX sets the maximum")
                              .arg(newProfiles)
                              .arg(stored.size())
                              .arg(most),
                          ExitStatus::Failed);
}
