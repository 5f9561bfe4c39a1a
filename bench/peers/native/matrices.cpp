// SPDX-License-Identifier: MIT
// Plain loops over matrices in compressed rows.
#include "bench/matrices.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace zor_bench {
namespace {

struct rows {
  int32_t m, n;
  std::vector<int32_t> start, column;
  std::vector<double> value;
};

void* make(const matrix_arrays& a) {
  const size_t entries = size_t(a.start[a.m]);
  return new rows{
      a.m, a.n, {a.start, a.start + a.m + 1}, {a.column, a.column + entries}, {a.value, a.value + entries}};
}
void release(void* a) { delete static_cast<rows*>(a); }

int64_t finish(const rows& c, double* total) {
  if (total != nullptr) *total = 0;
  for (size_t k = 0; total != nullptr && k < c.value.size(); ++k) *total += c.value[k];
  return int64_t(c.value.size());
}

// Row by row with a list of the columns met: first the entries are counted, then filled in.
int64_t multiply(void* left, void* right, double* total) {
  const rows &a = *static_cast<rows*>(left), &b = *static_cast<rows*>(right);
  rows c{a.m, b.n, std::vector<int32_t>(size_t(a.m) + 1), {}, {}};
  std::vector<int32_t> met(size_t(b.n), -1);
  for (int32_t r = 0, entries = 0; r < a.m; ++r) {
    for (int32_t k = a.start[size_t(r)]; k < a.start[size_t(r) + 1]; ++k)
      for (int32_t l = b.start[size_t(a.column[size_t(k)])]; l < b.start[size_t(a.column[size_t(k)]) + 1];
           ++l)
        if (met[size_t(b.column[size_t(l)])] != r) met[size_t(b.column[size_t(l)])] = r, ++entries;
    c.start[size_t(r) + 1] = entries;
  }
  c.column.resize(size_t(c.start.back()));
  c.value.resize(c.column.size());
  std::vector<int32_t> next(size_t(b.n), -1);
  std::vector<double> sum(size_t(b.n), 0);
  for (int32_t r = 0; r < a.m; ++r) {
    int32_t head = -2;
    for (int32_t k = a.start[size_t(r)]; k < a.start[size_t(r) + 1]; ++k) {
      const double v = a.value[size_t(k)];
      for (int32_t l = b.start[size_t(a.column[size_t(k)])]; l < b.start[size_t(a.column[size_t(k)]) + 1];
           ++l) {
        const size_t j = size_t(b.column[size_t(l)]);
        sum[j] += v * b.value[size_t(l)];
        if (next[j] == -1) next[j] = head, head = int32_t(j);
      }
    }
    for (int32_t at = c.start[size_t(r)]; at < c.start[size_t(r) + 1]; ++at) {
      c.column[size_t(at)] = head;
      c.value[size_t(at)] = sum[size_t(head)];
      sum[size_t(head)] = 0;
      head = std::exchange(next[size_t(head)], -1);
    }
  }
  return finish(c, total);
}

// The two rows side by side.
int64_t add(void* left, void* right, double* total) {
  const rows &a = *static_cast<rows*>(left), &b = *static_cast<rows*>(right);
  rows c{a.m, a.n, std::vector<int32_t>(size_t(a.m) + 1),
         std::vector<int32_t>(a.value.size() + b.value.size()),
         std::vector<double>(a.value.size() + b.value.size())};
  int32_t at = 0;
  for (int32_t r = 0; r < a.m; ++r) {
    int32_t k = a.start[size_t(r)], l = b.start[size_t(r)];
    const int32_t k_end = a.start[size_t(r) + 1], l_end = b.start[size_t(r) + 1];
    while (k < k_end || l < l_end) {
      const int32_t i = k < k_end ? a.column[size_t(k)] : INT32_MAX,
                    j = l < l_end ? b.column[size_t(l)] : INT32_MAX;
      c.column[size_t(at)] = std::min(i, j);
      c.value[size_t(at++)] = (i <= j ? a.value[size_t(k++)] : 0) + (j <= i ? b.value[size_t(l++)] : 0);
    }
    c.start[size_t(r) + 1] = at;
  }
  c.column.resize(size_t(at));
  c.value.resize(size_t(at));
  return finish(c, total);
}

void to_csc(const matrix_arrays& a, double* value, int32_t* row, int32_t* start) {
  const int32_t entries = a.start[a.m];
  std::fill_n(start, a.n + 1, 0);
  for (int32_t k = 0; k < entries; ++k) ++start[a.column[k]];
  for (int32_t c = 0, sum = 0; c <= a.n; ++c) sum += std::exchange(start[c], sum);
  for (int32_t r = 0; r < a.m; ++r)
    for (int32_t k = a.start[r]; k < a.start[r + 1]; ++k) {
      const int32_t at = start[a.column[k]]++;
      row[at] = r;
      value[at] = a.value[k];
    }
  for (int32_t c = 0, last = 0; c <= a.n; ++c) last = std::exchange(start[c], last);
}

void to_coo(const matrix_arrays& a, double* value, int32_t* row, int32_t* column) {
  for (int32_t r = 0; r < a.m; ++r)
    for (int32_t k = a.start[r]; k < a.start[r + 1]; ++k) row[k] = r;
  std::copy_n(a.column, a.start[a.m], column);
  std::copy_n(a.value, a.start[a.m], value);
}

void to_dia(const matrix_arrays& a, int32_t ndiag, const int32_t* distance, double* value) {
  std::fill_n(value, int64_t(ndiag) * a.m, 0.0);
  for (int32_t r = 0; r < a.m; ++r)
    for (int32_t k = a.start[r]; k < a.start[r + 1]; ++k)
      value[(std::lower_bound(distance, distance + ndiag, a.column[k] - r) - distance) * a.m + r] =
          a.value[k];
}

void to_bsr(const matrix_arrays& a, int32_t lb, double* value, int32_t* column, int32_t* start) {
  const int32_t size = lb * lb, lines = (a.m + lb - 1) / lb;
  std::vector<double*> block(size_t((a.n + lb - 1) / lb), nullptr);
  int32_t blocks = start[0] = 0;
  for (int32_t R = 0; R < lines; ++R) {
    for (int32_t r = R * lb; r < std::min(R * lb + lb, a.m); ++r)
      for (int32_t k = a.start[r]; k < a.start[r + 1]; ++k) {
        double*& at = block[size_t(a.column[k] / lb)];
        if (at == nullptr) {
          at = value + int64_t(blocks) * size;
          std::fill_n(at, size, 0.0);
          column[blocks++] = a.column[k] / lb;
        }
        at[r % lb + a.column[k] % lb * lb] += a.value[k];
      }
    start[R + 1] = blocks;
    for (int32_t p = start[R]; p < blocks; ++p) block[size_t(column[p])] = nullptr;
  }
}

void sweep(int32_t mb, int32_t lb, const int32_t* start, const int32_t* column, const double* value,
           double* y) {
  for (int32_t R = 0; R < mb; ++R) {
    double* const own = y + R * lb;
    const double* pivot = nullptr;
    for (int32_t p = start[R]; p < start[R + 1] && column[p] <= R; ++p) {
      const double* const a = value + int64_t(p) * lb * lb;
      if (column[p] == R) {
        pivot = a;
        continue;
      }
      const double* const other = y + column[p] * lb;
      for (int32_t j = 0; j < lb; ++j)
        for (int32_t i = 0; i < lb; ++i) own[i] -= a[i + j * lb] * other[j];
    }
    for (int32_t i = 0; i < lb; ++i) {
      double s = own[i];
      for (int32_t j = 0; j < i; ++j) s -= pivot[i + j * lb] * own[j];
      own[i] = s / pivot[i + i * lb];
    }
  }
}

}  // namespace

extern "C" [[gnu::visibility("default")]] const matrix_loops zor_matrix_loops;
const matrix_loops zor_matrix_loops = {{make, release, multiply, add}, to_csc, to_coo, to_dia, to_bsr, sweep};

}  // namespace zor_bench
