// SPDX-License-Identifier: MIT
// The program as a user meets it: arguments, messages, exit status, files left behind.
#include <fcntl.h>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <regex>
#include <string>
#include <vector>

#include "tests/support/operand.h"
#include "tests/tools/program.h"
#include "tools/mmio.h"

namespace {

using namespace zor_test;

const char* const array_2_by_3 = "%%MatrixMarket matrix array integer general\n2 3\n1\n2\n3\n4\n5\n6\n";
const char* const array_3_by_1 = "%%MatrixMarket matrix array integer general\n3 1\n1\n10\n100\n";

TEST(command_line, refuses_in_one_line) {
  const refused_run cases[] = {
      {"matmul a.mtx missing.mtx -o c.mtx", 2, "missing.mtx: No such file or directory"},
      {"matmul a.mtx bad.mtx -o c.mtx", 2, "bad.mtx:4: the value 'x' is not a number"},
      {"matmul short.mtx b.mtx -o c.mtx", 2, "short.mtx:3: the file ends after 1 of 2 entries"},
      {"matmul a.mtx a.mtx -o c.mtx", 2, "a.mtx:2: 2 rows do not fit the 3 columns of a.mtx"},
      {"matmul huge.mtx huge.mtx", 2,
       "huge.mtx:2: 9999999 by 9999999 elements need GIB, this machine has GIB"},
      {"matmul a.mtx b.mtx -o none/c.mtx", 1, "none/c.mtx: No such file or directory"},
      {"matmul a.mtx b.mtx -o /dev/full", 1, "/dev/full: No space left on device"},
      {"matmul a.mtx", 2, "B is required"},
      {"matmul a.mtx b.mtx --threads 0", 2, "--threads: 0 is not a whole number from 1 to 4096"},
      {"verify --family nothing", 2, "there is no family 'nothing'; the families are NAMES"},
      {"bench --family nothing --quick", 2, "there is no family 'nothing'; the families are NAMES"},
      {"bench --family pool --quick --plot p.gif", 2, "p.gif: the name of a plot ends in .svg, .png or .pdf"},
      {"bench --family pool --case nothing --quick", 2, "no case fits"},
      {"bench --case '(' --quick", 2, "--case: '(' is no regular expression"},
      {"bench --family pool --quick --seconds nan", 2, "--seconds: nan is not a number from 0.001 to 600"},
      {"bench --family pool --quick --plot none/p.svg", 1, "none/p.svg: No such file or directory"},
      {"matmul a.mtx b.mtx -o ''", 2, "--output: the name of the file is empty"},
      {"nothing", 2, "there is no command 'nothing'; the commands are NAMES"},
      {"info more", 2, "info: 'more' is not expected"},
      {"--arithmetic exact info", 2, "--arithmetic: exact not in {separate,fused}"},
      {"matmul 'a\tb\x1b.mtx' b.mtx", 2, "a\\tb\\x1b.mtx: No such file or directory"},
  };
  const scratch_folder folder;
  folder.write("a.mtx", array_2_by_3);
  folder.write("b.mtx", array_3_by_1);
  folder.write("bad.mtx", "%%MatrixMarket matrix array real general\n3 1\n1\nx\n3\n");
  folder.write("short.mtx", "%%MatrixMarket matrix array real general\n1 2\n100\n");
  folder.write("huge.mtx", "%%MatrixMarket matrix coordinate real general\n9999999 9999999 1\n1 1 1\n");
  expect_refused(folder, cases);
}

TEST(command_line, a_failed_product_leaves_the_old_file) {
  const scratch_folder folder;
  folder.write("a.mtx", array_2_by_3);
  folder.write("c.mtx", "precious");
  EXPECT_EQ(2, run(folder, "matmul a.mtx a.mtx -o c.mtx").status);
  EXPECT_EQ("precious", folder.read("c.mtx"));
}

struct product {
  const char* a;
  const char* b;
  const char* head;  // first two lines of the product's file
  std::vector<double> values;
  bool complex;
};

// Small integers: exact whatever the order of sums.
TEST(command_line, multiplies_every_kind) {
  const product cases[] = {
      {array_2_by_3,
       array_3_by_1,
       "%%MatrixMarket matrix array real general\n2 1\n",
       {1 + 30 + 500, 2 + 40 + 600},
       false},
      {"%%MatrixMarket matrix coordinate real symmetric\n2 2 2\n1 1 2\n2 1 3\n",
       "%%MatrixMarket matrix coordinate pattern general\n2 2 3\n1 1\n1 2\n2 2\n",
       "%%MatrixMarket matrix array real general\n2 2\n",
       {2, 3, 5, 3},
       false},
      {"%%MatrixMarket matrix coordinate complex hermitian\n2 2 2\n1 1 1 0\n2 1 2 1\n",
       "%%MatrixMarket matrix array real general\n2 1\n1\n10\n",
       "%%MatrixMarket matrix array complex general\n2 1\n",
       {1 + 20, -10, 2, 1},
       true},
      {"%%MatrixMarket matrix array real general\n2 0\n",
       "%%MatrixMarket matrix array real general\n0 1\n",
       "%%MatrixMarket matrix array real general\n2 1\n",
       {0, 0},
       false},
      {"%%MatrixMarket matrix array real general\n1 1\ninf\n",
       "%%MatrixMarket matrix array real general\n1 2\n0\n2\n",
       "%%MatrixMarket matrix array real general\n1 2\n",
       {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity()},
       false},
  };
  const scratch_folder folder;
  for (const product& c : cases) {
    SCOPED_TRACE(std::string(c.a) + c.b);
    folder.write("a.mtx", c.a);
    folder.write("b.mtx", c.b);
    const outcome got = good_run(folder, "matmul a.mtx b.mtx -o c.mtx");
    EXPECT_EQ("", got.err);
    EXPECT_TRUE(folder.read("c.mtx").starts_with(c.head)) << folder.read("c.mtx");
    const zor_tools::mm_matrix written = zor_tools::mm_read(folder.path("c.mtx"));
    std::vector<double> values = written.re;
    if (c.complex) {
      values.clear();
      for (size_t i = 0; i < written.re.size(); ++i)
        values.insert(values.end(), {written.re[i], written.im[i]});
    }
    ASSERT_EQ(c.values.size(), values.size());
    EXPECT_TRUE(zor_test::same_bits(c.values.data(), values.data(), values.size()));
    EXPECT_EQ(digest_of(c.values), digest_line(got.out)) << got.out;
  }
}

// A product large enough to be divided over threads: the same digest for every number of them, with and
// without a file, and the file holds the bits that were digested.
TEST(command_line, threads_and_output_leave_the_digest) {
  zor_test::random_bits random(5);
  constexpr int64_t m = 150, k = 140, n = 130;
  std::vector<double> a(size_t(m * k)), b(size_t(k * n));
  for (double& x : a) x = random.unit();
  for (double& x : b) x = random.unit();
  const scratch_folder folder;
  folder.write("a.mtx", zor_tools::mm_array_text(m, k, a.data()));
  folder.write("b.mtx", zor_tools::mm_array_text(k, n, b.data()));
  const outcome first = good_run(folder, "matmul a.mtx b.mtx -o c.mtx --threads 1");
  EXPECT_EQ(digest_of(zor_tools::mm_read(folder.path("c.mtx")).re), digest_line(first.out));
  for (const char* threads : {"2", "7"})
    EXPECT_EQ(digest_line(first.out),
              digest_line(run(folder, std::string("matmul a.mtx b.mtx --threads ") + threads).out));
}

TEST(command_line, writes_through_links_and_to_devices) {
  const scratch_folder folder;
  folder.write("a.mtx", array_2_by_3);
  folder.write("b.mtx", array_3_by_1);
  folder.write("real.mtx", "old");
  ASSERT_EQ(0, std::system(fmt::format("ln -s real.mtx '{}'", folder.path("link.mtx")).c_str()));
  good_run(folder, "matmul a.mtx b.mtx -o link.mtx");
  EXPECT_TRUE(folder.read("real.mtx").ends_with("531\n642\n")) << folder.read("real.mtx");
  EXPECT_EQ((std::set<std::string>{"a.mtx", "b.mtx", "link.mtx", "real.mtx"}), folder.names());
  for (const char* output : {"/dev/stdout", "-"}) {
    const outcome to_stream = run(folder, std::string("matmul a.mtx b.mtx -o ") + output);
    EXPECT_EQ(folder.read("real.mtx"), to_stream.out) << "the result alone";
    EXPECT_NE("none", digest_line(to_stream.err)) << "the report";
    EXPECT_EQ("", run(folder, std::string("matmul a.mtx b.mtx --quiet -o ") + output).err);
  }
  const outcome piped = run(folder, "matmul - b.mtx -o - --quiet < a.mtx");
  EXPECT_EQ(folder.read("real.mtx"), piped.out) << piped.err;
}

// What stands at the target decides: kept permissions, nothing replaced that the user could not mean.
TEST(command_line, respects_what_is_there) {
  const scratch_folder folder;
  folder.write("a.mtx", array_2_by_3);
  folder.write("b.mtx", array_3_by_1);
  const auto prepare = [&](const char* commands) {
    ASSERT_EQ(0, std::system(fmt::format("cd '{}' && {}", folder.path(""), commands).c_str()));
  };
  prepare(
      "touch group hard && chmod 640 group && ln hard other && touch locked && chmod 444 locked && ln -s "
      "none broken");
  good_run(folder, "matmul a.mtx b.mtx -o group");
  prepare("test $(stat -c %a group) = 640 && test -s group");
  const auto before = folder.names();
  for (const auto& [target, why] : {std::pair{"hard", "has other names, which would keep the old content"},
                                    {"locked", "is read-only"},
                                    {"broken", "a link to a file that is not there"}}) {
    const outcome got = run(folder, std::string("matmul a.mtx b.mtx -o ") + target);
    EXPECT_EQ(2, got.status);
    EXPECT_EQ(fmt::format("zor: {}: {}\n", target, why), got.err);
  }
  folder.write("signal.txt", "1\n2\n3\n4\n");
  const outcome twice = run(folder, "fft signal.txt -o x --filter 1 --filtered ./x");
  EXPECT_EQ(2, twice.status);
  EXPECT_EQ("zor: ./x: named for two outputs\n", twice.err);
  EXPECT_EQ("", folder.read("hard"));
  folder.remove("signal.txt");
  EXPECT_EQ(before, folder.names());
}

// Closed streams: no result becomes one of them, and a report that cannot be written is told by the status.
TEST(command_line, stands_closed_and_full_streams) {
  const scratch_folder folder;
  folder.write("a.mtx", array_2_by_3);
  folder.write("b.mtx", array_3_by_1);
  const auto status = [&](const char* arguments) {
    const int result =
        std::system(fmt::format("cd '{}' && '{}' {}", folder.path(""), ZOR_PROGRAM, arguments).c_str());
    return WIFEXITED(result) ? WEXITSTATUS(result) : -1;
  };
  ASSERT_EQ(0, status("matmul a.mtx b.mtx -o whole.mtx --quiet"));
  EXPECT_EQ(1, status("matmul a.mtx b.mtx -o c.mtx >&- 2>/dev/null"));
  EXPECT_EQ(folder.read("whole.mtx"), folder.read("c.mtx"));
  EXPECT_EQ(1, status("matmul a.mtx b.mtx -o d.mtx <&- >&- 2>&-"));
  EXPECT_EQ(folder.read("whole.mtx"), folder.read("d.mtx"));
  for (const char* arguments :
       {"--version >/dev/full 2>/dev/null", "--version >&- 2>/dev/null", "info >/dev/full 2>/dev/null",
        "matmul a.mtx b.mtx -o - >/dev/full 2>/dev/null"})
    EXPECT_EQ(1, status(arguments)) << arguments;
}

// A program that is ended while it waits for its input leaves nothing behind.
TEST(command_line, leaves_nothing_when_a_signal_ends_it) {
  const scratch_folder folder;
  const std::string pipe = folder.path("pipe");
  ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE, SIGXFSZ}) {
    const pid_t child = fork();
    if (child == 0) {
      if (chdir(folder.path("").c_str()) == 0)
        execl(ZOR_PROGRAM, "zor", "fft", "pipe", "-o", "c.csv", nullptr);
      _exit(127);
    }
    const int input = open(pipe.c_str(), O_WRONLY);  // returns when the program reads, its output being open
    EXPECT_EQ(2u, folder.names().size()) << "the file that is written, and the pipe";
    kill(child, signal);
    int status = 0;
    waitpid(child, &status, 0);
    close(input);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal) << "status " << status;
    EXPECT_EQ((std::set<std::string>{"pipe"}), folder.names()) << "signal " << signal;
  }
}

