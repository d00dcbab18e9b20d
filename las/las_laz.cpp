// Compressed records: chunks decoded ahead and encoded on threads, delivered and written in file order.
#include <algorithm>
#include <cstring>
#include <vector>

#include "las/las_sources.h"
#include "las/laz_bytes.h"
#include "las/laz_chunks.h"
#include "las/laz_codec.h"
#include "las/laz_ring.h"
#include "lib/general/log.h"

namespace veld {
namespace {
constexpr uint64_t MAX_CHUNK_BYTES = 1 << 28;       // of records; larger chunks are decoded piece by piece
constexpr uint64_t THREADED_CHUNK_BYTES = 1 << 24;  // larger ones are held one at a time
constexpr uint64_t STREAM_BLOCK = 16384;            // points

// Chunks whose places are known from the table.
class ChunkSource : public PointSource {
 public:
  ChunkSource(std::shared_ptr<LasInFile> file, LazChunkTable table, uint64_t reclen, bool threaded)
      : file_(std::move(file)),
        table_(std::move(table)),
        reclen_(reclen),
        ring_([this](Slot& slot, int thread) { decode(slot, thread); }, threaded) {}

  bool open(const LASzip& scheme, uint32_t fields, std::string& error) {
    layered_ = scheme.layered();
    decoders_.resize(static_cast<size_t>(ring_.nthreads()));
    for (LazDecoder& decoder : decoders_)
      if (!decoder.open(scheme, error, fields)) return false;
    return true;
  }

  bool next(uint8_t*& block, uint64_t& n) override {
    n = 0;
    if (holding_ && !again_) {
      ring_.release();
      holding_ = false;
    }
    again_ = false;
    for (; next_chunk_ < table_.chunks.size() && ring_.has_room(); next_chunk_++) {
      ring_.fill().chunk = next_chunk_;
      ring_.queue();
    }
    if (ring_.pending() == 0) return true;
    Slot& slot = ring_.take();
    holding_ = true;
    const LazChunk& chunk = table_.chunks[slot.chunk];
    if (!slot.error.empty()) {
      ERROR_MSG("damaged LAZ data: " << slot.error << ", chunk " << slot.chunk << ", point "
                                     << chunk.first_point + slot.ndecoded << ", file '" << file_->name()
                                     << "'");
      return false;
    }
    if (slot.has_more && table_.note.empty())
      WARNING_MSG("last chunk holds more than the points of the header, file '" << file_->name() << "'");
    if (slot.npoints < chunk.npoints)
      WARNING_MSG("file holds only " << chunk.first_point + slot.npoints
                                     << " points, fewer than its header announces, file '" << file_->name()
                                     << "'");
    block = slot.records.data() + std::min(skip_, slot.npoints) * reclen_;
    n = slot.npoints - std::min(skip_, slot.npoints);
    held_first_ = chunk.first_point;
    held_n_ = slot.npoints;
    skip_ = 0;
    return true;
  }

  bool seek(uint64_t index) override {
    if (index >= table_.npoints) return false;
    if (holding_ && index >= held_first_ && index - held_first_ < held_n_) {
      again_ = true;
      skip_ = index - held_first_;
      return true;
    }
    ring_.clear();
    holding_ = again_ = false;
    const auto after = std::upper_bound(table_.chunks.begin(), table_.chunks.end(), index,
                                        [](uint64_t i, const LazChunk& c) { return i < c.first_point; });
    next_chunk_ = static_cast<uint64_t>(after - table_.chunks.begin()) - 1;
    skip_ = index - table_.chunks[next_chunk_].first_point;
    return true;
  }

 private:
  struct Slot {
    uint64_t chunk = 0;
    std::vector<uint8_t> bytes, records;
    uint64_t npoints = 0;   // that it holds
    uint64_t ndecoded = 0;  // before a failure
    bool has_more = false;
    std::string error;
  };

