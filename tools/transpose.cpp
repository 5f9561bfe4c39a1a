// SPDX-License-Identifier: MIT
// The values of the file stand as one array of doubles, a complex matrix as two, which is transposed in its
// own place; beyond half of the machine's memory it is mapped from a file. A product with 1 keeps every
// double, which a complex product with 1 does not: of an infinity it makes a NaN. So real parts and imaginary
// parts are moved by themselves.
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <optional>

#include "bench/report.h"
#include "tools/closing_lines.h"
#include "tools/commands.h"
#include "tools/digest.h"
#include "tools/mapped_memory.h"
#include "tools/mmio.h"
#include "tools/output_file.h"
#include "zor/core.h"
#include "zor/trans.h"

namespace zor_tools {
namespace {

struct parted_matrix {
  mm_header head;
  std::optional<mapped_memory> memory;
  double* part[2] = {};  // the second is null for a real matrix
  int64_t count() const { return head.rows * head.cols; }
};

std::string folder_of(const std::string& file) {
  const size_t slash = file.rfind('/');
  return slash == std::string::npos ? "." : slash == 0 ? "/" : file.substr(0, slash);
}

constexpr int64_t progress_step = 1 << 20;
void show_step(int64_t done, int64_t count, const char* what) {
  if (done % progress_step == 0)
    zor_bench::show_progress(size_t(100.0 * double(done) / double(count)), 100, what);
}

void make_room(parted_matrix& m, const mm_header& head, const transpose_options& options) {
  if (head.format != mm_format::array) throw input_error(head.file, 1, "not an array file");
  m.head = head;
  const size_t parts = head.field == mm_field::complex ? 2 : 1;
  const size_t bytes = std::max<size_t>(1, size_t(m.count())) * parts * sizeof(double);
  const size_t memory = size_t(sysconf(_SC_PHYS_PAGES)) * size_t(sysconf(_SC_PAGESIZE));
  std::string folder = options.scratch;
  if (folder.empty() && bytes > memory / 2)
    folder = folder_of(options.output.empty() ? options.a : options.output);
  m.memory.emplace(mapped_memory::scratch(bytes, folder));
  m.part[0] = static_cast<double*>(m.memory->data());
  if (parts == 2) m.part[1] = m.part[0] + m.count();
}

void put(const parted_matrix& m, int64_t row, int64_t col, double re, double im) {
  m.part[0][row + col * m.head.rows] = re;
  if (m.part[1] != nullptr) m.part[1][row + col * m.head.rows] = im;
}

parted_matrix read_parts(const transpose_options& options) {
  const mapped_memory text = mapped_memory::of_file(options.a);
  parted_matrix m;
  int64_t done = 0;
  mm_scan(
      options.a, text.text(), [&](const mm_header& head, int64_t) { make_room(m, head, options); },
      [&](const mm_entry& e) {
        put(m, e.row, e.col, e.re, e.im);
        if (m.head.symmetry != mm_symmetry::general && e.row != e.col) {
          const double sign = m.head.symmetry == mm_symmetry::skew ? -1 : 1;
          put(m, e.col, e.row, sign * e.re, m.head.symmetry == mm_symmetry::hermitian ? -e.im : sign * e.im);
        }
        show_step(++done, m.count(), "reading");
      });
  return m;
}

// Passes pieces of the result in column order to use(first value, count): a complex value is its two parts.
template <class Use>
void for_pieces(const parted_matrix& m, const Use& use) {
  constexpr int64_t piece = 1 << 14;
  std::vector<double> values;
  for (int64_t first = 0; first < m.count(); first += piece) {
    const int64_t count = std::min(piece, m.count() - first);
    values.clear();
    for (int64_t i = first; i < first + count; ++i)
      for (const double* part : m.part)
        if (part != nullptr) values.push_back(part[i]);
    use(values);
    show_step(first, m.count(), "writing");
  }
}

void write_parts(const parted_matrix& m, int64_t rows, int64_t cols, digest& sum, output_file* output) {
  const bool complex = m.part[1] != nullptr;
  std::string text = mm_array_head(complex ? "complex" : "real", rows, cols);
  for_pieces(m, [&](const std::vector<double>& values) {
    sum.add(values.data(), values.size());
    if (output == nullptr) return;
    for (size_t i = 0; i < values.size(); ++i) {
      mm_put_value(text, values[i]);
      text += complex && i % 2 == 0 ? ' ' : '\n';
    }
    output->append(text);
    text.clear();
  });
  if (output != nullptr) output->commit(text);
}

}  // namespace

int transpose(const transpose_options& options) {
  zor_core_set_num_threads(options.threads);
  std::optional<output_file> output;
  if (!options.output.empty()) output.emplace(options.output);
  const parted_matrix m = read_parts(options);
  const zor_int rows = m.head.rows, cols = m.head.cols;

  const auto start = std::chrono::steady_clock::now();
  for (double* part : m.part)
    if (part != nullptr)
      zor_dimatcopy('C', 'T', rows, cols, 1, part, std::max<zor_int>(rows, 1), std::max<zor_int>(cols, 1));
  if (options.conjugate && m.part[1] != nullptr)
    for (int64_t i = 0; i < m.count(); ++i) m.part[1][i] = -m.part[1][i];
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();

  digest sum;
  write_parts(m, cols, rows, sum, output ? &*output : nullptr);
  zor_bench::clear_progress();
  fmt::print("B = A{}      {} by {}, {}\n", options.conjugate ? "*" : "'", cols, rows,
             m.part[1] != nullptr ? "complex" : "real");
  fmt::print("time        {:.6f} s in place, threads at most {}\n", seconds, zor_core_num_threads());
  print_digest(sum);
  return 0;
}

}  // namespace zor_tools
