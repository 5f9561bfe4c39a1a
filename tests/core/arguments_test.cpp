// SPDX-License-Identifier: MIT
// Every argument of every checked entry, made bad in every way: routine, position and name reach the handler,
// once, and no operand is written.
#include <gtest/gtest.h>

#include <bit>
#include <cstring>
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
// others stand in routines by value alone: letters (which: what is factored), codes, a stride of at least 1,
// the distance of matrices of 9 elements, row interchanges, a factorisation of the caller, a pointer that may
// be null.
enum class kind {
  trans,
  uplo,
  diag,
  size,
  band,
  step,
  walk,
  lead,
  scalar,
  data,
  ordering,
  which,
  trans_code,
  uplo_code,
  precision,
  stride,
  distance,
  pivots,
  factors,
  optional
};
constexpr bool is_letter(kind what) {
  return what == kind::trans || what == kind::uplo || what == kind::diag || what == kind::ordering ||
         what == kind::which;
}
constexpr bool is_pointer(kind what) {
  return what == kind::data || what == kind::pivots || what == kind::factors || what == kind::optional;
}

struct parameter {
  const char* name;
  kind what;
};
using signature = std::vector<parameter>;

const signature gemm_signature = {{"transa", kind::trans}, {"transb", kind::trans}, {"m", kind::size},
                                  {"n", kind::size},       {"k", kind::size},       {"alpha", kind::scalar},
                                  {"a", kind::data},       {"lda", kind::lead},     {"b", kind::data},
                                  {"ldb", kind::lead},     {"beta", kind::scalar},  {"c", kind::data},
                                  {"ldc", kind::lead}};
const signature gemv_signature = {{"trans", kind::trans},  {"m", kind::size},    {"n", kind::size},
                                  {"alpha", kind::scalar}, {"a", kind::data},    {"lda", kind::lead},
                                  {"x", kind::data},       {"incx", kind::step}, {"beta", kind::scalar},
                                  {"y", kind::data},       {"incy", kind::step}};
const signature axpy_signature = {{"n", kind::walk},    {"alpha", kind::scalar}, {"x", kind::data},
                                  {"incx", kind::walk}, {"y", kind::data},       {"incy", kind::walk}};
const signature swap_signature = {
    {"n", kind::walk}, {"x", kind::data}, {"incx", kind::walk}, {"y", kind::data}, {"incy", kind::walk}};
const signature cdot_signature = {{"result", kind::data}, {"n", kind::walk}, {"x", kind::data},
                                  {"incx", kind::walk},   {"y", kind::data}, {"incy", kind::walk}};
const signature syr_signature = {{"uplo", kind::uplo}, {"n", kind::size},    {"alpha", kind::scalar},
                                 {"x", kind::data},    {"incx", kind::step}, {"a", kind::data},
                                 {"lda", kind::lead}};

const signature scal_signature = {
    {"n", kind::walk}, {"alpha", kind::scalar}, {"x", kind::data}, {"incx", kind::walk}};
const signature axpby_signature = {{"n", kind::walk},    {"alpha", kind::scalar}, {"x", kind::data},
                                   {"incx", kind::walk}, {"beta", kind::scalar},  {"y", kind::data},
                                   {"incy", kind::walk}};
const signature rot_signature = {{"n", kind::walk},  {"x", kind::data},    {"incx", kind::walk},
                                 {"y", kind::data},  {"incy", kind::walk}, {"c", kind::scalar},
                                 {"s", kind::scalar}};
const signature rotm_signature = {{"n", kind::walk}, {"x", kind::data},    {"incx", kind::walk},
                                  {"y", kind::data}, {"incy", kind::walk}, {"param", kind::data}};
const signature reduction_signature = {{"n", kind::walk}, {"x", kind::data}, {"incx", kind::walk}};
const signature sdsdot_signature = {{"n", kind::walk},    {"sb", kind::scalar}, {"x", kind::data},
                                    {"incx", kind::walk}, {"y", kind::data},    {"incy", kind::walk}};
