// las/laz_decoder.cpp
#include <algorithm>

#include "las/laz_bytes.h"
#include "las/laz_chunk_decoder.h"

namespace veld {
namespace {
constexpr uint64_t BLOCK_BYTES = 4096;       // that a block of points takes at most, if more than one point
constexpr uint64_t WINDOW_BYTES = 1u << 18;  // of the buffer when bytes are pulled
constexpr uint64_t START_BYTES = 4;          // that the arithmetic decoder takes at once
}  // namespace

void PointChunkDecoder::open(const LASzip& scheme) {
  items_ = make_point_decoder(scheme);
  first_.resize(scheme.record_length());
  block_ = std::max<uint64_t>(1, BLOCK_BYTES / items_->max_bytes());
  need_ = std::max(block_ * items_->max_bytes(), first_.size() + START_BYTES) + ARITH_LOOK_AHEAD;
}

void PointChunkDecoder::set_memory(const uint8_t* bytes, uint64_t nbytes) {
  pull_ = nullptr;
  coder_.at = bytes;
  end_ = bytes + nbytes;
  padded_ = false;
}

void PointChunkDecoder::set_pull(LazPull pull) {
  set_memory(nullptr, 0);
  pull_ = std::move(pull);
}

void PointChunkDecoder::refill() {
  const uint64_t rest = uint64_t(end_ - coder_.at);
  const uint64_t room = pull_ ? std::max(WINDOW_BYTES, 2 * need_) : rest;
  if (buffer_.size() < room + need_) buffer_.resize(room + need_);
  if (rest > 0) std::memmove(buffer_.data(), coder_.at, rest);
  const uint64_t got = pull_ ? std::min(pull_(buffer_.data() + rest, room - rest), room - rest) : 0;
  padded_ = rest + got < room || !pull_;
  std::memset(buffer_.data() + rest + got, 0, need_);
  coder_.at = buffer_.data();
  end_ = coder_.at + rest + got;
}

bool PointChunkDecoder::begin(std::string& error) {
  ndecoded_ = 0;
  have_block();
  const uint64_t nbytes = first_.size() + START_BYTES;
  if (left() < nbytes) {
    error = "chunk of " + std::to_string(left()) + " bytes ends inside its first point";
    return false;
  }
  std::copy_n(coder_.at, first_.size(), first_.data());
  items_->start(first_.data());
  coder_.start(coder_.at + first_.size());
  return true;
}

bool PointChunkDecoder::decode(uint64_t n, uint8_t* out, std::string& error) {
  const uint64_t stride = first_.size();
  if (n > 0 && ndecoded_ == 0) {
    std::copy_n(first_.data(), stride, out);
    out += stride;
    ndecoded_ = 1;
    n--;
  }
  while (n > 0) {
    have_block();
    const uint64_t now = padded_ ? 1 : std::min(n, block_);  // near the end: to know the last good point
    items_->run(coder_, out, now);
    if (coder_.at > end_) {
      error = "chunk ends inside its point " + std::to_string(ndecoded_);
      return false;
    }
    if (coder_.bad != 0) {
      error = "damaged data near point " + std::to_string(ndecoded_) + " of the chunk";
      return false;
    }
    out += now * stride;
    ndecoded_ += now;
    n -= now;
  }
  return true;
}

void LayerChunkDecoder::open(const LASzip& scheme, uint32_t fields) {
  items_ = make_layer_decoders(scheme);
  stride_ = scheme.record_length();
  first_.resize(stride_);
  layers_.clear();
  max_bytes_.clear();
  wanted_.clear();
  for (const auto& item : items_)
    for (unsigned i = 0; i < item->nlayers(); i++) {
      const uint32_t field = item->field(i);
      layers_.emplace_back();
      max_bytes_.push_back(item->max_bytes());
      wanted_.push_back(field == 0 || (field & fields) != 0);
    }
  ends_.resize(layers_.size());
}

uint64_t LayerChunkDecoder::layer_bytes(const uint8_t* header) const {
  uint64_t sum = 0;
  for (size_t i = 0; i < layers_.size(); i++) sum += laz_get<uint32_t>(header + stride_ + 4 + 4 * i);
  return sum;
}

bool LayerChunkDecoder::begin(const uint8_t* bytes, uint64_t nbytes, std::string& error) {
  ndecoded_ = 0;
  if (nbytes < header_bytes()) {
    error = "chunk of " + std::to_string(nbytes) + " bytes ends inside its first point";
    return false;
  }
  if (layer_bytes(bytes) > nbytes - header_bytes()) {
    error = "layers of " + std::to_string(layer_bytes(bytes)) + " bytes exceed the chunk of " +
            std::to_string(nbytes);
    return false;
  }
  used_ = header_bytes() + layer_bytes(bytes);
  std::copy_n(bytes, stride_, first_.data());
  npoints_ = laz_get<uint32_t>(bytes + stride_);
  const uint8_t* sizes = bytes + stride_ + 4;

  uint64_t room = 0;
  for (size_t i = 0; i < layers_.size(); i++)
    if (wanted_[i]) room += laz_get<uint32_t>(sizes + 4 * i) + room_behind(i);
  if (buffer_.size() < room) buffer_.resize(room);
  const uint8_t* from = bytes + header_bytes();
  uint8_t* to = buffer_.data();
  for (size_t i = 0; i < layers_.size(); i++) {
    const uint32_t size = laz_get<uint32_t>(sizes + 4 * i);
    layers_[i].active = wanted_[i] && size > 0;
    if (layers_[i].active) {
      if (size < START_BYTES) {
        error = "layer " + std::to_string(i + 1) + " of the chunk has " + std::to_string(size) + " bytes";
        return false;
      }
      std::copy_n(from, size, to);
      std::memset(to + size, 0, room_behind(i));
      layers_[i].coder.start(to);
      ends_[i] = to + size;
      to += size + room_behind(i);
    }
    from += size;
  }
  if (!layers_[0].active) {
    error = "chunk without its first layer";
    return false;
  }
  const unsigned channel = first_[15] >> 4 & 3;
  const uint8_t* item_at = first_.data();
  for (const auto& item : items_) {
    item->start(item_at, channel);
    item_at += item->size();
  }
  return true;
}

bool LayerChunkDecoder::decode(uint64_t n, uint8_t* out, std::string& error) {
  if (n > 0 && ndecoded_ == 0) {
    std::copy_n(first_.data(), stride_, out);
    out += stride_;
    ndecoded_ = 1;
    n--;
  }
  uint8_t contexts[LAZ_LAYER_BLOCK];
  while (n > 0) {
    const uint64_t now = std::min(n, LAZ_LAYER_BLOCK);
    Layer<ArithDecoder>* layer = layers_.data();
    uint8_t* at = out;
    for (const auto& item : items_) {
      item->run(layer, at, unsigned(stride_), now, contexts);
      layer += item->nlayers();
      at += item->size();
    }
    for (size_t i = 0; i < layers_.size(); i++) {
      if (!layers_[i].active) continue;
      layers_[i].coder.settle();
      const bool over = layers_[i].coder.at > ends_[i];
      if (!over && layers_[i].coder.bad == 0) continue;
      error = (over ? "layer " + std::to_string(i + 1) + " of the chunk ends"
                    : "damaged data in layer " + std::to_string(i + 1) + " of the chunk") +
              " near point " + std::to_string(ndecoded_);
      return false;
    }
    out += now * stride_;
    ndecoded_ += now;
    n -= now;
  }
  return true;
}

bool LayerChunkDecoder::end(std::string& error) const {
  if (ndecoded_ < npoints_) return true;
  for (size_t i = 0; i < layers_.size(); i++) {
    if (!layers_[i].active || layers_[i].coder.at == ends_[i]) continue;
    error = "layer " + std::to_string(i + 1) + " of the chunk does not end with the last point";
    return false;
  }
  return true;
}

bool LazChunkDecoder::open(const LASzip& scheme, uint32_t fields, std::string& error) {
  if (scheme.compressor == LazCompressor::none || scheme.items.empty()) {
    error = "points are not compressed";
    return false;
  }
  if (scheme.layered() && scheme.items[0].type != LazType::point14) {
    error = "layered points don't begin with POINT14";
    return false;
  }
  layered = scheme.layered();
  stride = scheme.record_length();
  if (layered)
    layers.open(scheme, fields);
  else
    points.open(scheme);
  return true;
}

LazDecoder::LazDecoder() = default;
LazDecoder::~LazDecoder() = default;
LazDecoder::LazDecoder(LazDecoder&&) noexcept = default;
LazDecoder& LazDecoder::operator=(LazDecoder&&) noexcept = default;

bool LazDecoder::open(const LASzip& scheme, std::string& error, uint32_t fields) {
  state_ = std::make_unique<LazChunkDecoder>();
  return state_->open(scheme, fields, error);
}

uint64_t LazDecoder::ndecoded() const {
  return state_->layered ? state_->layers.ndecoded() : state_->points.ndecoded();
}

bool LazDecoder::decode_chunk(const uint8_t* bytes, uint64_t nbytes, uint64_t npoints, uint8_t* out,
                              uint64_t out_bytes, uint64_t* consumed, std::string& error) {
  if (npoints == 0 || npoints > out_bytes / state_->stride) {
    error = "chunk of " + std::to_string(npoints) + " points";
    return false;
  }
  uint64_t used = 0;
  if (state_->layered) {
    LayerChunkDecoder& chunk = state_->layers;
    if (!chunk.begin(bytes, nbytes, error) || !chunk.decode(npoints, out, error) || !chunk.end(error))
      return false;
    used = chunk.used();
  } else {
    PointChunkDecoder& chunk = state_->points;
    chunk.set_memory(bytes, nbytes);
    if (!chunk.begin(error) || !chunk.decode(npoints, out, error)) return false;
    used = nbytes - chunk.left();
  }
  if (consumed != nullptr) {
    *consumed = used;
  } else if (used != nbytes) {
    error = "chunk of " + std::to_string(nbytes) + " bytes ends " + std::to_string(nbytes - used) +
            " bytes behind its last point";
    return false;
  }
  return true;
}
}  // namespace veld
