#include "las/laswriter.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "las/las_sources.h"
#include "lib/general/assert_fail.h"
#include "lib/general/log.h"

namespace veld {
namespace {
constexpr int BLOCK = 1 << 18;  // bytes of points that are gathered before they go on

// Appends the data of a record that lies in another file.
bool append_from_file(LasOutFile& out, const LASevlr& evlr, std::string& error) {
  LasInFile in;
  if (!in.open(evlr.file, error)) return false;
  std::vector<uint8_t> piece(1 << 20);
  for (uint64_t done = 0; done < evlr.length;) {
    const uint64_t n = std::min<uint64_t>(piece.size(), evlr.length - done);
    if (!in.read_at(evlr.file_offset + done, piece.data(), n)) {
      error = "read error in file '" + evlr.file + "'";
      return false;
    }
    if (!out.append(piece.data(), n)) return false;
    done += n;
  }
  return true;
}
}  // namespace

LASwriter::LASwriter() = default;
LASwriter::~LASwriter() = default;

bool LASwriter::fail(const std::string& why) {
  if (!failed_) ERROR_MSG(why << ", file '" << file_name_ << "'");
  failed_ = true;
  return false;
}

void LASwriter::update_inventory() {
  if (fill_ == counted_) return;
  inventory_.add(layout_, counted_, static_cast<uint64_t>(fill_ - counted_) / static_cast<uint64_t>(reclen_));
  counted_ = fill_;
}

void LASwriter::update_header() {
  update_inventory();
  inventory_.to_header(header);
}

bool LASwriter::flush() {
  update_inventory();
  const uint64_t n = static_cast<uint64_t>(fill_ - block_.data()) / static_cast<uint64_t>(reclen_);
  fill_ = counted_ = block_.data();
  if (failed_ || !file_) return false;
  return n == 0 || sink_->write(block_.data(), n) || fail(file_->error());
}

bool LASwriter::write_raw_records(const uint8_t* records, uint64_t n) {
  if (n == 0) return !failed_;  // `records` may be null
  const uint64_t bytes = n * static_cast<uint64_t>(reclen_);
  if (bytes <= static_cast<uint64_t>(block_end_ - fill_)) {
    std::memcpy(fill_, records, bytes);
    fill_ += bytes;
  } else {
    if (!flush()) return false;
    inventory_.add(layout_, records, n);
    if (!sink_->write(records, n)) return fail(file_->error());
  }
  p_count += n;
  return !failed_;
}

bool LASwriter::write_evlrs() {
  if (header.evlrs.empty()) return true;
  header.nevlr = 0;
  for (const LASevlr& evlr : header.evlrs) {
    const uint64_t here = file_->position();
    if (evlr.waveform) header.start_of_waveform = here;
    if (las_effective_minor(header) >= 4 && header.nevlr++ == 0) header.start_of_first_evlr = here;
    const std::vector<uint8_t> head = las_evlr_header_bytes(evlr);
    std::string error;
    if (!file_->append(head.data(), head.size())) return fail(file_->error());
    if (evlr.file.empty() ? !file_->append(evlr.data.data(), evlr.data.size())
                          : !append_from_file(*file_, evlr, error))
      return fail(error.empty() ? file_->error() : error);
  }
  return true;
}

bool LASwriter::write_header_again() {
  if (header.npoints > UINT32_MAX && las_effective_minor(header) < 4)
    return fail(std::to_string(header.npoints) + " points are too many for this version of LAS");
  const std::vector<uint8_t> bytes = las_header_bytes(header, header.compressed, header.compressed ? 1 : 0);
  ASSERT(bytes.size() == header.header_size);
  return file_->patch(0, bytes.data(), bytes.size()) || fail(file_->error());
}

int64_t LASwriter::close() {
  if (!file_) return -1;
  bool ok = flush();
  update_header();
  ok = ok && (sink_->finish() || fail(file_->error()));
  if (!text_) ok = ok && write_evlrs() && write_header_again();
  const int64_t nbytes = static_cast<int64_t>(file_->position());
  ok = ok && (file_->finish() || fail(file_->error()));
  sink_.reset();
  file_.reset();
  return ok ? nbytes : -1;
}

std::unique_ptr<LASwriter> LASwriteOpener::open(const LASheader& wanted) const {
  const auto refuse = [this](const std::string& why) -> std::unique_ptr<LASwriter> {
    ERROR_MSG(why << ", file '" << name_ << "'");
    return nullptr;
  };
  auto writer = std::make_unique<LASwriter>();
  LASheader& header = writer->header;
  header = wanted;
  header.clear_inventory();
  const bool text = las_is_text_name(name_), laz = las_is_laz_name(name_);
  if (header.point_format > LAS_MAX_FORMAT || header.point_reclen < las_base_length(header.point_format)) {
    std::fprintf(stderr, "ERROR: unknown point type %d with point size %d\n", header.point_format,
                 header.point_reclen);
    return nullptr;
  }
  LASzip scheme;
  std::string error;
  if (laz && !scheme.setup(header.point_format, header.point_reclen, error)) return refuse(error);
  // 1.4 content in the form of an old format stays readable as such.
  if (!header.extended() && header.find_vlr("lascompatible", LAZ_RECORD_ID)) scheme.options |= 1;
  if (!prepare_las_header(header, laz ? &scheme : nullptr, error)) return refuse(error);
  auto file = std::make_unique<LasOutFile>();
  if (!file->open(name_, sources_, error)) return refuse(error);
  if (!text) {
    const std::vector<uint8_t> head = las_header_bytes(header, laz, laz ? 1 : 0);
    const std::vector<uint8_t> records = las_vlr_bytes(header, laz ? &scheme : nullptr);
    ASSERT(head.size() + records.size() == header.offset_to_point_data);
    if (!file->append(head.data(), head.size()) || !file->append(records.data(), records.size()))
      return refuse(file->error());
  }
  writer->sink_ = text  ? make_text_sink(*file, header, parse_.empty() ? "xyz" : parse_, error)
                  : laz ? make_laz_sink(*file, header, scheme, error)
                        : make_plain_sink(*file, header.point_reclen);
  if (!writer->sink_) return refuse(error);
  writer->file_ = std::move(file);
  writer->file_name_ = name_;
  writer->text_ = text;
  writer->layout_ = header.layout();
  writer->reclen_ = header.point_reclen;
  writer->block_.resize(static_cast<size_t>(std::max(1, BLOCK / writer->reclen_)) *
                        static_cast<size_t>(writer->reclen_));
  writer->fill_ = writer->counted_ = writer->block_.data();
  writer->block_end_ = writer->fill_ + writer->block_.size();
  return writer;
}
}  // namespace veld
