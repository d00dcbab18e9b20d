// The trajectory of a swath with more of it on both sides than the caches keep.
#include "lib/general/log.h"
#include "prj/LiDAR/VR2POsync/VR2POsync_internal.h"
#include "prj/LiDAR/VR2geom/VR2geom.h"

namespace veld {
bool read_swath_track(const Project& prj, const POsync& sync, const POsyncParam& par, const Swath& swath,
                      double margin, Vector<PO>& po) {
  if (!swath.has_track()) return false;
  const int f = swath.track.file;
  const POfileState& file = sync.files[static_cast<size_t>(f)];
  const POfile& source = prj.pofiles[static_cast<size_t>(f)];
  LOG_ENTER("read_swath_track sw=" << swath.id << " f=" << f << " margin=" << margin);
  POread read = file.read;
  read.deltat = file.TimeCorr;
  read.tinf = swath.clock.begin - margin;
  read.tsup = swath.clock.end + margin;
  read.unroll = false;  // as the synchronisation reads it
  StoredTrack track;
  dxyz min, max;
  if (!find_track(par.tracks, source.path, read, track) && !read_PO(source.path, read, track.po, track.adj))
    return false;
  const int proj = track.projected ? int{PO_PROJ} : file.scan.coord;
  if (!proj_PO(track.po, proj, prj.georef, source.path, min, max)) return false;
  po.swap(track.po);
  const Mount* const mount = mount_of_swath(prj, swath);
  if (par.AROT && mount && !(mount->IMU == xyz{0, 0, 0})) rotate_IMU(po, mount->IMU);
  unroll_PO(po);
  return po.size() > 1;
}
}  // namespace veld
