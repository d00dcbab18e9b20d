#include "las/lasreader.h"

#include <algorithm>
#include <cctype>

#include "las/las_access.h"
#include "las/las_sources.h"
#include "lib/general/log.h"

namespace veld {
namespace {
bool ends_in(const std::string& name, const std::string& ext) {
  return name.size() >= ext.size() &&
         std::equal(ext.begin(), ext.end(), name.end() - static_cast<std::ptrdiff_t>(ext.size()),
                    [](char a, char b) { return a == std::tolower(static_cast<unsigned char>(b)); });
}
}  // namespace

bool las_is_text_name(const std::string& name) { return ends_in(name, ".txt"); }
bool las_is_laz_name(const std::string& name) { return ends_in(name, ".laz"); }

bool LASreader::next_block() {
  uint64_t n = 0;
  next_ = block_end_ = nullptr;
  if (!source_ || failed_) return false;
  uint8_t* block = nullptr;
  if (!source_->next(block, n)) failed_ = true;
  if (failed_ || n == 0) return false;
  next_ = block;
  block_end_ = block + n * static_cast<uint64_t>(point.lay.reclen);
  return true;
}

uint8_t* LASreader::read_block(uint64_t& n) {
  n = 0;
  if (next_ == block_end_ && !next_block()) return nullptr;
  uint8_t* block = next_;
  n = static_cast<uint64_t>(block_end_ - next_) / static_cast<uint64_t>(point.lay.reclen);
  next_ = block_end_;
  p_count += n;
  return block;
}

bool LASreader::seek(uint64_t index) {
  next_ = block_end_ = nullptr;
  if (!source_ || failed_ || index >= header.npoints || !source_->seek(index)) return false;
  p_count = index;
  return true;
}

void LASreader::close() {
  source_.reset();
  next_ = block_end_ = nullptr;
}

std::unique_ptr<LASreader> LASreadOpener::open() const {
  const auto refuse = [this](const std::string& why) -> std::unique_ptr<LASreader> {
    ERROR_MSG(why << ", file '" << name_ << "'");
    return nullptr;
  };
  const auto file = std::make_shared<LasInFile>();
  std::string error;
  if (!file->open(name_, error)) return refuse(error);
  auto reader = std::make_unique<LASreader>();
  reader->file_name_ = name_;
  reader->file_bytes_ = static_cast<int64_t>(file->size());
  if (las_is_text_name(name_)) {
    reader->source_ = make_text_source(file, parse_.empty() ? "xyz" : parse_, reader->header, error);
    if (!reader->source_) return refuse(error);
    reader->description_ = "via LASreaderTXT (" + std::to_string(LAS_BUILD) + ")";
  } else {
    LasFileInfo info;
    if (!read_las_header(*file, reader->header, info, error)) return refuse(error);
    for (const std::string& warning : info.warnings) WARNING_MSG(warning << ", file '" << name_ << "'");
    if (!info.sound) return reader;
    const bool coded = info.has_scheme && info.scheme.compressor != LazCompressor::none;
    reader->source_ = coded ? make_laz_source(file, reader->header, info, fields_, error)
                            : make_plain_source(file, reader->header, info);
    if (!reader->source_) return refuse(error);
    reader->description_ = coded ? "via LASreaderLAZ" : "via LASreaderLAS";
  }
  reader->point = reader->header.point();
  return reader;
}
}  // namespace veld
