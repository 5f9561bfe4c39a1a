// SPDX-License-Identifier: MIT
// Sums and products of sparse matrices. The rows are filled in one pass, into arrays with room for as many
// entries as there can be, of which the system gives what is written to; what is left is given back. A
// product for which there is no such room takes two passes, and counts its entries first. Threads take ranges
// of rows; no sum crosses rows.
#include <algorithm>
#include <limits>

#include "core/spblas/csr_copy.h"
#include "core/spblas/kernels.h"
#include "serv/scratch.h"

namespace zor_core {
namespace {

int32_t short_of_memory() { return sparse_failure(ZOR_SPARSE_NO_MEMORY, "memory for the result is short"); }

// op(A) as the kernels take it: row r holds the positions pntr[r] to pntr[r+1] - 1 of val and indx, counted
// from 1, with columns from the base of A on. The caller's arrays where they serve, else a copy.
template <class T, class I>
struct counted_rows {
  zor_int rows, cols, base;
  bool ascending;
  const T* val = nullptr;
  const I *indx = nullptr, *pntr = nullptr;
  scoped_arrays copy;

  counted_rows(const sparse_matrix& a, int32_t op)
      : rows(is_transposed(op) ? a.cols : a.rows),
        cols(is_transposed(op) ? a.rows : a.cols),
        base(a.base),
        ascending(a.ascending) {
    const csr_arrays<T, I> m(a);
    const bool gaps = static_cast<const void*>(m.pntre) != static_cast<const void*>(m.pntrb + 1);
    if (op == ZOR_SPARSE_PLAIN && a.used > 0 && !gaps) {
      const zor_int before = zor_int(m.pntrb[0]) - 1;
      val = m.val - before, indx = m.indx - before, pntr = m.pntrb;
    } else if (copy_of_operation<T, I>(a, op, copy)) {
      take_copy();
    }
  }
  bool short_of_memory() const { return pntr == nullptr; }
  zor_int entries_before(zor_int r) const { return zor_int(pntr[r]) - zor_int(pntr[0]); }
  bool sort() {
    for (zor_int r = 0; !ascending && r < rows; ++r)
      for (zor_int k = zor_int(pntr[r]); k < zor_int(pntr[r + 1]) - 1; ++k)
        if (indx[k] < indx[k - 1]) return sort_copy();
    return true;
  }
  // The columns of another base; false when memory is short.
  bool take_base(zor_int other) {
    if (base == other) return true;
    const zor_int entries = entries_before(rows), first = zor_int(pntr[0]) - 1;
    void* moved = nullptr;
    if (!owned_arrays::allocate(moved, entries, sizeof(I))) return false;
    const I shift = I(other - base);
    std::transform(indx + first, indx + first + entries, static_cast<I*>(moved),
                   [=](I c) { return I(c + shift); });
    if (copy.indx != nullptr) zor_serv_zor_free(copy.indx);
    copy.indx = moved;
    indx = static_cast<I*>(moved) - first;
    base = other;
    return true;
  }

