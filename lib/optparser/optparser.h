// lib/optparser/optparser.h
// Options: the sources merged into one list of arguments, and typed questions about it.
// Here:     the parser's state, the questions, the last check, the saved option file.
// Not here: the options themselves, which the program asks for one by one. Tagged files (opttags.h).
//
// A question consumes what it matches, so that what is left in the end is unknown. All questions are asked in
// mode 1 (long names), then again in mode 0 (one-letter names). A bad value is an ERROR line, keeps the
// default and sets the error flag; the program looks at the flag after both passes.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "lib/DataStructure/vector.h"

namespace veld {
constexpr int MAX_OPT = 2048;                                // tokens that one option file may hold
inline constexpr char ILLEGAL_NAME_CHARS[] = "\\/:?*\"<>|";  // not allowed in a file name

struct OptToken {
  std::string text;
  bool used = false;
};

struct OptOccurrence {  // one valid occurrence of an option
  std::vector<std::string> args;
  int pos = -1;  // index of its token in the merged list
};

struct OptParser {
  std::vector<OptToken> args;        // persistent file, tagged file, command line, in this order
  int last_match = -1;               // token of the last question's last match, -1 for none
  bool error = false;                // a value error has been reported
  int mode = 1;                      // 1: long names, 0: short names
  std::vector<std::string> asked;    // long names that have been asked for
  bool single_asked[256] = {};       // short names that have been asked for
  bool long_found[256] = {};         // short names whose long name has been found
  std::string refdir;                // from option -$, empty without
  bool mul = false;                  // option -mul
  std::string saved_dir;             // where the run was that saved the tagged file, empty without
  std::string saved_base;            // the same from the directory of the file, empty when it lay elsewhere
  std::vector<std::string> given;    // "short|long" (or one of the two) of each option that got a valid value
  std::vector<std::string> taglist;  // tags and values of the tagged file, in order
  std::vector<std::string> tag_lines;     // its tag lines as given, indented
  std::vector<std::string> global_lines;  // option lines of the tagged file and the command line
  std::vector<std::string> persistent_lines;
  std::vector<std::string>
      saved_persistent;  // lines of the tagged file that were persistent when it was saved
};

bool is_option_token(const std::string& text);  // "-" and then a letter, "?" or "$"
// The long name that an option token most likely means, by one or two letters changed, left out, put in or swapped;
// empty when none is that near. With a letter behind the short name a token is no short option then.
std::string nearest_option(const OptParser& p, const std::string& token);
bool has_illegal_chars(const std::string& name);

// Merges persistent file (base + ".opt.txt"), tagged file (-opt) and command line; handles -opt, -$ and -mul.
// list_tags: tags whose content is lines of their own, not options. False after an ERROR line.
[[nodiscard]] bool InitGetOptAll(OptParser& p, int argc, char** argv, const std::string& base,
                                 const std::vector<std::string>& list_tags);

// The core question. Consumes all occurrences, checks the number of arguments, returns the valid ones in
// order. repeatable: several occurrences are no reason for a warning. single: the short name may be asked
// only once.
std::vector<OptOccurrence> GetOptAll(OptParser& p, const std::string& longopt, const std::string& shortopt,
                                     int nargmin, int nargmax, bool single, bool repeatable);

// True when found and the last occurrence was valid; args are then its arguments.
bool GetOpt(OptParser& p, std::vector<std::string>& args, const std::string& longopt,
            const std::string& shortopt, int nargmin, int nargmax, bool single);

// The typed questions change the value, and return true, only on a valid argument in range.
bool GetOptFlag(OptParser& p, const std::string& longopt, const std::string& shortopt);
bool GetOptString(OptParser& p, std::string& value, const std::string& longopt, const std::string& shortopt);
bool GetOptFileName(OptParser& p, std::string& value, const std::string& longopt,
                    const std::string& shortopt);
bool GetOptDirectory(OptParser& p, std::string& value, const std::string& longopt,
                     const std::string& shortopt);
// Range 0 to 1 makes it boolean: the argument may be left out, which means 1.
bool GetOptInt(OptParser& p, int64_t& value, const std::string& longopt, const std::string& shortopt,
               int64_t min, int64_t max);
// float_parse: the text is read as a 32-bit number, and the range is taken in 32 bits too.
bool GetOptDouble(OptParser& p, double& value, const std::string& longopt, const std::string& shortopt,
                  bool float_parse, double min, double max);
// Fixed size: as many arguments as the vector has elements.
bool GetOptDoubles(OptParser& p, Vector<double>& value, const std::string& longopt,
                   const std::string& shortopt, const Vector<double>& min, const Vector<double>& max);
// Free size: the range's last element serves all further arguments.
bool GetOptDoubles(OptParser& p, Vector<double>& value, const std::string& longopt,
                   const std::string& shortopt, const Vector<double>& min, const Vector<double>& max,
                   int nargmin, int nargmax, bool float_parse);
bool GetOptInts(OptParser& p, Vector<int>& value, const std::string& longopt, const std::string& shortopt,
                int min, int max, int nargmin, int nargmax);

// Names unknown options and extra arguments, one ERROR line each. True when there are none.
[[nodiscard]] bool CheckUnknownOpt(const OptParser& p);

// Writes tags, options and persistent options in a form that -opt reads again. soft: the soft-info string,
// dir: the current directory. A failure is a WARNING.
void SaveOptionFile(const OptParser& p, const std::string& path, const std::string& soft,
                    const std::string& dir);
}  // namespace veld
