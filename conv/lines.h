// SPDX-License-Identifier: MIT
// Outputs along one dimension, each one running sum: out(i) is the sum over pairs of lines, in their order,
// and over taps j of taps[j] signal[first + i step + j], for those places of the signal that exist. Outputs
// lie in the lanes, so that no sum is regrouped whatever the vector width.
//
// Real sums start at +0 and add one product after the other, in W. Complex outputs have four such sums: re =
// (sum of tr sr) - (sum of ti si), im = (sum of tr si) + (sum of ti sr).
#pragma once

#include "conv/task.h"

namespace zor::conv {

// Element 0 of a line of taps and of the signal's line that meets it.
template <class T>
struct line_pair {
  const T* taps;
  const T* signal;
};

// Neighbouring outputs read neighbouring elements of the signal; elements that lie `step` apart, which stand
// together in the phases of a rearranged line; or elements at any stride.
enum class signal_layout { contiguous, phases, strided };

struct line_geometry {
  signal_layout layout;
  bool descending;  // taps are added from the last to the first
  zor_int taps;     // along the line
  zor_int tap_stride;
  zor_int signal;         // length of the signal's line
  zor_int signal_stride;  // strided layout
  zor_int phase_length;   // phases layout: element q step + r stands at r phase_length + q
  zor_int first, step;    // place of output 0 in the signal, and from one output to the next

  // The taps of output i that meet the signal.
  zor_int lowest(zor_int i) const {
    const zor_int k = first + step * i;
    return k < 0 ? -k : 0;
  }
  zor_int highest(zor_int i) const {
    const zor_int left = signal - 1 - first - step * i;
    return left < taps - 1 ? left : taps - 1;
  }
};

// The pairs of lines that meet in the outputs of a line: a box of lines of x with, for each, one line of y.
template <class T>
struct line_pairs {
  int dims;                  // beside the one along the lines
  zor_int shape[most_dims];  // of the box
  zor_int tap_step[most_dims], signal_step[most_dims];
  line_pair<T> at;  // the next pair
  zor_int index[most_dims];
  bool done;

  // The next pairs, at most so many, the first dimension running fastest; their number.
  int take(line_pair<T>* list, int most);
};

// Writes outputs 0 to count - 1 to z[i z_stride].
template <class T, class W>
void sum_lines(const line_geometry& g, const line_pairs<T>& pairs, zor_int count, T* z, zor_int z_stride);

}  // namespace zor::conv