 private:
  void take_copy() {
    const auto own = rows_of<T, I>(copy);
    val = own.val, indx = own.indx, pntr = own.pntr;
  }
  bool sort_copy() {
    if (copy.pntr == nullptr) {
      const zor_int entries = entries_before(rows), first = zor_int(pntr[0]) - 1;
      scoped_arrays sorted;
      if (!allocate_rows<T, I>(sorted, rows, entries)) return false;
      const auto own = rows_of<T, I>(sorted);
      std::copy_n(val + first, entries, own.val);
      std::copy_n(indx + first, entries, own.indx);
      std::transform(pntr, pntr + rows + 1, own.pntr, [&](I p) { return I(p - first); });
      copy.release();
      static_cast<owned_arrays&>(copy) = sorted.hand_on();
      take_copy();
    }
    const auto own = rows_of<T, I>(copy);
    sort_all_rows<T, I>(rows, 1, own.pntr, own.indx, own.val);
    return true;
  }
};

// Rows in ranges of about equal work, at most one for a thread unless a range would have more than `most`.
// work(r) is the work of the rows before r.
template <class Work>
class row_ranges {
 public:
  row_ranges(const Work& work, zor_int rows, zor_int most) : work_(work), rows_(rows) {
    threads_ = work(rows) + rows < sparse_thresholds::least_for_threads ? 1 : usable_threads();
    // A product clears an element a column for each range.
    count_ = std::clamp<zor_int>(rows, 1, std::max<zor_int>(threads_, work(rows) / most + 1));
  }
  // The first `rows` rows, in as many ranges at most.
  row_ranges(const row_ranges& all, zor_int rows)
      : work_(all.work_),
        rows_(rows),
        count_(std::clamp<zor_int>(rows, 1, all.count_)),
        threads_(all.threads_) {}
  zor_int rows() const { return rows_; }
  zor_int count() const { return count_; }
  int32_t threads() const { return threads_; }
  zor_int work_before(zor_int range) const { return work_(start(range)); }
  zor_int start(zor_int range) const {
    if (range == count_) return rows_;
    const zor_int wanted = zor_int(__int128(work_(rows_)) * range / count_);
    zor_int low = 0, high = rows_;
    while (range > 0 && low < high) {
      const zor_int middle = low + (high - low) / 2;
      if (work_(middle) < wanted)
        low = middle + 1;
      else
        high = middle;
    }
    return low;
  }
  // body(range, first row, row behind the last one).
  template <class Body>
  void run(const Body& body) const {
    for_each_piece(threads_, count_, [&](zor_int range) { body(range, start(range), start(range + 1)); });
  }

