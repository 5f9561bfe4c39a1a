// SPDX-License-Identifier: MIT
// Convolution and correlation of two to seven dimensions.
#include "tools/verify/conv.h"

namespace zor_tools {

void run_convnd(recorder& out) {
  // Planes whole and in pieces, either operand the larger one; every rank and way of padding.
  static const conv_shape boxes[] = {{{9, 6}, {4, 3}},
                                     {{40, 25}, {5, 4}},
                                     {{4, 2}, {30, 9}},
                                     {{7, 6, 5}, {3, 2, 4}},
                                     {{4, 5, 3, 3}, {2, 3, 2, 1}},
                                     {{3, 2, 4, 1, 3}, {2, 2, 1, 3, 2}},
                                     {{2, 3, 1, 2, 2, 2}, {2, 1, 3, 2, 1, 2}},
                                     {{2, 2, 1, 2, 2, 1, 3}, {2, 1, 2, 2, 1, 2, 1}}};
  run_conv_bodies(out, boxes);
  static const conv_shape tiled_boxes[] = {
      {{90, 70}, {30, 25}}, {{20, 18, 16}, {9, 9, 9}}, {{7, 6, 5, 4}, {8, 6, 4, 3}}};
  run_public_convs(out, "", boxes);
  run_public_convs(out, ":tiles", tiled_boxes);
}

}  // namespace zor_tools
