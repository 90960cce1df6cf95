// provision: profiles of real operators.
#include "commands.h"

#include <algorithm>
#include <cstring>

#include <QSet>

#include "console.h"
#include "profile_fields.h"
#include "profile_naming.h"
#include "profile_service.h"
#include "provider_database.h"

namespace {

struct PlannedProfile {
    QByteArray name;
    NAP_PROFILE_S record;
};

void addValue(QList<FieldValue> &values, QStringView path, const QString &text)
{
    if (!text.isEmpty())
        values += FieldValue{findField(path), text};
}

/// Fills a record from an access point. @return what is wrong; null when nothing is.
QString fillRecord(NAP_PROFILE_S &record, const AccessPoint &accessPoint)
{
    if (accessPoint.apn.isEmpty())
        return QStringLiteral("it has no APN");
    QList<FieldValue> values;
    addValue(values, u"gprs.address", accessPoint.apn);
    addValue(values, u"gprs.authId", accessPoint.userName);
    addValue(values, u"gprs.authPassword", accessPoint.password);
    addValue(values, u"gprs.dns1", accessPoint.dnsServers.value(0));
    addValue(values, u"gprs.dns2", accessPoint.dnsServers.value(1));
    const qsizetype colon = accessPoint.mmsProxy.lastIndexOf(u':');
    addValue(values, u"proxy1.address", accessPoint.mmsProxy.left(colon));
    if (colon >= 0)
        addValue(values, u"proxy1.port", accessPoint.mmsProxy.sliced(colon + 1));
    record.creation = 1;
    return setFields(record, values);
}

/// The access point that most people want: for the Internet, else the first.
const AccessPoint &preferredAccessPoint(const Provider &provider)
{
    const auto preferred = std::ranges::find_if(
        provider.accessPoints, [](const AccessPoint &point) { return point.usage == u"internet"; });
    return preferred == provider.accessPoints.end() ? provider.accessPoints.first() : *preferred;
}

/// What is to be stored. Names are unique among themselves and against the store.
class ProvisionPlan {
public:
    explicit ProvisionPlan(bool cutNames) : m_cutNames(cutNames) {}

    void add(const Provider &provider, const AccessPoint &accessPoint, bool isOnlyOne)
    {
        PlannedProfile profile = {};
        const QString fault = fillRecord(profile.record, accessPoint);
        if (!fault.isNull())
            return refuse(provider, accessPoint, fault);
        const QStringList candidates =
            profileNameCandidates(provider.displayName(), accessPoint.displayName(), isOnlyOne);
        for (const QString &candidate : candidates) {
            if (take(profile, candidate, {}))
                return;
        }
        for (int number = 2; exitStatus != ExitStoreUnusable; ++number) {
            if (take(profile, candidates.last(), ' ' + QByteArray::number(number)))
                return;
        }
    }

    QList<PlannedProfile> profiles;
    qsizetype storedBefore = 0;
    ExitStatus exitStatus = ExitOk;

private:
    /// @return true when the profile is done with: planned under that name, found in the
    ///         store, or refused.
    bool take(PlannedProfile &profile, const QString &text, const QByteArray &suffix)
    {
        profile.name = cutProfileName(text, suffix);
        if (!m_cutNames && profile.name != text.toUtf8() + suffix) {
            printError(
                QStringLiteral("%1: the name is longer than 63 bytes; --all cuts it").arg(text));
            exitStatus = qMax(exitStatus, ExitFailed);
            return true;
        }
        if (m_names.contains(profile.name))
            return false;
        NAP_PROFILE_S stored = {};
        const int status = NAPI_ReadProfile(profile.name.constData(), &stored, 0, 0);
        if (status == NAPI_OK) {
            if (std::memcmp(&stored, &profile.record, sizeof stored) != 0)
                return false;
            ++storedBefore;
        } else if (status == NAPI_ERROR_NOT_FOUND) {
            profiles += profile;
        } else {
            exitStatus =
                qMax(exitStatus, reportServiceFailure(QString::fromUtf8(profile.name), status));
            return true;
        }
        m_names += profile.name;
        return true;
    }

