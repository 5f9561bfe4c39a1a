// SPDX-License-Identifier: MIT
// Writes the adapters of the BLAS libraries: for each routine of libzor_core a Fortran name and a CBLAS name
// that convert integers, letters and scalars, exchange what a matrix stored by rows asks for, and call the
// routine.
//
//   zor_libblas INCLUDE ROWS OUTPUT
//
// INCLUDE holds the headers made for users (blas.h, trans.h), ROWS the tables after the preprocessor; OUTPUT
// receives fortran.inc, cblas.inc and names.txt, INCLUDE the header cblas/cblas.h with the prototypes of the
// CBLAS names. What is the same for all routines stands in libblas/.
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "cmake/macros.h"

namespace {

struct parameter {
  std::string type, name;  // "const zor_int*", "incx"

  bool is(const char* what) const { return type == what; }
  bool pointer() const { return type.back() == '*'; }
  // The type that a pointer points to, without const.
  std::string element() const {
    std::string t = starts(type, "const ") ? type.substr(6) : type;
    if (t.back() == '*') t.pop_back();
    return t;
  }
};

struct routine {
  std::string kind, name, result;  // "GEMM", "dgemm", "void"
  std::string target;              // "zor_blas_dgemm"
  strings row;
  std::vector<parameter> parameters;