 private:
  const Work& work_;
  zor_int rows_, count_;
  int32_t threads_;
};

template <class I>
int32_t too_large() {
  return sparse_failure(ZOR_SPARSE_TOO_LARGE, "the result has more entries than %d-bit indices can count",
                        int(8 * sizeof(I)));
}

// A part of a result: where its entries go, and the pointers to its rows, which count from its own first
// entry.
template <class T, class I>
struct result_part {
  T* val;
  I *indx, *pntr;
  I room;
};

template <class T, class I>
bool allocate_room(scoped_arrays& made, zor_int entries) {
  return owned_arrays::allocate(made.val, entries, sizeof(T)) &&
         owned_arrays::allocate(made.indx, entries, sizeof(I));
}
// The same for a sum. A result shrinks before it is freed, so that glibc sees no array freed that is as large
// as this room: it would map the room afresh for every result, and the system clear its pages, which takes as
// long as the sum. Once an array twice as large was freed, glibc keeps the memory of both arrays for the next
// result. It takes no notice of arrays above 32 MB.
template <class T, class I>
bool allocate_kept_room(scoped_arrays& made, zor_int entries) {
  constexpr zor_int most_kept = (zor_int(1) << 25) - (zor_int(1) << 13);
  const zor_int bytes = saturating_product(entries, zor_int(sizeof(T)));
  if (bytes >= least_for_large_pages && bytes <= most_kept)
    zor_serv_zor_free(zor_serv_zor_malloc(uint64_t(std::min(2 * bytes, most_kept)), 64));
  return allocate_room<T, I>(made, entries);
}
template <class T, class I>
int32_t trim_entries(scoped_arrays& made, zor_int entries) {
  owned_arrays::trim(made.val, entries, sizeof(T));
  owned_arrays::trim(made.indx, entries, sizeof(I));
  return ZOR_SPARSE_OK;
}

// Moves the entries from `from` on down to `place`. Threads share as many as lie between the two, which stand
// in no other's way, and then as many again.
template <class T, class I>
void move_down(int32_t threads, const row_arrays<T, I>& a, zor_int from, zor_int count, zor_int place) {
  const zor_int gap = from - place;
  const bool shared = gap * sparse_thresholds::most_moves >= count;
  const zor_int pieces = shared ? threads : 1, together = shared ? gap : count;
  for (zor_int moved = 0; moved < count; moved += together) {
    const zor_int some = std::min(together, count - moved);
    for_each_piece(threads, pieces, [&](zor_int piece) {
      const zor_int first = moved + cut(some, 1, pieces, piece),
                    n = moved + cut(some, 1, pieces, piece + 1) - first;
      std::memmove(static_cast<void*>(a.val + place + first), a.val + from + first, size_t(n) * sizeof(T));
      std::memmove(a.indx + place + first, a.indx + from + first, size_t(n) * sizeof(I));
    });
  }
}

// The result in one pass. fill(first, last, part) fills in the rows of a range and gives the info of the
// kernel. Each range begins where the work before it would end, and its entries move together afterwards.
template <class T, class I, class Ranges, class Fill>
int32_t fill_at_once(const Ranges& ranges, scoped_arrays& made, const Fill& fill) {
  constexpr I most = std::numeric_limits<I>::max() - 1;
  const auto to = rows_of<T, I>(made);
  const zor::scratch<I> failures(ranges.count());
  if (failures.data == nullptr) return short_of_memory();
  // The pointers of a range stand behind those of the ranges before it, one element each apart.
  ranges.run([&](zor_int range, zor_int first, zor_int last) {
    const zor_int before = ranges.work_before(range), room = ranges.work_before(range + 1) - before;
    I* const pntr = to.pntr + first + range;
    pntr[0] = 1;
    failures.data[range] = first == last ? I(0)
                                         : fill(first, last,
                                                result_part<T, I>{to.val + before, to.indx + before, pntr,
                                                                  I(std::min(room, zor_int(most)))});
  });
  zor_int entries = 0;
  for (zor_int range = 0; range < ranges.count(); ++range) {
    if (failures.data[range] < 0) return short_of_memory();
    const zor_int first = ranges.start(range), last = ranges.start(range + 1);
    const I* const own = to.pntr + first + range;
    const zor_int before = ranges.work_before(range), count = zor_int(own[last - first]) - 1;
    if (failures.data[range] > 0 || count > most - entries) return too_large<I>();
    if (range > 0) {
      move_down(ranges.threads(), to, before, count, entries);
      for (zor_int r = first; r <= last; ++r) to.pntr[r] = I(own[r - first] + entries);
    }
    entries += count;
  }
  return trim_entries<T, I>(made, entries);
}

// The result, whose columns and rows are in the base of A, as a matrix of the general view.
template <class I>
int32_t finish(const sparse_matrix& a, zor_int rows, zor_int cols, bool ascending, scoped_arrays& made,
               zor_sparse* c) {
  I* const pntr = static_cast<I*>(made.pntr);
  sparse_matrix to{};
  to.nnz = rows == 0 ? 0 : zor_int(pntr[rows]) - 1;
  for (zor_int r = 0; a.base == 0 && r <= rows; ++r) --pntr[r];
  to.take_view(a, ZOR_SPARSE_CSR);
  to.rows = rows;
  to.cols = cols;
  to.take_arrays(made.hand_on(), sizeof(I));
  return ascending ? make_result_handle<I>(to, c) : make_handle<I>(to, c);
}

template <class T, class I>
struct product_operands {
  const counted_rows<T, I>& left;
  const counted_rows<T, I>& right;
  // The kernels take columns of op(A) for rows of B counted from 1.
  const I* right_pntr = right.pntr + (1 - left.base);

