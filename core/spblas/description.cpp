// SPDX-License-Identifier: MIT
// Descriptions of sparse matrices: options, sizes and which arrays there are.
#include "core/spblas/arguments.h"

namespace zor_core {
namespace {

using sparse_thresholds::most_block;

int32_t bad_field(const char* name, int32_t value) {
  return sparse_failure(ZOR_SPARSE_BAD_MATRIX, "%s: %d is no value of it", name, value);
}

template <class Description>
int32_t read_options(sparse_matrix& a, const Description& d) {
  if (d.format < ZOR_SPARSE_CSR || d.format > ZOR_SPARSE_SKY) return bad_field("format", d.format);
  if (!one_of(d.type, "sdcz")) return bad_field("type", d.type);
  if (d.base != 0 && d.base != 1) return bad_field("base", d.base);
  if (!one_of(d.structure, "gtshad")) return bad_field("structure", d.structure);
  if (d.structure == ZOR_SPARSE_HERMITIAN && !one_of(d.type, "cz"))
    return sparse_failure(ZOR_SPARSE_BAD_MATRIX, "structure: a Hermitian matrix has complex elements");
  const bool sides = one_of(d.structure, "tsha"), diagonals = one_of(d.structure, "tshd");
  if (sides && d.triangle != 0 && !one_of(d.triangle, "lu")) return bad_field("triangle", d.triangle);
  if (diagonals && d.diagonal != 0 && !one_of(d.diagonal, "nu")) return bad_field("diagonal", d.diagonal);
  a.format = d.format;
  a.type = char(d.type);
  a.base = d.base;
  a.structure = char(d.structure);
  a.triangle = !sides ? '_' : d.triangle == 0 ? 'l' : char(d.triangle);
  a.diagonal = !diagonals ? '_' : d.diagonal == 0 ? 'n' : char(d.diagonal);
  return ZOR_SPARSE_OK;
}

// What a format asks of the sizes.
template <class Description>
int32_t read_shape(sparse_matrix& a, const Description& d) {
  const bool square = d.format != ZOR_SPARSE_CSR && d.format != ZOR_SPARSE_COO;
  if (square && d.rows != d.cols)
    return sparse_failure(ZOR_SPARSE_BAD_MATRIX, "cols: this format is square, not %lld by %lld",
                          (long long)d.rows, (long long)d.cols);
  if (d.format == ZOR_SPARSE_SKY && !one_of(a.structure, "tsha"))
    return sparse_failure(ZOR_SPARSE_BAD_MATRIX,
                          "structure: skyline stores a triangle, and so must its view");
  if (d.format == ZOR_SPARSE_BSR && (d.lb < 1 || d.lb > most_block))
    return sparse_failure(ZOR_SPARSE_BAD_MATRIX, "lb: %lld is not in 1 to %lld", (long long)d.lb,
                          (long long)most_block);
  if (d.format == ZOR_SPARSE_DIA && d.nnz > 0 && d.lval < d.rows)
    return sparse_failure(ZOR_SPARSE_BAD_MATRIX, "lval: %lld is below the %lld rows", (long long)d.lval,
                          (long long)d.rows);
  a.lb = d.lb;
  a.lval = d.lval;
  return ZOR_SPARSE_OK;
}

template <class Description>
int32_t read_arrays(sparse_matrix& a, const Description& d) {
  const bool rows = d.format == ZOR_SPARSE_COO, pointers = !rows && d.format != ZOR_SPARSE_DIA;
  const struct {
    const char* name;
    const void* array;
    bool read;
  } arrays[] = {{"val", d.val, d.nnz > 0},
                {"indx", d.indx, d.nnz > 0 && d.format != ZOR_SPARSE_SKY},
                {"rowind", d.rowind, d.nnz > 0 && rows},
                {"pntrb", d.pntrb, d.rows > 0 && pointers}};
  for (const auto& each : arrays)
    if (each.read && each.array == nullptr)
      return sparse_failure(ZOR_SPARSE_BAD_MATRIX, "%s is null", each.name);
  a.given_val = d.val;
  a.given_indx = d.indx;
  a.given_rowind = d.rowind;
  a.given_pntrb = d.pntrb;
  a.given_pntre = d.pntre != nullptr || d.rows == 0 || !pointers ? d.pntre : d.pntrb + 1;
  return ZOR_SPARSE_OK;
}

template <class Description>
int32_t read_sizes(sparse_matrix& a, const Description& d) {
  constexpr zor_int most = INT64_MAX / zor_int(sizeof(zor_c64));
  const struct {
    const char* name;
    zor_int value;
  } sizes[] = {{"rows", d.rows}, {"cols", d.cols}, {"nnz", d.nnz}};
  for (const auto& size : sizes)
    if (size.value < 0 || size.value > most)
      return sparse_failure(ZOR_SPARSE_BAD_MATRIX, "%s: %lld is not in 0 to %lld", size.name,
                            (long long)size.value, (long long)most);
  if (a.structure != 'g' && d.rows != d.cols)
    return sparse_failure(ZOR_SPARSE_BAD_MATRIX, "cols: this view is square, not %lld by %lld",
                          (long long)d.rows, (long long)d.cols);
  a.rows = d.rows;
  a.cols = d.cols;
  a.nnz = d.nnz;
  if (a.identity()) return ZOR_SPARSE_OK;
  if (const int32_t status = read_shape(a, d)) return status;
  return read_arrays(a, d);
}

}  // namespace

template <class Description>
int32_t read_description(sparse_matrix& a, const Description& d) {
  if (const int32_t status = read_options(a, d)) return status;
  return read_sizes(a, d);
}
template int32_t read_description(sparse_matrix&, const zor_sparse_desc&);
template int32_t read_description(sparse_matrix&, const zor_sparse_desc_lp64&);

}  // namespace zor_core