  void decode(Slot& slot, int thread) {
    const LazChunk& chunk = table_.chunks[slot.chunk];
    slot.error.clear();
    slot.npoints = chunk.npoints;
    slot.ndecoded = 0;
    slot.has_more = false;
    slot.bytes.resize(chunk.nbytes);
    slot.records.resize(chunk.npoints * reclen_);
    if (!file_->read_at(chunk.offset, slot.bytes.data(), chunk.nbytes)) {
      slot.error = "read error";
      return;
    }
    LazDecoder& decoder = decoders_[static_cast<size_t>(thread)];
    const bool last = slot.chunk + 1 == table_.chunks.size();
    uint64_t consumed = chunk.nbytes;  // a header may announce fewer points than the last chunk holds
    if (decoder.decode_chunk(slot.bytes.data(), chunk.nbytes, chunk.npoints, slot.records.data(),
                             slot.records.size(), last ? &consumed : nullptr, slot.error)) {
      slot.has_more = consumed < chunk.nbytes;
      return;
    }
    slot.ndecoded = decoder.ndecoded();
    // Or it announces more: then the chunk is sound with the points that it has.
    uint64_t held = slot.ndecoded;
    if (layered_ && held > 0) held = laz_get<uint32_t>(slot.bytes.data() + reclen_);
    std::string other_error;
    if (!last || held == 0 || held >= chunk.npoints ||
        !decoder.decode_chunk(slot.bytes.data(), chunk.nbytes, held, slot.records.data(), slot.records.size(),
                              nullptr, other_error))
      return;
    slot.npoints = held;
    slot.error.clear();
  }

  std::shared_ptr<LasInFile> file_;
  LazChunkTable table_;
  uint64_t reclen_;
  bool layered_ = false;              // chunks know their number of points
  std::vector<LazDecoder> decoders_;  // one for each thread of the ring
  uint64_t next_chunk_ = 0;           // to be queued
  uint64_t skip_ = 0;                 // points to pass over at the start of the next chunk taken
  bool holding_ = false, again_ = false;
  uint64_t held_first_ = 0, held_n_ = 0;
  ChunkRing<Slot> ring_;  // last: its threads end before the rest goes
};

// Points decoded one after the other, their chunks being unknown.
class StreamSource : public PointSource {
 public:
  StreamSource(std::shared_ptr<LasInFile> file, const LASheader& header, const LASzip& scheme)
      : file_(std::move(file)),
        scheme_(scheme),
        start_(header.offset_to_point_data + (scheme.chunked() ? 8 : 0)),
        npoints_(header.npoints),
        block_(STREAM_BLOCK * header.point_reclen) {}

  bool open(std::string& error) {
    uint64_t pos = start_;
    const auto pull = [this, pos](uint8_t* to, uint64_t n) mutable -> uint64_t {
      const int64_t got = std::max<int64_t>(0, file_->read_some(pos, to, n));
      pos += static_cast<uint64_t>(got);
      return static_cast<uint64_t>(got);
    };
    decoder_ = LazStreamDecoder();
    return decoder_.open(scheme_, pull, npoints_, error);
  }

  bool next(uint8_t*& block, uint64_t& n) override { return decode(STREAM_BLOCK, block, n); }

  bool seek(uint64_t index) override {
    std::string error;
    if (index < decoder_.position() && !open(error)) return false;
    uint8_t* block = nullptr;
    for (uint64_t n = 1; n > 0 && decoder_.position() < index;)
      if (!decode(std::min(STREAM_BLOCK, index - decoder_.position()), block, n)) return false;
    return decoder_.position() == index;
  }

 private:
  bool decode(uint64_t wanted, uint8_t*& block, uint64_t& n) {
    std::string error;
    n = 0;
    block = block_.data();
    if (decoder_.decode(wanted, block, n, error)) return true;
    if (n > 0) return true;  // what came before the damage; the next call meets it again
    ERROR_MSG("damaged LAZ data: " << error << ", chunk " << decoder_.chunk() << ", point "
                                   << decoder_.position() << ", file '" << file_->name() << "'");
    return false;
  }

  std::shared_ptr<LasInFile> file_;
  LASzip scheme_;
  uint64_t start_, npoints_;
  LazStreamDecoder decoder_;
  std::vector<uint8_t> block_;
};

class LazSink : public PointSink {
 public:
  LazSink(LasOutFile& file, const LASheader& header, const LASzip& scheme)
      : file_(file),
        scheme_(scheme),
        start_(header.offset_to_point_data),
        reclen_(header.point_reclen),
        ring_([this](Slot& slot, int thread) {
          encoders_[static_cast<size_t>(thread)].encode_chunk(slot.records.data(),
                                                              slot.records.size() / reclen_, slot.bytes);
        }) {}

