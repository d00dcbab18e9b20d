// las/laz_chunk_decoder.h
// Decoders of one chunk at a time, in runs of points. Private to the codec's sources.
#pragma once
#include <string>
#include <vector>

#include "las/laz_codec.h"
#include "las/laz_layers.h"
#include "las/laz_pointwise.h"

namespace veld {
// Chunks coded point by point, from memory or from bytes that are pulled in.
class PointChunkDecoder {
 public:
  void open(const LASzip& scheme);
  void set_memory(const uint8_t* bytes, uint64_t nbytes);  // the next chunk starts at the first byte
  void set_pull(LazPull pull);                             // the same with the first byte pulled
  // Starts a chunk behind the last point decoded. False with the cause in `error`.
  [[nodiscard]] bool begin(std::string& error);
  [[nodiscard]] bool decode(uint64_t n, uint8_t* out, std::string& error);  // the chunk's next n points
  uint64_t ndecoded() const { return ndecoded_; }                           // of this chunk
  uint64_t left() const { return uint64_t(end_ - coder_.at); }              // bytes of memory not used

 private:
  void refill();
  void have_block() {  // need_ bytes from coder_.at on, zeros behind the end
    if (!padded_ && uint64_t(end_ - coder_.at) < need_) refill();
  }

  std::unique_ptr<PointItems<ArithDecoder>> items_;
  ArithDecoder coder_;
  const uint8_t* end_ = nullptr;  // of the true bytes
  std::vector<uint8_t> buffer_, first_;
  LazPull pull_;
  bool padded_ = false;  // the buffer holds the last bytes, and need_ zeros behind them
  uint64_t block_ = 1;   // points between two checks of the end
  uint64_t need_ = 0;    // bytes that a block, or the beginning of a chunk, can take
  uint64_t ndecoded_ = 0;
};

// Layered chunks, from memory.
class LayerChunkDecoder {
 public:
  void open(const LASzip& scheme, uint32_t fields);
  // Bytes in front of the layers: first point, count of points, size of each layer.
  uint64_t header_bytes() const { return stride_ + 4 + 4 * uint64_t(layers_.size()); }
  uint64_t layer_bytes(const uint8_t* header) const;  // sum of the sizes in a header
  [[nodiscard]] bool begin(const uint8_t* bytes, uint64_t nbytes, std::string& error);
  [[nodiscard]] bool decode(uint64_t n, uint8_t* out, std::string& error);
  // After the last point: does each layer end with it? With fewer points decoded than the chunk says it holds
  // there is nothing to be checked.
  [[nodiscard]] bool end(std::string& error) const;
  uint64_t ndecoded() const { return ndecoded_; }
  uint64_t used() const { return used_; }  // bytes of the whole chunk

 private:
  uint64_t room_behind(size_t layer) const { return LAZ_LAYER_BLOCK * max_bytes_[layer] + ARITH_LOOK_AHEAD; }

  std::vector<std::unique_ptr<LayerItem<ArithDecoder>>> items_;
  std::vector<Layer<ArithDecoder>> layers_;
  std::vector<const uint8_t*> ends_;  // of the layers in the buffer
  std::vector<uint32_t> max_bytes_;   // of a point in each layer
  std::vector<bool> wanted_;
  std::vector<uint8_t> buffer_, first_;  // the layers wanted, room for a block of points behind each
  uint64_t stride_ = 0, npoints_ = 0, ndecoded_ = 0, used_ = 0;
};

class LazChunkDecoder {  // what LazDecoder holds: one of the two
 public:
  bool layered = false;
  uint64_t stride = 0;
  PointChunkDecoder points;
  LayerChunkDecoder layers;

  [[nodiscard]] bool open(const LASzip& scheme, uint32_t fields, std::string& error);
};
}  // namespace veld
