// SPDX-License-Identifier: MIT
// The fuzz driver. The parent starts a worker for each build of the kernel library, has all of them run the
// same seeds and compares the hashes of their results. A worker that dies is a failure of the seed at hand. A
// failing case is shrunk and printed with a command that repeats it.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <iostream>
#include <map>
#include <set>
#include <sstream>

#include "tests/fuzz/planted.h"
#include "tests/fuzz/trial.h"

namespace zor_fuzz {
namespace {

constexpr unsigned seconds_a_case = 600;
const std::string program = std::filesystem::read_symlink("/proc/self/exe");

// Rows by group, those whose name holds the filter or whose group it is. Planted faults are left out unless
// asked for.
std::vector<std::vector<const row*>> groups(const std::string& filter, bool planted_ones = false) {
  std::map<std::string, std::vector<const row*>> by_group;
  for (const row& r : all_rows()) {
    const bool planted_fault = std::strcmp(r.group, "planted") == 0;
    const bool wanted =
        std::string(r.name).find(filter) != std::string::npos || std::string(r.group) == filter;
    if (wanted && planted_fault == planted_ones) by_group[r.group].push_back(&r);
  }
  std::vector<std::vector<const row*>> list;
  for (auto& [name, members] : by_group) list.push_back(std::move(members));
  return list;
}

test_case case_of(uint64_t seed, const std::vector<std::vector<const row*>>& choice) {
  random_bits r(seed);
  const auto& group = choice[r.next() % choice.size()];
  return {group[r.next() % group.size()], seed, {}};
}

test_case parse(const std::string& text) {
  std::istringstream in(text);
  std::string word;
  in >> word;
  test_case c{nullptr, 0, {}};
  for (const row& r : all_rows())
    if (word == r.name) c.what = &r;
  if (!c.what) throw std::invalid_argument("no row is called " + word);
  while (in >> word) {
    const size_t equal = word.find('=');
    if (equal == std::string::npos) throw std::invalid_argument("not name=value: " + word);
    const std::string name = word.substr(0, equal), value = word.substr(equal + 1);
    if (name == "seed")
      c.seed = std::stoull(value);
    else
      c.draws.push_back({name, std::stoll(value), 0});
  }
  return c;
}

// A worker reads case texts, or "seeds FIRST COUNT FILTER", and answers each case with a line: hash, fault.
void work() {
  std::string line, word;
  while (std::getline(std::cin, line)) {
    std::istringstream in(line);
    uint64_t first = 0, count = 1;
    std::vector<std::vector<const row*>> choice;
    if (line.rfind("seeds ", 0) == 0) {
      in >> word >> first >> count;
      in.get();
      std::string filter;
      std::getline(in, filter);
      choice = groups(filter);
    }
    for (uint64_t seed = first; seed < first + count; ++seed) {
      alarm(seconds_a_case);
      const outcome o = run(choice.empty() ? parse(line) : case_of(seed, choice));
      std::printf("%016lx %02x %s\n", o.hash, o.flags, o.fault.c_str());
      std::fflush(stdout);
    }
    alarm(0);
  }
}

class worker {
 public:
  worker(std::string build, const std::filesystem::path& folder) : build_(std::move(build)), folder_(folder) {
    start();
  }
  worker(const worker&) = delete;
  worker& operator=(const worker&) = delete;
  ~worker() { stop(); }

  const std::string& build() const { return build_; }
  bool runs_here() const { return runs_here_; }
  void send(const std::string& line) {
    std::fputs((line + "\n").c_str(), to_);
    std::fflush(to_);
  }
  // The next answer; a fault without a hash when the worker has died, which starts another.
  outcome receive() {
    char line[1024];
    outcome o{};
    if (std::fgets(line, sizeof line, from_)) {
      char* rest;
      o.hash = std::strtoull(line, &rest, 16);
      o.flags = unsigned(std::strtoul(rest, &rest, 16));
      o.fault = rest + 1;
      o.fault.resize(o.fault.find_last_not_of('\n') + 1);
      return o;
    }
    const int status = stop();
    o.fault = WIFSIGNALED(status) ? std::string("dies: ") + strsignal(WTERMSIG(status))
                                  : "exits with status " + std::to_string(WEXITSTATUS(status));
    runs_here_ = !(WIFEXITED(status) && WEXITSTATUS(status) == 77);
    if (runs_here_) start();
    return o;
  }
  bool died(const outcome& o) const { return o.hash == 0 && !o.fault.empty(); }

