// provision: profiles of real operators.
#include "commands.h"

#include <algorithm>
#include <cstring>

#include <QSet>

#include "profile_fields.h"
#include "profile_naming.h"
#include "profile_service.h"
#include "progress.h"
#include "provider_database.h"

namespace {

constexpr const char *defaultDatabase =
    "/usr/share/mobile-broadband-provider-info/serviceproviders.xml";

struct PlannedProfile {
    QByteArray name;
    NAP_PROFILE_S record;
};

void addValue(QList<FieldValue> &values, QStringView path, const QString &text)
{
    if (!text.isEmpty())
        values += FieldValue{findField(path), text};
}

/// Fills a record from an access point, or says what is wrong with it.
FieldCheck fillRecord(NAP_PROFILE_S &record, const AccessPoint &accessPoint)
{
    if (accessPoint.apn.isEmpty())
        return support::Unexpected(QStringLiteral("it has no APN"));
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
    ProvisionPlan(Output &output, bool cutNames) : m_output(output), m_cutNames(cutNames) {}

    void add(const Provider &provider, const AccessPoint &accessPoint, bool isOnlyOne)
    {
        PlannedProfile profile = {};
        if (const auto filled = fillRecord(profile.record, accessPoint); !filled)
            return fail(
                QStringLiteral("%1, access point %2: %3")
                    .arg(provider.displayName(), accessPoint.displayName(), filled.error()));
        const QStringList candidates =
            profileNameCandidates(provider.displayName(), accessPoint.displayName(), isOnlyOne);
        for (const QString &candidate : candidates) {
            if (take(profile, candidate, {}))
                return;
        }
        for (int number = 2; exitStatus != ExitStatus::Unusable; ++number) {
            if (take(profile, candidates.last(), ' ' + QByteArray::number(number)))
                return;
        }
    }

    QList<PlannedProfile> profiles;
    qsizetype storedBefore = 0;
    ExitStatus exitStatus = ExitStatus::Success;

private:
    /// @return true when the profile is done with: planned under that name, found in the
    ///         store, or refused.
    bool take(PlannedProfile &profile, const QString &text, const QByteArray &suffix)
    {
        profile.name = cutProfileName(text, suffix);
        if (!m_cutNames && profile.name != text.toUtf8() + suffix) {
            fail(QStringLiteral("%1: the name is longer than 63 bytes; --all cuts it").arg(text));
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
                worse(exitStatus, reportResult(m_output, QString::fromUtf8(profile.name), status));
            return true;
        }
        m_names += profile.name;
        return true;
    }

    void fail(const QString &problem)
    {
        exitStatus = worse(exitStatus, m_output.problem(problem, ExitStatus::Failed));
    }

    Output &m_output;
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

ExitStatus storeProfiles(Output &output, const ProvisionPlan &plan)
{
    if (const ExitStatus room = checkRoom(output, plan.profiles.size());
        room != ExitStatus::Success)
        return room;
    qsizetype done = 0;
    qsizetype refused = 0;
    ExitStatus exitStatus = ExitStatus::Success;
    {
        const Progress progress(QStringLiteral("Storing profiles"), plan.profiles.size());
        for (const PlannedProfile &profile : plan.profiles) {
            const int status = NAPI_CreateProfile(profile.name.constData(), &profile.record, 0, 0);
            if (status != NAPI_OK)
                exitStatus = reportResult(output, QString::fromUtf8(profile.name), status);
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
    output.line(QStringLiteral("Stored: %1, already there: %2").arg(done).arg(plan.storedBefore));
    return exitStatus;
}

} // namespace

ExitStatus runProvision(Output &output, const Invocation &invocation)
{
    const bool all = invocation.has("all");
    const QString country = invocation.value("country").toLower();
    if (country.isEmpty() && !all)
        return output.problem(
            QStringLiteral("provision needs --country CC, or --all for every country"),
            ExitStatus::WrongUsage);
    const QString fileName = invocation.has("database") ? invocation.value("database")
                                                        : QString::fromLatin1(defaultDatabase);
    const auto providers = parseFile(fileName, parseProviderDatabase);
    if (!providers)
        return output.problem(QStringLiteral("provision: %1").arg(providers.error()),
                              ExitStatus::WrongUsage);

    ProvisionPlan plan(output, all);
    qsizetype matching = 0;
    for (const Provider &provider : *providers) {
        if (!matches(provider, country, invocation.value("provider")))
            continue;
        ++matching;
        if (!all) {
            plan.add(provider, preferredAccessPoint(provider), true);
            continue;
        }
        for (const AccessPoint &accessPoint : provider.accessPoints)
            plan.add(provider, accessPoint, provider.accessPoints.size() == 1);
    }
    if (matching == 0)
        return output.problem(fileName +
                                  QStringLiteral(": no provider with a GSM access point matches"),
                              ExitStatus::Failed);
    if (plan.exitStatus == ExitStatus::Unusable)
        return plan.exitStatus;
    return worse(plan.exitStatus, storeProfiles(output, plan));
}
