// Which nodes hold secrets.
#pragma once

#include <QByteArray>
#include <QString>

namespace client {

/// What people see in place of a secret.
inline constexpr char secretMask[] = "********";

/// Whether leaves of that name hold passwords or other secrets, which are not shown unless somebody
/// asks for them.
bool isSecretLeaf(const QByteArray &name);

/// Whether the node of a URI is such a leaf.
bool isSecretUri(const QString &uri);

} // namespace client