  // Rows first to last - 1, or all of them counted from the first one for request 0.
  I multiply(I request, zor_int first, zor_int last, const I* left_pntr, const result_part<T, I>& to) const {
    const I from = I(first + 1), end = I(last), n = I(right.cols);
    I info = 0;
    product_of<T, I>(&from, &end, &end, &n, &request, left.val, left.indx, left_pntr, right.val, right.indx,
                     right_pntr, to.val, to.indx, to.pntr, &to.room, &info);
    return info;
  }
  zor_int products_of_row(zor_int r) const {
    zor_int products = 0;
    for (zor_int k = zor_int(left.pntr[r]) - 1; k < zor_int(left.pntr[r + 1]) - 1; ++k)
      products += zor_int(right_pntr[left.indx[k]]) - zor_int(right_pntr[zor_int(left.indx[k]) - 1]);
    return products;
  }
};

// The result in two passes, in arrays that are made when its entries are counted.
template <class T, class I, class Ranges>
int32_t count_and_fill(const Ranges& ranges, scoped_arrays& made, const product_operands<T, I>& operands) {
  bool failed = false;
  const auto pass = [&](I request) {
    const auto to = rows_of<T, I>(made);
    ranges.run([&](zor_int, zor_int first, zor_int last) {
      const I info =
          operands.multiply(request, first, last, operands.left.pntr, {to.val, to.indx, to.pntr, 0});
      if (info != 0) __atomic_store_n(&failed, true, __ATOMIC_RELAXED);
    });
    return !failed;
  };
  if (!pass(1)) return short_of_memory();
  I* const pntr = static_cast<I*>(made.pntr);
  zor_int entries = 0;
  pntr[0] = 1;
  for (zor_int r = 0; r < ranges.rows(); ++r) {
    entries += zor_int(pntr[r + 1]);
    if (entries >= std::numeric_limits<I>::max()) return too_large<I>();
    pntr[r + 1] = I(entries + 1);
  }
  if (!owned_arrays::allocate(made.val, entries, sizeof(T)) ||
      !owned_arrays::allocate(made.indx, entries, sizeof(I)) || !pass(2))
    return short_of_memory();
  return ZOR_SPARSE_OK;
}

template <class T, class I>
int32_t multiply(const sparse_matrix& a, int32_t op, const sparse_matrix& b, zor_sparse* c) {
  const counted_rows<T, I> left(a, op);
  counted_rows<T, I> right(b, ZOR_SPARSE_PLAIN);
  const zor_int rows = left.rows, cols = right.cols;
  const zor::scratch<zor_int> work(rows + 1);
  if (left.short_of_memory() || right.short_of_memory() || work.data == nullptr || !right.take_base(a.base))
    return short_of_memory();
  const product_operands<T, I> operands{left, right};
  work.data[0] = 0;
  for (zor_int r = 0; r < rows; ++r) work.data[r + 1] = work.data[r] + operands.products_of_row(r);
  const auto work_before = [&](zor_int r) { return work.data[r]; };
  const row_ranges ranges(work_before, rows, std::numeric_limits<zor_int>::max());
  const zor_int products = work.data[rows];
  scoped_arrays made;
  if (!owned_arrays::allocate(made.pntr, rows + ranges.count(), sizeof(I))) return short_of_memory();
  int32_t status;
  if (products < std::numeric_limits<I>::max() && allocate_room<T, I>(made, products)) {
    status =
        fill_at_once<T, I>(ranges, made, [&](zor_int first, zor_int last, const result_part<T, I>& part) {
          return operands.multiply(0, 0, last - first, left.pntr + first, part);
        });
  } else {
    if (made.val != nullptr) zor_serv_zor_free(std::exchange(made.val, nullptr));
    status = count_and_fill<T, I>(ranges, made, operands);
  }
  return status != ZOR_SPARSE_OK ? status : finish<I>(a, rows, cols, true, made, c);
}

template <class T, class I>
struct sum_operands {
  const counted_rows<T, I>& left;
  const counted_rows<T, I>& right;
  T beta;

