#include "las/lasheader_io.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace veld {
namespace {
constexpr uint64_t MIN_HEADER = 227;
constexpr uint64_t MAX_RECORDS = 100000;       // VLRs and EVLRs each: a file with more is not believed
constexpr uint64_t MAX_GAP = 65536;            // bytes between VLRs and points that are carried along
constexpr uint64_t MAX_EVLR_BYTES = 1 << 20;   // an EVLR up to here is held in memory
constexpr uint64_t MAX_EVLRS_BYTES = 1 << 26;  // all of them together

struct ByteReader {
  const uint8_t* at;
  template <typename T>
  T get() {
    T value;
    std::memcpy(&value, at, sizeof value);
    at += sizeof value;
    return value;
  }
  template <size_t N>
  void text(std::array<char, N>& to) {
    std::memcpy(to.data(), at, N);
    at += N;
  }
};

struct ByteWriter {
  std::vector<uint8_t> bytes;
  template <typename T>
  void put(T value) {
    const size_t at = bytes.size();
    bytes.resize(at + sizeof value);
    std::memcpy(bytes.data() + at, &value, sizeof value);
  }
  void put_bytes(const void* from, size_t n) {
    const uint8_t* b = static_cast<const uint8_t*>(from);
    bytes.insert(bytes.end(), b, b + n);
  }
};

template <typename... Parts>
std::string join(const Parts&... parts) {
  std::string text;
  const auto add = [&text](const auto& part) {
    if constexpr (std::is_arithmetic_v<std::decay_t<decltype(part)>>)
      text += std::to_string(part);
    else
      text += part;
  };
  (add(parts), ...);
  return text;
}

// The fields that every version has. Returns the announced number of VLRs.
uint32_t read_fixed_part(ByteReader in, LASheader& h, uint8_t& format_byte) {
  in.text(h.file_signature);
  h.file_source_id = in.get<uint16_t>();
  h.global_encoding = in.get<uint16_t>();
  std::memcpy(h.guid.data(), in.at, 16);
  in.at += 16;
  h.version_major = in.get<uint8_t>();
  h.version_minor = in.get<uint8_t>();
  in.text(h.system_identifier);
  in.text(h.generating_software);
  h.creation_day = in.get<uint16_t>();
  h.creation_year = in.get<uint16_t>();
  h.header_size = in.get<uint16_t>();
  h.offset_to_point_data = in.get<uint32_t>();
  const uint32_t nvlr = in.get<uint32_t>();
  format_byte = in.get<uint8_t>();
  h.point_format = format_byte & 0x3F;
  h.point_reclen = in.get<uint16_t>();
  h.legacy_npoints = in.get<uint32_t>();
  h.npoints = h.legacy_npoints;
  for (size_t r = 0; r < 5; r++) h.npoints_by_return[r] = in.get<uint32_t>();
  for (double* v : {&h.x_scale_factor, &h.y_scale_factor, &h.z_scale_factor, &h.x_offset, &h.y_offset,
                    &h.z_offset, &h.max_x, &h.min_x, &h.max_y, &h.min_y, &h.max_z, &h.min_z})
    *v = in.get<double>();
  return nvlr;
}

void read_version_part(const uint8_t* bytes, int minor, LASheader& h) {
  ByteReader in{bytes + MIN_HEADER};
  if (minor >= 3) h.start_of_waveform = in.get<uint64_t>();
  if (minor < 4) return;
  h.start_of_first_evlr = in.get<uint64_t>();
  h.nevlr = in.get<uint32_t>();
  const uint64_t npoints = in.get<uint64_t>();
  if (npoints == 0) return;  // the legacy counts hold
  h.npoints = npoints;
  for (uint64_t& n : h.npoints_by_return) n = in.get<uint64_t>();
}

bool is_compression_record(const LAStext<16>& user_id, uint16_t record_id) {
  return record_id == LAZ_RECORD_ID && las_text(user_id) == LAZ_USER_ID;
}

bool read_vlrs(const LasInFile& file, uint32_t nvlr, LASheader& h, LasFileInfo& info, std::string& error) {
  uint64_t pos = h.header_size;
  const uint64_t end = h.offset_to_point_data;
  uint64_t n = 0;
  for (; n < std::min<uint64_t>(nvlr, MAX_RECORDS) && pos + LAS_VLR_HEADER <= end; n++) {
    uint8_t head[LAS_VLR_HEADER];
    if (!file.read_at(pos, head, sizeof head)) break;
    ByteReader in{head};
    LASvlr vlr;
    vlr.reserved = in.get<uint16_t>();
    in.text(vlr.user_id);
    vlr.record_id = in.get<uint16_t>();
    const uint16_t length = in.get<uint16_t>();
    in.text(vlr.description);
    if (pos + LAS_VLR_HEADER + length > end) break;
    vlr.data.resize(length);
    if (!file.read_at(pos + LAS_VLR_HEADER, vlr.data.data(), length)) break;
    if (is_compression_record(vlr.user_id, vlr.record_id)) {
      if (!parse_laz_vlr(vlr.data.data(), length, info.scheme, error)) return false;
      info.has_scheme = true;
      info.scheme_payload = pos + LAS_VLR_HEADER;
    } else {
      h.vlrs.push_back(std::move(vlr));
    }
    pos += LAS_VLR_HEADER + length;
  }
  if (n < nvlr)
    info.warnings.push_back(join("header announces ", nvlr, " records before the points, ", n, " are there"));
  if (pos < end && end - pos <= MAX_GAP) {
    h.user_gap.resize(end - pos);
    if (!file.read_at(pos, h.user_gap.data(), end - pos)) h.user_gap.clear();
  }
  return true;
}

// Reads one record behind the points; false when it does not lie in the file. `held`: bytes in memory so far.
bool read_evlr(const LasInFile& file, uint64_t pos, LASevlr& evlr, uint64_t& held) {
  uint8_t head[LAS_EVLR_HEADER];
  if (pos > file.size() || file.size() - pos < sizeof head || !file.read_at(pos, head, sizeof head))
    return false;
  ByteReader in{head};
  evlr.reserved = in.get<uint16_t>();
  in.text(evlr.user_id);
  evlr.record_id = in.get<uint16_t>();
  evlr.length = in.get<uint64_t>();
  in.text(evlr.description);
  const uint64_t start = pos + LAS_EVLR_HEADER;
  if (evlr.length > file.size() - start) return false;
  if (evlr.length <= MAX_EVLR_BYTES && held + evlr.length <= MAX_EVLRS_BYTES) {
    evlr.data.resize(evlr.length);
    held += evlr.length;
    return file.read_at(start, evlr.data.data(), evlr.length);
  }
  evlr.file = file.name();
  evlr.file_offset = start;
  return true;
}

void read_evlrs(const LasInFile& file, LASheader& h, LasFileInfo& info) {
  uint64_t held = 0;
  const bool internal_waves = h.start_of_waveform >= h.offset_to_point_data && h.start_of_waveform > 0;
  if (h.nevlr > 0 && h.start_of_first_evlr >= h.offset_to_point_data) {
    uint64_t pos = h.start_of_first_evlr;
    for (uint64_t i = 0; i < std::min<uint64_t>(h.nevlr, MAX_RECORDS); i++) {
      LASevlr evlr;
      if (!read_evlr(file, pos, evlr, held)) break;
      evlr.waveform = internal_waves && pos == h.start_of_waveform;
      pos += LAS_EVLR_HEADER + evlr.length;
      h.evlrs.push_back(std::move(evlr));
    }
    if (!h.evlrs.empty()) info.points_end = std::min(info.points_end, h.start_of_first_evlr);
  }
  if (h.evlrs.size() < h.nevlr)
    info.warnings.push_back(
        join("header announces ", h.nevlr, " records behind the points, ", h.evlrs.size(), " are there"));
  // In 1.3 the packets are a record that nothing but the waveform offset points at.
  LASevlr packets;
  if (las_effective_minor(h) == 3 && internal_waves && read_evlr(file, h.start_of_waveform, packets, held)) {
    packets.waveform = true;
    info.points_end = std::min(info.points_end, h.start_of_waveform);
    h.evlrs.push_back(std::move(packets));
  }
}

bool points_readable(const LASheader& h, uint8_t format_byte, const LasFileInfo& info, std::string& error) {
  if (h.point_format > LAS_MAX_FORMAT) {
    error = join("unknown point format ", int{h.point_format});
    return false;
  }
  if (h.point_reclen < las_base_length(h.point_format)) {
    error =
        join("point record length ", h.point_reclen, " is too short for point format ", int{h.point_format});
    return false;
  }
  if ((format_byte & 0xC0) && !info.has_scheme) {
    error = "points are compressed in an unknown way";
    return false;
  }
  for (double v :
       {h.x_scale_factor, h.y_scale_factor, h.z_scale_factor, h.x_offset, h.y_offset, h.z_offset}) {
    if (std::isfinite(v)) continue;
    error = "scale factor or offset is not a finite number";
    return false;
  }
  return !info.has_scheme || check_laz_scheme(info.scheme, h.point_format, h.point_reclen, error);
}

// Records whose contents are only true of the file they were read from.
bool is_bound_to_file(std::string_view user_id, uint16_t record_id) {
  return (user_id == LAZ_USER_ID && record_id == LAZ_RECORD_ID) ||
         (user_id == "copc" && (record_id == 1 || record_id == 1000)) ||
         (user_id == "LAStools" && record_id == 30);
}

constexpr char LAZ_DESCRIPTION[] = "compression of the points";

uint64_t scheme_bytes(const LASzip* scheme) {
  return scheme ? LAS_VLR_HEADER + make_laz_vlr(*scheme).size() : 0;
}
}  // namespace

