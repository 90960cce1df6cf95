#include "secret_item.h"

#include "media_type.h"
#include "secret_leaf.h"

namespace client {

using syncml::CommandKind;

namespace {

bool isSerialisedTree(const support::Boxed<syncml::Meta> &meta)
{
    return meta && meta->type && syncml::isSerialisedTree(*meta->type);
}

} // namespace

Secrecy secrecyOf(const syncml::Command &command, const syncml::Item &item)
{
    const bool carriesValues = command.kind == CommandKind::Add ||
                               command.kind == CommandKind::Replace ||
                               command.kind == CommandKind::Results;
    if (!carriesValues)
        return Secrecy::None;
    const QString address = addressOf(item);
    if (address.isEmpty() || isSecretUri(address))
        return Secrecy::Whole;
    return isSerialisedTree(item.meta) || isSerialisedTree(command.meta) ? Secrecy::Fields
                                                                         : Secrecy::None;
}

} // namespace client
