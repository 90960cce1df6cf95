// A document of OMA Client Provisioning, in XML or in WBXML: characteristics, each with parameters
// and more characteristics. What they mean is not known here.
#pragma once

#include "access_control.h"
#include "expected.h"
#include "node_uri.h"

#include <QByteArray>
#include <QString>
#include <optional>
#include <vector>

namespace client::bootstrap {

struct Parm {
    QString name;
    std::optional<QString> value; ///< none: a flag
    QString shownAs = {};         ///< what people know it by; empty: its name

    bool operator==(const Parm &) const = default;
};

/// An access control list that the message gives to a node.
struct GivenList {
    NodeUri node; ///< as if that of the characteristic were the root
    AccessControlList acl;

    bool operator==(const GivenList &) const = default;
};

struct Characteristic {
    QString type;
    std::vector<Parm> parms;
    std::vector<Characteristic> parts;
    QString shownAs = {}; ///< what people know it by; empty: its type, and its name
    /// Only what stands for an object of a serialised tree has any.
    std::vector<GivenList> lists = {};

    bool operator==(const Characteristic &) const = default;
};

struct ProvisioningDocument {
    std::vector<Characteristic> characteristics;

    bool operator==(const ProvisioningDocument &) const = default;
};

/// How much of a document is taken before it is refused: several times what a real one needs.
struct ProvisioningLimits {
    qsizetype bytes = 64 * 1024;
    int depth = 8; ///< characteristics inside each other
    int elements = 1000;
    qsizetype nameBytes = 64; ///< of a type and of a name, in UTF-8
    qsizetype valueBytes = 2048;
};

enum class DocumentEncoding { Xml, Wbxml };

/// The encoding that the bytes begin like; none when they begin like neither.
std::optional<DocumentEncoding> recogniseDocument(const QByteArray &bytes);

/// Reads a document in the encoding that its bytes show. The order of characteristics and parms
/// among their kind is kept. Document types with declarations and entities of their own are
/// refused, and so is every element, attribute and token that the document type does not have.
/// @return what is wrong, and where
support::Expected<ProvisioningDocument, QString>
readProvisioningDocument(const QByteArray &bytes, const ProvisioningLimits &limits = {});

} // namespace client::bootstrap