  bool complex() const { return name.find_first_of("cz") == 0; }
};

// ---- The tables and the prototypes.

// Prototypes of the made headers stand one a line: result name(type name, ...);
std::map<std::string, routine> read_prototypes(const fs::path& header) {
  std::map<std::string, routine> found;
  std::istringstream in(read_file(header));
  for (std::string line; std::getline(in, line);) {
    size_t open = line.find('(');
    if (line.empty() || line[0] == ' ' || line[0] == '/' || line[0] == '#' || open == std::string::npos ||
        line.back() != ';')
      continue;
    const size_t gap = line.rfind(' ', open);
    routine r;
    r.result = line.substr(0, gap), r.target = line.substr(gap + 1, open - gap - 1);
    for (const std::string& text : take_arguments(line, open, header)) {
      const size_t space = text.rfind(' ');
      r.parameters.push_back({text.substr(0, space), text.substr(space + 1)});
    }
    found[r.target] = r;
  }
  return found;
}

const strings tables = {"core_blas",   "core_vector", "core_matvec",
                        "core_level3", "core_trans",  "blas_vector"};
// Of the kernels' table, what has no entry in libzor_core because it has nothing to check.
const std::set<std::string> unchecked = {"ROTG", "ROTMG", "CABS1"};
// What other BLAS libraries do not have, or have in LAPACK.
const std::set<std::string> left_out = {"PUBLIC_MIXED", "OMATCOPY2", "OMATADD"};
const std::set<std::string> lapack = {"crot", "zrot"};

std::vector<routine> read_routines(const fs::path& include, const fs::path& rows) {
  std::map<std::string, routine> prototypes = read_prototypes(include / "blas.h");
  prototypes.merge(read_prototypes(include / "trans.h"));
  std::vector<routine> routines;
  for (const std::string& name : tables) {
    if (!fs::exists(rows / (name + ".rows"))) continue;
    for (const row& line : read_table(rows / (name + ".rows"))) {
      if ((name == "blas_vector" && unchecked.count(line.kind) == 0) || left_out.count(line.kind) != 0)
        continue;
      routine r = prototypes.at(line.args[0]);
      r.kind = line.kind, r.row = line.args;
      r.name = r.target.substr(starts(r.target, "zor_blas_") ? 9 : 4);
      if (lapack.count(r.name) == 0) routines.push_back(r);
    }
  }
  return routines;
}

// ---- Kinds.

// Vectors alone: no letters, no order of storage, nothing that the field reports.
const std::set<std::string> vectors = {"AXPY",  "SWAP",  "DOT",    "CDOT", "COPY",  "SCAL",
                                       "AXPBY", "ROT",   "ROTM",   "ASUM", "NRM2",  "IAMAX",
                                       "IAMIN", "DSDOT", "SDSDOT", "ROTG", "ROTMG", "CABS1"};
// Called through the function of that name in libblas/special.h.
const std::map<std::string, std::string> special = {{"ASUM", "asum"},
                                                    {"NRM2", "nrm2"},
                                                    {"IAMAX", "search<true>"},
                                                    {"IAMIN", "search<false>"},
                                                    {"SCAL", "scal"}};
const std::set<std::string> searches = {"IAMAX", "IAMIN"};

// What is exchanged when the matrix is stored by rows, which is the transpose of one stored by columns. Names
// with an underscore are the variables that the routine is then called with; x and y of a Hermitian or
// conjugated operation are handed over conjugated. @other is the routine without the conjugation.
const std::string product_by_rows = "swap(transa_, transb_), swap(m_, n_), swap(a_, b_), swap(lda_, ldb_);";
const std::string sided_by_rows = "swap_side(side_), swap_uplo(uplo_), swap(m_, n_);";
const std::string triangle_by_rows = "swap_uplo(uplo_);";
const std::string vectors_by_rows = "swap(x_, y_), swap(incx_, incy_);";
const std::string rank_by_rows = "swap_uplo(uplo_), transpose_rank_op<T>(trans_, @3);";
const std::string vector_by_rows =
    "if (!transpose_op<T>(trans_)) { conjugate(alpha_), conjugate(beta_); "
    "if (!x.copy(x_, m_, incx_)) return; y.conjugate_in_place(y_, n_, incy_); } swap(m_, n_);";
const std::string triangular_by_rows =
    "swap_uplo(uplo_); if (!transpose_op<T>(trans_)) x.conjugate_in_place(x_, n_, incx_);";
const std::string hermitian_by_rows =
    "swap_uplo(uplo_), conjugate(alpha_), conjugate(beta_); if (!x.copy(x_, n_, incx_)) return; "
    "y.conjugate_in_place(y_, n_, incy_);";
const std::string hermitian_rank_2 =
    "swap_uplo(uplo_); if (!x.copy(x_, n_, incx_) || !y.copy(y_, n_, incy_)) return; " + vectors_by_rows;

const std::map<std::string, std::string> by_rows = {
    {"GEMM", product_by_rows},
    {"GEMM3M", product_by_rows},
    {"GEMMT", "swap_uplo(uplo_), swap(transa_, transb_), swap(a_, b_), swap(lda_, ldb_);"},
    {"PUBLIC_SYMM", sided_by_rows},
    {"TRSM", sided_by_rows},
    {"TRMM", sided_by_rows},
    {"SYRK", rank_by_rows},
    {"SYR2K", rank_by_rows + " if (@3) conjugate(alpha_);"},
    {"GEMV", vector_by_rows},
    {"GBMV", vector_by_rows + " swap(kl_, ku_);"},
    {"GER", "swap(m_, n_); " + vectors_by_rows},
    {"GERU", "swap(m_, n_); " + vectors_by_rows},
    {"GERC", "if (!y.copy(y_, n_, incy_)) return; swap(m_, n_); " + vectors_by_rows + " routine = @other;"},
    {"SYMV", triangle_by_rows},
    {"SBMV", triangle_by_rows},
    {"SPMV", triangle_by_rows},
    {"HEMV", hermitian_by_rows},
    {"HBMV", hermitian_by_rows},
    {"HPMV", hermitian_by_rows},
    {"SYR", triangle_by_rows},
    {"SPR", triangle_by_rows},
    {"SYR2", triangle_by_rows},
    {"SPR2", triangle_by_rows},
    {"HER", "swap_uplo(uplo_); if (!x.copy(x_, n_, incx_)) return;"},
    {"HPR", "swap_uplo(uplo_); if (!x.copy(x_, n_, incx_)) return;"},
    {"HER2", hermitian_rank_2},
    {"HPR2", hermitian_rank_2},
    {"TRMV", triangular_by_rows},
    {"TRSV", triangular_by_rows},
    {"TBMV", triangular_by_rows},
    {"TBSV", triangular_by_rows},
    {"TPMV", triangular_by_rows},
    {"TPSV", triangular_by_rows},
    {"GEADD", "swap(m_, n_);"},
    {"OMATCOPY", ""},
    {"IMATCOPY", ""},
};

std::string replaced(std::string text, const std::string& what, const std::string& with) {
  for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + with.size()))
    text.replace(at, what.size(), with);
  return text;
}

