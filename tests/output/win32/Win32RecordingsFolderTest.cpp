#include "output/RecordingsFolder.h"

#include <gtest/gtest.h>

namespace velorine {
namespace {

TEST(RecordingsFolder, IsFixed) {
    EXPECT_EQ(recordingsFolder(), "d:/velorine/");
}

} // namespace
} // namespace velorine
