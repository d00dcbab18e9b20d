#include "prj/LiDAR/VR2proc/corr_tiles.h"

#include <algorithm>

#include "las/las_access.h"
#include "lib/general/log.h"
#include "lib/general/logfiles.h"
#include "lib/general/path.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
constexpr double MARGIN = 100;                        // m around the swaths that the grid covers: points move
constexpr uint64_t BUFFER_BYTES = uint64_t{1} << 26;  // of all tiles that a swath has begun

// Whether the points of two files can stand in one: format, length of a record, extra bytes by name.
bool same_points(const LASheader& a, const LASheader& b) {
  return a.point_format == b.point_format && a.point_reclen == b.point_reclen &&
         std::equal(a.attributes.begin(), a.attributes.end(), b.attributes.begin(), b.attributes.end(),
                    [](const LASattribute& u, const LASattribute& v) {
                      return u.name == v.name && u.data_type == v.data_type;
                    });
}

bool read_headers(const Project& prj, const std::vector<SwathId>& swc, std::vector<LASheader>& headers) {
  for (const SwathId sw : swc) {
    const std::unique_ptr<LASreader> reader = las_read_open(prj.swaths[sw].path(), INPARSE, false);
    if (!reader) {
      WARNING_MSG("failed to get full project bounding box without filtering");
      return false;
    }
    headers.push_back(reader->header);
    if (reader->header.layout().wave >= 0) {
      ERROR_MSG("points with waveforms cannot be written by tiles, file " << prj.swaths[sw].path());
      return false;
    }
    if (same_points(headers[0], reader->header)) continue;
    ERROR_MSG("points of different formats cannot be written by tiles, files "
              << prj.swaths[swc[0]].path() << " and " << prj.swaths[sw].path());
    return false;
  }
  return true;
}
}  // namespace

bool prepare_tiles(const Project& prj, const CorrParam& par, const std::vector<SwathId>& swc,
                   const std::vector<std::string>& sources, const std::string& sid, CorrTiles& tiles) {
  LOG_ENTER("prepare_tiles nswc=" << swc.size());
  std::vector<LASheader> headers;
  if (!read_headers(prj, swc, headers) || !init_corr_tiles(par.tile, headers, MARGIN / DATAUNIT, tiles.grid))
    return false;
  tiles.out.header = headers[0];
  if (!set_las_header_sid(tiles.out.header, sid, SOFTINFO)) {
    ERROR_MSG("header records too long, file " << prj.swaths[swc[0]].path());
    return false;
  }
  const bool adj = std::any_of(swc.begin(), swc.end(), [&](SwathId sw) { return prj.swaths[sw].clock.adj; });
  if (par.rewrite.time && adj) tiles.out.header.global_encoding |= 1;
  std::erase_if(tiles.out.header.evlrs,
                [](const LASevlr& e) { return las_text(e.user_id) != "LASF_Projection"; });
  const std::string ext = par.out.ext.empty() ? get_extension(prj.swaths[swc[0]].path()) : par.out.ext;
  tiles.out.prefix = par.odir + par.out.prefix + base_name(prj.name) + "_";
  tiles.out.suffix = par.out.suffix + ext;
  tiles.out.lax = par.lax;
  tiles.out.lax_append = par.lax_append;
  tiles.out.sources = sources;
  tiles.out.list = prj.name + "_tiles.log";
  tiles.buffer = static_cast<uint64_t>(par.tile.buffer);
  tiles.id = par.tile.id;
  tiles.swc = swc;
  tiles.pieces.resize(static_cast<size_t>(prj.swaths.size()));
  tiles.group = SwathVector<int>(prj.swaths);
  for (const SwathId sw : swc) tiles.group[sw] = prj.swaths[sw].group;
  return true;
}

bool tile_corr_swath_las(CorrJob job, CorrTiles& tiles, CorrCount& count) {
  LOG_ENTER("tile_corr_swath_las sw=" << job.sw << " '" << job.path << "'");
  std::unique_ptr<LASreader> reader = open_corr_source(job);
  if (!reader) return false;
  if (!same_points(tiles.out.header, reader->header)) {
    ERROR_MSG("the file has changed during the run, file " << job.path);
    return false;
  }
  const int id = tiles.id == TILE_ID_SWATH   ? job.sw.number + 1
                 : tiles.id == TILE_ID_GROUP ? tiles.group[job.sw]
                                             : -1;
  auto pieces =
      std::make_unique<TilePieces>(TMPDIR + "tmp_sw_" + to_string(job.sw) + "." + own_tag() + ".tiles",
                                   tiles.grid, reader->header.point(), tiles.buffer, BUFFER_BYTES, id);
  CorrCursor cursor;
  UndoWriter no_undo;
  bool ok = true;
  uint64_t n;
  while (uint8_t* const records = ok ? reader->read_block(n) : nullptr) {
    const uint64_t kept =
        corr_records(records, n, reader->header.point(), job.points, cursor, no_undo, count);
    ok = pieces->add(records, kept);
    count.nwritten += kept;
  }
  const bool short_read = reader->failed() || count.nread < reader->header.npoints;
  las_read_close(reader);
  if (!ok || !pieces->finish()) {
    ERROR_MSG("could not write corrected tile for file " << job.path);
    return false;
  }
  count.nwritten -= pieces->nout();
  if (count.nwritten == 0) {
    ERROR_MSG("no point left, file " << job.path);
    return false;
  }
  warn_corr_points(job, count, short_read);
  if (pieces->nout() > 0)
    WARNING_MSG(pieces->nout() << " points dropped (tile out of range), swath " << job.sw);
  tiles.pieces[static_cast<size_t>(job.sw.number)] = std::move(pieces);
  return true;
}

bool finish_tiles(CorrTiles& tiles, TileCount& count) {
  std::vector<const TilePieces*> swaths;
  for (const auto& pieces : tiles.pieces) swaths.push_back(pieces.get());  // in the order of the swaths
  const bool ok = close_corr_tiles(tiles.grid, swaths, tiles.out, NTHREADS, count);
  tiles.pieces.clear();
  return ok;
}
}  // namespace veld
