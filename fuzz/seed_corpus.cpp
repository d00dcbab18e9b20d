// fuzz/seed_corpus.cpp
// Writes small sound inputs of every harness below a directory: where the fuzzers begin.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "las/lasheader_io.h"
#include "las/lasindex.h"
#include "las/laz_chunks.h"
#include "las/laz_codec.h"
#include "tests/las/laz_file.h"

namespace veld {
namespace {
std::string root;

void write(const std::string& harness, const std::string& name, const std::vector<uint8_t>& bytes) {
  std::filesystem::create_directories(root + "/" + harness);
  std::ofstream out(root + "/" + harness + "/" + name, std::ios::binary);
  out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
}

template <typename T>
void put(std::vector<uint8_t>& bytes, size_t at, T value) {
  if (bytes.size() < at + sizeof value) bytes.resize(at + sizeof value);
  std::memcpy(bytes.data() + at, &value, sizeof value);
}

void write(const std::string& harness, const std::string& name, const std::string& text) {
  write(harness, name, std::vector<uint8_t>(text.begin(), text.end()));
}

// Option files, trees of tags, and small lists; the first byte of options and lists chooses the reader.
void write_project_texts() {
  const std::string tree =
      "<opt soft=\"x\">\n<!-- Input Tree -->\n<flight>\n<input ch=\"0\" bore='1 2 3'>a.las</input>\n"
      "<input ch=1 split=ud n=2>\na.las\n<map>\n1\n2 2\n</map>\n<bore>\n1 2 3\n4,5,6\n</bore>\n</input>\n"
      "<po time=6 geo=\"1\" rad=0 att=2 gps_date=2025-03-23 imu=\"180 0 90\" "
      "parse=txyzwpk>a.las</po>\n</flight>\n"
      "<ref>*.las</ref>\n<!-- Global Options -->\n[dir=/a/]\nmem = 2048\nname \"a b\"\nshift -1 0 2.5\n"
      "<!-- Persistent Options -->\nnthreads 3\n</opt>\n";
  write("tags", "tree", tree);
  write("tags", "line", std::string("<po a = 1 b='2 3' c=\"x>y\">\n"));
  write("options", "tagged", "0" + tree);
  write("options", "persistent",
        std::string("1# remark\n/ too\n[so]\nmem\t=2048\ni 'a b' \"c=d\" e\n$ /tmp\nmul\nuav\n"));
  const char* const lists[] = {"0a.las\n\n$/b.las\n/c/d.las\n",
                               "11 2 3\n4,5,6\n-7 8e1 9\n",
                               "2\n1\n2\n3\n4\n255 4\n",
                               "31 2 3 .1 .2 .3 1e-5\n2 3 4 5 6 7\n",
                               "41 2 3\n4 5 6\n",
                               "51 2 3\n",
                               "6a*?.l*s\nab.las"};
  for (const char* const list : lists) write("lists", std::string(1, list[0]), std::string(list));
}

// Twenty records of a flight in each format of trajectories; the first byte is the format, the second the options.
void write_trajectories() {
  std::vector<uint8_t> sbet = {0, 9}, trj = {1, 9}, sol = {2, 9}, bin = {3, 9}, pof = {4, 9}, geoid = {8, 0},
                       gtx = {9, 0};
  const size_t trj_head = trj.size(), pof_head = pof.size();
  put(trj, trj_head + 1375, uint8_t(0));
  std::memcpy(&trj[trj_head], "TSCANTRJ", 8);
  put(trj, trj_head + 12, int32_t(1376)), put(trj, trj_head + 16, int32_t(20)),
      put(trj, trj_head + 20, int32_t(64));
  put(pof, pof_head + 290, uint8_t(0));
  std::memcpy(&pof[pof_head], "RIEGL POSITION&ORIENTATION", 27);
  put(pof, pof_head + 27, int16_t(1)), put(pof, pof_head + 29, int16_t(0));
  put(pof, pof_head + 27 + 14, int64_t(20)), put(pof, pof_head + 27 + 94, int8_t(2));
  std::string text = "\x05\x09Time Longitude Latitude Height Roll Pitch Heading\n",
              plain = std::string("\x05\x08");
  for (int i = 0; i < 20; i++) {
    const double t = 305000 + i * 0.01, lon = 0.26 + 1e-8 * i, lat = 0.84, deg = 57.29577951308232;
    const double s[17] = {t, lat, lon, 700, 0, 60, 0, 0.01, 0.02, 1.5};
    for (const double v : s) put(sbet, sbet.size(), v);
    const double projected[8] = {t, 500000.0 + i, 5e6, 700, 90, 1, 2, 0};
    for (const double v : projected) put(trj, trj.size(), v);
    const double sample[7] = {t, lon * deg, lat * deg, 700, 1, 2, 90};
    for (const double v : sample) put(pof, pof.size(), v);
    const size_t b = bin.size(), m = sol.size();
    put(bin, b + 160, 0.0);
    const double place[7] = {t, lat, lon, -700, 0.01, 0.02, 1.5};
    for (size_t k = 0; k < 7; k++) put(bin, b + 8 * k, place[k]);
    put(sol, m + 183, uint8_t(0));
    put(sol, m, uint16_t(21947)), put(sol, m + 2, uint16_t(184)), put(sol, m + 12, uint16_t(2501));
    put(sol, m + 14, uint8_t(1)), put(sol, m + 16, uint16_t(2300)), put(sol, m + 18, t);
    put(sol, m + 37, uint16_t(2)), put(sol, m + 39, uint16_t(9)), put(sol, m + 41, uint8_t(7));
    put(sol, m + 42, lat), put(sol, m + 50, lon), put(sol, m + 58, 700.0);
    const std::string row = std::to_string(t) + ";" + std::to_string(14.9 + i * 1e-6) + ";48.1;700;1;2;90\n";
    text += row;
    plain += std::to_string(t) + " " + std::to_string(500000 + i) + " 5000000 700 1 2 90\n";
  }
  for (const double v : {48.0, 15.0, 0.05, 0.05}) put(geoid, geoid.size(), v);
  for (const int32_t v : {5, 5, 0}) put(geoid, geoid.size(), v);
  for (int k = 0; k < 25; k++) put(geoid, geoid.size(), 46.0F);
  const auto put_swapped = [&gtx](const auto& value) {  // GTX is big-endian
    const auto* const bytes = reinterpret_cast<const uint8_t*>(&value);
    for (size_t k = sizeof value; k-- > 0;) gtx.push_back(bytes[k]);
  };
  for (const double v : {48.0, 15.0, 0.05, 0.05}) put_swapped(v);
  for (const int32_t v : {5, 5}) put_swapped(v);
  for (int k = 0; k < 25; k++) put_swapped(46.0F);
  const std::pair<const char*, std::vector<uint8_t>*> files[] = {
      {"sbet", &sbet}, {"trj", &trj},     {"sol", &sol}, {"bin", &bin},
      {"pof", &pof},   {"geoid", &geoid}, {"gtx", &gtx}};
  for (const auto& [name, bytes] : files) write("trajectories", name, *bytes);
  write("trajectories", "text", text);
  write("trajectories", "plain", plain);
}

// The first file of a directory whose name ends so, with its length in front where others follow; nothing without it.
std::vector<uint8_t> file_bytes(const std::string& dir, const std::string& end, bool with_length) {
  std::vector<std::filesystem::path> paths;
  for (const auto& entry : std::filesystem::directory_iterator(dir))
    if (entry.path().string().ends_with(end)) paths.push_back(entry.path());
  std::sort(paths.begin(), paths.end());
  if (paths.empty()) return with_length ? std::vector<uint8_t>(2) : std::vector<uint8_t>();
  std::ifstream in(paths[0], std::ios::binary);
  std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  bytes.resize(std::min<size_t>(bytes.size(), UINT16_MAX));
  if (!with_length) return bytes;
  std::vector<uint8_t> part(2);
  put(part, 0, static_cast<uint16_t>(bytes.size()));
  part.insert(part.end(), bytes.begin(), bytes.end());
  return part;
}

// Families of caches and displacements as the program itself has left them in a directory.
void write_caches(const std::string& dir) {
  const struct {
    const char* name;
    uint8_t kind;  // what fuzz_caches takes it for
    std::vector<const char*> suffixes;
  } families[] = {
      {"tiles", 0, {".0T.idx", ".mT.idx", ".mT.tbl.Zm", ".mT.tbl.dT", ".UL.idx", ".mT.XYZ"}},
      {"tiles_sums", 0, {".0T.idx", ".mT.idx", ".mT.tbl.Zm", ".mT.tbl.dT", ".UL.idx", ".mT.XYZ", ".mT.sum"}},
      {"grid", 1, {".0T.idx", ".gmT.idx", ".gmT.ZDS"}},
      {"pair", 2, {".rpc.d0"}},
      {"pair_sums", 2, {".rpc.d0", ".rpc.sum"}},
      {"sums", 3, {".gmT.sum"}},
      {"displacements", 4, {"_idx.log", ".dut"}}};
  for (const auto& family : families) {
    std::vector<uint8_t> bytes = {family.kind};
    const bool open_end = family.kind != 0 && family.kind != 2;  // the last file has no length
    for (const char* const suffix : family.suffixes) {
      const bool last = suffix == family.suffixes.back();
      const std::string text = suffix;
      const bool length = !(last && (open_end || text.ends_with(".sum")));
      const std::vector<uint8_t> part = file_bytes(dir, text, length);
      bytes.insert(bytes.end(), part.begin(), part.end());
    }
    write("caches", family.name, bytes);
  }
}

// Texts of systems behind a 0; key directories, doubles and text behind a 1 and the lengths of the first two in units of 8.
void write_systems() {
  const char* const texts[] = {
      "EPSG:25833",
      "EPSG:2154+5720",
      "+proj=utm +zone=33 +datum=WGS84 +units=m",
      "+proj=somerc +lat_0=46.95 +lon_0=7.44 +k_0=1 +x_0=2600000 +y_0=1200000 +ellps=bessel "
      "+towgs84=674,15,405,0,0,0,0",
      "PROJCS[\"p\",GEOGCS[\"g\",DATUM[\"d\",SPHEROID[\"WGS "
      "84\",6378137,298.257223563],TOWGS84[1,2,3,0,0,0,0]],"
      "PRIMEM[\"Greenwich\",0],UNIT[\"degree\",0.0174532925199433]],PROJECTION[\"Transverse_Mercator\"],"
      "PARAMETER[\"latitude_of_origin\",0],PARAMETER[\"central_meridian\",15],PARAMETER[\"scale_factor\",0."
      "9996],"
      "PARAMETER[\"false_easting\",500000],PARAMETER[\"false_northing\",0],UNIT[\"metre\",1]]",
      "PROJCS[\"p\",GEOGCS[\"g\",DATUM[\"D_d\",SPHEROID[\"s\",6378137.0,298.257222101]],PRIMEM[\"Greenwich\","
      "0.0],"
      "UNIT[\"Degree\",0.0174532925199433]],PROJECTION[\"Lambert_Conformal_Conic\"],"
      "PARAMETER[\"False_Easting\",700000.0],PARAMETER[\"False_Northing\",6600000.0],"
      "PARAMETER[\"Central_Meridian\",3.0],PARAMETER[\"Standard_Parallel_1\",49.0],"
      "PARAMETER[\"Standard_Parallel_2\",44.0],PARAMETER[\"Latitude_Of_Origin\",46.5],UNIT[\"Foot_US\",0."
      "3048006096]]",
      "PROJCRS[\"p\",BASEGEOGCRS[\"g\",DATUM[\"d\",ELLIPSOID[\"e\",6378137,298.257222101]]],CONVERSION[\"c\","
      "METHOD[\"Albers Equal Area\",ID[\"EPSG\",9822]],PARAMETER[\"Latitude of false origin\",23,"
      "ANGLEUNIT[\"degree\",0.0174532925199433]]],CS[Cartesian,2],AXIS[\"x\",east],AXIS[\"y\",north],"
      "LENGTHUNIT[\"metre\",1]]"};
  int n = 0;
  for (const std::string text : texts)
    write("crs", "text" + std::to_string(n++), std::string(1, '\0') + text);
  const std::vector<std::vector<uint16_t>> directories = {
      {1, 1, 0, 4, 1024, 0, 1, 1, 3072, 0, 1, 25833, 3076, 0, 1, 9001, 4099, 0, 1, 9003},
      {1,    1, 0, 7, 1024, 0,     1, 1, 3072, 0,     1, 32767, 3074, 0,     1, 32767,
       3075, 0, 1, 1, 3080, 34736, 1, 0, 3082, 34736, 1, 1,     3092, 34736, 1, 2}};
  for (const std::vector<uint16_t>& shorts : directories) {
    const bool numbers = shorts.size() > 20;
    std::vector<uint8_t> bytes = {1, static_cast<uint8_t>(shorts.size() / 4),
                                  static_cast<uint8_t>(numbers ? 3 : 0)};
    for (const uint16_t v : shorts) put(bytes, bytes.size(), v);
    if (numbers)
      for (const double v : {15.0, 500000.0, 0.9996}) put(bytes, bytes.size(), v);
    write("crs", "keys" + std::to_string(n++), bytes);
  }
}

// A whole file: header, the LAZ record if there is a scheme, points.
std::vector<uint8_t> file_of(int format, const LASzip* scheme, const std::vector<uint8_t>& records,
                             uint64_t n) {
  const uint16_t header_size = format >= 6 ? 375 : 227;
  std::vector<uint8_t> file(header_size);
  std::memcpy(file.data(), "LASF", 4);
  file[24] = 1;
  file[25] = format >= 6 ? 4 : format >= 4 ? 3 : 2;
  put(file, 94, header_size);
  file[104] = uint8_t(format | (scheme ? 0x80 : 0));
  put(file, 105, uint16_t(records.size() / n));
  put(file, 107, uint32_t(format >= 6 ? 0 : n));
  if (format >= 6) put(file, 247, n);
  for (int axis = 0; axis < 3; axis++) put(file, 131 + 8 * size_t(axis), 0.01);
  if (scheme) {
    const std::vector<uint8_t> payload = make_laz_vlr(*scheme);
    put(file, 100, uint32_t(1));
    std::vector<uint8_t> vlr(54);
    std::memcpy(&vlr[2], LAZ_USER_ID, sizeof LAZ_USER_ID);
    put(vlr, 18, LAZ_RECORD_ID);
    put(vlr, 20, uint16_t(payload.size()));
    file.insert(file.end(), vlr.begin(), vlr.end());
    file.insert(file.end(), payload.begin(), payload.end());
  }
  const uint64_t points = file.size();
  put(file, 96, uint32_t(points));
  if (!scheme) {
    file.insert(file.end(), records.begin(), records.end());
    return file;
  }
  file.resize(points + 8);
  LazEncoder encoder;
  std::string error;
  std::vector<uint8_t> chunk;
  std::vector<uint32_t> sizes;
  if (!encoder.open(*scheme, error)) return {};
  const uint64_t length = records.size() / n;
  for (uint64_t i = 0; i < n; i += scheme->chunk_size) {
    encoder.encode_chunk(records.data() + i * length, std::min<uint64_t>(scheme->chunk_size, n - i), chunk);
    file.insert(file.end(), chunk.begin(), chunk.end());
    sizes.push_back(uint32_t(chunk.size()));
  }
  put(file, points, uint64_t(file.size()));
  write_laz_chunk_table(*scheme, sizes, {}, file);
  return file;
}
}  // namespace
}  // namespace veld

