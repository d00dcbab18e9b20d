// tests/las/laz_file.cpp
#include "tests/las/laz_file.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <fstream>
#include <iterator>
#include <random>

namespace veld {
namespace {
template <typename T>
T get(const std::vector<uint8_t>& bytes, uint64_t at) {
  T value{};
  if (at + sizeof value <= bytes.size()) std::memcpy(&value, bytes.data() + at, sizeof value);
  return value;
}

template <typename T>
void put(uint8_t* at, T value) {
  std::memcpy(at, &value, sizeof value);
}

uint32_t is_prime(uint32_t n) {
  for (uint32_t d = 2; d * d <= n; d++)
    if (n % d == 0) return 0;
  return 1;
}

bool decode_table(const LazTestFile& file, const LazChunkTable& table, std::vector<uint8_t>& records,
                  std::string& error) {
  LazDecoder decoder;
  if (!decoder.open(file.scheme, error)) return false;
  uint64_t done = 0;
  for (const LazChunk& chunk : table.chunks) {
    uint8_t* to = records.data() + chunk.first_point * file.record_length;
    const bool ok = decoder.decode_chunk(file.bytes.data() + chunk.offset, chunk.nbytes, chunk.npoints, to,
                                         chunk.npoints * file.record_length, nullptr, error);
    done += decoder.ndecoded();
    records.resize(ok ? records.size() : done * file.record_length);
    if (!ok) return false;
  }
  return done == file.npoints;
}

bool decode_stream(const LazTestFile& file, std::vector<uint8_t>& records, std::string& error) {
  uint64_t at = file.point_offset + (file.scheme.chunked() ? 8 : 0), done = 0, now = 0;
  const LazPull pull = [&](uint8_t* to, uint64_t n) {
    n = std::min(n, file.bytes.size() - at);
    std::copy_n(file.bytes.data() + at, n, to);
    at += n;
    return n;
  };
  LazStreamDecoder decoder;
  if (!decoder.open(file.scheme, pull, file.npoints, error)) return false;
  bool ok = true;
  while (ok && done < file.npoints) {  // an odd number at a time, across the chunks
    ok = decoder.decode(std::min<uint64_t>(777, file.npoints - done),
                        records.data() + done * file.record_length, now, error);
    done += now;
  }
  records.resize(done * file.record_length);
  return ok;
}
}  // namespace

std::string sha256_hex(const std::vector<uint8_t>& bytes) {
  uint32_t k[64], h[8];
  int nprimes = 0;
  for (uint32_t n = 2; nprimes < 64; n++) {  // fractional parts of roots of the first primes
    if (!is_prime(n)) continue;
    if (nprimes < 8) h[nprimes] = uint32_t(uint64_t(std::sqrt((long double)n) * 4294967296.0L));
    k[nprimes++] = uint32_t(uint64_t(std::cbrt((long double)n) * 4294967296.0L));
  }
  std::vector<uint8_t> text = bytes;
  text.push_back(0x80);
  while (text.size() % 64 != 56) text.push_back(0);
  for (int shift = 56; shift >= 0; shift -= 8) text.push_back(uint8_t(uint64_t(bytes.size()) * 8 >> shift));
  for (size_t block = 0; block < text.size(); block += 64) {
    uint32_t w[64], v[8];
    for (size_t i = 0; i < 16; i++)
      w[i] = uint32_t(text[block + 4 * i]) << 24 | uint32_t(text[block + 4 * i + 1]) << 16 |
             uint32_t(text[block + 4 * i + 2]) << 8 | text[block + 4 * i + 3];
    for (int i = 16; i < 64; i++)
      w[i] = w[i - 16] + (std::rotr(w[i - 15], 7) ^ std::rotr(w[i - 15], 18) ^ w[i - 15] >> 3) + w[i - 7] +
             (std::rotr(w[i - 2], 17) ^ std::rotr(w[i - 2], 19) ^ w[i - 2] >> 10);
    std::copy_n(h, 8, v);
    for (int i = 0; i < 64; i++) {
      const uint32_t s1 = std::rotr(v[4], 6) ^ std::rotr(v[4], 11) ^ std::rotr(v[4], 25);
      const uint32_t t1 = v[7] + s1 + ((v[4] & v[5]) ^ (~v[4] & v[6])) + k[i] + w[i];
      const uint32_t s0 = std::rotr(v[0], 2) ^ std::rotr(v[0], 13) ^ std::rotr(v[0], 22);
      const uint32_t t2 = s0 + ((v[0] & v[1]) ^ (v[0] & v[2]) ^ (v[1] & v[2]));
      std::copy_backward(v, v + 7, v + 8);
      v[4] += t1;
      v[0] = t1 + t2;
    }
    for (int i = 0; i < 8; i++) h[i] += v[i];
  }
  std::string hex;
  for (const uint32_t word : h)
    for (int shift = 28; shift >= 0; shift -= 4) hex += "0123456789abcdef"[word >> shift & 15];
  return hex;
}

std::vector<uint8_t> read_bytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

bool open_laz(std::vector<uint8_t> bytes, LazTestFile& file, std::string& error) {
  file = LazTestFile();
  file.bytes = std::move(bytes);
  const std::vector<uint8_t>& b = file.bytes;
  error = "no header";
  if (b.size() < 227) return false;
  file.point_offset = get<uint32_t>(b, 96);
  file.format = b[104] & 0x3F;
  file.record_length = get<uint16_t>(b, 105);
  file.npoints = get<uint32_t>(b, 107);
  if (b[25] >= 4 && get<uint64_t>(b, 247) != 0) file.npoints = get<uint64_t>(b, 247);
  uint64_t at = get<uint16_t>(b, 94);
  for (uint32_t i = 0; i < get<uint32_t>(b, 100) && at + 54 <= file.point_offset; i++) {
    const uint64_t nbytes = get<uint16_t>(b, at + 20);
    if (at + 54 + nbytes > b.size()) break;
    if (std::memcmp(&b[at + 2], LAZ_USER_ID, sizeof LAZ_USER_ID) == 0) {
      file.compressed = true;
      if (!parse_laz_vlr(&b[at + 54], nbytes, file.scheme, error) ||
          !check_laz_scheme(file.scheme, file.format, file.record_length, error))
        return false;
    }
    at += 54 + nbytes;
  }
  return true;
}

bool decode_file(const LazTestFile& file, std::vector<uint8_t>& records, std::string& error) {
  records.assign(file.npoints * file.record_length, 0);
  if (!file.compressed) {
    const uint64_t have = (file.bytes.size() - file.point_offset) / file.record_length;
    records.resize(std::min(have, file.npoints) * file.record_length);
    std::copy_n(file.bytes.data() + file.point_offset, records.size(), records.data());
    error = "the file is too short";
    return have >= file.npoints;
  }
  const LazReadAt read_at = [&](uint64_t offset, uint8_t* to, uint64_t n) {
    if (offset > file.bytes.size() || n > file.bytes.size() - offset) return false;
    std::copy_n(file.bytes.data() + offset, n, to);
    return true;
  };
  LazChunkTable table;
  if (file.scheme.chunked() && read_laz_chunk_table(file.scheme, read_at, file.bytes.size(),
                                                    file.point_offset, file.npoints, table, error))
    return decode_table(file, table, records, error);
  return decode_stream(file, records, error);
}

std::vector<uint8_t> made_records(int format, uint32_t nextra, uint64_t n, Flight flight, uint32_t seed) {
  static const uint32_t base[11] = {20, 28, 26, 34, 57, 63, 30, 36, 38, 59, 67};
  const uint32_t length = base[format] + nextra;
  std::mt19937 rng(seed);
  std::vector<uint8_t> records(n * length);
  if (flight == Flight::random) {
    for (uint8_t& byte : records) byte = uint8_t(rng());
    return records;
  }
  const bool extended = format >= 6;
  const auto noise = [&rng](int range) { return int(rng() % uint32_t(2 * range + 1)) - range; };
  double time = 151234567.0, angle = 0;
  uint64_t packet = 60;
  uint32_t nreturns = 1, r = 1, channel = 0;
  int scan = 1;
  for (uint64_t i = 0; i < n; i++) {
    uint8_t* p = records.data() + i * length;
    if (r >= nreturns) {  // a new pulse
      time += 0.000004;
      angle += 0.0123 * scan;
      if (angle > 25 || angle < -25) scan = -scan;
      nreturns = rng() % 4 != 0 ? 1 : 2 + rng() % 4;
      r = 1;
      if (rng() % 8 == 0) channel = rng() & 3;
    } else {
      r++;
    }
    put(p, int32_t(63701200 + std::lround(angle * 1500) + noise(20)));
    put(p + 4, int32_t(485012345 + int64_t(i / 40) + noise(15)));
    put(p + 8, int32_t(40680 - 180 * int(r) + std::lround(900 * std::sin(double(i) / 3000)) + noise(30)));
    put(p + 12, uint16_t((nreturns == 1 ? 400 : 80) + int(rng() % 150)));
    const uint8_t kind = r == nreturns && rng() % 3 != 0 ? 2 : uint8_t(3 + rng() % 3);
    if (extended) {
      p[14] = uint8_t(nreturns << 4 | r);
      p[15] = uint8_t((rng() % 50 == 0 ? 8 : 0) | channel << 4 | (scan > 0 ? 64 : 0));
      p[16] = kind;
      p[17] = uint8_t(channel);
      put(p + 18, int16_t(std::lround(angle / 0.006)));
      put(p + 20, uint16_t(117));
    } else {
      p[14] = uint8_t(std::min(nreturns, 5u) << 3 | std::min(r, 5u) | (scan > 0 ? 64 : 0));
      p[15] = kind;
      p[16] = uint8_t(std::lround(angle));
      p[17] = uint8_t(channel);
      put(p + 18, uint16_t(117));
    }
    const bool with_time = extended || format == 1 || format >= 3;
    if (with_time) put(p + (extended ? 22 : 20), time);
    static const int rgb_at[11] = {0, 0, 20, 28, 0, 28, 0, 30, 30, 0, 30};
    if (rgb_at[format] > 0) {
      const int grey = 90 + int(i / 500 % 100);
      for (int band = 0; band < 3; band++)
        put(p + rgb_at[format] + 2 * band, uint16_t((grey + 12 * band + noise(9)) << 8));
    }
    if (format == 8 || format == 10) put(p + 36, uint16_t((60 + noise(20)) << 8));
    static const int wave_at[11] = {0, 0, 0, 0, 28, 34, 0, 0, 0, 30, 38};
    if (wave_at[format] > 0) {
      uint8_t* wave = p + wave_at[format];
      const uint32_t size = r == 1 ? 128 : 64;
      wave[0] = uint8_t(1 + (nreturns > 2));
      put(wave + 1, packet);
      put(wave + 9, size);
      put(wave + 13, float(1500 + 700 * r + noise(50)));
      put(wave + 17, float(1e-4 * angle));
      put(wave + 21, 1e-5f);
      put(wave + 25, -1.5e-4f);
      if (r == nreturns) packet += rng() % 200 == 0 ? 9000000000 : size;
    }
    for (uint32_t b = 0; b < nextra; b++)
      p[base[format] + b] = b % 3 == 2 ? 7 : uint8_t(i / (9 << b % 4) + rng() % 2);
  }
  return records;
}
}  // namespace veld