std::string joined(const strings& parts) {
  std::string text;
  for (const std::string& part : parts) text += (text.empty() ? "" : ", ") + part;
  return text;
}

// ---- Fortran.

// The call of a routine whose arguments stand ready.
std::string call_of(const routine& r, const std::string& target, const strings& arguments) {
  const auto found = special.find(r.kind);
  if (found == special.end()) return target + "(" + joined(arguments) + ")";
  return found->second + "(" + target + ", " + joined(arguments) + ")";
}

// A routine returns its value, and so does a complex dot product, whose first parameter is its result.
struct value {
  std::string type, prefix;
  size_t skipped;
};
value value_of(const routine& r) {
  if (r.kind == "CDOT") return {r.parameters[0].element(), "result", 1};
  if (r.result == "zor_int") return {"blasint", "", 0};
  return {r.result, "", 0};
}

void fortran(std::string& out, std::set<std::string>& names, const routine& r) {
  const value v = value_of(r);
  strings taken, given;
  std::string body;
  if (vectors.count(r.kind) == 0) body += "  const call here(\"" + r.name + "\");\n";
  if (v.skipped != 0) body += "  " + v.type + " result;\n", given.push_back("&result");
  for (size_t i = v.skipped; i < r.parameters.size(); ++i) {
    const parameter& p = r.parameters[i];
    if (p.element() == "zor_int") {
      taken.push_back("const blasint* " + p.name);
      body += "  const zor_int " + p.name + "_ = *" + p.name + ";\n";
      given.push_back((p.pointer() ? "&" : "") + p.name + "_");
    } else if (!p.pointer()) {
      taken.push_back("const " + p.type + "* " + p.name);
      given.push_back("*" + p.name);
    } else {
      taken.push_back(p.type + " " + p.name);
      given.push_back(p.name);
    }
  }
  const std::string made = call_of(r, r.target, given), own = r.name + "_";
  names.insert(own);
  out += "extern \"C\" " + v.type + " ZOR_SYMBOL(" + own + ")(" + joined(taken) + ") {\n" + body;
  if (v.skipped != 0)
    out += "  " + made + ";\n  return result;\n}\n";
  else if (r.result == "void")
    out += "  " + made + ";\n}\n";
  else
    out += "  return " + v.type + "(" + made + ");\n}\n";

  // A function is also a subroutine with its value behind the arguments, where the reference has it.
  if (v.type == "void" || r.kind == "IAMIN") return;
  const std::string subroutine = r.name + "sub_";
  strings passed;
  for (size_t i = v.skipped; i < r.parameters.size(); ++i) passed.push_back(r.parameters[i].name);
  taken.push_back(v.type + "* value");
  names.insert(subroutine);
  out += "extern \"C\" void ZOR_SYMBOL(" + subroutine + ")(" + joined(taken) + ") {\n  *value = ZOR_SYMBOL(" +
         own + ")(" + joined(passed) + ");\n}\n";
}

// ---- CBLAS.

const std::map<std::string, std::string> letters = {{"side", "side"},    {"uplo", "uplo"},
                                                    {"diag", "diag"},    {"trans", "trans"},
                                                    {"transa", "trans"}, {"transb", "trans"}};
const std::map<std::string, std::string> option_types = {
    {"side", "CBLAS_SIDE"}, {"uplo", "CBLAS_UPLO"}, {"diag", "CBLAS_DIAG"}, {"trans", "CBLAS_TRANSPOSE"}};
