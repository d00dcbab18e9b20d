// las/laspoint.h
// The point record: where its fields lie in each point format, and access to them on the raw bytes.
// A raw record is the record of an uncompressed LAS file: little-endian, byte-packed, point formats 0 to 10.
#pragma once
#include <cstdint>
#include <cstring>

namespace veld {
constexpr int LAS_MAX_FORMAT = 10;

// A coordinate as the integer that a file with this offset and scale stores, rounded half away from the offset. False
// beyond 32 bits.
inline bool las_to_grid(double value, double offset, double scale, int32_t& out) {
  const double q = (value - offset) / scale;
  const double r = q < 0 ? q - 0.5 : q + 0.5;
  if (!(r > -2147483649.0 && r < 2147483648.0)) return false;
  out = static_cast<int32_t>(r);
  return true;
}

// Byte offsets of a format's blocks in a record, -1 when the format lacks them.
struct LASlayout {
  int format = 0;
  int reclen = 20;        // bytes of a whole record, extra bytes included
  int base = 20;          // bytes without the extra bytes; these start here
  bool extended = false;  // formats 6 to 10
  int gps = -1;           // f64
  int rgb = -1;           // 3 x u16
  int nir = -1;           // u16
  int wave = -1;          // 29 bytes
};

// Bytes of a format's record without extra bytes; 0 for an unknown format.
int las_base_length(int format);
// Layout of a format with a record length of at least las_base_length(format). The format must be known.
LASlayout las_layout(int format, int reclen);

// A view on one raw record: it owns nothing. The record may lie in a reader's block, where it may be changed
// in place before it is written elsewhere. No accessor checks bounds or the presence of a block.
struct LASpoint {
  uint8_t* rec = nullptr;
  LASlayout lay;
  double scale[3] = {1, 1, 1};
  double offset[3] = {0, 0, 0};

  template <typename T>
  T load(int at) const {
    T value;
    std::memcpy(&value, rec + at, sizeof value);
    return value;
  }
  template <typename T>
  void store(int at, T value) {
    std::memcpy(rec + at, &value, sizeof value);
  }

  // Coordinates: integers as stored, and scaled by the header.
  int32_t X() const { return load<int32_t>(0); }
  int32_t Y() const { return load<int32_t>(4); }
  int32_t Z() const { return load<int32_t>(8); }
  void set_X(int32_t v) { store(0, v); }
  void set_Y(int32_t v) { store(4, v); }
  void set_Z(int32_t v) { store(8, v); }
  double x() const { return X() * scale[0] + offset[0]; }
  double y() const { return Y() * scale[1] + offset[1]; }
  double z() const { return Z() * scale[2] + offset[2]; }

  uint16_t intensity() const { return load<uint16_t>(12); }
  void set_intensity(uint16_t v) { store(12, v); }

  int return_number() const { return lay.extended ? rec[14] & 15 : rec[14] & 7; }
  int number_of_returns() const { return lay.extended ? rec[14] >> 4 : (rec[14] >> 3) & 7; }
  void set_returns(int r, int n) {
    rec[14] = static_cast<uint8_t>(lay.extended ? (r & 15) | (n << 4)
                                                : (rec[14] & 0xC0) | (r & 7) | ((n & 7) << 3));
  }
  int scan_direction() const { return lay.extended ? (rec[15] >> 6) & 1 : (rec[14] >> 6) & 1; }
  int edge() const { return lay.extended ? rec[15] >> 7 : rec[14] >> 7; }
  void set_scan_direction(int v) { set_bits(lay.extended ? 15 : 14, 6, 1, v); }
  void set_edge(int v) { set_bits(lay.extended ? 15 : 14, 7, 1, v); }
  int scanner_channel() const { return lay.extended ? (rec[15] >> 4) & 3 : 0; }

  // Five bits in formats 0 to 5, eight in the extended ones.
  int classification() const { return lay.extended ? rec[16] : rec[15] & 31; }
  void set_classification(int v) {
    if (lay.extended)
      rec[16] = static_cast<uint8_t>(v);
    else
      set_bits(15, 0, 31, v);
  }
  int synthetic() const { return lay.extended ? rec[15] & 1 : (rec[15] >> 5) & 1; }
  int keypoint() const { return lay.extended ? (rec[15] >> 1) & 1 : (rec[15] >> 6) & 1; }
  int withheld() const { return lay.extended ? (rec[15] >> 2) & 1 : rec[15] >> 7; }
  int overlap() const { return lay.extended ? (rec[15] >> 3) & 1 : 0; }  // no such flag in formats 0 to 5
  void set_withheld(int v) { set_bits(15, lay.extended ? 2 : 7, 1, v); }

  // As stored: degrees in formats 0 to 5 (8 bits, cut when set), units of 0.006 degree in the extended ones.
  int scan_angle() const { return lay.extended ? load<int16_t>(18) : load<int8_t>(16); }
  void set_scan_angle(int v) {
    if (lay.extended)
      store(18, static_cast<int16_t>(v));
    else
      store(16, static_cast<int8_t>(v));
  }
  static constexpr float EXTENDED_ANGLE_UNIT = 0.006F;
  float scan_angle_deg() const {
    return static_cast<float>(scan_angle()) * (lay.extended ? EXTENDED_ANGLE_UNIT : 1.F);
  }

  uint8_t user_data() const { return rec[17]; }
  void set_user_data(uint8_t v) { rec[17] = v; }
  uint16_t point_source_id() const { return load<uint16_t>(lay.extended ? 20 : 18); }
  void set_point_source_id(uint16_t v) { store(lay.extended ? 20 : 18, v); }

  double gps_time() const { return lay.gps >= 0 ? load<double>(lay.gps) : 0.; }
  void set_gps_time(double v) {
    if (lay.gps >= 0) store(lay.gps, v);
  }
  bool has_rgb() const { return lay.rgb >= 0; }
  uint16_t rgb(int i) const { return load<uint16_t>(lay.rgb + 2 * i); }
  void set_rgb(int i, uint16_t v) { store(lay.rgb + 2 * i, v); }
  uint16_t nir() const { return load<uint16_t>(lay.nir); }
  const uint8_t* wave() const { return rec + lay.wave; }

  int nextra() const { return lay.reclen - lay.base; }
  const uint8_t* extra() const { return rec + lay.base; }
  uint8_t* extra() { return rec + lay.base; }

 private:
  void set_bits(int at, int shift, int mask, int v) {
    rec[at] = static_cast<uint8_t>((rec[at] & ~(mask << shift)) | ((v & mask) << shift));
  }
};
}  // namespace veld
