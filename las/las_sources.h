// las/las_sources.h
// The kinds of point sources and sinks behind readers and writers; private to las.
#pragma once
#include <memory>
#include <string>

#include "las/las_file.h"
#include "las/las_outfile.h"
#include "las/lasheader_io.h"
#include "las/point_source.h"

namespace veld {
// Uncompressed records of a file whose header was read; a file with fewer points than announced ends early.
std::unique_ptr<PointSource> make_plain_source(const std::shared_ptr<LasInFile>& file,
                                               const LASheader& header, const LasFileInfo& info);
// Compressed records. None, with the cause in `error`, when they can't be reached.
std::unique_ptr<PointSource> make_laz_source(const std::shared_ptr<LasInFile>& file, const LASheader& header,
                                             const LasFileInfo& info, uint32_t fields, std::string& error);
// Lines of text. Reads the text once to fill the header: count, bounding box, scale and offset. None, with
// the cause in `error`, when the pattern or the text is of no use.
std::unique_ptr<PointSource> make_text_source(const std::shared_ptr<LasInFile>& file,
                                              const std::string& parse, LASheader& header,
                                              std::string& error);

// The file of a sink outlives it; the header and VLRs are written already.
std::unique_ptr<PointSink> make_plain_sink(LasOutFile& file, int reclen);
// None, with the cause in `error`, when the scheme can't be encoded.
std::unique_ptr<PointSink> make_laz_sink(LasOutFile& file, const LASheader& header, const LASzip& scheme,
                                         std::string& error);
std::unique_ptr<PointSink> make_text_sink(LasOutFile& file, const LASheader& header, const std::string& parse,
                                          std::string& error);

bool las_is_text_name(const std::string& name);  // ends in .txt, in any case
bool las_is_laz_name(const std::string& name);   // ends in .laz, in any case

// Scale and offset that hold a range of coordinates (empty when lo > hi), and the range as bounding box:
// steps of 0.001, 1e-7 where the values look like degrees, larger ones where the range needs them.
void choose_las_scale(LASheader& header, const double lo[3], const double hi[3]);
}  // namespace veld
