// SPDX-License-Identifier: MIT
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <new>
#include <stdexcept>

#include "bench/bench.h"
#include "bench/choose_build.h"
#include "tools/commands.h"
#include "tools/mmio.h"
#include "tools/names.h"
#include "tools/standard_streams.h"
#include "zor/version.h"

namespace {

constexpr int status_failed = 1;
constexpr int status_bad_input = 2;

int fail(int status, const char* what) {
  std::fprintf(stderr, "zor: %s\n", zor_tools::printable(what).c_str());
  return status;
}

// A whole number of a range.
CLI::Validator whole(int64_t low, int64_t high = INT64_MAX) {
  const auto check = [=](std::string& text) {
    int64_t value;
    if (CLI::detail::lexical_cast(text, value) && value >= low && value <= high) return std::string();
    return high == INT64_MAX ? fmt::format("{} is not a whole number from {}", text, low)
                             : fmt::format("{} is not a whole number from {} to {}", text, low, high);
  };
  return CLI::Validator(check, "");
}

void add_threads(CLI::App* command, int32_t& threads, const char* help) {
  command->add_option("--threads", threads, help)->check(whole(1, 4096));
}

// A file to read or write. An empty name is no way to leave one out: a script's unset variable would do that.
CLI::Option* add_file(CLI::App* command, const char* name, std::string& file, const char* help) {
  const auto empty = [](std::string& text) { return text.empty() ? "the name of the file is empty" : ""; };
  return command->add_option(name, file, help)->check(CLI::Validator(empty, ""));
}

// A number that fits, which a NaN never does.
CLI::Validator number(bool (*fits)(double), const char* which) {
  const auto check = [=](std::string& text) {
    double value;
    if (CLI::detail::lexical_cast(text, value) && fits(value)) return std::string();
    return fmt::format("{} is not {}", text, which);
  };
  return CLI::Validator(check, which);
}

void add_matmul(CLI::App& app, zor_tools::matmul_options& options) {
  CLI::App* command = app.add_subcommand("matmul", "Multiply two matrices in Matrix Market files");
  add_file(command, "A", options.a, "Left factor")->required();
  add_file(command, "B", options.b, "Right factor")->required();
  add_file(command, "-o,--output", options.output,
           "File for the product; appears whole or not at all; - is the standard output");
  add_threads(command, options.threads, "Threads at most");
}

void add_spmv(CLI::App& app, zor_tools::spmv_options& options) {
  CLI::App* command =
      app.add_subcommand("spmv", "Multiply a sparse matrix in a Matrix Market file by vectors");
  add_file(command, "A", options.a, "Matrix")->required();
  add_file(command, "x", options.x, "Vectors, as columns of a matrix; ones when left out");
  add_file(command, "-o,--output", options.output,
           "File for the product; appears whole or not at all; - is the standard output");
  command->add_flag("--wide-indices", options.wide,
                    "64-bit indices even where 32 bits serve; the same result");
  add_threads(command, options.threads, "Threads at most");
}

void add_spmm(CLI::App& app, zor_tools::spmm_options& options) {
  CLI::App* command = app.add_subcommand("spmm", "Multiply two sparse matrices in Matrix Market files");
  add_file(command, "A", options.a, "Left factor")->required();
  add_file(command, "B", options.b, "Right factor")->required();
  add_file(command, "-o,--output", options.output,
           "Coordinate file for the product; appears whole or not at all; - is the standard output");
  command->add_flag("--wide-indices", options.wide,
                    "64-bit indices even where 32 bits serve; the same result");
  add_threads(command, options.threads, "Threads at most");
}

void add_convert(CLI::App& app, zor_tools::convert_options& options) {
  CLI::App* command = app.add_subcommand("convert", "Tell what a sparse matrix needs in a storage format");
  add_file(command, "A", options.a, "Matrix Market file of the matrix")->required();
  command->add_option("--format", options.format, "csr, coo, dia, bsr or sky")
      ->required()
      ->check(CLI::IsMember({"csr", "coo", "dia", "bsr", "sky"}));
  command->add_option("--block", options.block, "Order of the blocks of bsr")->check(whole(1, 1024));
  add_file(command, "-o,--output", options.output,
           "Coordinate file of the matrix as the format holds it; - is the standard output");
  command->add_flag("--wide-indices", options.wide,
                    "64-bit indices even where 32 bits serve; the same result");
  add_threads(command, options.threads, "Threads at most");
}

void add_solve(CLI::App& app, zor_tools::solve_options& options) {
  CLI::App* command = app.add_subcommand(
      "solve", "Solve A x = b: symmetric positive definite by cg, others by bicgstab or gmres");
  add_file(command, "A", options.a, "Matrix Market file of the matrix")->required();
  add_file(command, "b", options.b, "Right-hand sides, as columns of a matrix; A times ones when left out");
  add_file(command, "-o,--output", options.output,
           "File for the solution; appears whole or not at all; - is the standard output");
  command->add_option("--method", options.method, "cg (the default), bicgstab or gmres")
      ->check(CLI::IsMember({"cg", "bicgstab", "gmres"}));
  command
      ->add_option("--preconditioner", options.preconditioner,
                   "none, gauss-seidel or, for bicgstab and gmres, block-gauss-seidel")
      ->check(CLI::IsMember({"none", "gauss-seidel", "block-gauss-seidel"}));
  command->add_option("--block", options.block, "Order of the blocks of block-gauss-seidel")
      ->check(whole(1, 1024));
  command->add_option("--restart", options.restart, "Directions that gmres keeps")->check(whole(1, 10000));
  command->add_option("--tolerance", options.tolerance, "Residual to reach, relative to b")
      ->check(number([](double v) { return v >= 0 && v <= 1; }, "a number from 0 to 1"));
  command->add_option("--iterations", options.iterations, "Iterations at most")->check(whole(1));
  command->add_option("--every", options.every, "Iterations from one line to the next")->check(whole(1));
  add_file(command, "--plot", options.plot, "Draw the residuals into this file: .svg, .png or .pdf");
  command->add_flag("--wide-indices", options.wide,
                    "64-bit indices even where 32 bits serve; the same result");
  add_threads(command, options.threads, "Threads at most");
}

void add_refine(CLI::App& app, zor_tools::refine_options& options) {
  CLI::App* command =
      app.add_subcommand("refine", "Solve A x = b to the last digit, and bound the error before and after");
  add_file(command, "A", options.a, "Matrix Market file of the matrix")->required();
  add_file(command, "b", options.b, "Right-hand sides, as columns of a matrix")->required();
  add_file(command, "-o,--output", options.output,
           "File for the solution; appears whole or not at all; - is the standard output");
  add_threads(command, options.threads, "Threads at most");
}

void add_transpose(CLI::App& app, zor_tools::transpose_options& options) {
  CLI::App* command = app.add_subcommand("transpose", "Transpose a matrix in a Matrix Market array file");
  add_file(command, "A", options.a, "Matrix")->required();
  add_file(command, "-o,--output", options.output,
           "File for the transpose; appears whole or not at all; - is the standard output");
  command->add_flag("--conjugate", options.conjugate, "Take the conjugate of every element too");
  add_file(command, "--scratch", options.scratch,
           "Folder for the working copy, which is memory while it fits there");
  add_threads(command, options.threads, "Threads at most");
}

void add_fft(CLI::App& app, zor_tools::fft_options& options) {
  CLI::App* command = app.add_subcommand("fft", "Spectrum of a recording or of a column of numbers");
  add_file(command, "FILE", options.input, "WAV, text or CSV file")->required();
  command->add_option("--column", options.column, "Channel or column, from 1")->check(whole(1, 65535));
  command->add_option("--rate", options.rate, "Samples a second of a text file")
      ->check(number([](double v) { return v > 0 && std::isfinite(v); }, "a positive finite number"));
  add_file(command, "-o,--output", options.output, "CSV file for the spectrum");
  add_file(command, "--plot", options.plot, "Draw into this file: .svg, .png or .pdf");
  CLI::Option* filter =
      command->add_option("--filter", options.highest, "Keep the frequencies up to this one")
          ->check(number([](double v) { return v >= 0 && std::isfinite(v); }, "a finite number from 0"));
  CLI::Option* filtered = add_file(command, "--filtered", options.filtered,
                                   "File for the filtered signal; WAV when it ends in .wav");
  filter->needs(filtered);
  filtered->needs(filter);
  add_threads(command, options.threads, "Threads at most");
}

void add_convolve(CLI::App& app, zor_tools::convolve_options& options) {
  CLI::App* command = app.add_subcommand(
      "convolve", "Put a recording through an impulse response, or an image through a kernel");
  add_file(command, "FILE", options.input, "WAV recording, PGM or PPM image")->required();
  add_file(command, "KERNEL", options.kernel,
           "WAV file of the response; for an image gauss, sobel or a text file with rows of numbers")
      ->required();
  add_file(command, "-o,--output", options.output,
           "File for the result, of the kind of the input; appears whole or not at all")
      ->required();
  command->add_option("--sigma", options.sigma, "Standard deviation of gauss, in pixels")
      ->check(number([](double v) { return v > 0 && v <= 1000; }, "a number above 0 and up to 1000"));
  command->add_option("--gain", options.gain, "Factor of the result")
      ->check(number([](double v) { return std::isfinite(v); }, "a finite number"));
  add_threads(command, options.threads, "Threads at most");
}

void add_correlate(CLI::App& app, zor_tools::correlate_options& options) {
  CLI::App* command = app.add_subcommand("correlate", "Find a template in a signal or an image");
  add_file(command, "TEMPLATE", options.pattern, "PGM or PPM image, WAV, text or CSV file")->required();
  add_file(command, "FILE", options.input, "What is searched, of the same kind")->required();
  command->add_option("--column", options.column, "Channel or column, from 1")->check(whole(1, 65535));
  add_file(command, "--plot", options.plot, "Draw into this file: .svg, .png or .pdf");
  add_threads(command, options.threads, "Threads at most");
}

void add_verify(CLI::App& app, zor_tools::verify_options& options) {
  CLI::App* command = app.add_subcommand("verify", "Compare the bits of every routine with the kept digests");
  command->add_flag("--list", options.list, "Print the digest of every name");
  command->add_option("--family", options.families, "Only this family; may be repeated");
  add_threads(command, options.threads, "Threads at most");
  command->add_option("--update", options.update, "Write the digests into this folder instead of comparing")
      ->check(CLI::ExistingDirectory);
}

void add_bench(CLI::App& app, zor_bench::options& options) {
  CLI::App* command = app.add_subcommand("bench", "Measure speed side by side with other libraries");
  command->add_option("--family", options.families,
                      "One of " + zor_bench::family_names() + "; may be repeated");
  command->add_option("--case", options.filter,
                      "Only cases whose name has a match of this regular expression");
  command->add_flag("--csv", options.csv, "Print comma-separated values instead of tables");
  add_file(command, "--plot", options.plot, "Draw into this file: .svg, .png or .pdf");
  add_threads(command, options.threads, "Threads of every library");
  command->add_flag("--errors", options.errors, "Show the rounding errors of transforms too");
  command->add_flag("--quick", options.quick,
                    "Small sizes, each once: a check that all runs, no measurement");
  command->add_option("--seconds", options.seconds, "Time spent on each case")
      ->check(number([](double v) { return v >= 0.001 && v <= 600; }, "a number from 0.001 to 600"));
  command->add_option("--build", options.build, "Kernel library to run")
      ->check(CLI::IsMember({"baseline", "v3", "v4"}));
  command->add_option("--openblas-core", options.openblas_core, "Core type OpenBLAS is made to use");
}

// What is wrong with the arguments, in a line.
std::string explained(const CLI::App& app, const CLI::ParseError& e) {
  const std::vector<std::string> rest = app.remaining(true);
  if (dynamic_cast<const CLI::ExtrasError*>(&e) == nullptr || rest.empty()) return e.what();
  if (!app.get_subcommands().empty())
    return fmt::format("{}: '{}' is not expected", app.get_subcommands().front()->get_name(), rest.front());
  std::string names;
  for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; }))
    names += (names.empty() ? "" : ", ") + command->get_name();
  return fmt::format("there is no command '{}'; the commands are {}", rest.front(), names);
}

