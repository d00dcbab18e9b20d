#include "prj/LiDAR/POio/txt_layout.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <map>
#include <vector>

#include "lib/general/log.h"
#include "prj/LiDAR/POio/POtime.h"

namespace veld {
namespace {
constexpr size_t FIRST_LINES = 200;  // looked at
constexpr size_t FIRST_ROWS = 50;    // of numbers among them that are enough

// ---- names of columns

struct ColumnName {
  char letter;                     // of -po_parse; 'e' GPS week
  bool degrees;                    // a longitude or latitude
  bool down;                       // counts downwards
  std::vector<const char*> names;  // small letters and digits only
};
const std::vector<ColumnName>& column_names() {
  static const std::vector<ColumnName> rows = {
      {'t',
       false,
       false,
       {"t", "time", "gpstime", "gpst", "gpssec", "gpsseconds", "seconds", "sec", "sow", "secofweek", "tow",
        "timestamp", "weeksec", "weekseconds", "gpssow", "gpstow", "utc", "utctime", "unixtime"}},
      {'x', false, false, {"x", "e", "east", "easting", "rechtswert", "xecef", "ecefx"}},
      {'y', false, false, {"y", "n", "north", "northing", "hochwert", "yecef", "ecefy"}},
      {'x', true, false, {"lon", "long", "longitude", "lng"}},
      {'y', true, false, {"lat", "latitude"}},
      {'z',
       false,
       false,
       {"z", "h", "u", "up", "alt", "altitude", "height", "hell", "ellh", "ellheight", "ellipsoidalheight",
        "elevation", "elev", "zecef", "ecefz"}},
      {'z', false, true, {"down", "depth"}},
      {'w', false, false, {"roll", "rol", "r"}},
      {'p', false, false, {"pitch", "pit", "p"}},
      {'k', false, false, {"yaw", "heading", "hdg", "head", "azimuth", "azi"}},
      {'e', false, false, {"week", "gpsweek", "weekno", "weeknumber", "wn"}}};
  return rows;
}

struct HeaderCell {
  std::string name;  // small letters and digits
  std::string unit;  // in brackets behind it
};

HeaderCell header_cell(std::string_view text) {
  HeaderCell cell;
  bool unit = false;
  for (const char c : text) {
    if (c == '(' || c == '[') unit = true;
    const auto byte = static_cast<unsigned char>(c);
    if (std::isalnum(byte)) (unit ? cell.unit : cell.name) += static_cast<char>(std::tolower(byte));
  }
  return cell;
}

// Cells of a header line: between the separators that it has, else between blanks, units in brackets with the name
// before them.
std::vector<HeaderCell> header_cells(std::string_view line) {
  while (!line.empty() && std::string_view("#%/! ").find(line[0]) != std::string_view::npos)
    line.remove_prefix(1);
  char separator = ' ';
  for (const char c : {'\t', ',', ';'})
    if (line.find(c) != std::string_view::npos) separator = c;
  std::vector<HeaderCell> cells;
  for (size_t i = 0; i <= line.size();) {
    const size_t end = std::min(line.find(separator, i), line.size());
    const std::string_view text = line.substr(i, end - i);
    const HeaderCell cell = header_cell(text);
    i = end + 1;
    if (separator != ' ')
      cells.push_back(cell);
    else if (!cell.name.empty())
      cells.push_back(cell);
    else if (!cell.unit.empty() && !cells.empty())
      cells.back().unit = cell.unit;
  }
  return cells;
}

const ColumnName* find_name(const std::string& name) {
  for (const ColumnName& row : column_names())
    if (std::find_if(row.names.begin(), row.names.end(), [&](const char* n) { return name == n; }) !=
        row.names.end())
      return &row;
  return nullptr;
}

bool is_radians(const std::string& unit) { return unit.starts_with("rad"); }

// Takes the columns from a line if it names time and position, each once. "r p y" behind "x y" are angles.
bool layout_of_header(std::string_view line, TxtLayout& layout) {
  const std::vector<HeaderCell> cells = header_cells(line);
  TxtLayout found = layout;
  std::map<char, int> at;
  bool lon = false, lat = false, ecef = false;
  found.letters.clear();
  for (const HeaderCell& cell : cells) {
    const ColumnName* const row = find_name(cell.name);
    const char letter = !row ? '-' : row->letter == 'y' && at.count('y') && at.count('p') ? 'k' : row->letter;
    found.letters += letter == 'e' ? '-' : letter;
    if (letter == '-') continue;
    if (at.count(letter)) return false;
    at[letter] = static_cast<int>(found.letters.size()) - 1;
    if (letter == 'x') ecef = cell.name.find("ecef") != std::string::npos;
    if (letter == 'x') lon = row->degrees, found.rad_place = found.rad_place || is_radians(cell.unit);
    if (letter == 'y') lat = row->degrees;
    if (letter == 'z') found.NED2ENU = row->down;
    if (letter == 'k' || letter == 'w') found.rad_angle = found.rad_angle || is_radians(cell.unit);
    if (letter == 't') found.time_unit = cell.unit == "us" ? 1e-6 : cell.unit == "ms" ? 1e-3 : 1;
  }
  for (const char letter : {'t', 'x', 'y', 'z'})
    if (!at.count(letter)) return false;
  if (lon != lat) return false;
  found.row.col = POcolumns();
  for (const auto& [letter, i] : at) {
    POcolumns& c = found.row.col;
    (letter == 't'   ? c.t
     : letter == 'x' ? c.x
     : letter == 'y' ? c.y
     : letter == 'z' ? c.z
     : letter == 'w' ? c.w
     : letter == 'p' ? c.p
     : letter == 'k' ? c.k
                     : c.week) = i;
    c.cmax = std::max(c.cmax, i);
  }
  if (found.row.col.cmax >= MAX_PO_FIELDS) return false;
  if (lon && found.coord == PO_PROJ) found.coord = PO_GEO;
  if (ecef && found.coord == PO_PROJ) found.coord = PO_ECEF;
  found.header = true;
  layout = found;
  return true;
}

// ---- numbers and their separators

// Whether a line may be a row of numbers: four fields of digits at least, of which one may be a time with colons.
bool is_row(const std::string& line, const FieldStyle& style) {
  std::string_view field[MAX_PO_FIELDS];
  const int n = split_fields(line, style, field);
  int numbers = 0;
  double value = 0;
  for (int i = 0; i < n; i++)
    numbers += parse_field(field[i], style, value) || parse_hms(field[i], style, value);
  return numbers >= 4;
}

// Whether commas stand where points of numbers do: one at most in each cell between other separators, in some cells,
// never behind or before a blank, and no points at all.
bool has_decimal_commas(const std::string& line) {
  if (line.find(',') == std::string::npos || line.find('.') != std::string::npos) return false;
  int cells = 0, commas = 0;
  for (size_t i = 0; i < line.size();) {
    const size_t end = std::min(line.find_first_of("; \t", i), line.size());
    const std::string_view cell = std::string_view(line).substr(i, end - i);
    const auto n = std::count(cell.begin(), cell.end(), ',');
    if (n > 1 || (n == 1 && (cell.front() == ',' || cell.back() == ','))) return false;
    cells += !cell.empty();
    commas += n == 1;
    i = end + 1;
  }
  return cells >= 4 && 2 * commas >= cells;
}

// Number of fields that most rows have, the smaller one of two equally frequent; empty ones count.
int usual_fields(const std::vector<std::string>& rows, const FieldStyle& style, int& with_empty) {
  std::map<int, int> count;
  with_empty = 0;
  for (const std::string& row : rows) {
    std::string_view field[MAX_PO_FIELDS];
    const int n = split_fields(row, style, field);
    count[n]++;
    with_empty += std::any_of(field, field + n, [](std::string_view f) { return f.empty(); });
  }
  int best = 0;
  for (const auto& [n, times] : count)
    if (best == 0 || times > count[best]) best = n;
  return best;
}

struct Head {                      // the first lines of a file
  std::vector<std::string> above;  // in front of the first row of numbers
  std::vector<std::string> rows;
};

bool read_head(const std::string& path, Head& head, FieldStyle& style) {
  LineReader lines;
  if (!lines.open(path)) {
    ERROR_MSG("failed to open PO file " << path);
    return false;
  }
  std::vector<std::string> first;
  std::string_view line;
  while (first.size() < FIRST_LINES && lines.next(line)) first.emplace_back(line.substr(0, 4096));
  size_t with_commas = 0, with_numbers = 0;
  const FieldStyle decimal = {true, false};
  for (const std::string& text : first) {
    const bool commas = has_decimal_commas(text) && is_row(text, decimal);
    with_commas += commas;
    with_numbers += commas || is_row(text, FieldStyle());
  }
  style.decimal_comma = with_commas > 0 && 2 * with_commas > with_numbers;
  for (const std::string& text : first) {
    if (head.rows.size() == FIRST_ROWS) break;
    if (is_row(text, style))
      head.rows.push_back(text);
    else if (head.rows.empty())
      head.above.push_back(text);
  }
  int with_empty = 0;
  usual_fields(head.rows, style, with_empty);
  style.soft_tabs = 2 * static_cast<size_t>(with_empty) > head.rows.size() &&
                    head.rows[0].find_first_of(",;") == std::string::npos;  // tabs that align columns
  return true;
}

// Numbers with decimal commas between commas look like twice as many numbers.
bool commas_are_ambiguous(const Head& head, const FieldStyle& style, int nfields, const POcolumns& col) {
  if (style.decimal_comma || nfields < 2 * (col.cmax + 1) - 2) return false;
  return std::all_of(head.rows.begin(), head.rows.end(),
                     [](const std::string& row) { return row.find_first_of(".; \t") == std::string::npos; });
}

// Whether the times of the first row are written with colons.
bool has_colons(const Head& head, const TxtLayout& layout) {
  std::string_view field[MAX_PO_FIELDS];
  if (head.rows.empty() || split_fields(head.rows[0], layout.row.field, field) <= layout.row.col.t)
    return false;
  return field[layout.row.col.t].find(':') != std::string_view::npos;
}

void report_layout(const std::string& path, const TxtLayout& layout) {
  if (layout.row.field.decimal_comma) LOG_MSG("commas are taken for points of numbers, PO file " << path);
  if (!layout.header) return;
  LOG_MSG("columns are those of the header line: "
          << layout.letters << (layout.row.col.week >= 0 ? ", GPS week" : "")
          << (layout.coord == PO_GEO    ? ", longitude and latitude"
              : layout.coord == PO_ECEF ? ", earth-centred"
                                        : "")
          << (layout.rad_angle ? ", radians" : "") << (layout.NED2ENU ? ", heights count downwards" : "")
          << ", PO file " << path);
}
}  // namespace

bool find_layout(const std::string& path, const POread& par, bool report, TxtLayout& layout) {
  layout = TxtLayout();
  layout.coord = par.proj;
  layout.rad_place = layout.rad_angle = par.rad;
  layout.letters = par.col.empty() ? "txyzwpk" : par.col;
  if (!parse_PO_columns(par.col, layout.row.col)) return false;
  Head head;
  FieldStyle& style = layout.row.field;
  if (!read_head(path, head, style)) return false;
  int with_empty = 0;
  const int nfields = usual_fields(head.rows, style, with_empty);
  if (par.col.empty())
    for (auto line = head.above.rbegin(); line != head.above.rend() && !layout.header; ++line) {
      TxtLayout named = layout;
      if (!layout_of_header(*line, named)) continue;
      if (static_cast<int>(named.letters.size()) == nfields)
        layout = named;
      else
        WARNING_MSG("header line names " << named.letters.size() << " columns, rows have " << nfields
                                         << ": the names are not used, PO file " << path
                                         << " (check option -po_parse)");
    }
  const POcolumns& col = layout.row.col;
  if (col.k < 0 && (col.w >= 0 || col.p >= 0)) {
    ERROR_MSG("roll or pitch without heading, PO file " << path << " (check option -po_parse)");
    return false;
  }
  if (nfields > 0 && nfields <= col.cmax) {
    ERROR_MSG("rows have " << nfields << " values, columns \"" << layout.letters << "\" need " << col.cmax + 1
                           << ": say what they hold by -po_parse"
                           << (nfields == 4 ? " (time and position alone: -po_parse txyz)" : "")
                           << ", PO file " << path);
    return false;
  }
  if (commas_are_ambiguous(head, style, nfields, col)) {
    ERROR_MSG("commas separate numbers and stand in them, use points or semicolons, PO file " << path);
    return false;
  }
  layout.row.nfields = nfields;
  layout.row.hms = PO_time_is_hms(par.time) || (par.raw_time && has_colons(head, layout));
  POrow row;
  for (const std::string& text : head.rows)
    if (parse_PO_row(text, layout.row, row)) {
      layout.first_time = row.t;
      // Names alone don't make metres degrees.
      if (layout.coord == PO_GEO && par.proj == PO_PROJ && (std::fabs(row.x) > 360 || std::fabs(row.y) > 90))
        layout.coord = par.proj;
      break;
    }
  if (report) report_layout(path, layout);
  return true;
}
}  // namespace veld
