// SPDX-License-Identifier: MIT
// Lists every exported name with the source file that defines it and the function template (or function, or
// assembler macro) that it is bound to. Names made by macros stand nowhere else in full.
//
//   zor_names SOURCE ROWS NM OUTPUT OBJECTS...
//
// SOURCE is the project's folder, ROWS holds each table after the preprocessor, each of OBJECTS is a file
// that names object files, one a line. A line of OUTPUT is: name, file, template, and the file of the
// template when that is another one.
#include <map>
#include <regex>
#include <set>

#include "cmake/macros.h"

namespace {

// A name's row and the table it stands in.
struct place {
  std::string table;
  row content;
};
using places = std::multimap<std::string, place>;

// The macros of a source file, and the tables that it includes.
struct source {
  std::string text;
  std::map<std::string, macro> macros;
  std::set<std::string> tables;
};

source read_source(const fs::path& path) {
  source s;
  s.text = std::regex_replace(read_file(path), std::regex("\\\\\n"), " ");
  std::istringstream in(s.text);
  static const std::regex table_line("#include \"zor/tables/(\\w+)\\.inc\".*");
  for (std::string line; std::getline(in, line);) {
    std::smatch found;
    if (std::regex_match(line, found, table_line)) s.tables.insert(found[1]);
    if (!starts(line, "#define ")) continue;
    const macro m = parse_macro(line, path);
    s.macros[m.name] = m;
  }
  return s;
}

// A macro's body with its arguments, and with those macros of the same file in it that take arguments.
std::string expanded(const source& s, const macro& m, const strings& args, int depth = 0) {
  std::string body = m.params.empty() ? m.body : substituted(m, args, m.name);
  for (size_t paste; (paste = body.find("##")) != std::string::npos;) body.erase(paste, 2);
  std::string text;
  for (size_t p = 0; p < body.size();) {
    const std::string name = take_word(body, p);
    const auto found = s.macros.find(name);
    if (found != s.macros.end() && p < body.size() && body[p] == '(' && depth < 8)
      text += expanded(s, found->second, take_arguments(body, p, m.name), depth + 1);
    else
      text += name;
    while (p < body.size() && !word(body[p])) text += body[p++];
  }
  return text;
}

// The names in a definition that may be what it calls, the likeliest first: the target of an alias; names
// with arguments from the last statement to the first, in a statement from left to right, but for macros and
// members. In assembler it is the macro.
strings candidates(const std::string& definition) {
  static const std::regex alias("alias\\(\"(\\w+)\"\\)");
  std::smatch found;
  if (std::regex_search(definition, found, alias)) return {found[1]};
  const size_t open = definition.find('{');
  if (open == std::string::npos) return {definition.substr(0, definition.find(' '))};
  strings names;
  size_t statement = 0;
  for (size_t p = open; p < definition.size(); p++) {
    const bool member = definition[p - 1] == '.';
    const std::string name = take_word(definition, p);
    const char next = p < definition.size() ? definition[p] : ';';
    const bool macro =
        std::none_of(name.begin(), name.end(), [](unsigned char c) { return std::islower(c); });
    if (!member && !macro && (next == '<' || next == '('))
      names.insert(names.begin() + long(statement++), name);
    if (next == ';') statement = 0;
  }
  return names;
}

bool defines(const std::string& text, const std::string& function) {
  if (text.find(function) == std::string::npos) return false;
  if (std::regex_search(text, std::regex("(struct|class) " + function + "\\b|#define " + function + "\\(")))
    return true;
  const std::regex definition("(^|\\n)[^\\n#=.]*[\\w>*&] +\\**" + function +
                              "\\([^;{]*\\{|(^|\\n)\\.macro +" + function);
  return std::regex_search(text, definition);
}

// A source or header of the project: its text, what it includes, and the files beside it.
struct project_file {
  std::string text;
  std::vector<fs::path> includes, beside;
};
const project_file& read_project_file(const fs::path& project, const fs::path& path) {
  static std::map<fs::path, project_file> known;
  const auto [at, is_new] = known.try_emplace(path);
  project_file& file = at->second;
  if (!is_new || !fs::exists(project / path)) return file;
  file.text = read_file(project / path);
  static const std::regex include("#include \"([\\w/.]+)\"");
  for (std::sregex_iterator i(file.text.begin(), file.text.end(), include), end; i != end; ++i)
    file.includes.push_back((*i)[1].str());
  for (const auto& entry : fs::directory_iterator((project / path).parent_path()))
    if (entry.is_regular_file()) file.beside.push_back(path.parent_path() / entry.path().filename());
  std::sort(file.beside.begin(), file.beside.end());
  return file;
}

// The file that defines a function: `path`, or one beside it when it declares the function, or the same of
// the project's headers that it includes.
std::string home_of(const fs::path& project, const fs::path& path, const std::string& function,
                    std::set<fs::path>& seen) {
  if (!seen.insert(path).second) return "";
  const project_file& file = read_project_file(project, path);
  if (defines(file.text, function)) return path;
  if (path.extension() == ".h" && std::regex_search(file.text, std::regex("\\b" + function + "\\(")))
    for (const fs::path& other : file.beside)
      if (defines(read_project_file(project, other).text, function)) return other;
  for (const fs::path& next : file.includes) {
    const std::string found = home_of(project, next, function, seen);
    if (!found.empty()) return found;
  }
  return "";
}

// What a name is bound to, and the file that defines it.
struct binding {
  std::string function, home;
};

// The name itself where the file has it in full, or has no macro for its row; otherwise the first candidate
// that is defined in the project, or the macro when there is none.
binding bound_to(const fs::path& project, const std::string& file, const source& s, const std::string& name,
                 const places& rows, std::map<std::string, std::string>& homes) {
  if (s.text.find(name + "(") != std::string::npos) return {name, file};
  const auto range = rows.equal_range(name);
  for (auto i = range.first; i != range.second; ++i) {
    const row& r = i->second.content;
    const auto found = s.macros.find(r.kind.empty() ? "ROW" : "ROW_" + r.kind);
    if (s.tables.count(i->second.table) == 0 || found == s.macros.end()) continue;
    for (const std::string& function : candidates(expanded(s, found->second, r.args))) {
      std::set<fs::path> seen;
      const auto known = homes.find(function);
      const std::string home = known != homes.end() ? known->second : home_of(project, file, function, seen);
      homes[function] = home;
      if (!home.empty()) return {function, home};
    }
    return {found->first, file};
  }
  return {name, file};
}

// The functions that an object file defines for other files.
strings symbols(const std::string& nm, const std::string& object) {
  FILE* pipe = popen((nm + " --defined-only '" + object + "'").c_str(), "r");
  if (pipe == nullptr) fail(nm, "cannot be run");
  std::string text;
  for (int c = std::fgetc(pipe); c != EOF; c = std::fgetc(pipe)) text += char(c);
  if (pclose(pipe) != 0) fail(object, "cannot be read by nm");
  std::istringstream in(text);
  strings names;
  for (std::string address, kind, name; in >> address >> kind >> name;)
    if (kind == "T") names.push_back(name);
  return names;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 6) fail("usage", "zor_names SOURCE ROWS NM OUTPUT OBJECTS...");
  const fs::path project = argv[1];
  places rows;
  for (const auto& entry : fs::directory_iterator(argv[2]))
    for (const row& r : read_table(entry.path())) rows.insert({r.args[0], {entry.path().stem(), r}});

  std::set<std::string> lines;
  for (int i = 5; i < argc; i++) {
    std::istringstream objects(read_file(argv[i]));
    for (std::string object; std::getline(objects, object);) {
      static const std::string folder = ".dir/";
      const size_t begin = object.rfind(folder) + folder.size();
      const std::string file = object.substr(begin, object.size() - begin - 2);
      const source s = read_source(project / file);
      std::map<std::string, std::string> homes;
      for (const std::string& name : symbols(argv[3], object)) {
        if (rows.count(name) == 0) continue;
        const binding b = bound_to(project, file, s, name, rows, homes);
        lines.insert(name + " " + file + " " + b.function + (b.home == file ? "" : " " + b.home));
      }
    }
  }
  // GMP's static library holds the routines that the table of integers gives other names.
  for (const auto& [name, where] : rows)
    if (where.table == "gmp" && (where.content.kind == "CALL" || where.content.kind == "GMP"))
      lines.insert(name + " libgmp.a " + where.content.args[1]);
  std::string text;
  for (const std::string& line : lines) text += line + "\n";
  write_file(argv[4], text);
}
