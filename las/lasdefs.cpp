#include "las/lasdefs.h"

#include <algorithm>

#include "lib/general/assert_fail.h"

namespace veld {
namespace {
constexpr int BASE_LENGTH[LAS_MAX_FORMAT + 1] = {20, 28, 26, 34, 57, 63, 30, 36, 38, 59, 67};
constexpr int DESCRIPTOR = 192;  // bytes of an extra-byte descriptor
constexpr uint8_t HAS_SCALE = 8, HAS_OFFSET = 16;

int attribute_size(uint8_t type, uint8_t options) {
  static constexpr int SIZE[10] = {1, 1, 2, 2, 4, 4, 8, 8, 4, 8};
  if (type == 0) return options;
  if (type > 30) return 0;
  return SIZE[(type - 1) % 10] * ((type - 1) / 10 + 1);
}

template <typename T>
T load(const uint8_t* from) {
  T value;
  std::memcpy(&value, from, sizeof value);
  return value;
}

bool is_record(std::string_view user_id, uint16_t record_id, const LAStext<16>& user, uint16_t record) {
  return record_id == record && las_text(user) == user_id.substr(0, 16);
}

std::string text_of(const std::vector<uint8_t>& data) {
  const std::string all(data.begin(), data.end());
  return all.substr(0, all.find('\0'));
}
}  // namespace

int las_base_length(int format) { return format >= 0 && format <= LAS_MAX_FORMAT ? BASE_LENGTH[format] : 0; }

LASlayout las_layout(int format, int reclen) {
  ASSERT(format >= 0 && format <= LAS_MAX_FORMAT);
  ASSERT(reclen >= BASE_LENGTH[format]);
  LASlayout lay;
  lay.format = format;
  lay.reclen = reclen;
  lay.base = BASE_LENGTH[format];
  lay.extended = format >= 6;
  int at = lay.extended ? 30 : 20;
  if (lay.extended) lay.gps = 22;
  const auto block = [&](bool present, int size) {
    if (!present) return -1;
    const int here = at;
    at += size;
    return here;
  };
  const auto any = [&](std::initializer_list<int> formats) {
    return std::find(formats.begin(), formats.end(), format) != formats.end();
  };
  if (any({1, 3, 4, 5})) lay.gps = block(true, 8);
  lay.rgb = block(any({2, 3, 5, 7, 8, 10}), 6);
  lay.nir = block(any({8, 10}), 2);
  lay.wave = block(any({4, 5, 9, 10}), 29);
  return lay;
}

uint16_t las_header_size(int minor) { return minor >= 4 ? 375 : minor == 3 ? 235 : 227; }

LASpoint LASheader::point() const {
  LASpoint p;
  p.lay = layout();
  p.scale[0] = x_scale_factor, p.scale[1] = y_scale_factor, p.scale[2] = z_scale_factor;
  p.offset[0] = x_offset, p.offset[1] = y_offset, p.offset[2] = z_offset;
  return p;
}

const LASvlr* LASheader::find_vlr(std::string_view user_id, uint16_t record_id) const {
  for (const LASvlr& vlr : vlrs)
    if (is_record(user_id, record_id, vlr.user_id, vlr.record_id)) return &vlr;
  return nullptr;
}

std::string LASheader::wkt() const {
  // Files from before the record was standardised carry it under the name of the library that wrote them.
  for (const char* user_id : {"LASF_Projection", "liblas"})
    if (const LASvlr* vlr = find_vlr(user_id, 2112)) {
      const std::string text = text_of(vlr->data);
      if (!text.empty()) return text;
    }
  for (const LASevlr& evlr : evlrs)
    if (is_record("LASF_Projection", 2112, evlr.user_id, evlr.record_id)) return text_of(evlr.data);
  return {};
}

const LASattribute* LASheader::find_attribute(std::string_view name) const {
  for (const LASattribute& attribute : attributes)
    if (las_text(attribute.name) == name) return &attribute;
  return nullptr;
}

bool LASheader::add_vlr(std::string_view user_id, uint16_t record_id, const void* data, size_t nbytes,
                        std::string_view text) {
  nbytes = std::min<size_t>(nbytes, UINT16_MAX);
  const uint8_t* bytes = static_cast<const uint8_t*>(data);
  LASvlr* old = const_cast<LASvlr*>(find_vlr(user_id, record_id));
  const int64_t growth = static_cast<int64_t>(nbytes) +
                         (old ? -static_cast<int64_t>(old->data.size()) : int64_t{LAS_VLR_HEADER});
  const int64_t offset = offset_to_point_data + growth;
  if (offset > UINT32_MAX) return false;
  if (!old) {
    old = &vlrs.emplace_back();
    set_las_text(old->user_id, user_id);
    old->record_id = record_id;
    if (text.empty()) text = "by LAStools of rapidlasso GmbH";
    set_las_text(old->description, text.substr(0, 31));
  }
  old->data.assign(bytes, bytes + nbytes);
  offset_to_point_data = static_cast<uint32_t>(offset);
  return true;
}

void LASheader::remove_vlr(std::string_view user_id, uint16_t record_id) {
  const LASvlr* const vlr = find_vlr(user_id, record_id);
  if (!vlr) return;
  offset_to_point_data -= static_cast<uint32_t>(LAS_VLR_HEADER + vlr->data.size());
  vlrs.erase(vlrs.begin() + (vlr - vlrs.data()));
}

void LASheader::read_attributes() {
  attributes.clear();
  const int nextra = nextra_bytes();
  int start = 0;
  for (const LASvlr& vlr : vlrs) {
    if (!is_record("LASF_Spec", 4, vlr.user_id, vlr.record_id)) continue;
    for (size_t at = 0; at + DESCRIPTOR <= vlr.data.size(); at += DESCRIPTOR) {
      const uint8_t* d = vlr.data.data() + at;
      LASattribute a;
      a.data_type = d[2];
      a.options = d[3];
      std::memcpy(a.name.data(), d + 4, 32);
      std::memcpy(a.description.data(), d + 160, 32);
      if (a.data_type != 0 && (a.options & HAS_SCALE)) a.scale = load<double>(d + 112);
      if (a.data_type != 0 && (a.options & HAS_OFFSET)) a.offset = load<double>(d + 136);
      a.start = start;
      a.size = attribute_size(a.data_type, a.options);
      if (a.size == 0 || start + a.size > nextra) return;  // what follows can't be placed
      start += a.size;
      attributes.push_back(a);
    }
  }
}

void LASheader::clear_inventory() {
  npoints = 0;
  legacy_npoints = 0;
  npoints_by_return.fill(0);
  min_x = max_x = min_y = max_y = min_z = max_z = 0;
  start_of_waveform = start_of_first_evlr = 0;
}

void LASinventory::add(const LASlayout& layout, const uint8_t* records, uint64_t n) {
  int32_t lo[3] = {min[0], min[1], min[2]}, hi[3] = {max[0], max[1], max[2]};
  uint64_t count[16] = {};
  const int mask = layout.extended ? 15 : 7;
  for (uint64_t i = 0; i < n; i++, records += layout.reclen) {
    for (int axis = 0; axis < 3; axis++) {
      const int32_t v = load<int32_t>(records + 4 * axis);
      lo[axis] = std::min(lo[axis], v);
      hi[axis] = std::max(hi[axis], v);
    }
    count[records[14] & mask]++;
  }
  for (int axis = 0; axis < 3; axis++) min[axis] = lo[axis], max[axis] = hi[axis];
  for (int r = 0; r < 16; r++) by_return[static_cast<size_t>(r)] += count[r];
  npoints += n;
}

void LASinventory::to_header(LASheader& header) const {
  header.npoints = npoints;
  for (size_t r = 0; r < 15; r++) header.npoints_by_return[r] = by_return[r + 1];
  const double scale[3] = {header.x_scale_factor, header.y_scale_factor, header.z_scale_factor};
  const double offset[3] = {header.x_offset, header.y_offset, header.z_offset};
  double* lo[3] = {&header.min_x, &header.min_y, &header.min_z};
  double* hi[3] = {&header.max_x, &header.max_y, &header.max_z};
  for (int axis = 0; axis < 3; axis++) {
    const double a = npoints ? min[axis] * scale[axis] + offset[axis] : 0;
    const double b = npoints ? max[axis] * scale[axis] + offset[axis] : 0;
    *lo[axis] = std::min(a, b);  // a negative scale turns the range round
    *hi[axis] = std::max(a, b);
  }
}
}  // namespace veld