const signature gemmt_signature = {{"uplo", kind::uplo}, {"transa", kind::trans}, {"transb", kind::trans},
                                   {"n", kind::size},    {"k", kind::size},       {"alpha", kind::scalar},
                                   {"a", kind::data},    {"lda", kind::lead},     {"b", kind::data},
                                   {"ldb", kind::lead},  {"beta", kind::scalar},  {"c", kind::data},
                                   {"ldc", kind::lead}};

const parameter p_alpha = {"alpha", kind::scalar}, p_beta = {"beta", kind::scalar},
                p_order = {"n", kind::size}, p_a = {"a", kind::data}, p_lda = {"lda", kind::lead},
                p_ap = {"ap", kind::data}, p_x = {"x", kind::data}, p_y = {"y", kind::data},
                p_incx = {"incx", kind::step}, p_incy = {"incy", kind::step}, p_uplo = {"uplo", kind::uplo},
                p_trans = {"trans", kind::trans}, p_diag = {"diag", kind::diag}, p_band = {"k", kind::band};
const signature ger_signature = {{"m", kind::size}, p_order, p_alpha, p_x, p_incx, p_y, p_incy, p_a, p_lda};
const signature gbmv_signature = {p_trans,
                                  {"m", kind::size},
                                  p_order,
                                  {"kl", kind::band},
                                  {"ku", kind::band},
                                  p_alpha,
                                  p_a,
                                  p_lda,
                                  p_x,
                                  p_incx,
                                  p_beta,
                                  p_y,
                                  p_incy};
const signature symv_signature = {p_uplo, p_order, p_alpha, p_a, p_lda, p_x, p_incx, p_beta, p_y, p_incy};
const signature sbmv_signature = {p_uplo, p_order, p_band, p_alpha, p_a,   p_lda,
                                  p_x,    p_incx,  p_beta, p_y,     p_incy};
const signature spmv_signature = {p_uplo, p_order, p_alpha, p_ap, p_x, p_incx, p_beta, p_y, p_incy};
const signature spr_signature = {p_uplo, p_order, p_alpha, p_x, p_incx, p_ap};
const signature syr2_signature = {p_uplo, p_order, p_alpha, p_x, p_incx, p_y, p_incy, p_a, p_lda};
const signature spr2_signature = {p_uplo, p_order, p_alpha, p_x, p_incx, p_y, p_incy, p_ap};
const signature trmv_signature = {p_uplo, p_trans, p_diag, p_order, p_a, p_lda, p_x, p_incx};
const signature tbmv_signature = {p_uplo, p_trans, p_diag, p_order, p_band, p_a, p_lda, p_x, p_incx};
const signature tpmv_signature = {p_uplo, p_trans, p_diag, p_order, p_ap, p_x, p_incx};

// Routines by value; a scalar by value may be anything.
const parameter p_m = {"m", kind::size}, p_nrhs = {"nrhs", kind::size}, p_dl = {"dl", kind::data},
                p_d = {"d", kind::data}, p_du = {"du", kind::data}, p_b = {"b", kind::data},
                p_ldb = {"ldb", kind::lead}, p_stride = {"stride", kind::distance},
                p_stridea = {"stridea", kind::distance}, p_strideb = {"strideb", kind::distance},
                p_ipiv = {"ipiv", kind::pivots}, p_count = {"count", kind::size},
                p_info = {"info", kind::data}, p_known_info = {"info", kind::optional},
                p_ordering = {"ordering", kind::ordering}, p_rows = {"rows", kind::size},
                p_cols = {"cols", kind::size}, p_code = {"trans", kind::trans_code},
                p_triangle = {"uplo", kind::uplo_code}, p_prec = {"prec", kind::precision},
                p_head = {"head_x", kind::data}, p_tail = {"tail_x", kind::data}, p_kl = {"kl", kind::band},
                p_ku = {"ku", kind::band};
