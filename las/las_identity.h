// las/las_identity.h
// What a header says about the program that wrote the file.
#pragma once
#include "las/lasdefs.h"

namespace veld {
// Whether this program wrote the file, by the record that set_las_header_sid adds.
bool las_is_processed(const LASheader& header);
}  // namespace veld
