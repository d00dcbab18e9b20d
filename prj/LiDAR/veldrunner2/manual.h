// prj/LiDAR/veldrunner2/manual.h
// Texts that the build makes of the option table for the installed program.
#pragma once
#include <string>

std::string man_page_text();         // roff with the man macros, section 1
std::string bash_completion_text();  // a script for bash that completes the command line