int las_effective_minor(const LASheader& header) {
  if (header.short_header) return 2;
  if (header.version_major == 1) return std::min<int>(header.version_minor, 4);
  return header.header_size >= las_header_size(4) ? 4 : header.header_size >= las_header_size(3) ? 3 : 2;
}

bool las_header_sound(const LASheader& header) {
  return std::string_view(header.file_signature.data(), 4) == "LASF" && header.header_size >= MIN_HEADER &&
         header.offset_to_point_data >= header.header_size;
}

bool read_las_header(const LasInFile& file, LASheader& header, LasFileInfo& info, std::string& error) {
  uint8_t bytes[375] = {};
  const int64_t got = file.read_some(0, bytes, sizeof bytes);
  if (got < static_cast<int64_t>(MIN_HEADER)) {
    error = got < 0 ? "read error" : "file is too short for a header";
    return false;
  }
  uint8_t format_byte = 0;
  const uint32_t nvlr = read_fixed_part({bytes}, header, format_byte);
  info.sound = las_header_sound(header);
  if (!info.sound) return true;
  header.short_header =
      header.version_major == 1 && header.version_minor == 3 && header.header_size < las_header_size(3);
  const int minor = las_effective_minor(header);
  if (header.header_size < las_header_size(minor)) {
    error = join("header size ", header.header_size, " is too small for version 1.", minor);
    return false;
  }
  if (header.offset_to_point_data > file.size()) {
    error = join("offset to point data ", header.offset_to_point_data, " is beyond the end of the file (",
                 file.size(), " bytes)");
    return false;
  }
  read_version_part(bytes, minor, header);
  header.user_header.resize(header.header_size - las_header_size(minor));
  if (!file.read_at(las_header_size(minor), header.user_header.data(), header.user_header.size())) {
    error = "read error in the header";
    return false;
  }
  info.points_end = file.size();
  if (!read_vlrs(file, nvlr, header, info, error) || !points_readable(header, format_byte, info, error))
    return false;
  read_evlrs(file, header, info);
  header.compressed = info.has_scheme;
  header.read_attributes();
  return true;
}