    void refuse(const Provider &provider, const AccessPoint &accessPoint, const QString &fault)
    {
        printError(QStringLiteral("%1, access point %2: %3")
                       .arg(provider.displayName(), accessPoint.displayName(), fault));
        exitStatus = qMax(exitStatus, ExitFailed);
    }

    bool m_cutNames;
    QSet<QByteArray> m_names;
};

bool matches(const Provider &provider, const QString &country, const QString &text)
{
    if (!country.isEmpty() && provider.country != country)
        return false;
    return std::ranges::any_of(provider.names, [&](const QString &name) {
        return name.contains(text, Qt::CaseInsensitive);
    });
}

ExitStatus storeProfiles(const ProvisionPlan &plan)
{
    QList<QByteArray> stored;
    if (const int status = listProfileNames(stored); status != NAPI_OK)
        return reportServiceFailure({}, status);
    if (stored.size() + plan.profiles.size() > NAPI_GetMaxProfiles()) {
        printError(QStringLiteral("%1 new profiles do not fit: %2 of at most %3 are stored; "
                                  "KUB_NAPI_MAX sets the maximum")
                       .arg(plan.profiles.size())
                       .arg(stored.size())
                       .arg(NAPI_GetMaxProfiles()));
        return ExitFailed;
    }
    qsizetype done = 0;
    qsizetype refused = 0;
    ExitStatus exitStatus = ExitOk;
    {
        const Progress progress(QStringLiteral("Storing profiles"), plan.profiles.size());
        for (const PlannedProfile &profile : plan.profiles) {
            const int status = NAPI_CreateProfile(profile.name.constData(), &profile.record, 0, 0);
            if (status != NAPI_OK)
                exitStatus = reportServiceFailure(QString::fromUtf8(profile.name), status);
            // A store can refuse the values of one access point; what else fails, fails for all.
            if (status == NAPI_ERROR_VALUE_REFUSED)
                ++refused;
            else if (status != NAPI_OK)
                break;
            else
                ++done;
            progress.show(done + refused);
        }
    }
    printOutput(QStringLiteral("Stored: %1, already there: %2\n").arg(done).arg(plan.storedBefore));
    return exitStatus;
}

} // namespace

ExitStatus runProvision(const QCommandLineParser &options, const QStringList &)
{
    const bool all = options.isSet(QStringLiteral("all"));
    const QString country = options.value(QStringLiteral("country")).toLower();
    if (country.isEmpty() && !all) {
        printError(QStringLiteral("provision needs --country CC, or --all for every country"));
        return ExitUsage;
    }
    const QString fileName = options.value(QStringLiteral("database"));
    QString fault;
    const QByteArray xml = readInput(fileName, fault);
    if (!fault.isNull()) {
        printError(fault);
        return ExitFailed;
    }
    const QList<Provider> providers = parseProviderDatabase(xml, fault);
    if (!fault.isNull()) {
        printError(fileName + QStringLiteral(": ") + fault);
        return ExitFailed;
    }

    ProvisionPlan plan(all);
    qsizetype matching = 0;
    for (const Provider &provider : providers) {
        if (!matches(provider, country, options.value(QStringLiteral("provider"))))
            continue;
        ++matching;
        if (!all) {
            plan.add(provider, preferredAccessPoint(provider), true);
            continue;
        }
        for (const AccessPoint &accessPoint : provider.accessPoints)
            plan.add(provider, accessPoint, provider.accessPoints.size() == 1);
    }
    if (matching == 0) {
        printError(fileName + QStringLiteral(": no provider with a GSM access point matches"));
        return ExitFailed;
    }
    if (plan.exitStatus == ExitStoreUnusable)
        return plan.exitStatus;
    return qMax(plan.exitStatus, storeProfiles(plan));
}
