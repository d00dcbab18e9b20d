// las/laz_scheme.cpp
#include "las/laz_scheme.h"

#include <cstring>

namespace veld {
namespace {
constexpr uint64_t FIXED_BYTES = 34;  // of the payload, in front of the items
constexpr uint64_t ITEM_BYTES = 6;

struct ItemRule {
  LazType type;
  const char* name;
  uint16_t size;  // 0: any size from 1 on
  uint16_t first_version, last_version;
  bool layered;
};
const ItemRule rules[] = {
    {LazType::byte, "BYTE", 0, 1, 2, false},
    {LazType::point10, "POINT10", 20, 1, 2, false},
    {LazType::gpstime11, "GPSTIME11", 8, 1, 2, false},
    {LazType::rgb12, "RGB12", 6, 1, 2, false},
    {LazType::wavepacket13, "WAVEPACKET13", 29, 1, 1, false},
    {LazType::point14, "POINT14", 30, 2, 4, true},
    {LazType::rgb14, "RGB14", 6, 2, 4, true},
    {LazType::rgbnir14, "RGBNIR14", 8, 2, 4, true},
    {LazType::wavepacket14, "WAVEPACKET14", 29, 3, 4, true},
    {LazType::byte14, "BYTE14", 0, 2, 4, true},
};

const ItemRule* find_rule(LazType type) {
  for (const ItemRule& rule : rules)
    if (rule.type == type) return &rule;
  return nullptr;
}

// The items of a point format in front of its extra bytes.
std::vector<LazType> items_of_format(int point_format) {
  using T = LazType;
  switch (point_format) {
    case 0:
      return {T::point10};
    case 1:
      return {T::point10, T::gpstime11};
    case 2:
      return {T::point10, T::rgb12};
    case 3:
      return {T::point10, T::gpstime11, T::rgb12};
    case 4:
      return {T::point10, T::gpstime11, T::wavepacket13};
    case 5:
      return {T::point10, T::gpstime11, T::rgb12, T::wavepacket13};
    case 6:
      return {T::point14};
    case 7:
      return {T::point14, T::rgb14};
    case 8:
      return {T::point14, T::rgbnir14};
    case 9:
      return {T::point14, T::wavepacket14};
    case 10:
      return {T::point14, T::rgbnir14, T::wavepacket14};
    default:
      return {};
  }
}

template <typename T>
T get(const uint8_t* at) {
  T value;
  std::memcpy(&value, at, sizeof value);
  return value;
}

template <typename T>
void put(std::vector<uint8_t>& to, T value) {
  const size_t at = to.size();
  to.resize(at + sizeof value);
  std::memcpy(to.data() + at, &value, sizeof value);
}

bool check_item(const LazItem& item, bool layered, std::string& error) {
  const ItemRule* rule = find_rule(item.type);
  if (rule == nullptr) {
    error = "item type " + std::to_string(int(item.type)) + " is unknown";
    return false;
  }
  if (rule->size == 0 ? item.size == 0 : item.size != rule->size) {
    error = std::string("item ") + rule->name + " has size " + std::to_string(item.size);
    return false;
  }
  if (item.version < rule->first_version || item.version > rule->last_version) {
    error = "item version " + std::to_string(item.version) + " of " + rule->name + " is unknown";
    return false;
  }
  if (rule->layered != layered) {
    error = std::string("item ") + rule->name + " does not go with the file's compressor";
    return false;
  }
  return true;
}
}  // namespace

uint32_t LASzip::record_length() const {
  uint32_t sum = 0;
  for (const LazItem& item : items) sum += item.size;
  return sum;
}

bool parse_laz_vlr(const uint8_t* payload, uint64_t nbytes, LASzip& scheme, std::string& error) {
  if (nbytes < FIXED_BYTES) {
    error = "LAZ record has " + std::to_string(nbytes) + " bytes, fewer than " + std::to_string(FIXED_BYTES);
    return false;
  }
  const uint16_t compressor = get<uint16_t>(payload), coder = get<uint16_t>(payload + 2);
  if (compressor > uint16_t(LazCompressor::layered)) {
    error = "compressor number " + std::to_string(compressor) + " is unknown";
    return false;
  }
  if (coder != 0) {
    error = "entropy coder number " + std::to_string(coder) + " is unknown";
    return false;
  }
  const uint16_t nitems = get<uint16_t>(payload + 32);
  if (nitems == 0 || nbytes != FIXED_BYTES + ITEM_BYTES * nitems) {
    error =
        "LAZ record of " + std::to_string(nbytes) + " bytes announces " + std::to_string(nitems) + " items";
    return false;
  }
  LASzip read;
  read.compressor = LazCompressor(compressor);
  read.version_major = payload[4];
  read.version_minor = payload[5];
  read.version_revision = get<uint16_t>(payload + 6);
  read.options = get<uint32_t>(payload + 8);
  read.chunk_size = get<uint32_t>(payload + 12);
  if (read.chunked() && read.chunk_size == 0) read.chunk_size = LAZ_VARIABLE;
  read.nspecial_evlr = get<int64_t>(payload + 16);
  read.special_evlr_offset = get<int64_t>(payload + 24);
  for (int i = 0; i < nitems; i++) {
    const uint8_t* at = payload + FIXED_BYTES + ITEM_BYTES * i;
    const LazItem item = {LazType(get<uint16_t>(at)), get<uint16_t>(at + 2), get<uint16_t>(at + 4)};
    const bool any_item = read.compressor == LazCompressor::none;
    if (!any_item && !check_item(item, read.layered(), error)) return false;
    read.items.push_back(item);
  }
  scheme = std::move(read);
  return true;
}

bool check_laz_scheme(const LASzip& scheme, int point_format, uint32_t record_length, std::string& error) {
  if (scheme.record_length() != record_length) {
    error = "items of " + std::to_string(scheme.record_length()) + " bytes in points of " +
            std::to_string(record_length);
    return false;
  }
  if (scheme.compressor == LazCompressor::none) return true;
  const std::vector<LazType> types = items_of_format(point_format);
  bool same = !types.empty() && scheme.items.size() >= types.size();
  for (size_t i = 0; same && i < types.size(); i++) same = scheme.items[i].type == types[i];
  for (size_t i = types.size(); same && i < scheme.items.size(); i++)
    same = scheme.items[i].type == (scheme.layered() ? LazType::byte14 : LazType::byte);
  if (!same) error = "items are not those of point format " + std::to_string(point_format);
  return same;
}

std::vector<uint8_t> make_laz_vlr(const LASzip& scheme) {
  std::vector<uint8_t> payload;
  put(payload, uint16_t(scheme.compressor));
  put(payload, uint16_t(0));  // the arithmetic coder
  put(payload, scheme.version_major);
  put(payload, scheme.version_minor);
  put(payload, scheme.version_revision);
  put(payload, scheme.options);
  put(payload, scheme.chunk_size);
  put(payload, scheme.nspecial_evlr);
  put(payload, scheme.special_evlr_offset);
  put(payload, uint16_t(scheme.items.size()));
  for (const LazItem& item : scheme.items) {
    put(payload, uint16_t(item.type));
    put(payload, item.size);
    put(payload, item.version);
  }
  return payload;
}

bool LASzip::setup(int point_format, uint32_t length, std::string& error) {
  const std::vector<LazType> types = items_of_format(point_format);
  if (types.empty()) {
    error = "point format " + std::to_string(point_format) + " is unknown";
    return false;
  }
  LASzip made;
  made.compressor = point_format < 6 ? LazCompressor::chunked : LazCompressor::layered;
  for (const LazType type : types) {
    const ItemRule* rule = find_rule(type);
    const uint16_t version = made.layered() ? 3 : type == LazType::wavepacket13 ? 1 : 2;
    made.items.push_back({type, rule->size, version});
  }
  const uint32_t base = made.record_length();
  if (length < base || length > 0xFFFF) {
    error = "point format " + std::to_string(point_format) + " can't have records of " +
            std::to_string(length) + " bytes";
    return false;
  }
  if (length > base)
    made.items.push_back({made.layered() ? LazType::byte14 : LazType::byte, uint16_t(length - base),
                          uint16_t(made.layered() ? 3 : 2)});
  *this = std::move(made);
  return true;
}
}  // namespace veld
