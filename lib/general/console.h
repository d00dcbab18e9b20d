// lib/general/console.h
// What the console shows of what the log has.
#pragma once

namespace veld {
// While one exists, plain messages and progress stay off the console; errors, warnings and the log do not change.
class ConsoleQuiet {
 public:
  ConsoleQuiet();
  ~ConsoleQuiet();
  ConsoleQuiet(const ConsoleQuiet&) = delete;
  ConsoleQuiet& operator=(const ConsoleQuiet&) = delete;
};

// On: an ERROR or WARNING text that comes again goes to the log only. Checks before the work report what the stages
// would report again.
void set_console_once(bool once);
}  // namespace veld
