// las/las_access.h
// The access layer to point files: opening and closing with the system's checks and log lines, the program's
// identity in the headers it writes, whole files of coordinates, the start-up check and the read test.
// Text files are those whose name ends in ".txt", in lower case; parse strings are column patterns such as
// "xyzt" (see lasreader.h).
#pragma once
#include <memory>
#include <string>
#include <vector>

#include "las/lasindex.h"
#include "las/lasreader.h"
#include "las/laswriter.h"
#include "lib/DataStructure/vector.h"
#include "lib/Geometry/xyz.h"

namespace veld {
constexpr int LAS_BUILD = 210720;  // build number of the point library

// Writes each problem of a header to standard error; false for errors, true for warnings only.
[[nodiscard]] bool check_las_header(const LASheader& header);

// Opens a point file; with log, writes what it is to the log. None after an ERROR line. `fields`: what the
// caller needs, see LASreadOpener::set_fields.
std::unique_ptr<LASreader> las_read_open(const std::string& name, const std::string& parse, bool log,
                                         uint32_t fields = LAS_ALL_FIELDS);
// Logs the count of points read and closes. Does nothing for none.
void las_read_close(std::unique_ptr<LASreader>& reader);

// Opens a point file for writing: LAZ when the name ends in .laz, text when in .txt, else LAS. None after an
// ERROR line. A name that is one of the sources, or a file open for reading, is refused.
std::unique_ptr<LASwriter> las_write_open(const std::string& name, const LASheader& header,
                                          const std::string& parse,
                                          const std::vector<std::string>& sources = {});
// Final counts and bounding box into the header, closes, logs points and bytes. False when the file could not
// be written whole; it is removed then. nbytes: size of the file. None closes with success. A .lax beside an
// earlier file of the name goes.
[[nodiscard]] bool las_write_close(std::unique_ptr<LASwriter>& writer, int64_t* nbytes = nullptr);
// The same, and completes the spatial index of the points written: as .lax beside the file, or at the end of
// a LAZ file (append). index_ok: the index was written; a failure of the index alone is not one of the file.
[[nodiscard]] bool las_write_close(std::unique_ptr<LASwriter>& writer, LASindex& index, bool append,
                                   bool& index_ok, int64_t* nbytes = nullptr);

// Stamps a header that the program rewrites: the text as record "PROCESSING", the old generating software as
// record "PREVIOUS GENERATING SOFTWARE", softinfo as the new generating software. With copy (points pass
// unchanged) an earlier "PROCESSING" record stays and none is added. False when the records do not fit.
[[nodiscard]] bool set_las_header_sid(LASheader& header, const std::string& text, const std::string& softinfo,
                                      bool copy = false);

// Takes that stamp away again. before: the header of the file that was stamped had these records of the program, as
// las_identity_records gave them. The generating software becomes that of the record, or stays without one.
void unset_las_header_sid(LASheader& header, const std::vector<LASvlr>& before);
// The records of a header that the stamp replaces.
std::vector<LASvlr> las_identity_records(const LASheader& header);

// Writes coordinates as a file of point format 0, with scale and offset chosen for the data.
[[nodiscard]] bool write_las_xyz(const std::string& name, const Vector<xyz>& P, const std::string& parse,
                                 const std::string& softinfo);
[[nodiscard]] bool write_las_xyz(const std::string& name, const Vector<dxyz>& P, const std::string& parse,
                                 const std::string& softinfo);
// Reads all coordinates of a file, scaled by its header. False after an ERROR line.
[[nodiscard]] bool read_las_dxyz(const std::string& name, Vector<dxyz>& P, const std::string& parse);

// What a file says of its coordinate system, and where it lies.
struct LASsystem {
  std::string wkt;                            // text of the OGC record; empty: none
  std::vector<uint8_t> keys, doubles, ascii;  // GeoTIFF records 34735 to 34737
  dxyz centre{0, 0, 0};                       // of the header's box, in the file's units
  bool empty() const { return wkt.empty() && keys.empty(); }
};
// Reads it from the header. False (no message) when the file has no header that can be read, as text files.
[[nodiscard]] bool las_get_system(const std::string& name, LASsystem& system);

// Start-up check of the point library, through a small text file in the temporary directory. False only when
// the library is not the one expected; a check that could not be made is a WARNING.
[[nodiscard]] bool las_check_version(const std::string& tmpdir);

// Read speed test of a file: reads all points, reports to the log and the console, with a WARNING when some
// could not be read. False only when the file can't be opened.
[[nodiscard]] bool las_read_check(const std::string& name, const std::string& parse);
}  // namespace veld