  // Rows first to last - 1; the pointers of the result begin with row `origin`.
  I add(I request, zor_int origin, zor_int first, zor_int last, const result_part<T, I>& to) const {
    const I from = I(first - origin + 1), end = I(last - origin), sort = 0;
    I info = 0;
    sum_of<T, I>(&from, &end, &request, &sort, const_cast<T*>(left.val), const_cast<I*>(left.indx),
                 left.pntr + origin, &beta, const_cast<T*>(right.val), const_cast<I*>(right.indx),
                 right.pntr + origin, to.val, to.indx, to.pntr, &to.room, &info);
    return info;
  }
  zor_int entries_before(zor_int r) const { return left.entries_before(r) + right.entries_before(r); }

  // Whether rows of the two have many columns in common, as a look at some of them tells.
  bool share_columns() const {
    const zor_int rows = left.rows, step = std::max<zor_int>(rows / sparse_thresholds::looked_at_rows, 1);
    zor_int entries = 0, common = 0;
    for (zor_int r = 0; r < rows; r += step) {
      zor_int i = zor_int(left.pntr[r]) - 1, j = zor_int(right.pntr[r]) - 1;
      entries += entries_before(r + 1) - entries_before(r);
      while (i < zor_int(left.pntr[r + 1]) - 1 && j < zor_int(right.pntr[r + 1]) - 1) {
        const I a = left.indx[i], b = right.indx[j];
        common += a == b;
        i += a <= b;
        j += b <= a;
      }
    }
    return common * sparse_thresholds::entries_of_common_column >= entries;
  }
};

// The sum in place: threads first count the entries of the rows before the last range, so that every range is
// filled where it belongs. It pays where columns in common leave large gaps between ranges that move later,
// and make a count cheap.
template <class T, class I, class Ranges>
int32_t count_and_add(const Ranges& ranges, scoped_arrays& made, const sum_operands<T, I>& operands) {
  constexpr zor_int most = std::numeric_limits<I>::max() - 1;
  const auto to = rows_of<T, I>(made);
  const zor_int filling = ranges.count() - 1, room = ranges.work_before(ranges.count());
  const Ranges counting(ranges, ranges.start(filling));
  // The pointers of a range stand behind those of the ranges before it, one element each apart.
  counting.run([&](zor_int range, zor_int first, zor_int last) {
    operands.add(1, first, first, last, {nullptr, nullptr, to.pntr + first + range, 0});
  });
  zor_int entries = 0;
  to.pntr[0] = 1;
  for (zor_int range = 0; range < counting.count(); ++range) {
    const zor_int first = counting.start(range), last = counting.start(range + 1);
    const I* const own = to.pntr + first + range;
    const zor_int count = zor_int(own[last - first]) - 1;
    if (count > most - entries) return too_large<I>();
    for (zor_int r = first; r <= last; ++r) to.pntr[r] = I(own[r - first] + entries);
    entries += count;
  }
  const result_part<T, I> whole{to.val, to.indx, to.pntr, I(std::min(room, most))};
  I failure = 0;
  ranges.run([&](zor_int range, zor_int first, zor_int last) {
    const I info = operands.add(range == filling ? 0 : 2, 0, first, last, whole);
    if (range == filling) failure = info;
  });
  return failure == 0 ? trim_entries<T, I>(made, zor_int(to.pntr[ranges.rows()]) - 1) : too_large<I>();
}

template <class T, class I>
int32_t add(const sparse_matrix& a, int32_t op, T beta, const sparse_matrix& b, zor_sparse* c) {
  counted_rows<T, I> left(a, ZOR_SPARSE_PLAIN), right(b, op);
  const zor_int rows = left.rows;
  if (left.short_of_memory() || right.short_of_memory() || !left.sort() || !right.sort() ||
      !right.take_base(a.base))
    return short_of_memory();
  const sum_operands<T, I> operands{left, right, beta};
  const auto work_before = [&](zor_int r) { return operands.entries_before(r); };
  // No range has more entries than the integers count, unless a row has.
  const row_ranges ranges(work_before, rows, std::numeric_limits<I>::max() / 2);
  scoped_arrays made;
  if (!owned_arrays::allocate(made.pntr, rows + ranges.count(), sizeof(I)) ||
      !allocate_kept_room<T, I>(made, work_before(rows)))
    return short_of_memory();
  const int32_t status =
      ranges.threads() > 1 && operands.share_columns()
          ? count_and_add<T, I>(ranges, made, operands)
          : fill_at_once<T, I>(ranges, made, [&](zor_int first, zor_int last, const result_part<T, I>& part) {
              return operands.add(0, first, first, last, part);
            });
  if (status != ZOR_SPARSE_OK) return status;
  return finish<I>(a, rows, left.cols, left.ascending && right.ascending, made, c);
}

// Two matrices that can be added or multiplied.
int32_t bad_pair(zor_sparse a, zor_sparse b, int32_t op, zor_sparse* c) {
  if (c == nullptr) return sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "c is null");
  *c = nullptr;
  if (const int32_t status = bad_operand("a", a)) return status;
  if (!one_of(op, "ntcs")) return sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "op: %d is no value of it", op);
  if (const int32_t status = bad_operand("b", b)) return status;
  if (a->type != b->type)
    return sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "b: elements of type %c, those of a are of type %c",
                          b->type, a->type);
  if (a->wide != b->wide)
    return sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "b: indices of %d bits, those of a have %d",
                          b->wide ? 64 : 32, a->wide ? 64 : 32);
  for (const auto& [name, m] : {std::pair{"a", a}, std::pair{"b", b}})
    if (m->structure != 'g')
      return sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "%s: sums and products take the general view", name);
  return ZOR_SPARSE_OK;
}

