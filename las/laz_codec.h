// las/laz_codec.h
// LAZ compression: chunks of point records to bytes and back.
// Here:     decoder and encoder of one chunk, and a decoder of chunks that follow each other unannounced.
// Not here: the scheme and its VLR (laz_scheme.h), the table of chunks (laz_chunks.h), files, threads.
//
// Records are plain LAS point records, back to back, scheme.record_length() bytes each. Decoders and encoders
// are reusable and hold no shared state: one a thread. They allocate when opened and when a chunk is larger
// than all before, never per point. Hostile bytes end in an error, never in a read or write out of bounds.
#pragma once
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "las/laz_scheme.h"

namespace veld {
// Fields that a layered chunk allows to be passed over; X, Y and the returns are always decoded.
enum LazField : uint32_t {
  LAZ_Z = 1u << 0,
  LAZ_CLASS = 1u << 1,
  LAZ_FLAGS = 1u << 2,
  LAZ_INTENSITY = 1u << 3,
  LAZ_ANGLE = 1u << 4,
  LAZ_USER = 1u << 5,
  LAZ_SOURCE = 1u << 6,
  LAZ_GPSTIME = 1u << 7,
  LAZ_RGB = 1u << 8,
  LAZ_NIR = 1u << 9,
  LAZ_WAVE = 1u << 10,
  LAZ_BYTES = 1u << 11,
  LAZ_ALL = 0xFFFFFFFFu
};

class LazChunkDecoder;  // the state of one decoder, private to the sources
class LazChunkEncoder;

// Decodes chunks that lie in memory.
class LazDecoder {
 public:
  LazDecoder();
  ~LazDecoder();
  LazDecoder(LazDecoder&&) noexcept;
  LazDecoder& operator=(LazDecoder&&) noexcept;

  // Prepares for the chunks of a scheme (parse_laz_vlr); compressor none is refused. `fields`: what to decode
  // of layered chunks; a field left out has the value of the chunk's first point in every record.
  // False with the cause in `error`.
  [[nodiscard]] bool open(const LASzip& scheme, std::string& error, uint32_t fields = LAZ_ALL);

  // Decodes the first `npoints` (at least 1) points of the chunk in bytes[0 .. nbytes) to `out`, whose
  // `out_bytes` must hold them all. With `consumed` null the chunk must end with its last byte, else the
  // bytes used are stored there and the caller compares. False with the cause in `error`; the ndecoded()
  // records before the failure are in `out`.
  [[nodiscard]] bool decode_chunk(const uint8_t* bytes, uint64_t nbytes, uint64_t npoints, uint8_t* out,
                                  uint64_t out_bytes, uint64_t* consumed, std::string& error);

  uint64_t ndecoded() const;  // points of the latest chunk that were decoded, also after a failure

 private:
  std::unique_ptr<LazChunkDecoder> state_;
};

// Gives the next up to n bytes of the compressed points; fewer than n only at the end of the file.
using LazPull = std::function<uint64_t(uint8_t* to, uint64_t n)>;

// Decodes points in sequence from bytes whose chunks are not known beforehand: the one stream of
// LazCompressor::pointwise, or the fixed-size chunks of a file without chunk table. Memory stays bounded: a
// window of the stream, for layered chunks one chunk.
class LazStreamDecoder {
 public:
  LazStreamDecoder();
  ~LazStreamDecoder();
  LazStreamDecoder(LazStreamDecoder&&) noexcept;
  LazStreamDecoder& operator=(LazStreamDecoder&&) noexcept;

  // `pull` starts at the first chunk: at the offset to point data for LazCompressor::pointwise, 8 bytes
  // behind it else. `npoints`: point count of the header. False with the cause in `error`, as for schemes
  // with variable chunks.
  [[nodiscard]] bool open(const LASzip& scheme, LazPull pull, uint64_t npoints, std::string& error);

  // Decodes the next n points (fewer at the end of the file's points) to `out`, n records long. `ndone`: how
  // many, also after a failure. False with the cause in `error`; it stays false from then on.
  [[nodiscard]] bool decode(uint64_t n, uint8_t* out, uint64_t& ndone, std::string& error);

  uint64_t position() const;  // index of the next point
  uint64_t chunk() const;     // index of the chunk that it lies in

 private:
  struct State;
  std::unique_ptr<State> state_;
};

// Encodes chunks into memory. The bytes depend on the records and the scheme only.
class LazEncoder {
 public:
  LazEncoder();
  ~LazEncoder();
  LazEncoder(LazEncoder&&) noexcept;
  LazEncoder& operator=(LazEncoder&&) noexcept;

  // Prepares for the chunks of a scheme with items of version 2 (pointwise) or 3 and 4 (layered). False with
  // the cause in `error`.
  [[nodiscard]] bool open(const LASzip& scheme, std::string& error);

  // Encodes n records (1 up to LAZ_MAX_CHUNK) as one chunk; `out` is replaced, its capacity reused.
  void encode_chunk(const uint8_t* records, uint64_t n, std::vector<uint8_t>& out);

 private:
  std::unique_ptr<LazChunkEncoder> state_;
};

constexpr uint64_t LAZ_MAX_CHUNK = 1u << 24;  // points in a chunk to be encoded
}  // namespace veld
