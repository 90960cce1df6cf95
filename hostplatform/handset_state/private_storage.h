// Folders and files of a handset's state, which nobody but their owner may touch.
#pragma once

#include "file_descriptor.h"

#include <string>

namespace handset_state {

/// Why a folder or a file cannot be used.
struct Refusal {
    int error = 0;      ///< errno value; EPERM for what others own or can change; 0: not refused
    std::string path;   ///< what is refused: the path that was asked for, or one above it
    std::string reason; ///< such as "it belongs to alice, not to root"

    explicit operator bool() const { return error != 0; }
    /// "cannot use PATH: REASON"
    std::string text() const { return "cannot use " + path + ": " + reason; }
};

/// Makes a state directory and the missing ones above it, mode 0700, and checks it: it belongs to
/// this user, nobody else can write to it, and nobody but root can put another in its place. It may
/// be a symbolic link of this user's or of root's.
/// @param path  as of absolutePath(); a relative one is refused
Refusal makeStateDirectory(const std::string &path);

/// Makes a folder of a state directory, mode 0700, and checks it likewise; a symbolic link is
/// refused.
Refusal makeFolder(const std::string &path);

/// Whether what is written into a folder of the state stays with this user.
Refusal checkFolder(const std::string &path);

/// Whether a folder is as makeFolder leaves it.
/// @return error is ENOENT when there is none
Refusal checkOwnFolder(const std::string &path);

/// Opens a file in a folder of the state. The folder has to pass checkFolder; the file has to be a
/// regular one of this user that nobody else can write to. A symbolic link is refused.
/// @param flags  as of open(2); what is created has mode 0600
/// @return none with the reason in refusal: error is ENOENT when there is no such file
FileDescriptor openFile(const std::string &path, int flags, Refusal &refusal);

/// Whether a file that somebody else's code will open by its path may be used. A missing one may.
Refusal checkFile(const std::string &path);

} // namespace handset_state
