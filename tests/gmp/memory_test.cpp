// SPDX-License-Identifier: MIT
// Where the memory of integers comes from, that it all goes back, and that libgmp in the same process sees
// nothing of it.
#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>
#include <thread>

#include "tests/gmp/gmp_numbers.h"
#include "tests/support/zalloc.h"

namespace {

using namespace zor_test;
using zor_tools::random_integer;

// Everything that takes memory, the names of both libraries. `release` is the function that gives it back.
void use_integers(uint64_t seed, zor_gmp_free_fn* release) {
  numbers source(seed);
  ours r, x(random_integer(source, 20000)), y(random_integer(source, 9000));
  zor_gmp___gmpz_mul(r, x, y);
  zor_gmp___gmpz_addmul(r, r, x);
  zor_gmp___gmpz_realloc2(r, 100000);
  zor_gmp___gmpz_realloc2(r, 100);
  zor_gmp___gmpz_gcd(r, x, y);
  zor_gmp___gmpz_fac_ui(r, 3000);
  zor_gmp___gmpz_set_str(r, "123456789012345678901234567890", 10);

  char* text = zor_gmp___gmpz_get_str(nullptr, 7, x);
  const size_t length = std::strlen(text) + 1;
  size_t count = 0;
  void* words = zor_gmp___gmpz_export(nullptr, &count, 1, 3, 1, 0, x);
  zor_gmp___gmpz_import(r, count, 1, 3, 1, 0, words);
  zor_rand_t state, copy;
  zor_gmp___gmp_randinit_default(state);
  zor_gmp___gmp_randseed(state, x);
  zor_gmp___gmp_randinit_set(copy, state);
  zor_gmp___gmpz_urandomb(r, copy, 5000);
  zor_gmp___gmp_randclear(state);
  zor_gmp___gmp_randclear(copy);

  std::FILE* file = std::tmpfile();
  zor_gmp___gmpz_out_str(file, 62, x);
  std::fputc('\n', file);
  zor_gmp___gmpz_out_raw(file, y);
  zor_gmp___gmp_fprintf(file, "%Zd %1000Zx", x.get(), y.get());
  std::rewind(file);
  ours read, more;
  EXPECT_NE(0u, zor_gmp___gmpz_inp_str(read, file, 62));
  EXPECT_EQ('\n', std::fgetc(file));
  EXPECT_NE(0u, zor_gmp___gmpz_inp_raw(more, file));
  std::fclose(file);
  EXPECT_EQ(x.value(), read.value());
  EXPECT_EQ(y.value(), more.value());
  ours zero;
  file = std::tmpfile();
  zor_gmp___gmp_fprintf(file, "12345%Zn", zero.get());
  std::fclose(file);
  EXPECT_EQ((integer{false, {5}}), zero.value());

  ours b(random_integer(source, 2000)), e(random_integer(source, 300)), m(random_integer(source, 2000));
  zor_gmp___gmpz_abs(e, e);
  zor_gmp___gmpz_setbit(m, 0);
  zor_gmp___gmpz_setbit(m, 2000);
  zor_gmp_mpz_powm_mary(r, b, e, m);

  release(text, length);
  release(words, 3 * count);
}

TEST(Memory, ComesFromTheAlignedAllocatorAndGoesBack) {
  const int64_t blocks = zalloc_live_blocks();
  zalloc_reset();
  use_integers(1, zor_gmp___gmp_default_free);
  EXPECT_LT(50u, zalloc_calls());
  EXPECT_EQ(blocks, zalloc_live_blocks());

  // 100 limbs on a boundary of 16 bytes behind the word that every aligned block has.
  zor_mpz x;
  zalloc_clear_log();
  zor_gmp___gmpz_init2(&x, 6400);
  EXPECT_STREQ("m824", zalloc_log());
  EXPECT_EQ(0u, reinterpret_cast<uintptr_t>(x.limb) % 16);
  zor_gmp___gmpz_clear(&x);
  EXPECT_STREQ("m824 f824", zalloc_log());
}

// Memory functions that know the size of every block, and hold GMP to it.
class size_book {
 public:
  void* allocate(size_t size) {
    void* block = std::malloc(size + 1);
    const std::lock_guard lock(mutex_);
    sizes_[block] = size;
    ++calls_;
    return block;
  }
  void* reallocate(void* block, size_t old_size, size_t size) {
    void* moved = allocate(size);
    std::memcpy(moved, block, std::min(old_size, size));
    release(block, old_size);
    return moved;
  }
  void release(void* block, size_t size) {
    const std::lock_guard lock(mutex_);
    const auto known = sizes_.find(block);
    ASSERT_NE(sizes_.end(), known) << "a block of other functions";
    EXPECT_EQ(known->second, size);
    sizes_.erase(known);
    std::free(block);
    ++calls_;
  }
  int calls() const { return calls_; }
  size_t live() const { return sizes_.size(); }

