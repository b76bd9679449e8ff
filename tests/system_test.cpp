// The process's surroundings: its environment and host name.

#include <gtest/gtest.h>

#include <cstdlib>

#include "Zet/System.h"

namespace Zet {
namespace {

TEST(System, ReadsTheEnvironmentAndHostName) {
  setenv("ZET_VALUES_TEST", "on", 1);
  EXPECT_EQ(System::getenv("ZET_VALUES_TEST"), "on");
  unsetenv("ZET_VALUES_TEST");
  EXPECT_TRUE(System::getenv("ZET_VALUES_TEST").isEmpty());
  EXPECT_FALSE(System::hostname().isEmpty());
}

}  // namespace
}  // namespace Zet
