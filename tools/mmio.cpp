// SPDX-License-Identifier: MIT
// Parses headers and entries in parts, and writes them.
#include "tools/mmio.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "tools/input.h"
#include "tools/progress.h"

namespace zor_tools {

namespace {

input_stream open_stream(const std::string& file) {
  input_stream stream = open_input(file);
  if (!stream) throw input_error(file, std::strerror(errno));
  return stream;
}

size_t read_part(const std::string& file, FILE* stream, char* to, size_t most) {
  const size_t got = std::fread(to, 1, most, stream);
  if (std::ferror(stream)) throw input_error(file, std::strerror(errno));
  return got;
}

// The first bytes of a file, which tell its kind.
constexpr size_t head_bytes = size_t(1) << 16;

}  // namespace

std::string read_file(const std::string& file, const std::function<void(std::string_view)>& accept) {
  const input_stream stream = open_stream(file);
  std::string text;
  std::vector<char> chunk(head_bytes);
  while (const size_t got = read_part(file, stream.get(), chunk.data(), chunk.size())) {
    if (text.empty() && accept) accept({chunk.data(), got});
    text.append(chunk.data(), got);
  }
  return text;
}

namespace {

using std::string_view;

bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\f' || c == '\v'; }

// Takes the next word off the front of a line; empty at its end.
string_view take_word(string_view& line) {
  size_t first = 0;
  while (first < line.size() && is_blank(line[first])) ++first;
  size_t last = first;
  while (last < line.size() && !is_blank(line[last])) ++last;
  const string_view word = line.substr(first, last - first);
  line.remove_prefix(last);
  return word;
}

std::string lower(string_view word) {
  std::string text(word);
  for (char& c : text) c = char(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

// A word as it may stand in a message: cut short, unprintable bytes as '?'.
std::string quoted(string_view word) {
  std::string text(word.substr(0, 40));
  for (char& c : text)
    if (!std::isprint(static_cast<unsigned char>(c))) c = '?';
  return "'" + text + (word.size() > 40 ? "...'" : "'");
}

// A file that is read by parts, with progress on a terminal where it is long.
class part_reader {
 public:
  explicit part_reader(const std::string& file) : file_(file), stream_(open_stream(file)) {
    struct stat about;
    if (fstat(fileno(stream_.get()), &about) == 0 && S_ISREG(about.st_mode)) {
      const off_t at = ftello(stream_.get());
      left_ = about.st_size - std::clamp<int64_t>(at, 0, about.st_size);
    }
    total_ = left_;
  }
  part_reader(const part_reader&) = delete;
  part_reader& operator=(const part_reader&) = delete;
  ~part_reader() {
    if (shown_) clear_progress();
  }

  // What is left of the parts before, and the next part behind it. The first part is short: a file of another
  // kind is refused before more of it is read.
  string_view more(string_view rest) {
    const size_t kept = rest.size(), wanted = total_ < 0 || parts_++ > 0 ? part_bytes : head_bytes;
    if (kept > 0) std::memmove(text_.data(), rest.data(), kept);
    if (text_.size() < kept + wanted) text_.resize(kept + wanted);
    const size_t got = read_part(file_, stream_.get(), text_.data() + kept, wanted);
    at_end_ = got == 0;
    if (left_ >= 0) left_ = std::max<int64_t>(left_ - int64_t(got), 0);
    show();
    return {text_.data(), kept + got};
  }
  bool at_end() const { return at_end_; }
  // Bytes behind the part at hand; below 0 where nobody knows, as in a pipe.
  int64_t bytes_left() const { return left_; }

 private:
  static constexpr size_t part_bytes = size_t(1) << 20;
  static constexpr int64_t long_file = int64_t(1) << 24;

  void show() {
    if (total_ < long_file) return;
    shown_ = true;
    show_progress(size_t(total_ - left_) >> 20, size_t(total_) >> 20, "MB of " + file_);
  }

  const std::string& file_;
  input_stream stream_;
  std::vector<char> text_;
  int64_t left_ = -1, total_ = -1;
  size_t parts_ = 0;
  bool at_end_ = false, shown_ = false;
};

// The lines of a file, with the number of the one at hand. The text is at hand as a whole or comes in parts.
class line_reader {
 public:
  line_reader(const std::string& file, string_view text) : file_(file), rest_(text) { skip_mark(); }
  line_reader(const std::string& file, part_reader& parts)
      : file_(file), rest_(parts.more({})), parts_(&parts) {
    skip_mark();
  }

  bool next(string_view& line) {
    size_t end = rest_.find('\n');
    // A first line that fills the first part is no banner.
    while (end == string_view::npos && parts_ != nullptr && !parts_->at_end() &&
           !(number_ == 0 && !rest_.empty())) {
      const size_t searched = rest_.size();
      rest_ = parts_->more(rest_);
      end = rest_.find('\n', searched);
    }
    if (rest_.empty()) return false;
    line = rest_.substr(0, end);
    rest_.remove_prefix(end == string_view::npos ? rest_.size() : end + 1);
    ++number_;
    return true;
  }

  // Skips blank lines and comments.
  bool next_data(string_view& line) {
    while (next(line)) {
      string_view probe = line;
      const string_view word = take_word(probe);
      if (!word.empty() && word[0] != '%') return true;
    }
    return false;
  }

  int64_t number() const { return number_; }
  // Below 0 where nobody knows.
  int64_t bytes_left() const {
    const int64_t behind = parts_ == nullptr ? 0 : parts_->bytes_left();
    return behind < 0 ? -1 : int64_t(rest_.size()) + behind;
  }
  [[noreturn]] void fail(const std::string& fault) const {
    throw input_error(file_, std::max<int64_t>(number_, 1), fault);
  }

 private:
  void skip_mark() {
    if (rest_.starts_with("\xEF\xBB\xBF")) rest_.remove_prefix(3);  // the mark of UTF-8
  }

  const std::string& file_;
  string_view rest_;
  part_reader* parts_ = nullptr;
  int64_t number_ = 0;
};

template <class E>
struct keyword {
  const char* word;
  E value;
};
constexpr keyword<mm_format> formats[] = {{"array", mm_format::array}, {"coordinate", mm_format::coordinate}};
constexpr keyword<mm_field> fields[] = {{"real", mm_field::real},
                                        {"double", mm_field::real},
                                        {"integer", mm_field::integer},
                                        {"complex", mm_field::complex},
                                        {"pattern", mm_field::pattern}};
constexpr keyword<mm_symmetry> symmetries[] = {{"general", mm_symmetry::general},
                                               {"symmetric", mm_symmetry::symmetric},
                                               {"skew-symmetric", mm_symmetry::skew},
                                               {"hermitian", mm_symmetry::hermitian}};

template <class E, size_t N>
E take_keyword(const line_reader& lines, string_view& line, const char* what, const keyword<E> (&table)[N]) {
  const string_view word = take_word(line);
  if (word.empty()) lines.fail(fmt::format("the banner names no {}", what));
  const std::string wanted = lower(word);
  for (const auto& entry : table)
    if (wanted == entry.word) return entry.value;
  lines.fail(fmt::format("unknown {} {}", what, quoted(word)));
}

void read_banner(line_reader& lines, mm_header& m) {
  string_view line;
  if (!lines.next(line)) lines.fail("the file is empty");
  const string_view mark = take_word(line);
  if (lower(mark) != "%%matrixmarket")
    lines.fail(fmt::format("no Matrix Market banner: expected %%MatrixMarket, found {}", quoted(mark)));
  const string_view object = take_word(line);
  if (lower(object) != "matrix")
    lines.fail(fmt::format("unknown object {}: expected matrix", quoted(object)));
  m.format = take_keyword(lines, line, "format", formats);
  m.field = take_keyword(lines, line, "field", fields);
  m.symmetry = take_keyword(lines, line, "symmetry", symmetries);
  if (const string_view more = take_word(line); !more.empty())
    lines.fail(fmt::format("unexpected {} behind the banner", quoted(more)));
  if (m.field == mm_field::pattern && m.format == mm_format::array)
    lines.fail("an array file cannot hold a pattern");
  if (m.field == mm_field::pattern && m.symmetry != mm_symmetry::general &&
      m.symmetry != mm_symmetry::symmetric)
    lines.fail("a pattern is general or symmetric");
  if (m.symmetry == mm_symmetry::hermitian && m.field != mm_field::complex)
    lines.fail("a Hermitian matrix has complex entries");
}

int64_t take_integer(const line_reader& lines, string_view& line, const char* what) {
  string_view word = take_word(line);
  if (word.empty()) lines.fail(fmt::format("{} is missing", what));
  const string_view whole = word;
  if (word.size() > 1 && word[0] == '+' && word[1] != '-') word.remove_prefix(1);
  int64_t value;
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
  if (error == std::errc::result_out_of_range)
    lines.fail(fmt::format("{} {} is out of range", what, quoted(whole)));
  if (error != std::errc() || end != word.data() + word.size())
    lines.fail(fmt::format("{} {} is not an integer", what, quoted(whole)));
  return value;
}

// A decimal number rounded to nearest. Below the subnormal range it becomes zero; above the range it is
// refused.
double take_real(const line_reader& lines, string_view& line, const char* what) {
  string_view word = take_word(line);
  if (word.empty()) lines.fail(fmt::format("{} is missing", what));
  const string_view whole = word;
  if (word.size() > 1 && word[0] == '+' && word[1] != '-') word.remove_prefix(1);
  double value;
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
  if (end != word.data() + word.size() || error == std::errc::invalid_argument)
    lines.fail(fmt::format("{} {} is not a number", what, quoted(whole)));
  if (error == std::errc::result_out_of_range) {
    value = std::strtod(std::string(word).c_str(), nullptr);
    if (std::isinf(value)) lines.fail(fmt::format("{} {} is beyond double precision", what, quoted(whole)));
  }
  return value;
}

double take_whole(const line_reader& lines, string_view& line, const char* what) {
  const int64_t value = take_integer(lines, line, what);
  const double rounded = double(value);
  if (rounded >= 0x1p63 || int64_t(rounded) != value)
    lines.fail(fmt::format("{} {} is not exact in double precision", what, value));
  return rounded;
}

mm_entry read_value(const line_reader& lines, string_view& line, mm_field field) {
  mm_entry e = {};
  switch (field) {
    case mm_field::real:
      e.re = take_real(lines, line, "the value");
      break;
    case mm_field::integer:
      e.re = take_whole(lines, line, "the value");
      break;
    case mm_field::pattern:
      e.re = 1;
      break;
    case mm_field::complex:
      e.re = take_real(lines, line, "the real part");
      e.im = take_real(lines, line, "the imaginary part");
      break;
  }
  return e;
}

void check_place(const line_reader& lines, const mm_header& m, int64_t row, int64_t col) {
  if (row < 0 || row >= m.rows) lines.fail(fmt::format("row {} is not in 1 to {}", row + 1, m.rows));
  if (col < 0 || col >= m.cols) lines.fail(fmt::format("column {} is not in 1 to {}", col + 1, m.cols));
  if (m.symmetry != mm_symmetry::general && row < col)
    lines.fail("an entry above the diagonal: this kind of matrix stores its lower triangle");
  if (m.symmetry == mm_symmetry::skew && row == col)
    lines.fail("an entry on the diagonal of a skew-symmetric matrix");
}

// Entries an array file has: whole columns, or the lower triangle with or without its diagonal.
int64_t array_entries(const mm_header& m) {
  if (m.symmetry == mm_symmetry::general) return m.rows * m.cols;
  const int64_t full = m.rows * (m.rows - 1) / 2;
  return m.symmetry == mm_symmetry::skew ? full : full + m.rows;
}

// The place behind (row, col) in an array file's order.
void step_place(const mm_header& m, int64_t& row, int64_t& col) {
  if (++row < m.rows) return;
  ++col;
  row = m.symmetry == mm_symmetry::general ? 0 : m.symmetry == mm_symmetry::skew ? col + 1 : col;
}

// Reads the size line and returns the number of entries that follow.
int64_t read_size(line_reader& lines, mm_header& m) {
  string_view line;
  if (!lines.next_data(line)) lines.fail("the file ends before the size line");
  m.size_line = lines.number();
  m.rows = take_integer(lines, line, "the number of rows");
  m.cols = take_integer(lines, line, "the number of columns");
  int64_t count = 0;
  const bool coordinate = m.format == mm_format::coordinate;
  if (coordinate) count = take_integer(lines, line, "the number of entries");
  if (const string_view more = take_word(line); !more.empty())
    lines.fail(fmt::format("unexpected {} behind the sizes", quoted(more)));
  if (m.rows < 0 || m.cols < 0 || count < 0) lines.fail("a size is negative");
  int64_t places;
  if (!coordinate && (__builtin_mul_overflow(m.rows, m.cols, &places) || places > INT64_MAX / 32))
    lines.fail(fmt::format("{} by {} elements are too many", m.rows, m.cols));
  if (m.symmetry != mm_symmetry::general && m.rows != m.cols)
    lines.fail(fmt::format("a symmetric kind of matrix is square, not {} by {}", m.rows, m.cols));
  if (!coordinate) count = array_entries(m);
  // No entry takes less than one digit and, but for the last one, a line end.
  if (lines.bytes_left() >= 0 && count > (lines.bytes_left() + 1) / 2)
    lines.fail(fmt::format("{} entries announced, but only {} bytes follow", count, lines.bytes_left()));
  return count;
}

void read_entries(line_reader& lines, const mm_header& m, int64_t count,
                  const std::function<void(const mm_entry&)>& visit) {
  int64_t row = m.symmetry == mm_symmetry::skew ? 1 : 0, col = 0;
  for (int64_t entry = 0; entry < count; ++entry) {
    string_view line;
    if (!lines.next_data(line)) lines.fail(fmt::format("the file ends after {} of {} entries", entry, count));
    if (m.format == mm_format::coordinate) {
      row = take_integer(lines, line, "the row") - 1;
      col = take_integer(lines, line, "the column") - 1;
      check_place(lines, m, row, col);
    }
    mm_entry e = read_value(lines, line, m.field);
    e.row = row;
    e.col = col;
    if (m.symmetry == mm_symmetry::hermitian && row == col && e.im != 0)
      lines.fail("the imaginary part on the diagonal of a Hermitian matrix is not zero");
    if (const string_view more = take_word(line); !more.empty())
      lines.fail(fmt::format("unexpected {} behind the entry", quoted(more)));
    visit(e);
    if (m.format == mm_format::array) step_place(m, row, col);
  }
  string_view line;
  if (lines.next_data(line))
    lines.fail(fmt::format("unexpected {} behind the last entry", quoted(take_word(line))));
}

void store(double& x, double re, double, bool add) { x = add ? x + re : re; }
void store(zor_c64& x, double re, double im, bool add) {
  x = add ? zor_c64{x.re + re, x.im + im} : zor_c64{re, im};
}

void scan(line_reader& lines, const std::string& file,
          const std::function<void(const mm_header&, int64_t)>& begin,
          const std::function<void(const mm_entry&)>& visit) {
  mm_header m{};
  m.file = file;
  read_banner(lines, m);
  const int64_t count = read_size(lines, m);
  begin(m, count);
  read_entries(lines, m, count, visit);
}

}  // namespace

void mm_scan(const std::string& file, string_view text,
             const std::function<void(const mm_header&, int64_t)>& begin,
             const std::function<void(const mm_entry&)>& visit) {
  line_reader lines(file, text);
  scan(lines, file, begin, visit);
}

mm_matrix mm_read(const std::string& file) {
  mm_matrix m;
  part_reader parts(file);
  line_reader lines(file, parts);
  const auto begin = [&](const mm_header& header, int64_t count) {
    static_cast<mm_header&>(m) = header;
    for (mm_indices* const indices : {&m.rowind, &m.colind})
      indices->begin(std::max({m.rows, m.cols, count}));
    // What a pipe announces may never come.
    const size_t room = size_t(lines.bytes_left() < 0 ? std::min<int64_t>(count, 1 << 20) : count);
    m.rowind.reserve(room);
    m.colind.reserve(room);
    m.re.reserve(room);
    if (m.field == mm_field::complex) m.im.reserve(room);
  };
  scan(lines, file, begin, [&m](const mm_entry& e) {
    m.rowind.push_back(e.row);
    m.colind.push_back(e.col);
    m.re.push_back(e.re);
    if (m.field == mm_field::complex) m.im.push_back(e.im);
  });
  return m;
}

template <class T>
void mm_fill(const mm_matrix& m, T* dense) {
  std::fill_n(dense, m.rows * m.cols, T{});
  const bool add = m.format == mm_format::coordinate;  // an array file has each place once, a -0 of it stays
  const double mirror_re = m.symmetry == mm_symmetry::skew ? -1 : 1;
  const double mirror_im = m.im.empty() || m.symmetry == mm_symmetry::symmetric ? 1 : -1;
  for (size_t i = 0; i < m.re.size(); ++i) {
    const int64_t row = m.rowind[i], col = m.colind[i];
    const double re = m.re[i], im = m.im.empty() ? 0 : m.im[i];
    store(dense[row + col * m.rows], re, im, add);
    if (m.symmetry != mm_symmetry::general && row != col)
      store(dense[col + row * m.rows], mirror_re * re, mirror_im * im, add);
  }
}
template void mm_fill(const mm_matrix&, double*);
template void mm_fill(const mm_matrix&, zor_c64*);

void mm_check_dense_size(const mm_header& m, size_t element_bytes) {
  const double memory = double(sysconf(_SC_PHYS_PAGES)) * double(sysconf(_SC_PAGESIZE));
  const double wanted = double(m.rows) * double(m.cols) * double(element_bytes);
  if (wanted > memory)
    throw input_error(m.file, m.size_line,
                      fmt::format("{} by {} elements need {:.1f} GiB, this machine has {:.1f}", m.rows,
                                  m.cols, wanted / 0x1p30, memory / 0x1p30));
}

std::string mm_array_head(const char* field, int64_t rows, int64_t cols) {
  return fmt::format("%%MatrixMarket matrix array {} general\n{} {}\n", field, rows, cols);
}

void mm_put_value(std::string& text, double value) {
  if (std::isnan(value)) {
    text += "nan";
    return;
  }
  char digits[40];
  const auto end = std::to_chars(digits, digits + sizeof digits, value, std::chars_format::general, 17).ptr;
  text.append(digits, end);
}

std::string mm_array_text(int64_t rows, int64_t cols, const double* dense) {
  std::string text = mm_array_head("real", rows, cols);
  for (int64_t i = 0; i < rows * cols; ++i) {
    mm_put_value(text, dense[i]);
    text += '\n';
  }
  return text;
}

std::string mm_array_text(int64_t rows, int64_t cols, const zor_c64* dense) {
  std::string text = mm_array_head("complex", rows, cols);
  for (int64_t i = 0; i < rows * cols; ++i) {
    mm_put_value(text, dense[i].re);
    text += ' ';
    mm_put_value(text, dense[i].im);
    text += '\n';
  }
  return text;
}

}  // namespace zor_tools
