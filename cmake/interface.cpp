// SPDX-License-Identifier: MIT
// Writes what is made from the header sources (include/zor/*.h.in) and the tables of names:
//
//   include/zor/*.h              the headers a user includes: plain C prototypes, one a line, under their
//   comments internal/zor/signatures/*.h  the signatures as macros and as C++ function types, for definitions
//   and callers internal/zor/tables/*.inc    the rows of a table, every kind of row with a default that
//   ignores it
//
//   zor_interface SOURCE ROWS OUTPUT VERSION
//
// SOURCE holds the header sources, ROWS each table after the preprocessor (*.rows), OUTPUT receives the
// files; one whose content has not changed is left alone. docs/adding-a-kernel.md tells how header sources
// are written.
#include <algorithm>
#include <cctype>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "cmake/macros.h"

namespace {

// The table as C++ and the linker's version scripts include it.
std::string table_text(const std::string& name, const table& rows) {
  std::set<std::string> kinds;
  for (const row& r : rows)
    if (!r.kind.empty()) kinds.insert("ROW_" + r.kind);
  std::string text = "// Made from include/zor/tables/" + name +
                     ".inc.\n#ifndef ROW\n#ifdef ZOR_NAME\n#define ROW(name, ...) ZOR_NAME(name)\n"
                     "#else\n#define ROW(...)\n#endif\n#endif\n";
  for (const std::string& kind : kinds) text += "#ifndef " + kind + "\n#define " + kind + " ROW\n#endif\n";
  for (const row& r : rows) {
    text += r.kind.empty() ? "ROW(" : "ROW_" + r.kind + "(";
    for (size_t i = 0; i < r.args.size(); i++) text += (i ? ", " : "") + r.args[i];
    text += ")\n";
  }
  for (const std::string& kind : kinds) text += "#undef " + kind + "\n";
  return text + "#undef ROW\n";
}

// A line of a header source and where it stands; a continued macro is one line.
struct source_line {
  std::string text, where;
};

bool is_signature(const source_line& line) { return starts(line.text, "#define SIG_"); }

std::vector<source_line> read_source(const fs::path& path) {
  std::vector<source_line> lines;
  std::istringstream in(read_file(path));
  int number = 0;
  for (std::string text; std::getline(in, text);) {
    const std::string where = path.string() + ":" + std::to_string(++number);
    while (is_signature({text, where}) && text.back() == '\\') {
      std::string next;
      if (!std::getline(in, next)) fail(where, "the last line is continued");
      number++;
      text = trimmed(text.substr(0, text.size() - 1)) + " " + trimmed(next);
    }
    lines.push_back({text, where});
  }
  return lines;
}

// Everything that header sources are made with: the tables, and the signatures of all header sources.
struct interface {
  std::map<std::string, table> tables;
  std::map<std::string, macro> signatures;
  std::string version;
};

// Turns one header source into the user's header and the header of its signatures.
class header {
 public:
  header(const fs::path& source, const interface& all) : all_(all), name_(source.stem()) {
    for (const source_line& line : read_source(source)) {
      where_ = line.where;
      consume(line.text);
    }
  }

  const std::string& name() const { return name_; }
  const std::string& text() const { return text_; }
  const std::set<std::string>& shown() const { return shown_; }

  // Empty when the header has no signature.
  std::string signatures() const {
    if (signatures_.empty()) return "";
    return "// Made from include/zor/" + name_ +
           ".in: SIG_X(name, ...) declares `name` with the signature of the rows " +
           "ROW_X,\n// zor::x_fn<...> is the type of such a function.\n#pragma once\n\n#include \"zor/" +
           name_ + "\"\n\n" + signatures_ + "\n#ifdef __cplusplus\nnamespace zor {\n" + types_ +
           "}  // namespace zor\n#endif\n";
  }

 private:
  void consume(const std::string& line) {
    static const std::string include = "#include \"zor/tables/";
    if (starts(line, include)) {
      const std::string table_name = line.substr(include.size(), line.find('.') - include.size());
      const auto found = all_.tables.find(table_name);
      if (found == all_.tables.end()) fail(where_, "there is no table " + table_name);
      now_ = &found->second;
      shown_.insert(table_name);
    } else if (starts(line, "#define SIG_")) {
      const macro m = parse_macro(line, where_);
      signatures_ += line + "\n";
      types_ += function_type(m);
      prototypes(m, m.name.substr(4));
    } else if (starts(line, "#define ROW_")) {
      const macro m = parse_macro(line, where_);
      const std::string kind = m.name.substr(4);
      if (prototypes(m, kind) == 0) fail(where_, "the table has no row ROW_" + kind);
    } else {
      verbatim(line);
    }
  }

