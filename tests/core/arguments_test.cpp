// SPDX-License-Identifier: MIT
// Every argument of every checked entry, made bad in every way: routine, position and name reach the handler,
// once, and no operand is written.
#include <gtest/gtest.h>

#include <bit>
#include <cstring>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "zor/blas.h"
#include "zor/core.h"
#include "zor/lapack.h"
#include "zor/trans.h"
#include "zor/xblas.h"

namespace {

// What an argument is. size: at least 0. step: an increment other than 0; walk: any increment. lead: a
// leading dimension of at least 3. band: diagonals of a band of 3 rows. scalar, data: must not be null. The
// others stand in routines by value alone: codes, a stride of at least 1, the gap from matrix to matrix
// of 9 elements, row interchanges, a factorisation of the caller, any pointer and null.
enum class kind { letter, size, step, walk, lead, band, scalar, data, code, stride, gap, pivots, given, any };
struct parameter {
  std::string name;
  kind what;
  zor_int good = 0;  // of a letter or an integer
};

// Parameters by the words of a signature: the name, behind a star where any increment or size will do, a
// bar for diagonals, a number sign for codes, a plus for strides, a question mark for what may be null.
parameter parameter_of(const std::string& word) {
  static const std::map<std::string, parameter> known = {{"side", {"side", kind::letter, 'L'}},
                                                         {"uplo", {"uplo", kind::letter, 'u'}},
                                                         {"kind", {"kind", kind::letter, 'u'}},
                                                         {"trans", {"trans", kind::letter, 'N'}},
                                                         {"transa", {"transa", kind::letter, 'N'}},
                                                         {"transb", {"transb", kind::letter, 'N'}},
                                                         {"diag", {"diag", kind::letter, 'n'}},
                                                         {"ordering", {"ordering", kind::letter, 'r'}},
                                                         {"#trans", {"trans", kind::code, ZOR_NO_TRANS}},
                                                         {"#uplo", {"uplo", kind::code, ZOR_LOWER}},
                                                         {"#prec", {"prec", kind::code, ZOR_EXTRA}},
                                                         {"|k", {"k", kind::band, 2}},
                                                         {"kl", {"kl", kind::band, 1}},
                                                         {"ku", {"ku", kind::band, 1}},
                                                         {"count", {"count", kind::size, 2}},
                                                         {"ipiv", {"ipiv", kind::pivots}},
                                                         {"factors", {"factors", kind::given}},
                                                         {"c*", {"c", kind::scalar}},
                                                         {"s*", {"s", kind::scalar}}};
  if (const auto found = known.find(word); found != known.end()) return found->second;
  const std::string name = word.substr(std::strchr("*+?", word[0]) != nullptr);
  if (word[0] == '*') return {name, kind::walk, name == "n" ? 3 : 1};
  if (word[0] == '+') return {name, kind::stride, 1};
  if (word[0] == '?') return {name, kind::any};
  for (const char* size : {"m", "n", "k", "nrhs", "rows", "cols"})
    if (word == size) return {word, kind::size, 3};
  if (word.starts_with("ld")) return {word, kind::lead, 3};
  if (word.starts_with("inc")) return {word, kind::step, 1};
  if (word.starts_with("stride")) return {word, kind::gap, 9};
  return {word, word == "alpha" || word == "beta" || word == "sb" ? kind::scalar : kind::data};
}

// By pointer, by value, by value with a status.
enum class passing { pointers, values, status };

struct routine {
  routine(const char* of, void* entry, const char* signature, passing given = passing::pointers)
      : name(of), address(entry), how(given) {
    std::istringstream words(signature);
    for (std::string word; words >> word;) parameters.push_back(parameter_of(word));
  }
  bool holds_pointer(size_t i) const {
    const kind what = parameters[i].what;
    return how == passing::pointers || what == kind::data || what == kind::pivots || what == kind::given ||
           what == kind::any;
  }
  const char* name;
  void* address;
  passing how;
  std::vector<parameter> parameters;
};

#define ENTRY(name, ...) {#name, reinterpret_cast<void*>(name), __VA_ARGS__},
#define TWO_VECTORS "*n x *incx y *incy"
#define SYMMETRIC_UPDATE "uplo n alpha x incx a lda"
const routine routines[] = {
#define ROW_GEMM(name, ...) ENTRY(name, "transa transb m n k alpha a lda b ldb beta c ldc")
#define ROW_GEMV(name, ...) ENTRY(name, "trans m n alpha a lda x incx beta y incy")
#define ROW_AXPY(name, ...) ENTRY(name, "*n alpha x *incx y *incy")
#define ROW_SWAP(name, ...) ENTRY(name, TWO_VECTORS)
#define ROW_DOT(name, ...) ENTRY(name, TWO_VECTORS)
#define ROW_CDOT(name, ...) ENTRY(name, "result " TWO_VECTORS)
#define ROW_SYR(name, ...) ENTRY(name, SYMMETRIC_UPDATE)
#include "zor/tables/core_blas.inc"
#define ROW_COPY(name, ...) ENTRY(name, TWO_VECTORS)
#define ROW_SCAL(name, ...) ENTRY(name, "*n alpha x *incx")
#define ROW_AXPBY(name, ...) ENTRY(name, "*n alpha x *incx beta y *incy")
#define ROW_ROT(name, ...) ENTRY(name, TWO_VECTORS " c* s*")
#define ROW_ROTM(name, ...) ENTRY(name, TWO_VECTORS " param")
#define ROW_ASUM(name, ...) ENTRY(name, "*n x *incx")
#define ROW_NRM2 ROW_ASUM
#define ROW_IAMAX ROW_ASUM
#define ROW_IAMIN ROW_ASUM
#define ROW_DSDOT(name) ENTRY(name, TWO_VECTORS)
#define ROW_SDSDOT(name) ENTRY(name, "*n sb x *incx y *incy")
#include "zor/tables/core_vector.inc"
#define ROW_GER(name, ...) ENTRY(name, "m n alpha x incx y incy a lda")
#define ROW_GERU ROW_GER
#define ROW_GERC ROW_GER
#define ROW_GBMV(name, ...) ENTRY(name, "trans m n kl ku alpha a lda x incx beta y incy")
#define ROW_SYMV(name, ...) ENTRY(name, "uplo n alpha a lda x incx beta y incy")
#define ROW_HEMV ROW_SYMV
#define ROW_SBMV(name, ...) ENTRY(name, "uplo n |k alpha a lda x incx beta y incy")
#define ROW_HBMV ROW_SBMV
#define ROW_SPMV(name, ...) ENTRY(name, "uplo n alpha ap x incx beta y incy")
#define ROW_HPMV ROW_SPMV
#define ROW_HER(name, ...) ENTRY(name, SYMMETRIC_UPDATE)
#define ROW_SPR(name, ...) ENTRY(name, "uplo n alpha x incx ap")
#define ROW_HPR ROW_SPR
#define ROW_SYR2(name, ...) ENTRY(name, "uplo n alpha x incx y incy a lda")
#define ROW_HER2 ROW_SYR2
#define ROW_SPR2(name, ...) ENTRY(name, "uplo n alpha x incx y incy ap")
#define ROW_HPR2 ROW_SPR2
#define ROW_TRMV(name, ...) ENTRY(name, "uplo trans diag n a lda x incx")
#define ROW_TRSV ROW_TRMV
#define ROW_TBMV(name, ...) ENTRY(name, "uplo trans diag n |k a lda x incx")
#define ROW_TBSV ROW_TBMV
#define ROW_TPMV(name, ...) ENTRY(name, "uplo trans diag n ap x incx")
#define ROW_TPSV ROW_TPMV
#include "zor/tables/core_matvec.inc"
#define ROW_GEMMT(name, ...) ENTRY(name, "uplo transa transb n k alpha a lda b ldb beta c ldc")
#define ROW_TRSM(name, ...) ENTRY(name, "side uplo transa diag m n alpha a lda b ldb")
#define ROW_TRMM ROW_TRSM
#define ROW_SYRK(name, ...) ENTRY(name, "uplo trans n k alpha a lda beta c ldc")
#define ROW_SYR2K(name, ...) ENTRY(name, "uplo trans n k alpha a lda b ldb beta c ldc")
#define ROW_PUBLIC_SYMM(name, ...) ENTRY(name, "side uplo m n alpha a lda b ldb beta c ldc")
#define ROW_GEMM3M ROW_GEMM
#define ROW_PUBLIC_MIXED ROW_GEMM
#define ROW_GEMM(name, ...) ENTRY(name, "transa transb m n k alpha a lda b ldb beta c ldc")
#include "zor/tables/core_level3.inc"
#define STATUS(name, signature) ENTRY(name, signature, passing::status)
#define ROW_VALUE_DTTRF(name, ...) STATUS(name, "n dl d du")
#define ROW_VALUE_DTTRS(name, ...) STATUS(name, "trans n nrhs dl d du b ldb")
#define ROW_VALUE_DTSV(name, ...) STATUS(name, "n nrhs dl d du b ldb")
#define ROW_VALUE_GTSV ROW_VALUE_DTSV
#define ROW_VALUE_POTRF(name, ...) STATUS(name, "uplo n a lda")
#define ROW_VALUE_POTRS(name, ...) STATUS(name, "uplo n nrhs a lda b ldb")
#define ROW_POTRF_BATCH(name, ...) STATUS(name, "uplo n a lda stride count info")
#define ROW_POTRS_BATCH(name, ...) STATUS(name, "uplo n nrhs a lda stridea b ldb strideb count ?info")
#define ROW_VALUE_SYTRF(name, ...) STATUS(name, "uplo n a lda ipiv")
#define ROW_VALUE_SYTRS(name, ...) STATUS(name, "uplo n nrhs a lda ipiv b ldb")
#define ROW_SYTRF_BATCH(name, ...) STATUS(name, "uplo n a lda stride ipiv count info")
#define ROW_SYTRS_BATCH(name, ...) STATUS(name, "uplo n nrhs a lda stridea ipiv b ldb strideb count ?info")
#define ROW_SOLVE_REFINED(name, ...) STATUS(name, "kind n nrhs a lda b ldb x ldx factors ?reports")
#include "zor/tables/core_lapack.inc"
#define VALUES(name, signature) ENTRY(name, signature, passing::values)
#define ROW_IMATCOPY(name, ...) VALUES(name, "ordering trans rows cols alpha ab lda ldb")
#define ROW_OMATCOPY(name, ...) VALUES(name, "ordering trans rows cols alpha a lda b ldb")
#define ROW_OMATCOPY2(name, ...) VALUES(name, "ordering trans rows cols alpha a lda +stridea b ldb +strideb")
#define ROW_OMATADD(name, ...) VALUES(name, "ordering transa transb rows cols alpha a lda beta b ldb c ldc")
#define ROW_GEADD(name, ...) ENTRY(name, "m n alpha a lda beta c ldc")
#include "zor/tables/core_trans.inc"
#define ROW_VALUE_GEMV_X(name, ...) VALUES(name, "#trans m n alpha a lda x incx beta y incy #prec")
#define ROW_VALUE_GEMV2_X(name, ...) \
  VALUES(name, "#trans m n alpha a lda head_x tail_x incx beta y incy #prec")
#define ROW_VALUE_GBMV_X(name, ...) VALUES(name, "#trans m n kl ku alpha a lda x incx beta y incy #prec")
#define ROW_VALUE_GBMV2_X(name, ...) \
  VALUES(name, "#trans m n kl ku alpha a lda head_x tail_x incx beta y incy #prec")
#define ROW_VALUE_SYMV_X(name, ...) VALUES(name, "#uplo n alpha a lda x incx beta y incy #prec")
#define ROW_VALUE_HEMV_X ROW_VALUE_SYMV_X
#define ROW_VALUE_SYMV2_X(name, ...) VALUES(name, "#uplo n alpha a lda head_x tail_x incx beta y incy #prec")
#define ROW_VALUE_HEMV2_X ROW_VALUE_SYMV2_X
#include "zor/tables/core_xblas.inc"
};

// Pointers, letters and integers go one way, scalars by value another, so any entry can be called through
// this type: arguments beyond an entry's own are not looked at.
using entry = int64_t(void*, void*, void*, void*, void*, void*, void*, void*, void*, void*, void*, void*,
                      void*, double, double, double, double);

struct report {
  std::string routine, argument;
  int32_t position;
};
std::vector<report> reports;
void record(const char* name, int32_t position, const char* argument) {
  reports.push_back({name, argument, position});
}

struct operand {
  alignas(16) unsigned char bytes[18 * 16];
};

constexpr zor_int rows[] = {1, 2, 3, 1, 2, 3};  // interchanged with these

// The arguments of a good call on 3 by 3 operands; each has storage of its own.
struct call {
  explicit call(const routine& r)
      : which(r), operands(r.parameters.size()), integers(operands.size()), arguments(15, nullptr) {
    for (size_t i = 0; i < operands.size(); ++i) {
      const auto& [name, what, good] = r.parameters[i];
      unsigned char* const bytes = operands[i].bytes;
      std::memset(bytes, what == kind::data ? 0x3F : 0, sizeof operands[i].bytes);
      arguments[i] = what == kind::given || what == kind::any ? nullptr : bytes;
      if (what == kind::letter) set_letter(i, char(good));
      if (what == kind::scalar) std::memset(bytes, 0x40, 16);
      if (what == kind::pivots) std::memcpy(bytes, rows, sizeof rows);
      if (what != kind::letter && good != 0) set(i, good);
    }
  }
  void set(size_t i, zor_int value) {
    integers[i] = value;
    arguments[i] = which.holds_pointer(i) ? &integers[i] : reinterpret_cast<void*>(value);
  }
  void set_letter(size_t i, char letter) {
    operands[i].bytes[0] = static_cast<unsigned char>(letter);
    if (!which.holds_pointer(i)) set(i, letter);
  }
  int64_t run() {
    std::vector<void*> a;
    for (size_t i = 0; i < operands.size(); ++i)
      if (which.holds_pointer(i) || which.parameters[i].what != kind::scalar) a.push_back(arguments[i]);
    a.resize(13);
    const double scalar = std::bit_cast<double>(0x3F803F803F803F80);  // neither half of it is 0
    return reinterpret_cast<entry*>(which.address)(a[0], a[1], a[2], a[3], a[4], a[5], a[6], a[7], a[8], a[9],
                                                   a[10], a[11], a[12], scalar, scalar, scalar, scalar);
  }