const signature dttrf_signature = {p_order, p_dl, p_d, p_du};
const signature dttrs_signature = {p_trans, p_order, p_nrhs, p_dl, p_d, p_du, p_b, p_ldb};
const signature dtsv_signature = {p_order, p_nrhs, p_dl, p_d, p_du, p_b, p_ldb};
const signature potrf_signature = {p_uplo, p_order, p_a, p_lda};
const signature potrs_signature = {p_uplo, p_order, p_nrhs, p_a, p_lda, p_b, p_ldb};
const signature potrf_batch_signature = {p_uplo, p_order, p_a, p_lda, p_stride, p_count, p_info};
const signature potrs_batch_signature = {p_uplo, p_order, p_nrhs,    p_a,     p_lda,       p_stridea,
                                         p_b,    p_ldb,   p_strideb, p_count, p_known_info};
const signature sytrf_signature = {p_uplo, p_order, p_a, p_lda, p_ipiv};
const signature sytrs_signature = {p_uplo, p_order, p_nrhs, p_a, p_lda, p_ipiv, p_b, p_ldb};
const signature sytrf_batch_signature = {p_uplo, p_order, p_a, p_lda, p_stride, p_ipiv, p_count, p_info};
const signature sytrs_batch_signature = {p_uplo, p_order, p_nrhs, p_a,       p_lda,   p_stridea,
                                         p_ipiv, p_b,     p_ldb,  p_strideb, p_count, p_known_info};
const signature refined_signature = {{"kind", kind::which},
                                     p_order,
                                     p_nrhs,
                                     p_a,
                                     p_lda,
                                     p_b,
                                     p_ldb,
                                     p_x,
                                     {"ldx", kind::lead},
                                     {"factors", kind::factors},
                                     {"reports", kind::optional}};
const signature imatcopy_signature = {p_ordering,         p_trans, p_rows, p_cols, p_alpha,
                                      {"ab", kind::data}, p_lda,   p_ldb};
const signature omatcopy_signature = {p_ordering, p_trans, p_rows, p_cols, p_alpha, p_a, p_lda, p_b, p_ldb};
const signature omatcopy2_signature = {p_ordering,
                                       p_trans,
                                       p_rows,
                                       p_cols,
                                       p_alpha,
                                       p_a,
                                       p_lda,
                                       {"stridea", kind::stride},
                                       p_b,
                                       p_ldb,
                                       {"strideb", kind::stride}};
const signature omatadd_signature = {p_ordering,
                                     {"transa", kind::trans},
                                     {"transb", kind::trans},
                                     p_rows,
                                     p_cols,
                                     p_alpha,
                                     p_a,
                                     p_lda,
                                     p_beta,
                                     p_b,
                                     p_ldb,
                                     {"c", kind::data},
                                     {"ldc", kind::lead}};
const signature gemv_x_signature = {p_code, p_m,    p_order, p_alpha, p_a,    p_lda,
                                    p_x,    p_incx, p_beta,  p_y,     p_incy, p_prec};
const signature gemv2_x_signature = {p_code, p_m,    p_order, p_alpha, p_a,    p_lda, p_head,
                                     p_tail, p_incx, p_beta,  p_y,     p_incy, p_prec};
const signature gbmv_x_signature = {p_code, p_m, p_order, p_kl,   p_ku, p_alpha, p_a,
                                    p_lda,  p_x, p_incx,  p_beta, p_y,  p_incy,  p_prec};
const signature gbmv2_x_signature = {p_code, p_m,    p_order, p_kl,   p_ku, p_alpha, p_a,   p_lda,
                                     p_head, p_tail, p_incx,  p_beta, p_y,  p_incy,  p_prec};
const signature symv_x_signature = {p_triangle, p_order, p_alpha, p_a,    p_lda, p_x,
                                    p_incx,     p_beta,  p_y,     p_incy, p_prec};
const signature symv2_x_signature = {p_triangle, p_order, p_alpha, p_a, p_lda,  p_head,
                                     p_tail,     p_incx,  p_beta,  p_y, p_incy, p_prec};

// By pointer, by value, by value with a status.
enum class passing { pointers, values, status };

