// Where the state lies, and what is refused because somebody else could have made or can change it.
#include "private_storage.h"
#include "state_location.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <grp.h>
#include <gtest/gtest.h>
#include <iterator>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "child_process.h"

namespace {

namespace fs = std::filesystem;
using namespace handset_state;

// ---- Where ---------------------------------------------------------------------------------------

/// The location in an environment with these variables only; null leaves one out.
std::string locationWith(const char *state, const char *stateHome, const char *home)
{
    std::string found;
    const struct {
        const char *name;
        const char *value;
    } variables[] = {{"KUB_STATE_DIR", state}, {"XDG_STATE_HOME", stateHome}, {"HOME", home}};
    std::string before[std::size(variables)];
    for (std::size_t i = 0; i < std::size(variables); ++i) {
        const char *const old = std::getenv(variables[i].name);
        before[i] = old == nullptr ? "" : old;
        if (variables[i].value == nullptr)
            ::unsetenv(variables[i].name);
        else
            ::setenv(variables[i].name, variables[i].value, 1);
    }
    found = location();
    for (std::size_t i = 0; i < std::size(variables); ++i)
        if (before[i].empty())
            ::unsetenv(variables[i].name);
        else
            ::setenv(variables[i].name, before[i].c_str(), 1);
    return found;
}

TEST(StateLocation, FollowsTheEnvironment)
{
    EXPECT_EQ(locationWith("/srv/x", "/var/x", "/home/x"), "/srv/x");
    EXPECT_EQ(locationWith("/srv//x/../y/", nullptr, nullptr), "/srv/y");
    EXPECT_EQ(locationWith("x", nullptr, nullptr), fs::current_path().string() + "/x");
    EXPECT_EQ(locationWith("", "/var/x", "/home/x"), "/var/x/kub-dm");
    EXPECT_EQ(locationWith(nullptr, "relative", "/home/x"), "/home/x/.local/state/kub-dm");
    EXPECT_EQ(locationWith(nullptr, nullptr, "/home/x"), "/home/x/.local/state/kub-dm");
}

TEST(StateLocation, WithoutHomeIsTheHomeOfTheUserDatabase)
{
    const passwd *const user = ::getpwuid(::geteuid());
    ASSERT_NE(user, nullptr);
    const std::string expected = fs::path(user->pw_dir) / ".local/state/kub-dm";
    EXPECT_EQ(locationWith(nullptr, nullptr, nullptr), expected);
    EXPECT_EQ(locationWith(nullptr, nullptr, ""), expected);
    EXPECT_EQ(locationWith(nullptr, nullptr, "relative"), expected);
}

TEST(StateLocation, OfAWorkingDirectoryThatIsGoneIsRefused)
{
    const ChildOutcome outcome = runInChild([] {
        char pattern[] = "/tmp/private-storage-XXXXXX";
        ASSERT_NE(::mkdtemp(pattern), nullptr);
        ASSERT_EQ(::chdir(pattern), 0);
        ASSERT_EQ(::rmdir(pattern), 0);
        for (const char *const chosen : {"state", "../private-storage-elsewhere", "."}) {
            EXPECT_EQ(locationWith(chosen, nullptr, nullptr), chosen);
            EXPECT_EQ(makeStateDirectory(chosen).text(),
                      "cannot use " + std::string(chosen) +
                          ": it is relative to a working directory that is gone");
        }
        EXPECT_FALSE(fs::exists("/tmp/private-storage-elsewhere"));
    });
    EXPECT_CHILD_PASSES(outcome);
}

// ---- Open files ----------------------------------------------------------------------------------

bool isOpen(int descriptor)
{
    return ::fcntl(descriptor, F_GETFD) >= 0;
}

TEST(OpenFile, IsClosedWithItsLastOwner)
{
    FileDescriptor none;
    EXPECT_FALSE(none);
    EXPECT_TRUE(none.close());
    FileDescriptor first(::open("/dev/null", O_WRONLY));
    const int descriptor = first.get();
    {
        FileDescriptor second = std::move(first);
        EXPECT_EQ(second.get(), descriptor);
        EXPECT_FALSE(first);
        none = std::move(second);
    }
    EXPECT_TRUE(isOpen(descriptor));
    none = FileDescriptor();
    EXPECT_FALSE(isOpen(descriptor));
}

TEST(OpenFile, WritesAllOrSaysWhyNot)
{
    int ends[2] = {};
    ASSERT_EQ(::pipe(ends), 0);
    const FileDescriptor reader(ends[0]);
    FileDescriptor writer(ends[1]);
    const std::string text(100, 'x');
    EXPECT_TRUE(writer.writeAll(text));
    std::string received(200, '\0');
    EXPECT_EQ(::read(reader.get(), received.data(), received.size()), 100);
    EXPECT_EQ(received.substr(0, 100), text);

    FileDescriptor full(::open("/dev/full", O_WRONLY));
    EXPECT_FALSE(full.writeAll(text));
    EXPECT_EQ(errno, ENOSPC);
}

// ---- Folders -------------------------------------------------------------------------------------

class PrivateStorage : public testing::Test {
protected:
    PrivateStorage()
    {
        char pattern[] = "/tmp/private-storage-XXXXXX";
        root = ::mkdtemp(pattern);
        state = root + "/a/state";
        file = root + "/file";
    }
    ~PrivateStorage() override { fs::remove_all(root); }

