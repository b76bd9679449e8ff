#include <gtest/gtest.h>

#include <dlfcn.h>

#include <algorithm>
#include <cstring>

#include "AgentEnv/AgentEnvVersion.h"
#include "Zet/ScopedNameRegistry.h"

namespace Zet {
namespace {

TEST(Version, ReportsItsReleaseAndBuild) {
  EXPECT_EQ(AgentEnvVersion::versionMajor(), 2u);
  EXPECT_EQ(AgentEnvVersion::versionMinor(), 1u);
  EXPECT_EQ(AgentEnvVersion::versionChange(), 0u);
  EXPECT_EQ(AgentEnvVersion::string(), "2.1.0");
  EXPECT_EQ(AgentEnvVersion::patch(), "PATCH");
  EXPECT_EQ(AgentEnvVersion::v_2_1_0(), Version::v_2_1_0());
  EXPECT_TRUE(AgentEnvVersion::v_2_1());
  EXPECT_TRUE(AgentEnvVersion::v_2());
  EXPECT_EQ(AgentEnvVersion::build().view().substr(0, 6), "2.1.0-");
  EXPECT_NE(AgentEnvVersion::copyright().view().find("Copyright"), std::string_view::npos);
  EXPECT_NE(std::strstr(AgentEnvVersion::options(), "-Wall"), nullptr);
}

TEST(Version, CEntryPointsAreFoundBySymbolAndCacheTheirText) {
  void* self = dlopen(nullptr, RTLD_NOW);
  using Fn = char const* (*)();
  auto string = reinterpret_cast<Fn>(dlsym(self, "zet_AgentEnvVersion_string"));
  auto build = reinterpret_cast<Fn>(dlsym(self, "zet_AgentEnvVersion_build"));
  auto copyright = reinterpret_cast<Fn>(dlsym(self, "zet_AgentEnvVersion_copyright"));
  auto options = reinterpret_cast<Fn>(dlsym(self, "zet_AgentEnvVersion_options"));
  ASSERT_TRUE(string && build && copyright && options);
  EXPECT_STREQ(string(), "2.1.0");
  EXPECT_EQ(string(), string());
  EXPECT_EQ(build(), build());
  EXPECT_STREQ(build(), AgentEnvVersion::build().charPtr());
  EXPECT_STREQ(copyright(), AgentEnvVersion::copyright().charPtr());
  EXPECT_EQ(options(), AgentEnvVersion::options());
}

TEST(Version, IsAnnouncedToIntrospectionAtLoad) {
  auto names = IntrospectionReactor::instance().names();
  EXPECT_NE(std::find(names.begin(), names.end(), String8("Zet::AgentEnvVersion")), names.end());
}

}  // namespace
}  // namespace Zet
