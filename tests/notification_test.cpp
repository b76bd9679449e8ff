// Change notification under the conditions that break naive notifier lists:
// handlers that register, unregister or destroy notifiees mid-round, handlers
// that throw, and notifiees switched off.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "AgentEnv/AgentEnv.h"

namespace Zet {
namespace {

std::vector<std::string> calls;

// A notifiee of a status that runs an action on each change of its code.
struct Watcher : AgentEnvStatus::NotifieeConst {
  explicit Watcher(std::string n) : name(std::move(n)) {}
  std::string name;
  std::function<void()> action;
  std::vector<std::string> hookSaw;
  void onStatusCode() override {
    calls.push_back(name);
    if (action) action();
  }
  void onNotificationException(std::exception const& e) override { hookSaw.push_back(e.what()); }
};

class Notification : public ::testing::Test {
 protected:
  void SetUp() override { calls.clear(); }
  Ptr<AgentEnvStatusDir> dir = agentEnvStatusDirFactory("statuses");
  Ptr<AgentEnvStatus> status = dir->agentEnvStatusIs("e1");
  void change() {
    status->statusCodeIs(status->statusCode() == AgentEnvStatus::none ? AgentEnvStatus::badPath
                                                                       : AgentEnvStatus::none);
  }
};

TEST_F(Notification, RoundsWalkASnapshotInRegistrationOrder) {
  Watcher a("a"), b("b"), c("c"), late("late");
  a.notifierIs(status);
  b.notifierIs(status);
  c.notifierIs(status);
  // a registers a latecomer and b unregisters c during the same round.
  a.action = [&] { late.notifierIs(status); };
  b.action = [&] { c.notifierIs(nullptr); };
  change();
  EXPECT_EQ(calls, (std::vector<std::string>{"a", "b"})) << "c left mid-round, late joined mid-round";

  calls.clear();
  a.action = b.action = nullptr;
  change();
  EXPECT_EQ(calls, (std::vector<std::string>{"a", "b", "late"}));
  EXPECT_EQ(status->notifieeCount(), 3u);
}

TEST_F(Notification, ReentrantChangesAndDestroyedNotifieesAreSafe) {
  auto a = std::make_unique<Watcher>("a");
  auto b = std::make_unique<Watcher>("b");
  Watcher c("c");
  a->notifierIs(status);
  b->notifierIs(status);
  c.notifierIs(status);
  // a changes the attribute again from inside the round (a nested round) and
  // then destroys b, which unregisters itself.
  int depth = 0;
  a->action = [&] {
    if (depth++ == 0) change();
    b.reset();
  };
  change();
  EXPECT_EQ(calls, (std::vector<std::string>{"a", "a", "c", "c"}));
  EXPECT_EQ(status->notifieeCount(), 2u);
}

TEST_F(Notification, AThrowingHandlerIsIsolatedAndReported) {
  Watcher a("a"), b("b");
  a.notifierIs(status);
  b.notifierIs(status);
  a.action = [] { throw RangeException("a is broken"); };
  change();
  EXPECT_EQ(calls, (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(a.hookSaw, std::vector<std::string>{"a is broken"});
  EXPECT_TRUE(b.hookSaw.empty());
}

TEST_F(Notification, ThrowsOfAnyTypeAreCaughtAroundEachCall) {
  struct NotAnException {};
  Watcher a("a"), b("b"), c("c");
  a.notifierIs(status);
  b.notifierIs(status);
  c.notifierIs(status);
  a.action = [] { throw 42; };
  b.action = [] { throw NotAnException{}; };
  EXPECT_NO_THROW(change());
  EXPECT_EQ(calls, (std::vector<std::string>{"a", "b", "c"}));
  EXPECT_EQ(a.hookSaw, std::vector<std::string>{"notifiee threw something that is not a std::exception"});
  EXPECT_EQ(b.hookSaw.size(), 1u);
}

TEST_F(Notification, TheLastOfARoundLeavingAndComingBackIsNotCalledTwice) {
  Watcher a("a"), b("b"), c("c");
  a.notifierIs(status);
  b.notifierIs(status);
  c.notifierIs(status);
  // a takes c (the last of the round) off and puts it back at the end; b
  // leaves during a nested round started by a.
  int depth = 0;
  a.action = [&] {
    if (depth++ > 0) return;
    c.notifierIs(nullptr);
    c.notifierIs(status);
    change();
  };
  b.action = [&] { b.notifierIs(nullptr); };
  change();
  // Outer round: a (nested round: a, b, c), then neither b (gone) nor c (re-registered).
  EXPECT_EQ(calls, (std::vector<std::string>{"a", "a", "b", "c"}));
  EXPECT_EQ(status->notifieeCount(), 2u);
}

TEST_F(Notification, NestedRoundsOfAnotherNotifierKeepEachListWhole) {
  Ptr<AgentEnvStatus> other = dir->agentEnvStatusIs("e2");
  Watcher a("a"), b("b"), c("c"), x("x"), y("y");
  for (Watcher* w : {&a, &b, &c}) w->notifierIs(status);
  for (Watcher* w : {&x, &y}) w->notifierIs(other);
  // Inside status's round, a round of `other` takes the first and the next
  // of status's notifiees off, and the last of its own round.
  a.action = [&] { other->statusCodeIs(AgentEnvStatus::badPath); };
  x.action = [&] {
    a.notifierIs(nullptr);
    b.notifierIs(nullptr);
    y.notifierIs(nullptr);
  };
  change();
  EXPECT_EQ(calls, (std::vector<std::string>{"a", "x", "c"}));
  EXPECT_EQ(status->notifieeCount(), 1u);
  EXPECT_EQ(other->notifieeCount(), 1u);

  calls.clear();
  a.action = nullptr;
  a.notifierIs(status);
  b.notifierIs(status);
  change();
  EXPECT_EQ(calls, (std::vector<std::string>{"c", "a", "b"}));
}

TEST_F(Notification, SwitchedOffNotifieesHearNothingAndBindingMoves) {
  Watcher a("a");
  a.notifierIs(status);
  a.hasNotificationActiveIs(false);
  change();
  EXPECT_TRUE(calls.empty());
  a.hasNotificationActiveIs(true);

  Ptr<AgentEnvStatus> other = dir->agentEnvStatusIs("e2");
  a.notifierIs(other);
  change();
  EXPECT_TRUE(calls.empty()) << "rebinding leaves the old notifier";
  other->statusCodeIs(AgentEnvStatus::badPath);
  EXPECT_EQ(calls, std::vector<std::string>{"a"});
  EXPECT_EQ(a.notifier(), other);
}

TEST_F(Notification, NotifieeKeepsItsNotifierAlive) {
  Watcher a("a");
  a.notifierIs(status);
  Entity const* raw = status.ptr();
  dir->agentEnvStatusDel("e1");
  status = nullptr;
  EXPECT_EQ(a.notifier().ptr(), raw);
  EXPECT_EQ(a.notifier()->name(), "e1");
}

}  // namespace
}  // namespace Zet
