// Which nodes hold secrets.
#pragma once

#include "secret_mask.h"

#include <QByteArray>
#include <QString>

namespace client {

using support::secretMask;

/// Whether leaves of that name hold passwords or other secrets, which are not shown unless somebody
/// asks for them.
bool isSecretLeaf(const QByteArray &name);

/// Whether the mask stands for that leaf's value where secrets are not asked for. An empty password
/// is not a secret, and worth seeing.
bool isMasked(const QByteArray &leafName, const QByteArray &value);

/// Whether the node of a URI is such a leaf.
bool isSecretUri(const QString &uri);

/// Whether a word of a command may name what holds a secret, or try to: with a name of such a leaf
/// anywhere, or with "secret" in what comes before "=" or in the last name of an address, escaped
/// or in another case. An option names none.
bool mentionsSecret(const QString &word);

} // namespace client
