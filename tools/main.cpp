// SPDX-License-Identifier: MIT
// The command line of the program: subcommands, their options, and how a run ends.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <functional>
#include <memory>
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

void add_threads_at_most(CLI::App* command, int32_t& threads) {
  add_threads(command, threads, "Threads at most");
}
void add_wide_indices(CLI::App* command, bool& wide) {
  command->add_flag("--wide-indices", wide, "64-bit indices even where 32 bits serve; the same result");
}
// A file for what the command makes.
CLI::Option* add_output(CLI::App* command, std::string& file, const std::string& what) {
  return add_file(command, "-o,--output", file, (what + "; - is the standard output").c_str());
}

void describe_matmul(CLI::App* command, zor_tools::matmul_options& options) {
  add_file(command, "A", options.a, "Left factor")->required();
  add_file(command, "B", options.b, "Right factor")->required();
  add_output(command, options.output, "File for the product; appears whole or not at all");
  add_threads_at_most(command, options.threads);
}

void describe_spmv(CLI::App* command, zor_tools::spmv_options& options) {
  add_file(command, "A", options.a, "Matrix")->required();
  add_file(command, "x", options.x, "Vectors, as columns of a matrix; ones when left out");
  add_output(command, options.output, "File for the product; appears whole or not at all");
  command->add_option("--format", options.format, "Storage format of the product: csr, coo, dia, bsr or sky")
      ->check(CLI::IsMember({"csr", "coo", "dia", "bsr", "sky"}));
  command->add_option("--block", options.block, "Order of the blocks of bsr")->check(whole(1, 1024));
  command->add_flag("--tune", options.tune, "Time all formats and tell which is fastest for this matrix");
  add_wide_indices(command, options.wide);
  add_threads_at_most(command, options.threads);
}

void describe_spmm(CLI::App* command, zor_tools::spmm_options& options) {
  add_file(command, "A", options.a, "Left factor")->required();
  add_file(command, "B", options.b, "Right factor")->required();
  add_output(command, options.output, "Coordinate file for the product; appears whole or not at all");
  add_wide_indices(command, options.wide);
  add_threads_at_most(command, options.threads);
}

void describe_convert(CLI::App* command, zor_tools::convert_options& options) {
  add_file(command, "A", options.a, "Matrix Market file of the matrix")->required();
  command->add_option("--format", options.format, "csr, coo, dia, bsr or sky")
      ->required()
      ->check(CLI::IsMember({"csr", "coo", "dia", "bsr", "sky"}));
  command->add_option("--block", options.block, "Order of the blocks of bsr")->check(whole(1, 1024));
  add_output(command, options.output, "Coordinate file of the matrix as the format holds it");
  add_wide_indices(command, options.wide);
  add_threads_at_most(command, options.threads);
}

void describe_solve(CLI::App* command, zor_tools::solve_options& options) {
  add_file(command, "A", options.a, "Matrix Market file of the matrix")->required();
  add_file(command, "b", options.b, "Right-hand sides, as columns of a matrix; A times ones when left out");
  add_output(command, options.output, "File for the solution; appears whole or not at all");
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
  add_wide_indices(command, options.wide);
  add_threads_at_most(command, options.threads);
}

void describe_refine(CLI::App* command, zor_tools::refine_options& options) {
  add_file(command, "A", options.a, "Matrix Market file of the matrix")->required();
  add_file(command, "b", options.b, "Right-hand sides, as columns of a matrix")->required();
  add_output(command, options.output, "File for the solution; appears whole or not at all");
  add_threads_at_most(command, options.threads);
}

void describe_transpose(CLI::App* command, zor_tools::transpose_options& options) {
  add_file(command, "A", options.a, "Matrix")->required();
  add_output(command, options.output, "File for the transpose; appears whole or not at all");
  command->add_flag("--conjugate", options.conjugate, "Take the conjugate of every element too");
  add_file(command, "--scratch", options.scratch,
           "Folder for the working copy, which is memory while it fits there");
  add_threads_at_most(command, options.threads);
}

void describe_fft(CLI::App* command, zor_tools::fft_options& options) {
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
  add_threads_at_most(command, options.threads);
}

void describe_convolve(CLI::App* command, zor_tools::convolve_options& options) {
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
  add_threads_at_most(command, options.threads);
}

void describe_correlate(CLI::App* command, zor_tools::correlate_options& options) {
  add_file(command, "TEMPLATE", options.pattern, "PGM or PPM image, WAV, text or CSV file")->required();
  add_file(command, "FILE", options.input, "What is searched, of the same kind")->required();
  command->add_option("--column", options.column, "Channel or column, from 1")->check(whole(1, 65535));
  add_file(command, "--plot", options.plot, "Draw into this file: .svg, .png or .pdf");
  add_threads_at_most(command, options.threads);
}

void describe_poisson(CLI::App* command, zor_tools::poisson_options& options) {
  CLI::Option* problem = add_file(command, "PROBLEM", options.problem, "Problem file");
  CLI::Option* output =
      add_file(command, "-o,--output", options.output,
               "File for the solution: .mtx, .csv or .pgm; - is the standard output, comma-separated");
  CLI::Option* plot = add_file(command, "--plot", options.plot,
                               "Draw the solution and a cut into this file: .svg, .png or .pdf");
  CLI::Option* study =
      command->add_flag("--study", options.study, "Print the order of convergence on finer and finer grids");
  command->callback([=] {
    if (problem->count() + study->count() == 0) throw CLI::RequiredError("PROBLEM or --study");
    if (study->count() > 0 && problem->count() + output->count() + plot->count() > 0)
      throw CLI::ParseError("--study has a problem of its own and writes no file", 2);
  });
  add_threads_at_most(command, options.threads);
}

