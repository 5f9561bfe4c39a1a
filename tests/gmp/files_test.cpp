// SPDX-License-Identifier: MIT
// The file routines, by the names that libzor_core exports and by those of the kernel library, which forwards
// them, against the routines of libgmp.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <functional>

#include "tests/gmp/gmp_numbers.h"
#include "tests/support/symbols.h"

namespace {

using namespace zor_test;
using zor_tools::random_integer;

struct file_names {
#define ROW_FILE(name, gmp, result, params) result(*gmp) params;
#include "zor/tables/core_gmp.inc"
};

file_names names_of_the_core() {
  return {
#define ROW_FILE(name, ...) name,
#include "zor/tables/core_gmp.inc"
  };
}

// The kernel library's own exports.
file_names names_of_the_kernels() {
  void* const handle = dlopen(kern_file().c_str(), RTLD_NOW | RTLD_NOLOAD);
  const auto find = [&]<class F>(const char* name, F*) { return reinterpret_cast<F*>(dlsym(handle, name)); };
  return {
#define ROW_FILE(name, ...) find(#name, name),
#include "zor/tables/core_gmp.inc"
  };
}

using write_fn = std::function<size_t(FILE*)>;

// What is written and what is returned.
std::string written(const write_fn& write) {
  FILE* file = std::tmpfile();
  const size_t returned = write(file);
  std::string text(size_t(std::ftell(file)), '\0');
  std::rewind(file);
  EXPECT_EQ(text.size(), std::fread(text.data(), 1, text.size(), file));
  std::fclose(file);
  return std::to_string(returned) + ": " + text;
}

using read_fn = std::function<size_t(FILE*)>;

// What is returned, and what of the text is left.
std::string left_behind(const std::string& text, const read_fn& read) {
  FILE* file = std::tmpfile();
  std::fwrite(text.data(), 1, text.size(), file);
  std::rewind(file);
  std::string rest = std::to_string(read(file)) + ": ";
  for (int c = std::fgetc(file); c != EOF; c = std::fgetc(file)) rest += char(c);
  std::fclose(file);
  return rest;
}

class Files : public testing::TestWithParam<file_names (*)()> {
 protected:
  const file_names names = GetParam()();
};
INSTANTIATE_TEST_SUITE_P(Libraries, Files, testing::Values(names_of_the_core, names_of_the_kernels));

TEST_P(Files, Text) {
  numbers source(1);
  for (int base = -36; base <= 62; ++base)
    for (int i = 0; i < 4; ++i) {
      const integer a = random_integer(source, 5000);
      ours x(a), back;
      theirs u(a);
      const std::string text = written([&](FILE* f) { return names.__gmpz_out_str(f, base, x); });
      ASSERT_EQ(written([&](FILE* f) { return mpz_out_str(f, base, u); }), text) << base;
      const std::string digits = text.substr(text.find(' ') + 1) + " 5";
      if (std::abs(base) < 2 || digits == " 5") continue;
      EXPECT_EQ(std::to_string(digits.size() - 2) + ":  5",
                left_behind(digits, [&](FILE* f) { return names.__gmpz_inp_str(back, f, std::abs(base)); }));
      EXPECT_EQ(a, back.value());
    }
}

TEST_P(Files, TextAcceptedAsByGmp) {
  for (const char* text : {"",      " ",     "-",     "+1",    "0",
                           "-0 ",   "12 34", "  12",  "- 7",   "-7-",
                           "0x1Fg", "0X1f",  "0b102", "017",   "08",
                           "zZ",    "0x",    "0b",    "00012", "99999999999999999999999999999999999999\n"})
    for (int base = 0; base <= 62; ++base) {
      if (base == 1) continue;
      ours x(integer{false, {77}});
      theirs u(integer{false, {77}});
      EXPECT_EQ(left_behind(text, [&](FILE* f) { return mpz_inp_str(u, f, base); }),
                left_behind(text, [&](FILE* f) { return names.__gmpz_inp_str(x, f, base); }))
          << text << " in base " << base;
      EXPECT_EQ(u.value(), x.value()) << text << " in base " << base;
    }
}

TEST_P(Files, RawBytes) {
  numbers source(2);
  for (int i = 0; i < 200; ++i) {
    const integer a = random_integer(source, 3000);
    ours x(a), back(integer{false, {1, 2, 3}});
    theirs u(a);
    const std::string bytes = written([&](FILE* f) { return names.__gmpz_out_raw(f, x); });
    ASSERT_EQ(written([&](FILE* f) { return mpz_out_raw(f, u); }), bytes);
    const std::string raw = bytes.substr(bytes.find(' ') + 1) + "rest";
    EXPECT_EQ(std::to_string(raw.size() - 4) + ": rest",
              left_behind(raw, [&](FILE* f) { return names.__gmpz_inp_raw(back, f); }));
    EXPECT_EQ(a, back.value());
    for (const size_t cut : {size_t(0), size_t(3), raw.size() - 5})
      if (cut < raw.size() - 4) {
        EXPECT_EQ("0: ",
                  left_behind(raw.substr(0, cut), [&](FILE* f) { return names.__gmpz_inp_raw(back, f); }));
      }
  }
}

TEST_P(Files, Formats) {
  numbers source(3);
  for (int i = 0; i < 20; ++i) {
    const integer a = random_integer(source, 400), b = random_integer(source, 400);
    ours x(a);
    theirs u(a), v(b);
    const mp_limb_t two[] = {5, 6};
    mpq_t q;
    mpf_t f;
    mpq_init(q);
    mpq_set_num(q, u);
    mpf_init_set_d(f, 0.15625);
#define SAME(format, ...)                                                                                \
  EXPECT_EQ(written([&](FILE* file) { return size_t(gmp_fprintf(file, format, __VA_ARGS__)); }),         \
            written([&](FILE* file) { return size_t(names.__gmp_fprintf(file, format, __VA_ARGS__)); })) \
      << format
    for (const char* format : {"%Zd", "%+Zd", "% Zd", "%Zi", "%Zu", "%Zo", "%#Zo", "%Zx", "%#ZX", "%200Zd",
                               "%-200Zd|", "%0200Zd", "%.150Zd", "%'Zd", "%%%Zd%%"})
      SAME(format, u.get());
    SAME("%d %s %Zx %.3f %ld %e %c %Zd %.1f %d %lld %hhd %zu %p", 7, "text", u.get(), 2.5, -9L, 1e100, 'z',
         v.get(), -0.5, 12, 1ll << 40, 300, sizeof q, static_cast<void*>(q));
    SAME("%*Zd %.*Zd", 50, u.get(), 60, v.get());
    SAME("%Qd %#Qx", q, q);
    SAME("%Fe %.3Ff %Fg", f, f, f);
    SAME("%Nd %Mu %La", two, mp_size_t(2), mp_limb_t(77), 1.5L);
#undef SAME
    int count = 0;
    written([&](FILE* file) { return size_t(names.__gmp_fprintf(file, "123%Zn4567%n", x.get(), &count)); });
    EXPECT_EQ((integer{false, {3}}), x.value());
    EXPECT_EQ(7, count);
    mpq_clear(q);
    mpf_clear(f);
  }
}

TEST_P(Files, AStreamThatFails) {
  const integer a = zor_tools::product({false, {7, 7, 7}}, {true, {9, 9}});
  ours x(a);
  theirs u(a);
  for (const char* path : {"/dev/full", "/dev/null"}) {
    FILE* file = std::fopen(path, "r+");
    ASSERT_NE(nullptr, file);
    std::setvbuf(file, nullptr, _IONBF, 0);
    EXPECT_EQ(mpz_out_str(file, 10, u), names.__gmpz_out_str(file, 10, x)) << path;
    EXPECT_EQ(mpz_out_raw(file, u), names.__gmpz_out_raw(file, x)) << path;
    EXPECT_EQ(gmp_fprintf(file, "%Zd", u.get()), names.__gmp_fprintf(file, "%Zd", x.get())) << path;
    std::fclose(file);
  }
}

// Lets a file stand for a descriptor, as a shell does.
class redirected {
 public:
  redirected(int descriptor, FILE* file) : descriptor_(descriptor), kept_(dup(descriptor)) {
    std::fflush(nullptr);
    dup2(fileno(file), descriptor_);
  }
  ~redirected() {
    std::fflush(nullptr);
    dup2(kept_, descriptor_);
    close(kept_);
  }

