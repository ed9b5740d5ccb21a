#include "addon/file_lock.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <string>

#include "unit/support/temporary_directory.h"

namespace ostrel_native {
namespace {

bool IsOpen(int descriptor) {
  return fcntl(descriptor, F_GETFD) >= 0;
}

int LowestFreeDescriptor() {
  const int descriptor = open("/dev/null", O_RDONLY);
  close(descriptor);
  return descriptor;
}

struct FileLockTest : testing::Test {
  TemporaryDirectory directory;
  std::string path = directory.File("app.lock");
};

TEST_F(FileLockTest, CreatesALockedFileWhoseDescriptorPassesOnToPrograms) {
  const mode_t former = umask(022);
  const FileLock lock = AcquireFileLock(path);
  umask(former);
  ASSERT_GE(lock.descriptor, 0);
  EXPECT_EQ(lock.error, "");
  struct stat status = {};
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode, S_IFREG | 0644U);
  EXPECT_EQ(status.st_size, 0);
  EXPECT_EQ(fcntl(lock.descriptor, F_GETFD), 0);
  EXPECT_EQ(fcntl(lock.descriptor, F_GETFL) & O_ACCMODE, O_RDWR);
  const int other = open(path.c_str(), O_RDWR);
  EXPECT_EQ(flock(other, LOCK_EX | LOCK_NB), -1);
  EXPECT_EQ(errno, EWOULDBLOCK);
  close(other);
  ReleaseFileLock(lock.descriptor);
}

TEST_F(FileLockTest, AppliesTheUmask) {
  const mode_t former = umask(077);
  const FileLock lock = AcquireFileLock(path);
  umask(former);
  struct stat status = {};
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode, S_IFREG | 0600U);
  ReleaseFileLock(lock.descriptor);
}

TEST_F(FileLockTest, RefusesAnExistingFileHeldOrNot) {
  const FileLock first = AcquireFileLock(path);
  const int free = LowestFreeDescriptor();
  const FileLock held = AcquireFileLock(path);
  EXPECT_EQ(held.descriptor, -1);
  EXPECT_EQ(held.error, "LOCK_FILE_EXISTS");
  ReleaseFileLock(first.descriptor);
  EXPECT_EQ(AcquireFileLock(path).error, "LOCK_FILE_EXISTS");
  EXPECT_LE(LowestFreeDescriptor(), free);
  std::filesystem::remove(path);
  const FileLock again = AcquireFileLock(path);
  EXPECT_EQ(again.error, "");
  ReleaseFileLock(again.descriptor);
}

TEST_F(FileLockTest, RefusesADanglingLinkAsAnExistingFile) {
  std::filesystem::create_symlink("/nowhere/app.lock", path);
  EXPECT_EQ(AcquireFileLock(path).error, "LOCK_FILE_EXISTS");
}

TEST_F(FileLockTest, AsksForAPath) {
  const FileLock lock = AcquireFileLock("");
  EXPECT_EQ(lock.descriptor, -1);
  EXPECT_EQ(lock.error, "lockFile requires a path argument");
}

TEST_F(FileLockTest, TellsTheNumberOfAnyOtherFailure) {
  EXPECT_EQ(AcquireFileLock("/nowhere/app.lock").error,
            "Failed to open lock file: /nowhere/app.lock (errno 2)");
  EXPECT_EQ(AcquireFileLock("/dev/null/app.lock").error,
            "Failed to open lock file: /dev/null/app.lock (errno 20)");
  const std::string longName(300, 'n');
  EXPECT_EQ(AcquireFileLock(longName).error,
            "Failed to open lock file: " + longName + " (errno 36)");
}

TEST_F(FileLockTest, ReleasesTheLockAndKeepsTheFile) {
  const FileLock lock = AcquireFileLock(path);
  const int other = open(path.c_str(), O_RDWR);
  ReleaseFileLock(lock.descriptor);
  EXPECT_FALSE(IsOpen(lock.descriptor));
  EXPECT_EQ(flock(other, LOCK_EX | LOCK_NB), 0);
  EXPECT_TRUE(std::filesystem::exists(path));
  close(other);
}

// A copy of the descriptor keeps the lock alive unless it is given up before the close.
TEST_F(FileLockTest, ReleasesTheLockAlsoOfCopiesOfTheDescriptor) {
  const FileLock lock = AcquireFileLock(path);
  const int copy = dup(lock.descriptor);
  ReleaseFileLock(lock.descriptor);
  const int other = open(path.c_str(), O_RDWR);
  EXPECT_EQ(flock(other, LOCK_EX | LOCK_NB), 0);
  close(other);
  close(copy);
}

TEST_F(FileLockTest, ReleasesTheLow32BitsOfANumberAndNothingForANegativeOne) {
  const FileLock lock = AcquireFileLock(path);
  ReleaseFileLock(-1);
  ReleaseFileLock(INT64_MIN);
  ReleaseFileLock(lock.descriptor - (std::int64_t{1} << 40));
  ReleaseFileLock(INT64_MAX);
  EXPECT_TRUE(IsOpen(lock.descriptor));
  ReleaseFileLock(lock.descriptor + (std::int64_t{1} << 32));
  EXPECT_FALSE(IsOpen(lock.descriptor));
  ReleaseFileLock(lock.descriptor);
}

}  // namespace
}  // namespace ostrel_native
