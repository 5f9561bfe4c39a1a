// SPDX-License-Identifier: MIT
// Finite operands are taken apart into integers. Product and addend are each held with their leading bit at a
// fixed place of a word of more than twice their bits; the smaller is shifted to the exponent of the larger,
// and what leaves the word below is kept as one sticky bit. A shift that loses bits is longer than the spare
// places of the word, so that a difference then loses one leading bit at most and the sticky bit stays below
// what is rounded.
#include "serv/software_fma.h"

#include <bit>
#include <cstdint>

#include "serv/control.h"

namespace zor {
namespace {

template <class R>
struct format;
template <>
struct format<float> {
  using word = uint32_t;
  using wide = uint64_t;
  static constexpr int precision = 24, bias = 127;
};
template <>
struct format<double> {
  using word = uint64_t;
  using wide = unsigned __int128;
  static constexpr int precision = 53, bias = 1023;
};

template <class R>
using word_of = typename format<R>::word;
template <class R>
using wide_of = typename format<R>::wide;

template <class R>
inline constexpr int stored = format<R>::precision - 1;  // bits of a significand in memory
template <class R>
inline constexpr int largest_field = 2 * format<R>::bias + 1;  // exponent field of infinities and NaN
// Where the leading bit of a number in hand stands: one place above it takes the carry of a sum.
template <class R>
inline constexpr int leading = int(8 * sizeof(wide_of<R>)) - 2;

template <class R>
word_of<R> magnitude_bits(R x) {
  return std::bit_cast<word_of<R>>(x) & (~word_of<R>(0) >> 1);
}
template <class R>
bool is_negative(R x) {
  return std::bit_cast<word_of<R>>(x) != magnitude_bits(x);
}
template <class R>
inline constexpr word_of<R> infinity_bits = word_of<R>(largest_field<R>) << stored<R>;
template <class R>
bool is_denormal(R x) {
  return magnitude_bits(x) != 0 && magnitude_bits(x) >> stored<R> == 0;
}

// (-1)^negative significand 2^(exponent - leading); the leading bit of a significand stands at `leading`.
template <class R>
struct unpacked {
  wide_of<R> significand;
  int exponent;
  bool negative;
};

template <class W>
int bit_count(W x) {
  if constexpr (sizeof(W) == 16) {
    const uint64_t high = uint64_t(x >> 64);
    return high != 0 ? 64 + int(std::bit_width(high)) : int(std::bit_width(uint64_t(x)));
  } else {
    return int(std::bit_width(x));
  }
}

// The magnitude of a finite number as an integer, and the exponent of its last bit.
template <class R>
struct integer {
  word_of<R> value;
  int exponent;
};
template <class R>
integer<R> integer_of(R x) {
  const word_of<R> bits = magnitude_bits(x), hidden = word_of<R>(1) << stored<R>;
  const int field = int(bits >> stored<R>);
  return {field == 0 ? bits : (bits & (hidden - 1)) | hidden,
          (field == 0 ? 1 : field) - format<R>::bias - stored<R>};
}

// value 2^exponent with the leading bit in its place; value is not 0.
template <class R>
unpacked<R> unpack(wide_of<R> value, int exponent, bool negative) {
  const int shift = leading<R> + 1 - bit_count(value);
  return {value << shift, exponent + leading<R> - shift, negative};
}

// x shifted by so many places, with a last bit of 1 for bits of 1 that are lost.
template <class W>
W shift_sticky(W x, int places) {
  if (places <= 0) return x;
  if (places >= int(8 * sizeof(W))) return x != 0;
  const W kept = x >> places;
  return kept | (kept << places != x);
}

enum class rounding { nearest, down, up, to_zero };
rounding rounding_of(control_word word) { return rounding((word & _MM_ROUND_MASK) >> 13); }

// x without its last `places` bits, rounded; x is not negative, `negative` the sign that goes with it.
template <class W>
W round_off(W x, int places, bool negative, rounding mode) {
  const W kept = x >> places, lost = x - (kept << places), half = W(1) << (places - 1);
  switch (mode) {
    case rounding::nearest:
      return kept + (lost > half || (lost == half && (kept & 1) != 0));
    case rounding::down:
      return kept + (negative && lost != 0);
    case rounding::up:
      return kept + (!negative && lost != 0);
    case rounding::to_zero:
      break;
  }
  return kept;
}

template <class R>
R packed(word_of<R> magnitude, bool negative) {
  return std::bit_cast<R>(word_of<R>(magnitude | (word_of<R>(negative) << (8 * sizeof(R) - 1))));
}

// Raises exception flags that are not raised yet.
void raise(control_word seen, control_word flags) {
  if ((seen & flags) != flags) write_control(read_control() | flags);
}

// x rounded to R under the control word, which collects the flags.
template <class R>
R round_to(unpacked<R> x, control_word word, control_word& flags) {
  constexpr int precision = format<R>::precision, excess = leading<R> + 1 - precision;
  const rounding mode = rounding_of(word);
  const word_of<R> hidden = word_of<R>(1) << stored<R>;
  const auto rounded = [&](int places) {
    const wide_of<R> result = round_off(x.significand, places, x.negative, mode);
    if (result << places != x.significand) flags |= _MM_EXCEPT_INEXACT;
    return word_of<R>(result);
  };
  // Whether a number is tiny is decided after it is rounded as if exponents had no end.
  const bool carries = bit_count(round_off(x.significand, excess, x.negative, mode)) > precision;
  const int field = x.exponent + format<R>::bias;
  if (field + carries >= 1) {
    const word_of<R> magnitude = rounded(excess) - hidden + (word_of<R>(field) << stored<R>);
    if (field < largest_field<R> && magnitude < infinity_bits<R>) return packed<R>(magnitude, x.negative);
    flags |= _MM_EXCEPT_OVERFLOW | _MM_EXCEPT_INEXACT;
    const bool infinite = mode == rounding::nearest || mode == (x.negative ? rounding::down : rounding::up);
    return packed<R>(infinity_bits<R> - !infinite, x.negative);
  }
  if ((word & _MM_FLUSH_ZERO_MASK) != 0 && (word & _MM_MASK_UNDERFLOW) != 0) {
    flags |= _MM_EXCEPT_UNDERFLOW | _MM_EXCEPT_INEXACT;
    return packed<R>(0, x.negative);
  }
  x.significand = shift_sticky(x.significand, 1 - field);
  const word_of<R> magnitude = rounded(excess);
  if ((flags & _MM_EXCEPT_INEXACT) != 0) flags |= _MM_EXCEPT_UNDERFLOW;
  return packed<R>(magnitude, x.negative);
}

// The sum of two numbers of which neither is 0.
template <class R>
R add(unpacked<R> x, unpacked<R> y, control_word word, control_word& flags) {
  if (x.exponent < y.exponent || (x.exponent == y.exponent && x.significand < y.significand)) {
    const unpacked<R> other = x;
    x = y;
    y = other;
  }
  y.significand = shift_sticky(y.significand, x.exponent - y.exponent);
  if (x.negative != y.negative) {
    if (x.significand == y.significand) return packed<R>(0, rounding_of(word) == rounding::down);
    x.significand -= y.significand;
  } else {
    x.significand += y.significand;
  }
  const int shift = leading<R> + 1 - bit_count(x.significand);
  x.significand = shift >= 0 ? x.significand << shift : shift_sticky(x.significand, -shift);
  x.exponent -= shift;
  return round_to(x, word, flags);
}

// Infinities and NaN, as the sum and the product of the hardware have them; the operations here are exact.
template <class R>
[[gnu::noinline]] R not_finite(R a, R b, R c) {
  const R operands[] = {a, b, c};
  R sum = 0;
  bool nan = false;
  for (const R x : operands)
    if (magnitude_bits(x) > infinity_bits<R>) {
      sum = sum + x;
      nan = true;
    }
  if (nan) return sum;
  if (magnitude_bits(a) == infinity_bits<R> || magnitude_bits(b) == infinity_bits<R>) {
    // An infinity less another is invalid, and no operand counts as denormal then.
    const bool negative = is_negative(a) != is_negative(b);
    if (magnitude_bits(c) == infinity_bits<R> && is_negative(c) != negative) return c - c;
    return a * b + c;
  }
  return (c + a * 0) + b * 0;
}

template <class R>
R fma(R a, R b, R c) {
  if (magnitude_bits(a) >= infinity_bits<R> || magnitude_bits(b) >= infinity_bits<R> ||
      magnitude_bits(c) >= infinity_bits<R>)
    return not_finite(a, b, c);
  const control_word word = read_control();
  const bool zeros = (word & _MM_DENORMALS_ZERO_MASK) != 0;
  const auto is_zero = [=](R x) { return magnitude_bits(x) == 0 || (zeros && is_denormal(x)); };
  // The hardware's operations round once at most here.
  if (is_zero(a) || is_zero(b)) return a * b + c;
  control_word flags = 0;
  if (!zeros && (is_denormal(a) || is_denormal(b) || is_denormal(c))) flags = _MM_EXCEPT_DENORM;
  const integer<R> ia = integer_of(a), ib = integer_of(b), ic = integer_of(c);
  const unpacked<R> product =
      unpack<R>(wide_of<R>(ia.value) * ib.value, ia.exponent + ib.exponent, is_negative(a) != is_negative(b));
  const R result = is_zero(c) ? round_to(product, word, flags)
                              : add(product, unpack<R>(ic.value, ic.exponent, is_negative(c)), word, flags);
  raise(word, flags);
  return result;
}

}  // namespace

float software_fma(float a, float b, float c) { return fma(a, b, c); }
double software_fma(double a, double b, double c) { return fma(a, b, c); }

}  // namespace zor
