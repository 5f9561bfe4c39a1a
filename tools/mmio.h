// SPDX-License-Identifier: MIT
// Matrix Market files.
#pragma once

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "zor/types.h"

namespace zor_tools {

// A fault of a file the user named. what() reads "FILE:LINE: fault", or "FILE: fault" when no line is to
// blame.
class input_error : public std::runtime_error {
 public:
  input_error(const std::string& file, int64_t line, const std::string& fault)
      : std::runtime_error(file + ":" + std::to_string(line) + ": " + fault) {}
  input_error(const std::string& file, const std::string& fault) : std::runtime_error(file + ": " + fault) {}
};

// All bytes of a file, or of the standard input for "-". accept is shown the first bytes, up to 64 KiB,
// before more are read, and throws for a file of another kind. Throws input_error.
std::string read_file(const std::string& file, const std::function<void(std::string_view)>& accept = {});

enum class mm_format { array, coordinate };
enum class mm_field { real, integer, complex, pattern };
enum class mm_symmetry { general, symmetric, skew, hermitian };

struct mm_header {
  std::string file;
  int64_t size_line;
  mm_format format;
  mm_field field;
  mm_symmetry symmetry;
  int64_t rows;
  int64_t cols;
};

// Row or column numbers, in 32 bits until a larger one is announced.
class mm_indices {
 public:
  // None are left, and the largest one to come is known.
  void begin(int64_t largest) {
    *this = {};
    wide_ = largest > INT32_MAX;
  }
  void reserve(size_t count) { wide_ ? far_.reserve(count) : near_.reserve(count); }
  void push_back(int64_t index) { wide_ ? far_.push_back(index) : near_.push_back(int32_t(index)); }
  void set(size_t i, int64_t index) {
    if (wide_)
      far_[i] = index;
    else
      near_[i] = int32_t(index);
  }
  int64_t operator[](size_t i) const { return wide_ ? far_[i] : near_[i]; }

 private:
  bool wide_ = true;
  std::vector<int32_t> near_;
  std::vector<int64_t> far_;
};

// The entries of a file as they stand there, one after the other: a symmetric kind keeps its lower triangle
// only. rowind and colind are 0-based. A pattern's entries have the value 1.
struct mm_matrix : mm_header {
  mm_indices rowind;
  mm_indices colind;
  std::vector<double> re;
  std::vector<double> im;  // empty unless the field is complex
};

struct mm_entry {
  int64_t row, col;
  double re, im;
};

// Goes through the text of a file: begin(header, how many entries there are), then visit(entry) for
// each. Throws input_error.
void mm_scan(const std::string& file, std::string_view text,
             const std::function<void(const mm_header&, int64_t)>& begin,
             const std::function<void(const mm_entry&)>& visit);

// Reads a file by parts, with progress on a terminal; the text is not kept. Accepted beyond the format's
// letter: CRLF line ends, blank and comment lines anywhere behind the banner, "nan" and "inf" as values.
// Throws input_error.
mm_matrix mm_read(const std::string& file);

// Fills a column-major rows by cols array, leading dimension rows: coordinate entries of one place are added
// in the order of the file, and a symmetric kind gets both triangles. T is double or zor_c64; double needs a
// field other than complex.
template <class T>
void mm_fill(const mm_matrix& matrix, T* dense);

// Throws input_error at the size line when rows * cols elements of that many bytes exceed the machine's
// memory.
void mm_check_dense_size(const mm_header& matrix, size_t element_bytes);

// The lines before the values of a general array file, and a value with 17 digits, so that a reader gets the
// same bits back.
std::string mm_array_head(const char* field, int64_t rows, int64_t cols);
void mm_put_value(std::string& text, double value);

// The text of a general array file; values have 17 digits, so that a reader gets the same bits back.
std::string mm_array_text(int64_t rows, int64_t cols, const double* dense);
std::string mm_array_text(int64_t rows, int64_t cols, const zor_c64* dense);

}  // namespace zor_tools
