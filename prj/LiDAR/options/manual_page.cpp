// The man page. Its options section is the option table; the rest says what no option says.
#include <string_view>

#include "prj/LiDAR/options/identity.h"
#include "prj/LiDAR/options/manual.h"
#include "prj/LiDAR/options/option_text.h"

namespace veld {
namespace {
// Text as roff shows it: dashes stay dashes, and nothing at the start of a line is a request.
std::string roff(std::string_view text) {
  std::string result;
  if (!text.empty() && (text[0] == '.' || text[0] == '\'')) result += "\\&";
  for (const char c : text) {
    if (c == '\\')
      result += "\\e";
    else if (c == '-')
      result += "\\-";
    else if (c == '~')
      result += "\\(ti";
    else if (c == '"')
      result += "\\(dq";
    else
      result += c;
  }
  return result;
}

std::string section(std::string_view title) { return ".SH " + std::string(title) + "\n"; }
std::string paragraph(std::string_view text) { return ".PP\n" + roff(text) + "\n"; }
// A term and what it means, in one tagged paragraph.
std::string item(std::string_view term, std::string_view text) {
  return ".TP\n.B " + roff(term) + "\n" + roff(text) + "\n";
}

std::string option_item(const OptRow& row) {
  std::string text = row.meaning;
  text += ".\n" + argument_text(row);
  if (!row.deflt.empty()) text += "; default " + row.deflt;
  if (!row.availability.is_available()) text += "; not available yet";
  return item(names_text(row), text + ".");
}

std::string description() {
  return paragraph(
             "veldrunner aligns strips of airborne and UAV LiDAR. It takes swaths (LAS, LAZ), the "
             "trajectories that flew them, and mount or calibration values; measures the displacement "
             "between overlapping swaths with its uncertainty; inverts the displacements for sensor "
             "calibration and trajectory drift; writes corrected swaths; and reports the fit before and "
             "after in logs.") +
         paragraph(
             "Every command begins with a check of its inputs, which takes seconds; -check does nothing else "
             "and prints a table. A run has at most one command (-scan, -fastqc, -reg, -corr, -align, "
             "-align2, -calib, -undo, "
             "-cut, -plot_po); without one it checks the overlaps. Each -i is a group: its swaths share "
             "trajectory parameters and mount. Patterns may be quoted; the program expands them.") +
         paragraph(
             "An option is a dash (or two) and a name; arguments follow after a blank, the first one also "
             "after "
             "\"=\". A one-letter name may have its argument right behind it. An option with the values 0 "
             "and 1 means 1 when it stands alone. When an option is given twice, the last one counts; the "
             "command line counts over option files.");
}

std::string files() {
  return section("FILES") +
         paragraph(
             "The program keeps its own files beside its executable. When it cannot write there, as after "
             "an installation by the package manager, it keeps them in ~/.local/state/veldrunner/ under "
             "the home directory that the user database gives, and says so in its log.") +
         item("veldrunner.log, veldrunner_b.log",
              "Logs of the main thread and of the others. They are copied to the output directory at the "
              "end; older ones are kept with their time in the name.") +
         item("veldrunner.lock", "There while the program runs: one run at a time, unless -mul is given.") +
         item("veldrunner.opt.txt",
              "Options for every run, one a line, without dashes. It may also lie beside the executable "
              "for all users; a user's own takes its place.") +
         item("veldrunner_gui.prog", "Progress of the run, with -progress 2.");
}

std::string streams() {
  return section("OUTPUT STREAMS") +
         paragraph(
             "Lines that begin with ERROR: or WARNING: go to standard error, each text once; all else goes "
             "to standard "
             "output. An ERROR says why the run, or a part of it, cannot be done; a WARNING that the result "
             "lacks "
             "something. The log has both streams. -quiet leaves the ERROR lines alone.") +
         paragraph(
             "On a terminal progress is one line, drawn again and again and cut to the terminal's width. In "
             "a file or "
             "pipe it is a line at each tenth of a stage. The words ERROR and WARNING are coloured on a "
             "terminal "
             "unless NO_COLOR is set.") +
         paragraph(
             "The last lines of a run are its summary: swaths given, corrected, written and left out with "
             "the "
             "reasons; height differences before and after on the same ground, with its share of the "
             "overlap; the "
             "worst pair; the calibration found with its uncertainties.");
}

std::string exit_status() {
  return section("EXIT STATUS") +
         item("0",
              "The run has finished. Swaths may have been left out: the summary names them. -check: no "
              "ERROR.") +
         item("1",
              "It failed; the ERROR lines say why. With -strict also when swaths were left out or the result "
              "is "
              "incomplete. -check: the inputs have faults.") +
         item("130", "It was interrupted (Ctrl-C). No unfinished results are left.") +
         item("128 + n", "It was ended by signal n.");
}
}  // namespace

std::string man_page_text() {
  std::string text = std::string(".TH VELDRUNNER 1 \"\" \"") + PROGRAM_NAME + " " + PROGRAM_VERSION +
                     "\" \"User Commands\"\n.nh\n.ad l\n";
  text += section("NAME") + roff("veldrunner - align strips of airborne LiDAR") + "\n";
  text += section("SYNOPSIS") + ".B veldrunner\n[\\fIoption\\fR [\\fIargument\\fR ...]] ...\n";
  text += section("DESCRIPTION") + description();
  text += section("EXAMPLES");
  for (const Example& e : examples())
    text += item(std::string(PROGRAM_NAME) + " " + e.line, example_meaning(e));
  text += section("OPTIONS");
  Options o;
  const std::vector<OptRow> rows = documented_rows(o);
  for (int t = 0; t < N_THEMES; t++) {
    const Theme theme = static_cast<Theme>(t);
    text += std::string(".SS ") + theme_title(theme) + "\n";
    for (const OptRow& row : rows_of_theme(rows, theme)) text += option_item(row);
  }
  return text + streams() + files() + exit_status() + section("SEE ALSO") +
         ".BR veldsim (1),\n.BR veldscore (1)\n";
}
}  // namespace veld