int run(int argc, char** argv) {
  CLI::App app("zor: numerical kernels with the same bits on every processor");
  app.set_version_flag("--version", "zor " ZOR_VERSION);
  app.require_subcommand(0, 1);  // an unknown one is then told by its name
  app.fallthrough();             // --quiet may stand behind a command too
  bool quiet = false;
  app.add_flag("--quiet", quiet, "Print no report; a result for '-' still goes to the standard output");
  zor_tools::matmul_options matmul;
  zor_tools::spmv_options spmv;
  zor_tools::spmm_options spmm;
  zor_tools::convert_options convert;
  zor_tools::solve_options solve;
  zor_tools::refine_options refine;
  zor_tools::transpose_options transpose;
  zor_tools::fft_options fft;
  zor_tools::convolve_options convolve;
  zor_tools::correlate_options correlate;
  zor_tools::verify_options verify;
  zor_bench::options bench;
  add_matmul(app, matmul);
  add_spmv(app, spmv);
  add_spmm(app, spmm);
  add_convert(app, convert);
  add_solve(app, solve);
  add_refine(app, refine);
  add_transpose(app, transpose);
  app.add_subcommand("info", "Tell which libraries run, and why");
  add_fft(app, fft);
  add_convolve(app, convolve);
  add_correlate(app, correlate);
  add_verify(app, verify);
  add_bench(app, bench);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    if (e.get_exit_code() == 0) return app.exit(e);
    return fail(status_bad_input, explained(app, e).c_str());
  }
  if (app.get_subcommands().empty()) {
    std::fputs(app.help().c_str(), stderr);
    return status_bad_input;
  }
  if (quiet) zor_tools::silence_reports();
  if (app.got_subcommand("matmul")) return zor_tools::matmul(matmul);
  if (app.got_subcommand("spmv")) return zor_tools::spmv(spmv);
  if (app.got_subcommand("spmm")) return zor_tools::spmm(spmm);
  if (app.got_subcommand("convert")) return zor_tools::convert(convert);
  if (app.got_subcommand("solve")) return zor_tools::solve(solve);
  if (app.got_subcommand("refine")) return zor_tools::refine(refine);
  if (app.got_subcommand("transpose")) return zor_tools::transpose(transpose);
  if (app.got_subcommand("fft")) return zor_tools::fft(fft);
  if (app.got_subcommand("convolve")) return zor_tools::convolve(convolve);
  if (app.got_subcommand("correlate")) return zor_tools::correlate(correlate);
  if (app.got_subcommand("info")) return zor_tools::info();
  if (app.got_subcommand("verify")) return zor_tools::verify(verify);
  zor_bench::choose_build(bench.build, argv);
  return zor_bench::run(bench);
}

}  // namespace

int main(int argc, char** argv) {
  zor_tools::protect_standard_streams();
  try {
    const int status = run(argc, argv);
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0)
      return fail(status_failed, "the standard output cannot be written");
    return status;
  } catch (const zor_tools::input_error& e) {
    return fail(status_bad_input, e.what());
  } catch (const std::invalid_argument& e) {
    return fail(status_bad_input, e.what());
  } catch (const std::bad_alloc&) {
    return fail(status_failed, "memory is short");
  } catch (const std::exception& e) {
    return fail(status_failed, e.what());
  }
}