struct routine {
  const char* name;
  void* address;
  const signature* parameters;
  passing how = passing::pointers;

  bool holds_pointer(size_t i) const { return how == passing::pointers || is_pointer((*parameters)[i].what); }
};

const routine routines[] = {
#define ROW_GEMM(name, T) {#name, reinterpret_cast<void*>(name), &gemm_signature},
#define ROW_GEMV(name, T) {#name, reinterpret_cast<void*>(name), &gemv_signature},
#define ROW_AXPY(name, T) {#name, reinterpret_cast<void*>(name), &axpy_signature},
#define ROW_SWAP(name, T) {#name, reinterpret_cast<void*>(name), &swap_signature},
#define ROW_DOT(name, T) {#name, reinterpret_cast<void*>(name), &swap_signature},
#define ROW_CDOT(name, T, conj) {#name, reinterpret_cast<void*>(name), &cdot_signature},
#define ROW_SYR(name, T) {#name, reinterpret_cast<void*>(name), &syr_signature},
#include "zor/tables/core_blas.inc"
#define ROW_COPY(name, T, kernel) {#name, reinterpret_cast<void*>(name), &swap_signature},
#define ROW_SCAL(name, T, A) {#name, reinterpret_cast<void*>(name), &scal_signature},
#define ROW_AXPBY(name, T) {#name, reinterpret_cast<void*>(name), &axpby_signature},
#define ROW_ROT(name, T, C, S, kernel) {#name, reinterpret_cast<void*>(name), &rot_signature},
#define ROW_ROTM(name, T) {#name, reinterpret_cast<void*>(name), &rotm_signature},
#define ROW_ASUM(name, T, R) {#name, reinterpret_cast<void*>(name), &reduction_signature},
#define ROW_NRM2 ROW_ASUM
#define ROW_IAMAX(name, T) {#name, reinterpret_cast<void*>(name), &reduction_signature},
#define ROW_IAMIN ROW_IAMAX
#define ROW_DSDOT(name) {#name, reinterpret_cast<void*>(name), &swap_signature},
#define ROW_SDSDOT(name) {#name, reinterpret_cast<void*>(name), &sdsdot_signature},
#include "zor/tables/core_vector.inc"
#define ROW_GER(name, T) {#name, reinterpret_cast<void*>(name), &ger_signature},
#define ROW_GERU ROW_GER
#define ROW_GERC ROW_GER
#define ROW_GBMV(name, T) {#name, reinterpret_cast<void*>(name), &gbmv_signature},
#define ROW_SYMV(name, T, kernel) {#name, reinterpret_cast<void*>(name), &symv_signature},
#define ROW_HEMV ROW_SYMV
#define ROW_SBMV(name, T) {#name, reinterpret_cast<void*>(name), &sbmv_signature},
#define ROW_HBMV ROW_SBMV
#define ROW_SPMV(name, T) {#name, reinterpret_cast<void*>(name), &spmv_signature},
#define ROW_HPMV ROW_SPMV
#define ROW_HER(name, T, R) {#name, reinterpret_cast<void*>(name), &syr_signature},
#define ROW_SPR(name, T) {#name, reinterpret_cast<void*>(name), &spr_signature},
#define ROW_HPR(name, T, R) {#name, reinterpret_cast<void*>(name), &spr_signature},
#define ROW_SYR2(name, T, kernel) {#name, reinterpret_cast<void*>(name), &syr2_signature},
#define ROW_HER2 ROW_SYR2
#define ROW_SPR2(name, T) {#name, reinterpret_cast<void*>(name), &spr2_signature},
#define ROW_HPR2 ROW_SPR2
#define ROW_TRMV(name, T, kernel) {#name, reinterpret_cast<void*>(name), &trmv_signature},
#define ROW_TRSV ROW_TRMV
#define ROW_TBMV(name, T) {#name, reinterpret_cast<void*>(name), &tbmv_signature},
#define ROW_TBSV ROW_TBMV
#define ROW_TPMV(name, T) {#name, reinterpret_cast<void*>(name), &tpmv_signature},
#define ROW_TPSV ROW_TPMV
#include "zor/tables/core_matvec.inc"
#define ROW_GEMMT(name, T) {#name, reinterpret_cast<void*>(name), &gemmt_signature},
#include "zor/tables/core_level3.inc"
#define ROW_VALUE_DTTRF(name, ...) {#name, reinterpret_cast<void*>(name), &dttrf_signature, passing::status},
#define ROW_VALUE_DTTRS(name, ...) {#name, reinterpret_cast<void*>(name), &dttrs_signature, passing::status},
#define ROW_VALUE_DTSV(name, ...) {#name, reinterpret_cast<void*>(name), &dtsv_signature, passing::status},
#define ROW_VALUE_GTSV ROW_VALUE_DTSV
#define ROW_VALUE_POTRF(name, T) {#name, reinterpret_cast<void*>(name), &potrf_signature, passing::status},
#define ROW_VALUE_POTRS(name, T) {#name, reinterpret_cast<void*>(name), &potrs_signature, passing::status},
#define ROW_POTRF_BATCH(name, T) \
  {#name, reinterpret_cast<void*>(name), &potrf_batch_signature, passing::status},
#define ROW_POTRS_BATCH(name, T) \
  {#name, reinterpret_cast<void*>(name), &potrs_batch_signature, passing::status},
#define ROW_VALUE_SYTRF(name, T) {#name, reinterpret_cast<void*>(name), &sytrf_signature, passing::status},
#define ROW_VALUE_SYTRS(name, T) {#name, reinterpret_cast<void*>(name), &sytrs_signature, passing::status},
#define ROW_SYTRF_BATCH(name, T) \
  {#name, reinterpret_cast<void*>(name), &sytrf_batch_signature, passing::status},
#define ROW_SYTRS_BATCH(name, T) \
  {#name, reinterpret_cast<void*>(name), &sytrs_batch_signature, passing::status},
#define ROW_SOLVE_REFINED(name, T) \
  {#name, reinterpret_cast<void*>(name), &refined_signature, passing::status},
#include "zor/tables/core_lapack.inc"
#define ROW_IMATCOPY(name, T) {#name, reinterpret_cast<void*>(name), &imatcopy_signature, passing::values},
#define ROW_OMATCOPY(name, T) {#name, reinterpret_cast<void*>(name), &omatcopy_signature, passing::values},
#define ROW_OMATCOPY2(name, T) {#name, reinterpret_cast<void*>(name), &omatcopy2_signature, passing::values},
#define ROW_OMATADD(name, T) {#name, reinterpret_cast<void*>(name), &omatadd_signature, passing::values},
#include "zor/tables/core_trans.inc"
#define ROW_VALUE_GEMV_X(name, ...) \
  {#name, reinterpret_cast<void*>(name), &gemv_x_signature, passing::values},
#define ROW_VALUE_GEMV2_X(name, ...) \
  {#name, reinterpret_cast<void*>(name), &gemv2_x_signature, passing::values},
#define ROW_VALUE_GBMV_X(name, ...) \
  {#name, reinterpret_cast<void*>(name), &gbmv_x_signature, passing::values},
#define ROW_VALUE_GBMV2_X(name, ...) \
  {#name, reinterpret_cast<void*>(name), &gbmv2_x_signature, passing::values},
#define ROW_VALUE_SYMV_X(name, ...) \
  {#name, reinterpret_cast<void*>(name), &symv_x_signature, passing::values},
#define ROW_VALUE_HEMV_X ROW_VALUE_SYMV_X
#define ROW_VALUE_SYMV2_X(name, ...) \
  {#name, reinterpret_cast<void*>(name), &symv2_x_signature, passing::values},
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

// The arguments of a good call on 3 by 3 operands; each has storage of its own.
struct call {
  explicit call(const routine& r) : which(r), operands(r.parameters->size()), arguments(15, nullptr) {
    integers.assign(r.parameters->size(), 0);
    for (size_t i = 0; i < operands.size(); ++i) {
      const parameter& p = (*r.parameters)[i];
      std::memset(operands[i].bytes, 0, sizeof operands[i].bytes);
      arguments[i] = operands[i].bytes;
      switch (p.what) {
        case kind::trans:
        case kind::diag:
          set_letter(i, 'n');
          break;
        case kind::uplo:
        case kind::which:
          set_letter(i, 'u');
          break;
        case kind::ordering:
          set_letter(i, 'r');
          break;
        case kind::size:
          set(i, std::strcmp(p.name, "count") == 0 ? 2 : 3);
          break;
        case kind::lead:
          set(i, 3);
          break;
        case kind::band:
          set(i, std::strcmp(p.name, "k") == 0 ? 2 : 1);
          break;
        case kind::step:
        case kind::walk:
          set(i, i == 0 || std::strcmp(p.name, "n") == 0 ? 3 : 1);
          break;
        case kind::scalar:
          std::memset(operands[i].bytes, 0x40, 16);
          break;
        case kind::data:
          std::memset(operands[i].bytes, 0x3F, sizeof operands[i].bytes);
          break;
        case kind::trans_code:
          set(i, ZOR_NO_TRANS);
          break;
        case kind::uplo_code:
          set(i, ZOR_LOWER);
          break;
        case kind::precision:
          set(i, ZOR_EXTRA);
          break;
        case kind::stride:
          set(i, 1);
          break;
        case kind::distance:
          set(i, 9);
          break;
        case kind::pivots: {
          const zor_int rows[] = {1, 2, 3, 1, 2, 3};
          std::memcpy(operands[i].bytes, rows, sizeof rows);
          break;
        }
        case kind::factors:
        case kind::optional:
          arguments[i] = nullptr;
          break;
      }
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
      if (which.holds_pointer(i) || (*which.parameters)[i].what != kind::scalar) a.push_back(arguments[i]);
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
  const kind what = (*c.which.parameters)[i].what;
  if (what == kind::factors) {  // routines of the caller that are not there
    c.arguments[i] = c.operands[i].bytes;
    return way == 0;
  }
  if (what == kind::optional) return false;
  if (c.which.holds_pointer(i) && way-- == 0) {
    c.arguments[i] = nullptr;
    return true;
  }
  if (is_letter(what)) {
    const char wrong[] = {'X', '\0', '@', char('N' + 64), '1'};
    if (way >= int(std::size(wrong))) return false;
    c.set_letter(i, wrong[way]);
    return true;
  }
  switch (what) {
    case kind::size:
    case kind::band:
      c.set(i, -1 - way);
      return way < 2;
    case kind::lead:
      c.set(i, 2 - way);
      return way < 4;
    case kind::step:
      c.set(i, 0);
      return way < 1;
    case kind::trans_code:
    case kind::uplo_code:
    case kind::precision:
      c.set(i, way == 0 ? 0 : way == 1 ? 120 : 215);
      return way < 3;
    case kind::stride:
      c.set(i, -way);
      return way < 2;
    case kind::distance:
      c.set(i, way == 0 ? 8 : 9 - 9 * way);
      return way < 3;
    default:
      return false;
  }
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
  EXPECT_EQ((*c.which.parameters)[position - 1].name, reports[0].argument);
  EXPECT_EQ(0, std::memcmp(before.data(), c.operands.data(), before.size() * sizeof(operand)));
}

TEST_F(BadArguments, ArePositionedAndWriteNothing) {
  for (const routine& r : routines)
    for (size_t i = 0; i < r.parameters->size(); ++i)
      for (int way = 0;; ++way) {
        call c(r);
        if (!spoil(c, i, way)) break;
        expect_report(c, i + 1);
      }
}

TEST_F(BadArguments, TheFirstOfTwoIsReported) {
  for (const routine& r : routines)
    for (size_t i = 0; i < r.parameters->size(); ++i)
      for (size_t j = i + 1; j < r.parameters->size(); ++j) {
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