    static unsigned modeOf(const std::string &path)
    {
        struct stat status = {};
        return ::lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777U : 0;
    }
    static std::string open(const std::string &path, int flags = O_RDWR)
    {
        Refusal refusal;
        const FileDescriptor opened = openFile(path, flags, refusal);
        EXPECT_EQ(static_cast<bool>(opened), !refusal);
        return refusal ? refusal.text() : "opened";
    }
    static gid_t nobodysGroup()
    {
        const passwd *const nobody = ::getpwnam("nobody");
        return nobody == nullptr ? 65534 : nobody->pw_gid;
    }
    static void write(const std::string &path) { std::ofstream(path) << "x"; }

    std::string root;
    std::string state;
    std::string file;
};

TEST_F(PrivateStorage, WhatIsMissingIsMadeForItsOwnerOnlyWhateverTheUmask)
{
    const mode_t before = ::umask(0);
    EXPECT_FALSE(makeStateDirectory(state)) << makeStateDirectory(state).text();
    EXPECT_FALSE(makeFolder(state + "/client"));
    EXPECT_EQ(open(state + "/client/new", O_RDWR | O_CREAT), "opened");
    ::umask(before);
    for (const std::string &made : {root + "/a", state, state + "/client"})
        EXPECT_EQ(modeOf(made), 0700U) << made;
    EXPECT_EQ(modeOf(state + "/client/new"), 0600U);
}

TEST_F(PrivateStorage, FolderThatOthersCanWriteToIsRefused)
{
    fs::create_directories(state + "/client");
    for (const unsigned mode : {0770U, 0702U, 01777U}) {
        ::chmod(state.c_str(), mode);
        const Refusal refusal = makeStateDirectory(state);
        EXPECT_EQ(refusal.error, EPERM) << mode;
        EXPECT_EQ(refusal.text(), "cannot use " + state +
                                      ": other users can write to it; chmod go-w takes that away");
        EXPECT_TRUE(checkFolder(state));
        EXPECT_EQ(open(state + "/file", O_RDWR | O_CREAT), refusal.text());
        EXPECT_EQ(checkFile(state + "/file").text(), refusal.text());
        EXPECT_FALSE(fs::exists(state + "/file"));
    }
    ::chmod(state.c_str(), 0755);
    EXPECT_FALSE(makeStateDirectory(state)) << "others may read what the owner lets them read";
    ::chmod((state + "/client").c_str(), 0775);
    EXPECT_TRUE(makeFolder(state + "/client"));
}

TEST_F(PrivateStorage, WhatBelongsToAnotherUserIsRefused)
{
    fs::create_directories(state + "/client");
    write(file);
    if (!giveAway(state + "/client") || !giveAway(file))
        GTEST_SKIP() << "needs root, to give files to another user";
    const std::string reason = ": it belongs to nobody, not to root";
    EXPECT_EQ(makeFolder(state + "/client").text(), "cannot use " + state + "/client" + reason);
    EXPECT_EQ(open(file), "cannot use " + file + reason);
    EXPECT_EQ(checkFile(file).text(), "cannot use " + file + reason);
    ASSERT_TRUE(giveAway(state));
    EXPECT_EQ(makeStateDirectory(state).text(), "cannot use " + state + reason);
}

TEST_F(PrivateStorage, FolderInAPlaceWhereEverybodyCouldPutAnotherIsRefused)
{
    fs::create_directories(state);
    ::chmod((root + "/a").c_str(), 0777);
    EXPECT_EQ(makeStateDirectory(state).text(), "cannot use " + state +
                                                    ": everybody can write to " + root +
                                                    "/a and put something else in its place");
    ::chmod((root + "/a").c_str(), 01777);
    EXPECT_FALSE(makeStateDirectory(state)) << "as in /tmp, others cannot take its place";
}

TEST_F(PrivateStorage, PathThroughAFolderOfAnotherUserInAPublicPlaceIsRefused)
{
    fs::create_directories(state);
    ::chmod(root.c_str(), 01777);
    if (!giveAway(root + "/a"))
        GTEST_SKIP() << "needs root, to give files to another user";
    EXPECT_EQ(makeStateDirectory(state).text(),
              "cannot use " + root + "/a: it belongs to nobody, not to root");
}

TEST_F(PrivateStorage, LinkOfAnotherUserInAPublicPlaceIsNotFollowed)
{
    fs::create_directories(root + "/mine");
    fs::create_directories(root + "/public");
    ::chmod((root + "/public").c_str(), 01777);
    const std::string link = root + "/public/state";
    fs::create_directory_symlink(root + "/mine", link);
    EXPECT_FALSE(makeStateDirectory(link)) << "a link of one's own may lead to the state";
    if (!giveAway(link))
        GTEST_SKIP() << "needs root, to give files to another user";
    EXPECT_EQ(makeStateDirectory(link).text(),
              "cannot use " + link + ": it belongs to nobody, not to root");
}

TEST_F(PrivateStorage, PathThroughAFolderThatAnotherUserCouldExchangeIsRefused)
{
    fs::create_directories(state);
    ::chmod(root.c_str(), 0755);
    if (!giveAway(root + "/a"))
        GTEST_SKIP() << "needs root, to give files to another user";
    for (const unsigned mode : {0755U, 0555U, 01777U}) {
        ::chmod((root + "/a").c_str(), mode);
        EXPECT_EQ(makeStateDirectory(state).text(),
                  "cannot use " + root + "/a: it belongs to nobody, not to root");
        EXPECT_TRUE(makeStateDirectory(state + "/below/it"));
        EXPECT_FALSE(fs::exists(state + "/below"));
    }
}

TEST_F(PrivateStorage, FolderInAPlaceWhereAGroupCouldPutAnotherIsRefused)
{
    fs::create_directories(state);
    if (::chown((root + "/a").c_str(), ::geteuid(), nobodysGroup()) != 0)
        GTEST_SKIP() << "needs root, to give files to another group";
    ::chmod((root + "/a").c_str(), 0775);
    EXPECT_EQ(makeStateDirectory(state).text(), "cannot use " + state + ": a group can write to " +
                                                    root +
                                                    "/a and put something else in its place");
    ::chmod((root + "/a").c_str(), 01775);
    EXPECT_FALSE(makeStateDirectory(state)) << "as in /tmp, others cannot take its place";
    ::chmod((root + "/a").c_str(), 0755);
    EXPECT_FALSE(makeStateDirectory(state)) << "the group can only read";
}

TEST_F(PrivateStorage, PrivateGroupOfTheOwnerMayWrite)
{
    const passwd *const user = ::getpwuid(::geteuid());
    const group *const own = user == nullptr ? nullptr : ::getgrgid(user->pw_gid);
    if (own == nullptr || std::string(own->gr_name) != user->pw_name || own->gr_mem[0] != nullptr)
        GTEST_SKIP() << "this user has no private group";
    fs::create_directories(state);
    ASSERT_EQ(::chown((root + "/a").c_str(), ::geteuid(), user->pw_gid), 0);
    ::chmod((root + "/a").c_str(), 02775);
    EXPECT_FALSE(makeStateDirectory(state)) << makeStateDirectory(state).text();

    // An entry for another user in an access list, and its mask in place of the group's bits.
    constexpr unsigned char list[] = {2,    0,    0,    0, //
                                      0x01, 0,    7,    0,    0xff, 0xff, 0xff, 0xff, 0x02, 0,
                                      7,    0,    0xfe, 0xff, 0,    0,    0x04, 0,    5,    0,
                                      0xff, 0xff, 0xff, 0xff, 0x10, 0,    7,    0,    0xff, 0xff,
                                      0xff, 0xff, 0x20, 0,    5,    0,    0xff, 0xff, 0xff, 0xff};
    if (::setxattr((root + "/a").c_str(), "system.posix_acl_access", list, sizeof list, 0) != 0)
        GTEST_SKIP() << "this file system has no access lists";
    EXPECT_TRUE(makeStateDirectory(state));
}

TEST_F(PrivateStorage, LinkOfAnotherUserIsNotFollowedAnywhere)
{
    fs::create_directories(root + "/mine/state");
    ::chmod(root.c_str(), 0755);
    fs::create_directory_symlink(root + "/mine", root + "/link");
    EXPECT_FALSE(makeStateDirectory(root + "/link/state"));
    if (!giveAway(root + "/link"))
        GTEST_SKIP() << "needs root, to give files to another user";
    for (const std::string &path : {root + "/link", root + "/link/state"})
        EXPECT_EQ(makeStateDirectory(path).text(),
                  "cannot use " + root + "/link: it belongs to nobody, not to root");
}

TEST_F(PrivateStorage, EveryLinkOfAChainIsCheckedWithItsPlace)
{
    fs::create_directories(root + "/mine");
    fs::create_directories(root + "/public");
    fs::create_directory_symlink("../mine", root + "/public/second");
    fs::create_directory_symlink("public/second", root + "/first");
    EXPECT_FALSE(makeStateDirectory(root + "/first"));
    ::chmod((root + "/public").c_str(), 0777);
    EXPECT_EQ(makeStateDirectory(root + "/first").path, root + "/public/second");
}

TEST_F(PrivateStorage, LinksInACircleAreRefused)
{
    fs::create_directory_symlink("b", root + "/a");
    fs::create_directory_symlink("a", root + "/b");
    EXPECT_EQ(makeStateDirectory(root + "/a").error, ELOOP);
}

TEST_F(PrivateStorage, LinkLeadsThroughAPlaceThatIsCheckedToo)
{
    fs::create_directories(root + "/public/state");
    ::chmod((root + "/public").c_str(), 0777);
    fs::create_directory_symlink(root + "/public/state", root + "/link");
    EXPECT_EQ(makeStateDirectory(root + "/link").path, root + "/public/state");
}

TEST_F(PrivateStorage, FolderThatIsALinkOrAFileIsRefused)
{
    fs::create_directory(root + "/elsewhere");
    fs::create_directory_symlink(root + "/elsewhere", root + "/client");
    EXPECT_EQ(makeFolder(root + "/client").reason, "it is a symbolic link");
    write(file);
    EXPECT_EQ(makeFolder(file).error, ENOTDIR);
    EXPECT_EQ(makeStateDirectory(file).error, ENOTDIR);
    EXPECT_EQ(makeStateDirectory(file + "/state").error, ENOTDIR);
}

// ---- Files ---------------------------------------------------------------------------------------

TEST_F(PrivateStorage, MissingFileIsNoFaultOfItsFolder)
{
    Refusal refusal;
    EXPECT_FALSE(openFile(file, O_RDONLY, refusal));
    EXPECT_EQ(refusal.error, ENOENT);
    EXPECT_FALSE(checkFile(file));
}

TEST_F(PrivateStorage, LinkInThePlaceOfAFileIsNotFollowed)
{
    write(root + "/target");
    for (const char *const target : {"/target", "/missing"}) {
        fs::remove(file);
        fs::create_symlink(root + target, file);
        for (const int flags : {O_RDONLY, O_RDWR | O_CREAT, O_WRONLY | O_APPEND | O_CREAT})
            EXPECT_EQ(open(file, flags), "cannot use " + file + ": it is a symbolic link");
        EXPECT_EQ(checkFile(file).reason, "it is a symbolic link");
    }
    EXPECT_FALSE(fs::exists(root + "/missing"));
}

TEST_F(PrivateStorage, WhatIsNoRegularFileIsRefusedAndNotWaitedFor)
{
    ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0);
    for (const int flags : {O_RDONLY, O_WRONLY, O_RDWR})
        EXPECT_EQ(open(file, flags), "cannot use " + file + ": it is not a regular file");
    fs::create_directory(root + "/folder");
    EXPECT_EQ(open(root + "/folder"), "cannot use " + root + "/folder: Is a directory");
}

TEST_F(PrivateStorage, FileThatOthersCanReachAndWriteToIsRefused)
{
    write(file);
    ::chmod(file.c_str(), 0666);
    EXPECT_EQ(open(file), "opened") << "nobody else gets into the folder";
    ::chmod(root.c_str(), 0755);
    const std::string refused =
        "cannot use " + file + ": other users can write to it; chmod go-w takes that away";
    EXPECT_EQ(open(file), refused);
    EXPECT_EQ(checkFile(file).text(), refused);
    ::chmod(file.c_str(), 0644);
    EXPECT_EQ(open(file), "opened");
}

} // namespace