const std::set<std::string> scalars = {"alpha", "beta", "c", "s", "sb", "y1"};

bool is_complex(const std::string& type) { return starts(type, "zor_c"); }

// The parameter of a CBLAS name, and the variable that is made of it.
struct converted {
  std::string taken, variable, given;
};
// The parameter as the header for users declares it.
std::string declared(const parameter& p, const converted& c) {
  if (p.element() == "char") return option_types.at(letters.at(p.name)) + " " + p.name;
  if (p.element() == "zor_int") return "CBLAS_INT " + p.name;
  return c.taken;
}
converted convert(const parameter& p, size_t position) {
  const std::string own = p.name + "_", element = p.element();
  const bool constant = starts(p.type, "const ");
  if (element == "char")
    return {"int " + p.name,
            "char " + own + " = here." + letters.at(p.name) + "(" + std::to_string(position) + ", " + p.name +
                ");",
            (p.pointer() ? "&" : "") + own};
  if (element == "zor_int")
    return {"blasint " + p.name, "zor_int " + own + " = " + p.name + ";", (p.pointer() ? "&" : "") + own};
  const bool scalar = !p.pointer() || (constant && scalars.count(p.name) != 0);
  if (scalar && is_complex(element))
    return {"const void* " + p.name,
            element + " " + own + " = *static_cast<const " + element + "*>(" + p.name + ");",
            (p.pointer() ? "&" : "") + own};
  if (scalar)
    return {element + " " + p.name, element + " " + own + " = " + p.name + ";",
            (p.pointer() ? "&" : "") + own};
  const std::string plain = is_complex(element) ? (constant ? "const void*" : "void*") : p.type;
  return {plain + " " + p.name, p.type + " " + own + " = static_cast<" + p.type + ">(" + p.name + ");", own};
}

void cblas(std::string& out, std::string& header, std::set<std::string>& names, const routine& r) {
  const bool matrix = vectors.count(r.kind) == 0,
             trans = starts(r.target, "zor_") && !starts(r.target, "zor_blas_");
  value v = value_of(r);
  std::string own = "cblas_" + r.name, body, type;
  strings taken, given, prototype;
  if (matrix) {
    taken.push_back("int layout");
    prototype.push_back("CBLAS_LAYOUT layout");
    body += "  call here(\"" + r.name + "\", layout" + (trans ? ", 0" : "") + ");\n";
  }
  if (v.skipped != 0) own += "_sub", given.push_back("static_cast<" + v.type + "*>(result)");
  if (trans) given.push_back("here.by_rows ? 'R' : 'C'");
  for (size_t i = trans ? 1 : v.skipped; i < r.parameters.size(); ++i) {
    const parameter& p = r.parameters[i];
    const converted c = convert(p, trans ? i + 1 : i + 2);
    taken.push_back(c.taken), given.push_back(c.given), prototype.push_back(declared(p, c));
    body += "  " + c.variable + "\n";
    if (is_complex(p.element()) || type.empty()) type = p.element();
  }
  for (const parameter& p : r.parameters)
    if (p.name == "x" || p.name == "a") type = p.element();
  if (v.skipped != 0) taken.push_back("void* result"), prototype.push_back("void* result");
  names.insert(own);

  std::string returned = "void", before, after;
  if (v.skipped == 0 && searches.count(r.kind) != 0)
    returned = "size_t", before = "return index(", after = ")";
  else if (v.skipped == 0 && r.result != "void")
    returned = v.type, before = "return ";
  header += returned + " CBLAS_NAME(" + own + ")(" + joined(prototype) + ");\n";
  out += "extern \"C\" " + returned + " ZOR_SYMBOL(" + own + ")(" + joined(taken) + ") {\n" + body;
  std::string target = r.target;
  if (matrix) {
    out += "  if (here.refused()) return;\n";
    const auto found = by_rows.find(r.kind);
    if (found == by_rows.end()) fail(r.target, "no rule for matrices stored by rows: " + r.kind);
    std::string rule = found->second;
    if (r.row.size() > 3) rule = replaced(rule, "@3", r.row[3]);
    rule = replaced(rule, "@other", "&" + replaced(r.target, "gerc", "geru"));
    if (!rule.empty()) {
      const bool holds = rule.find("x.") != std::string::npos || rule.find("y.") != std::string::npos;
      if (holds || rule.find("<T>") != std::string::npos) out += "  using T = " + type + ";\n";
      for (const char* const operand : {"x", "y"})
        if (rule.find(operand + std::string(".")) != std::string::npos)
          out += "  conjugated<T> " + std::string(operand) + "held(here);\n";
      rule = replaced(replaced(rule, "x.", "xheld."), "y.", "yheld.");
      if (rule.find("routine") != std::string::npos) {
        out += "  auto* routine = &" + r.target + ";\n";
        target = "routine";
      }
      out += "  if (here.by_rows) {\n    " + replaced(rule, "; ", ";\n    ") + "\n  }\n";
    }
  }
  out += "  " + before + call_of(r, target, given) + after + ";\n}\n";
}

