// SPDX-License-Identifier: MIT
#include "tools/verify/battery.h"

namespace zor_tools {

void recorder::close() {
  if (open_) rows_.back().digest = digest_.take();
  open_ = false;
}

bool recorder::begin(const char* name) {
  close();
  if (std::any_of(rows_.begin(), rows_.end(), [&](const row& r) { return r.name == name; })) return false;
  rows_.push_back({name, ""});
  open_ = true;
  return true;
}

std::vector<recorder::row> recorder::take() {
  close();
  return std::move(rows_);
}

}  // namespace zor_tools
