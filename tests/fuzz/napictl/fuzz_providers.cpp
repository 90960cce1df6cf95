// Any bytes as an operators' database: every access point that is read gets a usable name, and its
// texts are set as fields or refused.
#include "napi.h"
#include "profile_fields.h"
#include "profile_naming.h"
#include "provider_database.h"

#include <QStringDecoder>

#include <cstdint>
#include <cstdlib>

namespace {

void checkName(const QByteArray &name)
{
    QStringDecoder decoder(QStringDecoder::Utf8);
    const QString text = decoder.decode(name);
    if (name.size() >= NAPI_NAME_SIZE || decoder.hasError())
        std::abort(); // cut inside a character, or not cut
}

void checkAccessPoint(const Provider &provider, const AccessPoint &accessPoint)
{
    for (const bool isOnlyOne : {false, true})
        for (const QString &candidate :
             profileNameCandidates(provider.displayName(), accessPoint.displayName(), isOnlyOne)) {
            checkName(cutProfileName(candidate, {}));
            checkName(cutProfileName(candidate, " 12"));
        }
    NAP_PROFILE_S record{};
    const auto set = [&record](QStringView path, const QString &text) {
        if (!setFields(record, {FieldValue{findField(path), text}}))
            return;
        if (!recordFaults(record).isEmpty())
            std::abort();
    };
    set(u"gprs.address", accessPoint.apn);
    set(u"gprs.authId", accessPoint.userName);
    set(u"gprs.authPassword", accessPoint.password);
    for (const QString &server : accessPoint.dnsServers)
        set(u"gprs.dns1", server);
    set(u"proxy1.address", accessPoint.mmsProxy);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const auto providers = parseProviderDatabase(
        QByteArray(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size)));
    if (!providers)
        return 0;
    for (const Provider &provider : *providers)
        for (const AccessPoint &accessPoint : provider.accessPoints)
            checkAccessPoint(provider, accessPoint);
    return 0;
}
