// Tracing selected by facility and level, and the exception kinds a scope
// expects (an unexpected one is traced as a fault).

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Zet/Exception.h"
#include "Zet/Trace.h"

namespace Zet {
namespace {

TEST(Trace, SelectsByFacilityAndLevelAndSkipsUnselectedArguments) {
  std::vector<std::string> lines;
  auto previous = Trace::sinkIs([&](std::string_view f, int level, std::string_view line) {
    lines.push_back(std::string(f) + "/" + std::to_string(level) + " " + std::string(line));
  });
  Trace::configIs("AgentEnvSm/2,*/0");
  int evaluated = 0;
  ZET_TRACE_AT("AgentEnvSm", 2) << "e1" << ": Trying to mount.";
  ZET_TRACE_AT("AgentEnvSm", 3) << ++evaluated;
  ZET_TRACE_AT("Other", 0) << "error";
  ZET_TRACE_AT("Other", 1) << ++evaluated;
  Trace::configIs("");
  Trace::sinkIs(previous);
  EXPECT_EQ(lines, (std::vector<std::string>{"AgentEnvSm/2 e1: Trying to mount.", "Other/0 error"}));
  EXPECT_EQ(evaluated, 0);
}

TEST(Expect, MarksKindsForItsScopeOnly) {
  EXPECT_FALSE(Expect::isExpected(kUnknownTypeException));
  {
    Expect guard(kUnknownTypeException);
    EXPECT_TRUE(Expect::isExpected(NoTypeNodeException("x").kinds()));
    EXPECT_FALSE(Expect::isExpected(kPermissionException));
  }
  EXPECT_FALSE(Expect::isExpected(kUnknownTypeException));
  NoMapFileEntryException e("no entry");
  EXPECT_TRUE(e.isKind(kUnknownTypeException));
  EXPECT_TRUE(e.isKind(kException));
  EXPECT_FALSE(e.isKind(kRangeException));
}

}  // namespace
}  // namespace Zet