using namespace veld;

int main(int argc, char** argv) {
  if (argc != 2 && argc != 3) return 1;  // the second: caches that a run has left
  root = argv[1];
  for (int format = 0; format <= 10; format++)
    for (const uint32_t nextra : {0u, 3u}) {
      const uint64_t n = 60;
      const std::vector<uint8_t> records = made_records(format, nextra, n, Flight::smooth, 1);
      LASzip scheme;
      std::string error;
      if (!scheme.setup(format, uint32_t(records.size() / n), error)) return 1;
      const std::string name = "pf" + std::to_string(format) + "_eb" + std::to_string(nextra);
      LazEncoder encoder;
      std::vector<uint8_t> chunk;
      if (!encoder.open(scheme, error)) return 1;
      encoder.encode_chunk(records.data(), n, chunk);
      std::vector<uint8_t> input = {uint8_t(format < 6 ? format : format - 6), uint8_t(nextra),
                                    uint8_t(n - 1), 0};
      input.insert(input.end(), chunk.begin(), chunk.end());
      write(format < 6 ? "pointwise" : "layered", name, input);
      scheme.chunk_size = 25;
      const std::vector<uint8_t> file = file_of(format, &scheme, records, n);
      write("reader", name + ".laz", file);
      write("header", name + ".laz", file);
      const std::vector<uint8_t> plain = file_of(format, nullptr, records, n);
      write("reader", name + ".las", plain);
      if (format == 1 || format == 6)  // trajectories as points, with attributes or without
        for (const bool coded : {false, true}) {
          std::vector<uint8_t> track = {uint8_t(coded ? 7 : 6), 9};
          const std::vector<uint8_t>& points = coded ? file : plain;
          track.insert(track.end(), points.begin(), points.end());
          write("trajectories", name + (coded ? ".laz" : ".las"), track);
        }
      std::vector<uint8_t> table = {0, 0, 0, 60, 0, 0, 0, 0};
      table.resize(16 + 1500);
      put(table, 8, uint64_t(1508));
      write_laz_chunk_table(scheme, {700, 500, 300}, {}, table);
      write("chunk_table", name, table);
    }
  const std::string text = "xyzt\n1.5 2.25 3 4.125\n-7e3,8;9\t10\n# note\n11 12 13 14\n";
  const std::string many =
      "xyztiarncupdeRGBs\n1 2 3 4 5 -6 1 2 3 4 5 0 1 100 200 300 skip\n+1e3 .5 -0.5 1e9 70000 200 9 9 99 999 "
      "99999 1 1 1 1 70000 x\n";
  write("text", "xyzt", text);
  write("text", "all", many);

  LASheader header;  // records of all kinds that the header reads
  const std::string wkt = "PROJCS[\"made\",GEOGCS[\"made\"]]";
  std::vector<uint8_t> extra(2 * 192);
  extra[2] = 3, extra[3] = 24, extra[192 + 2] = 10;
  const std::vector<uint8_t> geokeys = {1, 0, 1, 0, 0, 0, 1, 0, 0, 4, 0, 0, 1, 0, 1, 0};
  LASzip laz;
  std::string error;
  if (!header.add_vlr("LASF_Projection", 2112, wkt.data(), wkt.size() + 1, "wkt") ||
      !header.add_vlr("LASF_Spec", 4, extra.data(), extra.size(), "extra") ||
      !header.add_vlr("LASF_Projection", 34735, geokeys.data(), geokeys.size()) ||
      !header.add_vlr("Tarnwick", 4001, extra.data(), 32, "PROCESSING") || !laz.setup(0, 45, error))
    return 1;
  for (const bool coded : {false, true}) {
    std::vector<uint8_t> records = las_vlr_bytes(header, coded ? &laz : nullptr);
    std::vector<uint8_t> input = {4, uint8_t(header.vlrs.size() + coded), uint8_t(records.size()),
                                  uint8_t(records.size() >> 8)};
    input.insert(input.end(), records.begin(), records.end());
    write("vlrs", coded ? "before_laz" : "before", input);
    LASevlr evlr;
    set_las_text(evlr.user_id, "LASF_Projection");
    evlr.record_id = 2112;
    evlr.length = wkt.size();
    const std::vector<uint8_t> head = las_evlr_header_bytes(evlr);
    input[0] = coded ? 49 : 34;  // version 1.4, one record behind the points, with waves or without
    input.insert(input.end(), head.begin(), head.end());
    input.insert(input.end(), wkt.begin(), wkt.end());
    write("vlrs", coded ? "behind_laz" : "behind", input);
  }

  LASquadtree tree;
  LASindex index;
  if (!tree.setup(635000, 638000, 848000, 854000)) return 1;
  index.prepare(tree);
  for (uint32_t i = 0; i < 110000; i++) index.add(635000 + i % 3000, 848000 + i / 20, i);
  const std::vector<uint8_t> full = index.to_bytes();
  index.complete();
  write("index", "lax", index.to_bytes());
  write("index", "cut", std::vector<uint8_t>(full.begin(), full.begin() + 2000));
  write_project_texts();
  write_trajectories();
  write_systems();
  if (argc == 3) write_caches(argv[2]);
  return 0;
}
