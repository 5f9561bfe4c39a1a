// SPDX-License-Identifier: MIT
// Draws and operands of a trial, the conditions under which it is repeated, and what its outcome is.
#include "tests/fuzz/trial.h"

#include <dlfcn.h>
#include <sys/mman.h>
#include <unistd.h>
#include <xmmintrin.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <limits>

#include "zor/core.h"

namespace zor_fuzz {

namespace {

struct dry_end {};

const zor_int thread_counts[] = {1, 2, 3, 7};

uint64_t mixed(uint64_t h, uint64_t x) { return random_bits(h ^ x * 0xD6E8FEB86659FD93u).next(); }

uint64_t hashed(uint64_t seed, const char* text) {
  for (; *text; ++text) seed = mixed(seed, uint64_t(*text));
  return seed;
}

// Memory between two unmapped pages, taken by one operand after the other of a trial.
constexpr size_t arena_bytes = size_t(64) << 20, page = 4096, margin = 256;

char* arena(size_t index) {
  static std::vector<char*> arenas;
  while (arenas.size() <= index) {
    void* p =
        mmap(nullptr, arena_bytes + 2 * page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (p == MAP_FAILED) throw std::bad_alloc();
    mprotect(static_cast<char*>(p) + page, arena_bytes, PROT_READ | PROT_WRITE);
    arenas.push_back(static_cast<char*>(p) + page);
  }
  return arenas[index];
}

// What gaps hold: signalling NaN at first, then small numbers, which must not make a difference.
void write_gap(char* at, size_t part_bytes, size_t bytes, bool signalling) {
  const uint64_t nan64 = 0x7FF4000000000001u;
  const uint32_t nan32 = 0x7FA00001u;
  const double number64 = -0.625;
  const float number32 = 0.375f;
  const void* pattern = part_bytes == 8 ? (signalling ? static_cast<const void*>(&nan64) : &number64)
                                        : (signalling ? static_cast<const void*>(&nan32) : &number32);
  for (; bytes >= part_bytes; bytes -= part_bytes, at += part_bytes) std::memcpy(at, pattern, part_bytes);
}

std::string last_report;
int reported = 0;
void note_report(const char* routine, int32_t position, const char* argument) {
  reported = position;
  last_report =
      std::string(routine) + " reports argument " + std::to_string(position) + " (" + argument + ")";
}

}  // namespace

// The reports of the adapters of libblas, whose own routine of the name this one replaces.
extern "C" void xerbla_(const char* routine, const int32_t* position, size_t) {
  note_report(routine, *position, "through xerbla_");
}

namespace {

unsigned short x87_control() {
  unsigned short word;
  __asm__ volatile("fnstcw %0" : "=m"(word));
  return word;
}
void set_x87_control(unsigned short word) { __asm__ volatile("fnclex\n\tfldcw %0" : : "m"(word)); }
unsigned x87_flags() {
  unsigned short word;
  __asm__ volatile("fnstsw %0" : "=m"(word));
  return word;
}

constexpr unsigned flag_bits = 0x3F;

}  // namespace

std::vector<row>& all_rows() {
  static std::vector<row> list;
  return list;
}

rows::rows(const char* group, decltype(row::kind) kind, const std::vector<row>& list) {
  for (row r : list) {
    r.group = group;
    r.kind = kind;
    all_rows().push_back(r);
  }
}

std::string test_case::text() const {
  std::string s = std::string(what->name) + " seed=" + std::to_string(seed);
  for (const drawn& d : draws) s += " " + d.name + "=" + std::to_string(d.value);
  return s;
}

trial::trial(const test_case& c, conditions how) : case_(c), how_(how) {
  static const zor_int kinds[] = {integer, integer, unit,    unit, unit, unit,        unit,        spread,
                                  spread,  special, special, tiny, tiny, mostly_zero, mostly_zero, unit};
  random_bits r = random("modes");
  rounding_ = record("rounding", r.between(0, 2) ? 0 : r.between(1, 3), 0, 3, 0);
  denormals_ = record("denormals", r.between(0, 2) ? 0 : r.between(1, 3), 0, 3, 0);
  data_ = record("data", kinds[r.between(0, 15)], integer, mostly_zero, unit);
  const zor_int count = c.what->kind != serial ? record("threads", r.between(0, 3), 0, 3, 0) : 0;
  threads_ = how.first ? 1 : thread_counts[count];
  zor_core_set_num_threads(int32_t(threads_));
  zor_core_set_error_handler(note_report);
  last_report.clear();
  reported = 0;
}

trial::~trial() { zor_core_set_num_threads(0); }

random_bits trial::random(const char* name) const { return random_bits(hashed(case_.seed, name)); }

zor_int trial::record(const char* name, zor_int value, zor_int low, zor_int high, zor_int simplest) {
  for (const drawn& d : case_.draws)
    if (d.name == name) value = std::clamp<zor_int>(d.value, low, high);
  draws_.push_back({name, value, simplest});
  return value;
}

zor_int trial::draw(const char* name, zor_int low, zor_int high, zor_int simplest) {
  return record(name, random(name).between(low, high), low, high, simplest);
}

zor_int trial::size(const char* name, zor_int high, zor_int low) {
  random_bits r = random(name);
  const zor_int kind = r.between(0, 31);
  const zor_int reach = std::min<zor_int>(high, kind < 12 ? 9 : kind < 22 ? 34 : kind < 31 ? 130 : high);
  return record(name, std::max(low, r.between(0, reach)), low, high, low);
}

increment_of trial::increment(const char* name, bool zero) {
  static const zor_int others[] = {-1, -1, 2, -2, 3, -3, 7, 0};
  random_bits r = random(name);
  const zor_int chosen = r.between(0, 1) ? 1 : others[r.between(0, zero ? 7 : 6)];
  const zor_int inc = record(name, chosen, -7, 7, 1);
  return {inc != 0 || zero ? inc : 1};
}

leading_dimension trial::leading(const char* name, zor_int rows) {
  random_bits r = random(name);
  return {std::max<zor_int>(rows, 1) + record(name, r.between(0, 1) ? 0 : r.between(1, 9), 0, 9, 0)};
}

option trial::letter(const char* name, const char* letters) {
  static const option kinds[] = {{'T', "NTCR", 111}, {'C', "NTCR", 111}, {'L', "UL", 121},
                                 {'U', "NU", 131},   {'R', "LR", 141},   {'C', "RC", 101}};
  option o = {letters[draw(name, 0, zor_int(std::strlen(letters)) - 1, 0)], letters, 0};
  for (const option& k : kinds)
    if (k.all[0] == letters[0] && k.letter == letters[1]) return {o.letter, k.all, k.first};
  return o;
}

bool trial::spoils(int position) {
  if (case_.what->kind < checked) return false;
  if (spoiled_ < 0) spoiled_ = int(draw("spoiled", 0, 150, 0));
  if (position != spoiled_) return false;
  return refused_ = true;
}

void* trial::adapter(zor_int kind) const {
  static const auto open = [](const char* name) {
    const auto program = std::filesystem::read_symlink("/proc/self/exe");
    const auto path =
        program.parent_path().parent_path() / "lib" / name / ("lib" + std::string(name) + ".so.3");
    return dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  };
  static void* const libraries[] = {open("blas"), open("blas64")};
  // The routine itself comes first, so that both are compared; CBLAS has other positions for its reports.
  if (kind == 0 || (how_.first && !refused_) || (kind == 3 && refused_)) return nullptr;
  std::string base = name();
  base.erase(0, base.rfind("zor_blas_", 0) == 0 ? 9 : 4);
  return dlsym(libraries[kind == 2], (kind == 3 ? "cblas_" + base : base + "_").c_str());
}

double trial::value(random_bits& r, int min_exponent) const {
  // The large ones overflow in products of three, but not of two, unless to single precision.
  static const double specials[] = {NAN, INFINITY, -INFINITY, 0.0, -0.0, 1e150, 1e18};
  const double u = r.unit();
  const int64_t die = r.between(0, 31);
  switch (data_) {
    case integer:
      return double(die % 17 - 8);
    case spread:
      return std::ldexp(u, int(die) - 16);
    case special:
      return die < 7 ? specials[die] : u;
    case tiny:
      return std::ldexp(u, min_exponent - 24 + int(die));
    case mostly_zero:
      return die < 24 ? (die % 4 ? 0.0 : -0.0) : u;
    default:
      return u;
  }
}

region* trial::place(const char* name, use how, size_t part_bytes, size_t part_count, zor_int count,
                     std::vector<bool> live, size_t alignment) {
  auto r = std::make_unique<region>();
  r->name = name;
  r->how = how;
  r->part_bytes = part_bytes;
  r->parts = part_count;
  r->count = size_t(std::max<zor_int>(count, 0));
  r->live = std::move(live);
  // Even: the end stands at the upper page, odd: the beginning at the lower one; moved inwards by some parts.
  random_bits chosen = random((std::string(name) + "'s place").c_str());
  const zor_int where = record((std::string(name) + ".place").c_str(),
                               chosen.between(0, 1) ? chosen.between(0, 1) : chosen.between(0, 15), 0, 15, 0);
  const size_t bytes = r->count * part_bytes * part_count,
               shift = (size_t(where / 2) * part_bytes + alignment - 1) / alignment * alignment;
  if (bytes + shift + 2 * margin > arena_bytes)
    throw std::length_error(std::string(name) + " is too large for the fuzz driver");
  char* const base = arena(regions_.size());
  r->data = where % 2 == 0 ? base + arena_bytes - bytes - shift : base + shift;
  regions_.push_back(std::move(r));
  if (!how_.dry) fill(regions_.back().get());
  return regions_.back().get();
}

// The margins on either side, as far as they are mapped.
static std::pair<char*, char*> surroundings(const region& r, char* base) {
  char* const end = r.data + r.count * r.part_bytes * r.parts;
  return {std::max(base, r.data - margin), std::min(base + arena_bytes, end + margin)};
}

void trial::fill(region* r) {
  const size_t element = r->part_bytes * r->parts;
  const auto [low, high] = surroundings(*r, arena(regions_.size() - 1));
  const size_t head = size_t(r->data - low) % r->part_bytes;
  write_gap(low + head, r->part_bytes, size_t(high - low) - head, how_.first);
  if (r->how == use::out) return;
  random_bits random_values = random(r->name.c_str());
  for (size_t i = 0; i < r->count; ++i)
    for (size_t h = 0; h < r->parts && r->live[i]; ++h) {
      char* const at = r->data + i * element + h * r->part_bytes;
      if (r->part_bytes == 4)
        *reinterpret_cast<float*>(at) = float(value(random_values, std::numeric_limits<float>::min_exponent));
      else
        *reinterpret_cast<double*>(at) = value(random_values, std::numeric_limits<double>::min_exponent);
    }
}

void trial::enter() {
  if (how_.dry) throw dry_end{};
  for (size_t i = 0; i < regions_.size(); ++i) {
    region& r = *regions_[i];
    if (!r.before.empty()) continue;
    const auto [low, high] = surroundings(r, arena(i));
    // As many bytes on either side, so that elements are found without the margins' real sizes.
    r.before.assign(r.count * r.part_bytes * r.parts + 2 * margin, 0);
    std::memcpy(r.before.data() + margin - (r.data - low), low, size_t(high - low));
  }
  saved_modes_ = _mm_getcsr();
  saved_x87_ = x87_control();
  modes_ = (saved_modes_ & ~(0x6000u | 0x8040u | flag_bits)) | unsigned(rounding_) << 13 |
           (denormals_ & 1 ? 0x8000u : 0) | (denormals_ & 2 ? 0x0040u : 0);
  set_x87_control(static_cast<unsigned short>((saved_x87_ & ~0x0C00) | unsigned(rounding_) << 10));
  _mm_setcsr(modes_);
}

void trial::leave(bool flags) {
  const unsigned after = _mm_getcsr(), raised = (after | x87_flags()) & flag_bits;
  const unsigned short x87 = x87_control();
  _mm_setcsr(saved_modes_);
  set_x87_control(saved_x87_);
  expect((after & ~flag_bits) == modes_, "the floating-point modes were changed");
  expect(x87 == static_cast<unsigned short>((saved_x87_ & ~0x0C00) | unsigned(rounding_) << 10),
         "the x87 modes were changed");
  const bool reports = refused_ && case_.what->kind == checked;
  expect(reports ? reported == spoiled_ : last_report.empty(),
         "bad argument: " + std::to_string(refused_ ? spoiled_ : 0) + "; " + last_report);
  if (flags) flags_ |= raised;
}

void trial::mix(uint64_t x) { hash_ = mixed(hash_, x); }

void trial::expect(bool good, const std::string& what) {
  if (!good && fault.empty()) fault = what;
}

void trial::compare(long double value, long double reference, long double allowed, const char* what,
                    zor_int i, zor_int j) {
  const bool both_nan = value != value && reference != reference;
  if (value == reference || both_nan || std::abs(value - reference) <= allowed) return;
  char text[200];
  std::snprintf(text, sizeof text, "%s(%ld, %ld) is %.17Lg, not %.17Lg (allowed: %.3Lg)", what, i, j, value,
                reference, allowed);
  expect(false, text);
}

void trial::finish() {
  std::string first_fault;
  const auto note = [&](const char* what, const region& r, size_t element) {
    if (first_fault.empty()) first_fault = r.name + ": " + what + std::to_string(element);
  };
  for (size_t i = 0; i < regions_.size(); ++i) {
    const region& r = *regions_[i];
    if (r.before.empty()) continue;  // nothing was called
    const auto [low, high] = surroundings(r, arena(i));
    const char* const before = r.before.data() + margin - (r.data - low);
    const size_t element = r.part_bytes * r.parts;
    char* const end = r.data + r.count * element;
    if (std::memcmp(low, before, size_t(r.data - low)) != 0) note("written before element ", r, 0);
    if (std::memcmp(end, before + (end - low), size_t(high - end)) != 0)
      note("written behind element ", r, r.count - 1);
    for (size_t e = 0; e < r.count; ++e)
      for (size_t h = 0; h < r.parts; ++h) {
        const char* const at = r.data + e * element + h * r.part_bytes;
        const bool same = std::memcmp(at, before + (at - low), r.part_bytes) == 0;
        const bool output = r.how != use::in && r.live[e] && !refused_;
        if (!output && !same) note("written at ", r, e);
        if (r.how == use::out && output && same && how_.first) note("not written at ", r, e);
        if (output)
          mix(r.part_bytes == 4 ? zor_test::bits(*reinterpret_cast<const float*>(at))
                                : zor_test::bits(*reinterpret_cast<const double*>(at)));
      }
  }
  if (!first_fault.empty()) fault = first_fault;  // it may be the reason of others
}

test_case with_all_draws(const test_case& c) {
  trial t(c, {true, true});
  try {
    c.what->run(t);
  } catch (const dry_end&) {
  }
  return {c.what, c.seed, t.draws()};
}

std::string outcome::difference(const outcome& other) const {
  if (hash != other.hash) return "other bits";
  if (flags == other.flags) return "";
  char text[60];
  std::snprintf(text, sizeof text, "exception flags %02x, not %02x,", flags, other.flags);
  return text;
}

outcome run(const test_case& c) {
  outcome one{};
  for (const bool first : {true, false}) {
    trial t(c, {false, first});
    c.what->run(t);
    t.finish();
    outcome now = t.seen();
    if (!now.fault.empty()) return now;
    if (first) one = now;
    const std::string difference = now.difference(one);
    if (difference.empty()) continue;
    now.fault =
        difference + " with " + std::to_string(t.threads()) + " threads and other numbers in the gaps";
    return now;
  }
  return one;
}

}  // namespace zor_fuzz
