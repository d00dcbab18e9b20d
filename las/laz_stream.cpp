// las/laz_stream.cpp
#include <algorithm>

#include "las/laz_chunk_decoder.h"

namespace veld {
namespace {
constexpr uint64_t PULL_BYTES = 1u << 20;  // a layered chunk is pulled in steps: its size may be a lie
}

struct LazStreamDecoder::State {
  LazChunkDecoder decoder;
  LazPull pull;
  std::vector<uint8_t> chunk_bytes;  // of a layered chunk
  uint64_t chunk_points = 0;         // points of each chunk
  uint64_t npoints = 0, position = 0;
  std::string failure;

  bool pull_to(uint64_t nbytes) {
    uint64_t have = chunk_bytes.size();
    while (have < nbytes) {
      const uint64_t step = std::min(nbytes - have, PULL_BYTES);
      chunk_bytes.resize(have + step);
      if (pull(chunk_bytes.data() + have, step) < step) return false;
      have += step;
    }
    return true;
  }

  bool begin_chunk(std::string& error) {
    if (!decoder.layered) return decoder.points.begin(error);
    LayerChunkDecoder& layers = decoder.layers;
    chunk_bytes.clear();
    if (!pull_to(layers.header_bytes()) ||
        !pull_to(layers.header_bytes() + layers.layer_bytes(chunk_bytes.data()))) {
      error = "the file ends inside the chunk";
      return false;
    }
    return layers.begin(chunk_bytes.data(), chunk_bytes.size(), error);
  }

  bool decode_some(uint64_t n, uint8_t* out, uint64_t& ndone, std::string& error) {
    const uint64_t in_chunk = position % chunk_points;
    if (in_chunk == 0 && !begin_chunk(error)) return false;
    LayerChunkDecoder& layers = decoder.layers;
    PointChunkDecoder& points = decoder.points;
    const uint64_t before = decoder.layered ? layers.ndecoded() : points.ndecoded();
    const bool done = decoder.layered ? layers.decode(n, out, error) : points.decode(n, out, error);
    ndone = (decoder.layered ? layers.ndecoded() : points.ndecoded()) - before;
    position += ndone;
    const bool chunk_done = done && (position % chunk_points == 0 || position == npoints);
    return done && !(chunk_done && decoder.layered && !layers.end(error));
  }
};

LazStreamDecoder::LazStreamDecoder() = default;
LazStreamDecoder::~LazStreamDecoder() = default;
LazStreamDecoder::LazStreamDecoder(LazStreamDecoder&&) noexcept = default;
LazStreamDecoder& LazStreamDecoder::operator=(LazStreamDecoder&&) noexcept = default;

bool LazStreamDecoder::open(const LASzip& scheme, LazPull pull, uint64_t npoints, std::string& error) {
  state_ = std::make_unique<State>();
  if (!state_->decoder.open(scheme, LAZ_ALL, error)) return false;
  if (scheme.variable()) {
    error = "chunks of variable size can't be read without their table";
    return false;
  }
  state_->chunk_points = scheme.chunked() ? scheme.chunk_size : ~uint64_t(0);
  state_->npoints = npoints;
  if (scheme.layered())
    state_->pull = std::move(pull);
  else
    state_->decoder.points.set_pull(std::move(pull));
  return true;
}

bool LazStreamDecoder::decode(uint64_t n, uint8_t* out, uint64_t& ndone, std::string& error) {
  State& s = *state_;
  ndone = 0;
  n = std::min(n, s.npoints - s.position);
  while (ndone < n && s.failure.empty()) {
    const uint64_t in_chunk = s.chunk_points - s.position % s.chunk_points;
    uint64_t now = 0;
    if (!s.decode_some(std::min(n - ndone, in_chunk), out + ndone * s.decoder.stride, now, s.failure) &&
        s.failure.empty())
      s.failure = "chunk can't be decoded";
    ndone += now;
  }
  if (!s.failure.empty()) error = s.failure;
  return s.failure.empty();
}

uint64_t LazStreamDecoder::position() const { return state_->position; }
uint64_t LazStreamDecoder::chunk() const { return state_->position / state_->chunk_points; }
}  // namespace veld
