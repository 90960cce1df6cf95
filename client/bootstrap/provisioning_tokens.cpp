#include "provisioning_tokens.h"

#include <algorithm>
#include <iterator>
#include <span>

namespace client::bootstrap {

namespace {

/// Texts of tokens that follow one another.
struct Run {
    quint8 page;
    quint8 first;
    std::span<const char *const> texts;
};

const char *textOf(std::span<const Run> runs, quint8 page, quint8 token)
{
    const auto run = std::ranges::find_if(runs, [page, token](const Run &one) {
        return one.page == page && token >= one.first &&
               static_cast<std::size_t>(token - one.first) < one.texts.size();
    });
    return run == runs.end() ? nullptr : run->texts[token - run->first];
}

// ---- name="..." ----------------------------------------------------------------------------------

constexpr const char *connectivityNames[] = {"NAME",
                                             "NAP-ADDRESS",
                                             "NAP-ADDRTYPE",
                                             "CALLTYPE",
                                             "VALIDUNTIL",
                                             "AUTHTYPE",
                                             "AUTHNAME",
                                             "AUTHSECRET",
                                             "LINGER",
                                             "BEARER",
                                             "NAPID",
                                             "COUNTRY",
                                             "NETWORK",
                                             "INTERNET",
                                             "PROXY-ID",
                                             "PROXY-PROVIDER-ID",
                                             "DOMAIN",
                                             "PROVURL",
                                             "PXAUTH-TYPE",
                                             "PXAUTH-ID",
                                             "PXAUTH-PW",
                                             "STARTPAGE",
                                             "BASAUTH-ID",
                                             "BASAUTH-PW",
                                             "PUSHENABLED",
                                             "PXADDR",
                                             "PXADDRTYPE",
                                             "TO-NAPID",
                                             "PORTNBR",
                                             "SERVICE",
                                             "LINKSPEED",
                                             "DNLINKSPEED",
                                             "LOCAL-ADDR",
                                             "LOCAL-ADDRTYPE",
                                             "CONTEXT-ALLOW",
                                             "TRUST",
                                             "MASTER",
                                             "SID",
                                             "SOC",
                                             "WSP-VERSION",
                                             "PHYSICAL-PROXY-ID",
                                             "CLIENT-ID",
                                             "DELIVERY-ERR-SDU",
                                             "DELIVERY-ORDER",
                                             "TRAFFIC-CLASS",
                                             "MAX-SDU-SIZE",
                                             "MAX-BITRATE-UPLINK",
                                             "MAX-BITRATE-DNLINK",
                                             "RESIDUAL-BER",
                                             "SDU-ERROR-RATIO",
                                             "TRAFFIC-HANDL-PRIO",
                                             "TRANSFER-DELAY",
                                             "GUARANTEED-BITRATE-UPLINK",
                                             "GUARANTEED-BITRATE-DNLINK",
                                             "PXADDR-FQDN",
                                             "PROXY-PW",
                                             "PPGAUTH-TYPE"};
constexpr const char *laterConnectivityNames[] = {
    "PULLENABLED", "DNS-ADDR", "MAX-NUM-RETRY", "FIRST-RETRY-TIMEOUT", "REREG-THRESHOLD", "T-BIT"};
constexpr const char *authEntityNames[] = {"AUTH-ENTITY", "SPI"};
constexpr const char *applicationNameOnly[] = {"NAME"};
constexpr const char *internetName[] = {"INTERNET"};
constexpr const char *startPageName[] = {"STARTPAGE"};
constexpr const char *linkNames[] = {"TO-NAPID", "PORTNBR", "SERVICE"};
constexpr const char *applicationNames[] = {
    "AACCEPT",  "AAUTHDATA", "AAUTHLEVEL", "AAUTHNAME",   "AAUTHSECRET", "AAUTHTYPE", "ADDR",
    "ADDRTYPE", "APPID",     "APROTOCOL",  "PROVIDER-ID", "TO-PROXY",    "URI",       "RULE"};

constexpr Run nameRuns[] = {
    {0, 0x07, connectivityNames},   {0, 0x47, laterConnectivityNames}, {0, 0x4E, authEntityNames},
    {1, 0x07, applicationNameOnly}, {1, 0x14, internetName},           {1, 0x1C, startPageName},
    {1, 0x22, linkNames},           {1, 0x2E, applicationNames},
};

// ---- type="..." ----------------------------------------------------------------------------------

constexpr const char *connectivityTypes[] = {
    "PXLOGICAL",    "PXPHYSICAL",     "PORT",       "VALIDITY",    "NAPDEF", "BOOTSTRAP",
    "VENDORCONFIG", "CLIENTIDENTITY", "PXAUTHINFO", "NAPAUTHINFO", "ACCESS"};
constexpr const char *portType[] = {"PORT"};
constexpr const char *applicationTypes[] = {"APPLICATION", "APPADDR", "APPAUTH", "CLIENTIDENTITY",
                                            "RESOURCE"};

constexpr Run typeRuns[] = {
    {0, 0x51, connectivityTypes},
    {1, 0x53, portType},
    {1, 0x55, applicationTypes},
};

// ---- Others --------------------------------------------------------------------------------------

struct PlainStart {
    quint8 token;
    AttributeStart start;
    bool isOnEveryPage;
};

constexpr PlainStart plainStarts[] = {
    {0x05, {"name", ""}, true},        {0x06, {"value", ""}, true}, {0x45, {"version", ""}, false},
    {0x46, {"version", "1.0"}, false}, {0x50, {"type", ""}, true},
};

// ---- Values --------------------------------------------------------------------------------------

constexpr const char *addressTypes[] = {"IPV4", "IPV6",  "E164",       "ALPHA",
                                        "APN",  "SCODE", "TETRA-ITSI", "MAN"};
constexpr const char *callTypes[] = {"ANALOG-MODEM",    "V.120",
                                     "V.110",           "X.31",
                                     "BIT-TRANSPARENT", "DIRECT-ASYNCHRONOUS-DATA-SERVICE"};
constexpr const char *authTypes[] = {"PAP", "CHAP", "HTTP-BASIC", "HTTP-DIGEST", "WTLS-SS", "MD5"};
constexpr const char *bearerValues[] = {"GSM-USSD",
                                        "GSM-SMS",
                                        "ANSI-136-GUTS",
                                        "IS-95-CDMA-SMS",
                                        "IS-95-CDMA-CSD",
                                        "IS-95-CDMA-PACKET",
                                        "ANSI-136-CSD",
                                        "ANSI-136-GPRS",
                                        "GSM-CSD",
                                        "GSM-GPRS",
                                        "AMPS-CDPD",
                                        "PDC-CSD",
                                        "PDC-PACKET",
                                        "IDEN-SMS",
                                        "IDEN-CSD",
                                        "IDEN-PACKET",
                                        "FLEX/REFLEX",
                                        "PHS-SMS",
                                        "PHS-CSD",
                                        "TETRA-SDS",
                                        "TETRA-PACKET",
                                        "ANSI-136-GHOST",
                                        "MOBITEX-MPAK",
                                        "CDMA2000-1X-SIMPLE-IP",
                                        "CDMA2000-1X-MOBILE-IP"};
constexpr const char *linkSpeeds[] = {"AUTOBAUDING"};
constexpr const char *serviceValues[] = {
    "CL-WSP",     "CO-WSP",      "CL-SEC-WSP",      "CO-SEC-WSP",  "CL-SEC-WTA",
    "CO-SEC-WTA", "OTA-HTTP-TO", "OTA-HTTP-TLS-TO", "OTA-HTTP-PO", "OTA-HTTP-TLS-PO"};
constexpr const char *entityValues[] = {"AAA", "HA"};
constexpr const char *applicationAddressTypes[] = {"IPV6", "E164", "ALPHA"};
constexpr const char *authLevels[] = {"APPSRV", "OBEX"};
// The published table has these four at 0x80, where WBXML has tokens of its own.
constexpr const char *applicationAuthTypes[] = {",", "HTTP-", "BASIC", "DIGEST"};

constexpr Run valueRuns[] = {
    {0, 0x85, addressTypes}, {0, 0x90, callTypes},
    {0, 0x9A, authTypes},    {0, 0xA2, bearerValues},
    {0, 0xC5, linkSpeeds},   {0, 0xCA, serviceValues},
    {0, 0xE0, entityValues}, {1, 0x86, applicationAddressTypes},
    {1, 0x8D, authLevels},   {1, 0x90, applicationAuthTypes},
    {1, 0xE0, entityValues},
};

} // namespace

std::optional<AttributeStart> attributeStart(quint8 page, quint8 token)
{
    const auto *const plain =
        std::ranges::find_if(plainStarts, [page, token](const PlainStart &row) {
            return row.token == token && (row.isOnEveryPage || page == 0);
        });
    if (plain != std::end(plainStarts))
        return plain->start;
    if (const char *const text = textOf(nameRuns, page, token))
        return AttributeStart{"name", text};
    if (const char *const text = textOf(typeRuns, page, token))
        return AttributeStart{"type", text};
    return std::nullopt;
}

const char *attributeValue(quint8 page, quint8 token)
{
    return textOf(valueRuns, page, token);
}

} // namespace client::bootstrap