bool prepare_las_header(LASheader& header, const LASzip* scheme, std::string& error) {
  std::erase_if(header.vlrs,
                [](const LASvlr& v) { return is_bound_to_file(las_text(v.user_id), v.record_id); });
  std::erase_if(header.evlrs,
                [](const LASevlr& v) { return is_bound_to_file(las_text(v.user_id), v.record_id); });
  const int minor = las_effective_minor(header);
  const uint64_t size = las_header_size(minor) + header.user_header.size();
  uint64_t offset = size + header.user_gap.size() + scheme_bytes(scheme);
  for (const LASvlr& vlr : header.vlrs) {
    if (vlr.data.size() > UINT16_MAX) {
      error = "a record before the points is longer than 65535 bytes";
      return false;
    }
    offset += LAS_VLR_HEADER + vlr.data.size();
  }
  if (size > UINT16_MAX || offset > UINT32_MAX) {
    error = "header and records before the points are too long";
    return false;
  }
  if (minor < 4) std::erase_if(header.evlrs, [&](const LASevlr& v) { return minor < 3 || !v.waveform; });
  header.header_size = static_cast<uint16_t>(size);
  header.offset_to_point_data = static_cast<uint32_t>(offset);
  header.nevlr = 0;
  header.start_of_first_evlr = 0;
  header.start_of_waveform = 0;
  header.compressed = scheme != nullptr;
  return true;
}

