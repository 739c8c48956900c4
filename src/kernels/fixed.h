// SPDX-License-Identifier: MIT
// The fixed-point formats of scaling and warping, which every build computes in.
#pragma once

namespace tavi {

constexpr int kRowBits = 6; ///< fraction of the rows between the axes: 0 to 255 << kRowBits
/// What of that fraction counts in full chroma on its way to RGB: an average of flat rows is up to 3/64 off, and is
/// to come out flat.
constexpr int kKeptBits = 3;
constexpr int kDroppedBits = kRowBits - kKeptBits;
constexpr int kBlendBits = 15;                ///< of the weights of rows, which are below one
constexpr int kTapBits = 14;                  ///< of a weight across; a column's add up to 1 << kTapBits
constexpr int kSumBits = kRowBits + kTapBits; ///< fraction of a sum of taps
constexpr int kSpanBits = 12;                 ///< of the weights at both ends of a long span
constexpr int kWarpBits = 8;                  ///< of the weights of an affine sample
constexpr int kWarpSumBits =
    2 * kWarpBits - 1;            ///< of its sum: one bit goes between the axes, so that words are signed
constexpr int kPositionBits = 16; ///< fraction of an affine position

/// What a sum of taps is shifted down by on its way to a byte, or to a word of a row.
template <class Out>
constexpr int kSumShift = sizeof(Out) == 1 ? kSumBits : kTapBits;

/// What is added before `bits` are shifted out, to round.
constexpr int half_of(int bits) { return 1 << (bits - 1); }

} // namespace tavi
