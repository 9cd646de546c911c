// SHA-256 (FIPS 180-4) of a byte string, as lower-case hex: the peer manifests identify memo
// contents and whole files by it. Small and slow enough for test data; not for anything else.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace kvd::interop {

class Sha256 {
 public:
  void Update(const void* data, std::size_t n) {
    auto p = static_cast<const unsigned char*>(data);
    total_ += n;
    while (n > 0) {
      const std::size_t take = std::min(n, block_.size() - used_);
      for (std::size_t i = 0; i < take; ++i) block_[used_ + i] = p[i];
      used_ += take;
      p += take;
      n -= take;
      if (used_ == block_.size()) {
        Compress();
        used_ = 0;
      }
    }
  }

  std::string HexDigest() {
    // Padding: a 1 bit, zeros up to 56 bytes into the block, then the length in bits, big-endian.
    const std::uint64_t bits = total_ * 8;
    const unsigned char one = 0x80;
    Update(&one, 1);
    const unsigned char zero = 0;
    while (used_ != 56) Update(&zero, 1);
    unsigned char len[8];
    for (int i = 0; i < 8; ++i) len[i] = static_cast<unsigned char>(bits >> (56 - 8 * i));
    Update(len, 8);
    static const char kHex[] = "0123456789abcdef";
    std::string out;
    for (std::uint32_t w : h_)
      for (int shift = 28; shift >= 0; shift -= 4) out += kHex[(w >> shift) & 15];
    return out;
  }

  static std::string Of(std::string_view bytes) {
    Sha256 s;
    s.Update(bytes.data(), bytes.size());
    return s.HexDigest();
  }

 private:
  static std::uint32_t Rotr(std::uint32_t x, int n) { return (x >> n) | (x << (32 - n)); }

  void Compress() {
    static constexpr std::uint32_t k[64] = {
        0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
        0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
        0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
        0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
        0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
        0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
        0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
        0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};
    std::uint32_t w[64];
    for (int t = 0; t < 16; ++t)
      w[t] = (std::uint32_t{block_[4 * t]} << 24) | (std::uint32_t{block_[4 * t + 1]} << 16) |
             (std::uint32_t{block_[4 * t + 2]} << 8) | std::uint32_t{block_[4 * t + 3]};
    for (int t = 16; t < 64; ++t) {
      const std::uint32_t s0 = Rotr(w[t - 15], 7) ^ Rotr(w[t - 15], 18) ^ (w[t - 15] >> 3);
      const std::uint32_t s1 = Rotr(w[t - 2], 17) ^ Rotr(w[t - 2], 19) ^ (w[t - 2] >> 10);
      w[t] = w[t - 16] + s0 + w[t - 7] + s1;
    }
    std::uint32_t a = h_[0], b = h_[1], c = h_[2], d = h_[3], e = h_[4], f = h_[5], g = h_[6], h = h_[7];
    for (int t = 0; t < 64; ++t) {
      const std::uint32_t t1 = h + (Rotr(e, 6) ^ Rotr(e, 11) ^ Rotr(e, 25)) + ((e & f) ^ (~e & g)) + k[t] + w[t];
      const std::uint32_t t2 = (Rotr(a, 2) ^ Rotr(a, 13) ^ Rotr(a, 22)) + ((a & b) ^ (a & c) ^ (b & c));
      h = g;
      g = f;
      f = e;
      e = d + t1;
      d = c;
      c = b;
      b = a;
      a = t1 + t2;
    }
    h_[0] += a; h_[1] += b; h_[2] += c; h_[3] += d;
    h_[4] += e; h_[5] += f; h_[6] += g; h_[7] += h;
  }

  std::array<std::uint32_t, 8> h_ = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                                     0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
  std::array<unsigned char, 64> block_{};
  std::size_t used_ = 0;      // bytes waiting in block_
  std::uint64_t total_ = 0;   // bytes hashed so far
};

}  // namespace kvd::interop
