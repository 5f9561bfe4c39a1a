// SPDX-License-Identifier: MIT
// Multi-precision integers. Every name of the tables: those on integers and words by calls made from their
// signatures, the others one by one.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "tools/verify/battery.h"
#include "tools/verify/integer_calls.h"
#include "zor/serv.h"

namespace zor_tools {
namespace {

constexpr int calls_per_name = 100;

void add_integer(recorder& out, const integer& a) {
  out.add(int64_t(a.limbs.size()) * (a.negative ? -1 : 1));
  out.add(reinterpret_cast<const int64_t*>(a.limbs.data()), a.limbs.size());
}

void add_words(recorder& out, const std::vector<zor_limb>& words) {
  out.add(reinterpret_cast<const int64_t*>(words.data()), words.size());
}

void add_text(recorder& out, const std::string& text) {
  for (const char c : text) out.add(int64_t(c));
}

template <class F>
void record_calls(recorder& out, const char* name, F* routine, domain allowed) {
  if (!out.begin(name)) return;
  numbers source(7);
  for (int i = 0; i < calls_per_name; ++i) {
    const outcome left = run_call<zor_mpz>(routine, plan_call(routine, allowed, source));
    out.add(int64_t(left.returned));
    for (const integer& value : left.values) add_integer(out, value);
  }
}

using number = held<zor_mpz>;

// Records what an init function makes, and clears it.
template <class Init>
void record_init(recorder& out, const char* name, const Init& init) {
  out.begin(name);
  numbers source(8);
  for (int i = 0; i < 40; ++i) {
    zor_mpz made;
    init(&made, random_integer(source, 2000));
    add_integer(out, library<zor_mpz>::contents(made));
    zor_gmp___gmpz_clear(&made);
  }
}

std::string text_of(const integer& a, int base) {
  number x(a);
  std::string text(zor_gmp___gmpz_sizeinbase(x, base < 0 ? -base : base) + 2, '\0');
  zor_gmp___gmpz_get_str(text.data(), base, x);
  return text.c_str();
}

long word_of(const integer& a) { return a.limbs.empty() ? 0 : long(a.limbs[0]) * (a.negative ? -1 : 1); }

void run_lives(recorder& out) {
  record_init(out, "zor_gmp___gmpz_init", [](zor_mpz* r, const integer&) { zor_gmp___gmpz_init(r); });
  record_init(out, "zor_gmp___gmpz_init2", [](zor_mpz* r, const integer& a) {
    zor_gmp___gmpz_init2(r, a.limbs.size() * 64);
    library<zor_mpz>::assign(r, a);
  });
  record_init(out, "zor_gmp___gmpz_init_set", [](zor_mpz* r, const integer& a) {
    number from(a);
    zor_gmp___gmpz_init_set(r, from);
  });
  record_init(out, "zor_gmp___gmpz_init_set_ui", [](zor_mpz* r, const integer& a) {
    zor_gmp___gmpz_init_set_ui(r, (unsigned long)(word_of(a)));
  });
  record_init(out, "zor_gmp___gmpz_init_set_si",
              [](zor_mpz* r, const integer& a) { zor_gmp___gmpz_init_set_si(r, word_of(a)); });
  record_init(out, "zor_gmp___gmpz_init_set_d", [](zor_mpz* r, const integer& a) {
    zor_gmp___gmpz_init_set_d(r, double(word_of(a)) * 0x1p70);
  });
  record_init(out, "zor_gmp___gmpz_init_set_str", [](zor_mpz* r, const integer& a) {
    zor_gmp___gmpz_init_set_str(r, text_of(a, 36).c_str(), 36);
  });
  record_init(out, "zor_gmp___gmpz_realloc2", [](zor_mpz* r, const integer& a) {
    zor_gmp___gmpz_init(r);
    library<zor_mpz>::assign(r, a);
    zor_gmp___gmpz_realloc2(r, 700);
  });
  record_init(out, "zor_gmp___gmpz_clear", [](zor_mpz* r, const integer& a) {
    zor_gmp___gmpz_init_set_si(r, word_of(a));
    zor_gmp___gmpz_clear(r);
    zor_gmp___gmpz_init(r);
  });
}

void run_text(recorder& out) {
  numbers source(9);
  std::vector<std::string> texts;
  out.begin("zor_gmp___gmpz_get_str");
  for (int base = -36; base <= 62; ++base) {
    if (base > -2 && base < 2) continue;
    texts.push_back(text_of(random_integer(source, 2000), base));
    add_text(out, texts.back());
  }
  out.begin("zor_gmp___gmpz_set_str");
  number x;
  for (int base = 0; base <= 62; ++base) {
    if (base == 1) continue;
    for (const std::string& text : texts) {
      out.add(int64_t(zor_gmp___gmpz_set_str(x, text.c_str(), base)));
      add_integer(out, x.value());
    }
  }
}

// Words of 1 to 9 bytes, in both orders and endiannesses, with and without nails.
void run_words(recorder& out) {
  for (const bool importing : {true, false}) {
    out.begin(importing ? "zor_gmp___gmpz_import" : "zor_gmp___gmpz_export");
    numbers source(10);
    for (size_t size = 1; size <= 9; ++size)
      for (const int order : {1, -1})
        for (const int endian : {1, -1})
          for (const size_t nails : {size_t(0), size_t(1), size * 8 - 3}) {
            number x(random_integer(source, 1500));
            std::vector<zor_limb> words(600);
            size_t count = 0;
            zor_gmp___gmpz_export(words.data(), &count, order, size, endian, nails, x);
            if (importing) {
              zor_gmp___gmpz_import(x, count, order, size, endian, nails, words.data());
              add_integer(out, x.value());
            } else {
              out.add(int64_t(count));
              add_words(out, words);
            }
          }
  }
}

void run_random(recorder& out) {
  numbers source(11);
  zor_rand_t state, copy;
  number r, n(integer{false, {1, 2, 3, 4, 5}});
  const auto draw = [&](const char* name, zor_rand_ptr from) {
    out.begin(name);
    for (zor_bitcnt bits = 0; bits < 400; bits += 13) {
      zor_gmp___gmpz_urandomb(r, from, bits);
      add_integer(out, r.value());
    }
  };
  zor_gmp___gmp_randinit_default(state);
  draw("zor_gmp___gmp_randinit_default", state);
  zor_gmp___gmp_randseed_ui(state, 12345);
  draw("zor_gmp___gmp_randseed_ui", state);
  number seed(random_integer(source, 3000));
  zor_gmp___gmp_randseed(state, seed);
  draw("zor_gmp___gmp_randseed", state);
  zor_gmp___gmp_randinit_set(copy, state);
  draw("zor_gmp___gmp_randinit_set", copy);
  zor_gmp___gmp_randclear(copy);
  draw("zor_gmp___gmp_randclear", state);
  draw("zor_gmp___gmpz_urandomb", state);
  out.begin("zor_gmp___gmpz_urandomm");
  for (int i = 0; i < 30; ++i) {
    zor_gmp___gmpz_urandomm(r, state, n);
    add_integer(out, r.value());
  }
  zor_gmp___gmp_randclear(state);
}

std::vector<zor_limb> limbs(numbers& source, size_t count) {
  std::vector<zor_limb> a = random_integer(source, 64 * count).limbs;
  a.resize(count, 1);
  return a;
}

using limb_pair_fn = zor_limb(zor_limb*, const zor_limb*, const zor_limb*, long);
using limb_word_fn = zor_limb(zor_limb*, const zor_limb*, long, zor_limb);

void run_limbs(recorder& out) {
  const size_t sizes[] = {1, 2, 3, 4, 7, 8, 31, 64, 65, 200};
  for (const auto& [name, routine] :
       {std::pair<const char*, limb_pair_fn*>("zor_gmp___gmpn_add_n", zor_gmp___gmpn_add_n),
        {"zor_gmp___gmpn_sub_n", zor_gmp___gmpn_sub_n}}) {
    out.begin(name);
    numbers source(12);
    for (const size_t n : sizes) {
      const auto a = limbs(source, n), b = limbs(source, n);
      auto r = a;
      out.add(int64_t(routine(r.data(), a.data(), b.data(), long(n))));
      add_words(out, r);
    }
  }
  for (const auto& [name, routine] :
       {std::pair<const char*, limb_word_fn*>("zor_gmp___gmpn_add_1", zor_gmp___gmpn_add_1),
        {"zor_gmp___gmpn_sub_1", zor_gmp___gmpn_sub_1},
        {"zor_gmp___gmpn_addmul_1", zor_gmp___gmpn_addmul_1},
        {"zor_gmp___gmpn_submul_1", zor_gmp___gmpn_submul_1}}) {
    out.begin(name);
    numbers source(13);
    for (const size_t n : sizes) {
      const auto a = limbs(source, n);
      auto r = limbs(source, n);
      out.add(int64_t(routine(r.data(), a.data(), long(n), ~source.below(1000))));
      add_words(out, r);
    }
  }
  numbers source(14);
  out.begin("zor_gmp___gmpn_mul_n");
  for (const size_t n : sizes) {
    std::vector<zor_limb> r(2 * n);
    zor_gmp___gmpn_mul_n(r.data(), limbs(source, n).data(), limbs(source, n).data(), long(n));
    add_words(out, r);
  }
  out.begin("zor_gmp___gmpn_mul");
  for (const size_t n : sizes) {
    std::vector<zor_limb> r(n + n / 2 + 1);
    const auto a = limbs(source, n), b = limbs(source, n / 2 + 1);
    if (b.size() > n) continue;
    out.add(int64_t(zor_gmp___gmpn_mul(r.data(), a.data(), long(n), b.data(), long(b.size()))));
    add_words(out, r);
  }
  out.begin("zor_gmp___gmpn_cmp");
  for (const size_t n : sizes) {
    const auto a = limbs(source, n), b = limbs(source, n);
    for (const auto* second : {&a, &b})
      out.add(int64_t(zor_gmp___gmpn_cmp(a.data(), second->data(), long(n))));
  }
}

// Memory functions that count their calls, and the results of a calculation on them.
size_t calls_of_functions;
void* counted_allocate(size_t size) { return ++calls_of_functions, zor_gmp___gmp_default_allocate(size); }
void* counted_reallocate(void* block, size_t old_size, size_t size) {
  return ++calls_of_functions, zor_gmp___gmp_default_reallocate(block, old_size, size);
}
void counted_free(void* block, size_t size) { ++calls_of_functions, zor_gmp___gmp_default_free(block, size); }

void run_memory(recorder& out) {
  out.begin("zor_gmp___gmp_set_memory_functions");
  calls_of_functions = 0;
  zor_gmp___gmp_set_memory_functions(counted_allocate, counted_reallocate, counted_free);
  {
    number r;
    zor_gmp___gmpz_ui_pow_ui(r, 7, 5000);
    add_integer(out, r.value());
  }
  out.add(int64_t(calls_of_functions > 0));
  zor_gmp___gmp_set_memory_functions(nullptr, nullptr, nullptr);
  calls_of_functions = 0;
  number r(integer{false, {1, 2, 3}});
  out.add(int64_t(calls_of_functions));

  auto* block = static_cast<zor_limb*>(zor_gmp___gmp_default_allocate(64));
  for (zor_limb i = 0; i < 8; ++i) block[i] = i;
  out.begin("zor_gmp___gmp_default_allocate");
  add_words(out, {block, block + 8});
  block = static_cast<zor_limb*>(zor_gmp___gmp_default_reallocate(block, 64, 80000));
  out.begin("zor_gmp___gmp_default_reallocate");
  add_words(out, {block, block + 8});
  zor_gmp___gmp_default_free(block, 80000);
  out.begin("zor_gmp___gmp_default_free");

  zor_gmp_mark mark;
  zor_gmp__imptmpmark(&mark);
  out.begin("zor_gmp__imptmpmark");
  out.add(int64_t(mark.last == nullptr));
  out.begin("zor_gmp__imptmpmalloc");
  std::vector<zor_limb*> blocks;
  for (size_t i = 1; i < 20; ++i) {
    blocks.push_back(static_cast<zor_limb*>(zor_gmp__imptmpmalloc(&mark, i * sizeof(zor_limb))));
    for (size_t k = 0; k < i; ++k) blocks.back()[k] = 100 * i + k;
  }
  for (size_t i = 1; i < 20; ++i) add_words(out, {blocks[i - 1], blocks[i - 1] + i});
  zor_gmp__imptmpfree(&mark);
  out.begin("zor_gmp__imptmpfree");
  out.add(int64_t(mark.last == nullptr));
}

void run_own(recorder& out) {
  record_calls(out, "zor_gmp_mpz_powm_mary", zor_gmp_mpz_powm_mary, domain::modular);
  numbers source(15);
  for (const bool sum : {true, false}) {
    out.begin(sum ? "zor_gmp_mpl_add_ssaaaa" : "zor_gmp_mpl_umul_ppmm");
    for (int i = 0; i < 100; ++i) {
      zor_limb high = 0, low = 0;
      const auto a = limbs(source, 4);
      if (sum)
        zor_gmp_mpl_add_ssaaaa(&high, &low, a[0], a[1], a[2], a[3]);
      else
        zor_gmp_mpl_umul_ppmm(&high, &low, a[0], a[1]);
      add_words(out, {high, low});
    }
  }
  for (const bool ones : {true, false}) {
    out.begin(ones ? "zor_gmp_zor_gmp_scan1" : "zor_gmp_zor_gmp_scan0");
    for (size_t n = 0; n < 9; ++n) {
      const auto a = limbs(source, n);
      for (zor_bitcnt start = 0; start < 600; start += 7)
        out.add(int64_t((ones ? zor_gmp_zor_gmp_scan1 : zor_gmp_zor_gmp_scan0)(a.data(), long(n), start)));
    }
  }
}

// What a routine writes into a file.
template <class Write>
std::string written(const Write& write) {
  char* text = nullptr;
  size_t size = 0;
  FILE* file = open_memstream(&text, &size);
  if (file == nullptr) throw std::bad_alloc();
  write(file);
  std::fclose(file);
  const std::string result(text, size);
  std::free(text);
  return result;
}

template <class Read>
void add_read(recorder& out, std::string text, const Read& read) {
  FILE* file = fmemopen(text.data(), text.size(), "r");
  if (file == nullptr) throw std::bad_alloc();
  number r;
  out.add(int64_t(read(r, file)));
  add_integer(out, r.value());
  std::fclose(file);
}

void run_files(recorder& out) {
  numbers source(16);
  const int bases[] = {-36, -16, 2, 8, 10, 16, 36, 37, 62};
  std::vector<std::string> texts, raw;
  out.begin("zor_gmp___gmpz_out_str");
  for (const int base : bases) {
    number x(random_integer(source, 3000));
    texts.push_back(written([&](FILE* file) { zor_gmp___gmpz_out_str(file, base, x); }));
    add_text(out, texts.back());
  }
  out.begin("zor_gmp___gmpz_inp_str");
  for (const int base : {0, 2, 10, 16, 62})
    for (const std::string& text : texts)
      add_read(out, text, [&](zor_mpz* r, FILE* file) { return zor_gmp___gmpz_inp_str(r, file, base); });
  out.begin("zor_gmp___gmpz_out_raw");
  for (int i = 0; i < 20; ++i) {
    number x(random_integer(source, 3000));
    raw.push_back(written([&](FILE* file) { zor_gmp___gmpz_out_raw(file, x); }));
    add_text(out, raw.back());
  }
  out.begin("zor_gmp___gmpz_inp_raw");
  for (const std::string& text : raw)
    add_read(out, text, [](zor_mpz* r, FILE* file) { return zor_gmp___gmpz_inp_raw(r, file); });
  out.begin("zor_gmp___gmp_fprintf");
  for (const char* format : {"%Zd", "%+Zx", "%#Zo", "%-90ZXend", "%.80Zd", "%090Zd", "%s %Zd %5.2f %ld %c"}) {
    number x(random_integer(source, 300));
    add_text(out, written([&](FILE* file) {
               if (format[1] == 's')
                 zor_gmp___gmp_fprintf(file, format, "text", x.get(), 2.5, -9L, 'z');
               else
                 zor_gmp___gmp_fprintf(file, format, x.get());
             }));
  }
  out.begin("zor_gmp___gmpq_out_str");
  for (const int base : bases) {
    zor_mpq quotient;
    number numerator(random_integer(source, 1000)), denominator(integer{false, {source.below(1000) + 1}});
    quotient.numerator = *numerator.get();
    quotient.denominator = *denominator.get();
    add_text(out, written([&](FILE* file) { zor_gmp___gmpq_out_str(file, base, &quotient); }));
  }
}

}  // namespace

void run_gmp(recorder& out) {
#define ROW_CALL(name, gmp, result, params, allowed) record_calls(out, #name, name, domain::allowed);
#include "zor/tables/gmp.inc"
  run_lives(out);
  run_text(out);
  run_words(out);
  run_random(out);
  run_limbs(out);
  run_memory(out);
  run_own(out);
  run_files(out);
}

}  // namespace zor_tools