TEST(command_line, verify_tells_what_differs) {
  const scratch_folder folder;
  const outcome kept = good_run(folder, "verify --family matvec --list");
  EXPECT_TRUE(std::regex_search(kept.out, std::regex("\n[0-9a-f]{64}  zor_blas_dgemv\n"))) << kept.out;
  good_run(folder, "verify --family matvec --update .");
  EXPECT_EQ((std::set<std::string>{"matvec.txt"}), folder.names());
  for (const std::string line : {"zor_blas_xdgemv", "zor_blas_dsyr"})
    EXPECT_TRUE(
        std::regex_search(folder.read("matvec.txt"), std::regex(fmt::format("[0-9a-f]{{64}}  {}\n", line))));
}

// Reads rounding from the environment of the processor: with another rounding mode other bits come out, and
// verify says so. The mode is set in the program through the loader.
TEST(command_line, verify_fails_on_other_bits) {
  const scratch_folder folder;
  const outcome got = good_run(folder, "verify --family matvec");
  setenv("LD_PRELOAD", ZOR_OTHER_ROUNDING, 1);
  setenv("ASAN_OPTIONS", "verify_asan_link_order=0", 1);  // a checking build accepts the preload
  const outcome other = run(folder, "verify --family matvec");
  unsetenv("LD_PRELOAD");
  unsetenv("ASAN_OPTIONS");
  EXPECT_EQ(1, other.status) << other.out;
  EXPECT_TRUE(std::regex_search(
      other.err,
      std::regex("zor: verify: matvec: zor_blas_xdgemv: digest [0-9a-f]{64}, kept [0-9a-f]{64}\n")))
      << other.err;
}

