// The translation of Windows error codes into errno values.
#include <cerrno>

#include <gtest/gtest.h>

#include "process/win32.h"

namespace {

using velcan::sys::errnoFromWindowsError;

TEST(WindowsErrors, PathNotFoundBecomesNoSuchFile) {
    EXPECT_EQ(errnoFromWindowsError(3), ENOENT);
}

TEST(WindowsErrors, NotEnoughMemoryBecomesNoMemory) {
    EXPECT_EQ(errnoFromWindowsError(8), ENOMEM);
}

TEST(WindowsErrors, SharingViolationBecomesAccessDenied) {
    EXPECT_EQ(errnoFromWindowsError(32), EACCES);
}

TEST(WindowsErrors, FileExistsBecomesExists) {
    EXPECT_EQ(errnoFromWindowsError(80), EEXIST);
}

TEST(WindowsErrors, OtherCodesAreKeptAsTheyAre) {
    EXPECT_EQ(errnoFromWindowsError(109), 109);
    EXPECT_EQ(errnoFromWindowsError(2), 2);
    EXPECT_EQ(errnoFromWindowsError(5), 5);
}

} // namespace