 private:
  void start() {
    int to[2], from[2];
    if (pipe2(to, O_CLOEXEC) != 0 || pipe2(from, O_CLOEXEC) != 0) throw std::runtime_error("no pipes");
    pid_ = fork();
    if (pid_ == 0) {
      dup2(to[0], 0);
      dup2(from[1], 1);
      setenv("OMP_WAIT_POLICY", "passive", 1);
      execl(ZOR_TEST_RUNNER, ZOR_TEST_RUNNER, build_.c_str(), folder_.c_str(), program.c_str(), "--worker",
            nullptr);
      _exit(127);
    }
    close(to[0]);
    close(from[1]);
    to_ = fdopen(to[1], "w");
    from_ = fdopen(from[0], "r");
  }
  int stop() {
    if (!to_) return 0;
    std::fclose(to_);
    std::fclose(from_);
    to_ = nullptr;
    int status = 0;
    waitpid(pid_, &status, 0);
    return status;
  }

  std::string build_;
  std::filesystem::path folder_;
  pid_t pid_ = -1;
  FILE *to_ = nullptr, *from_ = nullptr;
  bool runs_here_ = true;
};

class driver {
 public:
  driver() {
    const auto folder = std::filesystem::path(program).parent_path().parent_path() / "builds";
    for (const char* build : {"baseline", "v3", "v4"}) {
      if (!std::filesystem::exists(folder / build)) continue;
      workers_.push_back(std::make_unique<worker>(build, folder / build));
    }
  }

  // Runs the seeds from first on. Returns those that fail, with what went wrong.
  std::map<uint64_t, std::string> seeds(uint64_t first, uint64_t count, const std::string& filter) {
    const auto request = [&](uint64_t from) {
      return "seeds " + std::to_string(from) + " " + std::to_string(first + count - from) + " " + filter;
    };
    std::map<uint64_t, std::string> faults;
    std::vector<outcome> references(count);
    const worker* reference = nullptr;
    for (auto& w : workers_) w->send(request(first));
    for (auto& w : workers_) {
      for (uint64_t seed = first; seed < first + count && w->runs_here(); ++seed) {
        const outcome o = w->receive();
        if (w->died(o) && w->runs_here() && seed + 1 < first + count) w->send(request(seed + 1));
        note(&faults[seed], o, *w, reference, &references[seed - first]);
      }
      if (w->runs_here() && !reference) reference = w.get();
    }
    std::erase_if(workers_, [](const auto& w) {
      if (!w->runs_here())
        std::printf("not run: the %s build, which this processor cannot\n", w->build().c_str());
      return !w->runs_here();
    });
    std::erase_if(faults, [](const auto& f) { return f.second.empty(); });
    return faults;
  }

  // What goes wrong with a case; empty when nothing does.
  std::string fault(const test_case& c) {
    std::string all;
    outcome first{};
    const worker* reference = nullptr;
    for (auto& w : workers_) {
      w->send(c.text());
      note(&all, w->receive(), *w, reference, &first);
      if (!reference) reference = w.get();
    }
    return all;
  }

  // The simplest case that still fails: every draw in turn goes to its simplest value, half way there, one
  // step.
  test_case shrink(test_case c) {
    c = with_all_draws(c);
    for (bool smaller = true; smaller;) {
      smaller = false;
      for (size_t i = 0; i < c.draws.size(); ++i) {
        const drawn d = c.draws[i];
        const int64_t off = d.value - d.simplest, step = off > 0 ? 1 : -1;
        for (const int64_t to :
             {d.simplest, d.simplest + step, d.simplest + 2 * step, d.simplest + 3 * step,
              d.simplest + off / 8, d.simplest + off / 2, d.value - 2 * step, d.value - step}) {
          if (std::abs(to - d.simplest) >= std::abs(off)) continue;
          test_case next = c;
          next.draws[i].value = to;
          next = with_all_draws(next);
          if (next.text() == c.text() || fault(next).empty()) continue;
          c = next;
          smaller = true;
          break;
        }
      }
    }
    return c;
  }

  // Shrinks a failure and says how to repeat it; `first` is the seed that the workers' present run began
  // with.
  void report(const test_case& c, const std::string& what, uint64_t first) {
    std::printf("FAILED seed %lu: %s\n  %s\n", c.seed, c.what->name, what.c_str());
    const test_case least = shrink(c);
    const std::string least_fault = fault(least);
    if (least_fault.empty())
      std::printf("  does not repeat by itself: %s --first %lu --count %lu\n", program.c_str(), first,
                  c.seed - first + 1);
    else
      std::printf("  smallest: %s\n  repeat: %s '%s'\n", least_fault.c_str(), program.c_str(),
                  least.text().c_str());
    std::fflush(stdout);
  }

  size_t builds() const { return workers_.size(); }

 private:
  static void note(std::string* all, const outcome& o, const worker& w, const worker* reference,
                   outcome* first) {
    if (!w.runs_here()) return;
    if (!reference) *first = o;
    const std::string difference = reference && o.fault.empty() ? o.difference(*first) : "";
    if (!o.fault.empty()) *all += "[" + w.build() + "] " + o.fault + " ";
    if (!difference.empty())
      *all += "[" + w.build() + "] " + difference + " unlike " + reference->build() + " ";
  }

