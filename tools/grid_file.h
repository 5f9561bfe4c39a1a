// SPDX-License-Identifier: MIT
// Values on a grid in a file: a Matrix Market array, comma-separated lines or a PGM image.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace zor_tools {

// Value (i, j) at values[i + width * j]; j counts upwards, so that the last line of an image is j = 0.
struct grid_values {
  int64_t width = 0, height = 0;
  std::vector<double> values;
};

// By the file's first bytes. Row i and column j of a Matrix Market array are value (i, j); an image has the
// brightness from 0 to 1; any other file is text, a line a j, from the largest j to 0, with values separated
// by commas, semicolons or blanks. All values are finite. Throws input_error.
grid_values read_grid(const std::string& file);

// Throws std::invalid_argument for a name that does not end in .mtx, .csv or .pgm and is not "-".
void check_grid_name(const std::string& name);

// The text of such a file, comma-separated for "-"; in an image the least value is black, the largest white.
std::string grid_text(const std::string& name, const grid_values& grid);

}  // namespace zor_tools
