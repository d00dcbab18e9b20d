// Uncompressed records: blocks read into and written from memory as they are.
#include <algorithm>
#include <vector>

#include "las/las_sources.h"
#include "lib/general/log.h"

namespace veld {
namespace {
constexpr uint64_t BLOCK = 1 << 18;  // bytes: fits the second-level cache, large enough for the disk

class PlainSource : public PointSource {
 public:
  PlainSource(std::shared_ptr<LasInFile> file, const LASheader& header, const LasFileInfo& info)
      : file_(std::move(file)), start_(header.offset_to_point_data), reclen_(header.point_reclen) {
    const uint64_t room = info.points_end > start_ ? (info.points_end - start_) / reclen_ : 0;
    npoints_ = std::min(header.npoints, room);
    if (npoints_ < header.npoints)
      WARNING_MSG("file holds only " << npoints_ << " of the " << header.npoints
                                     << " points of its header, file '" << file_->name() << "'");
    per_block_ = std::max<uint64_t>(1, BLOCK / reclen_);
    block_.resize(std::min(per_block_, npoints_) * reclen_);
  }

  bool next(uint8_t*& block, uint64_t& n) override {
    n = std::min(per_block_, npoints_ - index_);
    block = block_.data();
    if (n == 0) return true;
    if (!file_->read_at(start_ + index_ * reclen_, block, n * reclen_)) {
      ERROR_MSG("read error at point " << index_ << ", file '" << file_->name() << "'");
      n = 0;
      return false;
    }
    index_ += n;
    return true;
  }

  bool seek(uint64_t index) override {
    if (index > npoints_) return false;
    index_ = index;
    return true;
  }

 private:
  std::shared_ptr<LasInFile> file_;
  uint64_t start_, reclen_;
  uint64_t npoints_ = 0, index_ = 0, per_block_ = 0;
  std::vector<uint8_t> block_;
};

class PlainSink : public PointSink {
 public:
  PlainSink(LasOutFile& file, int reclen) : file_(file), reclen_(static_cast<uint64_t>(reclen)) {}
  bool write(const uint8_t* records, uint64_t n) override { return file_.append(records, n * reclen_); }
  bool finish() override { return true; }

 private:
  LasOutFile& file_;
  uint64_t reclen_;
};
}  // namespace

std::unique_ptr<PointSource> make_plain_source(const std::shared_ptr<LasInFile>& file,
                                               const LASheader& header, const LasFileInfo& info) {
  return std::make_unique<PlainSource>(file, header, info);
}

std::unique_ptr<PointSink> make_plain_sink(LasOutFile& file, int reclen) {
  return std::make_unique<PlainSink>(file, reclen);
}
}  // namespace veld