TEST(command_line, tells_what_it_is) {
  const scratch_folder folder;
  EXPECT_EQ("zor 1.0.0\n", run(folder, "--version").out);
  const outcome info = good_run(folder, "info");
  for (const char* start :
       {"zor ", "kernel ", "core ", "arithmetic ", "x86-64-v3 ", "x86-64-v4 ", "threads ", "pool ", "peer"})
    EXPECT_TRUE(info.out.find(fmt::format("\n{}", start)) != std::string::npos || info.out.starts_with(start))
        << start;
  for (const char* arithmetic : {"separate", "fused"})
    EXPECT_NE(std::string::npos, run(folder, fmt::format("--arithmetic {} info", arithmetic))
                                     .out.find(fmt::format("\narithmetic  {}", arithmetic)));
}

// Every case runs once and agrees with every peer that is installed.
TEST(command_line, bench_runs_every_case) {
  const scratch_folder folder;
  const outcome table = good_run(folder, "bench --quick --threads 1");
  EXPECT_EQ("", table.err);
  for (const char* name : {"dgemm NN 100x100x100", "zgemm TT 8x8x8", "daxpy 100", "izamax 7",
                           "z32 upper lap30", "allocate and deallocate"})
    EXPECT_NE(std::string::npos, table.out.find(name)) << name;
  const outcome csv = run(folder, "bench --quick --csv --family pool");
  EXPECT_TRUE(std::regex_match(
      csv.out, std::regex("family,case,build,threads,library,[a-z_,]*\npool,allocate and deallocate 1 "
                          "MiB,[a-z0-9-]+,1,zor,.*\npool,.*,malloc,.*\n")))
      << csv.out;
  EXPECT_EQ(table.status,
            run(folder, "bench --quick --family vector --case 'd(axpy|dot)' --plot out.svg").status);
  if (std::system("command -v gnuplot >/dev/null") != 0) GTEST_SKIP() << "no gnuplot: the plot was not drawn";
  EXPECT_NE(std::string::npos, folder.read("out.svg").find("</svg>"));
}

}  // namespace
