// The Windows DLL has expat linked in: it is the version that scripts/build-win32-deps says
// it took (the folder the build uses is named after it), not whatever else was lying around.
#include <expat.h>
#include <gtest/gtest.h>

TEST(EmbeddedExpat, IsTheVersionTheBuildTook) {
    EXPECT_STREQ(XML_ExpatVersion(), "expat_" VELCAN_EXPECTED_EXPAT_VERSION);
}
