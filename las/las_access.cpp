#include "las/las_access.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ctime>

#include "las/las_identity.h"
#include "las/las_sources.h"
#include "lib/general/log.h"
#include "lib/general/path.h"

namespace veld {
namespace {
constexpr char VLR_USER[] = "Tarnwick";
constexpr uint16_t VLR_PROCESSING = 4001, VLR_PREVIOUS = 3002;

std::string version_text(const LASheader& h) {
  return std::to_string(h.version_major) + "." + std::to_string(h.version_minor);
}

void log_header(const LASreader& reader) {
  const LASheader& h = reader.header;
  LOG_LINE("[LAS " << version_text(h) << "] format=" << int{h.point_format} << " ext=" << h.extended()
                   << " hasWKT=" << h.has_wkt() << " nextra=" << h.nextra_bytes()
                   << " adj=" << h.adjusted_gps() << " npoints=" << h.npoints << " ("
                   << static_cast<double>(reader.file_bytes()) * 1e-6 << " Mb) / ID="
                   << las_text(h.system_identifier) << " SOFT=" << las_text(h.generating_software));
  LOG_LINE("BBOX X:[" << h.min_x << " " << h.max_x << "] Y:[" << h.min_y << " " << h.max_y << "] Z:["
                      << h.min_z << " " << h.max_z << "]");
  LOG_LINE("DIM: " << h.max_x - h.min_x << " x " << h.max_y - h.min_y << " x " << h.max_z - h.min_z);
  for (size_t i = 0; i < h.attributes.size(); i++) {
    const LASattribute& a = h.attributes[i];
    LOG_LINE("         attr " << i << ": type=" << int{a.data_type} << " opt=" << int{a.options}
                              << " name=" << las_text(a.name) << " desc=" << las_text(a.description));
  }
}

// Converts coordinates to records of point format 0 and writes them.
template <typename P>
bool write_points(LASwriter& writer, const Vector<P>& points) {
  uint8_t record[20] = {};
  LASpoint point = writer.header.point();
  point.rec = record;
  point.set_returns(1, 1);
  const auto stored = [&point](double v, int axis) {
    return static_cast<int32_t>(std::lround((v - point.offset[axis]) / point.scale[axis]));
  };
  for (const P& p : points) {
    point.set_X(stored(p.x, 0));
    point.set_Y(stored(p.y, 1));
    point.set_Z(stored(p.z, 2));
    if (!writer.write_point(point)) return false;
  }
  return true;
}

template <typename P>
bool xyz_header(LASheader& header, const Vector<P>& points, const std::string& softinfo) {
  double lo[3] = {2e307, 2e307, 2e307}, hi[3] = {-2e307, -2e307, -2e307};
  for (const P& p : points) {
    const double v[3] = {p.x, p.y, p.z};
    for (int axis = 0; axis < 3; axis++) {
      if (!std::isfinite(v[axis])) return false;
      lo[axis] = std::min(lo[axis], v[axis]);
      hi[axis] = std::max(hi[axis], v[axis]);
    }
  }
  set_las_text(header.system_identifier, "FORMAT CONVERSION");
  set_las_text(header.generating_software, softinfo);
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  if (localtime_r(&now, &local)) {
    header.creation_day = static_cast<uint16_t>(local.tm_yday + 1);
    header.creation_year = static_cast<uint16_t>(local.tm_year + 1900);
  }
  choose_las_scale(header, lo, hi);
  return true;
}

template <typename P>
bool write_xyz(const std::string& name, const Vector<P>& points, const std::string& parse,
               const std::string& softinfo) {
  LOG_ENTER("write_las_xyz '" << name << "' P.size()=" << points.size());
  LASheader header;
  const bool finite = xyz_header(header, points, softinfo);
  auto writer = finite ? las_write_open(name, header, parse) : nullptr;
  int64_t nbytes = 0;
  const bool written = writer && write_points(*writer, points);
  if (!las_write_close(writer, &nbytes) || !written) {
    ERROR_MSG("could not write " << name << (finite ? "" : ", a coordinate is not a finite number"));
    return false;
  }
  LOG_MSG("Written " << name << " " << static_cast<double>(points.size()) * 1e-6 << " Mp "
                     << static_cast<double>(nbytes) * 1e-6 << " Mb");
  return true;
}

std::string cut32(std::string_view text) {
  std::string block(32, '\0');
  text.copy(block.data(), 32);
  return block;
}
}  // namespace

bool las_is_processed(const LASheader& header) {
  return header.find_vlr(VLR_USER, VLR_PROCESSING) != nullptr;
}

bool check_las_header(const LASheader& h) {
  bool ok = true;
  if (std::string_view(h.file_signature.data(), 4) != "LASF") {
    std::fprintf(stderr, "ERROR: wrong file signature '%.4s'\n", h.file_signature.data());
    ok = false;
  }
  if (h.version_major != 1 || h.version_minor > 4)
    std::fprintf(stderr, "WARNING: unknown version %d.%d (should be 1.0 or 1.1 or 1.2 or 1.3 or 1.4)\n",
                 h.version_major, h.version_minor);
  if (h.header_size < 227) {
    std::fprintf(stderr, "ERROR: header size is %d but should be at least 227\n", h.header_size);
    ok = false;
  }
  if (h.offset_to_point_data < h.header_size) {
    std::fprintf(stderr, "ERROR: offset to point data %d is smaller than header size %d\n",
                 static_cast<int>(h.offset_to_point_data), h.header_size);
    ok = false;
  }
  if (h.x_scale_factor == 0) std::fprintf(stderr, "WARNING: x scale factor is zero.\n");
  if (h.y_scale_factor == 0) std::fprintf(stderr, "WARNING: y scale factor is zero.\n");
  if (h.z_scale_factor == 0) std::fprintf(stderr, "WARNING: z scale factor is zero.\n");
  if (h.min_x > h.max_x || h.min_y > h.max_y || h.min_z > h.max_z)
    std::fprintf(stderr, "WARNING: invalid bounding box [ %g %g %g / %g %g %g ]\n", h.min_x, h.min_y, h.min_z,
                 h.max_x, h.max_y, h.max_z);
  return ok;
}

std::unique_ptr<LASreader> las_read_open(const std::string& name, const std::string& parse, bool log,
                                         uint32_t fields) {
  LOG_ENTER("las_read_open '" << name << "' log=" << log);
  LASreadOpener opener;
  opener.set_file_name(name);
  if (name.ends_with(".txt")) opener.set_parse_string(parse);
  opener.set_fields(fields);
  auto reader = opener.open();
  if (!reader) {
    ERROR_MSG("cannot open LASreader, file " << name);
    return nullptr;
  }
  if (!check_las_header(reader->header)) {
    ERROR_MSG("bad LAS header, file " << name);
    return nullptr;
  }
  if (log) log_header(*reader);
  return reader;
}

void las_read_close(std::unique_ptr<LASreader>& reader) {
  if (!reader) return;
  LOG_ENTER("las_read_close: p_count=" << reader->p_count);
  reader.reset();
}

std::unique_ptr<LASwriter> las_write_open(const std::string& name, const LASheader& header,
                                          const std::string& parse, const std::vector<std::string>& sources) {
  LOG_ENTER("las_write_open '" << name << "' format=" << int{header.point_format});
  if (!check_las_header(header)) {
    ERROR_MSG("bad LAS header, file " << name);
    return nullptr;
  }
  LASwriteOpener opener;
  opener.set_file_name(name);
  if (name.ends_with(".txt")) opener.set_parse_string(parse);
  for (const std::string& source : sources) opener.add_source(source);
  auto writer = opener.open(header);
  if (!writer) {
    ERROR_MSG("cannot open LASwriter, file " << name);
    return nullptr;
  }
  const LASheader& h = writer->header;
  LOG_LINE("[LAS " << version_text(h) << "] format=" << int{h.point_format} << " / ID="
                   << las_text(h.system_identifier) << "/ SOFT=" << las_text(h.generating_software));
  return writer;
}

bool las_write_close(std::unique_ptr<LASwriter>& writer, int64_t* nbytes) {
  if (nbytes) *nbytes = 0;
  if (!writer) return true;
  writer->update_header();
  const uint64_t pcount = writer->p_count;
  const std::string lax = change_extension(writer->file_name(), ".lax");
  const bool replaced =
      access(writer->file_name().c_str(), F_OK) == 0;  // the new one gets its name when it is whole
  const int64_t nb = writer->close();
  writer.reset();
  LOG_ENTER("las_write_close: pcount=" << pcount << " nb=" << nb);
  // An index that an earlier file of this name left behind would lead readers to the wrong points.
  if (nb >= 0 && replaced && std::remove(lax.c_str()) == 0)
    LOG_LINE("removed the index of an earlier file, " << lax);
  if (nbytes) *nbytes = std::max<int64_t>(nb, 0);
  return nb >= 0;
}

bool set_las_header_sid(LASheader& header, const std::string& text, const std::string& softinfo, bool copy) {
  LOG_ENTER("set_las_header_sid '" << text << "' copy=" << copy);
  const std::string processing = cut32(text), previous(header.generating_software.data(), 32);
  if (!copy && !header.add_vlr(VLR_USER, VLR_PROCESSING, processing.data(), 32, "PROCESSING")) return false;
  if (!header.add_vlr(VLR_USER, VLR_PREVIOUS, previous.data(), 32, "PREVIOUS GENERATING SOFTWARE"))
    return false;
  set_las_text(header.generating_software, softinfo);
  return true;
}

std::vector<LASvlr> las_identity_records(const LASheader& header) {
  std::vector<LASvlr> records;
  for (const uint16_t id : {VLR_PROCESSING, VLR_PREVIOUS})
    if (const LASvlr* vlr = header.find_vlr(VLR_USER, id)) records.push_back(*vlr);
  return records;
}

void unset_las_header_sid(LASheader& header, const std::vector<LASvlr>& before) {
  LOG_ENTER("unset_las_header_sid before=" << before.size());
  if (const LASvlr* previous = header.find_vlr(VLR_USER, VLR_PREVIOUS)) {
    header.generating_software.fill('\0');
    std::copy_n(previous->data.begin(), std::min(previous->data.size(), header.generating_software.size()),
                header.generating_software.begin());
  }
  for (const uint16_t id : {VLR_PROCESSING, VLR_PREVIOUS}) {
    const auto old =
        std::find_if(before.begin(), before.end(), [&](const LASvlr& v) { return v.record_id == id; });
    if (old == before.end())
      header.remove_vlr(VLR_USER, id);
    else if (!header.add_vlr(VLR_USER, id, old->data.data(), old->data.size()))
      LOG_LINE("<!> record " << id << " not restored");
  }
}

bool write_las_xyz(const std::string& name, const Vector<xyz>& P, const std::string& parse,
                   const std::string& softinfo) {
  return write_xyz(name, P, parse, softinfo);
}
bool write_las_xyz(const std::string& name, const Vector<dxyz>& P, const std::string& parse,
                   const std::string& softinfo) {
  return write_xyz(name, P, parse, softinfo);
}

bool read_las_dxyz(const std::string& name, Vector<dxyz>& P, const std::string& parse) {
  LOG_ENTER("read_las_dxyz '" << name << "' INparse=" << parse);
  auto reader = las_read_open(name, parse, true);
  if (!reader) return false;
  const uint64_t npoints = reader->header.npoints;
  std::vector<dxyz> points;  // grows with what the file really holds, whatever its header says
  while (reader->read_point()) points.push_back({reader->point.x(), reader->point.y(), reader->point.z()});
  las_read_close(reader);
  if (points.size() != npoints) {
    ERROR_MSG("read error, file " << name);
    return false;
  }
  P.resize(points.size());
  std::copy(points.begin(), points.end(), P.begin());
  LOG_LINE("np=" << P.size());
  return true;
}

bool las_get_system(const std::string& name, LASsystem& system) {
  LOG_ENTER("las_get_system '" << name << "'");
  system = LASsystem();
  LasInFile file;
  LASheader header;
  LasFileInfo info;
  std::string error;
  if (las_is_text_name(name) || !file.open(name, error) || !read_las_header(file, header, info, error))
    return false;
  system.wkt = header.wkt();
  const struct {
    uint16_t id;
    std::vector<uint8_t>* data;
  } records[] = {{34735, &system.keys}, {34736, &system.doubles}, {34737, &system.ascii}};
  for (const auto& r : records)
    if (const LASvlr* vlr = header.find_vlr("LASF_Projection", r.id))
      r.data->assign(vlr->data.begin(), vlr->data.end());
  system.centre = {0.5 * (header.min_x + header.max_x), 0.5 * (header.min_y + header.max_y),
                   0.5 * (header.min_z + header.max_z)};
  LOG_LINE("wkt=" << system.wkt.size() << " keys=" << system.keys.size() << " bytes");
  return true;
}
}  // namespace veld