  void verbatim(std::string line) {
    static const strings parts = {"@VERSION@", "@VERSION_MAJOR@", "@VERSION_MINOR@", "@VERSION_PATCH@"};
    strings values = {all_.version};
    std::istringstream in(all_.version);
    for (std::string value; std::getline(in, value, '.');) values.push_back(value);
    for (size_t i = 0; i < parts.size(); i++) {
      const size_t at = line.find(parts[i]);
      if (at != std::string::npos) line.replace(at, parts[i].size(), values.at(i));
    }
    if (line.empty() && text_.size() > 1 && text_[text_.size() - 2] == '\n') return;
    text_ += line + "\n";
  }

  // The prototypes of all rows of one kind in the table at hand; returns how many there are.
  size_t prototypes(const macro& m, const std::string& kind) {
    size_t count = 0;
    if (now_ == nullptr) return count;
    for (const row& r : *now_) {
      if (r.kind != kind) continue;
      text_ += prototype(m, r.args) + ";\n";
      count++;
    }
    return count;
  }

  // A row may hold its parameters whole, which the signature then puts behind the name.
  std::string prototype(const macro& m, const strings& args) const {
    std::string text = expanded(m, args);
    const size_t gap = text.find(args[0] + " (");
    if (gap != std::string::npos) text.erase(gap + args[0].size(), 1);
    return text;
  }

  std::string expanded(const macro& m, const strings& args) const {
    std::string text = m.params.empty() ? m.body : substituted(m, args, where_);
    if (!starts(text, "SIG_")) return text;
    size_t p = 0;
    const std::string name = take_word(text, p);
    const auto found = all_.signatures.find(name);
    if (found == all_.signatures.end()) fail(where_, "there is no signature " + name);
    return expanded(found->second, p < text.size() ? take_arguments(text, p, where_) : args);
  }

  // Parameters that are types begin with a capital letter; the others do not matter to the signature.
  static std::string function_type(const macro& m) {
    std::string types, args;
    for (size_t i = 1; i < m.params.size() && m.params[i] != "..."; i++) {
      const bool type = std::isupper(static_cast<unsigned char>(m.params[i][0]));
      if (type) types += (types.empty() ? "class " : ", class ") + m.params[i];
      args += ", " + (type ? m.params[i] : "");
    }
    std::string name = m.name.substr(4);
    for (char& c : name) c = char(std::tolower(static_cast<unsigned char>(c)));
    return (types.empty() ? "" : "template <" + types + ">\n") + "using " + name + "_fn = " + m.name + "(" +
           args + ");\n";
  }

  const interface& all_;
  const std::string name_;
  std::string where_, text_, signatures_, types_;
  std::set<std::string> shown_;
  const table* now_ = nullptr;  // the one included last
};

// The functions that a header declares: identifiers before a parenthesis, outside comments and directives.
strings declared(const std::string& text) {
  std::string code;
  for (size_t p = 0; p < text.size();) {
    if (text.compare(p, 2, "/*") == 0) {
      p = std::min(text.find("*/", p), text.size() - 2) + 2;
    } else if (text.compare(p, 2, "//") == 0 || text[p] == '#') {
      p = std::min(text.find('\n', p), text.size());
    } else {
      code += text[p++];
    }
  }
  strings names;
  for (size_t p = 0; p < code.size(); p++) {
    const std::string name = take_word(code, p);
    if (!name.empty() && p < code.size() && code[p] == '(') names.push_back(name);
  }
  return names;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) fail("usage", "zor_interface SOURCE ROWS OUTPUT VERSION");
  const fs::path output = argv[3];
  interface all {
    {}, {}, argv[4]
  };

  for (const auto& entry : fs::directory_iterator(argv[2]))
    if (entry.path().extension() == ".rows") all.tables[entry.path().stem()] = read_table(entry.path());
  for (const auto& [name, rows] : all.tables)
    write_file(output / "internal/zor/tables" / (name + ".inc"), table_text(name, rows));

  for (const auto& entry : fs::directory_iterator(fs::path(argv[1]) / "tables"))
    if (starts(entry.path().filename(), "all_"))
      write_file(output / "internal/zor/tables" / entry.path().filename(), read_file(entry.path()));

  std::vector<fs::path> sources;
  for (const auto& entry : fs::directory_iterator(argv[1]))
    if (entry.path().extension() == ".in") sources.push_back(entry.path());
  for (const fs::path& source : sources) {
    for (const source_line& line : read_source(source)) {
      if (!is_signature(line)) continue;
      const macro m = parse_macro(line.text, line.where);
      if (!all.signatures.emplace(m.name, m).second) fail(line.where, m.name + " is defined already");
    }
  }

  std::set<std::string> shown, names;
  for (const fs::path& source : sources) {
    const header h(source, all);
    shown.insert(h.shown().begin(), h.shown().end());
    for (const std::string& name : declared(h.text())) names.insert(name);
    write_file(output / "include/zor" / h.name(), h.text());
    if (!h.signatures().empty()) write_file(output / "internal/zor/signatures" / h.name(), h.signatures());
  }

  for (const std::string& name : shown)
    for (const row& r : all.tables[name])
      if (names.count(r.args[0]) == 0) fail(name + ".inc", "no header declares " + r.args[0]);
}