 private:
  std::mutex mutex_;
  std::map<void*, size_t> sizes_;
  std::atomic<int> calls_ = 0;
};

// Of this library and of libgmp.
size_book our_book, their_book;
template <size_book& Book>
void* allocate(size_t size) {
  return Book.allocate(size);
}
template <size_book& Book>
void* reallocate(void* block, size_t old_size, size_t size) {
  return Book.reallocate(block, old_size, size);
}
template <size_book& Book>
void release(void* block, size_t size) {
  Book.release(block, size);
}

TEST(Memory, FunctionsThatAreSetServeBothLibraries) {
  zor_gmp___gmp_set_memory_functions(allocate<our_book>, reallocate<our_book>, release<our_book>);
  const uint64_t before = zalloc_calls();
  use_integers(2, release<our_book>);
  EXPECT_EQ(before, zalloc_calls());
  EXPECT_LT(50, our_book.calls());
  EXPECT_EQ(0u, our_book.live());
  zor_gmp___gmp_set_memory_functions(nullptr, nullptr, nullptr);
  const int calls = our_book.calls();
  use_integers(2, zor_gmp___gmp_default_free);
  EXPECT_EQ(calls, our_book.calls());
}

// A calculation in libgmp, with a result that is known.
void use_libgmp() {
  mpz_t a, b, m;
  mpz_inits(a, b, m, nullptr);
  mpz_setbit(m, 2203);
  mpz_sub_ui(m, m, 1);
  mpz_set_ui(a, 3);
  mpz_tdiv_q_2exp(b, m, 1);
  mpz_powm(a, a, b, m);
  mpz_add_ui(a, a, 1);
  EXPECT_EQ(0, mpz_cmp(a, m));
  char* text = mpz_get_str(nullptr, 10, m);
  mpz_set_str(a, text, 10);
  EXPECT_EQ(0, mpz_cmp(a, m));
  void (*release)(void*, size_t);
  mp_get_memory_functions(nullptr, nullptr, &release);
  release(text, std::strlen(text) + 1);
  mpz_clears(a, b, m, nullptr);
}

struct gmp_functions {
  void* (*allocate)(size_t);
  void* (*reallocate)(void*, size_t, size_t);
  void (*release)(void*, size_t);
  bool operator==(const gmp_functions&) const = default;
};
gmp_functions functions_of_libgmp() {
  gmp_functions f;
  mp_get_memory_functions(&f.allocate, &f.reallocate, &f.release);
  return f;
}

// Each on threads of its own, both with memory functions of their own or the default ones.
TEST(Libgmp, SeesNothingOfThisLibrary) {
  for (const bool own_functions : {false, true}) {
    if (own_functions) {
      mp_set_memory_functions(allocate<their_book>, reallocate<their_book>, release<their_book>);
      zor_gmp___gmp_set_memory_functions(allocate<our_book>, reallocate<our_book>, release<our_book>);
    }
    const gmp_functions set = functions_of_libgmp();
    auto* our_release = own_functions ? release<our_book> : zor_gmp___gmp_default_free;
    use_libgmp();
    const int their_calls = their_book.calls();
    zor_mpz x;
    zor_gmp___gmpz_init_set_ui(&x, 1);
    zor_gmp___gmpz_mul_2exp(&x, &x, 100000);
    zor_gmp___gmpz_clear(&x);
    EXPECT_EQ(their_calls, their_book.calls()) << "memory of this library from the functions of libgmp";
    const int our_calls = our_book.calls();
    const uint64_t allocator_calls = zalloc_calls();
    use_libgmp();
    EXPECT_EQ(our_calls, our_book.calls()) << "memory of libgmp from the functions of this library";
    EXPECT_EQ(allocator_calls, zalloc_calls());

    std::vector<std::thread> threads;
    for (uint64_t t = 0; t < 3; ++t) {
      threads.emplace_back([] {
        for (int i = 0; i < 10; ++i) use_libgmp();
      });
      threads.emplace_back([t, our_release] {
        zor_mpz r;
        zor_gmp___gmpz_init(&r);
        for (int i = 0; i < 10; ++i) {
          zor_gmp___gmpz_fac_ui(&r, 2000 + t);
          char* text = zor_gmp___gmpz_get_str(nullptr, 10, &r);
          our_release(text, std::strlen(text) + 1);
        }
        zor_gmp___gmpz_clear(&r);
      });
    }
    for (std::thread& t : threads) t.join();
    EXPECT_TRUE(set == functions_of_libgmp());
    use_libgmp();
  }
  EXPECT_EQ(0u, our_book.live());
  EXPECT_EQ(0u, their_book.live());
  zor_gmp___gmp_set_memory_functions(nullptr, nullptr, nullptr);
  mp_set_memory_functions(nullptr, nullptr, nullptr);
}

// The nth request of a calculation fails; exit status 0 when there are fewer.
void run_short_of_memory(uint64_t nth) {
  zalloc_reset();
  zalloc_fail(nth, false);
  zor_mpz r;
  zor_gmp___gmpz_init(&r);
  zor_gmp___gmpz_set_ui(&r, 3);
  zor_gmp___gmpz_mul_2exp(&r, &r, 1000);
  zor_gmp___gmpz_mul_2exp(&r, &r, 10000);
  zor_gmp_mark mark;
  zor_gmp__imptmpmark(&mark);
  zor_gmp__imptmpmalloc(&mark, 100);
  std::_Exit(0);
}

TEST(MemoryDeathTest, ARequestThatFailsEndsTheProcessWithAMessage) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto aborts = testing::KilledBySignal(SIGABRT);
  for (const uint64_t nth : {1, 2, 3, 4})
    EXPECT_EXIT(run_short_of_memory(nth), aborts,
                std::string("libzor_kern: GMP: cannot ") + (nth % 3 == 1 ? "" : "re") +
                    "allocate memory \\(size=[0-9]+\\)");
  EXPECT_EXIT(run_short_of_memory(5), testing::ExitedWithCode(0), "");
  EXPECT_EXIT(zor_gmp___gmp_default_allocate(SIZE_MAX - 100), aborts, "size=18446744073709551515");
  zor_gmp_mark mark;
  zor_gmp__imptmpmark(&mark);
  EXPECT_EXIT(zor_gmp__imptmpmalloc(&mark, SIZE_MAX - 3), aborts, "cannot allocate memory");
}

// Messages of GMP itself go to the standard error stream too.
TEST(MemoryDeathTest, ANumberTooLargeForItsTypeEndsTheProcessAsInGmp) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  zor_mpz r;
  mpz_t s;
  zor_gmp___gmpz_init(&r);
  mpz_init(s);
  const char* message = "overflow in mpz type";
  EXPECT_EXIT(zor_gmp___gmpz_realloc2(&r, ~0ul), testing::KilledBySignal(SIGABRT), message);
  EXPECT_EXIT(mpz_realloc2(s, ~0ul), testing::KilledBySignal(SIGABRT), message);
}

TEST(Memory, EmptyBlocksOfTheDefaultFunctionsAreBlocks) {
  void* block = zor_gmp___gmp_default_allocate(0);
  ASSERT_NE(nullptr, block);
  block = zor_gmp___gmp_default_reallocate(block, 0, 100);
  std::memset(block, 1, 100);
  block = zor_gmp___gmp_default_reallocate(block, 100, 0);
  ASSERT_NE(nullptr, block);
  zor_gmp___gmp_default_free(block, 0);
}

}  // namespace
