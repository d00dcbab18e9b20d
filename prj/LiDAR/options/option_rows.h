// prj/LiDAR/options/option_rows.h
// What the option table is written with: a call a row, and the segments in the order of the questions.
// Here:     the calls, by kind of option; the words on availability.
// Not here: the rows (option_rows_*.cpp), the questions about availability (availability.h).
//
// A row: name, short name, range, number of arguments, target, availability, theme, meaning. To make an option
// available, write `available` in its row once some code reads its target.
#pragma once
#include <iterator>
#include <vector>

#include "prj/LiDAR/options/options.h"

namespace veld {
constexpr double ANY = 2e307;  // limit of numbers that may have any value

constexpr Availability available = {Availability::Kind::available, nullptr};
constexpr Availability no_effect = {Availability::Kind::no_effect, nullptr};
constexpr Availability product(const Missing& m) { return {Availability::Kind::product, &m}; }
constexpr Availability setting(const Missing& m) { return {Availability::Kind::setting, &m}; }
constexpr Availability always(const Missing& m) { return {Availability::Kind::always, &m}; }

// What is missing: subject, reason. One without a row left goes.
inline constexpr Missing SPLITTING = {"splitting", "swaths are not split into channels or beams"},
                         PULSE_FILES = {"pulse files", "pulse files are not written"},
                         BLENDING = {"blending", "remaining residuals are not spread over the swaths"},
                         TILING_ORDER = {"order of tiling",
                                         "references are always tiled after the mobile swaths"},
                         GEOMETRY_RMS = {"RMS of the geometry",
                                         "the check of the geometry always reports its RMS"};

// The default of the help is that of the target; where the machine or the data decide, deflt says so.
OptRow flag(const char* name, const char* abbr, bool* target, Availability availability, Theme theme,
            const char* meaning);
// 0 or 1; without an argument 1.
OptRow boolean(const char* name, const char* abbr, OptTarget target, Availability availability, Theme theme,
               const char* meaning);
OptRow integer(const char* name, const char* abbr, int64_t lo, int64_t hi, OptTarget target,
               Availability availability, Theme theme, const char* meaning, const char* complete = "",
               const char* deflt = nullptr);
OptRow real(const char* name, const char* abbr, double lo, double hi, OptTarget target,
            Availability availability, Theme theme, const char* meaning, const char* complete = "",
            const char* deflt = nullptr);
OptRow text(const char* name, const char* abbr, std::string* target, Availability availability, Theme theme,
            const char* meaning, const char* complete = "", const char* deflt = nullptr);
// A file name without a directory.
OptRow filename(const char* name, const char* abbr, std::string* target, Availability availability,
                Theme theme, const char* meaning, const char* complete = "");
OptRow directory(const char* name, const char* abbr, std::string* target, Availability availability,
                 Theme theme, const char* meaning, const char* complete = "", const char* deflt = "");
// Lists, of nmin to nmax arguments.
OptRow texts(const char* name, const char* abbr, int nmin, int nmax, std::vector<std::string>* target,
             Availability availability, Theme theme, const char* meaning, const char* complete = "");
OptRow integers(const char* name, const char* abbr, int lo, int hi, int nmin, int nmax,
                std::vector<int>* target, Availability availability, Theme theme, const char* meaning);
OptRow reals(const char* name, const char* abbr, double lo, double hi, int nmin, int nmax,
             std::vector<double>* target, Availability availability, Theme theme, const char* meaning);

// The segments, in the order of the questions; each adds its rows.
void add_rows_run(Options& o, std::vector<OptRow>& rows);
void add_rows_input(Options& o, std::vector<OptRow>& rows);
void add_rows_po(Options& o, std::vector<OptRow>& rows);
void add_rows_out(Options& o, std::vector<OptRow>& rows);
void add_rows_map(Options& o, std::vector<OptRow>& rows);
void add_rows_reg(Options& o, std::vector<OptRow>& rows);
void add_rows_inv(Options& o, std::vector<OptRow>& rows);
}  // namespace veld
