// SPDX-License-Identifier: MIT
// C := alpha A + beta C by columns, with the arguments and conventions of BLAS: a factor of 0 leaves its
// matrix unread. Threads take rectangles of C.
#include "core/trans/matrices.h"

namespace zor_core {
namespace {

constexpr const char* geadd_arguments[] = {"m", "n", "alpha", "a", "lda", "beta", "c", "ldc"};

template <class T>
void add_part(line_counts part, T alpha, const T* a, zor_int lda, T beta, T* c, zor_int ldc) {
  using kernels = trans_kernels<T>;
  const zor_int lines = part.lines, length = part.length;
  if (!is_zero(alpha) && !is_zero(beta))
    kernels::omatadd('R', 'N', 'N', lines, length, alpha, a, lda, beta, c, ldc, c, ldc);
  else if (!is_zero(alpha))
    kernels::omatcopy2('R', 'N', lines, length, alpha, a, lda, 1, c, ldc, 1);
  else if (!is_zero(beta))
    kernels::imatcopy('R', 'N', lines, length, beta, c, ldc, ldc);
  else
    for (zor_int i = 0; i < lines; ++i) std::fill_n(c + i * ldc, length, T{});
}

template <class T>
void geadd(const char* routine, const zor_int* m, const zor_int* n, const T* alpha, const T* a,
           const zor_int* lda, const T* beta, T* c, const zor_int* ldc) {
  const auto bad_argument = [&]() -> const char* {
    if (!is_size(m)) return "m";
    if (!is_size(n)) return "n";
    const line_counts size = {*n, *m};
    const auto leads = [&](const zor_int* ld) { return ld != nullptr && is_line_length<T>(*ld, size); };
    if (alpha == nullptr) return "alpha";
    if (a == nullptr && !size.empty() && !is_zero(*alpha)) return "a";
    if (!leads(lda)) return "lda";
    if (beta == nullptr) return "beta";
    if (c == nullptr && !size.empty()) return "c";
    if (!leads(ldc) || (c == a && *lda != *ldc && !size.empty())) return "ldc";
    return nullptr;
  };
  if (refused(routine, geadd_arguments, bad_argument())) return;
  for_each_part<T>({*n, *m}, [&](zor_int line, zor_int next, line_counts part) {
    add_part(part, *alpha, is_zero(*alpha) ? a : a + line * *lda + next, *lda, *beta, c + line * *ldc + next,
             *ldc);
  });
}

}  // namespace
}  // namespace zor_core

#define ROW_GEADD(name, T) \
  extern "C" SIG_GEADD(name, T) { zor_core::geadd<T>(#name, m, n, alpha, a, lda, beta, c, ldc); }
#include "zor/tables/core_trans.inc"
