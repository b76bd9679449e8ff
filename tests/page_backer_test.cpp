// Memory asked for is backed by the background thread, a forgotten range is
// left alone from the moment forget() returns, and a forked child, which
// has no such thread, neither waits for it nor backs anything.

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <thread>
#include <vector>

#include "Zet/PageBacker.h"

namespace Zet {
namespace {

class Mapping {
 public:
  explicit Mapping(size_t bytes) : bytes_(bytes) {
    void* at = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    begin_ = at == MAP_FAILED ? nullptr : at;
  }
  ~Mapping() {
    if (begin_) ::munmap(begin_, bytes_);
  }
  void* begin() const { return begin_; }
  size_t bytes() const { return bytes_; }
  size_t residentPages() const {
    size_t page = size_t(::sysconf(_SC_PAGESIZE));
    std::vector<unsigned char> resident((bytes_ + page - 1) / page);
    if (::mincore(begin_, bytes_, resident.data()) != 0) return 0;
    size_t count = 0;
    for (unsigned char r : resident) count += r & 1;
    return count;
  }
  size_t pages() const { return bytes_ / size_t(::sysconf(_SC_PAGESIZE)); }

 private:
  void* begin_;
  size_t bytes_;
};

TEST(PageBacker, BacksWhatIsAskedForAndNothingAfterForget) {
  Mapping asked(size_t(8) << 20);
  ASSERT_NE(asked.begin(), nullptr);
  ASSERT_EQ(asked.residentPages(), 0u);
  EXPECT_TRUE(PageBacker::backSoon(asked.begin(), asked.bytes()));
  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (asked.residentPages() < asked.pages() && std::chrono::steady_clock::now() < deadline)
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  EXPECT_EQ(asked.residentPages(), asked.pages()) << "the range was not backed";

  // Forgotten at once, a large range stops growing where the backing stood.
  Mapping forgotten(size_t(256) << 20);
  ASSERT_NE(forgotten.begin(), nullptr);
  PageBacker::backSoon(forgotten.begin(), forgotten.bytes());
  PageBacker::forget(forgotten.begin(), forgotten.bytes());
  size_t whenForgotten = forgotten.residentPages();
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_EQ(forgotten.residentPages(), whenForgotten) << "backed after forget returned";
}

TEST(PageBacker, AForkedChildBacksNothingAndDoesNotWait) {
  Mapping warmUp(size_t(64) << 20);
  ASSERT_NE(warmUp.begin(), nullptr);
  PageBacker::backSoon(warmUp.begin(), warmUp.bytes());  // the thread is running, maybe backing
  pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    Mapping mine(size_t(4) << 20);
    bool taken = PageBacker::backSoon(mine.begin(), mine.bytes());
    PageBacker::forget(warmUp.begin(), warmUp.bytes());
    ::usleep(20 * 1000);
    ::_exit(!taken && mine.residentPages() == 0 ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "the child took or backed its range, or failed";
  PageBacker::forget(warmUp.begin(), warmUp.bytes());
}

}  // namespace
}  // namespace Zet
