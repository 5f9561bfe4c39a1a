// SPDX-License-Identifier: MIT
// The subcommands of the program. Each returns the exit status: 0 done, 1 failed or different, 2 bad input.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace zor_tools {

struct matmul_options {
  std::string a;
  std::string b;
  std::string output;  // empty: the product is not written
  int32_t threads = 0;
};
int matmul(const matmul_options& options);

struct spmv_options {
  std::string a;
  std::string x;               // empty: ones
  std::string output;          // empty: the product is not written
  std::string format = "csr";  // csr, coo, dia, bsr or sky
  int64_t block = 4;           // order of the blocks of bsr
  bool tune = false;           // all formats are timed
  bool wide = false;           // 64-bit indices, whatever the size
  int32_t threads = 0;
};
int spmv(const spmv_options& options);

struct spmm_options {
  std::string a;
  std::string b;
  std::string output;  // empty: the product is not written
  bool wide = false;   // 64-bit indices, whatever the size
  int32_t threads = 0;
};
int spmm(const spmm_options& options);

struct convert_options {
  std::string a;
  std::string format;  // csr, coo, dia, bsr or sky
  std::string output;  // empty: the matrix is not written
  int64_t block = 4;   // order of the blocks of bsr
  bool wide = false;   // 64-bit indices, whatever the size
  int32_t threads = 0;
};
int convert(const convert_options& options);

struct solve_options {
  std::string a;
  std::string b;                        // empty: A times ones
  std::string output;                   // empty: the solution is not written
  std::string plot;                     // SVG file of the residuals; empty: none
  std::string method = "cg";            // or bicgstab, gmres
  std::string preconditioner = "none";  // or gauss-seidel, block-gauss-seidel
  int64_t block = 4;                    // order of the blocks
  int64_t restart = 50;                 // directions that gmres keeps
  double tolerance = 1e-10;             // of the residual over the right-hand side
  int64_t iterations = 0;               // at most; 0: twice the rows and 100 more
  int64_t every = 10;                   // iterations from one line to the next
  bool wide = false;                    // 64-bit indices, whatever the size
  int32_t threads = 0;
};
int solve(const solve_options& options);

struct refine_options {
  std::string a;
  std::string b;
  std::string output;  // empty: the solution is not written
  int32_t threads = 0;
};
int refine(const refine_options& options);

struct transpose_options {
  std::string a;
  std::string output;   // empty: the result is not written
  std::string scratch;  // folder for the array; empty: memory, beyond half of it the folder of the output
  bool conjugate = false;
  int32_t threads = 0;
};
int transpose(const transpose_options& options);

int info();

struct fft_options {
  std::string input;     // WAV, text or CSV
  int32_t column = 1;    // channel of a WAV file, column of text
  double rate = 1;       // samples a second of text
  std::string output;    // CSV file of the spectrum; empty: none
  std::string plot;      // SVG file; empty: none
  double highest = 0;    // the filter keeps frequencies up to this one
  std::string filtered;  // file of the filtered signal, WAV when it ends in .wav; empty: no filter
  int32_t threads = 0;
};
int fft(const fft_options& options);

struct convolve_options {
  std::string input;   // a WAV recording, or a PGM or PPM image
  std::string kernel;  // an impulse response; of an image gauss, sobel or a file of numbers
  std::string output;
  double sigma = 1.5;  // of gauss
  double gain = 1;     // factor of the result
  int32_t threads = 0;
};
int convolve(const convolve_options& options);

struct correlate_options {
  std::string pattern;  // an image or a signal
  std::string input;    // what is searched, of the same kind
  std::string plot;     // empty: none
  int32_t column = 1;   // channel of a WAV file, column of text
  int32_t threads = 0;
};
int correlate(const correlate_options& options);

struct poisson_options {
  std::string problem;
  std::string output;  // .mtx, .csv or .pgm; empty: the solution is not written
  std::string plot;    // a heat map and a cut; empty: none
  bool study = false;  // the order of convergence instead of a problem
  int32_t threads = 0;
};
int poisson(const poisson_options& options);

struct trig_options {
  std::string kind;    // dst1, dct1, dct2, dct3, dst2, dst3, dct4, dst4
  std::string input;   // WAV, text or CSV
  int32_t column = 1;  // channel of a WAV file, column of text
  double scale = 1;    // factor of the results
  std::string output;  // a value a line; empty: not written
};
int trig(const trig_options& options);

struct verify_options {
  bool list = false;
  std::vector<std::string> families;  // empty: all
  int32_t threads = 0;
  std::string update;  // a folder to write the digests into, instead of comparing
};
int verify(const verify_options& options);

}  // namespace zor_tools
