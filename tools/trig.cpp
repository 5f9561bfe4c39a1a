// SPDX-License-Identifier: MIT
// A sine or cosine transform of a column of numbers.
#include "zor/trig.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <new>
#include <optional>
#include <stdexcept>

#include "tools/closing_lines.h"
#include "tools/commands.h"
#include "tools/mmio.h"
#include "tools/output_file.h"
#include "tools/signal.h"

namespace zor_tools {

int trig(const trig_options& options) {
  constexpr const char* kinds[] = {"dst1", "dct1", "dct2", "dct3", "dst2", "dst3", "dct4", "dst4"};
  const auto* const kind = std::find(std::begin(kinds), std::end(kinds), options.kind);
  std::optional<output_file> output;
  if (!options.output.empty()) output.emplace(options.output);
  std::vector<double> x = read_signal(options.input, options.column, 1).samples;
  zor_trig* t = nullptr;
  zor_int status = zor_trig_create_d(&t, ZOR_DST1 + (kind - kinds), zor_int(x.size()));
  if (status == -3)
    throw input_error(options.input, fmt::format("{} values are too few for {}", x.size(), options.kind));
  const auto start = std::chrono::steady_clock::now();
  if (status == ZOR_TRIG_OK) status = zor_trig_run_d(t, x.data(), 1, 1, 0, options.scale);
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  zor_trig_free(&t);
  if (status == ZOR_TRIG_NO_MEMORY) throw std::bad_alloc();
  if (status != ZOR_TRIG_OK) throw std::runtime_error(zor_trig_text(status));
  if (output) {
    std::string text;
    for (const double v : x) {
      mm_put_value(text, v);
      text += '\n';
    }
    output->commit(text);
  }
  fmt::print("transform   {} of {} values, times {:g}\n", options.kind, x.size(), options.scale);
  fmt::print("time        {:.6f} s\n", seconds);
  digest sum;
  sum.add(x.data(), x.size());
  print_digest(sum);
  return 0;
}

}  // namespace zor_tools
