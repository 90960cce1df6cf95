#include "secret_leaf.h"

#include "node_uri.h"

#include <algorithm>
#include <iterator>

namespace client {

namespace {

constexpr const char *secretLeafNames[] = {"AuthPw", "AAuthSecret", "AAuthData"};

} // namespace

bool isSecretLeaf(const QByteArray &name)
{
    return std::any_of(std::begin(secretLeafNames), std::end(secretLeafNames),
                       [&name](const char *secret) { return name == secret; });
}

bool isSecretUri(const QString &uri)
{
    const Result<Address> address = parseAddress(uri, UriLimits());
    return address && isSecretLeaf(address->node.name());
}

} // namespace client
