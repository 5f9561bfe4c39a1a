// The grammar of sparse kernel names, for the tables of the formats (spblas_csr.inc and so on): zor_spblas_
// (64-bit integers) or zor_spblas_lp64_ (32-bit), then without separator
//
//   type       s d c z
//   format     csr coo dia bsr
//   base       0 1            index base of columns, rows and blocks; it settles the layout of dense operands
//   op         n t c s        A, its transpose, its conjugate transpose, its conjugate
//   structure  g t s h a d    general, triangular, symmetric, Hermitian, antisymmetric, diagonal
//   triangle   l u _          the triangle the structure is read from
//   diagonal   n u _          stored, implicit unit
//   layout     f c            dense operands column-major, row-major
//   __ kernel  mvout mmout svout smout gemvout
//   _ exec     par seq        a range given by the caller, the whole problem
//
// so that zor_spblas_dcsr1ntlnf__svout_seq solves with the stored lower triangle of a double matrix in
// 1-based CSR. A line of a format's table gives every type, triangle, diagonal, base and both twins at once:
//
//   ROWS(format, kernel, exec, types, op, structure, views)
//
// Each name comes out as ROW_<format>_<kernel>_<exec>(name, T, I, base, op, structure, triangle, diagonal)
// with T its element and I its integer. ROWS_OF(kind, ...) calls the rows ROW_<kind> instead, for names whose
// arguments differ from those of their kernel's other names.
// clang-format off
#define TYPES_SDCZ(next, ...)     \
  next(s, float, __VA_ARGS__)     \
  next(d, double, __VA_ARGS__)    \
  next(c, zor_c32, __VA_ARGS__)   \
  next(z, zor_c64, __VA_ARGS__)
#define TYPES_CZ(next, ...)       \
  next(c, zor_c32, __VA_ARGS__)   \
  next(z, zor_c64, __VA_ARGS__)
#define TYPES_D(next, ...) next(d, double, __VA_ARGS__)

#define VIEWS_WHOLE(t, T, format, ...) BASES_##format(t, T, format, _, _, __VA_ARGS__)
#define VIEWS_TRIANGLES(t, T, format, ...)          \
  BASES_##format(t, T, format, l, n, __VA_ARGS__)   \
  BASES_##format(t, T, format, l, u, __VA_ARGS__)   \
  BASES_##format(t, T, format, u, n, __VA_ARGS__)   \
  BASES_##format(t, T, format, u, u, __VA_ARGS__)
#define VIEWS_STORED_TRIANGLES(t, T, format, ...)   \
  BASES_##format(t, T, format, l, n, __VA_ARGS__)   \
  BASES_##format(t, T, format, u, n, __VA_ARGS__)
#define VIEWS_UNIT_TRIANGLES(t, T, format, ...)     \
  BASES_##format(t, T, format, l, u, __VA_ARGS__)   \
  BASES_##format(t, T, format, u, u, __VA_ARGS__)
#define VIEWS_SIDES(t, T, format, ...)              \
  BASES_##format(t, T, format, l, _, __VA_ARGS__)   \
  BASES_##format(t, T, format, u, _, __VA_ARGS__)
#define VIEWS_STORED(t, T, format, ...) BASES_##format(t, T, format, _, n, __VA_ARGS__)
#define VIEWS_UNIT(t, T, format, ...) BASES_##format(t, T, format, _, u, __VA_ARGS__)
// The whole matrix in base 1 only.
#define VIEWS_WHOLE_BASE1(t, T, format, ...) TWINS(1, f, t, T, format, _, _, __VA_ARGS__)

#define BASES_csr(...)         \
  TWINS(0, c, __VA_ARGS__)     \
  TWINS(1, f, __VA_ARGS__)
#define BASES_coo(...)         \
  TWINS(0, c, __VA_ARGS__)     \
  TWINS(1, f, __VA_ARGS__)
#define BASES_dia(...) TWINS(1, f, __VA_ARGS__)
#define BASES_bsr(...)         \
  TWINS(0, f, __VA_ARGS__)     \
  TWINS(1, f, __VA_ARGS__)

#define TWINS(base, layout, t, T, format, tri, diag, op, structure, kernel, exec, kind)                  \
  ROW_##kind(                                                                                            \
      zor_spblas_##t##format##base##op##structure##tri##diag##layout##__##kernel##_##exec, T, int64_t,   \
      base, op, structure, tri, diag)                                                                    \
  ROW_##kind(                                                                                            \
      zor_spblas_lp64_##t##format##base##op##structure##tri##diag##layout##__##kernel##_##exec, T,       \
      int32_t, base, op, structure, tri, diag)

#define ROWS_OF(kind, format, kernel, exec, types, op, structure, views) \
  TYPES_##types(VIEWS_##views, format, op, structure, kernel, exec, kind)
#define ROWS(format, kernel, exec, types, op, structure, views) \
  ROWS_OF(format##_##kernel##_##exec, format, kernel, exec, types, op, structure, views)
