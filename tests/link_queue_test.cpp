// The queue whose members keep their index: its index rules and limits.

#include <gtest/gtest.h>

#include <string>

#include "Zet/LinkQueue.h"

namespace Zet {
namespace {

TEST(LinkQueue, KeepsIndicesAndReportsItsLimits) {
  LinkQueue<std::string> q;
  EXPECT_EQ(q.enq("a"), 0u);
  EXPECT_EQ(q.enq("b"), 1u);
  EXPECT_EQ(q.enq("c"), 2u);
  EXPECT_EQ(q.deq(), "a");
  EXPECT_EQ(q.at(2), "c");
  EXPECT_EQ(q.headIndex(), 1u);
  try {
    q.at(0);
    FAIL();
  } catch (RangeException const& e) {
    EXPECT_STREQ(e.what(), "linkqueue index out of range");
  }
  EXPECT_THROW(q.at(3), RangeException);

  LinkQueue<int, uint8_t> small;
  for (int i = 0; i < 256; ++i) small.enq(i);
  for (int i = 0; i < 100; ++i) small.deq();
  try {
    small.enq(0);
    FAIL();
  } catch (RangeException const& e) {
    EXPECT_STREQ(e.what(), "linkqueue index space full");
  }
  EXPECT_EQ(small.size(), 156u) << "a full index space loses nothing already queued";
  EXPECT_EQ(small.at(255), 255);
}

}  // namespace
}  // namespace Zet