void describe_trig(CLI::App* command, zor_tools::trig_options& options) {
  command->add_option("KIND", options.kind, "dct1 to dct4 or dst1 to dst4")
      ->required()
      ->check(CLI::IsMember({"dst1", "dct1", "dct2", "dct3", "dst2", "dst3", "dct4", "dst4"}));
  add_file(command, "FILE", options.input, "WAV, text or CSV file")->required();
  command->add_option("--column", options.column, "Channel or column, from 1")->check(whole(1, 65535));
  command->add_option("--scale", options.scale, "Factor of the results")
      ->check(number([](double v) { return std::isfinite(v); }, "a finite number"));
  add_file(command, "-o,--output", options.output,
           "File for the result, a value a line; - is the standard output");
}

void describe_verify(CLI::App* command, zor_tools::verify_options& options) {
  command->add_flag("--list", options.list, "Print the digest of every name");
  command->add_option("--family", options.families, "Only this family; may be repeated");
  add_threads_at_most(command, options.threads);
  command->add_option("--update", options.update, "Write the digests into this folder instead of comparing")
      ->check(CLI::ExistingDirectory);
}

void describe_bench(CLI::App* command, zor_bench::options& options) {
  command->add_option("--family", options.families,
                      "One of " + zor_bench::family_names() + "; may be repeated");
  command->add_option("--case", options.filter,
                      "Only cases whose name has a match of this regular expression");
  command->add_flag("--csv", options.csv, "Print comma-separated values instead of tables");
  add_file(command, "--plot", options.plot, "Draw into this file: .svg, .png or .pdf");
  add_threads(command, options.threads, "Threads of every library");
  command->add_flag("--full", options.full, "The largest sizes in every form too, which takes longer");
  command->add_flag("--errors", options.errors, "Show the rounding errors of transforms too");
  command->add_flag("--quick", options.quick,
                    "Small sizes, each once: a check that all runs, no measurement");
  command->add_option("--seconds", options.seconds, "Time spent on each case")
      ->check(number([](double v) { return v >= 0.001 && v <= 600; }, "a number from 0.001 to 600"));
  command->add_option("--build", options.build, "Kernel library to run")
      ->check(CLI::IsMember({"baseline", "v3", "v4"}));
  command->add_option("--openblas-core", options.openblas_core, "Core type OpenBLAS is made to use");
}

struct nothing {};
void describe_nothing(CLI::App*, nothing&) {}

struct command {
  const CLI::App* app;
  std::function<int()> run;
};

// A subcommand with options of its own, which describe() tells the parser.
template <class Options, class Run>
command add(CLI::App& app, const char* name, const char* help, void (*describe)(CLI::App*, Options&),
            const Run& run) {
  CLI::App* const added = app.add_subcommand(name, help);
  const auto options = std::make_shared<Options>();
  describe(added, *options);
  return {added, [=] { return run(*options); }};
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
  std::string arithmetic;
  app.add_option("--arithmetic", arithmetic, "separate or fused: how products join sums; docs/numerics.md")
      ->check(CLI::IsMember({"separate", "fused"}));
  app.add_flag("--quiet", quiet, "Print no report; a result for '-' still goes to the standard output");
  const command commands[] = {
      add(app, "matmul", "Multiply two matrices in Matrix Market files", describe_matmul, zor_tools::matmul),
      add(app, "spmv", "Multiply a sparse matrix in a Matrix Market file by vectors", describe_spmv,
          zor_tools::spmv),
      add(app, "spmm", "Multiply two sparse matrices in Matrix Market files", describe_spmm, zor_tools::spmm),
      add(app, "convert", "Tell what a sparse matrix needs in a storage format", describe_convert,
          zor_tools::convert),
      add(app, "solve", "Solve A x = b: symmetric positive definite by cg, others by bicgstab or gmres",
          describe_solve, zor_tools::solve),
      add(app, "refine", "Solve A x = b to the last digit, and bound the error before and after",
          describe_refine, zor_tools::refine),
      add(app, "transpose", "Transpose a matrix in a Matrix Market array file", describe_transpose,
          zor_tools::transpose),
      add(app, "info", "Tell which libraries run, and why", describe_nothing,
          [](const nothing&) { return zor_tools::info(); }),
      add(app, "fft", "Spectrum of a recording or of a column of numbers", describe_fft, zor_tools::fft),
      add(app, "convolve", "Put a recording through an impulse response, or an image through a kernel",
          describe_convolve, zor_tools::convolve),
      add(app, "correlate", "Find a template in a signal or an image", describe_correlate,
          zor_tools::correlate),
      add(app, "poisson", "Solve -div grad u + q u = f on a rectangle or a box with a uniform grid",
          describe_poisson, zor_tools::poisson),
      add(app, "trig", "Sine or cosine transform of a column of numbers", describe_trig, zor_tools::trig),
      add(app, "verify", "Compare the bits of every routine with the kept digests", describe_verify,
          zor_tools::verify),
      add(app, "bench", "Measure speed side by side with other libraries", describe_bench, zor_bench::run)};
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
  const CLI::Option* const build = app.get_subcommand("bench")->get_option("--build");
  zor_bench::choose_kernel(arithmetic, build->count() > 0 ? build->as<std::string>() : "", argv);
  if (quiet) zor_tools::silence_reports();
  for (const command& c : commands)
    if (c.app->parsed()) return c.run();
  return status_failed;
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
