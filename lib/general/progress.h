// lib/general/progress.h
// Progress of a long stage: a bar on the console, or a small file that a front end polls, or nothing.
//
// On a terminal the bar's line is drawn again and again, cut to the terminal's width. Where standard output is a file
// or a pipe a line is written at each tenth of the stage.
#pragma once
#include <string>

namespace veld {
enum class ProgressMode { none = 0, console = 1, file = 2 };
void set_progress_mode(ProgressMode mode);
constexpr int ASK_TERMINAL = -1;
// Columns of the terminal, 0: none, ASK_TERMINAL (the default): those of standard output at the start of a stage.
void set_progress_columns(int columns);

// Announces a stage of ntotal > 0 units (asserted).
void progress_start(int ntotal);
// Shows the state after i units (clamped to 0..ntotal) with a text and, from a second on, units of total, the
// time passed since the start of the stage and what remains by the mean time of a unit. Any thread may call
// it.
void progress_step(int i, const std::string& text);
// Shows the full bar with a closing text and ends the stage.
void progress_end(const std::string& text);
}  // namespace veld