const std::string header_begin = R"(/* SPDX-License-Identifier: MIT */
/* The CBLAS names of libblas.so.3. With ZOR_CBLAS_64 defined integers have 64 bits, as libblas64.so.3 takes them; with
 * ZOR_CBLAS_SUFFIX_64 also the names end in 64_, as in libblas64_.so.3. Complex scalars are passed by address. */
#ifndef ZOR_CBLAS_H
#define ZOR_CBLAS_H
#include <stddef.h>
#include <stdint.h>

#ifdef ZOR_CBLAS_SUFFIX_64
#define CBLAS_NAME(name) name##64_
#define ZOR_CBLAS_64
#else
#define CBLAS_NAME(name) name
#endif
#ifdef ZOR_CBLAS_64
#define CBLAS_INT int64_t
#else
#define CBLAS_INT int32_t
#endif

typedef enum CBLAS_LAYOUT { CblasRowMajor = 101, CblasColMajor = 102 } CBLAS_LAYOUT;
typedef CBLAS_LAYOUT CBLAS_ORDER;
/* CblasConjNoTrans is for the copies of matrices alone. */
typedef enum CBLAS_TRANSPOSE {
  CblasNoTrans = 111,
  CblasTrans = 112,
  CblasConjTrans = 113,
  CblasConjNoTrans = 114
} CBLAS_TRANSPOSE;
typedef enum CBLAS_UPLO { CblasUpper = 121, CblasLower = 122 } CBLAS_UPLO;
typedef enum CBLAS_DIAG { CblasNonUnit = 131, CblasUnit = 132 } CBLAS_DIAG;
typedef enum CBLAS_SIDE { CblasLeft = 141, CblasRight = 142 } CBLAS_SIDE;

#ifdef __cplusplus
extern "C" {
#endif

/* Receives reports of bad arguments; a program may define its own. */
void CBLAS_NAME(cblas_xerbla)(CBLAS_INT position, const char* routine, const char* form, ...);

)";
const std::string header_end = R"(
#ifdef __cplusplus
}
#endif
#endif
)";

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) fail("usage", "zor_libblas INCLUDE ROWS OUTPUT");
  const fs::path output = argv[3];
  std::string by_fortran = "// Made by cmake/libblas.cpp.\n", by_c = by_fortran, list, header = header_begin;
  std::set<std::string> names = {"xerbla_",      "xerbla_array_", "lsame_",
                                 "cblas_xerbla", "RowMajorStrg",  "CBLAS_CallFromC"};
  for (const routine& r : read_routines(argv[1], argv[2])) {
    fortran(by_fortran, names, r);
    cblas(by_c, header, names, r);
  }
  for (const std::string& name : names) list += name + "\n";
  write_file(output / "fortran.inc", by_fortran);
  write_file(output / "cblas.inc", by_c);
  write_file(output / "names.txt", list);
  write_file(fs::path(argv[1]) / "cblas/cblas.h", header + header_end);
}
