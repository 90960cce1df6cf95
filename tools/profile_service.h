// The calls of the profile service with the types of napictl.
#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include "napi.h"
#include "output.h"

using commandline::ExitStatus;
using commandline::Output;

/// @return what a result of the service means, for people.
QString serviceText(int status);

/// Prints "subject: meaning of the result" when that is a failure. @return the exit status that
/// belongs to it.
ExitStatus reportResult(Output &output, const QString &subject, int status);

/// Checks that the store takes that many more profiles, and reports why not.
/// @return success, or the exit status of a program that cannot store them
ExitStatus checkRoom(Output &output, qsizetype newProfiles);

/// A profile as the service has it.
struct StoredProfile {
    QString name;
    unsigned int id = 0;
    NAP_PROFILE_S record = {};
};

/// Reads a profile by its name. @return a result of the service.
int readProfile(const QString &name, StoredProfile &profile);

/// Whether the state directory has a store. Nothing is made for that.
bool isStoreThere();

/// Lists the names, as UTF-8, in the order of the IDs. @return a result of the service.
int listProfileNames(QList<QByteArray> &names);
