#include "agent/control/ControlSocket.h"

#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <memory>

#include "tests/agent/InChild.h"
#include "tests/support/ScratchFolder.h"

namespace pimbsr::agent {
namespace {

using test::ScratchFolder;
using testing::AllOf;
using testing::HasSubstr;

class ControlSocketTest : public testing::Test {
 protected:
  std::string error() const { return errorOf(path_); }
  static std::string errorOf(std::string const& path) {
    try {
      ControlSocket socket(path);
    } catch (ControlError const& error) {
      return error.what();
    }
    return "no error";
  }

  ScratchFolder folder_;
  std::string path_ = folder_.file("control.sock");
};

mode_t modeOf(std::string const& path) {
  struct stat file {};
  EXPECT_EQ(lstat(path.c_str(), &file), 0) << path;
  return file.st_mode;
}

TEST_F(ControlSocketTest, OwnerAndGroupMayUseItWhateverTheMask) {
  for (mode_t mask : {0, 022, 077, 0777}) {
    mode_t former = umask(mask);
    {
      ControlSocket socket(path_);
      EXPECT_EQ(modeOf(path_), S_IFSOCK | 0660u) << mask;
    }
    EXPECT_EQ(umask(former), mask) << "the mask is put back";
  }
}

TEST_F(ControlSocketTest, ItsFileGoesWithIt) {
  { ControlSocket socket(path_); }
  EXPECT_FALSE(std::filesystem::exists(path_));
}

TEST_F(ControlSocketTest, AFileThatTookItsPlaceStays) {
  {
    ControlSocket socket(path_);
    std::filesystem::rename(path_, path_ + ".old");
    std::ofstream(path_) << "another's";
  }
  EXPECT_TRUE(std::filesystem::is_regular_file(path_));
}

TEST_F(ControlSocketTest, WhatAKilledAgentLeftIsReplaced) {
  {  // as kill -9 would leave it
    ControlSocket socket(path_);
    std::filesystem::rename(path_, path_ + ".kept");
  }
  std::filesystem::rename(path_ + ".kept", path_);
  ASSERT_TRUE(std::filesystem::is_socket(path_));
  ControlSocket socket(path_);
  EXPECT_TRUE(connectTo(path_, 0));
}

TEST_F(ControlSocketTest, AnAgentThatRunsKeepsIts) {
  ControlSocket socket(path_);
  EXPECT_THAT(error(), AllOf(HasSubstr("control socket " + path_), HasSubstr("another pimbsr runs on it")));
  EXPECT_TRUE(connectTo(path_, 0)) << "nothing was taken from it";
}

TEST_F(ControlSocketTest, AnAgentTooBusyToTakeAnyoneInKeepsItsToo) {
  ControlSocket socket(path_);
  ASSERT_EQ(listen(socket.fd(), 0), 0);
  FileDescriptor waiting = connectTo(path_, SOCK_NONBLOCK);
  ASSERT_FALSE(connectTo(path_, SOCK_NONBLOCK));
  ASSERT_EQ(errno, EAGAIN);
  EXPECT_THAT(error(), HasSubstr("another pimbsr runs on it"));
}

TEST_F(ControlSocketTest, AFileThatIsNoSocketIsLeftAlone) {
  std::ofstream(path_) << "precious";
  EXPECT_THAT(error(), HasSubstr("a file that is no socket"));
  EXPECT_EQ(std::filesystem::file_size(path_), 8u);
}

TEST_F(ControlSocketTest, ALinkIsNotFollowed) {
  ControlSocket other(folder_.file("other.sock"));
  std::filesystem::create_symlink(other.path(), path_);
  EXPECT_THAT(error(), HasSubstr("a file that is no socket"));
  EXPECT_TRUE(std::filesystem::exists(other.path()));
}

TEST_F(ControlSocketTest, ItsFolderIsMadeButNotATree) {
  std::string path = folder_.file("run/control.sock");
  ControlSocket socket(path);
  EXPECT_EQ(modeOf(path), S_IFSOCK | 0660u);
  EXPECT_THAT(errorOf(folder_.file("no/such/control.sock")), HasSubstr("cannot make the folder"));
}

TEST_F(ControlSocketTest, OneOfTwoThatStartAtOnceFailsWithoutWaiting) {
  FileDescriptor other(open(folder_.file(".").c_str(), O_RDONLY | O_DIRECTORY));
  ASSERT_EQ(flock(other.get(), LOCK_EX), 0);
  EXPECT_THAT(error(), HasSubstr("another program holds the folder"));
  other = FileDescriptor();
  EXPECT_EQ(error(), "no error");
}

TEST_F(ControlSocketTest, InvalidPathIsAnError) {
  EXPECT_THAT(errorOf(""), HasSubstr("the path is empty"));
  std::string longest = folder_.file("");
  longest.resize(107, 'x');
  EXPECT_EQ(errorOf(longest), "no error");
  EXPECT_THAT(errorOf(longest + "x"), AllOf(HasSubstr("108 bytes long"), HasSubstr("at most 107")));
}

TEST_F(ControlSocketTest, FolderWithoutWritePermissionIsAnError) {
  NEEDS_ROOT();
  std::string path = path_;
  ASSERT_EQ(chmod(folder_.file(".").c_str(), 0755), 0);
  std::string text = test::inChild([&]() -> std::string {
    if (setuid(65534) != 0) return "user 65534 can't be set";
    return errorOf(path);
  });
  EXPECT_THAT(text, HasSubstr("Permission denied"));
}

// Groups ----------------------------------------------------------------------------------------------

TEST_F(ControlSocketTest, ItsGroupIsTheOneThatWasNamed) {
  NEEDS_ROOT();
  ControlSocket socket(path_, "nogroup");
  struct stat file {};
  ASSERT_EQ(lstat(path_.c_str(), &file), 0);
  EXPECT_EQ(file.st_gid, 65534u);
  EXPECT_EQ(file.st_mode, S_IFSOCK | 0660u);
}

TEST_F(ControlSocketTest, AGroupThatIsUnknownIsExplained) {
  try {
    ControlSocket socket(path_, "no-such-group");
    FAIL() << "it was opened";
  } catch (ControlError const& error) {
    EXPECT_THAT(error.what(), AllOf(HasSubstr("there is no group 'no-such-group'"), HasSubstr("groupadd")));
  }
}

TEST_F(ControlSocketTest, AGroupThatMayNotBeSetIsExplained) {
  NEEDS_ROOT();
  ASSERT_EQ(chmod(folder_.file(".").c_str(), 0777), 0);
  std::string text = test::inChild([&]() -> std::string {
    if (setgid(65534) != 0 || setuid(65534) != 0) return "cannot change user";
    ControlSocket socket(path_, "root");
    return "opened";
  });
  EXPECT_THAT(text, HasSubstr("cannot give it to the group 'root': Operation not permitted"));
  EXPECT_FALSE(std::filesystem::exists(path_));
}

}  // namespace
}  // namespace pimbsr::agent
