// SPDX-License-Identifier: MIT
// Grey and colour images in files of the portable pixmap formats.
#pragma once

#include <string>
#include <vector>

namespace zor_tools {

// Values from 0 to `most`, a plane a channel, by rows.
struct image {
  int64_t rows = 0, columns = 0;
  int most = 255;
  std::vector<std::vector<double>> planes;  // 1 grey, 3 colour
};

bool is_image_file(const std::string& file);
// PGM and PPM, binary or text, up to 16 bits. Throws input_error.
image read_image(const std::string& file);
image parse_image(const std::string& file, const std::string& bytes);
// Binary PGM or PPM; values are rounded, and kept from 0 to most.
std::string image_text(const image& i);

}  // namespace zor_tools
