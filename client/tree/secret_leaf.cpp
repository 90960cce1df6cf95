#include "secret_leaf.h"

#include "node_uri.h"

#include <QList>
#include <algorithm>

namespace client {

namespace {

constexpr const char *secretLeafNames[] = {"AuthPw", "AAuthSecret", "AAuthData"};

/// The name that a word gives: of a field, or of the node at the end of an address.
QByteArray nameIn(const QByteArray &word)
{
    QByteArray name = word.split('=').front();
    while (name.endsWith('/'))
        name.chop(1);
    return name.mid(name.lastIndexOf('/') + 1);
}

} // namespace

bool isSecretLeaf(const QByteArray &name)
{
    return std::ranges::any_of(secretLeafNames,
                               [&name](const char *secret) { return name == secret; });
}

bool isMasked(const QByteArray &leafName, const QByteArray &value)
{
    return isSecretLeaf(leafName) && !value.isEmpty();
}

bool isSecretUri(const QString &uri)
{
    const Result<Address> address = parseAddress(uri);
    return address && isSecretLeaf(address->node.name());
}

bool mentionsSecret(const QString &word)
{
    const QByteArray plain = QByteArray::fromPercentEncoding(word.toUtf8()).toLower();
    if (!plain.startsWith("--") && nameIn(plain).contains("secret"))
        return true;
    return std::ranges::any_of(secretLeafNames, [&plain](const char *secret) {
        return plain.contains(QByteArray(secret).toLower());
    });
}

} // namespace client
