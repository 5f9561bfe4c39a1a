// SPDX-License-Identifier: MIT
// Copies, transpositions and sums of matrices: the kernels and the threaded entries.
#include "zor/signatures/trans.h"
#include "tools/verify/battery.h"

namespace zor_tools {
namespace {

struct shape {
  zor_int rows, cols;
};
constexpr shape shapes[] = {{1, 1}, {1, 9}, {13, 1}, {4, 4}, {5, 7}, {8, 16}, {17, 12}, {33, 31}, {70, 129}};
constexpr shape divided = {411, 530};  // large enough to be divided over threads

constexpr double factors[][2] = {{1, 0}, {0, 0}, {-0.6, 0.4}};
constexpr char letters[] = {'N', 'T', 'R', 'C'};

bool transposes(char trans) { return trans == 'T' || trans == 'C'; }
shape op(char trans, shape s) { return transposes(trans) ? shape{s.cols, s.rows} : s; }

template <class T>
T factor(uint64_t iteration) {
  const double* const f = factors[iteration % 3];
  return scalar<T>(f[0], f[1]);
}

// The cases of a kernel: run(iteration, shape, letter, kind of content).
template <class Run>
void for_cases(const Run& run) {
  uint64_t iteration = 0;
  for (const content kind : {content::ordinary, content::special})
    for (const shape s : shapes)
      for (const char trans : letters) run(++iteration, s, trans, kind);
  for (const char trans : letters) run(++iteration, divided, trans, content::ordinary);
}

// Row-major lines with a gap, or column-major ones: the roles of rows and columns change.
shape lines(char ordering, shape s) { return ordering == 'R' ? s : shape{s.cols, s.rows}; }

template <class T>
void in_place(recorder& out, zor::imatcopy_fn<T>* fn) {
  for_cases([&](uint64_t iteration, shape s, char trans, content kind) {
    numbers source(iteration);
    const char ordering = iteration % 2 == 0 ? 'R' : 'C';
    const shape from = lines(ordering, s), to = op(trans, from);
    const zor_int common = std::max(from.cols, to.cols) + 1;
    const bool one = iteration % 3 == 0;  // one leading dimension
    const zor_int lda = one ? common : from.cols + zor_int(iteration % 2),
                  ldb = one ? common : to.cols + zor_int(iteration % 5);
    block<T> ab(size_t(std::max(from.rows * lda, to.rows * ldb)), iteration % 2, source, kind);
    fn(ordering, trans, s.rows, s.cols, factor<T>(iteration / 2), ab.data(), lda, ldb);
    ab.record(out);
  });
}

template <class T, class Copy>
void out_of_place(recorder& out, zor_int widest_stride, const Copy& copy) {
  for_cases([&](uint64_t iteration, shape s, char trans, content kind) {
    numbers source(iteration);
    const char ordering = iteration % 2 == 0 ? 'R' : 'C';
    const shape from = lines(ordering, s), to = op(trans, from);
    const zor_int stridea = 1 + zor_int(iteration) % widest_stride,
                  strideb = 1 + zor_int(iteration / 2) % widest_stride;
    const zor_int lda = from.cols * stridea + zor_int(iteration % 3),
                  ldb = to.cols * strideb + zor_int(iteration % 4);
    block<T> a(size_t(from.rows * lda), iteration % 2, source, kind),
        b(size_t(to.rows * ldb), iteration / 2 % 2, source);
    copy(ordering, trans, s, factor<T>(iteration / 2), a.data(), lda, stridea, b.data(), ldb, strideb);
    b.record(out);
  });
}

template <class T>
void copies(recorder& out, zor::omatcopy_fn<T>* fn) {
  out_of_place<T>(out, 1,
                  [fn](char ordering, char trans, shape s, T alpha, const T* a, zor_int lda, zor_int, T* b,
                       zor_int ldb, zor_int) { fn(ordering, trans, s.rows, s.cols, alpha, a, lda, b, ldb); });
}
template <class T>
void strided_copies(recorder& out, zor::omatcopy2_fn<T>* fn) {
  out_of_place<T>(out, 3,
                  [fn](char ordering, char trans, shape s, T alpha, const T* a, zor_int lda, zor_int stridea,
                       T* b, zor_int ldb, zor_int strideb) {
                    fn(ordering, trans, s.rows, s.cols, alpha, a, lda, stridea, b, ldb, strideb);
                  });
}

template <class T>
void sums(recorder& out, zor::omatadd_fn<T>* fn) {
  for (const char transb : letters)
    for_cases([&](uint64_t iteration, shape s, char transa, content kind) {
      numbers source(iteration);
      const char ordering = iteration % 2 == 0 ? 'R' : 'C';
      const shape of_c = lines(ordering, s), of_a = op(transa, of_c), of_b = op(transb, of_c);
      const zor_int lda = of_a.cols + zor_int(iteration % 3), ldb = of_b.cols + zor_int(iteration % 2),
                    ldc = of_c.cols + zor_int(iteration % 4);
      block<T> a(size_t(of_a.rows * lda), iteration % 2, source, kind),
          b(size_t(of_b.rows * ldb), iteration / 2 % 2, source),
          c(size_t(of_c.rows * ldc), iteration / 4 % 2, source);
      fn(ordering, transa, transb, s.rows, s.cols, factor<T>(iteration / 2), a.data(), lda,
         factor<T>(iteration / 3), b.data(), ldb, c.data(), ldc);
      c.record(out);
    });
}

}  // namespace

void run_trans(recorder& out) {
#define ROW_IMATCOPY(name, T) \
  if (out.begin(#name)) in_place<T>(out, name);
#define ROW_OMATCOPY(name, T) \
  if (out.begin(#name)) copies<T>(out, name);
#define ROW_OMATCOPY2(name, T) \
  if (out.begin(#name)) strided_copies<T>(out, name);
#define ROW_OMATADD(name, T) \
  if (out.begin(#name)) sums<T>(out, name);
#include "zor/tables/trans.inc"

#define ROW_IMATCOPY(name, T) \
  if (out.begin(#name)) in_place<T>(out, name);
#define ROW_OMATCOPY(name, T) \
  if (out.begin(#name)) copies<T>(out, name);
#define ROW_OMATCOPY2(name, T) \
  if (out.begin(#name)) strided_copies<T>(out, name);
#define ROW_OMATADD(name, T) \
  if (out.begin(#name)) sums<T>(out, name);
#include "zor/tables/core_trans.inc"
}

}  // namespace zor_tools
