// SPDX-License-Identifier: MIT
// Fetches the arrays of a matrix and writes them as coordinates.
#include "tools/sparse_result.h"

#include <fmt/format.h>

#include <utility>

namespace zor_tools {
namespace {

const char* symmetry_word(mm_symmetry s) {
  return s == mm_symmetry::hermitian ? "hermitian" : symmetry_name(s);
}

void put_value(std::string& text, double x) { mm_put_value(text, x); }
void put_value(std::string& text, zor_c64 x) {
  mm_put_value(text, x.re);
  text += ' ';
  mm_put_value(text, x.im);
}

// Text that is held before it is written.
constexpr size_t held_text = size_t(1) << 20;

}  // namespace

int32_t format_named(std::string_view name) {
  return name == "coo"   ? ZOR_SPARSE_COO
         : name == "dia" ? ZOR_SPARSE_DIA
         : name == "bsr" ? ZOR_SPARSE_BSR
         : name == "sky" ? ZOR_SPARSE_SKY
                         : ZOR_SPARSE_CSR;
}

mm_matrix whole_matrix(mm_matrix m) {
  const mm_symmetry kind = std::exchange(m.symmetry, mm_symmetry::general);
  const size_t stored = kind == mm_symmetry::general ? 0 : m.re.size();
  for (size_t e = 0; e < stored; ++e) {
    const int64_t row = m.rowind[e], col = m.colind[e];
    if (row == col) continue;
    const double sign = kind == mm_symmetry::skew ? -1 : 1;
    m.rowind.push_back(col);
    m.colind.push_back(row);
    m.re.push_back(sign * m.re[e]);
    if (!m.im.empty()) m.im.push_back(kind == mm_symmetry::hermitian ? -m.im[e] : sign * m.im[e]);
  }
  return m;
}

template <class T, class I>
void write_coordinates(output_file& output, const sparse_description<I>& d, mm_symmetry symmetry) {
  std::string text = fmt::format("%%MatrixMarket matrix coordinate {} {}\n{} {} {}\n",
                                 std::is_same_v<T, double> ? "real" : "complex", symmetry_word(symmetry),
                                 d.rows, d.cols, d.nnz);
  const T* const val = static_cast<const T*>(d.val);
  for (I r = 0; r < d.rows; ++r) {
    for (I k = d.pntrb[r] - d.pntrb[0]; k < d.pntre[r] - d.pntrb[0]; ++k) {
      fmt::format_to(std::back_inserter(text), "{} {} ", r + 1, d.indx[k] - d.base + 1);
      put_value(text, val[k]);
      text += '\n';
    }
    if (text.size() < held_text) continue;
    output.append(text);
    text.clear();
  }
  output.commit(text);
}
template void write_coordinates<double, int32_t>(output_file&, const zor_sparse_desc_lp64&, mm_symmetry);
template void write_coordinates<double, int64_t>(output_file&, const zor_sparse_desc&, mm_symmetry);
template void write_coordinates<zor_c64, int32_t>(output_file&, const zor_sparse_desc_lp64&, mm_symmetry);
template void write_coordinates<zor_c64, int64_t>(output_file&, const zor_sparse_desc&, mm_symmetry);

}  // namespace zor_tools
