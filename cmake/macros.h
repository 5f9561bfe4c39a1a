// SPDX-License-Identifier: MIT
// Rows of tables and macros as text, for the programs that make headers and lists from them.
#pragma once

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using strings = std::vector<std::string>;

// ROW_<kind>(<name>, ...): args[0] is the name.
struct row {
  std::string kind;
  strings args;
};
using table = std::vector<row>;

// #define <name>(<params>) <body>; a last parameter of ... takes any further arguments and is dropped.
struct macro {
  std::string name, body;
  strings params;
};

[[noreturn]] inline void fail(const std::string& where, const std::string& what) {
  std::fprintf(stderr, "%s: %s\n", where.c_str(), what.c_str());
  std::exit(1);
}

inline bool word(char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '_'; }

// The identifier at p, empty when there is none; p moves behind it.
inline std::string take_word(const std::string& text, size_t& p) {
  const size_t begin = p;
  while (p < text.size() && word(text[p])) p++;
  return text.substr(begin, p - begin);
}

inline std::string trimmed(const std::string& text) {
  const size_t first = text.find_first_not_of(" \t\n");
  if (first == std::string::npos) return "";
  return text.substr(first, text.find_last_not_of(" \t\n") + 1 - first);
}

inline bool starts(const std::string& text, const std::string& with) { return text.rfind(with, 0) == 0; }

// The arguments between the parenthesis at p and the one that closes it; p moves behind that one.
inline strings take_arguments(const std::string& text, size_t& p, const std::string& where) {
  strings args;
  int depth = 0;
  std::string now;
  for (; p < text.size(); p++) {
    const char c = text[p];
    if (c == '(' && depth++ == 0) continue;
    if (c == ')' && --depth == 0) {
      args.push_back(trimmed(now));
      p++;
      return args;
    }
    if (c == ',' && depth == 1) {
      args.push_back(trimmed(now));
      now.clear();
    } else {
      now += c;
    }
  }
  fail(where, "a parenthesis is not closed");
}

inline std::string read_file(const fs::path& path) {
  std::ifstream in(path);
  if (!in) fail(path, "cannot be read");
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

inline void write_file(const fs::path& path, const std::string& text) {
  if (fs::exists(path) && read_file(path) == text) return;
  fs::create_directories(path.parent_path());
  std::ofstream out(path);
  out << text;
  if (!out.flush()) fail(path, "cannot be written");
}

inline table read_table(const fs::path& path) {
  const std::string text = read_file(path);
  table rows;
  for (size_t p = text.find_first_not_of(" \t\n"); p < text.size(); p = text.find_first_not_of(" \t\n", p)) {
    const std::string head = take_word(text, p);
    p = text.find_first_not_of(" \t\n", p);
    if ((head != "ROW" && !starts(head, "ROW_")) || p >= text.size() || text[p] != '(')
      fail(path, "no row: " + head);
    rows.push_back({head == "ROW" ? "" : head.substr(4), take_arguments(text, p, path)});
  }
  if (rows.empty()) fail(path, "a table without rows");
  return rows;
}

// #define NAME(params) body or #define NAME body, in one line without continuations.
inline macro parse_macro(const std::string& line, const std::string& where) {
  macro m;
  size_t p = line.find_first_not_of(" \t", std::string("#define").size());
  m.name = take_word(line, p);
  if (p < line.size() && line[p] == '(') m.params = take_arguments(line, p, where);
  m.body = trimmed(line.substr(std::min(p, line.size())));
  return m;
}

inline std::string substituted(const macro& m, const strings& args, const std::string& where) {
  strings params = m.params;
  const bool variadic = !params.empty() && params.back() == "...";
  if (variadic) params.pop_back();
  if (args.size() < params.size() || (args.size() > params.size() && !variadic))
    fail(where, m.name + " does not take the arguments of " + args[0]);
  std::string text;
  for (size_t p = 0; p < m.body.size();) {
    const std::string name = take_word(m.body, p);
    const auto found = std::find(params.begin(), params.end(), name);
    text += found == params.end() ? name : args[size_t(found - params.begin())];
    while (p < m.body.size() && !word(m.body[p])) text += m.body[p++];
  }
  return text;
}
