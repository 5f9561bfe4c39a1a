// SPDX-License-Identifier: MIT
// Multi-precision integers beside libgmp: the same code, reached under other names and with other memory
// functions.
#include <dlfcn.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <memory>
#include <string>

#include "bench/bench.h"
#include "zor/gmp.h"

namespace zor_bench {
namespace {

// The routines of one library. Those of libgmp take integers of the same layout.
struct routines {
  decltype(zor_gmp___gmpz_init)* init;
  decltype(zor_gmp___gmpz_clear)* clear;
  decltype(zor_gmp___gmpz_import)* import;
  decltype(zor_gmp___gmpz_cmp)* cmp;
  decltype(zor_gmp___gmpz_mul)* mul;
  decltype(zor_gmp___gmpz_tdiv_qr)* tdiv_qr;
  decltype(zor_gmp___gmpz_gcd)* gcd;
  decltype(zor_gmp___gmpz_invert)* invert;
  decltype(zor_gmp___gmpz_powm)* powm;
  decltype(zor_gmp_mpz_powm_mary)* powm_mary;
};

const routines ours = {zor_gmp___gmpz_init,  zor_gmp___gmpz_clear,  zor_gmp___gmpz_import,
                       zor_gmp___gmpz_cmp,   zor_gmp___gmpz_mul,    zor_gmp___gmpz_tdiv_qr,
                       zor_gmp___gmpz_gcd,   zor_gmp___gmpz_invert, zor_gmp___gmpz_powm,
                       zor_gmp_mpz_powm_mary};

template <class F>
bool find(void* library, const char* name, F*& routine) {
  routine = reinterpret_cast<F*>(dlsym(library, name));
  return routine != nullptr;
}

// libgmp, or null. It has no second modular power: its first one stands in both places.
const routines* find_libgmp() {
  static const std::unique_ptr<routines> found = [] {
    void* library = dlopen("libgmp.so.10", RTLD_NOW | RTLD_LOCAL);
    auto r = std::make_unique<routines>();
    const bool whole = library != nullptr && find(library, "__gmpz_init", r->init) &&
                       find(library, "__gmpz_clear", r->clear) && find(library, "__gmpz_import", r->import) &&
                       find(library, "__gmpz_cmp", r->cmp) && find(library, "__gmpz_mul", r->mul) &&
                       find(library, "__gmpz_tdiv_qr", r->tdiv_qr) && find(library, "__gmpz_gcd", r->gcd) &&
                       find(library, "__gmpz_invert", r->invert) && find(library, "__gmpz_powm", r->powm) &&
                       find(library, "__gmpz_powm", r->powm_mary);
    return whole ? std::move(r) : nullptr;
  }();
  return found.get();
}

std::vector<zor_limb> random_limbs(uint64_t bits, uint64_t seed) {
  std::vector<zor_limb> limbs((bits + 63) / 64);
  for (zor_limb& limb : limbs) {
    seed = seed * 6364136223846793005u + 1442695040888963407u;
    limb = seed ^ seed >> 29;
  }
  const uint64_t top = (bits - 1) % 64;
  limbs.back() = (limbs.back() & ~(~zor_limb(0) << top)) | zor_limb(1) << top;
  limbs.front() |= 1;
  return limbs;
}

// Operands of one library and two results.
class operand_set {
 public:
  operand_set(const routines& library, uint64_t bits, uint64_t exponent_bits) : library_(library) {
    for (zor_mpz& x : all_) library.init(&x);
    set(a, bits, 1);
    set(b, bits, 2);
    set(wide, 2 * bits, 3);
    set(exponent, exponent_bits, 4);
  }
  ~operand_set() {
    for (zor_mpz& x : all_) library_.clear(&x);
  }
  operand_set(const operand_set&) = delete;
  operand_set& operator=(const operand_set&) = delete;

 private:
  void set(zor_mpz* x, uint64_t bits, uint64_t seed) {
    const auto limbs = random_limbs(bits, seed);
    library_.import(x, limbs.size(), -1, sizeof(zor_limb), 0, 0, limbs.data());
  }
  std::array<zor_mpz, 6> all_;
  const routines& library_;

 public:
  zor_mpz *const a = &all_[0], *const b = &all_[1], *const wide = &all_[2], *const exponent = &all_[3],
                 *const result = &all_[4], *const second = &all_[5];
};

using call_fn = void(const routines& library, const operand_set& o);

runner repeated(const routines& library, uint64_t bits, uint64_t exponent_bits, call_fn* call,
                std::shared_ptr<operand_set>& operands) {
  operands = std::make_shared<operand_set>(library, bits, exponent_bits);
  return [&library, call, operands](int64_t repeats) {
    for (int64_t i = 0; i < repeats; ++i) call(library, *operands);
  };
}

struct operation {
  const char* name;
  call_fn* call;
  std::vector<uint64_t> bits;
  uint64_t longest_exponent = 0;  // of a power; a modulus above that has an exponent of 64 bits
};

const std::vector<uint64_t> sizes = {64, 256, 1000, 4000, 16000, 100000, 1000000};
const operation operations[] = {
    {"mul", [](const routines& l, const operand_set& o) { l.mul(o.result, o.a, o.b); }, sizes},
    {"tdiv_qr", [](const routines& l, const operand_set& o) { l.tdiv_qr(o.result, o.second, o.wide, o.b); },
     sizes},
    {"gcd", [](const routines& l, const operand_set& o) { l.gcd(o.result, o.a, o.b); }, sizes},
    {"invert", [](const routines& l, const operand_set& o) { l.invert(o.result, o.a, o.b); }, sizes},
    {"powm", [](const routines& l, const operand_set& o) { l.powm(o.result, o.a, o.exponent, o.b); }, sizes,
     4000},
    {"powm_mary",
     [](const routines& l, const operand_set& o) { l.powm_mary(o.result, o.a, o.exponent, o.b); },
     {512, 1024, 1536, 2048, 3072, 4096, 8192},
     8192}};

prepared prepare(const operation& op, uint64_t bits) {
  const uint64_t exponent_bits = bits <= op.longest_exponent ? bits : 64;
  std::shared_ptr<operand_set> own, other;
  std::vector<contender> all = {{"zor", repeated(ours, bits, exponent_bits, op.call, own)}};
  if (const routines* libgmp = find_libgmp())
    all.push_back({"libgmp", repeated(*libgmp, bits, exponent_bits, op.call, other)});
  all[0].run(1);
  return keep_agreeing(all, [&](const contender& c) {
    c.run(1);
    return ours.cmp(own->result, other->result) == 0 && ours.cmp(own->second, other->second) == 0;
  });
}

}  // namespace

std::vector<bench_case> gmp_cases(const environment& env) {
  std::vector<bench_case> cases;
  for (const operation& op : operations)
    for (const uint64_t bits : op.bits) {
      if (env.opts.quick && bits > 4096) continue;
      bench_case c;
      c.name = fmt::format("{} {}", op.name, bits);
      if (op.longest_exponent > 0 && bits > op.longest_exponent) c.name += ", exponent 64";
      c.setup = [&op, bits] { return prepare(op, bits); };
      cases.push_back(std::move(c));
    }
  return cases;
}

}  // namespace zor_bench
