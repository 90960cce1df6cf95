// What the library of HTTP has for the program that loads it.

#include "http_module.h"

#include <QHostAddress>
#include <QUrl>
#include <utility>

namespace client {

namespace {

support::Expected<std::unique_ptr<Transport>, QString>
createTransport(const HttpTransport::Options &options)
{
    auto transport = HttpTransport::create(options);
    if (!transport)
        return support::Unexpected(transport.error());
    return std::unique_ptr<Transport>(*std::move(transport));
}

bool areSameHost(const QUrl &one, const QUrl &other)
{
    const QHostAddress address(one.host());
    const QHostAddress otherAddress(other.host());
    if (!address.isNull() && !otherAddress.isNull())
        return address.isEqual(otherAddress, QHostAddress::ConvertV4MappedToIPv4);
    const auto nameOf = [](const QUrl &url) {
        const QString host = url.host().toLower();
        return host.endsWith(u'.') ? host.chopped(1) : host;
    };
    return nameOf(one) == nameOf(other);
}

} // namespace

} // namespace client

extern "C" {
extern Q_DECL_EXPORT const client::HttpModule dmclient_http_module;
const client::HttpModule dmclient_http_module = {client::createTransport, client::areSameHost};
}
