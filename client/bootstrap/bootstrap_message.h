// A message that is to set up a device, however it came: as a WAP push, or as the document alone.
// Start here.
#pragma once

#include "message_mac.h"
#include "provisioning_plan.h"

namespace client::bootstrap {

struct BootstrapMessage {
    /// What its sender has to have known.
    struct Proof {
        MacKind kind = MacKind::Pin;
        QByteArray mac;
    };

    Profile profile = Profile::ClientProvisioning;
    QByteArray document; ///< what a MAC is of
    std::optional<Proof> proof;

    /// Whether the proof is right. Must not be called without one.
    bool isProvedBy(const MacSecrets &secrets) const;
};

/// Largest message that is read, in bytes.
inline constexpr qsizetype largestBootstrapMessage = 64 * 1024;

/// Recognises a message by its content. Of a push it reads the header, and of its document nothing:
/// that is not to be looked at before its proof was. A document alone, which has no proof, shows by
/// its beginning which profile it is of.
/// @return what is wrong with it, or why it is no bootstrap message
support::Expected<BootstrapMessage, QString> readBootstrapMessage(const QByteArray &bytes);

/// What the message would make of this device.
/// @param limits  of the tree's addresses
/// @return why its document cannot be read or applied
support::Expected<ProvisioningPlan, QString> planOf(const BootstrapMessage &message,
                                                    const UriLimits &limits);

} // namespace client::bootstrap
