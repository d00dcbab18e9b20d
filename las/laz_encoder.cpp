// las/laz_encoder.cpp
#include <algorithm>

#include "las/laz_bytes.h"
#include "las/laz_codec.h"
#include "las/laz_layers.h"
#include "las/laz_pointwise.h"
#include "lib/general/assert_fail.h"

namespace veld {
namespace {
constexpr uint64_t BLOCK_BYTES = 1u << 15;  // that a block of points takes at most, if more than one point
constexpr uint64_t BEFORE = ArithEncoder::BYTES_BEFORE, BEHIND = ArithEncoder::BYTES_BEHIND;

// Room for n more bytes behind the encoder's place; what it wrote is kept.
void reserve(std::vector<uint8_t>& buffer, ArithEncoder& coder, uint64_t n) {
  const uint64_t used = uint64_t(coder.at - buffer.data());
  if (buffer.size() - used >= n) return;
  buffer.resize(std::max(2 * buffer.size(), used + n));
  coder.at = buffer.data() + used;
}
}  // namespace

class LazChunkEncoder {
 public:
  bool open(const LASzip& scheme, std::string& error);
  void encode(const uint8_t* records, uint64_t n, std::vector<uint8_t>& out) {
    if (points_)
      encode_points(records, n, out);
    else
      encode_layers(records, n, out);
  }

 private:
  void encode_points(const uint8_t* records, uint64_t n, std::vector<uint8_t>& out);
  void encode_layers(const uint8_t* records, uint64_t n, std::vector<uint8_t>& out);
  void start_layers(const uint8_t* records, uint64_t n);

  uint64_t stride_ = 0;
  std::unique_ptr<PointItems<ArithEncoder>> points_;
  std::vector<std::unique_ptr<LayerItem<ArithEncoder>>> items_;
  std::vector<Layer<ArithEncoder>> layers_;
  std::vector<std::vector<uint8_t>> buffers_;  // one a layer
  std::vector<uint32_t> max_bytes_;            // of a point in each layer
};

bool LazChunkEncoder::open(const LASzip& scheme, std::string& error) {
  stride_ = scheme.record_length();
  if (!scheme.chunked() || scheme.items.empty()) {
    error = "points can be written in chunks only";
    return false;
  }
  if (!scheme.layered()) {
    points_ = make_point_encoder(scheme);
    if (!points_) error = "no encoder for items of these versions";
    return points_ != nullptr;
  }
  if (scheme.items[0].type != LazType::point14) {
    error = "layered points don't begin with POINT14";
    return false;
  }
  items_ = make_layer_encoders(scheme);
  for (const auto& item : items_)
    for (unsigned i = 0; i < item->nlayers(); i++) max_bytes_.push_back(item->max_bytes());
  layers_.resize(max_bytes_.size());
  buffers_.resize(max_bytes_.size());
  return true;
}

void LazChunkEncoder::encode_points(const uint8_t* records, uint64_t n, std::vector<uint8_t>& out) {
  const uint64_t block = std::max<uint64_t>(1, BLOCK_BYTES / points_->max_bytes());
  const uint64_t room = block * points_->max_bytes() + BEHIND;
  out.resize(std::max<uint64_t>(out.capacity(), stride_ + room));
  std::copy_n(records, stride_, out.data());
  points_->start(records);
  ArithEncoder coder;
  coder.start(out.data() + stride_);
  for (uint64_t i = 1; i < n; i += block) {
    reserve(out, coder, room);
    points_->run(coder, records + i * stride_, std::min(block, n - i));
  }
  reserve(out, coder, BEHIND);
  coder.finish();
  out.resize(uint64_t(coder.at - out.data()));
}

void LazChunkEncoder::start_layers(const uint8_t* records, uint64_t n) {
  for (size_t i = 0; i < layers_.size(); i++) {
    if (buffers_[i].empty()) buffers_[i].resize(BEFORE + LAZ_LAYER_BLOCK * max_bytes_[i] + BEHIND);
    layers_[i].coder.start(buffers_[i].data() + BEFORE);
    layers_[i].active = layers_[i].constant = false;
  }
  const unsigned channel = records[15] >> 4 & 3;
  Layer<ArithEncoder>* layer = layers_.data();
  for (const auto& item : items_) {
    item->start(records, channel);
    item->look_ahead(layer, records, unsigned(stride_), n);
    layer += item->nlayers();
    records += item->size();
  }
}

void LazChunkEncoder::encode_layers(const uint8_t* records, uint64_t n, std::vector<uint8_t>& out) {
  start_layers(records, n);
  uint8_t contexts[LAZ_LAYER_BLOCK];
  for (uint64_t i = 1; i < n; i += LAZ_LAYER_BLOCK) {
    for (size_t j = 0; j < layers_.size(); j++)
      reserve(buffers_[j], layers_[j].coder, LAZ_LAYER_BLOCK * max_bytes_[j] + BEHIND);
    Layer<ArithEncoder>* layer = layers_.data();
    const uint8_t* at = records + i * stride_;
    for (const auto& item : items_) {
      item->run(layer, at, unsigned(stride_), std::min(LAZ_LAYER_BLOCK, n - i), contexts);
      layer += item->nlayers();
      at += item->size();
    }
  }
  layers_[0].active = layers_[1].active = true;  // X, Y and Z are always there
  uint64_t nbytes = stride_ + 4 + 4 * uint64_t(layers_.size());
  for (size_t j = 0; j < layers_.size(); j++) {
    if (!layers_[j].active) continue;
    layers_[j].coder.finish();
    nbytes += uint64_t(layers_[j].coder.at - buffers_[j].data()) - BEFORE;
  }
  out.resize(nbytes);
  std::copy_n(records, stride_, out.data());
  laz_put(out.data() + stride_, uint32_t(n));
  uint8_t* size_at = out.data() + stride_ + 4;
  uint8_t* to = size_at + 4 * layers_.size();
  for (size_t j = 0; j < layers_.size(); j++, size_at += 4) {
    const uint64_t size = layers_[j].active ? uint64_t(layers_[j].coder.at - buffers_[j].data()) - BEFORE : 0;
    laz_put(size_at, uint32_t(size));
    to = std::copy_n(buffers_[j].data() + BEFORE, size, to);
  }
}

LazEncoder::LazEncoder() = default;
LazEncoder::~LazEncoder() = default;
LazEncoder::LazEncoder(LazEncoder&&) noexcept = default;
LazEncoder& LazEncoder::operator=(LazEncoder&&) noexcept = default;

bool LazEncoder::open(const LASzip& scheme, std::string& error) {
  state_ = std::make_unique<LazChunkEncoder>();
  return state_->open(scheme, error);
}

void LazEncoder::encode_chunk(const uint8_t* records, uint64_t n, std::vector<uint8_t>& out) {
  ASSERT(n >= 1 && n <= LAZ_MAX_CHUNK);
  state_->encode(records, n, out);
}
}  // namespace veld
