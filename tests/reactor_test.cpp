#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <vector>

#include "Zet/Activity.h"
#include "Zet/ActivityLoop.h"
#include "Zet/Exception.h"
#include "Zet/Reactor.h"

namespace Zet {
namespace {

// A reactor that records what it is given, with an optional reaction.
class Recorder : public Reactor {
 public:
  using Reactor::Reactor;
  std::vector<int> codes;                 // dispatched codes
  std::vector<ActivityConfig*> activities;  // what each delivery was called with
  std::vector<bool> zombieChanges;
  std::function<void(int)> reaction;

  void handleNotification(ActivityConfig* activity) override {
    activities.push_back(activity);
    Reactor::handleNotification(activity);
  }

 protected:
  void onNotification(int code) override {
    codes.push_back(code);
    if (reaction) reaction(code);
  }
  void onZombie(bool zombie) override { zombieChanges.push_back(zombie); }
};

class ReactorTest : public testing::Test {
 protected:
  ActivityLoop loop;
  Ptr<ActivityManagerConfig> manager{new ActivityManagerConfig(&loop)};
  Ptr<ActivityConfig> activity = manager->activityConfigIs("sm", 10);
};

TEST_F(ReactorTest, DefersCoalesceIntoOneDeliveryOfTheLastCode) {
  Recorder r(activity);
  r.activate();
  r.notificationDefer(1);
  r.notificationDefer(2);
  r.notificationDefer(-2);
  EXPECT_EQ(r.pendingNotification(), -2);
  EXPECT_EQ(loop.deferredCallCount(), 1u);
  EXPECT_TRUE(r.codes.empty());

  EXPECT_EQ(loop.runUntilIdle(), 1u);
  EXPECT_EQ(r.codes, std::vector<int>{-2});
  EXPECT_EQ(r.activities, std::vector<ActivityConfig*>{activity.ptr()});
  EXPECT_EQ(r.pendingNotification(), std::nullopt);

  // A defer made while dispatching queues a fresh delivery, run in the same drain.
  r.reaction = [&](int code) {
    if (code == 7) r.notificationDefer(8);
  };
  r.notificationDefer(7);
  EXPECT_EQ(loop.runUntilIdle(), 2u);
  EXPECT_EQ(r.codes, (std::vector<int>{-2, 7, 8}));

  // A code taken by a direct call leaves the queued delivery nothing to do.
  r.notificationDefer(9);
  r.handleNotification(activity.ptr());
  EXPECT_EQ(loop.runUntilIdle(), 1u);
  EXPECT_EQ(r.codes, (std::vector<int>{-2, 7, 8, 9}));
  EXPECT_EQ(r.activities.size(), 4u);
}

TEST_F(ReactorTest, ActivationHappensOnceAndGatesDelivery) {
  Recorder r(activity);
  EXPECT_FALSE(r.isActive());
  r.notificationDefer(-1);
  EXPECT_EQ(loop.deferredCallCount(), 0u);  // kept until activation

  r.activate();
  EXPECT_TRUE(r.isActive());
  EXPECT_EQ(loop.deferredCallCount(), 1u);
  try {
    Expect expected(kRangeException);
    r.activate();
    ADD_FAILURE() << "second activation accepted";
  } catch (RangeException const& e) {
    EXPECT_STREQ(e.what(), "entity reactor is already active");
  }

  // Deactivated before its call ran: the call delivers nothing and the code
  // waits for the next activation.
  r.deactivate();
  EXPECT_EQ(loop.runUntilIdle(), 1u);
  EXPECT_TRUE(r.codes.empty());
  EXPECT_EQ(r.pendingNotification(), -1);
  r.activate();
  EXPECT_EQ(loop.runUntilIdle(), 1u);
  EXPECT_EQ(r.codes, std::vector<int>{-1});
}

TEST_F(ReactorTest, AReactorDestroyedWithACallQueuedIsNotTouchedByIt) {
  auto doomed = std::make_unique<Recorder>(activity);
  doomed->activate();
  doomed->notificationDefer(5);
  doomed.reset();
  EXPECT_EQ(loop.runUntilIdle(), 1u);  // the sanitizer build catches any touch

  // An owner tearing down a sibling reactor from inside a reaction.
  Recorder owner(activity);
  auto sibling = std::make_unique<Recorder>(activity);
  owner.activate();
  sibling->activate();
  owner.notificationDefer(1);
  sibling->notificationDefer(2);
  owner.reaction = [&](int) { sibling.reset(); };
  EXPECT_EQ(loop.runUntilIdle(), 2u);
  EXPECT_EQ(owner.codes, std::vector<int>{1});
  EXPECT_EQ(sibling, nullptr);
}

TEST_F(ReactorTest, WithoutAnActivityDeliveryIsImmediate) {
  Recorder r(nullptr);
  r.activate();
  r.notificationDefer(4);
  EXPECT_EQ(r.codes, std::vector<int>{4});
  EXPECT_EQ(r.activities, std::vector<ActivityConfig*>{nullptr});
  EXPECT_EQ(loop.deferredCallCount(), 0u);

  r.activityConfigIs(activity);
  r.notificationDefer(6);
  EXPECT_EQ(r.codes, std::vector<int>{4});
  EXPECT_EQ(loop.runUntilIdle(), 1u);
  EXPECT_EQ(r.codes, (std::vector<int>{4, 6}));
}

TEST_F(ReactorTest, AChainOf100000ReactorsSettlesWithoutRecursion) {
  constexpr int kLength = 100000;
  std::vector<std::unique_ptr<Recorder>> chain;
  int depth = 0, deepest = 0;
  for (int i = 0; i < kLength; ++i) {
    chain.push_back(std::make_unique<Recorder>(activity));
    chain.back()->activate();
    chain.back()->reaction = [&, i](int code) {
      deepest = std::max(deepest, ++depth);
      if (i + 1 < kLength) chain[i + 1]->notificationDefer(code + 1);
      --depth;
    };
  }
  chain[0]->notificationDefer(0);
  EXPECT_EQ(loop.runUntilIdle(), size_t(kLength));
  EXPECT_EQ(chain.back()->codes, std::vector<int>{kLength - 1});
  EXPECT_EQ(deepest, 1);
}

TEST_F(ReactorTest, ZombieMarkRunsItsHookOnlyOnChange) {
  Recorder r(activity);
  r.zetDoZombieReactors(false);
  EXPECT_TRUE(r.zombieChanges.empty());
  r.zetDoZombieReactors(true);
  r.zetDoZombieReactors(true);
  EXPECT_TRUE(r.isZombie());
  r.zetDoZombieReactors(false);
  EXPECT_FALSE(r.isZombie());
  EXPECT_EQ(r.zombieChanges, (std::vector<bool>{true, false}));
}

}  // namespace
}  // namespace Zet
