// SPDX-License-Identifier: MIT
// LAPACK kernels: rotations, tridiagonal solvers, small factorisations, panels of reductions.
#include "zor/signatures/lapack.h"
#include "tools/verify/battery.h"

namespace zor_tools {
namespace {

// Calls run(iteration, n, columns, kind of content).
template <class Run>
void for_sizes(const Run& run) {
  uint64_t iteration = 0;
  for (const content kind : {content::ordinary, content::special})
    for (const zor_int n : {1, 2, 3, 4, 7, 8, 9, 16, 21, 37, 130})
      for (const zor_int columns : {1, 2, 4, 7, 8, 19}) run(++iteration, n, columns, kind);
}

size_t matrix(zor_int ld, zor_int columns) { return size_t(ld * columns); }

// ---- Rotations.

template <class T>
void rotations(recorder& out, zor::lasr_fn<T, real_t<T>>* fn) {
  for_sizes([&](uint64_t iteration, zor_int m, zor_int n, content kind) {
    numbers source(iteration);
    const zor_int lda = m + zor_int(iteration % 3);
    block<real_t<T>> c(size_t(m), iteration % 2, source, kind), s(size_t(m), iteration / 2 % 2, source);
    block<T> a(matrix(lda, n), iteration % 2, source, kind);
    fn(&m, &n, c.data(), s.data(), a.data(), &lda);
    a.record(out);
  });
}

template <class T>
void pairs(recorder& out, zor::lartv_fn<T, real_t<T>>* fn) {
  for_sizes([&](uint64_t iteration, zor_int n, zor_int step, content kind) {
    numbers source(iteration);
    const zor_int incx = step % 4 == 1 ? 1 : step % 3 + 1, incc = step % 4 == 1 ? 1 : step % 2 + 1;
    block<T> x(matrix(n, incx), iteration % 2, source, kind),
        y(matrix(n, incx), iteration / 2 % 2, source, kind), s(matrix(n, incc), iteration % 2, source);
    block<real_t<T>> c(matrix(n, incc), iteration / 3 % 2, source);
    fn(&n, x.data(), &incx, y.data(), &incx, c.data(), s.data(), &incc);
    x.record(out);
    y.record(out);
  });
}

template <class T, class Call>
void reflectors(recorder& out, const Call& call) {
  for_sizes([&](uint64_t iteration, zor_int n, zor_int, content kind) {
    numbers source(iteration);
    block<T> x(size_t(n), iteration % 2, source, kind), y(size_t(n), iteration / 2 % 2, source),
        z(size_t(n), iteration / 3 % 2, source), factors(3, 0, source);
    call(n, x.data(), y.data(), z.data(), factors.data());
    x.record(out);
    y.record(out);
    z.record(out);
  });
}

// ---- Tridiagonal matrices.

template <class T>
struct tridiagonal {
  tridiagonal(uint64_t iteration, zor_int n, zor_int nrhs, content kind)
      : source(iteration),
        ldb(n + zor_int(iteration % 3)),
        dl(size_t(n), iteration % 2, source),
        d(size_t(n), iteration / 2 % 2, source, kind),
        du(size_t(n), iteration / 3 % 2, source),
        du2(size_t(n), iteration / 4 % 2, source),
        b(matrix(ldb, nrhs), iteration % 2, source, kind) {}
  numbers source;
  const zor_int ldb;
  block<T> dl, d, du, du2, b;
};

template <class T>
void factors(recorder& out, zor::dttrfb_fn<T>* fn) {
  for_sizes([&](uint64_t iteration, zor_int n, zor_int, content kind) {
    tridiagonal<T> m(iteration, n, 1, kind);
    zor_int info;
    fn(&n, m.dl.data(), m.d.data(), m.du.data(), &info);
    m.dl.record(out);
    m.d.record(out);
    out.add(info);
  });
}
template <class T>
void dominant_solves(recorder& out, zor::dttrsb_fn<T>* fn) {
  for_sizes([&](uint64_t iteration, zor_int n, zor_int nrhs, content kind) {
    tridiagonal<T> m(iteration, n, nrhs, kind);
    zor_int info;
    fn(&"NTC"[iteration % 3], &n, &nrhs, m.dl.data(), m.d.data(), m.du.data(), m.b.data(), &m.ldb, &info);
    m.b.record(out);
  });
}
template <class T, class Solve>
void eliminations(recorder& out, Solve* fn) {
  for_sizes([&](uint64_t iteration, zor_int n, zor_int nrhs, content kind) {
    tridiagonal<T> m(iteration, n, nrhs, kind);
    zor_int info;
    fn(&n, &nrhs, m.dl.data(), m.d.data(), m.du.data(), m.b.data(), &m.ldb, &info);
    m.dl.record(out);
    m.d.record(out);
    m.du.record(out);
    m.b.record(out);
    out.add(info);
  });
}
template <class T>
void lu_solves(recorder& out, zor::gtts2_fn<T>* fn) {
  for_sizes([&](uint64_t iteration, zor_int n, zor_int nrhs, content kind) {
    tridiagonal<T> m(iteration, n, nrhs, kind);
    std::vector<zor_int> ipiv;
    for (zor_int i = 0; i < n; ++i) ipiv.push_back(i + 1 + (i + 1 < n && m.source.below(3) == 0));
    const zor_int itrans = zor_int(iteration % 3);
    fn(&itrans, &n, &nrhs, m.dl.data(), m.d.data(), m.du.data(), m.du2.data(), ipiv.data(), m.b.data(),
       &m.ldb);
    m.b.record(out);
  });
}
template <class T, class Call>
void ldl_solves(recorder& out, const Call& call) {
  for_sizes([&](uint64_t iteration, zor_int n, zor_int nrhs, content kind) {
    tridiagonal<T> m(iteration, n, nrhs, kind);
    block<real_t<T>> d(size_t(n), iteration % 2, m.source);
    const zor_int iuplo = zor_int(iteration % 2);
    call(&iuplo, &n, &nrhs, d.data(), m.dl.data(), m.b.data(), &m.ldb);
    m.b.record(out);
  });
}

// ---- Small factorisations.

template <class T>
void cholesky(recorder& out, zor::potrf_small_fn<T>* fn) {
  for_sizes([&](uint64_t iteration, zor_int n, zor_int columns, content kind) {
    numbers source(iteration);
    const zor_int lda = n + zor_int(iteration % 3);
    block<T> a(matrix(lda, n), iteration % 2, source, kind);
    // Definite, but for some cases in which a pivot fails.
    for (zor_int j = 0; j < n; ++j)
      a.data()[j + j * lda] = scalar<T>(64.0 * double(columns == 19 ? 1 : n), 0);
    zor_int info = 0;
    fn("U", &n, a.data(), &lda, &info);
    a.record(out);
    out.add(info);
  });
}
template <class T>
void bunch_kaufman(recorder& out, zor::sytrf_small_fn<T>* fn, bool upper) {
  for_sizes([&](uint64_t iteration, zor_int n, zor_int, content kind) {
    numbers source(iteration);
    const zor_int lda = n + zor_int(iteration % 3);
    block<T> a(matrix(lda, n), iteration % 2, source, kind);
    std::vector<zor_int> ipiv(static_cast<size_t>(n));
    zor_int info;
    fn(upper ? "U" : "L", &n, a.data(), &lda, ipiv.data(), &info);
    a.record(out);
    out.add(ipiv.data(), ipiv.size());
    out.add(info);
  });
}

// ---- Panels of reductions.

template <class T>
struct panel {
  panel(uint64_t iteration, zor_int n, content kind)
      : source(iteration),
        lda(n + zor_int(iteration % 3)),
        a(matrix(lda, n), iteration % 2, source, kind),
        x(matrix(lda, 5), iteration / 2 % 2, source),
        y(matrix(lda, 5), iteration / 3 % 2, source) {}
  numbers source;
  const zor_int lda;
  block<T> a, x, y;
};
const char* triangle(uint64_t iteration) { return iteration / 2 % 2 == 0 ? "L" : "U"; }

template <class T>
void products(recorder& out, zor::symv_nb_fn<T>* fn) {
  for_sizes([&](uint64_t iteration, zor_int n, zor_int columns, content kind) {
    panel<T> p(iteration, n, kind);
    const zor_int k = std::min(n, columns);
    const T alpha = scalar<T>(0.7, -0.3), beta = iteration % 3 == 0 ? T{} : scalar<T>(-0.6, 0.2);
    fn(triangle(iteration), &n, &k, &alpha, p.a.data(), &p.lda, p.x.data(), nullptr, &beta, p.y.data());
    p.y.record(out);
  });
}
template <class T>
void rank_two(recorder& out, zor::syr2_nb_fn<T>* fn) {
  for_sizes([&](uint64_t iteration, zor_int n, zor_int columns, content kind) {
    panel<T> p(iteration, n, kind);
    const zor_int k = std::min(n, columns);
    const T alpha = scalar<T>(0.7, -0.3);
    fn(triangle(iteration), &n, &k, &alpha, p.x.data(), nullptr, p.y.data(), nullptr, p.a.data(), &p.lda);
    p.a.record(out);
  });
}
template <class T>
void rank_two_k(recorder& out, zor::syr2k_nb_fn<T>* fn) {
  for_sizes([&](uint64_t iteration, zor_int n, zor_int columns, content kind) {
    panel<T> p(iteration, n, kind);
    const zor_int m = std::min(n, columns), k = zor_int(iteration % 6);
    fn(triangle(iteration), nullptr, &n, &k, &m, nullptr, p.x.data(), &p.lda, p.y.data(), &p.lda, nullptr,
       p.a.data(), &p.lda);
    p.a.record(out);
  });
}
template <class T>
void packed(recorder& out, zor::cspr_fn<T>* fn) {
  for_sizes([&](uint64_t iteration, zor_int n, zor_int columns, content kind) {
    numbers source(iteration);
    const zor_int incx = columns % 2 == 1 ? 1 : 2 - columns;
    block<T> ap(size_t(n * (n + 1) / 2), iteration % 2, source, kind),
        x(matrix(n, 17), iteration / 2 % 2, source);
    const T alpha = scalar<T>(0.7, -0.3);
    fn(triangle(iteration), &n, &alpha, x.data(), &incx, ap.data());
    ap.record(out);
  });
}

template <class T>
void reflections(recorder& out, zor::larfx_fn<T>* fn) {
  for_sizes([&](uint64_t iteration, zor_int m, zor_int n, content kind) {
    panel<T> p(iteration, std::max(m, n), kind);
    const T tau = scalar<T>(1.3, 0.4);
    fn(iteration / 3 % 2 == 0 ? "L" : "R", &m, &n, p.x.data(), &tau, p.a.data(), &p.lda, p.y.data());
    p.a.record(out);
  });
}

// ---- Entries of the core.

// Large enough to be divided over threads.
constexpr zor_int divided_order = 900, divided_columns = 100;

template <class T, class Call>
void divided_solves(recorder& out, const Call& call) {
  for (const zor_int nrhs : {zor_int(1), zor_int(5), divided_columns}) {
    tridiagonal<T> m(uint64_t(nrhs), divided_order, nrhs, content::ordinary);
    for (zor_int i = 0; i < divided_order; ++i) m.d.data()[i] = scalar<T>(100 + double(i % 9), 3);
    out.add(call(divided_order, nrhs, m));
    m.b.record(out);
  }
}

template <class T, class Factor, class Solve>
void batches(recorder& out, const Factor& factor, const Solve& solve) {
  for (const zor_int n : {1, 5, 12, 33})
    for (const char uplo : {'U', 'L'}) {
      constexpr zor_int count = 50, nrhs = 2;
      numbers source{uint64_t(n)};
      block<T> a(size_t(n * n * count), 1, source), b(size_t(n * nrhs * count), 0, source);
      for (zor_int k = 0; k < count; k += 2)
        for (zor_int j = 0; j < n; ++j) a.data()[k * n * n + j + j * n] = scalar<T>(64.0 * double(n), 0);
      std::vector<zor_int> info(size_t{count}), ipiv(size_t(n * count));
      factor(uplo, n, a.data(), count, ipiv.data(), info.data());
      solve(uplo, n, nrhs, a.data(), count, ipiv.data(), b.data(), info.data());
      a.record(out);
      b.record(out);
      out.add(info.data(), info.size());
    }
}

template <class T>
void refined(recorder& out, zor::solve_refined_fn<T>* fn) {
  for (const zor_int n : {1, 3, 20, 70})
    for (const char kind : {'G', 'U', 'L'}) {
      numbers source{uint64_t(n)};
      block<T> a(size_t(n * n), 1, source), b(size_t(n * 2), 0, source), x(size_t(n * 2), 1, source);
      for (zor_int j = 0; j < n; ++j) a.data()[j + j * n] = scalar<T>(64.0 * double(n), 0);
      zor_refinement reports[2];
      out.add(fn(kind, n, 2, a.data(), n, b.data(), n, x.data(), n, nullptr, reports));
      x.record(out);
      for (const zor_refinement& r : reports) {
        out.add(r.steps);
        out.add(r.error_bound);
      }
    }
}

}  // namespace

void run_lapack(recorder& out) {
#define ROW_LASR(name, T, R, pivot, forward) \
  if (out.begin(#name)) rotations<T>(out, name);
#define ROW_LARTV(name, T, R) \
  if (out.begin(#name)) pairs<T>(out, name);
#define ROW_ROT2(name, T) \
  if (out.begin(#name))   \
    reflectors<T>(        \
        out, [](zor_int n, T* x, T* y, T*, const T* f) { name(&n, x, nullptr, y, nullptr, f, f + 1); });
#define ROW_ROT3(name, T)                                            \
  if (out.begin(#name))                                              \
    reflectors<T>(out, [](zor_int n, T* x, T* y, T* z, const T* f) { \
      name(&n, x, nullptr, y, nullptr, z, nullptr, f, f + 1, f + 2); \
    });
#define ROW_DTTRFB(name, T) \
  if (out.begin(#name)) factors<T>(out, name);
#define ROW_DTTRSB(name, T) \
  if (out.begin(#name)) dominant_solves<T>(out, name);
#define ROW_DTSVB(name, T) \
  if (out.begin(#name)) eliminations<T>(out, name);
#define ROW_GTTS2(name, T) \
  if (out.begin(#name)) lu_solves<T>(out, name);
#define ROW_PTTS2(name, T)                                                                               \
  if (out.begin(#name))                                                                                  \
    ldl_solves<T>(out, [](const zor_int*, const zor_int* n, const zor_int* nrhs, const T* d, const T* e, \
                          T* b, const zor_int* ldb) { name(n, nrhs, d, e, b, ldb); });
#define ROW_COMPLEX_PTTS2(name, T, R) \
  if (out.begin(#name)) ldl_solves<T>(out, name);
#define ROW_POTRF_SMALL(name, T, upper) \
  if (out.begin(#name)) cholesky<T>(out, name);
#define ROW_SYTRF_SMALL(name, T, upper) \
  if (out.begin(#name)) bunch_kaufman<T>(out, name, upper);
#define ROW_GTSV_SMALL(name, T) \
  if (out.begin(#name)) eliminations<T>(out, name);
#define ROW_SYMV_NB(name, T) \
  if (out.begin(#name)) products<T>(out, name);
#define ROW_SYR2_NB(name, T) \
  if (out.begin(#name)) rank_two<T>(out, name);
#define ROW_SYR2K_NB(name, T) \
  if (out.begin(#name)) rank_two_k<T>(out, name);
#define ROW_CSPR(name, T) \
  if (out.begin(#name)) packed<T>(out, name);
#define ROW_LARFX(name, T) \
  if (out.begin(#name)) reflections<T>(out, name);
#include "zor/tables/lapack.inc"

#define ROW_VALUE_DTSV(name, T, ...)                                                 \
  if (out.begin(#name))                                                              \
    divided_solves<T>(out, [](zor_int n, zor_int nrhs, tridiagonal<T>& m) {          \
      return name(n, nrhs, m.dl.data(), m.d.data(), m.du.data(), m.b.data(), m.ldb); \
    });
#define ROW_VALUE_GTSV ROW_VALUE_DTSV
#define ROW_VALUE_DTTRS(name, T, ...)                                                                 \
  if (out.begin(#name))                                                                               \
    divided_solves<T>(out, [](zor_int n, zor_int nrhs, tridiagonal<T>& m) {                           \
      return name("NTC"[nrhs % 3], n, nrhs, m.dl.data(), m.d.data(), m.du.data(), m.b.data(), m.ldb); \
    });
#define ROW_SOLVE_REFINED(name, T) \
  if (out.begin(#name)) refined<T>(out, name);
#include "zor/tables/core_lapack.inc"
#define BATCHES(letter, T)                                                                      \
  if (out.begin("zor_" #letter "potrs_batch"))                                                  \
    batches<T>(                                                                                 \
        out,                                                                                    \
        [](char uplo, zor_int n, T* a, zor_int count, zor_int*, zor_int* info) {                \
          zor_##letter##potrf_batch(uplo, n, a, n, n* n, count, info);                          \
        },                                                                                      \
        [](char uplo, zor_int n, zor_int nrhs, const T* a, zor_int count, const zor_int*, T* b, \
           zor_int* info) {                                                                     \
          zor_##letter##potrs_batch(uplo, n, nrhs, a, n, n* n, b, n, n* nrhs, count, info);     \
        });
  BATCHES(s, float)
  BATCHES(d, double)
  BATCHES(c, zor_c32)
  BATCHES(z, zor_c64)
#undef BATCHES
#define BATCHES(letter, T)                                                                           \
  if (out.begin("zor_" #letter "sytrs_batch"))                                                       \
    batches<T>(                                                                                      \
        out,                                                                                         \
        [](char uplo, zor_int n, T* a, zor_int count, zor_int* ipiv, zor_int* info) {                \
          zor_##letter##sytrf_batch(uplo, n, a, n, n* n, ipiv, count, info);                         \
        },                                                                                           \
        [](char uplo, zor_int n, zor_int nrhs, const T* a, zor_int count, const zor_int* ipiv, T* b, \
           zor_int* info) {                                                                          \
          zor_##letter##sytrs_batch(uplo, n, nrhs, a, n, n* n, ipiv, b, n, n* nrhs, count, info);    \
        });
  BATCHES(s, float)
  BATCHES(d, double)
#undef BATCHES
}

}  // namespace zor_tools
