// SPDX-License-Identifier: MIT
// Integers of any length, against the routines of libgmp itself.
#include "tests/fuzz/trial.h"
#include "tests/gmp/gmp_numbers.h"

namespace zor_fuzz {
namespace {

using zor_tools::domain;

template <class F, class G>
void integers(trial& t, F* routine, G* reference, domain allowed) {
  zor_tools::numbers source(uint64_t(t.draw("numbers", 0, INT32_MAX, 0)));
  const zor_tools::planned_call call = zor_tools::plan_call(routine, allowed, source);
  zor_tools::outcome left;
  t.call([&] { left = zor_tools::run_call<zor_mpz>(routine, call); });
  t.expect(left == zor_tools::run_call<__mpz_struct>(reference, call), "another result than libgmp's");
  t.result(left.returned);
  for (const auto& value : left.values) {
    t.result(zor_int(value.negative));
    for (const zor_limb limb : value.limbs) t.result(limb);
  }
}

#define ROW_CALL(name, gmp, result, params, allowed) \
  {#name, [](trial& t) { integers(t, name, gmp, domain::allowed); }},
const rows calls("integer", serial,
                 {
#include "zor/tables/gmp.inc"
                 });

}  // namespace
}  // namespace zor_fuzz
