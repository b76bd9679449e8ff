#pragma once
// Runs a test under a locale that writes numbers with a decimal comma, as an
// agent that calls setlocale may, and restores the "C" locale afterwards.

#include <gtest/gtest.h>

#include <clocale>

namespace Zet::testing {

class CommaLocale {
 public:
  CommaLocale() {
    for (char const* name : {"de_DE.UTF-8", "de_DE.utf8", "de_DE"})
      if (std::setlocale(LC_ALL, name)) {
        active_ = true;
        break;
      }
  }
  ~CommaLocale() { std::setlocale(LC_ALL, "C"); }
  bool active() const { return active_; }

 private:
  bool active_ = false;
};

}  // namespace Zet::testing

// Skips the test, saying why, on a machine without such a locale
// (scripts/setup.sh makes de_DE.UTF-8).
#define ZET_UNDER_COMMA_LOCALE(guard)                                       \
  ::Zet::testing::CommaLocale guard;                                        \
  if (!guard.active()) GTEST_SKIP() << "no de_DE locale on this machine"; \
  ASSERT_STREQ(std::localeconv()->decimal_point, ",")
