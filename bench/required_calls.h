// The floor: the calls that an operation cannot do without, made from plain C++ with everything
// known in advance. Each function makes exactly the outside calls that the plug-in makes for the
// operation of the same name, in the same order, and nothing else.
#pragma once

#include "napi.h"
#include "setup_set_manager.h"

#include <QString>

#include <memory>
#include <string>
#include <vector>

namespace bench {

/// One mapping file as its tree keeps it open.
class MappingFile {
public:
    enum Kind { Napdef, Proxy };
    explicit MappingFile(Kind kind);

    SETUP_SET_Manager &Manager() { return *m_manager; }
    const QString &Group() const { return m_group; }
    Kind GetKind() const { return m_kind; }

private:
    Kind m_kind;
    QString m_group;
    std::unique_ptr<SETUP_SET_Manager> m_manager;
};

/// What the floor of an operation on one profile knows in advance.
struct KnownProfile {
    unsigned int id = 0;
    std::string name;
    QString nodeName;
    QString idKey; ///< key of the mapping file that its operations change
};

KnownProfile LookUpProfile(const char *name, const QString &suffix);

void RequiredForMount(MappingFile::Kind kind);
void RequiredForReadingRecordLeaf(const KnownProfile &profile);
void RequiredForWritingRecordLeaf(const KnownProfile &profile, const NAP_PROFILE_S &record);
void RequiredForWritingBearer(MappingFile &file, KnownProfile &profile, const QString &newKey,
                              const NAP_PROFILE_S &record);
void RequiredForWritingConn(MappingFile &file, const KnownProfile &profile, const QString &key,
                            const QString &value);
/// @return the profile that was created.
KnownProfile RequiredForAddingProfile(MappingFile &file, const std::string &name);
void RequiredForDeletingProfile(MappingFile &file, const KnownProfile &profile);
void RequiredForRenamingProfile(MappingFile &file, KnownProfile &profile, const QString &newName);

} // namespace bench
