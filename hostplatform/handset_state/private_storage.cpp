#include "private_storage.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace handset_state {

namespace {

std::string userName(uid_t user)
{
    const passwd *const entry = ::getpwuid(user);
    return !entry ? "user " + std::to_string(user) : entry->pw_name;
}

Refusal refuse(const std::string &path, int error)
{
    return {error, path, std::strerror(error)};
}

Refusal refuse(const std::string &path, const std::string &reason)
{
    return {EPERM, path, reason};
}

Refusal refuseToMake(const std::string &path, int error)
{
    return {error, path, std::string("it cannot be made: ") + std::strerror(error)};
}

Refusal refuseOwner(const std::string &path, uid_t owner)
{
    return refuse(path, "it belongs to " + userName(owner) + ", not to " + userName(::geteuid()));
}

/// What a path names.
Refusal look(const std::string &path, struct stat &status, int flags)
{
    return ::fstatat(AT_FDCWD, path.c_str(), &status, flags) == 0 ? Refusal() : refuse(path, errno);
}

std::string folderOf(const std::string &path)
{
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
}

const char *nameIn(const std::string &path)
{
    return path.c_str() + (path.rfind('/') + 1); // the whole path when there is no slash
}

// ---- What lies above a state directory -----------------------------------------------------------

/// As many links as the kernel follows.
constexpr int mostLinks = 40;

/// Whether a folder's group is its owner's private one, which nobody else is in.
bool isPrivateGroup(const std::string &folder, const struct stat &status)
{
    // Below an access list the group's bits are those of all whom the list names.
    if (::getxattr(folder.c_str(), "system.posix_acl_access", nullptr, 0) >= 0)
        return false;
    const passwd *const owner = ::getpwuid(status.st_uid);
    const group *const members = ::getgrgid(status.st_gid);
    if (!owner || !members || owner->pw_gid != status.st_gid ||
        std::strcmp(owner->pw_name, members->gr_name) != 0)
        return false;
    for (char **member = members->gr_mem; *member; ++member)
        if (std::strcmp(*member, owner->pw_name) != 0)
            return false;
    return true;
}

/// Whether a user can exchange everything anyway: root, who has another number in a user namespace
/// that does not know it, but owns the root folder there, too.
bool isSystem(uid_t user)
{
    struct stat root = {};
    return user == 0 || (::stat("/", &root) == 0 && user == root.st_uid);
}

/// Whether somebody else than root could put another file or folder in the place of what the path
/// names.
/// @param entry  what the path names
Refusal checkPlace(const std::string &path, const struct stat &entry)
{
    // Whoever owns a folder can exchange what is in it, and a link leads where its owner wants.
    if (entry.st_uid != ::geteuid() && !isSystem(entry.st_uid))
        return refuseOwner(path, entry.st_uid);
    const std::string folder = folderOf(path);
    struct stat status = {};
    if (Refusal refusal = look(folder, status, 0))
        return refusal;
    if ((status.st_mode & S_ISVTX) != 0)
        return {};
    const bool isGroups = (status.st_mode & S_IWGRP) != 0 && !isPrivateGroup(folder, status);
    if ((status.st_mode & S_IWOTH) == 0 && !isGroups)
        return {};
    const std::string who = (status.st_mode & S_IWOTH) != 0 ? "everybody" : "a group";
    return refuse(path, who + " can write to " + folder + " and put something else in its place");
}

/// What a link says, as an absolute path.
std::string targetOf(const std::string &link)
{
    char target[PATH_MAX];
    const ssize_t length = ::readlink(link.c_str(), target, sizeof target);
    const std::string text(target, length < 0 ? 0 : static_cast<std::size_t>(length));
    return text.rfind('/', 0) == 0 ? text : folderOf(link) + '/' + text;
}

Refusal checkPath(const std::string &path, int &linksLeft);

/// Checks one name of a path, and all that the path leads through where the name is a link.
/// @param linksLeft  how many links may still be followed
Refusal checkPart(const std::string &part, int &linksLeft)
{
    struct stat entry = {};
    if (Refusal refusal = look(part, entry, AT_SYMLINK_NOFOLLOW))
        return refusal;
    if (Refusal refusal = checkPlace(part, entry))
        return refusal;
    if (!S_ISLNK(entry.st_mode))
        return {};
    if (linksLeft-- == 0)
        return refuse(part, ELOOP);
    return checkPath(targetOf(part), linksLeft);
}

/// Checks an absolute path from the root down.
Refusal checkPath(const std::string &path, int &linksLeft)
{
    for (std::size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
        if (Refusal refusal = checkPart(path.substr(0, end), linksLeft))
            return refusal;
        if (end == std::string::npos)
            return {};
    }
}

/// Checks an absolute path likewise, and makes what is missing.
Refusal makePath(const std::string &path)
{
    int linksLeft = mostLinks;
    for (std::size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
        const std::string part = path.substr(0, end);
        if (::mkdir(part.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
            // On a disk that cannot be written, what is there can still be read.
            const int error = errno;
            if (::access(part.c_str(), F_OK) != 0)
                return refuseToMake(part, error);
        }
        if (Refusal refusal = checkPart(part, linksLeft))
            return refusal;
        if (end == std::string::npos)
            return {};
    }
}

// ---- Folders -------------------------------------------------------------------------------------

/// Whether it belongs to this user, and nobody else can write to it.
/// @param othersBits  which of the permissions let somebody else write to it
Refusal checkOwner(const std::string &path, const struct stat &status, mode_t othersBits)
{
    if (status.st_uid != ::geteuid())
        return refuseOwner(path, status.st_uid);
    if ((status.st_mode & othersBits) != 0)
        return refuse(path, "other users can write to it; chmod go-w takes that away");
    return {};
}

Refusal checkFolderStatus(const std::string &path, const struct stat &status)
{
    if (S_ISLNK(status.st_mode))
        return refuse(path, "it is a symbolic link");
    if (!S_ISDIR(status.st_mode))
        return refuse(path, ENOTDIR);
    return checkOwner(path, status, S_IWGRP | S_IWOTH);
}

/// A folder that is held open while it is used, and why it must not be.
struct OpenFolder {
    OpenFolder(const std::string &path, int flags)
        : descriptor(::open(path.c_str(), O_PATH | O_CLOEXEC | flags))
    {
        const bool isOpen = descriptor && ::fstat(descriptor.get(), &status) == 0;
        refusal = isOpen ? checkFolderStatus(path, status) : refuse(path, errno);
    }

    FileDescriptor descriptor;
    struct stat status = {};
    Refusal refusal;
};

// ---- Files ---------------------------------------------------------------------------------------

Refusal checkFileStatus(const std::string &path, const struct stat &folder,
                        const struct stat &status)
{
    if (S_ISLNK(status.st_mode))
        return refuse(path, "it is a symbolic link");
    if (S_ISDIR(status.st_mode))
        return refuse(path, EISDIR);
    if (!S_ISREG(status.st_mode))
        return {EINVAL, path, "it is not a regular file"};
    // The write bits count for those who can reach the file, which the folder's search bits say.
    const mode_t reach = (folder.st_mode & (S_IXGRP | S_IXOTH)) << 1U;
    return checkOwner(path, status, reach & (S_IWGRP | S_IWOTH));
}

} // namespace

Refusal makeStateDirectory(const std::string &path)
{
    if (!path.starts_with('/'))
        return {ENOENT, path, "it is relative to a working directory that is gone"};
    if (Refusal refusal = makePath(path))
        return refusal;
    return checkFolder(path);
}

Refusal makeFolder(const std::string &path)
{
    if (::mkdir(path.c_str(), S_IRWXU) != 0 && errno != EEXIST)
        return refuseToMake(path, errno);
    return OpenFolder(path, O_NOFOLLOW).refusal;
}

Refusal checkFolder(const std::string &path)
{
    return OpenFolder(path, 0).refusal;
}

Refusal checkOwnFolder(const std::string &path)
{
    return OpenFolder(path, O_NOFOLLOW).refusal;
}

FileDescriptor openFile(const std::string &path, int flags, Refusal &refusal)
{
    const OpenFolder folder(folderOf(path), 0);
    refusal = folder.refusal;
    if (refusal)
        return {};
    constexpr int always = O_NOFOLLOW | O_CLOEXEC | O_NOCTTY | O_NONBLOCK; // not to wait for a pipe
    const char *const name = nameIn(path);
    FileDescriptor file(::openat(folder.descriptor.get(), name, flags | always, S_IRUSR | S_IWUSR));
    const int error = errno;
    // Of what cannot be opened, such as a link, the kind says more than the error.
    struct stat status = {};
    const bool isThere =
        file ? ::fstat(file.get(), &status) == 0
             : ::fstatat(folder.descriptor.get(), name, &status, AT_SYMLINK_NOFOLLOW) == 0;
    if (isThere)
        refusal = checkFileStatus(path, folder.status, status);
    if (!refusal && (!file || !isThere))
        refusal = refuse(path, error);
    return refusal ? FileDescriptor() : std::move(file);
}

Refusal checkFile(const std::string &path)
{
    const OpenFolder folder(folderOf(path), 0);
    struct stat status = {};
    if (folder.refusal)
        return folder.refusal;
    if (::fstatat(folder.descriptor.get(), nameIn(path), &status, AT_SYMLINK_NOFOLLOW) == 0)
        return checkFileStatus(path, folder.status, status);
    return errno == ENOENT ? Refusal() : refuse(path, errno);
}

} // namespace handset_state