 private:
  int descriptor_, kept_;
};

TEST_P(Files, NullIsTheStandardStream) {
  const integer a{true, {12345}};
  ours x(a), text, raw;
  FILE* file = std::tmpfile();
  {
    const redirected out(1, file);
    EXPECT_EQ(6u, names.__gmpz_out_str(nullptr, 10, x));
    EXPECT_EQ(6u, names.__gmpz_out_raw(nullptr, x));
    EXPECT_EQ(3, names.__gmp_fprintf(nullptr, "\n%s", "ab"));
    zor_mpq q = {*x.get(), *x.get()};
    ours seven(integer{false, {7}});
    q.denominator = *seven.get();
    EXPECT_EQ(8u, zor_gmp___gmpq_out_str(nullptr, 10, &q));
  }
  std::rewind(file);
  std::clearerr(stdin);
  {
    const redirected in(0, file);
    EXPECT_EQ(6u, names.__gmpz_inp_str(text, nullptr, 10));
    EXPECT_EQ(6u, names.__gmpz_inp_raw(raw, nullptr));
    char rest[20] = {};
    EXPECT_EQ(11u, std::fread(rest, 1, sizeof rest, stdin));
    EXPECT_STREQ("\nab-12345/7", rest);
  }
  std::fclose(file);
  EXPECT_EQ(a, text.value());
  EXPECT_EQ(a, raw.value());
}

TEST_P(Files, NullIsAnotherStreamOnceItIsAssigned) {
  ours x(integer{false, {2024}});
  char* text = nullptr;
  size_t size = 0;
  FILE* memory = open_memstream(&text, &size);
  FILE* const standard = stdout;
  stdout = memory;
  names.__gmpz_out_str(nullptr, 10, x);
  zor_mpq whole = {*x.get(), {1, 1, x.get()->limb}};
  zor_gmp___gmpq_out_str(nullptr, 16, &whole);
  stdout = standard;
  std::fclose(memory);
  EXPECT_STREQ("20247e8/7e8", text);
  std::free(text);
}

TEST(Quotients, AreWrittenAsByGmp) {
  numbers source(4);
  for (int base = -36; base <= 62; ++base) {
    const integer a = random_integer(source, 900);
    integer b = random_integer(source, 900);
    b.negative = false;
    if (b.limbs.empty()) b.limbs = {1};
    ours x(a), y(b);
    mpq_t q;
    mpq_init(q);
    zor_tools::library<__mpz_struct>::assign(mpq_numref(q), a);
    zor_tools::library<__mpz_struct>::assign(mpq_denref(q), b);
    const zor_mpq ours_q = {*x.get(), *y.get()};
    EXPECT_EQ(written([&](FILE* f) { return mpq_out_str(f, base, q); }),
              written([&](FILE* f) { return zor_gmp___gmpq_out_str(f, base, &ours_q); }))
        << base;
    mpq_clear(q);
  }
}

}  // namespace