std::vector<uint8_t> las_header_bytes(const LASheader& h, bool compressed, uint32_t nvlr_more) {
  const int minor = las_effective_minor(h);
  const bool legacy = !(minor >= 4 && h.point_format >= 6) && h.npoints <= UINT32_MAX;
  ByteWriter out;
  out.put_bytes(h.file_signature.data(), 4);
  out.put(h.file_source_id);
  out.put(h.global_encoding);
  out.put_bytes(h.guid.data(), 16);
  out.put(h.version_major);
  out.put(h.version_minor);
  out.put_bytes(h.system_identifier.data(), 32);
  out.put_bytes(h.generating_software.data(), 32);
  out.put(h.creation_day);
  out.put(h.creation_year);
  out.put(h.header_size);
  out.put(h.offset_to_point_data);
  out.put(static_cast<uint32_t>(h.vlrs.size()) + nvlr_more);
  out.put(static_cast<uint8_t>(h.point_format | (compressed ? 0x80 : 0)));
  out.put(h.point_reclen);
  out.put(legacy ? static_cast<uint32_t>(h.npoints) : 0U);
  for (size_t r = 0; r < 5; r++) out.put(legacy ? static_cast<uint32_t>(h.npoints_by_return[r]) : 0U);
  for (double v : {h.x_scale_factor, h.y_scale_factor, h.z_scale_factor, h.x_offset, h.y_offset, h.z_offset,
                   h.max_x, h.min_x, h.max_y, h.min_y, h.max_z, h.min_z})
    out.put(v);
  if (minor >= 3) out.put(h.start_of_waveform);
  if (minor >= 4) {
    out.put(h.start_of_first_evlr);
    out.put(h.nevlr);
    out.put(h.npoints);
    for (uint64_t n : h.npoints_by_return) out.put(n);
  }
  out.put_bytes(h.user_header.data(), h.user_header.size());
  return out.bytes;
}

std::vector<uint8_t> las_vlr_bytes(const LASheader& header, const LASzip* scheme) {
  ByteWriter out;
  const auto put = [&out](const LASvlr& vlr) {
    out.put(vlr.reserved);
    out.put_bytes(vlr.user_id.data(), 16);
    out.put(vlr.record_id);
    out.put(static_cast<uint16_t>(vlr.data.size()));
    out.put_bytes(vlr.description.data(), 32);
    out.put_bytes(vlr.data.data(), vlr.data.size());
  };
  for (const LASvlr& vlr : header.vlrs) put(vlr);
  if (scheme) {
    LASvlr vlr;
    set_las_text(vlr.user_id, LAZ_USER_ID);
    vlr.record_id = LAZ_RECORD_ID;
    set_las_text(vlr.description, LAZ_DESCRIPTION);
    vlr.data = make_laz_vlr(*scheme);
    put(vlr);
  }
  out.put_bytes(header.user_gap.data(), header.user_gap.size());
  return out.bytes;
}

std::vector<uint8_t> las_evlr_header_bytes(const LASevlr& evlr) {
  ByteWriter out;
  out.put(evlr.reserved);
  out.put_bytes(evlr.user_id.data(), 16);
  out.put(evlr.record_id);
  out.put(evlr.length);
  out.put_bytes(evlr.description.data(), 32);
  return out.bytes;
}
}  // namespace veld
