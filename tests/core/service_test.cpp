// SPDX-License-Identifier: MIT
// Service operations: the lock, the messages, the threaded layer by name.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <set>
#include <string>
#include <thread>
#include <vector>

#include "zor/core.h"
#include "zor/serv.h"

namespace {

TEST(Lock, AdmitsOneThreadAtATime) {
  long count = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t)
    threads.emplace_back([&] {
      for (int i = 0; i < 5000; ++i) {
        zor_serv_lock();
        count = count + 1;
        zor_serv_unlock();
      }
    });
  for (auto& t : threads) t.join();
  EXPECT_EQ(40000, count);
}

// A fork may fall into any moment of another thread's use of the lock; the child must still be able to take
// it.
TEST(Lock, IsFreeInAForkedChild) {
  std::atomic<bool> stop{false};
  std::thread busy([&] {
    while (!stop) {
      zor_serv_lock();
      zor_serv_unlock();
    }
  });
  for (int i = 0; i < 50; ++i) {
    const pid_t child = fork();
    if (child == 0) {
      alarm(10);
      zor_serv_lock();
      zor_serv_unlock();
      _exit(0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(0, status);
  }
  stop = true;
  busy.join();
}

TEST(CheckPtr, TellsNullFromUsable) {
  int x = 0;
  EXPECT_EQ(0, zor_serv_check_ptr(&x, "xdgemm"));
  EXPECT_NE(0, zor_serv_check_ptr(nullptr, "xdgemm"));
}

TEST(ThreadedLayer, KnowsOnlyItsOwnNames) {
  // Of the kernel library, of this library outside the threaded layer, of the C library, of nobody.
  for (const char* name :
       {"zor_blas_xdgemm_par", "zor_serv_lock", "malloc", "zor_no_such_par", "_par", "_omp", ""})
    EXPECT_EQ(nullptr, zor_serv_load_thread_fun(name)) << name;
}

TEST(Messages, EveryKnownNumberHasATextOfItsOwn) {
  std::set<std::string> texts;
  const int numbers[] = {201, 202, 409, 761, 762, 763, 764, 765, 766, 767, 768, 769, 770, 771};
  for (int number : numbers) {
    const char* text = zor_serv_zor_get_msg(number, 0);
    ASSERT_NE(nullptr, text) << number;
    EXPECT_FALSE(std::string(text).empty());
    EXPECT_EQ(nullptr, strchr(text, '%')) << text;
    texts.insert(text);
  }
  EXPECT_EQ(std::size(numbers), texts.size());
  for (int number : {-1, 9, 394, 395, 406, 566, 760, 772, 1 << 30})
    EXPECT_EQ(nullptr, zor_serv_zor_get_msg(number, 0));
}

TEST(Messages, ArgumentsAreFormatted) {
  EXPECT_NE(nullptr, strstr(zor_serv_zor_get_msg(408, 1, "some.log"), " some.log "));
  EXPECT_EQ(nullptr, zor_serv_zor_get_msg(408, 0)) << "an argument is missing";
  const std::string longer(5000, 'x');
  EXPECT_LT(strlen(zor_serv_zor_get_msg(408, 1, longer.c_str())), 2000u);
}

TEST(Messages, EachThreadHasItsOwnText) {
  const std::string mine = zor_serv_zor_get_msg(408, 1, "mine");
  const char* text = zor_serv_zor_get_msg(408, 1, "mine");
  std::thread([] { zor_serv_zor_get_msg(408, 1, "theirs"); }).join();
  EXPECT_EQ(mine, text);
}

TEST(Messages, PrintWritesLines) {
  ::testing::internal::CaptureStdout();
  zor_serv_zor_print(1, 0, 0);
  zor_serv_zor_print(1, 408, 1, "some.log");
  zor_serv_zor_print(1, 999, 0);
  fflush(stdout);
  const std::string out = ::testing::internal::GetCapturedStdout();
  EXPECT_EQ(2, std::count(out.begin(), out.end(), '\n'));
  EXPECT_NE(std::string::npos, out.find("some.log"));
}

}  // namespace
