// SPDX-License-Identifier: MIT
// Sine and cosine transforms with parameter arrays and through the public calls, solvers on rectangles, boxes
// and the sphere: every kind, layout and combination of sides.
#include <algorithm>
#include <cmath>
#include <string>

#include "tests/fuzz/trial.h"
#include "tests/pde/trig_calls.h"
#include "tests/ref/trig.h"
#include "zor/core.h"
#include "zor/signatures/poisson.h"

namespace zor_fuzz {
namespace {

// Transforms with parameter arrays. Tables, which commit fills, end where the contract says that they do.
template <class T>
void trig_run(trial& t, zor::trig_run_fn<T>* call, bool forward) {
  const zor_int type = t.draw("type", 0, 5, 0), n = t.size("n", 700, 2), raw = t.draw("raw", 0, 1, 0);
  const zor_int known = n + (type < 4 || raw == 0 ? 1 : 0);
  auto f = t.vector<T>("f", use::inout, known);
  const auto tables = t.vector<T>("dpar", use::inout, zor_test::trig_table(n, type));
  if (type == 0 || (type == 3 && raw == 0)) f.set(0, 0, T(0));
  if ((type == 0 || type == 2) && known > n) f.set(n, 0, T(0));
  std::vector<T> before(size_t(n + 1));
  std::copy_n(f.data(), known, before.data());
  zor_int ipar[128] = {}, stat = 5;
  ZorDftDescriptor* handle = nullptr;
  const auto& calls = zor_test::trig<T>[t.draw("spelling", 0, 1, 0)];
  t.prepare([&] {
    calls.init(&n, &type, ipar, tables, &stat);
    ipar[1] = ipar[2] = 0, ipar[10] = raw;
    calls.commit(f, &handle, ipar, tables, &stat);
  });
  t.call([&] { call(f, &handle, ipar, tables, &stat); });
  t.result(stat);
  t.prepare([&] { calls.free(&handle, ipar, &stat); });
  if (raw != 0) return;
  const zor_ref::trig_sum& sum = zor_ref::trig_sums[type];
  const auto expected =
      forward ? zor_ref::trig_forward(int(type), n, before) : zor_ref::trig_backward(int(type), n, before);
  long double size = 0;
  for (const T v : before) size += std::fabs((long double)v);
  const zor_int first = forward ? sum.first_k : sum.first, last = n - (forward ? sum.last_k : sum.last);
  const zor_int terms = type < 2 ? 8 * n : n * n;
  t.some_of(last - first + 1, 1, [&](zor_int i, zor_int) {
    t.near(f.now(first + i), wide(expected[size_t(first + i)]), forward ? size * 2 / (long double)n : size,
           terms, "f", first + i);
  });
}

// Lines beside one another or one after the other, upwards or downwards.
template <class T, class Create>
void trig_lines(trial& t, zor::trig_lines_fn<T>* run, const Create& create) {
  const zor_int kind = t.draw("kind", ZOR_DST1, ZOR_DST4, ZOR_DCT2);
  const zor_int m = t.size("m", 500, kind == ZOR_DST1 ? 1 : kind == ZOR_DCT1 ? 3 : 2);
  const zor_int lines = std::min<zor_int>(t.size("lines", 300, 1), 1 + 60000 / m);
  const zor_int along = t.draw("along", 0, 1, 0), gap = t.draw("gap", 0, 3, 0),
                down = t.draw("down", 0, 1, 0);
  const zor_int each = along != 0 ? 1 : t.draw("step", 1, 3, 1);
  const zor_int step = along != 0 ? lines + gap : each, distance = along != 0 ? 1 : m * each + gap;
  const zor_int count = (m - 1) * step + (lines - 1) * distance + 1;
  const auto place = [=](zor_int i, zor_int j) { return (down != 0 ? m - 1 - j : j) * step + i * distance; };
  std::vector<bool> used(static_cast<size_t>(count));
  for (zor_int i = 0; i < lines; ++i)
    for (zor_int j = 0; j < m; ++j) used[size_t(place(i, j))] = true;
  const auto x = t.scattered<T>("x", use::inout, count, [&](zor_int i) { return used[size_t(i)]; });
  // What one bad argument gives: those of the run, then those of create.
  static const zor_int statuses[] = {0, -1, -2, -3, -4, -2, -3, -5};
  const int bad = t.spoiled(lines > 1 ? 7 : 6);
  zor_trig* plan = nullptr;
  zor_int status = 0;
  t.prepare([&] { status = create(&plan, bad == 5 ? 99 : kind, bad == 6 ? 0 : m); });
  if (status == 0)
    t.call([&] {
      status = run(bad == 1 ? nullptr : plan, bad == 2 ? nullptr : x + place(0, 0), bad == 3 ? -1 : lines,
                   bad == 4    ? 0
                   : down != 0 ? -step
                               : step,
                   bad == 7 ? 0 : distance, T(0.5));
    });
  t.expect(status == statuses[bad], "status " + std::to_string(status));
  t.prepare([&] { zor_trig_free(&plan); });
  t.some_of(m, lines, [&](zor_int k, zor_int i) {
    long double size = 0;
    for (zor_int j = 0; j < m; ++j) size += std::fabs(x(place(i, j)).real());
    if (k % 7 != 0 && m > 60) return;
    long double sum = 0;
    for (zor_int j = 0; j < m; ++j)
      sum += x(place(i, j)).real() * zor_ref::public_term(int(kind), m, j, k) / 2;
    t.near(x.now(place(i, k)), wide(sum), size, kind <= ZOR_DCT1 ? 8 * m : 60, "x", k, i);
  });
}

// The public solvers: what is left of the equations of the grid.
template <class T, class Create>
void solve_box(trial& t, zor::poisson_solve_fn<T>* solve, const Create& create) {
  static const zor_int ends[5][2] = {{0, 0}, {0, 1}, {1, 0}, {1, 1}, {2, 2}};
  zor_poisson_box box = {};
  box.dimensions = t.draw("dimensions", 2, 3, 2);
  box.q = 0.75 * double(t.draw("q", -1, 2, 0));
  zor_int stride[4] = {1, 1, 1, 1};
  bool singular = box.q == 0;
  for (int a = 0; a < box.dimensions; ++a) {
    const std::string name = "xyz"[a] + std::string("n");
    box.n[a] = t.size(name.c_str(), box.dimensions == 2 ? 150 : 24, 2);
    box.length[a] = 0.5 * double(box.n[a]);
    const zor_int kind = t.draw((name + ".sides").c_str(), 0, 4, 0);
    for (int e = 0; e < 2; ++e) box.side[2 * a + e] = ends[kind][e];
    singular = singular && kind >= 3;
    stride[a + 1] = stride[a] * (box.n[a] + 1);
  }
  const zor_int count = stride[box.dimensions];
  const auto f = t.vector<T>("f", use::inout, count);
  std::vector<operand<T>> sides;
  const T* data[6] = {};
  for (int s = 0; s < 2 * box.dimensions; ++s) {
    sides.push_back(t.vector<T>(("side" + std::to_string(s)).c_str(), use::in, count / (box.n[s / 2] + 1)));
    data[s] = sides.back().data();
  }
  // One bad argument of solve, or one in the description of the problem.
  const int bad = t.spoiled(6);
  zor_poisson_box given = box;
  if (bad == 3) given.dimensions = 4;
  if (bad == 4) given.n[1] = 1;
  if (bad == 5) given.length[0] = 0;
  if (bad == 6) given.side[1] = 3;
  zor_poisson* problem = nullptr;
  zor_int status = 0;
  t.prepare([&] { status = create(&problem, &given); });
  if (status == 0)
    t.call([&] { status = solve(bad == 1 ? nullptr : problem, bad == 2 ? nullptr : f.data(), data); });
  t.result(status);
  t.expect(bad == 0 ? status >= 0 : status == (bad == 1 ? -1 : -2), "status " + std::to_string(status));
  t.prepare([&] { zor_poisson_free(&problem); });
  if (singular || !t.plain_data()) return;
  long double largest = 0;
  for (zor_int i = 0; i < count; ++i)
    largest = std::max(largest, 4 * std::fabs((long double)f.now(i)) + std::fabs(f(i).real()));
  t.some_of(count, 1, [&](zor_int at, zor_int) {
    long double left = (long double)(box.q) * f.now(at) - f(at).real(), outside = 0;
    for (int a = 0; a < box.dimensions; ++a) {
      const zor_int place = at / stride[a] % (box.n[a] + 1);
      const zor_int on_side = at % stride[a] + at / stride[a + 1] * stride[a];
      long double around = 0;
      for (int e = 0; e < 2; ++e) {
        const zor_int inwards = e == 0 ? stride[a] : -stride[a], side = 2 * a + e;
        const bool at_side = place == (e == 0 ? 0 : box.n[a]);
        if (at_side && box.side[side] == ZOR_POISSON_VALUE) return;
        if (!at_side) {
          around += f.now(at - inwards);
        } else if (box.side[side] == ZOR_POISSON_PERIODIC) {
          if (e == 1) return;
          around += f.now(at + inwards * (box.n[a] - 1));
        } else {
          around += f.now(at + inwards) + sides[size_t(side)](on_side).real();
          outside = std::max(outside, std::fabs(sides[size_t(side)](on_side).real()));
        }
      }
      left += 4 * (2 * (long double)f.now(at) - around);
    }
    t.near(T(left), wide(0), 8 * largest + 4 * outside, 400, "residual", at);
  });
}

// Solvers with parameter arrays: bits, operands, tables that end where the contract says.
template <class T>
struct arrays {
  const operand<T> f, tables;
  zor_int ipar[128] = {}, stat = 5, threads;
  ZorDftDescriptor *x = nullptr, *y = nullptr;
  arrays(trial& t, zor_int count, zor_int entries)
      : f(t.vector<T>("f", use::inout, count)),
        tables(t.vector<T>("dpar", use::inout, entries)),
        threads(t.threads()) {}
  void quiet() { ipar[1] = ipar[2] = 0, ipar[22] = threads; }
};

template <class T, class Init, class Commit, class Solve, class Free>
void solve_arrays(trial& t, zor_int count, zor_int entries, const Init& init, const Commit& commit,
                  const Solve& solve, const Free& free) {
  arrays<T> a(t, count, entries);
  std::fill_n(a.tables.data(), entries, T(0));
  t.prepare([&] {
    init(a);
    a.quiet();
    commit(a);
  });
  t.result(a.stat);
  if (a.stat >= 0) t.call([&] { solve(a); });
  t.result(a.stat);
  t.prepare([&] { free(a); });
}

std::string draw_letters(trial& t, int dimensions) {
  std::string letters;
  for (int s = 0; s < 2 * dimensions; ++s) letters += t.letter(("side" + std::to_string(s)).c_str(), "DN");
  return letters;
}

template <class T>
void rectangle(trial& t, zor::box_commit_2d_fn<T>* solve, zor::box_init_2d_fn<T>* init,
               zor::box_commit_2d_fn<T>* commit) {
  const zor_int nx = t.size("nx", 120, 2), ny = t.size("ny", 120, 2);
  const std::string letters = draw_letters(t, 2);
  const T zero = 0, length = 1, q = T(0.5 * double(t.draw("q", 0, 1, 0)));
  const auto ax = t.vector<T>("ax", use::in, ny + 1), bx = t.vector<T>("bx", use::in, ny + 1);
  const auto ay = t.vector<T>("ay", use::in, nx + 1), by = t.vector<T>("by", use::in, nx + 1);
  solve_arrays<T>(
      t, (nx + 1) * (ny + 1), 13 * nx / 2 + 7 * ny / 2 + 20,
      [&](arrays<T>& a) {
        init(&zero, &length, &zero, &length, &nx, &ny, letters.c_str(), &q, a.ipar, a.tables, &a.stat);
      },
      [&](arrays<T>& a) { commit(a.f, ax, bx, ay, by, &a.x, a.ipar, a.tables, &a.stat); },
      [&](arrays<T>& a) { solve(a.f, ax, bx, ay, by, &a.x, a.ipar, a.tables, &a.stat); },
      [&](arrays<T>& a) { zor_pdepl_free_helmholtz_2d(&a.x, a.ipar, &a.stat); });
}

template <class T>
void cuboid(trial& t, zor::box_commit_3d_fn<T>* solve, zor::box_init_3d_fn<T>* init,
            zor::box_commit_3d_fn<T>* commit) {
  const zor_int nx = t.size("nx", 24, 2), ny = t.size("ny", 24, 2), nz = t.size("nz", 24, 2);
  const std::string letters = draw_letters(t, 3);
  const T zero = 0, length = 1, q = T(0.5 * double(t.draw("q", 0, 1, 0)));
  const zor_int yz = (ny + 1) * (nz + 1), xz = (nx + 1) * (nz + 1), xy = (nx + 1) * (ny + 1);
  const auto ax = t.vector<T>("ax", use::in, yz), bx = t.vector<T>("bx", use::in, yz);
  const auto ay = t.vector<T>("ay", use::in, xz), by = t.vector<T>("by", use::in, xz);
  const auto az = t.vector<T>("az", use::in, xy), bz = t.vector<T>("bz", use::in, xy);
  solve_arrays<T>(
      t, xy * (nz + 1), 13 * nx / 2 + 7 * ny / 2 + 20,
      [&](arrays<T>& a) {
        init(&zero, &length, &zero, &length, &zero, &length, &nx, &ny, &nz, letters.c_str(), &q, a.ipar,
             a.tables, &a.stat);
      },
      [&](arrays<T>& a) { commit(a.f, ax, bx, ay, by, az, bz, &a.x, &a.y, a.ipar, a.tables, &a.stat); },
      [&](arrays<T>& a) { solve(a.f, ax, bx, ay, by, az, bz, &a.x, &a.y, a.ipar, a.tables, &a.stat); },
      [&](arrays<T>& a) { zor_pdepl_free_helmholtz_3d(&a.x, &a.y, a.ipar, &a.stat); });
}

template <class T>
void sphere(trial& t, zor::sphere_commit_p_fn<T>* solve, zor::sphere_init_fn<T>* init,
            zor::sphere_commit_p_fn<T>* commit) {
  const zor_int np = 2 * t.size("half of np", 60, 2), nt = t.size("nt", 80, 2);
  const bool globe = t.draw("globe", 0, 1, 0) != 0;
  const T pi = T(3.14159265358979323846), zero = 0, circle = 2 * pi, from = globe ? T(0) : T(0.25),
          to = globe ? pi : T(2.5);
  const T q = T(0.5 * double(t.draw("q", 0, 1, 0)));
  solve_arrays<T>(
      t, (np + 1) * (nt + 1), 5 * np + nt + 30,
      [&](arrays<T>& a) { init(&zero, &circle, &from, &to, &np, &nt, &q, a.ipar, a.tables, &a.stat); },
      [&](arrays<T>& a) { commit(a.f, &a.x, &a.y, a.ipar, a.tables, &a.stat); },
      [&](arrays<T>& a) { solve(a.f, &a.x, &a.y, a.ipar, a.tables, &a.stat); },
      [&](arrays<T>& a) { zor_pdepl_free_sph_p(&a.x, &a.y, a.ipar, &a.stat); });
}

#define ROW_TRIG_FORWARD(name, T) {#name, [](trial& t) { trig_run<T>(t, name, true); }},
#define ROW_TRIG_BACKWARD(name, T) {#name, [](trial& t) { trig_run<T>(t, name, false); }},
const rows transforms("trig", serial,
                      {
#include "zor/tables/pdett.inc"
                      });

const rows public_transforms(
    "trig_lines", with_status,
    {{"zor_trig_run_d", [](trial& t) { trig_lines<double>(t, zor_trig_run_d, zor_trig_create_d); }},
     {"zor_trig_run_s", [](trial& t) { trig_lines<float>(t, zor_trig_run_s, zor_trig_create_s); }}});
const rows public_solvers("poisson", with_status,
                          {{"zor_poisson_solve_d",
                            [](trial& t) {
                              solve_box<double>(t, zor_poisson_solve_d, zor_poisson_create_d);
                            }},
                           {"zor_poisson_solve_s", [](trial& t) {
                              solve_box<float>(t, zor_poisson_solve_s, zor_poisson_create_s);
                            }}});
#define SOLVER(body, T, letter, kind)                                           \
  {                                                                             \
    "zor_pdepl_" #letter "_" #kind, [](trial& t) {                              \
      body<T>(t, zor_pdepl_##letter##_##kind, zor_pdepl_##letter##_init_##kind, \
              zor_pdepl_##letter##_commit_##kind);                              \
    }                                                                           \
  }
const rows solvers("pdepl", threaded,
                   {SOLVER(rectangle, double, d, helmholtz_2d), SOLVER(rectangle, float, s, helmholtz_2d),
                    SOLVER(cuboid, double, d, helmholtz_3d), SOLVER(cuboid, float, s, helmholtz_3d),
                    SOLVER(sphere, double, d, sph_p), SOLVER(sphere, float, s, sph_p)});
#undef SOLVER

}  // namespace
}  // namespace zor_fuzz