int32_t bad_shape(const char* what, zor_int found, zor_int wanted) {
  return sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "b: %s %lld, not %lld", what, (long long)found,
                        (long long)wanted);
}

}  // namespace

}  // namespace zor_core

using namespace zor_core;

#define ZOR_FOR_TYPE(call)          \
  (a->type == 's'   ? call(float)   \
   : a->type == 'd' ? call(double)  \
   : a->type == 'c' ? call(zor_c32) \
                    : call(zor_c64))

extern "C" int32_t zor_sparse_add(zor_sparse* c, zor_sparse a, int32_t op, const void* beta, zor_sparse b) {
  if (const int32_t status = bad_pair(a, b, op, c)) return status;
  if (beta == nullptr) return sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "beta is null");
  const zor_int rows = is_transposed(op) ? b->cols : b->rows, cols = is_transposed(op) ? b->rows : b->cols;
  if (rows != a->rows) return bad_shape("rows of op(b):", rows, a->rows);
  if (cols != a->cols) return bad_shape("columns of op(b):", cols, a->cols);
  const scoped_rows_form left(*a), right(*b);
  if (left.status != ZOR_SPARSE_OK) return left.status;
  if (right.status != ZOR_SPARSE_OK) return right.status;
#define ZOR_ADD(T) \
  (a->wide ? add<T, int64_t> : add<T, int32_t>)(*left.data, op, *static_cast<const T*>(beta), *right.data, c)
  return ZOR_FOR_TYPE(ZOR_ADD);
#undef ZOR_ADD
}

extern "C" int32_t zor_sparse_multiply(zor_sparse* c, int32_t op, zor_sparse a, zor_sparse b) {
  if (const int32_t status = bad_pair(a, b, op, c)) return status;
  const zor_int inner = is_transposed(op) ? a->rows : a->cols;
  if (b->rows != inner) return bad_shape("rows:", b->rows, inner);
  const scoped_rows_form left(*a), right(*b);
  if (left.status != ZOR_SPARSE_OK) return left.status;
  if (right.status != ZOR_SPARSE_OK) return right.status;
#define ZOR_MULTIPLY(T) \
  (a->wide ? multiply<T, int64_t> : multiply<T, int32_t>)(*left.data, op, *right.data, c)
  return ZOR_FOR_TYPE(ZOR_MULTIPLY);
#undef ZOR_MULTIPLY
}
