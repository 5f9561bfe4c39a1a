// SPDX-License-Identifier: MIT
// Vector kernels, and the plain names of libzor_core that divide them over threads.
#include "tools/verify/battery.h"
#include "zor/signatures/blas.h"

namespace zor_tools {
namespace {

// Lengths around every block and tail, and one that is long enough to be divided over threads.
constexpr zor_int lengths[] = {0, 1, 2, 3, 5, 7, 8, 9, 10, 11, 13, 16, 19, 31, 33, 47, 64, 97, 259};
constexpr zor_int divided_length = 150001;

struct strides {
  zor_int x, y;
};
constexpr strides pairs[] = {{1, 1}, {-1, -1}, {1, -1}, {2, 3}, {-3, 2}, {2, -2}, {-2, -1}};
constexpr zor_int singles[] = {1, -1, 2, -3, 0};

struct positions {
  size_t x, y;
};
constexpr positions shifts[] = {{0, 0}, {1, 1}, {0, 1}, {2, 1}, {3, 3}};

size_t extent(zor_int n, zor_int inc) { return n <= 0 ? 1 : size_t((n - 1) * (inc < 0 ? -inc : inc) + 1); }

// Calls body(n, inc, x) for every length, increment, position and content.
template <class T, class Body>
void each_vector(const Body& body) {
  uint64_t seed = 0;
  for (const content kind : {content::ordinary, content::special})
    for (const zor_int n : lengths)
      for (const zor_int inc : singles)
        for (const size_t shift : {0, 1, 2, 3}) {
          numbers source(++seed);
          block<T> x(extent(n, inc), shift, source, kind);
          body(n, inc, x);
        }
}

// Calls body(n, incs, x, y) likewise; `longest` adds a last, long case of unit stride.
template <class T, class Body>
void each_pair(const Body& body, bool longest = false) {
  uint64_t seed = 1000;
  for (const content kind : {content::ordinary, content::special})
    for (const zor_int n : lengths)
      for (const strides incs : pairs)
        for (const positions shift : shifts) {
          numbers source(++seed);
          block<T> x(extent(n, incs.x), shift.x, source, kind), y(extent(n, incs.y), shift.y, source, kind);
          body(n, incs, x, y);
        }
  if (!longest) return;
  numbers source(++seed);
  block<T> x(divided_length, 1, source), y(divided_length, 0, source);
  body(divided_length, pairs[0], x, y);
}

// Calls body(n, x, indx, y): distinct positions at odd seeds, repeated ones at even.
template <class T, class Body>
void each_compressed(const Body& body) {
  uint64_t seed = 2000;
  for (const content kind : {content::ordinary, content::special})
    for (const zor_int n : lengths)
      for (const bool distinct : {true, false}) {
        numbers source(++seed);
        const size_t room = size_t(3 * n + 4);
        block<T> x(size_t(n) + 1, 1, source, kind), y(room, 0, source, kind);
        std::vector<zor_int> indx(size_t(n) + 1, 1);
        for (zor_int i = 0; i < n; ++i)
          indx[size_t(i)] = distinct ? (7 * i) % n * 3 + 1 + i % 3 : zor_int(source.below(room)) + 1;
        body(n, x, indx.data(), y);
      }
}

template <class T, class R>
void sums(recorder& out, zor::asum_fn<T, R>* fn) {
  each_vector<T>([&](zor_int n, zor_int inc, block<T>& x) { out.add(fn(&n, x.data(), &inc)); });
}

template <class T, class A>
void scalings(recorder& out, zor::scal_fn<T, A>* fn) {
  each_vector<T>([&](zor_int n, zor_int inc, block<T>& x) {
    const A alpha = n % 5 == 0 ? scalar<A>(0, 0) : scalar<A>(-1.375, 0.8125);
    fn(&n, &alpha, x.data(), &inc);
    x.record(out);
  });
}

template <class T>
void updates(recorder& out, zor::axpy_fn<T>* fn) {
  each_pair<T>(
      [&](zor_int n, strides inc, block<T>& x, block<T>& y) {
        const T alpha = scalar<T>(1.0625, -0.7);
        fn(&n, &alpha, x.data(), &inc.x, y.data(), &inc.y);
        y.record(out);
      },
      true);
}

template <class T>
void scaled_updates(recorder& out, zor::axpby_fn<T>* fn) {
  each_pair<T>(
      [&](zor_int n, strides inc, block<T>& x, block<T>& y) {
        const T alpha = scalar<T>(1.0625, -0.7), beta = n % 5 == 0 ? T{} : scalar<T>(-0.375, 0.25);
        fn(&n, &alpha, x.data(), &inc.x, &beta, y.data(), &inc.y);
        y.record(out);
      },
      true);
}

template <class T>
void moves(recorder& out, zor::swap_fn<T>* fn) {
  each_pair<T>(
      [&](zor_int n, strides inc, block<T>& x, block<T>& y) {
        fn(&n, x.data(), &inc.x, y.data(), &inc.y);
        x.record(out);
        y.record(out);
      },
      true);
}

template <class T>
void copies(recorder& out, zor::copy_fn<T>* fn) {
  each_pair<T>([&](zor_int n, strides inc, block<T>& x, block<T>& y) {
    fn(&n, x.data(), &inc.x, y.data(), &inc.y);
    y.record(out);
  });
}

template <class T, class Name>
void dots_of(recorder& out, Name* fn) {
  each_pair<T>([&](zor_int n, strides inc, block<T>& x, block<T>& y) {
    out.add(fn(&n, x.data(), &inc.x, y.data(), &inc.y));
  });
}
template <class T>
void dots(recorder& out, zor::dot_fn<T>* fn) {
  dots_of<T>(out, fn);
}
void dots(recorder& out, zor::dsdot_fn* fn) { dots_of<float>(out, fn); }

template <class T>
void complex_dots(recorder& out, zor::cdot_fn<T>* fn) {
  each_pair<T>([&](zor_int n, strides inc, block<T>& x, block<T>& y) {
    T result;
    fn(&result, &n, x.data(), &inc.x, y.data(), &inc.y);
    out.add(result);
  });
}

void started_dots(recorder& out, zor::sdsdot_fn* fn) {
  each_pair<float>([&](zor_int n, strides inc, block<float>& x, block<float>& y) {
    const float sb = 0.3f;
    out.add(fn(&n, &sb, x.data(), &inc.x, y.data(), &inc.y));
  });
}

template <class T, class C, class S>
void rotations(recorder& out, zor::rot_fn<T, C, S>* fn) {
  each_pair<T>([&](zor_int n, strides inc, block<T>& x, block<T>& y) {
    const C c = C(0.6);
    const S s = scalar<S>(0.8, -0.3);
    fn(&n, x.data(), &inc.x, y.data(), &inc.y, &c, &s);
    x.record(out);
    y.record(out);
  });
}

// Every pair of a few values that meet each branch of the set-up routines.
constexpr double setup_values[] = {0, -0.0, 1, -1, 3, -4, 0.5, 1e-30, -1e30, 1e30, 5e-40};

template <class T, class R>
void rotation_setups(recorder& out, zor::rotg_fn<T, R>* fn) {
  for (const double a : setup_values)
    for (const double b : setup_values) {
      T values[3] = {scalar<T>(a, b / 2), scalar<T>(b, -a), scalar<T>(0, 0)};
      R c = 0;
      fn(&values[0], &values[1], &c, &values[2]);
      out.add(values, 3);
      out.add(c);
    }
}

template <class T>
void modified_rotations(recorder& out, zor::rotm_fn<T>* fn) {
  for (const T flag : {T(-2), T(-1), T(0), T(1)})
    each_pair<T>([&](zor_int n, strides inc, block<T>& x, block<T>& y) {
      const T param[] = {flag, T(0.7), T(-1.3), T(0.9), T(2.1)};
      fn(&n, x.data(), &inc.x, y.data(), &inc.y, param);
      x.record(out);
      y.record(out);
    });
}

template <class T>
void modified_setups(recorder& out, zor::rotmg_fn<T>* fn) {
  const double scales[] = {-1, 0, 1e-12, 0.7, 3e9};
  for (const double d1 : scales)
    for (const double d2 : scales)
      for (const double x1 : {0.0, 0.3, -2.0})
        for (const T y1 : {T(0), T(1.7), T(-0.01)}) {
          T values[] = {T(d1), T(d2), T(x1), -9, -9, -9, -9, -9};
          fn(&values[0], &values[1], &values[2], &y1, &values[3]);
          out.add(values, std::size(values));
        }
}

template <class T, class R>
void magnitudes(recorder& out, zor::cabs1_fn<T, R>* fn) {
  numbers source(7);
  block<T> z(200, 1, source, content::special);
  for (size_t i = 0; i < z.size(); ++i) out.add(fn(z.data() + i));
}

template <class T>
void sparse_updates(recorder& out, zor::axpyi_fn<T>* fn) {
  each_compressed<T>([&](zor_int n, block<T>& x, const zor_int* indx, block<T>& y) {
    const T alpha = scalar<T>(-0.3, 1.1);
    fn(&n, &alpha, x.data(), indx, y.data());
    y.record(out);
  });
}

template <class T>
void sparse_dots(recorder& out, zor::doti_fn<T>* fn) {
  each_compressed<T>([&](zor_int n, block<T>& x, const zor_int* indx, block<T>& y) {
    out.add(fn(&n, x.data(), indx, y.data()));
  });
}

template <class T>
void complex_sparse_dots(recorder& out, zor::cdoti_fn<T>* fn) {
  each_compressed<T>([&](zor_int n, block<T>& x, const zor_int* indx, block<T>& y) {
    T result;
    fn(&result, &n, x.data(), indx, y.data());
    out.add(result);
  });
}

template <class T, class Name>
void gathers_of(recorder& out, Name* fn) {
  each_compressed<T>([&](zor_int n, block<T>& x, const zor_int* indx, block<T>& y) {
    fn(&n, y.data(), x.data(), indx);
    x.record(out);
    y.record(out);
  });
}
template <class T>
void gathers(recorder& out, zor::gthr_fn<T>* fn) {
  gathers_of<T>(out, fn);
}
template <class T>
void gathers(recorder& out, zor::gthrz_fn<T>* fn) {
  gathers_of<T>(out, fn);
}

template <class T>
void scatters(recorder& out, zor::sctr_fn<T>* fn) {
  each_compressed<T>([&](zor_int n, block<T>& x, const zor_int* indx, block<T>& y) {
    fn(&n, x.data(), indx, y.data());
    y.record(out);
  });
}

template <class T>
void sparse_rotations(recorder& out, zor::roti_fn<T>* fn) {
  each_compressed<T>([&](zor_int n, block<T>& x, const zor_int* indx, block<T>& y) {
    const T c = T(0.6), s = T(-0.8);
    fn(&n, x.data(), indx, y.data(), &c, &s);
    x.record(out);
    y.record(out);
  });
}

}  // namespace

#define ZOR_RECORD(name, body) \
  if (out.begin(#name)) body(out, name);

void run_vector(recorder& out) {
#define ROW_ASUM(name, ...) ZOR_RECORD(name, sums)
#define ROW_NRM2(name, ...) ZOR_RECORD(name, sums)
#define ROW_IAMAX(name, ...) ZOR_RECORD(name, sums)
#define ROW_IAMIN(name, ...) ZOR_RECORD(name, sums)
#define ROW_SCAL(name, ...) ZOR_RECORD(name, scalings)
#define ROW_AXPY(name, ...) ZOR_RECORD(name, updates)
#define ROW_COPY(name, ...) ZOR_RECORD(name, copies)
#define ROW_SWAP(name, ...) ZOR_RECORD(name, moves)
#define ROW_DOT(name, ...) ZOR_RECORD(name, dots)
#define ROW_CDOT(name, ...) ZOR_RECORD(name, complex_dots)
#define ROW_DSDOT(name) ZOR_RECORD(name, dots)
#define ROW_SDSDOT(name) ZOR_RECORD(name, started_dots)
#define ROW_ROT(name, ...) ZOR_RECORD(name, rotations)
#define ROW_ROTG(name, ...) ZOR_RECORD(name, rotation_setups)
#define ROW_ROTM(name, ...) ZOR_RECORD(name, modified_rotations)
#define ROW_ROTMG(name, ...) ZOR_RECORD(name, modified_setups)
#define ROW_CABS1(name, ...) ZOR_RECORD(name, magnitudes)
#define ROW_AXPYI(name, ...) ZOR_RECORD(name, sparse_updates)
#define ROW_DOTI(name, ...) ZOR_RECORD(name, sparse_dots)
#define ROW_CDOTI(name, ...) ZOR_RECORD(name, complex_sparse_dots)
#define ROW_GTHR(name, ...) ZOR_RECORD(name, gathers)
#define ROW_GTHRZ(name, ...) ZOR_RECORD(name, gathers)
#define ROW_SCTR(name, ...) ZOR_RECORD(name, scatters)
#define ROW_ROTI(name, ...) ZOR_RECORD(name, sparse_rotations)
#include "zor/tables/blas_vector.inc"

#define ROW_AXPY(name, ...) ZOR_RECORD(name, updates)
#define ROW_SWAP(name, ...) ZOR_RECORD(name, moves)
#define ROW_DOT(name, ...) ZOR_RECORD(name, dots)
#define ROW_CDOT(name, ...) ZOR_RECORD(name, complex_dots)
#include "zor/tables/core_blas.inc"

// The others bear the names of their kernels.
#define ROW_COPY(name, ...) ZOR_RECORD(name, copies)
#define ROW_ROT(name, ...) ZOR_RECORD(name, rotations)
#define ROW_AXPBY(name, ...) ZOR_RECORD(name, scaled_updates)
#include "zor/tables/core_vector.inc"
}

}  // namespace zor_tools
