#include "prj/LiDAR/report/html.h"

#include <fstream>
#include <sstream>

#include "lib/general/path.h"

namespace veld {
namespace {
// Black on white, a wide margin for numbers, and the same on paper. What a colour says stands there as a word or shape.
constexpr char STYLE[] = R"(
body{font:16px/1.45 system-ui,"Segoe UI",Arial,sans-serif;color:#111;background:#fff;max-width:60rem;margin:0 auto;padding:1rem}
h1{font-size:1.5rem;margin:.2em 0}h2{font-size:1.2rem;margin:1.8em 0 .5em;border-bottom:1px solid #888}
.sum{border:2px solid #111;padding:.7rem 1rem;font-size:1.1rem}
nav a{margin-right:1em}a{color:#003f8a}a:focus,[tabindex]:focus{outline:3px solid #b35900}
.wide{overflow-x:auto;margin:.6em 0}table{border-collapse:collapse;font-size:.9rem}
caption{text-align:left;font-weight:600;padding:.3em 0;white-space:nowrap}
th,td{border-bottom:1px solid #bbb;padding:.15em .6em;text-align:left;vertical-align:top}th[scope=row]{font-weight:400}
td.n,th.n{text-align:right;font-variant-numeric:tabular-nums}
figure{display:inline-block;margin:.5em 1em .5em 0;max-width:100%;vertical-align:top}
figcaption{font-size:.9rem}img,svg{max-width:100%;height:auto;border:1px solid #bbb;background:#fff}svg{border:0}
img.small{width:16rem;image-rendering:pixelated}
pre{white-space:pre-wrap;overflow-wrap:anywhere;font-size:.85rem}
@page{margin:15mm}
@media print{body{font-size:10pt;max-width:none;padding:0}h1{font-size:15pt}h2{font-size:12pt}nav{display:none}
figure,tr,.sum{break-inside:avoid}h2,caption{break-after:avoid}thead{display:table-header-group}.wide{overflow:visible}
table{font-size:8.5pt}img{max-height:20cm;width:auto}}
)";
}  // namespace

std::string html_text(const std::string& text) {
  std::string s;
  for (const char c : text) {
    if (c == '&')
      s += "&amp;";
    else if (c == '<')
      s += "&lt;";
    else if (c == '>')
      s += "&gt;";
    else if (c == '"')
      s += "&quot;";
    else if (static_cast<unsigned char>(c) >= 32 || c == '\n')
      s += c;
  }
  return s;
}

void put_table(std::ostream& os, const std::string& caption, const std::vector<std::string>& head,
               const std::vector<std::vector<std::string>>& rows, size_t right) {
  os << "<div class=\"wide\" tabindex=\"0\" role=\"region\" aria-label=\"" << html_text(caption)
     << "\"><table><caption>" << html_text(caption) << "</caption><thead><tr>";
  for (size_t i = 0; i < head.size(); i++)
    os << "<th scope=\"col\"" << (i >= right ? " class=\"n\">" : ">") << html_text(head[i]) << "</th>";
  os << "</tr></thead><tbody>\n";
  for (const std::vector<std::string>& row : rows) {
    os << "<tr>";
    for (size_t i = 0; i < row.size(); i++)
      if (i == 0 && right > 0)
        os << "<th scope=\"row\">" << html_text(row[i]) << "</th>";
      else
        os << (i >= right ? "<td class=\"n\">" : "<td>") << html_text(row[i]) << "</td>";
    os << "</tr>\n";
  }
  os << "</tbody></table></div>\n";
}

std::string base64(const std::string& bytes) {
  constexpr char letters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string s;
  s.reserve((bytes.size() + 2) / 3 * 4);
  for (size_t i = 0; i < bytes.size(); i += 3) {
    const size_t n = std::min<size_t>(3, bytes.size() - i);
    uint32_t v = 0;
    for (size_t k = 0; k < 3; k++) v = v << 8 | (k < n ? static_cast<uint8_t>(bytes[i + k]) : 0u);
    for (size_t k = 0; k < 4; k++) s += k <= n ? letters[v >> (18 - 6 * k) & 63] : '=';
  }
  return s;
}

bool put_picture(std::ostream& os, const std::string& path, const std::string& caption, uint64_t max_bytes,
                 bool small) {
  const int64_t size = file_size(path);
  if (size <= 0 || static_cast<uint64_t>(size) > max_bytes) return false;
  std::ifstream in(path, std::ios::binary);
  std::ostringstream all;
  all << in.rdbuf();
  if (!in || all.str().size() != static_cast<size_t>(size)) return false;
  os << "<figure><img" << (small ? " class=\"small\"" : "") << " alt=\"" << html_text(caption)
     << "\" src=\"data:image/jpeg;base64," << base64(all.str()) << "\"><figcaption>" << html_text(caption)
     << "</figcaption></figure>\n";
  return true;
}

void put_page_begin(std::ostream& os, const std::string& title) {
  os << "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">"
        "<meta name=\"viewport\" content=\"width=device-width,initial-scale=1\"><title>"
     << html_text(title) << "</title><style>" << STYLE << "</style></head><body>\n<main>\n<h1>"
     << html_text(title) << "</h1>\n";
}

void put_page_end(std::ostream& os) { os << "</main></body></html>\n"; }
}  // namespace veld
