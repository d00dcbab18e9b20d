// prj/LiDAR/VR2proc/undo_file.h
// Undo data: a LAZ file beside each corrected one that holds the correction of every point of the source, in its order,
// as coordinates.
// Here:     its name, writing it, taking the corrections of one file back.
// Not here: the correction (corr_swath.h), the driver over all swaths (undo_swaths.h).
#pragma once
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "las/laswriter.h"
#include "prj/LiDAR/VR2proc/corr_count.h"
#include "prj/LiDAR/swath/swath_table.h"

namespace veld {
// Name of the undo data of a corrected file.
std::string undo_name(const std::string& corrected);
bool is_undo_name(const std::string& path);
// Steps of the undo data of this run, in the units of its files: in the plane and of heights.
struct UndoSteps {
  double xy, z;
};
UndoSteps undo_steps();

class UndoWriter {
 public:
  // source: header of the file that is corrected; sid: the kind of run. The undo data appear with close() and not
  // before. False after an ERROR line.
  [[nodiscard]] bool open(const std::string& corrected, const LASheader& source, const std::string& sid,
                          const std::vector<std::string>& sources);
  bool is_open() const { return writer_ != nullptr; }
  // Room for the next n points, all without a correction; set() gives those that have one theirs.
  void begin_block(uint64_t n);
  // Correction of point i of the block, in units of the file.
  void set(uint64_t i, double dx, double dy, double dz);
  [[nodiscard]] bool end_block();  // false after an ERROR line
  // nbytes: size of the finished file. False after an ERROR line; nothing is left then.
  [[nodiscard]] bool close(int64_t& nbytes);

 private:
  std::unique_ptr<LASwriter> writer_;
  std::vector<uint8_t> block_;
  LASpoint point_;
};

struct UndoJob {
  SwathId sw;        // number of the swath
  std::string path;  // corrected file, its undo data beside it
  std::string out;   // file with the coordinates of before
  bool lax = false;  // write a spatial index too (-olax)
  bool lax_append = false;
  const std::vector<std::string>* sources = nullptr;  // files that must never be overwritten, for all jobs
};

// Writes the file as it was before its correction: coordinates to half a step of the undo data (5 mm, heights 2 mm; in
// feet as many thousandths times 3), the program's stamp taken away, all else as it is. Files that lost points in their
// correction are refused. False after an ERROR line; no output then.
[[nodiscard]] bool undo_corr_swath_las(const UndoJob& job, CorrCount& count);
}  // namespace veld