  bool open(std::string& error) {
    encoders_.resize(static_cast<size_t>(ring_.nthreads()));
    for (LazEncoder& encoder : encoders_)
      if (!encoder.open(scheme_, error)) return false;
    const uint64_t unfinished = start_;  // a table position that points at itself: the file is not whole
    if (file_.append(&unfinished, sizeof unfinished)) return true;
    error = file_.error();
    return false;
  }

  bool write(const uint8_t* records, uint64_t n) override {
    const uint64_t whole = uint64_t{scheme_.chunk_size} * reclen_;
    for (uint64_t bytes = n * reclen_; bytes > 0;) {
      std::vector<uint8_t>& to = ring_.fill().records;
      if (filled_ == 0) {
        to.clear();
        to.reserve(whole);
      }
      const uint64_t part = std::min(bytes, whole - filled_);
      to.insert(to.end(), records, records + part);
      filled_ += part;
      records += part;
      bytes -= part;
      if (filled_ == whole && !queue()) return false;
    }
    return true;
  }

  bool finish() override {
    if (filled_ > 0 && !queue()) return false;
    while (ring_.pending() > 0)
      if (!write_oldest()) return false;
    const uint64_t table_offset = file_.position();
    std::vector<uint8_t> table;
    write_laz_chunk_table(scheme_, chunk_bytes_, {}, table);
    return file_.append(table.data(), table.size()) &&
           file_.patch(start_, &table_offset, sizeof table_offset);
  }

 private:
  struct Slot {
    std::vector<uint8_t> records, bytes;
  };
  bool queue() {
    ring_.queue();
    filled_ = 0;
    while (!ring_.has_room())
      if (!write_oldest()) return false;
    return true;
  }
  bool write_oldest() {
    const Slot& slot = ring_.take();
    const bool ok = file_.append(slot.bytes.data(), slot.bytes.size());
    chunk_bytes_.push_back(static_cast<uint32_t>(slot.bytes.size()));
    ring_.release();
    return ok;
  }

  LasOutFile& file_;
  LASzip scheme_;
  uint64_t start_, reclen_;
  uint64_t filled_ = 0;  // bytes of records in the slot being filled
  std::vector<LazEncoder> encoders_;
  std::vector<uint32_t> chunk_bytes_;
  ChunkRing<Slot> ring_;  // last: its threads end before the rest goes
};
}  // namespace

std::unique_ptr<PointSource> make_laz_source(const std::shared_ptr<LasInFile>& file, const LASheader& header,
                                             const LasFileInfo& info, uint32_t fields, std::string& error) {
  const LASzip& scheme = info.scheme;
  LazChunkTable table;
  uint64_t largest = 0;
  bool use_table = scheme.chunked() && header.npoints > 0;
  if (use_table) {
    const auto read_at = [&file](uint64_t offset, uint8_t* to, uint64_t n) {
      return file->read_at(offset, to, n);
    };
    use_table = read_laz_chunk_table(scheme, read_at, file->size(), header.offset_to_point_data,
                                     header.npoints, table, error);
    if (!use_table && scheme.variable()) return nullptr;
    if (!use_table)
      WARNING_MSG(error << ", chunks are read one after the other, file '" << file->name() << "'");
    else if (!table.note.empty())
      WARNING_MSG(table.note << ", file '" << file->name() << "'");
    for (const LazChunk& chunk : table.chunks)
      largest = std::max(largest, chunk.npoints * header.point_reclen);
    if (largest > MAX_CHUNK_BYTES && scheme.variable()) {
      error = "a chunk of " + std::to_string(largest) + " bytes is too large";
      return nullptr;
    }
  }
  if (use_table && largest <= MAX_CHUNK_BYTES) {
    const bool threaded = largest <= THREADED_CHUNK_BYTES && table.chunks.size() > 1;
    auto source = std::make_unique<ChunkSource>(file, std::move(table), header.point_reclen, threaded);
    if (!source->open(scheme, fields, error)) return nullptr;
    return source;
  }
  if (scheme.variable())
    return std::make_unique<ChunkSource>(file, LazChunkTable{}, header.point_reclen, false);
  auto source = std::make_unique<StreamSource>(file, header, scheme);
  if (!source->open(error)) return nullptr;
  return source;
}

std::unique_ptr<PointSink> make_laz_sink(LasOutFile& file, const LASheader& header, const LASzip& scheme,
                                         std::string& error) {
  auto sink = std::make_unique<LazSink>(file, header, scheme);
  if (!sink->open(error)) return nullptr;
  return sink;
}
}  // namespace veld