  const routine& which;
  std::vector<operand> operands;
  std::vector<zor_int> integers;
  std::vector<void*> arguments;
};

// Spoils argument i in the way'th way; false when there are no more ways.
bool spoil(call& c, size_t i, int way) {
  const kind what = c.which.parameters[i].what;
  if (what == kind::given) {  // routines of the caller that are not there
    c.arguments[i] = c.operands[i].bytes;
    return way == 0;
  }
  if (what == kind::any) return false;
  if (c.which.holds_pointer(i) && way-- == 0) {
    c.arguments[i] = nullptr;
    return true;
  }
  static const std::map<kind, std::vector<zor_int>> wrong = {
      {kind::letter, {'X', '\0', '@', char('N' + 64), '1'}},
      {kind::size, {-1, -2}},
      {kind::band, {-1, -2}},
      {kind::lead, {2, 1, 0, -1}},
      {kind::step, {0}},
      {kind::code, {0, 120, 215}},
      {kind::stride, {0, -1}},
      {kind::gap, {8, 0, -9}}};
  const auto values = wrong.find(what);
  if (values == wrong.end() || way >= int(values->second.size())) return false;
  const zor_int value = values->second[size_t(way)];
  what == kind::letter ? c.set_letter(i, char(value)) : c.set(i, value);
  return true;
}

class BadArguments : public ::testing::Test {
 protected:
  void SetUp() override {
    reports.clear();
    previous = zor_core_set_error_handler(record);
  }
  void TearDown() override { EXPECT_EQ(record, zor_core_set_error_handler(previous)); }
  zor_core_error_handler previous = nullptr;
};

void expect_report(call& c, size_t position) {
  SCOPED_TRACE(c.which.name);
  SCOPED_TRACE(position);
  const auto before = c.operands;
  reports.clear();
  const int64_t status = c.run();
  if (c.which.how == passing::status) {
    EXPECT_EQ(ZOR_LAPACK_ARGUMENT, status);
  }
  ASSERT_EQ(1u, reports.size());
  EXPECT_EQ(c.which.name, reports[0].routine);
  EXPECT_EQ(int32_t(position), reports[0].position);
  EXPECT_EQ(c.which.parameters[position - 1].name, reports[0].argument);
  EXPECT_EQ(0, std::memcmp(before.data(), c.operands.data(), before.size() * sizeof(operand)));
}

TEST_F(BadArguments, ArePositionedAndWriteNothing) {
  for (const routine& r : routines)
    for (size_t i = 0; i < r.parameters.size(); ++i)
      for (int way = 0;; ++way) {
        call c(r);
        if (!spoil(c, i, way)) break;
        expect_report(c, i + 1);
      }
}

TEST_F(BadArguments, TheFirstOfTwoIsReported) {
  for (const routine& r : routines)
    for (size_t i = 0; i < r.parameters.size(); ++i)
      for (size_t j = i + 1; j < r.parameters.size(); ++j) {
        call c(r);
        if (spoil(c, i, 0) && spoil(c, j, 0)) expect_report(c, i + 1);
      }
}

TEST_F(BadArguments, GoodCallsReportNothing) {
  for (const routine& r : routines) {
    call c(r);
    c.run();
  }
  EXPECT_TRUE(reports.empty());
}

// Leading dimensions are those of the stored matrix: op(A) has other rows than A when it is transposed.
TEST_F(BadArguments, LeadingDimensionsFollowTheLetters) {
  const zor_int m = 2, n = 3, k = 5;
  const double one = 1;
  double a[25] = {}, b[25] = {}, c[25] = {};
  const struct {
    const char *transa, *transb;
    zor_int lda, ldb, ldc;
    int32_t position;
  } cases[] = {{"N", "N", 2, 5, 2, 0},  {"N", "N", 1, 5, 2, 8},  {"N", "N", 2, 4, 2, 10},
               {"t", "n", 5, 5, 2, 0},  {"t", "n", 4, 5, 2, 8},  {"c", "T", 5, 3, 2, 0},
               {"c", "T", 5, 2, 2, 10}, {"T", "C", 5, 3, 1, 13}, {"Nope", "Trans", 2, 3, 2, 0}};
  for (const auto& t : cases) {
    reports.clear();
    zor_blas_dgemm(t.transa, t.transb, &m, &n, &k, &one, a, &t.lda, b, &t.ldb, &one, c, &t.ldc);
    if (t.position == 0)
      EXPECT_TRUE(reports.empty()) << reports[0].position;
    else
      EXPECT_EQ(t.position, reports.at(0).position);
  }
}

// A Hermitian update has no transpose, a symmetric one of complex numbers no conjugate.
TEST_F(BadArguments, LettersOfComplexUpdates) {
  const zor_int two = 2;
  const double one = 1;
  const zor_c64 unit{1, 0};
  zor_c64 a[4] = {}, c[4] = {};
  zor_blas_zherk("U", "T", &two, &two, &one, a, &two, &one, c, &two);
  zor_blas_zher2k("U", "T", &two, &two, &unit, a, &two, a, &two, &one, c, &two);
  zor_blas_zsyrk("U", "C", &two, &two, &unit, a, &two, &unit, c, &two);
  ASSERT_EQ(3u, reports.size());
  for (const report& r : reports) EXPECT_EQ(2, r.position) << r.routine;
}

// Operands that the call would not read or write may be null.
TEST_F(BadArguments, UnusedOperandsMayBeNull) {
  const zor_int zero = 0, three = 3, one_step = 1;
  const double one = 1, none = 0;
  double x[9] = {};
  zor_blas_dgemm("N", "N", &zero, &three, &three, &one, nullptr, &three, nullptr, &three, &one, nullptr,
                 &three);
  zor_blas_dgemm("N", "N", &three, &three, &zero, &one, nullptr, &three, nullptr, &three, &one, x, &three);
  zor_blas_dgemm("N", "N", &three, &three, &three, &none, nullptr, &three, nullptr, &three, &one, nullptr,
                 &three);
  zor_blas_dgemv("T", &three, &three, &none, nullptr, &three, nullptr, &one_step, &none, x, &one_step);
  zor_blas_daxpy(&zero, &one, nullptr, &one_step, nullptr, &one_step);
  zor_blas_daxpy(&three, &none, nullptr, &one_step, nullptr, &one_step);
  zor_blas_dsyr("U", &three, &none, nullptr, &one_step, nullptr, &three);
  EXPECT_EQ(0, zor_blas_ddot(&zero, nullptr, &one_step, nullptr, &one_step));
  EXPECT_TRUE(reports.empty());
  EXPECT_EQ(0, zor_blas_ddot(&three, nullptr, &one_step, x, &one_step));
  EXPECT_EQ(1u, reports.size());
}

// Operands longer than all addresses are found before anything is touched; a call that needs none of them is
// good, and done at once.
TEST_F(BadArguments, OperandsBeyondAllMemory) {
  const zor_int none = 0, one_step = 1, two = 2, huge = zor_int(1) << 61, wide = zor_int(1) << 40;
  const zor_int least = INT64_MIN;
  const double one = 1;
  double x[4] = {2, 2, 2, 2}, y[4] = {3, 3, 3, 3};
  const auto expect = [&](int32_t position) {
    ASSERT_EQ(size_t(position > 0), reports.size());
    if (position > 0) {
      EXPECT_EQ(position, reports[0].position) << reports[0].routine;
    }
    reports.clear();
  };
  zor_blas_dgemm("N", "N", &huge, &one_step, &one_step, &one, x, &huge, x, &one_step, &one, y, &huge);
  expect(8);
  zor_blas_dgemm("T", "N", &two, &wide, &two, &one, x, &two, x, &wide, &one, y, &two);
  expect(10);
  zor_blas_dgemm("T", "T", &two, &two, &two, &one, x, &two, x, &two, &one, y, &huge);
  expect(13);
  zor_blas_dgemm("N", "N", &huge, &huge, &none, &one, nullptr, &huge, nullptr, &one_step, &one, nullptr,
                 &huge);
  expect(0);
  zor_blas_dgemv("N", &two, &two, &one, x, &huge, x, &one_step, &one, y, &one_step);
  expect(6);
  zor_blas_dgemv("N", &two, &two, &one, x, &two, x, &least, &one, y, &one_step);
  expect(8);
  zor_blas_dgemv("T", &two, &two, &one, x, &two, x, &one_step, &one, y, &huge);
  expect(11);
  zor_blas_dsyr("U", &two, &one, x, &huge, y, &two);
  expect(5);
  zor_blas_dsyr("U", &two, &one, x, &one_step, y, &huge);
  expect(7);
  zor_blas_daxpy(&two, &one, x, &least, y, &one_step);
  expect(4);
  zor_blas_dswap(&two, x, &one_step, y, &huge);
  expect(5);
  EXPECT_EQ(0, zor_blas_ddot(&two, x, &huge, y, &one_step));
  expect(3);
  for (const double e : x) EXPECT_EQ(2, e);
  for (const double e : y) EXPECT_EQ(3, e);
  // One element has no distance to another.
  zor_blas_daxpy(&one_step, &one, x, &least, y, &least);
  expect(0);
  EXPECT_EQ(5, y[0]);
  EXPECT_EQ(10, zor_blas_ddot(&one_step, x, &least, y, &huge));
  expect(0);
}

TEST(ErrorHandler, TheFirstOnePrintsOneLineAndReturns) {
  const zor_core_error_handler initial = zor_core_set_error_handler(nullptr);
  ASSERT_NE(nullptr, initial);
  const zor_int minus = -1, one = 1;
  const double alpha = 1;
  ::testing::internal::CaptureStderr();
  zor_blas_dsyr("L", &minus, &alpha, nullptr, &one, nullptr, &one);
  const std::string line = ::testing::internal::GetCapturedStderr();
  EXPECT_EQ("zor: zor_blas_dsyr: argument 2 (n) is invalid\n", line);
  EXPECT_EQ(initial, zor_core_set_error_handler(record));
  EXPECT_EQ(record, zor_core_set_error_handler(nullptr));
}

}  // namespace