  std::vector<std::unique_ptr<worker>> workers_;
};

struct options {
  uint64_t first = 1, count = 40000;
  double seconds = 0;  // more than 0: seeds from the time of day, no limit but time
  std::string filter, text;
  bool list = false, self_test = false;
};

// Finds every planted fault among the first seeds and shrinks it.
int self_test() {
  driver d;
  int missed = 0;
  for (const planted& p : planted_faults()) {
    if (p.builds > d.builds()) {
      std::printf("not tested: %s, which takes %zu builds\n", p.row, p.builds);
      continue;
    }
    const auto choice = groups(p.row, true);
    test_case c = case_of(1, choice);
    while (c.seed < 1000 && d.fault(with_all_draws(c)).empty()) c = case_of(c.seed + 1, choice);
    c = d.shrink(c);
    const std::string fault = d.fault(c), text = c.text();
    bool good = fault.find(p.fault) != std::string::npos;
    for (const auto& [name, value] : p.smallest)
      good = good && (text + " ").find(" " + name + "=" + std::to_string(value) + " ") != std::string::npos;
    std::printf("%s %s\n    %s\n", good ? "found " : "MISSED", text.c_str(), fault.c_str());
    missed += !good;
  }
  return missed > 0;
}

// A fault as others of its kind have it too.
std::string without_numbers(const std::string& fault) {
  std::string kind;
  for (const char c : fault) {
    const bool number = (c >= '0' && c <= '9') || c == '.' || c == '-' ||
                        (!kind.empty() && kind.back() == '#' && (c == 'e' || c == '+'));
    if (!number)
      kind += c;
    else if (kind.empty() || kind.back() != '#')
      kind += '#';
  }
  return kind;
}

int main_of(const options& o) {
  if (o.self_test) return self_test();
  const auto choice = groups(o.filter);
  if (choice.empty()) throw std::invalid_argument("no row is called " + o.filter);
  if (o.list) {
    for (const auto& group : choice) std::printf("%6zu  %s\n", group.size(), group[0]->group);
    return 0;
  }
  driver d;
  if (!o.text.empty()) {
    const std::string fault = d.fault(parse(o.text));
    std::puts(fault.empty() ? "passed" : fault.c_str());
    return fault.empty() ? 0 : 1;
  }
  const auto start = std::chrono::steady_clock::now();
  const auto elapsed = [&] {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  };
  constexpr uint64_t chunk = 100, enough = 300, reports = 12;
  std::map<std::string, uint64_t> failed;  // seeds by what goes wrong in which group
  uint64_t seed = o.first;
  uint64_t all = 0;
  for (; all < enough && (o.seconds > 0 ? elapsed() < o.seconds : seed < o.first + o.count); seed += chunk) {
    for (const auto& [at, what] : d.seeds(seed, chunk, o.filter)) {
      const test_case c = case_of(at, choice);
      if (failed[c.what->group + (": " + without_numbers(what))]++ == 0 && failed.size() <= reports)
        d.report(c, what, o.first);
      ++all;
    }
  }
  for (const auto& [kind, count] : failed) std::printf("%lu seed(s) of %s\n", count, kind.c_str());
  std::printf("seeds %lu to %lu on %zu build(s), %.1f s\n", o.first, seed - 1, d.builds(), elapsed());
  return failed.empty() ? 0 : 1;
}

}  // namespace
}  // namespace zor_fuzz

int main(int argc, char** argv) try {
  using namespace zor_fuzz;
  std::signal(SIGPIPE, SIG_IGN);
  if (argc == 2 && std::strcmp(argv[1], "--worker") == 0) return work(), 0;
  options o;
  CLI::App app{"Routines with drawn arguments, on all builds, on guarded memory: tests/fuzz/README.md"};
  auto* const first = app.add_option("--first", o.first, "the first seed");
  app.add_option("--count", o.count, "how many seeds");
  app.add_option("--seconds", o.seconds, "as many seeds as fit; they begin at the time of day");
  app.add_option("--only", o.filter, "rows of a group, or with a part of their name");
  app.add_flag("--list", o.list, "groups and their numbers of rows");
  app.add_flag("--self-test", o.self_test, "finds the planted faults");
  app.add_option("case", o.text, "one case: NAME seed=N and draws");
  CLI11_PARSE(app, argc, argv);
  if (o.seconds > 0 && first->count() == 0) o.first = uint64_t(std::time(nullptr)) << 20;
  return main_of(o);
} catch (const std::exception& e) {
  std::fprintf(stderr, "zor_fuzz: %s\n", e.what());
  return 2;
}
